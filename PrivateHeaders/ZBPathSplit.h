// The split of a path into its directory and its last component, shared by
// ZBPathCopyDirectoryName, ZBPathCopyBaseName and the log's file names. Like
// the C runtime's splitters it reports through errno: a path of 1025 bytes or
// more is refused with ENAMETOOLONG, as applications written against those
// splitters expect.
#pragma once

#include <cstddef>

namespace zb::path {

// Offsets into the split path; trailing separators are not part of either.
struct LastComponent {
  size_t directoryLength; // 0: no directory part (".")
  size_t baseStart;
  size_t baseLength;
};

// The longest path the splitter takes, in bytes without the terminator.
constexpr size_t kSplitPathMaximum = 1024;

// Splits `path` (not null). False, with errno set, when it cannot: a path
// longer than kSplitPathMaximum gives ENAMETOOLONG; a splitter failure with
// ERANGE is reported on standard error and becomes ENAMETOOLONG; any other
// failure keeps the splitter's errno.
bool splitLastComponent(const char *path, LastComponent *out) noexcept;

// The splitter behind splitLastComponent, called only for paths within the
// limit; on failure it sets errno. Tests replace it to reach the failures
// that no path within the limit produces.
extern bool (*gPathSplitter)(const char *path, LastComponent *out) noexcept;

} // namespace zb::path
