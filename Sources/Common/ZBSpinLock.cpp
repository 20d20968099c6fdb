// The spin locks' slow paths. The fast paths (one atomic exchange to take,
// a plain store to release) are inline in ZBLock.h; callers come here when
// the exchange found the lock held, or to release with a check.
//
// A waiter spins with the processor's pause hint. Off the main thread it
// also yields for its first 350 rounds and then sleeps 100 us a round, so a
// lock held by a descheduled thread does not burn a core. The main thread
// keeps spinning without yielding or sleeping, so that it takes the lock the
// moment it is free; the locks guard only a few instructions.
#include "ZBLock.h"

#include "ZBLog.h"
#include "ZBThread.h"
#include "ZBTime.h"
#include "ZBTrace.h"

namespace {

constexpr uint32_t kYieldingRounds = 350;
constexpr int64_t kBackOffNanoseconds = 100000;

inline void spinWaitHint() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  asm volatile("yield");
#endif
}

inline bool tookLock(ZBSpinLock *lock) {
  return __atomic_exchange_n(lock, 1, __ATOMIC_ACQUIRE) == 0;
}

void acquireContended(ZBSpinLock *lock) {
  if (lock == nullptr)
    return;
  const bool onMainThread = ZBThreadIsMain();
  if (tookLock(lock))
    return;
  uint32_t yields = 0;
  do {
    spinWaitHint();
    if (onMainThread)
      continue;
    if (yields < kYieldingRounds) {
      ZBThreadYield();
      ++yields;
    } else {
      // The tracer is consulted before each back-off sleep; its answer is
      // not needed, as spin locks have no stuck detection.
      ZBTraceIsInitialized();
      ZBHRSleep(kBackOffNanoseconds);
    }
  } while (!tookLock(lock));
}

} // namespace

extern "C" void ZBSpinLockInit(ZBSpinLock *lock) noexcept {
  if (lock != nullptr)
    __atomic_store_n(lock, 0, __ATOMIC_RELEASE);
}

extern "C" void _ZBSpinLockAcquireNoDebug(ZBSpinLock *lock) noexcept { acquireContended(lock); }

extern "C" void _ZBSpinLockAcquireDebug(ZBSpinLock *lock, const char *, const char *,
                                        uint32_t) noexcept {
  acquireContended(lock);
}

extern "C" void _ZBSpinLockSlowRelease(ZBSpinLock *lock) noexcept {
  if (lock == nullptr)
    return;
  // Only the holder changes a held word (waiters exchange 1 for 1), so a
  // load then a store is enough.
  const int32_t word = __atomic_load_n(lock, __ATOMIC_RELAXED);
  if (word == 1) {
    __atomic_store_n(lock, 0, __ATOMIC_RELEASE);
    return;
  }
  if (word == 0)
    ZB_LOG_FATAL_AT("_ZBSpinLockSlowRelease", __FILE__, 158, "BUG");
  ZB_LOG_FATAL_AT("_ZBSpinLockSlowRelease", __FILE__, 170, "BUG");
}

extern "C" void ZBSpinLockSetStuckDetectionDelays(double) noexcept {}
