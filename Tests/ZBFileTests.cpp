// Files and directories on the real file system: scan depth and order,
// creation with its parent walk, nested creation, removal with the
// read-only retry, recursive removal of read-only trees, temporaries,
// copies and moves that fail without harming the source, long and
// non-ASCII paths end to end, the time setters, and each function's
// Windows error table walked row by row through the system-call table.
#include "ZBFile.h"
#include "ZBFileDescriptor.h"

#include "ZBFileTestSupport.h"
#include "ZBSystemCallInjection.h"
#include "ZBTestSupport.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace {

using zb::gSystemCalls;
using zb::test::ScopedSystemCall;
using zbtest::attributesOf;
using zbtest::existsRaw;
using zbtest::readRaw;
using zbtest::writeRaw;

struct Visit {
  std::string path; // relative to the scanned directory
  int32_t depth;
  uint32_t type;
};

struct Recorder {
  std::string root;
  std::vector<Visit> visits;
  std::string stopAt;     // a name whose callback answers false
  int32_t stopDepth = -1; // or the first entry at this depth answers false
};

bool record(void *context, const char *directory, const char *name, int32_t depth, uint32_t type) {
  auto *recorder = static_cast<Recorder *>(context);
  std::string relative = std::string(directory).substr(recorder->root.size());
  if (!relative.empty())
    relative = relative.substr(1) + "/";
  recorder->visits.push_back({relative + name, depth, type});
  return recorder->stopAt != name && recorder->stopDepth != depth;
}

class ZBFileTest : public zbtest::FileSystemTest {
protected:
  // root/a.txt, root/d1/b.txt, root/d1/d2/c.txt, root/d1/d2/e.txt
  void makeTree() {
    ASSERT_TRUE(writeRaw(at("a.txt"), "a"));
    ASSERT_TRUE(zbtest::makeDirectoryRaw(at("d1")));
    ASSERT_TRUE(writeRaw(at("d1/b.txt"), "b"));
    ASSERT_TRUE(zbtest::makeDirectoryRaw(at("d1/d2")));
    ASSERT_TRUE(writeRaw(at("d1/d2/c.txt"), "c"));
    ASSERT_TRUE(writeRaw(at("d1/d2/e.txt"), "e"));
  }
  Recorder scan(int32_t depth, uint32_t order, const std::string &stopAt = "") {
    Recorder recorder{root_, {}, stopAt, -1};
    EXPECT_TRUE(ZBDirectoryScanOrdered(root_.c_str(), record, depth, &recorder, order));
    return recorder;
  }
  static std::set<std::string> names(const Recorder &recorder) {
    std::set<std::string> result;
    for (const Visit &visit : recorder.visits)
      result.insert(visit.path + "@" + std::to_string(visit.depth) + ":" +
                    std::to_string(visit.type));
    return result;
  }
  static size_t indexOf(const Recorder &recorder, const std::string &path) {
    for (size_t index = 0; index < recorder.visits.size(); ++index)
      if (recorder.visits[index].path == path)
        return index;
    return SIZE_MAX;
  }
};

TEST_F(ZBFileTest, ScanDepthLimits) {
  makeTree();
  const std::set<std::string> top = {"a.txt@0:0", "d1@0:1"};
  std::set<std::string> two = top;
  two.insert({"d1/b.txt@1:0", "d1/d2@1:1"});
  std::set<std::string> all = two;
  all.insert({"d1/d2/c.txt@2:0", "d1/d2/e.txt@2:0"});
  const struct {
    int32_t depth;
    std::set<std::string> expected;
  } cases[] = {{0, top}, {1, top}, {2, two}, {3, all}, {-1, all}};
  for (const auto &c : cases) {
    EXPECT_EQ(c.expected, names(scan(c.depth, ZBDirectoryScanPreOrder))) << c.depth;
  }
}

TEST_F(ZBFileTest, ScanOrdersAndStops) {
  makeTree();
  const Recorder pre = scan(-1, ZBDirectoryScanPreOrder);
  EXPECT_LT(indexOf(pre, "d1"), indexOf(pre, "d1/b.txt"));
  EXPECT_LT(indexOf(pre, "d1/d2"), indexOf(pre, "d1/d2/c.txt"));
  const Recorder post = scan(-1, ZBDirectoryScanPostOrder);
  EXPECT_GT(indexOf(post, "d1"), indexOf(post, "d1/b.txt"));
  EXPECT_GT(indexOf(post, "d1/d2"), indexOf(post, "d1/d2/e.txt"));
  EXPECT_EQ(names(pre), names(post));
  EXPECT_TRUE(scan(-1, 2).visits.empty()); // walks, never calls

  // A stop in d1/d2 ends only d1/d2: one of its two files is seen, and
  // everything outside it still is.
  for (uint32_t order : {0u, 1u}) {
    Recorder stopped{root_, {}, "", 2};
    EXPECT_TRUE(ZBDirectoryScanOrdered(root_.c_str(), record, -1, &stopped, order));
    const std::set<std::string> seen = names(stopped);
    EXPECT_EQ(1u, seen.count("d1/d2/c.txt@2:0") + seen.count("d1/d2/e.txt@2:0")) << order;
    for (const char *outside : {"a.txt@0:0", "d1@0:1", "d1/b.txt@1:0", "d1/d2@1:1"})
      EXPECT_EQ(1u, seen.count(outside)) << order << " " << outside;
  }
  // A stop at the top returns true too, with one entry seen.
  const Recorder first = scan(-1, 0, "a.txt");
  EXPECT_EQ("a.txt", first.visits.back().path);

  Recorder none{root_, {}, "", -1};
  EXPECT_FALSE(ZBDirectoryScan(at("absent").c_str(), record, -1, &none));
  EXPECT_FALSE(ZBDirectoryScan(at("a.txt").c_str(), record, -1, &none));
  EXPECT_FALSE(ZBDirectoryScan("", record, -1, &none));
  EXPECT_TRUE(ZBDirectoryScan((root_ + "/").c_str(), record, 0, &none)); // trailing separator
  EXPECT_EQ(2u, none.visits.size());
}

TEST_F(ZBFileTest, CreateWalksUpToTellMissingParentsFromFiles) {
  ASSERT_TRUE(writeRaw(at("file"), "x"));
  const struct {
    const char *path;
    ZBError result;
  } cases[] = {
      {"new", 0},
      {"new", ZBErrorFileExists},
      {"missing/x", ZBErrorFileNotFound},
      {"missing/deeper/x", ZBErrorFileNotFound},
      {"file/x", ZBErrorNotDirectory},
      {"file/deeper/x", ZBErrorNotDirectory},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(c.result, ZBDirectoryCreate(at(c.path).c_str(), 0755)) << c.path;
  }
  EXPECT_TRUE(attributesOf(at("new")) & FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBDirectoryCreate("", 0755));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBDirectoryCreate(nullptr, 0755));
  // Without the owner-write bit the directory is made read-only.
  ASSERT_EQ(0, ZBDirectoryCreate(at("locked").c_str(), 0555));
  if (!(attributesOf(at("locked")) & FILE_ATTRIBUTE_READONLY))
    GTEST_SKIP() << "Wine does not keep the read-only attribute of a directory";
}

TEST_F(ZBFileTest, NestedCreate) {
  ASSERT_TRUE(writeRaw(at("file"), "x"));
  EXPECT_EQ(0, ZBDirectoryCreateNested(at("a/b/c").c_str(), 0755, 0755));
  EXPECT_TRUE(attributesOf(at("a/b/c")) & FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(0, ZBDirectoryCreateNested(at("a/b/c").c_str(), 0755, 0755)); // exists: nothing to do
  EXPECT_EQ(0, ZBDirectoryCreateNested(("/" + at("a//b/./x/")).c_str(), 0755, 0755));
  EXPECT_TRUE(attributesOf(at("a/b/x")) & FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_EQ(ZBErrorNotDirectory, ZBDirectoryCreateNested(at("file/x").c_str(), 0755, 0755));
  EXPECT_FALSE(existsRaw(at("file/x")));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBDirectoryCreateNested("", 0755, 0755));

  // Access denied creating the last component is the result; on one in
  // between it is passed over.
  static std::wstring refused;
  refused = zbtest::longPath(at("p/q"));
  ScopedSystemCall create(gSystemCalls.CreateDirectoryW,
                          [](LPCWSTR path, LPSECURITY_ATTRIBUTES) -> BOOL {
                            if (refused == path) {
                              SetLastError(ERROR_ACCESS_DENIED);
                              return FALSE;
                            }
                            return CreateDirectoryW(path, nullptr);
                          });
  EXPECT_EQ(ZBErrorAccessDenied, ZBDirectoryCreateNested(at("p/q").c_str(), 0755, 0755));
  EXPECT_TRUE(existsRaw(at("p")));
  EXPECT_EQ(ZBErrorFileNotFound, ZBDirectoryCreateNested(at("p/q/r").c_str(), 0755, 0755));
}

TEST_F(ZBFileTest, RemoveAndTheReadOnlyRetry) {
  ASSERT_TRUE(zbtest::makeDirectoryRaw(at("empty")));
  ASSERT_TRUE(zbtest::makeDirectoryRaw(at("full")));
  ASSERT_TRUE(writeRaw(at("full/x"), "x"));
  EXPECT_EQ(0, ZBDirectoryRemove(at("empty").c_str()));
  EXPECT_FALSE(existsRaw(at("empty")));
  EXPECT_EQ(ZBErrorFileNotFound, ZBDirectoryRemove(at("empty").c_str()));
  EXPECT_EQ(ZBErrorDirectoryNotEmpty, ZBDirectoryRemove(at("full").c_str()));
  EXPECT_NE(std::string::npos, zbtest::logRing().find("failed to remove directory"));
  EXPECT_EQ(ZBErrorIsDirectory, ZBFileRemove(at("full").c_str()));
  EXPECT_TRUE(existsRaw(at("full/x")));

  // A read-only file is removed after its attribute is cleared.
  ASSERT_EQ(0, ZBFileCreateFromBytes("ro", 2, at("ro").c_str(), 0444));
  ASSERT_TRUE(attributesOf(at("ro")) & FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(0, ZBFileRemove(at("ro").c_str()));
  EXPECT_FALSE(existsRaw(at("ro")));
  EXPECT_EQ(ZBErrorFileNotFound, ZBFileRemove(at("ro").c_str()));

  // A directory refused for being read-only (which Wine cannot make) is
  // cleared and removed: the refusal and the attribute are injected.
  ASSERT_TRUE(zbtest::makeDirectoryRaw(at("locked")));
  static int calls;
  calls = 0;
  ScopedSystemCall remove(gSystemCalls.RemoveDirectoryW, [](LPCWSTR path) -> BOOL {
    if (calls++ == 0) {
      SetLastError(ERROR_ACCESS_DENIED);
      return FALSE;
    }
    return RemoveDirectoryW(path);
  });
  ScopedSystemCall attributes(gSystemCalls.GetFileAttributesW, [](LPCWSTR path) -> DWORD {
    const DWORD real = GetFileAttributesW(path);
    return real == INVALID_FILE_ATTRIBUTES ? real : real | FILE_ATTRIBUTE_READONLY;
  });
  EXPECT_EQ(0, ZBDirectoryRemove(at("locked").c_str()));
  EXPECT_EQ(2, calls);
  EXPECT_FALSE(existsRaw(at("locked")));
}

TEST_F(ZBFileTest, RecursiveRemoveOfATreeWithReadOnlyFiles) {
  ASSERT_EQ(0, ZBDirectoryCreateNested(at("t/a/b").c_str(), 0755, 0755));
  for (const char *name : {"t/1", "t/a/2", "t/a/b/3", "t/a/b/4"}) {
    ASSERT_EQ(0, ZBFileCreateFromBytes(name, std::strlen(name), at(name).c_str(), 0444));
  }
  ASSERT_TRUE(attributesOf(at("t/a/b/3")) & FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(0, ZBDirectoryRemoveRecursive(at("t").c_str()));
  EXPECT_FALSE(existsRaw(at("t")));
  EXPECT_EQ(0, ZBDirectoryRemoveRecursive(at("t").c_str())); // absent
  EXPECT_EQ(ZBErrorInvalidArgument, ZBDirectoryRemoveRecursive(""));

  // A file that cannot be removed stops the removal and is reported.
  ASSERT_EQ(0, ZBDirectoryCreateNested(at("u/v").c_str(), 0755, 0755));
  ASSERT_TRUE(writeRaw(at("u/v/busy"), "x"));
  zbtest::gInjectedError = ERROR_SHARING_VIOLATION;
  ZBTEST_FAIL(DeleteFileW, FALSE);
  EXPECT_EQ(ZBErrorDirectoryNotEmpty, ZBDirectoryRemoveRecursive(at("u").c_str()));
  EXPECT_TRUE(existsRaw(at("u/v/busy")));
  EXPECT_NE(std::string::npos, zbtest::logRing().find("busy, err: -17"));
}

TEST_F(ZBFileTest, TemporaryDirectoriesAndFiles) {
  const struct {
    const char *pattern;
    ZBError result;
  } cases[] = {{"abcde", ZBErrorInvalidArgument},
               {"abcdefg", ZBErrorInvalidArgument},
               {"abcdeX", 0},
               {"tmp-XXXXXX", 0}};
  for (const auto &c : cases) {
    std::string path = at(c.pattern);
    EXPECT_EQ(c.result, ZBDirectoryCreateTemporary(path.data())) << c.pattern;
    if (c.result != 0)
      continue;
    const std::string tail = path.substr(path.size() - 6);
    EXPECT_TRUE(std::all_of(tail.begin(), tail.end(), [](char ch) { return isalnum(ch); })) << path;
    EXPECT_EQ(path.substr(0, path.size() - 6), at(c.pattern).substr(0, path.size() - 6));
    EXPECT_TRUE(attributesOf(path) & FILE_ATTRIBUTE_DIRECTORY) << path;
  }
  EXPECT_EQ(ZBErrorInvalidArgument, ZBDirectoryCreateTemporary(nullptr));

  std::string kept = at("keptXXXX");
  EXPECT_EQ(0, ZBFileCreateTemporary(kept.data(), 0, nullptr)); // closed, file stays
  EXPECT_NE(kept, at("keptXXXX"));
  EXPECT_EQ(0, ZBFileRemove(kept.c_str()));
  std::string open = at("openXXXX.txt");
  ZBFileDescriptor fd = 0;
  ASSERT_EQ(0, ZBFileCreateTemporary(open.data(), 4, &fd));
  EXPECT_EQ(0, ZBFileDescriptorWrite(fd, "hi", 2, nullptr));
  EXPECT_EQ(0, ZBFileDescriptorClose(fd));
  EXPECT_EQ("hi", readRaw(open));
}

TEST_F(ZBFileTest, CreateFromBytesCopyAndMove) {
  std::string big(10000, '\0');
  for (size_t index = 0; index < big.size(); ++index)
    big[index] = static_cast<char>(index * 7);
  ASSERT_EQ(0, ZBFileCreateFromBytes(big.data(), big.size(), at("src").c_str(), 0644));
  EXPECT_EQ(big, readRaw(at("src")));
  ASSERT_EQ(0, ZBFileCreateFromBytes("x", 1, at("src2").c_str(), 0644));
  ASSERT_EQ(0, ZBFileCreateFromBytes("", 0, at("src2").c_str(), 0644)); // replaced
  EXPECT_EQ("", readRaw(at("src2")));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileCreateFromBytes(nullptr, 0, at("n").c_str(), 0644));

  ASSERT_TRUE(writeRaw(at("dst"), "old"));
  EXPECT_EQ(0, ZBFileCopy(at("src").c_str(), at("dst").c_str(), 0644));
  EXPECT_EQ(big, readRaw(at("dst")));
  // Onto itself under another case: nothing happens.
  std::string upper = at("SRC");
  EXPECT_EQ(0, ZBFileCopy(at("src").c_str(), upper.c_str(), 0644));
  EXPECT_TRUE(ZBFileIsSame(at("src").c_str(), upper.c_str()));
  EXPECT_EQ(big, readRaw(at("src")));
  EXPECT_FALSE(ZBFileIsSame(at("src").c_str(), at("dst").c_str()));
  EXPECT_FALSE(ZBFileIsSame(at("src").c_str(), at("absent").c_str()));
  EXPECT_TRUE(ZBFileIsSame(at("src").c_str(), ("/" + at("./src")).c_str())); // by identity

  // Failures leave the source whole.
  ASSERT_TRUE(zbtest::makeDirectoryRaw(at("dir")));
  ASSERT_TRUE(writeRaw(at("dir/inside"), "i"));
  EXPECT_EQ(ZBErrorIsDirectory, ZBFileCopy(at("src").c_str(), at("dir").c_str(), 0644));
  EXPECT_EQ(ZBErrorFileNotFound, ZBFileCopy(at("absent").c_str(), at("dst").c_str(), 0644));
  EXPECT_EQ(big, readRaw(at("dst"))); // the destination was not touched either
  EXPECT_EQ(ZBErrorFileNotFound, ZBFileMove(at("src").c_str(), at("missing/x").c_str(), 0));
  EXPECT_EQ(big, readRaw(at("src")));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileCopy("", at("dst").c_str(), 0644));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileMove(at("src").c_str(), nullptr, 0));

  // A copy whose write comes up short reports a full disk.
  ScopedSystemCall shortWrite(
      gSystemCalls.WriteFile,
      [](HANDLE h, LPCVOID b, DWORD n, LPDWORD done, LPOVERLAPPED o) -> BOOL {
        return WriteFile(h, b, n / 2, done, o);
      });
  EXPECT_EQ(ZBErrorNoSpace, ZBFileCopy(at("src").c_str(), at("half").c_str(), 0644));
  EXPECT_EQ(ZBErrorNoSpace, ZBFileCreateFromBytes("abcd", 4, at("half").c_str(), 0644));
  EXPECT_EQ(big, readRaw(at("src")));

  EXPECT_EQ(0, ZBFileMove(at("src").c_str(), at("dst").c_str(), 0)); // replaces
  EXPECT_FALSE(existsRaw(at("src")));
  EXPECT_EQ(big, readRaw(at("dst")));
}

TEST_F(ZBFileTest, LongAndNonASCIIPathsEndToEnd) {
  const std::string segment(60, 'l');
  const std::string deep =
      at(segment + "/" + segment + "/" + segment + "/" + segment + "/" + segment);
  const std::string unicode = at(u8"Ünïcødé-日本語-€");
  for (const std::string &directory : {deep, unicode}) {
    ASSERT_EQ(0, ZBDirectoryCreateNested(directory.c_str(), 0755, 0755));
    const std::string file = directory + u8"/fïle-ß.txt";
    ASSERT_GT(file.size(), directory == deep ? 300u : 0u);
    ASSERT_EQ(0, ZBFileCreateFromBytes("payload", 7, file.c_str(), 0644));
    ZBFileDescriptor fd = 0;
    ASSERT_EQ(0, ZBFileDescriptorOpen(file.c_str(), 0, 0, &fd));
    char buffer[8] = {};
    uint32_t count = 0;
    EXPECT_EQ(0, ZBFileDescriptorRead(fd, buffer, 8, &count));
    EXPECT_EQ("payload", std::string(buffer, count));
    EXPECT_EQ(0, ZBFileDescriptorClose(fd));
    Recorder recorder{directory, {}, "", -1};
    EXPECT_TRUE(ZBDirectoryScan(directory.c_str(), record, -1, &recorder));
    ASSERT_EQ(1u, recorder.visits.size());
    EXPECT_EQ(u8"fïle-ß.txt", recorder.visits[0].path);
    EXPECT_EQ(0, ZBFileCopy(file.c_str(), (file + ".copy").c_str(), 0644));
    EXPECT_EQ(0, ZBFileMove((file + ".copy").c_str(), (file + ".moved").c_str(), 0));
    EXPECT_EQ("payload", readRaw(file + ".moved"));
  }
  EXPECT_EQ(0, ZBDirectoryRemoveRecursive(at(segment).c_str()));
  EXPECT_EQ(0, ZBDirectoryRemoveRecursive(unicode.c_str()));
  EXPECT_FALSE(existsRaw(at(segment)));
  EXPECT_FALSE(existsRaw(unicode));
}

TEST_F(ZBFileTest, TimeSettersByPath) {
  ASSERT_TRUE(writeRaw(at("f"), "x"));
  const int64_t access = 1000000000LL * 1400000000 + 500;
  const int64_t modification = 1000000000LL * 1300000000 + 700;
  ZBFileInfo info;
  ASSERT_EQ(0, ZBFileSetAccessAndMotificationHRTimes(at("f").c_str(), &access, &modification));
  ASSERT_EQ(0, ZBPathGetInfo(at("f").c_str(), &info, 0xFFE));
  EXPECT_EQ(access, info.accessTime);
  EXPECT_EQ(modification, info.modificationTime);
  ASSERT_EQ(0, ZBLinkSetAccessAndMotificationHRTimes(at("f").c_str(), &modification, &access));
  ASSERT_EQ(0, ZBPathGetInfo(at("f").c_str(), &info, 0xFFE));
  EXPECT_EQ(modification, info.accessTime);
  EXPECT_EQ(access, info.modificationTime);
  EXPECT_EQ(ZBErrorFileNotFound,
            ZBFileSetAccessAndMotificationHRTimes(at("absent").c_str(), &access, nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBFileSetCreationHRTime("", &access));

  // Setting the creation time sets the other two to now as well.
  const int64_t creation = 1000000000LL * 1200000000;
  ASSERT_EQ(0, ZBFileSetCreationHRTime(at("f").c_str(), &creation));
  ASSERT_EQ(0, ZBPathGetInfo(at("f").c_str(), &info, 0xFFE));
  EXPECT_GT(info.modificationTime, modification);
  EXPECT_EQ(info.accessTime, info.modificationTime);
  if (info.creationTime != creation)
    GTEST_SKIP() << "Wine does not set creation times";
}

TEST_F(ZBFileTest, MalformedAndAbsurdPathsGetCodesNotCrashes) {
  const std::string bad = at("bad\x80"); // not UTF-8: no system path can be made of it
  const std::string huge = at(std::string(40000, 'h'));
  ASSERT_TRUE(writeRaw(at("f"), "x"));
  ZBFileDescriptor fd = 0;
  ZBFileInfo info;
  Recorder recorder{root_, {}, "", -1};
  const struct {
    const char *name;
    std::function<ZBError(const char *)> call;
    ZBError badCode;
  } cases[] = {
      {"Open", [&](const char *p) { return ZBFileDescriptorOpen(p, 2 | 4, 0644, &fd); },
       ZBErrorNotLocked},
      {"GetInfo", [&](const char *p) { return ZBPathGetInfo(p, &info, 0xFFF); }, ZBErrorNoMemory},
      {"Create", [](const char *p) { return ZBDirectoryCreate(p, 0755); }, ZBErrorNoMemory},
      {"Remove", [](const char *p) { return ZBDirectoryRemove(p); }, ZBErrorNoMemory},
      {"RemoveRecursive", [](const char *p) { return ZBDirectoryRemoveRecursive(p); },
       ZBErrorNoMemory},
      {"FileRemove", [](const char *p) { return ZBFileRemove(p); }, ZBErrorNoMemory},
      {"CreateFromBytes", [](const char *p) { return ZBFileCreateFromBytes("x", 1, p, 0644); },
       ZBErrorNoMemory},
      {"CopyFrom", [&](const char *p) { return ZBFileCopy(p, at("f").c_str(), 0644); },
       ZBErrorNotLocked},
      {"MoveFrom", [&](const char *p) { return ZBFileMove(p, at("g").c_str(), 0); },
       ZBErrorGeneric},
      {"Times", [](const char *p) { return ZBFileSetCreationHRTime(p, nullptr); },
       ZBErrorNotLocked},
      {"Scan", [&](const char *p) { return ZBDirectoryScan(p, record, -1, &recorder) ? 0 : -1; },
       -1},
  };
  for (const auto &c : cases) {
    EXPECT_EQ(c.badCode, c.call(bad.c_str())) << c.name;
    // Nothing that long exists: the recursive removal of an absent path is done.
    if (std::string(c.name) == "RemoveRecursive") {
      EXPECT_EQ(0, c.call(huge.c_str()));
    } else {
      EXPECT_NE(0, c.call(huge.c_str())) << c.name;
    }
  }
  EXPECT_EQ("x", readRaw(at("f")));
  EXPECT_FALSE(existsRaw(at("g")));
}

// Each function's table: the Windows error its system call fails with and
// the code the function answers.
struct Row {
  DWORD error;
  ZBError create, removeDirectory, removeFile, move;
};
constexpr Row kTable[] = {
    {2, -4, -4, -4, -4},          {5, -8, -8, -8, -8},           {8, -2, -2, -100, -100},
    {14, -2, -2, -100, -100},     {15, -4, -4, -100, -100},      {17, -100, -100, -100, -59},
    {19, -14, -14, -14, -14},     {32, -100, -100, -17, -17},    {80, -5, -5, -100, -100},
    {183, -5, -100, -100, -100},  {123, -100, -100, -60, -100},  {145, -100, -33, -100, -100},
    {148, -100, -17, -100, -100}, {4307, -100, -33, -100, -100}, {1234, -100, -100, -100, -100},
};

TEST_F(ZBFileTest, ErrorTablesRowByRow) {
  ZBTEST_FAIL(CreateDirectoryW, FALSE);
  ZBTEST_FAIL(RemoveDirectoryW, FALSE);
  ZBTEST_FAIL(DeleteFileW, FALSE);
  ZBTEST_FAIL(MoveFileExW, FALSE);
  ASSERT_TRUE(writeRaw(at("f"), "x"));
  ASSERT_TRUE(zbtest::makeDirectoryRaw(at("d")));
  for (const Row &row : kTable) {
    zbtest::gInjectedError = row.error;
    EXPECT_EQ(row.create, ZBDirectoryCreate(at("d/new").c_str(), 0755)) << row.error;
    EXPECT_EQ(row.removeDirectory, ZBDirectoryRemove(at("d").c_str())) << row.error;
    EXPECT_EQ(row.removeFile, ZBFileRemove(at("f").c_str())) << row.error;
    EXPECT_EQ(row.move, ZBFileMove(at("f").c_str(), at("g").c_str(), 0)) << row.error;
  }
  // Access denied on a directory path is "is a directory" for a file removal.
  zbtest::gInjectedError = ERROR_ACCESS_DENIED;
  EXPECT_EQ(ZBErrorIsDirectory, ZBFileRemove(at("d").c_str()));
  // Path not found on creation walks up instead of mapping.
  zbtest::gInjectedError = ERROR_PATH_NOT_FOUND;
  EXPECT_EQ(ZBErrorFileNotFound, ZBDirectoryCreate(at("d/new").c_str(), 0755));
  EXPECT_EQ(ZBErrorNotDirectory, ZBDirectoryCreate(at("f/new").c_str(), 0755));
  EXPECT_EQ("x", readRaw(at("f")));
}

} // namespace
