// The system lock under a ZBMutex over POSIX threads, for the native build
// (and the seed of a POSIX port): the recursive kind is a recursive pthread
// mutex, the other a normal one.
#include "ZBMutexBackend.h"

#include <pthread.h>

namespace zb::mutex {

namespace {

static_assert(sizeof(pthread_mutex_t) <= sizeof(ZBMutex::lockStorage) &&
                  alignof(pthread_mutex_t) <= alignof(ZBMutex),
              "a pthread mutex must fit the mutex record");

pthread_mutex_t *systemMutex(ZBMutex *mutex) {
  return reinterpret_cast<pthread_mutex_t *>(mutex->lockStorage);
}

} // namespace

void initialiseLock(ZBMutex *mutex) noexcept {
  pthread_mutexattr_t attributes;
  pthread_mutexattr_init(&attributes);
  pthread_mutexattr_settype(&attributes,
                            mutex->recursive ? PTHREAD_MUTEX_RECURSIVE : PTHREAD_MUTEX_NORMAL);
  pthread_mutex_init(systemMutex(mutex), &attributes);
  pthread_mutexattr_destroy(&attributes);
}

bool tryAcquireLock(ZBMutex *mutex) noexcept {
  return pthread_mutex_trylock(systemMutex(mutex)) == 0;
}

void acquireLock(ZBMutex *mutex) noexcept { pthread_mutex_lock(systemMutex(mutex)); }

void releaseLock(ZBMutex *mutex) noexcept { pthread_mutex_unlock(systemMutex(mutex)); }

void destroyLock(ZBMutex *mutex) noexcept { pthread_mutex_destroy(systemMutex(mutex)); }

} // namespace zb::mutex
