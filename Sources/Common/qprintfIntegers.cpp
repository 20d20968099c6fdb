// The format engine's integer conversions: d, i and D (signed), u, U, o, O,
// x and X (unsigned), and p.
//
// Widths follow the length code with the engine's rules: "l" is 32 bits as
// on Windows; "ll", "q", "I64" and "j" are 64; "z", "t" and "I" are as wide
// as a pointer on this 64-bit target; D, O and U always take an int.
//
// The text is C's: sign (signed conversions only) or "0x", then zeros up to
// the precision (which counts digits only) or, with the "0" flag and no
// precision, up to the width, then the digits; spaces pad the rest of the
// width. The space flag adds nothing and "#" gives octal no "0", on purpose.
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include <climits>
#include <clocale>
#include <cstring>

namespace zb::format {
namespace {

constexpr char kDigitPairs[] = "00010203040506070809101112131415161718192021222324252627282930313233"
                               "34353637383940414243444546474849505152535455565758596061626364656667"
                               "6869707172737475767778798081828384858687888990919293949596979899";
constexpr size_t kMaxSeparatorLength = 8;
// 20 decimal digits and 19 separators, or 22 octal digits.
constexpr size_t kDigitBufferSize = 20 + 19 * kMaxSeparatorLength;
// Zeros up to this many are written in the same run as the digits.
constexpr size_t kInlineZeros = 64;

bool isSignedConversion(unsigned char conversion) {
  return conversion == 'd' || conversion == 'i' || conversion == 'D';
}

// Writes the digits of `value` so that they end at `end`; returns their start.
char *decimalDigits(uint64_t value, char *end) {
  char *cursor = end;
  while (value >= 100) {
    const unsigned pair = static_cast<unsigned>(value % 100) * 2;
    value /= 100;
    cursor -= 2;
    cursor[0] = kDigitPairs[pair];
    cursor[1] = kDigitPairs[pair + 1];
  }
  if (value >= 10) {
    cursor -= 2;
    cursor[0] = kDigitPairs[value * 2];
    cursor[1] = kDigitPairs[value * 2 + 1];
  } else {
    *--cursor = static_cast<char>('0' + value);
  }
  return cursor;
}

char *powerOfTwoDigits(uint64_t value, unsigned shift, const char *digitSet, char *end) {
  const uint64_t mask = (uint64_t(1) << shift) - 1;
  char *cursor = end;
  do {
    *--cursor = digitSet[value & mask];
    value >>= shift;
  } while (value != 0);
  return cursor;
}

// Decimal digits with the locale's thousands separator placed by its
// grouping: each byte the size of the next group leftwards, the last one
// repeating, CHAR_MAX (or a size below 1) ending the grouping.
char *groupedDigits(uint64_t value, char *end) {
  const lconv *locale = std::localeconv();
  const char *separator = locale != nullptr ? locale->thousands_sep : nullptr;
  const char *group = locale != nullptr ? locale->grouping : nullptr;
  const size_t separatorLength = separator != nullptr ? std::strlen(separator) : 0;
  if (separatorLength == 0 || separatorLength > kMaxSeparatorLength || group == nullptr)
    return decimalDigits(value, end);

  auto sizeOf = [](char size) { return size == CHAR_MAX || size < 1 ? 0 : int(size); };
  int groupSize = sizeOf(*group);
  int inGroup = 0;
  char *cursor = end;
  do {
    if (groupSize > 0 && inGroup == groupSize) {
      cursor -= separatorLength;
      std::memcpy(cursor, separator, separatorLength);
      inGroup = 0;
      if (group[1] != '\0')
        groupSize = sizeOf(*++group);
    }
    *--cursor = static_cast<char>('0' + value % 10);
    value /= 10;
    ++inGroup;
  } while (value != 0);
  return cursor;
}

unsigned decimalCount(uint64_t value) {
  unsigned count = 1;
  for (;;) {
    if (value < 10)
      return count;
    if (value < 100)
      return count + 1;
    if (value < 1000)
      return count + 2;
    if (value < 10000)
      return count + 3;
    value /= 10000;
    count += 4;
  }
}

// How many digits writeDigits writes.
size_t countDigits(uint64_t value, unsigned char conversion) {
  const unsigned bits = 64 - unsigned(__builtin_clzll(value | 1));
  switch (conversion) {
  case 'x':
  case 'X':
    return (bits + 3) / 4;
  case 'o':
  case 'O':
    return (bits + 2) / 3;
  default:
    return decimalCount(value);
  }
}

// The digits of `value` in the conversion's base, ending at `end`; returns
// their start.
char *writeDigits(uint64_t value, unsigned char conversion, char *end) {
  switch (conversion) {
  case 'x':
    return powerOfTwoDigits(value, 4, "0123456789abcdef", end);
  case 'X':
    return powerOfTwoDigits(value, 4, "0123456789ABCDEF", end);
  case 'o':
  case 'O':
    return powerOfTwoDigits(value, 3, "01234567", end);
  default:
    return decimalDigits(value, end);
  }
}

} // namespace

int fetchInteger(va_list *arguments, qprintf_info *info) noexcept {
  const unsigned char conversion = info->conversion;
  const bool isSigned = isSignedConversion(conversion);
  int64_t value;
  if (conversion == 'p') {
    value = static_cast<int64_t>(reinterpret_cast<uintptr_t>(va_arg(*arguments, void *)));
  } else if (conversion == 'D' || conversion == 'O' || conversion == 'U') {
    // The "long" forms: always one int, whatever the length code.
    value = isSigned ? int64_t(va_arg(*arguments, int)) : int64_t(va_arg(*arguments, unsigned));
  } else {
    switch (info->length) {
    case QPRINTF_LENGTH_INT64:
    case QPRINTF_LENGTH_INTMAX:
      value = static_cast<int64_t>(va_arg(*arguments, long long));
      break;
    case QPRINTF_LENGTH_PTRDIFF:
    case QPRINTF_LENGTH_SIZE:
      // Pointer-sized on this 64-bit target.
      value = static_cast<int64_t>(va_arg(*arguments, ptrdiff_t));
      break;
    case QPRINTF_LENGTH_WIDE:
      value = va_arg(*arguments, int); // always sign-extended
      break;
    case QPRINTF_LENGTH_SHORT: {
      const int word = va_arg(*arguments, int);
      value = isSigned ? int64_t(int16_t(word)) : int64_t(uint16_t(word));
      break;
    }
    case QPRINTF_LENGTH_CHAR: {
      const int word = va_arg(*arguments, int);
      value = isSigned ? int64_t(int8_t(word)) : int64_t(uint8_t(word));
      break;
    }
    default:
      value = isSigned ? int64_t(va_arg(*arguments, int)) : int64_t(va_arg(*arguments, unsigned));
      break;
    }
  }
  info->value.integer = value;
  return 0;
}

int renderInteger(qprintf_info *info) noexcept {
  const unsigned char conversion = info->conversion;
  const uint32_t flags = info->flags;
  const int64_t value = info->value.integer;
  const bool negative = isSignedConversion(conversion) && value < 0;
  const uint64_t magnitude = negative ? 0 - uint64_t(value) : uint64_t(value);
  const bool hex = conversion == 'x' || conversion == 'X';
  const bool grouped = (flags & QPRINTF_FLAG_GROUPING) && !hex && conversion != 'o' &&
                       conversion != 'O';
  // C prints no digits for a zero value at precision 0.
  const bool noDigits = magnitude == 0 && info->precision == 0;

  char prefix[2];
  size_t prefixLength = 0;
  if (negative)
    prefix[prefixLength++] = '-';
  else if (isSignedConversion(conversion) && (flags & QPRINTF_FLAG_PLUS))
    prefix[prefixLength++] = '+';
  else if (hex && (flags & QPRINTF_FLAG_ALTERNATE) && magnitude != 0) {
    prefix[prefixLength++] = '0';
    prefix[prefixLength++] = static_cast<char>(conversion);
  }

  // The usual case, no width: the text goes straight into the sink's room.
  qprintf_sink *sink = info->sink;
  if (info->width == 0 && !grouped) {
    const size_t digitCount = noDigits ? 0 : countDigits(magnitude, conversion);
    const size_t zeros = info->precision > 0 && size_t(info->precision) > digitCount
                             ? size_t(info->precision) - digitCount
                             : 0;
    const size_t length = prefixLength + zeros + digitCount;
    if (length > 0 && zeros <= kInlineZeros && size_t(sink->limit - sink->cursor) >= length) {
      char *text = sink->cursor;
      copyRun(text, prefix, prefixLength);
      std::memset(text + prefixLength, '0', zeros);
      if (!noDigits)
        writeDigits(magnitude, conversion, text + length);
      sink->cursor += length;
      sink->count += int64_t(length);
      return static_cast<unsigned char>(text[length - 1]);
    }
  }

  // Room for zeros and a prefix before the digits.
  char buffer[2 + kInlineZeros + kDigitBufferSize];
  char *end = buffer + sizeof buffer;
  char *digits = end;
  if (!noDigits)
    digits = grouped ? groupedDigits(magnitude, end) : writeDigits(magnitude, conversion, end);
  const size_t digitCount = size_t(end - digits);

  size_t zeros = 0;
  if (info->precision >= 0) {
    zeros = size_t(info->precision) > digitCount ? size_t(info->precision) - digitCount : 0;
  } else if ((flags & QPRINTF_FLAG_ZERO) && info->width > 0) {
    const size_t used = digitCount + prefixLength;
    zeros = size_t(info->width) > used ? size_t(info->width) - used : 0;
  }
  if (zeros <= kInlineZeros) {
    // The whole text in one run before the digits.
    char *start = digits - zeros - prefixLength;
    std::memset(digits - zeros, '0', zeros);
    copyRun(start, prefix, prefixLength);
    return writeText(*info, start, size_t(end - start));
  }
  const Piece pieces[] = {textPiece(prefix, prefixLength), fillPiece('0', zeros),
                          textPiece(digits, digitCount)};
  return writeField(*info, ' ', pieces, 3);
}

// "%p" is "%#x" of the pointer's full width: "0" for null.
int renderPointer(qprintf_info *info) noexcept {
  qprintf_info asHex = *info;
  asHex.flags |= QPRINTF_FLAG_ALTERNATE;
  asHex.length = QPRINTF_LENGTH_INT32;
  asHex.conversion = 'x';
  return renderInteger(&asHex);
}

} // namespace zb::format
