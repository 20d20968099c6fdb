// The library's load-time constructor: each module's start-up step, once,
// in the order the modules depend on each other. Steps of services that this
// platform's library does not carry yet keep their place with no work, so
// the order stays the one every build shares.
#include "ZBLibraryPrivate.h"
#include "ZBLogPrivate.h"
#include "ZBPlatform.h"
#include "ZBProcessPrivate.h"
#include "ZBThreadPrivate.h"
#include "ZBTimePrivate.h"
#include "ZBTracePrivate.h"
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
    {"backtraces", zb::platform::prepareBacktraces},
    {"format conversions", qprintf_builtins_init},
#if defined(_WIN32)
    {"process path", _ZBProcessStartup},
    {"dynamic libraries", _ZBLibraryStartup},
    {"system information", _ZBSystemStartup},
#else
    // The native build has no process, library or system services.
    {"process path", nullptr},
    {"dynamic libraries", nullptr},
    {"system information", nullptr},
#endif
    {"tracing configuration", _ZBTraceStartup},
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
