// Windows implementations of the services platform-neutral code needs:
// identity, wall time, debugger output, the log file, backtraces, the
// abnormal end of the process and the system environment.
#include "ZBPlatform.h"

#include "ZBBacktrace.h"
#include "ZBModuleTable.h"
#include "ZBOwned.h"
#include "ZBPathNT.h"
#include "ZBString.h"
#include "ZBSymbolResolvers.h"
#include "ZBThread.h"
#include "ZBTime.h"

#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <iterator>
#include <memory>

namespace zb::platform {
namespace {

// The non-continuable exception that marks a deliberate abort.
constexpr DWORD kAbortExceptionCode = 0xC0000025;

} // namespace

uint32_t processID() noexcept { return GetCurrentProcessId(); }

uint32_t currentThreadID() noexcept { return ZBThreadGetCurrentThreadID(); }

const char *currentThreadName() noexcept {
  const char *name = ZBThreadGetName(0);
  return name != nullptr ? name : "";
}

// The library's own clock, so that log stamps agree with every other time
// the library hands out.
int64_t unixTimeNanoseconds() noexcept { return ZBHRTimeUnix(); }

bool localTime(int64_t unixSeconds, std::tm *out) noexcept {
  const __time64_t seconds = unixSeconds;
  return _localtime64_s(out, &seconds) == 0;
}

void debugOutput(const char *line) noexcept { OutputDebugStringA(line); }

// The path goes to the system as every file path does: "/C:/x" as "C:/x",
// in the long-path form.
void *openLogFile(const char *path) noexcept {
  const zb::path::NTPath nt = zb::path::fileSystemPath(path);
  if (!nt)
    return nullptr;
  HANDLE file =
      CreateFileW(nt.get(), GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                  nullptr, CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_WRITE_THROUGH, nullptr);
  return file == INVALID_HANDLE_VALUE ? nullptr : file;
}

void writeLogFile(void *file, const char *bytes, size_t length) noexcept {
  DWORD written = 0;
  WriteFile(static_cast<HANDLE>(file), bytes, static_cast<DWORD>(length), &written, nullptr);
  FlushFileBuffers(static_cast<HANDLE>(file));
}

std::FILE *openStream(const char *path, const char *mode) noexcept {
  if (path == nullptr)
    return nullptr;
  // A plain conversion rather than the long-path form, whose normalisation
  // logs its failures.
  const zb::Owned<ZBWChar> widePath(
      ZBWCStringDuplicateCString(nullptr, zb::path::withoutSlashBeforeDrive(path)));
  wchar_t wideMode[8] = {};
  for (size_t index = 0; mode[index] != '\0' && index + 1 < std::size(wideMode); ++index)
    wideMode[index] = static_cast<unsigned char>(mode[index]);
  return widePath ? _wfopen(reinterpret_cast<const wchar_t *>(widePath.get()), wideMode) : nullptr;
}

void prepareBacktraces() noexcept {
  zb::modules::prepare();
  zb::symbols::prepare();
}

// Starts at the caller: the frame of ZBAbortWithBacktrace or of the log.
// Not inlined and not a tail call, so that its own frame is the one skipped.
__attribute__((noinline)) void printBacktrace() noexcept {
  ZBBacktracePrint(1);
  __asm__ volatile("" ::: "memory");
}

void abortProcess() noexcept {
  RaiseException(kAbortExceptionCode, EXCEPTION_NONCONTINUABLE, 0, nullptr);
  _exit(1);
}

void enumerateEnvironment(void (*visit)(const char *entry, void *context), void *context) noexcept {
  wchar_t *block = GetEnvironmentStringsW();
  if (block == nullptr)
    return;
  for (const wchar_t *entry = block; *entry != L'\0'; entry += std::wcslen(entry) + 1) {
    // Entries such as "=C:=C:\dir" are the shell's per-drive directories.
    if (entry[0] == L'=')
      continue;
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, entry, -1, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0)
      continue;
    std::unique_ptr<char[]> utf8(new (std::nothrow) char[static_cast<size_t>(bytes)]);
    if (!utf8)
      continue;
    WideCharToMultiByte(CP_UTF8, 0, entry, -1, utf8.get(), bytes, nullptr, nullptr);
    visit(utf8.get(), context);
  }
  FreeEnvironmentStringsW(block);
}

} // namespace zb::platform
