// Counting semaphores: the kernel semaphore handle is the object itself.
// Waits map the wait result by a fixed table; results that cannot happen
// for the wait that was made are bugs and end the process.
#include "ZBLock.h"

#include "ZBLog.h"
#include "ZBTimePrivate.h"

#include <windows.h>

namespace {

constexpr LONG kMaximumCount = 0x7FFFFFFF;
// SEMAPHORE_ALL_ACCESS: what callers of the handle may need.
constexpr DWORD kSemaphoreAccess = 0x1F0003;

HANDLE systemHandle(ZBSemaphore *semaphore) { return reinterpret_cast<HANDLE>(semaphore); }

ZBError releaseOne(ZBSemaphore *semaphore) {
  if (semaphore == nullptr)
    return ZBErrorInvalidArgument;
  return ReleaseSemaphore(systemHandle(semaphore), 1, nullptr) ? ZBErrorNone : ZBErrorGeneric;
}

} // namespace

extern "C" ZBSemaphore *ZBSemaphoreCreate(int32_t initialCount) noexcept {
  HANDLE handle =
      CreateSemaphoreExW(nullptr, initialCount, kMaximumCount, nullptr, 0, kSemaphoreAccess);
  return reinterpret_cast<ZBSemaphore *>(handle);
}

extern "C" ZBError ZBSemaphoreFree(ZBSemaphore *semaphore) noexcept {
  if (semaphore == nullptr)
    return ZBErrorInvalidArgument;
  if (CloseHandle(systemHandle(semaphore)))
    return ZBErrorNone;
  return GetLastError() == ERROR_BUSY ? ZBErrorNotOwner : ZBErrorGeneric;
}

extern "C" ZBError ZBSemaphoreSignalOne(ZBSemaphore *semaphore) noexcept {
  return releaseOne(semaphore);
}

extern "C" ZBError ZBSemaphoreSignalAll(ZBSemaphore *semaphore) noexcept {
  // The waiter count is unknown, so this wakes one; callers have always
  // seen that, and the counter records each use.
  ZBLogNYICounter("ZBSemaphoreSignalAll", 49);
  return releaseOne(semaphore);
}

extern "C" ZBError ZBSemaphoreWait(ZBSemaphore *semaphore) noexcept {
  if (semaphore == nullptr)
    return ZBErrorInvalidArgument;
  switch (WaitForSingleObject(systemHandle(semaphore), INFINITE)) {
  case WAIT_OBJECT_0:
    return ZBErrorNone;
  case WAIT_ABANDONED:
  case WAIT_FAILED:
    return ZBErrorGeneric;
  case WAIT_TIMEOUT: // an endless wait cannot time out
    ZB_LOG_FATAL_AT(__func__, __FILE__, 59, "BUG");
  default:
    ZB_LOG_FATAL_AT(__func__, __FILE__, 61, "BUG");
  }
}

extern "C" ZBError ZBSemaphoreWaitTimedHR(ZBSemaphore *semaphore, int64_t nanoseconds) noexcept {
  if (semaphore == nullptr)
    return ZBErrorInvalidArgument;
  const DWORD milliseconds = zb::time::saturatingTimeoutMilliseconds(nanoseconds);
  switch (WaitForSingleObject(systemHandle(semaphore), milliseconds)) {
  case WAIT_OBJECT_0:
    return ZBErrorNone;
  case WAIT_TIMEOUT:
    return ZBErrorTimedOut;
  case WAIT_ABANDONED:
  case WAIT_FAILED:
    return ZBErrorGeneric;
  default:
    ZB_LOG_FATAL_AT(__func__, __FILE__, 85, "BUG");
  }
}
