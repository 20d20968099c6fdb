// The thread services that come from Windows rather than from the
// POSIX-threads library: system thread IDs, yielding, and stack bounds.
// The POSIX-threads library for Windows offers a thread's handle
// (pthread_gethandle) but neither its ID nor its stack, so both are read
// from the system through that handle.
#include "ZBThread.h"

#include <pthread.h>
#include <windows.h>
#include <winternl.h>

namespace {

// The reply to NtQueryInformationThread's ThreadBasicInformation class; not
// in the SDK headers.
struct BasicInformation {
  NTSTATUS exitStatus;
  PVOID environmentBlock;
  CLIENT_ID clientID;
  KAFFINITY affinityMask;
  LONG priority;
  LONG basePriority;
};

using QueryInformationThread = NTSTATUS(NTAPI *)(HANDLE, THREADINFOCLASS, PVOID, ULONG, PULONG);

// ntdll is in every process; its entry point is looked up rather than
// imported so the library links against the documented DLLs only.
QueryInformationThread queryInformationThread() {
  static const auto query = reinterpret_cast<QueryInformationThread>(reinterpret_cast<void *>(
      GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "NtQueryInformationThread")));
  return query;
}

// The system handle behind a thread value, or null.
HANDLE systemHandle(ZBThread thread) {
  HANDLE handle = pthread_gethandle(static_cast<pthread_t>(thread));
  return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

// The thread's environment block, which holds its stack bounds.
const NT_TIB *threadInformationBlock(HANDLE thread) {
  const QueryInformationThread query = queryInformationThread();
  BasicInformation information{};
  if (query == nullptr ||
      query(thread, ThreadBasicInformation, &information, sizeof information, nullptr) < 0)
    return nullptr;
  return static_cast<const NT_TIB *>(information.environmentBlock);
}

} // namespace

extern "C" uint32_t ZBThreadGetCurrentThreadID(void) noexcept { return GetCurrentThreadId(); }

extern "C" void ZBThreadYield(void) noexcept { Sleep(0); }

extern "C" ZBError ZBThreadGetThreadID(ZBThread thread, uint32_t *outID) noexcept {
  if (thread == 0 || outID == nullptr)
    return ZBErrorInvalidArgument;
  HANDLE handle = systemHandle(thread);
  const DWORD threadID = handle != nullptr ? GetThreadId(handle) : 0;
  if (threadID == 0)
    return ZBErrorGeneric;
  *outID = threadID;
  return ZBErrorNone;
}

extern "C" ZBError ZBThreadGetStackInfo(ZBThread thread, void **outBase,
                                        size_t *outSize) noexcept {
  if (thread == 0)
    return ZBErrorInvalidArgument;
  HANDLE handle = systemHandle(thread);
  const NT_TIB *block = handle != nullptr ? threadInformationBlock(handle) : nullptr;
  if (block == nullptr)
    return ZBErrorGeneric;
  // The block's StackBase is the top of the stack; the reservation the
  // stack grows down into starts at the allocation base of the region
  // just below it.
  auto *top = static_cast<char *>(block->StackBase);
  MEMORY_BASIC_INFORMATION region;
  if (VirtualQuery(top - 1, &region, sizeof region) == 0)
    return ZBErrorGeneric;
  if (outBase != nullptr)
    *outBase = top;
  if (outSize != nullptr)
    *outSize = static_cast<size_t>(top - static_cast<char *>(region.AllocationBase));
  return ZBErrorNone;
}
