// The path every descriptor, file and directory call hands the system: the
// library path with a "/" before a drive letter dropped, in the wide
// "\\?\" long-path form that ZBPathCopyNT makes, so no call is bound by the
// 260-character limit; and the removal by that path that clears a
// read-only attribute standing in the way.
#include "ZBFilePrivate.h"

#include "ZBPath.h"
#include "ZBPathInfoRecord.h"
#include "ZBSystemCalls.h"

namespace zb::file {

NTPath::NTPath(const char *path) noexcept {
  if (path == nullptr || path[0] == '\0')
    return;
  text_ = ZBPathCopyNT(zb::path::withoutSlashBeforeDrive(path));
}

Removal removeClearingReadOnly(const wchar_t *ntPath, BOOL(WINAPI *remove)(LPCWSTR)) noexcept {
  Removal removal;
  if (remove(ntPath))
    return removal;
  removal.firstError = removal.error = GetLastError();
  if (removal.error != ERROR_ACCESS_DENIED)
    return removal;
  removal.attributes = zb::gSystemCalls.GetFileAttributesW(ntPath);
  if (removal.attributes == INVALID_FILE_ATTRIBUTES ||
      (removal.attributes & FILE_ATTRIBUTE_READONLY) == 0)
    return removal;
  if (!zb::gSystemCalls.SetFileAttributesW(ntPath, removal.attributes & ~FILE_ATTRIBUTE_READONLY)) {
    removal.clearRefused = true;
    return removal;
  }
  removal.error = remove(ntPath) ? 0 : GetLastError();
  return removal;
}

} // namespace zb::file
