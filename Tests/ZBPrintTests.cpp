// Conversions of one's own: registration and its refusals, the client
// callbacks with their emit functions, and the library's own conversions
// %b %M %m %T %Q %H %Z with their exact texts.
#define ZB_FORMAT_EXTENSIONS 1

#include <gtest/gtest.h>

#include "ZBPrint.h"
#include "qprintfConversions.h"

#include <cstdarg>
#include <cstdint>
#include <cstring>
#include <string>

namespace {

std::string format(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  char buffer[1024];
  const int length = vqsnprintf(buffer, sizeof buffer, format, arguments);
  va_end(arguments);
  EXPECT_EQ(length, static_cast<int>(std::strlen(buffer))) << format;
  return buffer;
}

int fetchNothing(ZBPrintModifierContext *, void *) { return 0; }
int renderAnswer(qprintf_info *info) { return qprintf_print_from_formatter(info, "42", -1); }

// Characters the parser owns are refused; any other replaces what it held.
TEST(ZBPrint, RegistrationRefusesParserCharactersAndReplacesBuiltIns) {
  for (const char refused : {'5', '0', '9', '*', '+', '#', '.', '\\', ' ', '\t', '\0'}) {
    EXPECT_FALSE(ZBPrintRegisterModifier(refused, 0, fetchNothing, fetchNothing, nullptr))
        << int(refused);
    EXPECT_EQ(qprintf_modifier_register(static_cast<unsigned char>(refused), 0, nullptr, nullptr,
                                        nullptr),
              0);
  }
  ASSERT_EQ(qprintf_modifier_register('d', 0, nullptr, renderAnswer, nullptr), 1);
  EXPECT_EQ(format("%d|%u", 7u), "42|7"); // "d" now takes no argument
  ASSERT_EQ(qprintf_modifier_register('d', 1, zb::format::fetchInteger,
                                      zb::format::renderInteger, nullptr),
            1);
  EXPECT_EQ(format("%d", 7), "7");
}

// A client conversion "%V": a pair of ints printed as "<a..b>" in three
// emitted pieces, so each piece is padded to the width separately.
struct Range {
  int low;
  int high;
};

int fetchRange(ZBPrintModifierContext *context, void *userData) {
  EXPECT_EQ(userData, reinterpret_cast<void *>(0x5EED));
  EXPECT_NE(context->arguments, nullptr);
  auto *range = new Range{va_arg(*context->arguments, int), va_arg(*context->arguments, int)};
  context->info->value.pointer = range;
  context->info->count = 2;
  return 0;
}

int emitFormatted(ZBPrintModifierContext *context, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = ZBPrintModifierContextEmitFormattedStringAndArguments(context, format, arguments);
  va_end(arguments);
  return result;
}

int renderRange(ZBPrintModifierContext *context, void *userData) {
  EXPECT_EQ(userData, reinterpret_cast<void *>(0x5EED));
  EXPECT_EQ(context->arguments, nullptr);
  auto *range = static_cast<Range *>(context->info->value.pointer);
  const char open[] = "<?";
  EXPECT_EQ(ZBPrintModifierContextEmitCharBuf(context, open, 1), open + 1);
  ZBPrintModifierContextEmitFormattedString(context, "%d..%d", range->low, range->high);
  emitFormatted(context, "%c", '>');
  // Nothing written for empty input; the buffer comes back unchanged.
  EXPECT_EQ(ZBPrintModifierContextEmitCharBuf(context, open, 0), open);
  EXPECT_EQ(ZBPrintModifierContextEmitCharBuf(context, nullptr, 3), nullptr);
  EXPECT_EQ(ZBPrintModifierContextEmitString(context, ""), 0);
  EXPECT_EQ(ZBPrintModifierContextEmitFormattedString(context, nullptr), 0);
  EXPECT_EQ(emitFormatted(context, nullptr), 0);
  delete range;
  return 0;
}

TEST(ZBPrint, ClientConversionsFetchAndEmit) {
  ASSERT_TRUE(ZBPrintRegisterModifier('V', 2, fetchRange, renderRange,
                                      reinterpret_cast<void *>(0x5EED)));
  EXPECT_EQ(format("%V %s", 3, 9, "after"), "<3..9> after");
  EXPECT_EQ(format("%6V|", 1, 2), "     <  1..2     >|");
  EXPECT_EQ(format("%2$V %1$d", 5, 6, 7), "<6..7> 5");
  // Without a fetch callback the engine skips the arguments itself.
  ASSERT_TRUE(ZBPrintRegisterModifier('W', 2, nullptr, nullptr, nullptr));
  EXPECT_EQ(format("[%W]%d", 1, 2, 3), "[]3");
  EXPECT_EQ(ZBPrintModifierContextEmitString(nullptr, "x"), 0);
  EXPECT_EQ(emitFormatted(nullptr, "%d", 1), 0);
  EXPECT_STREQ(ZBPrintGetNullString(), "(null)"); // what the built-ins print for null
}

TEST(ZBPrint, BitField) {
  const char *description = "\001ONE\003THREE";
  EXPECT_EQ(format("%b", 5u, description), "<ONE,THREE>");
  EXPECT_EQ(format("%b", 0u, description), "<>");
  EXPECT_EQ(format("%b", 6u, description), "<THREE>"); // bit 1 has no name
  EXPECT_EQ(format("%#b", 6u, description), "<b1,THREE>");
  EXPECT_EQ(format("%#b", 5u, "\020SIXTEEN"), "<b0,b2>");
  EXPECT_EQ(format("%#b", 0x80000000u, "\040TOP"), "<TOP>");
  EXPECT_EQ(format("%#b", 0x80000000u, ""), "<b31>");
  EXPECT_EQ(format("%hhb|%d", 0x105u, description, 7), "<ONE,THREE>|7"); // low byte only
  EXPECT_EQ(format("%llb|%d", 0x500000001ULL, description, 7), "<ONE>|7");
  EXPECT_EQ(format("%12b|", 1u, description), "       <ONE>|");
  EXPECT_EQ(format("%b", 1u, static_cast<const char *>(nullptr)), "(null)");
}

TEST(ZBPrint, HardwareAddress) {
  const unsigned char address[6] = {0x00, 0x11, 0x22, 0x33, 0xAA, 0xBF};
  EXPECT_EQ(format("%M", address), "00:11:22:33:aa:bf");
  EXPECT_EQ(format("%#M", address), "0011.2233.aabf");
  EXPECT_EQ(format("%+M", address), "00:11:22:33:AA:BF");
  EXPECT_EQ(format("%#+M|%-20M|", address, address), "0011.2233.AABF|00:11:22:33:aa:bf   |");
  EXPECT_EQ(format("%M", static_cast<void *>(nullptr)), "(null)");
}

TEST(ZBPrint, ErrorNumber) {
  // strerror's text for an unknown number lives only until its next call.
  const std::string known = std::strerror(2);
  const std::string unknown = std::strerror(12345);
  EXPECT_EQ(format("%m|%d", 2, 5), known + "|5");
  EXPECT_EQ(format("%m", 12345), unknown);
}

TEST(ZBPrint, Duration) {
  EXPECT_EQ(format("%T %T %T", 0, 90, -5), "0d 90d -5d"); // the "d" suffix is kept so
  EXPECT_EQ(format("%#T %#T %#T %#T", 0, 60, 3661, 31536000), "0s 1m 1h1m1s 1y");
  EXPECT_EQ(format("%#T %#T", -90, 31536000 + 86400 + 1), "-1m30s 1y1d1s");
  const int32_t timeval[2] = {61, 500000};
  EXPECT_EQ(format("%#lT", timeval), "1m1s.500000");
  EXPECT_EQ(format("%lT", timeval), "61d.500000");
  EXPECT_EQ(format("%#.3lT|%#.0lT|%#.12lT", timeval, timeval, timeval),
            "1m1s.500|1m1s|1m1s.500000000");
  struct {
    int64_t seconds;
    int64_t nanoseconds;
  } timespec = {3600, 5};
  EXPECT_EQ(format("%#LT %LT", &timespec, &timespec), "1h.000000005 3600d.000000005");
  EXPECT_EQ(format("%#.2LT", &timespec), "1h.00");
  EXPECT_EQ(format("%lT|%8T|", static_cast<void *>(nullptr), 1), "(null)|      1d|");
}

TEST(ZBPrint, QuotedString) {
  const char *text = "a'b\"c\\\n\t\x01\xC3";
  EXPECT_EQ(format("%Q", text), "a\\'b\\\"c\\\\\\n\\t\\001\\303");
  EXPECT_EQ(format("%'Q", text), "a\\'b\\\"c\\\\\\n\\t\\u0001\\u00c3");
  EXPECT_EQ(format("% Q", text), "a\\'b\\\"c\\\\\\n\\t\\x01\\xc3");
  EXPECT_EQ(format("%#Q", "say \"hi\""), "\"say \\\"hi\\\"\"");
  EXPECT_EQ(format("%+Q", "a b/c?d=%&e#\x7F"), "a%20b%2Fc%3Fd=%25%26e%23%7F");
  EXPECT_EQ(format("%+#Q", "<a href='x'>&\"\x05"),
            "&lt;a href=&apos;x&apos;&gt;&amp;&quot;&#x05;");
  // A precision is an exact byte count, zeros included; 0 quotes nothing.
  EXPECT_EQ(format("%.4Q", "ab\0cd"), "ab\\000c");
  EXPECT_EQ(format("[%.0Q]", "abc"), "[]");
  EXPECT_EQ(format("%-8Q|", "\n"), "\\n      |");
  EXPECT_EQ(format("%Q", static_cast<const char *>(nullptr)), "(null)");
}

TEST(ZBPrint, HexDump) {
  const char *bytes = "ABCDEFGHIJKLMNOPQRST";
  EXPECT_EQ(format("%8H", bytes, 10), " 41 42 43 44 45 46 47 48\n 49 4a");
  EXPECT_EQ(format("%H", bytes, 3), " 41 42 43");
  EXPECT_EQ(format("%H", bytes, 20),
            " 41 42 43 44 45 46 47 48 49 4a 4b 4c 4d 4e 4f 50\n 51 52 53 54");
  EXPECT_EQ(format("%+#4H", "A\0CDEF", 6),
            " 0000 41 00 43 44  |A.CD|\n 0004 45 46        |EF  |");
  EXPECT_EQ(format("[%H]", bytes, 0), "[]");
  EXPECT_EQ(format("%H|%d", static_cast<void *>(nullptr), 4, 9), "(null)|9");
}

TEST(ZBPrint, SocketAddress) {
  // The IPv4 layout: 16-bit family 2, port and address in network order.
  unsigned char ipv4[16] = {0, 0, 0, 80, 10, 0, 0, 1}, ipv6[28] = {};
  const uint16_t families[] = {2, 23};
  std::memcpy(ipv4, &families[0], 2);
  std::memcpy(ipv6, &families[1], 2);
  EXPECT_EQ(format("%Z", ipv4), "10.0.0.1");
  EXPECT_EQ(format("%#Z", ipv4), "inet:10.0.0.1");
  EXPECT_EQ(format("%#+Z", ipv4), "inet:10.0.0.1:80");
  ipv4[3] = 0;
  EXPECT_EQ(format("%+Z|%14Z|", ipv4, ipv4), "10.0.0.1|      10.0.0.1|"); // port 0 not shown
  EXPECT_EQ(format("%Z", ipv6), "unknown(?)");
  EXPECT_EQ(format("%#Z", ipv6), "family(17/0x17):unknown(?)");
  EXPECT_EQ(format("%Z", static_cast<void *>(nullptr)), "(null)");
}

} // namespace
