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

// A stream of pseudo-random instants across a zone's range. The stream goes
// on across runs and never repeats within a benchmark, so a branch predictor
// cannot learn the searches' paths, as it does when a fixed set of a few
// thousand instants is replayed run after run.
class Instants {
public:
  Instants(int64_t first, int64_t last)
      : first_(first), span_(static_cast<uint64_t>(last - first)) {}
  int64_t next() {
    state_ ^= state_ << 13, state_ ^= state_ >> 7, state_ ^= state_ << 17;
    // The high half scaled into the span: a multiply, not a division.
    return first_ + static_cast<int64_t>(((state_ >> 32) * span_) >> 32);
  }

private:
  int64_t first_;
  uint64_t span_;
  uint64_t state_ = 88172645463325252ULL;
};

// Finds the transition in force for each instant of the two streams, in the
// zone and by a plain binary search over its times held as native integers.
void compareLookups(const char *name, const ZBTZFile *zone, const std::vector<int32_t> &times,
                    Instants zenborInstants, Instants rawInstants) {
  zbbench::compare(
      name,
      [&](int64_t iterations) {
        ZBTZTransitionInfo info;
        for (int64_t index = 0; index < iterations; ++index) {
          ZBTimeZoneFindTransitionTime(zone, zenborInstants.next(), &info);
          zbbench::keep(info.offset);
        }
      },
      [&](int64_t iterations) {
        for (int64_t index = 0; index < iterations; ++index) {
          const auto found = std::upper_bound(times.begin(), times.end(), rawInstants.next());
          zbbench::keep(found == times.begin() ? 0 : found - times.begin() - 1);
        }
      },
      // Short runs, many of them: each fits in one scheduling slice even on
      // a busy machine, so the minimum is a run that nothing interrupted.
      zbbench::Options{101, 4096});
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
  // Instants spread over the zone's range, the case the target is set for;
  // both sides draw from streams of the same instants.
  const Instants spread(times.front() - 1000000, times.back() + 1000000);
  compareLookups("ZBTimeZoneFindTransitionTime (300 transitions)", zone, times, spread, spread);
  // Instants between the same two transitions, as a program asking for the
  // current offset sees them: every branch of the plain search is predicted.
  const Instants between(times[150], times[151]);
  compareLookups("  instants between two transitions", zone, times, between, between);
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
