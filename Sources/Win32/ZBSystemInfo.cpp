// The machine's figures, read once at load: processors across all groups
// (one group's count stops at 64), cores and packages, page sizes, memory,
// the true version of the system (RtlGetVersion; GetVersionEx answers what
// the executable's manifest claims), and whether Wine runs the process.
#include "ZBSystem.h"

#include "ZBProcessPrivate.h"
#include "ZBWinAPI.h"

#include <windows.h>

#include <cstring>
#include <vector>

namespace {

ZBSystemInfo sInfo;
bool sEmulated;

uint32_t availableProcessors() {
  USHORT groups[64];
  USHORT groupCount = 64;
  if (GetProcessGroupAffinity(GetCurrentProcess(), &groupCount, groups) && groupCount > 1) {
    uint32_t count = 0;
    for (USHORT i = 0; i < groupCount; ++i)
      count += GetActiveProcessorCount(groups[i]);
    return count;
  }
  DWORD_PTR process = 0, system = 0;
  if (!GetProcessAffinityMask(GetCurrentProcess(), &process, &system))
    return GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
  return static_cast<uint32_t>(__builtin_popcountll(process));
}

void countCoresAndPackages(ZBSystemInfo &info) {
  DWORD size = 0;
  GetLogicalProcessorInformationEx(RelationAll, nullptr, &size);
  std::vector<char> buffer(size);
  if (size == 0 ||
      !GetLogicalProcessorInformationEx(
          RelationAll, reinterpret_cast<SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX *>(buffer.data()),
          &size))
    return;
  for (DWORD offset = 0; offset < size;) {
    const auto *entry =
        reinterpret_cast<const SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX *>(buffer.data() + offset);
    if (entry->Relationship == RelationProcessorCore)
      ++info.coreCount;
    else if (entry->Relationship == RelationProcessorPackage)
      ++info.packageCount;
    offset += entry->Size;
  }
}

const char *architectureName(WORD architecture) {
  switch (architecture) {
  case PROCESSOR_ARCHITECTURE_AMD64: return "x86_64";
  case PROCESSOR_ARCHITECTURE_ARM64: return "arm64";
  case PROCESSOR_ARCHITECTURE_INTEL: return "x86";
  case PROCESSOR_ARCHITECTURE_ARM: return "arm";
  default: return "unknown";
  }
}

void readVersion(HMODULE ntdll, ZBSystemInfo &info) {
  using RtlGetVersionFunction = LONG(WINAPI *)(OSVERSIONINFOW *);
  const auto rtlGetVersion = reinterpret_cast<RtlGetVersionFunction>(
      reinterpret_cast<void *>(GetProcAddress(ntdll, "RtlGetVersion")));
  OSVERSIONINFOW version = {};
  version.dwOSVersionInfoSize = sizeof version;
  if (rtlGetVersion == nullptr || rtlGetVersion(&version) != 0)
    return;
  info.osMajorVersion = version.dwMajorVersion;
  info.osMinorVersion = version.dwMinorVersion;
  info.osBuildNumber = version.dwBuildNumber;
}

} // namespace

void _ZBSystemStartup() noexcept {
  try {
    ZBSystemInfo info = {};
    info.logicalProcessorCount = GetActiveProcessorCount(ALL_PROCESSOR_GROUPS);
    info.availableProcessorCount = availableProcessors();
    countCoresAndPackages(info);
    SYSTEM_INFO system;
    GetNativeSystemInfo(&system);
    info.pageSize = system.dwPageSize;
    info.allocationGranularity = system.dwAllocationGranularity;
    std::strcpy(info.architecture, architectureName(system.wProcessorArchitecture));
    MEMORYSTATUSEX memory = {};
    memory.dwLength = sizeof memory;
    if (GlobalMemoryStatusEx(&memory))
      info.physicalMemoryBytes = memory.ullTotalPhys;
    if (const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll"))
      readVersion(ntdll, info);
    sEmulated = zb::winapi::runningUnderWine();
    sInfo = info;
  } catch (...) {
    // Out of memory at load: the core and package counts stay 0.
  }
}

extern "C" ZBError ZBSystemGetInfo(ZBSystemInfo *out) noexcept {
  if (out == nullptr)
    return ZBErrorInvalidArgument;
  *out = sInfo;
  MEMORYSTATUSEX memory = {};
  memory.dwLength = sizeof memory;
  out->availableMemoryBytes = GlobalMemoryStatusEx(&memory) ? memory.ullAvailPhys : 0;
  return ZBErrorNone;
}

extern "C" bool ZBSystemIsEmulated(void) noexcept { return sEmulated; }
