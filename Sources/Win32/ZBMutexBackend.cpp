// The system lock under a ZBMutex on Windows: the recursive kind is a
// critical section (owner tracked, spins 4 times before sleeping in the
// kernel), the non-recursive kind a slim reader/writer lock held
// exclusively (neither recursive nor owner tracked). The two calls of the
// recursive kind's uncontended path are exported as pointers, which
// ZBLock.h's inline forms call directly.
#include "ZBMutexBackend.h"

#include "ZBMutexStorage.h"

#include <windows.h>

// Calling through these pointers is calling the functions themselves: on
// x64 Windows a pointer parameter and a BOOL result pass alike whatever
// their declared types.
_ZBMutexSystemCalls _gZBMutexSystemCalls = {
    reinterpret_cast<int32_t (*)(void *)>(reinterpret_cast<void (*)()>(&TryEnterCriticalSection)),
    reinterpret_cast<void (*)(void *)>(reinterpret_cast<void (*)()>(&LeaveCriticalSection)),
};

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
