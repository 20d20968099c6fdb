// The process-wide figures the tracer samples into a recording session
// beside the performance counters, implemented once per platform.
#pragma once

#include <cstdint>

namespace zb::platform {

struct ProcessStatistics {
  int64_t cpuNanoseconds; // user and kernel time of every thread so far
  int64_t residentBytes;  // the working set
  int64_t threadCount;
};

// False when the system cannot tell; the figures are then not to be used.
bool processStatistics(ProcessStatistics *out) noexcept;

} // namespace zb::platform
