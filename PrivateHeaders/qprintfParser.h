// The format engine's parser: turns a format into conversion
// directives and tells how many argument slots they need.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zb::format {

// The engine refuses formats that need more argument slots or conversion
// records than this: beyond any real call, and they keep a hostile format
// from asking for gigabytes of records.
constexpr uint64_t kMaxArgumentSlots = 65536;
constexpr uint64_t kMaxSpecifications = uint64_t(1) << 22;

struct ConversionDirective {
  const char *start;  // the "%"
  const char *resume; // the first byte after the directive
  int32_t width;      // or the width argument's index
  int32_t precision;  // or the precision argument's index; -1 when absent
  uint32_t argument;  // the conversion's argument index
  uint32_t flags;     // QPRINTF_FLAG_ bits
  uint8_t length;     // QPRINTF_LENGTH_ code
  bool widthFromArgument;
  bool precisionFromArgument;
  bool positional; // it names an argument with "$" (itself or a "*")
  unsigned char conversion; // 0 when the format ends inside the directive
};

struct ParsedFormat {
  uint64_t directives; // all of them, also those beyond the capacity
  uint64_t slots;          // highest argument index used, plus one
};

// Bytes that can follow "%" before the conversion character: flags,
// digits, "*", ".", length letters, and the end of the format.
inline constexpr auto kStartsField = [] {
  std::array<uint8_t, 256> table{};
  for (const char c : std::string_view(" 0123456789#-+'*.hlqLjtzwI"))
    table[static_cast<unsigned char>(c)] = 1;
  table[0] = 1;
  return table;
}();

// True when `c`, right after "%", is the conversion itself: the common
// "%d", with no flags, width, precision or length.
inline bool isBareConversion(unsigned char c) { return kStartsField[c] == 0; }

// The first "%" at or after `text`, or its terminating zero, found by a
// scan a word at a time.
const char *scanPercentOrEnd(const char *text) noexcept;

// As scanPercentOrEnd. Directives often follow each other or end the
// format ("%d%s", a lone "%e"), and those need no scan at all.
inline const char *findPercentOrEnd(const char *text) noexcept {
  return *text == '%' || *text == '\0' ? text : scanPercentOrEnd(text);
}
// strlen for the short texts the engine mostly sees.
size_t textLength(const char *text) noexcept;

// Parses the directive whose "%" is at `percent`. `sequential` is the
// next sequential argument index; it is moved past the arguments the
// directive takes. Argument counts come from the modifier table, so the
// parse reflects the registrations.
ConversionDirective parseDirective(const char *percent, uint64_t &sequential) noexcept;

// Parses `format` into at most `capacity` directives.
ParsedFormat parseFormat(const char *format, ConversionDirective *directives, size_t capacity) noexcept;

} // namespace zb::format
