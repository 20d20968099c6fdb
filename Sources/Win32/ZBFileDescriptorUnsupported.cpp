// The descriptor entry points this platform cannot serve. Each counts its
// use as not implemented (at the line callers' counters know it by) and
// answers the fixed value they have always seen.
#include "ZBFileDescriptor.h"

#include "ZBLog.h"

extern "C" ZBError ZBFileDescriptorOpenNull(ZBFileDescriptor *) noexcept {
  ZBLogNYICounter("ZBFileDescriptorOpenNull", 225);
  return -1;
}

extern "C" ZBError ZBFileDescriptorCreatePipe(ZBFileDescriptor *) noexcept {
  ZBLogNYICounter("ZBFileDescriptorCreatePipe", 270);
  return ZBErrorIO;
}

extern "C" ZBError ZBFileDescriptorLock(ZBFileDescriptor, int32_t, int64_t, int64_t) noexcept {
  ZBLogNYICounter("ZBFileDescriptorLock", 992);
  return ZBErrorNone; // no lock is taken
}

extern "C" ZBError ZBFileDescriptorGetLock(ZBFileDescriptor, int32_t, int64_t, int64_t,
                                           int32_t *) noexcept {
  ZBLogNYICounter("ZBFileDescriptorGetLock", 1004);
  return ZBErrorShutdown;
}

extern "C" ZBFileDescriptor ZBFileDescriptorFromStdIn(void) noexcept {
  ZBLogNYICounter("ZBFileDescriptorFromStdIn", 1013);
  return 0;
}

extern "C" ZBFileDescriptor ZBFileDescriptorFromStdOut(void) noexcept {
  ZBLogNYICounter("ZBFileDescriptorFromStdOut", 1024);
  return 0;
}

extern "C" ZBFileDescriptor ZBFileDescriptorFromStdErr(void) noexcept {
  ZBLogNYICounter("ZBFileDescriptorFromStdErr", 1035);
  return 0;
}

extern "C" ZBError ZBFileDescriptorCopyPath(ZBFileDescriptor, char **) noexcept {
  ZBLogNYICounter("ZBFileDescriptorCopyPath", 1092);
  return ZBErrorNotImplemented;
}

extern "C" ZBError ZBFileDescriptorSetNoCache(ZBFileDescriptor, bool noCache) noexcept {
  if (noCache)
    ZBLogNYICounter("ZBFileDescriptorSetNoCache", 1122);
  return ZBErrorUnsupported;
}
