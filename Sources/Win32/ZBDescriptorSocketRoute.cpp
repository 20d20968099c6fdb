// The descriptor family's routes into the socket layer. The socket layer
// takes these over: until it exists they ask Winsock directly and map its
// error as every socket function does.
#include "ZBDescriptorSocketRoute.h"

#include "ZBErrorMapping.h"

#include <winsock2.h>

ZBError _ZBDescriptorSocketGetPendingBytesCount(ZBFileDescriptor fd,
                                                uint32_t *outCount) noexcept {
  // Socket handles keep their value within 32 significant bits.
  u_long count = 0;
  if (ioctlsocket(static_cast<SOCKET>(fd), FIONREAD, &count) != 0)
    return _ZBSocketErrorFromWSAError(WSAGetLastError());
  *outCount = static_cast<uint32_t>(count);
  return ZBErrorNone;
}
