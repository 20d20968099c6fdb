// The wide long-path form of a library path, as the file-system functions
// hand it to Windows: "/C:/x" is used as "C:/x", then ZBPathCopyNT. The
// holder frees it on every path out of the caller.
#pragma once

#include "ZBPathInfoRecord.h"
#include "ZBError.h"
#include "ZBOwned.h"

namespace zb::path {

// ZBPathCopyNT's conversion without a word to the log, for callers that may
// hold the log's lock (the log opens its configuration file through it). A
// "\\?\" path or a relative one is converted as it is; an absolute one is
// normalised into the long-path form. Null when memory runs out, the text is
// not UTF-8, or the path cannot be normalised, which sets `normalizeFailed`.
ZBWChar *copyNTForm(const char *path, bool *normalizeFailed) noexcept;

using NTPath = zb::Owned<ZBWChar>;

// Empty when `path` is null or empty, or cannot be converted.
inline NTPath fileSystemPath(const char *path) noexcept {
  if (path == nullptr || path[0] == '\0')
    return NTPath();
  return NTPath(ZBPathCopyNT(withoutSlashBeforeDrive(path)));
}

// The same for a file function's path argument, with the codes they all
// give: ZBErrorInvalidArgument for a null or empty path, ZBErrorNoMemory
// when it cannot be converted.
inline ZBError fileSystemPath(const char *path, NTPath *out) noexcept {
  if (path == nullptr || path[0] == '\0')
    return ZBErrorInvalidArgument;
  *out = fileSystemPath(path);
  return *out ? ZBErrorNone : ZBErrorNoMemory;
}

} // namespace zb::path
