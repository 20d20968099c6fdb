/**
 * @file
 * ZBLog.h: the library's diagnostic channel.
 *
 * A message is sent from a log site (one static ZBLogSite per place in the
 * code) at a level. Whether a site logs is decided once, from the rules in
 * "ZBLOG_LEVEL", "ZBLOG_CONFIG_FILE" or "ZBLOG_CONFIG", and cached in the
 * site, so a disabled site costs one load and one compare. Lines are stamped,
 * kept in a ring of recent lines and handed to the debugger output or to the
 * file set with ZBLogSetFile. Fatal messages end the process.
 */
#ifndef ZENBOR_ZBLOG_H
#define ZENBOR_ZBLOG_H

#include <stdarg.h>

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

enum {
  ZBLogLevelRaw = 1, /**< the line is the bare message */
  ZBLogLevelFatal = 2,
  ZBLogLevelError = 3,
  ZBLogLevelWarning = 4,
  ZBLogLevelInfo = 5, /**< the default */
  ZBLogLevelDebug = 6,
  ZBLogLevelVerbose = 7
};

/** Flags kept in the top three bits of a site's line word. */
#define ZBLogSiteFlagBacktrace 0x80000000u /**< print a backtrace after the line */
#define ZBLogSiteFlagTrace 0x40000000u     /**< divert the message away from the log */
#define ZBLogSiteFlagNoAbort 0x20000000u   /**< a Fatal message does not end the process */
/** The line-number bits of a site's line word. */
#define ZBLogSiteLineMask 0x1FFFFFFFu

/** A site whose level is this answers Warning without consulting the rules. */
#define ZBLogSiteLevelFixedWarning 999

/** A static record per logging place that caches the place's level. */
typedef struct ZBLogSite {
  const char *file; /**< the source file the rules match */
  int32_t level; /**< 0 until determined */
  struct ZBLogSite *next; /**< the list of determined sites */
  const char *function;   /**< the function the rules match */
  uint32_t lineWord; /**< bits 0-28 line, 29-31 flags */
} ZBLogSite;

/** Determines and caches the site's level on first use; true when the site
   logs messages of `level`. */
ZB_EXPORT bool ZBLogDetermineLogLevel(int32_t level, ZBLogSite *site, const char *file,
                                      const char *function, uint32_t line) ZB_NOEXCEPT;
/** Matches a caller-filled site against the loaded rules without locking,
   caching or loading; writes the matching rule's flags. */
ZB_EXPORT int32_t _ZBLogDetermineLogLevelForDynamicSite(const ZBLogSite *site,
                                                        uint32_t *outFlags) ZB_NOEXCEPT;

/** Writes one line at `level` from `site`: formats `format` with the
   library's engine, stamps the line with time, source position, process,
   thread and thread name, keeps it in the ring and hands it to the sink. A
   Fatal line ends the process. Call it after ZB_LOG_SITE_ENABLED; the ZB_LOG
   macros do both. */
ZB_EXPORT void ZBLogS(int32_t level, ZBLogSite *site, const char *function, const char *file,
                      uint32_t line, const char *format, ...) ZB_NOEXCEPT ZB_PRINTF_LIKE(6, 7);
/** As ZBLogS, without taking the log lock: for a caller that already holds it. */
ZB_EXPORT void ZBLogSUnsafe(int32_t level, ZBLogSite *site, const char *function,
                            const char *file, uint32_t line, const char *format,
                            ...) ZB_NOEXCEPT ZB_PRINTF_LIKE(6, 7);
/** As ZBLogS without a site: the line is written whatever the rules say. */
ZB_EXPORT void ZBLogX(int32_t level, const char *function, const char *file, uint32_t line,
                      const char *format, ...) ZB_NOEXCEPT ZB_PRINTF_LIKE(5, 6);
/** As ZBLogX, without taking the log lock. */
ZB_EXPORT void ZBLogXUnsafe(int32_t level, const char *function, const char *file,
                            uint32_t line, const char *format, ...) ZB_NOEXCEPT
    ZB_PRINTF_LIKE(5, 6);
/** As ZBLogX, with the arguments in a `va_list`. */
ZB_EXPORT void ZBLogv(int32_t level, const char *function, const char *file, uint32_t line,
                      const char *format, va_list arguments) ZB_NOEXCEPT;

/** Writes the Fatal line "Assertion failed: <message>" and ends the process.
   The fourth argument is ignored. */
ZB_EXPORT ZB_NORETURN void ZBLogFatalAssertion(const char *function, const char *file,
                                               uint32_t line, const char *ignored,
                                               const char *message) ZB_NOEXCEPT;
/** Raises the non-continuable exception 0xC0000025, then _exit(1). */
ZB_EXPORT ZB_NORETURN void ZBAbort(void) ZB_NOEXCEPT;
/** Prints a backtrace of the calling thread to standard error, then ZBAbort. */
ZB_EXPORT ZB_NORETURN void ZBAbortWithBacktrace(void) ZB_NOEXCEPT;
/** The hook that counts not-yet-implemented paths; does nothing. */
ZB_EXPORT void ZBLogNYICounter(const char *function, uint32_t line) ZB_NOEXCEPT;

/** Sends all later lines to the file at `path` (created or truncated). On
   failure logs an Error and keeps the current output. */
ZB_EXPORT void ZBLogSetFile(const char *path) ZB_NOEXCEPT;
/** Stores the pointer; a second call is Fatal. */
ZB_EXPORT void ZBLogSetQVAnalyticsLogCounterPtr(void *pointer) ZB_NOEXCEPT;
/** Copies the ring of recent lines, oldest first. Returns the bytes copied,
   or minus the ring's capacity when `capacity` is smaller than it. */
ZB_EXPORT int32_t ZBLogBufferCopyBytes(void *destination, uint32_t capacity) ZB_NOEXCEPT;
struct ZBCircularBuffer;
/** @return The ring of recent lines itself, for the library's own diagnostics;
   reading it races with writers. */
ZB_EXPORT struct ZBCircularBuffer *ZBLogGetLogBufferThreadUnsafeDoNotUse(void) ZB_NOEXCEPT;
/** Kept for compatibility; the debugger output has no colours, so it does
   nothing. */
ZB_EXPORT void ZBLogSetBackgroundColor(uint32_t color) ZB_NOEXCEPT;
/** Reloads the rules and re-determines every determined site. */
ZB_EXPORT void ZBLogEnvironmentReset(void) ZB_NOEXCEPT;

/** Crash-report hooks. */
typedef void (*ZBBugReportCallback)(void *context);
/** Calls the crash-dump handler installed with ZBCrashDumpSetHandler
   (ZBCrashReport.h) if there is one; without one it logs a Fatal
   "NOT YET IMPLEMENTED" line and ends the process.
   @return The handler's result. */
ZB_EXPORT int32_t ZBCrashDumpFixImmediately(void) ZB_NOEXCEPT;
/** Installs the callback that ZBCRTriggerBugReport calls; null removes it. */
ZB_EXPORT void ZBCRSetTriggerBugReportCallback(ZBBugReportCallback callback) ZB_NOEXCEPT;
/** Calls the installed bug-report callback with `context`, if there is one. */
ZB_EXPORT void ZBCRTriggerBugReport(void *context) ZB_NOEXCEPT;

/** Named sites for application code. */
ZB_EXPORT extern ZBLogSite ZBLogLabelSiteCommandQueue;
/** A named site for application code, matched by its label. */
ZB_EXPORT extern ZBLogSite ZBLogLabelSiteKeyboard;
/** A named site for application code, matched by its label. */
ZB_EXPORT extern ZBLogSite ZBLogLabelSiteRigid;
/** A named site for application code, matched by its label. */
ZB_EXPORT extern ZBLogSite ZBLogLabelSiteShadow;
/** A named site for application code, matched by its label. */
ZB_EXPORT extern ZBLogSite ZBLogLabelSiteUWPAlert;
/** A named site for application code, matched by its label. */
ZB_EXPORT extern ZBLogSite ZBLogLabelSiteUWPAlertGeometry;
/** A named site for application code, matched by its label. */
ZB_EXPORT extern ZBLogSite ZBLogLabelSiteUWPAlertStateMachine;
/** A named site for application code, matched by its label. */
ZB_EXPORT extern ZBLogSite ZBLogLabelSiteZBLogTestLabel;

/** The site's cached level, read without the lock: a stale 0 only leads to
   the locked determination, which checks again. */
#if defined(__GNUC__) || defined(__clang__)
#  define ZB_LOG_SITE_LEVEL(site) __atomic_load_n(&(site)->level, __ATOMIC_RELAXED)
#else
#  define ZB_LOG_SITE_LEVEL(site) ((site)->level)
#endif

/** True when `site` logs messages of `lvl`; determines the site on first use. */
#define ZB_LOG_SITE_ENABLED(site, lvl, file, function, line)                                 \
  (ZB_LOG_SITE_LEVEL(site) != 0 ? ZB_LOG_SITE_LEVEL(site) >= (lvl)                          \
                                : ZBLogDetermineLogLevel((lvl), (site), (file), (function), \
                                                         (line)))

/** Logs from an explicit site with a fixed function, file and line. */
#define ZB_LOG_FROM(site, lvl, function, file, line, ...)                              \
  do {                                                                                 \
    if (ZB_LOG_SITE_ENABLED((site), (lvl), (file), (function), (line)))                \
      ZBLogS((lvl), (site), (function), (file), (line), __VA_ARGS__);                  \
  } while (0)

/** Logs from a site of its own with a fixed function, file and line. */
#define ZB_LOG_AT(lvl, function, file, line, ...)                                      \
  do {                                                                                 \
    static ZBLogSite zbLogSite_;                                                       \
    ZB_LOG_FROM(&zbLogSite_, (lvl), (function), (file), (line), __VA_ARGS__);          \
  } while (0)

/** Logs from a site of its own at the calling place. */
#define ZB_LOG(lvl, ...) ZB_LOG_AT((lvl), __func__, __FILE__, __LINE__, __VA_ARGS__)
/** Logs an Error line from a site of its own at the calling place. */
#define ZB_LOG_ERROR(...) ZB_LOG(ZBLogLevelError, __VA_ARGS__)
/** Logs a Warning line from a site of its own at the calling place. */
#define ZB_LOG_WARNING(...) ZB_LOG(ZBLogLevelWarning, __VA_ARGS__)
/** Logs an Info line from a site of its own at the calling place. */
#define ZB_LOG_INFO(...) ZB_LOG(ZBLogLevelInfo, __VA_ARGS__)
/** Logs a Debug line from a site of its own at the calling place. */
#define ZB_LOG_DEBUG(...) ZB_LOG(ZBLogLevelDebug, __VA_ARGS__)
/** Logs a Verbose line from a site of its own at the calling place. */
#define ZB_LOG_VERBOSE(...) ZB_LOG(ZBLogLevelVerbose, __VA_ARGS__)

/** A Fatal message; the process ends whether or not the site writes it. */
#define ZB_LOG_FATAL_AT(function, file, line, ...)                                     \
  do {                                                                                 \
    ZB_LOG_AT(ZBLogLevelFatal, (function), (file), (line), __VA_ARGS__);               \
    ZBAbortWithBacktrace();                                                            \
  } while (0)
/** Logs a Fatal line at the calling place and ends the process. */
#define ZB_LOG_FATAL(...) ZB_LOG_FATAL_AT(__func__, __FILE__, __LINE__, __VA_ARGS__)

/** States that must never occur. */
#define ZB_BUG() ZB_LOG_FATAL("BUG")

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBLOG_H */
