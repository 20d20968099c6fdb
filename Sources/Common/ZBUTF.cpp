// The converters between UTF-8 and UTF-16 or UTF-32 that every text
// crossing into the system passes through (paths, the environment, log
// output). They never fail on bad input: a bad sequence is skipped, emits
// nothing and counts one error, and the result is always the size the whole
// source needs, so callers size a buffer with one call and fill it with a
// second. The behaviours listed in ZBString.h (Latin-1 fallback, the
// three-byte ranges that pass or not, the four-byte lead and low-surrogate
// arithmetic, surrogates never combined on the way out) are part of the
// interface and kept as they are.
#include "ZBString.h"
#include "ZBUTFASCIIBlocks.h"

namespace {

constexpr bool isContinuation(uint8_t byte) { return (byte & 0xC0) == 0x80; }

// One step of UTF-8 reading. The lead-byte and continuation rules are shared
// by both decoders; what a three- or four-byte value may be is theirs.
enum class SequenceKind : uint8_t {
  Error,     // skip `length` bytes, count one error
  CodePoint, // one byte, Latin-1 fallback byte, or a checked two-byte value
  ThreeByte, // raw value of a three-byte sequence
  FourByte,  // raw value of a four-byte sequence, three lead bits included
};

constexpr uint32_t twoByteValue(uint8_t lead, uint8_t continuation) {
  return (uint32_t(lead & 0x1F) << 6) | (continuation & 0x3F);
}

struct Sequence {
  SequenceKind kind;
  uint8_t length;
  uint32_t value;
};

inline Sequence readSequence(const uint8_t *bytes, size_t remaining, bool latin1Fallback) {
  const uint8_t lead = bytes[0];
  if (lead < 0x80)
    return {SequenceKind::CodePoint, 1, lead};
  const bool continued = remaining > 1 && isContinuation(bytes[1]);
  if (latin1Fallback && !continued) {
    // A lone high byte of Latin-1 text; C1 controls are not taken as text.
    if (lead < 0xA0)
      return {SequenceKind::Error, 1, 0};
    return {SequenceKind::CodePoint, 1, lead};
  }
  if (lead < 0xC0 || lead > 0xF4)
    return {SequenceKind::Error, 1, 0};
  if (lead < 0xE0) {
    if (!continued)
      return {SequenceKind::Error, 1, 0};
    const uint32_t value = twoByteValue(lead, bytes[1]);
    // An overlong form is consumed whole.
    if (value <= 0x7F)
      return {SequenceKind::Error, 2, 0};
    return {SequenceKind::CodePoint, 2, value};
  }
  if (lead < 0xF0) {
    if (remaining < 3 || !continued || !isContinuation(bytes[2]))
      return {SequenceKind::Error, 1, 0};
    const uint32_t value =
        (uint32_t(lead & 0x0F) << 12) | (uint32_t(bytes[1] & 0x3F) << 6) | (bytes[2] & 0x3F);
    return {SequenceKind::ThreeByte, 3, value};
  }
  if (remaining < 4 || !continued || !isContinuation(bytes[2]) || !isContinuation(bytes[3]))
    return {SequenceKind::Error, 1, 0};
  const uint32_t value = (uint32_t(lead & 0x07) << 18) | (uint32_t(bytes[1] & 0x3F) << 12) |
                         (uint32_t(bytes[2] & 0x3F) << 6) | (bytes[3] & 0x3F);
  return {SequenceKind::FourByte, 4, value};
}

// Three-byte values that UTF-16 output takes: not overlong, and outside
// D800-D8FF once bit 13 is ignored (which also rejects F800-F8FF and lets
// D900-DFFF through).
inline bool isAcceptedThreeByteValue(uint32_t value) {
  const uint32_t withoutBit13 = value & ~uint32_t(0x2000);
  return value >= 0x800 && (withoutBit13 < 0xD800 || withoutBit13 > 0xD8FF);
}

// Output into a destination that may be absent or too small: stores while
// there is room and counts always.
template <typename Unit>
struct UnitWriter {
  Unit *destination;
  size_t capacity;
  size_t count = 0;

  void put(uint32_t unit) {
    if (count < capacity)
      destination[count] = static_cast<Unit>(unit);
    ++count;
  }
  // Takes the run of ASCII bytes at the start of `bytes`, as many as there
  // is room for stored; returns the run's length.
  size_t putASCIIRun(const uint8_t *bytes, size_t remaining);
};

template <>
size_t UnitWriter<ZBWChar>::putASCIIRun(const uint8_t *bytes, size_t remaining) {
  const size_t run = zb::utf::asciiRunLength(bytes, remaining);
  if (count < capacity)
    zb::utf::widenASCIIRun(destination + count, bytes,
                           run < capacity - count ? run : capacity - count);
  count += run;
  return run;
}

// Output into a destination with a unit of room for every source byte: no
// sequence gives more units than it has bytes, so nothing is checked and the
// ASCII runs are widened as they are found, by `widen` (one of the block
// widening functions).
template <size_t (*widen)(ZBWChar *, const uint8_t *, size_t)>
struct RoomyUnitWriter {
  ZBWChar *destination;
  size_t count = 0;

  void put(uint32_t unit) { destination[count++] = static_cast<ZBWChar>(unit); }
  // Inlined always, so that the AVX2 loop inlines its widening in turn.
  __attribute__((always_inline)) size_t putASCIIRun(const uint8_t *bytes, size_t remaining) {
    const size_t run = widen(destination + count, bytes, remaining);
    count += run;
    return run;
  }
};

void reportErrors(size_t *outErrorCount, size_t errors) {
  if (outErrorCount != nullptr)
    *outErrorCount = errors;
}

void encodeUTF8(uint32_t value, size_t length, uint8_t *out) {
  switch (length) {
  case 1: out[0] = static_cast<uint8_t>(value); break;
  case 2:
    out[0] = static_cast<uint8_t>(0xC0 | (value >> 6));
    out[1] = static_cast<uint8_t>(0x80 | (value & 0x3F));
    break;
  case 3:
    out[0] = static_cast<uint8_t>(0xE0 | (value >> 12));
    out[1] = static_cast<uint8_t>(0x80 | ((value >> 6) & 0x3F));
    out[2] = static_cast<uint8_t>(0x80 | (value & 0x3F));
    break;
  default:
    out[0] = static_cast<uint8_t>(0xF0 | (value >> 18));
    out[1] = static_cast<uint8_t>(0x80 | ((value >> 12) & 0x3F));
    out[2] = static_cast<uint8_t>(0x80 | ((value >> 6) & 0x3F));
    out[3] = static_cast<uint8_t>(0x80 | (value & 0x3F));
    break;
  }
}

// Writes UTF-8 with sticky truncation: once a character does not fit, the
// destination is dropped for the rest of the call, so the output never ends
// in a cut character and never resumes with a later, shorter one.
class UTF8Writer {
public:
  UTF8Writer(char *destination, size_t capacity)
      : destination_(reinterpret_cast<uint8_t *>(destination)), capacity_(capacity) {}

  void put(uint32_t value, size_t length) {
    if (destination_ != nullptr) {
      if (capacity_ - count_ >= length)
        encodeUTF8(value, length, destination_ + count_);
      else
        destination_ = nullptr;
    }
    count_ += length;
  }

  // Takes the run of ASCII units at the start of `units`: each fits while
  // there is room, then the rest is dropped as for any character that does
  // not fit. Returns the run's length.
  size_t putASCIIRun(const ZBWChar *units, size_t remaining) {
    const size_t run = zb::utf::asciiRunLength(units, remaining);
    if (destination_ != nullptr) {
      const size_t room = capacity_ - count_;
      zb::utf::narrowASCIIRun(destination_ + count_, units, run < room ? run : room);
      if (run > room)
        destination_ = nullptr;
    }
    count_ += run;
    return run;
  }

  // A unit from 0x80 up that converts.
  void putWide(uint32_t unit) { put(unit, unit < 0x800 ? 2 : 3); }

  size_t count() const { return count_; }

private:
  uint8_t *destination_; // null once dropped
  size_t capacity_;
  size_t count_ = 0;
};

// UTF-8 output into a destination with three bytes of room for every unit,
// the most one unit needs: nothing is checked and the ASCII runs are
// narrowed as they are found, by `narrow` (one of the block narrowing
// functions).
template <size_t (*narrow)(uint8_t *, const ZBWChar *, size_t)>
class RoomyUTF8Writer {
public:
  explicit RoomyUTF8Writer(char *destination)
      : destination_(reinterpret_cast<uint8_t *>(destination)) {}

  void put(uint32_t value, size_t length) {
    encodeUTF8(value, length, destination_ + count_);
    count_ += length;
  }
  void putWide(uint32_t unit) {
    uint8_t *out = destination_ + count_;
    if (unit < 0x800) {
      out[0] = static_cast<uint8_t>(0xC0 | (unit >> 6));
      out[1] = static_cast<uint8_t>(0x80 | (unit & 0x3F));
      count_ += 2;
    } else {
      out[0] = static_cast<uint8_t>(0xE0 | (unit >> 12));
      out[1] = static_cast<uint8_t>(0x80 | ((unit >> 6) & 0x3F));
      out[2] = static_cast<uint8_t>(0x80 | (unit & 0x3F));
      count_ += 3;
    }
  }
  // Inlined always, so that the AVX2 loop inlines its narrowing in turn.
  __attribute__((always_inline)) size_t putASCIIRun(const ZBWChar *units, size_t remaining) {
    const size_t run = narrow(destination_ + count_, units, remaining);
    count_ += run;
    return run;
  }

  size_t count() const { return count_; }

private:
  uint8_t *destination_;
  size_t count_ = 0;
};

// Bytes that UTF-8 needs for a value, or 0 for a value it does not take:
// one to four bytes below 0x80, 0x800, 0x10000 and 0x200000.
inline size_t utf8Length(uint32_t value) {
  return value < 0x80 ? 1 : value < 0x800 ? 2 : value < 0x10000 ? 3 : value < 0x200000 ? 4 : 0;
}

// Units whose bits 15, 14, 12 and 11 are all set (D800-DFFF, F800-FFFF) do
// not convert: surrogates are never combined.
inline bool isUnconvertibleUnit(uint32_t unit) { return (unit & 0xD800) == 0xD800; }

} // namespace

namespace {

// The UTF-8 to UTF-16 loop, for any of the writers above; returns the
// number of units.
template <typename Writer>
__attribute__((always_inline)) inline size_t
utf8ToUTF16(Writer &out, const uint8_t *bytes, size_t length, bool latin1Fallback, size_t &errors) {
  size_t position = 0;
  while (position < length) {
    const uint8_t lead = bytes[position];
    if (lead < 0x80) {
      // A lone space or stop between words of another script is put as it
      // is; longer runs go a block at a time.
      if (length - position < 2 || bytes[position + 1] >= 0x80) {
        out.put(lead);
        ++position;
      } else {
        position += out.putASCIIRun(bytes + position, length - position);
      }
      continue;
    }
    // Well-formed two-byte sequences (most of the rest of European text)
    // and three-byte ones (most of Asian text) take the short way. Neither
    // depends on the Latin-1 fallback: their lead is followed by a
    // continuation byte.
    const size_t remaining = length - position;
    if (lead >= 0xC2 && lead < 0xE0 && remaining >= 2 && isContinuation(bytes[position + 1])) {
      out.put(twoByteValue(lead, bytes[position + 1]));
      position += 2;
      continue;
    }
    if (lead >= 0xE0 && lead < 0xF0 && remaining >= 3 && isContinuation(bytes[position + 1]) &&
        isContinuation(bytes[position + 2])) {
      const uint32_t value = (uint32_t(lead & 0x0F) << 12) |
                             (uint32_t(bytes[position + 1] & 0x3F) << 6) |
                             (bytes[position + 2] & 0x3F);
      if (isAcceptedThreeByteValue(value))
        out.put(value);
      else
        ++errors;
      position += 3;
      continue;
    }
    const Sequence sequence = readSequence(bytes + position, remaining, latin1Fallback);
    position += sequence.length;
    switch (sequence.kind) {
    case SequenceKind::Error:
      ++errors;
      break;
    case SequenceKind::CodePoint:
      out.put(sequence.value);
      break;
    case SequenceKind::ThreeByte:
      if (isAcceptedThreeByteValue(sequence.value))
        out.put(sequence.value);
      else
        ++errors;
      break;
    case SequenceKind::FourByte: {
      // Only the lead byte's two low bits count: a 0xF4 lead loses bit 20.
      const uint32_t value = sequence.value & 0xFFFFF;
      if (value < 0x10000) {
        ++errors;
        break;
      }
      out.put(((value - 0x10000) >> 10) | 0xD800);
      // Bits 10-15 of the value stay in the low unit.
      out.put((value | 0xDC00) & 0xFFFF);
      break;
    }
    }
  }
  return out.count;
}

size_t roomyUTF8ToUTF16(ZBWChar *destination, const uint8_t *bytes, size_t length,
                        bool latin1Fallback, size_t &errors) {
  RoomyUnitWriter<zb::utf::widenASCIIRun> out{destination};
  return utf8ToUTF16(out, bytes, length, latin1Fallback, errors);
}

#if defined(ZB_UTF_X86)
__attribute__((target("avx2"))) size_t roomyUTF8ToUTF16AVX2(ZBWChar *destination,
                                                            const uint8_t *bytes, size_t length,
                                                            bool latin1Fallback, size_t &errors) {
  RoomyUnitWriter<zb::utf::widenASCIIRunAVX2> out{destination};
  return utf8ToUTF16(out, bytes, length, latin1Fallback, errors);
}
#endif

} // namespace

extern "C" size_t ZBUTF8ToUTF16(ZBWChar *destination, size_t capacity, const char *source,
                                size_t length, uint32_t flags, size_t *outErrorCount) noexcept {
  const auto *bytes = reinterpret_cast<const uint8_t *>(source);
  if (bytes == nullptr)
    length = 0;
  const bool latin1Fallback = (flags & ZBUTFFlagLatin1Fallback) != 0;
  size_t errors = 0;
  size_t count;
  if (destination == nullptr || capacity < length) {
    UnitWriter<ZBWChar> out{destination, destination != nullptr ? capacity : 0};
    count = utf8ToUTF16(out, bytes, length, latin1Fallback, errors);
  }
#if defined(ZB_UTF_X86)
  else if (zb::utf::hasAVX2())
    count = roomyUTF8ToUTF16AVX2(destination, bytes, length, latin1Fallback, errors);
#endif
  else
    count = roomyUTF8ToUTF16(destination, bytes, length, latin1Fallback, errors);
  reportErrors(outErrorCount, errors);
  return count;
}

extern "C" size_t ZBUTF8ToUTF32(uint32_t *destination, size_t capacity, const char *source,
                                size_t length, uint32_t flags, size_t *outErrorCount) noexcept {
  const auto *bytes = reinterpret_cast<const uint8_t *>(source);
  if (bytes == nullptr)
    length = 0;
  const bool latin1Fallback = (flags & ZBUTFFlagLatin1Fallback) != 0;
  UnitWriter<uint32_t> out{destination, destination != nullptr ? capacity : 0};
  size_t errors = 0;
  size_t position = 0;
  while (position < length) {
    const Sequence sequence = readSequence(bytes + position, length - position, latin1Fallback);
    position += sequence.length;
    if (sequence.kind == SequenceKind::Error)
      ++errors;
    else
      out.put(sequence.value);
  }
  reportErrors(outErrorCount, errors);
  return out.count;
}

namespace {

// The UTF-16 to UTF-8 loop, for any of the UTF-8 writers above; returns the
// number of bytes.
template <typename Writer>
__attribute__((always_inline)) inline size_t utf16ToUTF8(Writer &out, const ZBWChar *source,
                                                         size_t length, size_t &errors) {
  for (size_t index = 0; index < length;) {
    const uint32_t unit = static_cast<uint16_t>(source[index]);
    if (unit < 0x80) {
      // As for UTF-8 reading: a lone ASCII unit is put as it is.
      if (length - index < 2 || static_cast<uint16_t>(source[index + 1]) >= 0x80) {
        out.put(unit, 1);
        ++index;
      } else {
        index += out.putASCIIRun(source + index, length - index);
      }
      continue;
    }
    // A run of units of another script, each two or three bytes.
    uint32_t wide = unit;
    do {
      ++index;
      if (isUnconvertibleUnit(wide))
        ++errors;
      else
        out.putWide(wide);
    } while (index < length && (wide = static_cast<uint16_t>(source[index])) >= 0x80);
  }
  return out.count();
}

size_t roomyUTF16ToUTF8(char *destination, const ZBWChar *source, size_t length, size_t &errors) {
  RoomyUTF8Writer<zb::utf::narrowASCIIRun> out(destination);
  return utf16ToUTF8(out, source, length, errors);
}

#if defined(ZB_UTF_X86)
__attribute__((target("avx2"))) size_t
roomyUTF16ToUTF8AVX2(char *destination, const ZBWChar *source, size_t length, size_t &errors) {
  RoomyUTF8Writer<zb::utf::narrowASCIIRunAVX2> out(destination);
  return utf16ToUTF8(out, source, length, errors);
}
#endif

} // namespace

extern "C" size_t ZBUTF16ToUTF8(char *destination, size_t capacity, const ZBWChar *source,
                                size_t length, uint32_t /*flags*/, size_t *outErrorCount) noexcept {
  if (source == nullptr)
    length = 0;
  size_t errors = 0;
  size_t count;
  // Three bytes of room a unit, checked without overflow.
  if (destination == nullptr || capacity / 3 < length) {
    UTF8Writer out(destination, capacity);
    count = utf16ToUTF8(out, source, length, errors);
  }
#if defined(ZB_UTF_X86)
  else if (zb::utf::hasAVX2())
    count = roomyUTF16ToUTF8AVX2(destination, source, length, errors);
#endif
  else
    count = roomyUTF16ToUTF8(destination, source, length, errors);
  reportErrors(outErrorCount, errors);
  return count;
}

extern "C" size_t ZBUTF32ToUTF8(char *destination, size_t capacity, const uint32_t *source,
                                size_t length, uint32_t /*flags*/, size_t *outErrorCount) noexcept {
  if (source == nullptr)
    length = 0;
  UTF8Writer out(destination, capacity);
  size_t errors = 0;
  for (size_t index = 0; index < length; ++index) {
    const size_t bytes = utf8Length(source[index]);
    if (bytes == 0)
      ++errors;
    else
      out.put(source[index], bytes);
  }
  reportErrors(outErrorCount, errors);
  return out.count();
}
