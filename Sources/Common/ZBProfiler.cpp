// The sampling profiler's start-up: it learns which thread is the main one
// and offers its settings as the option "QUOVEX_PROFILER".
#include "ZBInitializer.h"
#include "ZBOption.h"
#include "ZBThread.h"

namespace {

uint32_t sMainThreadID;
char *sSettings; // owned by the option

void startProfiler() {
  sMainThreadID = ZBThreadGetCurrentThreadID();
  ZBOptionRegister("QUOVEX_PROFILER", "ZB profiler", "ZB profiler settings", ZBOptionTypeString,
                   &sSettings, nullptr, nullptr);
}

// Runs before the library's load-time constructor.
__attribute__((constructor(200))) void registerProfiler() {
  ZBInitializerRegister_internal(startProfiler, 1, "ZBProfilerInitializer_constructor");
}

} // namespace
