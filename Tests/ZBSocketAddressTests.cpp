// Socket addresses: the accessors and their length rules, literal parsing,
// the printable form, private ranges and info lists run on every host; on
// Windows the parser and printer are also held against Winsock's own
// conversions, and resolution, reverse lookup and interface enumeration
// run against the loopback interface (nothing leaves it: names are
// "localhost" or numeric).
#include "ZBSocketAddress.h"
#include "ZBSocketAddressText.h"

#include "ZBAlloc.h"
#include "ZBTestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#ifdef _WIN32
#  include <winsock2.h>
#  include <ws2tcpip.h>
#  include "ZBSocket.h"
#endif

namespace {

// A record with room for either family, read and written as bytes.
struct Record {
  alignas(8) unsigned char bytes[32] = {};
  sockaddr *address() { return reinterpret_cast<sockaddr *>(bytes); }
};

Record makeRecord(int32_t family, std::vector<unsigned char> ip, uint16_t port,
                  uint32_t *length = nullptr) {
  Record record;
  uint32_t room = sizeof record.bytes;
  EXPECT_EQ(0, ZBSocketAddressInitialize(family, ip.empty() ? nullptr : ip.data(),
                                         static_cast<uint32_t>(ip.size()), port, record.address(),
                                         &room));
  if (length != nullptr)
    *length = room;
  return record;
}

std::string printable(sockaddr *address, uint32_t length) {
  char text[64] = "?";
  EXPECT_EQ(0, ZBSocketAddressGetPrintable(address, length, nullptr, text, sizeof text, nullptr));
  return text;
}

// Parses `text` and prints the result, or returns the parse's code.
std::string parseAndPrint(int32_t family, const char *text, ZBError *error = nullptr) {
  ZBSocketAddressInfo *list = nullptr;
  const ZBError result = ZBSocketAddressParseLiteralIP(family, text, 0, &list);
  if (error != nullptr)
    *error = result;
  if (result != 0)
    return "error " + std::to_string(result);
  const std::string printed = printable(list->address, list->addressLength);
  ZBSocketAddressFreeInfoList(list);
  return printed;
}

TEST(ZBSocketAddress, InitializeChecksFamilyCountAndRoom) {
  struct Row {
    int32_t family;
    uint32_t byteCount;
    bool withBytes;
    uint32_t room;
    ZBError result;
    uint32_t length;
  };
  const Row rows[] = {
      {2, 4, true, 16, 0, 16},
      {23, 16, true, 28, 0, 28},
      {2, 0, false, 16, 0, 16},
      {23, 0, false, 28, 0, 28},
      {2, 16, true, 16, ZBErrorBufferTooSmall, 16},
      {23, 4, true, 28, ZBErrorBufferTooSmall, 28},
      {2, 4, true, 15, ZBErrorBufferTooSmall, 15},
      {23, 16, true, 27, ZBErrorBufferTooSmall, 27},
      {1, 4, true, 28, ZBErrorFamilyUnsupported, 28},
      {24, 16, true, 28, ZBErrorFamilyUnsupported, 28},
  };
  const unsigned char bytes[16] = {10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15};
  for (const Row &row : rows) {
    SCOPED_TRACE(testing::Message() << row.family << "/" << row.byteCount << "/" << row.room);
    Record record;
    std::memset(record.bytes, 0xEE, sizeof record.bytes);
    uint32_t length = row.room;
    EXPECT_EQ(row.result, ZBSocketAddressInitialize(row.family, row.withBytes ? bytes : nullptr,
                                                    row.byteCount, 443, record.address(), &length));
    EXPECT_EQ(row.length, length);
    if (row.result != 0)
      continue;
    uint16_t port = 0;
    EXPECT_EQ(row.family, ZBSocketAddressGetFamily(record.address(), length));
    EXPECT_EQ(0, ZBSocketAddressGetPort(record.address(), length, &port));
    EXPECT_EQ(443, port);
    EXPECT_EQ(0x01, record.bytes[2]); // network order
    EXPECT_EQ(0xBB, record.bytes[3]);
    unsigned char copy[16] = {};
    EXPECT_EQ(0, ZBSocketAddressCopyAddress(record.address(), length, copy, sizeof copy));
    const size_t count = row.family == 2 ? 4 : 16;
    for (size_t index = 0; index < count; ++index)
      EXPECT_EQ(row.withBytes ? bytes[index] : 0, copy[index]);
    EXPECT_EQ(length, ZBSocketAddressGetExpectedLength(record.address()));
    EXPECT_EQ(0xEE, record.bytes[length]); // nothing past the record
  }
  uint32_t length = 16;
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketAddressInitialize(2, nullptr, 0, 1, nullptr, &length));
}

TEST(ZBSocketAddress, AccessorsApplyTheirLengthRules) {
  uint32_t length = 0;
  Record ipv4 = makeRecord(2, {10, 0, 0, 1}, 80, &length);
  Record ipv6 = makeRecord(23, {}, 8080);
  const void *bytes = nullptr;
  uint32_t count = 0;
  uint16_t port = 0;
  // The address accessors want the exact length; the port ones only room.
  EXPECT_EQ(ZBErrorBufferTooSmall, ZBSocketAddressGetAddress(ipv4.address(), 20, &bytes, &count));
  EXPECT_EQ(0, ZBSocketAddressGetPort(ipv4.address(), 20, &port));
  EXPECT_EQ(80, port);
  EXPECT_EQ(0, ZBSocketAddressGetAddress(ipv4.address(), 16, &bytes, &count));
  EXPECT_EQ(4u, count);
  EXPECT_EQ(ipv4.bytes + 4, bytes);
  EXPECT_EQ(0, ZBSocketAddressGetAddress(ipv6.address(), 28, nullptr, &count));
  EXPECT_EQ(16u, count);
  EXPECT_EQ(ZBErrorBufferTooSmall, ZBSocketAddressGetAddress(ipv6.address(), 16, &bytes, &count));
  EXPECT_EQ(ZBErrorBufferTooSmall, ZBSocketAddressGetPort(ipv6.address(), 27, &port));
  EXPECT_EQ(ZBErrorBufferTooSmall, ZBSocketAddressSetPort(ipv4.address(), 15, 1));
  EXPECT_EQ(0, ZBSocketAddressSetPort(ipv6.address(), 40, 9));
  EXPECT_EQ(0, ZBSocketAddressGetPort(ipv6.address(), 28, &port));
  EXPECT_EQ(9, port);
  unsigned char small[15];
  EXPECT_EQ(ZBErrorBufferTooSmall, ZBSocketAddressCopyAddress(ipv6.address(), 28, small, 15));
  EXPECT_EQ(ZBErrorBufferTooSmall, ZBSocketAddressCopyAddress(ipv4.address(), 16, small, 3));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketAddressCopyAddress(ipv4.address(), 16, nullptr, 4));

  Record other;
  other.bytes[0] = 1; // family 1
  EXPECT_EQ(ZBErrorFamilyUnsupported,
            ZBSocketAddressGetAddress(other.address(), 16, &bytes, &count));
  EXPECT_EQ(ZBErrorFamilyUnsupported, ZBSocketAddressGetPort(other.address(), 16, &port));
  EXPECT_EQ(ZBErrorFamilyUnsupported, ZBSocketAddressSetPort(other.address(), 16, 1));
  EXPECT_EQ(0u, ZBSocketAddressGetExpectedLength(other.address()));
  EXPECT_EQ(0u, ZBSocketAddressGetExpectedLength(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketAddressGetPort(nullptr, 16, &port));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketAddressGetAddress(nullptr, 16, &bytes, &count));
  EXPECT_EQ(0, ZBSocketAddressGetFamily(nullptr, 0));
}

// Literal, family, and the printed form of the parsed address (or the
// code). The accepted forms are Winsock's, lenient IPv4 included.
struct LiteralRow {
  const char *text;
  int32_t family;
  const char *printed;
};
const LiteralRow kLiterals[] = {
    {"10.1.2.3", 2, "10.1.2.3"},
    {"10.1.2.3:8080", 2, "10.1.2.3"},
    {"127.1", 2, "127.0.0.1"},
    {"1.2.3", 2, "1.2.0.3"},
    {"0x7f.0.0.1", 2, "127.0.0.1"},
    {"010.0.0.1", 2, "8.0.0.1"},
    {"4294967295", 2, "255.255.255.255"},
    {"255.255.255.255", 2, "255.255.255.255"},
    {"256.1.1.1", 2, "error -1"},
    {"1.2.3.4.5", 2, "error -1"},
    {"1.2.3.4.", 2, "error -1"},
    {"1..2.3", 2, "error -1"},
    {"09.1.1.1", 2, "error -1"},
    {"1.2.3.4:", 2, "error -1"},
    {"1.2.3.4:65536", 2, "error -1"},
    {" 1.2.3.4", 2, "error -1"},
    {"", 2, "error -1"},
    {"::1", 2, "error -1"},
    {"::1", 23, "::1"},
    {"::", 23, "::"},
    {"fe80::1%2", 23, "fe80::1"},
    {"[fe80::1%2]:80", 23, "fe80::1"},
    {"[::1]", 23, "::1"},
    {"2001:db8:0:0:1:0:0:1", 23, "2001:db8::1:0:0:1"},
    {"2001:DB8::A", 23, "2001:db8::a"},
    {"1:2:3:4:5:6:7:8", 23, "1:2:3:4:5:6:7:8"},
    {"::ffff:1.2.3.4", 23, "::ffff:1.2.3.4"},
    {"1::", 23, "1::"},
    {"::g", 23, "error -1"},
    {"[::1", 23, "error -1"},
    {"::1]", 23, "error -1"},
    {"[::1]:", 23, "error -1"},
    {"1:2:3:4:5:6:7:8:9", 23, "error -1"},
    {"1::2::3", 23, "error -1"},
    {"12345::", 23, "error -1"},
    {":1", 23, "error -1"},
    {"1:", 23, "error -1"},
    {"::1.2.3", 23, "error -1"},
    {"::1%", 23, "error -1"},
    {"1.2.3.4", 23, "error -1"},
    {"1.2.3.4", 0, "1.2.3.4"},
    {"fd00::1", 0, "fd00::1"},
    {"::g", 0, "error -1"},
    {"1.2.3.4", 7, "error -1"},
};

TEST(ZBSocketAddress, LiteralsParseAsWinsockReadsThem) {
  for (const LiteralRow &row : kLiterals) {
    SCOPED_TRACE(testing::Message() << '"' << row.text << "\" family " << row.family);
    EXPECT_EQ(row.printed, parseAndPrint(row.family, row.text));
    // Validation alone gives the same verdict.
    const ZBError verdict = ZBSocketAddressParseLiteralIP(row.family, row.text, 0, nullptr);
    EXPECT_EQ(std::string(row.printed).rfind("error", 0) == 0, verdict != 0);
  }
  const std::string longName(300, 'a');
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketAddressParseLiteralIP(0, longName.c_str(), 0, nullptr));
  const std::string longDigits(300, '1');
  EXPECT_EQ(ZBErrorInvalidArgument,
            ZBSocketAddressParseLiteralIP(0, longDigits.c_str(), 0, nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketAddressParseLiteralIP(0, nullptr, 0, nullptr));

  // ::1 with either family and port 80: an IPv6 node with that port.
  ZBSocketAddressInfo *list = nullptr;
  ASSERT_EQ(0, ZBSocketAddressParseLiteralIP(0, "[::1%7]:99", 80, &list));
  EXPECT_EQ(23, list->family);
  EXPECT_EQ(28u, list->addressLength);
  EXPECT_EQ(nullptr, list->next);
  EXPECT_EQ(nullptr, list->canonicalName);
  EXPECT_EQ(0, list->socketType);
  uint16_t port = 0;
  EXPECT_EQ(0, ZBSocketAddressGetPort(list->address, list->addressLength, &port));
  EXPECT_EQ(80, port); // the text's port gives way to the argument
  uint32_t scope = 0;
  std::memcpy(&scope, reinterpret_cast<unsigned char *>(list->address) + 24, sizeof scope);
  EXPECT_EQ(7u, scope);
  ZBSocketAddressFreeInfoList(list);
}

TEST(ZBSocketAddress, PrintableFormsAndTheirErrors) {
  uint32_t length = 0;
  Record ipv4 = makeRecord(2, {10, 1, 2, 3}, 443, &length);
  char text[64] = {};
  uint16_t family = 0, port = 0;
  ASSERT_EQ(0, ZBSocketAddressGetPrintable(ipv4.address(), 16, &family, text, sizeof text, &port));
  EXPECT_STREQ("10.1.2.3", text);
  EXPECT_EQ(443, port);
  EXPECT_EQ(2, family);
  // The scope and port never show.
  ZBSocketAddressInfo *list = nullptr;
  ASSERT_EQ(0, ZBSocketAddressParseLiteralIP(23, "fe80::abcd%3", 5, &list));
  ASSERT_EQ(0, ZBSocketAddressGetPrintable(list->address, 28, nullptr, text, sizeof text, nullptr));
  EXPECT_STREQ("fe80::abcd", text);

  struct Row {
    const char *name;
    sockaddr *address;
    uint32_t length;
    bool buffer;
    uint32_t size;
    bool familyOut;
    ZBError result;
  };
  Record other;
  other.bytes[0] = 9;
  const Row rows[] = {
      {"nothing asked", ipv4.address(), 16, false, 0, false, ZBErrorInvalidArgument},
      {"null buffer with a size", ipv4.address(), 16, false, 16, false, ZBErrorInvalidArgument},
      {"IPv4 of length 28", ipv4.address(), 28, true, 64, false, ZBErrorInvalidArgument},
      {"IPv6 of length 16", list->address, 16, true, 64, false, ZBErrorInvalidArgument},
      {"other family", other.address(), 16, true, 64, false, ZBErrorFamilyUnsupported},
      {"too small for the text", ipv4.address(), 16, true, 8, false, ZBErrorGeneric},
      {"exactly the text", ipv4.address(), 16, true, 9, false, ZBErrorNone},
      {"family only", other.address(), 16, false, 0, true, ZBErrorFamilyUnsupported},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.name);
    family = 0;
    EXPECT_EQ(row.result, ZBSocketAddressGetPrintable(
                              row.address, row.length, row.familyOut ? &family : nullptr,
                              row.buffer ? text : nullptr, row.size, nullptr));
    if (row.familyOut) {
      EXPECT_EQ(ZBSocketAddressGetFamily(row.address, row.length), family);
    }
  }
  ZBSocketAddressFreeInfoList(list);
}

TEST(ZBSocketAddress, PrivateRanges) {
  struct Row {
    const char *literal;
    bool isPrivate;
  };
  const Row rows[] = {
      {"10.0.0.0", true},        {"10.255.255.255", true}, {"9.255.255.255", false},
      {"172.16.0.0", true},      {"172.31.255.255", true}, {"172.32.0.0", false},
      {"172.15.255.255", false}, {"192.168.0.1", true},    {"192.169.0.1", false},
      {"127.0.0.1", false},      {"169.254.1.1", false},   {"fd00::1", true},
      {"fc00::1", true},         {"fe80::1", false},       {"::1", false},
      {"fb00::1", false},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.literal);
    ZBSocketAddressInfo *list = nullptr;
    ASSERT_EQ(0, ZBSocketAddressParseLiteralIP(0, row.literal, 0, &list));
    bool isPrivate = !row.isPrivate;
    EXPECT_EQ(0, ZBSocketAddressIsPrivateIP(list->address, list->addressLength, &isPrivate));
    EXPECT_EQ(row.isPrivate, isPrivate);
    ZBSocketAddressFreeInfoList(list);
  }
  Record ipv4 = makeRecord(2, {10, 0, 0, 1}, 0);
  Record ipv6 = makeRecord(23, std::vector<unsigned char>(16, 0xFD), 0);
  Record other;
  bool isPrivate = true;
  EXPECT_EQ(ZBErrorBufferTooSmall, ZBSocketAddressIsPrivateIP(ipv4.address(), 8, &isPrivate));
  EXPECT_FALSE(isPrivate);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketAddressIsPrivateIP(ipv6.address(), 8, &isPrivate));
  isPrivate = true;
  EXPECT_EQ(0, ZBSocketAddressIsPrivateIP(other.address(), 16, &isPrivate));
  EXPECT_FALSE(isPrivate);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketAddressIsPrivateIP(nullptr, 16, &isPrivate));
}

TEST(ZBSocketAddress, InfoListsAreCopiedDeeplyAndFreed) {
  Record ipv4 = makeRecord(2, {192, 168, 1, 2}, 7);
  ZBSocketAddressInfo *node = ZBSocketAddressMakeInfoListNode(ipv4.address(), 16);
  ASSERT_NE(nullptr, node);
  EXPECT_EQ(2, node->family);
  EXPECT_EQ(16u, node->addressLength);
  EXPECT_EQ(0, std::memcmp(node->address, ipv4.bytes, 16));
  EXPECT_NE(static_cast<void *>(node->address), static_cast<void *>(ipv4.bytes));
  ZBSocketAddressInfo *second = nullptr;
  ASSERT_EQ(0, ZBSocketAddressParseLiteralIP(23, "2001:db8::5", 9, &second));
  node->next = second;
  ZBSocketAddressInfo *copy = ZBSocketAddressDupInfoList(node);
  ASSERT_NE(nullptr, copy);
  ZBSocketAddressFreeInfoList(node);
  ASSERT_NE(nullptr, copy->next);
  EXPECT_EQ(nullptr, copy->next->next);
  EXPECT_EQ("192.168.1.2", printable(copy->address, copy->addressLength));
  EXPECT_EQ("2001:db8::5", printable(copy->next->address, copy->next->addressLength));
  ZBSocketAddressFreeInfoList(copy);
  ZBSocketAddressFreeInfoList(nullptr);
  EXPECT_EQ(nullptr, ZBSocketAddressMakeInfoListNode(nullptr, 16));
  EXPECT_EQ(nullptr, ZBSocketAddressDupInfoList(nullptr));
}

#ifdef _WIN32

// The library's literal parser and printer against Winsock's, entry by
// entry: the whole record a literal gives (family, port, address, scope) or
// the refusal, and the text of each address. Where Wine and Windows are
// known to differ the row follows Windows and says so; none are known today.
struct WinsockLiteral {
  uint16_t family;
  const char *text;
};
// clang-format off
const WinsockLiteral kWinsockLiterals[] = {
    // IPv4 numbers and ports in every base.
    {2, "1.2.3.4"}, {2, "0x01.2.3.4"}, {2, "01.2.3.4"}, {2, "127.1"}, {2, "1.2.3"},
    {2, "4294967295"}, {2, "4294967296"}, {2, "1.16777215"}, {2, "1.16777216"},
    {2, "1.2.3.4:80"}, {2, "10.1.2.3:8080"}, {2, "1.2.3.4:0x50"}, {2, "1.2.3.4:0X50"},
    {2, "1.2.3.4:050"}, {2, "1.2.3.4:08"}, {2, "1.2.3.4:0"}, {2, "1.2.3.4:00"},
    {2, "1.2.3.4:0x0"}, {2, "1.2.3.4:65535"}, {2, "1.2.3.4:0xFFFF"}, {2, "1.2.3.4:0177777"},
    {2, "1.2.3.4:65536"}, {2, "1.2.3.4:0x10000"}, {2, "1.2.3.4:"}, {2, "1.2.3.4:0x"},
    {2, "1.2.3.4:+80"}, {2, "1.2.3.4:80x"}, {2, "1.2.3.4 :80"}, {2, "[1.2.3.4]:80"},
    // IPv6 ports in brackets, in every base.
    {23, "[::1]:80"}, {23, "[::1]:0x50"}, {23, "[::1]:0X50"}, {23, "[::1]:050"},
    {23, "[::1]:08"}, {23, "[::1]:00080"}, {23, "[::1]:0x00050"}, {23, "[::1]:0"},
    {23, "[::1]:00"}, {23, "[::1]:0x0"}, {23, "[::1]:65535"}, {23, "[::1]:0xFFFF"},
    {23, "[::1]:0177777"}, {23, "[::1]:0200000"}, {23, "[::1]:65536"}, {23, "[::1]:0x10000"},
    {23, "[::1]:"}, {23, "[::1]:0x"}, {23, "[::1]:+80"}, {23, "[::1]:-1"}, {23, "[::1]:80x"},
    {23, "[::1]:1.2"}, {23, "[::1] :80"}, {23, "::1:80"},
    // Scopes.
    {23, "fe80::1%3"}, {23, "fe80::1%0"}, {23, "fe80::1%03"}, {23, "fe80::1%0x3"},
    {23, "fe80::1%4294967295"}, {23, "fe80::1%4294967296"}, {23, "fe80::1%"},
    {23, "[fe80::1%3]"}, {23, "[fe80::1%3]:0x50"}, {23, "[fe80::1%03]:80"}, {23, "[fe80::1%3]:"},
    {23, "fe80::1%3:80"}, {23, "[::1]%3"},
    // Brackets.
    {23, "[::1]"}, {23, "[::1"}, {23, "::1]"}, {23, "[[::1]]"}, {23, "[]"},
    // Mapped, translated, compatible and ISATAP forms.
    {23, "::ffff:1.2.3.4"}, {23, "::FFFF:01.2.3.4"}, {23, "::ffff:1.2.3.04"},
    {23, "::ffff:0.0.0.1"}, {23, "::ffff:0.0.0.0"}, {23, "::ffff:0:1.2.3.4"},
    {23, "::ffff:0:0.0.0.1"}, {23, "::1.2.3.4"}, {23, "::0.0.0.1"}, {23, "::0.1.0.0"},
    {23, "1:2:3:4:5:6:1.2.3.4"}, {23, "2001:db8::5efe:1.2.3.4"}, {23, "::1.2.3"},
    {23, "::1.2.3.4.5"}, {23, "::256.1.1.1"}, {23, "::ffff:1.2.3.4:80"},
    // Zero-compressed runs.
    {23, "::"}, {23, "::1"}, {23, "1::"}, {23, "1::2:3:4:5:6:7"}, {23, "1:2:3:4:5:6:7::"},
    {23, "1:0:0:2:0:0:0:3"}, {23, "1:0:0:0:2:0:0:3"}, {23, "0:0:1:0:0:1:0:0"},
    {23, "2001:DB8:0:0:1:0:0:1"}, {23, "1:2:3:4:5:6:7:8"},
    // Malformed text.
    {23, ":::1"}, {23, "::1:"}, {23, "1::2::3"}, {23, "12345::"}, {23, ":1"}, {23, "1:"},
    {23, "1:2:3:4:5:6:7:8:9"}, {23, "::g"}, {23, ""}, {23, " ::1"}, {23, "1.2.3.4"},
    {2, "::1"}, {2, ""}, {2, "1..2.3"}, {2, "1.2.3.4."}, {2, "1.2.3.4.5"}, {2, "09.1.1.1"},
    {2, "256.1.1.1"},
};

// Addresses printed without port and scope.
const unsigned char kWinsockAddresses[][16] = {
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0, 0, 0, 1}, // ::ffff:0:1
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0, 0, 0, 0}, // ::ffff:0:0
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0, 1, 0, 0}, // ::ffff:0.1.0.0
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 1, 2, 3, 4}, // ::ffff:1.2.3.4
    {0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0, 0, 0, 0, 0, 1}, // ::ffff:0:0:1
    {0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0, 0, 1, 0, 0, 0}, // ::ffff:0:1.0.0.0
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},       // ::1
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff}, // ::ffff
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0},       // ::0.1.0.0
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},       // ::
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0xff, 0xff, 1, 2, 3, 4}, // ::1:ffff:102:304
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xfe, 1, 2, 3, 4}, // ::fffe:102:304
    {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 0, 0, 0x5e, 0xfe, 0, 0, 0, 1},
    {0x20, 1, 0xd, 0xb8, 0, 0, 0, 0, 2, 0, 0x5e, 0xfe, 1, 2, 3, 4},
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x5e, 0xfe, 0, 0, 0, 1},
    {0, 1, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 3}, // the longer run wins
    {0, 1, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, 0, 3, 0, 4}, // the first of equal runs
    {0, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 0, 0, 0, 8}, // one zero group stays
    {0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0},
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2},       // ::2
    {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 2, 3, 4},       // ::1.2.3.4
    {0, 0, 0, 0, 0, 0, 0, 0, 0xff, 0xff, 0, 0, 1, 2, 3, 4}, // ::ffff:0:1.2.3.4
    {0x12, 0x34, 0xab, 0xcd, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0},
};
// clang-format on

std::string winsockPrinted(sockaddr *address, DWORD length) {
  char text[64];
  DWORD size = sizeof text;
  return WSAAddressToStringA(address, length, nullptr, text, &size) == 0 ? text : "<refused>";
}

TEST(ZBSocketAddressWinsock, LiteralsAndAddressesAgreeWithWinsockEntryByEntry) {
  ASSERT_NE(0, ZBSocketInit());
  for (const WinsockLiteral &row : kWinsockLiterals) {
    SCOPED_TRACE(testing::Message() << '"' << row.text << "\" family " << row.family);
    sockaddr_in6 system = {};
    INT length = sizeof system;
    std::string text = row.text;
    const bool systemAccepts =
        WSAStringToAddressA(text.data(), row.family, nullptr, reinterpret_cast<sockaddr *>(&system),
                            &length) == 0;
    unsigned char ours[zb::socketaddress::kIPv6Length];
    const bool weAccept = zb::socketaddress::parseLiteral(row.family, row.text, ours);
    EXPECT_EQ(systemAccepts, weAccept);
    if (!systemAccepts || !weAccept)
      continue;
    EXPECT_EQ(0, std::memcmp(ours, &system, static_cast<size_t>(length)));
    char printed[zb::socketaddress::kPrintableCapacity];
    const size_t offset = row.family == 2 ? zb::socketaddress::kIPv4AddressOffset
                                          : zb::socketaddress::kIPv6AddressOffset;
    zb::socketaddress::formatAddress(row.family, ours + offset, printed);
    system.sin6_port = 0;
    system.sin6_scope_id = 0;
    EXPECT_EQ(winsockPrinted(reinterpret_cast<sockaddr *>(&system), static_cast<DWORD>(length)),
              printed);
  }
  for (const auto &bytes : kWinsockAddresses) {
    sockaddr_in6 system = {};
    system.sin6_family = AF_INET6;
    std::memcpy(&system.sin6_addr, bytes, sizeof bytes);
    char printed[zb::socketaddress::kPrintableCapacity];
    zb::socketaddress::formatAddress(23, bytes, printed);
    EXPECT_EQ(winsockPrinted(reinterpret_cast<sockaddr *>(&system), sizeof system), printed);
  }
  std::printf("Compared with Winsock: %zu literals, %zu addresses\n", std::size(kWinsockLiterals),
              std::size(kWinsockAddresses));
}

TEST(ZBSocketAddressWinsock, ResolutionOfLocalhostAndNumericNames) {
  struct Row {
    const char *host;
    const char *service;
    int32_t flags;
    int32_t family;
    ZBError result;
  };
  const Row rows[] = {
      {"LOCALHOST.", "80", 0, 2, ZBErrorNone}, // needs the retry
      {"localhost", nullptr, 0, 2, ZBErrorNone},
      {"127.0.0.1", "443", 0x4 | 0x1000, 0, ZBErrorNone},
      {"::1", nullptr, 0x4, 23, ZBErrorNone},
      {"not-numeric", nullptr, 0x4, 0, ZBErrorNotFound},
      {"1.2.3", nullptr, 0x4 | 0x200, 2, ZBErrorNone},
  };
  for (const Row &row : rows) {
    SCOPED_TRACE(row.host);
    const ZBSocketAddressHints hints = {row.flags, row.family, SOCK_STREAM, 0};
    ZBSocketAddressInfo *list = reinterpret_cast<ZBSocketAddressInfo *>(1);
    EXPECT_EQ(row.result, ZBSocketAddressResolveInfo(row.host, row.service, &hints, &list));
    if (row.result != 0) {
      EXPECT_EQ(nullptr, list);
      continue;
    }
    ASSERT_NE(nullptr, list);
    for (ZBSocketAddressInfo *node = list; node != nullptr; node = node->next) {
      EXPECT_EQ(0, node->flags);
      EXPECT_EQ(SOCK_STREAM, node->socketType);
      EXPECT_EQ(ZBSocketAddressGetExpectedLength(node->address), node->addressLength);
      char text[64];
      ASSERT_EQ(0, ZBSocketAddressGetPrintable(node->address, node->addressLength, nullptr, text,
                                               sizeof text, nullptr));
      EXPECT_TRUE(std::string(text) == "127.0.0.1" || std::string(text) == "::1" ||
                  std::string(text) == "1.2.0.3")
          << text;
    }
    if (row.service != nullptr) {
      uint16_t port = 0;
      EXPECT_EQ(0, ZBSocketAddressGetPort(list->address, list->addressLength, &port));
      EXPECT_EQ(std::stoi(row.service), port);
    }
    ZBSocketAddressFreeInfoList(list);
  }
  // Canonical names are copied into the nodes, and by a duplicate.
  const ZBSocketAddressHints canonical = {0x2, 2, SOCK_STREAM, 0};
  ZBSocketAddressInfo *named = nullptr;
  ASSERT_EQ(0, ZBSocketAddressResolveInfo("localhost", nullptr, &canonical, &named));
  ASSERT_NE(nullptr, named->canonicalName);
  ZBSocketAddressInfo *copy = ZBSocketAddressDupInfoList(named);
  ASSERT_NE(nullptr, copy);
  EXPECT_STREQ(named->canonicalName, copy->canonicalName);
  EXPECT_NE(named->canonicalName, copy->canonicalName);
  ZBSocketAddressFreeInfoList(named);
  ZBSocketAddressFreeInfoList(copy);
  // A numeric-host failure is not logged; others are.
  EXPECT_EQ(std::string::npos, zbtest::logRing().find("DNS error: 11001 not-numeric"));
  EXPECT_EQ(ZBErrorInvalidArgument,
            ZBSocketAddressResolveInfo("localhost", nullptr, nullptr, nullptr));
}

TEST(ZBSocketAddressWinsock, HostByNameAndReverseLookup) {
  hostent *entry = nullptr;
  ASSERT_EQ(0, ZBSocketAddressGetHostByName("localhost", &entry));
  ASSERT_NE(nullptr, entry);
  EXPECT_EQ(AF_INET, entry->h_addrtype);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketAddressGetHostByName(nullptr, &entry));

  Record loopback = makeRecord(2, {127, 0, 0, 1}, 8080);
  char *host = nullptr, *service = nullptr;
  ASSERT_EQ(0, ZBSocketAddressReverseLookup(loopback.address(), 16, &host, &service, 0x2 | 0x4));
  EXPECT_STREQ("127.0.0.1", host);
  EXPECT_STREQ("8080", service);
  _ZBFree(host);
  _ZBFree(service);
  ASSERT_EQ(0, ZBSocketAddressReverseLookup(loopback.address(), 16, &host, nullptr, 0x2));
  EXPECT_STREQ("127.0.0.1", host);
  _ZBFree(host);
  // A record too short for its family.
  host = reinterpret_cast<char *>(1);
  EXPECT_NE(0, ZBSocketAddressReverseLookup(loopback.address(), 8, &host, nullptr, 0x2));
  EXPECT_EQ(nullptr, host);
  EXPECT_NE(std::string::npos, zbtest::logRing().find("DNS error: "));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketAddressReverseLookup(nullptr, 16, &host, nullptr, 0));
}

TEST(ZBSocketAddressWinsock, InterfacesIncludeLoopbackForEachFamily) {
  struct Seen {
    std::vector<std::string> names;
    std::vector<std::string> addresses;
    std::vector<uint32_t> flags;
    std::vector<std::string> thirds;
  };
  auto collect = [](void *context, const ZBSocketInterface *entry) -> int32_t {
    auto *seen = static_cast<Seen *>(context);
    seen->names.push_back(entry->name);
    const uint32_t length = ZBSocketAddressGetExpectedLength(entry->address);
    seen->addresses.push_back(printable(const_cast<sockaddr *>(entry->address), length));
    seen->flags.push_back(entry->flags);
    seen->thirds.push_back(
        entry->broadcastOrDestination == nullptr
            ? "-"
            : printable(const_cast<sockaddr *>(entry->broadcastOrDestination), 16));
    return 0;
  };
  struct Row {
    uint32_t options;
    const char *loopback;
    bool ipv4, ipv6;
  };
  const Row rows[] = {{ZBSocketInterfacesIPv4Only, "127.0.0.1", true, false},
                      {ZBSocketInterfacesIPv6Only, "::1", false, true},
                      {0, "127.0.0.1", true, true}};
  for (const Row &row : rows) {
    SCOPED_TRACE(row.options);
    Seen seen;
    ASSERT_EQ(0, ZBSocketInterfacesApply(row.options, collect, &seen));
    bool foundLoopback = false;
    for (size_t at = 0; at < seen.names.size(); ++at) {
      const bool isIPv6 = seen.addresses[at].find(':') != std::string::npos;
      EXPECT_TRUE(isIPv6 ? row.ipv6 : row.ipv4) << seen.addresses[at];
      if (seen.addresses[at] == row.loopback) {
        foundLoopback = true;
        EXPECT_EQ("lo", seen.names[at]);
        // Up and loopback, never "neither loopback nor point-to-point".
        EXPECT_EQ(0x5u | 0x1000000u, seen.flags[at] & (0x5u | 0x8u | 0x1000000u));
        EXPECT_EQ(isIPv6 ? "-" : "127.0.0.1", seen.thirds[at]);
      } else if (seen.names[at] != "lo") {
        EXPECT_EQ(0u, seen.names[at].rfind("nif", 0)) << seen.names[at];
      }
    }
    EXPECT_TRUE(foundLoopback);
  }
  EXPECT_EQ(ZBErrorInvalidArgument, ZBSocketInterfacesApply(0, nullptr, nullptr));
}

#endif

} // namespace
