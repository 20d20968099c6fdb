// Looking at the process's threads from outside, by system ID: listing them
// through a tool-help snapshot, reading their CPU times, and reading the
// registers of a briefly suspended thread (for samplers and crash reports).
#include "ZBThread.h"

#include "ZBLog.h"
#include "ZBThreadHandle.h"

#include <windows.h>
#include <tlhelp32.h>

#include <cstddef>

namespace {

constexpr DWORD kSuspendFailed = 0xFFFFFFFF;
// An entry must reach the owner's process ID to be of use.
constexpr size_t kMinimumEntrySize = offsetof(THREADENTRY32, th32OwnerProcessID) + sizeof(DWORD);
static_assert(kMinimumEntrySize == 16 && sizeof(THREADENTRY32) == 28, "THREADENTRY32's layout");

// FILETIME durations count 100-ns ticks.
int64_t nanoseconds(const FILETIME &duration) {
  const uint64_t ticks = (static_cast<uint64_t>(duration.dwHighDateTime) << 32) |
                         static_cast<uint64_t>(duration.dwLowDateTime);
  return static_cast<int64_t>(ticks) * 100;
}

class Snapshot {
public:
  Snapshot() : handle_(CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0)) {}
  ~Snapshot() {
    if (isOpen())
      CloseHandle(handle_);
  }
  Snapshot(const Snapshot &) = delete;
  Snapshot &operator=(const Snapshot &) = delete;
  bool isOpen() const { return handle_ != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return handle_; }

private:
  HANDLE handle_;
};

void copyRegisters(const CONTEXT &context, ZBThreadState *state) {
  *state = ZBThreadState{
      context.Rax,    context.Rbx,    context.Rcx, context.Rdx,    context.Rdi,    context.Rsi,
      context.Rbp,    context.Rsp,    context.SegSs, context.EFlags, context.Rip, context.SegCs,
      context.SegDs,  context.SegEs,  context.SegFs, context.SegGs,
  };
}

} // namespace

// Logs an Error with the system error of the call that just failed, read
// before the log site can change it.
#define ZB_LOG_LAST_ERROR(format)                                                        \
  do {                                                                                   \
    const DWORD lastError = GetLastError();                                              \
    ZB_LOG_ERROR(format, static_cast<int>(lastError));                                   \
  } while (0)

extern "C" ZBError ZBThreadEnumerateIDs(ZBThreadEnumerateCallback callback,
                                        void *context) noexcept {
  if (callback == nullptr)
    return ZBErrorInvalidArgument;
  Snapshot snapshot;
  if (!snapshot.isOpen())
    return ZBErrorGeneric;
  const DWORD processID = GetCurrentProcessId();
  THREADENTRY32 entry;
  entry.dwSize = sizeof entry;
  for (BOOL more = Thread32First(snapshot.get(), &entry); more;
       entry.dwSize = sizeof entry, more = Thread32Next(snapshot.get(), &entry)) {
    if (entry.dwSize < kMinimumEntrySize) {
      ZB_LOG_WARNING("THREADENTRY32 too small (got %d bytes, expected at least %zu bytes)",
                     static_cast<int>(entry.dwSize), kMinimumEntrySize);
      continue;
    }
    if (entry.th32OwnerProcessID == processID && !callback(entry.th32ThreadID, context))
      break;
  }
  return ZBErrorNone;
}

extern "C" ZBError ZBThreadGetCPUTimeUsageWithID(uint32_t threadID,
                                                 ZBThreadCPUTimeUsage *outUsage) noexcept {
  if (outUsage == nullptr)
    return ZBErrorInvalidArgument;
  zb::ThreadHandle thread(THREAD_QUERY_LIMITED_INFORMATION, threadID);
  // Only INVALID_HANDLE_VALUE counts as a failed open: OpenThread's null
  // fails in GetThreadTimes and answers ZBErrorGeneric, as it always has.
  if (thread.get() == INVALID_HANDLE_VALUE)
    return ZBErrorNotFound;
  FILETIME creation, exit, kernel, user;
  if (!GetThreadTimes(thread.get(), &creation, &exit, &kernel, &user)) {
    const DWORD error = GetLastError();
    ZB_LOG_WARNING("Failed to get times for thread %lu: %d", static_cast<unsigned long>(threadID),
                   static_cast<int>(error));
    return ZBErrorGeneric;
  }
  outUsage->kernelTime = nanoseconds(kernel);
  outUsage->userTime = nanoseconds(user);
  return ZBErrorNone;
}

extern "C" ZBError ZBThreadStateGet(uint32_t threadID, ZBThreadState *outState) noexcept {
  if (threadID == GetCurrentThreadId())
    return ZBErrorNotOwner;
  if (outState == nullptr)
    return ZBErrorInvalidArgument;
  // OpenThread fails with null; INVALID_HANDLE_VALUE is refused as well.
  zb::ThreadHandle thread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT, threadID);
  if (!thread.isOpen()) {
    ZB_LOG_LAST_ERROR("OpenThread failed: %d");
    return ZBErrorGeneric;
  }
  if (SuspendThread(thread.get()) == kSuspendFailed) {
    ZB_LOG_LAST_ERROR("SuspendThread failed: %d");
    return ZBErrorGeneric;
  }
  ZBError result = ZBErrorNone;
  // The native registers of x86_64: control, integer and segment.
  alignas(16) CONTEXT context{};
  context.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER | CONTEXT_SEGMENTS;
  if (GetThreadContext(thread.get(), &context)) {
    copyRegisters(context, outState);
  } else {
    ZB_LOG_LAST_ERROR("GetThreadContext failed: %d");
    result = ZBErrorGeneric;
  }
  if (ResumeThread(thread.get()) == kSuspendFailed) {
    ZB_LOG_LAST_ERROR("ResumeThread failed: %d");
    result = ZBErrorGeneric;
  }
  if (!thread.close()) {
    ZB_LOG_LAST_ERROR("CloseHandle failed: %d");
    result = ZBErrorGeneric;
  }
  return result;
}
