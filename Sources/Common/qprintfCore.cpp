// The format engine's core: one call from format to sink.
//
// In general the format is parsed into directives, every argument is
// fetched in argument-index order into a slot (positional arguments can come
// in any order in the format, but a va_list can only be read forwards), and
// then each directive is rendered in format order with the literal text
// between them. Up to eight directives and eight slots live on the
// stack.
//
// Until a directive names an argument by position, the argument order
// is the format order: the format (nearly every one, to its end) is
// parsed, fetched and rendered in a single pass, one directive at a
// time, with no records at all. At the first "$" the rest is handed to the
// general way, which reads the same arguments in the same order.
//
// Also here: the field writer that pads rendered text to its width, which
// every renderer writes through.
#include "qprintfEngine.h"
#include "qprintfParser.h"

#include "ZBAlloc.h"
#include "ZBPrint.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace zb::format {
namespace {

constexpr size_t kStackRecords = 8;
constexpr size_t kFillChunk = 256;
// Marks a slot that a "*" width or precision reads: an int. "*" can never
// be a conversion, so the mark cannot clash with one.
constexpr unsigned char kStarSlot = '*';

// Writes `length` copies of `byte`.
bool sinkFill(qprintf_sink *sink, char byte, size_t length) {
  if (length == 0)
    return true;
  if (static_cast<size_t>(sink->limit - sink->cursor) >= length) {
    std::memset(sink->cursor, byte, length);
    sink->cursor += length;
    sink->count += static_cast<int64_t>(length);
    return true;
  }
  char chunk[kFillChunk];
  std::memset(chunk, byte, std::min(length, kFillChunk));
  bool accepted = true;
  while (length > 0) {
    const size_t part = std::min(length, kFillChunk);
    accepted = sinkWrite(sink, chunk, part);
    length -= part;
  }
  return accepted;
}

// The engine's records for one call: on the stack when few, else one block
// from the default zone, freed when the call ends.
template <typename Record>
class Records {
public:
  Records() = default;
  ~Records() {
    if (mHeap != nullptr)
      _ZBFreeWithZone(nullptr, mHeap);
  }
  Records(const Records &) = delete;
  Records &operator=(const Records &) = delete;

  // Room for `count` records, zeroed; null when memory runs out.
  Record *reserve(uint64_t count) {
    if (count <= kStackRecords) {
      std::memset(static_cast<void *>(mStack), 0, sizeof(Record) * count);
      return mStack;
    }
    mHeap = static_cast<Record *>(
        _ZBAllocWithZoneCountAndDesc(nullptr, count, sizeof(Record), "xvqprintf"));
    return mHeap;
  }
  // The stack records, as they are, for a parse to fill.
  Record *stack() { return mStack; }

private:
  Record mStack[kStackRecords];
  Record *mHeap = nullptr;
};

// Fills the info's width and precision as render functions see them.
void setField(qprintf_info &info, int32_t width, int32_t precision, bool precisionFromArgument) {
  if (info.flags & QPRINTF_FLAG_LEFT) {
    // As in C, "-" left-justifies whatever the sign of a "*" width.
    width = width == INT32_MIN ? -INT32_MAX : -std::abs(width);
    info.flags &= ~QPRINTF_FLAG_LEFT;
  }
  info.width = width;
  // A negative precision argument counts as 0, not as "absent".
  info.precision = precisionFromArgument ? std::max(precision, 0) : precision;
}

// The info of a conversion before its arguments are fetched; width and
// precision are still unset ("%d" has neither).
qprintf_info startInfo(unsigned char conversion, uint32_t flags, uint32_t length,
                       const qprintf_modifier &entry, qprintf_sink *sink) {
  qprintf_info info{};
  info.flags = flags;
  info.precision = -1;
  info.length = length;
  info.conversion = conversion;
  info.count = entry.count > 0 ? uint32_t(entry.count) : 0;
  info.userData = entry.userData;
  info.sink = sink;
  return info;
}

qprintf_info startInfo(const ConversionDirective &directive, const qprintf_modifier &entry,
                       qprintf_sink *sink) {
  return startInfo(directive.conversion, directive.flags, directive.length, entry, sink);
}

// Reads a conversion's arguments: its fetch function, or as many words as
// it takes when it has none.
void fetch(const qprintf_modifier &entry, va_list *cursor, qprintf_info &info) {
  if (entry.fetch != nullptr) {
    entry.fetch(cursor, &info);
    return;
  }
  for (uint32_t word = 0; word < info.count; ++word)
    (void)va_arg(*cursor, void *);
}

// Marks what each slot holds: an int for a "*" width or precision, or the
// argument(s) of a conversion.
void assignSlots(const ConversionDirective *directives, uint64_t specCount, qprintf_info *slots,
                 uint64_t slotCount) {
  auto markStar = [&](int32_t index) {
    if (uint64_t(index) < slotCount) {
      slots[index].conversion = kStarSlot;
      slots[index].count = 1;
    }
  };
  for (uint64_t i = 0; i < specCount; ++i) {
    if (directives[i].widthFromArgument)
      markStar(directives[i].width);
    if (directives[i].precisionFromArgument)
      markStar(directives[i].precision);
  }
  for (uint64_t i = 0; i < specCount; ++i) {
    const ConversionDirective &directive = directives[i];
    const qprintf_modifier &entry = qprintf_modifier_table[directive.conversion];
    if (entry.count <= 0 || directive.argument >= slotCount)
      continue;
    slots[directive.argument] = startInfo(directive, entry, nullptr);
  }
}

// Reads every argument in slot order, from `*arguments` in place. A slot
// no directive uses still occupies one argument word.
void fetchArguments(qprintf_info *slots, uint64_t slotCount, qprintf_sink *sink,
                    va_list *arguments) {
  for (uint64_t index = 0; index < slotCount;) {
    qprintf_info &slot = slots[index];
    if (slot.conversion == kStarSlot) {
      slot.value.integer = va_arg(*arguments, int);
    } else if (slot.conversion == '\0') {
      (void)va_arg(*arguments, void *);
    } else {
      slot.sink = sink;
      fetch(qprintf_modifier_table[slot.conversion], arguments, slot);
    }
    index += std::max<uint32_t>(slot.count, 1);
  }
}

int32_t slotInt(const qprintf_info *slots, uint64_t slotCount, int32_t index) {
  return uint64_t(index) < slotCount ? static_cast<int32_t>(slots[index].value.integer) : 0;
}

// Renders the directives that start at `resumeAt` or later, and the text
// from there on (what comes before was rendered in one pass, reading the
// same arguments, which `*arguments` holds from the first). Kept out of
// line: its records take a kilobyte of stack that the one-pass loop should
// not carry.
[[gnu::noinline]] int64_t runWithSlots(qprintf_sink *sink, const char *format,
                                       va_list *arguments, const char *resumeAt) {
  Records<ConversionDirective> specRecords;
  ConversionDirective *directives = specRecords.stack();
  ParsedFormat parsed = parseFormat(format, directives, kStackRecords);
  uint64_t specCount = parsed.directives;
  if (specCount > kStackRecords) {
    if (specCount > kMaxSpecifications)
      return -1;
    directives = specRecords.reserve(specCount);
    if (directives == nullptr)
      return -1;
    parsed = parseFormat(format, directives, specCount);
    specCount = std::min(specCount, parsed.directives);
  }
  if (parsed.slots > kMaxArgumentSlots)
    return -1;

  Records<qprintf_info> slotRecords;
  qprintf_info *slots = slotRecords.reserve(parsed.slots);
  if (slots == nullptr)
    return -1;
  assignSlots(directives, specCount, slots, parsed.slots);
  fetchArguments(slots, parsed.slots, sink, arguments);

  uint64_t first = 0;
  while (first < specCount && directives[first].start < resumeAt)
    ++first;
  const char *literal = resumeAt;
  for (uint64_t i = first; i < specCount; ++i) {
    const ConversionDirective &directive = directives[i];
    sinkWrite(sink, literal, size_t(directive.start - literal));
    literal = directive.resume;
    if (directive.conversion == '\0')
      break;
    const qprintf_modifier &entry = qprintf_modifier_table[directive.conversion];
    qprintf_info info = startInfo(directive, entry, sink);
    if (entry.count > 0 && directive.argument < parsed.slots) {
      info.value = slots[directive.argument].value;
      info.count = slots[directive.argument].count;
    }
    setField(info,
             directive.widthFromArgument ? slotInt(slots, parsed.slots, directive.width) : directive.width,
             directive.precisionFromArgument ? slotInt(slots, parsed.slots, directive.precision)
                                        : directive.precision,
             directive.precisionFromArgument);
    if (entry.render != nullptr)
      entry.render(&info);
  }
  sinkWrite(sink, literal, textLength(literal));
  return sink->count;
}

// Renders, in the one pass, the directive at `percent` that has flags, a
// width, a precision or a length. Returns where the format goes on (at its
// end when the directive ran into it), or null when the directive names an
// argument by position. Out of line, so that the loop over the common "%d"
// keeps few registers to save.
[[gnu::noinline]] const char *renderDirective(qprintf_sink *sink, const char *percent,
                                              va_list *cursor) {
  // Argument indices matter only to the general way: here the arguments
  // are read in the order the directives come.
  uint64_t sequential = 0;
  const ConversionDirective directive = parseDirective(percent, sequential);
  if (directive.positional)
    return nullptr;
  if (directive.conversion == '\0')
    return directive.resume;
  const qprintf_modifier &entry = qprintf_modifier_table[directive.conversion];
  qprintf_info info = startInfo(directive, entry, sink);
  const int32_t width = directive.widthFromArgument ? va_arg(*cursor, int) : directive.width;
  const int32_t precision =
      directive.precisionFromArgument ? va_arg(*cursor, int) : directive.precision;
  setField(info, width, precision, directive.precisionFromArgument);
  if (entry.count > 0)
    fetch(entry, cursor, info);
  if (entry.render != nullptr)
    entry.render(&info);
  return directive.resume;
}

} // namespace

int writeField(const qprintf_info &info, char pad, const Piece *pieces, size_t count) noexcept {
  qprintf_sink *sink = info.sink;
  size_t padding = 0;
  if (info.width != 0) {
    size_t length = 0;
    for (size_t i = 0; i < count; ++i)
      length += pieces[i].length;
    const uint64_t magnitude =
        info.width < 0 ? uint64_t(-int64_t(info.width)) : uint64_t(info.width);
    padding = magnitude > length ? size_t(magnitude - length) : 0;
  }
  bool accepted = true;
  int lastByte = -1;
  if (info.width > 0 && padding > 0) {
    accepted = sinkFill(sink, pad, padding);
    lastByte = static_cast<unsigned char>(pad);
  }
  for (size_t i = 0; i < count; ++i) {
    const Piece &piece = pieces[i];
    if (piece.length == 0)
      continue;
    if (piece.text != nullptr) {
      accepted = sinkWrite(sink, piece.text, piece.length);
      lastByte = static_cast<unsigned char>(piece.text[piece.length - 1]);
    } else {
      accepted = sinkFill(sink, piece.fill, piece.length);
      lastByte = static_cast<unsigned char>(piece.fill);
    }
  }
  if (info.width < 0 && padding > 0) {
    accepted = sinkFill(sink, pad, padding);
    lastByte = static_cast<unsigned char>(pad);
  }
  if (lastByte < 0)
    return 0;
  return accepted ? lastByte : -1;
}

} // namespace zb::format

int qprintf_emit(qprintf_info *info, const char *text, size_t length) noexcept {
  // Left-justified text is padded with spaces: zeros after a number would
  // change what it reads as.
  if ((info->flags & QPRINTF_FLAG_ZERO) == 0 || info->width <= 0)
    return zb::format::writeText(*info, text, length);
  const zb::format::Piece piece = zb::format::textPiece(text, length);
  return zb::format::writeField(*info, '0', &piece, 1);
}

// The one pass. It is the entry itself rather than a function of its own
// that this one calls: a function that copies a va_list is never inlined,
// and the extra call would cost as much as the rest of a short format.
int64_t qprintf_run(qprintf_sink *sink, uint32_t, const char *format,
                    va_list *arguments) noexcept {
  using namespace zb::format;
  if (format == nullptr || format[0] == '\0')
    return 0;
  // For a directive that names its argument by position: the rest of the
  // format then reads the arguments again from the first.
  va_list fromFirst;
  va_copy(fromFirst, *arguments);
  const char *literal = format;
  const char *percent;
  while (*(percent = findPercentOrEnd(literal)) == '%') {
    sinkWrite(sink, literal, size_t(percent - literal));
    const auto conversion = static_cast<unsigned char>(percent[1]);
    if (isBareConversion(conversion)) {
      // The common "%d" needs no directive record.
      literal = percent + 2;
      const qprintf_modifier &entry = qprintf_modifier_table[conversion];
      qprintf_info info = startInfo(conversion, 0, 0, entry, sink);
      if (entry.count > 0)
        fetch(entry, arguments, info);
      if (entry.render != nullptr)
        entry.render(&info);
      continue;
    }
    const char *resume = renderDirective(sink, percent, arguments);
    if (resume == nullptr) {
      // Arguments named by position can come in any order: the rest of
      // the format needs them all fetched first.
      const int64_t result = runWithSlots(sink, format, &fromFirst, percent);
      va_end(fromFirst);
      return result;
    }
    literal = resume;
  }
  va_end(fromFirst);
  sinkWrite(sink, literal, size_t(percent - literal));
  return sink->count;
}

extern "C" int qprintf_print_from_formatter(qprintf_info *info, const char *text,
                                            int maxlen) noexcept {
  if (info == nullptr || info->sink == nullptr)
    return -1;
  if (text == nullptr)
    text = ZBPrintGetNullString();
  size_t length = 0;
  if (maxlen < 1) {
    length = zb::format::textLength(text);
  } else {
    while (length < size_t(maxlen) && text[length] != '\0')
      ++length;
  }
  return qprintf_emit(info, text, length);
}
