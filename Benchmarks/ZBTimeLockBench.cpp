// Clocks and uncontended locks against the raw system calls under them:
// the boot-relative clocks against QueryUnbiasedInterruptTime, both mutex
// kinds against the critical section and the slim reader/writer lock, and
// the spin lock's inline fast path against a bare atomic exchange.
#include "ZBBench.h"

#include "Zenbor.h"

#include <windows.h>

namespace {

constexpr zbbench::Options kOptions{15, 1000000};

void benchmarkClocks() {
  auto rawClock = [](int64_t n) {
    for (int64_t i = 0; i < n; ++i) {
      ULONGLONG ticks;
      QueryUnbiasedInterruptTime(&ticks);
      zbbench::keep(ticks);
    }
  };
  zbbench::compare(
      "ZBHRTimeNonDecreasing vs QueryUnbiasedInterruptTime",
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          zbbench::keep(ZBHRTimeNonDecreasing());
      },
      rawClock, kOptions);
  zbbench::compare(
      "ZBHRTimeMonotonic vs QueryUnbiasedInterruptTime",
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          zbbench::keep(ZBHRTimeMonotonic());
      },
      rawClock, kOptions);
}

void benchmarkMutexes() {
  ZBMutex *recursive = ZBMutexCreateRecursive();
  CRITICAL_SECTION section;
  InitializeCriticalSectionAndSpinCount(&section, 4);
  zbbench::compare(
      "ZBMutex recursive vs EnterCriticalSection",
      [recursive](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          ZBMutexAcquire(recursive);
          ZBMutexRelease(recursive);
        }
      },
      [&section](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          EnterCriticalSection(&section);
          LeaveCriticalSection(&section);
        }
      },
      kOptions);
  DeleteCriticalSection(&section);
  ZBMutexFree(recursive);

  ZBMutex *plain = ZBMutexCreateNR();
  SRWLOCK slim = SRWLOCK_INIT;
  zbbench::compare(
      "ZBMutex non-recursive vs AcquireSRWLockExclusive",
      [plain](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          ZBMutexAcquire(plain);
          ZBMutexRelease(plain);
        }
      },
      [&slim](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          AcquireSRWLockExclusive(&slim);
          ReleaseSRWLockExclusive(&slim);
        }
      },
      kOptions);
  ZBMutexFree(plain);
}

void benchmarkSpinLock() {
  static ZBSpinLock lock;
  static int32_t word;
  zbbench::compare(
      "ZBSpinLockAcquire/Release vs atomic exchange",
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          ZBSpinLockAcquire(&lock);
          ZBSpinLockRelease(&lock);
        }
      },
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          while (__atomic_exchange_n(&word, 1, __ATOMIC_ACQUIRE) != 0) {
          }
          __atomic_store_n(&word, 0, __ATOMIC_RELEASE);
        }
      },
      {15, 10000000});
}

} // namespace

int main() {
  zbbench::printHeader();
  benchmarkClocks();
  benchmarkMutexes();
  benchmarkSpinLock();
  return 0;
}
