// Mutexes, recursive or not: the exported frames, the same on every
// platform, over the system lock of ZBMutexBackend.h. The non-recursive
// kind is not owner tracked, so the release of a free lock is caught only
// on request, by probing the lock with a try-acquire.
#include "ZBLock.h"

#include "ZBAlloc.h"
#include "ZBLockRecord.h"
#include "ZBLog.h"
#include "ZBMutexBackend.h"

namespace {

using namespace zb::mutex;

constexpr char kWaitSpanFormat[] = "MutexWait[%p]";

void setUp(ZBMutex *mutex, bool recursive) {
  mutex->traceName = 0;
  mutex->recursive = recursive ? 1 : 0;
  mutex->handlesUnacquiredRelease = 0;
  initialiseLock(mutex);
}

void setUpRecursive(ZBMutex *mutex) { setUp(mutex, true); }

void setUpNonRecursive(ZBMutex *mutex) { setUp(mutex, false); }

} // namespace

extern "C" ZBMutex *ZBMutexCreateRecursive(void) noexcept {
  return zb::lock::setUpAllocated<ZBMutex>(_ZBAlloc(sizeof(ZBMutex)), setUpRecursive);
}

extern "C" ZBMutex *ZBMutexCreateNR(void) noexcept {
  return zb::lock::setUpAllocated<ZBMutex>(_ZBAlloc(sizeof(ZBMutex)), setUpNonRecursive);
}

extern "C" bool ZBMutexInitRecursive(ZBMutex *mutex) noexcept {
  return zb::lock::setUpInPlace(mutex, setUpRecursive);
}

extern "C" bool ZBMutexInitNR(ZBMutex *mutex) noexcept {
  return zb::lock::setUpInPlace(mutex, setUpNonRecursive);
}

extern "C" int32_t ZBMutexSetTraceName(ZBMutex *mutex, const char *name) noexcept {
  return zb::lock::defineTraceName(mutex, &ZBMutex::traceName, name);
}

extern "C" ZBError ZBMutexAcquire(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  zb::lock::acquireTryingFirst(mutex, kWaitSpanFormat, tryAcquireLock, acquireLock);
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexTryAcquire(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  // ZBErrorNotOwner is what callers have always been given for a held mutex.
  return tryAcquireLock(mutex) ? ZBErrorNone : ZBErrorNotOwner;
}

extern "C" ZBError ZBMutexRelease(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  // Taking the lock succeeds only if nobody held it: the caller's release
  // was a mistake, which is reported and leaves the lock free.
  if (!mutex->recursive && mutex->handlesUnacquiredRelease && tryAcquireLock(mutex)) {
    releaseLock(mutex);
    ZB_LOG_ERROR("Called Mutex Release on a non-held lock");
    return ZBErrorCrossDevice;
  }
  releaseLock(mutex);
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexHandleUnacquiredRelease(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  // A recursive lock knows its owner; probing it would take it recursively.
  if (mutex->recursive)
    ZB_LOG_FATAL("Cannot handle unacquired releases on recursive mutex");
  mutex->handlesUnacquiredRelease = 1;
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexDestroy(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  destroyLock(mutex);
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexFree(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorNone;
  destroyLock(mutex);
  _ZBFree(mutex);
  return ZBErrorNone;
}
