// Every failure point of each family's everyday sequences, tried one by one
// through the failure harness: the k-th system call fails, the sequence
// must report a code, leave no handle or byte behind and run cleanly next
// time. Also proves the harness itself catches a leak.
#include "ZBAlloc.h"
#include "ZBFile.h"
#include "ZBEnvironment.h"
#include "ZBFileDescriptor.h"
#include "ZBLog.h"
#include "qprintf.h"
#include "ZBSocket.h"
#include "ZBSocketAddress.h"

#include "ZBFailureHarness.h"
#include "ZBFileTestSupport.h"
#include "ZBTestSupport.h"

#include <cstdio>
#include <cstring>
#include <string>

namespace {

using namespace zbtest::failure;

// Runs the steps in order until one answers non-zero; that code is the
// scenario's answer.
template <typename... Steps>
ZBError firstError(Steps &&...steps) {
  ZBError error = 0;
  ((error == 0 ? (void)(error = steps()) : (void)0), ...);
  return error;
}

class ZBFailureTest : public zbtest::FileSystemTest {
protected:
  void expectClean(const Scenario &scenario) {
    Harness harness;
    const Outcome outcome = harness.drive(scenario);
    std::printf("[ failure points ] %-28s %3zu system calls, %zu allocations\n", scenario.name,
                outcome.failurePoints, outcome.allocationPoints);
    EXPECT_GT(outcome.failurePoints, 0u) << scenario.name;
    for (const std::string &fault : outcome.faults)
      ADD_FAILURE() << fault;
  }
};

TEST(ZBFailureHarness, EveryTableEntryHasExactlyOneFailureRow) {
  for (size_t entry = 0; entry < kEntryCount; ++entry) {
    size_t rows = 0;
    for (const Failure &row : failureTable())
      rows += row.entry == entry;
    EXPECT_EQ(rows, 1u) << entryName(static_cast<Entry>(entry));
  }
}

// A scenario that keeps a block and a handle whenever a call fails: the
// harness must report both, or its clean verdicts mean nothing.
TEST_F(ZBFailureTest, TheHarnessCatchesAPlantedLeak) {
  const std::string path = at("planted.txt");
  Scenario leaky{"planted leak",
                 [&]() -> ZBError {
                   ZBFileDescriptor fd = 0;
                   ZBError error = ZBFileDescriptorOpen(
                       path.c_str(), ZBFileDescriptorOpenReadWrite | ZBFileDescriptorOpenCreate,
                       0644, &fd);
                   if (error != 0) {
                     _ZBAlloc(64); // planted: lost on the failure path
                     CreateEventW(nullptr, FALSE, FALSE, nullptr);
                     return error;
                   }
                   return ZBFileDescriptorClose(fd);
                 },
                 {}};
  Harness harness;
  const Outcome outcome = harness.drive(leaky);
  bool handleLeak = false, memoryLeak = false;
  for (const std::string &fault : outcome.faults) {
    handleLeak |= fault.find("handles") != std::string::npos;
    memoryLeak |= fault.find("live bytes") != std::string::npos;
  }
  EXPECT_TRUE(handleLeak);
  EXPECT_TRUE(memoryLeak);
}

// A small request the base cannot meet, inside a library call, ends the
// process with the policy's Fatal line.
TEST(ZBFailureHarnessDeathTest, ASmallAllocationFailureIsFatal) {
  const std::string lines = zbtest::logOfDyingProcess([] {
    ZB_LOG_INFO("small allocations fail from here on");
    Harness harness;
    Harness::failNextSmallAllocation();
    char *copy = nullptr;
    qasprintf(&copy, "%d", 42);
  });
  EXPECT_NE(std::string::npos, lines.find("FATAL: Failed on small malloc")) << lines;
}

TEST_F(ZBFailureTest, FileOpenWriteReadSeekTruncateInfoClose) {
  const std::string path = at("file.bin");
  expectClean({"file",
               [&]() -> ZBError {
                 ZBFileDescriptor fd = 0;
                 const ZBError opened = ZBFileDescriptorOpen(path.c_str(),
                                                             ZBFileDescriptorOpenReadWrite |
                                                                 ZBFileDescriptorOpenCreate |
                                                                 ZBFileDescriptorOpenTruncate,
                                                             0644, &fd);
                 if (opened != 0)
                   return opened;
                 char buffer[16] = {};
                 uint32_t moved = 0;
                 int64_t position = 0;
                 ZBFileInfo info;
                 const ZBError error = firstError(
                     [&] { return ZBFileDescriptorWrite(fd, "0123456789", 10, &moved); },
                     [&] { return ZBFileDescriptorSeek(fd, 2, &position, 0); },
                     [&] { return ZBFileDescriptorRead(fd, buffer, 4, &moved); },
                     [&] { return ZBFileDescriptorTruncate(fd, 5); },
                     [&] { return ZBFileDescriptorGetInfo(fd, &info, ZBFileInfoMaskAll); });
                 const ZBError closed = ZBFileDescriptorClose(fd);
                 return error != 0 ? error : closed;
               },
               // Truncation falls back to moving the end; the file ID to
               // the older file index.
               {kSetFileInformationByHandle, kGetFileInformationByHandleEx}});
}

TEST_F(ZBFailureTest, TemporaryCopyMoveRemove) {
  const std::string copy = at("copy.txt"), moved = at("moved.txt");
  expectClean({"temporary/copy/move/remove",
               [&]() -> ZBError {
                 std::string pattern = at("tmpXXXXXX");
                 const ZBError created = ZBFileCreateTemporary(pattern.data(), 0, nullptr);
                 if (created != 0)
                   return created;
                 const ZBError error = firstError(
                     [&] { return ZBFileCreateFromBytes("abc", 3, pattern.c_str(), 0644); },
                     [&] { return ZBFileCopy(pattern.c_str(), copy.c_str(), 0644); },
                     [&] { return ZBFileMove(copy.c_str(), moved.c_str(), 0); },
                     [&] { return ZBFileRemove(moved.c_str()); });
                 // Whatever failed, leave the directory as it was.
                 zbtest::removeTreeRaw(zbtest::longPath(root_));
                 zbtest::makeDirectoryRaw(root_);
                 return error;
               },
               // The same-file probe before a copy or move: a file it cannot
               // open or identify is taken as a different file.
               {kCreateFileW, kGetFileInformationByHandleEx}});
}

bool countEntry(void *context, const char *, const char *, int32_t, uint32_t) {
  ++*static_cast<int *>(context);
  return true;
}

TEST_F(ZBFailureTest, NestedCreateScanRecursiveRemove) {
  const std::string top = at("n1"), leaf = at("n1/n2/n3");
  expectClean({"nested/scan/recursive remove",
               [&]() -> ZBError {
                 int entries = 0;
                 const ZBError error = firstError(
                     [&] { return ZBDirectoryCreateNested(leaf.c_str(), 0755, 0755); },
                     [&] { return ZBFileCreateFromBytes("x", 1, (leaf + "/f").c_str(), 0644); },
                     [&]() -> ZBError {
                       return ZBDirectoryScan(top.c_str(), countEntry, 8, &entries) && entries == 3
                                  ? 0
                                  : ZBErrorGeneric;
                     },
                     [&] { return ZBDirectoryRemoveRecursive(top.c_str()); });
                 zbtest::removeTreeRaw(zbtest::longPath(root_));
                 zbtest::makeDirectoryRaw(root_);
                 return error;
               },
               // Nested creation probes each parent and creates what it
               // cannot see; creating an existing directory is no error.
               {kGetFileAttributesW}});
}

TEST_F(ZBFailureTest, MemoryMap) {
  const std::string path = at("map.bin");
  ASSERT_TRUE(zbtest::writeRaw(path, std::string(8192, 'm')));
  expectClean({"memory map",
               [&]() -> ZBError {
                 ZBFileDescriptor fd = 0;
                 const ZBError opened =
                     ZBFileDescriptorOpen(path.c_str(), ZBFileDescriptorOpenReadWrite, 0644, &fd);
                 if (opened != 0)
                   return opened;
                 ZBMmap *map = nullptr;
                 ZBError error = ZBMmapCreateWithFD(
                     fd, 0, 0xFFFFFFFF, ZBMmapProtectionRead | ZBMmapProtectionWrite | ZBMmapShared,
                     &map);
                 if (error == 0) {
                   static_cast<char *>(ZBMmapGetBytes(map))[0] = 'M';
                   error = ZBMmapSynchronize(map, true);
                   const ZBError freed = ZBMmapFree(map);
                   error = error != 0 ? error : freed;
                 }
                 const ZBError closed = ZBFileDescriptorClose(fd);
                 return error != 0 ? error : closed;
               },
               {}});
}

TEST_F(ZBFailureTest, SocketPairSendReceiveAndLocalhost) {
  expectClean({"socket pair/localhost",
               []() -> ZBError {
                 ZBSocket pair[2] = {};
                 const ZBError made = ZBSocketCreatePair(1, SOCK_STREAM, 0, 0, pair);
                 if (made != 0)
                   return made;
                 char received[8] = {};
                 uint32_t count = 0;
                 ZBSocketAddressInfo *list = nullptr;
                 const ZBError error = firstError(
                     [&] { return ZBSocketSend(pair[1], "hello", 5, 0, &count); },
                     [&]() -> ZBError {
                       const ZBError got = ZBSocketReceive(pair[0], received, 5, 0, &count);
                       return got != 0 ? got
                              : (count == 5 && std::memcmp(received, "hello", 5) == 0)
                                  ? ZBErrorNone
                                  : ZBErrorGeneric;
                     },
                     [&] { return ZBSocketAddressResolveInfo("localhost", "80", nullptr, &list); });
                 ZBSocketAddressFreeInfoList(list);
                 const ZBError first = ZBSocketClose(pair[0]);
                 const ZBError second = ZBSocketClose(pair[1]);
                 return error != 0 ? error : first != 0 ? first : second;
               },
               // The pair's accepted end drops the listener's event selection
               // and takes its blocking mode; a failure there is logged and
               // the accepted socket still works. The pair's listener is
               // closed once both ends exist; its close failing spoils
               // nothing.
               {kWSAEventSelect, kioctlsocket, kclosesocket}});
}

TEST_F(ZBFailureTest, ApplicationDirectories) {
  expectClean({"application directories",
               []() -> ZBError {
                 ZBEnvironmentSetAppCachesDirectory(nullptr); // computed afresh each run
                 char *caches = ZBEnvironmentCopyAppCachesDirectory();
                 char *temporary = ZBEnvironmentCopyAppTemporaryDirectory();
                 const ZBError error =
                     caches != nullptr && temporary != nullptr ? ZBErrorNone : ZBErrorGeneric;
                 _ZBFree(caches);
                 _ZBFree(temporary);
                 return error;
               },
               // Both are created with their parents: a parent the probe
               // cannot see is created, and an existing one is no error.
               {kGetFileAttributesW}});
}

int32_t countInterface(void *context, const ZBSocketInterface *) {
  ++*static_cast<int *>(context);
  return 0;
}

TEST_F(ZBFailureTest, InterfaceEnumeration) {
  expectClean({"interface enumeration",
               []() -> ZBError {
                 int interfaces = 0;
                 const ZBError error = ZBSocketInterfacesApply(0, countInterface, &interfaces);
                 return error != 0 ? error : interfaces > 0 ? ZBErrorNone : ZBErrorGeneric;
               },
               // An unreadable IPv6 list means a system without IPv6; the
               // interface indexes are found by probes where a failure
               // means "not this index".
               {ksocket, kWSAIoctl, ksetsockopt, kconnect, kclosesocket}});
}

// Each family's spawn-with-pipes sequence joins the list here when the
// process family lands: one TEST_F with its scenario.

} // namespace
