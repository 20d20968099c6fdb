/**
 * @file
 * ZBTime.h: clocks, CPU times and sleeps.
 *
 * Times are signed 64-bit nanoseconds (the "HR" functions) or, for the two
 * older entry points, seconds in a double. Unix times count from
 * 1970-01-01T00:00:00Z; monotonic and non-decreasing times count from the
 * system's boot without the time spent in system sleep. Sleeps round up to
 * whole milliseconds.
 *
 * Which clock to read: ZBHRTimeNonDecreasing is the cheapest and may repeat
 * a value; ZBHRTimeMonotonic and ZBHRTimeUnix never hand out the same value
 * twice, to any thread, even when the system clock stands still or is set
 * back (they then advance by 1 ns per call until it catches up).
 */
#ifndef ZENBOR_ZBTIME_H
#define ZENBOR_ZBTIME_H

#include "ZBBase.h"
#include "ZBLock.h"

ZB_EXTERN_C_BEGIN

/** Wall-clock nanoseconds since the Unix epoch, strictly increasing across
   all callers. */
ZB_EXPORT int64_t ZBHRTimeUnix(void) ZB_NOEXCEPT;
/** The same sequence as ZBHRTimeUnix, in seconds. */
ZB_EXPORT double ZBTimeUnix(void) ZB_NOEXCEPT;

/** Nanoseconds since boot, strictly increasing across all callers. */
ZB_EXPORT int64_t ZBHRTimeMonotonic(void) ZB_NOEXCEPT;
/** Nanoseconds since boot as the system counter reads: never less than an
   earlier reading, no shared state. */
ZB_EXPORT int64_t ZBHRTimeNonDecreasing(void) ZB_NOEXCEPT;
/** Nanoseconds since boot, never less than the previous result of any
   caller; equal successive results are possible. */
ZB_EXPORT int64_t ZBHRTimeNonDecreasingApprox(void) ZB_NOEXCEPT;

/** The continuous clocks (counting system sleep) are not available here:
   they return 0, and their precision getters return 0 to say so. */
ZB_EXPORT int64_t ZBHRTimeNonDecreasingCont(void) ZB_NOEXCEPT;
/** A continuous clock; not available here.
   @return 0. */
ZB_EXPORT int64_t ZBHRTimeNonDecreasingContRaw(void) ZB_NOEXCEPT;
/** A continuous clock; not available here.
   @return 0. */
ZB_EXPORT int64_t ZBHRTimeNonDecreasingContRawApprox(void) ZB_NOEXCEPT;
/** A continuous clock's precision.
   @return 0: the clock is not available. */
ZB_EXPORT int64_t ZBHRGetTimeNonDecreasingContPrecision(void) ZB_NOEXCEPT;
/** A continuous clock's precision.
   @return 0: the clock is not available. */
ZB_EXPORT int64_t ZBHRGetTimeNonDecreasingContRawPrecision(void) ZB_NOEXCEPT;
/** A continuous clock's precision.
   @return 0: the clock is not available. */
ZB_EXPORT int64_t ZBHRGetTimeNonDecreasingContRawApproxPrecision(void) ZB_NOEXCEPT;

/** The boot-relative clocks' resolution in nanoseconds (100) and their
   source's ticks per second (10000000); 0 until the library has started. */
ZB_EXPORT int64_t ZBHRGetTimeMonotonicPrecision(void) ZB_NOEXCEPT;
/** @return The boot-relative clocks' source ticks per second (10000000); 0
   until the library has started. */
ZB_EXPORT int64_t ZBHRGetTimeMonotonicFrequency(void) ZB_NOEXCEPT;
/** @return The approximate clock's resolution in nanoseconds (100); 0 until
   the library has started. */
ZB_EXPORT int64_t ZBHRGetTimeNonDecreasingApproxPrecision(void) ZB_NOEXCEPT;

/** Kernel plus user time of the process or of the calling thread, in
   nanoseconds; -1 on failure (logged as an Error). */
ZB_EXPORT int64_t ZBHRProcessCPUTime(void) ZB_NOEXCEPT;
/** @return Kernel plus user time of the calling thread in nanoseconds; -1 on
   failure (logged as an Error). */
ZB_EXPORT int64_t ZBHRThreadCPUTime(void) ZB_NOEXCEPT;
/** Their resolution in nanoseconds: 100. */
ZB_EXPORT int64_t ZBHRGetProcessCPUTimePrecision(void) ZB_NOEXCEPT;
/** @return The thread CPU clock's resolution in nanoseconds: 100. */
ZB_EXPORT int64_t ZBHRGetThreadCPUTimePrecision(void) ZB_NOEXCEPT;

/** Sleeps `nanoseconds` rounded up to whole milliseconds, at least 1 ms
   when positive; 0 only yields the processor. A negative duration, or one
   of 2^31 ms (about 24.8 days) or more, sleeps for ever. */
ZB_EXPORT void ZBHRSleep(int64_t nanoseconds) ZB_NOEXCEPT;
/** As ZBHRSleep for `seconds` (cut to whole nanoseconds toward zero); a
   negative, NaN, infinite or out-of-range (beyond 9223372036 s) value
   never returns. */
ZB_EXPORT void ZBSleep(double seconds) ZB_NOEXCEPT;

#if defined(_WIN32)
/* ---- Inline clock reads ----------------------------------------------- */

/** @cond ZB_INTERNAL */
/* What the inline forms of ZBHRTimeNonDecreasing and ZBHRTimeMonotonic
   below use; private to the library, never written by callers. */
typedef struct _ZBUnbiasedInterruptTimeReader {
  /* The system's reader of the unbiased interrupt time in 100-ns ticks
     (QueryUnbiasedInterruptTimePrecise where it works, else
     QueryUnbiasedInterruptTime); never null. */
  int32_t (*read)(uint64_t *ticks);
} _ZBUnbiasedInterruptTimeReader;

/* A strictly increasing clock's shared state: the last value handed out,
   under a spin lock (0 free, 1 held) held for the compare-and-store only. */
typedef struct _ZBStrictClock {
  ZBSpinLock lock;
  int64_t last;
} _ZBStrictClock;

/* `now` if it is later than every value the clock handed out before, else
   the last one + 1; the library's clocks and the inline form below share it. */
static inline int64_t _ZBStrictClockNext(_ZBStrictClock *clock, int64_t now) {
  ZBSpinLockAcquire(&clock->lock);
  const int64_t result = clock->last < now ? now : clock->last + 1;
  clock->last = result;
  ZBSpinLockRelease(&clock->lock);
  return result;
}

/** The boot clocks' reader, called by the inline forms below. */
ZB_EXPORT extern _ZBUnbiasedInterruptTimeReader _gZBUnbiasedInterruptTime;
/** ZBHRTimeMonotonic's shared state, taken by its inline form below. */
ZB_EXPORT extern _ZBStrictClock _gZBMonotonicClock;
/** @endcond */
#endif

/* ZBHRTimeNonDecreasing() and ZBHRTimeMonotonic() read the system clock
   through the library's chosen reader inline, and the monotonic one takes
   its spin lock inline too (the contended wait is the library's), so each
   costs the system read (and the one atomic exchange that a clock shared by
   all threads needs) with no call into the library. */
#if defined(ZB_INLINE_FAST_PATHS) && (defined(__GNUC__) || defined(__clang__))

static inline int64_t _ZBHRTimeBootNanoseconds(void) {
  uint64_t ticks; /* the reader cannot fail */
  _gZBUnbiasedInterruptTime.read(&ticks);
  return (int64_t)ticks * 100;
}

static inline int64_t _ZBHRTimeMonotonicInline(void) {
  return _ZBStrictClockNext(&_gZBMonotonicClock, _ZBHRTimeBootNanoseconds());
}

#  define ZBHRTimeNonDecreasing() _ZBHRTimeBootNanoseconds()
#  define ZBHRTimeMonotonic() _ZBHRTimeMonotonicInline()
#endif

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBTIME_H */
