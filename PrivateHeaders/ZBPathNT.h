// The wide long-path form of a library path, as the file-system functions
// hand it to Windows: "/C:/x" is used as "C:/x", then ZBPathCopyNT. The
// holder frees it on every path out of the caller.
#pragma once

#include "ZBPathInfoRecord.h"

#include "ZBAlloc.h"

#include <memory>

namespace zb::path {

struct WideTextDeleter {
  void operator()(ZBWChar *text) const noexcept { _ZBFreeWithZone(nullptr, text); }
};
using NTPath = std::unique_ptr<ZBWChar, WideTextDeleter>;

// Empty when `path` is null or cannot be converted.
inline NTPath fileSystemPath(const char *path) noexcept {
  return NTPath(path != nullptr ? ZBPathCopyNT(withoutSlashBeforeDrive(path)) : nullptr);
}

} // namespace zb::path
