// Holds a lock for one scope. One template serves the library's three kinds
// of lock: statically initialised POSIX mutexes, ZBMutex and ZBSpinLock.
#pragma once

#include "ZBLock.h"

#include <pthread.h>

namespace zb {

inline void acquire(pthread_mutex_t *lock) { pthread_mutex_lock(lock); }
inline void release(pthread_mutex_t *lock) { pthread_mutex_unlock(lock); }
inline void acquire(ZBMutex *lock) { ZBMutexAcquire(lock); }
inline void release(ZBMutex *lock) { ZBMutexRelease(lock); }
inline void acquire(ZBSpinLock *lock) { ZBSpinLockAcquire(lock); }
inline void release(ZBSpinLock *lock) { ZBSpinLockRelease(lock); }

template <typename Lock>
class ScopedLock {
public:
  explicit ScopedLock(Lock *lock) : mLock(lock) { acquire(mLock); }
  ~ScopedLock() { release(mLock); }
  ScopedLock(const ScopedLock &) = delete;
  ScopedLock &operator=(const ScopedLock &) = delete;

private:
  Lock *mLock;
};

} // namespace zb
