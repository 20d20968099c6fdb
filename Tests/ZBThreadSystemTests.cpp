// The Windows-bound thread services, through zenbor.dll: system thread IDs,
// stack bounds, enumeration, CPU times, register state and suspension, one
// thread at a time and through the suspend registry.
#include <gtest/gtest.h>

#include "ZBTestSupport.h"

#include "Zenbor.h"

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

namespace {

using zbtest::CountingThread;

constexpr uint32_t kNoSuchThread = 0xFFFFFFF0u;

} // namespace

TEST(ZBThreadSystemTest, IdentityStackAndRegistersOfAThread) {
  const uint32_t self = GetCurrentThreadId();
  EXPECT_EQ(self, ZBThreadGetCurrentThreadID());
  uint32_t id = 0;
  EXPECT_EQ(0, ZBThreadGetThreadID(ZBThreadGetSelf(), &id));
  EXPECT_EQ(self, id);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadGetThreadID(0, &id));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadGetThreadID(ZBThreadGetSelf(), nullptr));
  ULONG_PTR low = 0, high = 0;
  GetCurrentThreadStackLimits(&low, &high);
  void *base = nullptr;
  size_t size = 0;
  ASSERT_EQ(0, ZBThreadGetStackInfo(ZBThreadGetSelf(), &base, &size));
  EXPECT_EQ(reinterpret_cast<void *>(high), base);
  EXPECT_EQ(high - low, size);
  EXPECT_EQ(0, ZBThreadGetStackInfo(ZBThreadGetSelf(), nullptr, nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadGetStackInfo(0, &base, &size));
  ZBThreadState state{};
  EXPECT_EQ(ZBErrorNotOwner, ZBThreadStateGet(self, &state));
  EXPECT_EQ(ZBErrorGeneric, ZBThreadStateGet(kNoSuchThread, &state));
  EXPECT_NE(std::string::npos,
            zbtest::logRing().find("ZBThreadStateGet: ERROR: OpenThread failed: "));

  // Another thread, with the stack size asked for, is held while its
  // registers are read; its stack pointer lies within the bounds given.
  const uint32_t requested = 8u << 20;
  CountingThread worker("zb-worker", ZBThreadPriorityDefault, requested);
  const ZBThread thread = worker.thread();
  ASSERT_NE(0u, thread);
  EXPECT_EQ(0, ZBThreadGetThreadID(thread, &id));
  EXPECT_EQ(worker.threadID(), id);
  ASSERT_EQ(0, ZBThreadGetStackInfo(thread, &base, &size));
  EXPECT_GE(size, requested);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadStateGet(id, nullptr));
  ASSERT_EQ(0, ZBThreadStateGet(id, &state));
  const uintptr_t top = reinterpret_cast<uintptr_t>(base);
  EXPECT_LT(state.esp, top);
  EXPECT_GT(state.esp, top - size);
  EXPECT_NE(0u, state.eip);
  EXPECT_NE(0u, state.cs);
  EXPECT_NE(0u, state.ss);
  EXPECT_TRUE(worker.keepsCounting()) << "the thread was resumed";
  ASSERT_EQ(0, worker.join());
  EXPECT_EQ(ZBErrorGeneric, ZBThreadGetThreadID(thread, &id)) << "the thread was joined";
}

TEST(ZBThreadSystemTest, EnumerationListsThisProcessThreadsOnly) {
  CountingThread worker("zb-worker");
  ASSERT_NE(0u, worker.thread());
  std::vector<uint32_t> ids;
  auto collect = [](uint32_t id, void *context) {
    static_cast<std::vector<uint32_t> *>(context)->push_back(id);
    return true;
  };
  ASSERT_EQ(0, ZBThreadEnumerateIDs(collect, &ids));
  for (uint32_t wanted : {worker.threadID(), ZBThreadGetCurrentThreadID()})
    EXPECT_NE(ids.end(), std::find(ids.begin(), ids.end(), wanted)) << wanted;
  for (uint32_t id : ids) {
    HANDLE thread = OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, id);
    if (thread == nullptr)
      continue; // it has ended since
    EXPECT_EQ(GetCurrentProcessId(), GetProcessIdOfThread(thread)) << id;
    CloseHandle(thread);
  }

  int calls = 0;
  auto stopAtFirst = [](uint32_t, void *context) {
    ++*static_cast<int *>(context);
    return false;
  };
  ASSERT_EQ(0, ZBThreadEnumerateIDs(stopAtFirst, &calls));
  EXPECT_EQ(1, calls);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadEnumerateIDs(nullptr, nullptr));
}

TEST(ZBThreadSystemTest, CPUTimesGrowWhileAThreadWorks) {
  CountingThread worker("zb-worker");
  ASSERT_NE(0u, worker.thread());
  auto total = [](const ZBThreadCPUTimeUsage &usage) {
    return usage.userTime + usage.kernelTime;
  };
  ZBThreadCPUTimeUsage first{}, later{};
  ASSERT_EQ(0, ZBThreadGetCPUTimeUsageWithID(worker.threadID(), &first));
  // Polled for up to ten seconds: a loaded machine may give the worker little time.
  for (int polls = 0; polls < 1000 && total(later) <= total(first); ++polls) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(0, ZBThreadGetCPUTimeUsageWithID(worker.threadID(), &later));
  }
  EXPECT_GT(total(later), total(first));
  EXPECT_EQ(0, ZBThreadGetCPUTimeUsageWithID(ZBThreadGetCurrentThreadID(), &first));
  EXPECT_EQ(ZBErrorInvalidArgument,
            ZBThreadGetCPUTimeUsageWithID(ZBThreadGetCurrentThreadID(), nullptr));

  // An unknown thread fails to open with null, which the times then refuse.
  EXPECT_EQ(ZBErrorGeneric, ZBThreadGetCPUTimeUsageWithID(kNoSuchThread, &first));
  EXPECT_NE(std::string::npos,
            zbtest::logRing().find("WARNING: Failed to get times for thread 4294967280: "));
}

TEST(ZBThreadSystemTest, ThreadsAreSuspendedByIDOrThroughTheRegistry) {
  const uint32_t self = ZBThreadGetCurrentThreadID();
  EXPECT_EQ(ZBErrorDeadlock, ZBThreadSuspendWithID(self));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadResumeWithID(self));
  EXPECT_EQ(ZBErrorGeneric, ZBThreadSuspendWithID(kNoSuchThread));
  EXPECT_EQ(ZBErrorGeneric, ZBThreadResumeWithID(kNoSuchThread));

  CountingThread first("zb-first"), second("zb-second");
  ASSERT_NE(0u, first.thread());
  ASSERT_NE(0u, second.thread());
  ASSERT_EQ(0, ZBThreadSuspendWithID(first.threadID()));
  EXPECT_TRUE(first.standsStill());
  EXPECT_TRUE(second.keepsCounting());
  ASSERT_EQ(0, ZBThreadResumeWithID(first.threadID()));
  EXPECT_TRUE(first.keepsCounting());

  // The caller's own entry would fail and be logged. The newest entry, with
  // no thread behind it, fails and is logged, and the walk goes on.
  ZBThreadSetNonSuspendable(self);
  ZBThreadSetNonSuspendable(second.threadID());
  ZBThreadSuspendAdd(kNoSuchThread);
  ZBThreadSuspendAll();
  EXPECT_TRUE(first.standsStill());
  EXPECT_TRUE(second.keepsCounting());
  ZBThreadResumeAll();
  EXPECT_TRUE(first.keepsCounting());
  EXPECT_TRUE(ZBThreadSuspendRemove(kNoSuchThread));
  const std::string log = zbtest::logRing();
  EXPECT_NE(std::string::npos, log.find("ZBThreadSuspendAll: WARNING: Failed to suspend thread -16"));
  EXPECT_NE(std::string::npos, log.find("ZBThreadResumeAll: WARNING: Failed to resume thread -16"));
}

TEST(ZBThreadSystemTest, DetachedThreadsCannotBeJoined) {
  static std::atomic<int> step;
  step = 0;
  auto stepAlong = [](void *) -> void * {
    step = 1;
    while (step != 2)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return nullptr;
  };
  const ZBThread thread = ZBThreadCreate("zb-detached", stepAlong, nullptr,
                                         ZBThreadPriorityDefault, 0, ZBThreadFlagDetached);
  ASSERT_NE(0u, thread);
  while (step != 1)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  // The POSIX-threads library for Windows keeps no joinable handle for a
  // detached thread, even while it runs.
  EXPECT_EQ(ZBErrorInvalidHandle, ZBThreadJoin(thread, nullptr));
  step = 2;
}

// Threads that the application makes with the system's own calls also have
// their key values destroyed when they end.
TEST(ZBThreadSystemTest, KeyDestructorsRunOnSystemThreads) {
  static std::atomic<int> destructorCalls;
  static void *destroyedValue;
  static ZBThreadKey key;
  static int value;
  key = ZBThreadKeyCreate([](void *stored) {
    ++destructorCalls;
    destroyedValue = stored;
  });
  ASSERT_NE(-1, key);
  destructorCalls = 0;
  auto setAndRead = [](void *) -> DWORD {
    ZBThreadSetSpecific(key, &value);
    return ZBThreadGetSpecific(key) == &value ? 0 : 1;
  };
  HANDLE thread = CreateThread(nullptr, 0, setAndRead, nullptr, 0, nullptr);
  ASSERT_NE(nullptr, thread);
  WaitForSingleObject(thread, INFINITE);
  DWORD exitCode = 1;
  GetExitCodeThread(thread, &exitCode);
  CloseHandle(thread);
  EXPECT_EQ(0u, exitCode);
  EXPECT_EQ(1, destructorCalls.load());
  EXPECT_EQ(&value, destroyedValue);
  EXPECT_EQ(0, ZBThreadKeyDelete(key));
}

// A host that loads the library late, from a worker thread (a plugin), and
// runs the initializers on its first thread has the first thread recorded
// as main. A copy of the DLL under another name is a second, fresh instance
// of the library in this process; it is loaded in a child process.
TEST(ZBThreadSystemDeathTest, ALibraryLoadedOnAWorkerRecordsTheThreadThatInitialisesIt) {
  // The child runs this body again: it takes the parent's copy.
  char copy[MAX_PATH] = {};
  if (GetEnvironmentVariableA("ZBTEST_LATE_LIBRARY", copy, MAX_PATH) == 0) {
    char library[MAX_PATH] = {};
    ASSERT_NE(0u, GetModuleFileNameA(GetModuleHandleA("zenbor.dll"), library, MAX_PATH));
    const std::string path = zbtest::temporaryPath("zenbor-late.dll");
    ASSERT_TRUE(CopyFileA(library, path.c_str(), FALSE));
    SetEnvironmentVariableA("ZBTEST_LATE_LIBRARY", path.c_str());
    std::snprintf(copy, sizeof copy, "%s", path.c_str());
  }
  zbtest::expectInChildProcess([&copy](zbtest::ChildChecks &checks) {
    HMODULE late = nullptr;
    std::thread([&] { late = LoadLibraryA(copy); }).join();
    checks.expect(late != nullptr && late != GetModuleHandleA("zenbor.dll"), "a second instance");
    if (late == nullptr)
      return;
    // Through void (*)(): the generic function type the cast is allowed from.
    auto resolve = [late](const char *name) {
      return reinterpret_cast<void (*)()>(GetProcAddress(late, name));
    };
    auto getMain = reinterpret_cast<decltype(&ZBThreadGetMain)>(resolve("ZBThreadGetMain"));
    auto isMain = reinterpret_cast<decltype(&ZBThreadIsMain)>(resolve("ZBThreadIsMain"));
    auto getSelf = reinterpret_cast<decltype(&ZBThreadGetSelf)>(resolve("ZBThreadGetSelf"));
    auto getName = reinterpret_cast<decltype(&ZBThreadGetName)>(resolve("ZBThreadGetName"));
    auto run = reinterpret_cast<decltype(&ZBInitializerRun)>(resolve("ZBInitializerRun"));
    checks.expect(getMain() == 0, "no main thread after a load on a worker");
    checks.expect(isMain(), "the first thread counts as main");
    run();
    checks.expect(getMain() != 0 && getMain() == getSelf(), "the first thread is main");
    const char *name = getName(0);
    checks.expect(name != nullptr && std::string(name) == "qv-main", "named qv-main");
    std::thread([&] { checks.expect(!isMain(), "a worker is not main"); }).join();
  });
  DeleteFileA(copy);
  SetEnvironmentVariableA("ZBTEST_LATE_LIBRARY", nullptr);
}
