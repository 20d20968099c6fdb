// One owner for the system's handles inside the library: a ScopedHandle
// closes what it holds when it goes, on every path out of its scope. Each
// kind of handle brings a small traits type saying which value means "none"
// and how to close. Included by Sources/Win32 and Sources/BSD only.
#pragma once

#include "ZBSystemCalls.h"

namespace zb {

template <typename Traits>
class ScopedHandle {
public:
  using Handle = typename Traits::Handle;

  explicit ScopedHandle(Handle handle) noexcept : handle_(handle) {}
  ~ScopedHandle() {
    if (isValid())
      Traits::close(handle_);
  }
  ScopedHandle(const ScopedHandle &) = delete;
  ScopedHandle &operator=(const ScopedHandle &) = delete;

  bool isValid() const noexcept { return handle_ != Traits::invalid(); }
  Handle get() const noexcept { return handle_; }

private:
  Handle handle_;
};

// A file or directory opened with CreateFileW.
struct FileHandleTraits {
  using Handle = HANDLE;
  static Handle invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void close(Handle handle) noexcept { CloseHandle(handle); }
};
using ScopedFileHandle = ScopedHandle<FileHandleTraits>;

// A directory listing opened with FindFirstFileExW.
struct FindHandleTraits {
  using Handle = HANDLE;
  static Handle invalid() noexcept { return INVALID_HANDLE_VALUE; }
  static void close(Handle handle) noexcept { FindClose(handle); }
};
using ScopedFindHandle = ScopedHandle<FindHandleTraits>;

// A Winsock socket the library made for its own use.
struct SocketTraits {
  using Handle = SOCKET;
  static Handle invalid() noexcept { return INVALID_SOCKET; }
  static void close(Handle handle) noexcept { gSystemCalls.closesocket(handle); }
};
using ScopedSocketHandle = ScopedHandle<SocketTraits>;

} // namespace zb
