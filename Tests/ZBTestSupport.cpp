#include "ZBTestSupport.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#ifdef _WIN32
#include <process.h>
#define zb_getpid _getpid
#else
#include <unistd.h>
#define zb_getpid getpid
#endif

namespace zbtest {

std::string oraclePath(const std::string &relative) {
  const std::string path = std::string(ZB_ORACLES_DIR) + "/" + relative;
  std::ifstream probe(path);
  return probe.good() ? path : std::string();
}

std::string readFile(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream contents;
  contents << file.rdbuf();
  return contents.str();
}

std::string temporaryPath(const std::string &name) {
#ifdef _WIN32
  const char *directory = std::getenv("TEMP");
#else
  const char *directory = std::getenv("TMPDIR");
#endif
  std::string base = directory ? directory : "/tmp";
  return base + "/zbtest-" + std::to_string(zb_getpid()) + "-" + name;
}

} // namespace zbtest
