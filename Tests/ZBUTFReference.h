// A plain converter between UTF-8 and UTF-16 that reads one byte or unit at
// a time, with the library's rules written out as directly as they can be:
// the block-at-a-time converters must agree with it on every input. Shared
// by the unit tests and the UTF fuzzer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace zbtest {

struct ReferenceUTF16 {
  std::vector<uint16_t> units;
  size_t errors = 0;
};

inline ReferenceUTF16 referenceUTF8ToUTF16(const uint8_t *bytes, size_t length,
                                           bool latin1Fallback) {
  ReferenceUTF16 result;
  auto continuation = [&](size_t at) { return at < length && (bytes[at] & 0xC0) == 0x80; };
  size_t at = 0;
  while (at < length) {
    const uint32_t lead = bytes[at];
    size_t size = 1;
    if (lead < 0x80) {
      result.units.push_back(uint16_t(lead));
    } else if (latin1Fallback && !continuation(at + 1)) {
      if (lead < 0xA0)
        ++result.errors; // C1 controls are not Latin-1 text
      else
        result.units.push_back(uint16_t(lead));
    } else if (lead >= 0xC0 && lead < 0xE0 && continuation(at + 1)) {
      const uint32_t value = ((lead & 0x1F) << 6) | (bytes[at + 1] & 0x3F);
      size = 2;
      if (value < 0x80)
        ++result.errors;
      else
        result.units.push_back(uint16_t(value));
    } else if (lead >= 0xE0 && lead < 0xF0 && continuation(at + 1) && continuation(at + 2)) {
      const uint32_t value =
          ((lead & 0x0F) << 12) | (uint32_t(bytes[at + 1] & 0x3F) << 6) | (bytes[at + 2] & 0x3F);
      const uint32_t withoutBit13 = value & ~0x2000u;
      size = 3;
      if (value >= 0x800 && (withoutBit13 < 0xD800 || withoutBit13 > 0xD8FF))
        result.units.push_back(uint16_t(value));
      else
        ++result.errors;
    } else if (lead >= 0xF0 && lead <= 0xF4 && continuation(at + 1) && continuation(at + 2) &&
               continuation(at + 3)) {
      // Only the lead's two low bits count; bits 10-15 stay in the low unit.
      const uint32_t value = (((lead & 0x03) << 18) | (uint32_t(bytes[at + 1] & 0x3F) << 12) |
                              (uint32_t(bytes[at + 2] & 0x3F) << 6) | (bytes[at + 3] & 0x3F));
      size = 4;
      if (value < 0x10000) {
        ++result.errors;
      } else {
        result.units.push_back(uint16_t(((value - 0x10000) >> 10) | 0xD800));
        result.units.push_back(uint16_t(value | 0xDC00));
      }
    } else {
      ++result.errors;
    }
    at += size;
  }
  return result;
}

struct ReferenceUTF8 {
  std::vector<char> bytes;
  size_t errors = 0;
};

inline ReferenceUTF8 referenceUTF16ToUTF8(const uint16_t *units, size_t length) {
  ReferenceUTF8 result;
  for (size_t at = 0; at < length; ++at) {
    const uint32_t unit = units[at];
    if ((unit & 0xD800) == 0xD800) {
      ++result.errors; // surrogates and F800-FFFF
    } else if (unit < 0x80) {
      result.bytes.push_back(char(unit));
    } else if (unit < 0x800) {
      result.bytes.push_back(char(0xC0 | (unit >> 6)));
      result.bytes.push_back(char(0x80 | (unit & 0x3F)));
    } else {
      result.bytes.push_back(char(0xE0 | (unit >> 12)));
      result.bytes.push_back(char(0x80 | ((unit >> 6) & 0x3F)));
      result.bytes.push_back(char(0x80 | (unit & 0x3F)));
    }
  }
  return result;
}

} // namespace zbtest
