// Stopping and restarting threads by system ID, one at a time or all the
// threads of the suspend registry at once (for sampling and crash handling).
// A thread never suspends itself: it could not resume.
#include "ZBThread.h"

#include "ZBLog.h"
#include "ZBThreadHandle.h"
#include "ZBThreadPrivate.h"

#include <windows.h>

namespace {

constexpr DWORD kSuspendFailed = 0xFFFFFFFF;

ZBError changeSuspension(uint32_t threadID, DWORD (WINAPI *change)(HANDLE)) {
  zb::ThreadHandle thread(THREAD_SUSPEND_RESUME, threadID);
  if (!thread.isOpen())
    return ZBErrorGeneric;
  return change(thread.get()) == kSuspendFailed ? ZBErrorGeneric : ZBErrorNone;
}

void suspendEntry(uint32_t threadID) {
  if (ZBThreadSuspendWithID(threadID) != ZBErrorNone)
    ZB_LOG_AT(ZBLogLevelWarning, "ZBThreadSuspendAll", __FILE__, __LINE__,
              "Failed to suspend thread %d", static_cast<int>(threadID));
}

void resumeEntry(uint32_t threadID) {
  if (ZBThreadResumeWithID(threadID) != ZBErrorNone)
    ZB_LOG_AT(ZBLogLevelWarning, "ZBThreadResumeAll", __FILE__, __LINE__,
              "Failed to resume thread %d", static_cast<int>(threadID));
}

} // namespace

extern "C" ZBError ZBThreadSuspendWithID(uint32_t threadID) noexcept {
  if (threadID == GetCurrentThreadId())
    return ZBErrorDeadlock;
  return changeSuspension(threadID, SuspendThread);
}

// The caller's own ID answers ZBErrorInvalidArgument here but ZBErrorDeadlock
// when suspending: both codes are kept as applications know them.
extern "C" ZBError ZBThreadResumeWithID(uint32_t threadID) noexcept {
  if (threadID == GetCurrentThreadId())
    return ZBErrorInvalidArgument;
  return changeSuspension(threadID, ResumeThread);
}

extern "C" void ZBThreadSuspendAll(void) noexcept {
  _ZBThreadSuspendRegistryVisitSuspendable(suspendEntry);
}

extern "C" void ZBThreadResumeAll(void) noexcept {
  _ZBThreadSuspendRegistryVisitSuspendable(resumeEntry);
}
