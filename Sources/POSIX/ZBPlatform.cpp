// POSIX implementations of the services platform-neutral code needs, for the
// native build that runs sanitizers and fuzzers.
#include "ZBPlatform.h"

#include "ZBThread.h"

#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

extern char **environ;

namespace zb::platform {

uint32_t processID() noexcept { return static_cast<uint32_t>(getpid()); }

uint32_t currentThreadID() noexcept { return ZBThreadGetCurrentThreadID(); }

const char *currentThreadName() noexcept {
  const char *name = ZBThreadGetName(0);
  return name != nullptr ? name : "";
}

int64_t unixTimeNanoseconds() noexcept {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

bool localTime(int64_t unixSeconds, std::tm *out) noexcept {
  const time_t seconds = static_cast<time_t>(unixSeconds);
  return localtime_r(&seconds, out) != nullptr;
}

// There is no debugger channel here; standard error is the nearest thing.
void debugOutput(const char *line) noexcept { std::fputs(line, stderr); }

void *openLogFile(const char *path) noexcept {
  const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_SYNC | O_CLOEXEC, 0644);
  // Descriptors are stored as fd + 1 so that 0 stays "no file".
  return fd < 0 ? nullptr : reinterpret_cast<void *>(static_cast<intptr_t>(fd) + 1);
}

std::FILE *openStream(const char *path, const char *mode) noexcept {
  return path != nullptr ? std::fopen(path, mode) : nullptr;
}

void writeLogFile(void *file, const char *bytes, size_t length) noexcept {
  const int fd = static_cast<int>(reinterpret_cast<intptr_t>(file) - 1);
  while (length > 0) {
    const ssize_t written = write(fd, bytes, length);
    if (written <= 0)
      return;
    bytes += written;
    length -= static_cast<size_t>(written);
  }
  fsync(fd);
}

// glibc's backtrace() needs nothing made ahead of time.
void prepareBacktraces() noexcept {}

void printBacktrace() noexcept {
  void *frames[64];
  const int count = backtrace(frames, 64);
  std::fprintf(stderr, "Backtrace of thread %u:\n", currentThreadID());
  backtrace_symbols_fd(frames, count, STDERR_FILENO);
}

void abortProcess() noexcept { std::abort(); }

void enumerateEnvironment(void (*visit)(const char *entry, void *context), void *context) noexcept {
  for (char **entry = environ; entry != nullptr && *entry != nullptr; ++entry)
    visit(*entry, context);
}

} // namespace zb::platform
