// Logging: level words, rule matching, configuration sources, the line
// format through the file sink, the ring, re-configuration through the
// environment, and the Fatal paths.
#include <gtest/gtest.h>

#include "ZBEnvironment.h"
#include "ZBEnvironmentPrivate.h"
#include "ZBLog.h"
#include "ZBLogConfiguration.h"
#include "ZBTestSupport.h"

#include <atomic>
#include <chrono>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstdio>
#include <regex>
#include <string>
#include <thread>

#ifdef _WIN32
#  include <windows.h>
#endif

namespace {

const char *const kLogVariables[] = {"ZBLOG_LEVEL", "ZBLOG_CONFIG", "ZBLOG_CONFIG_FILE"};

bool ringHas(const std::string &needle) { return zbtest::logRing().find(needle) != std::string::npos; }

// Configuration files are made and removed by their UTF-16 names on Windows,
// without the library, so that a file the log opened through the ANSI code
// page would not be found.
#ifdef _WIN32
std::wstring systemName(const std::string &path) {
  std::wstring wide(path.size() + 1, L'\0');
  const int units = MultiByteToWideChar(CP_UTF8, 0, path.c_str(), -1, wide.data(),
                                        static_cast<int>(wide.size()));
  wide.resize(units > 0 ? static_cast<size_t>(units - 1) : 0);
  return wide;
}
FILE *createFile(const std::string &path) { return _wfopen(systemName(path).c_str(), L"wb"); }
void removeFile(const std::string &path) { _wremove(systemName(path).c_str()); }
#else
FILE *createFile(const std::string &path) { return std::fopen(path.c_str(), "wb"); }
void removeFile(const std::string &path) { std::remove(path.c_str()); }
#endif

void writeFile(const std::string &path, const std::string &contents) {
  FILE *file = createFile(path);
  ASSERT_NE(nullptr, file);
  std::fwrite(contents.data(), 1, contents.size(), file);
  std::fclose(file);
}

// Each test starts from no log variables and a freshly loaded configuration.
class ZBLogTest : public testing::Test {
protected:
  void SetUp() override { clearVariables(); }
  void TearDown() override { clearVariables(); }

  static void clearVariables() {
    for (const char *name : kLogVariables)
      while (ZBEnvironmentUnsetEnv(name) == 0) {
      }
    ZBLogEnvironmentReset();
  }

  // A configuration loaded from the environment as it stands.
  struct Loaded {
    ZBLogConfiguration configuration{"ZBLOG_LEVEL", "ZBLOG_CONFIG", "ZBLOG_CONFIG_FILE",
                                     0, nullptr, {}, ZBLogLevelInfo};
    Loaded() { zb::log::loadConfiguration(configuration); }
    ~Loaded() { zb::log::clearConfiguration(configuration); }
    int32_t level(const char *file, const char *function, uint32_t line,
                  uint32_t *flags = nullptr) {
      uint32_t ignored = 0;
      return zb::log::matchSite(configuration, file, function, line, flags ? flags : &ignored);
    }
  };
};

TEST(ZBLogLevelList, WordsAbbreviationsAndFlags) {
  const struct {
    const char *text;
    uint32_t level;
    uint32_t flags;
  } rows[] = {
      {"d", 6, 0},
      {"Deb", 6, 0},
      {"VERBOSE", 7, 0},
      {"w", 4, 0},
      {"err", 3, 0},
      {"f", 2, 0},
      {"Info", 5, 0},
      {"Trace", 7, ZBLogSiteFlagTrace},
      {"b", 7, ZBLogSiteFlagBacktrace},
      {"Error,Backtrace", 3, ZBLogSiteFlagBacktrace},
      {"t,w", 4, ZBLogSiteFlagTrace},
      {"Debug,Error", 3, 0},
      {"Debug,", 0, 0},         // the empty word resets the level
      {"", 0, 0},
      {"Errors", 0, 0},          // longer than the word: no match
      {"xyz", 0, 0},
      {"Warning\n", 4, 0},       // a file line's end ends the list
      {"Error:*=Verbose", 3, 0}, // so does any other non-letter
      {"Debug;Error", 6, 0},
  };
  for (const auto &row : rows) {
    uint32_t flags = 0;
    EXPECT_EQ(row.level, zb::log::parseLevelList(row.text, &flags)) << row.text;
    EXPECT_EQ(row.flags, flags) << row.text;
  }
}

TEST_F(ZBLogTest, LevelVariableAppliesToEverySiteWithoutItsFlags) {
  ZBEnvironmentSetEnv("ZBLOG_LEVEL", "d", 1);
  ZBEnvironmentSetEnv("ZBLOG_CONFIG", "*=Error", 1); // ZBLOG_LEVEL wins
  {
    Loaded loaded;
    EXPECT_EQ(6, loaded.level("Sources/Common/ZBLog.cpp", "f", 1));
  }
  ZBEnvironmentSetEnv("ZBLOG_LEVEL", "Trace", 1);
  Loaded loaded;
  uint32_t flags = 99;
  EXPECT_EQ(7, loaded.level("any.cpp", "f", 1, &flags));
  EXPECT_EQ(0u, flags);
}

TEST_F(ZBLogTest, RulesMatchPathComponentsPrefixesAndLineLists) {
  ZBEnvironmentSetEnv("ZBLOG_CONFIG",
                      "ZBPath*/100-200,300=Debug:Common=Error:Win32/openThing=v,b:"
                      "exactName=Warning:*=Verbose",
                      1);
  Loaded loaded;
  EXPECT_EQ(5, loaded.configuration.count);
  const struct {
    const char *file;
    const char *function;
    uint32_t line;
    int32_t level;
  } rows[] = {
      {"Sources/Common/ZBPathUtils.cpp", "f", 100, 6},
      {"Sources/Common/ZBPathUtils.cpp", "f", 200, 6},
      {"Sources/Common/ZBPathUtils.cpp", "f", 300, 6},
      {"Sources/Common/ZBPathUtils.cpp", "f", 250, 3}, // falls to Common=Error
      {"Sources/Common/ZBLog.cpp", "f", 1, 3},
      {"Sources/Win32/ZBFile.cpp", "openThing", 7, 7},
      {"Sources/Win32/ZBFile.cpp", "openThing2", 7, 7}, // only *= matches
      {"Sources/Win32/ZBFile.cpp", "exactName", 7, 4},  // a function alone
      {"Sources/Win32/ZBPath.cpp", "g", 150, 6},
      {"Tools/demo.c", "main", 1, 7},
      {"", "exactName", 1, 4},
  };
  for (const auto &row : rows)
    EXPECT_EQ(row.level, loaded.level(row.file, row.function, row.line))
        << row.file << " " << row.function << ":" << row.line;
  uint32_t flags = 0;
  loaded.level("Sources/Win32/ZBFile.cpp", "openThing", 7, &flags);
  EXPECT_EQ(ZBLogSiteFlagBacktrace, flags);
}

TEST_F(ZBLogTest, LocationComponentsAreSkippedAndComponentsMustMatchWhole) {
  ZBEnvironmentSetEnv("ZBLOG_CONFIG", "Sources=Error:Comm=Warning:ZBLog.cpp=Debug", 1);
  Loaded loaded;
  // "Sources" never matches (sites skip it); "Comm" is not "Common".
  EXPECT_EQ(6, loaded.level("Sources/Common/ZBLog.cpp", "f", 1));
  EXPECT_EQ(5, loaded.level("Sources/Common/ZBZone.cpp", "f", 1));
  EXPECT_EQ(5, loaded.level("PrivateHeaders/Sources", "f", 1));
}

TEST_F(ZBLogTest, ConfigFileRulesAndItsInvalidLines) {
  // "log-κανόνες.txt": a name outside the ANSI code page.
  const std::string path =
      zbtest::temporaryPath("log-\xCE\xBA\xCE\xB1\xCE\xBD\xCF\x8C\xCE\xBD\xCE\xB5\xCF\x82.txt");
  writeFile(path, "Common=Error\nnot a rule\n*=Debug\n");
  ZBEnvironmentSetEnv("ZBLOG_CONFIG", "*=Fatal", 1); // the file wins
  ZBEnvironmentSetEnv("ZBLOG_CONFIG_FILE", path.c_str(), 1);
  testing::internal::CaptureStderr();
  {
    Loaded loaded;
    EXPECT_EQ(2, loaded.configuration.count);
    EXPECT_EQ(3, loaded.level("Sources/Common/x.cpp", "f", 1));
    EXPECT_EQ(6, loaded.level("Sources/Win32/x.cpp", "f", 1));
  }
  EXPECT_EQ("Invalid pattern line: not a rule\n", testing::internal::GetCapturedStderr());
  removeFile(path);

  // A file that cannot be opened falls back to ZBLOG_CONFIG.
  ZBEnvironmentSetEnv("ZBLOG_CONFIG_FILE", path.c_str(), 1);
  testing::internal::CaptureStderr();
  {
    Loaded loaded;
    EXPECT_EQ(2, loaded.level("Sources/Win32/x.cpp", "f", 1));
  }
  EXPECT_EQ("Couldn't open " + path + "\n", testing::internal::GetCapturedStderr());
}

TEST_F(ZBLogTest, EmptyConfigurationsCountAsNotLoaded) {
  ZBEnvironmentSetEnv("ZBLOG_CONFIG", "", 1);
  {
    Loaded loaded;
    EXPECT_FALSE(zb::log::isLoaded(loaded.configuration));
    EXPECT_EQ(5, loaded.level("a.cpp", "f", 1));
  }
  ZBEnvironmentSetEnv("ZBLOG_CONFIG", "noequals", 1);
  testing::internal::CaptureStderr();
  {
    Loaded loaded;
    EXPECT_FALSE(zb::log::isLoaded(loaded.configuration));
  }
  EXPECT_EQ("Invalid pattern line: noequals", testing::internal::GetCapturedStderr());
  // A rule with no levels gives the default; a trailing ":" ends the list.
  ZBEnvironmentSetEnv("ZBLOG_CONFIG", "a.cpp=:", 1);
  Loaded loaded;
  EXPECT_EQ(1, loaded.configuration.count);
  EXPECT_EQ(5, loaded.level("a.cpp", "f", 1));
}

TEST_F(ZBLogTest, WithoutVariablesSitesLogInfoButNotDebug) {
  ZB_LOG_INFO("info line %d", 1);
  ZB_LOG_DEBUG("debug line %d", 2);
  EXPECT_TRUE(ringHas("INFO: info line 1\r\n"));
  EXPECT_FALSE(ringHas("debug line 2"));
}

TEST_F(ZBLogTest, SettingALogVariableRedeterminesSitesThatAlreadyLogged) {
  auto logBoth = [](int round) {
    ZB_LOG_INFO("round %d info", round);
    ZB_LOG_DEBUG("round %d debug", round);
  };
  logBoth(1);
  ZBEnvironmentSetEnv("ZBLOG_LEVEL", "Debug", 1);
  logBoth(2);
  ZBEnvironmentSetEnv("ZBLOG_LEVEL", "Error", 1);
  logBoth(3);
  EXPECT_TRUE(ringHas("round 1 info"));
  EXPECT_FALSE(ringHas("round 1 debug"));
  EXPECT_TRUE(ringHas("round 2 info"));
  EXPECT_TRUE(ringHas("round 2 debug"));
  EXPECT_FALSE(ringHas("round 3 info"));
  EXPECT_FALSE(ringHas("round 3 debug"));
}

// The directory functions log while they hold the environment's lock, so
// the log must never read the environment under its own lock (a site's
// first determination does read it), or the two threads below wait for
// each other for ever.
TEST_F(ZBLogTest, DeterminingSitesWhileTheEnvironmentLockHolderLogsNeverDeadlocks) {
  static ZBLogSite sites[2000]; // determined sites stay listed for ever
  static ZBLogSite logging;
  // An empty configuration counts as not loaded, so every first
  // determination reads the environment again.
  ZBEnvironmentSetEnv("ZBLOG_CONFIG", "", 1);
  std::atomic<bool> determined{false};
  std::thread holder([&] {
    while (!determined.load()) {
      ZBMutexAcquire(_ZBEnvironmentLock());
      if (ZBLogDetermineLogLevel(ZBLogLevelInfo, &logging, "Sources/h.cpp", "h", 1))
        ZBLogS(ZBLogLevelInfo, &logging, "h", "Sources/h.cpp", 1, "under the lock");
      ZBMutexRelease(_ZBEnvironmentLock());
    }
  });
  std::thread determiner([&] {
    for (ZBLogSite &site : sites)
      ZBLogDetermineLogLevel(ZBLogLevelInfo, &site, "Sources/d.cpp", "d", 1);
    determined = true;
  });
  for (int waited = 0; !determined.load() && waited < 30000; waited += 10)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  if (!determined.load()) {
    ADD_FAILURE() << "the lock holder and the determiner deadlocked";
    std::_Exit(1); // the stuck threads cannot be joined
  }
  holder.join();
  determiner.join();
  EXPECT_TRUE(ZBLogDetermineLogLevel(ZBLogLevelInfo, &sites[1999], "Sources/d.cpp", "d", 1));
}

TEST_F(ZBLogTest, LinesHaveTheExactFormatInTheLogFile) {
  const std::string path = zbtest::temporaryPath("format.log");
  ZBLogSetFile(path.c_str());
  static ZBLogSite site;
  ZB_LOG_FROM(&site, ZBLogLevelWarning, "someFunction", "Sources/Common/ZBThing.cpp", 42,
              "value %d and %s", 7, "text");
  ZBLogX(ZBLogLevelRaw, "raw", "raw.cpp", 1, "bare %s|", "message");
  ZBLogX(9, "odd", "Sources/odd.cpp", 3, "odd level");
  const std::string contents = zbtest::readFile(path);
  const std::regex expected(
      "\\[\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3}\\]\\[ZBThing\\.cpp:42\\] "
      "\\(\\d+/\\d+\\) [^:\\r\\n]*: someFunction: WARNING: value 7 and text\\r\\n"
      "bare message\\|"
      "\\[[^\\]]+\\]\\[odd\\.cpp:3\\] \\(\\d+/\\d+\\) [^:\\r\\n]*: odd: UNKNOWN: odd level\\r\\n");
  EXPECT_TRUE(std::regex_match(contents, expected)) << contents;
  EXPECT_TRUE(ringHas("bare message|"));
}

// The base name comes from the path splitter, which refuses names of 1025
// bytes or more: such a site still writes its line, its name printed as the
// splitter's null answer, and errno stays as the caller left it.
TEST_F(ZBLogTest, SitesWithOverlongFileNamesStillWriteTheirLines) {
  const std::string longest = "Sources/" + std::string(1012, 'f') + ".cpp";
  ASSERT_EQ(1024u, longest.size());
  const std::string tooLong = "Sources/" + longest;
  errno = 0;
  ZBLogX(ZBLogLevelWarning, "longestName", longest.c_str(), 5, "within the limit");
  ZBLogX(ZBLogLevelWarning, "tooLongName", tooLong.c_str(), 6, "beyond the limit");
  EXPECT_EQ(0, errno);
  EXPECT_TRUE(ringHas("][" + longest.substr(8) + ":5] ("));
  EXPECT_TRUE(ringHas("][(null):6] ("));
  EXPECT_TRUE(ringHas(": tooLongName: WARNING: beyond the limit\r\n"));
}

void logThroughArguments(int32_t level, const char *function, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  ZBLogv(level, function, "Sources/v.cpp", 4, format, arguments);
  va_end(arguments);
}

// Every writer takes the same line apart the same way: function, level word
// and the formatted message.
TEST_F(ZBLogTest, EachWriterFormatsItsArguments) {
  static ZBLogSite site;
  const struct {
    void (*write)(const char *text);
    const char *line;
  } writers[] = {
      {[](const char *text) { ZBLogS(ZBLogLevelWarning, &site, "viaS", "s.cpp", 1, "%s %d", text, 1); },
       "viaS: WARNING: S-line 1\r\n"},
      {[](const char *text) { ZBLogS(ZBLogLevelError, nullptr, "viaNoSite", "s.cpp", 2, "%s", text); },
       "viaNoSite: ERROR: S-line\r\n"},
      {[](const char *text) {
         ZBLogSUnsafe(ZBLogLevelInfo, &site, "viaSUnsafe", "s.cpp", 3, "%s %x", text, 255u);
       },
       "viaSUnsafe: INFO: S-line ff\r\n"},
      {[](const char *text) { ZBLogXUnsafe(ZBLogLevelDebug, "viaXUnsafe", "x.cpp", 4, "%s", text); },
       "viaXUnsafe: DEBUG: S-line\r\n"},
      {[](const char *text) { logThroughArguments(ZBLogLevelVerbose, "viaV", "%s %s", text, "v"); },
       "viaV: VERBOSE: S-line v\r\n"},
  };
  for (const auto &writer : writers) {
    writer.write("S-line");
    EXPECT_TRUE(ringHas(writer.line)) << writer.line;
  }
}

TEST_F(ZBLogTest, AFileThatCannotBeOpenedKeepsTheCurrentSink) {
  ZBLogSetFile("/no/such/directory/zb.log");
  EXPECT_TRUE(ringHas("][:1237] "));
  EXPECT_TRUE(ringHas(": ZBLogSetFile: ERROR: Could not open for writing: `/no/such/directory/zb.log`\r\n"));
}

TEST_F(ZBLogTest, RingKeepsTheNewestLines) {
  // Each line is over 100 bytes: 400 of them overflow the ring.
  for (int i = 0; i < 400; ++i)
    ZB_LOG_INFO("filler line number %04d to push older lines out of the ring", i);
  const std::string ring = zbtest::logRing();
  EXPECT_EQ(32768u, ring.size());
  EXPECT_NE(std::string::npos, ring.find("number 0399 to push"));
  EXPECT_EQ(std::string::npos, ring.find("number 0000 to push"));
  char small[100];
  EXPECT_EQ(-32768, ZBLogBufferCopyBytes(small, sizeof small));
  EXPECT_NE(nullptr, ZBLogGetLogBufferThreadUnsafeDoNotUse());
}

TEST_F(ZBLogTest, TraceRulesDivertLinesAwayFromTheLog) {
  ZBEnvironmentSetEnv("ZBLOG_CONFIG", "divertedFunction=Trace:*=Info", 1);
  static ZBLogSite site;
  ZB_LOG_FROM(&site, ZBLogLevelInfo, "divertedFunction", "a.cpp", 5, "diverted text");
  EXPECT_FALSE(ringHas("diverted text"));
  EXPECT_EQ(ZBLogLevelVerbose, site.level);
  EXPECT_EQ(ZBLogSiteFlagTrace | 5u, site.lineWord);
}

TEST_F(ZBLogTest, BacktraceRulesPrintAStackAfterTheLine) {
  ZBEnvironmentSetEnv("ZBLOG_CONFIG", "withStack=Info,Backtrace", 1);
  static ZBLogSite site;
  testing::internal::CaptureStderr();
  ZB_LOG_FROM(&site, ZBLogLevelInfo, "withStack", "a.cpp", 5, "stacked");
  const std::string stderrText = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(ringHas("stacked"));
  EXPECT_NE(std::string::npos, stderrText.find("Backtrace of thread")) << stderrText;
}

TEST_F(ZBLogTest, FixedWarningSitesAndDynamicSites) {
  ZBLogSite fixed{};
  fixed.level = ZBLogSiteLevelFixedWarning;
  EXPECT_FALSE(ZBLogDetermineLogLevel(ZBLogLevelInfo, &fixed, "f.cpp", "f", 1));
  EXPECT_EQ(ZBLogLevelWarning, fixed.level);
  EXPECT_TRUE(ZBLogDetermineLogLevel(ZBLogLevelWarning, &fixed, "f.cpp", "f", 1));

  ZBEnvironmentSetEnv("ZBLOG_CONFIG", "dyn=Debug,Backtrace", 1);
  static ZBLogSite determined; // loads the configuration; sites live for ever
  ZBLogDetermineLogLevel(ZBLogLevelInfo, &determined, "x.cpp", "x", 1);
  ZBLogSite dynamic{"Sources/dyn/a.cpp", 0, nullptr, "g", 12};
  uint32_t flags = 0;
  EXPECT_EQ(ZBLogLevelDebug, _ZBLogDetermineLogLevelForDynamicSite(&dynamic, &flags));
  EXPECT_EQ(ZBLogSiteFlagBacktrace, flags);
  EXPECT_EQ(0, dynamic.level); // nothing cached
}

TEST(ZBLogLabelSites, StartUndetermined) {
  ZBLogSite *sites[] = {&ZBLogLabelSiteCommandQueue, &ZBLogLabelSiteKeyboard,
                        &ZBLogLabelSiteRigid, &ZBLogLabelSiteShadow, &ZBLogLabelSiteUWPAlert,
                        &ZBLogLabelSiteUWPAlertGeometry, &ZBLogLabelSiteUWPAlertStateMachine,
                        &ZBLogLabelSiteZBLogTestLabel};
  for (ZBLogSite *site : sites) {
    EXPECT_EQ(nullptr, site->file);
    EXPECT_EQ(0, site->level);
  }
}

TEST(ZBLogHooks, BugReportCallbackReceivesItsContext) {
  static void *received = nullptr;
  ZBCRTriggerBugReport(&received); // no callback yet: nothing happens
  ZBCRSetTriggerBugReportCallback([](void *context) { received = context; });
  int marker = 0;
  ZBCRTriggerBugReport(&marker);
  EXPECT_EQ(&marker, received);
  ZBCRSetTriggerBugReportCallback(nullptr);
  ZBLogNYICounter("anything", 1);
  ZBLogSetBackgroundColor(0xFF0000);
}

TEST(ZBLogDeathTest, AbortsEndTheProcessWithOrWithoutABacktrace) {
  EXPECT_DEATH(ZBAbort(), "");
  EXPECT_DEATH(ZBAbortWithBacktrace(), "Backtrace of thread");
}

TEST(ZBLogDeathTest, FatalLinesEndTheProcess) {
  std::string lines = zbtest::logOfDyingProcess([] {
    ZBLogX(ZBLogLevelFatal, "fatalFunction", "f.cpp", 9, "the end %d", 1);
  });
  EXPECT_NE(std::string::npos, lines.find("fatalFunction: FATAL: the end 1\r\n")) << lines;

  lines = zbtest::logOfDyingProcess([] {
    ZBLogFatalAssertion("assertingFunction", "a.cpp", 3, "ignored", "");
  });
  EXPECT_NE(std::string::npos, lines.find("assertingFunction: FATAL: Assertion failed\r\n"))
      << lines;

  lines = zbtest::logOfDyingProcess([] {
    ZBLogFatalAssertion("assertingFunction", "a.cpp", 3, nullptr, "x > 0");
  });
  EXPECT_NE(std::string::npos, lines.find("FATAL: Assertion failed: x > 0\r\n")) << lines;

  lines = zbtest::logOfDyingProcess([] {
    static int counter;
    ZBLogSetQVAnalyticsLogCounterPtr(&counter);
    ZBLogSetQVAnalyticsLogCounterPtr(&counter);
  });
  EXPECT_NE(std::string::npos,
            lines.find(":1264] ")) << lines;
  EXPECT_NE(std::string::npos,
            lines.find("ZBLogSetQVAnalyticsLogCounterPtr: FATAL: "
                       "sZBLogQVAnalyticsLogCounterPtr should only be set once!"))
      << lines;

  lines = zbtest::logOfDyingProcess([] {
    ZBCrashDumpFixImmediately();
  });
  EXPECT_NE(std::string::npos, lines.find("ZBCrashDumpFixImmediately: FATAL: NOT YET IMPLEMENTED"))
      << lines;
}

// The no-abort flag comes only from a site's static initialisation, which
// then also fixes its level (determination would replace the flags).
TEST(ZBLogDeathTest, NoAbortSitesSurviveFatalMessages) {
  static ZBLogSite site{"s.cpp", ZBLogLevelInfo, nullptr, "survivor", ZBLogSiteFlagNoAbort | 1};
  ZB_LOG_FROM(&site, ZBLogLevelFatal, "survivor", "s.cpp", 1, "fatal but kept alive");
  EXPECT_TRUE(ringHas("survivor: FATAL: fatal but kept alive"));
}

} // namespace
