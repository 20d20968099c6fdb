/*
 * ZBCrashReport.h: crash reports written by the process about itself.
 */
#ifndef ZENBOR_ZBCRASHREPORT_H
#define ZENBOR_ZBCRASHREPORT_H

#include "ZBBase.h"
#include "ZBError.h"

ZB_EXTERN_C_BEGIN

/** The handler that ZBCrashDumpFixImmediately calls. */
typedef int32_t (*ZBCrashDumpHandler)(void);

/** Installs the handler that ZBCrashDumpFixImmediately calls and whose result
   it returns; null removes it, and ZBCrashDumpFixImmediately then keeps its
   behaviour without one (a Fatal line and the end of the process). No error
   codes. */
ZB_EXPORT void ZBCrashDumpSetHandler(ZBCrashDumpHandler handler) ZB_NOEXCEPT;

/** Flags of ZBCrashReportInstall. */
enum {
  ZBCrashReportMinidump = 1 /**< also write "<same name>.dmp" through DbgHelp */
};

/** Installs the crash reporter: an unhandled-exception filter that chains to
   the one it replaces (which still runs after the report), a vectored
   handler that reports stack overflows (and nothing else), and handlers for
   SIGABRT, pure virtual calls, invalid C runtime parameters and
   std::terminate. A reporter thread is started now, because a crashed thread
   has no stack to spare. On a crash it writes
   "<program>-<pid>-<time>.crash.txt" into `directory` (UTF-8; "/C:/x" taken
   as "C:/x"): the exception code as "0x%08X" and its address, the
   registers, every registered thread's symbolized stack (the others
   suspended meanwhile), and the log ring's last lines, read without the
   log's lock. Then the process ends with the exception code. ZBAbort's
   0xC0000025 counts as a crash. Returns ZBErrorNone, ZBErrorInvalidArgument
   for a null or empty directory or unknown flags, ZBErrorAlready when
   installed, ZBErrorNoMemory, ZBErrorGeneric when the thread cannot be
   started. */
ZB_EXPORT ZBError ZBCrashReportInstall(const char *directory, uint32_t flags) ZB_NOEXCEPT;

/** Restores the handlers that ZBCrashReportInstall replaced and ends the
   reporter thread. Returns ZBErrorNone, or ZBErrorNotFound when nothing is
   installed. */
ZB_EXPORT ZBError ZBCrashReportUninstall(void) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBCRASHREPORT_H */
