// The error space's descriptions and the system-error mappings, row by row
// against the documented values (written out here, not read from the
// library's own tables).
#include <gtest/gtest.h>

#include "ZBTestSupport.h"

#include "ZBErrorMapping.h"
#include "ZBLog.h"

#include <set>
#include <string>

namespace {

TEST(ZBError, DescriptionsAtTheEdgesOfTheSpace) {
  EXPECT_STREQ("Success", ZBErrorGetDescription(0));
  EXPECT_STREQ("Invalid argument", ZBErrorGetDescription(-1));
  EXPECT_STREQ("Connection shutdown", ZBErrorGetDescription(-61));
  EXPECT_STREQ("Unknown Error", ZBErrorGetDescription(1));
  EXPECT_STREQ("Unknown Error", ZBErrorGetDescription(-101));
  EXPECT_STREQ("Unknown Error", ZBErrorGetDescription(INT32_MIN));
  EXPECT_STREQ("Unknown Error", ZBErrorGetDescription(INT32_MAX));
  EXPECT_STREQ("Unknown Error", ZBErrorGetDescription(-62));
  EXPECT_STREQ("Unknown Error", ZBErrorGetDescription(-63));
  EXPECT_STREQ("Generic Error", ZBErrorGetDescription(-64));
  EXPECT_STREQ("Generic Error", ZBErrorGetDescription(-99));
  EXPECT_STREQ("Generic Error", ZBErrorGetDescription(-100));
}

TEST(ZBError, CodesFromMinus56OnKeepTheirShiftedDescriptions) {
  EXPECT_EQ(-56, ZBErrorBusy);
  EXPECT_STREQ("Resource is busy", ZBErrorGetDescription(ZBErrorBusy));
  EXPECT_STREQ("Resource is not owned by the current thread", ZBErrorGetDescription(-57));
  EXPECT_STREQ("Operation crosses device boundaries", ZBErrorGetDescription(-58));
  EXPECT_STREQ("Invalid file name specified", ZBErrorGetDescription(-59));
  EXPECT_STREQ("Resource not locked", ZBErrorGetDescription(-60));
}

TEST(ZBError, EveryDescribedCodeHasItsOwnText) {
  std::set<std::string> texts;
  for (int32_t code = 0; code >= -61; --code) {
    const char *text = ZBErrorGetDescription(code);
    ASSERT_NE(nullptr, text);
    EXPECT_STRNE("Unknown Error", text) << code;
    texts.insert(text);
  }
  EXPECT_EQ(62u, texts.size());
}

TEST(ZBError, FormatOSStatusSpellsPrintableWordsElseHex) {
  EXPECT_STREQ("abcd", _ZBFormatOSStatus(0x61626364).text);
  EXPECT_STREQ("fmt?", _ZBFormatOSStatus(0x666d743f).text);
  EXPECT_STREQ("0x000001", _ZBFormatOSStatus(1).text);
  EXPECT_STREQ("0x12345678", _ZBFormatOSStatus(0x12345678).text);
  EXPECT_STREQ("0x41424300", _ZBFormatOSStatus(0x41424300).text); // last byte NUL
  EXPECT_STREQ("0xffffffff", _ZBFormatOSStatus(0xffffffffu).text);
  EXPECT_STREQ("0x41424380", _ZBFormatOSStatus(0x41424380).text); // 0x80 is not ASCII
}

struct Row {
  int32_t input;
  ZBError expected;
};

TEST(ZBErrorMapping, WindowsErrorsOfFileCalls) {
  const Row rows[] = {
      {0, 0},      {2, -4},     {3, -4},     {4, -15},    {5, -8},    {32, -8},
      {8, -2},     {14, -2},    {19, -14},   {80, -5},    {87, -1},   {131, -1},
      {161, -1},   {112, -13},  {123, -60},  {148, -17},  {170, -17}, {231, -17},
      {206, -19},  {267, -9},   {998, -56},  {4319, -7},  {10038, -32},
  };
  for (const Row &row : rows)
    EXPECT_EQ(row.expected, __ZBIOErrorFromWinError(static_cast<uint32_t>(row.input))) << row.input;
}

TEST(ZBErrorMapping, UnmappedWindowsErrorsAreIOWithOneWarningLine) {
  std::string before = zbtest::logRing();
  EXPECT_EQ(ZBErrorIO, __ZBIOErrorFromWinError(38));
  std::string after = zbtest::logRing();
  EXPECT_EQ(zbtest::occurrences(before, "Unhandled ERROR_HANDLE_EOF. We never expect this error 0x26") + 1,
            zbtest::occurrences(after, "Unhandled ERROR_HANDLE_EOF. We never expect this error 0x26"));
  EXPECT_NE(std::string::npos, after.find("__ZBIOErrorFromWinError: WARNING: Unhandled"));

  EXPECT_EQ(ZBErrorIO, __ZBIOErrorFromWinError(1234));
  EXPECT_NE(std::string::npos, zbtest::logRing().find("Unknown I/O error 0x4d2\n"));
  EXPECT_EQ(ZBErrorIO, __ZBIOErrorFromWinError(0xFFFFFFFFu));
}

TEST(ZBErrorMapping, WinsockErrorsOfSocketCalls) {
  const Row rows[] = {
      {10004, -11}, {10009, -20}, {10013, -8},  {10014, -56}, {10022, -1},  {10024, -15},
      {10035, -16}, {10036, -31}, {10037, -44}, {10038, -32}, {10039, -52}, {10040, -6},
      {10041, -18}, {10042, -21}, {10045, -21}, {10043, -63}, {10044, -63}, {10046, -38},
      {10047, -38}, {10048, -42}, {10049, -51}, {10051, -46}, {10053, -49}, {10054, -50},
      {10055, -2},  {10056, -45}, {10057, -36}, {10058, -62}, {10060, -3},  {10061, -48},
      {10062, -12}, {10063, -19}, {10065, -47}, {10093, -30},
      // Unlisted Winsock values, the range ends, and the Windows errors.
      {10050, -100}, {10052, -100}, {10059, -100}, {10064, -100}, {10094, -100},
      {10003, -100}, {995, -50}, {997, -44}, {996, -100}, {998, -100},
      // errno values of the runtime library.
      {1, -28}, {16, -25}, {36, -26}, {39, -27}, {116, -30}, {117, -30}, {136, -64},
      {0, -100}, {2, -100}, {994, -100}, {-1, -100},
  };
  for (const Row &row : rows)
    EXPECT_EQ(row.expected, _ZBSocketErrorFromWSAError(row.input)) << row.input;
}

TEST(ZBErrorMapping, ConnectWithDataCompletions) {
  const Row rows[] = {
      {10014, -1},  {10049, -1},  {10022, -20}, {10024, -15}, {10036, -31}, {10037, -31},
      {10038, -32}, {10041, -64}, {10043, -63}, {10044, -63}, {10047, -38}, {10048, -42},
      {10050, -30}, {10093, -30}, {10051, -46}, {10055, -2},  {10058, -62}, {10060, -3},
      {10061, -48}, {10065, -47},
      // Below the table's range nothing is mapped, not even WSAEINTR.
      {10004, -100}, {10013, -100}, {10054, -100}, {995, -50}, {997, -44}, {1, -100},
  };
  for (const Row &row : rows)
    EXPECT_EQ(row.expected, _ZBSocketConnectErrorFromWSAError(row.input)) << row.input;
}

TEST(ZBErrorMapping, SocketDuplication) {
  const Row duplicate[] = {{0, 0},       {10014, -1},  {10022, -1},  {10024, -15},
                           {10036, -31}, {10038, -32}, {10050, -30}, {10055, -2},
                           {10093, -28}, {10041, -100}, {10047, -100}, {1, -100}};
  for (const Row &row : duplicate)
    EXPECT_EQ(row.expected, _ZBSocketDuplicateErrorFromWSAError(row.input)) << row.input;
  const Row create[] = {{10041, -64}, {10043, -63}, {10044, -63}, {10047, -38},
                        {10093, -28}, {10014, -1},  {10054, -100}};
  for (const Row &row : create)
    EXPECT_EQ(row.expected, _ZBSocketDuplicateCreateErrorFromWSAError(row.input)) << row.input;
}

TEST(ZBErrorMapping, NameResolutionLogsUnlessNumeric) {
  EXPECT_EQ(ZBErrorNotFound, _ZBSocketAddressErrorFromAIError(11001, "nowhere.invalid", false));
  EXPECT_NE(std::string::npos, zbtest::logRing().find("DNS error: 11001 nowhere.invalid"));
  EXPECT_EQ(ZBErrorNotFound, _ZBSocketAddressErrorFromAIError(10047, nullptr, false));
  EXPECT_NE(std::string::npos, zbtest::logRing().find("DNS error: 10047 \r\n"));
  EXPECT_EQ(ZBErrorNotFound, _ZBSocketAddressErrorFromAIError(11003, "numeric.host", true));
  EXPECT_EQ(std::string::npos, zbtest::logRing().find("numeric.host"));
  EXPECT_EQ(ZBErrorInterrupted, _ZBSocketAddressErrorFromAIError(11002, "h", false));
  EXPECT_EQ(ZBErrorGeneric, _ZBSocketAddressErrorFromAIError(11004, "h", false));
}

} // namespace
