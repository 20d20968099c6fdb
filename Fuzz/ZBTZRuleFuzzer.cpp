// Fuzzes the POSIX TZ rule parser with arbitrary text (NUL-terminated in a
// buffer of its exact size). A string that parses must give offsets and
// switch times inside the rule grammar's limits, and a zone whose every
// entry has one of the rule's two offsets and names.
#include "ZBTZFile.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>

namespace {

void check(bool condition) {
  if (!condition)
    std::abort();
}

constexpr int32_t kLimit = 167 * 3600 + 59 * 60 + 60;

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::unique_ptr<char[]> text(new char[size + 1]);
  std::memcpy(text.get(), data, size);
  text[size] = '\0';
  TZRule rule;
  if (!tz_rule_parse(text.get(), &rule))
    return 0;
  check(rule.standardOffset >= -kLimit && rule.standardOffset <= kLimit);
  check(std::strlen(rule.standardName) >= 3 && std::strlen(rule.standardName) <= 31);
  if (rule.hasDaylight) {
    check(rule.daylightOffset >= -kLimit && rule.daylightOffset <= kLimit + 3600);
    for (const TZRuleDate *date : {&rule.start, &rule.end})
      check(date->seconds >= -kLimit && date->seconds <= kLimit);
  }
  ZBTZFile *zone = tz_file_create_posix(text.get(), "fuzz");
  check(zone != nullptr);
  check(tz_file_transition_count(zone) == (rule.hasDaylight ? 136u : 1u));
  ZBTZTransitionInfo info;
  for (uint32_t index = 0; tz_file_transition_info(zone, index, &info); ++index) {
    const bool daylight = (info.flags & ZBTZFlagDaylight) != 0;
    check(info.offset == (daylight ? rule.daylightOffset : rule.standardOffset));
    check(std::strcmp(info.abbreviation, daylight ? rule.daylightName : rule.standardName) == 0);
  }
  tz_file_close(zone);
  return 0;
}
