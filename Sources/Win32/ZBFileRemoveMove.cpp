// Removing and moving files, each with its own table of Windows errors.
#include "ZBFile.h"

#include "ZBFilePrivate.h"
#include "ZBLog.h"
#include "ZBSystemCalls.h"

using namespace zb::file;

namespace {

constexpr ErrorMapRow kRemoveErrors[] = {
    {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound},      {ERROR_PATH_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_WRITE_PROTECT, ZBErrorReadOnlyFileSystem}, {ERROR_SHARING_VIOLATION, ZBErrorFileBusy},
    {ERROR_INVALID_NAME, ZBErrorNotLocked}, // the code callers have always seen
};

constexpr ErrorMapRow kMoveErrors[] = {
    {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_PATH_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_ACCESS_DENIED, ZBErrorAccessDenied},
    {ERROR_NOT_SAME_DEVICE, ZBErrorInvalidFileName}, // kept as callers know it
    {ERROR_WRITE_PROTECT, ZBErrorReadOnlyFileSystem},
    {ERROR_SHARING_VIOLATION, ZBErrorFileBusy},
};

} // namespace

extern "C" ZBError ZBFileRemove(const char *path) noexcept {
  NTPath ntPath;
  if (const ZBError error = fileSystemPath(path, &ntPath))
    return error;
  const Removal removal = removeClearingReadOnly(ntPath.get(), zb::gSystemCalls.DeleteFileW);
  const DWORD error = removal.error;
  if (error == 0)
    return ZBErrorNone;
  if (error != ERROR_FILE_NOT_FOUND && error != ERROR_PATH_NOT_FOUND)
    ZB_LOG_AT(ZBLogLevelError, "_ZBFileRemove", __FILE__, __LINE__, "failed to delete file %S, %d",
              ntPath.get(), static_cast<int>(error));
  if (error == ERROR_ACCESS_DENIED)
    return removal.attributes != INVALID_FILE_ATTRIBUTES &&
                   (removal.attributes & FILE_ATTRIBUTE_DIRECTORY)
               ? ZBErrorIsDirectory
               : ZBErrorAccessDenied;
  return mapError(kRemoveErrors, error);
}

extern "C" ZBError ZBFileMove(const char *source, const char *destination, uint32_t) noexcept {
  if (source == nullptr || source[0] == '\0' || destination == nullptr || destination[0] == '\0')
    return ZBErrorInvalidArgument;
  NTPath ntSource = fileSystemPath(source);
  NTPath ntDestination = fileSystemPath(destination);
  // A conversion that failed for want of memory is what the system would
  // refuse as an invalid parameter, which maps to the generic code.
  if (ntSource.get() == nullptr || ntDestination.get() == nullptr)
    return ZBErrorGeneric;
  if (zb::gSystemCalls.MoveFileExW(ntSource.get(), ntDestination.get(), MOVEFILE_REPLACE_EXISTING))
    return ZBErrorNone;
  return mapError(kMoveErrors, GetLastError());
}
