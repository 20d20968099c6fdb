// Small helpers shared by the test programs.
#pragma once

#include <gtest/gtest.h>

#include "ZBLog.h"

#include <cstdio>
#include <string>

namespace zbtest {

// The third-party reference data beside the repository, or "" when absent.
std::string oraclePath(const std::string &relative);
// The whole file, or "" when it cannot be read.
std::string readFile(const std::string &path);
// A file name unique to this process under the system's temporary folder.
std::string temporaryPath(const std::string &name);

// The log's ring of recent lines, oldest first. Inline: it calls the library
// as each test program links it (the DLL or the static form).
inline std::string logRing() {
  std::string text(65536, '\0');
  const int32_t length = ZBLogBufferCopyBytes(text.data(), static_cast<uint32_t>(text.size()));
  text.resize(length > 0 ? static_cast<size_t>(length) : 0);
  return text;
}

inline size_t occurrences(const std::string &text, const std::string &needle) {
  size_t count = 0;
  for (size_t at = text.find(needle); at != std::string::npos; at = text.find(needle, at + 1))
    ++count;
  return count;
}

// Runs `statement` in a death test whose log goes to a file, and returns the
// lines the dying process wrote. Fatal paths print a backtrace to stderr.
template <typename Statement>
std::string logOfDyingProcess(Statement statement,
                              const char *stderrPattern = "Backtrace of thread") {
  // Named after the test, not the process: the child computes it again.
  const std::string path = testing::TempDir() + "zbtest-" +
                           testing::UnitTest::GetInstance()->current_test_info()->name() +
                           ".log";
  std::remove(path.c_str());
  EXPECT_DEATH(
      {
        ZBLogSetFile(path.c_str());
        statement();
      },
      stderrPattern);
  const std::string lines = readFile(path);
  std::remove(path.c_str());
  return lines;
}

} // namespace zbtest
