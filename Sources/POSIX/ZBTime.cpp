// The clock services that platform-neutral code calls, for the native build:
// the time module's start-up step, the monotonic clock (the tracer's time
// stamps) and the sleep, with the same millisecond
// rules as on Windows so that callers (the spin locks' back-off) behave
// alike on both.
#include "ZBTime.h"

#include "ZBTimePrivate.h"

#include <cerrno>
#include <ctime>
#include <sched.h>
#include <unistd.h>

namespace {

void sleepMilliseconds(uint32_t milliseconds) {
  if (milliseconds == 0) {
    sched_yield();
    return;
  }
  timespec duration{static_cast<time_t>(milliseconds / 1000),
                    static_cast<long>(milliseconds % 1000) * 1000000L};
  while (nanosleep(&duration, &duration) != 0 && errno == EINTR) {
  }
}

} // namespace

// The boot-relative clocks' flags live with the Windows clocks; there is
// nothing to set up here.
void _ZBTimeStartup() noexcept {}

extern "C" void ZBHRSleep(int64_t nanoseconds) noexcept {
  const uint32_t milliseconds = zb::time::saturatingTimeoutMilliseconds(nanoseconds);
  if (milliseconds != zb::time::kInfiniteMilliseconds) {
    sleepMilliseconds(milliseconds);
    return;
  }
  for (;;)
    pause();
}

extern "C" int64_t ZBHRTimeMonotonic(void) noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}
