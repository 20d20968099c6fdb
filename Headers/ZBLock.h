/**
 * @file
 * ZBLock.h: mutexes, reader/writer locks, condition variables, semaphores
 * and spin locks.
 *
 * Each object is a thin record over a system primitive. Records can live in
 * the caller's storage (...Init, then ...Destroy) or be allocated from the
 * default zone (...Create, then ...Free). Every acquire tries the
 * non-blocking form first, so an uncontended lock costs one system call;
 * a wait that has to block shows in system traces as a span.
 *
 * Timeouts are nanoseconds (or seconds for the double forms) and become
 * milliseconds by rounding up; a negative timeout waits for ever.
 */
#ifndef ZENBOR_ZBLOCK_H
#define ZENBOR_ZBLOCK_H

#include "ZBBase.h"
#include "ZBError.h"

#if defined(_MSC_VER) && !defined(__clang__)
#  include <intrin.h>
#endif

ZB_EXTERN_C_BEGIN

/* ---- Mutexes ---------------------------------------------------------- */

/** A mutex, recursive or not. Treat the fields as private. */
typedef struct ZBMutex {
  /** The system lock: a critical section for the recursive kind, a slim
     reader/writer lock for the non-recursive kind; sized for the larger. */
  uint64_t lockStorage[5];
  int32_t traceName; /**< from ZBTraceDefineName, 0 when none */
  uint8_t recursive;                /**< 1 for the recursive kind */
  uint8_t handlesUnacquiredRelease; /**< set by ZBMutexHandleUnacquiredRelease */
} ZBMutex;

/** A recursive mutex from the default zone (spins briefly before it sleeps);
   null when no memory is left. Release with ZBMutexFree. */
ZB_EXPORT ZBMutex *ZBMutexCreateRecursive(void) ZB_NOEXCEPT;
/** A non-recursive mutex from the default zone; null when no memory is
   left. Release with ZBMutexFree. */
ZB_EXPORT ZBMutex *ZBMutexCreateNR(void) ZB_NOEXCEPT;
/** Set up a recursive or a non-recursive mutex in the caller's storage.
   True, or false for a null record. Undo with ZBMutexDestroy. */
ZB_EXPORT bool ZBMutexInitRecursive(ZBMutex *mutex) ZB_NOEXCEPT;
/** As ZBMutexInitRecursive, for a non-recursive mutex.
   @return True, or false for a null record. */
ZB_EXPORT bool ZBMutexInitNR(ZBMutex *mutex) ZB_NOEXCEPT;
/** Names the mutex in traces; returns the trace name's identifier (0 when
   none was defined or the record is null). */
ZB_EXPORT int32_t ZBMutexSetTraceName(ZBMutex *mutex, const char *name) ZB_NOEXCEPT;
/** Blocks until the caller holds the mutex.
   0; ZBErrorInvalidArgument for a null record. */
ZB_EXPORT ZBError ZBMutexAcquire(ZBMutex *mutex) ZB_NOEXCEPT;
/** Takes the mutex if no other holder has it; a recursive mutex the caller
   holds is taken again, a non-recursive one is not.
   0 when taken; ZBErrorNotOwner (-57) when held; ZBErrorInvalidArgument. */
ZB_EXPORT ZBError ZBMutexTryAcquire(ZBMutex *mutex) ZB_NOEXCEPT;
/** Releases the mutex. Releasing a non-recursive mutex that nobody holds is
   detected only after ZBMutexHandleUnacquiredRelease.
   0; ZBErrorCrossDevice (-58) for a detected release of a free mutex (the
   mutex stays free); ZBErrorInvalidArgument. */
ZB_EXPORT ZBError ZBMutexRelease(ZBMutex *mutex) ZB_NOEXCEPT;
/** Makes ZBMutexRelease detect the release of a free non-recursive mutex.
   0; ZBErrorInvalidArgument. Fatal on a recursive mutex. */
ZB_EXPORT ZBError ZBMutexHandleUnacquiredRelease(ZBMutex *mutex) ZB_NOEXCEPT;
/** Undoes an Init. 0; ZBErrorInvalidArgument. */
ZB_EXPORT ZBError ZBMutexDestroy(ZBMutex *mutex) ZB_NOEXCEPT;
/** Undoes a Create; null is accepted. 0. */
ZB_EXPORT ZBError ZBMutexFree(ZBMutex *mutex) ZB_NOEXCEPT;

#if defined(_WIN32)
/** @cond ZB_INTERNAL */
/* The system calls under a recursive mutex, for the inline forms below;
   private to the library. Null until the library has started. */
typedef struct _ZBMutexSystemCalls {
  int32_t (*tryEnter)(void *criticalSection); /* TryEnterCriticalSection */
  void (*leave)(void *criticalSection);       /* LeaveCriticalSection */
} _ZBMutexSystemCalls;

/** The recursive mutex's system calls, called by the inline forms below. */
ZB_EXPORT extern _ZBMutexSystemCalls _gZBMutexSystemCalls;
/** @endcond */
#endif

/* ZBMutexAcquire(mutex) and ZBMutexRelease(mutex) of a recursive mutex take
   and give up its critical section inline when it is free, as the
   exported functions would; everything else (a held lock, the other kind,
   a null record) goes to the exported functions. */
#if defined(ZB_INLINE_FAST_PATHS)
static inline ZBError _ZBMutexAcquireInline(ZBMutex *mutex) {
  int32_t (*tryEnter)(void *) = _gZBMutexSystemCalls.tryEnter;
  if (ZB_LIKELY(mutex != NULL && mutex->recursive && tryEnter != NULL) &&
      ZB_LIKELY(tryEnter(mutex->lockStorage) != 0))
    return ZBErrorNone;
  return ZBMutexAcquire(mutex);
}

static inline ZBError _ZBMutexReleaseInline(ZBMutex *mutex) {
  void (*leave)(void *) = _gZBMutexSystemCalls.leave;
  if (ZB_LIKELY(mutex != NULL && mutex->recursive && leave != NULL)) {
    leave(mutex->lockStorage);
    return ZBErrorNone;
  }
  return ZBMutexRelease(mutex);
}

#  define ZBMutexAcquire(mutex) _ZBMutexAcquireInline(mutex)
#  define ZBMutexRelease(mutex) _ZBMutexReleaseInline(mutex)
#endif

/* ---- Reader/writer locks ---------------------------------------------- */

/** Many readers or one writer; not recursive. Treat the fields as private. */
typedef struct ZBRWLock {
  void *lockStorage; /**< a slim reader/writer lock */
  int32_t traceName; /**< from ZBTraceDefineName, 0 when none */
} ZBRWLock;

/** A lock from the default zone; null when no memory is left. */
ZB_EXPORT ZBRWLock *ZBRWLockCreate(void) ZB_NOEXCEPT;
/** Set up in the caller's storage. True, or false for a null record. */
ZB_EXPORT bool ZBRWLockInit(ZBRWLock *lock) ZB_NOEXCEPT;
/** As ZBMutexSetTraceName. */
ZB_EXPORT int32_t ZBRWLockSetTraceName(ZBRWLock *lock, const char *name) ZB_NOEXCEPT;
/** Block until shared or exclusive access is granted, or give it up.
   0; ZBErrorInvalidArgument for a null record. */
ZB_EXPORT ZBError ZBRWLockAcquireRead(ZBRWLock *lock) ZB_NOEXCEPT;
/** Blocks until the caller has exclusive access.
   @return 0; ZBErrorInvalidArgument for a null record. */
ZB_EXPORT ZBError ZBRWLockAcquireWrite(ZBRWLock *lock) ZB_NOEXCEPT;
/** Gives up shared access.
   @return 0; ZBErrorInvalidArgument for a null record. */
ZB_EXPORT ZBError ZBRWLockReleaseRead(ZBRWLock *lock) ZB_NOEXCEPT;
/** Gives up exclusive access.
   @return 0; ZBErrorInvalidArgument for a null record. */
ZB_EXPORT ZBError ZBRWLockReleaseWrite(ZBRWLock *lock) ZB_NOEXCEPT;
/** Undoes an Init (there is nothing to undo). 0. */
ZB_EXPORT ZBError ZBRWLockDestroy(ZBRWLock *lock) ZB_NOEXCEPT;
/** Undoes a Create; null is accepted. 0. */
ZB_EXPORT ZBError ZBRWLockFree(ZBRWLock *lock) ZB_NOEXCEPT;

/* ---- Condition variables ---------------------------------------------- */

/** Waits with either kind of mutex. Treat the fields as private. */
typedef struct ZBCondVariable {
  void *conditionStorage; /**< a system condition variable */
  int32_t debugName; /**< from ZBTraceDefineName, 0 when none */
} ZBCondVariable;

/** A condition variable from the default zone; null when no memory is left. */
ZB_EXPORT ZBCondVariable *ZBCondVariableCreate(void) ZB_NOEXCEPT;
/** Set up in the caller's storage. True, or false for a null record. */
ZB_EXPORT bool ZBCondVariableInit(ZBCondVariable *condition) ZB_NOEXCEPT;
/** As ZBMutexSetTraceName. */
ZB_EXPORT int32_t ZBCondVariableSetDebugName(ZBCondVariable *condition,
                                             const char *name) ZB_NOEXCEPT;
/** Undoes an Init (there is nothing to undo). 0. */
ZB_EXPORT ZBError ZBCondVariableDestroy(ZBCondVariable *condition) ZB_NOEXCEPT;
/** Undoes a Create; null is accepted. 0. */
ZB_EXPORT ZBError ZBCondVariableFree(ZBCondVariable *condition) ZB_NOEXCEPT;
/** Wake one waiter, or all. 0; ZBErrorInvalidArgument. */
ZB_EXPORT ZBError ZBCondVariableSignal(ZBCondVariable *condition) ZB_NOEXCEPT;
/** Wakes every waiter.
   @return 0; ZBErrorInvalidArgument for a null record. */
ZB_EXPORT ZBError ZBCondVariableBroadcast(ZBCondVariable *condition) ZB_NOEXCEPT;

/** The waits: the caller holds `mutex` (either kind); it is released while
   waiting and held again on return, whatever the result. Wake-ups without
   a signal are possible and answer 0, so callers re-check their predicate.
   0; ZBErrorTimedOut (-3) when the time ran out; ZBErrorInvalidArgument for
   a null record; ZBErrorGeneric for any other system failure. */
ZB_EXPORT ZBError ZBCondVariableWait(ZBCondVariable *condition, ZBMutex *mutex) ZB_NOEXCEPT;
/** Waits at most `nanoseconds`, rounded up to whole milliseconds and then
   cut to 32 bits (no saturation); negative waits without a timeout.
   @return As ZBCondVariableWait: 0, ZBErrorTimedOut, ZBErrorInvalidArgument
   or ZBErrorGeneric. */
ZB_EXPORT ZBError ZBCondVariableTimedWaitHR(ZBCondVariable *condition, ZBMutex *mutex,
                                            int64_t nanoseconds) ZB_NOEXCEPT;
/** As the HR form; a NaN, infinite or out-of-range (beyond +-9223372036 s)
   value waits without a timeout.
   @return As ZBCondVariableWait: 0, ZBErrorTimedOut, ZBErrorInvalidArgument
   or ZBErrorGeneric. */
ZB_EXPORT ZBError ZBCondVariableTimedWait(ZBCondVariable *condition, ZBMutex *mutex,
                                          double seconds) ZB_NOEXCEPT;
/** Waits until the Unix time `deadline` (ZBHRTimeUnix); a deadline already
   past still releases and re-takes the mutex, a negative one waits without
   a timeout.
   @return As ZBCondVariableWait: 0, ZBErrorTimedOut, ZBErrorInvalidArgument
   or ZBErrorGeneric. */
ZB_EXPORT ZBError ZBCondVariableTimedWaitAbsoluteHR(ZBCondVariable *condition,
                                                    ZBMutex *mutex,
                                                    int64_t deadline) ZB_NOEXCEPT;
/** As the HR form with seconds since the epoch; a NaN, infinite or
   out-of-range deadline waits without a timeout.
   @return As ZBCondVariableWait: 0, ZBErrorTimedOut, ZBErrorInvalidArgument
   or ZBErrorGeneric. */
ZB_EXPORT ZBError ZBCondVariableTimedWaitAbsolute(ZBCondVariable *condition, ZBMutex *mutex,
                                                  double deadline) ZB_NOEXCEPT;

/* ---- Semaphores ------------------------------------------------------- */

/** A counting semaphore: the system semaphore handle itself. */
typedef struct ZBSemaphore ZBSemaphore;

/** A semaphore holding `initialCount` (0 to 2147483647); null on failure. */
ZB_EXPORT ZBSemaphore *ZBSemaphoreCreate(int32_t initialCount) ZB_NOEXCEPT;
/** Closes the semaphore. 0; ZBErrorNotOwner when the system reports it busy;
   ZBErrorGeneric for other failures; ZBErrorInvalidArgument for null. */
ZB_EXPORT ZBError ZBSemaphoreFree(ZBSemaphore *semaphore) ZB_NOEXCEPT;
/** Adds one count. 0; ZBErrorGeneric (the count is at its maximum, or the
   handle is bad); ZBErrorInvalidArgument for null. */
ZB_EXPORT ZBError ZBSemaphoreSignalOne(ZBSemaphore *semaphore) ZB_NOEXCEPT;
/** Not available: adds one count only, so it wakes one waiter, and counts
   itself with ZBLogNYICounter. Codes as ZBSemaphoreSignalOne: 0,
   ZBErrorInvalidHandle or ZBErrorInvalidArgument. */
ZB_EXPORT ZBError ZBSemaphoreSignalAll(ZBSemaphore *semaphore) ZB_NOEXCEPT;
/** Takes one count, waiting as long as it takes. 0; ZBErrorGeneric for an
   abandoned or failed wait; ZBErrorInvalidArgument for null. */
ZB_EXPORT ZBError ZBSemaphoreWait(ZBSemaphore *semaphore) ZB_NOEXCEPT;
/** Takes one count, waiting at most `nanoseconds` rounded up to whole
   milliseconds (at least 1 ms when positive); negative, or 2^31 ms and
   more, waits for ever. 0; ZBErrorTimedOut; ZBErrorGeneric;
   ZBErrorInvalidArgument for null. */
ZB_EXPORT ZBError ZBSemaphoreWaitTimedHR(ZBSemaphore *semaphore,
                                         int64_t nanoseconds) ZB_NOEXCEPT;

/* ---- Spin locks ------------------------------------------------------- */

/** A 32-bit word: 0 free, 1 held; any other value is corruption. For a few
   instructions of work only: waiters spin, then yield, then sleep 100 us at
   a time. The fast paths below are inline; the slow paths are exported. */
typedef int32_t ZBSpinLock;

/** Stores 0 (free). A null lock is ignored. */
ZB_EXPORT void ZBSpinLockInit(ZBSpinLock *lock) ZB_NOEXCEPT;
/** The contended acquire: returns once the caller holds the lock. Called
   after the caller's own exchange found the lock held. Null is ignored. */
ZB_EXPORT void _ZBSpinLockAcquireNoDebug(ZBSpinLock *lock) ZB_NOEXCEPT;
/** The same, for callers that pass where they are; the place is unused. */
ZB_EXPORT void _ZBSpinLockAcquireDebug(ZBSpinLock *lock, const char *function, const char *file,
                                       uint32_t line) ZB_NOEXCEPT;
/** Releases a lock that must be held: Fatal ("BUG") when the word is not 1.
   Null is ignored. */
ZB_EXPORT void _ZBSpinLockSlowRelease(ZBSpinLock *lock) ZB_NOEXCEPT;
/** Accepted for compatibility; spin locks have no stuck detection. */
ZB_EXPORT void ZBSpinLockSetStuckDetectionDelays(double seconds) ZB_NOEXCEPT;

/**
 * @def ZB_SPIN_LOCK_EXCHANGE_ACQUIRE_
 * The atomic exchange of the inline spin-lock functions; not for direct use.
 * @def ZB_SPIN_LOCK_STORE_RELEASE_
 * The atomic release of the inline spin-lock functions; not for direct use.
 */
#if defined(_MSC_VER) && !defined(__clang__)
#  define ZB_SPIN_LOCK_EXCHANGE_ACQUIRE_(lock) \
    ((int32_t)_InterlockedExchange((volatile long *)(lock), 1))
#  define ZB_SPIN_LOCK_STORE_RELEASE_(lock) \
    (_ReadWriteBarrier(), *(volatile long *)(lock) = 0)
#else
#  define ZB_SPIN_LOCK_EXCHANGE_ACQUIRE_(lock) __atomic_exchange_n((lock), 1, __ATOMIC_ACQUIRE)
#  define ZB_SPIN_LOCK_STORE_RELEASE_(lock) __atomic_store_n((lock), 0, __ATOMIC_RELEASE)
#endif

/** True when the caller took the lock; false when it is held (or null). */
static inline bool ZBSpinLockTryAcquire(ZBSpinLock *lock) {
  return lock != NULL && ZB_SPIN_LOCK_EXCHANGE_ACQUIRE_(lock) == 0;
}

/** Returns once the caller holds the lock. A null lock is ignored. */
static inline void ZBSpinLockAcquire(ZBSpinLock *lock) {
  if (lock != NULL && ZB_SPIN_LOCK_EXCHANGE_ACQUIRE_(lock) != 0)
    _ZBSpinLockAcquireNoDebug(lock);
}

/** Releases a lock the caller holds, without checking it. */
static inline void ZBSpinLockRelease(ZBSpinLock *lock) {
  if (lock != NULL)
    ZB_SPIN_LOCK_STORE_RELEASE_(lock);
}

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBLOCK_H */
