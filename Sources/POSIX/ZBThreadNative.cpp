// The thread services that come from the system rather than from the
// POSIX-threads library, for the native build that runs the platform-neutral
// code under sanitizers: the system thread ID and yielding.
#include "ZBThread.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

extern "C" uint32_t ZBThreadGetCurrentThreadID(void) noexcept {
  return static_cast<uint32_t>(syscall(SYS_gettid));
}

extern "C" void ZBThreadYield(void) noexcept { sched_yield(); }
