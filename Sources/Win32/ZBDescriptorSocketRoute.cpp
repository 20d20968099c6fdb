// The descriptor family's routes into the socket layer: each answers with
// the socket entry point, so a descriptor that is a socket behaves exactly
// as the socket does. Descriptors keep the handle's full width; socket
// handles keep their value within 32 significant bits, so the narrowing
// here loses nothing.
#include "ZBDescriptorSocketRoute.h"

#include "ZBSocket.h"

ZBError _ZBDescriptorSocketGetPendingBytesCount(ZBFileDescriptor fd, uint32_t *outCount) noexcept {
  return ZBSocketGetPendingBytesCount(static_cast<ZBSocket>(fd), outCount);
}
