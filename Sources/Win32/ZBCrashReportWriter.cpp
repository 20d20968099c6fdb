// The crash report's text: the exception, the registers, the stacks of the
// crashed thread and of every registered thread, and the log's last lines.
// Other threads are stopped only while their stacks are copied and unwound
// into fixed arrays; names are looked up after they run again, since a
// stopped thread may hold the heap's lock that the lookups need.
#include "ZBCrashReportPrivate.h"

#include "ZBBacktrace.h"
#include "ZBBuffer.h"
#include "ZBLog.h"
#include "ZBOwned.h"
#include "ZBScopedHandle.h"
#include "ZBStackSnapshot.h"
#include "ZBThreadHandle.h"
#include "ZBThreadPrivate.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <iterator>

namespace zb::crash {
namespace {

constexpr uint32_t kFrames = 64;
constexpr uint32_t kThreads = 64;
constexpr int kLogLines = 40;

// Buffered writes of formatted text to the report file.
class ReportFile {
public:
  explicit ReportFile(HANDLE file) noexcept : file_(file) {}
  ~ReportFile() { flush(); }
  ReportFile(const ReportFile &) = delete;
  ReportFile &operator=(const ReportFile &) = delete;

  __attribute__((format(printf, 2, 3))) void print(const char *format, ...) noexcept {
    char text[1024];
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length > 0)
      write(text, std::min<size_t>(static_cast<size_t>(length), sizeof text - 1));
  }

  void write(const char *bytes, size_t length) noexcept {
    if (used_ + length > sizeof buffer_)
      flush();
    if (length > sizeof buffer_) {
      DWORD written = 0;
      WriteFile(file_, bytes, static_cast<DWORD>(length), &written, nullptr);
      return;
    }
    std::memcpy(buffer_ + used_, bytes, length);
    used_ += length;
  }

  void flush() noexcept {
    DWORD written = 0;
    if (used_ != 0)
      WriteFile(file_, buffer_, static_cast<DWORD>(used_), &written, nullptr);
    used_ = 0;
  }

private:
  HANDLE file_;
  char buffer_[8192];
  size_t used_ = 0;
};

// "<directory>\<program>-<pid>-<yyyymmdd-hhmmss>" without an extension.
void reportPath(const Settings &settings, wchar_t *path, size_t capacity) noexcept {
  wchar_t program[MAX_PATH] = L"";
  const DWORD length = GetModuleFileNameW(nullptr, program, MAX_PATH);
  const wchar_t *name = program;
  for (DWORD index = 0; index < length; ++index)
    if (program[index] == L'\\' || program[index] == L'/')
      name = program + index + 1;
  const size_t nameLength = std::wcslen(name);
  if (nameLength > 4 && _wcsicmp(name + nameLength - 4, L".exe") == 0)
    program[name - program + nameLength - 4] = L'\0';
  SYSTEMTIME now;
  GetSystemTime(&now);
  std::swprintf(path, capacity, L"%ls\\%ls-%lu-%04u%02u%02u-%02u%02u%02u", settings.directory, name,
                GetCurrentProcessId(), now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
                now.wSecond);
}

void printRegisters(ReportFile &report, const CONTEXT &context) noexcept {
  struct Named {
    const char *name;
    DWORD64 value;
  };
  const Named registers[] = {
      {"rax", context.Rax}, {"rbx", context.Rbx},       {"rcx", context.Rcx}, {"rdx", context.Rdx},
      {"rsi", context.Rsi}, {"rdi", context.Rdi},       {"rbp", context.Rbp}, {"rsp", context.Rsp},
      {"r8", context.R8},   {"r9", context.R9},         {"r10", context.R10}, {"r11", context.R11},
      {"r12", context.R12}, {"r13", context.R13},       {"r14", context.R14}, {"r15", context.R15},
      {"rip", context.Rip}, {"eflags", context.EFlags},
  };
  report.print("Registers:\n");
  for (size_t index = 0; index < std::size(registers); ++index)
    report.print("  %-6s 0x%016llx%s", registers[index].name,
                 static_cast<unsigned long long>(registers[index].value),
                 index % 3 == 2 || index + 1 == std::size(registers) ? "\n" : "");
}

// Frame 0 is where the thread stopped; the others name their call.
void printFrames(ReportFile &report, void *const *frames, uint32_t count) noexcept {
  for (uint32_t index = 0; index < count; ++index) {
    const char *address = static_cast<const char *>(frames[index]);
    const Owned<char> description(ZBSymbolCopyDescription(index == 0 ? address : address - 1));
    report.print("  #%02u %p %s\n", index, frames[index], description ? description.get() : "");
  }
}

// The crashed thread waits for the report, so its stack is read in place.
uint32_t unwindCrashedThread(const CONTEXT &context, void **frames) noexcept {
  stack::Snapshot snapshot{};
  snapshot.registers = context;
  snapshot.stackPointer = context.Rsp;
  MEMORY_BASIC_INFORMATION region;
  if (VirtualQuery(reinterpret_cast<void *>(context.Rsp), &region, sizeof region) != 0 &&
      region.State == MEM_COMMIT) {
    snapshot.bytes = reinterpret_cast<uint8_t *>(context.Rsp);
    snapshot.copied = snapshot.capacity =
        reinterpret_cast<uintptr_t>(region.BaseAddress) + region.RegionSize - context.Rsp;
  }
  return stack::unwind(snapshot, frames, kFrames);
}

// The registered threads other than the crashed one, gathered by the
// registry's walk (which takes no context, hence the static list).
struct OtherThreads {
  DWORD ids[kThreads];
  uint32_t count;
  DWORD crashed;
};
OtherThreads sOthers;

void gatherThread(uint32_t threadID) {
  if (threadID != sOthers.crashed && threadID != GetCurrentThreadId() && sOthers.count < kThreads)
    sOthers.ids[sOthers.count++] = threadID;
}

struct ThreadStack {
  void *frames[kFrames];
  uint32_t count;
};
ThreadStack sStacks[kThreads];

// Stops every other registered thread, copies and unwinds each stack, and
// lets them all run again.
void captureOtherThreads(const Settings &settings) noexcept {
  HANDLE handles[kThreads] = {};
  for (uint32_t index = 0; index < sOthers.count; ++index) {
    handles[index] =
        OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION, FALSE,
                   sOthers.ids[index]);
    if (handles[index] != nullptr && SuspendThread(handles[index]) == static_cast<DWORD>(-1)) {
      CloseHandle(handles[index]);
      handles[index] = nullptr;
    }
  }
  for (uint32_t index = 0; index < sOthers.count; ++index) {
    sStacks[index].count = 0;
    stack::Snapshot snapshot{};
    snapshot.bytes = settings.stackCopy;
    snapshot.capacity = settings.stackCopySize;
    if (handles[index] != nullptr && stack::capture(handles[index], snapshot))
      sStacks[index].count = stack::unwind(snapshot, sStacks[index].frames, kFrames);
  }
  for (uint32_t index = 0; index < sOthers.count; ++index) {
    if (handles[index] != nullptr) {
      ResumeThread(handles[index]);
      CloseHandle(handles[index]);
    }
  }
}

// The ring's last lines, read without the log's lock: the crashed thread
// may hold it.
void printLogLines(ReportFile &report, const Settings &settings) noexcept {
  ZBCircularBuffer *ring = ZBLogGetLogBufferThreadUnsafeDoNotUse();
  if (ring == nullptr || settings.logCopy == nullptr)
    return;
  const int32_t length = ZBCircularBufferCopyBytes(ring, settings.logCopy, settings.logCapacity);
  if (length <= 0)
    return;
  const char *start = settings.logCopy + length;
  for (int lines = 0; start > settings.logCopy; --start)
    if (start[-1] == '\n' && ++lines > kLogLines)
      break;
  report.print("Last log lines:\n");
  report.write(start, static_cast<size_t>(settings.logCopy + length - start));
  report.print("\n");
}

void writeMiniDump(const Crash &crash, const Settings &settings, const wchar_t *path) noexcept {
  wchar_t dumpPath[MAX_PATH * 2];
  std::swprintf(dumpPath, std::size(dumpPath), L"%ls.dmp", path);
  const ScopedFileHandle file(CreateFileW(dumpPath, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                          FILE_ATTRIBUTE_NORMAL, nullptr));
  if (file.get() == INVALID_HANDLE_VALUE)
    return;
  // MINIDUMP_EXCEPTION_INFORMATION, as DbgHelp lays it out (packed to 4).
  struct __attribute__((packed)) {
    DWORD threadID;
    const EXCEPTION_POINTERS *pointers;
    BOOL clientPointers;
  } exception = {crash.threadID, &crash.pointers, FALSE};
  constexpr int kMiniDumpNormal = 0;
  settings.writeMiniDump(GetCurrentProcess(), GetCurrentProcessId(), file.get(), kMiniDumpNormal,
                         &exception, nullptr, nullptr);
}

} // namespace

void writeReport(const Crash &crash, const Settings &settings) noexcept {
  void *crashedFrames[kFrames];
  const uint32_t crashedCount = unwindCrashedThread(crash.context, crashedFrames);
  sOthers.count = 0;
  sOthers.crashed = crash.threadID;
  _ZBThreadSuspendRegistryVisitSuspendable(gatherThread);
  captureOtherThreads(settings);

  wchar_t path[MAX_PATH * 2];
  reportPath(settings, path, std::size(path));
  wchar_t textPath[MAX_PATH * 2];
  std::swprintf(textPath, std::size(textPath), L"%ls.crash.txt", path);
  const ScopedFileHandle file(CreateFileW(textPath, GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                          CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (file.get() != INVALID_HANDLE_VALUE) {
    ReportFile report(file.get());
    report.print("Crash report: process %lu, %s\n", GetCurrentProcessId(), crash.reason);
    report.print("Exception code: 0x%08X\n", static_cast<unsigned>(crash.record.ExceptionCode));
    const Owned<char> where(ZBSymbolCopyDescription(crash.record.ExceptionAddress));
    report.print("Exception address: %p %s\n", crash.record.ExceptionAddress,
                 where ? where.get() : "");
    if (crash.record.ExceptionCode == EXCEPTION_ACCESS_VIOLATION &&
        crash.record.NumberParameters >= 2)
      report.print("Access: %s 0x%llx\n",
                   crash.record.ExceptionInformation[0] == 1 ? "write to" : "read of",
                   static_cast<unsigned long long>(crash.record.ExceptionInformation[1]));
    printRegisters(report, crash.context);
    report.print("\nThread %lu (crashed):\n", crash.threadID);
    printFrames(report, crashedFrames, crashedCount);
    for (uint32_t index = 0; index < sOthers.count; ++index) {
      report.print("\nThread %lu:\n", sOthers.ids[index]);
      printFrames(report, sStacks[index].frames, sStacks[index].count);
    }
    report.print("\n");
    printLogLines(report, settings);
  }
  if (settings.writeMiniDump != nullptr)
    writeMiniDump(crash, settings, path);
}

} // namespace zb::crash
