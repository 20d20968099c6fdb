// Virtual memory: the page size and the allocation granularity, read from
// the system once, and the reserve / commit / protect / decommit / release
// frames over VirtualAlloc, VirtualProtect and VirtualFree.
#include "ZBVirtual.h"

#include "ZBErrorMapping.h"
#include "ZBFileDescriptor.h"
#include "ZBSystemCalls.h"
#include "ZBThread.h"
#include "ZBVirtualPrivate.h"

namespace zb::virtualmemory {
namespace {

uint32_t gSystemInfoOnce = 0;
uint32_t gPageSize = 0;
uint32_t gGranularity = 0;

void readSystemInfo(void *) {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  gPageSize = static_cast<uint32_t>(info.dwPageSize);
  gGranularity = static_cast<uint32_t>(info.dwAllocationGranularity);
}

struct ProtectionRow {
  uint32_t bits;
  DWORD page;
};
// Indexed by the protection bits; write-only reads as read-write.
constexpr DWORD kPageProtections[] = {
    PAGE_NOACCESS, PAGE_READONLY,     PAGE_READWRITE,         PAGE_READWRITE,
    PAGE_EXECUTE,  PAGE_EXECUTE_READ, PAGE_EXECUTE_READWRITE, PAGE_EXECUTE_READWRITE};
// The reverse: copy-on-write pages are writable ones.
constexpr ProtectionRow kProtectionBits[] = {
    {0, PAGE_NOACCESS},
    {ZBMmapProtectionRead, PAGE_READONLY},
    {ZBMmapProtectionRead | ZBMmapProtectionWrite, PAGE_READWRITE},
    {ZBMmapProtectionRead | ZBMmapProtectionWrite, PAGE_WRITECOPY},
    {ZBMmapProtectionExecute, PAGE_EXECUTE},
    {ZBMmapProtectionExecute | ZBMmapProtectionRead, PAGE_EXECUTE_READ},
    {ZBMmapProtectionExecute | ZBMmapProtectionRead | ZBMmapProtectionWrite,
     PAGE_EXECUTE_READWRITE},
    {ZBMmapProtectionExecute | ZBMmapProtectionRead | ZBMmapProtectionWrite,
     PAGE_EXECUTE_WRITECOPY},
};

constexpr ErrorMapRow kMemoryErrors[] = {
    {ERROR_NOT_ENOUGH_MEMORY, ZBErrorNoMemory},
    {ERROR_OUTOFMEMORY, ZBErrorNoMemory},
    {ERROR_COMMITMENT_LIMIT, ZBErrorNoMemory},
    {ERROR_INVALID_ADDRESS, ZBErrorInvalidAddress},
    {ERROR_INVALID_PARAMETER, ZBErrorInvalidArgument},
    {ERROR_ACCESS_DENIED, ZBErrorAccessDenied},
};

} // namespace

DWORD pageProtection(uint32_t protection) noexcept {
  return kPageProtections[protection & kProtectionMask];
}

uint32_t protectionBits(DWORD pageProtection) noexcept {
  const DWORD base = pageProtection & 0xFF;
  for (const ProtectionRow &row : kProtectionBits)
    if (row.page == base)
      return row.bits;
  return 0;
}

ZBError errorFromWinError(DWORD winError) noexcept {
  return lookupError(kMemoryErrors, static_cast<int32_t>(winError), ZBErrorGeneric);
}

} // namespace zb::virtualmemory

using namespace zb::virtualmemory;

extern "C" uint32_t ZBVirtualGetPageSize(void) noexcept {
  ZBThreadCallOnce(&gSystemInfoOnce, readSystemInfo, nullptr);
  return gPageSize;
}

extern "C" uint32_t ZBVirtualGetAllocationGranularity(void) noexcept {
  ZBThreadCallOnce(&gSystemInfoOnce, readSystemInfo, nullptr);
  return gGranularity;
}

extern "C" ZBError ZBVirtualReserve(size_t size, void **outAddress) noexcept {
  if (outAddress == nullptr)
    return ZBErrorInvalidArgument;
  *outAddress = nullptr;
  if (size == 0)
    return ZBErrorInvalidArgument;
  void *address = zb::gSystemCalls.VirtualAlloc(nullptr, size, MEM_RESERVE, PAGE_NOACCESS);
  if (address == nullptr)
    return errorFromWinError(GetLastError());
  *outAddress = address;
  return ZBErrorNone;
}

extern "C" ZBError ZBVirtualCommit(void *address, size_t size, uint32_t protection) noexcept {
  if (address == nullptr || size == 0 || (protection & ~kProtectionMask) != 0)
    return ZBErrorInvalidArgument;
  if (zb::gSystemCalls.VirtualAlloc(address, size, MEM_COMMIT, pageProtection(protection)) ==
      nullptr)
    return errorFromWinError(GetLastError());
  return ZBErrorNone;
}

extern "C" ZBError ZBVirtualDecommit(void *address, size_t size) noexcept {
  if (address == nullptr || size == 0)
    return ZBErrorInvalidArgument;
  if (!zb::gSystemCalls.VirtualFree(address, size, MEM_DECOMMIT))
    return errorFromWinError(GetLastError());
  return ZBErrorNone;
}

extern "C" ZBError ZBVirtualProtect(void *address, size_t size, uint32_t protection,
                                    uint32_t *outOldProtection) noexcept {
  if (address == nullptr || size == 0 || (protection & ~kProtectionMask) != 0)
    return ZBErrorInvalidArgument;
  DWORD old = 0;
  if (!zb::gSystemCalls.VirtualProtect(address, size, pageProtection(protection), &old))
    return errorFromWinError(GetLastError());
  if (outOldProtection != nullptr)
    *outOldProtection = protectionBits(old);
  return ZBErrorNone;
}

extern "C" ZBError ZBVirtualRelease(void *address, size_t size) noexcept {
  if (address == nullptr)
    return ZBErrorInvalidArgument;
  MEMORY_BASIC_INFORMATION region;
  if (VirtualQuery(address, &region, sizeof(region)) == 0 || region.AllocationBase != address)
    return ZBErrorInvalidAddress;
  // VirtualFree releases whole reservations only, with a size of 0: check
  // the caller's size against the reservation's own.
  if (size != 0) {
    size_t reserved = 0;
    for (auto *next = static_cast<char *>(address);
         VirtualQuery(next, &region, sizeof(region)) != 0 && region.AllocationBase == address;
         next += region.RegionSize)
      reserved += region.RegionSize;
    const size_t pageSize = ZBVirtualGetPageSize();
    if ((size + pageSize - 1) / pageSize * pageSize != reserved)
      return ZBErrorInvalidArgument;
  }
  if (!zb::gSystemCalls.VirtualFree(address, 0, MEM_RELEASE))
    return errorFromWinError(GetLastError());
  return ZBErrorNone;
}
