// The system lock under a ZBMutex, as the platform-neutral mutex frames see
// it. Each platform implements these in its own ZBMutexBackend.cpp, keeping
// the lock in the record's lockStorage. Every call reads the record's
// `recursive` field to know which kind of lock it holds, so the frames set
// that field before initialiseLock.
#pragma once

#include "ZBLock.h"

namespace zb::mutex {

// Sets up the system lock: re-entrant and owner tracked when recursive.
void initialiseLock(ZBMutex *mutex) noexcept;
// Takes the lock without waiting; false when it is held (for the
// non-recursive kind, also when the caller itself holds it).
bool tryAcquireLock(ZBMutex *mutex) noexcept;
// Takes the lock, waiting as long as it takes.
void acquireLock(ZBMutex *mutex) noexcept;
// Gives the lock up.
void releaseLock(ZBMutex *mutex) noexcept;
// Undoes initialiseLock.
void destroyLock(ZBMutex *mutex) noexcept;

} // namespace zb::mutex
