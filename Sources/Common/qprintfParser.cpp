// The format engine's parser. It walks the format once, turning each "%"
// into a conversion directive, and assigns argument indices: positional
// ("%2$d", "%*3$d") or sequential, where each conversion advances the
// sequential index by the argument count registered for its character.
//
// The grammar is printf's with the engine's own rules: the flag loop stops
// right after a space, "-" or "0" flag; digits right after "%" that are not
// closed by "$" are a width, and then no flags are read; the "I", "I32",
// "I64" and "w" length codes are known.
#include "qprintfParser.h"

#include "qprintf.h"
#include "qprintfEngine.h"

#include <algorithm>
#include <cstring>

namespace zb::format {
namespace {

bool isDigit(unsigned char c) { return c >= '0' && c <= '9'; }

// Reads decimal digits, saturating at INT32_MAX.
int32_t readNumber(const unsigned char *&cursor) {
  int64_t value = 0;
  while (isDigit(*cursor)) {
    value = std::min<int64_t>(value * 10 + (*cursor - '0'), INT32_MAX);
    ++cursor;
  }
  return static_cast<int32_t>(value);
}

// "*" has been read. A positional form "*<n>$" names the argument;
// otherwise the next sequential argument is taken, and digits that "$" does
// not close are skipped.
uint32_t readArgumentIndex(const unsigned char *&cursor, uint64_t &sequential, bool &named) {
  const bool digits = *cursor >= '1' && *cursor <= '9';
  const int32_t position = readNumber(cursor);
  if (digits && *cursor == '$') {
    ++cursor;
    named = true;
    return static_cast<uint32_t>(position - 1);
  }
  const uint64_t index = sequential++;
  return static_cast<uint32_t>(std::min<uint64_t>(index, UINT32_MAX));
}

// Flags until one that ends the loop (space, "-", "0") or a non-flag.
uint32_t readFlags(const unsigned char *&cursor) {
  uint32_t flags = 0;
  for (;;) {
    switch (*cursor) {
    case '#':
      flags |= QPRINTF_FLAG_ALTERNATE;
      break;
    case '+':
      flags |= QPRINTF_FLAG_PLUS;
      break;
    case '\'':
      flags |= QPRINTF_FLAG_GROUPING;
      break;
    case ' ':
      ++cursor;
      return flags | QPRINTF_FLAG_SPACE;
    case '-':
      ++cursor;
      return flags | QPRINTF_FLAG_LEFT;
    case '0':
      ++cursor;
      return flags | QPRINTF_FLAG_ZERO;
    default:
      return flags;
    }
    ++cursor;
  }
}

uint8_t readLength(const unsigned char *&cursor, uint32_t flags) {
  switch (*cursor) {
  case 'h':
    if (cursor[1] == 'h') {
      cursor += 2;
      return QPRINTF_LENGTH_CHAR;
    }
    ++cursor;
    return QPRINTF_LENGTH_SHORT;
  case 'l':
    if (cursor[1] == 'l') {
      cursor += 2;
      return QPRINTF_LENGTH_INT64;
    }
    ++cursor;
    return QPRINTF_LENGTH_LONG;
  case 'q':
    ++cursor;
    return QPRINTF_LENGTH_INT64;
  case 'L':
    ++cursor;
    return QPRINTF_LENGTH_LONG_DOUBLE;
  case 'j':
    ++cursor;
    return QPRINTF_LENGTH_INTMAX;
  case 't':
    ++cursor;
    return QPRINTF_LENGTH_PTRDIFF;
  case 'z':
    ++cursor;
    return QPRINTF_LENGTH_SIZE;
  case 'w':
    ++cursor;
    if (flags & QPRINTF_FLAG_ZERO)
      return QPRINTF_LENGTH_WIDE_ZERO;
    return (flags & QPRINTF_FLAG_SPACE) ? QPRINTF_LENGTH_WIDE_SPACE : QPRINTF_LENGTH_WIDE;
  case 'I':
    // "I32" and "I64" are sized; a lone "I" (also before "3" or "6" that
    // do not complete them) is pointer-sized and consumes only itself.
    if (cursor[1] == '3' && cursor[2] == '2') {
      cursor += 3;
      return QPRINTF_LENGTH_INT32;
    }
    if (cursor[1] == '6' && cursor[2] == '4') {
      cursor += 3;
      return QPRINTF_LENGTH_INT64;
    }
    ++cursor;
    return QPRINTF_LENGTH_PTRDIFF;
  default:
    return QPRINTF_LENGTH_NONE;
  }
}

// The conversion takes its argument at its own position, or where the
// sequential index stands now (after any "*" arguments before it); the
// sequential index moves past the arguments it takes.
void takeArgument(ConversionDirective &directive, bool ownPosition, uint32_t position,
                  uint64_t &sequential) {
  directive.argument = ownPosition ? position
                              : static_cast<uint32_t>(std::min<uint64_t>(sequential, UINT32_MAX));
  const int32_t count =
      directive.conversion != '\0' ? qprintf_modifier_table[directive.conversion].count : 0;
  if (count > 0)
    sequential = uint64_t(directive.argument) + uint64_t(count);
}

// The first byte at or after `text` that is zero or, when `alsoPercent`,
// "%". A word at a time: most runs the engine scans are short, where the
// set-up of the C library's vector scans costs more than the scan. The
// loads are aligned, so they never reach into a page the string does not;
// the bytes read around it are never used (which is also why the address
// sanitizer is told to let them be).
#if defined(__GNUC__) || defined(__clang__)
__attribute__((no_sanitize_address))
#endif
const char *scan(const char *text, bool alsoPercent) {
  constexpr uint64_t kOnes = 0x0101010101010101ULL;
  constexpr uint64_t kHighs = 0x8080808080808080ULL;
  const uint64_t stops = kOnes * (alsoPercent ? uint64_t('%') : 0);
  // The first word starts before `text`: its leading bytes are set to 0xFF,
  // which matches nothing.
  const size_t offset = reinterpret_cast<uintptr_t>(text) & 7;
  const char *word = text - offset;
  uint64_t before = offset == 0 ? 0 : ~uint64_t(0) >> (64 - 8 * offset);
  for (;; word += 8, before = 0) {
    uint64_t bytes;
    std::memcpy(&bytes, word, sizeof bytes);
    bytes |= before;
    const uint64_t marked = bytes ^ stops;
    // The lowest byte flagged is the first match (x86 is little-endian).
    const uint64_t found =
        ((bytes - kOnes) & ~bytes & kHighs) | ((marked - kOnes) & ~marked & kHighs);
    if (found != 0)
      return word + (__builtin_ctzll(found) >> 3);
  }
}

} // namespace

const char *scanPercentOrEnd(const char *text) noexcept { return scan(text, true); }

size_t textLength(const char *text) noexcept { return size_t(scan(text, false) - text); }

ConversionDirective parseDirective(const char *percent, uint64_t &sequential) noexcept {
  ConversionDirective directive{};
  directive.start = percent;
  directive.precision = -1;
  const auto *cursor = reinterpret_cast<const unsigned char *>(percent) + 1;
  if (isBareConversion(*cursor)) {
    directive.conversion = *cursor;
    directive.resume = percent + 2;
    takeArgument(directive, false, 0, sequential);
    return directive;
  }
  bool ownPosition = false;
  uint32_t position = 0;
  bool widthDone = false;

  if (*cursor >= '1' && *cursor <= '9') {
    const int32_t number = readNumber(cursor);
    if (*cursor == '$') {
      ++cursor;
      ownPosition = true;
      position = static_cast<uint32_t>(number - 1);
      sequential = position;
    } else {
      directive.width = number; // a width: no flags follow
      widthDone = true;
    }
  }
  if (!widthDone) {
    directive.flags = readFlags(cursor);
    while (*cursor == '0' || *cursor == ' ')
      ++cursor;
    if (*cursor == '*') {
      ++cursor;
      directive.widthFromArgument = true;
      directive.width = static_cast<int32_t>(
          std::min<uint32_t>(readArgumentIndex(cursor, sequential, directive.positional), INT32_MAX));
    } else {
      directive.width = readNumber(cursor);
    }
  }
  if (*cursor == '.') {
    ++cursor;
    if (*cursor == '*') {
      ++cursor;
      directive.precisionFromArgument = true;
      directive.precision = static_cast<int32_t>(
          std::min<uint32_t>(readArgumentIndex(cursor, sequential, directive.positional), INT32_MAX));
    } else {
      directive.precision = readNumber(cursor);
    }
  }
  directive.length = readLength(cursor, directive.flags);
  directive.conversion = *cursor;
  if (*cursor != '\0')
    ++cursor;
  directive.resume = reinterpret_cast<const char *>(cursor);

  directive.positional = directive.positional || ownPosition;
  takeArgument(directive, ownPosition, position, sequential);
  return directive;
}

ParsedFormat parseFormat(const char *format, ConversionDirective *directives, size_t capacity) noexcept {
  ParsedFormat parsed{0, 0};
  uint64_t sequential = 0;
  const char *text = format;
  while (*(text = findPercentOrEnd(text)) == '%') {
    const ConversionDirective directive = parseDirective(text, sequential);
    if (parsed.directives < capacity)
      directives[parsed.directives] = directive;
    ++parsed.directives;

    if (directive.widthFromArgument)
      parsed.slots = std::max<uint64_t>(parsed.slots, uint64_t(directive.width) + 1);
    if (directive.precisionFromArgument)
      parsed.slots = std::max<uint64_t>(parsed.slots, uint64_t(directive.precision) + 1);
    if (directive.conversion != '\0' && qprintf_modifier_table[directive.conversion].count > 0)
      parsed.slots = std::max<uint64_t>(parsed.slots, uint64_t(directive.argument) + 1);
    if (directive.conversion == '\0')
      break;
    text = directive.resume;
  }
  return parsed;
}

} // namespace zb::format
