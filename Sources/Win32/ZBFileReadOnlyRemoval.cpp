// The removal by a long-path name that clears a read-only attribute
// standing in the way.
#include "ZBFilePrivate.h"

#include "ZBSystemCalls.h"

namespace zb::file {

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
