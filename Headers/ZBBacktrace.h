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

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBBACKTRACE_H */
