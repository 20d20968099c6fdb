// What the virtual-memory sources share: the page protections of the
// library's protection bits, the error table of the memory calls, and the
// switch that lets tests force one way of building a mirrored mapping.
// Included by Sources/Win32 and by tests that link the static library.
#pragma once

#include "ZBError.h"

#include <winsock2.h>
#include <windows.h>

#include <cstdint>

namespace zb::virtualmemory {

constexpr uint32_t kProtectionMask = 7;

// The page protection of a combination of ZBMmapProtection bits; write
// implies read, the system having no write-only pages.
DWORD pageProtection(uint32_t protection) noexcept;
// The bits of a page protection (guard and caching modifiers ignored).
uint32_t protectionBits(DWORD pageProtection) noexcept;
// The code of a failed memory call's error.
ZBError errorFromWinError(DWORD winError) noexcept;

// How ZBVirtualAllocateMirrored builds a mirror: placeholders where the
// system has them, else the reserve / free / map-twice loop. Tests force
// one way; the automatic choice falls back to the loop when the system
// refuses placeholders.
enum class MirrorMethod { Automatic, Placeholders, ReserveAndMap };
void forceMirrorMethod(MirrorMethod method) noexcept;

// The hole between releasing a reservation and mapping into it, where
// another thread's allocation can land. Null outside tests; a test sets it
// to take the range and so drive the retry loop.
extern void (*gMirrorRaceHook)(void *freedAddress, size_t size);

} // namespace zb::virtualmemory
