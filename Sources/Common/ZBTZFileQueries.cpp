// Transition queries answered straight from the big-endian bytes of a TZif
// image. Every read is bounds-checked: a count that points past the end of
// the data shortens what can be found, it never widens what is read.
#include "ZBTZFile.h"

#include <algorithm>
#include <cstring>

namespace {

// A big-endian 32-bit value at a place already known to lie inside the data.
uint32_t load32(const uint8_t *at) {
  uint32_t value;
  std::memcpy(&value, at, 4);
  return __builtin_bswap32(value);
}

// How many transition times lie wholly inside the data.
uint32_t availableTransitions(const ZBTZFile *file, const TZLayout &layout) {
  const uint32_t fitting = (file->size - kTZHeaderSize) / 4;
  return layout.transitionCount < fitting ? layout.transitionCount : fitting;
}

int32_t transitionTime(const ZBTZFile *file, uint32_t index) {
  return static_cast<int32_t>(load32(file->data + kTZHeaderSize + 4 * size_t{index}));
}

// The index of the transition in force at `time`: the last one at or before
// it, or the first when `time` precedes them all (a zone reports its first
// transition's type for earlier instants, not a pre-transition type).
// Answers -1 when there are no transitions. Transitions are sorted in any
// zone file, so a binary search finds what a walk from the first would.
// Each step picks its half with a conditional move rather than a branch:
// instants looked up across a zone's range take no predictable path, and a
// mispredicted branch at every step costs more than the step itself.
int64_t transitionInForce(const ZBTZFile *file, uint32_t count, int64_t time) {
  if (count == 0)
    return -1;
  // Every stored time is a 32-bit value, so each step compares 32-bit values:
  // an instant before the range precedes every transition, and one after it
  // follows them all, as the range's last second does.
  if (time < INT32_MIN)
    return 0;
  const int32_t instant = static_cast<int32_t>(std::min<int64_t>(time, INT32_MAX));
  const uint8_t *const times = file->data + kTZHeaderSize;
  const uint8_t *base = times;
  uint32_t length = count;
  while (length > 1) {
    const uint32_t half = length / 2;
    const uint8_t *probe = base + 4 * size_t{half};
    base = static_cast<int32_t>(load32(probe)) <= instant ? probe : base;
    length -= half;
  }
  return (base - times) / 4;
}

// Copies the abbreviation that starts at `first` and may run to `end` into
// `out`, cut after 31 characters and always terminated.
void copyAbbreviation(const ZBTZFile *file, uint64_t first, uint64_t end,
                      char (&out)[sizeof ZBTZTransitionInfo::abbreviation]) {
  const uint64_t length = first < end ? std::min<uint64_t>(end - first, sizeof out - 1) : 0;
  if (length == 0) {
    out[0] = '\0';
    return;
  }
  // Abbreviations are a few characters long, so their first eight bytes are
  // read as one word and the NUL found by arithmetic: a byte loop's exit
  // branch is mispredicted whenever neighbouring lookups meet abbreviations
  // of different lengths, "CET" and "CEST", and that costs as much as the
  // whole search. When fewer than eight bytes follow `first`, the word is
  // the data's last eight (the data is never shorter than the header),
  // shifted so that the missing bytes read as NULs.
  static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the word's first byte is its lowest");
  const uint64_t window = std::min<uint64_t>(first, file->size - 8);
  uint64_t word;
  std::memcpy(&word, file->data + window, 8);
  word >>= 8 * (first - window);
  std::memcpy(out, &word, 8);
  const uint64_t zeroBytes = (word - 0x0101010101010101ULL) & ~word & 0x8080808080808080ULL;
  const uint64_t nul = zeroBytes != 0 ? __builtin_ctzll(zeroBytes) / 8 : 8;
  uint64_t copied = std::min(nul, length);
  if (copied == 8) // no NUL among the first eight: the rest byte by byte
    for (; copied < length && file->data[first + copied] != 0; ++copied)
      out[copied] = static_cast<char>(file->data[first + copied]);
  out[copied] = '\0';
}

// Fills `info` for a transition instant and a type; false when the type lies
// outside the data. An abbreviation index outside the abbreviation
// characters gives an empty abbreviation.
bool fillFromType(const ZBTZFile *file, const TZLayout &layout, int64_t time, uint32_t type,
                  ZBTZTransitionInfo *info) {
  if (type >= layout.typeCount)
    return false;
  const uint64_t at = layout.types + 6 * uint64_t{type};
  if (!tz_file_contains(file, at, 6))
    return false;
  const uint8_t *entry = file->data + at;
  info->time = time;
  info->offset = static_cast<int32_t>(load32(entry));
  uint8_t flags = entry[4] != 0 ? ZBTZFlagDaylight : 0;
  if (type < layout.standardCount && tz_file_read8(file, layout.standard + type) != 0)
    flags |= ZBTZFlagStandardTime;
  if (type < layout.universalCount && tz_file_read8(file, layout.universal + type) != 0)
    flags |= ZBTZFlagUniversal;
  info->flags = flags;
  // The abbreviation ends at its NUL, at the end of the characters (where
  // the leap records begin) or of the data, or after 31 characters,
  // whichever comes first.
  const uint64_t end = std::min<uint64_t>(layout.leaps, file->size);
  copyAbbreviation(file, layout.characters + entry[5], end, info->abbreviation);
  return true;
}

bool infoAt(const ZBTZFile *file, const TZLayout &layout, uint32_t index,
            ZBTZTransitionInfo *info) {
  if (index >= availableTransitions(file, layout))
    return false;
  const uint64_t typeIndex = layout.typeIndexes + index;
  if (!tz_file_contains(file, typeIndex, 1))
    return false;
  return fillFromType(file, layout, transitionTime(file, index), file->data[typeIndex], info);
}

} // namespace

bool tz_file_transition_info(const ZBTZFile *file, uint32_t index,
                             ZBTZTransitionInfo *info) noexcept {
  if (file == nullptr || info == nullptr)
    return false;
  return infoAt(file, tz_file_layout(file), index, info);
}

bool tz_file_leap_second(const ZBTZFile *file, uint32_t index, int64_t *time,
                         int32_t *correction) noexcept {
  if (file == nullptr)
    return false;
  const TZLayout layout = tz_file_layout(file);
  if (index >= layout.leapCount)
    return false;
  const uint64_t at = layout.leaps + 8 * uint64_t{index};
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
  const TZLayout layout = tz_file_layout(file);
  const int64_t index = transitionInForce(file, availableTransitions(file, layout), time);
  if (index >= 0)
    return infoAt(file, layout, static_cast<uint32_t>(index), info);
  // No transitions: the zone's first type holds for all time, which
  // begins where 32-bit zone data begins.
  return fillFromType(file, layout, INT32_MIN, 0, info);
}

bool tz_file_find_next_transition(const ZBTZFile *file, int64_t time,
                                  ZBTZTransitionInfo *info) noexcept {
  if (file == nullptr || info == nullptr)
    return false;
  const TZLayout layout = tz_file_layout(file);
  const int64_t index = transitionInForce(file, availableTransitions(file, layout), time);
  if (index < 0)
    return false;
  return infoAt(file, layout, static_cast<uint32_t>(index + 1), info);
}

uint32_t tz_file_abbreviation_count(const ZBTZFile *file) noexcept {
  if (file == nullptr)
    return 0;
  if (file->abbreviationCount != 0)
    return file->abbreviationCount;
  const TZLayout layout = tz_file_layout(file);
  bool used[256] = {};
  uint32_t count = 0;
  for (uint32_t type = 0; type < layout.typeCount; ++type) {
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
