// Setting a descriptor's file times from nanoseconds since the Unix epoch.
#include "ZBFileDescriptor.h"

#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBLog.h"
#include "ZBSystemCalls.h"
#include "ZBTime.h"

using namespace zb::file;

extern "C" ZBError ZBFileDescriptorSetHRTimes(ZBFileDescriptor fd, const int64_t *creationTime,
                                              const int64_t *accessTime,
                                              const int64_t *modificationTime) noexcept {
  if (!isValid(fd))
    return ZBErrorInvalidHandle;
  // One reading of the clock serves both missing times, so they agree.
  const int64_t now = (accessTime == nullptr || modificationTime == nullptr) ? ZBHRTimeUnix() : 0;
  const FILETIME access = fileTimeFromUnixNanoseconds(accessTime ? *accessTime : now);
  const FILETIME modification =
      fileTimeFromUnixNanoseconds(modificationTime ? *modificationTime : now);
  FILETIME creation = {};
  if (creationTime != nullptr)
    creation = fileTimeFromUnixNanoseconds(*creationTime);
  if (!zb::gSystemCalls.SetFileTime(handleOf(fd), creationTime ? &creation : nullptr, &access,
                                    &modification)) {
    const ZBError error = __ZBIOErrorFromWinError(GetLastError());
    ZB_LOG_ERROR("SetFileTime failed with zb error: %d", error);
    return error;
  }
  return ZBErrorNone;
}
