// A handle to another thread of the process, opened by system ID and closed
// when it goes out of scope. Included by Sources/Win32 only.
#pragma once

#include <windows.h>

namespace zb {

class ThreadHandle {
public:
  ThreadHandle(DWORD access, DWORD threadID) noexcept
      : handle_(OpenThread(access, FALSE, threadID)) {}
  ~ThreadHandle() { close(); }
  ThreadHandle(const ThreadHandle &) = delete;
  ThreadHandle &operator=(const ThreadHandle &) = delete;

  HANDLE get() const noexcept { return handle_; }
  bool isOpen() const noexcept { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }

  // Closes now, for callers that report a failing close; true on success.
  bool close() noexcept {
    if (!isOpen())
      return true;
    const BOOL closed = CloseHandle(handle_);
    handle_ = nullptr;
    return closed != FALSE;
  }

private:
  HANDLE handle_;
};

} // namespace zb
