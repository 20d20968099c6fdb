// Reader/writer locks over a slim reader/writer lock: many readers or one
// writer, neither recursive nor owner tracked.
#include "ZBLock.h"

#include "ZBAlloc.h"
#include "ZBSystemTrace.h"
#include "ZBTrace.h"

#include <windows.h>

namespace {

static_assert(sizeof(SRWLOCK) <= sizeof(ZBRWLock::lockStorage) &&
                  alignof(SRWLOCK) <= alignof(ZBRWLock),
              "a slim reader/writer lock must fit the record");

// Create hands out a block this large, more than the record needs, so that
// the record can grow without changing what callers of Create receive.
constexpr size_t kCreatedBlockSize = 160;
static_assert(sizeof(ZBRWLock) <= kCreatedBlockSize, "the created block holds the record");

SRWLOCK *slimLock(ZBRWLock *lock) { return reinterpret_cast<SRWLOCK *>(&lock->lockStorage); }

void initLock(ZBRWLock *lock) {
  InitializeSRWLock(slimLock(lock));
  lock->traceName = 0;
}

constexpr char kWaitSpanFormat[] = "RWLockWait[%p]";

} // namespace

extern "C" ZBRWLock *ZBRWLockCreate(void) noexcept {
  auto *lock =
      static_cast<ZBRWLock *>(_ZBAllocWithZoneAndDesc(nullptr, kCreatedBlockSize, "ZBRWLockCreate"));
  if (lock != nullptr)
    initLock(lock);
  return lock;
}

extern "C" bool ZBRWLockInit(ZBRWLock *lock) noexcept {
  if (lock == nullptr)
    return false;
  initLock(lock);
  return true;
}

extern "C" int32_t ZBRWLockSetTraceName(ZBRWLock *lock, const char *name) noexcept {
  if (lock == nullptr)
    return 0;
  lock->traceName = ZBTraceDefineName(name);
  return lock->traceName;
}

extern "C" ZBError ZBRWLockAcquireRead(ZBRWLock *lock) noexcept {
  if (lock == nullptr)
    return ZBErrorInvalidArgument;
  if (!TryAcquireSRWLockShared(slimLock(lock))) {
    zb::SystraceWaitSpan span(kWaitSpanFormat, lock);
    AcquireSRWLockShared(slimLock(lock));
  }
  return ZBErrorNone;
}

extern "C" ZBError ZBRWLockAcquireWrite(ZBRWLock *lock) noexcept {
  if (lock == nullptr)
    return ZBErrorInvalidArgument;
  if (!TryAcquireSRWLockExclusive(slimLock(lock))) {
    zb::SystraceWaitSpan span(kWaitSpanFormat, lock);
    AcquireSRWLockExclusive(slimLock(lock));
  }
  return ZBErrorNone;
}

extern "C" ZBError ZBRWLockReleaseRead(ZBRWLock *lock) noexcept {
  if (lock == nullptr)
    return ZBErrorInvalidArgument;
  ReleaseSRWLockShared(slimLock(lock));
  return ZBErrorNone;
}

extern "C" ZBError ZBRWLockReleaseWrite(ZBRWLock *lock) noexcept {
  if (lock == nullptr)
    return ZBErrorInvalidArgument;
  ReleaseSRWLockExclusive(slimLock(lock));
  return ZBErrorNone;
}

extern "C" ZBError ZBRWLockDestroy(ZBRWLock *) noexcept { return ZBErrorNone; }

extern "C" ZBError ZBRWLockFree(ZBRWLock *lock) noexcept {
  _ZBFree(lock);
  return ZBErrorNone;
}
