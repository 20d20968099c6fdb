// Mirrored mappings: one section of pagefile-backed memory mapped twice,
// back to back, so that byte i and byte i + size are the same memory.
//
// Where the system has placeholders, the 2 x size range is reserved as one
// placeholder, split in two and each half replaced by a view: no other
// thread can take the range in between. Elsewhere (and where the system
// refuses placeholders, as Wine does with error 87) the range is reserved to
// find a free spot, released, and both views are mapped at fixed addresses;
// another thread's allocation can land in the hole between, so the attempt
// is repeated a bounded number of times. The library's own mirrors take
// turns at this, so that they do not take each other's holes.
#include "ZBVirtual.h"

#include "ZBSystemCalls.h"
#include "ZBVirtualPrivate.h"
#include "ZBWinAPI.h"

#include <atomic>

namespace zb::virtualmemory {

void (*gMirrorRaceHook)(void *freedAddress, size_t size) = nullptr;

namespace {

// Placeholder constants missing from the mingw-w64 headers (winnt.h of the
// Windows 10 SDK).
constexpr ULONG kMemReservePlaceholder = 0x00040000;
constexpr ULONG kMemReplacePlaceholder = 0x00004000;
constexpr ULONG kMemPreservePlaceholder = 0x00000002;

constexpr int kReserveAndMapAttempts = 16;

std::atomic<MirrorMethod> gForcedMethod{MirrorMethod::Automatic};
// Set when the system refused placeholders as an invalid request: it will
// refuse them every time, so the automatic choice stops asking.
std::atomic<bool> gPlaceholdersRefused{false};

struct Section {
  explicit Section(size_t size) noexcept
      : handle(zb::gSystemCalls.CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE,
                                                   static_cast<DWORD>(size >> 32),
                                                   static_cast<DWORD>(size), nullptr)) {}
  ~Section() {
    if (handle != nullptr)
      CloseHandle(handle);
  }
  Section(const Section &) = delete;
  Section &operator=(const Section &) = delete;
  HANDLE handle;
};

// The placeholder way. Returns the mirror, or null with the system's error
// left in GetLastError.
char *mapIntoPlaceholders(HANDLE section, size_t size) noexcept {
  const winapi::PlaceholderFunctions &functions = winapi::placeholderFunctions();
  if (functions.virtualAlloc2 == nullptr) {
    SetLastError(ERROR_NOT_SUPPORTED);
    return nullptr;
  }
  auto *range = static_cast<char *>(functions.virtualAlloc2(GetCurrentProcess(), nullptr, 2 * size,
                                                            MEM_RESERVE | kMemReservePlaceholder,
                                                            PAGE_NOACCESS, nullptr, 0));
  if (range == nullptr)
    return nullptr;
  if (!zb::gSystemCalls.VirtualFree(range, size, MEM_RELEASE | kMemPreservePlaceholder)) {
    const DWORD error = GetLastError();
    zb::gSystemCalls.VirtualFree(range, 0, MEM_RELEASE);
    SetLastError(error);
    return nullptr;
  }
  void *low = functions.mapViewOfFile3(section, GetCurrentProcess(), range, 0, size,
                                       kMemReplacePlaceholder, PAGE_READWRITE, nullptr, 0);
  void *high = low == nullptr
                   ? nullptr
                   : functions.mapViewOfFile3(section, GetCurrentProcess(), range + size, 0, size,
                                              kMemReplacePlaceholder, PAGE_READWRITE, nullptr, 0);
  if (high != nullptr)
    return range;
  const DWORD error = GetLastError();
  if (low != nullptr)
    zb::gSystemCalls.UnmapViewOfFile(low);
  zb::gSystemCalls.VirtualFree(range, 0, MEM_RELEASE);
  zb::gSystemCalls.VirtualFree(range + size, 0, MEM_RELEASE);
  SetLastError(error);
  return nullptr;
}

// Mirrors made this way in this process would take each other's freed
// ranges most of all (the system hands out the lowest free range, which is
// the one just freed), so they take turns; other allocations can still
// land in the hole, and cost a retry.
SRWLOCK gFreedRangeLock = SRWLOCK_INIT;

// The reserve / free / map-twice way. Null with ERROR_INVALID_ADDRESS
// when every attempt lost the range to another allocation.
char *mapIntoFreedRange(HANDLE section, size_t size) noexcept {
  for (int attempt = 0; attempt < kReserveAndMapAttempts; ++attempt) {
    AcquireSRWLockExclusive(&gFreedRangeLock);
    auto *range = static_cast<char *>(
        zb::gSystemCalls.VirtualAlloc(nullptr, 2 * size, MEM_RESERVE, PAGE_NOACCESS));
    if (range == nullptr) {
      ReleaseSRWLockExclusive(&gFreedRangeLock);
      return nullptr;
    }
    zb::gSystemCalls.VirtualFree(range, 0, MEM_RELEASE);
    if (gMirrorRaceHook != nullptr)
      gMirrorRaceHook(range, 2 * size);
    void *low = zb::gSystemCalls.MapViewOfFileEx(section, FILE_MAP_ALL_ACCESS, 0, 0, size, range);
    void *high = low == nullptr ? nullptr
                                : zb::gSystemCalls.MapViewOfFileEx(section, FILE_MAP_ALL_ACCESS, 0,
                                                                   0, size, range + size);
    ReleaseSRWLockExclusive(&gFreedRangeLock);
    if (high != nullptr)
      return range;
    if (low != nullptr)
      zb::gSystemCalls.UnmapViewOfFile(low);
    // Let the allocation that took the range finish before the next try.
    SwitchToThread();
  }
  SetLastError(ERROR_INVALID_ADDRESS);
  return nullptr;
}

bool validMirrorSize(size_t size) noexcept {
  const size_t granularity = ZBVirtualGetAllocationGranularity();
  return size != 0 && size % granularity == 0 && size <= SIZE_MAX / 2;
}

} // namespace

void forceMirrorMethod(MirrorMethod method) noexcept { gForcedMethod.store(method); }

} // namespace zb::virtualmemory

using namespace zb::virtualmemory;

extern "C" ZBError ZBVirtualAllocateMirrored(size_t size, void **outAddress) noexcept {
  if (outAddress == nullptr)
    return ZBErrorInvalidArgument;
  *outAddress = nullptr;
  if (!validMirrorSize(size))
    return ZBErrorInvalidArgument;
  Section section(size);
  if (section.handle == nullptr)
    return ZBErrorNoMemory;

  const MirrorMethod method = gForcedMethod.load();
  char *mirror = nullptr;
  if (method == MirrorMethod::Placeholders ||
      (method == MirrorMethod::Automatic &&
       !gPlaceholdersRefused.load(std::memory_order_relaxed))) {
    mirror = mapIntoPlaceholders(section.handle, size);
    const DWORD error = mirror == nullptr ? GetLastError() : ERROR_SUCCESS;
    if (error == ERROR_INVALID_PARAMETER || error == ERROR_NOT_SUPPORTED)
      gPlaceholdersRefused.store(true, std::memory_order_relaxed);
    if (mirror == nullptr && method == MirrorMethod::Placeholders)
      return error == ERROR_NOT_ENOUGH_MEMORY ? ZBErrorNoMemory : ZBErrorUnsupported;
  }
  if (mirror == nullptr) {
    mirror = mapIntoFreedRange(section.handle, size);
    if (mirror == nullptr)
      return GetLastError() == ERROR_INVALID_ADDRESS ? ZBErrorResourcesExhausted
                                                     : errorFromWinError(GetLastError());
  }
  // The views keep the section alive; its handle closes here.
  *outAddress = mirror;
  return ZBErrorNone;
}

extern "C" ZBError ZBVirtualFreeMirrored(void *address, size_t size) noexcept {
  if (address == nullptr || !validMirrorSize(size))
    return ZBErrorInvalidArgument;
  auto *low = static_cast<char *>(address);
  MEMORY_BASIC_INFORMATION region;
  if (VirtualQuery(low, &region, sizeof(region)) == 0 || region.AllocationBase != low ||
      region.Type != MEM_MAPPED || VirtualQuery(low + size, &region, sizeof(region)) == 0 ||
      region.AllocationBase != low + size || region.Type != MEM_MAPPED)
    return ZBErrorInvalidAddress;
  // A view that replaced a placeholder releases its range when unmapped.
  const bool unmapped = zb::gSystemCalls.UnmapViewOfFile(low) != 0;
  if (!zb::gSystemCalls.UnmapViewOfFile(low + size) || !unmapped)
    return errorFromWinError(GetLastError());
  return ZBErrorNone;
}
