// Virtual memory: reservations, commits, protections and their errors, the
// fault of a write to a read-only page (in a child), and mirrored mappings
// on both of their construction paths, alone and under concurrent use.
#include "ZBFileDescriptor.h"
#include "ZBSystemCallInjection.h"
#include "ZBTestSupport.h"
#include "ZBVirtual.h"
#include "ZBVirtualPrivate.h"

#include <cstring>
#include <thread>
#include <vector>

namespace {

using zb::virtualmemory::forceMirrorMethod;
using zb::virtualmemory::MirrorMethod;

constexpr uint32_t kRead = ZBMmapProtectionRead;
constexpr uint32_t kReadWrite = ZBMmapProtectionRead | ZBMmapProtectionWrite;

DWORD systemProtection(const void *address) {
  MEMORY_BASIC_INFORMATION region{};
  VirtualQuery(address, &region, sizeof(region));
  return region.State == MEM_COMMIT ? region.Protect : 0;
}

TEST(ZBVirtual, SizesAreTheSystems) {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  EXPECT_EQ(ZBVirtualGetPageSize(), info.dwPageSize);
  EXPECT_EQ(ZBVirtualGetAllocationGranularity(), info.dwAllocationGranularity);
}

TEST(ZBVirtual, ReserveCommitProtectDecommitRelease) {
  const size_t size = 1 << 20, page = ZBVirtualGetPageSize();
  void *base = nullptr;
  ASSERT_EQ(ZBVirtualReserve(size, &base), ZBErrorNone);
  ASSERT_NE(base, nullptr);
  auto *bytes = static_cast<unsigned char *>(base);
  EXPECT_EQ(systemProtection(bytes), 0u) << "reserved only";

  ASSERT_EQ(ZBVirtualCommit(bytes, 4 * page, kReadWrite), ZBErrorNone);
  bytes[0] = 0x5A;
  bytes[4 * page - 1] = 0xA5;

  // Each protection is what the system then reports, and the old one comes
  // back in library bits.
  const struct {
    uint32_t protection;
    DWORD system;
    uint32_t before;
  } changes[] = {
      {kRead, PAGE_READONLY, kReadWrite},
      {0, PAGE_NOACCESS, kRead},
      {ZBMmapProtectionExecute | kRead, PAGE_EXECUTE_READ, 0},
      {ZBMmapProtectionWrite, PAGE_READWRITE, ZBMmapProtectionExecute | kRead},
      {7, PAGE_EXECUTE_READWRITE, kReadWrite},
      {kReadWrite, PAGE_READWRITE, 7},
  };
  for (const auto &change : changes) {
    uint32_t old = 99;
    ASSERT_EQ(ZBVirtualProtect(bytes, 4 * page, change.protection, &old), ZBErrorNone);
    EXPECT_EQ(systemProtection(bytes), change.system) << change.protection;
    EXPECT_EQ(systemProtection(bytes + 3 * page), change.system) << change.protection;
    EXPECT_EQ(old, change.before) << change.protection;
  }
  EXPECT_EQ(bytes[0], 0x5A);
  EXPECT_EQ(bytes[4 * page - 1], 0xA5);

  // Only committed pages take a protection.
  EXPECT_EQ(ZBVirtualProtect(bytes + 4 * page, page, kRead, nullptr), ZBErrorInvalidAddress);

  ASSERT_EQ(ZBVirtualDecommit(bytes, 4 * page), ZBErrorNone);
  EXPECT_EQ(systemProtection(bytes), 0u);
  ASSERT_EQ(ZBVirtualCommit(bytes, page, kRead), ZBErrorNone);
  EXPECT_EQ(bytes[0], 0) << "a new commit is zeroed";

  EXPECT_EQ(ZBVirtualRelease(bytes, size / 2), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBVirtualRelease(bytes + page, 0), ZBErrorInvalidAddress);
  EXPECT_EQ(ZBVirtualRelease(bytes, size), ZBErrorNone);
  EXPECT_EQ(ZBVirtualRelease(bytes, 0), ZBErrorInvalidAddress) << "released twice";
}

TEST(ZBVirtual, ArgumentsAndSystemFailures) {
  void *address = &address;
  EXPECT_EQ(ZBVirtualReserve(4096, nullptr), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBVirtualReserve(0, &address), ZBErrorInvalidArgument);
  EXPECT_EQ(address, nullptr);
  char local = 0;
  EXPECT_EQ(ZBVirtualCommit(nullptr, 4096, kRead), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBVirtualCommit(&local, 0, kRead), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBVirtualCommit(&local, 4096, 8), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBVirtualProtect(&local, 1, 0x10, nullptr), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBVirtualDecommit(nullptr, 4096), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBVirtualRelease(nullptr, 0), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBVirtualRelease(&local, 0), ZBErrorInvalidAddress) << "the stack is no reservation";

  const struct {
    DWORD error;
    ZBError expected;
  } failures[] = {
      {ERROR_NOT_ENOUGH_MEMORY, ZBErrorNoMemory},
      {ERROR_COMMITMENT_LIMIT, ZBErrorNoMemory},
      {ERROR_INVALID_ADDRESS, ZBErrorInvalidAddress},
      {ERROR_GEN_FAILURE, ZBErrorGeneric},
  };
  for (const auto &failure : failures) {
    static DWORD injected;
    injected = failure.error;
    zb::test::ScopedSystemCall fail(zb::gSystemCalls.VirtualAlloc,
                                    [](LPVOID, SIZE_T, DWORD, DWORD) -> LPVOID {
                                      SetLastError(injected);
                                      return nullptr;
                                    });
    EXPECT_EQ(ZBVirtualReserve(4096, &address), failure.expected) << failure.error;
  }
}

TEST(ZBVirtualDeathTest, WriteToReadOnlyPageFaults) {
  void *base = nullptr;
  ASSERT_EQ(ZBVirtualReserve(ZBVirtualGetPageSize(), &base), ZBErrorNone);
  ASSERT_EQ(ZBVirtualCommit(base, ZBVirtualGetPageSize(), kReadWrite), ZBErrorNone);
  auto *volatile bytes = static_cast<volatile char *>(base);
  bytes[0] = 1;
  ASSERT_EQ(ZBVirtualProtect(base, ZBVirtualGetPageSize(), kRead, nullptr), ZBErrorNone);
  EXPECT_EQ(bytes[0], 1) << "still readable";
  EXPECT_EXIT(
      bytes[0] = 2,
      [](int code) { return static_cast<uint32_t>(code) == EXCEPTION_ACCESS_VIOLATION; }, "");
  ZBVirtualRelease(base, 0);
}

// Allocates a mirror by the given method, or explains why the system
// cannot make one that way.
class MirrorMethodTest : public testing::TestWithParam<MirrorMethod> {
protected:
  void SetUp() override { forceMirrorMethod(GetParam()); }
  void TearDown() override { forceMirrorMethod(MirrorMethod::Automatic); }
};

TEST_P(MirrorMethodTest, WritesAreSeenAcrossTheSeamBothWays) {
  const size_t size = ZBVirtualGetAllocationGranularity();
  void *address = nullptr;
  const ZBError result = ZBVirtualAllocateMirrored(size, &address);
  if (GetParam() == MirrorMethod::Placeholders && result == ZBErrorUnsupported)
    GTEST_SKIP() << "the system refuses placeholders (Wine 8 answers VirtualAlloc2 with error 87)";
  ASSERT_EQ(result, ZBErrorNone);
  auto *bytes = static_cast<char *>(address);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes) % size, 0u);
  for (size_t i = 0; i < size; i += 4093) {
    bytes[i] = static_cast<char>(i * 7 + 1);
    EXPECT_EQ(bytes[i + size], static_cast<char>(i * 7 + 1)) << "low to high at " << i;
    bytes[i + size] = static_cast<char>(i * 3 + 2);
    EXPECT_EQ(bytes[i], static_cast<char>(i * 3 + 2)) << "high to low at " << i;
  }
  // A record written across the end reads back whole from the start.
  const char record[] = "across the seam";
  std::memcpy(bytes + size - 6, record, sizeof(record));
  EXPECT_EQ(std::memcmp(bytes, record + 6, sizeof(record) - 6), 0);
  EXPECT_EQ(std::memcmp(bytes + size - 6, bytes + 2 * size - 6, 6), 0);

  EXPECT_EQ(ZBVirtualFreeMirrored(bytes + 4096, size), ZBErrorInvalidAddress);
  EXPECT_EQ(ZBVirtualFreeMirrored(bytes, size), ZBErrorNone);
  MEMORY_BASIC_INFORMATION region{};
  VirtualQuery(bytes, &region, sizeof(region));
  EXPECT_EQ(region.State, static_cast<DWORD>(MEM_FREE));
  VirtualQuery(bytes + size, &region, sizeof(region));
  EXPECT_EQ(region.State, static_cast<DWORD>(MEM_FREE));
  EXPECT_EQ(ZBVirtualFreeMirrored(bytes, size), ZBErrorInvalidAddress) << "freed twice";
}

TEST_P(MirrorMethodTest, FourThreadsAllocateAndFreeConcurrently) {
  void *probe = nullptr;
  if (GetParam() == MirrorMethod::Placeholders &&
      ZBVirtualAllocateMirrored(ZBVirtualGetAllocationGranularity(), &probe) == ZBErrorUnsupported)
    GTEST_SKIP() << "the system refuses placeholders (Wine 8 answers VirtualAlloc2 with error 87)";
  if (probe != nullptr)
    ZBVirtualFreeMirrored(probe, ZBVirtualGetAllocationGranularity());

  std::atomic<int> allocationFailures{0}, mismatches{0}, freeFailures{0};
  std::atomic<ZBError> lastFailure{ZBErrorNone};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&, t] {
      const size_t size = ZBVirtualGetAllocationGranularity() * static_cast<size_t>(1 + t % 2);
      for (int cycle = 0; cycle < 1000; ++cycle) {
        void *address = nullptr;
        const ZBError allocated = ZBVirtualAllocateMirrored(size, &address);
        if (allocated != ZBErrorNone) {
          ++allocationFailures;
          lastFailure = allocated;
          continue;
        }
        auto *bytes = static_cast<volatile int *>(address);
        bytes[0] = cycle;
        if (bytes[size / sizeof(int)] != cycle)
          ++mismatches;
        const ZBError freed = ZBVirtualFreeMirrored(address, size);
        if (freed != ZBErrorNone) {
          ++freeFailures;
          lastFailure = freed;
        }
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  EXPECT_EQ(allocationFailures.load(), 0) << "the last code: " << lastFailure.load();
  EXPECT_EQ(mismatches.load(), 0);
  EXPECT_EQ(freeFailures.load(), 0) << "the last code: " << lastFailure.load();

  void *address = &address;
  for (size_t size : {size_t{0}, size_t{4096}, ZBVirtualGetAllocationGranularity() + size_t{4096},
                      SIZE_MAX - 0xFFFF}) {
    EXPECT_EQ(ZBVirtualAllocateMirrored(size, &address), ZBErrorInvalidArgument) << size;
    EXPECT_EQ(address, nullptr);
  }
  EXPECT_EQ(ZBVirtualAllocateMirrored(65536, nullptr), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBVirtualFreeMirrored(nullptr, 65536), ZBErrorInvalidArgument);
}

std::string methodName(const testing::TestParamInfo<MirrorMethod> &info) {
  static const char *const kNames[] = {"Automatic", "Placeholders", "ReserveAndMap"};
  return kNames[static_cast<int>(info.param)];
}

INSTANTIATE_TEST_SUITE_P(Methods, MirrorMethodTest,
                         testing::Values(MirrorMethod::Automatic, MirrorMethod::Placeholders,
                                         MirrorMethod::ReserveAndMap),
                         methodName);

// Another allocation that lands in the freed range every time exhausts the
// retries; failures of the system come back as their codes.
TEST(ZBVirtualMirror, LostRacesAndSystemFailures) {
  forceMirrorMethod(MirrorMethod::ReserveAndMap);
  static std::vector<void *> stolen;
  static int races = 0;
  zb::virtualmemory::gMirrorRaceHook = [](void *freed, size_t size) {
    ++races;
    stolen.push_back(VirtualAlloc(freed, size, MEM_RESERVE, PAGE_NOACCESS));
  };
  void *address = &address;
  EXPECT_EQ(ZBVirtualAllocateMirrored(65536, &address), ZBErrorResourcesExhausted);
  EXPECT_EQ(address, nullptr);
  EXPECT_EQ(races, 16);
  zb::virtualmemory::gMirrorRaceHook = nullptr;
  for (void *range : stolen)
    VirtualFree(range, 0, MEM_RELEASE);

  {
    zb::test::ScopedSystemCall fail(
        zb::gSystemCalls.CreateFileMappingW,
        [](HANDLE, LPSECURITY_ATTRIBUTES, DWORD, DWORD, DWORD, LPCWSTR) -> HANDLE {
          SetLastError(ERROR_COMMITMENT_LIMIT);
          return nullptr;
        });
    EXPECT_EQ(ZBVirtualAllocateMirrored(65536, &address), ZBErrorNoMemory);
  }
  {
    zb::test::ScopedSystemCall fail(zb::gSystemCalls.VirtualAlloc,
                                    [](LPVOID, SIZE_T, DWORD, DWORD) -> LPVOID {
                                      SetLastError(ERROR_NOT_ENOUGH_MEMORY);
                                      return nullptr;
                                    });
    EXPECT_EQ(ZBVirtualAllocateMirrored(65536, &address), ZBErrorNoMemory);
  }
  forceMirrorMethod(MirrorMethod::Automatic);
}

} // namespace
