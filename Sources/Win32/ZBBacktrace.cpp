// Backtraces of the calling thread (the system's own walker, which is the
// fastest there is for a running thread) and of the other threads of the
// registry (stopped just long enough to copy their stack, then unwound from
// the copy), and the printed, symbolized form of the calling thread's.
#include "ZBBacktrace.h"

#include "ZBAlloc.h"
#include "ZBLogPrivate.h"
#include "ZBOwned.h"
#include "ZBStackSnapshot.h"
#include "ZBThreadHandle.h"
#include "ZBThreadPrivate.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>

namespace {

// Enough for deep recursion without an unbounded allocation per capture.
constexpr size_t kStackCopyBytes = 256 * 1024;
constexpr uint32_t kPrintedFrames = 64;
constexpr uint32_t kMostFramesPerCall = 0xFFFF; // the system's count is 16 bits

} // namespace

// Not inlined and not a tail call, so that skipping its own frame is exact.
extern "C" __attribute__((noinline)) uint32_t ZBBacktraceCapture(void **frames, uint32_t capacity,
                                                                 uint32_t skip) noexcept {
  if (frames == nullptr || capacity == 0)
    return 0;
  const uint32_t captured =
      RtlCaptureStackBackTrace(skip + 1, std::min(capacity, kMostFramesPerCall), frames, nullptr);
  // Wine's walker goes on past the system's thread start with a null frame
  // and stale slots: the stack ends at the first null.
  uint32_t count = 0;
  while (count < captured && frames[count] != nullptr)
    ++count;
  return count;
}

// "  #03 00000001400017d1 fixture_level3+0x21 (ZBFixtureLibrary.c:23) [...]"
extern "C" __attribute__((noinline)) void ZBBacktracePrint(uint32_t skip) noexcept {
  void *frames[kPrintedFrames];
  const uint32_t count = ZBBacktraceCapture(frames, kPrintedFrames, skip + 1);
  char line[1280];
  std::snprintf(line, sizeof line, "Backtrace of thread %lu:\n", GetCurrentThreadId());
  const auto print = [](const char *text) {
    std::fputs(text, stderr);
    _ZBLogWriteToSink(text);
  };
  print(line);
  for (uint32_t index = 0; index < count; ++index) {
    // The call that the return address follows.
    const zb::Owned<char> description(
        ZBSymbolCopyDescription(static_cast<const char *>(frames[index]) - 1));
    std::snprintf(line, sizeof line, "  #%02u %p %s\n", index, frames[index],
                  description ? description.get() : "");
    print(line);
  }
  std::fflush(stderr);
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
