// Socket addresses as bytes and as text, without any socket header: the
// record layouts every platform shares (IPv4 16 bytes, IPv6 28 bytes, the
// family in the first 16 bits, the port in network order), the literal
// parser and the printable form. Platform-neutral, so the host build tests
// and fuzzes them natively.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zb::socketaddress {

constexpr uint16_t kFamilyIPv4 = 2;
constexpr uint16_t kFamilyIPv6 = 23;
constexpr uint32_t kIPv4Length = 16;
constexpr uint32_t kIPv6Length = 28;
constexpr size_t kPortOffset = 2;
constexpr size_t kIPv4AddressOffset = 4;
constexpr size_t kIPv6FlowOffset = 4;
constexpr size_t kIPv6AddressOffset = 8;
constexpr size_t kIPv6ScopeOffset = 24;
// Room for the longest printable form plus its zero.
constexpr size_t kPrintableCapacity = 64;

inline uint16_t familyOf(const void *record) {
  uint16_t family;
  __builtin_memcpy(&family, record, sizeof family);
  return family;
}
inline void setFamily(void *record, uint16_t family) {
  __builtin_memcpy(record, &family, sizeof family);
}
inline uint16_t portOf(const void *record) {
  const auto *bytes = static_cast<const unsigned char *>(record) + kPortOffset;
  return static_cast<uint16_t>((bytes[0] << 8) | bytes[1]);
}
inline void setPort(void *record, uint16_t port) {
  auto *bytes = static_cast<unsigned char *>(record) + kPortOffset;
  bytes[0] = static_cast<unsigned char>(port >> 8);
  bytes[1] = static_cast<unsigned char>(port);
}

// Parses `text` as a literal of `family` (IPv4 or IPv6) into `record`
// (room for kIPv6Length bytes), which is zeroed first; the family, the
// address, a port written in the text and an IPv6 scope are stored. The
// accepted forms are Winsock's: IPv4 as one to four numbers in decimal,
// octal (leading 0) or hex (0x), optionally ":port"; IPv6 in hex groups with
// one "::" and an optional dotted IPv4 tail, optionally "%scope", optionally
// in brackets followed by ":port". False for anything else.
bool parseLiteral(uint16_t family, const char *text, unsigned char *record) noexcept;

// Writes the address bytes of `family` (4 or 16 of them) as Winsock prints
// them without port or scope ("10.1.2.3", "fe80::1", "::ffff:1.2.3.4") into
// `text`, which holds kPrintableCapacity bytes; returns the length.
size_t formatAddress(uint16_t family, const unsigned char *bytes, char *text) noexcept;

} // namespace zb::socketaddress
