// The zone core and the platform-neutral ZBTimeZone functions: opening TZif
// images (and refusing bad ones with their messages), queries at the edges,
// malformed images that must not be read outside, the builder and writer,
// POSIX rule strings, the name database, offset names, and agreement with
// outside readers over the system's tz database: Python's zoneinfo for every
// zone file, and (natively) the C library for rule strings.
#include "ZBTestSupport.h"

#include "ZBTZFile.h"
#include "Zenbor.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

// Paths of the running system: the Linux tree is the "Z:" drive under Wine.
std::string hostPath(const std::string &path) {
#ifdef _WIN32
  return "Z:" + path;
#else
  return path;
#endif
}
std::string zoneInfo(const std::string &zone) { return hostPath("/usr/share/zoneinfo/" + zone); }

// A TZif image from its parts, counts as given (so they can lie).
struct Image {
  uint32_t counts[6] = {}; // UT, standard, leap, transitions, types, characters
  std::vector<uint8_t> body;
  uint8_t versionByte = 0;

  std::vector<uint8_t> bytes() const {
    std::vector<uint8_t> out = {'T', 'Z', 'i', 'f', '2', versionByte};
    out.resize(20);
    for (uint32_t count : counts)
      for (int shift = 24; shift >= 0; shift -= 8)
        out.push_back(static_cast<uint8_t>(count >> shift));
    out.insert(out.end(), body.begin(), body.end());
    return out;
  }
};
void put32(std::vector<uint8_t> &out, int64_t value) {
  for (int shift = 24; shift >= 0; shift -= 8)
    out.push_back(static_cast<uint8_t>(static_cast<uint32_t>(value) >> shift));
}

// Two transitions (at 1000 and 2000) over two types and "AAA\0BBB\0".
Image twoTransitions() {
  Image image;
  const uint32_t counts[6] = {2, 2, 0, 2, 2, 8};
  std::copy(std::begin(counts), std::end(counts), image.counts);
  put32(image.body, 1000);
  put32(image.body, 2000);
  image.body.insert(image.body.end(), {1, 0});
  put32(image.body, 3600);
  image.body.insert(image.body.end(), {0, 0});
  put32(image.body, 7200);
  image.body.insert(image.body.end(), {1, 4});
  for (char c : std::string("AAA\0BBB\0", 8))
    image.body.push_back(static_cast<uint8_t>(c));
  image.body.insert(image.body.end(), {0, 1, 1, 0});
  return image;
}

struct ZoneCloser {
  void operator()(ZBTZFile *zone) const { tz_file_close(zone); }
};
using Zone = std::unique_ptr<ZBTZFile, ZoneCloser>;

std::string logSince(size_t mark) { return zbtest::logRing().substr(mark); }

TEST(ZBTimeZone, OpeningRefusesBadImagesWithTheirMessages) {
  struct Case {
    std::vector<uint8_t> bytes;
    const char *message; // null: accepted
    uint32_t version;
  };
  auto withVersion = [](uint8_t byte) {
    Image image = twoTransitions();
    image.versionByte = byte;
    return image.bytes();
  };
  std::vector<uint8_t> badMagic = twoTransitions().bytes();
  badMagic[3] = 'F';
  const Case cases[] = {
      {std::vector<uint8_t>(43, 0), "Encountered tz file 'z' with bad size (43 < 44)", 0},
      {badMagic, "Encountered tz file 'z' with bad magic", 0},
      {withVersion('1'), "Encountered tz file 'z' with bad version 49", 0},
      {withVersion(0xFF), "Encountered tz file 'z' with bad version -1", 0},
      {withVersion(1), "Encountered tz file 'z' with bad version 1", 0},
      {withVersion(0), nullptr, 0},
      {withVersion(2), nullptr, 0},
      {withVersion('0'), nullptr, 0},
      {withVersion('2'), nullptr, 2},
      {withVersion('3'), nullptr, 3},
  };
  for (const Case &c : cases) {
    const size_t mark = zbtest::logRing().size();
    Zone zone(tz_file_open_memory("z", c.bytes.data(), c.bytes.size()));
    if (c.message == nullptr) {
      ASSERT_NE(zone, nullptr) << c.bytes[5];
      EXPECT_EQ(zone->version, c.version);
    } else {
      EXPECT_EQ(zone, nullptr) << c.message;
      EXPECT_NE(logSince(mark).find(c.message), std::string::npos) << c.message;
    }
  }
  EXPECT_EQ(tz_file_open_memory("z", nullptr, 100), nullptr);
  // A standard version-2 file (version at byte 4, zero at byte 5) is version 0.
  Zone paris(tz_file_open_path(zoneInfo("Europe/Paris").c_str(), "Europe/Paris"));
  ASSERT_NE(paris, nullptr);
  EXPECT_EQ(paris->data[4], '2');
  EXPECT_EQ(paris->version, 0u);
  EXPECT_EQ(paris->ownership, kTZOwnsFileData);
  EXPECT_EQ(tz_file_open_path(zoneInfo("No/Such_Zone").c_str(), nullptr), nullptr);
}

TEST(ZBTimeZone, QueriesAtTheEdges) {
  const std::vector<uint8_t> bytes = twoTransitions().bytes();
  Zone zone(ZBTimeZoneCreateWithData("Two", bytes.data(), static_cast<uint32_t>(bytes.size())));
  ASSERT_NE(zone, nullptr);
  EXPECT_STREQ(ZBTimeZoneGetName(zone.get()), "Two");
  EXPECT_EQ(ZBTimeZoneCreateWithData("Short", bytes.data(), 43), nullptr);
  struct Case {
    int64_t time;
    bool found, nextFound;
    int64_t at, nextAt;
    int32_t offset;
    uint8_t flags;
    const char *abbreviation;
  };
  const uint8_t dstStd = ZBTZFlagDaylight | ZBTZFlagStandardTime;
  const Case cases[] = {
      // Before the first transition: the first one's type, not a prior one.
      {-5000000000LL, true, true, 1000, 2000, 7200, dstStd, "BBB"},
      {999, true, true, 1000, 2000, 7200, dstStd, "BBB"},
      {1000, true, true, 1000, 2000, 7200, dstStd, "BBB"},
      {1999, true, true, 1000, 2000, 7200, dstStd, "BBB"},
      {2000, true, false, 2000, 0, 3600, ZBTZFlagUniversal, "AAA"},
      {5000000000LL, true, false, 2000, 0, 3600, ZBTZFlagUniversal, "AAA"},
  };
  for (const Case &c : cases) {
    ZBTZTransitionInfo info, next;
    ASSERT_EQ(ZBTimeZoneFindTransitionTime(zone.get(), c.time, &info), c.found) << c.time;
    EXPECT_EQ(info.time, c.at) << c.time;
    EXPECT_EQ(info.offset, c.offset) << c.time;
    EXPECT_EQ(info.flags, c.flags) << c.time;
    EXPECT_STREQ(info.abbreviation, c.abbreviation) << c.time;
    ASSERT_EQ(ZBTimeZoneFindNextTransitionTime(zone.get(), c.time, &next), c.nextFound);
    if (c.nextFound) {
      EXPECT_EQ(next.time, c.nextAt) << c.time;
    }
  }
  // Transitions at both ends of the 32-bit range, asked about instants on
  // and beyond them: 64-bit instants must not wrap into the range.
  const ZBTZTransition ends[] = {
      {0, INT32_MIN, 0, "AAA"}, {0, 0, 3600, "BBB"}, {0, INT32_MAX, 7200, "CCC"}};
  const ZBTZZoneDescription description{"Ends", 0, nullptr, 3, ends};
  Zone endsZone(ZBTimeZoneCreateWithZone(&description));
  const std::pair<int64_t, int64_t> inForce[] = {
      {INT64_MIN, INT32_MIN},
      {int64_t{INT32_MIN} - 1, INT32_MIN},
      {INT32_MIN, INT32_MIN},
      {-1, INT32_MIN},
      {0, 0},
      {INT32_MAX - 1, 0},
      {INT32_MAX, INT32_MAX},
      {int64_t{INT32_MAX} + 1, INT32_MAX},
      {INT64_MAX, INT32_MAX},
  };
  ZBTZTransitionInfo info;
  for (const auto &[time, at] : inForce) {
    ASSERT_TRUE(ZBTimeZoneFindTransitionTime(endsZone.get(), time, &info)) << time;
    EXPECT_EQ(info.time, at) << time;
  }
  EXPECT_FALSE(ZBTimeZoneFindTransitionTime(nullptr, 0, &info));
  EXPECT_FALSE(ZBTimeZoneFindTransitionTime(zone.get(), 0, nullptr));
  EXPECT_EQ(ZBTimeZoneDump(zone.get()), 2u);
  EXPECT_EQ(ZBTimeZoneGetTypeCount(zone.get()), 2u);
  EXPECT_EQ(ZBTimeZoneGetTrationsitionTimeCount(zone.get()), 2u);
  EXPECT_EQ(ZBTimeZoneGetData(zone.get()), bytes.data()); // not copied
  EXPECT_EQ(ZBTimeZoneGetDataLength(zone.get()), bytes.size());
}

TEST(ZBTimeZone, MalformedImagesAnswerOnlyFromInsideTheirData) {
  // Each image is copied to a buffer of its exact size, so the sanitizers of
  // the native build see any read past it.
  auto check = [](const std::vector<uint8_t> &bytes, bool expectFound, const char *what) {
    std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
    std::memcpy(exact.get(), bytes.data(), bytes.size());
    Zone zone(tz_file_open_memory("m", exact.get(), bytes.size()));
    ASSERT_NE(zone, nullptr) << what;
    ZBTZTransitionInfo info;
    bool found = false;
    for (int64_t time : {INT64_MIN, int64_t{0}, int64_t{1500}, int64_t{INT32_MAX}, INT64_MAX}) {
      found |= ZBTimeZoneFindTransitionTime(zone.get(), time, &info);
      ZBTimeZoneFindNextTransitionTime(zone.get(), time, &info);
    }
    for (uint32_t index : {0u, 1u, 1000u, UINT32_MAX})
      tz_file_transition_info(zone.get(), index, &info);
    ZBTimeZoneDump(zone.get());
    EXPECT_EQ(found, expectFound) << what;
  };
  Image huge = twoTransitions();
  std::fill(std::begin(huge.counts), std::end(huge.counts), UINT32_MAX);
  check(huge.bytes(), false, "every count past the end");
  Image types = twoTransitions();
  types.counts[4] = 1000;
  check(types.bytes(), true, "type count past the end");
  Image noTypes = twoTransitions();
  noTypes.counts[4] = 0;
  check(noTypes.bytes(), false, "no types");
  Image badIndex = twoTransitions();
  badIndex.body[8] = 200; // type index of the first transition
  check(badIndex.bytes(), true, "type index out of range");
  Image leaps = twoTransitions();
  leaps.counts[2] = 0x20000000;
  check(leaps.bytes(), true, "leap count past the end");

  // An abbreviation ends at its NUL, at the end of the characters or of the
  // data, whichever comes first; an index past the characters gives an empty
  // one. The instant 1500 is under the type whose abbreviation is "BBB",
  // which starts at body byte 26 and is followed by its NUL at 29.
  struct AbbreviationCase {
    const char *what;
    uint32_t characterCount;
    size_t bodySize;
    uint8_t index;
    const char *expected;
  };
  const AbbreviationCase abbreviationCases[] = {
      {"whole", 8, 34, 4, "BBB"},
      {"characters end inside it", 6, 34, 4, "BB"},
      {"data ends after it, no NUL", 8, 29, 4, "BBB"},
      {"data ends inside it", 8, 28, 4, "BB"},
      {"index at the characters' end", 8, 34, 8, ""},
      {"index past the data", 8, 34, 200, ""},
  };
  ZBTZTransitionInfo info;
  for (const AbbreviationCase &c : abbreviationCases) {
    Image image = twoTransitions();
    image.counts[5] = c.characterCount;
    image.body[16 + 5] = c.index;
    image.body.resize(c.bodySize);
    const std::vector<uint8_t> bytes = image.bytes();
    std::unique_ptr<uint8_t[]> exact(new uint8_t[bytes.size()]);
    std::memcpy(exact.get(), bytes.data(), bytes.size());
    Zone zone(tz_file_open_memory(nullptr, exact.get(), bytes.size()));
    ASSERT_TRUE(ZBTimeZoneFindTransitionTime(zone.get(), 1500, &info)) << c.what;
    EXPECT_EQ(info.offset, 7200) << c.what;
    EXPECT_STREQ(info.abbreviation, c.expected) << c.what;
  }
  // No transitions and one type: that type for all time.
  Image single;
  const uint32_t counts[6] = {0, 0, 0, 0, 1, 4};
  std::copy(std::begin(counts), std::end(counts), single.counts);
  put32(single.body, -18000);
  single.body.insert(single.body.end(), {0, 0, 'E', 'S', 'T', 0});
  const std::vector<uint8_t> singleBytes = single.bytes();
  Zone fixed(tz_file_open_memory(nullptr, singleBytes.data(), singleBytes.size()));
  ASSERT_TRUE(ZBTimeZoneFindTransitionTime(fixed.get(), 12345, &info));
  EXPECT_EQ(info.offset, -18000);
  EXPECT_STREQ(info.abbreviation, "EST");
  EXPECT_FALSE(ZBTimeZoneFindNextTransitionTime(fixed.get(), 12345, &info));

  // Every prefix of a real zone file: opens or not, never reads past it.
  const std::string paris = zbtest::readFile(zoneInfo("Europe/Paris"));
  ASSERT_GT(paris.size(), 1000u);
  for (size_t length = 42; length < paris.size(); length += length < 1200 ? 1 : 97) {
    std::unique_ptr<uint8_t[]> exact(new uint8_t[length + 1]);
    std::memcpy(exact.get(), paris.data(), length);
    Zone prefix(tz_file_open_memory("p", exact.get(), length));
    EXPECT_EQ(prefix != nullptr, length >= 44) << length;
    for (int64_t time : {int64_t{0}, int64_t{1700000000}, int64_t{INT32_MAX}})
      ZBTimeZoneFindTransitionTime(prefix.get(), time, &info);
    ZBTimeZoneDump(prefix.get());
  }
}

TEST(ZBTimeZone, BuilderSharesTypesAndAbbreviationsAndRoundTrips) {
  const char *longName = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghij"; // 36 characters
  const ZBTZTransition transitions[] = {
      {0, -100, 3600, "CET"},       {ZBTZFlagDaylight, 1000, 7200, "CEST"},
      {0, 2000, 3600, "CET"},       {ZBTZFlagDaylight | ZBTZFlagStandardTime, 3000, 7200, longName},
      {0, 5000000000LL, 0, "LOST"}, // past the 32-bit range: not represented
  };
  const ZBTZLeapSecond leaps[] = {{78796800, 1}, {94694401, 2}};
  const ZBTZZoneDescription description{"Test/Zone", 2, leaps, 5, transitions};
  Zone zone(ZBTimeZoneCreateWithZone(&description));
  ASSERT_NE(zone, nullptr);
  EXPECT_STREQ(ZBTimeZoneGetName(zone.get()), "Test/Zone");
  EXPECT_EQ(zone->ownership, kTZOwnsCopiedData);
  EXPECT_EQ(ZBTimeZoneGetTrationsitionTimeCount(zone.get()), 4u);
  EXPECT_EQ(ZBTimeZoneGetTypeCount(zone.get()), 3u);
  EXPECT_EQ(ZBTimeZoneDump(zone.get()), 3u); // CET, CEST, the long one
  ZBTZTransitionInfo info;
  for (uint32_t index = 0; index < 4; ++index) {
    ASSERT_TRUE(tz_file_transition_info(zone.get(), index, &info));
    EXPECT_EQ(info.time, transitions[index].time);
    EXPECT_EQ(info.offset, transitions[index].offset);
    EXPECT_EQ(info.flags, transitions[index].flags);
    EXPECT_EQ(std::string(info.abbreviation),
              std::string(transitions[index].abbreviation).substr(0, 31));
  }
  int64_t leapTime = 0;
  int32_t correction = 0;
  ASSERT_TRUE(tz_file_leap_second(zone.get(), 1, &leapTime, &correction));
  EXPECT_EQ(leapTime, 94694401);
  EXPECT_EQ(correction, 2);
  EXPECT_FALSE(tz_file_leap_second(zone.get(), 2, &leapTime, &correction));

  const std::string path = zbtest::temporaryPath("zbtz-written");
  ASSERT_TRUE(tz_file_write_path(zone.get(), path.c_str()));
  Zone reread(ZBTimeZoneCreateFromFile(path.c_str()));
  std::remove(path.c_str());
  ASSERT_NE(reread, nullptr);
  EXPECT_EQ(ZBTimeZoneGetName(reread.get()), nullptr);
  ASSERT_EQ(reread->size, zone->size);
  EXPECT_EQ(std::memcmp(reread->data, zone->data, zone->size), 0);
  EXPECT_FALSE(tz_file_write_path(zone.get(), hostPath("/no/such/dir/zone").c_str()));
  EXPECT_EQ(ZBTimeZoneCreateWithZone(nullptr), nullptr);
  const ZBTZZoneDescription missing{nullptr, 0, nullptr, 3, nullptr};
  EXPECT_EQ(ZBTimeZoneCreateWithZone(&missing), nullptr);
}

TEST(ZBTimeZone, OffsetZonesAndNames) {
  struct Case {
    const char *name; // for ZBTimeZoneCreateWithZoneName; null: by offset
    int32_t offset;
    const char *expected; // null: no zone
  };
  const Case cases[] = {
      {nullptr, 19800, "GMT+5:30"},
      {nullptr, -3600, "GMT-1"},
      {nullptr, 0, "GMT"},
      {nullptr, -34200, "GMT-9:30"},
      {nullptr, 50400, "GMT+14"},
      {"UTC+05:30", 19800, "GMT+5:30"},
      {"GMT+0530", 19800, "GMT+5:30"},
      {"GMT-08", -28800, "GMT-8"},
      {"UTC", 0, "GMT"},
      {"GMT", 0, "GMT"},
      {"GMT+5", 0, nullptr},
      {"GMT+05:3", 0, nullptr},
      {"GMT+05x30", 0, nullptr},
      {"GMT*05", 0, nullptr},
      {"GMT+0a", 0, nullptr},
      {"UT", 0, nullptr},
      {"CET+01", 0, nullptr},
  };
  for (const Case &c : cases) {
    Zone zone(c.name ? ZBTimeZoneCreateWithZoneName(c.name, ZBTZNameOffsets)
                     : ZBTimeZoneCreateWithGMTOffset(nullptr, c.offset));
    const std::string label = c.name ? c.name : std::to_string(c.offset);
    if (c.expected == nullptr) {
      EXPECT_EQ(zone, nullptr) << label;
      continue;
    }
    ASSERT_NE(zone, nullptr) << label;
    EXPECT_STREQ(ZBTimeZoneGetName(zone.get()), c.expected) << label;
    ZBTZTransitionInfo info;
    ASSERT_TRUE(ZBTimeZoneFindTransitionTime(zone.get(), 0, &info));
    EXPECT_EQ(info.offset, c.offset) << label;
    EXPECT_EQ(info.time, kTZForever) << label;
    EXPECT_EQ(info.flags, ZBTZFlagUniversal) << label;
    EXPECT_STREQ(info.abbreviation, c.expected) << label;
  }
  const std::string longName(40, 'N');
  Zone named(ZBTimeZoneCreateWithGMTOffset(longName.c_str(), 7200));
  ZBTZTransitionInfo info;
  ASSERT_TRUE(ZBTimeZoneFindTransitionTime(named.get(), 0, &info));
  EXPECT_EQ(ZBTimeZoneGetName(named.get()), longName);
  EXPECT_EQ(std::string(info.abbreviation), longName.substr(0, 31));
}

TEST(ZBTimeZone, RuleStringsRefuseOutOfRangeParts) {
  const char *refused[] = {
      "",
      "E",
      "EST",
      "ES5",
      "EST5EDT,M13.1.0,M11.1.0",
      "EST5EDT,M0.1.0,M11.1.0",
      "EST5EDT,M3.0.0,M11.1.0",
      "EST5EDT,M3.6.0,M11.1.0",
      "EST5EDT,M3.2.7,M11.1.0",
      "EST168",
      "EST5:60",
      "EST5:00:61",
      "EST5EDT168",
      "EST5EDT,M3.2.0/168,M11.1.0",
      "EST5EDT,J0,J365",
      "EST5EDT,J1,J366",
      "EST5EDT,0,366",
      "EST5EDT,M3.2.0",
      "EST5EDT,M3.2.0,",
      "EST5EDT,M3.2.0,M11.1.0x",
      "EST5x",
      "<EST5",
      "<E>5",
      "EST5EDT,M3.2.0,M11.1.0/",
      "EST5EDT,M3..0,M11.1.0",
      "EST99999999999999999999",
      "ABCDEFGHIJKLMNOPQRSTUVWXYZABCDEF5",
  };
  TZRule rule;
  for (const char *text : refused)
    EXPECT_FALSE(tz_rule_parse(text, &rule)) << text;
  std::string absurd(100000, 'A');
  EXPECT_FALSE(tz_rule_parse(absurd.c_str(), &rule));
  absurd = "EST5EDT,M3.2.0/" + std::string(100000, '1');
  EXPECT_FALSE(tz_rule_parse(absurd.c_str(), &rule));
  EXPECT_FALSE(tz_rule_parse(nullptr, &rule));
  const size_t mark = zbtest::logRing().size();
  EXPECT_EQ(ZBTimeZoneCreateWithZoneName("EST5EDT,M13.1.0,M11.1.0", ZBTZNamePOSIXRules), nullptr);
  EXPECT_NE(logSince(mark).find("Failed to create ZBTimeZone for name 'EST5EDT,M13.1.0,M11.1.0'"),
            std::string::npos);
}

TEST(ZBTimeZone, RuleStringsInEveryForm) {
  struct Case {
    const char *rule;
    int32_t standard, daylight;
    int32_t year;
    int64_t start, end; // UTC instants of the switches; 0: no daylight time
  };
  const Case cases[] = {
      // The default rule: second Sunday of March, first Sunday of November, 02:00.
      {"EST5EDT", -18000, -14400, 2024, 1710054000, 1730613600},
      {"EST+5EDT4,M3.2.0/2,M11.1.0/2", -18000, -14400, 2024, 1710054000, 1730613600},
      {"CET-1CEST,M3.5.0,M10.5.0/3", 3600, 7200, 2024, 1711846800, 1729990800},
      {"AEST-10AEDT,M10.1.0,M4.1.0/3", 36000, 39600, 2024, 1728144000, 1712419200},
      {"<+0330>-3:30<+0430>,J79/24,J263/24", 12600, 16200, 2021, 1616272200, 1632166200},
      {"XXX3YYY,J60/0,J61/0", -10800, -7200, 2024, 1709262000,
       1709344800},                                                       // Mar 1, 2 in a leap year
      {"XXX3YYY,59/0,60/0", -10800, -7200, 2024, 1709175600, 1709258400}, // zero-based: Feb 29
      {"XXX3YYY,M3.5.0/-1,M10.5.0/26", -10800, -7200, 2023, 1679796000, 1698638400},
      {"<-03>3", -10800, 0, 0, 0, 0},
      {"JST-9", 32400, 0, 0, 0, 0},
      {"IST-5:30", 19800, 0, 0, 0, 0},
      {"XXX-1:02:03", 3723, 0, 0, 0, 0},
  };
  for (const Case &c : cases) {
    TZRule rule;
    ASSERT_TRUE(tz_rule_parse(c.rule, &rule)) << c.rule;
    EXPECT_EQ(rule.standardOffset, c.standard) << c.rule;
    EXPECT_EQ(rule.hasDaylight, c.year != 0) << c.rule;
    Zone zone(ZBTimeZoneCreateWithZoneName(c.rule, ZBTZNamePOSIXRules));
    ASSERT_NE(zone, nullptr) << c.rule;
    ZBTZTransitionInfo info;
    if (c.year == 0) {
      EXPECT_EQ(ZBTimeZoneGetTrationsitionTimeCount(zone.get()), 1u) << c.rule;
      ASSERT_TRUE(ZBTimeZoneFindTransitionTime(zone.get(), 0, &info));
      EXPECT_EQ(info.time, kTZForever);
      EXPECT_EQ(info.offset, c.standard) << c.rule;
      continue;
    }
    EXPECT_EQ(rule.daylightOffset, c.daylight) << c.rule;
    EXPECT_EQ(tz_rule_transition_time(rule, c.year, true), c.start) << c.rule;
    EXPECT_EQ(tz_rule_transition_time(rule, c.year, false), c.end) << c.rule;
    EXPECT_EQ(ZBTimeZoneGetTrationsitionTimeCount(zone.get()), 136u) << c.rule;
    ASSERT_TRUE(ZBTimeZoneFindTransitionTime(zone.get(), c.start, &info));
    EXPECT_EQ(info.offset, c.daylight) << c.rule;
    EXPECT_EQ(info.flags & ZBTZFlagDaylight, ZBTZFlagDaylight) << c.rule;
    EXPECT_STREQ(info.abbreviation, rule.daylightName);
    ASSERT_TRUE(ZBTimeZoneFindTransitionTime(zone.get(), c.end, &info));
    EXPECT_EQ(info.offset, c.standard) << c.rule;
    EXPECT_STREQ(info.abbreviation, rule.standardName);
  }
}

TEST(ZBTimeZone, NameDatabaseHashLinksAndKnownNames) {
  EXPECT_EQ(tz_database_hash("") & 31, 29u);
  EXPECT_EQ(tz_database_hash("A"), (903869u + 65u) * 257u);
  EXPECT_EQ(tz_database_hash("\xE9"), (903869u - 23u) * 257u); // bytes count as signed
  ASSERT_STREQ(kTZKnownZones[1].zoneNames[0], "America/Juneau");
  EXPECT_STREQ(kTZKnownZones[1].zoneNames[3], "SystemV/AST4ADT");
  EXPECT_STREQ(kTZKnownZones[134].zoneNames[0], "Asia/Yakutsk");
  for (int pass = 0; pass < 2; ++pass) { // the second after a reset
    EXPECT_STREQ(tz_database_resolve_link("ROK"), "Asia/Seoul");
    EXPECT_STREQ(tz_database_resolve_link("W-SU"), "Europe/Moscow");
    EXPECT_EQ(tz_database_resolve_link("Asia/Seoul"), nullptr);
    EXPECT_STREQ(tz_database_canonical_name("US/Alaska"), "America/Juneau");
    EXPECT_TRUE(tz_database_has_name("Asia/Tokyo"));
    EXPECT_FALSE(tz_database_has_name("Mars/Olympus_Mons"));
    tz_database_reset();
  }
  int32_t names = 0;
  EXPECT_EQ(ZBTimeZoneIterateKnownNames(
                [](void *context, const char *) -> int32_t {
                  ++*static_cast<int32_t *>(context);
                  return 0;
                },
                &names),
            0);
  EXPECT_GT(names, 135 + 100);
  const char *third = nullptr;
  EXPECT_EQ(ZBTimeZoneIterateKnownNames(
                [](void *context, const char *name) -> int32_t {
                  auto **seen = static_cast<const char **>(context);
                  static int count = 0;
                  *seen = name;
                  return ++count == 3 ? 7 : -1;
                },
                &third),
            7);
  EXPECT_STREQ(third, "US/Alaska");
  const char *found[3] = {};
  EXPECT_EQ(ZBTimeZoneIterateKnownAbbreviations(
                [](void *context, const char *abbreviation, const char *zone, bool daylight) {
                  auto **seen = static_cast<const char **>(context);
                  seen[0] = abbreviation;
                  seen[1] = zone;
                  seen[2] = daylight ? "d" : "s";
                  return std::strcmp(abbreviation, "AKDT") == 0 ? 1 : 0;
                },
                found),
            1);
  EXPECT_STREQ(found[1], "America/Juneau");
  EXPECT_STREQ(found[2], "d");
  EXPECT_EQ(ZBTimeZoneIterateKnownNames(nullptr, nullptr), 0);
}

TEST(ZBTimeZone, NamesByLinksAndKnownZones) {
  struct Case {
    const char *name;
    uint32_t options;
    const char *expected; // zone name; null: no zone
  };
  const Case cases[] = {
      {"Asia/Tokyo", ZBTZNameKnownZones, "Asia/Tokyo"},
      {"US/Alaska", ZBTZNameKnownZones, "US/Alaska"},
      {"Japan", ZBTZNameLinks, "Asia/Tokyo"},
      {"Japan", ZBTZNameKnownZones, nullptr},
      {"Asia/Tokyo", ZBTZNameLinks, nullptr},
      {"Asia/Tokyo", ZBTZNameLinks | ZBTZNameKnownZones, "Asia/Tokyo"},
      {"GMT+01", ZBTZNameKnownZones | ZBTZNameLinks, nullptr},
      {"Mars/Olympus_Mons", 0xF, nullptr},
  };
  for (const Case &c : cases) {
    Zone zone(ZBTimeZoneCreateWithZoneName(c.name, c.options));
    if (c.expected == nullptr) {
      EXPECT_EQ(zone, nullptr) << c.name;
      continue;
    }
    ASSERT_NE(zone, nullptr) << c.name;
    EXPECT_STREQ(ZBTimeZoneGetName(zone.get()), c.expected);
    ZBTZTransitionInfo info;
    ASSERT_TRUE(ZBTimeZoneFindTransitionTime(zone.get(), 1700000000, &info)) << c.name;
    EXPECT_NE(info.offset, 0) << c.name;
  }
  EXPECT_EQ(ZBTimeZoneCreateWithZoneName(nullptr, 0xF), nullptr);
  char *current = ZBTimeZoneCopyCurrentName();
  ASSERT_NE(current, nullptr);
  EXPECT_GT(std::strlen(current), 2u);
  _ZBFree(current);
}

// Every zone of the system's tz database, read by the library, against the
// transitions Python's zoneinfo reads from the same files for 1970-2037.
TEST(ZBTimeZone, EveryZoneAgreesWithZoneinfo) {
  std::ifstream reference(hostPath(ZB_TZ_REFERENCE_FILE));
  if (!reference)
    GTEST_SKIP() << "no reference file " ZB_TZ_REFERENCE_FILE " (python3 missing at build time)";
  std::string line, zoneName;
  Zone zone;
  uint32_t zones = 0, transitions = 0, differences = 0, index = 0;
  auto finishZone = [&] {
    if (zone == nullptr)
      return;
    ZBTZTransitionInfo info;
    // Transitions of ours in the range that the reference does not have.
    while (tz_file_transition_info(zone.get(), index, &info) && info.time < 2145916800) {
      ++differences;
      ADD_FAILURE() << zoneName << " has an extra transition at " << info.time;
      ++index;
    }
  };
  while (std::getline(reference, line)) {
    std::istringstream fields(line);
    std::string kind;
    std::getline(fields, kind, '\t');
    if (kind == "Z") {
      finishZone();
      std::getline(fields, zoneName);
      zone.reset(tz_file_open_path(zoneInfo(zoneName).c_str(), zoneName.c_str()));
      ++zones;
      index = 0;
      ZBTZTransitionInfo info;
      while (zone && tz_file_transition_info(zone.get(), index, &info) && info.time < 0)
        ++index;
      if (zone == nullptr) {
        ++differences;
        ADD_FAILURE() << zoneName << " does not open";
      }
      continue;
    }
    std::string time, offset, isdst, abbreviation;
    std::getline(fields, time, '\t');
    std::getline(fields, offset, '\t');
    std::getline(fields, isdst, '\t');
    std::getline(fields, abbreviation);
    ++transitions;
    ZBTZTransitionInfo info;
    if (zone == nullptr || !tz_file_transition_info(zone.get(), index++, &info) ||
        info.time != std::stoll(time) || info.offset != std::stol(offset) ||
        (info.flags & ZBTZFlagDaylight) != std::stoul(isdst) || abbreviation != info.abbreviation) {
      if (++differences < 20)
        ADD_FAILURE() << zoneName << " differs at " << time << " (" << offset << " " << isdst << " "
                      << abbreviation << ") from " << info.time << " (" << info.offset << " "
                      << int(info.flags) << " " << info.abbreviation << ")";
    }
  }
  finishZone();
  std::printf("zoneinfo comparison: %u zones, %u transitions, %u differences\n", zones, transitions,
              differences);
  EXPECT_GT(zones, 300u);
  EXPECT_GT(transitions, 10000u);
  EXPECT_EQ(differences, 0u);
}

#ifndef _WIN32
// The C library's own answer for a TZ rule: every change of offset or DST
// flag in 1970-2037, found by stepping an hour at a time and bisecting.
std::vector<ZBTZTransitionInfo> libcTransitions(const char *rule) {
  setenv("TZ", rule, 1);
  tzset();
  auto stateAt = [](int64_t time) {
    const time_t t = static_cast<time_t>(time);
    struct tm local;
    localtime_r(&t, &local);
    return std::make_pair(static_cast<int32_t>(local.tm_gmtoff), local.tm_isdst > 0);
  };
  // The first entry is the state at 1970-01-01.
  auto previous = stateAt(0);
  std::vector<ZBTZTransitionInfo> out(1);
  out[0].offset = previous.first;
  out[0].flags = previous.second ? ZBTZFlagDaylight : 0;
  constexpr int64_t kStep = 4 * 3600; // shorter than any gap between switches below
  for (int64_t time = kStep; time < 2145916800; time += kStep) {
    const auto state = stateAt(time);
    if (state == previous)
      continue;
    int64_t low = time - kStep, high = time; // low has the old state, high the new
    while (high - low > 1) {
      const int64_t middle = (low + high) / 2;
      (stateAt(middle) == previous ? low : high) = middle;
    }
    ZBTZTransitionInfo info{};
    info.time = high;
    info.offset = state.first;
    info.flags = state.second ? ZBTZFlagDaylight : 0;
    out.push_back(info);
    previous = state;
  }
  unsetenv("TZ");
  tzset();
  return out;
}

TEST(ZBTimeZone, RuleStringsAgreeWithTheCLibrary) {
  const char *rules[] = {
      "EST5EDT4,M3.2.0,M11.1.0",         "CST6CDT,M3.2.0,M11.1.0",
      "CET-1CEST,M3.5.0,M10.5.0/3",      "GMT0BST,M3.5.0/1,M10.5.0",
      "AEST-10AEDT,M10.1.0,M4.1.0/3",    "NZST-12NZDT,M9.5.0,M4.1.0/3",
      "<-04>4<-03>,M9.1.6/24,M4.1.6/24", "<+0330>-3:30<+0430>,J79/24,J263/24",
      "IST-2IDT,M3.4.4/26,M10.5.0",      "XXX3YYY,J60/0,J300/1:30",
      "XXX-5YYY,10,200/23:59:59",        "AAA-9:30BBB-10:15,M2.5.6/-1,M11.5.0/25",
      "<-02>2<-01>,M3.5.0/-1,M10.5.0/0",
  };
  uint32_t compared = 0, differences = 0;
  for (const char *rule : rules) {
    Zone zone(tz_file_create_posix(rule, rule));
    ASSERT_NE(zone, nullptr) << rule;
    const std::vector<ZBTZTransitionInfo> expected = libcTransitions(rule);
    // The library lists every switch; the C library shows only changes.
    std::vector<ZBTZTransitionInfo> ours(1, expected[0]);
    ZBTZTransitionInfo info;
    int32_t offset = expected[0].offset;
    uint8_t flags = expected[0].flags;
    for (uint32_t index = 0; tz_file_transition_info(zone.get(), index, &info); ++index) {
      const uint8_t dst = info.flags & ZBTZFlagDaylight;
      if (info.time > 0 && (info.offset != offset || dst != flags))
        ours.push_back(info);
      offset = info.offset;
      flags = dst;
    }
    compared += static_cast<uint32_t>(expected.size());
    EXPECT_EQ(ours.size(), expected.size()) << rule;
    for (size_t index = 0; index < ours.size() && index < expected.size(); ++index)
      if (ours[index].time != expected[index].time ||
          ours[index].offset != expected[index].offset ||
          (ours[index].flags & ZBTZFlagDaylight) != expected[index].flags) {
        ++differences;
        ADD_FAILURE() << rule << " differs at " << expected[index].time << ": " << ours[index].time
                      << " " << ours[index].offset;
      }
  }
  std::printf("C library comparison: %zu rules, %u transitions, %u differences\n",
              sizeof rules / sizeof *rules, compared, differences);
  EXPECT_GT(compared, 1000u);
  EXPECT_EQ(differences, 0u);
}
#endif

} // namespace
