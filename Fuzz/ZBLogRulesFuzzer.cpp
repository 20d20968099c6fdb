// Fuzzes the log rules as they arrive from the environment: a level list
// ("ZBLOG_LEVEL") and a rule list ("ZBLOG_CONFIG") of arbitrary text, then
// sites matched against the rules loaded. The input is the rule text, a
// zero byte, and the site's file path. Beyond "no crash, no leak" it checks
// what the log relies on: levels within the level range, only the known
// flags, each rule's pattern ended by two zero bytes inside its entry, the
// same answer for the same site, and nothing loaded after a clear.
#include "ZBLog.h"
#include "ZBLogConfiguration.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void check(bool condition) {
  if (!condition)
    std::abort();
}

constexpr uint32_t kKnownFlags = ZBLogSiteFlagBacktrace | ZBLogSiteFlagTrace;

void checkLevel(int64_t level) { check(level >= 0 && level <= ZBLogLevelVerbose); }

// Every rule's components end with an empty one inside the pattern.
void checkEntries(const ZBLogConfiguration &configuration) {
  for (int32_t index = 0; index < configuration.count; ++index) {
    const ZBLogPatternEntry &entry = configuration.entries[index];
    bool terminated = false;
    for (size_t at = 0; at + 1 < sizeof entry.pattern && !terminated; ++at)
      terminated = entry.pattern[at] == '\0' && entry.pattern[at + 1] == '\0';
    check(terminated);
    checkLevel(entry.level);
    check((entry.flags & ~kKnownFlags) == 0);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string input(reinterpret_cast<const char *>(data), size);
  const size_t split = input.find('\0');
  const std::string rules = input.substr(0, split);
  const std::string file =
      split == std::string::npos ? "Sources/Common/x.cpp" : input.substr(split + 1);

  uint32_t flags = 0;
  checkLevel(zb::log::parseLevelList(rules.c_str(), &flags));
  check((flags & ~kKnownFlags) == 0);

  for (bool asLevels : {false, true}) {
    ZBLogConfiguration configuration{
        "ZBLOG_LEVEL", "ZBLOG_CONFIG", "ZBLOG_CONFIG_FILE", 0, nullptr, {}, ZBLogLevelInfo};
    const zb::log::ZBLogConfigurationSources sources{asLevels ? rules.c_str() : nullptr, nullptr,
                                                     asLevels ? nullptr : rules.c_str()};
    zb::log::loadConfiguration(configuration, sources);
    checkEntries(configuration);
    uint32_t firstFlags = 0, secondFlags = 0;
    const int32_t level =
        zb::log::matchSite(configuration, file.c_str(), "function", 7, &firstFlags);
    checkLevel(level);
    check((firstFlags & ~kKnownFlags) == 0);
    check(zb::log::matchSite(configuration, file.c_str(), "function", 7, &secondFlags) == level &&
          secondFlags == firstFlags);
    zb::log::clearConfiguration(configuration);
    check(!zb::log::isLoaded(configuration));
  }
  return 0;
}
