// Host identity, random bytes and the application directories, against the
// real file system and the real process environment. Every directory test
// points the home, LOCALAPPDATA and TMP at a fresh folder of its own, so no
// test touches the user's folders and the tests run in any order. Errors
// Wine cannot produce are injected through the system-call table.
#include <gtest/gtest.h>

#include "ZBAlloc.h"
#include "ZBEnvironment.h"
#include "ZBFile.h"
#include "ZBOption.h"
#include "ZBPath.h"
#include "ZBProcess.h"
#include "ZBSystemCallInjection.h"
#include "ZBTestSupport.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace {

using zb::gSystemCalls;
using zb::test::ScopedSystemCall;

// A library string that is freed with _ZBFree.
std::string take(char *text) {
  std::string copy = text ? text : "<null>";
  _ZBFree(text);
  return copy;
}

// The path the injected GetModuleFileNameW reports; null fails the call.
const wchar_t *sModulePath;

DWORD WINAPI fakeModuleFileName(HMODULE, LPWSTR buffer, DWORD capacity) {
  if (sModulePath == nullptr) {
    SetLastError(ERROR_ACCESS_DENIED);
    return 0;
  }
  const size_t length = std::wcslen(sModulePath);
  const size_t copied = std::min<size_t>(length, capacity - 1);
  std::wmemcpy(buffer, sModulePath, copied);
  buffer[copied] = L'\0';
  // A truncated path fills the buffer exactly, as Windows reports it.
  return copied < length ? capacity : static_cast<DWORD>(copied);
}

TEST(ZBProcess, CurrentNameIsTheExecutableWithoutFolderAndExtension) {
  EXPECT_EQ("ZBEnvironmentDirectoryTests", take(ZBProcessCopyCurrentName()));

  const std::wstring longPath = L"C:\\" + std::wstring(600, L'd') + L"\\deep.exe";
  const struct {
    const wchar_t *path;
    const char *name;
  } cases[] = {
      {L"C:\\apps\\tool.v2.exe", "tool.v2"},
      {L"C:\\dir.x\\noextension", "noextension"},
      {L"plain.exe", "plain"},
      {L"C:\\apps\\.hidden", ".hidden"},
      {L"C:\\apps\\caf\u00e9.exe", "caf\xc3\xa9"},
      {L"C:\\apps\\\U0001F600.exe", "\xf0\x9f\x98\x80"},
      {longPath.c_str(), "deep"},
      {L"C:\\apps\\", "<null>"},
      {nullptr, "<null>"},
  };
  ScopedSystemCall fake(gSystemCalls.GetModuleFileNameW, fakeModuleFileName);
  for (const auto &c : cases) {
    sModulePath = c.path;
    EXPECT_EQ(c.name, take(ZBProcessCopyCurrentName())) << (c.path ? "path" : "failure");
  }
}

int sHostNameCalls;

TEST(ZBEnvironmentHost, HostNameIsTheSystemsOrComputer) {
  wchar_t wide[256];
  DWORD size = 256;
  ASSERT_TRUE(GetComputerNameExW(ComputerNameDnsHostname, wide, &size));
  char expected[1024];
  ASSERT_GT(WideCharToMultiByte(CP_UTF8, 0, wide, -1, expected, sizeof expected, nullptr, nullptr),
            0);
  EXPECT_EQ(expected, take(ZBEnvironmentCopyHostName()));

  {
    ScopedSystemCall fail(gSystemCalls.gethostname, [](char *, int) -> int {
      WSASetLastError(WSAEFAULT);
      return SOCKET_ERROR;
    });
    EXPECT_EQ("computer", take(ZBEnvironmentCopyHostName()));
  }
  // Without Winsock started the name is still read.
  sHostNameCalls = 0;
  ScopedSystemCall late(gSystemCalls.gethostname, [](char *name, int) -> int {
    if (sHostNameCalls++ == 0) {
      WSASetLastError(WSANOTINITIALISED);
      return SOCKET_ERROR;
    }
    std::strcpy(name, "started-late");
    return 0;
  });
  EXPECT_EQ("started-late", take(ZBEnvironmentCopyHostName()));
  EXPECT_EQ(2, sHostNameCalls);
}

TEST(ZBEnvironmentHost, FullUserNameIsNotAvailable) {
  const std::string lines = zbtest::logOfDyingProcess([] { ZBEnvironmentCopyFullUserName(); });
  EXPECT_NE(std::string::npos, lines.find("NOT YET IMPLEMENTED")) << lines;
}

TEST(ZBRandom, BytesDifferBetweenCallsAndFillLargeBuffers) {
  std::array<uint8_t, 32> first{}, second{};
  ZBRandomGetBytes(first.data(), first.size());
  ZBRandomGetBytes(second.data(), second.size());
  EXPECT_NE(first, second);

  // 1 MiB, pre-filled with a pattern: every byte value must turn up about
  // 4096 times (the bounds are many standard deviations wide), which an
  // unfilled tail or a short copy would break.
  std::vector<uint8_t> large(1 << 20, 0xA5);
  ZBRandomGetBytes(large.data(), large.size());
  std::array<int, 256> histogram{};
  for (uint8_t byte : large)
    ++histogram[byte];
  for (int value = 0; value < 256; ++value) {
    EXPECT_GT(histogram[value], 3500) << value;
    EXPECT_LT(histogram[value], 4700) << value;
  }
  const size_t tail = 4096;
  EXPECT_FALSE(std::all_of(large.end() - tail, large.end(), [](uint8_t b) { return b == 0xA5; }));

  // Nothing to fill is not an error.
  ZBRandomGetBytes(nullptr, 16);
  ZBRandomGetBytes(first.data(), 0);
}

TEST(ZBRandom, FailingSourceIsFatal) {
  const std::string lines = zbtest::logOfDyingProcess([] {
    ScopedSystemCall fail(gSystemCalls.BCryptGenRandom,
                          [](BCRYPT_ALG_HANDLE, PUCHAR, ULONG, ULONG) -> NTSTATUS {
                            return static_cast<NTSTATUS>(0xC0000001);
                          });
    uint8_t bytes[8];
    ZBRandomGetBytes(bytes, sizeof bytes);
  });
  EXPECT_NE(std::string::npos, lines.find("Failed generated random buffer")) << lines;
}

// ---- Application directories ----------------------------------------------

const std::string kProcessName = "ZBEnvironmentDirectoryTests";

std::string libraryPath(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

// A fresh folder named after the running test, in the library's style with
// a trailing "/". The name holds no process ID, so a death-test child that
// runs the test again computes the same one.
std::string freshFolder(const std::string &suffix = "") {
  const std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
  const std::string folder = libraryPath(testing::TempDir()) + "zbdirs-" + name + suffix + "/";
  EXPECT_EQ(ZBErrorNone, ZBDirectoryRemoveRecursive(folder.c_str()));
  EXPECT_EQ(ZBErrorNone, ZBDirectoryCreateNested(folder.c_str(), 0777, 0777));
  return folder;
}

bool isDirectory(const std::string &path) { return ZBPathIsDirectory(path.c_str()); }

void writeFile(const std::string &path) {
  ASSERT_EQ(ZBErrorNone, ZBFileCreateFromBytes("x", 1, path.c_str(), 0644)) << path;
}

void setSandbox(bool on) {
  const uint8_t value = on;
  ASSERT_TRUE(ZBOptionWrite("QUOVEX_SANDBOX_FILESYSTEM", &value));
}

// Unsets the temporary-directory variables. Setting TMP is what clears the
// cached directory, so it is set before it is removed.
void clearTemporaryVariables() {
  ZBEnvironmentSetEnv("TMP", "", 1);
  for (const char *name : {"TMP", "TMPDIR", "TEMP", "TEMPDIR"})
    ZBEnvironmentUnsetEnv(name);
}

// Sets the system environment's HOME for the children started meanwhile.
struct ScopedSystemHome {
  explicit ScopedSystemHome(const std::string &value) { _putenv_s("HOME", value.c_str()); }
  ~ScopedSystemHome() { _putenv_s("HOME", saved.c_str()); } // "" removes it
  const std::string saved = std::getenv("HOME") ? std::getenv("HOME") : "";
};

// Runs `body` in a fresh child process; it writes its findings to the report
// file, which the parent then returns.
template <typename Body>
std::string reportFromChild(const std::string &folder, Body body) {
  const std::string report = folder + "report.txt";
  EXPECT_EXIT(
      {
        std::string findings = body();
        std::FILE *file = std::fopen(report.c_str(), "wb");
        std::fputs(findings.c_str(), file);
        std::fclose(file);
        std::_Exit(0);
      },
      testing::ExitedWithCode(0), "");
  return zbtest::readFile(report);
}

// Each test gets its own LOCALAPPDATA, TMP and home under a fresh folder.
// LOCALAPPDATA is set before the first directory call of the process, so
// even the home computed at start-up lies inside the test's folder.
class ZBEnvironmentDirectory : public testing::Test {
protected:
  void SetUp() override {
    root_ = freshFolder();
    ZBEnvironmentSetEnv("LOCALAPPDATA", (root_ + "Local").c_str(), 1);
    clearTemporaryVariables();
    ZBEnvironmentSetEnv("TMP", (root_ + "tmp").c_str(), 1);
    home_ = root_ + "home/";
    ZBEnvironmentSetHomeDirectory(home_.c_str());
  }
  void TearDown() override {
    setSandbox(false);
    ZBEnvironmentSetBundleID(nullptr);
    ZBEnvironmentUnsetEnv("QUOVEX_CHILDPROCESS");
    clearTemporaryVariables();
    ZBEnvironmentSetHomeDirectory(nullptr);
    EXPECT_EQ(ZBErrorNone, ZBDirectoryRemoveRecursive(root_.c_str()));
  }

  std::string root_;
  std::string home_;
};

TEST_F(ZBEnvironmentDirectory, AppTemporaryTakesTheFirstVariableSet) {
  const struct {
    std::vector<const char *> variables; // set in this order, each to root + its name
    const char *winner;
  } cases[] = {
      {{"TMPDIR"}, "TMPDIR"},
      {{"TEMP"}, "TEMP"},
      {{"TEMPDIR"}, "TEMPDIR"},
      {{"TEMPDIR", "TEMP", "TMPDIR", "TMP"}, "TMP"},
      {{"TEMPDIR", "TEMP", "TMPDIR"}, "TMPDIR"},
      {{"TEMPDIR", "TEMP"}, "TEMP"},
  };
  for (const auto &c : cases) {
    clearTemporaryVariables();
    for (const char *name : c.variables)
      ZBEnvironmentSetEnv(name, (root_ + name).c_str(), 1);
    const std::string expected = root_ + c.winner + "/";
    EXPECT_EQ(expected, take(ZBEnvironmentCopyAppTemporaryDirectory())) << c.winner;
    EXPECT_TRUE(isDirectory(expected)) << expected;
  }
  // Without any of them the application-data temporary folder is asked,
  // which only packaged processes have.
  clearTemporaryVariables();
  EXPECT_EQ("<null>", take(ZBEnvironmentCopyAppTemporaryDirectory()));
  EXPECT_EQ(ZBErrorNoMemory, ZBDirectoryCreateTemporaryInTempDir("runXXXXXX", nullptr));
}

TEST_F(ZBEnvironmentDirectory, SettingTmpMakesTheNextCallRecompute) {
  clearTemporaryVariables();
  ZBEnvironmentSetEnv("TMPDIR", (root_ + "first").c_str(), 1);
  EXPECT_EQ(root_ + "first/", take(ZBEnvironmentCopyAppTemporaryDirectory()));
  // Only TMP clears the cache.
  ZBEnvironmentSetEnv("TMPDIR", (root_ + "ignored").c_str(), 1);
  EXPECT_EQ(root_ + "first/", take(ZBEnvironmentCopyAppTemporaryDirectory()));
  ZBEnvironmentSetEnv("TMP", (root_ + "second\\inner").c_str(), 1);
  EXPECT_EQ(root_ + "second/inner/", take(ZBEnvironmentCopyAppTemporaryDirectory()));
  EXPECT_TRUE(isDirectory(root_ + "second/inner/"));
}

TEST_F(ZBEnvironmentDirectory, UnusableTmpValuesNeverCrash) {
  writeFile(root_ + "afile");
  char missingDrive = 0;
  for (char letter = 'Y'; letter >= 'M' && missingDrive == 0; --letter)
    if ((GetLogicalDrives() & (1u << (letter - 'A'))) == 0)
      missingDrive = letter;
  ASSERT_NE(0, missingDrive);
  const std::string onMissingDrive = std::string(1, missingDrive) + ":\\nowhere";
  const std::string huge(100 * 1024, 'v');
  const struct {
    std::string value;
    std::string expected; // the directory is returned even when it cannot be made
    bool warned;
  } cases[] = {
      {root_ + "afile", root_ + "afile/", true},
      {onMissingDrive, std::string(1, missingDrive) + ":/nowhere/", true},
      {"", "<null>", false},
      {huge, "<null>", false},
  };
  for (const auto &c : cases) {
    ASSERT_EQ(0, ZBEnvironmentSetEnv("TMP", c.value.c_str(), 1));
    EXPECT_EQ(c.expected, take(ZBEnvironmentCopyAppTemporaryDirectory())) << c.expected;
    if (c.warned) {
      const std::string ring = zbtest::logRing();
      EXPECT_NE(std::string::npos, ring.find("AppTempDir creation error: -")) << c.expected;
      EXPECT_NE(std::string::npos, ring.find("'" + c.expected + "'")) << c.expected;
    }
  }
}

TEST_F(ZBEnvironmentDirectory, SandboxedTemporaryUsesTheBundleOrProcessName) {
  setSandbox(true);
  std::string viewer = "com.example.viewer";
  const struct {
    const char *bundleID;
    std::string name;
  } cases[] = {{nullptr, kProcessName}, {"", kProcessName}, {viewer.c_str(), viewer}};
  for (const auto &c : cases) {
    ZBEnvironmentSetBundleID(c.bundleID);
    EXPECT_EQ(c.bundleID ? c.bundleID : "<null>", take(ZBEnvironmentCopyBundleID()));
    ZBEnvironmentSetEnv("TMP", (root_ + "tmp").c_str(), 1);
    const std::string expected = root_ + "tmp/quovex_sandbox/" + c.name + "/";
    EXPECT_EQ(expected, take(ZBEnvironmentCopyAppTemporaryDirectory()));
    EXPECT_TRUE(isDirectory(expected)) << expected;
  }
  // The setter kept a copy of its argument.
  viewer[0] = 'X';
  EXPECT_EQ("com.example.viewer", take(ZBEnvironmentCopyBundleID()));
}

// The private temporary directory is computed once per process and emptied
// at that first use, so the tests that watch it work in a child process of
// their own and report what they saw.

// "<path> made" or "<path> missing" for each directory a copy function gives.
std::string directoriesMade(std::initializer_list<char *(*)()> copies) {
  std::string findings;
  for (char *(*copy)() : copies) {
    const std::string path = take(copy());
    findings += path + (isDirectory(path) ? " made\n" : " missing\n");
  }
  return findings;
}

TEST_F(ZBEnvironmentDirectory, CachesAreCreatedWithTheirParents) {
  const std::string home = root_ + "deep/er/home";
  const std::string report = reportFromChild(root_, [&] {
    ZBEnvironmentSetHomeDirectory(home.c_str());
    return take(ZBEnvironmentCopyHomeDirectory()) + "\n" +
           directoriesMade({ZBEnvironmentCopyAppCachesDirectory,
                            ZBEnvironmentCopyQuovexPrivateCachesDirectory,
                            ZBEnvironmentCopyQuovexPrivateTemporaryDirectory});
  });
  EXPECT_EQ(home + "/\n" + home + "/AppData/Local/quovex/ made\n" + home + "/quovex_cache/ made\n" +
                home + "/quovex_tmp/ made\n",
            report);
  // A set caches directory is handed out as set, with its "/"; clearing it
  // computes it again under the current home.
  ZBEnvironmentSetAppCachesDirectory((root_ + "mine").c_str());
  EXPECT_EQ(root_ + "mine/", take(ZBEnvironmentCopyAppCachesDirectory()));
  ZBEnvironmentSetAppCachesDirectory(nullptr);
  EXPECT_EQ(home_ + "AppData/Local/quovex/", take(ZBEnvironmentCopyAppCachesDirectory()));
}

// Setting the home replaces the home alone: the caches and the private
// temporary directory already handed out stay, and no other process's
// folder under the new home is emptied.
TEST_F(ZBEnvironmentDirectory, SettingTheHomeKeepsTheOtherDirectories) {
  const std::string first = root_ + "first/";
  const std::string second = root_ + "second/";
  const std::string report = reportFromChild(root_, [&] {
    ZBEnvironmentSetHomeDirectory(first.c_str());
    std::string findings = directoriesMade(
        {ZBEnvironmentCopyAppCachesDirectory, ZBEnvironmentCopyQuovexPrivateTemporaryDirectory});
    ZBDirectoryCreateNested((second + "quovex_tmp/other").c_str(), 0777, 0777);
    writeFile(second + "quovex_tmp/other/owned-elsewhere");
    ZBEnvironmentSetHomeDirectory(second.c_str());
    findings += take(ZBEnvironmentCopyHomeDirectory()) + "\n" +
                directoriesMade({ZBEnvironmentCopyAppCachesDirectory,
                                 ZBEnvironmentCopyQuovexPrivateTemporaryDirectory});
    if (ZBPathExists((second + "quovex_tmp/other/owned-elsewhere").c_str()))
      findings += "kept\n";
    return findings;
  });
  const std::string before = first + "AppData/Local/quovex/ made\n" + first + "quovex_tmp/ made\n";
  EXPECT_EQ(before + second + "\n" + before + "kept\n", report);
}

TEST_F(ZBEnvironmentDirectory, FailedCreationCachesNothing) {
  const std::string report = reportFromChild(root_, [&] {
    // A home under a regular file cannot hold any directory.
    writeFile(root_ + "blocker");
    ZBEnvironmentSetHomeDirectory((root_ + "blocker/home").c_str());
    std::string findings = directoriesMade({ZBEnvironmentCopyAppCachesDirectory,
                                            ZBEnvironmentCopyQuovexPrivateCachesDirectory,
                                            ZBEnvironmentCopyQuovexPrivateTemporaryDirectory});
    if (zbtest::logRing().find("Create failed: '" + root_ +
                               "blocker/home/AppData/Local/quovex/': -10") != std::string::npos)
      findings += "logged\n";
    // Once the way is clear the next calls succeed.
    ZBFileRemove((root_ + "blocker").c_str());
    findings += directoriesMade(
        {ZBEnvironmentCopyAppCachesDirectory, ZBEnvironmentCopyQuovexPrivateTemporaryDirectory});
    return findings;
  });
  EXPECT_EQ("<null> missing\n<null> missing\n<null> missing\nlogged\n" + root_ +
                "blocker/home/AppData/Local/quovex/ made\n" + root_ +
                "blocker/home/quovex_tmp/ made\n",
            report);

  // An oversized home: no directory, no crash.
  ZBEnvironmentSetHomeDirectory(std::string(100 * 1024, 'h').c_str());
  ZBEnvironmentSetAppCachesDirectory(nullptr);
  EXPECT_EQ("<null>", take(ZBEnvironmentCopyAppCachesDirectory()));
}

TEST_F(ZBEnvironmentDirectory, PrivateTemporaryIsEmptiedAtFirstUseUnlessChild) {
  const struct {
    bool child;
    const char *expected; // what the child reports
  } cases[] = {{false, "emptied\nkept new\n"}, {true, "kept old\nkept new\n"}};
  for (const auto &c : cases) {
    const std::string home = root_ + (c.child ? "child/" : "parent/");
    const std::string temporary = home + "quovex_tmp/";
    const std::string report = reportFromChild(root_, [&] {
      ZBDirectoryCreateNested((temporary + "old").c_str(), 0777, 0777);
      writeFile(temporary + "old/left-over");
      if (c.child)
        ZBEnvironmentSetEnv("QUOVEX_CHILDPROCESS", "1", 1);
      ZBEnvironmentSetHomeDirectory(home.c_str());
      std::string findings;
      if (take(ZBEnvironmentCopyQuovexPrivateTemporaryDirectory()) != temporary)
        findings += "wrong directory\n";
      findings += ZBPathExists((temporary + "old/left-over").c_str()) ? "kept old\n" : "emptied\n";
      // Only the first use empties it.
      writeFile(temporary + "new");
      take(ZBEnvironmentCopyQuovexPrivateTemporaryDirectory());
      findings += ZBPathExists((temporary + "new").c_str()) ? "kept new\n" : "emptied new\n";
      return findings;
    });
    EXPECT_EQ(c.expected, report) << c.child;
  }
}

TEST_F(ZBEnvironmentDirectory, TemporaryDirectoryInTempDir) {
  char *path = nullptr;
  ASSERT_EQ(ZBErrorNone, ZBDirectoryCreateTemporaryInTempDir("runXXXXXX", &path));
  const std::string made = take(path);
  EXPECT_EQ(root_ + "tmp/run", made.substr(0, made.size() - 6));
  // The template's Xs are replaced; a random letter may itself be an X.
  EXPECT_NE("XXXXXX", made.substr(made.size() - 6)) << made;
  EXPECT_TRUE(isDirectory(made));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBDirectoryCreateTemporaryInTempDir(nullptr, nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBDirectoryCreateTemporaryInTempDir("abc", &path));
}

// ---- Start-up of the directories, in fresh child processes ----------------
//
// The home is computed once per process from the application-data folder or
// LOCALAPPDATA, so these tests run their body in a death-test child. The
// child inherits the system environment, which the library imports at
// start: HOME is set there (ZBEnvironmentSetEnv refuses HOME by design).

TEST(ZBEnvironmentStartup, HomeSourcesInOrder) {
  const std::string folder = freshFolder();
  ScopedSystemHome home(folder + "userhome");
  const std::string report = reportFromChild(folder, [&] {
    ZBEnvironmentSetEnv("LOCALAPPDATA", (folder + "Local").c_str(), 1);
    std::string findings = "start:" + take(ZBEnvironmentCopyHomeDirectory()) + "\n";
    const std::string ring = zbtest::logRing();
    const size_t runtimeLine = ring.find("_GetAppDataFolderInternal");
    if (runtimeLine != std::string::npos)
      findings += "runtime:" + ring.substr(runtimeLine, 72) + "\n";
    ZBEnvironmentSetHomeDirectory(nullptr);
    findings += "cleared:" + take(ZBEnvironmentCopyHomeDirectory()) + "\n";
    return findings;
  });
  // Wine's runtime has no application data for an unpackaged process (class
  // not registered, 0x80040154), so LOCALAPPDATA gives the start-up home;
  // a home cleared later comes from HOME.
  std::printf("home sources under this system:\n%s", report.c_str());
  EXPECT_NE(std::string::npos, report.find("start:" + folder + "LocalState/\n")) << report;
  EXPECT_NE(std::string::npos, report.find("RoGetActivationFactory (0x80040154)")) << report;
  EXPECT_NE(std::string::npos, report.find("cleared:" + folder + "userhome/\n")) << report;
  for (const char *inside : {"LocalState/Documents", "LocalState/Library/Preferences",
                             "userhome/Documents", "userhome/Library/Preferences"})
    EXPECT_TRUE(isDirectory(folder + inside)) << inside;
  ZBDirectoryRemoveRecursive(folder.c_str());
}

TEST(ZBEnvironmentStartup, HomeWithoutAnySourceIsFatal) {
  ScopedSystemHome home("");
  const std::string lines = zbtest::logOfDyingProcess([] {
    ZBEnvironmentUnsetEnv("LOCALAPPDATA");
    ZBEnvironmentUnsetEnv("HOME");
    ZBEnvironmentCopyHomeDirectory();
  });
  EXPECT_NE(std::string::npos, lines.find("ZBEnvironment.cpp:47")) << lines;
  EXPECT_NE(std::string::npos, lines.find("_ZBEnvironmentCopyUnsandboxedHomeDirectory: FATAL: BUG"))
      << lines;
}

TEST(ZBEnvironmentStartup, SandboxedHomeWithAndWithoutBundleID) {
  const std::string folder = freshFolder();
  ScopedSystemHome home(folder + "userhome");
  const std::string report = reportFromChild(folder, [&] {
    ZBEnvironmentSetEnv("LOCALAPPDATA", (folder + "Local").c_str(), 1);
    take(ZBEnvironmentCopyHomeDirectory());
    setSandbox(true);
    std::string findings;
    for (const char *bundleID : {(const char *)nullptr, "com.example.viewer"}) {
      ZBEnvironmentSetBundleID(bundleID);
      ZBEnvironmentSetHomeDirectory(nullptr);
      findings += "home:" + take(ZBEnvironmentCopyHomeDirectory()) + "\n";
      findings += "outside:" + take(ZBEnvironmentCopyHomeDirectoryIgnoringSandbox()) + "\n";
    }
    return findings;
  });
  const std::string base = folder + "userhome/";
  EXPECT_EQ("home:" + base + ".quovex_sandbox/" + kProcessName + "/\noutside:" + base +
                "\nhome:" + base + ".quovex_sandbox/com.example.viewer/\noutside:" + base + "\n",
            report);
  for (const std::string &name : {kProcessName, std::string("com.example.viewer")})
    EXPECT_TRUE(isDirectory(base + ".quovex_sandbox/" + name + "/Library/Preferences")) << name;
  ZBDirectoryRemoveRecursive(folder.c_str());
}

TEST(ZBEnvironmentStartup, RandomizedBundleIDNamesTheProcess) {
  const std::string folder = freshFolder();
  const std::string report = reportFromChild(folder, [&] {
    ZBEnvironmentSetEnv("LOCALAPPDATA", (folder + "Local").c_str(), 1);
    ZBEnvironmentSetEnv("QUOVEX_RANDOMIZE_ASSET_BUNDLE_PATH", "1", 1);
    return take(ZBEnvironmentCopyBundleID());
  });
  EXPECT_EQ("com.quovex-unit-test." + kProcessName, report);
  ZBDirectoryRemoveRecursive(folder.c_str());
}

} // namespace
