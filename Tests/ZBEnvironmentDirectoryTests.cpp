// Host identity, random bytes and the application directories, against the
// real file system and the real process environment. Every directory test
// points the home, LOCALAPPDATA and TMP at a fresh folder of its own, so no
// test touches the user's folders and the tests run in any order. Errors
// Wine cannot produce are injected through the system-call table.
#include <gtest/gtest.h>

#include "ZBAlloc.h"
#include "ZBEnvironment.h"
#include "ZBProcess.h"
#include "ZBSystemCallInjection.h"
#include "ZBTestSupport.h"

#include <algorithm>
#include <array>
#include <cstring>
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
  ASSERT_GT(WideCharToMultiByte(CP_UTF8, 0, wide, -1, expected, sizeof expected, nullptr,
                                nullptr),
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

} // namespace
