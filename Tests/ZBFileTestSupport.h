// What the descriptor and file tests share: a directory of the test's own
// under the system's temporary folder, removed with everything in it when
// the test ends (by raw system calls, never by the functions under test),
// and raw reads and writes to check the library's results against.
#pragma once

#include <gtest/gtest.h>

#include "ZBSystemCallInjection.h"

#include <winsock2.h>
#include <windows.h>

#include <atomic>
#include <string>

namespace zbtest {

// The error the calls failed by ZBTEST_FAIL report; set it before the call.
inline DWORD gInjectedError = 0;

} // namespace zbtest

// Makes the system-call table's `entry` fail with zbtest::gInjectedError and
// answer `failure` while the enclosing scope lasts.
#define ZBTEST_FAIL(entry, failure)                                                                \
  zb::test::ScopedSystemCall failing##entry(zb::gSystemCalls.entry, [](auto...) {                  \
    SetLastError(zbtest::gInjectedError);                                                          \
    return failure;                                                                                \
  })

namespace zbtest {

inline std::wstring wide(const std::string &text) {
  std::wstring result(text.size() + 1, L'\0');
  const int count = MultiByteToWideChar(CP_UTF8, 0, text.c_str(), -1, result.data(),
                                        static_cast<int>(result.size()));
  result.resize(count > 0 ? static_cast<size_t>(count - 1) : 0);
  return result;
}

// The long-path form of a library path, for the raw calls.
inline std::wstring longPath(const std::string &path) {
  std::wstring text = wide(path);
  for (wchar_t &c : text)
    if (c == L'/')
      c = L'\\';
  return L"\\\\?\\" + text;
}

inline void removeTreeRaw(const std::wstring &path) {
  WIN32_FIND_DATAW entry;
  HANDLE find = FindFirstFileW((path + L"\\*").c_str(), &entry);
  if (find != INVALID_HANDLE_VALUE) {
    do {
      const std::wstring name = entry.cFileName;
      if (name == L"." || name == L"..")
        continue;
      const std::wstring child = path + L"\\" + name;
      SetFileAttributesW(child.c_str(), FILE_ATTRIBUTE_NORMAL);
      if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
        removeTreeRaw(child);
      else
        DeleteFileW(child.c_str());
    } while (FindNextFileW(find, &entry));
    FindClose(find);
  }
  SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_DIRECTORY);
  RemoveDirectoryW(path.c_str());
}

inline DWORD attributesOf(const std::string &path) {
  return GetFileAttributesW(longPath(path).c_str());
}
inline bool existsRaw(const std::string &path) {
  return attributesOf(path) != INVALID_FILE_ATTRIBUTES;
}

inline std::string readRaw(const std::string &path) {
  HANDLE file = CreateFileW(longPath(path).c_str(), GENERIC_READ,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE)
    return "<absent>";
  std::string text;
  char buffer[4096];
  DWORD count = 0;
  while (ReadFile(file, buffer, sizeof buffer, &count, nullptr) && count > 0)
    text.append(buffer, count);
  CloseHandle(file);
  return text;
}

inline bool writeRaw(const std::string &path, const std::string &text) {
  HANDLE file =
      CreateFileW(longPath(path).c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE)
    return false;
  DWORD count = 0;
  const bool written =
      WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &count, nullptr) &&
      count == text.size();
  CloseHandle(file);
  return written;
}

inline bool makeDirectoryRaw(const std::string &path) {
  return CreateDirectoryW(longPath(path).c_str(), nullptr) != 0;
}

// A fixture whose tests each get a fresh directory, as a library path
// ("C:/users/.../Temp/zbfiles-<pid>-<n>").
class FileSystemTest : public testing::Test {
protected:
  void SetUp() override {
    static std::atomic<int> counter{0};
    wchar_t temp[MAX_PATH + 1];
    const DWORD length = GetTempPathW(MAX_PATH + 1, temp);
    ASSERT_GT(length, 0u);
    char narrow[4 * MAX_PATH];
    WideCharToMultiByte(CP_UTF8, 0, temp, -1, narrow, sizeof narrow, nullptr, nullptr);
    std::string base = narrow;
    for (char &c : base)
      if (c == '\\')
        c = '/';
    if (base.back() == '/')
      base.pop_back();
    root_ = base + "/zbfiles-" + std::to_string(GetCurrentProcessId()) + "-" +
            std::to_string(counter++);
    removeTreeRaw(longPath(root_));
    ASSERT_TRUE(makeDirectoryRaw(root_)) << root_;
  }
  void TearDown() override {
    removeTreeRaw(longPath(root_));
    EXPECT_FALSE(existsRaw(root_)) << "left behind: " << root_;
  }
  std::string at(const std::string &name) const { return root_ + "/" + name; }

  std::string root_;
};

} // namespace zbtest
