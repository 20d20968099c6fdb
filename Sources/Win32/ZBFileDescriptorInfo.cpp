// What a descriptor is and what its file holds: the file-type tests, the
// stat-like information record with its mode rules and file ID, flushing,
// and the close-on-exec flag (the inverse of the handle's inherit flag).
#include "ZBFileDescriptor.h"

#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBLog.h"
#include "ZBSystemCalls.h"
#include "ZBVirtual.h"

#include <cstring>

using namespace zb::file;

namespace {

uint32_t fileTypeBits(ZBFileDescriptor fd) {
  switch (GetFileType(handleOf(fd))) {
  case FILE_TYPE_DISK:
  case FILE_TYPE_REMOTE: return 0100000;
  case FILE_TYPE_CHAR: return 020000;
  case FILE_TYPE_PIPE: return 010000;
  default: return 0;
  }
}

// Device and inode from the 128-bit file ID, or from the older 64-bit file
// index where the system has no file ID for this handle.
ZBError readDeviceAndInode(ZBFileDescriptor fd, ZBFileInfo *info) {
  FILE_ID_INFO fileID;
  if (zb::gSystemCalls.GetFileInformationByHandleEx(handleOf(fd), FileIdInfo, &fileID,
                                                    sizeof fileID)) {
    const unsigned char *bytes = fileID.FileId.Identifier;
    info->device = fileID.VolumeSerialNumber;
    std::memcpy(&info->inode, bytes, sizeof info->inode);
    for (size_t index = 8; index < 16; ++index)
      if (bytes[index] != 0)
        ZB_LOG_AT(ZBLogLevelError, "__ZBFileDescriptorGetInodeAndDevice", __FILE__, __LINE__,
                  "File ID (inode) will be truncated: {%02x %02x %02x %02x %02x %02x %02x %02x "
                  "%02x %02x %02x %02x %02x %02x %02x %02x}",
                  bytes[0], bytes[1], bytes[2], bytes[3], bytes[4], bytes[5], bytes[6], bytes[7],
                  bytes[8], bytes[9], bytes[10], bytes[11], bytes[12], bytes[13], bytes[14],
                  bytes[15]);
    return ZBErrorNone;
  }
  const DWORD error = GetLastError();
  if (error != ERROR_INVALID_PARAMETER)
    ZB_LOG_AT(ZBLogLevelError, "__ZBFileDescriptorGetInodeAndDevice", __FILE__, __LINE__,
              "GetFileInformationByHandleEx FileIdInfo failed: %d; will try "
              "GetFileInformationByHandle",
              static_cast<int>(error));
  BY_HANDLE_FILE_INFORMATION handleInfo;
  if (!zb::gSystemCalls.GetFileInformationByHandle(handleOf(fd), &handleInfo))
    return __ZBIOErrorFromWinError(GetLastError());
  info->device = handleInfo.dwVolumeSerialNumber;
  info->inode = (static_cast<uint64_t>(handleInfo.nFileIndexHigh) << 32) | handleInfo.nFileIndexLow;
  return ZBErrorNone;
}

} // namespace

extern "C" bool __ZBFileDescriptorIsSocket(ZBFileDescriptor fd) noexcept {
  ZBLogNYICounter("__ZBFileDescriptorIsSocket", 37);
  return GetFileType(handleOf(fd)) == FILE_TYPE_PIPE;
}

extern "C" bool ZBFileDescriptorIsSocket(ZBFileDescriptor fd) noexcept {
  return isValid(fd) && __ZBFileDescriptorIsSocket(fd);
}

extern "C" bool ZBFileDescriptorIsIPC(ZBFileDescriptor fd) noexcept {
  return isValid(fd) && GetFileType(handleOf(fd)) == FILE_TYPE_PIPE;
}

extern "C" bool ZBFileDescriptorIsTTY(ZBFileDescriptor fd) noexcept {
  if (!isValid(fd))
    return false;
  const DWORD type = GetFileType(handleOf(fd));
  return type == FILE_TYPE_CHAR || type == FILE_TYPE_PIPE;
}

extern "C" ZBError ZBFileDescriptorGetInfo(ZBFileDescriptor fd, ZBFileInfo *outInfo,
                                           uint32_t mask) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  if (outInfo == nullptr)
    return ZBErrorInvalidArgument;
  *outInfo = ZBFileInfo{};
  if (mask == ZBFileInfoMaskSize) {
    LARGE_INTEGER size;
    if (!zb::gSystemCalls.GetFileSizeEx(handleOf(fd), &size))
      return ZBErrorInvalidHandle;
    outInfo->size = size.QuadPart;
    return ZBErrorNone;
  }
  FILE_BASIC_INFO basic;
  FILE_STANDARD_INFO standard;
  if (!zb::gSystemCalls.GetFileInformationByHandleEx(handleOf(fd), FileBasicInfo, &basic,
                                                     sizeof basic) ||
      !zb::gSystemCalls.GetFileInformationByHandleEx(handleOf(fd), FileStandardInfo, &standard,
                                                     sizeof standard))
    return __ZBIOErrorFromWinError(GetLastError());
  if ((mask & ZBFileInfoMaskAll) == ZBFileInfoMaskAll) {
    const ZBError error = readDeviceAndInode(fd, outInfo);
    if (error != ZBErrorNone)
      return error;
  }
  outInfo->size = standard.EndOfFile.QuadPart;
  outInfo->allocatedSize = standard.AllocationSize.QuadPart;
  outInfo->linkCount = standard.NumberOfLinks;
  outInfo->creationTime = unixNanoseconds(basic.CreationTime);
  outInfo->changeTime = unixNanoseconds(basic.ChangeTime);
  outInfo->modificationTime = unixNanoseconds(basic.LastWriteTime);
  outInfo->accessTime = unixNanoseconds(basic.LastAccessTime);
  outInfo->blockSize = ZBVirtualGetPageSize();
  outInfo->mode = modeFromAttributes(basic.FileAttributes, fileTypeBits(fd));
  return ZBErrorNone;
}

extern "C" ZBError ZBFileDescriptorSynchronize(ZBFileDescriptor fd) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  if (!zb::gSystemCalls.FlushFileBuffers(handleOf(fd)))
    return __ZBIOErrorFromWinError(GetLastError());
  return ZBErrorNone;
}

extern "C" ZBError ZBFileDescriptorSetCloseOnExec(ZBFileDescriptor fd, bool closeOnExec) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  if (!zb::gSystemCalls.SetHandleInformation(handleOf(fd), HANDLE_FLAG_INHERIT,
                                             closeOnExec ? 0 : HANDLE_FLAG_INHERIT))
    return __ZBIOErrorFromWinError(GetLastError());
  return ZBErrorNone;
}

extern "C" ZBError ZBFileDescriptorGetCloseOnExec(ZBFileDescriptor fd,
                                                  bool *outCloseOnExec) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  if (outCloseOnExec == nullptr)
    return ZBErrorInvalidArgument;
  DWORD flags = 0;
  if (!zb::gSystemCalls.GetHandleInformation(handleOf(fd), &flags))
    return __ZBIOErrorFromWinError(GetLastError());
  *outCloseOnExec = (flags & HANDLE_FLAG_INHERIT) == 0;
  return ZBErrorNone;
}
