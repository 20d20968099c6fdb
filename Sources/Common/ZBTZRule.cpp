// POSIX TZ rule strings: "std offset [dst [offset] [,start[/time],end[/time]]]".
// Parsing stops at the first thing that is not part of a rule and never reads
// past the terminating NUL; the switch instants are computed year by year
// from 1970 with 365- and 366-day years and 86400-second days, as the tz
// database's reference code computes them, so the answers agree with the C
// libraries that follow it.
#include "ZBTZFile.h"

#include <cstring>

namespace {

constexpr int32_t kSecondsPerDay = 86400;
constexpr int32_t kMaxHours = 167; // one week less one hour
constexpr int32_t kDefaultSwitchTime = 7200;
constexpr int32_t kMonthDays[2][12] = {{31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31},
                                       {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31}};

bool isLeap(int32_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isAlpha(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }

// Reads a decimal number of at most `maximum`; null when there is none or it
// is larger. Digits are consumed one at a time, so long runs cannot overflow.
const char *number(const char *at, int32_t minimum, int32_t maximum, int32_t *value) {
  if (!isDigit(*at))
    return nullptr;
  int32_t result = 0;
  for (; isDigit(*at); ++at) {
    result = result * 10 + (*at - '0');
    if (result > maximum)
      return nullptr;
  }
  if (result < minimum)
    return nullptr;
  *value = result;
  return at;
}

// [+|-]hh[:mm[:ss]] into signed seconds, the sign as written.
const char *signedSeconds(const char *at, int32_t *seconds) {
  int32_t sign = 1;
  if (*at == '-' || *at == '+')
    sign = *at++ == '-' ? -1 : 1;
  int32_t hours = 0, minutes = 0, extra = 0;
  if ((at = number(at, 0, kMaxHours, &hours)) == nullptr)
    return nullptr;
  if (*at == ':' && (at = number(at + 1, 0, 59, &minutes)) != nullptr && *at == ':')
    at = number(at + 1, 0, 60, &extra);
  if (at == nullptr)
    return nullptr;
  *seconds = sign * (hours * 3600 + minutes * 60 + extra);
  return at;
}

// An alphabetic run, or a "<...>" name that may also hold digits and signs;
// three to 31 characters.
const char *zoneName(const char *at, char (&name)[32]) {
  const bool quoted = *at == '<';
  const char *begin = quoted ? at + 1 : at;
  const char *end = begin;
  while (isAlpha(*end) || (quoted && (isDigit(*end) || *end == '+' || *end == '-')))
    ++end;
  const size_t length = static_cast<size_t>(end - begin);
  if (length < 3 || length >= sizeof name || (quoted && *end != '>'))
    return nullptr;
  std::memcpy(name, begin, length);
  name[length] = '\0';
  return quoted ? end + 1 : end;
}

// Jn, n or Mm.w.d with an optional /time.
const char *ruleDate(const char *at, TZRuleDate *date) {
  *date = TZRuleDate{};
  if (*at == 'J') {
    date->kind = TZRuleDate::Julian;
    at = number(at + 1, 1, 365, &date->day);
  } else if (*at == 'M') {
    date->kind = TZRuleDate::MonthWeekDay;
    at = number(at + 1, 1, 12, &date->month);
    at = at != nullptr && *at == '.' ? number(at + 1, 1, 5, &date->week) : nullptr;
    at = at != nullptr && *at == '.' ? number(at + 1, 0, 6, &date->day) : nullptr;
  } else {
    date->kind = TZRuleDate::ZeroBased;
    at = number(at, 0, 365, &date->day);
  }
  date->seconds = kDefaultSwitchTime;
  if (at != nullptr && *at == '/')
    at = signedSeconds(at + 1, &date->seconds);
  return at;
}

// Days from 1970-01-01 to January 1st of `year`.
int64_t daysToYear(int32_t year) {
  int64_t days = 0;
  for (int32_t y = 1970; y < year; ++y)
    days += isLeap(y) ? 366 : 365;
  for (int32_t y = year; y < 1970; ++y)
    days -= isLeap(y) ? 366 : 365;
  return days;
}

// Seconds from the start of the year, local time, to the switch.
int64_t secondsIntoYear(const TZRuleDate &date, int32_t year) {
  const int leap = isLeap(year) ? 1 : 0;
  int64_t day = 0;
  switch (date.kind) {
  case TZRuleDate::Julian: // February 29 is never counted
    day = date.day - 1 + (leap && date.day >= 60 ? 1 : 0);
    break;
  case TZRuleDate::ZeroBased: day = date.day; break;
  case TZRuleDate::MonthWeekDay: {
    // Zeller's congruence for the weekday of the month's first day.
    const int32_t m1 = (date.month + 9) % 12 + 1;
    const int32_t yy0 = date.month <= 2 ? year - 1 : year;
    const int32_t yy1 = yy0 / 100, yy2 = yy0 % 100;
    int32_t weekday = ((26 * m1 - 2) / 10 + 1 + yy2 + yy2 / 4 + yy1 / 4 - 2 * yy1) % 7;
    if (weekday < 0)
      weekday += 7;
    int32_t d = date.day - weekday;
    if (d < 0)
      d += 7;
    for (int32_t week = 1; week < date.week; ++week) {
      if (d + 7 >= kMonthDays[leap][date.month - 1])
        break;
      d += 7;
    }
    day = d;
    for (int32_t month = 0; month < date.month - 1; ++month)
      day += kMonthDays[leap][month];
    break;
  }
  }
  return day * kSecondsPerDay + date.seconds;
}

} // namespace

bool tz_rule_parse(const char *text, TZRule *rule) noexcept {
  if (text == nullptr || rule == nullptr)
    return false;
  TZRule parsed{};
  int32_t offset = 0;
  const char *at = zoneName(text, parsed.standardName);
  if (at == nullptr || (at = signedSeconds(at, &offset)) == nullptr)
    return false;
  // Rule offsets count west of UT; the record keeps them east.
  parsed.standardOffset = -offset;
  if (*at != '\0') {
    if ((at = zoneName(at, parsed.daylightName)) == nullptr)
      return false;
    parsed.hasDaylight = true;
    parsed.daylightOffset = parsed.standardOffset + 3600;
    if (*at != '\0' && *at != ',') {
      if ((at = signedSeconds(at, &offset)) == nullptr)
        return false;
      parsed.daylightOffset = -offset;
    }
    if (*at == '\0')
      at = ",M3.2.0,M11.1.0"; // the default: second Sunday of March to first of November
    if (*at != ',' || (at = ruleDate(at + 1, &parsed.start)) == nullptr || *at != ',' ||
        (at = ruleDate(at + 1, &parsed.end)) == nullptr)
      return false;
  }
  if (*at != '\0')
    return false;
  *rule = parsed;
  return true;
}

int64_t tz_rule_transition_time(const TZRule &rule, int32_t year, bool start) noexcept {
  // A switch happens on the wall clock of the time it leaves.
  const int64_t local =
      daysToYear(year) * kSecondsPerDay + secondsIntoYear(start ? rule.start : rule.end, year);
  return local - (start ? rule.standardOffset : rule.daylightOffset);
}

uint32_t tz_rule_transitions(const TZRule &rule, int32_t firstYear, int32_t lastYear,
                             ZBTZTransition *out, uint32_t capacity) noexcept {
  const ZBTZTransition standard{0, 0, rule.standardOffset, rule.standardName};
  const ZBTZTransition daylight{ZBTZFlagDaylight, 0, rule.daylightOffset, rule.daylightName};
  if (!rule.hasDaylight) {
    if (capacity == 0)
      return 0;
    out[0] = standard;
    out[0].time = kTZForever;
    return 1;
  }
  uint32_t count = 0;
  for (int32_t year = firstYear; year <= lastYear && count + 2 <= capacity; ++year) {
    ZBTZTransition into = daylight, back = standard;
    into.time = tz_rule_transition_time(rule, year, true);
    back.time = tz_rule_transition_time(rule, year, false);
    // South of the equator the year begins in daylight time.
    const bool southern = back.time < into.time;
    out[count++] = southern ? back : into;
    out[count++] = southern ? into : back;
  }
  return count;
}

ZBTZFile *tz_file_create_posix(const char *text, const char *name) noexcept {
  TZRule rule;
  if (!tz_rule_parse(text, &rule))
    return nullptr;
  // 68 years of two switches: the years the 32-bit block can hold.
  ZBTZTransition transitions[2 * 68];
  const uint32_t count = tz_rule_transitions(rule, 1970, 2037, transitions, 2 * 68);
  return tz_file_create_memory(transitions, count, nullptr, 0, name);
}
