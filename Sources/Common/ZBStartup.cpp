// The library's load-time constructor: each module's start-up step, once,
// in the order the modules depend on each other. Steps of services that this
// platform's library does not carry yet keep their place with no work, so
// the order stays the one every build shares.
#include "ZBLogPrivate.h"
#include "ZBProcessPrivate.h"
#include "ZBThreadPrivate.h"
#include "ZBTimePrivate.h"
#include "qprintfEngine.h"

#include <atomic>

namespace {

struct StartupStep {
  const char *module;
  void (*start)() noexcept; // null: nothing to start here yet
};

constexpr StartupStep kStartupSteps[] = {
    {"clocks and condition variables", _ZBTimeStartup},
    {"logging", _ZBLogStartup},
    {"threads", _ZBThreadStartup},
    {"thread keys", _ZBThreadKeyStartup},
    {"system information", nullptr},
    {"backtraces", nullptr},
    {"format conversions", qprintf_builtins_init},
#if defined(_WIN32)
    {"process path", _ZBProcessStartup},
#else
    {"process path", nullptr},       // the native build has no process services
#endif
    {"dynamic libraries", nullptr},
#if defined(_WIN32)
    {"system information", _ZBSystemStartup},
#else
    {"system information", nullptr}, // the native build has no system services
#endif
    {"tracing configuration", nullptr},
};

std::atomic<int> sStartups{0};

// The initializer registrations of priority 1 come first: they are static
// constructors of higher priority.
__attribute__((constructor)) void startLibrary() {
  if (sStartups.fetch_add(1) != 0)
    return;
  for (const StartupStep &step : kStartupSteps)
    if (step.start != nullptr)
      step.start();
}

} // namespace
