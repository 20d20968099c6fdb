// The option registry: the registration checks, initial values from the
// environment, reads and writes through variables and callbacks, and the
// printed listing.
#include <gtest/gtest.h>

#include "ZBEnvironment.h"
#include "ZBLog.h"
#include "ZBOption.h"
#include "ZBTestSupport.h"

#include <cstdio>
#include <string>
#include <vector>

namespace {

void readNothing(const char *, int32_t, void *) {}
void writeNothing(const char *, int32_t, const void *) {}
void notifyNothing(const char *) {}

TEST(ZBOptionDeathTest, RegistrationChecksInOrder) {
  static int32_t value;
  const struct {
    void (*statement)();
    const char *message;
  } cases[] = {
      {[] { ZBOptionRegisterWithValues("QUOVEX_X", "", nullptr, ZBOptionTypeInt, &value, nullptr,
                                       nullptr, 0, nullptr, readNothing, nullptr, nullptr); },
       ":72] " },
      {[] { ZBOptionRegisterWithValues("QUOVEX_X", "", nullptr, ZBOptionTypeInt, &value, nullptr,
                                       nullptr, 0, nullptr, readNothing, nullptr, nullptr); },
       "FATAL: Options must specify read-and-write callbacks together."},
      {[] { ZBOptionRegisterWithCallbacks("ZB_THING", "", nullptr, ZBOptionTypeInt, readNothing,
                                          nullptr, nullptr); },
       "FATAL: Options must either specify a value address or value callbacks."},
      {[] { ZBOptionRegisterWithValues("QUOVEX_X", "", nullptr, ZBOptionTypeInt, &value, nullptr,
                                       nullptr, 0, notifyNothing, readNothing, writeNothing,
                                       nullptr); },
       "FATAL: Cannot specify both a notify callback and read-and-write callbacks"},
      {[] { ZBOptionRegister("ZB_THING", "", nullptr, ZBOptionTypeInt, &value, nullptr, nullptr); },
       "ZBOptionRegisterWithValues: FATAL: Options must be prefixed with QUOVEX_"},
      {[] {
         ZBOptionRegister("QUOVEX_TWICE", "", nullptr, ZBOptionTypeInt, &value, nullptr, nullptr);
         ZBOptionRegister("QUOVEX_TWICE", "", nullptr, ZBOptionTypeInt, &value, nullptr, nullptr);
       },
       "FATAL: Trying to register option 'QUOVEX_TWICE' which is already registered"},
      {[] { ZBOptionGetBool("QUOVEX_NOBODY"); }, "FATAL: Option 'QUOVEX_NOBODY' not registered'"},
      {[] {
         ZBEnvironmentSetEnv("QUOVEX_SWITCH", "off", 1);
         static bool flag;
         ZBOptionRegister("QUOVEX_SWITCH", "", nullptr, ZBOptionTypeBool, &flag, nullptr, nullptr);
       },
       "FATAL: Unspported boolean value 'off', Please use 1/y/yes/true or 0/n/no/false"},
      {[] {
         ZBEnvironmentSetEnv("QUOVEX_ODD", "1", 1);
         static int64_t odd;
         ZBOptionRegister("QUOVEX_ODD", "", nullptr, 9, &odd, nullptr, nullptr);
       },
       "_ZBOptionCpy: FATAL: Attempt to read invalid option type 9"},
  };
  for (const auto &deadly : cases) {
    const std::string lines = zbtest::logOfDyingProcess(deadly.statement);
    EXPECT_NE(std::string::npos, lines.find(deadly.message)) << lines;
  }
}

TEST(ZBOption, BooleansFromTheEnvironment) {
  const struct {
    const char *name;
    const char *text;
    uint8_t expected;
  } rows[] = {{"QUOVEX_B_TRUE", "TRUE", 1}, {"QUOVEX_B_Y", "y", 1}, {"QUOVEX_B_TWO", "2", 1},
              {"QUOVEX_B_NO", "No", 0},     {"QUOVEX_B_ZERO", "0", 0}, {"QUOVEX_B_F", "false", 0}};
  static uint8_t values[6];
  for (size_t i = 0; i < 6; ++i) {
    values[i] = 7;
    ZBEnvironmentSetEnv(rows[i].name, rows[i].text, 1);
    ZBOptionRegister(rows[i].name, "flag", nullptr, ZBOptionTypeBool, &values[i], nullptr, nullptr);
    EXPECT_EQ(rows[i].expected, values[i]) << rows[i].text;
    EXPECT_EQ(rows[i].expected != 0, ZBOptionGetBool(rows[i].name)) << rows[i].text;
  }
}

TEST(ZBOption, NumbersAndTextsFromTheEnvironment) {
  static int32_t untouched = 17;
  ZBOptionRegister("QUOVEX_INT_UNSET", "i", nullptr, ZBOptionTypeInt, &untouched, nullptr, nullptr);
  EXPECT_EQ(17, untouched);

  static int32_t integer;
  static double real;
  static char *text;
  ZBEnvironmentSetEnv("QUOVEX_INT_SET", "-42x", 1);
  ZBEnvironmentSetEnv("QUOVEX_REAL_SET", "2.5", 1);
  ZBEnvironmentSetEnv("QUOVEX_TEXT_SET", "hello", 1);
  ZBOptionRegister("QUOVEX_INT_SET", "i", nullptr, ZBOptionTypeInt, &integer, nullptr, nullptr);
  ZBOptionRegister("QUOVEX_REAL_SET", "d", nullptr, ZBOptionTypeDouble, &real, nullptr, nullptr);
  ZBOptionRegister("QUOVEX_TEXT_SET", "s", nullptr, ZBOptionTypeString, &text, nullptr, nullptr);
  EXPECT_EQ(-42, integer);
  EXPECT_DOUBLE_EQ(2.5, real);
  ASSERT_NE(nullptr, text);
  EXPECT_STREQ("hello", text);
  // The option keeps its own copy of the text.
  EXPECT_NE(ZBEnvironmentGetEnv("QUOVEX_TEXT_SET"), text);

  const char *replacement = "bye";
  EXPECT_TRUE(ZBOptionWrite("QUOVEX_TEXT_SET", &replacement));
  EXPECT_STREQ("bye", text);
  EXPECT_NE(replacement, text);
  const char *read = nullptr;
  EXPECT_TRUE(ZBOptionRead("QUOVEX_TEXT_SET", &read));
  EXPECT_EQ(text, read);
  EXPECT_TRUE(ZBOptionWrite("QUOVEX_TEXT_SET", nullptr));
  EXPECT_EQ(nullptr, text);

  const double newReal = -0.125;
  EXPECT_TRUE(ZBOptionWrite("QUOVEX_REAL_SET", &newReal));
  double readReal = 0;
  EXPECT_TRUE(ZBOptionRead("QUOVEX_REAL_SET", &readReal));
  EXPECT_DOUBLE_EQ(-0.125, readReal);
  EXPECT_EQ(ZBOptionTypeDouble, ZBOptionGetType("QUOVEX_REAL_SET"));
}

TEST(ZBOption, UnknownNamesAreNotErrors) {
  EXPECT_EQ(0, ZBOptionGetType("QUOVEX_NOT_THERE"));
  EXPECT_EQ(0, ZBOptionGetType(nullptr));
  int32_t buffer = 1234;
  EXPECT_FALSE(ZBOptionRead("QUOVEX_NOT_THERE", &buffer));
  EXPECT_EQ(1234, buffer);
  EXPECT_FALSE(ZBOptionWrite("QUOVEX_NOT_THERE", &buffer));
}

std::vector<std::string> sCallbackLog;

TEST(ZBOption, CallbacksAndNotifications) {
  ZBOptionRegisterWithCallbacks(
      "QUOVEX_CALLBACKS", "c", "Tests", ZBOptionTypeInt,
      [](const char *name, int32_t type, void *value) {
        sCallbackLog.push_back(std::string("read ") + name + " " + std::to_string(type));
        *static_cast<int32_t *>(value) = 99;
      },
      [](const char *name, int32_t, const void *value) {
        sCallbackLog.push_back(std::string("write ") + name + " " +
                               std::to_string(*static_cast<const int32_t *>(value)));
      },
      nullptr);
  int32_t value = 5;
  EXPECT_TRUE(ZBOptionWrite("QUOVEX_CALLBACKS", &value));
  EXPECT_TRUE(ZBOptionRead("QUOVEX_CALLBACKS", &value));
  EXPECT_EQ(99, value);

  static int32_t stored;
  ZBOptionRegister("QUOVEX_NOTIFIED", "n", nullptr, ZBOptionTypeInt, &stored,
                   [](const char *name) { sCallbackLog.push_back(std::string("notify ") + name); },
                   nullptr);
  value = 8;
  EXPECT_TRUE(ZBOptionWrite("QUOVEX_NOTIFIED", &value));
  EXPECT_EQ(8, stored);
  const std::vector<std::string> expected = {"write QUOVEX_CALLBACKS 5", "read QUOVEX_CALLBACKS 2",
                                             "notify QUOVEX_NOTIFIED"};
  EXPECT_EQ(expected, sCallbackLog);
}

TEST(ZBOption, PrintListsNewestFirstSeparatedByBlankLines) {
  static double real = 2.5;
  static int32_t integer = 7;
  static uint8_t flag = 1;
  static int32_t unknown;
  ZBOptionRegister("QUOVEX_P1", "first", nullptr, ZBOptionTypeDouble, &real, nullptr, nullptr);
  ZBOptionRegister("QUOVEX_P2", "second", nullptr, ZBOptionTypeInt, &integer, nullptr, nullptr);
  ZBOptionRegister("QUOVEX_P3", "third", nullptr, ZBOptionTypeBool, &flag, nullptr, "third help");
  ZBOptionRegister("QUOVEX_P4", "fourth", nullptr, 0, &unknown, nullptr, nullptr);
  ZBOptionsPrint();
  const std::string ring = zbtest::logRing();
  const size_t header = ring.rfind("Registered ZBOptions:\n");
  ASSERT_NE(std::string::npos, header);
  EXPECT_EQ(header + 22, ring.find("QUOVEX_P4=UNKNOWN\nQUOVEX_P3=YES\nthird help\n\n"
                                   "QUOVEX_P2=7\n\nQUOVEX_P1=2.5\n\n",
                                   header))
      << ring.substr(header);

  struct Seen {
    std::vector<std::string> names;
    std::string category;
  } seen;
  ZBOptionsForeach(
      [](void *context, const char *name, const char *, const char *category, int32_t,
         const void *, const char *const *, int32_t, const char *) {
        auto *into = static_cast<Seen *>(context);
        into->names.push_back(name);
        if (std::string(name) == "QUOVEX_P1")
          into->category = category;
        return true;
      },
      &seen);
  ASSERT_GE(seen.names.size(), 4u);
  EXPECT_EQ("QUOVEX_P4", seen.names[0]);
  EXPECT_EQ("QUOVEX_P1", seen.names[3]);
  EXPECT_EQ("Settings", seen.category);
}

} // namespace
