/**
 * @file
 * ZBThread.h: threads, their registry, suspension, inspection and thread keys.
 *
 * A thread handle (ZBThread) is the POSIX-threads library's thread value; 0
 * is no thread. A thread ID is the system's 32-bit thread identifier.
 * Threads started with ZBThreadCreate, and the main thread, are kept in a
 * registry of live threads that carries their names, and in a registry of
 * suspendable threads that ZBThreadSuspendAll and ZBThreadResumeAll walk.
 *
 * Thread keys are the library's own thread-specific data: 512 keys at most,
 * valid values 251 to 762. A value stored under a key that is later deleted
 * is never returned again, even after the key's slot is reused. At thread
 * exit each key's destructor is called with the thread's value, in up to
 * four passes while destructors keep storing new values.
 */
#ifndef ZENBOR_ZBTHREAD_H
#define ZENBOR_ZBTHREAD_H

#include "ZBBase.h"
#include "ZBError.h"

ZB_EXTERN_C_BEGIN

/** A thread handle: the POSIX-threads library's thread value; 0 is no thread. */
typedef uintptr_t ZBThread;
/** A thread's body; its result is what ZBThreadJoin stores. */
typedef void *(*ZBThreadFunction)(void *argument);

/** ZBThreadCreate's flags. */
#define ZBThreadFlagDetached 2u

/** ZBThreadCreate's priority for "the system's default". */
#define ZBThreadPriorityDefault (-1.0)

/** Starts `function(argument)` on a new thread and registers it under `name`
   (copied; may be null). The priority runs from 0.0 (the lowest of the
   caller's scheduling policy) to 1.0 (the highest); values above 1.0 count
   as 1.0, ZBThreadPriorityDefault as 0.5, other negative values and NaN as
   0.0. A stack size of 0 takes the default. Returns the new thread's handle,
   or 0 on any failure, which is logged. */
ZB_EXPORT ZBThread ZBThreadCreate(const char *name, ZBThreadFunction function, void *argument,
                                  double priority, uint32_t stackSize,
                                  uint32_t flags) ZB_NOEXCEPT;
/** Waits for `thread` to end and stores its result in `outResult` (may be
   null). ZBErrorDeadlock when `thread` is the caller; else the POSIX-threads
   error mapped: ZBErrorInvalidHandle (no such thread), ZBErrorNotOwner,
   ZBErrorNoMemory, ZBErrorInvalidArgument (not joinable), ZBErrorDeadlock,
   ZBErrorUnsupported, ZBErrorGeneric for anything else. */
ZB_EXPORT ZBError ZBThreadJoin(ZBThread thread, void **outResult) ZB_NOEXCEPT;

/** True when both are 0 or both name the same thread. */
ZB_EXPORT bool ZBThreadEqual(ZBThread first, ZBThread second) ZB_NOEXCEPT;
/** @return True when `thread` is the calling thread. */
ZB_EXPORT bool ZBThreadIsSelf(ZBThread thread) ZB_NOEXCEPT;
/** @return The calling thread's handle. */
ZB_EXPORT ZBThread ZBThreadGetSelf(void) ZB_NOEXCEPT;
/** The system's ID of the calling thread. */
ZB_EXPORT uint32_t ZBThreadGetCurrentThreadID(void) ZB_NOEXCEPT;
/** Stores the system ID of `thread`. ZBErrorInvalidArgument for a 0 thread
   or a null `outID`; ZBErrorGeneric when the system has no such thread. */
ZB_EXPORT ZBError ZBThreadGetThreadID(ZBThread thread, uint32_t *outID) ZB_NOEXCEPT;
/** The handle of the registered thread with this system ID, or 0. */
ZB_EXPORT ZBThread ZBThreadGetThreadWithID(uint32_t threadID) ZB_NOEXCEPT;

/** Names a registered thread (the name is copied; null or "" clears it).
   The system's own thread name is left alone. A thread that is not
   registered keeps no name and the call still returns 0.
   ZBErrorInvalidArgument for a 0 thread; ZBErrorNoMemory. */
ZB_EXPORT ZBError ZBThreadSetName(ZBThread thread, const char *name) ZB_NOEXCEPT;
/** The name of `thread` (0: the caller), or null. The pointer is the stored
   name itself: it stays valid until the thread is renamed or ends. */
ZB_EXPORT const char *ZBThreadGetName(ZBThread thread) ZB_NOEXCEPT;

/** Always 0.0. */
ZB_EXPORT double ZBThreadGetPriority(ZBThread thread) ZB_NOEXCEPT;
/** Always ZBErrorNotImplemented: priorities are fixed at creation. */
ZB_EXPORT ZBError ZBThreadSetPriority(ZBThread thread, double priority) ZB_NOEXCEPT;
/** Gives up the rest of the caller's time slice. */
ZB_EXPORT void ZBThreadYield(void) ZB_NOEXCEPT;

/** Marks the caller as the main thread. */
ZB_EXPORT void ZBThreadSetMain(void) ZB_NOEXCEPT;
/** The main thread, or 0 while none is set. */
ZB_EXPORT ZBThread ZBThreadGetMain(void) ZB_NOEXCEPT;
/** True on the main thread, and on every thread while no main thread is set. */
ZB_EXPORT bool ZBThreadIsMain(void) ZB_NOEXCEPT;
/** @return True when `thread` is the main thread, or when no main thread is set. */
ZB_EXPORT bool ZBThreadIsMainThread(ZBThread thread) ZB_NOEXCEPT;

/** The stack of `thread`: its base (the highest address; stacks grow down)
   and its reserved size, into the non-null outs. ZBErrorInvalidArgument for
   a 0 thread; ZBErrorGeneric when the system cannot tell. */
ZB_EXPORT ZBError ZBThreadGetStackInfo(ZBThread thread, void **outBase,
                                       size_t *outSize) ZB_NOEXCEPT;
/** Calls the thread-start hook, if one is installed, and says so. */
ZB_EXPORT bool ZBThreadRegisterWithProfiler(void) ZB_NOEXCEPT;

/** Runs `function(argument)` once per `once` word (which starts at 0) in the
   whole process; callers that arrive meanwhile wait until it has returned.
   0; ZBErrorInvalidArgument for a null word or function. */
typedef void (*ZBThreadOnceFunction)(void *argument);
/** Runs `function(argument)` once per `once` word, as described above.
   @return 0; ZBErrorInvalidArgument for a null word or function. */
ZB_EXPORT ZBError ZBThreadCallOnce(uint32_t *once, ZBThreadOnceFunction function,
                                   void *argument) ZB_NOEXCEPT;

/** The suspend registry: the threads that ZBThreadSuspendAll stops.
   Registered threads enter it when they start and leave it when they end. */
ZB_EXPORT void ZBThreadSuspendAdd(uint32_t threadID) ZB_NOEXCEPT;
/** Removes the newest entry for the ID; true when there was one. */
ZB_EXPORT bool ZBThreadSuspendRemove(uint32_t threadID) ZB_NOEXCEPT;
/** Makes ZBThreadSuspendAll and ZBThreadResumeAll pass the ID by. */
ZB_EXPORT void ZBThreadSetNonSuspendable(uint32_t threadID) ZB_NOEXCEPT;
/** Suspend or resume every suspendable entry; failures are logged and
   skipped. The caller marks itself non-suspendable first, or its own entry
   fails. */
ZB_EXPORT void ZBThreadSuspendAll(void) ZB_NOEXCEPT;
/** Resumes every suspendable entry; failures are logged and skipped. */
ZB_EXPORT void ZBThreadResumeAll(void) ZB_NOEXCEPT;
/** ZBErrorDeadlock for the caller's own ID; ZBErrorGeneric when the thread
   cannot be opened or suspended. */
ZB_EXPORT ZBError ZBThreadSuspendWithID(uint32_t threadID) ZB_NOEXCEPT;
/** ZBErrorInvalidArgument for the caller's own ID; ZBErrorGeneric when the
   thread cannot be opened or resumed. */
ZB_EXPORT ZBError ZBThreadResumeWithID(uint32_t threadID) ZB_NOEXCEPT;

/** Calls `callback` with the ID of each thread of the process until it
   returns false. ZBErrorInvalidArgument for a null callback; ZBErrorGeneric
   when the threads cannot be listed. */
typedef bool (*ZBThreadEnumerateCallback)(uint32_t threadID, void *context);
/** Calls `callback` with each thread ID, as described above.
   @return 0; ZBErrorInvalidArgument for a null callback; ZBErrorGeneric when
   the threads cannot be listed. */
ZB_EXPORT ZBError ZBThreadEnumerateIDs(ZBThreadEnumerateCallback callback,
                                       void *context) ZB_NOEXCEPT;

/** The CPU time a thread has used. */
typedef struct ZBThreadCPUTimeUsage {
  int64_t kernelTime; /**< nanoseconds */
  int64_t userTime;   /**< nanoseconds */
} ZBThreadCPUTimeUsage;

/** ZBErrorInvalidArgument for a null `outUsage`; ZBErrorNotFound when the
   thread cannot be opened; ZBErrorGeneric when its times cannot be read
   (logged). */
ZB_EXPORT ZBError ZBThreadGetCPUTimeUsageWithID(uint32_t threadID,
                                                ZBThreadCPUTimeUsage *outUsage) ZB_NOEXCEPT;

/** A thread's registers. Each field has the native register width: on
   x86_64, eax holds rax, esp holds rsp, eip holds rip, and so on. */
typedef struct ZBThreadState {
  /**@{*/
  /** A general register. */
  uintptr_t eax, ebx, ecx, edx, edi, esi, ebp, esp;
  /**@}*/
  /**@{*/
  /** A segment register, the flags or the instruction pointer. */
  uintptr_t ss, eflags, eip, cs, ds, es, fs, gs;
  /**@}*/
} ZBThreadState;

/** Briefly suspends another thread and reads its registers.
   ZBErrorNotOwner for the caller's own ID; ZBErrorInvalidArgument for a null
   `outState`; ZBErrorGeneric on any system failure (logged). */
ZB_EXPORT ZBError ZBThreadStateGet(uint32_t threadID, ZBThreadState *outState) ZB_NOEXCEPT;

/** A thread key: 251 to 762 when valid, -1 for none. */
typedef int32_t ZBThreadKey;
/** Called at thread exit with the thread's non-null value under a key. */
typedef void (*ZBThreadKeyDestructor)(void *value);

/** A new key, or -1 when all 512 are in use (logged). */
ZB_EXPORT ZBThreadKey ZBThreadKeyCreate(ZBThreadKeyDestructor destructor) ZB_NOEXCEPT;
/** 0; ZBErrorInvalidHandle for a key that is out of range or not in use.
   Values stored under the key are not destroyed; they are never returned
   again. */
ZB_EXPORT ZBError ZBThreadKeyDelete(ZBThreadKey key) ZB_NOEXCEPT;
/** 0; ZBErrorInvalidHandle for a key out of range; ZBErrorNoMemory when the
   thread's table of values cannot be made. */
ZB_EXPORT ZBError ZBThreadSetSpecific(ZBThreadKey key, const void *value) ZB_NOEXCEPT;
/** The caller's value for `key`, or null: also for a key out of range, a
   value never set, or one set under a key since deleted. */
ZB_EXPORT void *ZBThreadGetSpecific(ZBThreadKey key) ZB_NOEXCEPT;

/* ---- Inline thread-key lookups ---------------------------------------- */

/** @cond ZB_INTERNAL */
/* What the inline forms of ZBThreadGetSpecific and ZBThreadSetSpecific
   below read; private to the library, never written by callers. A thread's
   values live in one table of 512 entries, found through the system's
   per-thread slot `tableSlot`; an entry counts only while its generation
   equals its key's current one in `generations`. */
typedef struct _ZBThreadKeyEntry {
  void *value;
  uint32_t generation; /* the key's generation when the value was stored */
} _ZBThreadKeyEntry;

typedef struct _ZBThreadKeyState {
  /* The thread-environment-block slot that holds the caller's table, or
     UINT32_MAX when the inline forms must call the library. */
  uint32_t tableSlot;
  uint32_t generations[512]; /* odd while the key is in use */
} _ZBThreadKeyState;

/** The thread keys' shared state, read by the inline lookups below. */
ZB_EXPORT extern _ZBThreadKeyState _gZBThreadKeyState;
/** @endcond */

/* ZBThreadGetSpecific(key) and ZBThreadSetSpecific(key, value) are served
   inline when the caller already has a table: one per-thread read, one
   bounds check and one generation comparison, with no call into the
   library. Everything else (no table yet, a key out of range) goes to the
   exported functions, which use the same lookup. */
#if defined(_WIN64) && (defined(__GNUC__) || defined(__clang__) || defined(_MSC_VER))
#  define ZB_THREAD_KEY_INLINE_LOOKUP 1
#  if defined(_MSC_VER) && !defined(__clang__)
#    include <intrin.h>
#  endif
/* The caller's table, read from the thread environment block's TlsSlots
   array (at 0x1480, addressed through gs); `slot` is below 64. */
static inline _ZBThreadKeyEntry *_ZBThreadKeyCallerTable(uint32_t slot) {
#  if defined(_MSC_VER) && !defined(__clang__)
  return (_ZBThreadKeyEntry *)__readgsqword(0x1480 + 8 * slot);
#  else
  _ZBThreadKeyEntry *table;
  __asm__ __volatile__("movq %%gs:0x1480(,%1,8), %0" : "=r"(table) : "r"((uint64_t)slot));
  return table;
#  endif
}

static inline uint32_t _ZBThreadKeyGeneration(uint32_t index) {
  /* An acquire load is a plain load on x86-64. */
  return *(volatile const uint32_t *)&_gZBThreadKeyState.generations[index];
}

/* The entry of `key` in the caller's table, or null: call the library. */
static inline _ZBThreadKeyEntry *_ZBThreadKeyInlineEntry(ZBThreadKey key) {
  const uint32_t index = (uint32_t)key - 251u;
  const uint32_t slot = _gZBThreadKeyState.tableSlot;
  if (ZB_UNLIKELY(index >= 512u || slot >= 64u))
    return NULL;
  _ZBThreadKeyEntry *table = _ZBThreadKeyCallerTable(slot);
  return ZB_LIKELY(table != NULL) ? table + index : NULL;
}

static inline void *_ZBThreadGetSpecificInline(ZBThreadKey key) {
  const _ZBThreadKeyEntry *entry = _ZBThreadKeyInlineEntry(key);
  if (ZB_UNLIKELY(entry == NULL))
    return ZBThreadGetSpecific(key);
  return entry->generation == _ZBThreadKeyGeneration((uint32_t)key - 251u) ? entry->value : NULL;
}

static inline ZBError _ZBThreadSetSpecificInline(ZBThreadKey key, const void *value) {
  _ZBThreadKeyEntry *entry = _ZBThreadKeyInlineEntry(key);
  if (ZB_UNLIKELY(entry == NULL))
    return ZBThreadSetSpecific(key, value);
  entry->value = (void *)value;
  entry->generation = _ZBThreadKeyGeneration((uint32_t)key - 251u);
  return ZBErrorNone;
}

#  if defined(ZB_INLINE_FAST_PATHS)
#    define ZBThreadGetSpecific(key) _ZBThreadGetSpecificInline(key)
#    define ZBThreadSetSpecific(key, value) _ZBThreadSetSpecificInline((key), (value))
#  endif
#endif

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBTHREAD_H */
