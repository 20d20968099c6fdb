// Where a ZBMutex keeps its Windows lock: a critical section for the
// recursive kind, a slim reader/writer lock for the other, in the same
// storage. Shared by the mutex's Windows backend and the condition variable,
// which waits on either. Included by Sources/Win32 only.
#pragma once

#include "ZBLock.h"

#include <windows.h>

namespace zb::mutex {

static_assert(sizeof(CRITICAL_SECTION) <= sizeof(ZBMutex::lockStorage) &&
                  alignof(CRITICAL_SECTION) <= alignof(ZBMutex),
              "a critical section must fit the mutex record");
static_assert(sizeof(SRWLOCK) <= sizeof(ZBMutex::lockStorage) &&
                  alignof(SRWLOCK) <= alignof(ZBMutex),
              "a slim reader/writer lock must fit the mutex record");

inline CRITICAL_SECTION *criticalSection(ZBMutex *mutex) noexcept {
  return reinterpret_cast<CRITICAL_SECTION *>(mutex->lockStorage);
}

inline SRWLOCK *slimLock(ZBMutex *mutex) noexcept {
  return reinterpret_cast<SRWLOCK *>(mutex->lockStorage);
}

} // namespace zb::mutex
