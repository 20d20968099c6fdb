// Windows functions that not every system offers (or that a compatibility
// layer exports but cannot run), looked up once with GetProcAddress. A
// missing one is replaced by its documented fallback, never called blindly.
// Included by Sources/Win32 only.
#pragma once

#include <windows.h>

#include <atomic>

namespace zb::winapi {

using QueryUnbiasedInterruptTimeFunction = BOOL(WINAPI *)(PULONGLONG);

// QueryUnbiasedInterruptTimePrecise where it can be called, else null.
extern std::atomic<QueryUnbiasedInterruptTimeFunction> gQueryUnbiasedInterruptTimePrecise;
// Looks it up; run by the time module's start-up step, before any clock is
// read. Returns what it stored.
QueryUnbiasedInterruptTimeFunction resolveQueryUnbiasedInterruptTimePrecise() noexcept;

// The unbiased interrupt time: 100-ns ticks since boot, without the time
// spent in system sleep. Without the precise reader (or before start-up)
// the coarse one is called directly, one indirection fewer.
inline ULONGLONG unbiasedInterruptTime() noexcept {
  ULONGLONG ticks = 0;
  if (QueryUnbiasedInterruptTimeFunction precise =
          gQueryUnbiasedInterruptTimePrecise.load(std::memory_order_relaxed))
    precise(&ticks);
  else
    QueryUnbiasedInterruptTime(&ticks);
  return ticks;
}

} // namespace zb::winapi
