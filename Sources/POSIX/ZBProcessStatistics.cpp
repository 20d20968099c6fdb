// The process's CPU time, resident memory and thread count on POSIX
// systems (Linux's /proc), for the tracer's samples.
#include "ZBProcessStatistics.h"

#include <cstdio>
#include <sys/resource.h>
#include <unistd.h>

namespace zb::platform {

bool processStatistics(ProcessStatistics *out) noexcept {
  rusage usage{};
  if (getrusage(RUSAGE_SELF, &usage) != 0)
    return false;
  out->cpuNanoseconds = (int64_t(usage.ru_utime.tv_sec) + usage.ru_stime.tv_sec) * 1000000000 +
                        (int64_t(usage.ru_utime.tv_usec) + usage.ru_stime.tv_usec) * 1000;
  std::FILE *status = std::fopen("/proc/self/status", "r");
  if (status == nullptr)
    return false;
  char line[256];
  long value = 0;
  out->residentBytes = out->threadCount = -1;
  while (std::fgets(line, sizeof line, status)) {
    if (std::sscanf(line, "VmRSS: %ld kB", &value) == 1)
      out->residentBytes = int64_t(value) * 1024;
    if (std::sscanf(line, "Threads: %ld", &value) == 1)
      out->threadCount = value;
  }
  std::fclose(status);
  return out->residentBytes >= 0 && out->threadCount >= 0;
}

} // namespace zb::platform
