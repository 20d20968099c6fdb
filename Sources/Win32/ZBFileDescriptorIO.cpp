// Reads and writes: plain, at an offset (the 64-bit offset travels in an
// OVERLAPPED record) and gathered. A zero count never reaches the system,
// and a read that meets the end of the file is a read of 0 bytes; so is a
// read from a pipe whose write ends are all closed, as POSIX read answers.
#include "ZBFileDescriptor.h"

#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBSystemCalls.h"

using namespace zb::file;

namespace {

OVERLAPPED overlappedAt(int64_t offset) {
  OVERLAPPED overlapped = {};
  overlapped.Offset = static_cast<DWORD>(offset);
  overlapped.OffsetHigh = static_cast<DWORD>(static_cast<uint64_t>(offset) >> 32);
  return overlapped;
}

ZBError readFrom(ZBFileDescriptor fd, void *buffer, uint32_t count, OVERLAPPED *overlapped,
                 uint32_t *outBytesRead) {
  DWORD bytes = 0;
  if (!zb::gSystemCalls.ReadFile(handleOf(fd), buffer, count, &bytes, overlapped)) {
    const DWORD error = GetLastError();
    if (error != ERROR_HANDLE_EOF && error != ERROR_BROKEN_PIPE)
      return __ZBIOErrorFromWinError(error);
  }
  if (outBytesRead != nullptr)
    *outBytesRead = bytes;
  return ZBErrorNone;
}

ZBError writeTo(ZBFileDescriptor fd, const void *buffer, uint32_t count, OVERLAPPED *overlapped,
                uint32_t *outBytesWritten) {
  DWORD bytes = 0;
  if (!zb::gSystemCalls.WriteFile(handleOf(fd), buffer, count, &bytes, overlapped))
    return __ZBIOErrorFromWinError(GetLastError());
  if (outBytesWritten != nullptr)
    *outBytesWritten = bytes;
  return ZBErrorNone;
}

// The checks every transfer makes first: true when it is already answered
// in `result` (a zero count, a null buffer).
bool answeredWithoutTransfer(const void *buffer, uint32_t count, uint32_t *outBytes,
                             ZBError *result) {
  if (count == 0) {
    if (outBytes != nullptr)
      *outBytes = 0;
    *result = ZBErrorNone;
    return true;
  }
  if (buffer == nullptr) {
    *result = ZBErrorInvalidArgument;
    return true;
  }
  return false;
}

} // namespace

extern "C" ZBError ZBFileDescriptorRead(ZBFileDescriptor fd, void *buffer, uint32_t count,
                                        uint32_t *outBytesRead) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  ZBError result;
  if (answeredWithoutTransfer(buffer, count, outBytesRead, &result))
    return result;
  return readFrom(fd, buffer, count, nullptr, outBytesRead);
}

extern "C" ZBError ZBFileDescriptorReadAt(ZBFileDescriptor fd, void *buffer, uint32_t count,
                                          int64_t offset, uint32_t *outBytesRead) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  if (offset < 0)
    return ZBErrorOutOfRange;
  ZBError result;
  if (answeredWithoutTransfer(buffer, count, outBytesRead, &result))
    return result;
  if (__ZBFileDescriptorIsSocket(fd))
    return ZBErrorUnsupported;
  OVERLAPPED overlapped = overlappedAt(offset);
  return readFrom(fd, buffer, count, &overlapped, outBytesRead);
}

extern "C" ZBError ZBFileDescriptorWrite(ZBFileDescriptor fd, const void *buffer, uint32_t count,
                                         uint32_t *outBytesWritten) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  ZBError result;
  if (answeredWithoutTransfer(buffer, count, outBytesWritten, &result))
    return result;
  return writeTo(fd, buffer, count, nullptr, outBytesWritten);
}

extern "C" ZBError ZBFileDescriptorWriteAt(ZBFileDescriptor fd, const void *buffer, uint32_t count,
                                           int64_t offset, uint32_t *outBytesWritten) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  if (offset < 0)
    return ZBErrorOutOfRange;
  ZBError result;
  if (answeredWithoutTransfer(buffer, count, outBytesWritten, &result))
    return result;
  OVERLAPPED overlapped = overlappedAt(offset);
  return writeTo(fd, buffer, count, &overlapped, outBytesWritten);
}

extern "C" ZBError ZBFileDescriptorWriteMany(ZBFileDescriptor fd, uint32_t vectorCount,
                                             const ZBFileDescriptorVector *vectors,
                                             uint64_t *outTotal) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  if (outTotal != nullptr)
    *outTotal = 0;
  if (vectorCount != 0 && vectors == nullptr)
    return ZBErrorInvalidArgument;
  for (uint32_t index = 0; index < vectorCount; ++index) {
    uint32_t written = 0;
    const ZBError error =
        ZBFileDescriptorWrite(fd, vectors[index].bytes, vectors[index].count, &written);
    if (error != ZBErrorNone)
      return error;
    if (outTotal != nullptr)
      *outTotal += written;
    if (written < vectors[index].count)
      return ZBErrorNone; // a short write ends the run, as a POSIX writev does
  }
  return ZBErrorNone;
}
