// Transition queries answered straight from the big-endian bytes of a TZif
// image. Every read is bounds-checked: a count that points past the end of
// the data shortens what can be found, it never widens what is read.
#include "ZBTZFile.h"

#include <cstring>

namespace {

// How many transition times lie wholly inside the data.
uint32_t availableTransitions(const ZBTZFile *file) {
  const uint32_t declared = tz_file_transition_count(file);
  const uint32_t fitting = (file->size - kTZHeaderSize) / 4;
  return declared < fitting ? declared : fitting;
}

int32_t transitionTime(const ZBTZFile *file, uint32_t index) {
  return static_cast<int32_t>(file->data[kTZHeaderSize + 4 * index] << 24 |
                              file->data[kTZHeaderSize + 4 * index + 1] << 16 |
                              file->data[kTZHeaderSize + 4 * index + 2] << 8 |
                              file->data[kTZHeaderSize + 4 * index + 3]);
}

// The index of the transition in force at `time`: the last one at or before
// it, or the first when `time` precedes them all (a zone reports its first
// transition's type for earlier instants, not a pre-transition type).
// Answers -1 when there are no transitions. Transitions are sorted in any
// zone file, so a binary search finds what a walk from the first would.
int64_t transitionInForce(const ZBTZFile *file, int64_t time) {
  const uint32_t count = availableTransitions(file);
  if (count == 0)
    return -1;
  uint32_t low = 0, high = count; // first index whose time is after `time`
  while (low < high) {
    const uint32_t middle = low + (high - low) / 2;
    if (transitionTime(file, middle) > time)
      high = middle;
    else
      low = middle + 1;
  }
  return low == 0 ? 0 : low - 1;
}

// Fills `info` for a transition instant and a type; false when the type lies
// outside the data. An abbreviation index outside the abbreviation
// characters gives an empty abbreviation.
bool fillFromType(const ZBTZFile *file, const TZLayout &layout, int64_t time, uint32_t type,
                  ZBTZTransitionInfo *info) {
  if (type >= tz_file_type_count(file))
    return false;
  const uint64_t at = layout.types + 6 * uint64_t{type};
  if (!tz_file_contains(file, at, 6))
    return false;
  std::memset(info, 0, sizeof *info);
  info->time = time;
  info->offset = static_cast<int32_t>(tz_file_read32(file, at));
  if (tz_file_read8(file, at + 4) != 0)
    info->flags |= ZBTZFlagDaylight;
  if (type < tz_file_standard_count(file) && tz_file_read8(file, layout.standard + type) != 0)
    info->flags |= ZBTZFlagStandardTime;
  if (type < tz_file_universal_count(file) && tz_file_read8(file, layout.universal + type) != 0)
    info->flags |= ZBTZFlagUniversal;
  const uint32_t characters = tz_file_abbreviation_char_count(file);
  for (uint32_t index = tz_file_read8(file, at + 5), length = 0;
       index < characters && length < sizeof info->abbreviation - 1; ++index, ++length) {
    if (!tz_file_contains(file, layout.characters + index, 1))
      break;
    const char c = static_cast<char>(file->data[layout.characters + index]);
    if (c == '\0')
      break;
    info->abbreviation[length] = c;
  }
  return true;
}

} // namespace

bool tz_file_transition_info(const ZBTZFile *file, uint32_t index,
                             ZBTZTransitionInfo *info) noexcept {
  if (file == nullptr || info == nullptr || index >= availableTransitions(file))
    return false;
  const TZLayout layout = tz_file_layout(file);
  if (!tz_file_contains(file, layout.typeIndexes + index, 1))
    return false;
  return fillFromType(file, layout, transitionTime(file, index),
                      tz_file_read8(file, layout.typeIndexes + index), info);
}

bool tz_file_leap_second(const ZBTZFile *file, uint32_t index, int64_t *time,
                         int32_t *correction) noexcept {
  if (file == nullptr || index >= tz_file_leap_count(file))
    return false;
  const uint64_t at = tz_file_layout(file).leaps + 8 * uint64_t{index};
  if (!tz_file_contains(file, at, 8))
    return false;
  if (time != nullptr)
    *time = static_cast<int32_t>(tz_file_read32(file, at));
  if (correction != nullptr)
    *correction = static_cast<int32_t>(tz_file_read32(file, at + 4));
  return true;
}

bool tz_file_find_transition(const ZBTZFile *file, int64_t time,
                             ZBTZTransitionInfo *info) noexcept {
  if (file == nullptr || info == nullptr)
    return false;
  const int64_t index = transitionInForce(file, time);
  if (index >= 0)
    return tz_file_transition_info(file, static_cast<uint32_t>(index), info);
  // No transitions: the zone's first type holds for all time, which
  // begins where 32-bit zone data begins.
  return fillFromType(file, tz_file_layout(file), INT32_MIN, 0, info);
}

bool tz_file_find_next_transition(const ZBTZFile *file, int64_t time,
                                  ZBTZTransitionInfo *info) noexcept {
  if (file == nullptr || info == nullptr)
    return false;
  const int64_t index = transitionInForce(file, time);
  if (index < 0)
    return false;
  return tz_file_transition_info(file, static_cast<uint32_t>(index + 1), info);
}

uint32_t tz_file_abbreviation_count(const ZBTZFile *file) noexcept {
  if (file == nullptr)
    return 0;
  if (file->abbreviationCount != 0)
    return file->abbreviationCount;
  const TZLayout layout = tz_file_layout(file);
  bool used[256] = {};
  uint32_t count = 0;
  for (uint32_t type = 0; type < tz_file_type_count(file); ++type) {
    const uint64_t at = layout.types + 6 * uint64_t{type} + 5;
    if (!tz_file_contains(file, at, 1))
      break;
    const uint8_t index = file->data[at];
    count += used[index] ? 0 : 1;
    used[index] = true;
  }
  file->abbreviationCount = count;
  return count;
}
