// The log rules: how they are read from the environment, parsed, and
// matched against a site. ZBLog.cpp owns the one configuration and its lock;
// the functions here take the configuration they work on.
#pragma once

#include <cstdint>

struct ZBLogPatternEntry {
  // The rule's text before "=", each "/" replaced by a zero byte and ended by
  // two zero bytes: a list of components ended by an empty one.
  char pattern[260];
  uint32_t level;
  uint32_t flags; // ZBLogSiteFlagBacktrace, ZBLogSiteFlagTrace
};

struct ZBLogConfiguration {
  const char *levelVariable;      // "ZBLOG_LEVEL"
  const char *configVariable;     // "ZBLOG_CONFIG"
  const char *configFileVariable; // "ZBLOG_CONFIG_FILE"
  int32_t count;
  ZBLogPatternEntry *entries; // null: not loaded; &inlineEntry: one catch-all rule
  ZBLogPatternEntry inlineEntry;
  int32_t defaultLevel;
};

namespace zb::log {

// A comma-separated list of level words (any case, any abbreviation) to a
// level, with the Backtrace and Trace flags added to `flags`.
uint32_t parseLevelList(const char *text, uint32_t *flags) noexcept;

// The configuration variables' values at one moment; null when unset.
struct ZBLogConfigurationSources {
  const char *levels;
  const char *configFile;
  const char *config;
};
// Reads the variables. The log calls this before it takes its lock: code
// that holds the environment's lock logs, so the environment's lock must
// never be taken under the log's.
ZBLogConfigurationSources readConfigurationSources(const ZBLogConfiguration &configuration) noexcept;
// Builds the rules of an empty configuration from the values read.
void loadConfiguration(ZBLogConfiguration &configuration,
                       const ZBLogConfigurationSources &sources) noexcept;
// Both steps at once, for callers that hold no lock.
void loadConfiguration(ZBLogConfiguration &configuration) noexcept;
// Frees the rules; the configuration is then not loaded.
void clearConfiguration(ZBLogConfiguration &configuration) noexcept;
bool isLoaded(const ZBLogConfiguration &configuration) noexcept;

// The level and flags the first matching rule gives a site.
int32_t matchSite(const ZBLogConfiguration &configuration, const char *file,
                  const char *function, uint32_t line, uint32_t *flags) noexcept;

} // namespace zb::log
