// The failure harness's machinery: the trampolines over the system-call
// table, the table of plausible errors, the counting base allocator and the
// checks run around each failing run.
#include "ZBFailureHarness.h"

#include <winsock2.h>

#include <algorithm>
#include <cerrno>
#include <type_traits>
#include <utility>

namespace zbtest::failure {
namespace {

zb::SystemCalls gReal;
std::atomic<size_t> gCalls{0};
std::atomic<size_t> gFailAt{0}; // 0: no call fails
std::atomic<size_t> gFailedEntry{kEntryCount};

ZBBaseAllocator gRealAllocator;
std::atomic<int64_t> gLiveBytes{0};
std::atomic<size_t> gAllocations{0}; // recoverable requests seen
std::atomic<size_t> gFailAllocationAt{0};
std::atomic<bool> gFailSmall{false};

// True when this request is the one chosen to fail.
bool allocationFails(size_t size) {
  if (size < kRecoverableAllocation)
    return gFailSmall.exchange(false);
  return gAllocations.fetch_add(1) + 1 == gFailAllocationAt.load();
}

template <typename R>
R resultAs(intptr_t value) {
  if constexpr (std::is_pointer_v<R>)
    return reinterpret_cast<R>(value);
  else
    return static_cast<R>(value);
}

template <auto Member, Entry Index, typename R, typename... A>
R trampoline(A... arguments) {
  const size_t call = gCalls.fetch_add(1) + 1;
  if (call == gFailAt.load()) {
    gFailedEntry = Index;
    const Failure *failure = failureOf(Index);
    if (failure->releases)
      (gReal.*Member)(arguments...);
    SetLastError(failure->error);
    WSASetLastError(static_cast<int>(failure->error));
    return resultAs<R>(failure->result);
  }
  return (gReal.*Member)(arguments...);
}

template <auto Member, Entry Index, typename R, typename... A>
auto makeTrampoline(R (*)(A...)) {
  return &trampoline<Member, Index, R, A...>;
}

void *countingMalloc(size_t size) {
  if (allocationFails(size))
    return nullptr;
  void *block = gRealAllocator.malloc(size);
  if (block)
    gLiveBytes += static_cast<int64_t>(gRealAllocator.mallocSize(block));
  return block;
}
int countingMemalign(void **out, size_t alignment, size_t size) {
  if (allocationFails(size))
    return ENOMEM;
  const int result = gRealAllocator.posixMemalign(out, alignment, size);
  if (result == 0)
    gLiveBytes += static_cast<int64_t>(gRealAllocator.mallocSize(*out));
  return result;
}
void *countingCalloc(size_t count, size_t size) {
  if (allocationFails(count * size))
    return nullptr;
  void *block = gRealAllocator.calloc(count, size);
  if (block)
    gLiveBytes += static_cast<int64_t>(gRealAllocator.mallocSize(block));
  return block;
}
void *countingRealloc(void *pointer, size_t size) {
  if (allocationFails(size))
    return nullptr;
  const int64_t before = pointer ? static_cast<int64_t>(gRealAllocator.mallocSize(pointer)) : 0;
  void *block = gRealAllocator.realloc(pointer, size);
  if (block)
    gLiveBytes += static_cast<int64_t>(gRealAllocator.mallocSize(block)) - before;
  return block;
}
void countingFree(void *pointer) {
  if (pointer)
    gLiveBytes -= static_cast<int64_t>(gRealAllocator.mallocSize(pointer));
  gRealAllocator.free(pointer);
}

// The process's handle count, and the value the next new handle gets: Wine
// answers a constant count, but like Windows it hands out the lowest free
// slot, so a handle kept by a failed run moves the probe's value.
std::pair<DWORD, uintptr_t> handleCount() {
  DWORD count = 0;
  GetProcessHandleCount(GetCurrentProcess(), &count);
  HANDLE probe = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  const auto slot = reinterpret_cast<uintptr_t>(probe);
  CloseHandle(probe);
  return {count, slot};
}

constexpr intptr_t kInvalidHandle = -1;
constexpr intptr_t kSocketError = SOCKET_ERROR;

} // namespace

const std::vector<Failure> &failureTable() {
  // One row per entry: the value the call answers on failure and an error
  // it can really give there.
  static const std::vector<Failure> table = {
      {kGetFileAttributesW, static_cast<intptr_t>(INVALID_FILE_ATTRIBUTES), ERROR_ACCESS_DENIED},
      {kSetFileAttributesW, FALSE, ERROR_ACCESS_DENIED},
      {kGetCurrentDirectoryW, 0, ERROR_NOT_ENOUGH_MEMORY},
      {kGetFullPathNameW, 0, ERROR_FILENAME_EXCED_RANGE},
      {kCreateFileW, kInvalidHandle, ERROR_ACCESS_DENIED},
      {kReadFile, FALSE, ERROR_LOCK_VIOLATION},
      {kWriteFile, FALSE, ERROR_DISK_FULL},
      {kSetFilePointerEx, FALSE, ERROR_NEGATIVE_SEEK},
      {kGetFileSizeEx, FALSE, ERROR_ACCESS_DENIED},
      {kSetEndOfFile, FALSE, ERROR_DISK_FULL},
      {kSetFileInformationByHandle, FALSE, ERROR_ACCESS_DENIED},
      {kGetFileInformationByHandleEx, FALSE, ERROR_ACCESS_DENIED},
      {kGetFileInformationByHandle, FALSE, ERROR_ACCESS_DENIED},
      {kSetFileTime, FALSE, ERROR_ACCESS_DENIED},
      {kFlushFileBuffers, FALSE, ERROR_DISK_FULL},
      {kGetHandleInformation, FALSE, ERROR_INVALID_HANDLE},
      {kSetHandleInformation, FALSE, ERROR_INVALID_HANDLE},
      {kDuplicateHandle, FALSE, ERROR_TOO_MANY_OPEN_FILES},
      {kCreateDirectoryW, FALSE, ERROR_DISK_FULL},
      {kRemoveDirectoryW, FALSE, ERROR_SHARING_VIOLATION},
      {kDeleteFileW, FALSE, ERROR_SHARING_VIOLATION},
      {kMoveFileExW, FALSE, ERROR_ACCESS_DENIED},
      {kFindFirstFileExW, kInvalidHandle, ERROR_ACCESS_DENIED},
      {kCreateFileMappingFromApp, 0, ERROR_NOT_ENOUGH_MEMORY},
      {kMapViewOfFileFromApp, 0, ERROR_NOT_ENOUGH_MEMORY},
      {kFlushViewOfFile, FALSE, ERROR_LOCK_VIOLATION},
      {kGetModuleFileNameW, 0, ERROR_INSUFFICIENT_BUFFER},
      {kgethostname, kSocketError, WSAENETDOWN},
      {kBCryptGenRandom, static_cast<intptr_t>(0xC0000001L), ERROR_GEN_FAILURE},
      {kWideCharToMultiByte, 0, ERROR_NO_UNICODE_TRANSLATION},
      {kWSAStartup, WSASYSNOTREADY, WSASYSNOTREADY},
      {kWSAIoctl, kSocketError, WSAENOBUFS},
      {ksocket, static_cast<intptr_t>(INVALID_SOCKET), WSAEMFILE},
      {kclosesocket, kSocketError, WSAENETDOWN, true},
      {kioctlsocket, kSocketError, WSAENETDOWN},
      {kbind, kSocketError, WSAEADDRINUSE},
      {klisten, kSocketError, WSAENOBUFS},
      {kgetsockname, kSocketError, WSAENOBUFS},
      {kgetpeername, kSocketError, WSAENOTCONN},
      {kaccept, static_cast<intptr_t>(INVALID_SOCKET), WSAECONNRESET},
      {kconnect, kSocketError, WSAECONNREFUSED},
      {ksend, kSocketError, WSAECONNRESET},
      {krecv, kSocketError, WSAECONNRESET},
      {ksendto, kSocketError, WSAENOBUFS},
      {krecvfrom, kSocketError, WSAECONNRESET},
      {kWSARecv, kSocketError, WSAECONNRESET},
      {kWSASend, kSocketError, WSAENOBUFS},
      {kselect, kSocketError, WSAENETDOWN},
      {kgetsockopt, kSocketError, WSAENOPROTOOPT},
      {ksetsockopt, kSocketError, WSAENOBUFS},
      {kshutdown, kSocketError, WSAENOTCONN},
      {kWSAEventSelect, kSocketError, WSAENETDOWN},
      {kWSADuplicateSocketW, kSocketError, WSAEMFILE},
      {kWSASocketW, static_cast<intptr_t>(INVALID_SOCKET), WSAENOBUFS},
      {kgetaddrinfo, WSATRY_AGAIN, WSATRY_AGAIN},
      {kgethostbyname, 0, WSATRY_AGAIN},
      {kgetnameinfo, WSATRY_AGAIN, WSATRY_AGAIN},
      {kGetOverlappedResultEx, FALSE, ERROR_OPERATION_ABORTED},
      {kCancelIoEx, FALSE, ERROR_NOT_FOUND},
      {kGetDynamicTimeZoneInformation, static_cast<intptr_t>(TIME_ZONE_ID_INVALID),
       ERROR_ACCESS_DENIED},
      {kEnumDynamicTimeZoneInformation, ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED},
      {kGetDynamicTimeZoneInformationEffectiveYears, ERROR_ACCESS_DENIED, ERROR_ACCESS_DENIED},
      {kGetTimeZoneInformationForYear, FALSE, ERROR_ACCESS_DENIED},
      {k_wfopen, 0, ERROR_SHARING_VIOLATION},
      {kVirtualAlloc, 0, ERROR_NOT_ENOUGH_MEMORY},
      {kVirtualFree, FALSE, ERROR_INVALID_ADDRESS},
      {kVirtualProtect, FALSE, ERROR_INVALID_ADDRESS},
      {kCreateFileMappingW, 0, ERROR_NOT_ENOUGH_MEMORY},
      {kMapViewOfFileEx, 0, ERROR_INVALID_ADDRESS},
      {kUnmapViewOfFile, FALSE, ERROR_INVALID_ADDRESS},
      {kLoadLibraryExW, 0, ERROR_MOD_NOT_FOUND},
      {kGetModuleHandleExW, FALSE, ERROR_MOD_NOT_FOUND},
      {kCreatePipe, FALSE, ERROR_NO_SYSTEM_RESOURCES},
      {kCreateProcessW, FALSE, ERROR_NOT_ENOUGH_MEMORY},
      {kCreateJobObjectW, 0, ERROR_NO_SYSTEM_RESOURCES},
      {kWaitForSingleObject, static_cast<intptr_t>(WAIT_FAILED), ERROR_INVALID_HANDLE},
      {kTerminateProcess, FALSE, ERROR_ACCESS_DENIED},
  };
  return table;
}

const Failure *failureOf(Entry entry) {
  for (const Failure &row : failureTable())
    if (row.entry == entry)
      return &row;
  return nullptr;
}

const char *entryName(Entry entry) {
  static const char *const names[] = {
#define ZB_FAILURE_NAME(name) #name,
      ZB_SYSTEM_CALLS(ZB_FAILURE_NAME)
#undef ZB_FAILURE_NAME
  };
  return entry < kEntryCount ? names[entry] : "(none)";
}

Harness::Harness() {
  gReal = zb::gSystemCalls;
#define ZB_FAILURE_INSTALL(name)                                                                   \
  zb::gSystemCalls.name = makeTrampoline<&zb::SystemCalls::name, k##name>(gReal.name);
  ZB_SYSTEM_CALLS(ZB_FAILURE_INSTALL)
#undef ZB_FAILURE_INSTALL
  gRealAllocator = gZBBaseAllocator;
  gZBBaseAllocator.malloc = countingMalloc;
  gZBBaseAllocator.posixMemalign = countingMemalign;
  gZBBaseAllocator.calloc = countingCalloc;
  gZBBaseAllocator.realloc = countingRealloc;
  gZBBaseAllocator.free = countingFree;
}

Harness::~Harness() {
  gZBBaseAllocator = gRealAllocator;
  zb::gSystemCalls = gReal;
}

int64_t Harness::liveBytes() { return gLiveBytes.load(); }

void Harness::failNextSmallAllocation() { gFailSmall = true; }

Outcome Harness::drive(const Scenario &scenario) {
  Outcome outcome;
  auto fault = [&](size_t k, const std::string &what) {
    outcome.faults.push_back(std::string(scenario.name) + " k=" + std::to_string(k) + " (" +
                             entryName(static_cast<Entry>(gFailedEntry.load())) + "): " + what);
  };
  // A first clean run lets lazily made state (caches, the socket layer)
  // settle; the second counts the calls.
  gFailAt = 0;
  if (ZBError error = scenario.run(); error != 0)
    fault(0, "clean run failed with " + std::to_string(error));
  gCalls = 0;
  gAllocations = 0;
  scenario.run();
  const size_t count = gCalls.load();
  const size_t allocations = gAllocations.load();
  // System calls first, then recoverable allocations, each failed alone.
  for (size_t k = 1; k <= count + allocations; ++k) {
    const bool callFails = k <= count;
    const auto handlesBefore = handleCount();
    const int64_t bytesBefore = liveBytes();
    gCalls = 0;
    gAllocations = 0;
    gFailedEntry = kEntryCount;
    (callFails ? gFailAt : gFailAllocationAt) = callFails ? k : k - count;
    const ZBError error = scenario.run();
    gFailAt = 0;
    gFailAllocationAt = 0;
    ++(callFails ? outcome.failurePoints : outcome.allocationPoints);
    const auto failed = static_cast<Entry>(gFailedEntry.load());
    if (callFails && error == 0 && failed != kEntryCount && scenario.fallbacks.count(failed) == 0)
      fault(k, "the failure was not reported");
    if (!callFails && error != ZBErrorNoMemory)
      fault(k, "allocation " + std::to_string(k - count) + " failed; the code was " +
                   std::to_string(error) + ", not ZBErrorNoMemory");
    if (const auto handles = handleCount(); handles != handlesBefore)
      fault(k, "handles " + std::to_string(handlesBefore.first) + " -> " +
                   std::to_string(handles.first) + ", next handle " +
                   std::to_string(handlesBefore.second) + " -> " + std::to_string(handles.second));
    if (const int64_t bytes = liveBytes(); bytes != bytesBefore)
      fault(k, "live bytes " + std::to_string(bytesBefore) + " -> " + std::to_string(bytes));
    if (ZBError again = scenario.run(); again != 0)
      fault(k, "the next clean run failed with " + std::to_string(again));
  }
  return outcome;
}

} // namespace zbtest::failure
