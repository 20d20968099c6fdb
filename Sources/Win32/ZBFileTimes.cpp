// File times by path: the file (or, for the link setter, the link itself)
// is opened for writing and its descriptor's times are set.
#include "ZBFile.h"

#include "ZBFilePrivate.h"

using namespace zb::file;

namespace {

ZBError setTimes(const char *path, uint32_t flags, const int64_t *creationTime,
                 const int64_t *accessTime, const int64_t *modificationTime) {
  if (path == nullptr || path[0] == '\0')
    return ZBErrorInvalidArgument;
  ScopedDescriptor fd;
  const ZBError error = ZBFileDescriptorOpen(path, flags, 0644, fd.out());
  if (error != ZBErrorNone)
    return error;
  return ZBFileDescriptorSetHRTimes(fd.get(), creationTime, accessTime, modificationTime);
}

} // namespace

extern "C" ZBError ZBFileSetAccessAndMotificationHRTimes(const char *path,
                                                         const int64_t *accessTime,
                                                         const int64_t *modificationTime) noexcept {
  return setTimes(path, ZBFileDescriptorOpenReadWrite, nullptr, accessTime, modificationTime);
}

extern "C" ZBError ZBLinkSetAccessAndMotificationHRTimes(const char *path,
                                                         const int64_t *accessTime,
                                                         const int64_t *modificationTime) noexcept {
  return setTimes(path, ZBFileDescriptorOpenReadWrite | ZBFileDescriptorOpenNoFollow, nullptr,
                  accessTime, modificationTime);
}

extern "C" ZBError ZBFileSetCreationHRTime(const char *path, const int64_t *creationTime) noexcept {
  // Without access and modification times both become now: a side effect
  // callers have always had.
  return setTimes(path, ZBFileDescriptorOpenReadWrite, creationTime, nullptr, nullptr);
}
