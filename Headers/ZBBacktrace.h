/*
 * ZBBacktrace.h: the return addresses on a thread's stack.
 */
#ifndef ZENBOR_ZBBACKTRACE_H
#define ZENBOR_ZBBACKTRACE_H

#include "ZBBase.h"
#include "ZBError.h"

ZB_EXTERN_C_BEGIN

/** Writes up to `capacity` addresses of the calling thread's stack into
   `frames`, after skipping `skip` of them: with skip 0 the first is the
   address in the caller of ZBBacktraceCapture, the others are return
   addresses, innermost first. Returns the number written (0 when `frames` is
   null or `capacity` is 0); no error codes. */
ZB_EXPORT uint32_t ZBBacktraceCapture(void **frames, uint32_t capacity, uint32_t skip) ZB_NOEXCEPT;

/** Captures the stack of another thread of the library's thread registry
   (threads started by ZBThreadCreate, the main thread, and threads added with
   ZBThreadSuspendAdd): the thread is suspended for as long as its registers
   and stack take to copy, and unwound after it runs again. frames[0] is where
   it stopped, the others are return addresses. Returns ZBErrorNone with the
   count in `*outCount`, ZBErrorInvalidArgument for a null `frames` or
   `outCount`, ZBErrorDeadlock (-26) for the calling thread itself,
   ZBErrorNotFound for a thread outside the registry or no longer running,
   ZBErrorNoMemory when the copy's buffer cannot be made, ZBErrorGeneric when
   the system cannot stop or read the thread. */
ZB_EXPORT ZBError ZBBacktraceCaptureThread(uint32_t threadID, void **frames, uint32_t capacity,
                                           uint32_t *outCount) ZB_NOEXCEPT;

/** Prints the calling thread's stack, one line per frame, to the log's sink
   and to standard error: each return address with the function, file and
   line of the address one byte before it (the call), as
   ZBSymbolCopyDescription writes them. `skip` counts as for
   ZBBacktraceCapture. What ZBAbortWithBacktrace and the log's Backtrace flag
   print. No error codes: frames that cannot be named print as addresses. */
ZB_EXPORT void ZBBacktracePrint(uint32_t skip) ZB_NOEXCEPT;

/** What is known about one code address. Strings belong to the library's
   symbol cache and live as long as the process; null and 0 where unknown. */
typedef struct ZBSymbolInfo {
  const char *modulePath; /**< the module's file, UTF-8 */
  void *moduleBase;       /**< where the module is loaded */
  const char *name;       /**< the function, C++ names demangled */
  uintptr_t offset;       /**< the address minus the function's start */
  const char *file;       /**< the source file, as the debug information names it */
  uint32_t line;          /**< the source line */
} ZBSymbolInfo;

/** Looks `address` up as given (callers naming a call site pass the return
   address minus one) through DbgHelp, the library's own reader of the
   module file's COFF symbols and DWARF 4 and 5 line tables, then the
   module's export table, each filling what the previous left unknown; the
   answer is cached. Returns ZBErrorNone with `*out` filled,
   ZBErrorInvalidArgument for a null `out`, ZBErrorNotFound (-40) when no
   loaded module holds the address, ZBErrorNoMemory. */
ZB_EXPORT ZBError ZBSymbolLookup(const void *address, ZBSymbolInfo *out) ZB_NOEXCEPT;

/** One line naming `address`, for example
   "qvsprintf+0x1c (qprintf.cpp:151) [zenbor.dll+0x4a1c]": the function and
   offset (or the address), the file's last component and line when known,
   the module's file name and offset when known. The caller frees it with
   _ZBFree. Null only when memory runs out; no error codes. */
ZB_EXPORT char *ZBSymbolCopyDescription(const void *address) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBBACKTRACE_H */
