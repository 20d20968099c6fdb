// Clocks, CPU times and sleeps: the exact conversion rules (ticks, FILETIME,
// millisecond timeouts, seconds), the strictly increasing clocks under
// concurrent callers, and the sleeps' rounding, floor and endless cases.
#include "ZBTime.h"

#include "ZBTestSupport.h"
#include "ZBTimePrivate.h"
#include "ZBWinAPI.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <ctime>
#include <limits>
#include <thread>
#include <vector>

namespace {

using namespace zb::time;

constexpr int64_t kMillisecond = 1000000;
constexpr uint32_t kInfinite = 0xFFFFFFFFu;

TEST(ZBTimeConversions, FileTimeToUnixNanosecondsFloorsBeforeTheEpoch) {
  constexpr int64_t E = 116444736000000000LL;
  EXPECT_EQ(0, unixNanosecondsFromFileTime(E));
  EXPECT_EQ(100, unixNanosecondsFromFileTime(E + 1));
  EXPECT_EQ(-100, unixNanosecondsFromFileTime(E - 1));
  EXPECT_EQ(-1000000000, unixNanosecondsFromFileTime(E - 10000000));
  EXPECT_EQ(-1000000100, unixNanosecondsFromFileTime(E - 10000001));
  // 2000-01-01T00:00:00.5Z and 1900-01-01T00:00:00.25Z.
  EXPECT_EQ(946684800500000000LL, unixNanosecondsFromFileTime(E + 9466848005000000LL));
  EXPECT_EQ(-2208988799750000000LL, unixNanosecondsFromFileTime(E - 22089888000000000LL + 2500000));
}

TEST(ZBTimeConversions, TicksToNanosecondsIsExactUpToTheOverflow) {
  EXPECT_EQ(0, nanosecondsFromTicks(0));
  EXPECT_EQ(100, nanosecondsFromTicks(1));
  EXPECT_EQ(-500, nanosecondsFromTicks(-5));
  EXPECT_EQ(100000000000LL, nanosecondsFromTicks(1000000000));
  EXPECT_EQ(100000000100LL, nanosecondsFromTicks(1000000001));
  EXPECT_EQ(123456789012345600LL, nanosecondsFromTicks(1234567890123456LL));
  // 29 years of uptime still converts without overflow.
  EXPECT_EQ(9000000000000000000LL, nanosecondsFromTicks(90000000000000000LL));
}

TEST(ZBTimeConversions, SleepAndSemaphoreTimeoutsRoundUpAndSaturate) {
  EXPECT_EQ(kInfinite, saturatingTimeoutMilliseconds(-1));
  EXPECT_EQ(kInfinite, saturatingTimeoutMilliseconds(std::numeric_limits<int64_t>::min()));
  EXPECT_EQ(0u, saturatingTimeoutMilliseconds(0));
  EXPECT_EQ(1u, saturatingTimeoutMilliseconds(1));
  EXPECT_EQ(1u, saturatingTimeoutMilliseconds(kMillisecond));
  EXPECT_EQ(2u, saturatingTimeoutMilliseconds(kMillisecond + 1));
  EXPECT_EQ(0x7FFFFFFFu, saturatingTimeoutMilliseconds(0x7FFFFFFFLL * kMillisecond));
  // 2^31 ms, and anything that rounds up to it, waits for ever.
  EXPECT_EQ(kInfinite, saturatingTimeoutMilliseconds(0x80000000LL * kMillisecond));
  EXPECT_EQ(kInfinite, saturatingTimeoutMilliseconds(0x7FFFFFFFLL * kMillisecond + 1));
  EXPECT_EQ(kInfinite, saturatingTimeoutMilliseconds(std::numeric_limits<int64_t>::max()));
}

TEST(ZBTimeConversions, ConditionTimeoutsRoundUpAndWrapWithoutSaturating) {
  EXPECT_EQ(kInfinite, truncatingTimeoutMilliseconds(-1));
  EXPECT_EQ(0u, truncatingTimeoutMilliseconds(0));
  EXPECT_EQ(1u, truncatingTimeoutMilliseconds(1));
  EXPECT_EQ(0x80000000u, truncatingTimeoutMilliseconds(0x80000000LL * kMillisecond));
  EXPECT_EQ(0u, truncatingTimeoutMilliseconds(0x100000000LL * kMillisecond));
  EXPECT_EQ(5u, truncatingTimeoutMilliseconds(0x100000005LL * kMillisecond));
  // (2^63 - 1 + 999999) / 10^6 = 9223372036855, cut to 32 bits.
  EXPECT_EQ(static_cast<uint32_t>(9223372036855ULL),
            truncatingTimeoutMilliseconds(std::numeric_limits<int64_t>::max()));
}

TEST(ZBTimeConversions, SecondsBecomeNanosecondsTruncatedTowardZero) {
  int64_t nanoseconds = 7;
  EXPECT_TRUE(nanosecondsFromSeconds(1.5, &nanoseconds));
  EXPECT_EQ(1500000000, nanoseconds);
  EXPECT_TRUE(nanosecondsFromSeconds(-0.5, &nanoseconds));
  EXPECT_EQ(-500000000, nanoseconds);
  EXPECT_TRUE(nanosecondsFromSeconds(-1e-10, &nanoseconds));
  EXPECT_EQ(0, nanoseconds);
  EXPECT_TRUE(nanosecondsFromSeconds(9223372036.0, &nanoseconds));
  EXPECT_EQ(9223372036000000000LL, nanoseconds);
  EXPECT_TRUE(nanosecondsFromSeconds(-9223372036.0, &nanoseconds));
  EXPECT_EQ(-9223372036000000000LL, nanoseconds);
  for (double unusable : {std::nan(""), HUGE_VAL, -HUGE_VAL, 9223372036.5, -9223372037.0})
    EXPECT_FALSE(nanosecondsFromSeconds(unusable, &nanoseconds)) << unusable;
}

// Every value handed out by `clock` on several threads at once is distinct.
void expectDistinctAcrossThreads(int64_t (*clock)()) {
  constexpr int kThreads = 4;
  constexpr int kCallsPerThread = 20000;
  std::vector<std::vector<int64_t>> seen(kThreads);
  zbtest::onThreads(kThreads, [&](int index) {
    seen[index].reserve(kCallsPerThread);
    for (int i = 0; i < kCallsPerThread; ++i)
      seen[index].push_back(clock());
  });
  std::vector<int64_t> all;
  for (const std::vector<int64_t> &values : seen) {
    // Each thread's own sequence is strictly increasing.
    EXPECT_TRUE(std::adjacent_find(values.begin(), values.end(),
                                   [](int64_t a, int64_t b) { return a >= b; }) == values.end());
    all.insert(all.end(), values.begin(), values.end());
  }
  std::sort(all.begin(), all.end());
  EXPECT_TRUE(std::adjacent_find(all.begin(), all.end()) == all.end())
      << "a value was handed out twice";
}

TEST(ZBTimeClocks, StrictlyIncreasingClocksNeverRepeatAcrossThreads) {
  expectDistinctAcrossThreads([] { return ZBHRTimeUnix(); });
  expectDistinctAcrossThreads([] { return ZBHRTimeMonotonic(); });
  // Callers' ZBHRTimeMonotonic() may be the header's inline form; calls of
  // both forms, in turns, share one sequence.
  expectDistinctAcrossThreads([] {
    static thread_local int turn;
    int64_t (*volatile exported)(void) = &ZBHRTimeMonotonic;
    return ++turn % 2 ? ZBHRTimeMonotonic() : exported();
  });
  const int64_t last = ZBHRTimeMonotonic();
  EXPECT_EQ(last, _gZBMonotonicClock.last) << "the shared state is the exported one";
  EXPECT_EQ(0, _gZBMonotonicClock.lock);
}

TEST(ZBTimeClocks, UnixClocksShareOneSequenceAndFollowTheSystemClock) {
  const int64_t before = ZBHRTimeUnix();
  const double seconds = ZBTimeUnix();
  const int64_t after = ZBHRTimeUnix();
  // ZBTimeUnix took a value of its own between the two.
  EXPECT_GE(after - before, 2);
  EXPECT_NEAR(static_cast<double>(before) / 1e9, seconds, 1.0);
  EXPECT_NEAR(static_cast<double>(std::time(nullptr)), seconds, 2.0);
}

TEST(ZBTimeClocks, BootClocksReadTheUnbiasedInterruptTime) {
  ULONGLONG rawBefore = 0, rawAfter = 0;
  QueryUnbiasedInterruptTime(&rawBefore);
  const int64_t plain = ZBHRTimeNonDecreasing();
  int64_t (*volatile exportedPlain)(void) = &ZBHRTimeNonDecreasing;
  const int64_t plainExported = exportedPlain();
  const int64_t approx = ZBHRTimeNonDecreasingApprox();
  const int64_t monotonic = ZBHRTimeMonotonic();
  QueryUnbiasedInterruptTime(&rawAfter);
  EXPECT_LE(plain, plainExported);
  // The precise reader may run ahead of the coarse one by a tick period.
  const int64_t slack = 100 * kMillisecond;
  for (int64_t value : {plain, plainExported, approx, monotonic}) {
    EXPECT_GE(value, static_cast<int64_t>(rawBefore) * 100);
    EXPECT_LE(value, static_cast<int64_t>(rawAfter) * 100 + slack);
  }
  int64_t previous = ZBHRTimeNonDecreasingApprox();
  for (int i = 0; i < 100000; ++i) {
    const int64_t next = ZBHRTimeNonDecreasingApprox();
    ASSERT_LE(previous, next);
    previous = next;
  }
}

TEST(ZBTimeClocks, UnderWineTheCoarseReaderIsChosen) {
  HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  if (GetProcAddress(ntdll, "wine_get_version") == nullptr)
    GTEST_SKIP() << "not running under Wine";
  EXPECT_EQ(&QueryUnbiasedInterruptTime, zb::winapi::resolveQueryUnbiasedInterruptTime());
  EXPECT_EQ(reinterpret_cast<void (*)()>(&QueryUnbiasedInterruptTime),
            reinterpret_cast<void (*)()>(_gZBUnbiasedInterruptTime.read))
      << "the inline reads call the reader chosen";
}

TEST(ZBTimeClocks, PrecisionsAfterStartUpAndTheContinuousStub) {
  EXPECT_EQ(100, ZBHRGetTimeMonotonicPrecision());
  EXPECT_EQ(10000000, ZBHRGetTimeMonotonicFrequency());
  EXPECT_EQ(100, ZBHRGetTimeNonDecreasingApproxPrecision());
  EXPECT_EQ(100, ZBHRGetProcessCPUTimePrecision());
  EXPECT_EQ(100, ZBHRGetThreadCPUTimePrecision());
  EXPECT_EQ(0, ZBHRTimeNonDecreasingCont());
  EXPECT_EQ(0, ZBHRTimeNonDecreasingContRaw());
  EXPECT_EQ(0, ZBHRTimeNonDecreasingContRawApprox());
  EXPECT_EQ(0, ZBHRGetTimeNonDecreasingContPrecision());
  EXPECT_EQ(0, ZBHRGetTimeNonDecreasingContRawPrecision());
  EXPECT_EQ(0, ZBHRGetTimeNonDecreasingContRawApproxPrecision());
}

TEST(ZBTimeCPU, CPUTimesGrowWithWork) {
  const int64_t processBefore = ZBHRProcessCPUTime();
  const int64_t threadBefore = ZBHRThreadCPUTime();
  ASSERT_GE(processBefore, 0);
  ASSERT_GE(threadBefore, 0);
  // Work until both times move, for up to ten seconds: the system counts
  // them in ticks, and a loaded machine may lend this thread few.
  volatile uint64_t sink = 0;
  const auto start = std::chrono::steady_clock::now();
  while ((ZBHRThreadCPUTime() == threadBefore || ZBHRProcessCPUTime() == processBefore) &&
         std::chrono::steady_clock::now() - start < std::chrono::seconds(10))
    for (int i = 0; i < 100000; ++i)
      sink = sink + static_cast<uint64_t>(i);
  EXPECT_GT(ZBHRThreadCPUTime(), threadBefore);
  EXPECT_GT(ZBHRProcessCPUTime(), processBefore);
}

double elapsedMilliseconds(void (*sleep)()) {
  const auto start = std::chrono::steady_clock::now();
  sleep();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

TEST(ZBTimeSleep, ShortSleepsRoundUpToWholeMilliseconds) {
  elapsedMilliseconds([] { ZBHRSleep(0); });
  elapsedMilliseconds([] { ZBSleep(0.0); });
  elapsedMilliseconds([] { ZBSleep(-1e-12); }); // truncates to 0 ns: a yield
  // 1 ns is at least 1 ms, 1.5 ms becomes 2 ms (lower bounds only).
  EXPECT_GE(elapsedMilliseconds([] { ZBHRSleep(1); }), 0.9);
  EXPECT_GE(elapsedMilliseconds([] { ZBSleep(1e-9); }), 0.9);
  EXPECT_GE(elapsedMilliseconds([] { ZBSleep(0.0015); }), 1.9);
}

TEST(ZBTimeSleep, EndlessSleepsDoNotReturn) {
  static std::atomic<int> returned{0};
  // Detached: the process ends them when the test program exits.
  std::thread([] { ZBHRSleep(-1); ++returned; }).detach();
  std::thread([] { ZBHRSleep(0x80000000LL * kMillisecond); ++returned; }).detach();
  std::thread([] { ZBSleep(std::nan("")); ++returned; }).detach();
  std::thread([] { ZBSleep(-0.5); ++returned; }).detach();
  std::thread([] { ZBSleep(1e300); ++returned; }).detach();
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(0, returned.load());
}

} // namespace
