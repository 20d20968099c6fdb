// File information by path. Size, mode and the two common times come from
// one attribute query without opening the file; anything more opens the
// path (directories too) and reads the descriptor's full record.
#include "ZBFileDescriptor.h"

#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBSystemCalls.h"

using namespace zb::file;

namespace {

// The fields the attribute query can answer, and the bit the path
// functions ignore.
constexpr uint32_t kAttributeFields = ZBFileInfoMaskSize | ZBFileInfoMaskMode |
                                      ZBFileInfoMaskModificationTime | ZBFileInfoMaskAccessTime;

ZBError infoFromOpenedPath(const wchar_t *ntPath, ZBFileInfo *outInfo, uint32_t mask) {
  const zb::ScopedFileHandle file = openForAttributes(ntPath);
  if (!file.isValid())
    return __ZBIOErrorFromWinError(GetLastError());
  return ZBFileDescriptorGetInfo(descriptorOf(file.get()), outInfo, mask);
}

} // namespace

extern "C" ZBError ZBPathGetInfo(const char *path, ZBFileInfo *outInfo, uint32_t mask) noexcept {
  if (outInfo == nullptr)
    return ZBErrorInvalidArgument;
  NTPath ntPath;
  if (const ZBError error = fileSystemPath(path, &ntPath))
    return error;
  *outInfo = ZBFileInfo{};
  mask &= ~static_cast<uint32_t>(ZBFileInfoMaskNoFollow);
  if ((mask & ~kAttributeFields) != 0)
    return infoFromOpenedPath(ntPath.get(), outInfo, mask);

  WIN32_FILE_ATTRIBUTE_DATA data;
  if (!GetFileAttributesExW(ntPath.get(), GetFileExInfoStandard, &data))
    return __ZBIOErrorFromWinError(GetLastError());
  if (mask & ZBFileInfoMaskSize)
    outInfo->size =
        static_cast<int64_t>((static_cast<uint64_t>(data.nFileSizeHigh) << 32) | data.nFileSizeLow);
  if (mask & ZBFileInfoMaskMode)
    outInfo->mode = modeFromAttributes(data.dwFileAttributes, 0100000);
  if (mask & ZBFileInfoMaskModificationTime)
    outInfo->modificationTime = unixNanoseconds(data.ftLastWriteTime);
  if (mask & ZBFileInfoMaskAccessTime)
    outInfo->accessTime = unixNanoseconds(data.ftLastAccessTime);
  return ZBErrorNone;
}

extern "C" ZBError ZBPathGetMTime(const char *path, int64_t *outTime) noexcept {
  if (outTime == nullptr)
    return ZBErrorInvalidArgument;
  ZBFileInfo info;
  const ZBError error = ZBPathGetInfo(path, &info, ZBFileInfoMaskModificationTime);
  if (error == ZBErrorNone)
    *outTime = info.modificationTime;
  return error;
}

extern "C" ZBError ZBPathGetFileMode(const char *path, uint32_t *outMode) noexcept {
  if (outMode == nullptr)
    return ZBErrorInvalidArgument;
  ZBFileInfo info;
  const ZBError error = ZBPathGetInfo(path, &info, ZBFileInfoMaskMode);
  if (error == ZBErrorNone)
    *outMode = info.mode;
  return error;
}
