// The path splitter and its errno rules (see ZBPathSplit.h). Trailing
// separators are ignored, the last component is what follows the last
// separator, and the directory is what precedes it; "/" and "\" both
// separate, and a drive root is its own directory and base name.
#include "ZBPathSplit.h"

#include "ZBPathInfoRecord.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

using zb::path::isDOSSeparator;
using zb::path::LastComponent;

namespace {

bool splitAtLastSeparator(const char *path, LastComponent *out) noexcept {
  const size_t length = std::strlen(path);
  size_t end = length;
  while (end > 1 && isDOSSeparator(path[end - 1]))
    --end;
  if (end == 2 && length > 2 && zb::path::startsWithDrive(path)) {
    *out = {3, 0, 3};
    return true;
  }
  size_t start = end;
  while (start > 0 && !isDOSSeparator(path[start - 1]))
    --start;
  if (start == end && end > 0) { // nothing but separators: the root
    *out = {1, 0, 1};
    return true;
  }
  if (start == 0) {
    *out = {0, 0, end};
    return true;
  }
  size_t directoryEnd = start;
  while (directoryEnd > 1 && isDOSSeparator(path[directoryEnd - 1]))
    --directoryEnd;
  if (directoryEnd == 2 && zb::path::startsWithDrive(path))
    directoryEnd = 3; // "C:/a" lives in "C:/", not in the drive's current directory "C:"
  *out = {directoryEnd, start, end - start};
  return true;
}

} // namespace

namespace zb::path {

bool (*gPathSplitter)(const char *path, LastComponent *out) noexcept = splitAtLastSeparator;

bool splitLastComponent(const char *path, LastComponent *out) noexcept {
  if (std::strlen(path) > kSplitPathMaximum) {
    errno = ENAMETOOLONG;
    return false;
  }
  if (gPathSplitter(path, out))
    return true;
  // A splitter that ran out of room answers ERANGE; callers of a splitter
  // know only the name-too-long answer for an oversized path.
  if (errno == ERANGE) {
    std::fprintf(stderr, "Fixing errno to be %d\n", ENAMETOOLONG);
    errno = ENAMETOOLONG;
  }
  return false;
}

} // namespace zb::path
