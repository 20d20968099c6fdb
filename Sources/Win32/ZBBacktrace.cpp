// Backtraces of the calling thread (the system's own walker, which is the
// fastest there is for a running thread) and of the other threads of the
// registry (stopped just long enough to copy their stack, then unwound from
// the copy).
#include "ZBBacktrace.h"

#include "ZBAlloc.h"
#include "ZBOwned.h"
#include "ZBStackSnapshot.h"
#include "ZBThreadHandle.h"
#include "ZBThreadPrivate.h"

#include <windows.h>

#include <algorithm>

namespace {

// Enough for deep recursion without an unbounded allocation per capture.
constexpr size_t kStackCopyBytes = 256 * 1024;
constexpr uint32_t kMostFramesPerCall = 0xFFFF; // the system's count is 16 bits

} // namespace

// Not inlined and not a tail call, so that skipping its own frame is exact.
extern "C" __attribute__((noinline)) uint32_t ZBBacktraceCapture(void **frames, uint32_t capacity,
                                                                 uint32_t skip) noexcept {
  if (frames == nullptr || capacity == 0)
    return 0;
  const uint32_t count =
      RtlCaptureStackBackTrace(skip + 1, std::min(capacity, kMostFramesPerCall), frames, nullptr);
  __asm__ volatile("" ::: "memory");
  return count;
}

extern "C" ZBError ZBBacktraceCaptureThread(uint32_t threadID, void **frames, uint32_t capacity,
                                            uint32_t *outCount) noexcept {
  if (frames == nullptr || outCount == nullptr)
    return ZBErrorInvalidArgument;
  *outCount = 0;
  if (threadID == GetCurrentThreadId())
    return ZBErrorDeadlock;
  if (!_ZBThreadSuspendRegistryContains(threadID))
    return ZBErrorNotFound;
  zb::ThreadHandle thread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION,
                          threadID);
  if (!thread.isOpen())
    return ZBErrorNotFound;
  // Made before the thread stops: it may hold the heap's lock.
  const zb::Owned<uint8_t> stackCopy(static_cast<uint8_t *>(
      _ZBAllocWithZoneAndDesc(nullptr, kStackCopyBytes, "ZBBacktraceCaptureThread")));
  if (!stackCopy)
    return ZBErrorNoMemory;
  zb::stack::Snapshot snapshot{};
  snapshot.bytes = stackCopy.get();
  snapshot.capacity = kStackCopyBytes;
  if (!zb::stack::capture(thread.get(), snapshot))
    return ZBErrorGeneric;
  *outCount = zb::stack::unwind(snapshot, frames, capacity);
  return ZBErrorNone;
}
