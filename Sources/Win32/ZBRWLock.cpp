// Reader/writer locks over a slim reader/writer lock: many readers or one
// writer, neither recursive nor owner tracked. Reading and writing differ
// only in the system calls they make, so each frame is written once over
// the access it takes.
#include "ZBLock.h"

#include "ZBAlloc.h"
#include "ZBLockRecord.h"

#include <windows.h>

namespace {

static_assert(sizeof(SRWLOCK) <= sizeof(ZBRWLock::lockStorage) &&
                  alignof(SRWLOCK) <= alignof(ZBRWLock),
              "a slim reader/writer lock must fit the record");

// Create hands out a block this large, more than the record needs, so that
// the record can grow without changing what callers of Create receive.
constexpr size_t kCreatedBlockSize = 160;
static_assert(sizeof(ZBRWLock) <= kCreatedBlockSize, "the created block holds the record");

constexpr char kWaitSpanFormat[] = "RWLockWait[%p]";

SRWLOCK *slimLock(ZBRWLock *lock) { return reinterpret_cast<SRWLOCK *>(&lock->lockStorage); }

void setUp(ZBRWLock *lock) {
  InitializeSRWLock(slimLock(lock));
  lock->traceName = 0;
}

// The two ways to hold the lock, in the system's calls.
struct SharedAccess {
  static bool tryAcquire(ZBRWLock *lock) { return TryAcquireSRWLockShared(slimLock(lock)); }
  static void acquire(ZBRWLock *lock) { AcquireSRWLockShared(slimLock(lock)); }
  static void release(ZBRWLock *lock) { ReleaseSRWLockShared(slimLock(lock)); }
};

struct ExclusiveAccess {
  static bool tryAcquire(ZBRWLock *lock) { return TryAcquireSRWLockExclusive(slimLock(lock)); }
  static void acquire(ZBRWLock *lock) { AcquireSRWLockExclusive(slimLock(lock)); }
  static void release(ZBRWLock *lock) { ReleaseSRWLockExclusive(slimLock(lock)); }
};

template <typename Access>
ZBError acquire(ZBRWLock *lock) {
  if (lock == nullptr)
    return ZBErrorInvalidArgument;
  zb::lock::acquireTryingFirst(lock, kWaitSpanFormat, Access::tryAcquire, Access::acquire);
  return ZBErrorNone;
}

template <typename Access>
ZBError release(ZBRWLock *lock) {
  if (lock == nullptr)
    return ZBErrorInvalidArgument;
  Access::release(lock);
  return ZBErrorNone;
}

} // namespace

extern "C" ZBRWLock *ZBRWLockCreate(void) noexcept {
  return zb::lock::setUpAllocated<ZBRWLock>(
      _ZBAllocWithZoneAndDesc(nullptr, kCreatedBlockSize, "ZBRWLockCreate"), setUp);
}

extern "C" bool ZBRWLockInit(ZBRWLock *lock) noexcept {
  return zb::lock::setUpInPlace(lock, setUp);
}

extern "C" int32_t ZBRWLockSetTraceName(ZBRWLock *lock, const char *name) noexcept {
  return zb::lock::defineTraceName(lock, &ZBRWLock::traceName, name);
}

extern "C" ZBError ZBRWLockAcquireRead(ZBRWLock *lock) noexcept {
  return acquire<SharedAccess>(lock);
}

extern "C" ZBError ZBRWLockAcquireWrite(ZBRWLock *lock) noexcept {
  return acquire<ExclusiveAccess>(lock);
}

extern "C" ZBError ZBRWLockReleaseRead(ZBRWLock *lock) noexcept {
  return release<SharedAccess>(lock);
}

extern "C" ZBError ZBRWLockReleaseWrite(ZBRWLock *lock) noexcept {
  return release<ExclusiveAccess>(lock);
}

extern "C" ZBError ZBRWLockDestroy(ZBRWLock *) noexcept { return ZBErrorNone; }

extern "C" ZBError ZBRWLockFree(ZBRWLock *lock) noexcept {
  _ZBFree(lock);
  return ZBErrorNone;
}
