// The Windows-bound thread services, through zenbor.dll: system thread IDs,
// stack bounds, enumeration, CPU times, register state and suspension, one
// thread at a time and through the suspend registry.
#include <gtest/gtest.h>

#include "ZBTestSupport.h"

#include "Zenbor.h"

#include <windows.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>

namespace {

constexpr uint32_t kNoSuchThread = 0xFFFFFFF0u;

void pause(int milliseconds) {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

// A thread started through ZBThreadCreate that counts as fast as it can
// until told to stop, touching nothing but its own atomics (so suspending
// it anywhere is safe).
class Spinner {
public:
  explicit Spinner(uint32_t stackSize = 0) {
    thread_ = ZBThreadCreate("zb-spinner", run, this, ZBThreadPriorityDefault, stackSize, 0);
    while (thread_ != 0 && threadID_ == 0)
      pause(1);
  }
  ~Spinner() {
    stop_ = true;
    if (thread_ != 0)
      ZBThreadJoin(thread_, nullptr);
  }
  Spinner(const Spinner &) = delete;
  Spinner &operator=(const Spinner &) = delete;

  ZBThread thread() const { return thread_; }
  uint32_t threadID() const { return threadID_; }
  uint64_t count() const { return count_.load(); }
  const char *stackMarker() const { return stackMarker_; }

  // True when the count stands still for a while.
  bool isStopped() const {
    const uint64_t before = count();
    pause(50);
    return count() == before;
  }

private:
  static void *run(void *context) {
    auto *self = static_cast<Spinner *>(context);
    char marker = 0;
    self->stackMarker_ = &marker;
    self->threadID_ = ZBThreadGetCurrentThreadID();
    while (!self->stop_)
      self->count_.fetch_add(1, std::memory_order_relaxed);
    return nullptr;
  }

  ZBThread thread_ = 0;
  std::atomic<uint32_t> threadID_{0};
  std::atomic<uint64_t> count_{0};
  std::atomic<bool> stop_{false};
  const char *volatile stackMarker_ = nullptr;
};

} // namespace

TEST(ZBThreadSystemTest, ThreadIDsComeFromTheSystem) {
  EXPECT_EQ(GetCurrentThreadId(), ZBThreadGetCurrentThreadID());
  uint32_t id = 0;
  EXPECT_EQ(0, ZBThreadGetThreadID(ZBThreadGetSelf(), &id));
  EXPECT_EQ(GetCurrentThreadId(), id);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadGetThreadID(0, &id));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadGetThreadID(ZBThreadGetSelf(), nullptr));

  ZBThread ended = 0;
  {
    Spinner spinner;
    ASSERT_NE(0u, spinner.thread());
    EXPECT_EQ(0, ZBThreadGetThreadID(spinner.thread(), &id));
    EXPECT_EQ(spinner.threadID(), id);
    ended = spinner.thread();
  }
  EXPECT_EQ(ZBErrorGeneric, ZBThreadGetThreadID(ended, &id)) << "the thread was joined";
}

TEST(ZBThreadSystemTest, StackInfoGivesTheTopAndTheReservedSize) {
  ULONG_PTR low = 0, high = 0;
  GetCurrentThreadStackLimits(&low, &high);
  void *base = nullptr;
  size_t size = 0;
  ASSERT_EQ(0, ZBThreadGetStackInfo(ZBThreadGetSelf(), &base, &size));
  EXPECT_EQ(reinterpret_cast<void *>(high), base);
  EXPECT_EQ(high - low, size);
  EXPECT_EQ(0, ZBThreadGetStackInfo(ZBThreadGetSelf(), nullptr, nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadGetStackInfo(0, &base, &size));

  const uint32_t requested = 8u << 20;
  Spinner spinner(requested);
  ASSERT_NE(0u, spinner.thread());
  ASSERT_EQ(0, ZBThreadGetStackInfo(spinner.thread(), &base, &size));
  EXPECT_GE(size, requested);
  const char *top = static_cast<const char *>(base);
  EXPECT_LT(spinner.stackMarker(), top);
  EXPECT_GT(spinner.stackMarker(), top - size);
}

TEST(ZBThreadSystemTest, EnumerationListsTheProcessThreads) {
  Spinner spinner;
  ASSERT_NE(0u, spinner.thread());
  struct Search {
    uint32_t wanted;
    bool foundWanted = false;
    bool foundSelf = false;
    int calls = 0;
  } search{spinner.threadID()};
  auto visit = [](uint32_t id, void *context) {
    auto *s = static_cast<Search *>(context);
    ++s->calls;
    s->foundWanted |= id == s->wanted;
    s->foundSelf |= id == GetCurrentThreadId();
    return true;
  };
  ASSERT_EQ(0, ZBThreadEnumerateIDs(visit, &search));
  EXPECT_TRUE(search.foundWanted);
  EXPECT_TRUE(search.foundSelf);
  EXPECT_GE(search.calls, 2);

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
  Spinner spinner;
  ASSERT_NE(0u, spinner.thread());
  ZBThreadCPUTimeUsage first{}, later{};
  ASSERT_EQ(0, ZBThreadGetCPUTimeUsageWithID(spinner.threadID(), &first));
  pause(200);
  ASSERT_EQ(0, ZBThreadGetCPUTimeUsageWithID(spinner.threadID(), &later));
  EXPECT_GT(later.userTime + later.kernelTime, first.userTime + first.kernelTime);
  EXPECT_GE(first.userTime, 0);
  EXPECT_GE(first.kernelTime, 0);
  EXPECT_EQ(0, ZBThreadGetCPUTimeUsageWithID(ZBThreadGetCurrentThreadID(), &first));
  EXPECT_EQ(ZBErrorInvalidArgument,
            ZBThreadGetCPUTimeUsageWithID(ZBThreadGetCurrentThreadID(), nullptr));

  // An unknown thread fails to open with null, which the times then refuse.
  EXPECT_EQ(ZBErrorGeneric, ZBThreadGetCPUTimeUsageWithID(kNoSuchThread, &first));
  EXPECT_NE(std::string::npos,
            zbtest::logRing().find("WARNING: Failed to get times for thread 4294967280: "));
}

TEST(ZBThreadSystemTest, RegistersOfAnotherThreadAreReadWhileItIsHeld) {
  ZBThreadState state{};
  EXPECT_EQ(ZBErrorNotOwner, ZBThreadStateGet(ZBThreadGetCurrentThreadID(), &state));
  EXPECT_EQ(ZBErrorGeneric, ZBThreadStateGet(kNoSuchThread, &state));
  EXPECT_NE(std::string::npos, zbtest::logRing().find("ZBThreadStateGet: ERROR: OpenThread failed: "));

  Spinner spinner;
  ASSERT_NE(0u, spinner.thread());
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadStateGet(spinner.threadID(), nullptr));
  ASSERT_EQ(0, ZBThreadStateGet(spinner.threadID(), &state));
  void *base = nullptr;
  size_t size = 0;
  ASSERT_EQ(0, ZBThreadGetStackInfo(spinner.thread(), &base, &size));
  const uintptr_t top = reinterpret_cast<uintptr_t>(base);
  EXPECT_LT(state.esp, top) << "the stack pointer lies in the thread's stack";
  EXPECT_GT(state.esp, top - size);
  EXPECT_NE(0u, state.eip);
  EXPECT_NE(0u, state.cs);
  EXPECT_NE(0u, state.ss);
  EXPECT_FALSE(spinner.isStopped()) << "the thread was resumed";
}

TEST(ZBThreadSystemTest, OneThreadIsSuspendedAndResumedByID) {
  const uint32_t self = ZBThreadGetCurrentThreadID();
  EXPECT_EQ(ZBErrorDeadlock, ZBThreadSuspendWithID(self));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBThreadResumeWithID(self));
  EXPECT_EQ(ZBErrorGeneric, ZBThreadSuspendWithID(kNoSuchThread));
  EXPECT_EQ(ZBErrorGeneric, ZBThreadResumeWithID(kNoSuchThread));

  Spinner spinner;
  ASSERT_NE(0u, spinner.thread());
  ASSERT_EQ(0, ZBThreadSuspendWithID(spinner.threadID()));
  EXPECT_TRUE(spinner.isStopped());
  ASSERT_EQ(0, ZBThreadResumeWithID(spinner.threadID()));
  EXPECT_FALSE(spinner.isStopped());
}

TEST(ZBThreadSystemTest, SuspendAllStopsTheRegisteredThreads) {
  Spinner first, second;
  ASSERT_NE(0u, first.thread());
  ASSERT_NE(0u, second.thread());
  // The caller's own entry would fail and be logged.
  ZBThreadSetNonSuspendable(ZBThreadGetCurrentThreadID());
  ZBThreadSetNonSuspendable(second.threadID());
  ZBThreadSuspendAll();
  EXPECT_TRUE(first.isStopped());
  EXPECT_FALSE(second.isStopped());
  ZBThreadResumeAll();
  EXPECT_FALSE(first.isStopped());

  // A registered ID with no thread behind it fails, is logged, and the walk
  // goes on.
  ZBThreadSuspendAdd(kNoSuchThread);
  ZBThreadSuspendAll();
  EXPECT_TRUE(first.isStopped());
  ZBThreadResumeAll();
  EXPECT_FALSE(first.isStopped());
  EXPECT_TRUE(ZBThreadSuspendRemove(kNoSuchThread));
  const std::string log = zbtest::logRing();
  EXPECT_NE(std::string::npos, log.find("ZBThreadSuspendAll: WARNING: Failed to suspend thread -16"));
  EXPECT_NE(std::string::npos, log.find("ZBThreadResumeAll: WARNING: Failed to resume thread -16"));
}

TEST(ZBThreadSystemTest, DetachedThreadsCannotBeJoined) {
  static std::atomic<int> step;
  step = 0;
  const ZBThread thread = ZBThreadCreate(
      "zb-detached",
      [](void *) -> void * {
        step = 1;
        while (step != 2)
          pause(1);
        return nullptr;
      },
      nullptr, ZBThreadPriorityDefault, 0, ZBThreadFlagDetached);
  ASSERT_NE(0u, thread);
  while (step != 1)
    pause(1);
  // The POSIX-threads library for Windows keeps no joinable handle for a
  // detached thread, even while it runs.
  EXPECT_EQ(ZBErrorInvalidHandle, ZBThreadJoin(thread, nullptr));
  step = 2;
}

namespace {

std::atomic<int> gNativeDestructorCalls;
void *gNativeDestroyedValue;

void recordNativeDestruction(void *value) {
  ++gNativeDestructorCalls;
  gNativeDestroyedValue = value;
}

} // namespace

// Threads that the application makes with the system's own calls also have
// their key values destroyed when they end.
TEST(ZBThreadSystemTest, KeyDestructorsRunOnSystemThreads) {
  static ZBThreadKey key;
  key = ZBThreadKeyCreate(recordNativeDestruction);
  ASSERT_NE(-1, key);
  gNativeDestructorCalls = 0;
  static int value;
  HANDLE thread = CreateThread(
      nullptr, 0,
      [](void *) -> DWORD {
        ZBThreadSetSpecific(key, &value);
        return ZBThreadGetSpecific(key) == &value ? 0 : 1;
      },
      nullptr, 0, nullptr);
  ASSERT_NE(nullptr, thread);
  WaitForSingleObject(thread, INFINITE);
  DWORD exitCode = 1;
  GetExitCodeThread(thread, &exitCode);
  CloseHandle(thread);
  EXPECT_EQ(0u, exitCode);
  EXPECT_EQ(1, gNativeDestructorCalls.load());
  EXPECT_EQ(&value, gNativeDestroyedValue);
  EXPECT_EQ(0, ZBThreadKeyDelete(key));
}
