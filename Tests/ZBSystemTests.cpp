// The machine's figures against the system's own answers.
#include "ZBSystem.h"

#include "ZBAlloc.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <string>
#include <vector>

TEST(ZBSystem, InfoMatchesTheSystemsOwnFigures) {
  ZBSystemInfo info = {};
  ASSERT_EQ(ZBErrorNone, ZBSystemGetInfo(&info));
  EXPECT_EQ(GetActiveProcessorCount(ALL_PROCESSOR_GROUPS), info.logicalProcessorCount);
  EXPECT_GE(info.logicalProcessorCount, info.availableProcessorCount);
  EXPECT_GE(info.availableProcessorCount, 1u);

  DWORD size = 0;
  GetLogicalProcessorInformationEx(RelationProcessorCore, nullptr, &size);
  std::vector<char> buffer(size);
  ASSERT_TRUE(GetLogicalProcessorInformationEx(
      RelationProcessorCore,
      reinterpret_cast<SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX *>(buffer.data()), &size));
  uint32_t cores = 0;
  for (DWORD offset = 0; offset < size; ++cores)
    offset +=
        reinterpret_cast<SYSTEM_LOGICAL_PROCESSOR_INFORMATION_EX *>(buffer.data() + offset)->Size;
  EXPECT_EQ(cores, info.coreCount);
  EXPECT_GE(info.packageCount, 1u);
  EXPECT_LE(info.packageCount, info.coreCount);

  SYSTEM_INFO system;
  GetNativeSystemInfo(&system);
  EXPECT_EQ(system.dwPageSize, info.pageSize);
  EXPECT_EQ(system.dwAllocationGranularity, info.allocationGranularity);
  MEMORYSTATUSEX memory = {};
  memory.dwLength = sizeof memory;
  ASSERT_TRUE(GlobalMemoryStatusEx(&memory));
  EXPECT_EQ(memory.ullTotalPhys, info.physicalMemoryBytes);
  EXPECT_GT(info.availableMemoryBytes, 0u);
  EXPECT_LE(info.availableMemoryBytes, info.physicalMemoryBytes);
  EXPECT_GE(info.osMajorVersion, 6u);
  EXPECT_GT(info.osBuildNumber, 0u);
#if defined(__x86_64__)
  EXPECT_STREQ("x86_64", info.architecture);
#endif

  EXPECT_EQ(ZBErrorInvalidArgument, ZBSystemGetInfo(nullptr));
}

TEST(ZBSystem, EmulationIsWinesPresence) {
  const bool wine = GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "wine_get_version") != nullptr;
  EXPECT_EQ(wine, ZBSystemIsEmulated());
}

TEST(ZBSystem, CPUBrandIsTrimmedText) {
  char *brand = ZBSystemCopyCPUBrand();
  ASSERT_NE(nullptr, brand);
  const std::string text = brand;
  _ZBFree(brand);
  ASSERT_FALSE(text.empty());
  EXPECT_NE(' ', text.front());
  EXPECT_NE(' ', text.back());
}

TEST(ZBSystem, CPUTimesSumToTheSystemsTimes) {
  uint32_t count = 0;
  ASSERT_EQ(ZBErrorBufferTooSmall, ZBSystemGetCPUTimes(nullptr, 0, &count));
  ASSERT_GE(count, 1u);
  std::vector<ZBSystemCPUTimes> times(count);
  FILETIME idle, kernel, user;
  ASSERT_TRUE(GetSystemTimes(&idle, &kernel, &user));
  ASSERT_EQ(ZBErrorNone, ZBSystemGetCPUTimes(times.data(), count, &count));
  auto nanoseconds = [](const FILETIME &t) {
    return static_cast<int64_t>((static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime) *
           100;
  };
  int64_t sumUser = 0, sumKernel = 0, sumIdle = 0;
  for (const ZBSystemCPUTimes &t : times) {
    EXPECT_GE(t.kernelNanoseconds, 0);
    sumUser += t.userNanoseconds;
    sumKernel += t.kernelNanoseconds;
    sumIdle += t.idleNanoseconds;
  }
  // Read a moment apart: the sums are later, by at most a second per processor.
  const int64_t slack = 1000000000LL * count;
  EXPECT_NEAR(static_cast<double>(nanoseconds(user)), static_cast<double>(sumUser), slack);
  EXPECT_NEAR(static_cast<double>(nanoseconds(idle)), static_cast<double>(sumIdle), slack);
  EXPECT_NEAR(static_cast<double>(nanoseconds(kernel) - nanoseconds(idle)),
              static_cast<double>(sumKernel), slack);

  EXPECT_EQ(ZBErrorInvalidArgument, ZBSystemGetCPUTimes(times.data(), count, nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSystemGetCPUTimes(nullptr, 1, &count));
}
