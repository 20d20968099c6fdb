// Narrow and wide strings and the UTF converters: the converters' exact
// treatment of bad input (the kept behaviours included), capacity handling,
// bounded copy and append, concatenation, zones, and agreement with an
// outside UTF-8 decoder on the vectors where the library means to agree.
#include "ZBTestSupport.h"

#include "Zenbor.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

namespace {

using Units = std::vector<uint16_t>;

struct Decoded {
  Units units;
  size_t errors;
};

Decoded toUTF16(const std::string &bytes, uint32_t flags) {
  size_t errors = 99;
  const size_t needed = ZBUTF8ToUTF16(nullptr, 0, bytes.data(), bytes.size(), flags, &errors);
  std::vector<ZBWChar> out(needed + 1);
  size_t secondErrors = 99;
  EXPECT_EQ(ZBUTF8ToUTF16(out.data(), needed, bytes.data(), bytes.size(), flags, &secondErrors),
            needed);
  EXPECT_EQ(secondErrors, errors);
  return {Units(out.begin(), out.begin() + static_cast<ptrdiff_t>(needed)), errors};
}

struct Encoded {
  std::string bytes;
  size_t errors;
};

Encoded toUTF8(const Units &units) {
  const std::vector<ZBWChar> source(units.begin(), units.end());
  size_t errors = 99;
  const size_t needed = ZBUTF16ToUTF8(nullptr, 0, source.data(), source.size(), 0, &errors);
  std::string out(needed, '\0');
  EXPECT_EQ(ZBUTF16ToUTF8(&out[0], needed, source.data(), source.size(), 0, nullptr), needed);
  return {out, errors};
}

// A zero-terminated wide text from units.
std::vector<ZBWChar> wide(const Units &units) {
  std::vector<ZBWChar> text(units.begin(), units.end());
  text.push_back(0);
  return text;
}

Units unitsOf(const ZBWChar *text) {
  Units units;
  for (; *text != 0; ++text)
    units.push_back(static_cast<uint16_t>(*text));
  return units;
}

std::string bytesFromHex(const std::string &hex) {
  std::string bytes;
  std::istringstream in(hex);
  for (std::string pair; in >> pair;)
    bytes.push_back(static_cast<char>(std::stoul(pair, nullptr, 16)));
  return bytes;
}

std::vector<std::string> splitTabs(const std::string &line) {
  std::vector<std::string> fields;
  size_t start = 0;
  for (size_t tab; (tab = line.find('\t', start)) != std::string::npos; start = tab + 1)
    fields.push_back(line.substr(start, tab - start));
  fields.push_back(line.substr(start));
  return fields;
}

// Units from the oracle's little-endian UTF-16 hex ("e900" is U+00E9).
Units unitsFromUTF16LEHex(const std::string &hex) {
  Units units;
  for (size_t index = 0; index + 4 <= hex.size(); index += 4)
    units.push_back(static_cast<uint16_t>(std::stoul(hex.substr(index + 2, 2) + hex.substr(index, 2),
                                                     nullptr, 16)));
  return units;
}

std::vector<uint32_t> codePointsFromHex(const std::string &hex) {
  std::vector<uint32_t> values;
  std::istringstream in(hex);
  for (std::string word; in >> word;)
    values.push_back(static_cast<uint32_t>(std::stoul(word, nullptr, 16)));
  return values;
}

struct DecodeCase {
  const char *bytes;
  uint32_t flags;
  Units units;
  size_t errors;
};

TEST(ZBUTF8ToUTF16, DecodesAndRejectsByTheLibrarysRules) {
  const uint32_t kFallback = ZBUTFFlagLatin1Fallback;
  const DecodeCase cases[] = {
      {"A\xC3\xA9", 0, {0x41, 0xE9}, 0},
      {"\xE9x", kFallback, {0xE9, 0x78}, 0},         // Latin-1 byte
      {"\xE9x", 0, {0x78}, 1},                       // without fallback: short sequence
      {"x\xE9", kFallback, {0x78, 0xE9}, 0},         // Latin-1 byte at the very end
      {"\xC3" "A", kFallback, {0xC3, 0x41}, 0},      // a lead byte read as Latin-1
      {"\xC3" "A", 0, {0x41}, 1},
      {"\x85", kFallback, {}, 1},                    // C1 range is never Latin-1
      {"\x85\x85", kFallback, {}, 2},                // stray continuations
      {"\xFF\x80", kFallback, {}, 2},
      {"\xC0\x80" "A", 0, {0x41}, 1},                // overlong consumed whole
      {"\xC1\xBF", 0, {}, 1},
      {"\xDF\xBF", 0, {0x7FF}, 0},
      {"\xE0\xA0\x80", 0, {0x800}, 0},
      {"\xE0\x80\xAF", 0, {}, 1},                    // overlong three bytes, one error
      {"\xED\x9F\xBF", 0, {0xD7FF}, 0},
      {"\xED\xA0\x80", 0, {}, 1},                    // U+D800 rejected
      {"\xED\xA3\xBF", 0, {}, 1},                    // U+D8FF rejected
      {"\xED\xA4\x80", 0, {0xD900}, 0},              // U+D900 passes
      {"\xED\xB0\x80", 0, {0xDC00}, 0},              // U+DC00 passes
      {"\xED\xBF\xBF", 0, {0xDFFF}, 0},
      {"\xEE\x80\x80", 0, {0xE000}, 0},
      {"\xEF\xA0\x80", 0, {}, 1},                    // U+F800 rejected
      {"\xEF\xA3\xBF", 0, {}, 1},                    // U+F8FF rejected
      {"\xEF\xA4\x80", 0, {0xF900}, 0},
      {"\xEF\xBF\xBF", 0, {0xFFFF}, 0},
      {"\xF0\x90\x80\x80", 0, {0xD800, 0xDC00}, 0},  // U+10000
      {"\xF0\x9D\x84\x9E", 0, {0xD834, 0xDD1E}, 0},  // U+1D11E
      {"\xF0\x9F\x98\x80", 0, {0xD83D, 0xFE00}, 0},  // U+1F600: bit 13 reaches the low unit
      {"\xF0\x8F\xBF\xBF", 0, {}, 1},                // overlong four bytes
      {"\xF4\x8F\xBF\xBF", 0, {}, 1},                // U+10FFFF loses bit 20: below 0x10000
      {"\xF4\x90\x80\x80", 0, {0xD800, 0xDC00}, 0},  // U+110000 reads as U+10000
      {"\xF4\xBF\x80\x80", 0, {0xD8BC, 0xFC00}, 0},  // U+13F000 read as U+3F000
      {"\xF0\x9F\xBF\xBE", 0, {0xD83F, 0xFFFE}, 0},  // U+1FFFE
      // Surrogate pairs written as two three-byte sequences (CESU-8).
      {"\xED\xA0\x80\xED\xB0\x80", 0, {0xDC00}, 1},
      {"\xED\xA0\xBD\xED\xB8\x80", 0, {0xDE00}, 1},
      {"\xF5\x80\x80\x80", 0, {}, 4},                // lead above F4, then three strays
      {"\xF8\x88\x80\x80\x80", 0, {}, 5},
      {"A\xE2\x82", 0, {0x41}, 2},                   // cut sequence: lead, then a stray
      {"A\xF0\x9F\x98", 0, {0x41}, 3},
      {"\xF0\x9F" "AB", 0, {0x41, 0x42}, 2},         // resynchronises on the ASCII
      {"\xE2\x82" "A", kFallback, {0x41}, 2},        // a continuation follows: no fallback
  };
  for (const DecodeCase &test : cases) {
    SCOPED_TRACE(::testing::PrintToString(std::string(test.bytes)));
    const Decoded decoded = toUTF16(test.bytes, test.flags);
    EXPECT_EQ(decoded.units, test.units);
    EXPECT_EQ(decoded.errors, test.errors);
  }
}

TEST(ZBUTF8ToUTF16, StoresWithinTheCapacityAndAlwaysReportsTheWholeSize) {
  // Long enough for the block-wise ASCII path, with non-ASCII and a pair
  // at awkward places.
  std::string text(37, 'a');
  text += "\xC3\xA9";
  text += std::string(20, 'b');
  text += "\xF0\x9D\x84\x9E";
  text += std::string(40, 'c');
  const Decoded whole = toUTF16(text, 0);
  ASSERT_EQ(whole.units.size(), 37u + 1 + 20 + 2 + 40);
  constexpr ZBWChar kSentinel = 0x5A5A;
  for (size_t capacity = 0; capacity <= whole.units.size() + 2; ++capacity) {
    SCOPED_TRACE(capacity);
    std::vector<ZBWChar> out(capacity + 8, kSentinel);
    size_t errors = 99;
    EXPECT_EQ(ZBUTF8ToUTF16(out.data(), capacity, text.data(), text.size(), 0, &errors),
              whole.units.size());
    EXPECT_EQ(errors, 0u);
    const size_t stored = std::min(capacity, whole.units.size());
    for (size_t index = 0; index < stored; ++index)
      ASSERT_EQ(static_cast<uint16_t>(out[index]), whole.units[index]) << index;
    for (size_t index = stored; index < out.size(); ++index)
      ASSERT_EQ(out[index], kSentinel) << "written past the output at " << index;
  }
  // A null destination only measures, whatever the capacity claims.
  EXPECT_EQ(ZBUTF8ToUTF16(nullptr, 1000, text.data(), text.size(), 0, nullptr),
            whole.units.size());
  // A null source is empty.
  size_t errors = 99;
  EXPECT_EQ(ZBUTF8ToUTF16(nullptr, 0, nullptr, 10, 0, &errors), 0u);
  EXPECT_EQ(errors, 0u);
}

TEST(ZBUTF16ToUTF8, EncodesTheBasicPlaneAndRefusesSurrogatesAndTheTopRange) {
  struct EncodeCase {
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
      {{0xDFFF}, "", 1},
      {{0xF800}, "", 1},
      {{0xFEFF, 0xFFFD, 0xFFFF}, "", 3},
      {{0x00, 0x41}, std::string("\0A", 2), 0},
  };
  for (const EncodeCase &test : cases) {
    SCOPED_TRACE(::testing::PrintToString(test.units));
    const Encoded encoded = toUTF8(test.units);
    EXPECT_EQ(encoded.bytes, test.bytes);
    EXPECT_EQ(encoded.errors, test.errors);
  }
}

TEST(ZBUTF16ToUTF8, StopsWritingAtTheFirstCharacterThatDoesNotFit) {
  const std::vector<ZBWChar> source = wide({0x41, 0xE9, 0x42, 0x20AC});
  // 'A' fits, U+00E9 needs two bytes with one left: nothing more is written,
  // not even the 'B' that would fit.
  char out[8];
  std::memset(out, '#', sizeof out);
  size_t errors = 99;
  EXPECT_EQ(ZBUTF16ToUTF8(out, 2, source.data(), 4, 0, &errors), 1u + 2 + 1 + 3);
  EXPECT_EQ(errors, 0u);
  EXPECT_EQ(std::string(out, 8), "A#######");
  // With room for exactly the first three characters.
  std::memset(out, '#', sizeof out);
  EXPECT_EQ(ZBUTF16ToUTF8(out, 6, source.data(), 4, 0, nullptr), 7u);
  EXPECT_EQ(std::string(out, 8), "A\xC3\xA9" "B####");
  // Errors take no room and do not stop the writing.
  const std::vector<ZBWChar> withError = wide({0x41, 0xD800, 0x42});
  std::memset(out, '#', sizeof out);
  EXPECT_EQ(ZBUTF16ToUTF8(out, 2, withError.data(), 3, 0, &errors), 2u);
  EXPECT_EQ(errors, 1u);
  EXPECT_EQ(std::string(out, 3), "AB#");

  // Long ASCII runs go block-wise; the cut must land in the same place.
  Units longText(40, 'a');
  longText.push_back(0xE9);
  longText.insert(longText.end(), 20, 'b');
  const std::vector<ZBWChar> longSource(longText.begin(), longText.end());
  const std::string whole = std::string(40, 'a') + "\xC3\xA9" + std::string(20, 'b');
  for (size_t capacity = 0; capacity <= whole.size() + 2; ++capacity) {
    SCOPED_TRACE(capacity);
    std::string buffer(capacity + 8, '#');
    EXPECT_EQ(ZBUTF16ToUTF8(&buffer[0], capacity, longSource.data(), longSource.size(), 0,
                            nullptr),
              whole.size());
    // With room for 41 bytes the two-byte character does not fit.
    const size_t written = capacity == 41 ? 40 : std::min(capacity, whole.size());
    EXPECT_EQ(buffer.substr(0, written), whole.substr(0, written));
    EXPECT_EQ(buffer.substr(written), std::string(buffer.size() - written, '#'));
  }
}

TEST(ZBUTF32, ConvertsWholeCodePointsBothWays) {
  const std::string bytes =
      "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF\xED\xA0\x80\xE0\x80\x80";
  size_t errors = 99;
  const size_t needed = ZBUTF8ToUTF32(nullptr, 0, bytes.data(), bytes.size(), 0, &errors);
  std::vector<uint32_t> out(needed);
  ZBUTF8ToUTF32(out.data(), needed, bytes.data(), bytes.size(), 0, nullptr);
  // No surrogate splitting, no lost lead bit, and three-byte values are not
  // checked for surrogates or overlong forms.
  EXPECT_EQ(out, (std::vector<uint32_t>{0x41, 0xE9, 0x20AC, 0x1F600, 0x10FFFF, 0xD800, 0x0}));
  EXPECT_EQ(errors, 0u);
  // The two-byte overlong check, the continuation rules and the fallback
  // are the same as for UTF-16.
  EXPECT_EQ(ZBUTF8ToUTF32(nullptr, 0, "\xC0\x80\x85\xE9x", 5, 0, &errors), 1u);
  EXPECT_EQ(errors, 3u);
  EXPECT_EQ(ZBUTF8ToUTF32(nullptr, 0, "\x85\xE9x", 3, ZBUTFFlagLatin1Fallback, &errors), 2u);
  EXPECT_EQ(errors, 1u);

  const uint32_t values[] = {0x41, 0x7FF, 0xFFFF, 0x1F600, 0x1FFFFF, 0x200000, 0x42};
  const size_t encodedSize = ZBUTF32ToUTF8(nullptr, 0, values, 7, 0, &errors);
  EXPECT_EQ(errors, 1u);
  std::string encoded(encodedSize, '\0');
  ZBUTF32ToUTF8(&encoded[0], encodedSize, values, 7, 0, nullptr);
  EXPECT_EQ(encoded, "A\xDF\xBF\xEF\xBF\xBF\xF0\x9F\x98\x80\xF7\xBF\xBF\xBF" "B");
  // Sticky truncation: the four-byte character does not fit, so the 'B'
  // after it is not written either.
  char out8[8];
  std::memset(out8, '#', sizeof out8);
  const uint32_t cut[] = {0x41, 0x1F600, 0x42};
  EXPECT_EQ(ZBUTF32ToUTF8(out8, 4, cut, 3, 0, nullptr), 6u);
  EXPECT_EQ(std::string(out8, 5), "A####");
}

TEST(ZBWCString, DuplicatesUTF8WithTheFallbackAndRefusesBadText) {
  ZBWChar *converted = ZBWCStringDuplicateCString(nullptr, "caf\xC3\xA9");
  ASSERT_NE(converted, nullptr);
  EXPECT_EQ(unitsOf(converted), (Units{'c', 'a', 'f', 0xE9}));
  _ZBFree(converted);
  converted = ZBWCStringDuplicateCString(nullptr, "caf\xE9");
  ASSERT_NE(converted, nullptr);
  EXPECT_EQ(unitsOf(converted), (Units{'c', 'a', 'f', 0xE9}));
  _ZBFree(converted);
  EXPECT_EQ(ZBWCStringDuplicateCString(nullptr, "\x85"), nullptr);
  EXPECT_EQ(ZBWCStringDuplicateCString(nullptr, "ok\xED\xA0\x80"), nullptr);
  EXPECT_EQ(ZBWCStringDuplicateCString(nullptr, nullptr), nullptr);
  // Four bytes become two units, and the length form stops where told.
  converted = ZBWCStringDuplicateCStringWithLength(nullptr, "\xF0\x9D\x84\x9E!", 4);
  ASSERT_NE(converted, nullptr);
  EXPECT_EQ(unitsOf(converted), (Units{0xD834, 0xDD1E}));
  _ZBFree(converted);
  converted = ZBWCStringDuplicateCStringWithLength(nullptr, "", 0);
  ASSERT_NE(converted, nullptr);
  EXPECT_EQ(converted[0], 0);
  _ZBFree(converted);
}

TEST(ZBCString, DuplicatesWideTextAndRefusesWhatUTF8CannotTake) {
  const std::vector<ZBWChar> text = wide({'n', 0xE9, 0x20AC});
  char *converted = ZBCStringDuplicateWCString(nullptr, text.data());
  ASSERT_NE(converted, nullptr);
  EXPECT_STREQ(converted, "n\xC3\xA9\xE2\x82\xAC");
  _ZBFree(converted);
  const std::vector<ZBWChar> pair = wide({'a', 0xD83D, 0xDE00});
  EXPECT_EQ(ZBCStringDuplicateWCString(nullptr, pair.data()), nullptr);
  EXPECT_EQ(ZBCStringDuplicateWCStringWithLength(nullptr, pair.data(), 3), nullptr);
  converted = ZBCStringDuplicateWCStringWithLength(nullptr, pair.data(), 1);
  ASSERT_NE(converted, nullptr);
  EXPECT_STREQ(converted, "a");
  _ZBFree(converted);
  EXPECT_EQ(ZBCStringDuplicateWCString(nullptr, nullptr), nullptr);

  // Into a caller's buffer: the whole text or nothing.
  char buffer[8];
  EXPECT_EQ(ZBCStringCopyWCString(buffer, sizeof buffer, text.data()), buffer);
  EXPECT_STREQ(buffer, "n\xC3\xA9\xE2\x82\xAC");
  EXPECT_EQ(ZBCStringCopyWCString(buffer, 7, text.data()), buffer);  // 6 bytes + zero
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
  EXPECT_EQ(std::memcmp(narrow, "a\0b\0", 5), 0);
  _ZBFree(narrow);
  const std::vector<ZBWChar> units = wide({'x', 0, 'y'});
  ZBWChar *copy = ZBWCStringDuplicateWithLength(nullptr, units.data(), 3);
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(Units(copy, copy + 4), (Units{'x', 0, 'y', 0}));
  _ZBFree(copy);
  copy = ZBWCStringDuplicate(nullptr, units.data());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(unitsOf(copy), Units{'x'});
  _ZBFree(copy);
  char *plain = _ZBCStringDuplicate("plain");
  ASSERT_NE(plain, nullptr);
  EXPECT_STREQ(plain, "plain");
  _ZBFree(plain);
  EXPECT_EQ(_ZBCStringDuplicate(nullptr), nullptr);
  EXPECT_EQ(ZBCStringDuplicateWithLength(nullptr, nullptr, 3), nullptr);
  EXPECT_EQ(ZBWCStringDuplicate(nullptr, nullptr), nullptr);
}

TEST(ZBCString, ConcatenatesWithEitherTextAbsent) {
  char *joined = ZBCStringCreateConcatenating(nullptr, "ab", "cd");
  ASSERT_NE(joined, nullptr);
  EXPECT_STREQ(joined, "abcd");
  _ZBFree(joined);
  const char *only = "only";
  for (char *result : {ZBCStringCreateConcatenating(nullptr, only, nullptr),
                       ZBCStringCreateConcatenating(nullptr, nullptr, only)}) {
    ASSERT_NE(result, nullptr);
    EXPECT_STREQ(result, "only");
    EXPECT_NE(result, only); // a copy, never the argument itself
    _ZBFree(result);
  }
  EXPECT_EQ(ZBCStringCreateConcatenating(nullptr, nullptr, nullptr), nullptr);

  const std::vector<ZBWChar> first = wide({'a', 0xE9}), second = wide({'z'});
  ZBWChar *wideJoined = ZBWCStringCreateConcatenating(nullptr, first.data(), second.data());
  ASSERT_NE(wideJoined, nullptr);
  EXPECT_EQ(unitsOf(wideJoined), (Units{'a', 0xE9, 'z'}));
  _ZBFree(wideJoined);
  wideJoined = ZBWCStringCreateConcatenating(nullptr, nullptr, second.data());
  ASSERT_NE(wideJoined, nullptr);
  EXPECT_EQ(unitsOf(wideJoined), Units{'z'});
  EXPECT_NE(wideJoined, second.data());
  _ZBFree(wideJoined);
  EXPECT_EQ(ZBWCStringCreateConcatenating(nullptr, nullptr, nullptr), nullptr);
}

TEST(ZBCString, CopyIsBoundedAndReportsTheSourceLength) {
  char buffer[8];
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(ZBCStringCopy(buffer, "hello", 4), 5u);
  EXPECT_STREQ(buffer, "hel");
  EXPECT_EQ(buffer[4], '#');
  std::memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(ZBCStringCopy(buffer, "hello", 0), 5u);
  EXPECT_EQ(buffer[0], '#');
  EXPECT_EQ(ZBCStringCopy(buffer, "hello", 6), 5u);
  EXPECT_STREQ(buffer, "hello");
  EXPECT_EQ(ZBCStringCopy(buffer, "", 8), 0u);
  EXPECT_STREQ(buffer, "");
  std::strcpy(buffer, "old");
  EXPECT_EQ(ZBCStringCopy(buffer, nullptr, 8), 0u);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(ZBCStringCopy(nullptr, "abc", 8), 3u);
}

TEST(ZBCString, ConcatenateIsBoundedAndReportsTheFullLength) {
  char buffer[8] = "ab";
  EXPECT_EQ(ZBCStringConcatenate(buffer, "cdefgh", sizeof buffer), 8u);
  EXPECT_STREQ(buffer, "abcdefg");
  EXPECT_EQ(ZBCStringConcatenate(buffer, "xyz", sizeof buffer), 10u); // full: nothing fits
  EXPECT_STREQ(buffer, "abcdefg");
  std::strcpy(buffer, "ab");
  EXPECT_EQ(ZBCStringConcatenate(buffer, "cde", 6), 5u); // exactly fits
  EXPECT_STREQ(buffer, "abcde");
  // No zero within the first `size` bytes: nothing is written.
  std::memcpy(buffer, "abcdefgh", 8);
  EXPECT_EQ(ZBCStringConcatenate(buffer, "xy", 4), 6u);
  EXPECT_EQ(std::memcmp(buffer, "abcdefgh", 8), 0);
  EXPECT_EQ(ZBCStringConcatenate(buffer, "xy", 0), 2u);
  EXPECT_EQ(ZBCStringConcatenate(nullptr, "xy", 5), 7u);
  std::strcpy(buffer, "ab");
  EXPECT_EQ(ZBCStringConcatenate(buffer, nullptr, sizeof buffer), 2u);
  EXPECT_STREQ(buffer, "ab");
}

char *formatNarrow(ZBZone *zone, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char *result = ZBCStringCreateWithFormatAndArguments(zone, format, arguments);
  va_end(arguments);
  return result;
}

TEST(ZBString, FormatsWithTheLibrarysEngineInBothWidths) {
  char *text = ZBCStringCreateWithFormat(nullptr, "%d-%s-%zu", 42, "x", size_t(7));
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "42-x-7");
  _ZBFree(text);
  text = formatNarrow(nullptr, "[%5s|%-4d]", "ab", 9);
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "[   ab|9   ]");
  _ZBFree(text);
  // Longer than any first guess of the engine's block.
  text = ZBCStringCreateWithFormat(nullptr, "%0600d|", 1);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::strlen(text), 601u);
  EXPECT_EQ(std::string(text).substr(597), "001|");
  _ZBFree(text);
  EXPECT_EQ(formatNarrow(nullptr, nullptr), nullptr);

  ZBWChar *wideText = ZBWCStringCreateWithFormat(nullptr, "%s=%d", "caf\xC3\xA9", 5);
  ASSERT_NE(wideText, nullptr);
  EXPECT_EQ(unitsOf(wideText), (Units{'c', 'a', 'f', 0xE9, '=', '5'}));
  _ZBFree(wideText);
  // Latin-1 arguments come through the fallback; bytes that are neither
  // UTF-8 nor Latin-1 text fail the whole result.
  wideText = ZBWCStringCreateWithFormat(nullptr, "%s", "\xE9t\xE9");
  ASSERT_NE(wideText, nullptr);
  EXPECT_EQ(unitsOf(wideText), (Units{0xE9, 't', 0xE9}));
  _ZBFree(wideText);
  EXPECT_EQ(ZBWCStringCreateWithFormat(nullptr, "%s", "\x85"), nullptr);
  EXPECT_EQ(ZBWCStringCreateWithFormat(nullptr, nullptr), nullptr);

  ZBZone *zone = ZBZoneCreate(0, 0, 0, 0, "formatted");
  ASSERT_NE(zone, nullptr);
  text = ZBCStringCreateWithFormat(zone, "%s%s", "in ", "zone");
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "in zone");
  wideText = ZBWCStringCreateWithFormat(zone, "%u", 12u);
  ASSERT_NE(wideText, nullptr);
  EXPECT_EQ(unitsOf(wideText), (Units{'1', '2'}));
  _ZBFreeWithZone(zone, wideText);
  ZBZoneDestroy(zone); // frees `text`
}

TEST(ZBString, ResultsLiveInTheNamedZone) {
  ZBZone *zone = ZBZoneCreate(0, 0, 0, 0, "strings");
  ASSERT_NE(zone, nullptr);
  const std::vector<ZBWChar> text = wide({'w', 0xE9});
  const std::vector<ZBWChar> pair = wide({0xD83D, 0xDE00});
  // Kept until the zone goes: the zone frees them all at once.
  EXPECT_NE(_ZBCStringDuplicateWithZone(zone, "kept"), nullptr);
  EXPECT_NE(ZBCStringCreateConcatenating(zone, "a", "b"), nullptr);
  EXPECT_NE(ZBWCStringDuplicateCString(zone, "kept"), nullptr);
  EXPECT_NE(ZBCStringDuplicateWCString(zone, text.data()), nullptr);
  EXPECT_NE(ZBWCStringCreateConcatenating(zone, text.data(), text.data()), nullptr);
  // Freed one by one, on the zone they came from.
  char *single = ZBCStringDuplicateWithLength(zone, "single", 6);
  ASSERT_NE(single, nullptr);
  _ZBFreeWithZone(zone, single);
  ZBWChar *wideSingle = ZBWCStringDuplicate(zone, text.data());
  ASSERT_NE(wideSingle, nullptr);
  _ZBFreeWithZone(zone, wideSingle);
  // Failed conversions give their block back to the zone before returning.
  EXPECT_EQ(ZBWCStringDuplicateCString(zone, "\x85"), nullptr);
  EXPECT_EQ(ZBCStringDuplicateWCString(zone, pair.data()), nullptr);
  ZBZoneDestroy(zone);
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
  size_t agreed = 0, rejected = 0, kept = 0, supplementary = 0;
  bool header = true;
  for (std::string line; std::getline(table, line);) {
    if (line.empty() || line[0] == '#')
      continue;
    if (header) {
      header = false;
      continue;
    }
    const std::vector<std::string> fields = splitTabs(line);
    ASSERT_GE(fields.size(), 12u) << line;
    SCOPED_TRACE(fields[0] + " " + fields[2]);
    const std::string bytes = bytesFromHex(fields[3]);
    const bool valid = fields[4] == "1";
    const Decoded strict = toUTF16(bytes, 0);
    const Decoded lenient = toUTF16(bytes, ZBUTFFlagLatin1Fallback);
    EXPECT_LE(strict.units.size(), bytes.size());
    if (!valid) {
      const std::string &hex = fields[3];
      const bool keptOnPurpose =
          hex.find("ed a") != std::string::npos || hex.find("ed b") != std::string::npos ||
          hex.find("f4 9") != std::string::npos || hex.find("f4 a") != std::string::npos ||
          hex.find("f4 b") != std::string::npos;
      if (keptOnPurpose && strict.errors == 0) {
        ++kept;
        continue;
      }
      EXPECT_GT(strict.errors, 0u);
      ++rejected;
      continue;
    }
    const std::vector<uint32_t> codePoints = codePointsFromHex(fields[7]);
    const Units expected = unitsFromUTF16LEHex(fields[10]);
    bool basicPlane = true, privateTop = false;
    for (uint32_t codePoint : codePoints) {
      basicPlane = basicPlane && codePoint < 0x10000;
      privateTop = privateTop || (codePoint >= 0xF800 && codePoint <= 0xF8FF);
    }
    EXPECT_EQ(lenient.units, strict.units);
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

// Valid text of U+0000-U+D7FF and U+E000-U+F7FF goes to UTF-16 and back
// unchanged.
TEST(ZBUTF8ToUTF16, RoundTripsTheConvertibleBasicPlane) {
  std::string text;
  for (uint32_t codePoint = 0; codePoint < 0xF800; codePoint += 7) {
    if (codePoint >= 0xD800 && codePoint < 0xE000)
      continue;
    char encoded[4];
    const size_t length = ZBUTF32ToUTF8(encoded, sizeof encoded, &codePoint, 1, 0, nullptr);
    text.append(encoded, length);
  }
  const Decoded decoded = toUTF16(text, ZBUTFFlagLatin1Fallback);
  EXPECT_EQ(decoded.errors, 0u);
  const Encoded back = toUTF8(decoded.units);
  EXPECT_EQ(back.errors, 0u);
  EXPECT_EQ(back.bytes, text);
}

// Markus Kuhn's decoder stress test: every malformed sequence is survived,
// counted, and followed by immediate resynchronisation (no line is lost).
TEST(ZBUTF8ToUTF16, SurvivesTheDecoderStressTest) {
  const std::string path = zbtest::oraclePath("utf8/UTF-8-test.txt");
  if (path.empty())
    GTEST_SKIP() << "reference data utf8/UTF-8-test.txt not found under ZB_ORACLES_DIR";
  const std::string text = zbtest::readFile(path);
  ASSERT_GT(text.size(), 20000u);
  size_t highBytes = 0, lines = 0;
  for (char byte : text) {
    highBytes += static_cast<uint8_t>(byte) >= 0x80;
    lines += byte == '\n';
  }
  for (uint32_t flags : {0u, uint32_t(ZBUTFFlagLatin1Fallback)}) {
    SCOPED_TRACE(flags);
    const Decoded decoded = toUTF16(text, flags);
    EXPECT_GT(decoded.errors, 50u);
    EXPECT_LT(decoded.errors, highBytes);
    EXPECT_LT(decoded.units.size(), text.size());
    size_t decodedLines = 0;
    for (uint16_t unit : decoded.units)
      decodedLines += unit == '\n';
    EXPECT_EQ(decodedLines, lines);
    // The last line, "THE END", is plain ASCII and must come through whole.
    const std::string lastLine = text.substr(text.size() - 80);
    ASSERT_EQ(lastLine.compare(0, 7, "THE END"), 0);
    EXPECT_EQ(Units(decoded.units.end() - 80, decoded.units.end()),
              Units(lastLine.begin(), lastLine.end()));
  }
}

} // namespace
