// Zone queries against their plain counterparts: finding the transition in
// force for an instant in a zone of 300 transitions, against a plain binary
// search over the same instants held as native integers; and, on Windows,
// creating a known zone by name with its transitions cached, against the
// system's own query of the current zone.
#include "ZBBench.h"

#include "Zenbor.h"

#include <algorithm>
#include <cstdint>
#include <vector>

namespace {

// 300 transitions spread over the 32-bit range, alternating between two
// types as a daylight-saving zone's do.
std::vector<ZBTZTransition> transitions() {
  std::vector<ZBTZTransition> list;
  for (int32_t index = 0; index < 300; ++index) {
    const bool daylight = index % 2 == 0;
    list.push_back({static_cast<uint8_t>(daylight ? ZBTZFlagDaylight : 0),
                    -2100000000LL + int64_t{index} * 14000000, daylight ? 7200 : 3600,
                    daylight ? "CEST" : "CET"});
  }
  return list;
}

// Pseudo-random instants across the zone's range, so that no fixed path
// through the search is learnt.
std::vector<int64_t> instants(int64_t first, int64_t last) {
  std::vector<int64_t> out;
  uint64_t seed = 88172645463325252ULL;
  for (int index = 0; index < 4096; ++index) {
    seed ^= seed << 13, seed ^= seed >> 7, seed ^= seed << 17;
    out.push_back(first + static_cast<int64_t>(seed % static_cast<uint64_t>(last - first)));
  }
  return out;
}

} // namespace

int main() {
  zbbench::printHeader();
  const std::vector<ZBTZTransition> list = transitions();
  const ZBTZZoneDescription description{"Bench/Zone", 0, nullptr, 300, list.data()};
  ZBTZFile *zone = ZBTimeZoneCreateWithZone(&description);
  std::vector<int32_t> times;
  for (const ZBTZTransition &each : list)
    times.push_back(static_cast<int32_t>(each.time));
  const std::vector<int64_t> queries = instants(times.front() - 1000000, times.back() + 1000000);

  zbbench::compare(
      "ZBTimeZoneFindTransitionTime (300 transitions)",
      [&](int64_t iterations) {
        ZBTZTransitionInfo info;
        for (int64_t index = 0; index < iterations; ++index) {
          ZBTimeZoneFindTransitionTime(zone, queries[static_cast<size_t>(index) & 4095], &info);
          zbbench::keep(info.offset);
        }
      },
      [&](int64_t iterations) {
        for (int64_t index = 0; index < iterations; ++index) {
          const int64_t time = queries[static_cast<size_t>(index) & 4095];
          const auto found = std::upper_bound(times.begin(), times.end(), time);
          zbbench::keep(found == times.begin() ? 0 : found - times.begin() - 1);
        }
      },
      // Short runs, many of them: each fits in one scheduling slice even on
      // a busy machine, so the minimum is a run that nothing interrupted.
      zbbench::Options{101, 4096});
  ZBTimeZoneClose(zone);

#ifdef _WIN32
  ZBTimeZoneClose(ZBTimeZoneCreateWithZoneName("Europe/Paris", ZBTZNameKnownZones)); // warm
  zbbench::compare(
      "ZBTimeZoneCreateWithZoneName (known, cached)",
      [](int64_t iterations) {
        for (int64_t index = 0; index < iterations; ++index) {
          ZBTZFile *paris = ZBTimeZoneCreateWithZoneName("Europe/Paris", ZBTZNameKnownZones);
          zbbench::keep(paris);
          ZBTimeZoneClose(paris);
        }
      },
      [](int64_t iterations) {
        for (int64_t index = 0; index < iterations; ++index) {
          DYNAMIC_TIME_ZONE_INFORMATION current;
          zbbench::keep(GetDynamicTimeZoneInformation(&current));
        }
      },
      zbbench::Options{7, 2000});
#endif
  return 0;
}
