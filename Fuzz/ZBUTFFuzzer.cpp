// Fuzzes the four UTF converters with arbitrary bytes, read as UTF-8 and as
// UTF-16 and UTF-32 units. For each it checks what callers rely on: the
// result is the size the whole source needs whatever the capacity; a call
// with exactly that capacity writes that many units with the same error
// count; a smaller capacity stores a prefix of the full output (for UTF-8
// output, the whole characters that fit) and nothing past it; UTF-8 and
// UTF-16 conversion into a destination roomy enough for the block-at-a-time
// paths gives what a plain one-unit-at-a-time converter gives; and valid
// text survives a round trip.
#include "ZBString.h"

#include "../Tests/ZBUTFReference.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

void check(bool condition) {
  if (!condition)
    std::abort();
}

// Marks the units a converter must leave alone.
template <typename Unit>
constexpr Unit kSentinel = static_cast<Unit>(0x5A5A5A5A);

constexpr size_t kGuard = 8;

// Runs `convert(destination, capacity, errors)` with no destination, with
// exactly the needed capacity and with `shortCapacity`, and checks the
// results against each other. Returns the full output and sets `errors`.
template <typename Unit, typename Convert>
std::vector<Unit> checkCapacities(Convert convert, size_t shortCapacity, size_t &errors,
                                  size_t (*writtenWithin)(const std::vector<Unit> &, size_t)) {
  const size_t needed = convert(nullptr, 0, &errors);
  std::vector<Unit> full(needed + kGuard, kSentinel<Unit>);
  size_t exactErrors = 0;
  check(convert(full.data(), needed, &exactErrors) == needed);
  check(exactErrors == errors);
  for (size_t index = needed; index < full.size(); ++index)
    check(full[index] == kSentinel<Unit>);
  full.resize(needed);

  if (shortCapacity > needed)
    shortCapacity = needed;
  std::vector<Unit> part(shortCapacity + kGuard, kSentinel<Unit>);
  check(convert(part.data(), shortCapacity, nullptr) == needed);
  const size_t written = writtenWithin(full, shortCapacity);
  for (size_t index = 0; index < written; ++index)
    check(part[index] == full[index]);
  for (size_t index = written; index < part.size(); ++index)
    check(part[index] == kSentinel<Unit>);
  return full;
}

// Reading UTF-8, every unit below the capacity is stored.
template <typename Unit>
size_t storedBelowCapacity(const std::vector<Unit> &, size_t capacity) {
  return capacity;
}

// Writing UTF-8, only whole characters are written, up to the first one that
// does not fit.
size_t wholeCharactersWithin(const std::vector<char> &output, size_t capacity) {
  size_t boundary = capacity;
  while (boundary > 0 && boundary < output.size() &&
         (static_cast<uint8_t>(output[boundary]) & 0xC0) == 0x80)
    --boundary;
  return boundary;
}

// Converts into a destination of `capacity` units (the block paths' room)
// and checks the result against the plain converter's `expected` units and
// error count, and that nothing past them is written.
template <typename Unit, typename Expected, typename Convert>
void checkAgainstPlain(Convert convert, size_t capacity, const std::vector<Expected> &expected,
                       size_t expectedErrors) {
  std::vector<Unit> out(capacity + kGuard, kSentinel<Unit>);
  size_t errors = 0;
  check(convert(out.data(), capacity, &errors) == expected.size());
  check(errors == expectedErrors);
  for (size_t index = 0; index < out.size(); ++index)
    check(index < expected.size() ? Expected(out[index]) == expected[index]
                                  : out[index] == kSentinel<Unit>);
}

template <typename Unit>
std::vector<Unit> unitsFrom(const uint8_t *data, size_t size) {
  std::vector<Unit> units(size / sizeof(Unit));
  if (!units.empty())
    std::memcpy(units.data(), data, units.size() * sizeof(Unit));
  return units;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 2)
    return 0;
  // The first byte picks the flags and the short capacity; the rest is text.
  const uint32_t flags = data[0] & 3;
  const size_t shortCapacity = data[1];
  const char *text = reinterpret_cast<const char *>(data + 2);
  const size_t length = size - 2;

  size_t errors = 0;
  const std::vector<ZBWChar> utf16 = checkCapacities<ZBWChar>(
      [&](ZBWChar *out, size_t capacity, size_t *outErrors) {
        return ZBUTF8ToUTF16(out, capacity, text, length, flags, outErrors);
      },
      shortCapacity, errors, storedBelowCapacity<ZBWChar>);
  check(utf16.size() <= length);
  check(errors <= length);
  const zbtest::ReferenceUTF16 plain16 =
      zbtest::referenceUTF8ToUTF16(data + 2, length, (flags & ZBUTFFlagLatin1Fallback) != 0);
  checkAgainstPlain<ZBWChar>(
      [&](ZBWChar *out, size_t capacity, size_t *outErrors) {
        return ZBUTF8ToUTF16(out, capacity, text, length, flags, outErrors);
      },
      length, plain16.units, plain16.errors);

  size_t utf32Errors = 0;
  const std::vector<uint32_t> utf32 = checkCapacities<uint32_t>(
      [&](uint32_t *out, size_t capacity, size_t *outErrors) {
        return ZBUTF8ToUTF32(out, capacity, text, length, flags, outErrors);
      },
      shortCapacity, utf32Errors, storedBelowCapacity<uint32_t>);
  check(utf32.size() <= length);

  // Strict UTF-8 that decodes cleanly to units UTF-8 output takes (no pair,
  // nothing from D800 up that is unconvertible) comes back byte for byte.
  if (flags == 0 && errors == 0) {
    bool convertible = true;
    for (ZBWChar unit : utf16)
      convertible = convertible && (static_cast<uint16_t>(unit) & 0xD800) != 0xD800;
    if (convertible) {
      size_t backErrors = 1;
      const std::vector<char> back = checkCapacities<char>(
          [&](char *out, size_t capacity, size_t *outErrors) {
            return ZBUTF16ToUTF8(out, capacity, utf16.data(), utf16.size(), 0, outErrors);
          },
          shortCapacity, backErrors, wholeCharactersWithin);
      check(backErrors == 0);
      check(back.size() == length && std::memcmp(back.data(), text, length) == 0);
    }
  }

  // The same bytes as UTF-16 and UTF-32 units.
  const std::vector<ZBWChar> units16 = unitsFrom<ZBWChar>(data + 2, length);
  size_t errors16 = 0;
  const std::vector<char> from16 = checkCapacities<char>(
      [&](char *out, size_t capacity, size_t *outErrors) {
        return ZBUTF16ToUTF8(out, capacity, units16.data(), units16.size(), flags, outErrors);
      },
      shortCapacity, errors16, wholeCharactersWithin);
  check(from16.size() <= 3 * units16.size());
  const std::vector<uint16_t> plainUnits(units16.begin(), units16.end());
  const zbtest::ReferenceUTF8 plain8 =
      zbtest::referenceUTF16ToUTF8(plainUnits.data(), plainUnits.size());
  checkAgainstPlain<char>(
      [&](char *out, size_t capacity, size_t *outErrors) {
        return ZBUTF16ToUTF8(out, capacity, units16.data(), units16.size(), flags, outErrors);
      },
      3 * units16.size(), plain8.bytes, plain8.errors);

  const std::vector<uint32_t> units32 = unitsFrom<uint32_t>(data + 2, length);
  size_t errors32 = 0;
  const std::vector<char> from32 = checkCapacities<char>(
      [&](char *out, size_t capacity, size_t *outErrors) {
        return ZBUTF32ToUTF8(out, capacity, units32.data(), units32.size(), flags, outErrors);
      },
      shortCapacity, errors32, wholeCharactersWithin);
  // Values that UTF-8 reading accepts back (below 0x140000, an F4 lead at
  // most) return unchanged.
  if (errors32 == 0) {
    bool readable = true;
    for (uint32_t value : units32)
      readable = readable && value < 0x140000;
    if (readable) {
      std::vector<uint32_t> back(units32.size() + 1);
      size_t backErrors = 1;
      check(ZBUTF8ToUTF32(back.data(), back.size(), from32.data(), from32.size(), 0,
                          &backErrors) == units32.size());
      check(backErrors == 0);
      check(std::equal(units32.begin(), units32.end(), back.begin()));
    }
  }
  return 0;
}
