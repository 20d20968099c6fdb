// The format engine: its grammar where it differs from C's printf, the
// conversions, positional arguments, and the three sinks with their exact
// results. Deliberately odd formats are the point here, so the compiler's
// printf checking is off for this file.
#define ZB_FORMAT_EXTENSIONS 1

#include <gtest/gtest.h>

#include "qprintf.h"
#include "qprintfDebuggerOutput.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

// Formats through the growing sink and the fixed sink, each in its plain
// and its `x` form (whose extra argument is ignored); all four must agree.
std::string format(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  struct Sink {
    int (*grow)(char **, const char *, va_list);
    int (*fill)(char *, int, const char *, va_list);
  };
  const Sink sinks[] = {
      {vqasprintf, vqsnprintf},
      {[](char **out, const char *f, va_list a) { return vqasprintfx(out, 0xFFFFFFFF, f, a); },
       [](char *buffer, int size, const char *f, va_list a) {
         return vqsnprintfx(buffer, size, 0xFFFFFFFF, f, a);
       }},
  };
  std::string result = "<none>";
  for (const Sink &sink : sinks) {
    va_list grownArguments, fixedArguments;
    va_copy(grownArguments, arguments);
    va_copy(fixedArguments, arguments);
    char *grown = nullptr;
    const int length = sink.grow(&grown, format, grownArguments);
    const std::string text = grown != nullptr ? std::string(grown) : std::string("<null>");
    qprffree(grown);
    char fixed[4096];
    const int fixedLength = sink.fill(fixed, sizeof fixed, format, fixedArguments);
    va_end(fixedArguments);
    va_end(grownArguments);
    EXPECT_EQ(length, static_cast<int>(text.size())) << format;
    EXPECT_EQ(fixedLength, length) << format;
    EXPECT_EQ(std::string(fixed), text) << format;
    if (&sink != sinks) {
      EXPECT_EQ(result, text) << format;
    }
    result = text;
  }
  va_end(arguments);
  return result;
}

TEST(qprintf, GrammarDiffersFromCWhereDeliberate) {
  EXPECT_EQ(format("% d", 5), "5");          // the space flag adds nothing
  EXPECT_EQ(format("%-+5d", 5), "+5d");      // "-" ends the flags: conversion "+"
  EXPECT_EQ(format("%0-5d", 5), "-5d");      // so does "0"
  EXPECT_EQ(format("% +d|", 5), "+d|");      // and the space
  EXPECT_EQ(format("%-05d|", 42), "42   |"); // zeros after the loop are skipped
  EXPECT_EQ(format("%#o", 8), "10");         // no octal prefix
  EXPECT_EQ(format("%y%%%5%"), "y%    %");  // unknown conversions print themselves
  EXPECT_EQ(format("%n|%d", 3), "n|3");      // "%n" takes no argument and stores nothing
  EXPECT_EQ(format("abc%"), "abc");          // a format ending inside a directive
  EXPECT_EQ(format("%5"), "");
  // Digits right after "%" without "$" are a width, and no flags follow.
  EXPECT_EQ(format("%5-d", 1), "    -d");
  // "*" digits without "$" are skipped.
  EXPECT_EQ(format("%*12d|", 4, 7), "   7|");
  // A negative "*" width left-justifies, with spaces even under "0"; a
  // negative "*" precision is 0, not absent.
  EXPECT_EQ(format("%*d|%0*d|", -4, 5, -4, 5), "5   |5   |");
  EXPECT_EQ(format("%.*d|%.*d|%.*f", -1, 0, -1, 7, -1, 2.5), "|7|2");
}

// The length codes and conversions that C does not have or reads otherwise.
TEST(qprintf, IntegerLengthCodes) {
  EXPECT_EQ(format("%ld %lu", -1, 4000000000u), "-1 4000000000"); // "l" is 32 bits
  EXPECT_EQ(format("%qd %I64d %I32d %I64x", -5LL, int64_t(1) << 40, -3, int64_t(-1)),
            "-5 1099511627776 -3 ffffffffffffffff");
  EXPECT_EQ(format("%td %Id %Iu", ptrdiff_t(-2), ptrdiff_t(1) << 33, size_t(1) << 33),
            "-2 8589934592 8589934592");
  // "I" before digits that do not make "32"/"64" is a length of its own.
  EXPECT_EQ(format("%I6d", ptrdiff_t(1)), "6d");
  EXPECT_EQ(format("%wd %wu", -1, -1), "-1 18446744073709551615"); // "w" sign-extends
  EXPECT_EQ(format("%D %U %O %lU", -1, -1, 8, -1), "-1 4294967295 10 4294967295");
  EXPECT_EQ(format("%p", nullptr), "0");
  EXPECT_EQ(format("%p", reinterpret_cast<void *>(0x1234)), "0x1234");
  EXPECT_EQ(format("%p", reinterpret_cast<void *>(uintptr_t(0xFEDCBA9876543210))),
            "0xfedcba9876543210");
}

TEST(qprintf, CharactersAndStrings) {
  EXPECT_EQ(format("[%c]", 0), "[]"); // a zero byte prints nothing
  EXPECT_EQ(format("%.0s|%.s|%.*s", "abc", "abc", 0, "abc"), "abc|abc|abc");
  EXPECT_EQ(format("%s", static_cast<const char *>(nullptr)), "(null)");
  EXPECT_EQ(format("%05s", "ab"), "000ab"); // "0" pads whatever the conversion
  const char16_t wide[] = u"abc\u0141d";
  EXPECT_EQ(format("%ls|%S|%.2ls|%.0ls|", wide, wide, wide, wide), "abcAd|abcAd|ab||");
  const char32_t wider[] = U"xyz";
  EXPECT_EQ(format("%lls %Ls", wider, wider), "xyz xyz");
  EXPECT_EQ(format("%hs", u"hi"), "hi");
  // "%c" with a long length takes no argument at all.
  EXPECT_EQ(format("[%llc]%d", 5), "[]5");
}

// Only where the engine is its own: C's float rules are the oracle's and
// the differential test's.
TEST(qprintf, FloatingPoint) {
  EXPECT_EQ(format("% .1f|%Lf", 1.0, 0.25), "1.0|0.250000"); // no space; "L" reads a double
  EXPECT_EQ(format("[%a][%A][%5a]", 1.0, 1.0, 1.0), "[][][]");
  // Precisions beyond a double's digits end in zeros.
  EXPECT_EQ(format("%.1100f", 0.5), "0.5" + std::string(1099, '0'));
  EXPECT_EQ(format("%.900e", 1.0), "1." + std::string(900, '0') + "e+00");
  EXPECT_EQ(format("%#.850g|%.850g", 1.0, 1.0), "1." + std::string(849, '0') + "|1");
}

TEST(qprintf, PositionalArguments) {
  EXPECT_EQ(format("%2$s %1$s", "world", "hello"), "hello world");
  EXPECT_EQ(format("%1$s%1$s", "ab"), "abab");
  EXPECT_EQ(format("%1$*2$.*3$s|", "abcdef", 5, 2), "   ab|");
  EXPECT_EQ(format("%2$d %1$lld %3$.1f", 1LL << 40, 7, 2.5), "7 1099511627776 2.5");
  // An index no conversion uses still takes one argument word.
  EXPECT_EQ(format("%1$d %3$d", 1, 2, 3), "1 3");
  // After a positional conversion, sequential ones continue behind it.
  EXPECT_EQ(format("%2$d %d", 1, 2, 3), "2 3");
}

TEST(qprintf, ManySpecificationsAndArgumentsUseTheHeap) {
  std::string expected;
  for (int i = 0; i < 20; ++i)
    expected += std::to_string(i) + ",";
  EXPECT_EQ(format("%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,%d,", 0, 1, 2, 3,
                   4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19),
            expected);
  EXPECT_EQ(format("%%%%%%%%%%%%%%%%%%%%|%10$d", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10),
            "%%%%%%%%%%|10");
  char buffer[8];
  // More argument slots than the engine allows is a failure, not a crash.
  EXPECT_EQ(qsnprintf(buffer, sizeof buffer, "%70000$d", 1), -1);
}

TEST(qprintf, FixedBufferSink) {
  // The stored length while the output fits, else the length it would have.
  const struct {
    int size;
    const char *format; // with the argument "cd"
    int result;
    const char *stored;
  } cases[] = {
      {4, "ab%sef", 6, "abc"}, {4, "abc", 3, "abc"}, {4, "ab%s", 4, "abc"},
      {1, "abc", 3, ""},       {16, "", 0, ""},      {16, nullptr, 0, ""},
  };
  char buffer[16];
  for (const auto &test : cases) {
    SCOPED_TRACE(test.format != nullptr ? test.format : "(null)");
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(qsnprintf(buffer, test.size, test.format, "cd"), test.result);
    EXPECT_STREQ(buffer, test.stored);
    EXPECT_EQ(buffer[std::strlen(test.stored) + 1], 'x'); // nothing past the end
  }
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(qsnprintf(buffer, 0, "abcdef"), 6);
  EXPECT_EQ(qsnprintf(buffer, -1, "abc"), -1);
  EXPECT_EQ(buffer[0], 'x');
  EXPECT_EQ(qsnprintf(nullptr, 0, "%d", 12345), 5);
  EXPECT_EQ(qsnprintf(nullptr, 5, "abc"), -1);
  // Padding far beyond the buffer is counted, not stored.
  EXPECT_EQ(qsnprintf(buffer, sizeof buffer, "%100000d", 1), 100000);
  EXPECT_STREQ(buffer, "               ");
}

int unboundedFormat(char *buffer, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = vqsprintfx(buffer, 0, format, arguments);
  va_end(arguments);
  return result;
}

TEST(qprintf, UnboundedBufferSink) {
  char buffer[64];
  EXPECT_EQ(unboundedFormat(buffer, "%s-%05d", "abc", 42), 9);
  EXPECT_STREQ(buffer, "abc-00042");
  EXPECT_EQ(unboundedFormat(nullptr, "abc"), -1);
}

TEST(qprintf, GrowingBufferSink) {
  // Growth well past the first 128 bytes, within one run and across several.
  char *text = nullptr;
  EXPECT_EQ(qasprintf(&text, "%5000d|", 7), 5001);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::string(text), std::string(4999, ' ') + "7|");
  qprffree(text);
  const std::string padded(99, ' ');
  EXPECT_EQ(qasprintf(&text, "%100s|%100s|%100s|", "a", "b", "c"), 303);
  ASSERT_NE(text, nullptr);
  EXPECT_EQ(std::string(text), padded + "a|" + padded + "b|" + padded + "c|");
  qprffree(text);

  EXPECT_EQ(qasprintf(&text, nullptr), 0);
  ASSERT_NE(text, nullptr);
  EXPECT_STREQ(text, "");
  qprffree(text);

  text = reinterpret_cast<char *>(1);
  EXPECT_EQ(qasprintf(&text, "%70000$d", 1), -1);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(qasprintf(nullptr, "abc"), -1);
  qprffree(nullptr);
}

int streamFormat(FILE *stream, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = vqfprintf(stream, format, arguments);
  va_end(arguments);
  return result;
}

int streamFormatX(FILE *stream, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = vqfprintfx(stream, 7, format, arguments);
  va_end(arguments);
  return result;
}

TEST(qprintf, StreamSink) {
  for (auto write : {streamFormat, streamFormatX}) {
    FILE *stream = std::tmpfile();
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(write(stream, "%s %d\n%5.1f", "x", 12, 2.25), 10);
    std::rewind(stream);
    char contents[32] = {};
    EXPECT_EQ(std::fread(contents, 1, sizeof contents - 1, stream), 10u);
    EXPECT_STREQ(contents, "x 12\n  2.2");
    std::fclose(stream);
    EXPECT_EQ(write(nullptr, "abc"), -1);
  }
}

int printFormatX(const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  const int result = vqprintfx(3, format, arguments);
  va_end(arguments);
  return result;
}

// Catches the lines that standard output hands to the debugger output.
std::mutex sLinesLock;
std::vector<std::u16string> sLines;

void catchLine(const char16_t *line) noexcept {
  std::lock_guard<std::mutex> lock(sLinesLock);
  sLines.emplace_back(line);
}

class DebuggerOutput : public ::testing::Test {
protected:
  void SetUp() override {
    sLines.clear();
    mPrevious = zb::format::setDebuggerLineWriter(catchLine);
  }
  void TearDown() override { zb::format::setDebuggerLineWriter(mPrevious); }
  zb::format::DebuggerLineWriter mPrevious = nullptr;
};

TEST_F(DebuggerOutput, LinesAreDecodedAndBufferedPerThread) {
  EXPECT_EQ(qprintf("%s", "h\xC3\xA9llo "), 7);
  EXPECT_TRUE(sLines.empty()); // no newline yet: the line waits
  EXPECT_EQ(printFormatX("%d\n", 42), 3);
  ASSERT_EQ(sLines.size(), 1u);
  EXPECT_EQ(sLines[0], u"h\u00e9llo 42\n");

  // Four bytes give a surrogate pair; lead bytes 0xD0-0xDF pass as units.
  qprintf("\xF0\x9F\x98\x80|\xD0\xB0|\xE2\x82\xAC\n");
  ASSERT_EQ(sLines.size(), 2u);
  EXPECT_EQ(sLines[1], std::u16string(u"\U0001F600|\u00D0\u00B0|\u20AC\n"));

  // ASCII inside an unfinished sequence: the pending byte passes, the ASCII
  // byte is dropped.
  qprintf("a\xE2\x82" "b\n");
  ASSERT_EQ(sLines.size(), 3u);
  EXPECT_EQ(sLines[2], std::u16string(u"a\u00E2\u0082\n"));

  // Standard error goes the same way; a long line is cut at 1023 units.
  streamFormat(stderr, "%1500d\n", 1);
  ASSERT_EQ(sLines.size(), 5u);
  EXPECT_EQ(sLines[3].size(), 1023u);
  EXPECT_EQ(sLines[4].size(), 1500u - 1023u + 1u);

  // Another thread's text never joins this thread's pending line.
  qprintf("main ");
  std::thread([] { qprintf("other\n"); }).join();
  qprintf("line\n");
  ASSERT_EQ(sLines.size(), 7u);
  EXPECT_EQ(sLines[5], u"other\n");
  EXPECT_EQ(sLines[6], u"main line\n");
}

int renderTwice(qprintf_info *info) {
  qprintf_print_from_formatter(info, "ab", 0); // 0: the whole text
  return qprintf_print_from_formatter(info, "abcdef", 3);
}

int fetchNothing(va_list *, qprintf_info *) { return 0; }

TEST(qprintf, RegisteredConversionsWriteThroughTheFormatter) {
  ASSERT_EQ(qprintf_modifier_register('k', 0, fetchNothing, renderTwice, nullptr), 1);
  EXPECT_EQ(format("[%k][%-4k]", 1), "[ababc][ab  abc ]");
  EXPECT_EQ(qprintf_print_from_formatter(nullptr, "x", 0), -1);
}

} // namespace
