// The time module's conversions, shared with the locks (timeouts) and the
// file layer (file times), and its part in the library's start-up.
//
// The conversions are exact integer rules; the differences between the three
// millisecond timeouts are deliberate and callers pick theirs by name.
#pragma once

#include <cmath>
#include <cstdint>

// Sets the "monotonic frequency known" and "monotonic precision known"
// flags. The first step of the library's load-time start-up.
void _ZBTimeStartup() noexcept;

namespace zb::time {

// The system time source counts 100-ns ticks.
constexpr int64_t kTicksPerSecond = 10000000;
constexpr int64_t kNanosecondsPerTick = 100;
constexpr int64_t kNanosecondsPerSecond = 1000000000;
constexpr int64_t kNanosecondsPerMillisecond = 1000000;
// FILETIME ticks (since 1601-01-01) at the Unix epoch.
constexpr int64_t kUnixEpochFileTimeTicks = 116444736000000000LL;
// The system's "wait for ever" millisecond count.
constexpr uint32_t kInfiniteMilliseconds = 0xFFFFFFFFu;
// Seconds beyond this do not fit in int64 nanoseconds.
constexpr double kLargestSeconds = 9223372036.0;

// Unbiased-interrupt-time ticks to nanoseconds. The general overflow-safe
// scaling (divide the larger of ticks and 10^9 by the 10^7 Hz frequency,
// then scale quotient and remainder apart) gives exactly ticks x 100 for
// every count whose result fits in 64 bits, and overflows at the same
// count (about 29 years of uptime); the multiply is what it reduces to.
constexpr int64_t nanosecondsFromTicks(int64_t ticks) {
  return ticks * kNanosecondsPerTick;
}

// A FILETIME tick count to nanoseconds since the Unix epoch. Before 1970 the
// seconds are floored, so the sub-second part is always in [0, 1 s): one
// tick before the epoch is -100 ns.
constexpr int64_t unixNanosecondsFromFileTime(int64_t fileTime) {
  const int64_t ticks = fileTime - kUnixEpochFileTimeTicks;
  const int64_t seconds = fileTime >= kUnixEpochFileTimeTicks
                              ? ticks / kTicksPerSecond
                              : -((kUnixEpochFileTimeTicks - fileTime - 1) / kTicksPerSecond) - 1;
  const int64_t subsecondTicks = ticks - seconds * kTicksPerSecond;
  return seconds * kNanosecondsPerSecond + subsecondTicks * kNanosecondsPerTick;
}

// Nanoseconds rounded up to milliseconds, in unsigned 64-bit arithmetic so
// that the largest durations do not overflow. Non-negative input only.
constexpr uint64_t millisecondsRoundedUp(int64_t nanoseconds) {
  return (static_cast<uint64_t>(nanoseconds) + (kNanosecondsPerMillisecond - 1)) /
         kNanosecondsPerMillisecond;
}

// Sleeps and semaphore waits: negative waits for ever; 2^31 ms and more
// also waits for ever (about 24.8 days: deliberate); a positive duration
// waits at least 1 ms.
constexpr uint32_t saturatingTimeoutMilliseconds(int64_t nanoseconds) {
  if (nanoseconds < 0)
    return kInfiniteMilliseconds;
  const uint64_t milliseconds = millisecondsRoundedUp(nanoseconds);
  if (milliseconds >= (uint64_t{1} << 31))
    return kInfiniteMilliseconds;
  if (nanoseconds > 0 && milliseconds == 0)
    return 1;
  return static_cast<uint32_t>(milliseconds);
}

// Condition-variable waits: negative waits for ever; otherwise the rounded
// count is cut to 32 bits with no saturation (deliberate).
constexpr uint32_t truncatingTimeoutMilliseconds(int64_t nanoseconds) {
  if (nanoseconds < 0)
    return kInfiniteMilliseconds;
  return static_cast<uint32_t>(millisecondsRoundedUp(nanoseconds));
}

// Seconds to nanoseconds, truncated toward zero; false for NaN, infinities
// and values beyond +-kLargestSeconds, which have no nanosecond count.
inline bool nanosecondsFromSeconds(double seconds, int64_t *nanoseconds) {
  if (!std::isfinite(seconds) || seconds < -kLargestSeconds || seconds > kLargestSeconds)
    return false;
  *nanoseconds = static_cast<int64_t>(seconds * static_cast<double>(kNanosecondsPerSecond));
  return true;
}

} // namespace zb::time
