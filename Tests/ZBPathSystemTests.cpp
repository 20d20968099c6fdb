// The path functions that ask Windows, on the real file system: existence,
// directory and access tests, the read-only mode, current, absolute and
// expanded paths, link copies, paths beyond 260 characters and names outside
// ASCII, and the log file opened through the long-path form. The errors
// Wine cannot produce are injected through the system-call table, one error
// table row at a time.
#include "ZBTestSupport.h"

#include "Zenbor.h"
#include "ZBLogConfiguration.h"
#include "ZBSystemCallInjection.h"
#include "ZBTZFile.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <optional>
#include <string>
#include <vector>

namespace {

std::optional<std::string> take(char *text) {
  if (text == nullptr)
    return std::nullopt;
  std::string copy(text);
  _ZBFree(text);
  return copy;
}

std::wstring nt(const std::string &path) {
  ZBWChar *wide = ZBPathCopyNT(path.c_str());
  std::wstring copy = wide != nullptr ? wide : L"";
  _ZBFree(wide);
  return copy;
}

std::string withSlashes(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

std::string withBackslashes(std::string text) {
  std::replace(text.begin(), text.end(), '/', '\\');
  return text;
}

// Removes a tree given in the long-path form, read-only entries included.
void removeTree(const std::wstring &directory) {
  WIN32_FIND_DATAW entry;
  HANDLE find = FindFirstFileW((directory + L"\\*").c_str(), &entry);
  if (find != INVALID_HANDLE_VALUE) {
    do {
      const std::wstring name = entry.cFileName;
      if (name == L"." || name == L"..")
        continue;
      const std::wstring child = directory + L"\\" + name;
      SetFileAttributesW(child.c_str(), FILE_ATTRIBUTE_NORMAL);
      if ((entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0)
        removeTree(child);
      else
        DeleteFileW(child.c_str());
    } while (FindNextFileW(find, &entry));
    FindClose(find);
  }
  RemoveDirectoryW(directory.c_str());
}

// The error the injected attribute calls report.
DWORD gInjectedError = 0;

DWORD WINAPI failingGetFileAttributes(LPCWSTR) {
  SetLastError(gInjectedError);
  return INVALID_FILE_ATTRIBUTES;
}

BOOL WINAPI failingSetFileAttributes(LPCWSTR, DWORD) {
  SetLastError(gInjectedError);
  return FALSE;
}

// Each test works in a directory of its own under the temporary folder,
// named with "/" as library paths are. The name is the test's alone, so a
// death test's child process (which runs SetUp again) works in the same
// tree; a tree left by an earlier run goes first.
class ZBPathSystemTest : public testing::Test {
protected:
  void SetUp() override {
    const char *temporary = std::getenv("TEMP");
    ASSERT_NE(nullptr, temporary);
    root_ = withSlashes(temporary) + "/zbpath-" +
            testing::UnitTest::GetInstance()->current_test_info()->name();
    removeTree(nt(root_));
    ASSERT_TRUE(CreateDirectoryW(nt(root_).c_str(), nullptr)) << root_;
  }
  void TearDown() override {
    removeTree(nt(root_));
    EXPECT_FALSE(ZBPathExists(root_.c_str())) << root_;
  }

  std::string path(const std::string &relative) const { return root_ + "/" + relative; }
  void makeDirectory(const std::string &relative) const {
    ASSERT_TRUE(CreateDirectoryW(nt(path(relative)).c_str(), nullptr)) << relative;
  }
  void makeFile(const std::string &relative) const {
    HANDLE file = CreateFileW(nt(path(relative)).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    ASSERT_NE(INVALID_HANDLE_VALUE, file) << relative;
    DWORD written = 0;
    WriteFile(file, "data", 4, &written, nullptr);
    CloseHandle(file);
  }
  DWORD attributes(const std::string &relative) const {
    return GetFileAttributesW(nt(path(relative)).c_str());
  }

  std::string root_;
};

TEST_F(ZBPathSystemTest, AnswersAboutRealFilesAndDirectories) {
  makeDirectory("dir");
  makeFile("file.txt");
  struct Case {
    const char *relative;
    bool exists;
    bool directory;
    ZBError existsAndIsDir;
    ZBError access;
  };
  const Case cases[] = {
      {"file.txt", true, false, ZBErrorNotDirectory, ZBErrorNone},
      {"dir", true, true, ZBErrorNone, ZBErrorNone},
      {"dir/./../dir/", true, true, ZBErrorNone, ZBErrorNone},
      {"missing", false, false, ZBErrorFileNotFound, ZBErrorFileNotFound},
      {"missing/deeper", false, false, ZBErrorFileNotFound, ZBErrorFileNotFound},
  };
  for (const Case &c : cases) {
    // Both spellings of the same path: "C:/..." and "/C:/...".
    for (const std::string &full : {path(c.relative), "/" + path(c.relative)}) {
      SCOPED_TRACE(full);
      EXPECT_EQ(c.exists, ZBPathExists(full.c_str()));
      EXPECT_EQ(c.directory, ZBPathIsDirectory(full.c_str()));
      EXPECT_EQ(c.existsAndIsDir, ZBPathExistsAndIsDir(full.c_str()));
      EXPECT_EQ(c.access, ZBPathTestAccess(full.c_str(), ZBPathAccessExists));
      EXPECT_EQ(c.access, ZBPathTestAccess(full.c_str(), ZBPathAccessWrite));
      EXPECT_EQ(c.exists ? std::optional<std::string>(full) : std::nullopt,
                take(ZBPathCopySymbolicLink(full.c_str())));
      char *copy = reinterpret_cast<char *>(1);
      EXPECT_EQ(c.exists ? ZBErrorNone : ZBErrorFileNotFound,
                ZBPathCopySymbolicLinkWithError(full.c_str(), &copy));
      EXPECT_EQ(c.exists ? std::optional<std::string>(full) : std::nullopt, take(copy));
    }
  }
  // Resolution gives the final path, normalised.
  EXPECT_EQ(path("dir"), take(ZBPathCopyResolvedSymbolicLink(path("dir").c_str())));
  EXPECT_EQ(path("file.txt"),
            take(ZBPathCopyResolvedSymbolicLink(("/" + path("dir/../file.txt")).c_str())));
  EXPECT_EQ(std::nullopt, take(ZBPathCopyResolvedSymbolicLink(path("missing").c_str())));
  EXPECT_EQ(std::nullopt, take(ZBPathCopyResolvedSymbolicLink(nullptr)));

  // Absent and empty paths.
  char *copy = nullptr;
  EXPECT_FALSE(ZBPathExists(nullptr));
  EXPECT_FALSE(ZBPathExists(""));
  EXPECT_FALSE(ZBPathIsDirectory(""));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPathExistsAndIsDir(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPathExistsAndIsDir(""));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPathTestAccess("", ZBPathAccessExists));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPathChangeMode(nullptr, 0644));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPathCopySymbolicLinkWithError("", &copy));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPathCopySymbolicLinkWithError(root_.c_str(), nullptr));
  EXPECT_EQ(nullptr, ZBPathCopySymbolicLink(nullptr));
  EXPECT_EQ(ZBErrorUnsupported,
            ZBPathCreateLink(path("file.txt").c_str(), path("link").c_str(), 0));
  EXPECT_FALSE(ZBPathExists(path("link").c_str()));
}

TEST_F(ZBPathSystemTest, ChangeModeTogglesTheReadOnlyAttribute) {
  makeFile("file.txt");
  const std::string file = path("file.txt");
  ASSERT_EQ(ZBErrorNone, ZBPathChangeMode(file.c_str(), 0444));
  EXPECT_NE(0u, attributes("file.txt") & FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(ZBErrorAccessDenied, ZBPathTestAccess(file.c_str(), ZBPathAccessWrite));
  EXPECT_EQ(ZBErrorNone, ZBPathTestAccess(file.c_str(), ZBPathAccessExists));
  // The containing directory is looked at without changing the answer.
  EXPECT_EQ(ZBErrorNone, ZBPathTestAccess(file.c_str(), ZBPathAccessDirectoryWrite));
  ASSERT_EQ(ZBErrorNone, ZBPathChangeMode(("/" + file).c_str(), 0200));
  EXPECT_EQ(0u, attributes("file.txt") & FILE_ATTRIBUTE_READONLY);
  EXPECT_EQ(ZBErrorNone, ZBPathTestAccess(file.c_str(), ZBPathAccessWrite));
  EXPECT_EQ(ZBErrorFileNotFound, ZBPathChangeMode(path("missing").c_str(), 0644));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPathChangeMode("", 0644));

  makeDirectory("dir");
  EXPECT_EQ(ZBErrorNone, ZBPathChangeMode(path("dir").c_str(), 0755));
  EXPECT_TRUE(ZBPathIsDirectory(path("dir").c_str()));
}

// Beyond the system's 260 characters, and names in scripts outside ASCII:
// the long-path form carries both to the system.
TEST_F(ZBPathSystemTest, LongAndNonASCIIPathsWorkEndToEnd) {
  std::string relative;
  for (int level = 0; relative.size() < 300; ++level) {
    relative += (level ? "/" : "") + std::string("caf\xC3\xA9-\xE6\x97\xA5\xE6\x9C\xAC-") +
                std::to_string(level) + std::string(20, 'x');
    makeDirectory(relative);
  }
  const std::string directory = path(relative);
  ASSERT_GT(directory.size(), 300u);
  const std::string file = directory + "/\xCE\xA9\xCE\xBC\xCE\xAD\xCE\xB3\xCE\xB1.txt";
  makeFile(relative + "/\xCE\xA9\xCE\xBC\xCE\xAD\xCE\xB3\xCE\xB1.txt");

  EXPECT_TRUE(ZBPathExists(file.c_str()));
  EXPECT_FALSE(ZBPathIsDirectory(file.c_str()));
  EXPECT_TRUE(ZBPathIsDirectory(directory.c_str()));
  EXPECT_EQ(ZBErrorNone, ZBPathExistsAndIsDir(directory.c_str()));
  EXPECT_EQ(ZBErrorNone, ZBPathChangeMode(file.c_str(), 0444));
  EXPECT_EQ(ZBErrorAccessDenied, ZBPathTestAccess(file.c_str(), ZBPathAccessWrite));
  EXPECT_EQ(ZBErrorNone, ZBPathChangeMode(file.c_str(), 0644));
  EXPECT_EQ(file, take(ZBPathCopyExpandedPath(file.c_str())));
  const std::optional<std::string> resolved = take(ZBPathCopyResolvedSymbolicLink(file.c_str()));
  ASSERT_TRUE(resolved.has_value());
  EXPECT_EQ(withSlashes(file), withSlashes(*resolved).substr(resolved->size() - file.size()));

  // The name on disk is the UTF-16 of the UTF-8 given.
  WIN32_FIND_DATAW entry;
  HANDLE find = FindFirstFileW(nt(file).c_str(), &entry);
  ASSERT_NE(INVALID_HANDLE_VALUE, find);
  FindClose(find);
  EXPECT_EQ(std::wstring(L"\u03A9\u03BC\u03AD\u03B3\u03B1.txt"), entry.cFileName);
}

// Zone files and the log's configuration file open through the library's
// stream service, which takes them to the system in the long-path form too:
// a directory chain of Greek names over 300 characters.
std::string makeLongGreekTree(const std::string &root) {
  std::string directory = root;
  for (int level = 0; directory.size() - root.size() < 300; ++level)
    directory +=
        "/\xCE\x96\xCF\x8E\xCE\xBD\xCE\xB7-" + std::to_string(level) + std::string(30, 'z');
  return ZBDirectoryCreateNested(directory.c_str(), 0755, 0755) == ZBErrorNone ? directory : "";
}

// Windows opens a name of 260 characters or more only in the long-path form
// unless the process is long-path aware; Wine opens any. The stand-in puts
// Windows' rule in front of the real open.
FILE *openWithWindowsPathLimit(const wchar_t *name, const wchar_t *mode) {
  if (std::wcsncmp(name, L"\\\\?\\", 4) != 0 && std::wcslen(name) >= MAX_PATH) {
    errno = ENOENT;
    return nullptr;
  }
  return _wfopen(name, mode);
}

TEST_F(ZBPathSystemTest, ZoneAndLogConfigurationFilesBeyondTwoHundredSixtyCharacters) {
  zb::test::ScopedSystemCall windowsLimit(zb::gSystemCalls._wfopen, openWithWindowsPathLimit);
  const std::string directory = makeLongGreekTree(root_);
  ASSERT_FALSE(directory.empty());
  const std::string paris = zbtest::readFile("Z:/usr/share/zoneinfo/Europe/Paris");
  ASSERT_GT(paris.size(), 44u);
  const std::string zoneFile =
      directory + "/Europe-\xCE\xA0\xCE\xB1\xCF\x81\xCE\xAF\xCF\x83\xCE\xB9";
  ASSERT_GT(zoneFile.size(), 300u);
  ASSERT_EQ(ZBErrorNone, ZBFileCreateFromBytes(paris.data(), paris.size(), zoneFile.c_str(), 0644));
  for (const std::string &form : {zoneFile, "/" + zoneFile}) { // "/C:/..." as a URL gives it
    ZBTZFile *zone = ZBTimeZoneCreateFromFile(form.c_str());
    ASSERT_NE(nullptr, zone) << form;
    EXPECT_EQ(paris.size(), ZBTimeZoneGetDataLength(zone));
    const std::string copy = directory + "/copy";
    EXPECT_TRUE(tz_file_write_path(zone, ("/" + copy).c_str()));
    ZBTZFile *written = ZBTimeZoneCreateFromFile(copy.c_str());
    ASSERT_NE(nullptr, written);
    EXPECT_EQ(paris, std::string(static_cast<const char *>(ZBTimeZoneGetData(written)),
                                 ZBTimeZoneGetDataLength(written)));
    ZBTimeZoneClose(written);
    EXPECT_EQ(ZBErrorNone, ZBFileRemove(copy.c_str()));
    ZBTimeZoneClose(zone);
  }
  EXPECT_EQ(ZBErrorNone, ZBFileRemove(zoneFile.c_str()));

  const std::string rules =
      directory + "/log-\xCE\xBA\xCE\xB1\xCE\xBD\xCF\x8C\xCE\xBD\xCE\xB5\xCF\x82.txt";
  const std::string text = "Win32=Debug\n*=Error\n";
  ASSERT_EQ(ZBErrorNone, ZBFileCreateFromBytes(text.data(), text.size(), rules.c_str(), 0644));
  ZBEnvironmentSetEnv("ZBLOG_CONFIG_FILE", rules.c_str(), 1);
  testing::internal::CaptureStderr();
  {
    ZBLogConfiguration configuration{
        "ZBLOG_LEVEL", "ZBLOG_CONFIG", "ZBLOG_CONFIG_FILE", 0, nullptr, {}, ZBLogLevelInfo};
    zb::log::loadConfiguration(configuration);
    EXPECT_EQ(2, configuration.count);
    uint32_t flags = 0;
    EXPECT_EQ(ZBLogLevelDebug,
              zb::log::matchSite(configuration, "Sources/Win32/x.cpp", "f", 1, &flags));
    zb::log::clearConfiguration(configuration);
  }
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  ZBEnvironmentUnsetEnv("ZBLOG_CONFIG_FILE");
  EXPECT_EQ(ZBErrorNone, ZBFileRemove(rules.c_str()));
}

TEST_F(ZBPathSystemTest, LogFileOpensThroughTheLongPathForm) {
  std::string relative = "\xE6\x97\xA5\xE8\xAA\x8C-logs";
  while (relative.size() < 280)
    relative += "/" + std::string(60, 'd');
  for (size_t slash = relative.find('/');; slash = relative.find('/', slash + 1)) {
    makeDirectory(relative.substr(0, slash));
    if (slash == std::string::npos)
      break;
  }
  // "/C:/..." as a URL would give it.
  const std::string logFile = "/" + path(relative) + "/run.log";
  EXPECT_EXIT(
      {
        ZBLogSetFile(logFile.c_str());
        ZBLogX(ZBLogLevelError, "LogFileTest", "", 1, "line through the long path");
        _exit(0);
      },
      testing::ExitedWithCode(0), "");
  HANDLE file = CreateFileW(nt(logFile.substr(1)).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, file);
  char text[4096] = {};
  DWORD read = 0;
  ReadFile(file, text, sizeof text - 1, &read, nullptr);
  CloseHandle(file);
  EXPECT_NE(nullptr, std::strstr(text, "line through the long path")) << text;
}

TEST_F(ZBPathSystemTest, CurrentAbsoluteAndExpandedPaths) {
  wchar_t saved[MAX_PATH * 4];
  ASSERT_NE(0u, GetCurrentDirectoryW(MAX_PATH * 4, saved));
  const std::string dos = withBackslashes(root_);
  ASSERT_TRUE(SetCurrentDirectoryW(std::wstring(dos.begin(), dos.end()).c_str()));
  struct Case {
    std::optional<std::string> actual;
    std::string expected;
  };
  const Case cases[] = {
      {take(ZBPathCopyCurrent()), root_},
      {take(ZBPathCopyCurrentWithStyle(ZBPathStyleDOS)), dos},
      {take(ZBPathCopyCurrentWithStyle(ZBPathStyleFileURL)), "file://localhost/" + root_},
      {take(ZBPathCopyAbsolute("x/y")), root_ + "/x/y"},
      {take(ZBPathCopyAbsolute("C:/a/./b//")), "C:/a/b/"},
      {take(ZBPathCopyAbsoluteWithStyle(ZBPathStyleDOS, "x\\y")), dos + "\\x\\y"},
      {take(ZBPathCopyAbsoluteWithStyle(ZBPathStyleDOS, "C:/a/../b")), "C:\\b"},
      {take(ZBPathCopyAbsoluteWithStyle(ZBPathStyleFileURL, "x")),
       "file://localhost/" + root_ + "/x"},
      {take(ZBPathCopyExpandedPath("rel")), root_ + "/rel"},
      {take(ZBPathCopyExpandedPath("C:/a/../b")), "C:/b"},
      {take(ZBPathCopyExpandedPath("/C:/a")), "C:/a"},
  };
  SetCurrentDirectoryW(saved);
  for (const Case &c : cases)
    EXPECT_EQ(c.expected, c.actual.value_or("<null>"));
  EXPECT_EQ(nullptr, ZBPathCopyCurrentWithStyle(3));
  EXPECT_EQ(nullptr, ZBPathCopyAbsolute(nullptr));
  EXPECT_EQ(nullptr, ZBPathCopyExpandedPath(nullptr));
}

// The length the injected directory calls answer, with "C:\\ddd..." written
// when it fits the caller's buffer.
DWORD gAnswer = 0;

DWORD answerInto(DWORD size, LPWSTR buffer) {
  if (gAnswer > 0 && gAnswer < size) {
    std::fill(buffer, buffer + gAnswer, L'd');
    std::copy_n(L"C:\\", 3, buffer);
    buffer[gAnswer] = L'\0';
  }
  return gAnswer;
}

// The system's answers that bound the current directory (up to 2047 units)
// and expanded paths (up to 2046).
TEST(ZBPathSystemErrors, CurrentAndExpandedPathLimits) {
  struct Case {
    DWORD answer;
    bool current;
    bool expanded;
  };
  const Case cases[] = {
      {0, false, false},    {2046, true, true},   {2047, true, false},
      {2048, false, false}, {9000, false, false},
  };
  zb::test::ScopedSystemCall current(
      zb::gSystemCalls.GetCurrentDirectoryW,
      [](DWORD size, LPWSTR buffer) { return answerInto(size, buffer); });
  zb::test::ScopedSystemCall full(
      zb::gSystemCalls.GetFullPathNameW,
      [](LPCWSTR, DWORD size, LPWSTR buffer, LPWSTR *) { return answerInto(size, buffer); });
  for (const Case &c : cases) {
    SCOPED_TRACE(c.answer);
    gAnswer = c.answer;
    // "C:\\ddd..." comes back as "C:/ddd...", as long.
    const std::optional<std::string> text = take(ZBPathCopyCurrent());
    EXPECT_EQ(c.current, text.has_value());
    EXPECT_EQ(c.current ? c.answer : 0u, text.value_or("").size());
    EXPECT_EQ(c.expanded, take(ZBPathCopyExpandedPath("C:/x")).has_value());
  }
}

// Every row of the attribute calls' error tables, through the seam.
TEST(ZBPathSystemErrors, AttributeErrorTables) {
  struct Case {
    DWORD error;
    ZBError changeModeRead;
    ZBError testAccess;
    bool exists;
    ZBError existsAndIsDir;
    bool logged; // by ZBPathExistsAndIsDir
  };
  const Case cases[] = {
      // error                         mode read              access                     exists dir
      // logged
      {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound, ZBErrorFileNotFound, false, ZBErrorFileNotFound,
       false},
      {ERROR_PATH_NOT_FOUND, ZBErrorFileNotFound, ZBErrorFileNotFound, false, ZBErrorFileNotFound,
       true},
      {ERROR_ACCESS_DENIED, ZBErrorAccessDenied, ZBErrorAccessDenied, true, ZBErrorNone, false},
      {ERROR_NOT_SAME_DEVICE, ZBErrorGeneric, ZBErrorInvalidFileName, true, ZBErrorIO, true},
      {ERROR_WRITE_PROTECT, ZBErrorGeneric, ZBErrorReadOnlyFileSystem, true,
       ZBErrorReadOnlyFileSystem, true},
      {ERROR_INVALID_PARAMETER, ZBErrorGeneric, ZBErrorInvalidArgument, true,
       ZBErrorInvalidArgument, true},
      {ERROR_FILENAME_EXCED_RANGE, ZBErrorNameTooLong, ZBErrorNameTooLong, true, ZBErrorNameTooLong,
       true},
      {ERROR_SHARING_VIOLATION, ZBErrorGeneric, ZBErrorGeneric, true, ZBErrorAccessDenied, true},
  };
  zb::test::ScopedSystemCall failing(zb::gSystemCalls.GetFileAttributesW, failingGetFileAttributes);
  for (const Case &c : cases) {
    SCOPED_TRACE(c.error);
    gInjectedError = c.error;
    const std::string path = "C:/injected/" + std::to_string(c.error);
    EXPECT_EQ(c.changeModeRead, ZBPathChangeMode(path.c_str(), 0644));
    EXPECT_EQ(c.testAccess, ZBPathTestAccess(path.c_str(), ZBPathAccessWrite));
    EXPECT_EQ(c.exists, ZBPathExists(path.c_str()));
    EXPECT_FALSE(ZBPathIsDirectory(path.c_str()));
    const std::string line =
        "_ZBCreateFileWWrapper() path: " + path + ", err: " + std::to_string(c.error);
    const size_t before = zbtest::occurrences(zbtest::logRing(), line);
    EXPECT_EQ(c.existsAndIsDir, ZBPathExistsAndIsDir(path.c_str()));
    EXPECT_EQ(before + (c.logged ? 1 : 0), zbtest::occurrences(zbtest::logRing(), line));
  }
}

TEST_F(ZBPathSystemTest, SetAttributeErrorTable) {
  makeFile("file.txt");
  const std::string file = path("file.txt");
  struct Case {
    DWORD error;
    ZBError result;
  };
  const Case cases[] = {
      {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound},
      {ERROR_PATH_NOT_FOUND, ZBErrorFileNotFound},
      {ERROR_ACCESS_DENIED, ZBErrorAccessDenied},
      {ERROR_WRITE_PROTECT, ZBErrorReadOnlyFileSystem},
      {ERROR_INVALID_PARAMETER, ZBErrorInvalidArgument},
      {ERROR_FILENAME_EXCED_RANGE, ZBErrorNameTooLong},
      {ERROR_NOT_SAME_DEVICE, ZBErrorGeneric},
      {ERROR_SHARING_VIOLATION, ZBErrorGeneric},
  };
  zb::test::ScopedSystemCall failing(zb::gSystemCalls.SetFileAttributesW, failingSetFileAttributes);
  for (const Case &c : cases) {
    SCOPED_TRACE(c.error);
    gInjectedError = c.error;
    EXPECT_EQ(c.result, ZBPathChangeMode(file.c_str(), 0444));
  }
  EXPECT_EQ(0u, attributes("file.txt") & FILE_ATTRIBUTE_READONLY);
}

} // namespace
