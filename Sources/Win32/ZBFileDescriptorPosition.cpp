// The position and the length of a descriptor's file: seek, size,
// truncation, and the pending-byte count that a file answers from them.
// None of these apply to a socket, except the pending count, which the
// socket layer answers.
#include "ZBFileDescriptor.h"

#include "ZBDescriptorSocketRoute.h"
#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBSystemCalls.h"

using namespace zb::file;

namespace {

// A file never reports more pending bytes than this.
constexpr int64_t kLargestPendingCount = 4096;

ZBError seekHandle(ZBFileDescriptor fd, int64_t offset, DWORD whence, int64_t *outPosition) {
  LARGE_INTEGER distance;
  distance.QuadPart = offset;
  LARGE_INTEGER position = {};
  if (!zb::gSystemCalls.SetFilePointerEx(handleOf(fd), distance, &position, whence))
    return __ZBIOErrorFromWinError(GetLastError());
  if (outPosition != nullptr)
    *outPosition = position.QuadPart;
  return ZBErrorNone;
}

} // namespace

extern "C" ZBError ZBFileDescriptorSeek(ZBFileDescriptor fd, int64_t offset, int64_t *outPosition,
                                        uint32_t whence) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  if (__ZBFileDescriptorIsSocket(fd))
    return ZBErrorUnsupported;
  if (whence > ZBFileDescriptorSeekEnd)
    return ZBErrorInvalidArgument;
  static_assert(ZBFileDescriptorSeekSet == FILE_BEGIN &&
                ZBFileDescriptorSeekCurrent == FILE_CURRENT && ZBFileDescriptorSeekEnd == FILE_END);
  return seekHandle(fd, offset, whence, outPosition);
}

extern "C" ZBError ZBFileDescriptorGetSize(ZBFileDescriptor fd, int64_t *outSize) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  if (__ZBFileDescriptorIsSocket(fd))
    return ZBErrorUnsupported;
  if (outSize == nullptr)
    return ZBErrorInvalidArgument;
  LARGE_INTEGER size;
  if (!zb::gSystemCalls.GetFileSizeEx(handleOf(fd), &size))
    return ZBErrorInvalidHandle; // not a mapped error: callers have always seen this one
  *outSize = size.QuadPart;
  return ZBErrorNone;
}

extern "C" ZBError ZBFileDescriptorTruncate(ZBFileDescriptor fd, int64_t length) noexcept {
  if (length < 0 || !isValid(fd))
    return ZBErrorInvalidArgument;
  if (__ZBFileDescriptorIsSocket(fd))
    return ZBErrorUnsupported;
  FILE_END_OF_FILE_INFO endOfFile;
  endOfFile.EndOfFile.QuadPart = length;
  if (zb::gSystemCalls.SetFileInformationByHandle(handleOf(fd), FileEndOfFileInfo, &endOfFile,
                                                  sizeof endOfFile))
    return ZBErrorNone;

  // The older way moves the position to set the end: put it back when it
  // was inside the new length, else leave it at the new end.
  int64_t position = 0;
  ZBError error = seekHandle(fd, 0, FILE_CURRENT, &position);
  if (error == ZBErrorNone)
    error = seekHandle(fd, length, FILE_BEGIN, nullptr);
  if (error != ZBErrorNone)
    return error;
  if (!zb::gSystemCalls.SetEndOfFile(handleOf(fd)))
    return ZBErrorIO;
  return position < length ? seekHandle(fd, position, FILE_BEGIN, nullptr) : ZBErrorNone;
}

extern "C" ZBError ZBFileDescriptorGetPendingBytesCount(ZBFileDescriptor fd,
                                                        uint32_t *outCount) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  if (outCount == nullptr)
    return ZBErrorInvalidArgument;
  if (__ZBFileDescriptorIsSocket(fd))
    return _ZBDescriptorSocketGetPendingBytesCount(fd, outCount);
  *outCount = 0;
  int64_t position = 0;
  int64_t size = 0;
  if (seekHandle(fd, 0, FILE_CURRENT, &position) != ZBErrorNone ||
      !zb::gSystemCalls.GetFileSizeEx(handleOf(fd), reinterpret_cast<LARGE_INTEGER *>(&size)))
    return ZBErrorUnsupported; // no position or size: nothing a file can answer
  const int64_t pending = size - position;
  *outCount = static_cast<uint32_t>(pending < 0                      ? 0
                                    : pending > kLargestPendingCount ? kLargestPendingCount
                                                                     : pending);
  return ZBErrorNone;
}
