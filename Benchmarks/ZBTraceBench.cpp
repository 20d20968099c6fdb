// The tracer's costs side by side with what they must stay close to: idle
// spans (public and system-trace) against empty calls, a recording span
// against the two clock reads it needs, and performance-counter adds
// against InterlockedAdd64, alone and with eight threads on one counter.
// Linked with the static library: the system-trace calls are internal.
#include "ZBBench.h"

#include "ZBSystemTrace.h"
#include "ZBTrace.h"

#include <thread>
#include <vector>

namespace {

__attribute__((noinline)) void emptyCall(int32_t value) { asm volatile("" : : "r"(value)); }

template <typename Body>
auto onEightThreads(Body body) {
  return [body](int64_t n) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
      threads.emplace_back([&] { body(n / 8); });
    for (std::thread &thread : threads)
      thread.join();
  };
}

} // namespace

int main() {
  zbbench::printHeader();
  const int32_t name = ZBTraceDefineName("zb-bench");
  zbbench::compare(
      "idle ZBTraceBegin/End pair vs 2 empty calls",
      [name](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          ZBTraceBegin(name);
          ZBTraceEnd(name);
        }
      },
      [name](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          emptyCall(name);
          emptyCall(name);
        }
      },
      {15, 5000000});
  zbbench::compare(
      "idle system-trace span vs 2 empty calls",
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          _ZBSystraceBeginFormat("MutexWait[%p]", &n);
          _ZBSystraceEnd();
        }
      },
      [name](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          emptyCall(name);
          emptyCall(name);
        }
      },
      {15, 5000000});

  // Recording into the null device: the cost of the events, not the disk's.
  if (ZBTraceStart("NUL") == ZBErrorNone) {
    zbbench::compare(
        "recording Begin/End pair vs 2 QPC reads",
        [name](int64_t n) {
          for (int64_t i = 0; i < n; ++i) {
            ZBTraceBegin(name);
            ZBTraceEnd(name);
          }
        },
        [](int64_t n) {
          LARGE_INTEGER counter;
          for (int64_t i = 0; i < n; ++i) {
            QueryPerformanceCounter(&counter);
            zbbench::keep(counter);
            QueryPerformanceCounter(&counter);
            zbbench::keep(counter);
          }
        },
        {9, 500000});
    ZBTraceStop();
  } else {
    std::printf("recording Begin/End pair: the null device cannot be opened\n");
  }

  const int32_t counter = ZBPerfCounterDefine("zb-bench-counter");
  static volatile LONG64 shared;
  zbbench::compare(
      "ZBPerfCounterAdd vs InterlockedAdd64",
      [counter](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          ZBPerfCounterAdd(counter, 1);
      },
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          InterlockedAdd64(&shared, 1);
      },
      {15, 5000000});
  const double contended = zbbench::compare("8 threads: ZBPerfCounterAdd vs InterlockedAdd64",
                                            onEightThreads([counter](int64_t n) {
                                              for (int64_t i = 0; i < n; ++i)
                                                ZBPerfCounterAdd(counter, 1);
                                            }),
                                            onEightThreads([](int64_t n) {
                                              for (int64_t i = 0; i < n; ++i)
                                                InterlockedAdd64(&shared, 1);
                                            }),
                                            {7, 16000000});
  std::printf("8 threads: the sharded counter is %.1fx faster\n",
              contended > 0 ? 1.0 / contended : 0.0);
  return 0;
}
