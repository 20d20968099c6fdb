// Zones from the system's own rules and the mapping of system zones to tz
// names: transitions computed from the yearly rules, the current zone's name
// (with the built offset name and its rate-limited warning for a zone the
// table does not know), the index cache file's refusals and rewrites, stale
// indexes, zones missing from the system, and zone files at paths outside
// ASCII. Failures Wine cannot produce
// are injected through the system-call table.
#include "ZBTestSupport.h"

#include "ZBSystemCallInjection.h"
#include "ZBTZFile.h"
#include "ZBTimeZoneSystem.h"
#include "Zenbor.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

namespace {

struct ZoneCloser {
  void operator()(ZBTZFile *zone) const { ZBTimeZoneClose(zone); }
};
using Zone = std::unique_ptr<ZBTZFile, ZoneCloser>;

// The log ring is bounded, and these tests fill it: a line written as a mark
// tells where the lines of one step begin.
std::string markLog() {
  static int count;
  const std::string mark = "zone-test-mark-" + std::to_string(++count);
  ZB_LOG_ERROR("%s", mark.c_str());
  return mark;
}
std::string logSince(const std::string &mark) {
  const std::string ring = zbtest::logRing();
  const size_t at = ring.rfind(mark);
  return at == std::string::npos ? ring : ring.substr(at);
}

// The current zone as a test wants the system to report it.
struct FakeCurrent {
  static inline const wchar_t *key;
  static inline LONG bias, standardBias, daylightBias;
  static inline DWORD state;
  static DWORD WINAPI call(PDYNAMIC_TIME_ZONE_INFORMATION zone) {
    std::memset(zone, 0, sizeof *zone);
    wcscpy(zone->TimeZoneKeyName, key);
    zone->Bias = bias;
    zone->StandardBias = standardBias;
    zone->DaylightBias = daylightBias;
    return state;
  }
};

TEST(ZBTimeZoneSystem, ZonesFromTheYearlyRules) {
  struct Case {
    const char *name;
    int64_t at;     // an instant to look up
    int32_t offset; // expected offset then
    const char *abbreviation;
    int64_t switchInto; // a switch to daylight time around `at`; 0: none
    int64_t switchBack;
  };
  const Case cases[] = {
      // Last Sunday of March 02:00 standard time, last of October 03:00 daylight time.
      {"Europe/Paris", 1719835200, 7200, "CEST", 1711846800, 1729990800},
      // South of the equator: April back at 03:00, October into at 02:00.
      {"Australia/Sydney", 1704067200, 39600, "EST", 1728144000, 1712419200},
      {"America/New_York", 1704067200, -18000, "EST", 1710054000, 1730613600},
      {"Asia/Tokyo", 1704067200, 32400, "JST", 0, 0},
  };
  for (const Case &c : cases) {
    Zone zone(ZBTimeZoneCreateWithZoneName(c.name, ZBTZNameKnownZones));
    ASSERT_NE(zone, nullptr) << c.name;
    EXPECT_STREQ(ZBTimeZoneGetName(zone.get()), c.name);
    ZBTZTransitionInfo info;
    ASSERT_TRUE(ZBTimeZoneFindTransitionTime(zone.get(), c.at, &info)) << c.name;
    EXPECT_EQ(info.offset, c.offset) << c.name;
    EXPECT_STREQ(info.abbreviation, c.abbreviation) << c.name;
    const uint32_t count = ZBTimeZoneGetTrationsitionTimeCount(zone.get());
    if (c.switchInto == 0) {
      EXPECT_EQ(count, 1u) << c.name;
      continue;
    }
    // The years from 74 back that the 32-bit data holds: two switches each
    // from 1952 (or later) to 2037.
    EXPECT_GE(count, 2u * (2038 - 1952) - 2) << c.name;
    EXPECT_LE(count, 300u) << c.name;
    for (int64_t instant : {c.switchInto, c.switchBack}) {
      ASSERT_TRUE(ZBTimeZoneFindTransitionTime(zone.get(), instant, &info)) << c.name;
      EXPECT_EQ(info.time, instant) << c.name;
      EXPECT_EQ((info.flags & ZBTZFlagDaylight) != 0, instant == c.switchInto) << c.name;
    }
  }
}

TEST(ZBTimeZoneSystem, CurrentZoneNamesAndTheOffsetNameWarning) {
  struct Case {
    const wchar_t *key;
    LONG bias, standardBias, daylightBias;
    DWORD state;
    const char *name;
  };
  const Case cases[] = {
      {L"Tokyo Standard Time", -540, 0, 0, TIME_ZONE_ID_UNKNOWN, "Asia/Tokyo"},
      {L"Argentina Standard Time", 180, 0, 0, TIME_ZONE_ID_UNKNOWN,
       "America/Argentina/Buenos_Aires"},
      {L"Mars Standard Time", -330, 0, 0, TIME_ZONE_ID_UNKNOWN, "GMT+0530"},
      {L"Mars Standard Time", 480, 0, -60, TIME_ZONE_ID_DAYLIGHT, "GMT-0700"},
      {L"Mars Standard Time", 0, 0, -60, TIME_ZONE_ID_STANDARD, "GMT-0000"},
  };
  zb::test::ScopedSystemCall fake(zb::gSystemCalls.GetDynamicTimeZoneInformation,
                                  &FakeCurrent::call);
  for (const Case &c : cases) {
    FakeCurrent::key = c.key;
    FakeCurrent::bias = c.bias;
    FakeCurrent::standardBias = c.standardBias;
    FakeCurrent::daylightBias = c.daylightBias;
    FakeCurrent::state = c.state;
    char *name = ZBTimeZoneCopyCurrentName();
    EXPECT_STREQ(name, c.name);
    _ZBFree(name);
    // The local zone exists only for a name of the table.
    Zone local(ZBTimeZoneCreateLocal());
    EXPECT_EQ(local != nullptr, std::strncmp(c.name, "GMT", 3) != 0) << c.name;
    if (local != nullptr) {
      EXPECT_STREQ(ZBTimeZoneGetName(local.get()), c.name);
    }
  }
  // The warning for an unknown zone appears on its 1st, 2nd, 4th, 8th, ...
  // occurrence: the three above were the 1st to 3rd (two lines), twelve
  // more reach the 15th, adding the 4th and 8th.
  const std::string mark = markLog();
  for (int call = 0; call < 12; ++call)
    _ZBFree(ZBTimeZoneCopyCurrentName());
  EXPECT_EQ(zbtest::occurrences(logSince(mark), "Zone 'Mars Standard Time' not found in database. "
                                                "Returning GMT offset name 'GMT-0000' instead"),
            2u);

  zb::test::ScopedSystemCall failing(zb::gSystemCalls.GetDynamicTimeZoneInformation,
                                     [](PDYNAMIC_TIME_ZONE_INFORMATION) -> DWORD {
                                       SetLastError(ERROR_ACCESS_DENIED);
                                       return TIME_ZONE_ID_INVALID;
                                     });
  const std::string before = markLog();
  char *name = ZBTimeZoneCopyCurrentName();
  EXPECT_STREQ(name, "GMT");
  _ZBFree(name);
  EXPECT_EQ(ZBTimeZoneCreateLocal(), nullptr);
  EXPECT_NE(logSince(before).find("Failed to get current system time zone settings, err: 5"),
            std::string::npos);
}

std::string cachePath() {
  char *directory = ZBEnvironmentCopyQuovexPrivateCachesDirectory();
  const std::string path = directory ? std::string(directory) + "quovex_tz_cache" : "";
  _ZBFree(directory);
  return path;
}

std::string readCache(const std::string &path) {
  ZBFileDescriptor fd = 0;
  std::string bytes(2000, '\0');
  uint32_t read = 0;
  if (ZBFileDescriptorOpen(path.c_str(), ZBFileDescriptorOpenReadOnly, 0, &fd) != 0)
    return "";
  ZBFileDescriptorRead(fd, bytes.data(), 2000, &read);
  ZBFileDescriptorClose(fd);
  bytes.resize(read);
  return bytes;
}

void writeCache(const std::string &path, const std::string &bytes) {
  ZBFileDescriptor fd = 0;
  ASSERT_EQ(ZBFileDescriptorOpen(path.c_str(),
                                 ZBFileDescriptorOpenWriteOnly | ZBFileDescriptorOpenCreate |
                                     ZBFileDescriptorOpenTruncate,
                                 0644, &fd),
            0);
  uint32_t written = 0;
  EXPECT_EQ(ZBFileDescriptorWrite(fd, bytes.data(), static_cast<uint32_t>(bytes.size()), &written),
            0);
  ZBFileDescriptorClose(fd);
}

TEST(ZBTimeZoneSystem, CacheFileRefusedAndRewritten) {
  const std::string path = cachePath();
  if (path.empty())
    GTEST_SKIP() << "no private caches directory in this environment";
  _tz_win32_fill_tzindexes(true);
  const std::string good = readCache(path);
  ASSERT_EQ(good.size(), 1100u);
  EXPECT_EQ(good.compare(0, 16, std::string("TZINDEXES_CACHE\0", 16)), 0);
  EXPECT_EQ(good.compare(16, 4, std::string("\1\0\0\0", 4)), 0);

  std::string wrongMagic = good, version2 = good;
  wrongMagic[0] = 'X';
  version2[16] = 2;
  struct Case {
    std::string bytes;
    const char *message;
  };
  const Case cases[] = {
      {good.substr(0, 1099), "tzindexes cache not correct size"},
      {good + "x", "tzindexes cache not correct size"},
      {wrongMagic, "tzindexes cache has wrong magic number"},
      {version2, "tzindexes cache out of date (version 2)"},
  };
  for (const Case &c : cases) {
    writeCache(path, c.bytes);
    _tz_win32_reset_tzindexes();
    const std::string mark = markLog();
    EXPECT_EQ(_tz_win32_system_index(0).index, static_cast<uint8_t>(good[20])) << c.message;
    EXPECT_NE(logSince(mark).find(c.message), std::string::npos) << c.message;
    EXPECT_EQ(readCache(path), good) << c.message; // recomputed and rewritten
  }

  // A cache that loads but holds a stale index: the creation that finds it
  // out recomputes the table and the file.
  std::string stale = good;
  const int32_t tokyo = tz_known_zone_find("Asia/Tokyo", nullptr);
  ASSERT_GE(tokyo, 0);
  const int32_t real = _tz_win32_system_index(tokyo).index;
  ASSERT_GE(real, 1);
  stale[20 + 8 * tokyo] = static_cast<char>(real - 1);
  writeCache(path, stale);
  _tz_win32_reset_tzindexes();
  EXPECT_EQ(_tz_win32_system_index(tokyo).index, real - 1); // loaded as it stands
  const std::string mark = markLog();
  Zone zone(_tz_win32_create_tz_zone(tokyo, 0));
  ASSERT_NE(zone, nullptr);
  EXPECT_STREQ(ZBTimeZoneGetName(zone.get()), "Asia/Tokyo");
  const std::string lines = logSince(mark);
  EXPECT_NE(lines.find("Cached time zone index no longer correct."), std::string::npos);
  EXPECT_NE(lines.find("System time zone index is incorrect. Recomputing all indexes."),
            std::string::npos);
  EXPECT_EQ(_tz_win32_system_index(tokyo).index, real);
  EXPECT_EQ(readCache(path), good);
}

TEST(ZBTimeZoneSystem, ZonesMissingFromTheSystem) {
  static std::string reported;
  ZBCRSetTriggerBugReportCallback(
      [](void *context) { reported = static_cast<const char *>(context); });
  {
    // A system that knows three zones only.
    zb::test::ScopedSystemCall few(zb::gSystemCalls.EnumDynamicTimeZoneInformation,
                                   [](DWORD index, PDYNAMIC_TIME_ZONE_INFORMATION zone) -> DWORD {
                                     static const wchar_t *const kNames[] = {
                                         L"Tokyo Standard Time", L"Mars Standard Time", L"UTC"};
                                     if (index >= 3)
                                       return ERROR_NO_MORE_ITEMS;
                                     std::memset(zone, 0, sizeof *zone);
                                     wcscpy(zone->TimeZoneKeyName, kNames[index]);
                                     return ERROR_SUCCESS;
                                   });
    const std::string mark = markLog();
    _tz_win32_fill_tzindexes(true);
    const std::string lines = logSince(mark);
    EXPECT_NE(lines.find("Time zone 'Afghanistan Standard Time' not present on system"),
              std::string::npos);
    EXPECT_NE(lines.find("Some time zones not found on system. Zones found on system: [ "
                         "'Tokyo Standard Time', 'Mars Standard Time', 'UTC' ]"),
              std::string::npos);
    EXPECT_EQ(reported, "System missing expected time zones");
    EXPECT_EQ(_tz_win32_system_index(0).index, -1);
    EXPECT_EQ(_tz_win32_system_index(tz_known_zone_find("UTC", nullptr)).index, 2);
    // A zone neither enumerated nor current is refused.
    zb::test::ScopedSystemCall current(zb::gSystemCalls.GetDynamicTimeZoneInformation,
                                       &FakeCurrent::call);
    FakeCurrent::key = L"Tokyo Standard Time";
    const std::string before = markLog();
    EXPECT_EQ(_tz_win32_create_tz_zone(0, 0), nullptr);
    EXPECT_NE(logSince(before).find("Time zone 'Asia/Kabul' is not current nor present in "
                                    "registry. Aborting creation."),
              std::string::npos);
    // ... and one that is the current zone is built from it.
    FakeCurrent::key = L"Afghanistan Standard Time";
    FakeCurrent::bias = -270;
    Zone kabul(_tz_win32_create_tz_zone(0, 0));
    ASSERT_NE(kabul, nullptr);
    ZBTZTransitionInfo info;
    ASSERT_TRUE(ZBTimeZoneFindTransitionTime(kabul.get(), 0, &info));
    EXPECT_EQ(info.offset, 16200);
  }
  ZBCRSetTriggerBugReportCallback(nullptr);
  _tz_win32_fill_tzindexes(true);
  EXPECT_GE(_tz_win32_system_index(0).index, 0);
}

TEST(ZBTimeZoneSystem, ZoneFilesAtNonASCIIPathsOpenAndAreWritten) {
  // The files are made and removed through the file functions, which take
  // UTF-8 names to the system as UTF-16, so a zone function that went
  // through the ANSI code page would miss them.
  const std::string paris = zbtest::readFile("Z:/usr/share/zoneinfo/Europe/Paris");
  ASSERT_GT(paris.size(), 44u);
  const std::string greek = zbtest::temporaryPath("\xCE\x96\xCF\x8E\xCE\xBD\xCE\xB7");
  ASSERT_EQ(ZBFileCreateFromBytes(paris.data(), paris.size(), greek.c_str(), 0644), 0);
  for (const std::string &path : {greek, "/" + greek}) { // "/C:/..." as a URL gives it
    Zone zone(ZBTimeZoneCreateFromFile(path.c_str()));
    ASSERT_NE(zone, nullptr) << path;
    ASSERT_EQ(ZBTimeZoneGetDataLength(zone.get()), paris.size());
    EXPECT_EQ(std::memcmp(ZBTimeZoneGetData(zone.get()), paris.data(), paris.size()), 0);
  }
  Zone zone(ZBTimeZoneCreateFromFile(greek.c_str()));
  const std::string chinese = zbtest::temporaryPath("\xE6\x97\xB6\xE5\x8C\xBA");
  ASSERT_TRUE(tz_file_write_path(zone.get(), chinese.c_str()));
  EXPECT_EQ(ZBFileRemove(chinese.c_str()), 0);
  EXPECT_EQ(ZBFileRemove(greek.c_str()), 0);
}

TEST(ZBTimeZoneSystem, EnumerationStopsAtTwoHundredZones) {
  static int calls;
  calls = 0;
  {
    zb::test::ScopedSystemCall endless(
        zb::gSystemCalls.EnumDynamicTimeZoneInformation,
        [](DWORD index, PDYNAMIC_TIME_ZONE_INFORMATION zone) -> DWORD {
          ++calls;
          std::memset(zone, 0, sizeof *zone);
          swprintf(zone->TimeZoneKeyName, 128, L"Zone %lu", index);
          return ERROR_SUCCESS;
        });
    const std::string mark = markLog();
    _tz_win32_fill_tzindexes(true);
    EXPECT_NE(logSince(mark).find("System has more time zones than expected"), std::string::npos);
    EXPECT_EQ(calls, 200);
  }
  _tz_win32_fill_tzindexes(true);
}

TEST(ZBTimeZoneSystem, YearlyRulesThatFailFallBackToTheBaseRules) {
  zb::test::ScopedSystemCall years(
      zb::gSystemCalls.GetDynamicTimeZoneInformationEffectiveYears,
      [](const PDYNAMIC_TIME_ZONE_INFORMATION, LPDWORD first, LPDWORD last) -> DWORD {
        *first = 2000;
        *last = 2010;
        return ERROR_SUCCESS;
      });
  zb::test::ScopedSystemCall perYear(
      zb::gSystemCalls.GetTimeZoneInformationForYear,
      [](USHORT, PDYNAMIC_TIME_ZONE_INFORMATION, LPTIME_ZONE_INFORMATION) -> BOOL {
        SetLastError(ERROR_INVALID_PARAMETER);
        return FALSE;
      });
  const std::string mark = markLog();
  // A zone no other test builds, so that the transition cache is cold.
  Zone zone(ZBTimeZoneCreateWithZoneName("America/Santiago", ZBTZNameKnownZones));
  ASSERT_NE(zone, nullptr);
  const std::string lines = logSince(mark);
  // The first year walked and the eleven of the effective range.
  EXPECT_EQ(zbtest::occurrences(lines, "Using current year's transitions."), 12u);
  EXPECT_NE(lines.find("Failed to get zone info for year 2000."), std::string::npos);
}

} // namespace
