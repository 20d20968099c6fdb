// Directory creation: one directory (with the walk up the path that tells a
// missing parent from a file in the way), and a whole chain of them.
#include "ZBFile.h"

#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBOwned.h"
#include "ZBPath.h"
#include "ZBSystemCalls.h"

#include <cwchar>
#include <memory>

using namespace zb::file;

namespace {

constexpr ErrorMapRow kCreateErrors[] = {
    {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound}, {ERROR_ACCESS_DENIED, ZBErrorAccessDenied},
    {ERROR_NOT_ENOUGH_MEMORY, ZBErrorNoMemory},  {ERROR_OUTOFMEMORY, ZBErrorNoMemory},
    {ERROR_INVALID_DRIVE, ZBErrorFileNotFound},  {ERROR_WRITE_PROTECT, ZBErrorReadOnlyFileSystem},
    {ERROR_FILE_EXISTS, ZBErrorFileExists},      {ERROR_ALREADY_EXISTS, ZBErrorFileExists},
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

// Owners of the parsed path and of its written-back prefixes.
using Text = zb::Owned<char>;
struct InfoDeleter {
  void operator()(ZBPathInfo *info) const { ZBPathInfoFree(info); }
};

} // namespace

extern "C" ZBError ZBDirectoryCreate(const char *path, uint16_t mode) noexcept {
  NTPath ntPath;
  if (const ZBError error = fileSystemPath(path, &ntPath))
    return error;
  if (!zb::gSystemCalls.CreateDirectoryW(ntPath.get(), nullptr)) {
    const DWORD error = GetLastError();
    if (error == ERROR_PATH_NOT_FOUND)
      return errorOfMissingParent(ntPath.get());
    return mapError(kCreateErrors, error);
  }
  if ((mode & 0200) == 0) {
    const DWORD attributes = zb::gSystemCalls.GetFileAttributesW(ntPath.get());
    if (attributes != INVALID_FILE_ATTRIBUTES)
      zb::gSystemCalls.SetFileAttributesW(ntPath.get(), attributes | FILE_ATTRIBUTE_READONLY);
  }
  return ZBErrorNone;
}

extern "C" ZBError ZBDirectoryCreateNested(const char *path, uint16_t mode,
                                           uint16_t intermediateMode) noexcept {
  if (path == nullptr || path[0] == '\0')
    return ZBErrorInvalidArgument;
  const std::unique_ptr<ZBPathInfo, InfoDeleter> info(ZBPathInfoCreate(path, false));
  if (info == nullptr)
    return ZBErrorGeneric;
  const int32_t count = ZBPathInfoGetComponentCount(info.get());
  ZBError result = ZBErrorNone;
  for (int32_t k = 1; k <= count; ++k) {
    const Text prefix(
        ZBPathInfoCopyComponentsReconstructingWithStyle(info.get(), ZBPathStylePOSIX, k));
    if (prefix == nullptr)
      return ZBErrorNoMemory;
    result = ZBPathExistsAndIsDir(prefix.get());
    if (result == ZBErrorNone)
      continue;
    if (result != ZBErrorFileNotFound)
      return result;
    result = ZBDirectoryCreate(prefix.get(), (k == count ? mode : intermediateMode) & 0777);
    // Access denied on a directory in between is tolerated: it may exist
    // where we may not look. One created meanwhile is fine if it is one.
    if (result == ZBErrorFileExists)
      result = ZBPathExistsAndIsDir(prefix.get());
    if (result != ZBErrorNone && result != ZBErrorAccessDenied)
      return result;
  }
  return result;
}
