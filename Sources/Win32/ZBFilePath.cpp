// The path every descriptor, file and directory call hands the system: the
// library path with a "/" before a drive letter dropped, in the wide
// "\\?\" long-path form, so no call is bound by the 260-character limit.
#include "ZBFilePrivate.h"

#include <cstring>
#include <cwchar>

namespace zb::file {

namespace {

bool isLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
bool isSeparator(wchar_t c) { return c == L'/' || c == L'\\'; }

// The long-path form of a path in the library's style. A path with the
// "\\?\" prefix, a relative path and a UNC path go unchanged; an absolute
// one ("/..." or "X:/...") gets the prefix, backslashes, and its ".", ".."
// and empty components resolved, since the system takes prefixed paths
// literally.
ZBWChar *copyLongPathForm(const char *path) {
  ZBWChar *wide = ZBWCStringDuplicateCString(nullptr, path);
  if (wide == nullptr)
    return nullptr;
  auto *text = reinterpret_cast<wchar_t *>(wide);
  const bool prefixed = std::wcsncmp(text, L"\\\\?\\", 4) == 0;
  const bool driveAbsolute = isLetter(path[0]) && path[1] == ':' && isSeparator(text[2]);
  const bool rootAbsolute = path[0] == '/' && path[1] != '/';
  if (prefixed || !(driveAbsolute || rootAbsolute))
    return wide;

  const size_t length = std::wcslen(text);
  auto *result = static_cast<wchar_t *>(_ZBAlloc((length + 8) * sizeof(wchar_t)));
  if (result == nullptr) {
    _ZBFree(wide);
    return nullptr;
  }
  std::wcscpy(result, L"\\\\?\\");
  size_t out = 4;
  size_t at = 0;
  if (driveAbsolute) {
    result[out++] = text[0];
    result[out++] = L':';
    at = 2;
  }
  const size_t rootEnd = out; // ".." never climbs above the root
  while (at < length) {
    while (at < length && isSeparator(text[at]))
      ++at;
    size_t end = at;
    while (end < length && !isSeparator(text[end]))
      ++end;
    const size_t count = end - at;
    if (count == 1 && text[at] == L'.') {
    } else if (count == 2 && text[at] == L'.' && text[at + 1] == L'.') {
      while (out > rootEnd && result[out - 1] != L'\\')
        --out;
      if (out > rootEnd)
        --out;
    } else if (count > 0) {
      result[out++] = L'\\';
      std::wmemcpy(result + out, text + at, count);
      out += count;
    }
    at = end;
  }
  if (out == rootEnd)
    result[out++] = L'\\';
  result[out] = 0;
  _ZBFree(wide);
  return reinterpret_cast<ZBWChar *>(result);
}

} // namespace

const char *withoutSlashBeforeDrive(const char *path) noexcept {
  if (path != nullptr && path[0] == '/' && isLetter(path[1]) && path[2] == ':')
    return path + 1;
  return path;
}

NTPath::NTPath(const char *path) noexcept {
  if (path == nullptr || path[0] == '\0')
    return;
  text_ = copyLongPathForm(withoutSlashBeforeDrive(path));
}

} // namespace zb::file
