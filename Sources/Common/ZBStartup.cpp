// The library's load-time constructor: each module's start-up step, once,
// in the order the modules depend on each other.
#include "ZBLogPrivate.h"

#include <atomic>

namespace {

std::atomic<int> sStartups{0};

__attribute__((constructor)) void startLibrary() {
  if (sStartups.fetch_add(1) != 0)
    return;
  _ZBLogStartup();
}

} // namespace
