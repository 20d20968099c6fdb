// The few operating-system services that platform-neutral code needs,
// implemented once per platform (Sources/Win32, Sources/POSIX). Anything a
// public ZB function already offers is called through that function instead.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace zb::platform {

uint32_t processID() noexcept;
// The system's ID of the calling thread.
uint32_t currentThreadID() noexcept;
// The calling thread's name for log lines; "" when it has none.
const char *currentThreadName() noexcept;
// The wall-clock time in nanoseconds since 1970-01-01 UTC.
int64_t unixTimeNanoseconds() noexcept;
// Breaks seconds since 1970 into local calendar time; false on failure.
bool localTime(int64_t unixSeconds, std::tm *out) noexcept;

// Hands one finished log line to the debugger output.
void debugOutput(const char *line) noexcept;

// The log file: created or truncated, shared for reading, writing and
// deletion, written through. Null when it cannot be opened.
void *openLogFile(const char *path) noexcept;
// Writes the bytes and flushes them to the file.
void writeLogFile(void *file, const char *bytes, size_t length) noexcept;

// A C stream over the file at a UTF-8 path ("/C:/x" taken as "C:/x"), opened
// with `mode` as fopen takes it; on Windows through the wide open, so names
// outside the ANSI code page open too. Null when it cannot be opened. Logs
// nothing: the log opens its configuration file here while it holds its lock.
std::FILE *openStream(const char *path, const char *mode) noexcept;

// The backtrace service's start-up step: whatever later captures need and
// must not acquire while other threads are stopped (on Windows, the table of
// the modules' unwind data and the loader's notifications that keep it).
void prepareBacktraces() noexcept;
// Prints the calling thread's stack to standard error.
void printBacktrace() noexcept;
// Ends the process at once: the platform's abnormal end, then _exit(1).
[[noreturn]] void abortProcess() noexcept;

// Calls `visit` with each name=value string of the process environment
// (UTF-8, hidden drive entries skipped).
void enumerateEnvironment(void (*visit)(const char *entry, void *context), void *context) noexcept;

} // namespace zb::platform
