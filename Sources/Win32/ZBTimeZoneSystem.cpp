// Zones built from the system's own rules. A known-zone row is found in the
// system's enumeration through the system index table; its yearly rules, 74
// years back and 75 forward, become a transition list that the zone builder
// turns into TZif bytes. Built lists are kept per system zone, so a zone
// asked for again costs one copy of the list into a new image.
#include "ZBTimeZoneSystem.h"

#include "ZBAlloc.h"
#include "ZBLog.h"
#include "ZBScopedLock.h"
#include "ZBString.h"
#include "ZBSystemCalls.h"
#include "ZBTimePrivate.h"
#include "qprintf.h"

#include <algorithm>
#include <atomic>
#include <cstring>
#include <ctime>
#include <iterator>
#include <pthread.h>

namespace {

constexpr int32_t kYearsBack = 74;
constexpr int32_t kYearsForward = 75;
constexpr uint32_t kMaxEntries = 300;
constexpr int32_t kCacheSlots = kTZKnownZoneCount;

// The transition cache: built lists per system zone, with the image built
// from each, which new zones copy, and the zone key the list was built for
// (a slot serves only a row that expects that key, so an index that went
// stale never hands out another zone's transitions).
struct CacheSlot {
  uint32_t count;
  ZBTZTransition entries[kMaxEntries];
  ZBTZFile *image;
  const char *key;
};
pthread_mutex_t sCacheLock = PTHREAD_MUTEX_INITIALIZER;
CacheSlot sSlots[kCacheSlots];
int32_t sSlotOfSystemIndex[kTZMaxSystemZones];
int32_t sSlotsUsed;
bool sCacheReady;

// Seconds since 1970 of a local wall-clock date, as the system converts it.
int64_t localSeconds(const SYSTEMTIME &local) {
  FILETIME file;
  if (!SystemTimeToFileTime(&local, &file))
    return 0;
  const uint64_t ticks = uint64_t{file.dwHighDateTime} << 32 | file.dwLowDateTime;
  // Rule dates are whole seconds, so the floored conversion is exact.
  return zb::time::unixNanosecondsFromFileTime(static_cast<int64_t>(ticks)) /
         zb::time::kNanosecondsPerSecond;
}

bool isLeap(int32_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// The local instant of a yearly rule: the wDay-th (5: the last) wDayOfWeek of
// wMonth, at the rule's time of day. A rule with a year is an absolute date.
int64_t ruleInstant(const SYSTEMTIME &rule, int32_t year) {
  static const int32_t kMonthDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  SYSTEMTIME local{};
  local.wYear = static_cast<WORD>(year);
  local.wMonth = rule.wMonth;
  local.wHour = rule.wHour;
  local.wMinute = rule.wMinute;
  local.wSecond = rule.wSecond;
  if (rule.wYear != 0) {
    local.wDay = rule.wDay;
    return localSeconds(local);
  }
  local.wDay = 1;
  // Weekday of the month's first day: days since 1970-01-01, a Thursday.
  const int64_t first = localSeconds(SYSTEMTIME{local.wYear, local.wMonth, 0, 1, 0, 0, 0, 0});
  const int32_t firstWeekday = static_cast<int32_t>(((first / 86400) % 7 + 7 + 4) % 7);
  const int32_t monthDays = kMonthDays[(rule.wMonth - 1) % 12] + (rule.wMonth == 2 && isLeap(year));
  int32_t day =
      1 + (rule.wDayOfWeek - firstWeekday + 7) % 7 + 7 * (std::max<int32_t>(rule.wDay, 1) - 1);
  while (day > monthDays)
    day -= 7;
  local.wDay = static_cast<WORD>(day);
  return localSeconds(local);
}

// The transitions of one system zone for the years around the current one.
uint32_t buildTransitions(DYNAMIC_TIME_ZONE_INFORMATION &zone, const TZKnownZone &row,
                          ZBTZTransition *out) {
  DWORD firstYear = 0, lastYear = 0;
  // Without per-year rules (some systems fail this call) the base rules serve.
  const bool perYear = zb::gSystemCalls.GetDynamicTimeZoneInformationEffectiveYears(
                           &zone, &firstYear, &lastYear) == ERROR_SUCCESS;
  SYSTEMTIME now;
  GetSystemTime(&now);
  const char *daylightName =
      *row.daylightAbbreviation != '\0' ? row.daylightAbbreviation : row.standardAbbreviation;
  TIME_ZONE_INFORMATION rules{};
  auto useBaseRules = [&] {
    rules.Bias = zone.Bias;
    rules.StandardBias = zone.StandardBias;
    rules.DaylightBias = zone.DaylightBias;
    rules.StandardDate = zone.StandardDate;
    rules.DaylightDate = zone.DaylightDate;
  };
  useBaseRules();
  uint32_t count = 0;
  bool anyDaylight = false;
  for (int32_t year = now.wYear - kYearsBack; year <= now.wYear + kYearsForward; ++year) {
    const bool walkedFirst = year == now.wYear - kYearsBack;
    if (perYear && (walkedFirst || (static_cast<DWORD>(year) >= firstYear &&
                                    static_cast<DWORD>(year) <= lastYear))) {
      if (!zb::gSystemCalls.GetTimeZoneInformationForYear(static_cast<USHORT>(year), &zone,
                                                          &rules)) {
        ZB_LOG_ERROR("Failed to get zone info for year %hu. Using current year's transitions.",
                     static_cast<unsigned short>(year));
        useBaseRules();
      }
    }
    if (rules.DaylightDate.wMonth == 0 || rules.StandardDate.wMonth == 0 || count + 2 > kMaxEntries)
      continue;
    anyDaylight = true;
    const int32_t standardBias = rules.Bias + rules.StandardBias;
    const int32_t daylightBias = rules.Bias + rules.DaylightBias;
    // Wall-clock instants become UTC with the bias in force before the switch.
    const ZBTZTransition into{ZBTZFlagDaylight,
                              ruleInstant(rules.DaylightDate, year) + standardBias * 60,
                              -daylightBias * 60, daylightName};
    const ZBTZTransition back{0, ruleInstant(rules.StandardDate, year) + daylightBias * 60,
                              -standardBias * 60, row.standardAbbreviation};
    out[count++] = into;
    out[count++] = back;
  }
  if (!anyDaylight)
    out[count++] = {0, kTZForever, -(rules.Bias + rules.StandardBias) * 60,
                    row.standardAbbreviation};
  std::sort(out, out + count,
            [](const ZBTZTransition &a, const ZBTZTransition &b) { return a.time < b.time; });
  return count;
}

void prepareCacheLocked() {
  if (!sCacheReady) {
    std::fill(std::begin(sSlotOfSystemIndex), std::end(sSlotOfSystemIndex), -1);
    sCacheReady = true;
  }
}

// A zone from the cached image of `systemIndex` built for `key`, or null.
ZBTZFile *cachedZone(int32_t systemIndex, const char *key, const char *name) {
  zb::ScopedLock<pthread_mutex_t> hold(&sCacheLock);
  prepareCacheLocked();
  if (key == nullptr || systemIndex < 0 || systemIndex >= kTZMaxSystemZones ||
      sSlotOfSystemIndex[systemIndex] < 0)
    return nullptr;
  const CacheSlot &slot = sSlots[sSlotOfSystemIndex[systemIndex]];
  return std::strcmp(slot.key, key) == 0 ? tz_file_copy(slot.image, name) : nullptr;
}

// _tz_win32_fill_xtimes: the zone from the cached list of `systemIndex`,
// building and caching the list first when there is none (or one built for
// another key). A negative index (the current zone, found by name only) is
// never cached.
ZBTZFile *zoneFromSystem(DYNAMIC_TIME_ZONE_INFORMATION &zone, int32_t systemIndex, int32_t row,
                         const char *key, const char *name) {
  zb::ScopedLock<pthread_mutex_t> hold(&sCacheLock);
  prepareCacheLocked();
  const bool cacheable = systemIndex >= 0 && systemIndex < kTZMaxSystemZones;
  int32_t slotIndex = cacheable ? sSlotOfSystemIndex[systemIndex] : -1;
  if (slotIndex >= 0 && std::strcmp(sSlots[slotIndex].key, key) == 0)
    return tz_file_copy(sSlots[slotIndex].image, name);
  if (cacheable && slotIndex < 0 && sSlotsUsed < kCacheSlots)
    slotIndex = sSlotOfSystemIndex[systemIndex] = sSlotsUsed++;
  if (slotIndex >= 0) {
    CacheSlot &slot = sSlots[slotIndex];
    tz_file_close(slot.image);
    slot.count = buildTransitions(zone, kTZKnownZones[row], slot.entries);
    slot.image = tz_file_create_memory(slot.entries, slot.count, nullptr, 0, nullptr);
    slot.key = key;
    return slot.image ? tz_file_copy(slot.image, name) : nullptr;
  }
  if (cacheable)
    ZB_LOG_WARNING("Not enough room for entry in cache; not using cache.");
  auto *entries =
      static_cast<ZBTZTransition *>(_ZBAllocWithCount(kMaxEntries, sizeof(ZBTZTransition)));
  if (entries == nullptr)
    return nullptr;
  const uint32_t count = buildTransitions(zone, kTZKnownZones[row], entries);
  ZBTZFile *file = tz_file_create_memory(entries, count, nullptr, 0, name);
  _ZBFree(entries);
  return file;
}

// The current system zone; false (logged) when the system cannot say.
bool currentZone(DYNAMIC_TIME_ZONE_INFORMATION *zone, DWORD *state) {
  *state = zb::gSystemCalls.GetDynamicTimeZoneInformation(zone);
  if (*state == TIME_ZONE_ID_INVALID) {
    ZB_LOG_ERROR("Failed to get current system time zone settings, err: %d",
                 static_cast<int>(GetLastError()));
    return false;
  }
  return true;
}

const ZBWChar *wide(const DYNAMIC_TIME_ZONE_INFORMATION &zone) {
  return reinterpret_cast<const ZBWChar *>(zone.TimeZoneKeyName);
}

// Step 3 of creation: a row whose zone is not in the enumeration may still
// be the current zone.
ZBTZFile *createFromCurrent(int32_t row, const char *name) {
  ZB_LOG_WARNING("Trying to get info for time zone that isn't present in registry (%s)", name);
  DYNAMIC_TIME_ZONE_INFORMATION zone;
  DWORD state;
  if (!currentZone(&zone, &state))
    return nullptr;
  char key[128];
  if (!_tz_win32_key_name(zone, key, sizeof key)) {
    ZB_LOG_ERROR("Current system time zone key '%ls' is longer than expected, err: %d", wide(zone),
                 static_cast<int>(GetLastError()));
    return nullptr;
  }
  if (_tz_win32_row_lists_key(row, key, nullptr))
    return zoneFromSystem(zone, -1, row, nullptr, name);
  ZB_LOG_ERROR("Time zone '%s' is not current nor present in registry. Aborting creation.", name);
  return nullptr;
}

// A row's Windows name by its candidate number, or null out of range.
const char *windowsName(int32_t row, int32_t candidate) {
  return candidate >= 0 && candidate < kTZMaxWindowsNames
             ? kTZKnownZones[row].windowsNames[candidate]
             : nullptr;
}

// The rate of the unknown-zone warning: its 1st, 2nd, 4th, 8th, ... time.
std::atomic<uint32_t> sUnknownZoneCount;
std::atomic<uint32_t> sUnknownZoneThreshold{1};

} // namespace

ZBTZFile *_tz_win32_create_tz_zone(int32_t row, int32_t nameIndex) noexcept {
  if (row < 0 || row >= kTZKnownZoneCount || nameIndex < 0 || nameIndex >= kTZMaxZoneNames ||
      kTZKnownZones[row].zoneNames[nameIndex] == nullptr)
    return nullptr;
  const char *name = kTZKnownZones[row].zoneNames[nameIndex];
  TZSystemIndex entry = _tz_win32_system_index(row);
  // A zone already built in this process was checked against the system
  // when it was built; the system's enumeration does not change under a
  // running process, so the cached zone serves without asking again.
  if (ZBTZFile *cached = cachedZone(entry.index, windowsName(row, entry.candidate), name))
    return cached;
  // Each pass either builds, fails, or follows an index that a forced
  // recomputation changed; an unchanged index ends the loop.
  while (entry.index >= 0) {
    DYNAMIC_TIME_ZONE_INFORMATION zone;
    char key[kTZSystemNameBytes];
    if (zb::gSystemCalls.EnumDynamicTimeZoneInformation(static_cast<DWORD>(entry.index), &zone) !=
        ERROR_SUCCESS) {
      ZB_LOG_ERROR("Failed to get system time zone at index %zu", static_cast<size_t>(entry.index));
      key[0] = '\0';
    } else if (!_tz_win32_key_name(zone, key, sizeof key)) {
      ZB_LOG_ERROR("Failed to convert key '%ls' to multi-byte string", wide(zone));
      return nullptr;
    }
    const char *expected = windowsName(row, entry.candidate);
    if (expected != nullptr && std::strcmp(key, expected) == 0)
      return zoneFromSystem(zone, entry.index, row, expected, name);
    ZB_LOG_WARNING("Cached time zone index no longer correct.");
    ZB_LOG_WARNING("System time zone index is incorrect. Recomputing all indexes.");
    _tz_win32_fill_tzindexes(true);
    const TZSystemIndex recomputed = _tz_win32_system_index(row);
    if (recomputed.index == entry.index) {
      ZB_LOG_ERROR("Incorrect system index did not change after recomputation. Aborting "
                   "creation to avoid infinite recursion");
      return nullptr;
    }
    entry = recomputed;
  }
  return createFromCurrent(row, name);
}

ZBTZFile *tz_platform_create_known_zone(int32_t row, int32_t nameIndex) noexcept {
  return _tz_win32_create_tz_zone(row, nameIndex);
}

bool tz_get_current(char *buffer, size_t size) noexcept {
  if (buffer == nullptr || size == 0)
    return false;
  static std::atomic<bool> sTouched;
  if (!sTouched.load(std::memory_order_acquire)) {
    // The C runtime's local-time conversion reads the zone once; a failure
    // there means the system's zone is unusable.
    const time_t now = time(nullptr);
    struct tm local;
    if (localtime_s(&local, &now) != 0)
      return false;
    sTouched.store(true, std::memory_order_release);
  }
  DYNAMIC_TIME_ZONE_INFORMATION zone;
  DWORD state;
  if (!currentZone(&zone, &state))
    return false;
  char key[128];
  if (!_tz_win32_key_name(zone, key, sizeof key)) {
    ZB_LOG_ERROR("Failed to copy time zone key name '%ls'", wide(zone));
    return false;
  }
  for (int32_t row = 0; row < kTZKnownZoneCount; ++row)
    if (_tz_win32_row_lists_key(row, key, nullptr)) {
      qsnprintf(buffer, static_cast<int>(size), "%s", kTZKnownZones[row].zoneNames[0]);
      return true;
    }
  int32_t bias = zone.Bias;
  if (state == TIME_ZONE_ID_STANDARD)
    bias += zone.StandardBias;
  else if (state == TIME_ZONE_ID_DAYLIGHT)
    bias += zone.DaylightBias;
  const int32_t magnitude = bias < 0 ? -bias : bias;
  qsnprintf(buffer, static_cast<int>(size), bias < 0 ? "GMT+%02d%02d" : "GMT-%02d%02d",
            magnitude / 60, magnitude % 60);
  const uint32_t occurrence = ++sUnknownZoneCount;
  uint32_t threshold = sUnknownZoneThreshold.load();
  if (occurrence >= threshold &&
      sUnknownZoneThreshold.compare_exchange_strong(threshold, threshold * 2))
    ZB_LOG_WARNING("Zone '%s' not found in database. Returning GMT offset name '%s' instead", key,
                   buffer);
  return true;
}
