// Starting, waiting for and ending child processes. A child receives only
// the handles named in its PROC_THREAD_ATTRIBUTE_HANDLE_LIST, so two threads
// spawning at once never pass each other's pipe ends on (a leaked write end
// is what keeps a reader from ever seeing the end of the file). Children
// that are not detached go into one kill-on-close job, which the system
// closes when this process ends in any way, crashes included.
#include "ZBProcess.h"

#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBLog.h"
#include "ZBOwned.h"
#include "ZBPath.h"
#include "ZBPathInfoRecord.h"
#include "ZBProcessPrivate.h"
#include "ZBScopedHandle.h"
#include "ZBSystemCalls.h"

#include <windows.h>

#include <algorithm>
#include <memory>
#include <new>
#include <vector>

struct ZBProcess {
  HANDLE handle;
  DWORD id;
};

namespace {

constexpr uint32_t kKnownFlags = ZBProcessSpawnDetached | ZBProcessSpawnHideWindow |
                                 ZBProcessSpawnNewProcessGroup | ZBProcessSpawnSearchPath |
                                 ZBProcessSpawnAllowBatchFiles;

// Held from marking the listed descriptors inheritable until their flags
// are back, so two spawns that list the same descriptor restore it right.
SRWLOCK sSpawnLock = SRWLOCK_INIT;

// The job of the children that die with this process; null when the system
// refused one (they then merely outlive a crash).
HANDLE childJob() {
  static const HANDLE job = [] {
    HANDLE created = zb::gSystemCalls.CreateJobObjectW(nullptr, nullptr);
    if (created == nullptr)
      return created;
    JOBOBJECT_EXTENDED_LIMIT_INFORMATION limits = {};
    limits.BasicLimitInformation.LimitFlags =
        JOB_OBJECT_LIMIT_KILL_ON_JOB_CLOSE | JOB_OBJECT_LIMIT_BREAKAWAY_OK;
    SetInformationJobObject(created, JobObjectExtendedLimitInformation, &limits, sizeof limits);
    return created;
  }();
  return job;
}

bool isOpenHandle(ZBFileDescriptor fd) {
  DWORD flags = 0;
  return zb::file::isValid(fd) && GetHandleInformation(zb::file::handleOf(fd), &flags);
}

// The child's standard descriptor: an inheritable duplicate of the given
// one, else of the parent's own, else the null device.
zb::ScopedFileHandle standardHandle(ZBFileDescriptor given, DWORD which) {
  HANDLE source = given != 0 ? zb::file::handleOf(given) : GetStdHandle(which);
  HANDLE duplicate = nullptr;
  if (source != nullptr && source != INVALID_HANDLE_VALUE &&
      zb::gSystemCalls.DuplicateHandle(GetCurrentProcess(), source, GetCurrentProcess(), &duplicate,
                                       0, TRUE, DUPLICATE_SAME_ACCESS))
    return zb::ScopedFileHandle(duplicate);
  SECURITY_ATTRIBUTES inheritable = {sizeof inheritable, nullptr, TRUE};
  HANDLE null = zb::gSystemCalls.CreateFileW(L"NUL", GENERIC_READ | GENERIC_WRITE,
                                             FILE_SHARE_READ | FILE_SHARE_WRITE, &inheritable,
                                             OPEN_EXISTING, 0, nullptr);
  return zb::ScopedFileHandle(null);
}

// The attribute list of one CreateProcessW: the handles and the job.
class AttributeList {
public:
  bool build(std::vector<HANDLE> &handles, HANDLE *job) {
    SIZE_T size = 0;
    const DWORD count = job != nullptr ? 2 : 1;
    InitializeProcThreadAttributeList(nullptr, count, 0, &size);
    storage_.reset(new (std::nothrow) char[size]);
    if (!storage_)
      return false;
    list_ = reinterpret_cast<LPPROC_THREAD_ATTRIBUTE_LIST>(storage_.get());
    if (!InitializeProcThreadAttributeList(list_, count, 0, &size)) {
      list_ = nullptr;
      return false;
    }
    if (!UpdateProcThreadAttribute(list_, 0, PROC_THREAD_ATTRIBUTE_HANDLE_LIST, handles.data(),
                                   handles.size() * sizeof(HANDLE), nullptr, nullptr))
      return false;
    return job == nullptr || UpdateProcThreadAttribute(list_, 0, PROC_THREAD_ATTRIBUTE_JOB_LIST,
                                                       job, sizeof(HANDLE), nullptr, nullptr);
  }
  ~AttributeList() {
    if (list_ != nullptr)
      DeleteProcThreadAttributeList(list_);
  }
  LPPROC_THREAD_ATTRIBUTE_LIST get() const { return list_; }

private:
  std::unique_ptr<char[]> storage_;
  LPPROC_THREAD_ATTRIBUTE_LIST list_ = nullptr;
};

const zb::ErrorMapRow kCreateErrors[] = {
    {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound},      {ERROR_PATH_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_ACCESS_DENIED, ZBErrorAccessDenied},       {ERROR_BAD_EXE_FORMAT, ZBErrorUnsupported},
    {ERROR_NOT_ENOUGH_MEMORY, ZBErrorNoMemory},       {ERROR_OUTOFMEMORY, ZBErrorNoMemory},
    {ERROR_FILENAME_EXCED_RANGE, ZBErrorNameTooLong}, {ERROR_DIRECTORY, ZBErrorNotDirectory},
};

ZBError checkAttributes(const ZBProcessAttributes &attributes) {
  if ((attributes.flags & ~kKnownFlags) != 0 ||
      (attributes.inherited == nullptr && attributes.inheritedCount != 0))
    return ZBErrorInvalidArgument;
  for (const ZBFileDescriptor fd :
       {attributes.standardInput, attributes.standardOutput, attributes.standardError})
    if (fd != 0 && !isOpenHandle(fd))
      return ZBErrorInvalidHandle;
  for (uint32_t i = 0; i < attributes.inheritedCount; ++i)
    if (!isOpenHandle(attributes.inherited[i]))
      return ZBErrorInvalidHandle;
  return ZBErrorNone;
}

// CreateProcessW with the listed descriptors inheritable only while it runs.
ZBError create(zb::process::Program &program, std::wstring &block, const wchar_t *directory,
               const ZBProcessAttributes &attributes, PROCESS_INFORMATION &started) {
  zb::ScopedFileHandle standard[3] = {standardHandle(attributes.standardInput, STD_INPUT_HANDLE),
                                      standardHandle(attributes.standardOutput, STD_OUTPUT_HANDLE),
                                      standardHandle(attributes.standardError, STD_ERROR_HANDLE)};
  std::vector<HANDLE> handles;
  for (const zb::ScopedFileHandle &handle : standard)
    if (handle.isValid())
      handles.push_back(handle.get());
  for (uint32_t i = 0; i < attributes.inheritedCount; ++i) {
    HANDLE handle = zb::file::handleOf(attributes.inherited[i]);
    if (std::find(handles.begin(), handles.end(), handle) == handles.end())
      handles.push_back(handle);
  }
  const bool detached = (attributes.flags & ZBProcessSpawnDetached) != 0;
  HANDLE job = detached ? nullptr : childJob();
  AttributeList list;
  if (!list.build(handles, job != nullptr ? &job : nullptr))
    return ZBErrorNoMemory;

  STARTUPINFOEXW startup = {};
  startup.StartupInfo.cb = sizeof startup;
  startup.StartupInfo.dwFlags = STARTF_USESTDHANDLES;
  startup.StartupInfo.hStdInput = standard[0].get();
  startup.StartupInfo.hStdOutput = standard[1].get();
  startup.StartupInfo.hStdError = standard[2].get();
  if ((attributes.flags & ZBProcessSpawnHideWindow) != 0) {
    startup.StartupInfo.dwFlags |= STARTF_USESHOWWINDOW;
    startup.StartupInfo.wShowWindow = SW_HIDE;
  }
  startup.lpAttributeList = list.get();
  DWORD creation = EXTENDED_STARTUPINFO_PRESENT | CREATE_UNICODE_ENVIRONMENT;
  if ((attributes.flags & (ZBProcessSpawnDetached | ZBProcessSpawnNewProcessGroup)) != 0)
    creation |= CREATE_NEW_PROCESS_GROUP;
  if (detached)
    creation |= CREATE_BREAKAWAY_FROM_JOB;

  AcquireSRWLockExclusive(&sSpawnLock);
  std::vector<DWORD> savedFlags(attributes.inheritedCount, 0);
  for (uint32_t i = 0; i < attributes.inheritedCount; ++i) {
    HANDLE handle = zb::file::handleOf(attributes.inherited[i]);
    GetHandleInformation(handle, &savedFlags[i]);
    zb::gSystemCalls.SetHandleInformation(handle, HANDLE_FLAG_INHERIT, HANDLE_FLAG_INHERIT);
  }
  BOOL created = zb::gSystemCalls.CreateProcessW(
      program.application.c_str(), program.commandLine.data(), nullptr, nullptr, TRUE, creation,
      block.data(), directory, &startup.StartupInfo, &started);
  DWORD error = created ? ERROR_SUCCESS : GetLastError();
  if (!created && detached && error == ERROR_ACCESS_DENIED) {
    // An outer job that allows no breakaway: the child stays in it.
    created = zb::gSystemCalls.CreateProcessW(program.application.c_str(),
                                              program.commandLine.data(), nullptr, nullptr, TRUE,
                                              creation & ~CREATE_BREAKAWAY_FROM_JOB, block.data(),
                                              directory, &startup.StartupInfo, &started);
    error = created ? ERROR_SUCCESS : GetLastError();
  }
  for (uint32_t i = attributes.inheritedCount; i-- > 0;)
    zb::gSystemCalls.SetHandleInformation(zb::file::handleOf(attributes.inherited[i]),
                                          HANDLE_FLAG_INHERIT, savedFlags[i] & HANDLE_FLAG_INHERIT);
  ReleaseSRWLockExclusive(&sSpawnLock);
  if (!created)
    return zb::lookupError(kCreateErrors, static_cast<int32_t>(error), ZBErrorGeneric);
  return ZBErrorNone;
}

} // namespace

extern "C" ZBError ZBProcessSpawn(const char *path, const char *const *arguments,
                                  const char *const *environment,
                                  const ZBProcessAttributes *attributes,
                                  ZBProcess **outProcess) noexcept {
  if (path == nullptr || path[0] == '\0' || arguments == nullptr || outProcess == nullptr)
    return ZBErrorInvalidArgument;
  const ZBProcessAttributes none = {};
  const ZBProcessAttributes &given = attributes != nullptr ? *attributes : none;
  if (const ZBError error = checkAttributes(given))
    return error;
  try {
    std::wstring block;
    if (const ZBError error = zb::process::environmentBlock(environment, block))
      return error;
    zb::process::Program program;
    if (const ZBError error =
            zb::process::resolveProgram(path, arguments, block, given.flags, program))
      return error;
    std::wstring directory;
    if (given.workingDirectory != nullptr) {
      zb::Owned<char> dos(ZBPathCopyConvertingWithStyle(
          ZBPathStylePOSIX, zb::path::withoutSlashBeforeDrive(given.workingDirectory),
          ZBPathStyleDOS, 0, false));
      if (given.workingDirectory[0] == '\0' || !dos || !zb::process::wideOf(dos.get(), directory))
        return ZBErrorInvalidArgument;
    }
    std::unique_ptr<ZBProcess> process(new ZBProcess{});
    PROCESS_INFORMATION started = {};
    if (const ZBError error =
            create(program, block, given.workingDirectory != nullptr ? directory.c_str() : nullptr,
                   given, started)) {
      ZB_LOG_WARNING("Cannot start '%s': %d", path, static_cast<int>(error));
      return error;
    }
    CloseHandle(started.hThread);
    process->handle = started.hProcess;
    process->id = started.dwProcessId;
    *outProcess = process.release();
    return ZBErrorNone;
  } catch (...) {
    return ZBErrorNoMemory;
  }
}

extern "C" ZBError ZBProcessWait(ZBProcess *process, int64_t timeoutNanoseconds,
                                 uint32_t *outExitCode) noexcept {
  if (process == nullptr)
    return ZBErrorInvalidArgument;
  DWORD milliseconds = INFINITE;
  if (timeoutNanoseconds >= 0) {
    // Rounded up, so a short wait never returns before its time.
    const int64_t rounded = (timeoutNanoseconds + 999999) / 1000000;
    milliseconds = static_cast<DWORD>(std::min<int64_t>(rounded, INFINITE - 1));
  }
  const DWORD result = zb::gSystemCalls.WaitForSingleObject(process->handle, milliseconds);
  if (result == WAIT_TIMEOUT)
    return ZBErrorTimedOut;
  if (result != WAIT_OBJECT_0)
    return ZBErrorGeneric;
  DWORD code = 0;
  if (!GetExitCodeProcess(process->handle, &code))
    return ZBErrorGeneric;
  if (outExitCode != nullptr)
    *outExitCode = code;
  return ZBErrorNone;
}

extern "C" ZBError ZBProcessTerminate(ZBProcess *process, uint32_t exitCode) noexcept {
  if (process == nullptr)
    return ZBErrorInvalidArgument;
  if (zb::gSystemCalls.WaitForSingleObject(process->handle, 0) == WAIT_OBJECT_0)
    return ZBErrorProcessNotFound;
  if (zb::gSystemCalls.TerminateProcess(process->handle, exitCode))
    return ZBErrorNone;
  // It may have exited between the look and the call.
  if (zb::gSystemCalls.WaitForSingleObject(process->handle, 0) == WAIT_OBJECT_0)
    return ZBErrorProcessNotFound;
  return ZBErrorAccessDenied;
}

extern "C" uint32_t ZBProcessGetID(const ZBProcess *process) noexcept {
  return process != nullptr ? process->id : 0;
}

extern "C" void ZBProcessFree(ZBProcess *process) noexcept {
  if (process == nullptr)
    return;
  CloseHandle(process->handle);
  delete process;
}
