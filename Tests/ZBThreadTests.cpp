// Threads over the POSIX-threads library: creation and joins, the registry
// of live threads and their names, priorities, the main thread, call-once,
// the suspend registry's bookkeeping and the thread-start hook.
#include <gtest/gtest.h>

#include "ZBTestSupport.h"

#include "ZBInitializer.h"
#include "ZBLog.h"
#include "ZBThread.h"
#include "ZBThreadPrivate.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <thread>
#include <utility>

namespace {

using zbtest::CountingThread;

// Whether the suspend registry holds a suspendable entry for `id`.
bool isSuspendable(uint32_t id) {
  static uint32_t wanted;
  static bool found;
  wanted = id;
  found = false;
  _ZBThreadSuspendRegistryVisitSuspendable([](uint32_t each) { found |= each == wanted; });
  return found;
}

std::atomic<int> gHookCalls;
std::atomic<uint32_t> gHookThread;

} // namespace

TEST(ZBThreadTest, ACreatedThreadIsKnownByItsNameUntilItEnds) {
  std::string ownName;
  CountingThread worker("zb-worker", ZBThreadPriorityDefault, 0, [&] {
    const char *name = ZBThreadGetName(0);
    ownName = name ? name : "(null)";
    ZB_LOG_ERROR("a line from a named thread");
  });
  ASSERT_NE(0u, worker.thread());
  EXPECT_EQ("zb-worker", ownName);
  EXPECT_NE(std::string::npos, zbtest::logRing().find(") zb-worker: "));
  EXPECT_STREQ("zb-worker", ZBThreadGetName(worker.thread()));
  const uint32_t id = worker.threadID();
  EXPECT_TRUE(ZBThreadEqual(worker.thread(), ZBThreadGetThreadWithID(id)));
  EXPECT_TRUE(isSuspendable(id));
  EXPECT_EQ(0, worker.join());

  EXPECT_EQ(0u, ZBThreadGetThreadWithID(id));
  EXPECT_FALSE(ZBThreadSuspendRemove(id)) << "the thread left the suspend registry";
}

TEST(ZBThreadTest, ThreadsAreUnregisteredHoweverTheyEnd) {
  auto exitEarly = [](void *context) -> void * {
    static_cast<std::atomic<uint32_t> *>(context)->store(ZBThreadGetCurrentThreadID());
    pthread_exit(reinterpret_cast<void *>(7));
    return nullptr;
  };
  auto awaitCancellation = [](void *context) -> void * {
    static_cast<std::atomic<uint32_t> *>(context)->store(ZBThreadGetCurrentThreadID());
    for (;;) {
      pthread_testcancel();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  };
  struct Ending {
    ZBThreadFunction function;
    bool cancelled;
    void *result;
  };
  for (const Ending &ending : {Ending{exitEarly, false, reinterpret_cast<void *>(7)},
                               Ending{awaitCancellation, true, PTHREAD_CANCELED}}) {
    std::atomic<uint32_t> id{0};
    const ZBThread thread = ZBThreadCreate("zb-ending", ending.function, &id, -1.0, 0, 0);
    ASSERT_NE(0u, thread);
    while (id == 0)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    if (ending.cancelled) {
      ASSERT_EQ(0, pthread_cancel(static_cast<pthread_t>(thread)));
    }
    void *result = nullptr;
    ASSERT_EQ(0, ZBThreadJoin(thread, &result));
    EXPECT_EQ(ending.result, result) << "the join hands back how the thread ended";
    EXPECT_EQ(0u, ZBThreadGetThreadWithID(id));
    EXPECT_FALSE(ZBThreadSuspendRemove(id));
  }
}

TEST(ZBThreadTest, PosixThreadsErrorsMapToLibraryCodes) {
  const std::pair<int, ZBError> rows[] = {
      {ESRCH, ZBErrorInvalidHandle}, {EAGAIN, ZBErrorNotOwner},  {ENOMEM, ZBErrorNoMemory},
      {EINVAL, ZBErrorInvalidArgument}, {EDEADLK, ZBErrorDeadlock}, {ENOTSUP, ZBErrorUnsupported},
      {0, ZBErrorGeneric},           {EPERM, ZBErrorGeneric},   {-1, ZBErrorGeneric},
  };
  for (const auto &[error, code] : rows)
    EXPECT_EQ(code, _ZBThreadErrorFromPosixThreads(error)) << error;
}

TEST(ZBThreadTest, BadArgumentsAreRefused) {
  EXPECT_EQ(ZBErrorDeadlock, ZBThreadJoin(ZBThreadGetSelf(), nullptr));
  EXPECT_EQ(ZBErrorInvalidHandle, ZBThreadJoin(0, nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadSetName(0, "x"));
  const char *const kCreateError = "ZBThreadCreate: ERROR: ";
  const size_t errorsBefore = zbtest::occurrences(zbtest::logRing(), kCreateError);
  EXPECT_EQ(0u, ZBThreadCreate("nothing", nullptr, nullptr, -1.0, 0, 0));
  EXPECT_EQ(errorsBefore + 1, zbtest::occurrences(zbtest::logRing(), kCreateError));
  uint32_t once = 0;
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadCallOnce(nullptr, [](void *) {}, nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadCallOnce(&once, nullptr, nullptr));
  EXPECT_EQ(0u, once);
}

TEST(ZBThreadTest, NamesAreCopiedReplacedAndCleared) {
  CountingThread worker(nullptr);
  const ZBThread thread = worker.thread();
  ASSERT_NE(0u, thread);
  EXPECT_EQ(nullptr, ZBThreadGetName(thread));
  char name[] = "first";
  EXPECT_EQ(0, ZBThreadSetName(thread, name));
  name[0] = 'F';
  EXPECT_STREQ("first", ZBThreadGetName(thread)) << "the name is a copy";
  EXPECT_EQ(0, ZBThreadSetName(thread, "second"));
  EXPECT_STREQ("second", ZBThreadGetName(thread));
  EXPECT_EQ(0, ZBThreadSetName(thread, ""));
  EXPECT_EQ(nullptr, ZBThreadGetName(thread));
  EXPECT_EQ(0, ZBThreadSetName(thread, "third"));
  EXPECT_EQ(0, ZBThreadSetName(thread, nullptr));
  EXPECT_EQ(nullptr, ZBThreadGetName(thread));

  // A thread that the library did not start keeps no name.
  zbtest::onOtherThread([] {
    EXPECT_EQ(0, ZBThreadSetName(ZBThreadGetSelf(), "foreign"));
    EXPECT_EQ(nullptr, ZBThreadGetName(0));
    EXPECT_EQ(nullptr, ZBThreadGetName(ZBThreadGetSelf()));
  });
}

TEST(ZBThreadTest, PrioritiesSpanTheCallersPolicy) {
  int policy = 0;
  sched_param scheduling{};
  ASSERT_EQ(0, pthread_getschedparam(pthread_self(), &policy, &scheduling));
  const int lowest = sched_get_priority_min(policy);
  const int highest = sched_get_priority_max(policy);
  const std::pair<double, int> rows[] = {
      {ZBThreadPriorityDefault, static_cast<int>(lowest + 0.5 * (highest - lowest))},
      {2.0, highest}, {1.0, highest}, {0.0, lowest}, {-0.5, lowest}, {std::nan(""), lowest},
  };
  for (const auto &[requested, expected] : rows) {
    int own = -12345;
    CountingThread worker("zb-priority", requested, 0, [&own] {
      int ownPolicy = 0;
      sched_param ownScheduling{};
      pthread_getschedparam(pthread_self(), &ownPolicy, &ownScheduling);
      own = ownScheduling.sched_priority;
    });
    ASSERT_NE(0u, worker.thread()) << requested;
    EXPECT_EQ(expected, own) << requested;
  }
  EXPECT_EQ(0.0, ZBThreadGetPriority(ZBThreadGetSelf()));
  EXPECT_EQ(ZBErrorNotImplemented, ZBThreadSetPriority(ZBThreadGetSelf(), 0.5));
}

// No thread is main until the initializers run: then the thread that ran
// them is, listed, suspendable and named "qv-main". A fresh process each.
TEST(ZBThreadDeathTest, TheInitializersRecordTheMainThread) {
  zbtest::expectInChildProcess([](zbtest::ChildChecks &checks) {
    const uint32_t id = ZBThreadGetCurrentThreadID();
    checks.expect(ZBThreadGetMain() == 0, "no main thread at load");
    checks.expect(ZBThreadIsMain(), "the loading thread counts as main");
    checks.expect(ZBThreadGetThreadWithID(id) == 0, "the loading thread is not listed at load");
    checks.expect(!isSuspendable(id), "the loading thread is not suspendable at load");
    zbtest::onOtherThread([&] {
      checks.expect(ZBThreadIsMain(), "another thread counts as main too");
      checks.expect(!ZBThreadIsMainThread(ZBThreadGetSelf()), "no thread equals an unset main");
    });

    ZBInitializerRun();
    checks.expect(ZBThreadIsMain(), "the runner is main");
    checks.expect(ZBThreadIsMainThread(ZBThreadGetSelf()), "the runner is the main thread");
    checks.expect(ZBThreadEqual(ZBThreadGetSelf(), ZBThreadGetThreadWithID(id)), "listed");
    checks.expect(isSuspendable(id), "suspendable");
    const char *name = ZBThreadGetName(ZBThreadGetMain());
    checks.expect(name != nullptr && std::string(name) == "qv-main", "named qv-main");
    zbtest::onOtherThread([&] {
      checks.expect(!ZBThreadIsMain(), "another thread is not main");
      checks.expect(!ZBThreadIsMainThread(ZBThreadGetSelf()), "nor the main thread");
    });
  });
}

// The initializer keeps the record that a thread started through
// ZBThreadCreate already has, and ZBThreadSetMain moves the main thread.
TEST(ZBThreadDeathTest, ACreatedThreadCanBecomeMain) {
  zbtest::expectInChildProcess([](zbtest::ChildChecks &checks) {
    CountingThread worker("zb-runner", ZBThreadPriorityDefault, 0, [&checks] {
      __ZBThreadInit();
      checks.expect(ZBThreadIsMainThread(ZBThreadGetSelf()), "the runner is the main thread");
      const char *name = ZBThreadGetName(0);
      checks.expect(name != nullptr && std::string(name) == "qv-main", "renamed qv-main");
    });
    checks.expect(worker.thread() != 0, "the worker started");
    checks.expect(ZBThreadEqual(worker.thread(), ZBThreadGetThreadWithID(worker.threadID())),
                  "listed once, by its own record");
    checks.expect(!ZBThreadIsMain(), "the test's thread is not main");
    ZBThreadSetMain();
    checks.expect(ZBThreadIsMain() && ZBThreadIsMainThread(ZBThreadGetSelf()),
                  "ZBThreadSetMain makes the caller main");
    checks.expect(worker.join() == 0, "joined");
    checks.expect(ZBThreadGetThreadWithID(worker.threadID()) == 0, "unlisted when it ends");
  });
}

TEST(ZBThreadTest, EqualityTreatsNoThreadAsItsOwnValue) {
  const ZBThread self = ZBThreadGetSelf();
  const struct {
    ZBThread first, second;
    bool equal;
  } rows[] = {{0, 0, true}, {0, self, false}, {self, 0, false}, {self, self, true}};
  for (const auto &row : rows)
    EXPECT_EQ(row.equal, ZBThreadEqual(row.first, row.second)) << row.first << " " << row.second;
  EXPECT_TRUE(ZBThreadIsSelf(self));
  EXPECT_FALSE(ZBThreadIsSelf(0));
  zbtest::onOtherThread([self] { EXPECT_FALSE(ZBThreadIsSelf(self)); });
}

// A yield gives the processor up without sleeping: two thousand of them
// take well under the two seconds that as many one-millisecond sleeps would.
TEST(ZBThreadTest, YieldGivesWayWithoutSleeping) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 2000; ++i)
    ZBThreadYield();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(1000));
}

TEST(ZBThreadTest, CallOnceRunsTheFunctionOnceWhileLateCallersWait) {
  static uint32_t once;
  static std::atomic<int> runs;
  static std::atomic<bool> finished;
  auto slowInit = [](void *) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ++runs;
    finished = true;
  };
  std::atomic<int> sawFinished{0};
  zbtest::onThreads(8, [&](int) {
    EXPECT_EQ(0, ZBThreadCallOnce(&once, slowInit, nullptr));
    sawFinished += finished ? 1 : 0;
  });
  EXPECT_EQ(1, runs.load());
  EXPECT_EQ(8, sawFinished.load()) << "every caller returns after the function has";
  EXPECT_EQ(0, ZBThreadCallOnce(&once, slowInit, nullptr));
  EXPECT_EQ(1, runs.load());
}

TEST(ZBThreadTest, TheSuspendRegistryRemovesOneEntryAtATime) {
  const uint32_t id = 0x7FFFFFF0;
  ZBThreadSuspendAdd(id);
  ZBThreadSuspendAdd(id);
  ZBThreadSetNonSuspendable(id);
  EXPECT_TRUE(isSuspendable(id)) << "only the newest entry was marked";
  EXPECT_TRUE(ZBThreadSuspendRemove(id));
  EXPECT_TRUE(isSuspendable(id)) << "the marked newest entry went first";
  EXPECT_TRUE(ZBThreadSuspendRemove(id));
  EXPECT_FALSE(ZBThreadSuspendRemove(id));
  EXPECT_FALSE(isSuspendable(id));
  ZBThreadSetNonSuspendable(id); // no entry: nothing happens
}

TEST(ZBThreadTest, TheStartHookRunsOnEveryNewThread) {
  EXPECT_FALSE(ZBThreadRegisterWithProfiler());
  _gZBThreadStartHook = [] {
    ++gHookCalls;
    gHookThread = ZBThreadGetCurrentThreadID();
  };
  gHookCalls = 0;
  {
    CountingThread worker("zb-hooked");
    ASSERT_NE(0u, worker.thread());
    EXPECT_EQ(1, gHookCalls.load());
    EXPECT_EQ(worker.threadID(), gHookThread.load());
  }
  EXPECT_TRUE(ZBThreadRegisterWithProfiler());
  EXPECT_EQ(2, gHookCalls.load());
  _gZBThreadStartHook = nullptr;
}
