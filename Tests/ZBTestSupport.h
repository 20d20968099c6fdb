// Small helpers shared by the test programs.
#pragma once

#include <gtest/gtest.h>

#include "ZBLog.h"
#include "ZBThread.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace zbtest {

// The third-party reference data beside the repository, or "" when absent.
std::string oraclePath(const std::string &relative);
// The whole file, or "" when it cannot be read.
std::string readFile(const std::string &path);
// A file name unique to this process under the system's temporary folder.
std::string temporaryPath(const std::string &name);

// The log's ring of recent lines, oldest first. Inline: it calls the library
// as each test program links it (the DLL or the static form).
inline std::string logRing() {
  std::string text(65536, '\0');
  const int32_t length = ZBLogBufferCopyBytes(text.data(), static_cast<uint32_t>(text.size()));
  text.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return text;
}

inline size_t occurrences(const std::string &text, const std::string &needle) {
  size_t count = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
    ++count;
  return count;
}

// Runs `statement` in a death test whose log goes to a file, and returns the
// lines the dying process wrote. Fatal paths print a backtrace to stderr.
template <typename Statement>
std::string logOfDyingProcess(Statement statement,
                              const char *stderrPattern = "Backtrace of thread") {
  // Named after the test, not the process: the child computes it again.
  const std::string path = testing::TempDir() + "zbtest-" +
                           testing::UnitTest::GetInstance()->current_test_info()->name() +
                           ".log";
  std::remove(path.c_str());
  EXPECT_DEATH(
      {
        ZBLogSetFile(path.c_str());
        statement();
      },
      stderrPattern);
  const std::string lines = readFile(path);
  std::remove(path.c_str());
  return lines;
}

// The failed checks of a child process (see expectInChildProcess).
class ChildChecks {
public:
  void expect(bool passed, const std::string &what) {
    if (!passed)
      failures_ += what + "\n";
  }
  const std::string &failures() const { return failures_; }

private:
  std::string failures_;
};

// Runs `body(checks)` in a child process, for state that only a fresh
// process has (such as a library whose initializers have not run). The
// child prints each failed check and exits with 1, which fails the test
// with those lines; with none it exits with 0.
template <typename Body>
void expectInChildProcess(Body body) {
  EXPECT_EXIT(
      {
        ChildChecks checks;
        body(checks);
        std::fputs(checks.failures().c_str(), stderr);
        std::exit(checks.failures().empty() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

// Runs `body` on a thread of its own and waits until that thread has ended
// (so its thread-exit work, such as key destructors, is done); returns what
// `body` returns.
template <typename Body>
auto onOtherThread(Body body) {
  if constexpr (std::is_void_v<decltype(body())>) {
    std::thread(body).join();
  } else {
    decltype(body()) result{};
    std::thread([&] { result = body(); }).join();
    return result;
  }
}

// Runs `body(index)` on `count` threads at once and waits for all of them.
template <typename Body>
void onThreads(int count, Body body) {
  std::vector<std::thread> threads;
  for (int index = 0; index < count; ++index)
    threads.emplace_back(body, index);
  for (std::thread &thread : threads)
    thread.join();
}

// A thread started through ZBThreadCreate that runs `atStart` on itself,
// then counts as fast as it can until joined. It touches nothing but its own
// atomics, so it may be suspended anywhere.
class CountingThread {
public:
  explicit CountingThread(const char *name, double priority = ZBThreadPriorityDefault,
                          uint32_t stackSize = 0, std::function<void()> atStart = nullptr)
      : atStart_(std::move(atStart)),
        thread_(ZBThreadCreate(name, run, this, priority, stackSize, 0)) {
    while (thread_ != 0 && threadID_ == 0)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  ~CountingThread() { join(); }

  ZBThread thread() const { return thread_; }
  uint32_t threadID() const { return threadID_; }

  // Stops the thread and joins it; answers the join's code.
  ZBError join() {
    stop_ = true;
    return thread_ != 0 ? ZBThreadJoin(std::exchange(thread_, 0), nullptr) : ZBErrorNone;
  }

  // Whether the count moves within `milliseconds`.
  bool countsWithin(int milliseconds) const {
    const uint64_t before = count_;
    for (int waited = 0; waited < milliseconds && count_ == before; ++waited)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return count_ != before;
  }
  // Bounds generous enough for a loaded machine: the thread runs if it counts
  // within ten seconds, and stands still if it pauses for 50 ms within two
  // (a suspension may take effect a little after the call that asked for it).
  bool keepsCounting() const { return countsWithin(10000); }
  bool standsStill() const {
    for (int attempt = 0; attempt < 40; ++attempt)
      if (!countsWithin(50))
        return true;
    return false;
  }

private:
  static void *run(void *context) {
    auto *self = static_cast<CountingThread *>(context);
    if (self->atStart_)
      self->atStart_();
    self->threadID_ = ZBThreadGetCurrentThreadID();
    while (!self->stop_)
      self->count_.fetch_add(1, std::memory_order_relaxed);
    return self;
  }

  std::function<void()> atStart_;
  std::atomic<uint32_t> threadID_{0};
  std::atomic<uint64_t> count_{0};
  std::atomic<bool> stop_{false};
  ZBThread thread_;
};

} // namespace zbtest
