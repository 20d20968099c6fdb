// The machine's figures against the system's own answers.
#include "ZBSystem.h"

#include <gtest/gtest.h>

#include <windows.h>

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
