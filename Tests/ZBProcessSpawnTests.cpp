// Children started with ZBProcessSpawn, through the real zb-child.exe built
// beside this program: their arguments, environment, handles, lifetime,
// exit codes, the program search and bad input.
#include "ZBAlloc.h"
#include "ZBEnvironment.h"
#include "ZBFileDescriptor.h"
#include "ZBProcess.h"
#include "ZBProcessPrivate.h"
#include "ZBProcessTestVectors.h"
#include "ZBTestSupport.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <string>
#include <vector>

namespace {

std::string childPath() {
  char *self = ZBProcessCopyCurrentPath();
  std::string path = self;
  _ZBFree(self);
  return path.substr(0, path.rfind('/') + 1) + "zb-child.exe";
}

struct ChildRun {
  ZBError error = ZBErrorGeneric;
  std::string output;
  uint32_t exitCode = 0xFFFFFFFF;
};

std::vector<const char *> pointersOf(const std::vector<std::string> &strings) {
  std::vector<const char *> pointers;
  for (const std::string &text : strings)
    pointers.push_back(text.c_str());
  pointers.push_back(nullptr);
  return pointers;
}

// Starts the child with its output on a pipe, reads to the end and waits.
ChildRun run(const std::string &path, const std::vector<std::string> &arguments,
             const std::vector<std::string> *environment = nullptr,
             ZBProcessAttributes attributes = {}) {
  ChildRun result;
  ZBFileDescriptor pipe[2];
  if (ZBProcessCreatePipe(pipe) != ZBErrorNone)
    return result;
  attributes.standardOutput = pipe[1];
  const auto argv = pointersOf(arguments);
  std::vector<const char *> envp;
  if (environment != nullptr)
    envp = pointersOf(*environment);
  ZBProcess *process = nullptr;
  result.error = ZBProcessSpawn(path.c_str(), argv.data(), environment ? envp.data() : nullptr,
                                &attributes, &process);
  ZBFileDescriptorClose(pipe[1]);
  if (result.error == ZBErrorNone) {
    char buffer[4096];
    uint32_t bytes = 0;
    while (ZBFileDescriptorRead(pipe[0], buffer, sizeof buffer, &bytes) == ZBErrorNone && bytes > 0)
      result.output.append(buffer, bytes);
    ZBProcessWait(process, -1, &result.exitCode);
    ZBProcessFree(process);
  }
  ZBFileDescriptorClose(pipe[0]);
  return result;
}

std::string expectedArguments(const std::vector<std::string> &arguments) {
  std::string lines;
  for (const std::string &argument : arguments)
    lines += argument + "\n";
  return "crt\n" + lines + "zb\n" + lines;
}

std::string temporaryDirectory(const std::string &name) {
  const std::string path = zbtest::temporaryPath(name);
  CreateDirectoryA(path.c_str(), nullptr);
  return path;
}

} // namespace

TEST(ZBProcessSpawn, ArgumentsReachTheChildUnchanged) {
  const std::string child = childPath();
  const std::vector<std::vector<std::string>> quirks = {
      {"plain", "a\\b", "a\\\\b"},
      {"", "", ""},
      {"a b", "a\tb", " ", "\t"},
      {"a\"b", "\"", "\"\"", "\\\"", "a\\\\\"b"},
      {"end\\", "end\\\\", "sp ace\\", "sp ace\\\\"},
      {"caf\xc3\xa9", "\xf0\x9f\x98\x80", "\xe6\x97\xa5 \xf0\x9f\x98\x80\\\""},
  };
  for (const auto &tail : quirks) {
    std::vector<std::string> arguments{child, "args"};
    arguments.insert(arguments.end(), tail.begin(), tail.end());
    const ChildRun result = run(child, arguments);
    ASSERT_EQ(ZBErrorNone, result.error);
    EXPECT_EQ(expectedArguments(arguments), result.output);
  }

  std::mt19937 random(42);
  for (int vector = 0; vector < 1000; ++vector) {
    std::vector<std::string> arguments{child, "args"};
    for (const std::string &argument : zbtest::randomArguments(random))
      arguments.push_back(argument);
    const ChildRun result = run(child, arguments);
    ASSERT_EQ(ZBErrorNone, result.error);
    ASSERT_EQ(expectedArguments(arguments), result.output) << vector;
  }
}

TEST(ZBProcessSpawn, CommandLinesUpTo32766UnitsRun) {
  const std::string child = childPath();
  std::wstring wideChild;
  ASSERT_TRUE(zb::process::wideOf(child.c_str(), wideChild));
  std::wstring line;
  zb::process::appendArgument(line, wideChild, true);
  // child + " args " + filler
  const size_t filler = 32766 - line.size() - 6;
  const ChildRun fits = run(child, {child, "args", std::string(filler, 'x')});
  EXPECT_EQ(ZBErrorNone, fits.error);
  EXPECT_EQ(0u, fits.exitCode);
  EXPECT_EQ(ZBErrorNameTooLong, run(child, {child, "args", std::string(filler + 1, 'x')}).error);
}

TEST(ZBProcessSpawn, BatchFilesRunOnlyWhenAllowedAndWithPlainArguments) {
  for (const char *name : {"x.bat", "x.cmd", "x.bat.", "x.BAT ", "C:/dir/y.Cmd. ."})
    EXPECT_EQ(ZBErrorUnsupported, run(name, {name}).error) << name;

  const std::string directory = temporaryDirectory("zbbatch");
  const std::string batch = directory + "\\echo.bat";
  FILE *file = fopen(batch.c_str(), "wb");
  ASSERT_NE(nullptr, file);
  fputs("@echo [%1] [%2]\r\n", file);
  fclose(file);
  ZBProcessAttributes allow = {};
  allow.flags = ZBProcessSpawnAllowBatchFiles;
  const ChildRun result = run(batch, {batch, "one", "two words"}, nullptr, allow);
  ASSERT_EQ(ZBErrorNone, result.error);
  EXPECT_EQ("[one] [\"two words\"]\r\n", result.output);
  for (const char *refused : {"a&b", "50%", "x|y", "(", "<in", "quote\"", "line\nfeed", "bang!"})
    EXPECT_EQ(ZBErrorInvalidArgument, run(batch, {batch, refused}, nullptr, allow).error)
        << refused;
  DeleteFileA(batch.c_str());
  RemoveDirectoryA(directory.c_str());
}

TEST(ZBProcessSpawn, TheChildSeesItsEnvironmentAndTheMarker) {
  const std::string child = childPath();
  const std::vector<std::string> given = {"ZB_GIVEN=yes", "QUOVEX_CHILDPROCESS=0"};
  const ChildRun explicitly =
      run(child, {child, "env", "ZB_GIVEN", "QUOVEX_CHILDPROCESS", "SYSTEMROOT", "ZB_SET"}, &given);
  ASSERT_EQ(ZBErrorNone, explicitly.error);
  char systemRoot[MAX_PATH];
  ASSERT_GT(GetEnvironmentVariableA("SYSTEMROOT", systemRoot, MAX_PATH), 0u);
  EXPECT_EQ("ZB_GIVEN=yes\nQUOVEX_CHILDPROCESS=1\nSYSTEMROOT=" + std::string(systemRoot) +
                "\nZB_SET unset\n",
            explicitly.output);

  ASSERT_EQ(0, ZBEnvironmentSetEnv("ZB_SET", "through the library", 1));
  const ChildRun inherited = run(child, {child, "env", "ZB_SET", "QUOVEX_CHILDPROCESS"});
  EXPECT_EQ("ZB_SET=through the library\nQUOVEX_CHILDPROCESS=1\n", inherited.output);
  ZBEnvironmentUnsetEnv("ZB_SET");
}

TEST(ZBProcessSpawn, TheBlockIsSortedAndCarriesTheSystemVariables) {
  const char *entries[] = {"b=1", "A=2", "PATH=C:\\mine", "a_=3", "=C:=C:\\", nullptr};
  std::wstring block;
  ASSERT_EQ(ZBErrorNone, zb::process::environmentBlock(entries, block));
  ASSERT_GE(block.size(), 2u);
  EXPECT_EQ(L'\0', block[block.size() - 1]);
  EXPECT_EQ(L'\0', block[block.size() - 2]);
  std::vector<std::wstring> names;
  for (size_t start = 0; block[start] != L'\0'; start = block.find(L'\0', start) + 1) {
    const std::wstring entry = block.c_str() + start;
    names.push_back(entry.substr(0, entry.find(L'=', 1)));
  }
  EXPECT_TRUE(std::is_sorted(names.begin(), names.end(), [](const auto &a, const auto &b) {
    return CompareStringOrdinal(a.c_str(), -1, b.c_str(), -1, TRUE) == CSTR_LESS_THAN;
  }));
  EXPECT_STREQ(L"C:\\mine", zb::process::findInBlock(block, L"path"));
  EXPECT_STREQ(L"1", zb::process::findInBlock(block, L"QUOVEX_CHILDPROCESS"));
  EXPECT_STREQ(L"2", zb::process::findInBlock(block, L"A"));
  for (const wchar_t *name : {L"SYSTEMROOT", L"SYSTEMDRIVE", L"WINDIR", L"TEMP", L"TMP",
                              L"USERPROFILE", L"PATHEXT", L"COMSPEC"}) {
    wchar_t value[MAX_PATH];
    if (GetEnvironmentVariableW(name, value, MAX_PATH) == 0)
      continue; // the process itself lacks it
    const wchar_t *found = zb::process::findInBlock(block, name);
    ASSERT_NE(nullptr, found) << testing::PrintToString(std::wstring(name));
    EXPECT_STREQ(value, found);
  }

  const char *noEquals[] = {"NAME", nullptr};
  const char *notUTF8[] = {"A=\xff", nullptr};
  EXPECT_EQ(ZBErrorInvalidArgument, zb::process::environmentBlock(noEquals, block));
  EXPECT_EQ(ZBErrorInvalidArgument, zb::process::environmentBlock(notUTF8, block));
}

TEST(ZBProcessSpawn, ConcurrentChildrenNeverHoldAnotherPipesWriteEnd) {
  const std::string child = childPath();
  std::atomic<int> failures{0};
  zbtest::onThreads(2, [&](int) {
    for (int i = 0; i < 200; ++i) {
      const ChildRun result = run(child, {child, "path"});
      if (result.error != ZBErrorNone || result.exitCode != 0 || result.output.empty())
        ++failures;
    }
  });
  EXPECT_EQ(0, failures.load());
}

TEST(ZBProcessSpawn, ListedDescriptorsKeepTheirValueAndOthersDoNotReach) {
  const std::string child = childPath();
  for (const bool listed : {true, false}) {
    ZBFileDescriptor pipe[2];
    ASSERT_EQ(ZBErrorNone, ZBProcessCreatePipe(pipe));
    ZBProcessAttributes attributes = {};
    attributes.inherited = &pipe[1];
    attributes.inheritedCount = listed ? 1 : 0;
    const ChildRun result =
        run(child, {child, "write", std::to_string(pipe[1])}, nullptr, attributes);
    EXPECT_EQ(ZBErrorNone, result.error);
    DWORD flags = 0;
    ASSERT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(pipe[1]), &flags));
    EXPECT_EQ(0u, flags & HANDLE_FLAG_INHERIT) << "the flag is restored";
    ZBFileDescriptorClose(pipe[1]);
    char buffer[8];
    uint32_t bytes = 0;
    ASSERT_EQ(ZBErrorNone, ZBFileDescriptorRead(pipe[0], buffer, sizeof buffer, &bytes));
    EXPECT_EQ(listed ? "ok" : "", std::string(buffer, bytes)) << listed;
    ZBFileDescriptorClose(pipe[0]);
  }
}

TEST(ZBProcessSpawn, GrandchildrenDieWithTheirParentUnlessDetached) {
  const std::string child = childPath();
  for (const bool detached : {false, true}) {
    ZBFileDescriptor pipe[2];
    ASSERT_EQ(ZBErrorNone, ZBProcessCreatePipe(pipe));
    ZBProcessAttributes attributes = {};
    attributes.standardOutput = pipe[1];
    std::vector<std::string> arguments{child, "grandchild"};
    if (detached)
      arguments.push_back("detached");
    const auto argv = pointersOf(arguments);
    ZBProcess *process = nullptr;
    ASSERT_EQ(ZBErrorNone,
              ZBProcessSpawn(child.c_str(), argv.data(), nullptr, &attributes, &process));
    ZBFileDescriptorClose(pipe[1]);
    std::string line;
    char c;
    uint32_t bytes = 0;
    while (ZBFileDescriptorRead(pipe[0], &c, 1, &bytes) == ZBErrorNone && bytes == 1 && c != '\n')
      line += c;
    ZBFileDescriptorClose(pipe[0]);
    ASSERT_FALSE(line.empty());
    HANDLE grandchild = OpenProcess(SYNCHRONIZE | PROCESS_TERMINATE, FALSE, std::stoul(line));
    ASSERT_NE(nullptr, grandchild);
    EXPECT_EQ(ZBErrorNone, ZBProcessTerminate(process, 9));
    EXPECT_EQ(ZBErrorNone, ZBProcessWait(process, -1, nullptr));
    ZBProcessFree(process);
    EXPECT_EQ(detached ? WAIT_TIMEOUT : WAIT_OBJECT_0, WaitForSingleObject(grandchild, 3000))
        << detached;
    TerminateProcess(grandchild, 0);
    CloseHandle(grandchild);
  }
}

TEST(ZBProcessSpawn, WaitingTimesOutAndReportsExitCodes) {
  const std::string child = childPath();
  const std::vector<std::string> sleeperArguments = {child, "sleep", "60000"};
  const auto sleeper = pointersOf(sleeperArguments);
  ZBProcess *process = nullptr;
  ASSERT_EQ(ZBErrorNone, ZBProcessSpawn(child.c_str(), sleeper.data(), nullptr, nullptr, &process));
  EXPECT_NE(0u, ZBProcessGetID(process));
  uint32_t code = 0;
  EXPECT_EQ(ZBErrorTimedOut, ZBProcessWait(process, 0, &code));
  EXPECT_EQ(ZBErrorTimedOut, ZBProcessWait(process, 20000000, &code));
  EXPECT_EQ(ZBErrorNone, ZBProcessTerminate(process, 7));
  for (int again = 0; again < 2; ++again) {
    EXPECT_EQ(ZBErrorNone, ZBProcessWait(process, again == 0 ? -1 : 0, &code));
    EXPECT_EQ(7u, code);
  }
  EXPECT_EQ(ZBErrorProcessNotFound, ZBProcessTerminate(process, 8));
  ZBProcessFree(process);

  EXPECT_EQ(42u, run(child, {child, "exit", "42"}).exitCode);
  EXPECT_EQ(0xC0000005u, run(child, {child, "crash"}).exitCode);
}

TEST(ZBProcessSpawn, SearchPathUsesTheChildsPathAndNeverTheWorkingDirectory) {
  const std::string child = childPath();
  const std::string onPath = temporaryDirectory("zbonpath");
  const std::string planted = temporaryDirectory("zbplanted");
  ASSERT_TRUE(CopyFileA(child.c_str(), (onPath + "\\zbprogram.exe").c_str(), FALSE));
  ASSERT_TRUE(CopyFileA(child.c_str(), (planted + "\\zbprogram.exe").c_str(), FALSE));
  ZBProcessAttributes attributes = {};
  attributes.workingDirectory = planted.c_str();
  attributes.flags = ZBProcessSpawnSearchPath;
  // The copies load zenbor.dll through PATH, from the test's own folder.
  const std::string folder = child.substr(0, child.rfind('/'));
  const std::vector<std::string> withPath = {"PATH=C:\\nowhere;" + onPath + ";" + folder};
  const ChildRun found = run("zbprogram", {"zbprogram", "path"}, &withPath, attributes);
  ASSERT_EQ(ZBErrorNone, found.error);
  std::string expected = onPath + "\\zbprogram.exe\n";
  std::replace(expected.begin(), expected.end(), '\\', '/');
  EXPECT_EQ(expected, found.output);

  const std::vector<std::string> withoutPath = {"PATH=C:\\nowhere"};
  EXPECT_EQ(ZBErrorFileNotFound,
            run("zbprogram", {"zbprogram", "path"}, &withoutPath, attributes).error);
  for (const std::string &directory : {onPath, planted}) {
    DeleteFileA((directory + "\\zbprogram.exe").c_str());
    RemoveDirectoryA(directory.c_str());
  }
}

TEST(ZBProcessSpawn, BadInputGivesItsCode) {
  const std::string child = childPath();
  const char *argv[] = {"zb-child", nullptr};
  const char *badUTF8[] = {"zb-child", "\xc3", nullptr};
  const char *quotedName[] = {"zb\"child", nullptr};
  const char *badEnvironment[] = {"A=\xff", nullptr};
  const ZBFileDescriptor invalid = 0xDEAD0;
  ZBProcessAttributes unknownFlag = {};
  unknownFlag.flags = 32;
  ZBProcessAttributes badOutput = {};
  badOutput.standardOutput = invalid;
  ZBProcessAttributes badListed = {};
  badListed.inherited = &invalid;
  badListed.inheritedCount = 1;
  ZBProcessAttributes nullListed = {};
  nullListed.inheritedCount = 1;
  ZBProcess *process = nullptr;
  const struct {
    const char *path;
    const char *const *arguments;
    const char *const *environment;
    const ZBProcessAttributes *attributes;
    ZBProcess **out;
    ZBError expected;
  } cases[] = {
      {nullptr, argv, nullptr, nullptr, &process, ZBErrorInvalidArgument},
      {"", argv, nullptr, nullptr, &process, ZBErrorInvalidArgument},
      {child.c_str(), nullptr, nullptr, nullptr, &process, ZBErrorInvalidArgument},
      {child.c_str(), argv, nullptr, nullptr, nullptr, ZBErrorInvalidArgument},
      {child.c_str(), argv, nullptr, &unknownFlag, &process, ZBErrorInvalidArgument},
      {child.c_str(), badUTF8, nullptr, nullptr, &process, ZBErrorInvalidArgument},
      {child.c_str(), quotedName, nullptr, nullptr, &process, ZBErrorInvalidArgument},
      {child.c_str(), argv, badEnvironment, nullptr, &process, ZBErrorInvalidArgument},
      {"C:/\xff.exe", argv, nullptr, nullptr, &process, ZBErrorInvalidArgument},
      {child.c_str(), argv, nullptr, &nullListed, &process, ZBErrorInvalidArgument},
      {child.c_str(), argv, nullptr, &badOutput, &process, ZBErrorInvalidHandle},
      {child.c_str(), argv, nullptr, &badListed, &process, ZBErrorInvalidHandle},
      {"C:/no/such/program.exe", argv, nullptr, nullptr, &process, ZBErrorFileNotFound},
  };
  for (const auto &c : cases) {
    process = nullptr;
    EXPECT_EQ(c.expected, ZBProcessSpawn(c.path, c.arguments, c.environment, c.attributes, c.out))
        << (c.path ? c.path : "null");
    EXPECT_EQ(nullptr, process);
  }
  EXPECT_EQ(ZBErrorInvalidArgument, ZBProcessWait(nullptr, 0, nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBProcessTerminate(nullptr, 0));
  EXPECT_EQ(0u, ZBProcessGetID(nullptr));
  ZBProcessFree(nullptr);
}
