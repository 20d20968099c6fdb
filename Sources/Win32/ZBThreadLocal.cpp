// The thread-key tables' per-thread slot on Windows: a TLS index whose value
// is read straight from the thread environment block. TlsGetValue does the
// same read but also clears the thread's last error, which costs it twice
// as long as the whole thread-key lookup is allowed to take.
#include "ZBThreadLocal.h"

#include <windows.h>
#include <winternl.h>

#include <cstddef>
#include <cstdint>

namespace zb::platform {
namespace {

DWORD sSlot = TLS_OUT_OF_INDEXES;

} // namespace

bool createThreadTableSlot() noexcept {
  sSlot = TlsAlloc();
  return sSlot != TLS_OUT_OF_INDEXES;
}

// GCC 12 takes NtCurrentTeb's read of the segment register for an access
// through a null pointer and warns about array bounds.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
void *threadTableSlot() noexcept {
  // The first 64 indexes live in the TEB itself (winternl.h's TlsSlots);
  // later ones in an expansion block that only TlsGetValue knows.
  if (sSlot < TLS_MINIMUM_AVAILABLE)
    return NtCurrentTeb()->TlsSlots[sSlot];
  return TlsGetValue(sSlot);
}
#pragma GCC diagnostic pop

void setThreadTableSlot(void *table) noexcept { TlsSetValue(sSlot, table); }

// The header reads the TEB's TlsSlots at the offset x64 Windows gives them.
static_assert(offsetof(TEB, TlsSlots) == 0x1480, "the inline lookups' TLS array");

uint32_t inlineThreadTableSlot() noexcept {
  return sSlot < TLS_MINIMUM_AVAILABLE ? sSlot : UINT32_MAX;
}

} // namespace zb::platform
