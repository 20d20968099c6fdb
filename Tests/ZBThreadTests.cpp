// Threads over the POSIX-threads library: creation and joins, the registry
// of live threads and their names, priorities, the main thread, call-once,
// the suspend registry's bookkeeping and the thread-start hook.
#include <gtest/gtest.h>

#include "ZBTestSupport.h"

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
#include <vector>

namespace {

// A thread started through ZBThreadCreate that reports what it sees of
// itself, then waits until the test lets it end.
struct Probe {
  std::atomic<bool> running{false};
  std::atomic<bool> release{false};
  uint32_t threadID = 0;
  ZBThread self = 0;
  std::string name;
  bool isMain = true;
  int schedulingPriority = 0;
};

void *runProbe(void *context) {
  auto *probe = static_cast<Probe *>(context);
  probe->threadID = ZBThreadGetCurrentThreadID();
  probe->self = ZBThreadGetSelf();
  const char *name = ZBThreadGetName(0);
  probe->name = name ? name : "(null)";
  probe->isMain = ZBThreadIsMain();
  int policy = 0;
  sched_param scheduling{};
  pthread_getschedparam(pthread_self(), &policy, &scheduling);
  probe->schedulingPriority = scheduling.sched_priority;
  probe->running = true;
  while (!probe->release)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return probe;
}

ZBThread startProbe(Probe &probe, const char *name, double priority = ZBThreadPriorityDefault) {
  const ZBThread thread = ZBThreadCreate(name, runProbe, &probe, priority, 0, 0);
  if (thread != 0)
    while (!probe.running)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
  return thread;
}

void endProbe(ZBThread thread, Probe &probe) {
  probe.release = true;
  void *result = nullptr;
  EXPECT_EQ(0, ZBThreadJoin(thread, &result));
  EXPECT_EQ(&probe, result);
}

std::vector<uint32_t> suspendableIDs() {
  static std::vector<uint32_t> *collected;
  std::vector<uint32_t> ids;
  collected = &ids;
  _ZBThreadSuspendRegistryVisitSuspendable([](uint32_t id) { collected->push_back(id); });
  return ids;
}

bool contains(const std::vector<uint32_t> &ids, uint32_t id) {
  for (uint32_t each : ids)
    if (each == id)
      return true;
  return false;
}

} // namespace

TEST(ZBThreadTest, ACreatedThreadIsRegisteredUnderItsNameUntilItEnds) {
  Probe probe;
  const ZBThread thread = startProbe(probe, "zb-probe");
  ASSERT_NE(0u, thread);
  EXPECT_TRUE(ZBThreadEqual(thread, probe.self));
  EXPECT_FALSE(ZBThreadIsSelf(thread));
  EXPECT_EQ("zb-probe", probe.name);
  EXPECT_STREQ("zb-probe", ZBThreadGetName(thread));
  EXPECT_TRUE(ZBThreadEqual(thread, ZBThreadGetThreadWithID(probe.threadID)));
  EXPECT_TRUE(contains(suspendableIDs(), probe.threadID));
  EXPECT_FALSE(probe.isMain);
  const uint32_t threadID = probe.threadID;
  endProbe(thread, probe);

  EXPECT_EQ(0u, ZBThreadGetThreadWithID(threadID));
  EXPECT_FALSE(contains(suspendableIDs(), threadID));
  EXPECT_FALSE(ZBThreadSuspendRemove(threadID)) << "the thread left the suspend registry";
}

TEST(ZBThreadTest, LogLinesCarryTheThreadName) {
  auto logFromWorker = [](void *) -> void * {
    ZB_LOG_ERROR("a line from a named thread");
    return nullptr;
  };
  const ZBThread thread = ZBThreadCreate("zb-logger", logFromWorker, nullptr, -1.0, 0, 0);
  ASSERT_NE(0u, thread);
  ASSERT_EQ(0, ZBThreadJoin(thread, nullptr));
  EXPECT_NE(std::string::npos, zbtest::logRing().find(") zb-logger: "));
}

TEST(ZBThreadTest, JoinsRefuseTheCallerAndUnknownThreads) {
  EXPECT_EQ(ZBErrorDeadlock, ZBThreadJoin(ZBThreadGetSelf(), nullptr));
  EXPECT_EQ(ZBErrorInvalidHandle, ZBThreadJoin(0, nullptr));
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
  for (ZBThreadFunction function : {+exitEarly, +awaitCancellation}) {
    std::atomic<uint32_t> threadID{0};
    const ZBThread thread = ZBThreadCreate("zb-ending", function, &threadID, -1.0, 0, 0);
    ASSERT_NE(0u, thread);
    while (threadID == 0)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    const bool cancelled = function == +awaitCancellation;
    if (cancelled) {
      ASSERT_EQ(0, pthread_cancel(static_cast<pthread_t>(thread)));
    }
    void *result = nullptr;
    ASSERT_EQ(0, ZBThreadJoin(thread, &result));
    EXPECT_EQ(cancelled ? PTHREAD_CANCELED : reinterpret_cast<void *>(7), result);
    EXPECT_EQ(0u, ZBThreadGetThreadWithID(threadID));
    EXPECT_FALSE(contains(suspendableIDs(), threadID));
  }
}

TEST(ZBThreadTest, PosixThreadsErrorsMapToLibraryCodes) {
  struct Row {
    int error;
    ZBError code;
  };
  const Row rows[] = {
      {ESRCH, ZBErrorInvalidHandle}, {EAGAIN, ZBErrorNotOwner},
      {ENOMEM, ZBErrorNoMemory},     {EINVAL, ZBErrorInvalidArgument},
      {EDEADLK, ZBErrorDeadlock},    {ENOTSUP, ZBErrorUnsupported},
      {0, ZBErrorGeneric},           {EPERM, ZBErrorGeneric},
      {-1, ZBErrorGeneric},
  };
  for (const Row &row : rows)
    EXPECT_EQ(row.code, _ZBThreadErrorFromPosixThreads(row.error)) << row.error;
}

TEST(ZBThreadTest, CreationFailuresReturnZeroAndAreLogged) {
  EXPECT_EQ(0u, ZBThreadCreate("nothing", nullptr, nullptr, -1.0, 0, 0));
  EXPECT_NE(std::string::npos, zbtest::logRing().find("ZBThreadCreate: ERROR: "));
}

TEST(ZBThreadTest, NamesAreCopiedReplacedAndCleared) {
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadSetName(0, "x"));

  Probe probe;
  const ZBThread thread = startProbe(probe, nullptr);
  ASSERT_NE(0u, thread);
  EXPECT_EQ("(null)", probe.name);
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
  endProbe(thread, probe);

  // A thread that the library did not start keeps no name.
  std::thread foreign([] {
    EXPECT_EQ(0, ZBThreadSetName(ZBThreadGetSelf(), "foreign"));
    EXPECT_EQ(nullptr, ZBThreadGetName(0));
    EXPECT_EQ(nullptr, ZBThreadGetName(ZBThreadGetSelf()));
  });
  foreign.join();
}

TEST(ZBThreadTest, PrioritiesSpanTheCallersPolicy) {
  int policy = 0;
  sched_param scheduling{};
  ASSERT_EQ(0, pthread_getschedparam(pthread_self(), &policy, &scheduling));
  const int lowest = sched_get_priority_min(policy);
  const int highest = sched_get_priority_max(policy);
  struct Row {
    double requested;
    int expected;
  };
  const Row rows[] = {
      {ZBThreadPriorityDefault, static_cast<int>(lowest + 0.5 * (highest - lowest))},
      {2.0, highest},
      {1.0, highest},
      {0.0, lowest},
      {-0.5, lowest},
      {std::nan(""), lowest},
  };
  for (const Row &row : rows) {
    Probe probe;
    const ZBThread thread = startProbe(probe, "zb-priority", row.requested);
    ASSERT_NE(0u, thread) << row.requested;
    EXPECT_EQ(row.expected, probe.schedulingPriority) << row.requested;
    endProbe(thread, probe);
  }
  EXPECT_EQ(0.0, ZBThreadGetPriority(ZBThreadGetSelf()));
  EXPECT_EQ(ZBErrorNotImplemented, ZBThreadSetPriority(ZBThreadGetSelf(), 0.5));
}

TEST(ZBThreadTest, TheLoadingThreadIsTheMainThread) {
  EXPECT_TRUE(ZBThreadIsMain());
  EXPECT_TRUE(ZBThreadEqual(ZBThreadGetSelf(), ZBThreadGetMain()));
  EXPECT_TRUE(ZBThreadIsMainThread(ZBThreadGetSelf()));
  const uint32_t id = ZBThreadGetCurrentThreadID();
  EXPECT_TRUE(ZBThreadEqual(ZBThreadGetSelf(), ZBThreadGetThreadWithID(id)));
  EXPECT_TRUE(contains(suspendableIDs(), id));
  EXPECT_EQ(nullptr, ZBThreadGetName(0)) << "named by the initializer, not at load";

  std::thread other([] {
    EXPECT_FALSE(ZBThreadIsMain());
    EXPECT_FALSE(ZBThreadIsMainThread(ZBThreadGetSelf()));
    EXPECT_TRUE(ZBThreadIsMainThread(ZBThreadGetMain()));
  });
  other.join();

  EXPECT_TRUE(ZBThreadEqual(0, 0));
  EXPECT_FALSE(ZBThreadEqual(0, ZBThreadGetSelf()));
  EXPECT_FALSE(ZBThreadEqual(ZBThreadGetSelf(), 0));
}

TEST(ZBThreadDeathTest, TheThreadInitializerNamesTheMainThread) {
  EXPECT_EXIT(
      {
        __ZBThreadInit();
        const char *name = ZBThreadGetName(ZBThreadGetMain());
        std::exit(name != nullptr && std::string(name) == "qv-main" ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
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
  std::atomic<bool> go{false};
  std::atomic<int> sawFinished{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i)
    threads.emplace_back([&] {
      while (!go)
        std::this_thread::yield();
      EXPECT_EQ(0, ZBThreadCallOnce(&once, slowInit, nullptr));
      if (finished)
        ++sawFinished;
    });
  go = true;
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(1, runs.load());
  EXPECT_EQ(8, sawFinished.load()) << "every caller returns after the function has";
  EXPECT_EQ(2u, once);
  EXPECT_EQ(0, ZBThreadCallOnce(&once, slowInit, nullptr));
  EXPECT_EQ(1, runs.load());

  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadCallOnce(nullptr, slowInit, nullptr));
  uint32_t unused = 0;
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadCallOnce(&unused, nullptr, nullptr));
  EXPECT_EQ(0u, unused);
}

TEST(ZBThreadTest, TheSuspendRegistryRemovesOneEntryAtATime) {
  const uint32_t id = 0x7FFFFFF0;
  ZBThreadSuspendAdd(id);
  ZBThreadSuspendAdd(id);
  EXPECT_TRUE(contains(suspendableIDs(), id));
  ZBThreadSetNonSuspendable(id);
  EXPECT_TRUE(contains(suspendableIDs(), id)) << "only the newest entry was marked";
  EXPECT_TRUE(ZBThreadSuspendRemove(id));
  EXPECT_TRUE(contains(suspendableIDs(), id));
  EXPECT_TRUE(ZBThreadSuspendRemove(id));
  EXPECT_FALSE(ZBThreadSuspendRemove(id));
  EXPECT_FALSE(contains(suspendableIDs(), id));
  ZBThreadSetNonSuspendable(id); // no entry: nothing happens
}

namespace {

std::atomic<int> gHookCalls;
std::atomic<uint32_t> gHookThread;

void countHook() {
  ++gHookCalls;
  gHookThread = ZBThreadGetCurrentThreadID();
}

} // namespace

TEST(ZBThreadTest, TheStartHookRunsOnEveryNewThread) {
  EXPECT_FALSE(ZBThreadRegisterWithProfiler());
  _gZBThreadStartHook = countHook;
  gHookCalls = 0;
  Probe probe;
  const ZBThread thread = startProbe(probe, "zb-hooked");
  ASSERT_NE(0u, thread);
  EXPECT_EQ(1, gHookCalls.load());
  EXPECT_EQ(probe.threadID, gHookThread.load());
  endProbe(thread, probe);
  EXPECT_TRUE(ZBThreadRegisterWithProfiler());
  EXPECT_EQ(2, gHookCalls.load());
  _gZBThreadStartHook = nullptr;
}
