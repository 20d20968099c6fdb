// A small side-by-side benchmark harness: Zenbor and its raw counterpart run
// alternately in one process, each measured over repeated runs after a
// warm-up, and one line per pair is printed:
//   name zenbor_ns raw_ns ratio
// with the per-operation time of the fastest run; the medians of the runs
// and their ratio follow in brackets. Ratios below the target mean Zenbor
// keeps up with the system.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <vector>

#ifdef _WIN32
#  include <windows.h>
#endif

namespace zbbench {

inline int64_t nowNanoseconds() {
#ifdef _WIN32
  static const int64_t frequency = [] {
    LARGE_INTEGER value;
    QueryPerformanceFrequency(&value);
    return value.QuadPart;
  }();
  LARGE_INTEGER counter;
  QueryPerformanceCounter(&counter);
  return static_cast<int64_t>(static_cast<double>(counter.QuadPart) * 1e9 / frequency);
#else
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
#endif
}

// Keeps the optimiser from deleting work whose result is otherwise unused.
template <typename T>
inline void keep(T const &value) {
  asm volatile("" : : "r,m"(value) : "memory");
}

struct Timing {
  double minimum;
  double median;
};

struct Options {
  int runs = 15;
  int64_t iterations = 200000;
};

// Times `body(iterations)` for both sides, alternating, and prints the line.
template <typename ZenborBody, typename RawBody>
inline double compare(const char *name, ZenborBody zenbor, RawBody raw, Options options = {}) {
  std::vector<double> zenborRuns, rawRuns;
  auto timeOnce = [&](auto &body) {
    const int64_t start = nowNanoseconds();
    body(options.iterations);
    return static_cast<double>(nowNanoseconds() - start) / static_cast<double>(options.iterations);
  };
  timeOnce(zenbor); // warm-up
  timeOnce(raw);
  for (int run = 0; run < options.runs; ++run) {
    zenborRuns.push_back(timeOnce(zenbor));
    rawRuns.push_back(timeOnce(raw));
  }
  auto summarise = [](std::vector<double> &runs) {
    std::sort(runs.begin(), runs.end());
    return Timing{runs.front(), runs[runs.size() / 2]};
  };
  const Timing z = summarise(zenborRuns);
  const Timing r = summarise(rawRuns);
  const double ratio = r.minimum > 0 ? z.minimum / r.minimum : 0.0;
  const double medianRatio = r.median > 0 ? z.median / r.median : 0.0;
  std::printf("%-44s %9.2f %9.2f %6.2f   [median %.2f vs %.2f, %.2f; %d runs]\n", name, z.minimum,
              r.minimum, ratio, z.median, r.median, medianRatio, options.runs);
  std::fflush(stdout);
  return ratio;
}

inline void printHeader() {
  std::printf("%-44s %9s %9s %6s\n", "name", "zenbor_ns", "raw_ns", "ratio");
}

} // namespace zbbench
