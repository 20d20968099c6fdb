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

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

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
  // `run` ASCII bytes, as many as there is room for stored.
  void putASCII(const uint8_t *bytes, size_t run);
};

// Most text crossing into the system is ASCII: its runs are found and
// copied sixteen bytes at a time where the processor allows.

// The length of the run of ASCII bytes at the start of `bytes` (at most
// `length` of them).
inline size_t asciiRunLength(const uint8_t *bytes, size_t length) {
  size_t run = 0;
#if defined(__SSE2__)
  for (; length - run >= 16; run += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + run));
    const unsigned highBits = static_cast<unsigned>(_mm_movemask_epi8(block));
    if (highBits != 0)
      return run + static_cast<size_t>(__builtin_ctz(highBits));
  }
#endif
  while (run < length && bytes[run] < 0x80)
    ++run;
  return run;
}

// The length of the run of ASCII units at the start of `units`.
inline size_t asciiRunLength(const ZBWChar *units, size_t length) {
  size_t run = 0;
#if defined(__SSE2__)
  const __m128i nonASCIIBits = _mm_set1_epi16(static_cast<short>(0xFF80));
  const __m128i zero = _mm_setzero_si128();
  for (; length - run >= 8; run += 8) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(units + run));
    // Two mask bits per unit, set for ASCII units.
    const unsigned asciiBits = static_cast<unsigned>(
        _mm_movemask_epi8(_mm_cmpeq_epi16(_mm_and_si128(block, nonASCIIBits), zero)));
    if (asciiBits != 0xFFFF)
      return run + static_cast<size_t>(__builtin_ctz(~asciiBits)) / 2;
  }
#endif
  while (run < length && units[run] < 0x80)
    ++run;
  return run;
}

// Copies `count` ASCII bytes into units.
inline void widenASCII(ZBWChar *out, const uint8_t *bytes, size_t count) {
  size_t done = 0;
#if defined(__SSE2__)
  const __m128i zero = _mm_setzero_si128();
  for (; count - done >= 16; done += 16) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(bytes + done));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + done), _mm_unpacklo_epi8(block, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i *>(out + done + 8), _mm_unpackhi_epi8(block, zero));
  }
#endif
  for (; done < count; ++done)
    out[done] = bytes[done];
}

// Copies `count` ASCII units into bytes.
inline void narrowASCII(uint8_t *out, const ZBWChar *units, size_t count) {
  size_t done = 0;
#if defined(__SSE2__)
  for (; count - done >= 8; done += 8) {
    const __m128i block = _mm_loadu_si128(reinterpret_cast<const __m128i *>(units + done));
    _mm_storel_epi64(reinterpret_cast<__m128i *>(out + done), _mm_packus_epi16(block, block));
  }
#endif
  for (; done < count; ++done)
    out[done] = static_cast<uint8_t>(units[done]);
}

template <>
void UnitWriter<ZBWChar>::putASCII(const uint8_t *bytes, size_t run) {
  if (count < capacity)
    widenASCII(destination + count, bytes, run < capacity - count ? run : capacity - count);
  count += run;
}

void reportErrors(size_t *outErrorCount, size_t errors) {
  if (outErrorCount != nullptr)
    *outErrorCount = errors;
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
        encode(value, length, destination_ + count_);
      else
        destination_ = nullptr;
    }
    count_ += length;
  }

  // `count` ASCII units: each fits while there is room, then the rest is
  // dropped as for any character that does not fit.
  void putASCII(const ZBWChar *units, size_t count) {
    if (destination_ != nullptr) {
      const size_t room = capacity_ - count_;
      narrowASCII(destination_ + count_, units, count < room ? count : room);
      if (count > room)
        destination_ = nullptr;
    }
    count_ += count;
  }

  size_t count() const { return count_; }

private:
  static void encode(uint32_t value, size_t length, uint8_t *out) {
    switch (length) {
    case 1:
      out[0] = static_cast<uint8_t>(value);
      break;
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

  uint8_t *destination_; // null once dropped
  size_t capacity_;
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

extern "C" size_t ZBUTF8ToUTF16(ZBWChar *destination, size_t capacity, const char *source,
                                size_t length, uint32_t flags, size_t *outErrorCount) noexcept {
  const auto *bytes = reinterpret_cast<const uint8_t *>(source);
  if (bytes == nullptr)
    length = 0;
  const bool latin1Fallback = (flags & ZBUTFFlagLatin1Fallback) != 0;
  UnitWriter<ZBWChar> out{destination, destination != nullptr ? capacity : 0};
  size_t errors = 0;
  size_t position = 0;
  while (position < length) {
    const uint8_t lead = bytes[position];
    if (lead < 0x80) {
      const size_t run = asciiRunLength(bytes + position, length - position);
      out.putASCII(bytes + position, run);
      position += run;
      continue;
    }
    // Well-formed two-byte sequences, most of the rest of European text,
    // take the short way.
    if (lead >= 0xC2 && lead < 0xE0 && length - position >= 2 &&
        isContinuation(bytes[position + 1])) {
      out.put(twoByteValue(lead, bytes[position + 1]));
      position += 2;
      continue;
    }
    const Sequence sequence = readSequence(bytes + position, length - position, latin1Fallback);
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
  reportErrors(outErrorCount, errors);
  return out.count;
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

extern "C" size_t ZBUTF16ToUTF8(char *destination, size_t capacity, const ZBWChar *source,
                                size_t length, uint32_t /*flags*/, size_t *outErrorCount) noexcept {
  if (source == nullptr)
    length = 0;
  UTF8Writer out(destination, capacity);
  size_t errors = 0;
  for (size_t index = 0; index < length;) {
    const uint32_t unit = static_cast<uint16_t>(source[index]);
    if (unit < 0x80) {
      const size_t run = asciiRunLength(source + index, length - index);
      out.putASCII(source + index, run);
      index += run;
      continue;
    }
    ++index;
    if (isUnconvertibleUnit(unit))
      ++errors;
    else
      out.put(unit, utf8Length(unit));
  }
  reportErrors(outErrorCount, errors);
  return out.count();
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
