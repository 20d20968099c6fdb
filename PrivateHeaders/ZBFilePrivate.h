// What the descriptor, file and directory sources share: the handle behind
// a descriptor, scoped system resources, the path conversion every file
// call takes, error tables as data, file-time and mode conversions, and the
// random characters of temporary names. Included by Sources/Win32 only.
#pragma once

#include "ZBAlloc.h"
#include "ZBError.h"
#include "ZBErrorMapping.h"
#include "ZBFileDescriptor.h"
#include "ZBPathNT.h"
#include "ZBScopedHandle.h"
#include "ZBString.h"
#include "ZBTimePrivate.h"

#include <winsock2.h>
#include <windows.h>

#include <cstddef>
#include <cstdint>

extern "C" {
// Whether a valid descriptor is taken for a socket: the system reports a
// pipe for it (real pipes are taken for sockets too). Counts itself as not
// implemented, since that confusion is known.
bool __ZBFileDescriptorIsSocket(ZBFileDescriptor fd) noexcept;
}

namespace zb::file {

inline HANDLE handleOf(ZBFileDescriptor fd) { return reinterpret_cast<HANDLE>(fd); }
inline ZBFileDescriptor descriptorOf(HANDLE handle) {
  return reinterpret_cast<ZBFileDescriptor>(handle);
}
inline bool isValid(ZBFileDescriptor fd) { return fd != 0 && fd != ~ZBFileDescriptor{0}; }

// The wide long-path form of a library path that every file call takes.
using zb::path::fileSystemPath;
using zb::path::NTPath;

// A descriptor that a ZBFileDescriptor... call opens through out(), closed
// when the holder goes.
class ScopedDescriptor {
public:
  ScopedDescriptor() = default;
  ~ScopedDescriptor() {
    if (isValid(fd_))
      CloseHandle(handleOf(fd_));
  }
  ScopedDescriptor(const ScopedDescriptor &) = delete;
  ScopedDescriptor &operator=(const ScopedDescriptor &) = delete;
  ZBFileDescriptor get() const { return fd_; }
  ZBFileDescriptor *out() { return &fd_; }

private:
  ZBFileDescriptor fd_ = 0;
};

// A file or directory opened only to read its attributes: backup semantics
// let directories open, and no more access is asked than a listing needs.
inline zb::ScopedFileHandle openForAttributes(const wchar_t *ntPath) {
  return zb::ScopedFileHandle(zb::gSystemCalls.CreateFileW(
      ntPath, FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr,
      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr));
}

// A Windows error through one function's own table; unlisted errors give
// `fallback`.
using zb::ErrorMapRow;
template <size_t N>
ZBError mapError(const ErrorMapRow (&table)[N], DWORD winError, ZBError fallback = ZBErrorGeneric) {
  return zb::lookupError(table, static_cast<int32_t>(winError), fallback);
}

// FILETIME <-> nanoseconds since the Unix epoch.
inline int64_t unixNanoseconds(const LARGE_INTEGER &fileTime) {
  return zb::time::unixNanosecondsFromFileTime(fileTime.QuadPart);
}
inline int64_t unixNanoseconds(const FILETIME &fileTime) {
  return zb::time::unixNanosecondsFromFileTime(static_cast<int64_t>(
      (static_cast<uint64_t>(fileTime.dwHighDateTime) << 32) | fileTime.dwLowDateTime));
}
inline FILETIME fileTimeFromUnixNanoseconds(int64_t nanoseconds) {
  const uint64_t ticks = static_cast<uint64_t>(nanoseconds / zb::time::kNanosecondsPerTick +
                                               zb::time::kUnixEpochFileTimeTicks);
  return FILETIME{static_cast<DWORD>(ticks), static_cast<DWORD>(ticks >> 32)};
}

// POSIX permission and type bits from the attributes: 0644 less 0200 when
// read-only; a directory adds 040000 and 0111. `fileTypeBits` is the type
// of a non-directory. A reparse point ORs 0xA000 over whatever type is set
// (a directory link reads 0xE000): kept as the library has always done.
inline uint32_t modeFromAttributes(DWORD attributes, uint32_t fileTypeBits) {
  uint32_t mode = (attributes & FILE_ATTRIBUTE_READONLY) ? 0444 : 0644;
  mode |= (attributes & FILE_ATTRIBUTE_DIRECTORY) ? (040000 | 0111) : fileTypeBits;
  if (attributes & FILE_ATTRIBUTE_REPARSE_POINT)
    mode |= 0xA000;
  return mode;
}

// A random value below 62 for a character of a temporary name (`rand_s`
// gives v, the value is v mod 62). A failing `rand_s` is fatal.
uint32_t randomBelow62() noexcept;

// The characters of temporary names. Files: the 62 digits and letters in
// order. Directories use an older, lopsided mapping that names have always
// been made with and that is kept: 10 gives "K", 26 "A", 35 "j".
constexpr char temporaryFileCharacter(uint32_t c) {
  return static_cast<char>(c < 10 ? '0' + c : c < 36 ? 'A' + (c - 10) : 'a' + (c - 36));
}
constexpr char temporaryDirectoryCharacter(uint32_t c) {
  return static_cast<char>(c <= 9 ? '0' + c : c <= 34 ? 'A' + c % 26 : 'a' + c % 26);
}

// One removal with the read-only retry: `remove` (a system-call table
// entry) runs; when it is refused with access denied and the path is
// read-only, the attribute is cleared and it runs once more.
struct Removal {
  DWORD firstError = 0;                       // of the first try; 0 when it worked
  DWORD error = 0;                            // of the last try; 0 when it worked
  DWORD attributes = INVALID_FILE_ATTRIBUTES; // as read after access denied
  bool clearRefused = false;                  // the attribute could not be cleared
};
Removal removeClearingReadOnly(const wchar_t *ntPath, BOOL(WINAPI *remove)(LPCWSTR)) noexcept;

// Opens an NT path with the open flags and mode of ZBFileDescriptorOpen.
ZBError openNT(const wchar_t *ntPath, uint32_t flags, uint16_t mode,
               ZBFileDescriptor *outFD) noexcept;

} // namespace zb::file
