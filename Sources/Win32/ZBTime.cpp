// The library's clocks, CPU times and sleeps on Windows.
//
// Wall time comes from the system FILETIME clock, boot-relative time from
// the unbiased interrupt time (both in 100-ns ticks). The strictly
// increasing clocks remember the last value they handed out, each under its
// own spin lock held for one compare-and-store: a reading that does not
// exceed it becomes last + 1, so no two callers ever see the same value.
// The locks take the contended path without tracing, since the tracer
// itself reads these clocks.
#include "ZBTime.h"

#include "ZBLock.h"
#include "ZBLog.h"
#include "ZBTimePrivate.h"
#include "ZBWinAPI.h"

#include <windows.h>

#include <atomic>

namespace {

using namespace zb::time;

static_assert(kInfiniteMilliseconds == INFINITE, "the library's endless wait is the system's");

// One clock's shared state, each on a cache line of its own so that readers
// of one clock do not slow down readers of another. The monotonic clock's
// is exported (ZBTime.h), so that callers take its lock inline.
using ClockState = _ZBStrictClock;

alignas(64) ClockState sUnixClock;   // ZBHRTimeUnix and ZBTimeUnix
ClockState &sMonotonicClock = _gZBMonotonicClock; // ZBHRTimeMonotonic
alignas(64) ClockState sApproxClock; // ZBHRTimeNonDecreasingApprox
ZBSpinLock sContinuousLock;  // the continuous family; guards no value

// Set by the start-up step; until then the getters report 0 ("unknown").
std::atomic<bool> sMonotonicFrequencyKnown{false};
std::atomic<bool> sMonotonicPrecisionKnown{false};

int64_t ticksFromFileTime(const FILETIME &time) {
  return static_cast<int64_t>((static_cast<uint64_t>(time.dwHighDateTime) << 32) |
                              time.dwLowDateTime);
}

int64_t bootNanoseconds() {
  return nanosecondsFromTicks(static_cast<int64_t>(zb::winapi::unbiasedInterruptTime()));
}

// `now`, or the latest value handed out if that is later.
int64_t nextNonDecreasing(ClockState &clock, int64_t now) {
  ZBSpinLockAcquire(&clock.lock);
  if (clock.last < now)
    clock.last = now;
  const int64_t result = clock.last;
  ZBSpinLockRelease(&clock.lock);
  return result;
}

int64_t nextUnixTime() {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  return _ZBStrictClockNext(&sUnixClock, unixNanosecondsFromFileTime(ticksFromFileTime(now)));
}

// The continuous clocks are a stub that still takes its lock, so that
// callers see the same costs and ordering as with a real one.
int64_t continuousTimeStub() {
  ZBSpinLockAcquire(&sContinuousLock);
  ZBSpinLockRelease(&sContinuousLock);
  return 0;
}

int64_t precisionOnceStarted() {
  return sMonotonicPrecisionKnown.load(std::memory_order_relaxed) ? kNanosecondsPerTick : 0;
}

int64_t cpuNanoseconds(const FILETIME &kernel, const FILETIME &user) {
  return ticksFromFileTime(kernel) * kNanosecondsPerTick +
         ticksFromFileTime(user) * kNanosecondsPerTick;
}

} // namespace

alignas(64) _ZBStrictClock _gZBMonotonicClock;

void _ZBTimeStartup() noexcept {
  zb::winapi::resolveQueryUnbiasedInterruptTime();
  sMonotonicFrequencyKnown.store(true, std::memory_order_relaxed);
  sMonotonicPrecisionKnown.store(true, std::memory_order_relaxed);
}

extern "C" int64_t ZBHRTimeUnix(void) noexcept { return nextUnixTime(); }

extern "C" double ZBTimeUnix(void) noexcept {
  return static_cast<double>(nextUnixTime()) / 1e9;
}

// The parentheses keep the header's inline forms from replacing the names.
extern "C" int64_t(ZBHRTimeMonotonic)(void) noexcept {
  return _ZBStrictClockNext(&sMonotonicClock, bootNanoseconds());
}

extern "C" int64_t(ZBHRTimeNonDecreasing)(void) noexcept { return bootNanoseconds(); }

extern "C" int64_t ZBHRTimeNonDecreasingApprox(void) noexcept {
  return nextNonDecreasing(sApproxClock, bootNanoseconds());
}

extern "C" int64_t ZBHRTimeNonDecreasingCont(void) noexcept { return continuousTimeStub(); }

extern "C" int64_t ZBHRTimeNonDecreasingContRaw(void) noexcept { return continuousTimeStub(); }

extern "C" int64_t ZBHRTimeNonDecreasingContRawApprox(void) noexcept {
  return continuousTimeStub();
}

extern "C" int64_t ZBHRGetTimeNonDecreasingContPrecision(void) noexcept { return 0; }

extern "C" int64_t ZBHRGetTimeNonDecreasingContRawPrecision(void) noexcept { return 0; }

extern "C" int64_t ZBHRGetTimeNonDecreasingContRawApproxPrecision(void) noexcept { return 0; }

extern "C" int64_t ZBHRGetTimeMonotonicPrecision(void) noexcept { return precisionOnceStarted(); }

extern "C" int64_t ZBHRGetTimeMonotonicFrequency(void) noexcept {
  return sMonotonicFrequencyKnown.load(std::memory_order_relaxed) ? kTicksPerSecond : 0;
}

extern "C" int64_t ZBHRGetTimeNonDecreasingApproxPrecision(void) noexcept {
  return precisionOnceStarted();
}

extern "C" int64_t ZBHRProcessCPUTime(void) noexcept {
  FILETIME creation, exit, kernel, user;
  if (!GetProcessTimes(GetCurrentProcess(), &creation, &exit, &kernel, &user)) {
    const DWORD error = GetLastError();
    ZB_LOG_ERROR("GetProcessTimes failed: %u", static_cast<unsigned>(error));
    return -1;
  }
  return cpuNanoseconds(kernel, user);
}

extern "C" int64_t ZBHRThreadCPUTime(void) noexcept {
  FILETIME creation, exit, kernel, user;
  if (!GetThreadTimes(GetCurrentThread(), &creation, &exit, &kernel, &user)) {
    const DWORD error = GetLastError();
    ZB_LOG_ERROR("GetThreadTimes failed: %u", static_cast<unsigned>(error));
    return -1;
  }
  return cpuNanoseconds(kernel, user);
}

extern "C" int64_t ZBHRGetProcessCPUTimePrecision(void) noexcept { return kNanosecondsPerTick; }

extern "C" int64_t ZBHRGetThreadCPUTimePrecision(void) noexcept { return kNanosecondsPerTick; }

extern "C" void ZBHRSleep(int64_t nanoseconds) noexcept {
  Sleep(saturatingTimeoutMilliseconds(nanoseconds));
}

extern "C" void ZBSleep(double seconds) noexcept {
  int64_t nanoseconds = 0;
  if (nanosecondsFromSeconds(seconds, &nanoseconds) && nanoseconds >= 0) {
    Sleep(saturatingTimeoutMilliseconds(nanoseconds));
    return;
  }
  // Unlike ZBHRSleep's single infinite sleep, an unusable duration here
  // sleeps a second at a time for ever (kept as callers have always seen it).
  for (;;)
    Sleep(1000);
}
