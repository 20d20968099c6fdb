// The unit-width-neutral core of the narrow and wide string functions:
// measuring, duplicating and concatenating zero-terminated runs of units in
// a zone. ZBCString.cpp and ZBWCString.cpp instantiate it for char and
// ZBWChar, so both widths behave alike by construction.
#pragma once

#include "ZBAlloc.h"

#include <cstdint>
#include <cstring>

namespace zb::strings {

template <typename Unit>
size_t length(const Unit *text) noexcept {
  if constexpr (sizeof(Unit) == 1) {
    return std::strlen(reinterpret_cast<const char *>(text));
  } else {
    size_t count = 0;
    while (text[count] != 0)
      ++count;
    return count;
  }
}

// Room for `count` units and a terminating zero in `zone`; null when the
// size does not fit in size_t or the allocation fails.
template <typename Unit>
Unit *allocate(ZBZone *zone, size_t count, const char *description) noexcept {
  if (count >= SIZE_MAX / sizeof(Unit))
    return nullptr;
  return static_cast<Unit *>(_ZBAllocWithZoneAndDesc(zone, (count + 1) * sizeof(Unit),
                                                     description));
}

// Exactly `count` units, zeros included, then a zero unit.
template <typename Unit>
Unit *duplicate(ZBZone *zone, const Unit *units, size_t count, const char *description) noexcept {
  if (units == nullptr)
    return nullptr;
  Unit *copy = allocate<Unit>(zone, count, description);
  if (copy == nullptr)
    return nullptr;
  std::memcpy(copy, units, count * sizeof(Unit));
  copy[count] = 0;
  return copy;
}

// first + second; an absent text contributes nothing, two absent texts give
// null.
template <typename Unit>
Unit *concatenate(ZBZone *zone, const Unit *first, const Unit *second,
                  const char *description) noexcept {
  if (first == nullptr && second == nullptr)
    return nullptr;
  const size_t firstLength = first != nullptr ? length(first) : 0;
  const size_t secondLength = second != nullptr ? length(second) : 0;
  Unit *result = allocate<Unit>(zone, firstLength + secondLength, description);
  if (result == nullptr)
    return nullptr;
  if (firstLength != 0)
    std::memcpy(result, first, firstLength * sizeof(Unit));
  if (secondLength != 0)
    std::memcpy(result + firstLength, second, secondLength * sizeof(Unit));
  result[firstLength + secondLength] = 0;
  return result;
}

} // namespace zb::strings
