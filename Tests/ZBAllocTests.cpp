// The allocation front end over a base allocator that the tests can make
// fail: the failure policy's three bands, zones and their table, and the
// aligned blocks that _ZBFree must release.
#include <gtest/gtest.h>

#include "ZBTestSupport.h"

#include "ZBAlloc.h"
#include "ZBBaseAllocator.h"
#include "ZBLog.h"
#include "qprintf.h"

#include <cstdio>
#include <cstring>
#include <thread>
#include <set>
#include <string>
#include <vector>

namespace {

bool isAligned(const void *pointer, size_t alignment) {
  return reinterpret_cast<uintptr_t>(pointer) % alignment == 0;
}

// Swaps base-allocator entries for the test's lifetime.
class BaseAllocatorOverride {
public:
  BaseAllocatorOverride() : mSaved(gZBBaseAllocator) {}
  ~BaseAllocatorOverride() { gZBBaseAllocator = mSaved; }

private:
  ZBBaseAllocator mSaved;
};

void *failingMalloc(size_t) { return nullptr; }
void *failingCalloc(size_t, size_t) { return nullptr; }
void *failingRealloc(void *, size_t) { return nullptr; }
int failingMemalign(void **, size_t, size_t) { return 12; }

// Records every non-null pointer the base frees.
std::multiset<void *> *sFreed;
void (*sRealFree)(void *);
void recordingFree(void *pointer) {
  if (pointer != nullptr)
    sFreed->insert(pointer);
  sRealFree(pointer);
}

class RecordingFrees {
public:
  RecordingFrees() {
    sFreed = &freed;
    sRealFree = gZBBaseAllocator.free;
    gZBBaseAllocator.free = recordingFree;
  }
  ~RecordingFrees() { gZBBaseAllocator.free = sRealFree; }
  std::multiset<void *> freed;
};

TEST(ZBAlloc, BlocksOfEveryAlignmentAreUsableAndFreedByZBFree) {
  for (size_t alignment : {1, 4, 8, 16, 32, 64, 256, 4096, 65536}) {
    for (size_t size : {0, 1, 17, 1000, 100000}) {
      auto *block = static_cast<unsigned char *>(_ZBAllocAlign(alignment, size));
      ASSERT_NE(nullptr, block) << alignment << " " << size;
      EXPECT_TRUE(isAligned(block, alignment < 16 ? 16 : alignment)) << alignment;
      EXPECT_GE(ZBSizeOfAllocation(block), size);
      std::memset(block, 0xA5, size);
      _ZBFree(block);
    }
  }
  EXPECT_EQ(0u, ZBSizeOfAllocation(nullptr));
  _ZBFree(nullptr);
}

TEST(ZBAlloc, CountedAllocationIsZeroFilled) {
  auto *words = static_cast<uint32_t *>(_ZBAllocWithCount(1000, sizeof(uint32_t)));
  ASSERT_NE(nullptr, words);
  for (int i = 0; i < 1000; ++i)
    ASSERT_EQ(0u, words[i]);
  _ZBFree(words);
}

TEST(ZBAlloc, ReallocKeepsContentsAndZeroSizeGivesAFreshBlock) {
  auto *text = static_cast<char *>(_ZBRealloc(nullptr, 6));
  ASSERT_NE(nullptr, text);
  std::memcpy(text, "hello", 6);
  text = static_cast<char *>(_ZBRealloc(text, 100000));
  ASSERT_NE(nullptr, text);
  EXPECT_STREQ("hello", text);
  text = static_cast<char *>(_ZBRealloc(text, 3));
  EXPECT_EQ(0, std::memcmp(text, "hel", 3));

  RecordingFrees frees;
  void *fresh = _ZBRealloc(text, 0);
  EXPECT_NE(nullptr, fresh);
  EXPECT_EQ(1u, frees.freed.count(text));
  _ZBFree(fresh);
}

#ifdef _WIN32
// The Windows base keeps an over-aligned block's alignment across realloc.
TEST(ZBAlloc, ReallocKeepsAlignmentOfAlignedBlocks) {
  auto *block = static_cast<char *>(_ZBAllocAlign(256, 10));
  std::memcpy(block, "aligned!!", 10);
  for (size_t size : {5000, 20, 300000}) {
    block = static_cast<char *>(_ZBRealloc(block, size));
    ASSERT_TRUE(isAligned(block, 256));
  }
  EXPECT_EQ(0, std::memcmp(block, "aligned!!", 10));
  _ZBFree(block);
}
#endif

TEST(ZBAlloc, PosixMemAlignReturnsNegatedErrnoValues) {
  void *block = reinterpret_cast<void *>(0x1);
  EXPECT_EQ(-22, _ZBPosixMemAlign(&block, 0, 10));
  EXPECT_EQ(-22, _ZBPosixMemAlign(&block, 2, 10));
  EXPECT_EQ(-22, _ZBPosixMemAlign(&block, 24, 10));
  EXPECT_EQ(reinterpret_cast<void *>(0x1), block);
  EXPECT_EQ(0, _ZBPosixMemAlign(&block, 64, 10));
  EXPECT_TRUE(isAligned(block, 64));
  _ZBFree(block);
  EXPECT_EQ(0, _ZBPosixMemAlign(&block, 4, 10));
  _ZBFree(block);

  BaseAllocatorOverride restore;
  gZBBaseAllocator.posixMemalign = failingMemalign;
  gZBBaseAllocator.malloc = failingMalloc;
  EXPECT_EQ(-12, _ZBPosixMemAlign(&block, 64, 4096));
}

TEST(ZBAllocFailure, MidSizedRequestsLogOneErrorAndYieldNull) {
  BaseAllocatorOverride restore;
  gZBBaseAllocator.malloc = failingMalloc;
  gZBBaseAllocator.calloc = failingCalloc;
  gZBBaseAllocator.realloc = failingRealloc;
  gZBBaseAllocator.posixMemalign = failingMemalign;

  const std::string before = zbtest::logRing();
  EXPECT_EQ(nullptr, _ZBAlloc(4096));
  EXPECT_EQ(nullptr, _ZBAllocAlign(64, 1024));
  EXPECT_EQ(nullptr, _ZBAllocWithCount(2, 1024));
  char block[8];
  EXPECT_EQ(nullptr, _ZBRealloc(block, 2147483648u));
  const std::string after = zbtest::logRing();
  auto added = [&](const char *text) { return zbtest::occurrences(after, text) - zbtest::occurrences(before, text); };
  EXPECT_EQ(1u, added("_ZBAllocAlignWithZoneAndDesc: ERROR: Failed on malloc of 4096 bytes"));
  EXPECT_EQ(1u, added("Failed on malloc of 1024 bytes"));
  EXPECT_EQ(1u, added("_ZBAllocWithZoneCountAndDesc: ERROR: Failed on calloc of 2048 bytes"));
  EXPECT_EQ(1u, added("_ZBReallocWithZoneAndDesc: ERROR: Failed on realloc of 2147483648 bytes"));
  EXPECT_NE(std::string::npos, after.find(":442] "));
  EXPECT_NE(std::string::npos, after.find(":414] "));
}

// The Fatal line of a request that fails while the base allocator refuses
// everything.
void expectFatalLine(void (*statement)(), const std::string &expected) {
  const std::string lines = zbtest::logOfDyingProcess([statement] {
    // The log's rules are read before the base starts failing.
    ZB_LOG_INFO("the base allocator fails from here on");
    gZBBaseAllocator.malloc = failingMalloc;
    gZBBaseAllocator.calloc = failingCalloc;
    gZBBaseAllocator.realloc = failingRealloc;
    statement();
  });
  EXPECT_NE(std::string::npos, lines.find(expected)) << lines;
}

TEST(ZBAllocFailureDeathTest, SmallAndHugeFailuresEndTheProcess) {
  expectFatalLine([] { _ZBAlloc(100); }, "FATAL: Failed on small malloc 100");
  expectFatalLine([] { _ZBAlloc(0); }, "FATAL: Failed on small malloc 0");
  expectFatalLine([] { _ZBAlloc(size_t(2147483649u)); }, "FATAL: Failed on large malloc 2147483649");
  expectFatalLine([] { _ZBAllocWithCount(10, 10); }, ":409] ");
  expectFatalLine([] { _ZBAllocWithCount(3, 1u << 30); }, "Failed on large calloc 3221225472");
  static char block[16];
  expectFatalLine([] { _ZBRealloc(block, 1023); }, "Failed on small realloc 1023");
  expectFatalLine([] { _ZBRealloc(block, size_t(5) << 31); }, ":440] ");
}

TEST(ZBAllocDeathTest, HeapDumpsNeedAHeapDebuggingBuild) {
  EXPECT_DEATH(ZBMemoryDumpHeapContents(), "");
  EXPECT_STREQ("No heap profile available.\n", ZBHeapProfileGet());
  int marker = 0;
  EXPECT_EQ(&marker, ZBMemoryIgnoreHeapAllocation(&marker));
  EXPECT_FALSE(ZBMemoryHasLeakSanitizer());
}

// The base allocator of this build keeps no statistics and has no heap
// profiler: the statistics read as nothing, and the maintenance and
// profiling hooks neither free nor disturb a live block.
TEST(ZBAlloc, StatisticsAndHeapHooksOfThisBuild) {
  char stats[4] = {'x', 'x', 'x', 'x'};
  ZBMemoryGetStats(stats, sizeof stats);
  EXPECT_EQ(std::string("\0xxx", 4), std::string(stats, 4)) << "an empty text, nothing more";
  stats[0] = 'x';
  ZBMemoryGetStats(stats, 0);
  ZBMemoryGetStats(nullptr, 4);
  EXPECT_EQ('x', stats[0]) << "no room: nothing written";
  EXPECT_EQ(0u, ZBMemoryGetMallocTotal());
  static bool hookCalled;
  EXPECT_EQ(0, ZBMemorySetStatsHook([](void *) { hookCalled = true; }));

  auto *block = static_cast<unsigned char *>(_ZBAlloc(64));
  ASSERT_NE(nullptr, block);
  {
    RecordingFrees frees;
    for (void (*hook)() : {ZBMemoryTrimHeap, ZBMemoryDisableHeapLeakChecking, ZBHeapProfileStart,
                           ZBHeapProfileStop, ZBMemoryReenableHeapLeakChecking})
      hook();
    EXPECT_TRUE(frees.freed.empty());
  }
  std::memset(block, 0x5A, 64);
  EXPECT_GE(ZBSizeOfAllocation(block), 64u);
  EXPECT_STREQ("No heap profile available.\n", ZBHeapProfileGet());
  EXPECT_FALSE(hookCalled);
  _ZBFree(block);
}

// Zone names, footprints and recycling are not kept by this build: a name
// reads back as null, the footprint as 0, and recycling frees nothing, so
// the zone's blocks stay live until it is destroyed.
TEST(ZBZone, NamesFootprintsAndRecyclingAreNotKept) {
  ZBZone *zone = ZBZoneCreate(0, 0, 0, 0, "named at creation");
  ASSERT_NE(nullptr, zone);
  auto *block = static_cast<unsigned char *>(_ZBAllocWithZoneAndDesc(zone, 256, "test"));
  ASSERT_NE(nullptr, block);
  ZBZoneSetName(zone, "renamed");
  EXPECT_EQ(nullptr, ZBZoneGetName(zone));
  EXPECT_EQ(0u, ZBZoneGetFootprint(zone));
  {
    RecordingFrees frees;
    ZBZoneRecycle(zone);
    EXPECT_TRUE(frees.freed.empty());
  }
  std::memset(block, 0xA5, 256);
  RecordingFrees frees;
  ZBZoneDestroy(zone);
  EXPECT_EQ(1u, frees.freed.count(block));
}

TEST(ZBZone, DestroyFreesEveryLiveAllocationAcrossTableGrowth) {
  ZBZone *zone = ZBZoneCreate(0, 0, 0, 0, "test");
  ASSERT_NE(nullptr, zone);
  std::set<void *> live;
  for (int i = 0; i < 1025; ++i)
    live.insert(_ZBAllocWithZoneAndDesc(zone, 24, "test"));
  // Freed and reallocated blocks leave the table; moved ones follow.
  void *gone = _ZBAllocWithZoneAndDesc(zone, 24, "test");
  _ZBFreeWithZone(zone, gone);
  void *grown = _ZBReallocWithZoneAndDesc(zone, *live.begin(), 100000, "test");
  live.erase(live.begin());
  live.insert(grown);
  live.insert(_ZBAllocWithZoneCountAndDesc(zone, 4, 4, "test"));
  live.insert(_ZBAllocAlignWithZoneAndDesc(zone, 128, 8, "test"));
  EXPECT_EQ(1027u, live.size());

  RecordingFrees frees;
  ZBZoneDestroy(zone);
  for (void *pointer : live)
    EXPECT_EQ(1u, frees.freed.count(pointer));
  EXPECT_EQ(0u, frees.freed.count(gone));
}

TEST(ZBZone, FreeingAForeignPointerLogsAndStillFrees) {
  ZBZone *zone = ZBZoneCreate(0, 0, 0, 0, nullptr);
  void *foreign = _ZBAlloc(32);
  char expected[128];
  // The log formats with the library's engine, whose %p is its own.
  qsnprintf(expected, sizeof expected, "Tried to free pointer %p not in zone %p", foreign,
            static_cast<void *>(zone));
  {
    RecordingFrees frees;
    _ZBFreeWithZone(zone, foreign);
    EXPECT_EQ(1u, frees.freed.count(foreign));
  }
  const std::string ring = zbtest::logRing();
  EXPECT_NE(std::string::npos, ring.find(expected)) << expected;
  EXPECT_NE(std::string::npos, ring.find("[ZBZone.cpp:265] "));
  ZBZoneDestroy(zone);

  ZBZoneDestroy(nullptr);
  EXPECT_NE(std::string::npos, zbtest::logRing().find("WARNING: Tried to destroy default zone"));
  EXPECT_EQ(nullptr, ZBZoneGetDefaultZone());
  EXPECT_EQ(nullptr, ZBZoneFromPointer(foreign));
}

TEST(ZBZone, AFailedTableGrowthFailsTheAllocationAndLosesNothing) {
  ZBZone *zone = ZBZoneCreate(0, 0, 0, 0, nullptr);
  std::set<void *> live;
  for (int i = 0; i < 1023; ++i)
    live.insert(_ZBAllocWithZoneAndDesc(zone, 2048, "test"));
  {
    // The 1024th block fills the last slot; the table cannot grow, so the
    // block is given back and the mid-sized request yields null.
    BaseAllocatorOverride restore;
    gZBBaseAllocator.realloc = failingRealloc;
    EXPECT_EQ(nullptr, _ZBAllocWithZoneAndDesc(zone, 2048, "test"));
  }
  for (int i = 0; i < 3; ++i)
    live.insert(_ZBAllocWithZoneAndDesc(zone, 2048, "test"));
  RecordingFrees frees;
  ZBZoneDestroy(zone);
  for (void *pointer : live)
    EXPECT_EQ(1u, frees.freed.count(pointer));
}

TEST(ZBZone, ConcurrentAllocationsInOneZone) {
  ZBZone *zone = ZBZoneCreate(0, 0, 0, 0, nullptr);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([zone] {
      std::vector<void *> mine;
      for (int i = 0; i < 2000; ++i) {
        mine.push_back(_ZBAllocWithZoneAndDesc(zone, 16, "test"));
        if (i % 3 == 0) {
          _ZBFreeWithZone(zone, mine.back());
          mine.pop_back();
        }
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  RecordingFrees frees;
  ZBZoneDestroy(zone);
  EXPECT_EQ(4u * (2000 - 667), frees.freed.size() - 3); // plus table, lock and record
}

} // namespace
