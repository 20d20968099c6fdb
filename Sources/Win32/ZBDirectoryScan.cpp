// Directory scanning: one listing per directory, with the callback called
// before (pre-order) or after (post-order) the scan of each subdirectory,
// and a depth limit. A stop ends the directory it happens in only.
#include "ZBFile.h"

#include "ZBFilePrivate.h"
#include "ZBSystemCalls.h"
#include "ZBScopedHandle.h"

#include <cstring>
#include <cwchar>
#include <string>

using namespace zb::file;

namespace {

struct ScanRequest {
  ZBDirectoryScanCallback callback;
  int32_t maximumDepth;
  void *context;
  uint32_t order;
};

bool isDotOrDotDot(const wchar_t *name) {
  return name[0] == L'.' && (name[1] == 0 || (name[1] == L'.' && name[2] == 0));
}

bool scanDirectory(const char *path, int32_t depth, const ScanRequest &request) {
  std::wstring pattern;
  {
    NTPath ntPath = fileSystemPath(path);
    if (ntPath.get() == nullptr)
      return false;
    pattern = ntPath.get();
  }
  if (!pattern.empty() && pattern.back() == L'\\')
    pattern.pop_back();
  pattern += L"\\*";
  WIN32_FIND_DATAW entry;
  const zb::ScopedFindHandle find(
      zb::gSystemCalls.FindFirstFileExW(pattern.c_str(), FindExInfoBasic, &entry,
                                        FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH));
  if (!find.isValid())
    return false;

  const bool descends = request.maximumDepth < 0 || depth + 1 < request.maximumDepth;
  std::string inner;
  do {
    if (isDotOrDotDot(entry.cFileName))
      continue;
    char *name = ZBCStringDuplicateWCString(nullptr, reinterpret_cast<ZBWChar *>(entry.cFileName));
    if (name == nullptr)
      continue;
    uint32_t type = 0;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
      type |= ZBDirectoryEntryDirectory;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)
      type |= ZBDirectoryEntryLink;

    bool goOn = true;
    if (request.order == ZBDirectoryScanPreOrder)
      goOn = request.callback(request.context, path, name, depth, type);
    // Only plain directories are entered: a directory link may lead back
    // into the tree, and following it would not end.
    if (goOn && type == ZBDirectoryEntryDirectory && descends) {
      inner.assign(path);
      if (inner.empty() || inner.back() != '/')
        inner += '/';
      inner += name;
      scanDirectory(inner.c_str(), depth + 1, request); // a stop inside ends only that one
    }
    if (goOn && request.order == ZBDirectoryScanPostOrder)
      goOn = request.callback(request.context, path, name, depth, type);
    _ZBFree(name);
    if (!goOn)
      return true;
  } while (FindNextFileW(find.get(), &entry));
  return true;
}

} // namespace

extern "C" bool ZBDirectoryScanOrdered(const char *path, ZBDirectoryScanCallback callback,
                                       int32_t maximumDepth, void *context,
                                       uint32_t order) noexcept {
  if (path == nullptr || path[0] == '\0' || callback == nullptr)
    return false;
  return scanDirectory(path, 0, ScanRequest{callback, maximumDepth, context, order});
}

extern "C" bool ZBDirectoryScan(const char *path, ZBDirectoryScanCallback callback,
                                int32_t maximumDepth, void *context) noexcept {
  return ZBDirectoryScanOrdered(path, callback, maximumDepth, context, ZBDirectoryScanPreOrder);
}
