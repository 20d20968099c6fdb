// The thread-key tables' per-thread slot on POSIX systems: a thread_local
// pointer, which the compiler reaches without a call.
#include "ZBThreadLocal.h"

namespace zb::platform {
namespace {

thread_local void *tTable;

} // namespace

bool createThreadTableSlot() noexcept { return true; }

void *threadTableSlot() noexcept { return tTable; }

void setThreadTableSlot(void *table) noexcept { tTable = table; }

// The inline lookups exist on Windows only.
uint32_t inlineThreadTableSlot() noexcept { return UINT32_MAX; }

} // namespace zb::platform
