// Path operations that ask Windows: the current directory, absolute and
// expanded paths, existence, directory and access tests, the read-only
// mode, and link resolution. Every path goes to the system in the wide
// long-path form (ZBPathNT.h); the calls that can fail go through the
// system-call table so tests can walk each error table.
#include "ZBPathNT.h"

#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBLog.h"
#include "ZBString.h"
#include "ZBSystemCalls.h"
#include "ZBOwned.h"
#include "ZBScopedHandle.h"

#include <memory>

using zb::gSystemCalls;
using zb::path::fileSystemPath;
using zb::path::NTPath;

namespace {

// GetCurrentDirectoryW and GetFullPathNameW answer into this many units.
constexpr DWORD kDirectoryUnits = 2048;
// The write bits of a POSIX mode (0222).
constexpr uint16_t kWriteBits = 0222;
// The attributes SetFileAttributesW accepts; the others (directory,
// reparse point, ...) describe the file and are not handed back.
constexpr DWORD kSettableAttributes = FILE_ATTRIBUTE_READONLY | FILE_ATTRIBUTE_HIDDEN |
                                      FILE_ATTRIBUTE_SYSTEM | FILE_ATTRIBUTE_ARCHIVE |
                                      FILE_ATTRIBUTE_TEMPORARY | FILE_ATTRIBUTE_OFFLINE |
                                      FILE_ATTRIBUTE_NOT_CONTENT_INDEXED;

// The attribute calls' errors, one column per use: reading the attributes
// for ZBPathChangeMode, writing them there, and ZBPathTestAccess. Errors
// not listed are ZBErrorGeneric everywhere.
struct AttributeErrorRow {
  DWORD system;
  ZBError readForMode;
  ZBError writeForMode;
  ZBError access;
};
constexpr AttributeErrorRow kAttributeErrors[] = {
    // system                      read for mode          write for mode             access
    {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound, ZBErrorFileNotFound, ZBErrorFileNotFound},
    {ERROR_PATH_NOT_FOUND, ZBErrorFileNotFound, ZBErrorFileNotFound, ZBErrorFileNotFound},
    {ERROR_ACCESS_DENIED, ZBErrorAccessDenied, ZBErrorAccessDenied, ZBErrorAccessDenied},
    // -59 for ERROR_NOT_SAME_DEVICE, kept as it is.
    {ERROR_NOT_SAME_DEVICE, ZBErrorGeneric, ZBErrorGeneric, ZBErrorInvalidFileName},
    {ERROR_WRITE_PROTECT, ZBErrorGeneric, ZBErrorReadOnlyFileSystem, ZBErrorReadOnlyFileSystem},
    {ERROR_INVALID_PARAMETER, ZBErrorGeneric, ZBErrorInvalidArgument, ZBErrorInvalidArgument},
    {ERROR_FILENAME_EXCED_RANGE, ZBErrorNameTooLong, ZBErrorNameTooLong, ZBErrorNameTooLong},
};

ZBError attributeError(DWORD error, ZBError AttributeErrorRow::*column) {
  for (const AttributeErrorRow &row : kAttributeErrors)
    if (row.system == error)
      return row.*column;
  return ZBErrorGeneric;
}

// The attributes of a library path, read once for the queries below.
// `status` is ZBErrorInvalidArgument for an absent or empty path and
// ZBErrorNoMemory when the path cannot be converted; otherwise the system was
// asked, and `value` holds its answer or `error` its last error.
struct Attributes {
  ZBError status = ZBErrorNone;
  DWORD value = INVALID_FILE_ATTRIBUTES;
  DWORD error = ERROR_SUCCESS;
  NTPath nt;

  bool found() const { return status == ZBErrorNone && value != INVALID_FILE_ATTRIBUTES; }
};

Attributes readAttributes(const char *path) {
  Attributes result;
  result.status = fileSystemPath(path, &result.nt);
  if (result.status != ZBErrorNone)
    return result;
  result.value = gSystemCalls.GetFileAttributesW(result.nt.get());
  if (result.value == INVALID_FILE_ATTRIBUTES)
    result.error = GetLastError();
  return result;
}

using Text = zb::Owned<char>;

// A DOS-style text from the system as a library path: "C:\x" gives "C:/x".
// The POSIX form is never longer than the DOS one.
char *copyFromSystemText(const wchar_t *text) {
  Text utf8(ZBCStringDuplicateWCString(nullptr, text));
  if (!utf8)
    return nullptr;
  return ZBPathCopyConvertingWithStyle(ZBPathStyleDOS, utf8.get(), ZBPathStylePOSIX, 0, false);
}

} // namespace

extern "C" char *ZBPathCopyCurrentWithStyle(ZBPathStyle style) noexcept {
  if (!zb::path::isKnownStyle(style))
    return nullptr;
  // Room for the backslash appended below.
  wchar_t directory[kDirectoryUnits + 1];
  DWORD length = gSystemCalls.GetCurrentDirectoryW(kDirectoryUnits, directory);
  if (length == 0 || length >= kDirectoryUnits)
    return nullptr;
  if (directory[length - 1] != L'\\') {
    directory[length++] = L'\\';
    directory[length] = L'\0';
  }
  char *posix = copyFromSystemText(directory);
  if (posix == nullptr || style == ZBPathStylePOSIX)
    return posix;
  // Then to the asked style, which may be longer ("file://localhost/...").
  Text holder(posix);
  ZBPathInfo *info = ZBPathInfoCreate(posix, false);
  char *result = ZBPathInfoCopyReconstructingWithStyle(info, style);
  ZBPathInfoFree(info);
  return result;
}

extern "C" char *ZBPathCopyCurrent(void) noexcept {
  return ZBPathCopyCurrentWithStyle(ZBPathStylePOSIX);
}

extern "C" char *ZBPathCopyAbsoluteWithStyle(ZBPathStyle style, const char *path) noexcept {
  if (path == nullptr || !zb::path::isKnownStyle(style))
    return nullptr;
  if (ZBPathIsAbsoluteWithStyle(style, path))
    return ZBPathCopyNormalizedWithStyle(style, path, 0);
  Text current(ZBPathCopyCurrentWithStyle(style));
  return current ? ZBPathCopyConcatenatedWithStyle(style, current.get(), path) : nullptr;
}

extern "C" char *ZBPathCopyAbsolute(const char *path) noexcept {
  return ZBPathCopyAbsoluteWithStyle(ZBPathStylePOSIX, path);
}

extern "C" char *ZBPathCopyExpandedPath(const char *path) noexcept {
  NTPath nt = fileSystemPath(path);
  if (!nt)
    return nullptr;
  wchar_t full[kDirectoryUnits];
  const DWORD length = gSystemCalls.GetFullPathNameW(nt.get(), kDirectoryUnits, full, nullptr);
  if (length == 0 || length >= kDirectoryUnits - 1)
    return nullptr;
  return copyFromSystemText(full);
}

extern "C" ZBError ZBPathChangeMode(const char *path, uint16_t mode) noexcept {
  const Attributes current = readAttributes(path);
  if (current.status != ZBErrorNone)
    return current.status;
  if (!current.found())
    return attributeError(current.error, &AttributeErrorRow::readForMode);
  DWORD wanted = (mode & kWriteBits) != 0 ? current.value & ~FILE_ATTRIBUTE_READONLY
                                          : current.value | FILE_ATTRIBUTE_READONLY;
  wanted &= kSettableAttributes;
  // 0 would mean "leave the attributes as they are".
  if (wanted == 0)
    wanted = FILE_ATTRIBUTE_NORMAL;
  if (!gSystemCalls.SetFileAttributesW(current.nt.get(), wanted))
    return attributeError(GetLastError(), &AttributeErrorRow::writeForMode);
  return ZBErrorNone;
}

extern "C" bool ZBPathExists(const char *path) noexcept {
  const Attributes current = readAttributes(path);
  // A path that cannot be described for any other reason than its absence
  // counts as existing, deliberately.
  return current.status == ZBErrorNone && current.error != ERROR_FILE_NOT_FOUND &&
         current.error != ERROR_PATH_NOT_FOUND;
}

extern "C" bool ZBPathIsDirectory(const char *path) noexcept {
  const Attributes current = readAttributes(path);
  return current.found() && (current.value & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

extern "C" ZBError ZBPathExistsAndIsDir(const char *path) noexcept {
  const Attributes current = readAttributes(path);
  if (current.status != ZBErrorNone)
    return current.status;
  if (current.found())
    return (current.value & FILE_ATTRIBUTE_DIRECTORY) != 0 ? ZBErrorNone : ZBErrorNotDirectory;
  // A directory that refuses to be described is taken as there,
  // deliberately: callers creating nested directories go on past it.
  if (current.error == ERROR_ACCESS_DENIED)
    return ZBErrorNone;
  if (current.error != ERROR_FILE_NOT_FOUND)
    ZB_LOG_ERROR("_ZBCreateFileWWrapper() path: %s, err: %d", path,
                 static_cast<int>(current.error));
  return __ZBIOErrorFromWinError(current.error);
}

extern "C" ZBError ZBPathTestAccess(const char *path, int32_t mode) noexcept {
  const Attributes current = readAttributes(path);
  if (current.status != ZBErrorNone)
    return current.status;
  if (!current.found())
    return attributeError(current.error, &AttributeErrorRow::access);
  if ((mode & ZBPathAccessWrite) != 0 && (current.value & FILE_ATTRIBUTE_READONLY) != 0)
    return ZBErrorAccessDenied;
  if ((mode & ZBPathAccessDirectoryWrite) != 0) {
    // The containing directory is looked at, but its answer does not
    // change the result, deliberately.
    Text directory(ZBPathCopyDirectoryName(path));
    if (directory)
      (void)ZBPathTestAccess(directory.get(), ZBPathAccessWrite);
  }
  return ZBErrorNone;
}

extern "C" char *ZBPathCopySymbolicLink(const char *path) noexcept {
  return ZBPathExists(path) ? _ZBCStringDuplicate(path) : nullptr;
}

extern "C" ZBError ZBPathCopySymbolicLinkWithError(const char *path, char **outPath) noexcept {
  if (outPath == nullptr)
    return ZBErrorInvalidArgument;
  *outPath = nullptr;
  if (path == nullptr || path[0] == '\0')
    return ZBErrorInvalidArgument;
  if (!ZBPathExists(path))
    return ZBErrorFileNotFound;
  *outPath = _ZBCStringDuplicate(path);
  return *outPath != nullptr ? ZBErrorNone : ZBErrorNoMemory;
}

extern "C" char *ZBPathCopyResolvedSymbolicLink(const char *path) noexcept {
  NTPath nt = fileSystemPath(path);
  if (!nt)
    return nullptr;
  const zb::ScopedFileHandle file = zb::file::openForAttributes(nt.get());
  if (!file.isValid())
    return nullptr;
  const DWORD flags = FILE_NAME_NORMALIZED | VOLUME_NAME_DOS;
  const DWORD needed = GetFinalPathNameByHandleW(file.get(), nullptr, 0, flags);
  // Wine answers ERROR_MORE_DATA for every final name beyond 260
  // characters; the full path of what was just opened stands in for it.
  if (needed == 0)
    return ZBPathCopyExpandedPath(path);
  std::unique_ptr<wchar_t[]> final(new (std::nothrow) wchar_t[needed + 1]);
  if (!final)
    return nullptr;
  const DWORD length = GetFinalPathNameByHandleW(file.get(), final.get(), needed + 1, flags);
  if (length == 0 || length > needed)
    return nullptr;
  return copyFromSystemText(final.get());
}

extern "C" ZBError ZBPathCreateLink(const char *, const char *, uint32_t) noexcept {
  ZBLogNYICounter("ZBPathCreateLink", 148);
  return ZBErrorUnsupported;
}
