// Temporary directories and files named from a template whose placeholder
// characters are replaced by random ones in place.
#include "ZBFile.h"

#include "ZBFilePrivate.h"

#include <cstring>

using namespace zb::file;

namespace {

constexpr size_t kDirectoryRandomCount = 6;

} // namespace

extern "C" ZBError ZBDirectoryCreateTemporary(char *pattern) noexcept {
  if (pattern == nullptr)
    return ZBErrorInvalidArgument;
  const size_t length = std::strlen(pattern);
  // Only the last character is checked; all six are replaced whatever they are.
  if (length < kDirectoryRandomCount || pattern[length - 1] != 'X')
    return ZBErrorInvalidArgument;
  for (size_t at = length; at > length - kDirectoryRandomCount; --at)
    pattern[at - 1] = temporaryDirectoryCharacter(randomBelow62());
  return ZBDirectoryCreate(pattern, 0755); // a collision is not retried
}

extern "C" ZBError ZBFileCreateTemporary(char *pattern, uint32_t suffixLength,
                                         ZBFileDescriptor *outFD) noexcept {
  ZBFileDescriptor fd = 0;
  const ZBError error = ZBFileDescriptorCreateTemporary(pattern, suffixLength, &fd);
  if (error != ZBErrorNone)
    return error;
  if (outFD != nullptr)
    *outFD = fd;
  else
    ZBFileDescriptorClose(fd);
  return ZBErrorNone;
}
