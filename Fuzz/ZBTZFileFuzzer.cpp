// Fuzzes the TZif reader with arbitrary bytes held in a buffer of their exact
// size, so the sanitizers catch any read outside it. Every query is asked at
// instants around each transition and at the extremes; what a successful
// query answers must be plausible (a terminated abbreviation of at most 31
// characters), each transition's abbreviation must be what a plain byte walk
// over the characters finds, and the transitions read back must survive a
// rebuild.
#include "ZBEnvironment.h"
#include "ZBTZFile.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace {

void check(bool condition) {
  if (!condition)
    std::abort();
}

void checkInfo(const ZBTZTransitionInfo &info) {
  check(std::memchr(info.abbreviation, '\0', sizeof info.abbreviation) != nullptr);
  check((info.flags & ~7u) == 0);
}

// The abbreviation of the transition at `index`, read a byte at a time: from
// its type's index into the characters up to a NUL, the end of the
// characters or of the data, or 31 characters.
std::string walkedAbbreviation(const ZBTZFile *file, uint32_t index) {
  const TZLayout layout = tz_file_layout(file);
  const uint8_t type = tz_file_read8(file, layout.typeIndexes + index);
  uint64_t at = layout.characters + tz_file_read8(file, layout.types + 6 * uint64_t{type} + 5);
  const uint64_t end = std::min<uint64_t>(layout.leaps, file->size);
  std::string text;
  for (; at < end && text.size() < 31 && file->data[at] != 0; ++at)
    text += static_cast<char>(file->data[at]);
  return text;
}

} // namespace

// Bad files are logged at Error level; writing a line per input would be
// most of the run.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  ZBEnvironmentSetEnv("ZBLOG_LEVEL", "Fatal", 1);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::unique_ptr<uint8_t[]> exact(new uint8_t[size ? size : 1]);
  if (size != 0)
    std::memcpy(exact.get(), data, size);
  ZBTZFile *file = tz_file_open_memory("fuzz", exact.get(), size);
  if (file == nullptr)
    return 0;
  ZBTZTransitionInfo info;
  for (int64_t time : {INT64_MIN, int64_t{INT32_MIN}, int64_t{0}, int64_t{INT32_MAX}, INT64_MAX})
    for (bool next : {false, true})
      if (next ? tz_file_find_next_transition(file, time, &info)
               : tz_file_find_transition(file, time, &info))
        checkInfo(info);
  std::vector<ZBTZTransition> read;
  std::vector<ZBTZTransitionInfo> infos;
  for (uint32_t index = 0; index < 2000 && tz_file_transition_info(file, index, &info); ++index) {
    checkInfo(info);
    check(walkedAbbreviation(file, index) == info.abbreviation);
    infos.push_back(info);
    ZBTZTransitionInfo around;
    if (tz_file_find_transition(file, info.time - 1, &around))
      checkInfo(around);
    if (tz_file_find_next_transition(file, info.time, &around))
      checkInfo(around);
  }
  int64_t time;
  int32_t correction;
  for (uint32_t index = 0; index < 2000 && tz_file_leap_second(file, index, &time, &correction);
       ++index)
    check(time >= INT32_MIN && time <= INT32_MAX);
  check(tz_file_abbreviation_count(file) <= 256);
  for (const ZBTZTransitionInfo &each : infos)
    read.push_back({each.flags, each.time, each.offset, each.abbreviation});
  // A rebuild keeps every instant, offset and flag (types sharing offset and
  // flags share the first one's abbreviation, so that is not compared).
  if (ZBTZFile *rebuilt = tz_file_create_memory(read.data(), static_cast<uint32_t>(read.size()),
                                                nullptr, 0, "rebuilt")) {
    for (uint32_t index = 0; index < read.size(); ++index) {
      check(tz_file_transition_info(rebuilt, index, &info));
      check(info.time == read[index].time && info.offset == read[index].offset &&
            info.flags == read[index].flags);
    }
    tz_file_close(rebuilt);
  }
  tz_file_close(file);
  return 0;
}
