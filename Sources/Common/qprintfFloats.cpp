// The format engine's floating-point conversions: e E f F g G (and a A,
// which are not implemented and print nothing).
//
// The digits come from std::to_chars with a precision, which rounds
// correctly. Without "#" and "'" its text is printf's own, for g too (both
// drop g's trailing zeros), and is used as it is: to_chars writes it
// straight into the sink's room, after a "+" when the "+" flag asks for one
// (the space flag adds nothing, on purpose). A width, or a room too short,
// takes it through a stack buffer, where any zeros the "0" flag asks for go
// between sign and digits. Otherwise this file lays the digits out itself:
// the decimal point ("#" keeps it, and keeps the trailing zeros of g) and
// the exponent with a sign and at least two digits. "%g" then takes its
// digits from one scientific conversion and moves the point itself when
// the exponent calls for the fixed form: both forms round at the same
// decimal place. With the "'" flag the locale's decimal point and signs
// replace ".", "+" and "-".
//
// A double has at most 767 significant decimal digits and at most 1074
// digits after the point, so longer precisions are asked of to_chars up to
// those bounds and the rest is written as zeros.
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include "ZBAlloc.h"
#include "ZBLog.h"

#include <array>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstring>

namespace zb::format {
namespace {

constexpr int kMaxFixedDecimals = 1074;
constexpr int kMaxScientificDecimals = 780;
// The integer digits of the largest double, a point, and slack for the
// sign and exponent.
constexpr size_t kFixedOverhead = 309 + 8;
constexpr size_t kScientificOverhead = 16;
constexpr size_t kStackBufferSize = 128;

// What each conversion character asks of to_chars: its format (none for
// characters that are not floating conversions; hex for a and A) and
// whether the letters are upper case.
struct FloatConversion {
  std::chars_format format;
  bool upper;
};

constexpr auto kFloatConversions = [] {
  std::array<FloatConversion, 256> table{};
  table['e'] = {std::chars_format::scientific, false};
  table['E'] = {std::chars_format::scientific, true};
  table['f'] = {std::chars_format::fixed, false};
  table['F'] = {std::chars_format::fixed, true};
  table['g'] = {std::chars_format::general, false};
  table['G'] = {std::chars_format::general, true};
  table['a'] = {std::chars_format::hex, false};
  table['A'] = {std::chars_format::hex, true};
  return table;
}();

struct Symbols {
  const char *point;
  const char *plus;
  const char *minus;
};

Symbols localeSymbols() {
  const lconv *locale = std::localeconv();
  auto pick = [](const char *text, const char *fallback) {
    return text != nullptr && text[0] != '\0' ? text : fallback;
  };
  if (locale == nullptr)
    return Symbols{".", "+", "-"};
  return Symbols{pick(locale->decimal_point, "."), pick(locale->positive_sign, "+"),
                 pick(locale->negative_sign, "-")};
}

// The digit text: on the stack when short, else from the default zone.
class DigitBuffer {
public:
  explicit DigitBuffer(size_t size) : mSize(size) {
    if (size <= kStackBufferSize) {
      mData = mStack;
    } else {
      mHeap = static_cast<char *>(_ZBAllocWithZoneAndDesc(nullptr, size, "_format_float"));
      mData = mHeap;
    }
  }
  ~DigitBuffer() {
    if (mHeap != nullptr)
      _ZBFreeWithZone(nullptr, mHeap);
  }
  DigitBuffer(const DigitBuffer &) = delete;
  DigitBuffer &operator=(const DigitBuffer &) = delete;

  char *data() const { return mData; }
  char *end() const { return mData + mSize; }

private:
  char mStack[kStackBufferSize];
  char *mHeap = nullptr;
  char *mData = nullptr;
  size_t mSize;
};

// A rendered number before padding: up to eight pieces after the sign.
class Layout {
public:
  void add(const char *text, size_t length) { mPieces[mCount++] = textPiece(text, length); }
  void add(const char *text) { add(text, std::strlen(text)); }
  void zeros(size_t count) { mPieces[mCount++] = fillPiece('0', count); }

  // Writes sign and pieces; with the "0" flag (and a right-justified width)
  // zeros between sign and digits fill the width.
  int write(qprintf_info *info, const char *sign, bool zeroFill) const {
    Piece all[kMaxPieces + 2];
    size_t count = 0;
    const size_t signLength = std::strlen(sign);
    all[count++] = textPiece(sign, signLength);
    size_t length = signLength;
    for (size_t i = 0; i < mCount; ++i)
      length += mPieces[i].length;
    size_t fill = 0;
    if (zeroFill && (info->flags & QPRINTF_FLAG_ZERO) && info->width > 0 &&
        size_t(info->width) > length)
      fill = size_t(info->width) - length;
    all[count++] = fillPiece('0', fill);
    for (size_t i = 0; i < mCount; ++i)
      all[count++] = mPieces[i];
    return writeField(*info, ' ', all, count);
  }

private:
  static constexpr size_t kMaxPieces = 8;
  Piece mPieces[kMaxPieces];
  size_t mCount = 0;
};

// Length of `digits` once its trailing zeros are dropped, keeping `keep`.
size_t withoutTrailingZeros(const char *digits, size_t length, size_t keep) {
  while (length > keep && digits[length - 1] == '0')
    --length;
  return length;
}

int renderFixed(qprintf_info *info, double magnitude, int precision, const Symbols &symbols,
                const char *sign) {
  const int decimals = std::min(precision, kMaxFixedDecimals);
  DigitBuffer buffer(kFixedOverhead + size_t(decimals));
  if (buffer.data() == nullptr)
    return 0;
  const std::to_chars_result result = std::to_chars(buffer.data(), buffer.end(), magnitude,
                                                    std::chars_format::fixed, decimals);
  if (result.ec != std::errc())
    return 0;
  const char *text = buffer.data();
  const char *point = decimals > 0 ? static_cast<const char *>(
                                         std::memchr(text, '.', size_t(result.ptr - text)))
                                   : nullptr;
  Layout layout;
  if (point == nullptr) {
    layout.add(text, size_t(result.ptr - text));
    if (info->flags & QPRINTF_FLAG_ALTERNATE)
      layout.add(symbols.point);
  } else {
    layout.add(text, size_t(point - text));
    layout.add(symbols.point);
    layout.add(point + 1, size_t(result.ptr - point - 1));
    layout.zeros(size_t(precision - decimals));
  }
  return layout.write(info, sign, true);
}

// The pieces of a scientific conversion of `magnitude` with `decimals`
// digits after the point: the leading digit, the others, and the exponent.
struct Scientific {
  const char *digits; // leading digit, then the decimals
  size_t digitCount;
  const char *exponent; // "+XX", "-XXX"
  size_t exponentLength;
  int exponentValue;
};

bool scientific(const DigitBuffer &buffer, double magnitude, int decimals, Scientific *out) {
  const std::to_chars_result result = std::to_chars(buffer.data(), buffer.end(), magnitude,
                                                    std::chars_format::scientific, decimals);
  if (result.ec != std::errc())
    return false;
  char *text = buffer.data();
  char *e = static_cast<char *>(std::memchr(text, 'e', size_t(result.ptr - text)));
  if (e == nullptr)
    return false;
  // Drop the point so the digits are one run: "1.2345" becomes "12345".
  if (decimals > 0)
    std::memmove(text + 1, text + 2, size_t(e - text - 2));
  out->digits = text;
  out->digitCount = size_t(decimals) + 1;
  out->exponent = e + 1;
  out->exponentLength = size_t(result.ptr - e - 1);
  int exponent = 0;
  std::from_chars(e + 2, result.ptr, exponent);
  out->exponentValue = e[1] == '-' ? -exponent : exponent;
  return true;
}

int renderExponential(qprintf_info *info, double magnitude, int precision, bool upper,
                      const Symbols &symbols, const char *sign) {
  const int decimals = std::min(precision, kMaxScientificDecimals);
  DigitBuffer buffer(kScientificOverhead + size_t(decimals));
  Scientific number;
  if (buffer.data() == nullptr || !scientific(buffer, magnitude, decimals, &number))
    return 0;
  Layout layout;
  layout.add(number.digits, 1);
  if (precision > 0 || (info->flags & QPRINTF_FLAG_ALTERNATE))
    layout.add(symbols.point);
  layout.add(number.digits + 1, number.digitCount - 1);
  layout.zeros(size_t(precision - decimals));
  layout.add(upper ? "E" : "e", 1);
  layout.add(number.exponent, number.exponentLength);
  return layout.write(info, sign, true);
}

int renderGeneral(qprintf_info *info, double magnitude, int precision, bool upper,
                  const Symbols &symbols, const char *sign) {
  const int significant = precision == 0 ? 1 : precision;
  const int decimals = std::min(significant - 1, kMaxScientificDecimals);
  DigitBuffer buffer(kScientificOverhead + size_t(decimals));
  Scientific number;
  if (buffer.data() == nullptr || !scientific(buffer, magnitude, decimals, &number))
    return 0;
  const bool alternate = (info->flags & QPRINTF_FLAG_ALTERNATE) != 0;
  // Zeros beyond what to_chars was asked for; "#" keeps them, as it keeps
  // every trailing zero.
  const size_t extraZeros = alternate ? size_t(significant - 1 - decimals) : 0;
  const int exponent = number.exponentValue;
  Layout layout;

  if (exponent < significant && exponent >= -4) {
    // Fixed form with significant - 1 - exponent decimals: the same digits,
    // the point moved.
    size_t integerDigits = exponent >= 0 ? size_t(exponent) + 1 : 0;
    size_t digitCount = number.digitCount;
    if (!alternate)
      digitCount = withoutTrailingZeros(number.digits, digitCount, integerDigits);
    if (exponent >= 0) {
      layout.add(number.digits, integerDigits);
    } else {
      layout.add("0", 1);
    }
    const bool hasFraction = digitCount > integerDigits || extraZeros > 0;
    if (hasFraction || alternate)
      layout.add(symbols.point);
    if (exponent < 0)
      layout.zeros(size_t(-exponent - 1));
    layout.add(number.digits + integerDigits, digitCount - integerDigits);
    layout.zeros(extraZeros);
  } else {
    size_t digitCount = number.digitCount;
    if (!alternate)
      digitCount = withoutTrailingZeros(number.digits, digitCount, 1);
    layout.add(number.digits, 1);
    if (digitCount > 1 || extraZeros > 0 || alternate)
      layout.add(symbols.point);
    layout.add(number.digits + 1, digitCount - 1);
    layout.zeros(extraZeros);
    layout.add(upper ? "E" : "e", 1);
    layout.add(number.exponent, number.exponentLength);
  }
  return layout.write(info, sign, true);
}

void upperCaseExponent(char *digits, char *end) {
  // The exponent is at most "e+308".
  for (char *letter = end - 1; letter >= digits && letter >= end - 5; --letter)
    if (*letter == 'e')
      *letter = 'E';
}

// Converts `value` into [first, last) as printf would without "#" and "'";
// the end of the text, or null when it does not fit.
char *convertPlain(char *first, char *last, double value, int precision,
                   FloatConversion conversion) {
  const std::to_chars_result converted =
      std::to_chars(first, last, value, conversion.format, precision);
  if (converted.ec != std::errc())
    return nullptr;
  if (conversion.upper)
    upperCaseExponent(first, converted.ptr);
  return converted.ptr;
}

// e, f and g; not a, and not characters that are no floating conversion.
bool isDecimal(FloatConversion conversion) {
  return conversion.format != std::chars_format{} && conversion.format != std::chars_format::hex;
}

// "#" and "'" change the text to_chars writes: they take the laid-out way.
constexpr uint32_t kLaidOutFlags = QPRINTF_FLAG_ALTERNATE | QPRINTF_FLAG_GROUPING;

int precisionOf(const qprintf_info &info) { return info.precision < 0 ? 6 : info.precision; }

bool wantsPlus(const qprintf_info &info, double value) {
  return (info.flags & QPRINTF_FLAG_PLUS) != 0 && !std::signbit(value);
}

// The common case, kept small so that its call sets up little: a finite
// e, f or g without a width, "#" or "'", converted straight into the
// sink's room after a "+" when the "+" flag asks for one. False for any
// other case, and when the room is too short.
bool renderIntoRoom(qprintf_info *info, FloatConversion conversion, int *result) {
  qprintf_sink *sink = info->sink;
  const double value = info->value.number;
  // The width is not tested next to the flags: side by side, the compiler
  // reads both with one load, and that load has to wait until the two
  // stores the core filled them with have reached memory.
  if (!isDecimal(conversion) || (info->flags & kLaidOutFlags) != 0 || !std::isfinite(value) ||
      info->width != 0 || sink->cursor == sink->limit)
    return false;
  // The "+" is stored whether or not it is wanted: without it the digits
  // start on it. Should they not fit, the next attempt writes the whole
  // room over again.
  char *start = sink->cursor;
  *start = '+';
  char *end = convertPlain(start + wantsPlus(*info, value), sink->limit, value,
                           precisionOf(*info), conversion);
  if (end == nullptr)
    return false;
  sink->count += end - start;
  sink->cursor = end;
  *result = static_cast<unsigned char>(end[-1]);
  return true;
}

// A finite value without "#" and "'", through a stack buffer and padded
// from there. False when it does not fit the buffer.
bool renderThroughBuffer(qprintf_info *info, double value, int precision,
                         FloatConversion conversion, int *result) {
  char buffer[kStackBufferSize];
  char *end = convertPlain(buffer, buffer + sizeof buffer, value, precision, conversion);
  if (end == nullptr)
    return false;
  // With no zeros to put between sign and digits and no "+" to add, the
  // text is one run padded with spaces.
  const bool plus = wantsPlus(*info, value);
  if (!plus && ((info->flags & QPRINTF_FLAG_ZERO) == 0 || info->width <= 0)) {
    *result = writeText(*info, buffer, size_t(end - buffer));
    return true;
  }
  // The sign stays apart from the digits: the "0" flag puts zeros between.
  const bool minus = buffer[0] == '-';
  Layout layout;
  layout.add(buffer + minus, size_t(end - buffer - minus));
  *result = layout.write(info, minus ? "-" : plus ? "+" : "", true);
  return true;
}

// Infinity and NaN, "#" and "'", and texts longer than the stack buffer:
// laid out piece by piece.
int renderLaidOut(qprintf_info *info, double value, int precision, FloatConversion conversion) {
  const Symbols symbols =
      (info->flags & QPRINTF_FLAG_GROUPING) ? localeSymbols() : Symbols{".", "+", "-"};
  const char *sign =
      std::signbit(value) ? symbols.minus : (info->flags & QPRINTF_FLAG_PLUS) ? symbols.plus : "";
  if (!std::isfinite(value)) {
    Layout layout;
    if (std::isnan(value))
      layout.add(conversion.upper ? "NAN" : "nan", 3);
    else
      layout.add(conversion.upper ? "INF" : "inf", 3);
    return layout.write(info, sign, false);
  }
  const double magnitude = std::fabs(value);
  switch (conversion.format) {
  case std::chars_format::fixed:
    return renderFixed(info, magnitude, precision, symbols, sign);
  case std::chars_format::scientific:
    return renderExponential(info, magnitude, precision, conversion.upper, symbols, sign);
  default:
    return renderGeneral(info, magnitude, precision, conversion.upper, symbols, sign);
  }
}

// Every case but the common one. Out of line: the laid-out forms need a
// large frame that the common case should not pay for.
[[gnu::noinline]] int renderOtherwise(qprintf_info *info, FloatConversion conversion) {
  if (conversion.format == std::chars_format::hex) {
    ZBLogNYICounter("_format_float", 420);
    return 0;
  }
  if (!isDecimal(conversion))
    return 0;
  const double value = info->value.number;
  const int precision = precisionOf(*info);
  int result = 0;
  if ((info->flags & kLaidOutFlags) == 0 && std::isfinite(value) &&
      renderThroughBuffer(info, value, precision, conversion, &result))
    return result;
  return renderLaidOut(info, value, precision, conversion);
}

} // namespace

int fetchFloat(va_list *arguments, qprintf_info *info) noexcept {
  // "L" too: a long double argument is not supported, a double is read.
  info->value.number = va_arg(*arguments, double);
  return 0;
}

int renderFloat(qprintf_info *info) noexcept {
  const FloatConversion conversion = kFloatConversions[info->conversion];
  int result = 0;
  if (renderIntoRoom(info, conversion, &result))
    return result;
  return renderOtherwise(info, conversion);
}

} // namespace zb::format
