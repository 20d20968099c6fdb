// The log rules. They come from "ZBLOG_LEVEL" (one level for every site),
// "ZBLOG_CONFIG_FILE" (a file of rules, one a line) or "ZBLOG_CONFIG"
// (rules joined by ":"). A rule is pattern=levels; its pattern is a list of
// "/"-separated components matched in order against a site's file path
// components and function name, with "*" wildcards and line lists.
#include "ZBLogConfiguration.h"

#include "ZBAlloc.h"
#include "ZBEnvironment.h"
#include "ZBLog.h"
#include "ZBPlatform.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

namespace zb::log {
namespace {

constexpr int32_t kEntriesPerGrowth = 8;
// A configuration file line holds at most this many characters.
constexpr int kMaxFileLine = 265;

struct LevelWord {
  const char *word;
  uint32_t level; // 0: a flag word
  uint32_t flag;
};

// Tried in this order; a later match overrides an earlier one.
constexpr LevelWord kLevelWords[] = {
    {"Backtrace", 0, ZBLogSiteFlagBacktrace},
    {"Trace", 0, ZBLogSiteFlagTrace},
    {"Fatal", ZBLogLevelFatal, 0},
    {"Error", ZBLogLevelError, 0},
    {"Warning", ZBLogLevelWarning, 0},
    {"Info", ZBLogLevelInfo, 0},
    {"Debug", ZBLogLevelDebug, 0},
    {"Verbose", ZBLogLevelVerbose, 0},
};

// Path components that say where a file lives, not what it is about.
constexpr const char *kSkippedComponents[] = {"Sources", "Headers", "PrivateHeaders"};

bool isLetter(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0; }

// Copies the text before "=" as the pattern, splitting it at every "/".
void storePattern(ZBLogPatternEntry &entry, const char *text, size_t length) {
  const size_t limit = sizeof entry.pattern - 2;
  if (length > limit)
    length = limit;
  std::memset(entry.pattern, 0, sizeof entry.pattern);
  for (size_t i = 0; i < length; ++i)
    entry.pattern[i] = text[i] == '/' ? '\0' : text[i];
}

void addRule(ZBLogConfiguration &configuration, const char *text) {
  const char *equals = std::strchr(text, '=');
  if (equals == nullptr) {
    std::fprintf(stderr, "Invalid pattern line: %s", text);
    return;
  }
  if (configuration.count % kEntriesPerGrowth == 0) {
    void *grown = _ZBRealloc(configuration.entries, (size_t(configuration.count) + kEntriesPerGrowth) *
                                                        sizeof(ZBLogPatternEntry));
    if (grown == nullptr)
      return;
    configuration.entries = static_cast<ZBLogPatternEntry *>(grown);
  }
  ZBLogPatternEntry &entry = configuration.entries[configuration.count];
  entry.flags = 0;
  entry.level = parseLevelList(equals + 1, &entry.flags);
  storePattern(entry, text, static_cast<size_t>(equals - text));
  ++configuration.count;
}

bool loadFromFile(ZBLogConfiguration &configuration, const char *path) {
  std::FILE *file = zb::platform::openStream(path, "r");
  if (file == nullptr) {
    std::fprintf(stderr, "Couldn't open %s\n", path);
    return false;
  }
  char line[kMaxFileLine + 1];
  while (std::fgets(line, sizeof line, file) != nullptr)
    addRule(configuration, line);
  std::fclose(file);
  return true;
}

// "pattern=levels:pattern=levels...": each rule runs from the current place;
// the next starts after the first ":" that follows the rule's "=".
void loadFromList(ZBLogConfiguration &configuration, const char *text) {
  while (*text != '\0') {
    addRule(configuration, text);
    const char *equals = std::strchr(text, '=');
    const char *colon = equals ? std::strchr(equals, ':') : nullptr;
    if (colon == nullptr || colon[1] == '\0')
      return;
    text = colon + 1;
  }
}

void useCatchAll(ZBLogConfiguration &configuration, uint32_t level, uint32_t flags) {
  ZBLogPatternEntry &entry = configuration.inlineEntry;
  storePattern(entry, "*", 1);
  entry.level = level;
  entry.flags = flags;
  configuration.entries = &entry;
  configuration.count = 1;
}

// Whether `line` lies in a list such as "100-200,300".
bool lineInList(const char *list, uint32_t line) {
  const char *cursor = list;
  while (std::isdigit(static_cast<unsigned char>(*cursor))) {
    char *end = nullptr;
    const unsigned long first = std::strtoul(cursor, &end, 10);
    unsigned long last = first;
    if (*end == '-' && std::isdigit(static_cast<unsigned char>(end[1])))
      last = std::strtoul(end + 1, &end, 10);
    if (line >= first && line <= last)
      return true;
    if (*end != ',')
      return false;
    cursor = end + 1;
  }
  return false;
}

bool componentMatches(const char *pattern, const char *component, size_t componentLength) {
  const size_t patternLength = std::strlen(pattern);
  if (patternLength > 0 && pattern[patternLength - 1] == '*')
    return componentLength >= patternLength - 1 &&
           std::memcmp(pattern, component, patternLength - 1) == 0;
  return patternLength == componentLength && std::memcmp(pattern, component, componentLength) == 0;
}

bool isSkippedComponent(const char *component, size_t length) {
  for (const char *skipped : kSkippedComponents)
    if (std::strlen(skipped) == length && std::memcmp(skipped, component, length) == 0)
      return true;
  return false;
}

// Walks a site's components: its file path's (empty and location components
// skipped), then its function name.
class SiteComponents {
public:
  SiteComponents(const char *file, const char *function)
      : mCursor(file ? file : ""), mFunction(function ? function : "") {
    advance();
  }

  bool atEnd() const { return mText == nullptr; }
  const char *text() const { return mText; }
  size_t length() const { return mLength; }

  void advance() {
    while (mCursor != nullptr && *mCursor != '\0') {
      const char *slash = std::strchr(mCursor, '/');
      const size_t length = slash ? size_t(slash - mCursor) : std::strlen(mCursor);
      const char *component = mCursor;
      mCursor = slash ? slash + 1 : nullptr;
      if (length > 0 && !isSkippedComponent(component, length)) {
        mText = component;
        mLength = length;
        return;
      }
    }
    if (!mFunctionDone) {
      mFunctionDone = true;
      mText = mFunction;
      mLength = std::strlen(mFunction);
      return;
    }
    mText = nullptr;
  }

private:
  const char *mCursor;
  const char *mFunction;
  const char *mText = nullptr;
  size_t mLength = 0;
  bool mFunctionDone = false;
};

bool entryMatches(const ZBLogPatternEntry &entry, const char *file, const char *function,
                  uint32_t line) {
  SiteComponents site(file, function);
  const char *pattern = entry.pattern;
  const char *end = entry.pattern + sizeof entry.pattern;
  while (pattern < end && *pattern != '\0') {
    if (std::strcmp(pattern, "*") == 0)
      return true;
    if (std::isdigit(static_cast<unsigned char>(*pattern))) {
      if (!lineInList(pattern, line))
        return false;
    } else {
      // Pattern components need not be adjacent in the site: a mismatch
      // skips the site component and keeps the pattern component.
      while (!site.atEnd() && !componentMatches(pattern, site.text(), site.length()))
        site.advance();
      if (site.atEnd())
        return false;
      site.advance();
    }
    pattern += std::strlen(pattern) + 1;
  }
  return true;
}

int32_t levelOrDefault(uint32_t level) {
  return level == 0 ? ZBLogLevelInfo : static_cast<int32_t>(level);
}

} // namespace

uint32_t parseLevelList(const char *text, uint32_t *flags) noexcept {
  uint32_t level = 0;
  uint32_t found = 0;
  const char *cursor = text;
  for (;;) {
    const char *word = cursor;
    while (isLetter(*cursor))
      ++cursor;
    const size_t length = static_cast<size_t>(cursor - word);
    if (length == 0) {
      level = 0;
    } else {
      for (const LevelWord &candidate : kLevelWords) {
        if (std::strlen(candidate.word) < length || strncasecmp(word, candidate.word, length) != 0)
          continue;
        if (candidate.flag != 0)
          found |= candidate.flag;
        else
          level = candidate.level;
      }
    }
    if (*cursor != ',')
      break;
    ++cursor;
  }
  *flags |= found;
  if (level == 0 && found != 0)
    level = ZBLogLevelVerbose;
  return level;
}

ZBLogConfigurationSources readConfigurationSources(const ZBLogConfiguration &configuration) noexcept {
  return {ZBEnvironmentGetEnv(configuration.levelVariable),
          ZBEnvironmentGetEnv(configuration.configFileVariable),
          ZBEnvironmentGetEnv(configuration.configVariable)};
}

void loadConfiguration(ZBLogConfiguration &configuration) noexcept {
  loadConfiguration(configuration, readConfigurationSources(configuration));
}

void loadConfiguration(ZBLogConfiguration &configuration,
                       const ZBLogConfigurationSources &sources) noexcept {
  if (const char *levels = sources.levels) {
    uint32_t flags = 0;
    const uint32_t level = parseLevelList(levels, &flags);
    useCatchAll(configuration, level, flags);
    return;
  }
  if (const char *path = sources.configFile) {
    if (loadFromFile(configuration, path))
      return;
  }
  if (const char *list = sources.config) {
    loadFromList(configuration, list);
    return;
  }
  useCatchAll(configuration, static_cast<uint32_t>(configuration.defaultLevel), 0);
}

void clearConfiguration(ZBLogConfiguration &configuration) noexcept {
  if (configuration.entries != &configuration.inlineEntry)
    _ZBFree(configuration.entries);
  configuration.entries = nullptr;
  configuration.count = 0;
}

bool isLoaded(const ZBLogConfiguration &configuration) noexcept {
  return configuration.entries != nullptr;
}

int32_t matchSite(const ZBLogConfiguration &configuration, const char *file,
                  const char *function, uint32_t line, uint32_t *flags) noexcept {
  *flags = 0;
  // Flags given in "ZBLOG_LEVEL" do not reach sites.
  if (configuration.entries == &configuration.inlineEntry)
    return levelOrDefault(configuration.inlineEntry.level);
  for (int32_t i = 0; i < configuration.count; ++i) {
    const ZBLogPatternEntry &entry = configuration.entries[i];
    if (entryMatches(entry, file, function, line)) {
      *flags = entry.flags;
      return levelOrDefault(entry.level);
    }
  }
  return ZBLogLevelInfo;
}

} // namespace zb::log
