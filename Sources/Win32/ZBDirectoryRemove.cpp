// Directory removal: one empty directory (clearing a read-only attribute
// that refuses it), and a whole tree, emptied bottom up by a post-order
// scan whose entries are removed as they come.
#include "ZBFile.h"

#include "ZBFilePrivate.h"
#include "ZBLog.h"
#include "ZBString.h"
#include "ZBSystemCalls.h"

using namespace zb::file;

namespace {

constexpr ErrorMapRow kRemoveErrors[] = {
    {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_PATH_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_ACCESS_DENIED, ZBErrorAccessDenied},
    {ERROR_NOT_ENOUGH_MEMORY, ZBErrorNoMemory},
    {ERROR_OUTOFMEMORY, ZBErrorNoMemory},
    {ERROR_INVALID_DRIVE, ZBErrorFileNotFound},
    {ERROR_WRITE_PROTECT, ZBErrorReadOnlyFileSystem},
    {ERROR_FILE_EXISTS, ZBErrorFileExists},
    {ERROR_DIR_NOT_EMPTY, ZBErrorDirectoryNotEmpty},
    {ERROR_PATH_BUSY, ZBErrorFileBusy},
    {4307, ZBErrorDirectoryNotEmpty}, // its meaning is not relied upon
};

struct RemovalContext {
  ZBError error;
};

bool removeEntry(void *context, const char *directory, const char *name, int32_t, uint32_t type) {
  auto *removal = static_cast<RemovalContext *>(context);
  char *path = ZBCStringCreateWithFormat(nullptr, "%s/%s", directory, name);
  if (path == nullptr) {
    ZB_LOG_AT(ZBLogLevelError, "_RecursiveRemoveEntry", __FILE__, __LINE__,
              "Failed to concatenate %s and %s", directory, name);
    return false;
  }
  // Directory links are removed as links, never entered.
  removal->error =
      type == ZBDirectoryEntryDirectory ? ZBDirectoryRemoveRecursive(path) : ZBFileRemove(path);
  if (removal->error != ZBErrorNone)
    ZB_LOG_AT(ZBLogLevelError, "_RecursiveRemoveEntry", __FILE__, __LINE__,
              "Failed to remove %s, err: %d", path, removal->error);
  _ZBFree(path);
  return removal->error == ZBErrorNone;
}

} // namespace

extern "C" ZBError ZBDirectoryRemove(const char *path) noexcept {
  NTPath ntPath;
  if (const ZBError error = fileSystemPath(path, &ntPath))
    return error;
  const Removal removal = removeClearingReadOnly(ntPath.get(), zb::gSystemCalls.RemoveDirectoryW);
  if (removal.firstError == 0)
    return ZBErrorNone;
  ZB_LOG_AT(ZBLogLevelError, "_ZBDirectoryRemoveW", __FILE__, __LINE__,
            "failed to remove directory %S, %d", ntPath.get(),
            static_cast<int>(removal.firstError));
  if (removal.clearRefused)
    return ZBErrorAccessDenied;
  return removal.error == 0 ? ZBErrorNone : mapError(kRemoveErrors, removal.error);
}

extern "C" ZBError ZBDirectoryRemoveRecursive(const char *path) noexcept {
  {
    NTPath ntPath;
    if (const ZBError error = fileSystemPath(path, &ntPath))
      return error;
    if (zb::gSystemCalls.GetFileAttributesW(ntPath.get()) == INVALID_FILE_ATTRIBUTES) {
      const DWORD error = GetLastError();
      if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND)
        return ZBErrorNone;
    }
  }
  RemovalContext removal = {ZBErrorNone};
  if (!ZBDirectoryScanOrdered(path, removeEntry, 0, &removal, ZBDirectoryScanPostOrder))
    return removal.error != ZBErrorNone ? removal.error : ZBErrorGeneric;
  return ZBDirectoryRemove(path);
}
