// Narrow and wide strings and the UTF converters: the converters' exact
// treatment of bad input (the kept behaviours included), agreement of their
// block-at-a-time paths with a plain one near block edges, capacity handling,
// bounded copy and append, concatenation, zones, and agreement with an
// outside UTF-8 decoder on the vectors where the library means to agree.
#include "ZBTestSupport.h"
#include "ZBUTFReference.h"

#include "Zenbor.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace {

using Units = std::vector<uint16_t>;

struct Decoded {
  Units units;
  size_t errors;
};

// Measures, then converts into exactly the size measured: both must agree.
Decoded toUTF16(const std::string &bytes, uint32_t flags) {
  Decoded decoded{{}, 99};
  const size_t needed =
      ZBUTF8ToUTF16(nullptr, 0, bytes.data(), bytes.size(), flags, &decoded.errors);
  std::vector<ZBWChar> out(needed + 1);
  size_t errors = 99;
  EXPECT_EQ(ZBUTF8ToUTF16(out.data(), needed, bytes.data(), bytes.size(), flags, &errors), needed);
  EXPECT_EQ(errors, decoded.errors);
  decoded.units.assign(out.begin(), out.begin() + static_cast<ptrdiff_t>(needed));
  return decoded;
}

// A zero-terminated wide text from units.
std::vector<ZBWChar> wide(const Units &units) {
  std::vector<ZBWChar> text(units.begin(), units.end());
  text.push_back(0);
  return text;
}

// The text of a string the library allocated, which is then freed on its
// zone; nothing for a null result.
std::optional<std::string> take(char *text, ZBZone *zone = nullptr) {
  if (text == nullptr)
    return std::nullopt;
  std::string copy(text);
  _ZBFreeWithZone(zone, text);
  return copy;
}

std::optional<Units> take(ZBWChar *text, ZBZone *zone = nullptr) {
  if (text == nullptr)
    return std::nullopt;
  Units units;
  for (const ZBWChar *unit = text; *unit != 0; ++unit)
    units.push_back(static_cast<uint16_t>(*unit));
  _ZBFreeWithZone(zone, text);
  return units;
}

TEST(ZBUTF8ToUTF16, DecodesAndRejectsByTheLibrarysRules) {
  const uint32_t kFallback = ZBUTFFlagLatin1Fallback;
  const struct {
    const char *bytes;
    uint32_t flags;
    Units units;
    size_t errors;
  } cases[] = {
      {"A\xC3\xA9", 0, {0x41, 0xE9}, 0},
      {"\xE9x", kFallback, {0xE9, 0x78}, 0},         // Latin-1 byte
      {"\xE9x", 0, {0x78}, 1},                       // without fallback: short sequence
      {"x\xE9", kFallback, {0x78, 0xE9}, 0},         // Latin-1 byte at the very end
      {"\xC3" "A", kFallback, {0xC3, 0x41}, 0},      // a lead byte read as Latin-1
      {"\xC3" "A", 0, {0x41}, 1},
      {"\x85", kFallback, {}, 1},                    // C1 range is never Latin-1
      {"\xFF\x80", kFallback, {}, 2},                // bad lead, then a stray continuation
      {"\xE2\x82" "A", kFallback, {0x41}, 2},        // a continuation follows: no fallback
      {"\xC0\x80" "A", 0, {0x41}, 1},                // overlong consumed whole
      {"\xE0\x80\xAF", 0, {}, 1},                    // overlong three bytes, one error
      {"\xED\x9F\xBF", 0, {0xD7FF}, 0},
      {"\xED\xA0\x80", 0, {}, 1},                    // U+D800 rejected
      {"\xED\xA3\xBF", 0, {}, 1},                    // U+D8FF rejected
      {"\xED\xA4\x80", 0, {0xD900}, 0},              // U+D900 passes
      {"\xED\xB0\x80", 0, {0xDC00}, 0},              // U+DC00 passes
      {"\xEF\xA0\x80", 0, {}, 1},                    // U+F800 rejected
      {"\xEF\xA3\xBF", 0, {}, 1},                    // U+F8FF rejected
      {"\xEF\xA4\x80", 0, {0xF900}, 0},
      {"\xF0\x9D\x84\x9E", 0, {0xD834, 0xDD1E}, 0},  // U+1D11E
      {"\xF0\x9F\x98\x80", 0, {0xD83D, 0xFE00}, 0},  // U+1F600: bit 13 reaches the low unit
      {"\xF0\x8F\xBF\xBF", 0, {}, 1},                // overlong four bytes
      {"\xF4\x8F\xBF\xBF", 0, {}, 1},                // U+10FFFF loses bit 20: below 0x10000
      {"\xF4\xBF\x80\x80", 0, {0xD8BC, 0xFC00}, 0},  // U+13F000 read as U+3F000
      {"\xED\xA0\x80\xED\xB0\x80", 0, {0xDC00}, 1},  // a pair as two three-byte sequences
      {"\xF5\x80\x80\x80", 0, {}, 4},                // lead above F4, then three strays
      {"A\xE2\x82", 0, {0x41}, 2},                   // cut sequence: lead, then a stray
      {"A\xF0\x9F\x98", 0, {0x41}, 3},
      {"\xF0\x9F" "AB", 0, {0x41, 0x42}, 2},         // resynchronises on the ASCII
  };
  for (const auto &test : cases) {
    SCOPED_TRACE(::testing::PrintToString(std::string(test.bytes)));
    const Decoded decoded = toUTF16(test.bytes, test.flags);
    EXPECT_EQ(decoded.units, test.units);
    EXPECT_EQ(decoded.errors, test.errors);
  }
}

TEST(ZBUTF8ToUTF16, StoresWithinTheCapacityAndAlwaysReportsTheWholeSize) {
  // Long enough for the block-wise ASCII path, with non-ASCII and a pair
  // at awkward places.
  const std::string text = std::string(37, 'a') + "\xC3\xA9" + std::string(20, 'b') +
                           "\xF0\x9D\x84\x9E" + std::string(40, 'c');
  const Decoded whole = toUTF16(text, 0);
  ASSERT_EQ(whole.units.size(), 37u + 1 + 20 + 2 + 40);
  constexpr ZBWChar kSentinel = 0x5A5A;
  for (size_t capacity = 0; capacity <= whole.units.size() + 2; ++capacity) {
    SCOPED_TRACE(capacity);
    std::vector<ZBWChar> out(capacity + 8, kSentinel);
    EXPECT_EQ(ZBUTF8ToUTF16(out.data(), capacity, text.data(), text.size(), 0, nullptr),
              whole.units.size());
    const size_t stored = std::min(capacity, whole.units.size());
    for (size_t index = 0; index < out.size(); ++index)
      ASSERT_EQ(out[index], index < stored ? whole.units[index] : kSentinel) << index;
  }
  // A null destination only measures, whatever the capacity claims; a null
  // source is empty.
  EXPECT_EQ(ZBUTF8ToUTF16(nullptr, 1000, text.data(), text.size(), 0, nullptr),
            whole.units.size());
  size_t errors = 99;
  EXPECT_EQ(ZBUTF8ToUTF16(nullptr, 0, nullptr, 10, 0, &errors), 0u);
  EXPECT_EQ(errors, 0u);
}

TEST(ZBUTF16ToUTF8, EncodesTheBasicPlaneAndRefusesSurrogatesAndTheTopRange) {
  const struct {
    Units units;
    std::string bytes;
    size_t errors;
  } cases[] = {
      {{0x41, 0x7F}, "A\x7F", 0},
      {{0x80, 0x7FF}, "\xC2\x80\xDF\xBF", 0},
      {{0x800, 0xD7FF}, "\xE0\xA0\x80\xED\x9F\xBF", 0},
      {{0xE000, 0xF7FF}, "\xEE\x80\x80\xEF\x9F\xBF", 0},
      {{0xD800}, "", 1},
      {{0xDBFF, 0xDC00}, "", 2},               // a valid pair is not combined
      {{0x41, 0xD834, 0xDD1E, 0x42}, "AB", 2},
      {{0xF800}, "", 1},
      {{0xFEFF, 0xFFFD, 0xFFFF}, "", 3},
      {{0x00, 0x41}, std::string("\0A", 2), 0},
  };
  for (const auto &test : cases) {
    SCOPED_TRACE(::testing::PrintToString(test.units));
    const std::vector<ZBWChar> source(test.units.begin(), test.units.end());
    size_t errors = 99;
    std::string bytes(ZBUTF16ToUTF8(nullptr, 0, source.data(), source.size(), 0, &errors), '#');
    EXPECT_EQ(ZBUTF16ToUTF8(&bytes[0], bytes.size(), source.data(), source.size(), 0, nullptr),
              bytes.size());
    EXPECT_EQ(bytes, test.bytes);
    EXPECT_EQ(errors, test.errors);
  }
}

TEST(ZBUTF16ToUTF8, StopsWritingAtTheFirstCharacterThatDoesNotFit) {
  // A long ASCII run (converted block-wise), a two-byte character, a unit
  // that does not convert and so takes no room, and more ASCII.
  Units units(40, 'a');
  units.push_back(0xE9);
  units.push_back(0xD800);
  units.insert(units.end(), 20, 'b');
  const std::vector<ZBWChar> source(units.begin(), units.end());
  const std::string whole = std::string(40, 'a') + "\xC3\xA9" + std::string(20, 'b');
  for (size_t capacity = 0; capacity <= whole.size() + 2; ++capacity) {
    SCOPED_TRACE(capacity);
    std::string buffer(capacity + 8, '#');
    size_t errors = 99;
    EXPECT_EQ(ZBUTF16ToUTF8(&buffer[0], capacity, source.data(), source.size(), 0, &errors),
              whole.size());
    EXPECT_EQ(errors, 1u);
    // With room for 41 bytes the two-byte character does not fit, and
    // nothing after it is written, not even the "b" that would.
    const size_t written = capacity == 41 ? 40 : std::min(capacity, whole.size());
    EXPECT_EQ(buffer.substr(0, written), whole.substr(0, written));
    EXPECT_EQ(buffer.substr(written), std::string(buffer.size() - written, '#'));
  }
}

TEST(ZBUTF32, ConvertsWholeCodePointsBothWays) {
  // No surrogate splitting, no lost lead bit, and three-byte values are not
  // checked for surrogates or overlong forms.
  const std::string bytes =
      "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\xED\xA0\x80\xE0\x80\x80";
  std::vector<uint32_t> out(8, 0xDEAD);
  size_t errors = 99;
  EXPECT_EQ(ZBUTF8ToUTF32(out.data(), 7, bytes.data(), bytes.size(), 0, &errors), 7u);
  EXPECT_EQ(out, (std::vector<uint32_t>{0x41, 0xE9, 0x20AC, 0x1F600, 0x10FFFF, 0xD800, 0, 0xDEAD}));
  EXPECT_EQ(errors, 0u);

  const uint32_t values[] = {0x41, 0x7FF, 0xFFFF, 0x1F600, 0x1FFFFF, 0x200000, 0x42};
  std::string encoded(16, '#');
  EXPECT_EQ(ZBUTF32ToUTF8(&encoded[0], 16, values, 7, 0, &errors), 15u);
  EXPECT_EQ(errors, 1u);
  EXPECT_EQ(encoded, "A\xDF\xBF\xEF\xBF\xBF\xF0\x9F\x98\x80\xF7\xBF\xBF\xBF" "B#");
  // Sticky truncation: the four-byte character does not fit in 9 bytes, so
  // the 'B' after it is not written either.
  encoded.assign(16, '#');
  EXPECT_EQ(ZBUTF32ToUTF8(&encoded[0], 9, values, 7, 0, nullptr), 15u);
  EXPECT_EQ(encoded, "A\xDF\xBF\xEF\xBF\xBF" + std::string(10, '#'));
}

TEST(ZBWCString, DuplicatesUTF8WithTheFallbackAndRefusesBadText) {
  EXPECT_EQ(take(ZBWCStringDuplicateCString(nullptr, "caf\xC3\xA9")), (Units{'c', 'a', 'f', 0xE9}));
  EXPECT_EQ(take(ZBWCStringDuplicateCString(nullptr, "caf\xE9")), (Units{'c', 'a', 'f', 0xE9}));
  EXPECT_EQ(ZBWCStringDuplicateCString(nullptr, "\x85"), nullptr);
  EXPECT_EQ(ZBWCStringDuplicateCString(nullptr, nullptr), nullptr);
  // Four bytes become two units, and the length form stops where told.
  EXPECT_EQ(take(ZBWCStringDuplicateCStringWithLength(nullptr, "\xF0\x9D\x84\x9E!", 4)),
            (Units{0xD834, 0xDD1E}));
  EXPECT_EQ(take(ZBWCStringDuplicateCStringWithLength(nullptr, "", 0)), Units{});
}

TEST(ZBCString, DuplicatesWideTextAndRefusesWhatUTF8CannotTake) {
  const std::vector<ZBWChar> text = wide({'n', 0xE9, 0x20AC}), pair = wide({'a', 0xD83D, 0xDE00});
  EXPECT_EQ(take(ZBCStringDuplicateWCString(nullptr, text.data())), "n\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(ZBCStringDuplicateWCString(nullptr, pair.data()), nullptr);
  EXPECT_EQ(take(ZBCStringDuplicateWCStringWithLength(nullptr, pair.data(), 1)), "a");
  EXPECT_EQ(ZBCStringDuplicateWCString(nullptr, nullptr), nullptr);

  // Into a caller's buffer: the whole text or nothing.
  char buffer[8];
  EXPECT_EQ(ZBCStringCopyWCString(buffer, 7, text.data()), buffer); // 6 bytes + zero
  EXPECT_STREQ(buffer, "n\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(ZBCStringCopyWCString(buffer, 6, text.data()), nullptr); // cut
  EXPECT_STREQ(buffer, "");
  std::strcpy(buffer, "old");
  EXPECT_EQ(ZBCStringCopyWCString(buffer, sizeof buffer, pair.data()), nullptr);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(ZBCStringCopyWCStringWithLength(buffer, sizeof buffer, pair.data(), 1), buffer);
  EXPECT_STREQ(buffer, "a");
  EXPECT_EQ(ZBCStringCopyWCString(buffer, 0, text.data()), nullptr);
  EXPECT_EQ(ZBCStringCopyWCString(nullptr, 8, text.data()), nullptr);
  EXPECT_EQ(ZBCStringCopyWCString(buffer, sizeof buffer, nullptr), nullptr);
}

TEST(ZBCString, DuplicatesExactLengthsWithEmbeddedZeros) {
  char *narrow = ZBCStringDuplicateWithLength(nullptr, "a\0b\0c", 4);
  ASSERT_NE(narrow, nullptr);
  EXPECT_EQ(std::string(narrow, 5), std::string("a\0b\0\0", 5));
  _ZBFree(narrow);
  const std::vector<ZBWChar> units = wide({'x', 0, 'y'});
  ZBWChar *copy = ZBWCStringDuplicateWithLength(nullptr, units.data(), 3);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(Units(copy, copy + 4), (Units{'x', 0, 'y', 0}));
  _ZBFree(copy);
  EXPECT_EQ(take(ZBWCStringDuplicate(nullptr, units.data())), Units{'x'});
  EXPECT_EQ(take(_ZBCStringDuplicate("plain")), "plain");
  EXPECT_EQ(_ZBCStringDuplicate(nullptr), nullptr);
  EXPECT_EQ(ZBCStringDuplicateWithLength(nullptr, nullptr, 3), nullptr);
  EXPECT_EQ(ZBWCStringDuplicate(nullptr, nullptr), nullptr);
}

TEST(ZBCString, ConcatenatesWithEitherTextAbsent) {
  EXPECT_EQ(take(ZBCStringCreateConcatenating(nullptr, "ab", "cd")), "abcd");
  const char *only = "only";
  for (char *result : {ZBCStringCreateConcatenating(nullptr, only, nullptr),
                       ZBCStringCreateConcatenating(nullptr, nullptr, only)}) {
    EXPECT_NE(result, only); // a copy, never the argument itself
    EXPECT_EQ(take(result), "only");
  }
  EXPECT_EQ(ZBCStringCreateConcatenating(nullptr, nullptr, nullptr), nullptr);

  const std::vector<ZBWChar> first = wide({'a', 0xE9}), second = wide({'z'});
  EXPECT_EQ(take(ZBWCStringCreateConcatenating(nullptr, first.data(), second.data())),
            (Units{'a', 0xE9, 'z'}));
  ZBWChar *copy = ZBWCStringCreateConcatenating(nullptr, nullptr, second.data());
  EXPECT_NE(copy, second.data());
  EXPECT_EQ(take(copy), Units{'z'});
  EXPECT_EQ(ZBWCStringCreateConcatenating(nullptr, nullptr, nullptr), nullptr);
}

TEST(ZBCString, CopyAndConcatenateAreBoundedAndReportTheFullLength) {
  // `before` and `after` are the buffer's eight bytes.
  const struct {
    size_t (*function)(char *, const char *, size_t);
    const char *before, *source;
    size_t size, result;
    const char *after;
  } cases[] = {
      {ZBCStringCopy, "########", "hello", 4, 5, "hel\0####"},
      {ZBCStringCopy, "########", "hello", 0, 5, "########"},
      {ZBCStringCopy, "########", "hello", 6, 5, "hello\0##"},
      {ZBCStringCopy, "old\0####", nullptr, 8, 0, "\0ld\0####"},
      {ZBCStringConcatenate, "ab\0#####", "cdefgh", 8, 8, "abcdefg\0"},
      {ZBCStringConcatenate, "abcdefg\0", "xyz", 8, 10, "abcdefg\0"}, // full: nothing fits
      {ZBCStringConcatenate, "ab\0#####", "cde", 6, 5, "abcde\0##"},  // exactly fits
      // No zero within the first `size` bytes: nothing is written.
      {ZBCStringConcatenate, "abcdefgh", "xy", 4, 6, "abcdefgh"},
      {ZBCStringConcatenate, "abcdefgh", "xy", 0, 2, "abcdefgh"},
      {ZBCStringConcatenate, "ab\0#####", nullptr, 8, 2, "ab\0#####"},
  };
  for (size_t index = 0; index < std::size(cases); ++index) {
    SCOPED_TRACE(index);
    char buffer[8];
    std::memcpy(buffer, cases[index].before, sizeof buffer);
    EXPECT_EQ(cases[index].function(buffer, cases[index].source, cases[index].size),
              cases[index].result);
    EXPECT_EQ(std::string(buffer, 8), std::string(cases[index].after, 8));
  }
  EXPECT_EQ(ZBCStringCopy(nullptr, "abc", 8), 3u);
  EXPECT_EQ(ZBCStringConcatenate(nullptr, "xy", 5), 7u);
}

// Formats through a creator that takes an argument list.
template <typename Unit>
Unit *fromArguments(Unit *(*create)(ZBZone *, const char *, va_list), ZBZone *zone,
                    const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  Unit *text = create(zone, format, arguments);
  va_end(arguments);
  return text;
}

TEST(ZBString, FormatsWithTheLibrarysEngineInBothWidths) {
  EXPECT_EQ(take(ZBCStringCreateWithFormat(nullptr, "%d-%s-%zu", 42, "x", size_t(7))), "42-x-7");
  // Longer than any first guess of the engine's block.
  EXPECT_EQ(take(ZBCStringCreateWithFormat(nullptr, "%0600d|", 1)), std::string(599, '0') + "1|");
  EXPECT_EQ(ZBCStringCreateWithFormat(nullptr, nullptr), nullptr);
  EXPECT_EQ(take(ZBWCStringCreateWithFormat(nullptr, "%s=%d", "caf\xC3\xA9", 5)),
            (Units{'c', 'a', 'f', 0xE9, '=', '5'}));
  // Latin-1 arguments come through the fallback; bytes that are neither
  // UTF-8 nor Latin-1 text fail the whole result.
  EXPECT_EQ(take(ZBWCStringCreateWithFormat(nullptr, "%s", "\xE9t\xE9")), (Units{0xE9, 't', 0xE9}));
  EXPECT_EQ(ZBWCStringCreateWithFormat(nullptr, "%s", "\x85"), nullptr);
  EXPECT_EQ(ZBWCStringCreateWithFormat(nullptr, nullptr), nullptr);

  // The forms that take an argument list, in a zone of their own.
  ZBZone *zone = ZBZoneCreate(0, 0, 0, 0, "formats");
  ASSERT_NE(zone, nullptr);
  const auto createNarrow = ZBCStringCreateWithFormatAndArguments;
  const auto createWide = ZBWCStringCreateWithFormatAndArguments;
  EXPECT_EQ(take(fromArguments(createNarrow, zone, "%2$s:%1$03d", 7, "n"), zone), "n:007");
  EXPECT_EQ(fromArguments(createNarrow, zone, nullptr), nullptr);
  EXPECT_EQ(take(fromArguments(createWide, zone, "%s%d", "\xC3\xA9", 1), zone), (Units{0xE9, '1'}));
  EXPECT_EQ(fromArguments(createWide, zone, "%s", "\x85"), nullptr);
  EXPECT_EQ(fromArguments(createWide, zone, nullptr), nullptr);
  ZBZoneDestroy(zone);
}

TEST(ZBString, ResultsLiveInTheNamedZone) {
  ZBZone *zone = ZBZoneCreate(0, 0, 0, 0, "strings");
  ASSERT_NE(zone, nullptr);
  const std::vector<ZBWChar> text = wide({'w', 0xE9}), pair = wide({0xD83D, 0xDE00});
  // Freed one by one, on the zone they came from.
  EXPECT_EQ(take(ZBCStringDuplicateWithLength(zone, "single", 6), zone), "single");
  EXPECT_EQ(take(ZBWCStringDuplicate(zone, text.data()), zone), (Units{'w', 0xE9}));
  EXPECT_EQ(take(ZBCStringCreateWithFormat(zone, "%s%s", "in ", "zone"), zone), "in zone");
  EXPECT_EQ(take(ZBWCStringCreateWithFormat(zone, "%u", 12u), zone), (Units{'1', '2'}));
  // Kept until the zone goes: the zone frees them all at once.
  EXPECT_NE(_ZBCStringDuplicateWithZone(zone, "kept"), nullptr);
  EXPECT_NE(ZBCStringCreateConcatenating(zone, "a", "b"), nullptr);
  EXPECT_NE(ZBWCStringDuplicateCString(zone, "kept"), nullptr);
  EXPECT_NE(ZBCStringDuplicateWCString(zone, text.data()), nullptr);
  EXPECT_NE(ZBWCStringCreateConcatenating(zone, text.data(), text.data()), nullptr);
  // Failed conversions give their block back to the zone before returning.
  EXPECT_EQ(ZBWCStringDuplicateCString(zone, "\x85"), nullptr);
  EXPECT_EQ(ZBCStringDuplicateWCString(zone, pair.data()), nullptr);
  ZBZoneDestroy(zone);
}

// Whitespace-separated hexadecimal words ("ce ba", "03BA 1F79").
std::vector<uint32_t> hexWords(const std::string &hex) {
  std::vector<uint32_t> words;
  std::istringstream in(hex);
  for (std::string word; in >> word;)
    words.push_back(static_cast<uint32_t>(std::stoul(word, nullptr, 16)));
  return words;
}

// Units from the oracle's little-endian UTF-16 hex ("e900" is U+00E9).
Units unitsFromUTF16LEHex(const std::string &hex) {
  Units units;
  for (size_t index = 0; index + 4 <= hex.size(); index += 4)
    units.push_back(static_cast<uint16_t>(std::stoul(hex.substr(index + 2, 2) + hex.substr(index, 2),
                                                     nullptr, 16)));
  return units;
}

// The outside decoder (CPython's, strict) and this library agree on every
// valid vector whose code points lie in the Basic Multilingual Plane outside
// U+F800-U+F8FF, and on rejecting every invalid one that does not hold a
// three-byte U+D900-U+DFFF or a four-byte sequence with an F4 lead above
// U+10FFFF, which the library takes on purpose. Four-byte text keeps its
// high surrogate and the low ten bits of its low one.
TEST(ZBUTF8ToUTF16, AgreesWithAnOutsideDecoderExceptWhereItMeansTo) {
  const std::string path = zbtest::oraclePath("utf8/utf8_vectors.tsv");
  if (path.empty())
    GTEST_SKIP() << "reference data utf8/utf8_vectors.tsv not found under ZB_ORACLES_DIR";
  std::istringstream table(zbtest::readFile(path));
  // Three-byte U+D900-U+DFFF and F4 leads above U+10FFFF.
  const std::regex keptOnPurpose("ed [ab]|f4 [9ab]");
  size_t agreed = 0, rejected = 0, kept = 0, supplementary = 0;
  bool header = true;
  for (std::string line; std::getline(table, line);) {
    if (line.empty() || line[0] == '#' || std::exchange(header, false))
      continue;
    std::vector<std::string> fields;
    std::istringstream columns(line);
    for (std::string field; std::getline(columns, field, '\t');)
      fields.push_back(field);
    ASSERT_GE(fields.size(), 12u) << line;
    SCOPED_TRACE(fields[0] + " " + fields[2]);
    const std::string &hex = fields[3];
    std::string bytes;
    for (uint32_t byte : hexWords(hex))
      bytes.push_back(static_cast<char>(byte));
    const Decoded strict = toUTF16(bytes, 0);
    EXPECT_LE(strict.units.size(), bytes.size());
    if (fields[4] != "1") {
      if (std::regex_search(hex, keptOnPurpose) && strict.errors == 0) {
        ++kept;
        continue;
      }
      EXPECT_GT(strict.errors, 0u);
      ++rejected;
      continue;
    }
    const std::vector<uint32_t> codePoints = hexWords(fields[7]);
    const Units expected = unitsFromUTF16LEHex(fields[10]);
    bool basicPlane = true, privateTop = false;
    for (uint32_t codePoint : codePoints) {
      basicPlane = basicPlane && codePoint < 0x10000;
      privateTop = privateTop || (codePoint >= 0xF800 && codePoint <= 0xF8FF);
    }
    EXPECT_EQ(toUTF16(bytes, ZBUTFFlagLatin1Fallback).units, strict.units);
    if (basicPlane && !privateTop) {
      EXPECT_EQ(strict.errors, 0u);
      EXPECT_EQ(strict.units, expected);
      ++agreed;
    } else if (codePoints.size() == 1 && codePoints[0] >= 0x10000) {
      ++supplementary;
      if (codePoints[0] >= 0x100000) { // F4 lead: below 0x10000 once bit 20 is gone
        EXPECT_EQ(strict.errors, 1u);
        EXPECT_TRUE(strict.units.empty());
        continue;
      }
      ASSERT_EQ(strict.units.size(), 2u);
      EXPECT_EQ(strict.errors, 0u);
      EXPECT_EQ(strict.units[0], expected[0]);
      EXPECT_EQ(strict.units[1] & 0x3FF, expected[1] & 0x3FF);
    }
  }
  EXPECT_GT(agreed, 300u);
  EXPECT_GT(rejected, 300u);
  EXPECT_GT(kept, 10u);
  EXPECT_GT(supplementary, 3u);
  std::printf("[ oracle  ] %zu agreed, %zu rejected, %zu kept on purpose, %zu supplementary\n",
              agreed, rejected, kept, supplementary);
}

// Markus Kuhn's decoder stress test: every malformed sequence is survived,
// counted, and followed by immediate resynchronisation (no line is lost).
TEST(ZBUTF8ToUTF16, SurvivesTheDecoderStressTest) {
  const std::string path = zbtest::oraclePath("utf8/UTF-8-test.txt");
  if (path.empty())
    GTEST_SKIP() << "reference data utf8/UTF-8-test.txt not found under ZB_ORACLES_DIR";
  const std::string text = zbtest::readFile(path);
  ASSERT_GT(text.size(), 20000u);
  const size_t lines = size_t(std::count(text.begin(), text.end(), '\n'));
  const size_t highBytes = size_t(std::count_if(
      text.begin(), text.end(), [](char byte) { return static_cast<uint8_t>(byte) >= 0x80; }));
  // The last line, "THE END", is plain ASCII and must come through whole.
  const std::string lastLine = text.substr(text.size() - 80);
  ASSERT_EQ(lastLine.compare(0, 7, "THE END"), 0);
  for (uint32_t flags : {0u, uint32_t(ZBUTFFlagLatin1Fallback)}) {
    SCOPED_TRACE(flags);
    const Decoded decoded = toUTF16(text, flags);
    EXPECT_GT(decoded.errors, 50u);
    EXPECT_LT(decoded.errors, highBytes);
    EXPECT_LT(decoded.units.size(), text.size());
    EXPECT_EQ(size_t(std::count(decoded.units.begin(), decoded.units.end(), '\n')), lines);
    EXPECT_EQ(Units(decoded.units.end() - 80, decoded.units.end()),
              Units(lastLine.begin(), lastLine.end()));
  }
}

} // namespace

// The converters take ASCII 16 and 32 bytes (8 and 32 units) at a time and
// write unchecked into a destination with room for the worst case: runs
// around those sizes, ending in each kind of sequence, must come out as
// the plain converter gives them, into a roomy destination and a tight one.
TEST(ZBUTF8ToUTF16, BlockPathsAgreeWithThePlainConverterAtBlockEdges) {
  static const char *const kEnds[] = {
      "\xC3\xA9", "\xE4\xB8\xAD", "\xF0\x9D\x84\x9E", "\xFF", "\xE4\xB8",
      "\xC0\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\x85", "\xA9x",
      "\xC3",     "\xEF\xBF\xBFz"};
  const size_t kRuns[] = {0, 1, 7, 8, 9, 14, 15, 16, 17, 30, 31, 32, 33, 47, 63, 64, 65};
  for (size_t run : kRuns)
    for (const char *end : kEnds)
      for (size_t after : {size_t(0), size_t(1), size_t(17), size_t(40)}) {
        const std::string text = std::string(run, 'a') + end + std::string(after, 'b') + end;
        for (uint32_t flags : {0u, uint32_t(ZBUTFFlagLatin1Fallback)}) {
          SCOPED_TRACE(testing::Message() << run << " " << after << " " << flags);
          const zbtest::ReferenceUTF16 expected = zbtest::referenceUTF8ToUTF16(
              reinterpret_cast<const uint8_t *>(text.data()), text.size(), flags != 0);
          for (size_t capacity : {text.size(), expected.units.size()}) {
            std::vector<ZBWChar> out(capacity + 4, 0x5A5A);
            size_t errors = 99;
            ASSERT_EQ(ZBUTF8ToUTF16(out.data(), capacity, text.data(), text.size(), flags, &errors),
                      expected.units.size());
            EXPECT_EQ(errors, expected.errors);
            for (size_t index = 0; index < out.size(); ++index)
              ASSERT_EQ(uint16_t(out[index]),
                        index < expected.units.size() ? expected.units[index] : 0x5A5A)
                  << index;
          }
        }
      }
}

TEST(ZBUTF16ToUTF8, BlockPathsAgreeWithThePlainConverterAtBlockEdges) {
  // Units that end an ASCII run: two- and three-byte ones at their bounds,
  // both surrogate halves, and the refused top range.
  const uint16_t kEnds[] = {0x80,   0x7FF,  0x800,  0xD7FF, 0xD800, 0xDBFF,
                            0xDC00, 0xDFFF, 0xE000, 0xF7FF, 0xF800, 0xFFFF};
  const size_t kRuns[] = {0, 1, 7, 8, 9, 15, 16, 17, 31, 32, 33, 63, 64, 65};
  for (size_t run : kRuns)
    for (uint16_t end : kEnds)
      for (size_t after : {size_t(0), size_t(1), size_t(8), size_t(33)}) {
        SCOPED_TRACE(testing::Message() << run << " " << end << " " << after);
        std::vector<ZBWChar> units(run, 'a');
        units.push_back(end);
        units.insert(units.end(), after, 'b');
        units.push_back(end);
        std::vector<uint16_t> plain(units.begin(), units.end());
        const zbtest::ReferenceUTF8 expected =
            zbtest::referenceUTF16ToUTF8(plain.data(), plain.size());
        for (size_t capacity : {3 * units.size(), expected.bytes.size()}) {
          std::vector<char> out(capacity + 4, 'Z');
          size_t errors = 99;
          ASSERT_EQ(ZBUTF16ToUTF8(out.data(), capacity, units.data(), units.size(), 0, &errors),
                    expected.bytes.size());
          EXPECT_EQ(errors, expected.errors);
          for (size_t index = 0; index < out.size(); ++index)
            ASSERT_EQ(out[index], index < expected.bytes.size() ? expected.bytes[index] : 'Z')
                << index;
        }
      }
}
