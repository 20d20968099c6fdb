// Installing and removing the crash reporter, and the handlers that catch a
// crash: each copies what it knows into the one crash record, wakes the
// reporter thread (started at install, with a stack of its own) and waits
// for the report, then the process ends with the crash's code. The first
// crash wins; a thread that crashes while a report is being written waits
// for the process to end.
#include "ZBCrashReport.h"

#include "ZBAlloc.h"
#include "ZBBuffer.h"
#include "ZBCrashReportPrivate.h"
#include "ZBLog.h"
#include "ZBPathNT.h"
#include "ZBString.h"

#include <windows.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cwchar>
#include <exception>
#include <initializer_list>

namespace zb::crash {
namespace {

// The codes of crashes that are not exceptions: an abnormal end (abort(),
// std::terminate, pure virtual calls) and an invalid C runtime parameter,
// as Windows reports them.
constexpr DWORD kFatalAppExit = 0x40000015;
constexpr DWORD kInvalidCRuntimeParameter = 0xC0000417;
constexpr DWORD kStackOverflow = EXCEPTION_STACK_OVERFLOW;
// How long a crashed thread waits for the report: a report that hangs (on
// a lock a stopped thread holds) must not keep the process alive.
constexpr DWORD kReportTimeoutMilliseconds = 30000;
constexpr size_t kStackCopyBytes = 256 * 1024;

using PurecallHandler = void(__cdecl *)();
using InvalidParameterHandler = void(__cdecl *)(const wchar_t *, const wchar_t *, const wchar_t *,
                                                unsigned, uintptr_t);
using SetPurecallHandler = PurecallHandler(__cdecl *)(PurecallHandler);

// The C runtime DLL's own pure-call handler, which every module that calls
// msvcrt.dll's _purecall shares (the import library's _set_purecall_handler
// is a per-module copy). Null where msvcrt.dll lacks it.
SetPurecallHandler runtimeSetPurecallHandler() noexcept {
  HMODULE runtime = GetModuleHandleW(L"msvcrt.dll");
  return runtime == nullptr ? nullptr
                            : reinterpret_cast<SetPurecallHandler>(reinterpret_cast<void *>(
                                  GetProcAddress(runtime, "_set_purecall_handler")));
}

struct Installed {
  Settings settings;
  HANDLE crashed;  // set by a crashing thread
  HANDLE reported; // set by the reporter when the report is written
  HANDLE quit;     // set by uninstall
  HANDLE reporter;
  LPTOP_LEVEL_EXCEPTION_FILTER previousFilter;
  PVOID vectoredHandler;
  void (*previousAbortHandler)(int);
  PurecallHandler previousPurecall;
  _invalid_parameter_handler previousInvalidParameter;
  std::terminate_handler previousTerminate;
};

Installed *sInstalled;
alignas(16) Crash sCrash;
std::atomic<bool> sCrashing{false};
SRWLOCK sInstallLock = SRWLOCK_INIT;

DWORD WINAPI reporterMain(void *argument) {
  auto *installed = static_cast<Installed *>(argument);
  HANDLE events[] = {installed->crashed, installed->quit};
  if (WaitForMultipleObjects(2, events, FALSE, INFINITE) == WAIT_OBJECT_0) {
    writeReport(sCrash, installed->settings);
    SetEvent(installed->reported);
  }
  return 0;
}

// Copies the crash into the record and waits for its report. False when
// another crash is already being reported or nothing is installed.
bool report(const char *reason, const EXCEPTION_RECORD &record, const CONTEXT &context) noexcept {
  Installed *installed = sInstalled;
  if (installed == nullptr)
    return false;
  if (sCrashing.exchange(true)) {
    Sleep(INFINITE); // the first crash's report ends the process
    return false;
  }
  sCrash.record = record;
  sCrash.record.ExceptionRecord = nullptr;
  sCrash.context = context;
  sCrash.pointers = EXCEPTION_POINTERS{&sCrash.record, &sCrash.context};
  sCrash.threadID = GetCurrentThreadId();
  sCrash.reason = reason;
  SetEvent(installed->crashed);
  WaitForSingleObject(installed->reported, kReportTimeoutMilliseconds);
  return true;
}

[[noreturn]] void end(DWORD code) noexcept {
  TerminateProcess(GetCurrentProcess(), code);
  _exit(static_cast<int>(code));
}

// Crashes that are calls rather than exceptions: the record is made here,
// at the handler's caller.
[[noreturn]] __attribute__((noinline)) void reportCall(const char *reason, DWORD code) noexcept {
  CONTEXT context{};
  RtlCaptureContext(&context);
  EXCEPTION_RECORD record{};
  record.ExceptionCode = code;
  record.ExceptionAddress = reinterpret_cast<void *>(context.Rip);
  report(reason, record, context);
  end(code);
}

LONG WINAPI unhandledFilter(EXCEPTION_POINTERS *pointers) {
  const DWORD code = pointers->ExceptionRecord->ExceptionCode;
  report(code == 0xC0000025 ? "ZBAbort" : "unhandled exception", *pointers->ExceptionRecord,
         *pointers->ContextRecord);
  Installed *installed = sInstalled;
  if (installed != nullptr && installed->previousFilter != nullptr)
    installed->previousFilter(pointers);
  end(code);
}

// Only a stack overflow: the unhandled filter would run on a stack that has
// no room left.
LONG CALLBACK stackOverflowHandler(EXCEPTION_POINTERS *pointers) {
  if (pointers->ExceptionRecord->ExceptionCode != kStackOverflow)
    return EXCEPTION_CONTINUE_SEARCH;
  report("stack overflow", *pointers->ExceptionRecord, *pointers->ContextRecord);
  end(kStackOverflow);
}

void __cdecl abortSignalHandler(int) { reportCall("abort()", kFatalAppExit); }
void __cdecl purecallHandler() { reportCall("pure virtual call", kFatalAppExit); }
void terminateHandler() { reportCall("std::terminate", kFatalAppExit); }
void __cdecl invalidParameterHandler(const wchar_t *, const wchar_t *, const wchar_t *, unsigned,
                                     uintptr_t) {
  reportCall("invalid parameter", kInvalidCRuntimeParameter);
}

void closeEvents(Installed &installed) noexcept {
  for (HANDLE handle : {installed.crashed, installed.reported, installed.quit, installed.reporter})
    if (handle != nullptr)
      CloseHandle(handle);
  _ZBFree(installed.settings.stackCopy);
  _ZBFree(installed.settings.logCopy);
}

// The settings and buffers; false when memory runs out or the path is bad.
bool prepare(Installed &installed, const char *directory, uint32_t flags) noexcept {
  const path::NTPath nt = path::fileSystemPath(directory);
  if (!nt || std::wcslen(reinterpret_cast<const wchar_t *>(nt.get())) >= MAX_PATH)
    return false;
  std::wcscpy(installed.settings.directory, reinterpret_cast<const wchar_t *>(nt.get()));
  installed.settings.flags = flags;
  installed.settings.stackCopy = static_cast<uint8_t *>(
      _ZBAllocWithZoneAndDesc(nullptr, kStackCopyBytes, "ZBCrashReportInstall"));
  installed.settings.stackCopySize = kStackCopyBytes;
  if (ZBCircularBuffer *ring = ZBLogGetLogBufferThreadUnsafeDoNotUse()) {
    // A copy into nothing answers minus the ring's capacity.
    installed.settings.logCapacity =
        static_cast<uint32_t>(-ZBCircularBufferCopyBytes(ring, nullptr, 0));
    installed.settings.logCopy = static_cast<char *>(
        _ZBAllocWithZoneAndDesc(nullptr, installed.settings.logCapacity, "ZBCrashReportInstall"));
  }
  if ((flags & ZBCrashReportMinidump) != 0) {
    if (HMODULE dbgHelp = LoadLibraryExW(L"dbghelp.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32))
      installed.settings.writeMiniDump = reinterpret_cast<MiniDumpWriter>(
          reinterpret_cast<void *>(GetProcAddress(dbgHelp, "MiniDumpWriteDump")));
  }
  installed.crashed = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  installed.reported = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  installed.quit = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  return installed.settings.stackCopy != nullptr && installed.crashed != nullptr &&
         installed.reported != nullptr && installed.quit != nullptr;
}

} // namespace
} // namespace zb::crash

using namespace zb::crash;

extern "C" ZBError ZBCrashReportInstall(const char *directory, uint32_t flags) noexcept {
  if (directory == nullptr || directory[0] == '\0' || (flags & ~uint32_t{ZBCrashReportMinidump}))
    return ZBErrorInvalidArgument;
  AcquireSRWLockExclusive(&sInstallLock);
  ZBError result = ZBErrorNone;
  auto *installed = static_cast<Installed *>(
      _ZBAllocWithZoneAndDesc(nullptr, sizeof(Installed), "ZBCrashReportInstall"));
  if (sInstalled != nullptr) {
    result = ZBErrorAlready;
  } else if (installed == nullptr) {
    result = ZBErrorNoMemory;
  } else {
    *installed = Installed{};
    if (!prepare(*installed, directory, flags)) {
      result = installed->settings.directory[0] == L'\0' ? ZBErrorInvalidArgument : ZBErrorNoMemory;
    } else {
      installed->reporter = CreateThread(nullptr, 0, reporterMain, installed, 0, nullptr);
      if (installed->reporter == nullptr)
        result = ZBErrorGeneric;
    }
  }
  if (result != ZBErrorNone) {
    if (installed != nullptr && result != ZBErrorAlready)
      closeEvents(*installed);
    _ZBFree(installed);
    ReleaseSRWLockExclusive(&sInstallLock);
    return result;
  }
  sInstalled = installed;
  installed->previousFilter = SetUnhandledExceptionFilter(unhandledFilter);
  installed->vectoredHandler = AddVectoredExceptionHandler(1, stackOverflowHandler);
  installed->previousAbortHandler = std::signal(SIGABRT, abortSignalHandler);
  if (const SetPurecallHandler setHandler = runtimeSetPurecallHandler())
    installed->previousPurecall = setHandler(purecallHandler);
  installed->previousInvalidParameter = _set_invalid_parameter_handler(invalidParameterHandler);
  installed->previousTerminate = std::set_terminate(terminateHandler);
  ReleaseSRWLockExclusive(&sInstallLock);
  return ZBErrorNone;
}

extern "C" ZBError ZBCrashReportUninstall(void) noexcept {
  AcquireSRWLockExclusive(&sInstallLock);
  Installed *installed = sInstalled;
  if (installed == nullptr) {
    ReleaseSRWLockExclusive(&sInstallLock);
    return ZBErrorNotFound;
  }
  SetUnhandledExceptionFilter(installed->previousFilter);
  RemoveVectoredExceptionHandler(installed->vectoredHandler);
  std::signal(SIGABRT, installed->previousAbortHandler == SIG_ERR
                           ? SIG_DFL
                           : installed->previousAbortHandler);
  if (const SetPurecallHandler setHandler = runtimeSetPurecallHandler())
    setHandler(installed->previousPurecall);
  _set_invalid_parameter_handler(installed->previousInvalidParameter);
  std::set_terminate(installed->previousTerminate);
  sInstalled = nullptr;
  SetEvent(installed->quit);
  WaitForSingleObject(installed->reporter, INFINITE);
  closeEvents(*installed);
  _ZBFree(installed);
  ReleaseSRWLockExclusive(&sInstallLock);
  return ZBErrorNone;
}
