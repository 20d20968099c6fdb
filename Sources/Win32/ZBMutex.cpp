// Mutexes on Windows: the recursive kind over a critical section (owner
// tracked, spins 4 times before sleeping in the kernel), the non-recursive
// kind over a slim reader/writer lock held exclusively (neither recursive nor
// owner tracked, so the release of a free lock is caught only on request).
#include "ZBLock.h"

#include "ZBAlloc.h"
#include "ZBLog.h"
#include "ZBMutexStorage.h"
#include "ZBSystemTrace.h"
#include "ZBTrace.h"

#include <windows.h>

namespace {

using zb::mutex::criticalSection;
using zb::mutex::slimLock;

constexpr DWORD kCriticalSectionSpinCount = 4;

void initRecursive(ZBMutex *mutex) {
  InitializeCriticalSectionAndSpinCount(criticalSection(mutex), kCriticalSectionSpinCount);
  mutex->traceName = 0;
  mutex->recursive = 1;
  mutex->handlesUnacquiredRelease = 0;
}

void initNonRecursive(ZBMutex *mutex) {
  InitializeSRWLock(slimLock(mutex));
  mutex->traceName = 0;
  mutex->recursive = 0;
  mutex->handlesUnacquiredRelease = 0;
}

ZBMutex *createMutex(void (*init)(ZBMutex *)) {
  auto *mutex = static_cast<ZBMutex *>(_ZBAlloc(sizeof(ZBMutex)));
  if (mutex != nullptr)
    init(mutex);
  return mutex;
}

bool tryAcquire(ZBMutex *mutex) {
  return mutex->recursive ? TryEnterCriticalSection(criticalSection(mutex)) != FALSE
                          : TryAcquireSRWLockExclusive(slimLock(mutex)) != FALSE;
}

} // namespace

extern "C" ZBMutex *ZBMutexCreateRecursive(void) noexcept { return createMutex(initRecursive); }

extern "C" ZBMutex *ZBMutexCreateNR(void) noexcept { return createMutex(initNonRecursive); }

extern "C" bool ZBMutexInitRecursive(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return false;
  initRecursive(mutex);
  return true;
}

extern "C" bool ZBMutexInitNR(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return false;
  initNonRecursive(mutex);
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
  // The uncontended path stays free of trace calls.
  if (tryAcquire(mutex))
    return ZBErrorNone;
  zb::SystraceWaitSpan span("MutexWait[%p]", mutex);
  if (mutex->recursive)
    EnterCriticalSection(criticalSection(mutex));
  else
    AcquireSRWLockExclusive(slimLock(mutex));
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexTryAcquire(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  // ZBErrorNotOwner is what callers have always been given for a held mutex.
  return tryAcquire(mutex) ? ZBErrorNone : ZBErrorNotOwner;
}

extern "C" ZBError ZBMutexRelease(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  if (mutex->recursive) {
    LeaveCriticalSection(criticalSection(mutex));
    return ZBErrorNone;
  }
  // Taking the lock succeeds only if nobody held it: the caller's release
  // was a mistake, which is reported and leaves the lock free.
  if (mutex->handlesUnacquiredRelease && TryAcquireSRWLockExclusive(slimLock(mutex))) {
    ReleaseSRWLockExclusive(slimLock(mutex));
    ZB_LOG_ERROR("Called Mutex Release on a non-held lock");
    return ZBErrorCrossDevice;
  }
  ReleaseSRWLockExclusive(slimLock(mutex));
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexHandleUnacquiredRelease(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  // A critical section knows its owner; probing it would take it recursively.
  if (mutex->recursive)
    ZB_LOG_FATAL("Cannot handle unacquired releases on recursive mutex");
  mutex->handlesUnacquiredRelease = 1;
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexDestroy(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorInvalidArgument;
  if (mutex->recursive)
    DeleteCriticalSection(criticalSection(mutex));
  return ZBErrorNone;
}

extern "C" ZBError ZBMutexFree(ZBMutex *mutex) noexcept {
  if (mutex == nullptr)
    return ZBErrorNone;
  if (mutex->recursive)
    DeleteCriticalSection(criticalSection(mutex));
  _ZBFree(mutex);
  return ZBErrorNone;
}
