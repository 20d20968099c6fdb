// Clocks and uncontended locks against the raw system calls under them:
// the boot-relative clocks against QueryUnbiasedInterruptTime, and the
// strictly increasing one also against its floor (the system read plus the
// one atomic exchange that any clock shared by all threads must make);
// both mutex kinds against the critical section and the slim reader/writer
// lock (the recursive one also through the exported functions' addresses);
// and the spin lock's inline fast path against a bare atomic exchange.
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
  auto monotonic = [](int64_t n) {
    for (int64_t i = 0; i < n; ++i)
      zbbench::keep(ZBHRTimeMonotonic());
  };
  zbbench::compare("ZBHRTimeMonotonic vs QueryUnbiasedInterruptTime", monotonic, rawClock,
                   kOptions);
  // The floor: read the system clock in nanoseconds and publish it with one
  // atomic exchange on a word that every thread shares.
  static int64_t shared;
  zbbench::compare(
      "ZBHRTimeMonotonic vs floor (read + atomic exchange)", monotonic,
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          ULONGLONG ticks;
          QueryUnbiasedInterruptTime(&ticks);
          zbbench::keep(
              __atomic_exchange_n(&shared, static_cast<int64_t>(ticks) * 100, __ATOMIC_ACQ_REL));
        }
      },
      kOptions);
}

void benchmarkMutexes() {
  ZBMutex *recursive = ZBMutexCreateRecursive();
  CRITICAL_SECTION section;
  InitializeCriticalSectionAndSpinCount(&section, 4);
  auto criticalSectionLoop = [&section](int64_t n) {
    for (int64_t i = 0; i < n; ++i) {
      EnterCriticalSection(&section);
      LeaveCriticalSection(&section);
    }
  };
  zbbench::compare(
      "ZBMutex recursive vs EnterCriticalSection",
      [recursive](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          ZBMutexAcquire(recursive);
          ZBMutexRelease(recursive);
        }
      },
      criticalSectionLoop, kOptions);
  // Volatile pointers: the calls cannot be turned back into the inline forms.
  ZBError (*volatile acquire)(ZBMutex *) = &ZBMutexAcquire;
  ZBError (*volatile release)(ZBMutex *) = &ZBMutexRelease;
  zbbench::compare(
      "&ZBMutexAcquire/&ZBMutexRelease recursive vs EnterCriticalSection",
      [recursive, acquire, release](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          acquire(recursive);
          release(recursive);
        }
      },
      criticalSectionLoop, kOptions);
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
