// Whole-file writing and copying through descriptors, and the same-file
// test that keeps a copy from truncating its own source.
#include "ZBFile.h"

#include "ZBAlloc.h"
#include "ZBFilePrivate.h"
#include "ZBOwned.h"

#include <string.h>

#include <memory>

using namespace zb::file;

namespace {

constexpr uint32_t kChunk = 4096;
constexpr uint32_t kNewFileFlags =
    ZBFileDescriptorOpenReadWrite | ZBFileDescriptorOpenCreate | ZBFileDescriptorOpenExclusive;
static_assert(kNewFileFlags == 0x46);

// Writes all `count` bytes; a short write means the disk is full.
ZBError writeAll(ZBFileDescriptor fd, const char *bytes, uint32_t count) {
  uint32_t written = 0;
  const ZBError error = ZBFileDescriptorWrite(fd, bytes, count, &written);
  if (error != ZBErrorNone)
    return error;
  return written < count ? ZBErrorNoSpace : ZBErrorNone;
}

// Removes the destination (absent is fine) and creates it anew.
ZBError replaceWithNewFile(const char *path, uint16_t mode, ZBFileDescriptor *outFD) {
  const ZBError error = ZBFileRemove(path);
  if (error != ZBErrorNone && error != ZBErrorFileNotFound)
    return error;
  return ZBFileDescriptorOpen(path, kNewFileFlags, mode, outFD);
}

bool sameByName(const char *first, const char *second) {
  return first == second || _stricmp(first, second) == 0;
}

bool sameByIdentity(const char *first, const char *second) {
  ZBFileInfo firstInfo;
  ZBFileInfo secondInfo;
  return ZBPathGetInfo(first, &firstInfo, ZBFileInfoMaskAll) == ZBErrorNone &&
         ZBPathGetInfo(second, &secondInfo, ZBFileInfoMaskAll) == ZBErrorNone &&
         firstInfo.device == secondInfo.device && firstInfo.inode == secondInfo.inode;
}

bool isEmpty(const char *path) { return path == nullptr || path[0] == '\0'; }

} // namespace

extern "C" ZBError ZBFileCreateFromBytes(const void *bytes, size_t length, const char *path,
                                         uint16_t mode) noexcept {
  if (bytes == nullptr || isEmpty(path))
    return ZBErrorInvalidArgument;
  ScopedDescriptor fd;
  ZBError error = replaceWithNewFile(path, mode, fd.out());
  const char *at = static_cast<const char *>(bytes);
  for (size_t left = length; error == ZBErrorNone && left > 0;) {
    const uint32_t count = left < kChunk ? static_cast<uint32_t>(left) : kChunk;
    error = writeAll(fd.get(), at, count);
    at += count;
    left -= count;
  }
  return error;
}

extern "C" ZBError ZBFileCopy(const char *source, const char *destination, uint16_t mode) noexcept {
  if (isEmpty(source) || isEmpty(destination))
    return ZBErrorInvalidArgument;
  if (sameByName(source, destination) || sameByIdentity(source, destination))
    return ZBErrorNone;
  ScopedDescriptor input;
  ZBError error = ZBFileDescriptorOpen(source, ZBFileDescriptorOpenReadOnly, 0, input.out());
  if (error != ZBErrorNone)
    return error;
  ScopedDescriptor output;
  error = replaceWithNewFile(destination, mode, output.out());
  if (error != ZBErrorNone)
    return error;
  zb::Owned<char> buffer(
      static_cast<char *>(_ZBAllocWithZoneAndDesc(nullptr, kChunk, "ZBFileCopy")));
  if (buffer == nullptr)
    return ZBErrorNoMemory;
  for (;;) {
    uint32_t count = 0;
    error = ZBFileDescriptorRead(input.get(), buffer.get(), kChunk, &count);
    if (error != ZBErrorNone || count == 0)
      return error;
    error = writeAll(output.get(), buffer.get(), count);
    if (error != ZBErrorNone)
      return error;
  }
}

extern "C" bool ZBFileIsSame(const char *first, const char *second) noexcept {
  if (isEmpty(first) || isEmpty(second))
    return false;
  return sameByName(first, second) || sameByIdentity(first, second);
}
