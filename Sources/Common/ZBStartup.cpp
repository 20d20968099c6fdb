// The library's load-time constructor: each module's start-up step, once,
// in the order the modules depend on each other.
#include "ZBLogPrivate.h"
#include "ZBThreadPrivate.h"
#include "ZBTimePrivate.h"
#include "qprintfEngine.h"

#include <atomic>

namespace {

std::atomic<int> sStartups{0};

__attribute__((constructor)) void startLibrary() {
  if (sStartups.fetch_add(1) != 0)
    return;
  _ZBTimeStartup();
  _ZBLogStartup();
  _ZBThreadStartup();
  _ZBThreadKeyStartup();
  qprintf_builtins_init();
}

} // namespace
