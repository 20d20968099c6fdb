// Start-up initializers: order within and across priorities, registration
// while running, reset, the misuse that ends the process, and the built-in
// initializers (main thread name, process type, profiler option).
#include <gtest/gtest.h>

#include "ZBEnvironment.h"
#include "ZBInitializer.h"
#include "ZBLog.h"
#include "ZBOption.h"
#include "ZBTestSupport.h"
#include "ZBThread.h"

#include <cstdio>
#include <string>
#include <thread>

namespace {

std::string sOrder;
int32_t sHasRunSeenByFirst = -1;

void record(char tag) { sOrder += tag; }

// One process runs the registry once for real; the other cases each die in
// a fresh process of their own.
TEST(ZBInitializer, RunsByPriorityWithStacksAndLateRegistrations) {
  ZBEnvironmentSetEnv("QUOVEX_NETWORK_PROCESS", "1", 1);
  ZBEnvironmentSetEnv("QUOVEX_DATABASE_PROCESS", "1", 1);
  EXPECT_EQ(0, ZBInitializerHasRun());
  ZBInitializerRegister_internal([] { record('7'); }, 7, "last priority");
  ZBInitializerRegister_internal([] { record('A'); }, 3, "A");
  ZBInitializerRegister_internal([] { record('B'); }, 3, "B");
  ZBInitializerRegister_internal(
      [] {
        sHasRunSeenByFirst = ZBInitializerHasRun();
        record('0');
      },
      0, "first");
  ZBInitializerRegister_internal(
      [] {
        record('2');
        ZBInitializerRegister_internal([] { record('5'); }, 5, "later");
        ZBInitializerRegister_internal([] { record('s'); }, 2, "same priority");
      },
      2, "registers");
  ZBInitializerRun();
  EXPECT_EQ("02sBA57", sOrder);
  EXPECT_EQ(1, sHasRunSeenByFirst);
  EXPECT_EQ(1, ZBInitializerHasRun());

  // The built-in initializers ran too.
  EXPECT_STREQ("qv-main", ZBThreadGetName(0));
  EXPECT_EQ(2, gZBProcessWebKitProcessType);
  EXPECT_EQ(ZBOptionTypeString, ZBOptionGetType("QUOVEX_PROFILER"));

  // Log lines now carry the main thread's name.
  const std::string path = zbtest::temporaryPath("init-name.log");
  ZBLogSetFile(path.c_str());
  ZB_LOG_INFO("named now");
  EXPECT_NE(std::string::npos, zbtest::readFile(path).find(") qv-main: "));

  EXPECT_EQ(1, ZBInitializerReset());
  EXPECT_EQ(0, ZBInitializerHasRun());
  sOrder.clear();
  ZBInitializerRegister_internal([] { record('R'); }, 1, "again");
  ZBInitializerRun();
  EXPECT_EQ("R", sOrder);
}

TEST(ZBInitializerDeathTest, MisuseEndsTheProcess) {
  std::string lines = zbtest::logOfDyingProcess([] { ZBInitializerReset(); });
  EXPECT_NE(std::string::npos, lines.find("[:58] ")) << lines;
  EXPECT_NE(std::string::npos, lines.find("FATAL: ZBInitializerRun has not been called!")) << lines;

  lines = zbtest::logOfDyingProcess([] {
    ZBInitializerRun();
    ZBInitializerRun();
  });
  EXPECT_NE(std::string::npos, lines.find("ZBInitializerRun: FATAL: ZBInitializerRun has already been run!"))
      << lines;

  lines = zbtest::logOfDyingProcess([] {
    ZBInitializerRegister_internal(
        [] { ZBInitializerRegister_internal([] {}, 1, "too late"); }, 2, "registers early");
    ZBInitializerRun();
  });
  EXPECT_NE(std::string::npos,
            lines.find("ZBInitializerRegister_internal: FATAL: ZBInitializerPriority(1) has been "
                       "called too late, ZBInitializerRun has been already called."))
      << lines;

  // Every thread counts as main until one is set.
  lines = zbtest::logOfDyingProcess([] {
    ZBThreadSetMain();
    std::thread worker([] { ZBInitializerRun(); });
    worker.join();
  });
  EXPECT_NE(std::string::npos, lines.find("[:70] ")) << lines;
  EXPECT_NE(std::string::npos, lines.find("FATAL: ZBInitializerRun called off main thread!")) << lines;
}

} // namespace
