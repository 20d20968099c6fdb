// Directory creation: one directory (with the walk up the path that tells a
// missing parent from a file in the way), and a whole chain of them.
#include "ZBFile.h"

#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBSystemCalls.h"

#include <string>
#include <vector>

using namespace zb::file;

namespace {

constexpr ErrorRow kCreateErrors[] = {
    {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_ACCESS_DENIED, ZBErrorAccessDenied},
    {ERROR_NOT_ENOUGH_MEMORY, ZBErrorNoMemory},
    {ERROR_OUTOFMEMORY, ZBErrorNoMemory},
    {ERROR_INVALID_DRIVE, ZBErrorFileNotFound},
    {ERROR_WRITE_PROTECT, ZBErrorReadOnlyFileSystem},
    {ERROR_FILE_EXISTS, ZBErrorFileExists},
    {ERROR_ALREADY_EXISTS, ZBErrorFileExists},
};

// After "path not found": the nearest ancestor that exists says why. A
// directory means a component in between is missing; anything else (a
// regular file) stands in the way.
ZBError errorOfMissingParent(wchar_t *ntPath) {
  for (size_t at = std::wcslen(ntPath); at > 0; --at) {
    if (ntPath[at - 1] != L'\\')
      continue;
    ntPath[at - 1] = 0;
    const DWORD attributes = zb::gSystemCalls.GetFileAttributesW(ntPath);
    if (attributes != INVALID_FILE_ATTRIBUTES)
      return (attributes & FILE_ATTRIBUTE_DIRECTORY) ? ZBErrorFileNotFound : ZBErrorNotDirectory;
  }
  return ZBErrorFileNotFound;
}

// The path's components, each with everything before it: "C:/a/b" gives
// "C:/", "C:/a", "C:/a/b". Empty components are skipped; a drive keeps its
// root ("C:" alone would be the drive's current directory).
std::vector<std::string> prefixesOf(const char *path) {
  std::vector<std::string> prefixes;
  std::string prefix = (path[0] == '/' || path[0] == '\\') ? "/" : "";
  for (const char *at = path; *at != '\0';) {
    const char *end = at;
    while (*end != '\0' && *end != '/' && *end != '\\')
      ++end;
    if (end != at) {
      if (!prefix.empty() && prefix.back() != '/')
        prefix += '/';
      prefix.append(at, end);
      if (prefixes.empty() && end - at == 2 && at[1] == ':')
        prefix += '/';
      prefixes.push_back(prefix);
    }
    at = *end != '\0' ? end + 1 : end;
  }
  return prefixes;
}

ZBError pathIsDirectory(const char *path) {
  NTPath ntPath(path);
  if (ntPath.get() == nullptr)
    return ZBErrorNoMemory;
  return existsAndIsDirectory(ntPath.get());
}

} // namespace

namespace zb::file {

ZBError existsAndIsDirectory(const wchar_t *ntPath) noexcept {
  const DWORD attributes = zb::gSystemCalls.GetFileAttributesW(ntPath);
  if (attributes != INVALID_FILE_ATTRIBUTES)
    return (attributes & FILE_ATTRIBUTE_DIRECTORY) ? ZBErrorNone : ZBErrorNotDirectory;
  const DWORD error = GetLastError();
  return error == ERROR_ACCESS_DENIED ? ZBErrorNone : __ZBIOErrorFromWinError(error);
}

} // namespace zb::file

extern "C" ZBError ZBDirectoryCreate(const char *path, uint16_t mode) noexcept {
  if (path == nullptr || path[0] == '\0')
    return ZBErrorInvalidArgument;
  NTPath ntPath(path);
  if (ntPath.get() == nullptr)
    return ZBErrorNoMemory;
  if (!zb::gSystemCalls.CreateDirectoryW(ntPath.get(), nullptr)) {
    const DWORD error = GetLastError();
    if (error == ERROR_PATH_NOT_FOUND)
      return errorOfMissingParent(ntPath.mutableText());
    return mapError(kCreateErrors, error);
  }
  if ((mode & 0200) == 0) {
    const DWORD attributes = zb::gSystemCalls.GetFileAttributesW(ntPath.get());
    if (attributes != INVALID_FILE_ATTRIBUTES)
      SetFileAttributesW(ntPath.get(), attributes | FILE_ATTRIBUTE_READONLY);
  }
  return ZBErrorNone;
}

extern "C" ZBError ZBDirectoryCreateNested(const char *path, uint16_t mode,
                                           uint16_t intermediateMode) noexcept {
  if (path == nullptr || path[0] == '\0')
    return ZBErrorInvalidArgument;
  const std::vector<std::string> prefixes = prefixesOf(path);
  ZBError result = ZBErrorNone;
  for (size_t index = 0; index < prefixes.size(); ++index) {
    const char *prefix = prefixes[index].c_str();
    result = pathIsDirectory(prefix);
    if (result == ZBErrorNone)
      continue;
    if (result != ZBErrorFileNotFound)
      return result;
    const bool last = index + 1 == prefixes.size();
    result = ZBDirectoryCreate(prefix, (last ? mode : intermediateMode) & 0777);
    // Access denied on a directory in between is tolerated: it may exist
    // where we may not look. One created meanwhile is fine if it is one.
    if (result == ZBErrorFileExists)
      result = pathIsDirectory(prefix);
    if (result != ZBErrorNone && result != ZBErrorAccessDenied)
      return result;
  }
  return result;
}
