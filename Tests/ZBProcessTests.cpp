// The running process (path, arguments, ID, memory use), the C runtime's
// command-line rules in both directions, and pipes from ZBProcessCreatePipe.
#include "ZBProcess.h"

#include "ZBAlloc.h"
#include "ZBFileDescriptor.h"
#include "ZBProcessPrivate.h"
#include "ZBProcessTestVectors.h"
#include "ZBSystemCallInjection.h"
#include "ZBTestSupport.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <random>
#include <string>
#include <vector>

using zb::process::appendArgument;
using zb::process::parseCommandLine;
using Arguments = std::vector<std::wstring>;

namespace {

std::string take(char *text) {
  std::string result = text != nullptr ? text : "<null>";
  _ZBFree(text);
  return result;
}

std::wstring commandLineOf(const Arguments &arguments) {
  std::wstring line;
  for (size_t i = 0; i < arguments.size(); ++i)
    EXPECT_TRUE(appendArgument(line, arguments[i], i == 0));
  return line;
}

} // namespace

TEST(ZBProcess, CurrentPathIsTheExecutableInTheLibrarysStyle) {
  wchar_t module[4096];
  const DWORD length = GetModuleFileNameW(nullptr, module, 4096);
  ASSERT_GT(length, 0u);
  std::string expected;
  for (DWORD i = 0; i < length; ++i)
    expected.push_back(module[i] == L'\\' ? '/' : static_cast<char>(module[i]));
  EXPECT_EQ(expected, take(ZBProcessCopyCurrentPath()));
  EXPECT_EQ(GetCurrentProcessId(), ZBProcessGetCurrentID());
}

TEST(ZBProcess, ArgumentsAreTheRuntimesArgvInOneBlock) {
  uint32_t count = 0;
  char **arguments = nullptr;
  ASSERT_EQ(ZBErrorNone, ZBProcessCopyArguments(&count, &arguments));
  ASSERT_EQ(static_cast<uint32_t>(__argc), count);
  for (uint32_t i = 0; i < count; ++i) {
    EXPECT_STREQ(__argv[i], arguments[i]) << i;
    // The strings live in the same block, after the array.
    EXPECT_GT(reinterpret_cast<void *>(arguments[i]), reinterpret_cast<void *>(arguments + count));
  }
  EXPECT_EQ(nullptr, arguments[count]);
  _ZBFree(arguments);

  EXPECT_EQ(ZBErrorInvalidArgument, ZBProcessCopyArguments(nullptr, &arguments));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBProcessCopyArguments(&count, nullptr));
}

TEST(ZBProcess, CommandLineSplitsAsTheCRuntimeDoes) {
  const struct {
    const wchar_t *line;
    Arguments expected;
  } cases[] = {
      {L"", {L""}},
      {L"prog", {L"prog"}},
      {L"prog  a\tb  ", {L"prog", L"a", L"b"}},
      // argv[0]: quotes group, backslashes stay, "" adds nothing.
      {L"\"C:\\Program Files\\x.exe\" a", {L"C:\\Program Files\\x.exe", L"a"}},
      {L"C:\\dir\\\"x y\".exe z", {L"C:\\dir\\x y.exe", L"z"}},
      {L"\"C:\\dir\\\\\" a", {L"C:\\dir\\\\", L"a"}},
      {L"p\"\"q r", {L"pq", L"r"}},
      // Backslashes escape only a following quote.
      {L"p a\\b a\\\\b", {L"p", L"a\\b", L"a\\\\b"}},
      {L"p a\\\"b", {L"p", L"a\"b"}},
      {L"p a\\\\\"b c\"", {L"p", L"a\\b c"}},
      {L"p a\\\\\\\"b", {L"p", L"a\\\"b"}},
      {L"p \"a b\\\\\"", {L"p", L"a b\\"}},
      {L"p a\\", {L"p", L"a\\"}},
      // Empty arguments and "" inside a quoted part (a literal quote).
      {L"p \"\" \"\"", {L"p", L"", L""}},
      {L"p \"a\"\"b\"", {L"p", L"a\"b"}},
      {L"p \"a\"\"\"", {L"p", L"a\""}},
      {L"p a\"b c\"d", {L"p", L"ab cd"}},
      {L"p \"unterminated arg", {L"p", L"unterminated arg"}},
      {L"p \"\t\"", {L"p", L"\t"}},
  };
  for (const auto &c : cases)
    EXPECT_EQ(c.expected, parseCommandLine(c.line)) << testing::PrintToString(std::wstring(c.line));
}

TEST(ZBProcess, QuotingIsTheExactInverseOfSplitting) {
  const struct {
    Arguments arguments;
    const wchar_t *line;
  } quirks[] = {
      {{L"p", L"plain", L"a\\b"}, L"p plain a\\b"},
      {{L"p", L""}, L"p \"\""},
      {{L"p", L"a b"}, L"p \"a b\""},
      {{L"p", L"a\tb"}, L"p \"a\tb\""},
      {{L"p", L"a\"b"}, L"p \"a\\\"b\""},
      {{L"p", L"a\\\"b"}, L"p \"a\\\\\\\"b\""},
      {{L"p", L"a b\\"}, L"p \"a b\\\\\""},
      {{L"p", L"a\\ b"}, L"p \"a\\ b\""},
      {{L"C:\\Program Files\\x.exe", L"x"}, L"\"C:\\Program Files\\x.exe\" x"},
      {{L"C:\\dir with space\\", L"x"}, L"\"C:\\dir with space\\\" x"},
      {{L""}, L"\"\""},
  };
  for (const auto &c : quirks) {
    EXPECT_EQ(c.line, commandLineOf(c.arguments));
    EXPECT_EQ(c.arguments, parseCommandLine(c.line));
  }

  // argv[0] has no escapes, so a quote in it cannot be carried.
  std::wstring line;
  EXPECT_FALSE(appendArgument(line, L"a\"b", true));

  std::mt19937 random(17);
  for (int vector = 0; vector < 1000; ++vector) {
    Arguments arguments{L"prog"};
    for (const std::string &argument : zbtest::randomArguments(random)) {
      arguments.emplace_back();
      ASSERT_TRUE(zb::process::wideOf(argument.c_str(), arguments.back()));
    }
    const std::wstring commandLine = commandLineOf(arguments);
    ASSERT_EQ(arguments, parseCommandLine(commandLine.c_str()))
        << testing::PrintToString(commandLine);
  }
}

TEST(ZBProcess, MemoryUsageIsTheWorkingSetAndPrivateBytes) {
  ZBProcessMemoryUsage before = {};
  ASSERT_EQ(ZBErrorNone, ZBProcessGetMemoryUsage(&before));
  EXPECT_GT(before.residentBytes, 0u);
  EXPECT_GE(before.peakResidentBytes, before.residentBytes);
  EXPECT_GT(before.privateBytes, 0u);

  // 64 MiB committed and touched shows in both figures.
  const size_t size = 64u << 20;
  auto *block = static_cast<char *>(VirtualAlloc(nullptr, size, MEM_COMMIT, PAGE_READWRITE));
  ASSERT_NE(nullptr, block);
  for (size_t i = 0; i < size; i += 4096)
    block[i] = 1;
  ZBProcessMemoryUsage after = {};
  ASSERT_EQ(ZBErrorNone, ZBProcessGetMemoryUsage(&after));
  VirtualFree(block, 0, MEM_RELEASE);
  EXPECT_GE(after.privateBytes, before.privateBytes + size / 2);
  EXPECT_GE(after.peakResidentBytes, before.residentBytes + size / 2);

  EXPECT_EQ(ZBErrorInvalidArgument, ZBProcessGetMemoryUsage(nullptr));
}

TEST(ZBProcessPipe, ReadsReachTheEndOfFileOnceTheWriteEndCloses) {
  ZBFileDescriptor pipe[2] = {};
  ASSERT_EQ(ZBErrorNone, ZBProcessCreatePipe(pipe));
  for (const ZBFileDescriptor end : pipe) {
    DWORD flags = 0;
    ASSERT_TRUE(GetHandleInformation(reinterpret_cast<HANDLE>(end), &flags));
    EXPECT_EQ(0u, flags & HANDLE_FLAG_INHERIT);
  }
  uint32_t bytes = 0;
  ASSERT_EQ(ZBErrorNone, ZBFileDescriptorWrite(pipe[1], "hello", 5, &bytes));
  EXPECT_EQ(5u, bytes);
  ASSERT_EQ(ZBErrorNone, ZBFileDescriptorClose(pipe[1]));

  const size_t warnings = zbtest::occurrences(zbtest::logRing(), "Unknown I/O error");
  char buffer[16] = {};
  ASSERT_EQ(ZBErrorNone, ZBFileDescriptorRead(pipe[0], buffer, sizeof buffer, &bytes));
  EXPECT_EQ("hello", std::string(buffer, bytes));
  for (int again = 0; again < 2; ++again) {
    bytes = 99;
    EXPECT_EQ(ZBErrorNone, ZBFileDescriptorRead(pipe[0], buffer, sizeof buffer, &bytes));
    EXPECT_EQ(0u, bytes);
  }
  EXPECT_EQ(warnings, zbtest::occurrences(zbtest::logRing(), "Unknown I/O error"));
  EXPECT_EQ(ZBErrorNone, ZBFileDescriptorClose(pipe[0]));
}

TEST(ZBProcessPipe, FailuresLeaveThePairUntouched) {
  EXPECT_EQ(ZBErrorInvalidArgument, ZBProcessCreatePipe(nullptr));
  const struct {
    DWORD error;
    ZBError expected;
  } cases[] = {
      {ERROR_TOO_MANY_OPEN_FILES, ZBErrorTooManyFiles},
      {ERROR_NO_SYSTEM_RESOURCES, ZBErrorNoMemory},
      {ERROR_ACCESS_DENIED, ZBErrorGeneric},
  };
  for (const auto &c : cases) {
    static DWORD sError;
    sError = c.error;
    zb::test::ScopedSystemCall fail(zb::gSystemCalls.CreatePipe,
                                    [](PHANDLE, PHANDLE, LPSECURITY_ATTRIBUTES, DWORD) -> BOOL {
                                      SetLastError(sError);
                                      return FALSE;
                                    });
    ZBFileDescriptor pipe[2] = {7, 8};
    EXPECT_EQ(c.expected, ZBProcessCreatePipe(pipe)) << c.error;
    EXPECT_EQ(7u, pipe[0]);
    EXPECT_EQ(8u, pipe[1]);
  }
}
