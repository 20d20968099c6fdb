// The private environment: the variable store, its deliberate quirks, and
// the typed getters.
#include <gtest/gtest.h>

#include "ZBEnvironment.h"

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

namespace {

std::vector<std::string> copiedEntries() {
  std::vector<std::string> entries;
  char **copy = ZBEnvironmentCopyEnviron();
  for (char **entry = copy; entry && *entry; ++entry)
    entries.push_back(*entry);
  ZBEnvironmentReleaseEnviron(copy);
  return entries;
}

size_t countOf(const std::vector<std::string> &entries, const std::string &entry) {
  size_t count = 0;
  for (const std::string &candidate : entries)
    count += candidate == entry;
  return count;
}

TEST(ZBEnvironment, SetGetAndOverwrite) {
  EXPECT_EQ(0, ZBEnvironmentSetEnv("ZBTEST_COLOUR", "red", 0));
  EXPECT_STREQ("red", ZBEnvironmentGetEnv("ZBTEST_COLOUR"));
  EXPECT_EQ(0, ZBEnvironmentSetEnv("ZBTEST_COLOUR", "blue", 0));
  EXPECT_STREQ("red", ZBEnvironmentGetEnv("ZBTEST_COLOUR"));
  EXPECT_EQ(0, ZBEnvironmentSetEnv("ZBTEST_COLOUR", "green", 1));
  EXPECT_STREQ("green", ZBEnvironmentGetEnv("ZBTEST_COLOUR"));
  // A name that is a prefix of another does not match it.
  EXPECT_EQ(nullptr, ZBEnvironmentGetEnv("ZBTEST_COLOU"));
  EXPECT_EQ(0, ZBEnvironmentSetEnv("ZBTEST_EMPTY", "", 1));
  EXPECT_STREQ("", ZBEnvironmentGetEnv("ZBTEST_EMPTY"));

  EXPECT_EQ(0, ZBEnvironmentPutEnv("ZBTEST_PUT=a=b"));
  EXPECT_STREQ("a=b", ZBEnvironmentGetEnv("ZBTEST_PUT"));
  EXPECT_EQ(0, ZBEnvironmentPutEnv("ZBTEST_PUT=c"));
  EXPECT_STREQ("c", ZBEnvironmentGetEnv("ZBTEST_PUT"));
}

TEST(ZBEnvironment, BadNamesAndValuesAreRefused) {
  EXPECT_EQ(nullptr, ZBEnvironmentGetEnv(nullptr));
  EXPECT_EQ(nullptr, ZBEnvironmentGetEnv(""));
  EXPECT_EQ(nullptr, ZBEnvironmentGetEnv("A=B"));
  const struct {
    const char *name;
    const char *value;
  } refused[] = {{nullptr, "v"}, {"ZBTEST_X", nullptr}, {"", "v"}, {"ZBTEST=X", "v"}};
  for (const auto &attempt : refused) {
    errno = 0;
    EXPECT_EQ(-1, ZBEnvironmentSetEnv(attempt.name, attempt.value, 1));
    EXPECT_EQ(EINVAL, errno);
  }
  errno = 0;
  EXPECT_EQ(-1, ZBEnvironmentPutEnv("ZBTEST_NO_EQUALS"));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_EQ(-1, ZBEnvironmentPutEnv(nullptr));
  errno = 0;
  EXPECT_EQ(-1, ZBEnvironmentUnsetEnv("ZBTEST_NEVER_SET"));
  EXPECT_EQ(EINVAL, errno);
  EXPECT_EQ(-1, ZBEnvironmentUnsetEnv("A=B"));
  EXPECT_EQ(-1, ZBEnvironmentUnsetEnv(""));
  EXPECT_EQ(-1, ZBEnvironmentUnsetEnv(nullptr));
}

TEST(ZBEnvironment, SettingHomeDoesNothing) {
  const char *before = ZBEnvironmentGetEnv("HOME");
  const std::string saved = before ? before : "<unset>";
  testing::internal::CaptureStdout();
  EXPECT_EQ(-1, ZBEnvironmentSetEnv("HOME", "/elsewhere", 1));
  EXPECT_EQ("Setting HOME does nothing.\n", testing::internal::GetCapturedStdout());
  const char *after = ZBEnvironmentGetEnv("HOME");
  EXPECT_EQ(saved, after ? after : "<unset>");
}

TEST(ZBEnvironment, UnsetMovesTheLastEntryAndLeavesItListedTwice) {
  ZBEnvironmentSetEnv("ZBTEST_FIRST", "1", 1);
  ZBEnvironmentSetEnv("ZBTEST_SECOND", "2", 1);
  ZBEnvironmentSetEnv("ZBTEST_LAST", "3", 1);
  EXPECT_EQ(0, ZBEnvironmentUnsetEnv("ZBTEST_FIRST"));
  EXPECT_EQ(nullptr, ZBEnvironmentGetEnv("ZBTEST_FIRST"));
  const std::vector<std::string> entries = copiedEntries();
  EXPECT_EQ(2u, countOf(entries, "ZBTEST_LAST=3"));
  EXPECT_EQ(1u, countOf(entries, "ZBTEST_SECOND=2"));
  EXPECT_EQ(0u, countOf(entries, "ZBTEST_FIRST=1"));
}

// Removing the entry that an earlier removal left listed twice removes both
// listings; its string is freed once, when nothing lists it any more.
TEST(ZBEnvironment, RemovingTheTwiceListedEntryRemovesItEntirely) {
  ZBEnvironmentSetEnv("ZBTEST_D1", "1", 1);
  ZBEnvironmentSetEnv("ZBTEST_D2", "2", 1);
  ZBEnvironmentSetEnv("ZBTEST_D3", "3", 1);
  ASSERT_EQ(0, ZBEnvironmentUnsetEnv("ZBTEST_D1"));
  ASSERT_EQ(2u, countOf(copiedEntries(), "ZBTEST_D3=3"));
  ASSERT_EQ(0, ZBEnvironmentSetEnv("ZBTEST_D3", "three", 1));
  EXPECT_STREQ("three", ZBEnvironmentGetEnv("ZBTEST_D3"));
  int removals = 0;
  while (ZBEnvironmentUnsetEnv("ZBTEST_D3") == 0)
    ASSERT_LT(++removals, 3);
  const std::vector<std::string> entries = copiedEntries();
  EXPECT_EQ(0u, countOf(entries, "ZBTEST_D3=3"));
  EXPECT_EQ(0u, countOf(entries, "ZBTEST_D3=three"));
  EXPECT_STREQ("2", ZBEnvironmentGetEnv("ZBTEST_D2"));
}

TEST(ZBEnvironment, UnsetOfTheLastEntryShortensTheList) {
  ZBEnvironmentSetEnv("ZBTEST_TAIL", "t", 1);
  const size_t before = copiedEntries().size();
  EXPECT_EQ(0, ZBEnvironmentUnsetEnv("ZBTEST_TAIL"));
  EXPECT_EQ(before - 1, copiedEntries().size());
  char **array = ZBEnvironmentGetEnviron();
  size_t count = 0;
  while (array[count] != nullptr)
    ++count;
  EXPECT_EQ(before - 1, count);
}

TEST(ZBEnvironment, GrowsPastItsInitialCapacity) {
  for (int i = 0; i < 300; ++i)
    ASSERT_EQ(0, ZBEnvironmentSetEnv(("ZBTEST_MANY_" + std::to_string(i)).c_str(),
                                     std::to_string(i * 7).c_str(), 1));
  for (int i = 0; i < 300; ++i)
    ASSERT_STREQ(std::to_string(i * 7).c_str(),
                 ZBEnvironmentGetEnv(("ZBTEST_MANY_" + std::to_string(i)).c_str()));
  EXPECT_EQ(1u, countOf(copiedEntries(), "ZBTEST_MANY_299=2093"));
  ZBEnvironmentReleaseEnviron(nullptr);
}

TEST(ZBEnvironment, TypedGetters) {
  const struct {
    const char *value;
    bool withTrueDefault;
    bool withFalseDefault;
  } booleans[] = {{"no", false, false},  {"No", false, false}, {"0", false, false},
                  {"yes", true, true},   {"Y", true, true},    {"1", true, true},
                  {"true", true, false}, {"off", true, false}, {"", true, false}};
  for (const auto &row : booleans) {
    ZBEnvironmentSetEnv("ZBTEST_BOOL", row.value, 1);
    EXPECT_EQ(row.withTrueDefault, ZBEnvironmentGetBooleanWithDefault("ZBTEST_BOOL", true))
        << row.value;
    EXPECT_EQ(row.withFalseDefault, ZBEnvironmentGetBooleanWithDefault("ZBTEST_BOOL", false))
        << row.value;
  }
  EXPECT_TRUE(ZBEnvironmentGetBooleanWithDefault("ZBTEST_ABSENT", true));
  EXPECT_FALSE(ZBEnvironmentGetBooleanWithDefault("ZBTEST_ABSENT", false));

  ZBEnvironmentSetEnv("ZBTEST_INT", "42abc", 1);
  EXPECT_EQ(42, ZBEnvironmentGetInteger("ZBTEST_INT"));
  EXPECT_EQ(42, ZBEnvironmentGetIntegerWithDefault("ZBTEST_INT", 7));
  EXPECT_EQ(7, ZBEnvironmentGetIntegerWithDefault("ZBTEST_ABSENT", 7));
  EXPECT_EQ(0, ZBEnvironmentGetInteger("ZBTEST_ABSENT"));
  ZBEnvironmentSetEnv("ZBTEST_INT", "-17", 1);
  EXPECT_EQ(-17, ZBEnvironmentGetInteger("ZBTEST_INT"));
  ZBEnvironmentSetEnv("ZBTEST_FLOAT", "2.5e3", 1);
  EXPECT_DOUBLE_EQ(2500.0, ZBEnvironmentGetFloat("ZBTEST_FLOAT"));
  EXPECT_DOUBLE_EQ(0.0, ZBEnvironmentGetFloat("ZBTEST_ABSENT"));
}

// The store starts with the process's own environment (the test runner sets
// WINEDEBUG for Windows programs; the native build always has PATH).
TEST(ZBEnvironment, StartsWithTheProcessEnvironment) {
#ifdef _WIN32
  const char *imported = ZBEnvironmentGetEnv("WINEDEBUG");
  if (imported == nullptr)
    GTEST_SKIP() << "not run under Wine's test runner";
  EXPECT_STREQ("-all", imported);
#else
  EXPECT_NE(nullptr, ZBEnvironmentGetEnv("PATH"));
#endif
}

TEST(ZBEnvironment, ConcurrentWritersAndReaders) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([t] {
      const std::string name = "ZBTEST_THREAD_" + std::to_string(t);
      for (int i = 0; i < 500; ++i) {
        ZBEnvironmentSetEnv(name.c_str(), std::to_string(i).c_str(), 1);
        char **copy = ZBEnvironmentCopyEnviron();
        ZBEnvironmentReleaseEnviron(copy);
      }
    });
  for (std::thread &thread : threads)
    thread.join();
  for (int t = 0; t < 4; ++t)
    EXPECT_STREQ("499", ZBEnvironmentGetEnv(("ZBTEST_THREAD_" + std::to_string(t)).c_str()));
}

} // namespace
