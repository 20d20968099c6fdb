// Descriptors on the real file system: the open flag table, reads and
// writes at the end and at offsets, seek and truncation rules, the
// pending-byte cap, temporaries, the information record and its masks,
// invalid descriptors for every function, memory maps of written files,
// and the error paths that only the system-call table can provoke.
#include "ZBFile.h"
#include "ZBFileDescriptor.h"
#include "ZBVirtual.h"

#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBFileTestSupport.h"
#include "ZBSystemCallInjection.h"
#include "ZBTestSupport.h"

#include <winsock2.h>

#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace {

using zb::gSystemCalls;
using zb::test::ScopedSystemCall;
using zbtest::readRaw;
using zbtest::writeRaw;

class ZBFileDescriptorTest : public zbtest::FileSystemTest {
protected:
  // Opens `name` (created with `text` first unless it is null).
  ZBFileDescriptor open(const std::string &name, uint32_t flags, const char *text = nullptr) {
    if (text != nullptr) {
      EXPECT_TRUE(writeRaw(at(name), text));
    }
    ZBFileDescriptor fd = 0;
    EXPECT_EQ(0, ZBFileDescriptorOpen(at(name).c_str(), flags, 0644, &fd)) << name;
    return fd;
  }
  int64_t position(ZBFileDescriptor fd) {
    int64_t where = -1;
    EXPECT_EQ(0, ZBFileDescriptorSeek(fd, 0, &where, ZBFileDescriptorSeekCurrent));
    return where;
  }
};

TEST_F(ZBFileDescriptorTest, OpenFlagsPickAccessAndDisposition) {
  struct Case {
    uint32_t flags;
    bool exists;
    ZBError result;
    const char *contentAfterWrite; // what the file holds after writing "new" (null: no write)
  } cases[] = {
      {0, false, ZBErrorFileNotFound, nullptr},
      {0, true, 0, nullptr},
      {4, false, 0, nullptr},
      {4 | 64, true, ZBErrorFileExists, nullptr},
      {2 | 4 | 64 | 8, false, 0, "new"},
      {1 | 4 | 8, true, 0, "new"},
      {1 | 8, true, 0, "new"},
      {1 | 8, false, ZBErrorFileNotFound, nullptr},
      {2, true, 0, "new content"},
      {3, true, 0, "new content"},
      {1 | 16, true, 0, "old contentnew"},
      {2 | 4 | 16 | 32 | 0x200 | 0x800, true, 0, "old contentnew"},
  };
  int index = 0;
  for (const Case &c : cases) {
    const std::string path = at("f" + std::to_string(index++));
    if (c.exists) {
      ASSERT_TRUE(writeRaw(path, "old content"));
    }
    ZBFileDescriptor fd = 7;
    EXPECT_EQ(c.result, ZBFileDescriptorOpen(path.c_str(), c.flags, 0644, &fd)) << c.flags;
    if (c.result != 0) {
      EXPECT_EQ(0u, fd);
      continue;
    }
    if (c.contentAfterWrite != nullptr) {
      uint32_t written = 0;
      EXPECT_EQ(0, ZBFileDescriptorWrite(fd, "new", 3, &written));
      EXPECT_EQ(3u, written);
    } else {
      // Read-only access refuses writing.
      EXPECT_NE(0, ZBFileDescriptorWrite(fd, "new", 3, nullptr)) << c.flags;
    }
    EXPECT_EQ(0, ZBFileDescriptorClose(fd));
    if (c.contentAfterWrite != nullptr) {
      EXPECT_EQ(c.contentAfterWrite, readRaw(path)) << c.flags;
    }
  }
}

TEST_F(ZBFileDescriptorTest, OpenTakesDrivePathsWithALeadingSlashAndRefusesEmptyOnes) {
  ASSERT_TRUE(writeRaw(at("x"), "abc"));
  ZBFileDescriptor fd = 0;
  EXPECT_EQ(0, ZBFileDescriptorOpen(("/" + at("x")).c_str(), 0, 0, &fd));
  char buffer[4] = {};
  EXPECT_EQ(0, ZBFileDescriptorRead(fd, buffer, 3, nullptr));
  EXPECT_STREQ("abc", buffer);
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorOpen("", 0, 0, &fd));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorOpen(nullptr, 0, 0, &fd));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorOpen(at("x").c_str(), 0, 0, nullptr));
}

TEST_F(ZBFileDescriptorTest, ReadsWritesAndOffsets) {
  ZBFileDescriptor fd = open("rw", 2 | 4);
  uint32_t count = 99;
  char buffer[16] = {};
  EXPECT_EQ(0, ZBFileDescriptorRead(fd, buffer, sizeof buffer, &count)); // at the end
  EXPECT_EQ(0u, count);
  count = 99;
  EXPECT_EQ(0, ZBFileDescriptorRead(fd, nullptr, 0, &count)); // no system call, no buffer needed
  EXPECT_EQ(0u, count);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorRead(fd, nullptr, 1, &count));

  const ZBFileDescriptorVector vectors[] = {{"0123", 4}, {"", 0}, {"456789", 6}};
  uint64_t total = 0;
  EXPECT_EQ(0, ZBFileDescriptorWriteMany(fd, 3, vectors, &total));
  EXPECT_EQ(10u, total);
  EXPECT_EQ(0, ZBFileDescriptorWriteAt(fd, "AB", 2, 4, &count));
  EXPECT_EQ(0, ZBFileDescriptorReadAt(fd, buffer, 4, 3, &count));
  EXPECT_EQ(4u, count);
  EXPECT_EQ("3AB6", std::string(buffer, 4));
  EXPECT_EQ(0, ZBFileDescriptorReadAt(fd, buffer, 4, 100, &count)); // beyond the end
  EXPECT_EQ(0u, count);
  EXPECT_EQ(ZBErrorOutOfRange, ZBFileDescriptorReadAt(fd, buffer, 4, -1, &count));
  EXPECT_EQ(ZBErrorOutOfRange, ZBFileDescriptorWriteAt(fd, "x", 1, -1, &count));
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
  EXPECT_EQ("0123AB6789", readRaw(at("rw")));
}

TEST_F(ZBFileDescriptorTest, SeekAndSize) {
  ZBFileDescriptor fd = open("s", 2, "0123456789");
  int64_t where = -1;
  EXPECT_EQ(0, ZBFileDescriptorSeek(fd, -3, &where, ZBFileDescriptorSeekEnd));
  EXPECT_EQ(7, where);
  EXPECT_EQ(0, ZBFileDescriptorSeek(fd, 2, &where, ZBFileDescriptorSeekCurrent));
  EXPECT_EQ(9, where);
  EXPECT_EQ(0, ZBFileDescriptorSeek(fd, 4, nullptr, ZBFileDescriptorSeekSet));
  EXPECT_EQ(4, position(fd));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorSeek(fd, 0, &where, 3));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorSeek(fd, -1, &where, ZBFileDescriptorSeekSet));
  int64_t size = 0;
  EXPECT_EQ(0, ZBFileDescriptorGetSize(fd, &size));
  EXPECT_EQ(10, size);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorGetSize(fd, nullptr));
  zbtest::gInjectedError = ERROR_ACCESS_DENIED;
  ZBTEST_FAIL(GetFileSizeEx, FALSE);
  EXPECT_EQ(ZBErrorInvalidHandle, ZBFileDescriptorGetSize(fd, &size)); // not a mapped error
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
}

TEST_F(ZBFileDescriptorTest, TruncateKeepsOrMovesThePosition) {
  struct Case {
    bool olderWay; // the end-of-file information refused: seek and set the end
    int64_t positionBefore, length, positionAfter;
  } cases[] = {
      {false, 3, 8, 3}, {false, 6, 2, 6}, {false, 2, 20, 2},
      {true, 3, 8, 3},  {true, 6, 2, 2},  {true, 2, 20, 2},
  };
  for (const Case &c : cases) {
    ZBFileDescriptor fd = open("t", 2, "0123456789");
    ASSERT_EQ(0, ZBFileDescriptorSeek(fd, c.positionBefore, nullptr, 0));
    {
      ScopedSystemCall refused(gSystemCalls.SetFileInformationByHandle,
                               c.olderWay ? +[](HANDLE, FILE_INFO_BY_HANDLE_CLASS, LPVOID, DWORD) -> BOOL {
                                 SetLastError(ERROR_INVALID_PARAMETER);
                                 return FALSE;
                               }
                                          : &SetFileInformationByHandle);
      EXPECT_EQ(0, ZBFileDescriptorTruncate(fd, c.length));
    }
    int64_t size = 0;
    EXPECT_EQ(0, ZBFileDescriptorGetSize(fd, &size));
    EXPECT_EQ(c.length, size);
    EXPECT_EQ(c.positionAfter, position(fd)) << c.olderWay << " " << c.length;
    EXPECT_EQ(0, ZBFileDescriptorClose(fd));
  }
  ZBFileDescriptor fd = open("t", 2);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorTruncate(fd, -1));
  zbtest::gInjectedError = ERROR_INVALID_PARAMETER;
  ZBTEST_FAIL(SetFileInformationByHandle, FALSE);
  zbtest::gInjectedError = ERROR_DISK_FULL;
  ZBTEST_FAIL(SetEndOfFile, FALSE);
  EXPECT_EQ(ZBErrorIO, ZBFileDescriptorTruncate(fd, 4));
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
}

TEST_F(ZBFileDescriptorTest, PendingBytesAreCappedAt4096) {
  ZBFileDescriptor fd = open("p", 2, std::string(10000, 'x').c_str());
  const struct {
    int64_t position;
    uint32_t pending;
  } cases[] = {{0, 4096}, {5904, 4096}, {9000, 1000}, {10000, 0}, {12000, 0}};
  for (const auto &c : cases) {
    ASSERT_EQ(0, ZBFileDescriptorSeek(fd, c.position, nullptr, 0));
    uint32_t pending = 77;
    EXPECT_EQ(0, ZBFileDescriptorGetPendingBytesCount(fd, &pending));
    EXPECT_EQ(c.pending, pending) << c.position;
  }
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorGetPendingBytesCount(fd, nullptr));
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
}

TEST_F(ZBFileDescriptorTest, TemporaryNamesReplaceTheRunOfXBeforeTheSuffix) {
  const struct {
    const char *pattern;
    uint32_t suffix;
    size_t changedFrom, changedTo; // the replaced range
  } cases[] = {
      {"tmpXXXX.log", 4, 3, 7},
      {"XXaXXX", 0, 3, 6},    // the run ends at the first other character
      {"plain.txt", 4, 0, 0}, // no X: used as it stands
      {"XXXX", 9, 0, 0},      // a suffix longer than the name replaces nothing
  };
  for (const auto &c : cases) {
    std::string name = at(c.pattern);
    const size_t base = name.size() - std::strlen(c.pattern);
    ZBFileDescriptor fd = 0;
    ASSERT_EQ(0, ZBFileDescriptorCreateTemporary(name.data(), c.suffix, &fd)) << c.pattern;
    for (size_t index = 0; index < std::strlen(c.pattern); ++index) {
      const char now = name[base + index];
      if (index >= c.changedFrom && index < c.changedTo) {
        EXPECT_TRUE(isalnum(static_cast<unsigned char>(now))) << name;
      } else {
        EXPECT_EQ(c.pattern[index], now) << name;
      }
    }
    bool closeOnExec = false;
    EXPECT_EQ(0, ZBFileDescriptorGetCloseOnExec(fd, &closeOnExec));
    EXPECT_TRUE(closeOnExec);
    EXPECT_TRUE(zbtest::existsRaw(name));
    EXPECT_EQ(0, ZBFileDescriptorClose(fd));
  }
  char empty[] = "";
  ZBFileDescriptor fd = 0;
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorCreateTemporary(empty, 0, &fd));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorCreateTemporary(nullptr, 0, &fd));
}

TEST(ZBFileDescriptorTemporaryCharacters, FilesUseAllSixtyTwoAndDirectoriesTheOldMapping) {
  const struct {
    uint32_t value;
    char file, directory;
  } cases[] = {{0, '0', '0'},  {9, '9', '9'},  {10, 'A', 'K'}, {25, 'P', 'Z'}, {26, 'Q', 'A'},
               {34, 'Y', 'I'}, {35, 'Z', 'j'}, {36, 'a', 'k'}, {61, 'z', 'j'}};
  for (const auto &c : cases) {
    EXPECT_EQ(c.file, zb::file::temporaryFileCharacter(c.value)) << c.value;
    EXPECT_EQ(c.directory, zb::file::temporaryDirectoryCharacter(c.value)) << c.value;
  }
}

TEST_F(ZBFileDescriptorTest, InformationMasksAndModes) {
  ASSERT_TRUE(zbtest::makeDirectoryRaw(at("dir")));
  ZBFileDescriptor file = open("i", 2, "0123456789");
  ZBFileDescriptor readOnly = 0;
  ASSERT_EQ(0, ZBFileDescriptorOpen(at("ro").c_str(), 2 | 4, 0444, &readOnly));
  HANDLE directory =
      CreateFileW(zbtest::longPath(at("dir")).c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ,
                  nullptr, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, directory);
  const ZBFileDescriptor dir = zb::file::descriptorOf(directory);

  ZBFileInfo info;
  std::memset(&info, 0xA5, sizeof info);
  ASSERT_EQ(0, ZBFileDescriptorGetInfo(file, &info, ZBFileInfoMaskSize));
  EXPECT_EQ(10, info.size);
  EXPECT_EQ(0u, info.mode); // size only, the rest zeroed
  EXPECT_EQ(0, info.modificationTime);

  const struct {
    ZBFileDescriptor fd;
    uint32_t mask, mode;
    bool identity;
  } cases[] = {
      {file, 2, 0100644, false},        {file, 0xFFF, 0100644, true},
      {file, 0x1FFF, 0100644, true},    {file, 0xFFE, 0100644, false},
      {readOnly, 0xFFF, 0100444, true}, {dir, 0xFFF, 040755, true},
  };
  for (const auto &c : cases) {
    ASSERT_EQ(0, ZBFileDescriptorGetInfo(c.fd, &info, c.mask)) << c.mask;
    EXPECT_EQ(c.mode, info.mode) << std::oct << c.mode;
    EXPECT_EQ(c.identity, info.inode != 0) << c.mask;
    EXPECT_EQ(ZBVirtualGetPageSize(), info.blockSize);
    EXPECT_GT(info.modificationTime, 1500000000LL * 1000000000LL);
    EXPECT_EQ(0u, info.unused1[0] | info.unused2[4]);
    if (c.fd != dir) {
      EXPECT_EQ(1u, info.linkCount);
    }
  }
  // The same file through another descriptor has the same identity.
  ZBFileInfo again;
  ZBFileDescriptor second = open("i", 0);
  ASSERT_EQ(0, ZBFileDescriptorGetInfo(file, &info, 0xFFF));
  ASSERT_EQ(0, ZBFileDescriptorGetInfo(second, &again, 0xFFF));
  EXPECT_EQ(info.device, again.device);
  EXPECT_EQ(info.inode, again.inode);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorGetInfo(file, nullptr, 2));
  for (ZBFileDescriptor fd : {file, readOnly, dir, second}) {
    EXPECT_EQ(0, ZBFileDescriptorClose(fd));
  }
}

TEST_F(ZBFileDescriptorTest, FileIDFallbackAndInformationErrors) {
  ZBFileDescriptor fd = open("id", 2, "x");
  ZBFileInfo expected;
  ASSERT_EQ(0, ZBFileDescriptorGetInfo(fd, &expected, 0xFFF));
  static DWORD idError;
  static DWORD fallbackError;
  ScopedSystemCall noID(
      gSystemCalls.GetFileInformationByHandleEx,
      [](HANDLE h, FILE_INFO_BY_HANDLE_CLASS kind, LPVOID out, DWORD size) -> BOOL {
        if (kind != FileIdInfo)
          return GetFileInformationByHandleEx(h, kind, out, size);
        SetLastError(idError);
        return FALSE;
      });
  ScopedSystemCall fallback(gSystemCalls.GetFileInformationByHandle,
                            [](HANDLE h, LPBY_HANDLE_FILE_INFORMATION out) -> BOOL {
                              if (fallbackError == 0)
                                return GetFileInformationByHandle(h, out);
                              SetLastError(fallbackError);
                              return FALSE;
                            });
  const struct {
    DWORD idError, fallbackError;
    ZBError result;
    bool logged;
  } cases[] = {{ERROR_INVALID_PARAMETER, 0, 0, false},
               {ERROR_NOT_SUPPORTED, 0, 0, true},
               {ERROR_INVALID_PARAMETER, ERROR_ACCESS_DENIED, ZBErrorAccessDenied, false}};
  for (const auto &c : cases) {
    idError = c.idError;
    fallbackError = c.fallbackError;
    const size_t before = zbtest::occurrences(zbtest::logRing(), "FileIdInfo failed: 50;");
    ZBFileInfo info;
    EXPECT_EQ(c.result, ZBFileDescriptorGetInfo(fd, &info, 0xFFF));
    EXPECT_EQ(c.logged ? before + 1 : before,
              zbtest::occurrences(zbtest::logRing(), "FileIdInfo failed: 50;"));
    if (c.result == 0) { // the 64-bit file index names the same file
      EXPECT_NE(0u, info.inode);
    }
  }
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
}

TEST_F(ZBFileDescriptorTest, TimesRoundTripAtTickResolution) {
  ZBFileDescriptor fd = open("times", 2, "x");
  const int64_t access = 1000000000LL * 1600000000 + 123456700;
  const int64_t modification = 1000000000LL * 1500000000 + 100;
  ASSERT_EQ(0, ZBFileDescriptorSetHRTimes(fd, nullptr, &access, &modification));
  ZBFileInfo info;
  ASSERT_EQ(0, ZBFileDescriptorGetInfo(fd, &info, 2));
  EXPECT_EQ(access, info.accessTime);
  EXPECT_EQ(modification, info.modificationTime);
  // Missing times are now, read once for both.
  const int64_t before = info.modificationTime;
  ASSERT_EQ(0, ZBFileDescriptorSetHRTimes(fd, nullptr, nullptr, nullptr));
  ASSERT_EQ(0, ZBFileDescriptorGetInfo(fd, &info, 2));
  EXPECT_GT(info.modificationTime, before);
  EXPECT_EQ(info.accessTime, info.modificationTime);
  zbtest::gInjectedError = ERROR_WRITE_PROTECT;
  ZBTEST_FAIL(SetFileTime, FALSE);
  EXPECT_EQ(ZBErrorReadOnlyFileSystem, ZBFileDescriptorSetHRTimes(fd, nullptr, &access, nullptr));
  EXPECT_NE(std::string::npos, zbtest::logRing().find("SetFileTime failed with zb error: -14"));
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
}

TEST_F(ZBFileDescriptorTest, CloseOnExecIsTheInverseOfInheritance) {
  ZBFileDescriptor inherited = open("c1", 2 | 4);
  ZBFileDescriptor notInherited = open("c2", 2 | 4 | 0x200);
  bool flag = true;
  EXPECT_EQ(0, ZBFileDescriptorGetCloseOnExec(inherited, &flag));
  EXPECT_FALSE(flag);
  EXPECT_EQ(0, ZBFileDescriptorGetCloseOnExec(notInherited, &flag));
  EXPECT_TRUE(flag);
  EXPECT_EQ(0, ZBFileDescriptorSetCloseOnExec(inherited, true));
  EXPECT_EQ(0, ZBFileDescriptorGetCloseOnExec(inherited, &flag));
  EXPECT_TRUE(flag);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileDescriptorGetCloseOnExec(inherited, nullptr));

  // A duplicate shares the position and takes the inheritance asked for.
  ZBFileDescriptor duplicate = 0;
  ASSERT_EQ(0, ZBFileDescriptorDuplicate(notInherited, true, &duplicate));
  EXPECT_NE(notInherited, duplicate);
  EXPECT_EQ(0, ZBFileDescriptorWrite(duplicate, "abc", 3, nullptr));
  EXPECT_EQ(3, position(notInherited));
  EXPECT_EQ(0, ZBFileDescriptorGetCloseOnExec(duplicate, &flag));
  EXPECT_FALSE(flag);
  EXPECT_EQ(0, ZBFileDescriptorSynchronize(duplicate));
  {
    zbtest::gInjectedError = ERROR_TOO_MANY_OPEN_FILES;
    ZBTEST_FAIL(DuplicateHandle, FALSE);
    ZBFileDescriptor unused = 0;
    EXPECT_EQ(ZBErrorGeneric, ZBFileDescriptorDuplicate(inherited, false, &unused));
    EXPECT_EQ(0u, unused);
  }
  for (ZBFileDescriptor fd : {inherited, notInherited, duplicate}) {
    EXPECT_EQ(0, ZBFileDescriptorClose(fd));
  }
}

TEST(ZBFileDescriptorKinds, PipesAndSocketsAreTakenForSockets) {
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  ASSERT_TRUE(CreatePipe(&readEnd, &writeEnd, nullptr, 0));
  const ZBFileDescriptor pipe = zb::file::descriptorOf(readEnd);
  EXPECT_TRUE(ZBFileDescriptorIsSocket(pipe));
  EXPECT_TRUE(ZBFileDescriptorIsIPC(pipe));
  EXPECT_TRUE(ZBFileDescriptorIsTTY(pipe));
  char buffer[4];
  int64_t value = 0;
  EXPECT_EQ(ZBErrorUnsupported, ZBFileDescriptorReadAt(pipe, buffer, 4, 0, nullptr));
  EXPECT_EQ(ZBErrorUnsupported, ZBFileDescriptorSeek(pipe, 0, &value, 0));
  EXPECT_EQ(ZBErrorUnsupported, ZBFileDescriptorGetSize(pipe, &value));
  EXPECT_EQ(ZBErrorUnsupported, ZBFileDescriptorTruncate(pipe, 0));
  // The socket route asks the socket layer, which knows no such socket.
  uint32_t pending = 0;
  EXPECT_NE(0, ZBFileDescriptorGetPendingBytesCount(pipe, &pending));
  CloseHandle(readEnd);
  CloseHandle(writeEnd);

  WSADATA data;
  ASSERT_EQ(0, WSAStartup(MAKEWORD(2, 2), &data));
  const SOCKET sock = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  ASSERT_NE(INVALID_SOCKET, sock);
  const ZBFileDescriptor fd = static_cast<ZBFileDescriptor>(sock);
  if (!ZBFileDescriptorIsSocket(fd)) {
    closesocket(sock);
    WSACleanup();
    GTEST_SKIP() << "Wine does not report a socket handle as a pipe";
  }
  EXPECT_EQ(0, ZBFileDescriptorGetPendingBytesCount(fd, &pending));
  EXPECT_EQ(0u, pending);
  // A duplication that works is reported as a failure: kept on purpose.
  ZBFileDescriptor duplicate = 0;
  EXPECT_EQ(ZBErrorGeneric, ZBFileDescriptorDuplicate(fd, false, &duplicate));
  EXPECT_EQ(0u, duplicate);
  closesocket(sock);
  WSACleanup();

  const ZBFileDescriptor invalid[] = {0, ~ZBFileDescriptor{0}};
  for (ZBFileDescriptor bad : invalid) {
    EXPECT_FALSE(ZBFileDescriptorIsSocket(bad) || ZBFileDescriptorIsIPC(bad) ||
                 ZBFileDescriptorIsTTY(bad) || ZBFileDescriptorIsValid(bad));
  }
}

TEST_F(ZBFileDescriptorTest, InvalidDescriptorsAreRefusedByEveryFunction) {
  ZBFileDescriptor closed = open("closed", 2 | 4);
  EXPECT_TRUE(ZBFileDescriptorIsValid(closed));
  ASSERT_EQ(0, ZBFileDescriptorClose(closed));
  char buffer[4] = {};
  int64_t value = 0;
  uint32_t count = 0;
  bool flag = false;
  ZBFileInfo info;
  ZBMmap *map = nullptr;
  ZBFileDescriptor out = 0;
  const ZBFileDescriptorVector vector = {"x", 1};
  // Each entry: the call, then its code for 0 and all ones (closed handles
  // reach the system, which refuses them).
  const struct {
    const char *name;
    std::function<ZBError(ZBFileDescriptor)> call;
    ZBError invalid;
  } cases[] = {
      {"Read", [&](ZBFileDescriptor fd) { return ZBFileDescriptorRead(fd, buffer, 4, &count); },
       -20},
      {"ReadAt",
       [&](ZBFileDescriptor fd) { return ZBFileDescriptorReadAt(fd, buffer, 4, 0, &count); }, -20},
      {"Write", [&](ZBFileDescriptor fd) { return ZBFileDescriptorWrite(fd, "x", 1, &count); },
       -20},
      {"WriteAt",
       [&](ZBFileDescriptor fd) { return ZBFileDescriptorWriteAt(fd, "x", 1, 0, &count); }, -20},
      {"WriteMany",
       [&](ZBFileDescriptor fd) { return ZBFileDescriptorWriteMany(fd, 1, &vector, nullptr); },
       -20},
      {"Seek", [&](ZBFileDescriptor fd) { return ZBFileDescriptorSeek(fd, 0, &value, 0); }, -20},
      {"GetSize", [&](ZBFileDescriptor fd) { return ZBFileDescriptorGetSize(fd, &value); }, -20},
      {"Truncate", [&](ZBFileDescriptor fd) { return ZBFileDescriptorTruncate(fd, 0); }, -1},
      {"SetHRTimes",
       [&](ZBFileDescriptor fd) { return ZBFileDescriptorSetHRTimes(fd, &value, &value, &value); },
       -20},
      {"GetPending",
       [&](ZBFileDescriptor fd) { return ZBFileDescriptorGetPendingBytesCount(fd, &count); }, -20},
      {"GetInfo", [&](ZBFileDescriptor fd) { return ZBFileDescriptorGetInfo(fd, &info, 0xFFF); },
       -20},
      {"Synchronize", [&](ZBFileDescriptor fd) { return ZBFileDescriptorSynchronize(fd); }, -20},
      {"SetCloseOnExec",
       [&](ZBFileDescriptor fd) { return ZBFileDescriptorSetCloseOnExec(fd, true); }, -20},
      {"GetCloseOnExec",
       [&](ZBFileDescriptor fd) { return ZBFileDescriptorGetCloseOnExec(fd, &flag); }, -20},
      {"Duplicate", [&](ZBFileDescriptor fd) { return ZBFileDescriptorDuplicate(fd, false, &out); },
       -20},
      {"Close", [&](ZBFileDescriptor fd) { return ZBFileDescriptorClose(fd); }, -20},
      {"Mmap", [&](ZBFileDescriptor fd) { return ZBMmapCreateWithFD(fd, 0, 1, 1, &map); }, -1},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(c.invalid, c.call(0)) << c.name;
    EXPECT_EQ(c.invalid, c.call(~ZBFileDescriptor{0})) << c.name;
    if (std::string(c.name) != "Close") { // a failed close is never reported
      EXPECT_NE(0, c.call(closed)) << c.name << " on a closed descriptor";
    }
  }
  EXPECT_EQ(0, ZBFileDescriptorClose(closed));
  EXPECT_EQ(nullptr, map);
}

TEST(ZBFileDescriptorUnsupported, AnswerTheirFixedValues) {
  ZBFileDescriptor fd = 5;
  ZBFileDescriptor pair[2] = {};
  char *path = nullptr;
  EXPECT_EQ(-1, ZBFileDescriptorOpenNull(&fd));
  EXPECT_EQ(ZBErrorIO, ZBFileDescriptorCreatePipe(pair));
  EXPECT_EQ(0, ZBFileDescriptorLock(fd, 1, 0, 10));
  EXPECT_EQ(ZBErrorShutdown, ZBFileDescriptorGetLock(fd, 1, 0, 10, nullptr));
  EXPECT_EQ(0u, ZBFileDescriptorFromStdIn());
  EXPECT_EQ(0u, ZBFileDescriptorFromStdOut());
  EXPECT_EQ(0u, ZBFileDescriptorFromStdErr());
  EXPECT_EQ(ZBErrorNotImplemented, ZBFileDescriptorCopyPath(fd, &path));
  EXPECT_EQ(nullptr, path);
  EXPECT_EQ(ZBErrorUnsupported, ZBFileDescriptorSetNoCache(fd, true));
  EXPECT_EQ(ZBErrorUnsupported, ZBFileDescriptorSetNoCache(fd, false));
}

TEST_F(ZBFileDescriptorTest, SystemErrorsAreMappedForOpenReadAndWrite) {
  ZBTEST_FAIL(CreateFileW, INVALID_HANDLE_VALUE);
  ScopedSystemCall read(gSystemCalls.ReadFile,
                        [](HANDLE, LPVOID, DWORD, LPDWORD bytes, LPOVERLAPPED) -> BOOL {
                          *bytes = 2;
                          SetLastError(zbtest::gInjectedError);
                          return FALSE;
                        });
  ZBTEST_FAIL(WriteFile, FALSE);
  HANDLE real = CreateFileW(zbtest::longPath(at("e")).c_str(), GENERIC_READ | GENERIC_WRITE, 0,
                            nullptr, CREATE_ALWAYS, 0, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, real);
  const ZBFileDescriptor fd = zb::file::descriptorOf(real);
  char buffer[4];
  for (DWORD error : {2u, 5u, 32u, 80u, 112u, 123u, 206u, 1234u}) {
    zbtest::gInjectedError = error;
    ZBFileDescriptor out = 9;
    EXPECT_EQ(__ZBIOErrorFromWinError(error), ZBFileDescriptorOpen(at("e").c_str(), 2, 0644, &out));
    EXPECT_EQ(0u, out);
    uint32_t count = 0;
    EXPECT_EQ(__ZBIOErrorFromWinError(error), ZBFileDescriptorRead(fd, buffer, 4, &count));
    EXPECT_EQ(__ZBIOErrorFromWinError(error), ZBFileDescriptorWrite(fd, "abcd", 4, &count));
  }
  zbtest::gInjectedError = ERROR_HANDLE_EOF; // the end of the file is a read of what there was
  uint32_t count = 0;
  EXPECT_EQ(0, ZBFileDescriptorRead(fd, buffer, 4, &count));
  EXPECT_EQ(2u, count);
  CloseHandle(real);
}

TEST_F(ZBFileDescriptorTest, HandleCallsMapTheirSystemErrors) {
  ZBFileDescriptor fd = open("h", 2 | 4);
  ZBTEST_FAIL(SetFilePointerEx, FALSE);
  ZBTEST_FAIL(FlushFileBuffers, FALSE);
  ZBTEST_FAIL(SetHandleInformation, FALSE);
  ZBTEST_FAIL(GetHandleInformation, FALSE);
  ZBTEST_FAIL(GetFileInformationByHandleEx, FALSE);
  for (DWORD error : {5u, 19u, 112u, 1234u}) {
    zbtest::gInjectedError = error;
    const ZBError mapped = __ZBIOErrorFromWinError(error);
    int64_t where = 0;
    bool flag = false;
    uint32_t pending = 0;
    ZBFileInfo info;
    EXPECT_EQ(mapped, ZBFileDescriptorSeek(fd, 0, &where, 0)) << error;
    EXPECT_EQ(mapped, ZBFileDescriptorSynchronize(fd)) << error;
    EXPECT_EQ(mapped, ZBFileDescriptorSetCloseOnExec(fd, true)) << error;
    EXPECT_EQ(mapped, ZBFileDescriptorGetCloseOnExec(fd, &flag)) << error;
    EXPECT_EQ(mapped, ZBFileDescriptorGetInfo(fd, &info, 2)) << error;
    EXPECT_EQ(ZBErrorUnsupported, ZBFileDescriptorGetPendingBytesCount(fd, &pending));
  }
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
}

TEST_F(ZBFileDescriptorTest, ReadOnlyFilesRefuseWriting) {
  ZBFileDescriptor fd = 0;
  ASSERT_EQ(0, ZBFileDescriptorOpen(at("ro").c_str(), 2 | 4 | 64, 0444, &fd));
  EXPECT_EQ(0, ZBFileDescriptorWrite(fd, "x", 1, nullptr)); // the creating handle may write
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
  EXPECT_EQ(0, ZBFileDescriptorOpen(at("ro").c_str(), 0, 0, &fd));
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
  const ZBError writing = ZBFileDescriptorOpen(at("ro").c_str(), 2, 0644, &fd);
  if (writing == 0) {
    EXPECT_EQ(0, ZBFileDescriptorClose(fd));
    GTEST_SKIP() << "Wine lets root open a read-only file for writing";
  }
  EXPECT_EQ(ZBErrorAccessDenied, writing);
  EXPECT_EQ(0u, fd);
}

TEST_F(ZBFileDescriptorTest, MapsOfAWrittenFile) {
  const uint32_t page = ZBVirtualGetPageSize();
  SYSTEM_INFO system;
  GetSystemInfo(&system);
  ASSERT_EQ(system.dwPageSize, page);
  std::string text(3 * page + 100, '\0');
  for (size_t index = 0; index < text.size(); ++index)
    text[index] = static_cast<char>('a' + index % 26);
  ZBFileDescriptor fd = open("m", 2 | 4);
  ASSERT_EQ(0, ZBFileDescriptorWrite(fd, text.data(), static_cast<uint32_t>(text.size()), nullptr));

  // Private mappings see the file; their writes stay in memory.
  const struct {
    int64_t offset;
    uint32_t length, flags;
  } reads[] = {{0, 0xFFFFFFFF, 1}, {page, 100, 1}, {2 * page, page + 100, 3}, {0, 10, 5}};
  for (const auto &r : reads) {
    ZBMmap *map = nullptr;
    ASSERT_EQ(0, ZBMmapCreateWithFD(fd, r.offset, r.length, r.flags, &map)) << r.offset;
    const uint32_t length = r.length == 0xFFFFFFFF ? static_cast<uint32_t>(text.size()) : r.length;
    EXPECT_EQ(length, ZBMmapGetSize(map));
    EXPECT_EQ(0, std::memcmp(text.data() + r.offset, ZBMmapGetBytes(map), length));
    if (r.flags & ZBMmapProtectionWrite)
      static_cast<char *>(ZBMmapGetBytes(map))[0] = '!';
    EXPECT_EQ(0, ZBMmapSynchronize(map, false));
    EXPECT_EQ(0, ZBMmapFree(map));
  }
  EXPECT_EQ(text, readRaw(at("m")));

  // A shared writable mapping writes through to the file.
  ZBMmap *shared = nullptr;
  ASSERT_EQ(0, ZBMmapCreateWithFD(fd, page, 10, ZBMmapShared | 3, &shared));
  std::memcpy(ZBMmapGetBytes(shared), "0123456789", 10);
  EXPECT_EQ(0, ZBMmapSynchronize(shared, true));
  EXPECT_EQ(0, ZBMmapFree(shared));
  char buffer[10];
  ASSERT_EQ(0, ZBFileDescriptorReadAt(fd, buffer, 10, page, nullptr));
  EXPECT_EQ("0123456789", std::string(buffer, 10));

  const struct {
    int64_t offset;
    uint32_t length, flags;
    ZBError result;
  } bad[] = {
      {1, 10, 1, -1},
      {-static_cast<int64_t>(page), 10, 1, -1},
      {4 * page, 10, 1, -1},
      {3 * page, 101, 1, -1},
      {0, 0, 1, -1},
      {0, 10, 0, ZBErrorUnsupported},
      {0, 10, ZBMmapShared | 2, ZBErrorUnsupported},
      {0, 10, ZBMmapShared | 5, ZBErrorUnsupported},
  };
  for (const auto &b : bad) {
    ZBMmap *map = reinterpret_cast<ZBMmap *>(1);
    EXPECT_EQ(b.result, ZBMmapCreateWithFD(fd, b.offset, b.length, b.flags, &map))
        << b.offset << " " << b.length << " " << b.flags;
    EXPECT_EQ(nullptr, map);
  }
  EXPECT_EQ(ZBErrorInvalidArgument, ZBMmapCreateWithFD(fd, 0, 10, 1, nullptr));

  ZBTEST_FAIL(MapViewOfFileFromApp, static_cast<PVOID>(nullptr));
  const struct {
    DWORD error;
    ZBError result;
  } errors[] = {{0, -1},  {3, -4},    {15, -4},    {5, -8},    {8, -2},   {14, -2},  {19, -14},
                {80, -5}, {145, -33}, {4307, -33}, {148, -17}, {2, -100}, {32, -100}};
  for (const auto &e : errors) {
    zbtest::gInjectedError = e.error;
    ZBMmap *map = nullptr;
    EXPECT_EQ(e.result, ZBMmapCreateWithFD(fd, 0, 10, 1, &map)) << e.error;
  }
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
}

TEST_F(ZBFileDescriptorTest, PathInformationFromAttributesOrTheOpenedPath) {
  ASSERT_TRUE(writeRaw(at("f"), "12345"));
  ASSERT_TRUE(zbtest::makeDirectoryRaw(at("d")));
  ZBFileDescriptor ro = 0;
  ASSERT_EQ(0, ZBFileDescriptorOpen(at("ro").c_str(), 2 | 4, 0444, &ro));
  ASSERT_EQ(0, ZBFileDescriptorClose(ro));
  const struct {
    const char *name;
    uint32_t mode;
  } modes[] = {{"f", 0100644}, {"ro", 0100444}, {"d", 040755}};
  for (const auto &m : modes) {
    uint32_t mode = 0;
    EXPECT_EQ(0, ZBPathGetFileMode(at(m.name).c_str(), &mode));
    EXPECT_EQ(m.mode, mode) << m.name;
  }
  ZBFileInfo info;
  ASSERT_EQ(0, ZBPathGetInfo(at("f").c_str(), &info, 1 | 0x1000));
  EXPECT_EQ(5, info.size);
  EXPECT_EQ(0u, info.mode);
  ASSERT_EQ(0, ZBPathGetInfo(at("f").c_str(), &info, 0xFFF)); // opens the file
  EXPECT_EQ(5, info.size);
  EXPECT_EQ(0100644u, info.mode);
  EXPECT_NE(0u, info.inode);
  ASSERT_EQ(0, ZBPathGetInfo(at("d").c_str(), &info, 0x10)); // directories open too
  EXPECT_EQ(040755u, info.mode);

  ZBFileDescriptor fd = 0;
  ASSERT_EQ(0, ZBFileDescriptorOpen(at("f").c_str(), 2, 0644, &fd));
  const int64_t when = 1000000000LL * 1234567890;
  ASSERT_EQ(0, ZBFileDescriptorSetHRTimes(fd, nullptr, &when, &when));
  ASSERT_EQ(0, ZBFileDescriptorClose(fd));
  int64_t modification = 0;
  EXPECT_EQ(0, ZBPathGetMTime(("/" + at("f")).c_str(), &modification));
  EXPECT_EQ(when, modification);

  uint32_t mode = 0;
  EXPECT_EQ(ZBErrorFileNotFound, ZBPathGetFileMode(at("absent").c_str(), &mode));
  EXPECT_EQ(ZBErrorFileNotFound, ZBPathGetInfo(at("absent").c_str(), &info, 0xFFF));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPathGetInfo("", &info, 1));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPathGetInfo(at("f").c_str(), nullptr, 1));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPathGetMTime(at("f").c_str(), nullptr));
}

} // namespace
