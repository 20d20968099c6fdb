// The tracer's configuration from the environment, read at load and again
// whenever a "ZB_TRACE_" variable is set:
//   ZB_TRACE_LEVEL        the log's level-list grammar: the level at or
//                         below which log lines become trace events
//   ZB_TRACE_CONFIG       rules separated by ";": file=<path> or
//                         host=<name>:<port>; a value runs to the next ";"
//   ZB_TRACE_CONFIG_FILE  a file of such rules, one per line
// The first valid target starts a session when none records. Invalid rules
// are logged at Warning and skipped.
#include "ZBEnvironment.h"
#include "ZBLog.h"
#include "ZBLogConfiguration.h"
#include "ZBPlatform.h"
#include "ZBTrace.h"
#include "ZBTracePrivate.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace zb::trace {
std::atomic<int32_t> gLogLevel{ZBLogLevelWarning};
} // namespace zb::trace

namespace {

struct Target {
  bool isHost;
  std::string location; // a path, or the host's name
  uint16_t port;
};

std::string variable(const char *name) {
  const char *value = ZBEnvironmentGetEnv(name);
  return value ? value : "";
}

// "name:port" with a port of 1 to 65535; the name may be a bracketed IPv6.
bool parseHost(const std::string &value, Target *out) {
  const size_t colon = value.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == value.size() ||
      value.size() - colon > 6)
    return false;
  char *end = nullptr;
  const unsigned long port = std::strtoul(value.c_str() + colon + 1, &end, 10);
  if (*end != '\0' || port == 0 || port > 65535)
    return false;
  std::string name = value.substr(0, colon);
  if (name.size() > 2 && name.front() == '[' && name.back() == ']')
    name = name.substr(1, name.size() - 2);
  *out = {true, name, static_cast<uint16_t>(port)};
  return true;
}

// One rule; an empty one is skipped without a word.
void parseRule(const std::string &rule, std::vector<Target> &targets) {
  if (rule.find_first_not_of(" \t") == std::string::npos)
    return;
  const size_t equals = rule.find('=');
  const size_t keyStart = rule.find_first_not_of(" \t");
  const std::string key =
      equals == std::string::npos ? "" : rule.substr(keyStart, equals - keyStart);
  const std::string value = equals == std::string::npos ? "" : rule.substr(equals + 1);
  Target target{};
  if (key == "file" && !value.empty())
    targets.push_back({false, value, 0});
  else if (key == "host" && parseHost(value, &target))
    targets.push_back(target);
  else
    ZB_LOG_WARNING("Invalid trace rule ignored: `%s`", rule.c_str());
}

void parseRules(const std::string &text, char separator, std::vector<Target> &targets) {
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find(separator, start);
    if (end == std::string::npos)
      end = text.size();
    std::string rule = text.substr(start, end - start);
    if (separator == '\n' && !rule.empty() && rule.back() == '\r')
      rule.pop_back();
    parseRule(rule, targets);
    start = end + 1;
  }
}

std::string readRulesFile(const std::string &path) {
  std::string text;
  std::FILE *file = zb::platform::openStream(path.c_str(), "rb");
  if (file == nullptr) {
    ZB_LOG_WARNING("Could not read the trace rules file `%s`", path.c_str());
    return text;
  }
  char block[4096];
  for (size_t count; (count = std::fread(block, 1, sizeof block, file)) != 0;)
    text.append(block, count);
  std::fclose(file);
  return text;
}

void start(const Target &target) {
  const ZBError error = target.isHost ? ZBTraceStartHost(target.location.c_str(), target.port)
                                      : ZBTraceStart(target.location.c_str());
  if (error != ZBErrorNone && error != ZBErrorAlready)
    ZB_LOG_WARNING("Could not start tracing to `%s`: %d", target.location.c_str(), int(error));
}

} // namespace

namespace zb::trace {

void readConfiguration() noexcept {
  try {
    const std::string levels = variable("ZB_TRACE_LEVEL");
    uint32_t flags = 0;
    const uint32_t level = levels.empty() ? 0 : zb::log::parseLevelList(levels.c_str(), &flags);
    gLogLevel.store(level != 0 ? int32_t(level) : int32_t(ZBLogLevelWarning));

    std::vector<Target> targets;
    const std::string rulesFile = variable("ZB_TRACE_CONFIG_FILE");
    if (!rulesFile.empty())
      parseRules(readRulesFile(rulesFile), '\n', targets);
    parseRules(variable("ZB_TRACE_CONFIG"), ';', targets);
    if (!targets.empty() && !recording())
      start(targets.front());
  } catch (...) {
    // Out of memory: the configuration stays as it was.
  }
}

} // namespace zb::trace
