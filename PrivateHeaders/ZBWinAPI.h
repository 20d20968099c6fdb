// Windows functions that not every system offers (or that a compatibility
// layer exports but cannot run), looked up once with GetProcAddress. A
// missing one is replaced by its documented fallback, never called blindly.
// Included by Sources/Win32 only.
#pragma once

#include <windows.h>

#include <atomic>

namespace zb::winapi {

using QueryUnbiasedInterruptTimeFunction = BOOL(WINAPI *)(PULONGLONG);

// The reader of the unbiased interrupt time: QueryUnbiasedInterruptTimePrecise
// where it can be called, else QueryUnbiasedInterruptTime. Until the time
// module's start-up step has resolved it, a reader that calls the latter.
extern std::atomic<QueryUnbiasedInterruptTimeFunction> gQueryUnbiasedInterruptTime;
// Looks the reader up and stores it; returns what it stored.
QueryUnbiasedInterruptTimeFunction resolveQueryUnbiasedInterruptTime() noexcept;

// The unbiased interrupt time: 100-ns ticks since boot, without the time
// spent in system sleep. Always one indirect call: a branch between the two
// readers measured slower than the call itself.
inline ULONGLONG unbiasedInterruptTime() noexcept {
  ULONGLONG ticks = 0;
  gQueryUnbiasedInterruptTime.load(std::memory_order_relaxed)(&ticks);
  return ticks;
}

} // namespace zb::winapi
