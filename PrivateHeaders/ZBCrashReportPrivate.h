// What the crash handlers hand to the reporter thread, and the report
// writer that thread runs. Everything here is made at install time: when
// a crash comes, the crashed thread only copies its exception into the
// record and waits. Included by Sources/Win32 only.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <cstdint>

namespace zb::crash {

// One crash, as the crashed thread saw it.
struct Crash {
  EXCEPTION_RECORD record;
  CONTEXT context;
  EXCEPTION_POINTERS pointers; // to the two above, for the minidump
  DWORD threadID;
  const char *reason; // "unhandled exception", "stack overflow", "abort()", ...
};

using MiniDumpWriter = BOOL(WINAPI *)(HANDLE process, DWORD processID, HANDLE file, int type,
                                      const void *exception, const void *user,
                                      const void *callback);

// The reporter's settings and its buffers, made at install.
struct Settings {
  wchar_t directory[MAX_PATH];
  uint32_t flags;
  MiniDumpWriter writeMiniDump; // null unless the minidump flag was given and DbgHelp has it
  uint8_t *stackCopy;           // for other threads' stacks
  size_t stackCopySize;
  char *logCopy; // the log ring's bytes
  uint32_t logCapacity;
};

// Writes "<program>-<pid>-<time>.crash.txt" (and the minidump) for `crash`.
void writeReport(const Crash &crash, const Settings &settings) noexcept;

} // namespace zb::crash
