// Small helpers shared by the test programs.
#pragma once

#include <string>

namespace zbtest {

// The third-party reference data beside the repository, or "" when absent.
std::string oraclePath(const std::string &relative);
// The whole file, or "" when it cannot be read.
std::string readFile(const std::string &path);
// A file name unique to this process under the system's temporary folder.
std::string temporaryPath(const std::string &name);

} // namespace zbtest
