// Memory maps of descriptors. The mapping object always covers the whole
// file; the view starts at the offset rounded down to the system's
// allocation granularity, and the caller's pointer is moved forward by the
// rounding so that it points at the offset asked for.
#include "ZBFileDescriptor.h"

#include "ZBAlloc.h"
#include "ZBFilePrivate.h"
#include "ZBLog.h"
#include "ZBSystemCalls.h"
#include "ZBThread.h"
#include "ZBVirtual.h"

using namespace zb::file;

namespace {

constexpr uint32_t kProtectionMask = 7;
constexpr uint32_t kWholeFile = 0xFFFFFFFF;

uint32_t gGranularityOnce = 0;
uint64_t gGranularity = 0;

void _ZBMapInitOSMmapInfo(void *) {
  SYSTEM_INFO info;
  GetNativeSystemInfo(&info);
  gGranularity = info.dwAllocationGranularity;
  const uint32_t pageSize = ZBVirtualGetPageSize();
  if (gGranularity == 0 || pageSize == 0 || gGranularity % pageSize != 0)
    ZB_LOG_FATAL_AT("_ZBMapInitOSMmapInfo", __FILE__, __LINE__, "BUG");
}

uint64_t granularity() {
  ZBThreadCallOnce(&gGranularityOnce, _ZBMapInitOSMmapInfo, nullptr);
  return gGranularity;
}

// The view access for a protection, or 0 when the kind of mapping cannot
// have it.
DWORD viewAccess(uint32_t protection, bool shared) {
  if (shared)
    return protection == 1 ? FILE_MAP_READ : protection == 3 ? FILE_MAP_WRITE : 0;
  switch (protection) {
  case 1: return FILE_MAP_READ;
  case 2: return FILE_MAP_WRITE;
  case 3: return FILE_MAP_COPY;
  case 4:
  case 5: return FILE_MAP_EXECUTE | FILE_MAP_READ;
  case 6:
  case 7: return FILE_MAP_EXECUTE | FILE_MAP_WRITE;
  default: return 0;
  }
}

DWORD pageProtection(uint32_t protection, bool shared) {
  switch (protection) {
  case 1: return PAGE_READONLY;
  case 2:
  case 3: return shared ? PAGE_READWRITE : PAGE_WRITECOPY;
  case 4: return PAGE_EXECUTE;
  case 5: return PAGE_EXECUTE_READ;
  case 6:
  case 7: return shared ? PAGE_EXECUTE_READWRITE : PAGE_EXECUTE_WRITECOPY;
  default: return PAGE_NOACCESS;
  }
}

// The codes of a failed mapping; other errors are generic.
constexpr ErrorMapRow kMapErrors[] = {
    {0, ZBErrorInvalidArgument},
    {ERROR_PATH_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_INVALID_DRIVE, ZBErrorFileNotFound},
    {ERROR_ACCESS_DENIED, ZBErrorAccessDenied},
    {ERROR_NOT_ENOUGH_MEMORY, ZBErrorNoMemory},
    {ERROR_OUTOFMEMORY, ZBErrorNoMemory},
    {ERROR_WRITE_PROTECT, ZBErrorReadOnlyFileSystem},
    {ERROR_FILE_EXISTS, ZBErrorFileExists},
    {ERROR_DIR_NOT_EMPTY, ZBErrorDirectoryNotEmpty},
    {4307, ZBErrorDirectoryNotEmpty},
    {ERROR_PATH_BUSY, ZBErrorFileBusy},
};

} // namespace

extern "C" ZBError ZBMmapCreateWithFD(ZBFileDescriptor fd, int64_t offset, uint32_t length,
                                      uint32_t flags, ZBMmap **outMap) noexcept {
  if (outMap == nullptr)
    return ZBErrorInvalidArgument;
  *outMap = nullptr;
  if (length == 0 || !isValid(fd))
    return ZBErrorInvalidArgument;
  const uint32_t protection = flags & kProtectionMask;
  const bool shared = (flags & ZBMmapShared) != 0;
  const DWORD access = viewAccess(protection, shared);
  if (access == 0)
    return ZBErrorUnsupported;

  auto *map =
      static_cast<ZBMmap *>(_ZBAllocWithZoneAndDesc(nullptr, sizeof(ZBMmap), "ZBMmapCreateWithFD"));
  if (map == nullptr)
    return ZBErrorNoMemory;
  LARGE_INTEGER size = {};
  const uint32_t pageSize = ZBVirtualGetPageSize();
  const bool sized = GetFileSizeEx(handleOf(fd), &size);
  const int64_t mappedLength = length == kWholeFile ? size.QuadPart : length;
  if (!sized || offset < 0 || offset % pageSize != 0 || offset >= size.QuadPart ||
      mappedLength > size.QuadPart - offset || mappedLength > kWholeFile) {
    _ZBFree(map);
    return ZBErrorInvalidArgument;
  }

  HANDLE mapping = zb::gSystemCalls.CreateFileMappingFromApp(
      handleOf(fd), nullptr, pageProtection(protection, shared), 0, nullptr);
  const uint64_t viewOffset = static_cast<uint64_t>(offset) / granularity() * granularity();
  const uint64_t rounding = static_cast<uint64_t>(offset) - viewOffset;
  void *view = mapping == nullptr
                   ? nullptr
                   : zb::gSystemCalls.MapViewOfFileFromApp(
                         mapping, access, viewOffset, static_cast<SIZE_T>(mappedLength + rounding));
  if (view == nullptr) {
    const DWORD error = GetLastError();
    if (mapping != nullptr)
      CloseHandle(mapping);
    _ZBFree(map);
    return mapError(kMapErrors, error);
  }
  map->bytes = static_cast<char *>(view) + rounding;
  map->length = static_cast<uint32_t>(mappedLength);
  map->mapping = mapping;
  *outMap = map;
  return ZBErrorNone;
}

extern "C" void *ZBMmapGetBytes(ZBMmap *map) noexcept {
  return map != nullptr ? map->bytes : nullptr;
}

extern "C" uint32_t ZBMmapGetSize(ZBMmap *map) noexcept { return map != nullptr ? map->length : 0; }

extern "C" ZBError ZBMmapSynchronize(ZBMmap *map, bool synchronous) noexcept {
  if (map == nullptr || !synchronous || map->mapping == nullptr)
    return ZBErrorNone;
  return zb::gSystemCalls.FlushViewOfFile(map->bytes, map->length) ? ZBErrorNone : ZBErrorGeneric;
}

extern "C" ZBError ZBMmapFree(ZBMmap *map) noexcept {
  if (map == nullptr)
    return ZBErrorNone;
  const uintptr_t bytes = reinterpret_cast<uintptr_t>(map->bytes);
  UnmapViewOfFile(reinterpret_cast<void *>(bytes - bytes % granularity()));
  if (map->mapping != nullptr)
    CloseHandle(map->mapping);
  _ZBFree(map);
  return ZBErrorNone;
}
