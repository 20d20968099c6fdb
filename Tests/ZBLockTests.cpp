// Mutexes, spin locks, and (on Windows) reader/writer locks, condition
// variables and semaphores: the codes each call answers (including the kept
// odd ones), mutual exclusion under several threads, the three timeout
// conversions of the waits, and the Fatal paths.
#include "ZBLock.h"

#include "ZBLog.h"
#include "ZBTestSupport.h"
#include "ZBTime.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr int64_t kMillisecond = 1000000;

template <typename Function>
auto onOtherThread(Function function) {
  decltype(function()) result{};
  std::thread([&] { result = function(); }).join();
  return result;
}

// Runs `body` on `count` threads at once and waits for all of them.
template <typename Body>
void onThreads(int count, Body body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < count; ++i)
    threads.emplace_back(body);
  for (std::thread &thread : threads)
    thread.join();
}

struct MutexKind {
  const char *name;
  ZBMutex *(*create)();
};
const MutexKind kMutexKinds[] = {{"recursive", ZBMutexCreateRecursive},
                                 {"non-recursive", ZBMutexCreateNR}};

TEST(ZBMutex, BothKindsExcludeEachOther) {
  for (const MutexKind &kind : kMutexKinds) {
    SCOPED_TRACE(kind.name);
    ZBMutex *mutex = kind.create();
    ASSERT_NE(nullptr, mutex);
    int64_t counter = 0;
    onThreads(4, [&] {
      for (int i = 0; i < 20000; ++i) {
        ASSERT_EQ(0, ZBMutexAcquire(mutex));
        counter = counter + 1;
        ASSERT_EQ(0, ZBMutexRelease(mutex));
      }
    });
    EXPECT_EQ(80000, counter);
    EXPECT_EQ(0, ZBMutexFree(mutex));
  }
}

TEST(ZBMutex, TryAcquireAnswersNotOwnerWhenHeld) {
  ZBMutex plain;
  ASSERT_TRUE(ZBMutexInitNR(&plain));
  EXPECT_EQ(0, ZBMutexTryAcquire(&plain));
  EXPECT_EQ(ZBErrorNotOwner, ZBMutexTryAcquire(&plain)); // not recursive, even for the holder
  EXPECT_EQ(ZBErrorNotOwner, onOtherThread([&] { return ZBMutexTryAcquire(&plain); }));
  EXPECT_EQ(0, ZBMutexRelease(&plain));
  EXPECT_EQ(0, onOtherThread([&] {
              const ZBError taken = ZBMutexTryAcquire(&plain);
              ZBMutexRelease(&plain);
              return taken;
            }));
  EXPECT_EQ(0, ZBMutexDestroy(&plain));

  ZBMutex recursive;
  ASSERT_TRUE(ZBMutexInitRecursive(&recursive));
  EXPECT_EQ(0, ZBMutexAcquire(&recursive));
  EXPECT_EQ(0, ZBMutexTryAcquire(&recursive)); // the count grows to 2
  EXPECT_EQ(0, ZBMutexRelease(&recursive));
  EXPECT_EQ(ZBErrorNotOwner, onOtherThread([&] { return ZBMutexTryAcquire(&recursive); }));
  EXPECT_EQ(0, ZBMutexRelease(&recursive));
  EXPECT_EQ(0, onOtherThread([&] {
              const ZBError taken = ZBMutexTryAcquire(&recursive);
              ZBMutexRelease(&recursive);
              return taken;
            }));
  EXPECT_EQ(0, ZBMutexDestroy(&recursive));
}

TEST(ZBMutex, UnacquiredReleaseIsCaughtOnRequestAndLoggedOnce) {
  const std::string message = "ZBMutexRelease: ERROR: Called Mutex Release on a non-held lock";
  const size_t before = zbtest::occurrences(zbtest::logRing(), message);
  ZBMutex *mutex = ZBMutexCreateNR();
  ASSERT_NE(nullptr, mutex);
  EXPECT_EQ(0, ZBMutexHandleUnacquiredRelease(mutex));
  EXPECT_EQ(ZBErrorCrossDevice, ZBMutexRelease(mutex));
  EXPECT_EQ(before + 1, zbtest::occurrences(zbtest::logRing(), message));
  // The lock stays free, and a proper release is still silent.
  EXPECT_EQ(0, ZBMutexTryAcquire(mutex));
  EXPECT_EQ(0, ZBMutexRelease(mutex));
  EXPECT_EQ(before + 1, zbtest::occurrences(zbtest::logRing(), message));
  EXPECT_EQ(0, ZBMutexFree(mutex));
}

TEST(ZBMutex, AbsentRecordsAreRefused) {
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexAcquire(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexTryAcquire(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexRelease(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexHandleUnacquiredRelease(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexDestroy(nullptr));
  EXPECT_EQ(0, ZBMutexFree(nullptr));
  EXPECT_FALSE(ZBMutexInitNR(nullptr));
  EXPECT_FALSE(ZBMutexInitRecursive(nullptr));
  EXPECT_EQ(0, ZBMutexSetTraceName(nullptr, "name"));
}

TEST(ZBMutexDeathTest, RecursiveMutexCannotCatchUnacquiredReleases) {
  const std::string lines = zbtest::logOfDyingProcess([] {
    ZBMutexHandleUnacquiredRelease(ZBMutexCreateRecursive());
  });
  EXPECT_NE(std::string::npos,
            lines.find("ZBMutexHandleUnacquiredRelease: FATAL: "
                       "Cannot handle unacquired releases on recursive mutex"))
      << lines;
}

TEST(ZBSpinLock, ContentionKeepsTheCountExact) {
  ZBSpinLock lock;
  ZBSpinLockInit(&lock);
  int64_t counter = 0;
  // The main thread spins flat out; the others yield and then sleep.
  auto hammer = [&](bool debugForm) {
    for (int i = 0; i < 50000; ++i) {
      if (!ZBSpinLockTryAcquire(&lock)) {
        if (debugForm)
          _ZBSpinLockAcquireDebug(&lock, __func__, __FILE__, __LINE__);
        else
          _ZBSpinLockAcquireNoDebug(&lock);
      }
      counter = counter + 1;
      if (i % 2)
        ZBSpinLockRelease(&lock);
      else
        _ZBSpinLockSlowRelease(&lock);
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back(hammer, t == 0);
  hammer(false);
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(200000, counter);
  EXPECT_EQ(0, lock);

  ZBSpinLockAcquire(&lock);
  EXPECT_FALSE(ZBSpinLockTryAcquire(&lock));
  EXPECT_EQ(1, lock);
  ZBSpinLockRelease(&lock);
  EXPECT_TRUE(ZBSpinLockTryAcquire(&lock));
  _ZBSpinLockSlowRelease(&lock);
  EXPECT_EQ(0, lock);
  ZBSpinLockSetStuckDetectionDelays(1.0);
}

TEST(ZBSpinLockDeathTest, VerifyingReleaseOfAFreeOrCorruptLockIsFatal) {
  std::string lines = zbtest::logOfDyingProcess([] {
    ZBSpinLock lock = 0;
    _ZBSpinLockSlowRelease(&lock);
  });
  EXPECT_NE(std::string::npos, lines.find("ZBSpinLock.cpp:158] ")) << lines;
  EXPECT_NE(std::string::npos, lines.find("_ZBSpinLockSlowRelease: FATAL: BUG")) << lines;

  lines = zbtest::logOfDyingProcess([] {
    ZBSpinLock lock = 7;
    _ZBSpinLockSlowRelease(&lock);
  });
  EXPECT_NE(std::string::npos, lines.find("ZBSpinLock.cpp:170] ")) << lines;
}

// Reader/writer locks, condition variables and semaphores exist on Windows
// only; the host build has the mutexes and spin locks above.
#ifdef _WIN32

TEST(ZBRWLock, ReadersShareAndWritersExclude) {
  ZBRWLock *lock = ZBRWLockCreate();
  ASSERT_NE(nullptr, lock);
  ASSERT_EQ(0, ZBRWLockAcquireRead(lock));
  // A second reader gets in while the first holds the lock.
  EXPECT_EQ(0, onOtherThread([&] {
              ZBRWLockAcquireRead(lock);
              return ZBRWLockReleaseRead(lock);
            }));
  std::atomic<bool> wrote{false};
  std::thread writer([&] {
    ZBRWLockAcquireWrite(lock);
    wrote = true;
    ZBRWLockReleaseWrite(lock);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  EXPECT_FALSE(wrote.load());
  EXPECT_EQ(0, ZBRWLockReleaseRead(lock));
  writer.join();
  EXPECT_TRUE(wrote.load());

  int64_t counter = 0;
  onThreads(4, [&] {
    for (int i = 0; i < 10000; ++i) {
      ZBRWLockAcquireWrite(lock);
      counter = counter + 1;
      ZBRWLockReleaseWrite(lock);
    }
  });
  EXPECT_EQ(40000, counter);
  EXPECT_EQ(0, ZBRWLockFree(lock));
}

TEST(ZBRWLock, AbsentRecordsAreRefused) {
  EXPECT_EQ(ZBErrorInvalidArgument, ZBRWLockAcquireRead(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBRWLockAcquireWrite(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBRWLockReleaseRead(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBRWLockReleaseWrite(nullptr));
  EXPECT_EQ(0, ZBRWLockFree(nullptr));
  EXPECT_FALSE(ZBRWLockInit(nullptr));
}

// A condition variable, its mutex and a flag, for one waiter and a signaller.
struct Rendezvous {
  explicit Rendezvous(ZBMutex *(*createMutex)()) : mutex(createMutex()) {}
  ~Rendezvous() {
    ZBCondVariableDestroy(&condition);
    ZBMutexFree(mutex);
  }
  ZBCondVariable condition{};
  ZBMutex *mutex;
  bool ready = false;

  // Waits for `ready` with `wait`, which must answer 0 each time.
  template <typename Wait>
  ZBError waitUntilReady(Wait wait) {
    ZBMutexAcquire(mutex);
    ZBError result = 0;
    while (!ready && result == 0)
      result = wait(&condition, mutex);
    ZBMutexRelease(mutex);
    return result;
  }
  void signalReady(bool all) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ZBMutexAcquire(mutex);
    ready = true;
    ZBMutexRelease(mutex);
    all ? ZBCondVariableBroadcast(&condition) : ZBCondVariableSignal(&condition);
  }
};

TEST(ZBCondVariable, TimeoutsRunOutWithEitherMutexAndKeepItHeld) {
  for (const MutexKind &kind : kMutexKinds) {
    SCOPED_TRACE(kind.name);
    Rendezvous r(kind.create);
    ASSERT_TRUE(ZBCondVariableInit(&r.condition));
    ASSERT_EQ(0, ZBMutexAcquire(r.mutex));
    // A deadline already past still waits (0 ms) and times out at once.
    EXPECT_EQ(ZBErrorTimedOut,
              ZBCondVariableTimedWaitAbsoluteHR(&r.condition, r.mutex, ZBHRTimeUnix() - 1000));
    EXPECT_EQ(ZBErrorTimedOut, ZBCondVariableTimedWaitAbsoluteHR(&r.condition, r.mutex, 0));
    EXPECT_EQ(ZBErrorTimedOut,
              ZBCondVariableTimedWaitAbsolute(&r.condition, r.mutex, ZBTimeUnix() + 0.005));
    EXPECT_EQ(ZBErrorTimedOut, ZBCondVariableTimedWaitHR(&r.condition, r.mutex, 0));
    EXPECT_EQ(ZBErrorTimedOut, ZBCondVariableTimedWaitHR(&r.condition, r.mutex, 1));
    EXPECT_EQ(ZBErrorTimedOut, ZBCondVariableTimedWait(&r.condition, r.mutex, 0.005));
    // Whatever the result, the caller holds the mutex again.
    EXPECT_EQ(ZBErrorNotOwner, onOtherThread([&] { return ZBMutexTryAcquire(r.mutex); }));
    EXPECT_EQ(0, ZBMutexRelease(r.mutex));
  }
}

TEST(ZBCondVariable, UnlimitedWaitsReturnWhenSignalled) {
  using Wait = ZBError (*)(ZBCondVariable *, ZBMutex *);
  const Wait unlimitedWaits[] = {
      [](ZBCondVariable *c, ZBMutex *m) { return ZBCondVariableWait(c, m); },
      [](ZBCondVariable *c, ZBMutex *m) { return ZBCondVariableTimedWaitHR(c, m, -1); },
      [](ZBCondVariable *c, ZBMutex *m) { return ZBCondVariableTimedWait(c, m, std::nan("")); },
      [](ZBCondVariable *c, ZBMutex *m) { return ZBCondVariableTimedWait(c, m, 1e300); },
      [](ZBCondVariable *c, ZBMutex *m) { return ZBCondVariableTimedWaitAbsoluteHR(c, m, -1); },
      [](ZBCondVariable *c, ZBMutex *m) { return ZBCondVariableTimedWaitAbsolute(c, m, -HUGE_VAL); },
      // A generous timeout that the signal beats.
      [](ZBCondVariable *c, ZBMutex *m) { return ZBCondVariableTimedWaitHR(c, m, 60000 * kMillisecond); },
  };
  for (const MutexKind &kind : kMutexKinds) {
    for (size_t i = 0; i < std::size(unlimitedWaits); ++i) {
      SCOPED_TRACE(std::string(kind.name) + " wait #" + std::to_string(i));
      Rendezvous r(kind.create);
      ZBCondVariableInit(&r.condition);
      std::thread signaller([&] { r.signalReady(false); });
      EXPECT_EQ(0, r.waitUntilReady(unlimitedWaits[i]));
      signaller.join();
    }
  }
}

// Negative finite seconds have a nanosecond count, and it is negative: no
// timeout, exactly as for the values that have none.
TEST(ZBCondVariable, NegativeSecondsWaitUntilSignalled) {
  using Wait = ZBError (*)(ZBCondVariable *, ZBMutex *);
  const Wait negativeWaits[] = {
      [](ZBCondVariable *c, ZBMutex *m) { return ZBCondVariableTimedWait(c, m, -1.5); },
      [](ZBCondVariable *c, ZBMutex *m) { return ZBCondVariableTimedWaitAbsolute(c, m, -1.0); },
  };
  for (size_t i = 0; i < std::size(negativeWaits); ++i) {
    SCOPED_TRACE("wait #" + std::to_string(i));
    Rendezvous r(ZBMutexCreateRecursive);
    ZBCondVariableInit(&r.condition);
    std::thread signaller([&] { r.signalReady(false); });
    EXPECT_EQ(0, r.waitUntilReady(negativeWaits[i]));
    signaller.join();
  }
}

TEST(ZBCondVariable, BroadcastWakesEveryWaiter) {
  Rendezvous r(ZBMutexCreateNR);
  ZBCondVariableInit(&r.condition);
  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 3; ++i)
    waiters.emplace_back([&] {
      if (r.waitUntilReady(ZBCondVariableWait) == 0)
        ++woken;
    });
  r.signalReady(true);
  for (std::thread &waiter : waiters)
    waiter.join();
  EXPECT_EQ(3, woken.load());
}

TEST(ZBCondVariable, AbsentRecordsAreRefused) {
  ZBCondVariable *condition = ZBCondVariableCreate();
  ASSERT_NE(nullptr, condition);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBCondVariableWait(condition, nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBCondVariableTimedWaitHR(nullptr, nullptr, 0));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBCondVariableTimedWait(condition, nullptr, 0.0));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBCondVariableTimedWaitAbsoluteHR(condition, nullptr, 0));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBCondVariableTimedWaitAbsolute(condition, nullptr, 0.0));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBCondVariableSignal(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBCondVariableBroadcast(nullptr));
  EXPECT_FALSE(ZBCondVariableInit(nullptr));
  EXPECT_EQ(0, ZBCondVariableFree(condition));
  EXPECT_EQ(0, ZBCondVariableFree(nullptr));
}

TEST(ZBSemaphore, CountsAndTimesOut) {
  ZBSemaphore *semaphore = ZBSemaphoreCreate(1);
  ASSERT_NE(nullptr, semaphore);
  EXPECT_EQ(0, ZBSemaphoreWait(semaphore));
  EXPECT_EQ(ZBErrorTimedOut, ZBSemaphoreWaitTimedHR(semaphore, 0));
  EXPECT_EQ(ZBErrorTimedOut, ZBSemaphoreWaitTimedHR(semaphore, 1)); // at least 1 ms
  EXPECT_EQ(0, ZBSemaphoreSignalOne(semaphore));
  EXPECT_EQ(0, ZBSemaphoreSignalOne(semaphore));
  EXPECT_EQ(0, ZBSemaphoreWaitTimedHR(semaphore, 0));
  EXPECT_EQ(0, ZBSemaphoreWaitTimedHR(semaphore, -1));

  // A waiter blocked without a timeout is released by a signal.
  std::thread waiter([&] { EXPECT_EQ(0, ZBSemaphoreWait(semaphore)); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(0, ZBSemaphoreSignalOne(semaphore));
  waiter.join();
  EXPECT_EQ(0, ZBSemaphoreFree(semaphore));
}

TEST(ZBSemaphore, SignalAllReleasesOneCountOnly) {
  ZBSemaphore *semaphore = ZBSemaphoreCreate(0);
  ASSERT_NE(nullptr, semaphore);
  std::atomic<int> woken{0};
  std::vector<std::thread> waiters;
  for (int i = 0; i < 2; ++i)
    waiters.emplace_back([&] {
      if (ZBSemaphoreWaitTimedHR(semaphore, 300 * kMillisecond) == 0)
        ++woken;
    });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  EXPECT_EQ(0, ZBSemaphoreSignalAll(semaphore));
  for (std::thread &waiter : waiters)
    waiter.join();
  EXPECT_EQ(1, woken.load());
  EXPECT_EQ(ZBErrorTimedOut, ZBSemaphoreWaitTimedHR(semaphore, 0));
  EXPECT_EQ(0, ZBSemaphoreFree(semaphore));
}

TEST(ZBSemaphore, LimitsAndAbsentHandles) {
  EXPECT_EQ(nullptr, ZBSemaphoreCreate(-1));
  ZBSemaphore *full = ZBSemaphoreCreate(0x7FFFFFFF);
  ASSERT_NE(nullptr, full);
  EXPECT_EQ(ZBErrorGeneric, ZBSemaphoreSignalOne(full));
  EXPECT_EQ(ZBErrorGeneric, ZBSemaphoreSignalAll(full));
  EXPECT_EQ(0, ZBSemaphoreFree(full));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSemaphoreFree(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSemaphoreSignalOne(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSemaphoreWait(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSemaphoreWaitTimedHR(nullptr, 0));
}

#endif // _WIN32

} // namespace
