// Fuzzes the format engine end to end: parser, argument fetching and every
// built-in conversion's renderer, into the fixed and the growing sink, and
// into a sink with no room at all, where every byte takes the plain way
// through the sink's overflow and no renderer can write its text straight
// into place: all three must give the same text.
//
// The input is a format (up to the first zero byte) followed by bytes that
// feed the argument values. Numbers in the format are cut to three digits
// so fields stay small. The engine's own parser then says which argument
// slots the format uses, and each slot gets an argument of the kind its
// conversion reads: an integer, a double, or a pointer into a zero-padded
// block that every pointer-reading conversion can safely read (strings of
// all unit widths end inside it, "%.999Q" stays inside it). Formats whose
// slots conflict, or that need more arguments than the call below passes,
// are skipped.
#include "qprintf.h"
#include "qprintfEngine.h"
#include "qprintfParser.h"

#include <algorithm>
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr size_t kMaxFormat = 512;
constexpr size_t kMaxWords = 16;
constexpr size_t kMaxDoubles = 8;
constexpr size_t kTextBytes = 1024;

enum class Kind { None, Nothing, Word, SmallInt, Double, Pointer };

// What a slot's fetch reads: up to two arguments.
struct Slot {
  Kind first = Kind::None;
  Kind second = Kind::None;
  bool star = false; // a "*" width or precision reads it as an int
};

struct Values {
  const uint8_t *data;
  size_t size;
  uint64_t next() {
    uint64_t value = 0;
    for (int i = 0; i < 8 && size > 0; ++i, --size)
      value = (value << 8) | *data++;
    return value;
  }
};

// Arguments in slot order, by the System V convention: integers and
// doubles travel in separate registers and only integers overflow to the
// stack here, so words go first and doubles after, each in their order.
// Unused trailing arguments are never read.
struct Arguments {
  uint64_t words[kMaxWords] = {};
  double doubles[kMaxDoubles] = {};
  size_t wordCount = 0;
  size_t doubleCount = 0;

  bool add(Kind kind, uint64_t raw, const uint8_t *block) {
    if (kind == Kind::Double) {
      if (doubleCount == kMaxDoubles)
        return false;
      std::memcpy(&doubles[doubleCount++], &raw, sizeof raw);
      return true;
    }
    if (wordCount == kMaxWords)
      return false;
    if (kind == Kind::Pointer)
      words[wordCount++] = reinterpret_cast<uintptr_t>(block);
    else if (kind == Kind::SmallInt)
      words[wordCount++] = uint64_t(int64_t(raw % 1999) - 999);
    else
      words[wordCount++] = raw;
    return true;
  }
};

// What a conversion's fetch reads; false for characters without one.
bool fetchOf(const zb::format::ConversionDirective &directive, Slot *out) {
  switch (directive.conversion) {
  case 'c':
    // "%c" with a long length code reads nothing.
    out->first = directive.length <= 4 || directive.length == 11 ? Kind::Word : Kind::Nothing;
    return true;
  case 'C': case 'd': case 'D': case 'i': case 'u': case 'U': case 'x': case 'X':
  case 'o': case 'O': case 'p': case 'm':
    out->first = Kind::Word;
    return true;
  case 'e': case 'E': case 'f': case 'F': case 'g': case 'G': case 'a': case 'A':
    out->first = Kind::Double;
    return true;
  case 's': case 'S': case 'M': case 'Q': case 'Z':
    out->first = Kind::Pointer;
    return true;
  case 'T':
    out->first = directive.length == 4 || directive.length == 7 ? Kind::Pointer : Kind::Word;
    return true;
  case 'b':
    out->first = Kind::Word;
    out->second = Kind::Pointer;
    return true;
  case 'H':
    out->first = Kind::Pointer;
    out->second = Kind::SmallInt;
    return true;
  default:
    return false;
  }
}

// Which argument each slot takes; false when two uses of a slot disagree
// (the engine would render a value fetched for another kind).
bool planSlots(const zb::format::ConversionDirective *directives, uint64_t count,
               std::vector<Slot> &slots) {
  for (uint64_t i = 0; i < count; ++i) {
    const zb::format::ConversionDirective &directive = directives[i];
    if (directive.widthFromArgument)
      slots[size_t(directive.width)].star = true;
    if (directive.precisionFromArgument)
      slots[size_t(directive.precision)].star = true;
    Slot fetch;
    if (directive.conversion == '\0' || !fetchOf(directive, &fetch))
      continue;
    Slot &slot = slots[directive.argument];
    if (slot.first != Kind::None && (slot.first != fetch.first || slot.second != fetch.second))
      return false;
    slot.first = fetch.first;
    slot.second = fetch.second;
  }
  for (const Slot &slot : slots)
    if (slot.star && slot.first != Kind::None)
      return false;
  return true;
}

// Cuts every run of digits to three.
std::string boundedFormat(const uint8_t *data, size_t size, size_t *used) {
  std::string format;
  size_t digits = 0;
  size_t i = 0;
  for (; i < size && i < kMaxFormat && data[i] != 0; ++i) {
    const bool digit = data[i] >= '0' && data[i] <= '9';
    digits = digit ? digits + 1 : 0;
    if (digits <= 3)
      format += static_cast<char>(data[i]);
  }
  *used = i + 1;
  return format;
}

void check(bool condition) {
  if (!condition)
    std::abort();
}

// Takes everything a sink with no room overflows.
size_t appendToString(qprintf_sink *sink, const char *bytes, size_t length) {
  static_cast<std::string *>(sink->context)->append(bytes, length);
  return length;
}

// The engine's text with every write going through the overflow.
int64_t formatWithoutRoom(std::string &out, const char *format, ...) {
  char nowhere[1];
  qprintf_sink sink{nowhere, nowhere, appendToString, &out, 0};
  va_list arguments;
  va_start(arguments, format);
  const int64_t result = qprintf_run(&sink, 0, format, &arguments);
  va_end(arguments);
  return result;
}

} // namespace

// The parser reads argument counts from the conversion table, which
// formatting fills on first use; the plan below parses before that.
extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  qprintf_builtins_init();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  size_t used = 0;
  const std::string format = boundedFormat(data, size, &used);
  Values values{data + std::min(used, size), size - std::min(used, size)};

  std::vector<zb::format::ConversionDirective> directives(64);
  const zb::format::ParsedFormat parsed =
      zb::format::parseFormat(format.c_str(), directives.data(), directives.size());
  if (parsed.directives > directives.size() || parsed.slots > kMaxWords)
    return 0;
  std::vector<Slot> slots(parsed.slots);
  if (!planSlots(directives.data(), parsed.directives, slots))
    return 0;

  // The block behind every pointer: input text, then zeros.
  static uint8_t block[kTextBytes + 64];
  std::memset(block, 0, sizeof block);
  const size_t text = std::min(values.size, kTextBytes);
  std::memcpy(block, values.data, text);

  // The engine's fetch order: a two-argument conversion covers the next
  // slot too; a slot nothing uses still takes one word.
  Arguments arguments;
  for (size_t index = 0; index < slots.size();) {
    const Slot &slot = slots[index];
    const Kind first = slot.star                 ? Kind::SmallInt
                       : slot.first == Kind::None ? Kind::Word
                                                  : slot.first;
    if (first != Kind::Nothing && !arguments.add(first, values.next(), block))
      return 0;
    if (slot.second != Kind::None && !arguments.add(slot.second, values.next(), block))
      return 0;
    index += slot.second != Kind::None ? 2 : 1;
  }

  char fixed[256];
  const uint64_t *w = arguments.words;
  const double *d = arguments.doubles;
  const int fixedLength =
      qsnprintf(fixed, sizeof fixed, format.c_str(), w[0], w[1], w[2], w[3], w[4], w[5], w[6],
                w[7], w[8], w[9], w[10], w[11], w[12], w[13], w[14], w[15], d[0], d[1], d[2],
                d[3], d[4], d[5], d[6], d[7]);
  char *grown = nullptr;
  const int grownLength =
      qasprintf(&grown, format.c_str(), w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], w[8],
                w[9], w[10], w[11], w[12], w[13], w[14], w[15], d[0], d[1], d[2], d[3], d[4],
                d[5], d[6], d[7]);
  std::string plain;
  const int64_t plainLength =
      formatWithoutRoom(plain, format.c_str(), w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7],
                        w[8], w[9], w[10], w[11], w[12], w[13], w[14], w[15], d[0], d[1], d[2],
                        d[3], d[4], d[5], d[6], d[7]);
  if (plainLength >= 0) {
    check(size_t(plainLength) == plain.size());
    check(fixedLength == plainLength);
    const size_t stored = std::min(plain.size(), sizeof fixed - 1);
    check(std::memcmp(fixed, plain.data(), stored) == 0 && fixed[stored] == '\0');
    if (grown != nullptr)
      check(grownLength == plainLength && std::memcmp(grown, plain.data(), plain.size()) == 0);
  }
  qprffree(grown);
  return 0;
}
