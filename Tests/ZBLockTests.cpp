// Mutexes, spin locks, and (on Windows) reader/writer locks, condition
// variables and semaphores: the codes each call answers (including the kept
// odd ones), mutual exclusion under several threads, the three timeout
// conversions of the waits, and the Fatal paths.
#include "ZBLock.h"

#include "ZBLog.h"
#include "ZBTestSupport.h"
#include "ZBThread.h"
#include "ZBTime.h"
#include "ZBTrace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

namespace {

using zbtest::onOtherThread;
using zbtest::onThreads;

constexpr int64_t kMinute = 60000000000LL;

struct MutexKind {
  const char *name;
  bool (*init)(ZBMutex *);
  ZBError holderTry; // what a try-acquire by the holder answers
};
const MutexKind kMutexKinds[] = {{"recursive", ZBMutexInitRecursive, ZBErrorNone},
                                 {"non-recursive", ZBMutexInitNR, ZBErrorNotOwner}};

// A try-acquire (and, when it succeeds, a release) on another thread.
ZBError tryOnOtherThread(ZBMutex *mutex) {
  return onOtherThread([mutex] {
    const ZBError taken = ZBMutexTryAcquire(mutex);
    if (taken == ZBErrorNone)
      ZBMutexRelease(mutex);
    return taken;
  });
}

// Callers' ZBMutexAcquire(m) and ZBMutexRelease(m) may be the header's
// inline forms; the exported functions, reached through their addresses,
// must agree with them on the same lock.
struct MutexForm {
  const char *name;
  ZBError (*acquire)(ZBMutex *);
  ZBError (*release)(ZBMutex *);
};
const MutexForm kMutexForms[] = {
    {"as written", [](ZBMutex *m) { return ZBMutexAcquire(m); },
     [](ZBMutex *m) { return ZBMutexRelease(m); }},
    {"exported", &ZBMutexAcquire, &ZBMutexRelease},
};

TEST(ZBMutex, EachKindKeepsOtherThreadsOut) {
#ifdef _WIN32
  EXPECT_NE(nullptr, _gZBMutexSystemCalls.tryEnter);
  EXPECT_NE(nullptr, _gZBMutexSystemCalls.leave);
#endif
  for (const MutexKind &kind : kMutexKinds) {
    for (const MutexForm &form : kMutexForms) {
      SCOPED_TRACE(std::string(kind.name) + ", " + form.name);
      ZBMutex mutex;
      ASSERT_TRUE(kind.init(&mutex));
      ASSERT_EQ(0, form.acquire(&mutex));
      EXPECT_EQ(kind.holderTry, ZBMutexTryAcquire(&mutex));
      if (kind.holderTry == ZBErrorNone) {
        EXPECT_EQ(ZBErrorNotOwner, tryOnOtherThread(&mutex));
        EXPECT_EQ(0, form.release(&mutex)); // the count went to 2
      }
      EXPECT_EQ(ZBErrorNotOwner, tryOnOtherThread(&mutex));
      EXPECT_EQ(0, form.release(&mutex));
      EXPECT_EQ(0, tryOnOtherThread(&mutex));

      // Threads of both forms share the lock.
      int64_t counter = 0;
      onThreads(4, [&](int index) {
        const MutexForm &own = kMutexForms[index % 2];
        for (int i = 0; i < 20000; ++i) {
          ASSERT_EQ(0, own.acquire(&mutex));
          counter = counter + 1;
          ASSERT_EQ(0, (index < 2 ? own : form).release(&mutex));
        }
      });
      EXPECT_EQ(80000, counter);
      EXPECT_EQ(0, ZBMutexDestroy(&mutex));
    }
  }
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexAcquire(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexRelease(nullptr));
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
  // Both slow acquires and both releases; the main thread spins flat out,
  // the others yield and then sleep. (Until a main thread is set every
  // thread counts as main.) Spin locks have no stuck detection, so even a
  // tiny delay ends no wait.
  ZBThreadSetMain();
  ZBSpinLockSetStuckDetectionDelays(1e-9);
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
  // Three threads, one of them with the debugging form, beside the main one.
  std::thread others([&] { onThreads(3, [&](int index) { hammer(index == 0); }); });
  hammer(false);
  others.join();
  EXPECT_EQ(200000, counter);
  EXPECT_EQ(0, lock);

  ZBSpinLockAcquire(&lock);
  EXPECT_FALSE(ZBSpinLockTryAcquire(&lock));
  ZBSpinLockRelease(&lock);
  EXPECT_EQ(0, lock);
}

TEST(ZBSpinLockDeathTest, VerifyingReleaseOfAFreeOrCorruptLockIsFatal) {
  // The site's line tells a free lock (158) from a corrupt one (170).
  for (const auto &[word, site] : {std::pair<ZBSpinLock, const char *>{0, "ZBSpinLock.cpp:158] "},
                                   {7, "ZBSpinLock.cpp:170] "}}) {
    const std::string lines = zbtest::logOfDyingProcess([word = word] {
      ZBSpinLock lock = word;
      _ZBSpinLockSlowRelease(&lock);
    });
    EXPECT_NE(std::string::npos, lines.find(site)) << lines;
    EXPECT_NE(std::string::npos, lines.find("_ZBSpinLockSlowRelease: FATAL: BUG")) << lines;
  }
}

// Reader/writer locks, condition variables and semaphores exist on Windows
// only; the host build has the mutexes and spin locks above.
#ifdef _WIN32

// Each kind of lock records the identifier the tracer gives its name (1 or
// more, 0 for none), and locks set up in the caller's storage work and are
// undone by their Destroy.
TEST(ZBLock, TraceNamesAreTheTracersIdentifiers) {
  EXPECT_FALSE(ZBTraceIsInitialized());
  EXPECT_GE(ZBTraceDefineName("zb-lock"), 1);
  EXPECT_EQ(0, ZBTraceDefineName(nullptr));
  ZBMutex mutex;
  ASSERT_TRUE(ZBMutexInitNR(&mutex));
  EXPECT_EQ(ZBTraceDefineName("zb-mutex"), ZBMutexSetTraceName(&mutex, "zb-mutex"));
  EXPECT_EQ(0, ZBMutexDestroy(&mutex));

  ZBRWLock lock;
  ASSERT_TRUE(ZBRWLockInit(&lock));
  EXPECT_EQ(ZBTraceDefineName("zb-rwlock"), ZBRWLockSetTraceName(&lock, "zb-rwlock"));
  EXPECT_EQ(0, ZBRWLockSetTraceName(nullptr, "zb-rwlock"));
  ASSERT_EQ(0, ZBRWLockAcquireWrite(&lock));
  EXPECT_EQ(0, ZBRWLockReleaseWrite(&lock));
  ASSERT_EQ(0, ZBRWLockAcquireRead(&lock));
  EXPECT_EQ(0, ZBRWLockReleaseRead(&lock));
  EXPECT_EQ(0, ZBRWLockDestroy(&lock));

  ZBCondVariable condition;
  ASSERT_TRUE(ZBCondVariableInit(&condition));
  EXPECT_EQ(ZBTraceDefineName("zb-condition"), ZBCondVariableSetDebugName(&condition, "zb-condition"));
  EXPECT_EQ(0, ZBCondVariableSetDebugName(nullptr, "zb-condition"));
  EXPECT_EQ(0, ZBCondVariableDestroy(&condition));
}

TEST(ZBRWLock, ReadersShareAndWritersExclude) {
  ZBRWLock *lock = ZBRWLockCreate();
  ASSERT_NE(nullptr, lock);
  ASSERT_EQ(0, ZBRWLockAcquireRead(lock));
  // A second reader gets in while the first holds the lock; a writer waits.
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
  EXPECT_EQ(0, ZBRWLockFree(lock));
}

using Wait = ZBError (*)(ZBCondVariable *, ZBMutex *);

// A condition variable, a mutex of one kind and the flag they guard.
struct Rendezvous {
  explicit Rendezvous(const MutexKind &kind) {
    EXPECT_TRUE(kind.init(&mutex));
    EXPECT_TRUE(ZBCondVariableInit(&condition));
  }
  ~Rendezvous() {
    ZBCondVariableDestroy(&condition);
    ZBMutexDestroy(&mutex);
  }
  ZBMutex mutex;
  ZBCondVariable condition;
  bool ready = false;

  // Waits with `wait` until `ready`: 0, or the first code that is not 0.
  ZBError waitUntilReady(Wait wait) {
    ZBMutexAcquire(&mutex);
    ZBError result = 0;
    while (!ready && result == 0)
      result = wait(&condition, &mutex);
    ZBMutexRelease(&mutex);
    return result;
  }
  void signalReady(bool all) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ZBMutexAcquire(&mutex);
    ready = true;
    ZBMutexRelease(&mutex);
    all ? ZBCondVariableBroadcast(&condition) : ZBCondVariableSignal(&condition);
  }
};

TEST(ZBCondVariable, EachWaitFormKeepsItsTimeoutRule) {
  // Deadlines already past (they still wait, 0 ms) and short timeouts run out.
  const Wait timingOut[] = {
      [](auto c, auto m) { return ZBCondVariableTimedWaitAbsoluteHR(c, m, ZBHRTimeUnix() - 1); },
      [](auto c, auto m) { return ZBCondVariableTimedWaitAbsoluteHR(c, m, 0); },
      [](auto c, auto m) { return ZBCondVariableTimedWaitAbsolute(c, m, ZBTimeUnix() + 0.005); },
      [](auto c, auto m) { return ZBCondVariableTimedWaitHR(c, m, 0); },
      [](auto c, auto m) { return ZBCondVariableTimedWait(c, m, 0.005); },
  };
  // Negative and non-finite values mean no timeout; the last one the signal beats.
  const Wait untilSignalled[] = {
      [](auto c, auto m) { return ZBCondVariableWait(c, m); },
      [](auto c, auto m) { return ZBCondVariableTimedWaitHR(c, m, -1); },
      [](auto c, auto m) { return ZBCondVariableTimedWait(c, m, -1.5); },
      [](auto c, auto m) { return ZBCondVariableTimedWait(c, m, std::nan("")); },
      [](auto c, auto m) { return ZBCondVariableTimedWaitAbsoluteHR(c, m, -1); },
      [](auto c, auto m) { return ZBCondVariableTimedWaitAbsolute(c, m, -1.0); },
      [](auto c, auto m) { return ZBCondVariableTimedWaitAbsolute(c, m, -HUGE_VAL); },
      [](auto c, auto m) { return ZBCondVariableTimedWaitHR(c, m, kMinute); },
  };
  for (const MutexKind &kind : kMutexKinds) {
    Rendezvous r(kind);
    for (size_t i = 0; i < std::size(timingOut); ++i) {
      SCOPED_TRACE(std::string(kind.name) + " timing out #" + std::to_string(i));
      ASSERT_EQ(0, ZBMutexAcquire(&r.mutex));
      EXPECT_EQ(ZBErrorTimedOut, timingOut[i](&r.condition, &r.mutex));
      EXPECT_EQ(ZBErrorNotOwner, tryOnOtherThread(&r.mutex)) << "the waiter holds it again";
      EXPECT_EQ(0, ZBMutexRelease(&r.mutex));
    }
    for (size_t i = 0; i < std::size(untilSignalled); ++i) {
      SCOPED_TRACE(std::string(kind.name) + " until signalled #" + std::to_string(i));
      r.ready = false;
      std::thread signaller([&] { r.signalReady(false); });
      EXPECT_EQ(0, r.waitUntilReady(untilSignalled[i]));
      signaller.join();
    }
  }
}

TEST(ZBCondVariable, BroadcastWakesEveryWaiter) {
  Rendezvous r(kMutexKinds[1]); // over the slim lock
  std::atomic<int> woken{0};
  std::thread broadcaster([&] { r.signalReady(true); });
  // Bounded, so that a waiter left asleep fails the test instead of hanging it.
  const Wait wait = [](auto c, auto m) { return ZBCondVariableTimedWaitHR(c, m, kMinute); };
  onThreads(3, [&](int) { woken += r.waitUntilReady(wait) == 0 ? 1 : 0; });
  broadcaster.join();
  EXPECT_EQ(3, woken.load());
}

TEST(ZBSemaphore, CountsTimesOutAndRefusesToOverflow) {
  EXPECT_EQ(nullptr, ZBSemaphoreCreate(-1));
  ZBSemaphore *semaphore = ZBSemaphoreCreate(1);
  ASSERT_NE(nullptr, semaphore);
  EXPECT_EQ(0, ZBSemaphoreWait(semaphore));
  EXPECT_EQ(ZBErrorTimedOut, ZBSemaphoreWaitTimedHR(semaphore, 0));
  EXPECT_EQ(0, ZBSemaphoreSignalOne(semaphore));
  EXPECT_EQ(0, ZBSemaphoreSignalOne(semaphore));
  EXPECT_EQ(0, ZBSemaphoreWaitTimedHR(semaphore, 0));
  EXPECT_EQ(0, ZBSemaphoreWaitTimedHR(semaphore, -1));
  EXPECT_EQ(0, ZBSemaphoreFree(semaphore));

  ZBSemaphore *full = ZBSemaphoreCreate(0x7FFFFFFF);
  ASSERT_NE(nullptr, full);
  EXPECT_EQ(ZBErrorGeneric, ZBSemaphoreSignalOne(full));
  EXPECT_EQ(ZBErrorGeneric, ZBSemaphoreSignalAll(full));
  EXPECT_EQ(0, ZBSemaphoreFree(full));
}

TEST(ZBSemaphore, SignalAllWakesOneWaiterOnly) {
  ZBSemaphore *semaphore = ZBSemaphoreCreate(0);
  ASSERT_NE(nullptr, semaphore);
  std::atomic<int> woken{0};
  std::thread first([&] { woken += ZBSemaphoreWait(semaphore) == 0 ? 1 : 0; });
  std::thread second([&] { woken += ZBSemaphoreWait(semaphore) == 0 ? 1 : 0; });
  EXPECT_EQ(0, ZBSemaphoreSignalAll(semaphore));
  for (int waited = 0; woken == 0 && waited < 10000; ++waited)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  // Time for a wrongly released second waiter to show; then the rest go.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const int wokenByAll = woken;
  EXPECT_EQ(1, wokenByAll);
  for (int waiter = wokenByAll; waiter < 2; ++waiter)
    EXPECT_EQ(0, ZBSemaphoreSignalOne(semaphore));
  first.join();
  second.join();
  EXPECT_EQ(ZBErrorTimedOut, ZBSemaphoreWaitTimedHR(semaphore, 0)) << "no count was left over";
  EXPECT_EQ(0, ZBSemaphoreFree(semaphore));
}

#endif // _WIN32

TEST(ZBLock, AbsentRecordsAreRefused) {
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexAcquire(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexTryAcquire(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexRelease(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexHandleUnacquiredRelease(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMutexDestroy(nullptr));
  EXPECT_EQ(0, ZBMutexFree(nullptr));
  EXPECT_FALSE(ZBMutexInitNR(nullptr));
  EXPECT_FALSE(ZBMutexInitRecursive(nullptr));
  EXPECT_EQ(0, ZBMutexSetTraceName(nullptr, "name"));
#ifdef _WIN32
  EXPECT_EQ(ZBErrorInvalidArgument, ZBRWLockAcquireRead(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBRWLockAcquireWrite(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBRWLockReleaseRead(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBRWLockReleaseWrite(nullptr));
  EXPECT_EQ(0, ZBRWLockFree(nullptr));
  EXPECT_FALSE(ZBRWLockInit(nullptr));

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

  EXPECT_EQ(ZBErrorInvalidArgument, ZBSemaphoreFree(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSemaphoreSignalOne(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSemaphoreWait(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSemaphoreWaitTimedHR(nullptr, 0));
#endif
}

} // namespace
