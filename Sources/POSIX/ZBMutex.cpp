// Mutexes over POSIX-threads mutexes, for the native build (and the seed of
// a POSIX port): the recursive kind is a recursive pthread mutex, the other
// a normal one, probed with a try-lock when asked to catch the release of a
// free lock, just as the Windows form does.
#include "ZBLock.h"

#include "ZBAlloc.h"
#include "ZBLog.h"
#include "ZBSystemTrace.h"
#include "ZBTrace.h"

#include <pthread.h>

namespace {

static_assert(sizeof(pthread_mutex_t) <= sizeof(ZBMutex::lockStorage) &&
                  alignof(pthread_mutex_t) <= alignof(ZBMutex),
              "a pthread mutex must fit the mutex record");

pthread_mutex_t *systemMutex(ZBMutex *mutex) {
  return reinterpret_cast<pthread_mutex_t *>(mutex->lockStorage);
}

void initMutex(ZBMutex *mutex, bool recursive) {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes,
                            recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL);
  pthread_mutex_init(systemMutex(mutex), &attributes);
  pthread_mutexattr_destroy(&attributes);
  mutex->traceName = 0;
  mutex->recursive = recursive ? 1 : 0;
  mutex->handlesUnacquiredRelease = 0;
}

ZBMutex *createMutex(bool recursive) {
  auto *mutex = static_cast<ZBMutex *>(_ZBAlloc(sizeof(ZBMutex)));
  if (mutex != nullptr)
    initMutex(mutex, recursive);
  return mutex;
}

bool tryAcquire(ZBMutex *mutex) { return pthread_mutex_trylock(systemMutex(mutex)) == 0; }

} // namespace

extern "C" ZBMutex *ZBMutexCreateRecursive(void) noexcept { return createMutex(true); }

extern "C" ZBMutex *ZBMutexCreateNR(void) noexcept { return createMutex(false); }

extern "C" bool ZBMutexInitRecursive(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return false;
  initMutex(mutex, true);
  return true;
}

extern "C" bool ZBMutexInitNR(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return false;
  initMutex(mutex, false);
  return true;
}

extern "C" int32_t ZBMutexSetTraceName(ZBMutex *mutex, const char *name) noexcept {
  if (mutex == nullptr)
    return 0;
  mutex->traceName = ZBTraceDefineName(name);
  return mutex->traceName;
}

extern "C" ZBError ZBMutexAcquire(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  if (tryAcquire(mutex))
    return ZBErrorNone;
  zb::SystraceWaitSpan span("MutexWait[%p]", mutex);
  pthread_mutex_lock(systemMutex(mutex));
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexTryAcquire(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  return tryAcquire(mutex) ? ZBErrorNone : ZBErrorNotOwner;
}

extern "C" ZBError ZBMutexRelease(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  if (!mutex->recursive && mutex->handlesUnacquiredRelease && tryAcquire(mutex)) {
    pthread_mutex_unlock(systemMutex(mutex));
    ZB_LOG_ERROR("Called Mutex Release on a non-held lock");
    return ZBErrorCrossDevice;
  }
  pthread_mutex_unlock(systemMutex(mutex));
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexHandleUnacquiredRelease(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  if (mutex->recursive)
    ZB_LOG_FATAL("Cannot handle unacquired releases on recursive mutex");
  mutex->handlesUnacquiredRelease = 1;
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexDestroy(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  pthread_mutex_destroy(systemMutex(mutex));
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexFree(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorNone;
  pthread_mutex_destroy(systemMutex(mutex));
  _ZBFree(mutex);
  return ZBErrorNone;
}
