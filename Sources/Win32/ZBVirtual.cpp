// Virtual memory: the page size, read from the system once.
#include "ZBVirtual.h"

#include "ZBThread.h"

#include <windows.h>

namespace {

uint32_t gPageSizeOnce = 0;
uint32_t gPageSize = 0;

void readPageSize(void *) {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  gPageSize = static_cast<uint32_t>(info.dwPageSize);
}

} // namespace

extern "C" uint32_t ZBVirtualGetPageSize(void) noexcept {
  ZBThreadCallOnce(&gPageSizeOnce, readPageSize, nullptr);
  return gPageSize;
}
