// The processor's brand and each logical processor's times. The times come
// from ntdll (looked up, not imported), which reports idle time inside
// kernel time; it is taken out so kernel time means what it does on POSIX.
#include "ZBSystem.h"

#include "ZBAlloc.h"

#include <windows.h>
#include <winternl.h>

#if defined(__x86_64__) || defined(__i386__)
#  include <cpuid.h>
#endif

#include <cstring>
#include <vector>

namespace {

struct ProcessorTimes { // SYSTEM_PROCESSOR_PERFORMANCE_INFORMATION
  LARGE_INTEGER idle, kernel, user, dpc, interrupt;
  ULONG interruptCount;
};

constexpr int kProcessorPerformanceClass = 8;
constexpr int64_t kNanosecondsPerTick = 100;

using QuerySystemInformation = NTSTATUS(NTAPI *)(int, PVOID, ULONG, PULONG);

QuerySystemInformation querySystemInformation() {
  static const auto query = reinterpret_cast<QuerySystemInformation>(reinterpret_cast<void *>(
      GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQuerySystemInformation")));
  return query;
}

} // namespace

extern "C" char *ZBSystemCopyCPUBrand(void) noexcept {
  char brand[49] = {};
#if defined(__x86_64__) || defined(__i386__)
  unsigned registers[12];
  if (__get_cpuid_max(0x80000000u, nullptr) < 0x80000004u)
    return nullptr;
  for (unsigned leaf = 0; leaf < 3; ++leaf)
    __get_cpuid(0x80000002u + leaf, &registers[leaf * 4], &registers[leaf * 4 + 1],
                &registers[leaf * 4 + 2], &registers[leaf * 4 + 3]);
  std::memcpy(brand, registers, 48);
#else
  // Other processors name themselves in the registry.
  DWORD size = sizeof brand - 1;
  if (RegGetValueA(HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0",
                   "ProcessorNameString", RRF_RT_REG_SZ, nullptr, brand, &size) != ERROR_SUCCESS)
    return nullptr;
#endif
  const char *start = brand;
  while (*start == ' ')
    ++start;
  size_t length = std::strlen(start);
  while (length > 0 && start[length - 1] == ' ')
    --length;
  if (length == 0)
    return nullptr;
  auto *copy = static_cast<char *>(_ZBAlloc(length + 1));
  if (copy != nullptr) {
    std::memcpy(copy, start, length);
    copy[length] = '\0';
  }
  return copy;
}

extern "C" ZBError ZBSystemGetCPUTimes(ZBSystemCPUTimes *out, uint32_t capacity,
                                       uint32_t *outCount) noexcept {
  if (outCount == nullptr || (out == nullptr && capacity != 0))
    return ZBErrorInvalidArgument;
  const QuerySystemInformation query = querySystemInformation();
  if (query == nullptr)
    return ZBErrorGeneric;
  try {
    std::vector<ProcessorTimes> times(GetActiveProcessorCount(ALL_PROCESSOR_GROUPS));
    ULONG bytes = 0;
    if (query(kProcessorPerformanceClass, times.data(),
              static_cast<ULONG>(times.size() * sizeof(ProcessorTimes)), &bytes) < 0)
      return ZBErrorGeneric;
    const auto count = static_cast<uint32_t>(bytes / sizeof(ProcessorTimes));
    *outCount = count;
    if (capacity < count)
      return ZBErrorBufferTooSmall;
    for (uint32_t i = 0; i < count; ++i) {
      out[i].userNanoseconds = times[i].user.QuadPart * kNanosecondsPerTick;
      out[i].idleNanoseconds = times[i].idle.QuadPart * kNanosecondsPerTick;
      out[i].kernelNanoseconds =
          (times[i].kernel.QuadPart - times[i].idle.QuadPart) * kNanosecondsPerTick;
    }
    return ZBErrorNone;
  } catch (...) {
    return ZBErrorNoMemory;
  }
}
