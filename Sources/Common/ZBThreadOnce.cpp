// ZBThreadCallOnce: the library's one-time initialisation. A 32-bit word
// moves from 0 (not run) to 1 (running) to 2 (done); the caller that wins
// the move to 1 runs the function and the others yield until it is done.
// It needs nothing but atomics, so state can be made behind it before any
// lock exists, and one-time work is short enough that yielding beats a
// kernel wait.
#include "ZBThread.h"

namespace {

constexpr uint32_t kNotRun = 0;
constexpr uint32_t kRunning = 1;
constexpr uint32_t kDone = 2;

} // namespace

extern "C" ZBError ZBThreadCallOnce(uint32_t *once, ZBThreadOnceFunction function,
                                    void *argument) noexcept {
  if (once == nullptr || function == nullptr)
    return ZBErrorInvalidArgument;
  if (__atomic_load_n(once, __ATOMIC_ACQUIRE) != kDone) {
    uint32_t expected = kNotRun;
    if (__atomic_compare_exchange_n(once, &expected, kRunning, false, __ATOMIC_SEQ_CST,
                                    __ATOMIC_SEQ_CST)) {
      function(argument);
      __atomic_thread_fence(__ATOMIC_SEQ_CST);
      __atomic_store_n(once, kDone, __ATOMIC_RELEASE);
    } else {
      while (__atomic_load_n(once, __ATOMIC_ACQUIRE) != kDone)
        ZBThreadYield();
    }
  }
  __atomic_thread_fence(__ATOMIC_SEQ_CST);
  return ZBErrorNone;
}
