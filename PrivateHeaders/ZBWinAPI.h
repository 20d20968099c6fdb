// Windows functions that not every system offers (or that a compatibility
// layer exports but cannot run), looked up once with GetProcAddress. A
// missing one is replaced by its documented fallback, never called blindly.
// Included by Sources/Win32 only.
#pragma once

#include "ZBTime.h"

#include <windows.h>

namespace zb::winapi {

using QueryUnbiasedInterruptTimeFunction = BOOL(WINAPI *)(PULONGLONG);

// The reader of the unbiased interrupt time is _gZBUnbiasedInterruptTime
// (ZBTime.h, exported so that callers read the clock inline):
// QueryUnbiasedInterruptTimePrecise where it can be called, else
// QueryUnbiasedInterruptTime. Until the time module's start-up step has
// resolved it, a reader that calls the latter.
// Looks the reader up and stores it; returns what it stored.
QueryUnbiasedInterruptTimeFunction resolveQueryUnbiasedInterruptTime() noexcept;

// The unbiased interrupt time: 100-ns ticks since boot, without the time
// spent in system sleep. Always one indirect call: a branch between the two
// readers measured slower than the call itself.
inline ULONGLONG unbiasedInterruptTime() noexcept {
  uint64_t ticks = 0;
  __atomic_load_n(&_gZBUnbiasedInterruptTime.read, __ATOMIC_RELAXED)(&ticks);
  return ticks;
}

} // namespace zb::winapi
