// The process's CPU time, working set and thread count on Windows, for the
// tracer's samples.
#include "ZBProcessStatistics.h"

#include <windows.h>
#include <psapi.h>
#include <tlhelp32.h>

namespace zb::platform {

namespace {

int64_t nanoseconds(const FILETIME &time) {
  return static_cast<int64_t>((uint64_t(time.dwHighDateTime) << 32 | time.dwLowDateTime) * 100);
}

// The system's thread list holds every process's threads: ours are counted.
int64_t countThreads() {
  const HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  if (snapshot == INVALID_HANDLE_VALUE)
    return -1;
  const DWORD process = GetCurrentProcessId();
  THREADENTRY32 entry{};
  entry.dwSize = sizeof entry;
  int64_t count = 0;
  for (BOOL more = Thread32First(snapshot, &entry); more; more = Thread32Next(snapshot, &entry))
    count += entry.th32OwnerProcessID == process;
  CloseHandle(snapshot);
  return count;
}

} // namespace

bool processStatistics(ProcessStatistics *out) noexcept {
  FILETIME creation, exit, kernel, user;
  PROCESS_MEMORY_COUNTERS memory{};
  if (!GetProcessTimes(GetCurrentProcess(), &creation, &exit, &kernel, &user) ||
      !K32GetProcessMemoryInfo(GetCurrentProcess(), &memory, sizeof memory))
    return false;
  out->cpuNanoseconds = nanoseconds(kernel) + nanoseconds(user);
  out->residentBytes = static_cast<int64_t>(memory.WorkingSetSize);
  out->threadCount = countThreads();
  return out->threadCount >= 0;
}

} // namespace zb::platform
