// The log: site determination, line composition, the ring of recent lines,
// the sinks, and the end of the process on Fatal messages.
//
// One process-wide lock guards the configuration, the list of determined
// sites, every site's first determination, the ring and each sink's write.
// It is never held while a message is formatted.
#include "ZBLog.h"

#include "qprintf.h"
#include "ZBAlloc.h"
#include "ZBBaseAllocator.h"
#include "ZBBuffer.h"
#include "ZBCrashReport.h"
#include "ZBEnvironment.h"
#include "ZBLock.h"
#include "ZBLogConfiguration.h"
#include "ZBLogPrivate.h"
#include "ZBPathSplit.h"
#include "ZBPlatform.h"
#include "ZBPrint.h"
#include "ZBScopedLock.h"
#include "ZBString.h"
#include "ZBTracePrivate.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <pthread.h>

namespace {

constexpr uint32_t kRingCapacity = 32768;
constexpr uint32_t kSiteFlagsMask = ~ZBLogSiteLineMask;

pthread_mutex_t sLogLock = PTHREAD_MUTEX_INITIALIZER;
ZBLogConfiguration sConfiguration = {
    "ZBLOG_LEVEL", "ZBLOG_CONFIG", "ZBLOG_CONFIG_FILE", 0, nullptr, {}, ZBLogLevelInfo};
ZBLogSite *sDeterminedSites; // newest first
ZBCircularBuffer *sRing;
void *sLogFile;

ZBMutex *sAnalyticsLock; // created at start-up
void *sAnalyticsCounter;
ZBBugReportCallback sBugReportCallback;
std::atomic<ZBCrashDumpHandler> sCrashDumpHandler{nullptr};

void debuggerSink(int32_t, const char *line) {
  zb::ScopedLock lock(&sLogLock);
  zb::platform::debugOutput(line);
}

void fileSink(int32_t, const char *line) {
  zb::ScopedLock lock(&sLogLock);
  zb::platform::writeLogFile(sLogFile, line, std::strlen(line));
}

void (*sSink)(int32_t level, const char *line) = debuggerSink;

const char *levelName(int32_t level) {
  static constexpr const char *kNames[] = {"FATAL", "ERROR", "WARNING", "INFO", "DEBUG", "VERBOSE"};
  if (level < ZBLogLevelFatal || level > ZBLogLevelVerbose)
    return "UNKNOWN";
  return kNames[level - ZBLogLevelFatal];
}

// The file's base name as ZBPathCopyBaseName gives it, found without
// allocating so that lines are written when memory is short. A name the
// splitter refuses (1025 bytes or more) shows as that function's null result
// prints. errno is kept: writing a line never changes it.
struct BaseName {
  const char *text;
  int length;
};

BaseName baseNameOf(const char *file) {
  if (file == nullptr)
    return {"", 0};
  const int savedErrno = errno;
  zb::path::LastComponent split;
  const bool splits = zb::path::splitLastComponent(file, &split);
  errno = savedErrno;
  if (!splits)
    return {ZBPrintGetNullString(), static_cast<int>(std::strlen(ZBPrintGetNullString()))};
  return {file + split.baseStart, static_cast<int>(split.baseLength)};
}

// The short record's file name: trailing separators dropped, then what
// follows the last one, at most 127 characters. Unlike the line's base name
// it has no length limit to refuse.
BaseName shortRecordBaseNameOf(const char *file) {
  const char *text = file ? file : "";
  size_t end = std::strlen(text);
  while (end > 0 && (text[end - 1] == '/' || text[end - 1] == '\\'))
    --end;
  size_t start = end;
  while (start > 0 && text[start - 1] != '/' && text[start - 1] != '\\')
    --start;
  return {text + start, static_cast<int>(std::min<size_t>(end - start, 127))};
}

// The caller's thread name; "" until the thread is named.
const char *currentThreadName() { return zb::platform::currentThreadName(); }

// One text built for a line: in place when it fits, else in a block from
// the base allocator. Logging never allocates through _ZBAlloc: that
// allocator's failure policy logs, which would come back here. When memory
// runs out the text stays empty.
class LineText {
public:
  LineText() { mInline[0] = '\0'; }
  ~LineText() { gZBBaseAllocator.free(mHeap); }
  LineText(const LineText &) = delete;
  LineText &operator=(const LineText &) = delete;

  const char *text() const { return mHeap ? mHeap : mInline; }

  void format(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    formatList(format, arguments);
    va_end(arguments);
  }

  void formatList(const char *format, va_list arguments) {
    va_list measuring;
    va_copy(measuring, arguments);
    const int length = vqsnprintf(mInline, sizeof mInline, format, measuring);
    va_end(measuring);
    if (length < 0) {
      mInline[0] = '\0';
      return;
    }
    if (size_t(length) < sizeof mInline)
      return;
    mHeap = static_cast<char *>(gZBBaseAllocator.malloc(size_t(length) + 1));
    if (mHeap == nullptr) {
      mInline[0] = '\0';
      return;
    }
    vqsnprintf(mHeap, length + 1, format, arguments);
  }

private:
  char mInline[512]; // not cleared: only the formatted bytes are read
  char *mHeap = nullptr;
};

// The time stamp's "YYYY-MM-DD HH:MM:SS" for `seconds` since 1970. The
// local-time conversion reads the zone's rules and costs more than the rest
// of a line, so each thread keeps the text of the last second it converted.
const char *calendarText(int64_t seconds) {
  thread_local int64_t tSecond = INT64_MIN;
  thread_local char tCalendar[32];
  if (seconds != tSecond) {
    tCalendar[0] = '\0';
    std::tm local{};
    if (zb::platform::localTime(seconds, &local))
      std::strftime(tCalendar, sizeof tCalendar, "%Y-%m-%d %H:%M:%S", &local);
    tSecond = seconds;
  }
  return tCalendar;
}

// "[2026-01-02 03:04:05.678][file:line] (pid/tid) name: function: LEVEL: message\r\n"
void decorateLine(LineText &out, int32_t level, const char *function, const char *file,
                  uint32_t line, const char *message) {
  const int64_t now = zb::platform::unixTimeNanoseconds();
  const int64_t seconds = now / 1000000000;
  const unsigned milliseconds = static_cast<unsigned>((now % 1000000000) / 1000000);
  // The empty prefix and suffix are where a background colour would go.
  const BaseName base = baseNameOf(file);
  out.format("%s[%s.%03u][%.*s:%u] (%u/%u) %s: %s: %s: %s%s\r\n", "", calendarText(seconds),
             milliseconds, base.length, base.text, line,
             static_cast<unsigned>(zb::platform::processID()),
             static_cast<unsigned>(zb::platform::currentThreadID()), currentThreadName(),
             function ? function : "", levelName(level), message, "");
}

// While a session records, lines at or above the tracer's level (Error and
// Warning unless ZB_TRACE_LEVEL says otherwise), and every line of a
// Trace-flagged site, go to the trace as their short record.
bool goesToTrace(int32_t level, uint32_t flags) {
  if (!zb::trace::recording())
    return false;
  if (flags & ZBLogSiteFlagTrace)
    return true;
  return level >= ZBLogLevelFatal && level <= zb::trace::gLogLevel.load(std::memory_order_relaxed);
}

// "[file:line] function: LEVEL message", each part cut to its limit.
void traceLine(int32_t level, const char *function, const char *file, uint32_t line,
               const char *format, va_list arguments) {
  char message[250];
  vqsnprintf(message, sizeof message, format, arguments);
  LineText record;
  const BaseName base = shortRecordBaseNameOf(file);
  record.format("[%.*s:%u] %.250s: %s %s", base.length, base.text, line,
                function ? function : "", levelName(level), message);
  zb::trace::recordLogLine(record.text());
}

void writeLine(int32_t level, uint32_t flags, const char *function, const char *file,
               uint32_t line, const char *format, va_list arguments) {
  if (goesToTrace(level, flags)) {
    va_list tracing;
    va_copy(tracing, arguments);
    traceLine(level, function, file, line, format, tracing);
    va_end(tracing);
  }
  if ((flags & ZBLogSiteFlagTrace) == 0) {
    LineText message;
    message.formatList(format, arguments);
    LineText decorated;
    if (level != ZBLogLevelRaw)
      decorateLine(decorated, level, function, file, line, message.text());
    const char *output = level == ZBLogLevelRaw ? message.text() : decorated.text();
    {
      zb::ScopedLock lock(&sLogLock);
      if (sRing != nullptr)
        ZBCircularBufferEnqueue(sRing, output, static_cast<uint32_t>(std::strlen(output)));
    }
    sSink(level, output);
  }
  if (flags & ZBLogSiteFlagBacktrace)
    zb::platform::printBacktrace();
  if (level == ZBLogLevelFatal && (flags & ZBLogSiteFlagNoAbort) == 0)
    ZBAbortWithBacktrace();
}

// Matches the site against the rules and stores level and flags; the line
// bits are kept. Called with the lock held.
void determineSite(ZBLogSite *site) {
  uint32_t flags = 0;
  const int32_t level = zb::log::matchSite(sConfiguration, site->file, site->function,
                                           site->lineWord & ZBLogSiteLineMask, &flags);
  site->lineWord = (site->lineWord & ZBLogSiteLineMask) | (flags & kSiteFlagsMask);
  __atomic_store_n(&site->level, level, __ATOMIC_RELEASE);
}

// Loads the configuration when none is loaded. The environment is read
// with the log lock released (see readConfigurationSources), and only then:
// once a configuration is loaded, a site's first determination needs only
// the lock. A configuration that comes out empty stays unloaded, and sites
// then take the default level, as they would from it.
void ensureConfigurationLoaded() {
  {
    zb::ScopedLock lock(&sLogLock);
    if (zb::log::isLoaded(sConfiguration))
      return;
  }
  const zb::log::ZBLogConfigurationSources sources =
      zb::log::readConfigurationSources(sConfiguration);
  zb::ScopedLock lock(&sLogLock);
  if (!zb::log::isLoaded(sConfiguration))
    zb::log::loadConfiguration(sConfiguration, sources);
}

} // namespace

void _ZBLogStartup() noexcept {
  // A copy: the environment's value may change under us.
  const char *logFile = ZBEnvironmentGetEnv("ZBLOG_TO_FILE");
  char *path = logFile ? _ZBCStringDuplicate(logFile) : nullptr;
  sRing = ZBCircularBufferCreate(kRingCapacity);
  sSink = debuggerSink;
  if (path != nullptr)
    ZBLogSetFile(path);
  _ZBFree(path);
  sAnalyticsLock = ZBMutexCreateNR();
}

extern "C" bool ZBLogDetermineLogLevel(int32_t level, ZBLogSite *site, const char *file,
                                       const char *function, uint32_t line) noexcept {
  if (site->level == ZBLogSiteLevelFixedWarning) {
    site->level = ZBLogLevelWarning;
    return ZBLogLevelWarning >= level;
  }
  ensureConfigurationLoaded();
  zb::ScopedLock lock(&sLogLock);
  if (site->level == 0) {
    site->file = file;
    site->function = function;
    site->lineWord = (site->lineWord & kSiteFlagsMask) | (line & ZBLogSiteLineMask);
    determineSite(site);
    site->next = sDeterminedSites;
    sDeterminedSites = site;
  }
  return site->level >= level;
}

extern "C" int32_t _ZBLogDetermineLogLevelForDynamicSite(const ZBLogSite *site,
                                                         uint32_t *outFlags) noexcept {
  uint32_t flags = 0;
  const int32_t level = zb::log::matchSite(sConfiguration, site->file, site->function,
                                           site->lineWord & ZBLogSiteLineMask, &flags);
  if (outFlags != nullptr)
    *outFlags = flags;
  return level;
}

extern "C" void ZBLogS(int32_t level, ZBLogSite *site, const char *function, const char *file,
                       uint32_t line, const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  writeLine(level, site ? site->lineWord & kSiteFlagsMask : 0, function, file, line, format,
            arguments);
  va_end(arguments);
}

extern "C" void ZBLogSUnsafe(int32_t level, ZBLogSite *site, const char *function, const char *file,
                             uint32_t line, const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  writeLine(level, site ? site->lineWord & kSiteFlagsMask : 0, function, file, line, format,
            arguments);
  va_end(arguments);
}

extern "C" void ZBLogX(int32_t level, const char *function, const char *file, uint32_t line,
                       const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  writeLine(level, 0, function, file, line, format, arguments);
  va_end(arguments);
}

extern "C" void ZBLogXUnsafe(int32_t level, const char *function, const char *file, uint32_t line,
                             const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  writeLine(level, 0, function, file, line, format, arguments);
  va_end(arguments);
}

extern "C" void ZBLogv(int32_t level, const char *function, const char *file, uint32_t line,
                       const char *format, va_list arguments) noexcept {
  writeLine(level, 0, function, file, line, format, arguments);
}

extern "C" void ZBLogFatalAssertion(const char *function, const char *file, uint32_t line,
                                    const char *, const char *message) noexcept {
  const bool hasMessage = message != nullptr && message[0] != '\0';
  ZBLogX(ZBLogLevelFatal, function, file, line, "Assertion failed%s%s", hasMessage ? ": " : "",
         hasMessage ? message : "");
  ZBAbortWithBacktrace();
}

void _ZBLogWriteToSink(const char *text) noexcept { sSink(ZBLogLevelRaw, text); }

extern "C" void ZBAbort(void) noexcept { zb::platform::abortProcess(); }

extern "C" void ZBAbortWithBacktrace(void) noexcept {
  zb::platform::printBacktrace();
  ZBAbort();
}

extern "C" void ZBLogNYICounter(const char *, uint32_t) noexcept {}

extern "C" void ZBLogSetFile(const char *path) noexcept {
  void *file = path ? zb::platform::openLogFile(path) : nullptr;
  if (file == nullptr) {
    ZB_LOG_AT(ZBLogLevelError, "ZBLogSetFile", "", 1237, "Could not open for writing: `%s`",
              path ? path : "");
    return;
  }
  zb::ScopedLock lock(&sLogLock);
  // An earlier log file stays open: lines may still be on their way to it.
  sLogFile = file;
  sSink = fileSink;
}

extern "C" void ZBLogSetQVAnalyticsLogCounterPtr(void *pointer) noexcept {
  ZBMutexAcquire(sAnalyticsLock);
  const bool alreadySet = sAnalyticsCounter != nullptr;
  if (!alreadySet)
    sAnalyticsCounter = pointer;
  ZBMutexRelease(sAnalyticsLock);
  if (alreadySet)
    ZB_LOG_FATAL_AT("ZBLogSetQVAnalyticsLogCounterPtr", __FILE__, 1264,
                    "sZBLogQVAnalyticsLogCounterPtr should only be set once!");
}

extern "C" int32_t ZBLogBufferCopyBytes(void *destination, uint32_t capacity) noexcept {
  zb::ScopedLock lock(&sLogLock);
  if (sRing == nullptr || destination == nullptr)
    return 0;
  return ZBCircularBufferCopyBytes(sRing, destination, capacity);
}

extern "C" ZBCircularBuffer *ZBLogGetLogBufferThreadUnsafeDoNotUse(void) noexcept { return sRing; }

extern "C" void ZBLogSetBackgroundColor(uint32_t) noexcept { zb::ScopedLock lock(&sLogLock); }

extern "C" void ZBLogEnvironmentReset(void) noexcept {
  const zb::log::ZBLogConfigurationSources sources =
      zb::log::readConfigurationSources(sConfiguration);
  zb::ScopedLock lock(&sLogLock);
  zb::log::clearConfiguration(sConfiguration);
  zb::log::loadConfiguration(sConfiguration, sources);
  for (ZBLogSite *site = sDeterminedSites; site != nullptr; site = site->next)
    determineSite(site);
}

extern "C" void ZBCrashDumpSetHandler(ZBCrashDumpHandler handler) noexcept {
  sCrashDumpHandler.store(handler);
}

extern "C" int32_t ZBCrashDumpFixImmediately(void) noexcept {
  if (const ZBCrashDumpHandler handler = sCrashDumpHandler.load())
    return handler();
  ZB_LOG_FATAL_AT("ZBCrashDumpFixImmediately", __FILE__, 1388, "NOT YET IMPLEMENTED");
}

extern "C" void ZBCRSetTriggerBugReportCallback(ZBBugReportCallback callback) noexcept {
  sBugReportCallback = callback;
}

extern "C" void ZBCRTriggerBugReport(void *context) noexcept {
  if (sBugReportCallback != nullptr)
    sBugReportCallback(context);
}

extern "C" {
ZBLogSite ZBLogLabelSiteCommandQueue;
ZBLogSite ZBLogLabelSiteKeyboard;
ZBLogSite ZBLogLabelSiteRigid;
ZBLogSite ZBLogLabelSiteShadow;
ZBLogSite ZBLogLabelSiteUWPAlert;
ZBLogSite ZBLogLabelSiteUWPAlertGeometry;
ZBLogSite ZBLogLabelSiteUWPAlertStateMachine;
ZBLogSite ZBLogLabelSiteZBLogTestLabel;
}
