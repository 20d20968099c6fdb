// Literal IP addresses to records and records to text, with the forms and
// the leniency of Winsock's own string conversions, so results match the
// system everywhere while the code builds and fuzzes natively.
//
// IPv4 literals are read the way inet_addr reads them: one to four numbers,
// each decimal, octal (leading 0) or hex (0x); the last fills the remaining
// bytes. IPv6 literals are hex groups with at most one "::" and an optional
// dotted IPv4 tail, then an optional decimal "%scope"; in brackets they may
// carry a ":port" (in any of inet_addr's bases, as an IPv4 port may be).
// IPv6 text is lower-case hex with the longest run of two or more zero
// groups written "::", and the forms that carry an IPv4 address keep their
// dotted tail.
#include "ZBSocketAddressText.h"

#include <cstdio>
#include <cstring>

namespace zb::socketaddress {
namespace {

int hexValue(char character) {
  if (character >= '0' && character <= '9')
    return character - '0';
  if (character >= 'a' && character <= 'f')
    return character - 'a' + 10;
  if (character >= 'A' && character <= 'F')
    return character - 'A' + 10;
  return -1;
}

bool isDigit(char character) { return character >= '0' && character <= '9'; }

// One inet_addr number at `p`: hex after "0x", octal after a leading 0,
// else decimal; at most `maximum`.
bool parseNumber(const char *&p, uint64_t maximum, uint64_t &value) {
  value = 0;
  unsigned base = 10;
  if (p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
    base = 16;
    p += 2;
  } else if (p[0] == '0') {
    base = 8;
  }
  const char *start = p;
  for (;; ++p) {
    const int digit = hexValue(*p);
    if (digit < 0 || (base != 16 && !isDigit(*p)))
      break;
    if (digit >= static_cast<int>(base))
      return false; // an 8 or 9 in an octal number
    value = value * base + static_cast<unsigned>(digit);
    if (value > maximum)
      return false;
  }
  return p != start;
}

bool parseDecimal(const char *&p, uint64_t maximum, uint64_t &value) {
  value = 0;
  const char *start = p;
  for (; isDigit(*p); ++p) {
    value = value * 10 + static_cast<unsigned>(*p - '0');
    if (value > maximum)
      return false;
  }
  return p != start;
}

// The inet_addr forms a, a.b, a.b.c and a.b.c.d.
bool parseIPv4Lenient(const char *&p, unsigned char *address) {
  uint64_t parts[4];
  int count = 0;
  for (;;) {
    if (!parseNumber(p, 0xFFFFFFFFu, parts[count]))
      return false;
    ++count;
    if (*p != '.' || count == 4)
      break;
    ++p;
  }
  for (int index = 0; index + 1 < count; ++index)
    if (parts[index] > 0xFF)
      return false;
  const int lastBytes = 5 - count;
  if (lastBytes < 4 && parts[count - 1] >> (8 * lastBytes) != 0)
    return false;
  uint32_t value = 0;
  for (int index = 0; index + 1 < count; ++index)
    value |= static_cast<uint32_t>(parts[index]) << (24 - 8 * index);
  value |= static_cast<uint32_t>(parts[count - 1]);
  for (int index = 0; index < 4; ++index)
    address[index] = static_cast<unsigned char>(value >> (24 - 8 * index));
  return true;
}

// The dotted tail of an IPv6 literal: exactly four decimal bytes.
bool parseDottedQuad(const char *&p, unsigned char *address) {
  for (int index = 0; index < 4; ++index) {
    if (index > 0 && *p++ != '.')
      return false;
    uint64_t part;
    const char *start = p;
    if (!parseDecimal(p, 0xFF, part) || p - start > 3)
      return false;
    address[index] = static_cast<unsigned char>(part);
  }
  return true;
}

bool parseIPv6Address(const char *&p, unsigned char *address) {
  uint16_t groups[8];
  int count = 0;
  int gap = -1;
  bool groupRequired = true; // at the start, and after a single ":"
  if (p[0] == ':') {
    if (p[1] != ':')
      return false;
    p += 2;
    gap = 0;
    groupRequired = false;
  }
  while (groupRequired || hexValue(*p) >= 0) {
    const char *start = p;
    unsigned value = 0;
    while (hexValue(*p) >= 0 && p - start < 5)
      value = value * 16 + static_cast<unsigned>(hexValue(*p++));
    if (*p == '.') {
      // A dotted tail takes the last two groups and ends the address.
      p = start;
      unsigned char tail[4];
      if (count > 6 || !parseDottedQuad(p, tail))
        return false;
      groups[count++] = static_cast<uint16_t>((tail[0] << 8) | tail[1]);
      groups[count++] = static_cast<uint16_t>((tail[2] << 8) | tail[3]);
      break;
    }
    if (p == start || p - start > 4 || count == 8)
      return false;
    groups[count++] = static_cast<uint16_t>(value);
    if (*p != ':')
      break;
    if (p[1] == ':') {
      if (gap >= 0)
        return false;
      gap = count;
      p += 2;
      groupRequired = false;
    } else {
      ++p;
      groupRequired = true;
    }
  }
  if (gap < 0 ? count != 8 : count > 7)
    return false;
  const int zeros = 8 - count;
  int out = 0;
  for (int index = 0; index < count; ++index) {
    if (index == gap)
      out += zeros;
    address[2 * out] = static_cast<unsigned char>(groups[index] >> 8);
    address[2 * out + 1] = static_cast<unsigned char>(groups[index]);
    ++out;
  }
  return true; // the zero groups of the gap are already zero
}

// A ":port" after a literal, a number in any of inet_addr's bases; port 0
// is refused, as Winsock refuses it.
bool parsePort(const char *&p, unsigned char *record) {
  uint64_t port;
  ++p;
  if (!parseNumber(p, 0xFFFF, port) || port == 0)
    return false;
  setPort(record, static_cast<uint16_t>(port));
  return true;
}

// A "%scope": decimal, with no leading zero unless it is 0 itself.
bool parseScope(const char *&p, unsigned char *record) {
  uint64_t scope;
  ++p;
  if ((p[0] == '0' && isDigit(p[1])) || !parseDecimal(p, 0xFFFFFFFFu, scope))
    return false;
  const auto value = static_cast<uint32_t>(scope);
  std::memcpy(record + kIPv6ScopeOffset, &value, sizeof value);
  return true;
}

bool parseIPv4Record(const char *p, unsigned char *record) {
  if (!parseIPv4Lenient(p, record + kIPv4AddressOffset))
    return false;
  if (*p == ':' && !parsePort(p, record))
    return false;
  return *p == '\0';
}

bool parseIPv6Record(const char *p, unsigned char *record) {
  const bool bracketed = *p == '[';
  if (bracketed)
    ++p;
  if (!parseIPv6Address(p, record + kIPv6AddressOffset))
    return false;
  if (*p == '%' && !parseScope(p, record))
    return false;
  if (bracketed) {
    if (*p++ != ']')
      return false;
    if (*p == ':' && !parsePort(p, record))
      return false;
  }
  return *p == '\0';
}

size_t formatDotted(const unsigned char *bytes, char *text) {
  const int length = std::snprintf(text, kPrintableCapacity, "%u.%u.%u.%u", bytes[0], bytes[1],
                                   bytes[2], bytes[3]);
  return static_cast<size_t>(length);
}

// True when the first `count` bytes are zero.
bool zeroPrefix(const unsigned char *bytes, size_t count) {
  for (size_t index = 0; index < count; ++index)
    if (bytes[index] != 0)
      return false;
  return true;
}

size_t formatIPv6(const unsigned char *bytes, char *text) {
  uint16_t groups[8];
  for (int index = 0; index < 8; ++index)
    groups[index] = static_cast<uint16_t>((bytes[2 * index] << 8) | bytes[2 * index + 1]);
  // IPv4-mapped (::ffff:a.b.c.d), IPv4-translated (::ffff:0:a.b.c.d) and
  // IPv4-compatible (::a.b.c.d) addresses keep a dotted tail while their
  // seventh group is not zero (so "::1" and "::ffff:0:1" stay hex); ISATAP
  // addresses (...:5efe:a.b.c.d) always do.
  const bool mapped = zeroPrefix(bytes, 10) && groups[5] == 0xFFFF;
  const bool translated = zeroPrefix(bytes, 8) && groups[4] == 0xFFFF && groups[5] == 0;
  const bool compatible = zeroPrefix(bytes, 12);
  const bool isatap = (groups[4] == 0 || groups[4] == 0x0200) && groups[5] == 0x5EFE;
  const bool dottedTail = ((mapped || translated || compatible) && groups[6] != 0) || isatap;
  const int headGroups = dottedTail ? 6 : 8;
  int bestStart = -1, bestLength = 1;
  for (int index = 0; index < headGroups;) {
    int run = 0;
    while (index + run < headGroups && groups[index + run] == 0)
      ++run;
    if (run > bestLength) {
      bestStart = index;
      bestLength = run;
    }
    index += run > 0 ? run : 1;
  }
  size_t length = 0;
  for (int index = 0; index < headGroups; ++index) {
    if (index == bestStart) {
      text[length++] = ':';
      if (index == 0)
        text[length++] = ':';
      index += bestLength - 1;
      continue;
    }
    length += static_cast<size_t>(
        std::snprintf(text + length, kPrintableCapacity - length, "%x", groups[index]));
    if (index + 1 < 8)
      text[length++] = ':';
  }
  if (headGroups == 6)
    return length + formatDotted(bytes + 12, text + length);
  text[length] = '\0';
  return length;
}

} // namespace

bool parseLiteral(uint16_t family, const char *text, unsigned char *record) noexcept {
  std::memset(record, 0, kIPv6Length);
  if (text == nullptr)
    return false;
  setFamily(record, family);
  if (family == kFamilyIPv4)
    return parseIPv4Record(text, record);
  if (family == kFamilyIPv6)
    return parseIPv6Record(text, record);
  return false;
}

size_t formatAddress(uint16_t family, const unsigned char *bytes, char *text) noexcept {
  return family == kFamilyIPv4 ? formatDotted(bytes, text) : formatIPv6(bytes, text);
}

} // namespace zb::socketaddress
