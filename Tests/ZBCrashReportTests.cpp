// Crash reports, from child processes that install the reporter and crash
// in each way it catches: each report names the code, holds the last log
// line and a frame naming the crashing test function, and the filter that
// was installed before the reporter still runs. Also the crash-dump handler
// that ZBCrashDumpFixImmediately calls, and install and uninstall codes.
#include "ZBCrashReport.h"
#include "ZBLog.h"
#include "ZBTestSupport.h"
#include "ZBThread.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <exception>
#include <string>
#include <vector>

namespace {

// The crash directory of one test, the same in the parent and its child.
std::string crashDirectory() {
  std::string name = testing::UnitTest::GetInstance()->current_test_info()->name();
  for (char &character : name)
    if (character == '/')
      character = '-';
  return testing::TempDir() + "zbcrash-" + name;
}

std::vector<std::string> crashFiles(const std::string &directory, const char *pattern) {
  std::vector<std::string> files;
  WIN32_FIND_DATAA found;
  HANDLE search = FindFirstFileA((directory + "\\" + pattern).c_str(), &found);
  if (search == INVALID_HANDLE_VALUE)
    return files;
  do
    files.push_back(directory + "\\" + found.cFileName);
  while (FindNextFileA(search, &found));
  FindClose(search);
  return files;
}

void removeDirectory(const std::string &directory) {
  for (const std::string &file : crashFiles(directory, "*.*"))
    DeleteFileA(file.c_str());
  RemoveDirectoryA(directory.c_str());
}

void emptyDirectory(const std::string &directory) {
  removeDirectory(directory);
  CreateDirectoryA(directory.c_str(), nullptr);
}

std::string gMarkerPath;

LONG WINAPI previousFilter(EXCEPTION_POINTERS *) {
  FILE *marker = std::fopen(gMarkerPath.c_str(), "w");
  if (marker != nullptr)
    std::fclose(marker);
  return EXCEPTION_CONTINUE_SEARCH;
}

// In the child: a filter of the program's own, then the reporter, then a
// log line the report must hold. The main thread joins the registry, so
// that a crash on another thread reports its stack too.
void installInChild(const std::string &directory, uint32_t flags = 0) {
  ZBThreadSuspendAdd(GetCurrentThreadId());
  gMarkerPath = directory + "\\previous-filter-ran";
  SetUnhandledExceptionFilter(previousFilter);
  if (ZBCrashReportInstall(directory.c_str(), flags) != ZBErrorNone)
    std::_Exit(2);
  ZB_LOG_WARNING("the last line before the crash");
}

__attribute__((noinline)) void crashByNullWrite() { *static_cast<volatile int *>(nullptr) = 1; }

// Recurses until the stack runs out; the volatile limit hides that from
// the compiler.
volatile int gOverflowLimit = 1 << 30;
__attribute__((noinline)) int crashByStackOverflow(int depth) {
  volatile char padding[2000]; // below a page: no stack probe, which has no unwind data
  padding[0] = static_cast<char>(depth);
  if (depth > gOverflowLimit)
    return 0;
  return crashByStackOverflow(depth + 1) + padding[0];
}

void *overflowOnThread(void *) {
  crashByStackOverflow(0);
  return nullptr;
}

__attribute__((noinline)) void crashOnAnotherThread() {
  const ZBThread thread = ZBThreadCreate("zb-overflow", overflowOnThread, nullptr, -1.0, 0, 0);
  ZBThreadJoin(thread, nullptr);
  __asm__ volatile("" ::: "memory"); // not a tail call: this frame stays on the stack
}

__attribute__((noinline)) void crashByZBAbort() { ZBAbort(); }

__attribute__((noinline)) void crashByAbort() { std::abort(); }

__attribute__((noinline)) void crashByTerminate() { std::terminate(); }

// msvcrt.dll's entry for a call of a pure virtual function, where code built
// against msvcrt.dll's vtables lands. (GCC's vtables lead to
// __cxa_pure_virtual, which ends in std::terminate and abort().)
__attribute__((noinline)) void crashByPureVirtualCall() {
  using Purecall = int(__cdecl *)();
  const auto purecall = reinterpret_cast<Purecall>(
      reinterpret_cast<void *>(GetProcAddress(GetModuleHandleW(L"msvcrt.dll"), "_purecall")));
  purecall();
}

struct CrashCase {
  const char *name;
  void (*crash)();
  DWORD code;
  const char *function;            // a frame the report must name
  const char *otherThreadFunction; // a frame of the waiting main thread, if any
  bool previousFilterRuns;
  bool needsRuntimePurecallHandler;
};

void stackOverflowOnMain() { crashByStackOverflow(0); }

const CrashCase kCrashCases[] = {
    {"NullWrite", crashByNullWrite, 0xC0000005, "crashByNullWrite", nullptr, true, false},
    {"StackOverflowOnMainThread", stackOverflowOnMain, 0xC00000FD, "crashByStackOverflow", nullptr,
     false, false},
    {"StackOverflowOnAnotherThread", crashOnAnotherThread, 0xC00000FD, "crashByStackOverflow",
     "crashOnAnotherThread", false, false},
    {"ZBAbort", crashByZBAbort, 0xC0000025, "crashByZBAbort", nullptr, true, false},
    {"Abort", crashByAbort, 0x40000015, "crashByAbort", nullptr, false, false},
    {"Terminate", crashByTerminate, 0x40000015, "crashByTerminate", nullptr, false, false},
    {"PureVirtualCall", crashByPureVirtualCall, 0x40000015, "crashByPureVirtualCall", nullptr,
     false, true},
};

// One test per way, so that each child runs exactly one crash.
class ZBCrashReportChildTests : public testing::TestWithParam<CrashCase> {};

TEST_P(ZBCrashReportChildTests, LeavesAReport) {
  const CrashCase &crashCase = GetParam();
  if (crashCase.needsRuntimePurecallHandler &&
      GetProcAddress(GetModuleHandleW(L"msvcrt.dll"), "_set_purecall_handler") == nullptr)
    GTEST_SKIP() << "Wine's msvcrt.dll has no _set_purecall_handler (Windows' has since Vista): "
                    "its _purecall ends the process without a handler to call";
  const std::string directory = crashDirectory();
  emptyDirectory(directory);
  EXPECT_EXIT(
      {
        installInChild(directory);
        crashCase.crash();
      },
      testing::ExitedWithCode(static_cast<int>(crashCase.code)), "");
  const std::vector<std::string> reports = crashFiles(directory, "*.crash.txt");
  ASSERT_EQ(1u, reports.size());
  // "<program>-<pid>-<time>.crash.txt"
  EXPECT_EQ(0u, reports[0].rfind(directory + "\\ZBCrashReportTests-", 0)) << reports[0];
  const std::string report = zbtest::readFile(reports[0]);
  char code[32];
  std::snprintf(code, sizeof code, "Exception code: 0x%08X\n",
                static_cast<unsigned>(crashCase.code));
  EXPECT_NE(std::string::npos, report.find(code)) << report;
  EXPECT_NE(std::string::npos, report.find(crashCase.function)) << report;
  EXPECT_NE(std::string::npos, report.find("the last line before the crash")) << report;
  EXPECT_NE(std::string::npos, report.find("rip    0x")) << report;
  if (crashCase.otherThreadFunction != nullptr) {
    const size_t otherThread = report.find("\nThread ", report.find("(crashed):"));
    ASSERT_NE(std::string::npos, otherThread) << report;
    EXPECT_NE(std::string::npos, report.find(crashCase.otherThreadFunction, otherThread)) << report;
  }
  EXPECT_EQ(crashCase.previousFilterRuns,
            GetFileAttributesA((directory + "\\previous-filter-ran").c_str()) !=
                INVALID_FILE_ATTRIBUTES);
  removeDirectory(directory);
}

INSTANTIATE_TEST_SUITE_P(EachWay, ZBCrashReportChildTests, testing::ValuesIn(kCrashCases),
                         [](const testing::TestParamInfo<CrashCase> &info) {
                           return std::string(info.param.name);
                         });

TEST(ZBCrashReportTests, MinidumpBesideTheReport) {
  const std::string directory = crashDirectory();
  emptyDirectory(directory);
  EXPECT_EXIT(
      {
        installInChild(directory, ZBCrashReportMinidump);
        crashByZBAbort();
      },
      testing::ExitedWithCode(static_cast<int>(0xC0000025)), "");
  EXPECT_EQ(1u, crashFiles(directory, "*.crash.txt").size());
  const std::vector<std::string> dumps = crashFiles(directory, "*.dmp");
  ASSERT_EQ(1u, dumps.size());
  EXPECT_EQ(0u, zbtest::readFile(dumps[0]).rfind("MDMP", 0));
  removeDirectory(directory);
}

int32_t gHandlerCalls;
int32_t crashDumpHandler() { return ++gHandlerCalls + 40; }

TEST(ZBCrashReportTests, InstallUninstallAndTheCrashDumpHandler) {
  ZBCrashDumpSetHandler(crashDumpHandler);
  EXPECT_EQ(41, ZBCrashDumpFixImmediately());
  EXPECT_EQ(42, ZBCrashDumpFixImmediately());
  ZBCrashDumpSetHandler(nullptr);
  // Without a handler it keeps its old way: Fatal, then the end.
  EXPECT_DEATH(ZBCrashDumpFixImmediately(), "");

  const std::string directory = crashDirectory();
  emptyDirectory(directory);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBCrashReportInstall(nullptr, 0));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBCrashReportInstall("", 0));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBCrashReportInstall(directory.c_str(), 2));
  EXPECT_EQ(ZBErrorNotFound, ZBCrashReportUninstall());
  const LPTOP_LEVEL_EXCEPTION_FILTER before = SetUnhandledExceptionFilter(previousFilter);
  ASSERT_EQ(ZBErrorNone, ZBCrashReportInstall(directory.c_str(), 0));
  EXPECT_EQ(ZBErrorAlready, ZBCrashReportInstall(directory.c_str(), 0));
  EXPECT_EQ(ZBErrorNone, ZBCrashReportUninstall());
  // The filter installed before is back.
  EXPECT_EQ(previousFilter, SetUnhandledExceptionFilter(before));
  EXPECT_EQ(ZBErrorNotFound, ZBCrashReportUninstall());
  removeDirectory(directory);
}

} // namespace
