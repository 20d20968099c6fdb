// The system lock under a ZBMutex on Windows: the recursive kind is a
// critical section (owner tracked, spins 4 times before sleeping in the
// kernel), the non-recursive kind a slim reader/writer lock held
// exclusively (neither recursive nor owner tracked).
#include "ZBMutexBackend.h"

#include "ZBMutexStorage.h"

#include <windows.h>

namespace zb::mutex {

namespace {
constexpr DWORD kCriticalSectionSpinCount = 4;
} // namespace

void initialiseLock(ZBMutex *mutex) noexcept {
  if (mutex->recursive)
    InitializeCriticalSectionAndSpinCount(criticalSection(mutex), kCriticalSectionSpinCount);
  else
    InitializeSRWLock(slimLock(mutex));
}

bool tryAcquireLock(ZBMutex *mutex) noexcept {
  return mutex->recursive ? TryEnterCriticalSection(criticalSection(mutex)) != FALSE
                          : TryAcquireSRWLockExclusive(slimLock(mutex)) != FALSE;
}

void acquireLock(ZBMutex *mutex) noexcept {
  if (mutex->recursive)
    EnterCriticalSection(criticalSection(mutex));
  else
    AcquireSRWLockExclusive(slimLock(mutex));
}

void releaseLock(ZBMutex *mutex) noexcept {
  if (mutex->recursive)
    LeaveCriticalSection(criticalSection(mutex));
  else
    ReleaseSRWLockExclusive(slimLock(mutex));
}

// A slim reader/writer lock holds no resources.
void destroyLock(ZBMutex *mutex) noexcept {
  if (mutex->recursive)
    DeleteCriticalSection(criticalSection(mutex));
}

} // namespace zb::mutex
