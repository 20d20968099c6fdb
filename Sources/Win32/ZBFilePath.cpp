// The path every descriptor, file and directory call hands the system: the
// library path with a "/" before a drive letter dropped, in the wide
// "\\?\" long-path form that ZBPathCopyNT makes, so no call is bound by the
// 260-character limit.
#include "ZBFilePrivate.h"

#include "ZBPath.h"
#include "ZBPathInfoRecord.h"

namespace zb::file {

NTPath::NTPath(const char *path) noexcept {
  if (path == nullptr || path[0] == '\0')
    return;
  text_ = ZBPathCopyNT(zb::path::withoutSlashBeforeDrive(path));
}

} // namespace zb::file
