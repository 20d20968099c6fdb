// What the socket sources share: handle conversion at the Winsock call,
// the start-up state, error reading, and the close path every socket the
// library closes goes through. Included by Sources/BSD only.
#pragma once

#include "ZBSocket.h"
#include "ZBSystemCalls.h"

#include <mswsock.h>

#include "ZBErrorMapping.h"

namespace zb::sockets {

// Socket handles are 32-bit in the interface. Windows keeps socket handle
// values within 32 significant bits, so the 64-bit SOCKET is narrowed and
// widened here, at the Winsock call; all-ones stays all-ones both ways.
inline SOCKET toSocket(ZBSocket handle) {
  return handle == UINT32_MAX ? INVALID_SOCKET : static_cast<SOCKET>(handle);
}
inline ZBSocket fromSocket(SOCKET handle) {
  return handle == INVALID_SOCKET ? UINT32_MAX : static_cast<ZBSocket>(handle);
}
// Neither 0 nor all-ones.
inline bool isValid(ZBSocket handle) { return handle + 1u >= 2u; }

// The calling thread's Winsock error, mapped.
inline ZBError lastError() { return _ZBSocketErrorFromWSAError(WSAGetLastError()); }

// The start-up state filled once by ZBSocketInit.
const WSADATA &startupData();
LPFN_CONNECTEX connectExtension();

// Settles and frees the socket's pending overlapped operation, if any.
void clearPendingIOOps(ZBSocket socket) noexcept;
// True while a connect with data is still pending on the socket.
bool hasPendingOp(ZBSocket socket) noexcept;

// The close every library path uses: table entry, pending operations, then
// the handle itself. Answers closesocket's result.
int closeSocket(ZBSocket socket) noexcept;

// One 4-byte option value in and out.
inline int setIntOption(ZBSocket socket, int level, int name, int value) {
  return zb::gSystemCalls.setsockopt(toSocket(socket), level, name,
                                     reinterpret_cast<const char *>(&value), sizeof value);
}
inline int getIntOption(ZBSocket socket, int level, int name, int &value) {
  int length = sizeof value;
  value = 0;
  return zb::gSystemCalls.getsockopt(toSocket(socket), level, name,
                                     reinterpret_cast<char *>(&value), &length);
}

// getsockname and getpeername: the handle and pointer checks, the caller's
// 32-bit length in and out around Winsock's int.
using AddressQuery = int(WSAAPI *)(SOCKET, sockaddr *, int *);
inline ZBError queryAddress(ZBSocket socket, sockaddr *outAddress, uint32_t *inOutLength,
                            AddressQuery query) {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  if (outAddress == nullptr || inOutLength == nullptr)
    return ZBErrorInvalidArgument;
  int length = static_cast<int>(*inOutLength);
  if (query(toSocket(socket), outAddress, &length) != 0)
    return lastError();
  *inOutLength = static_cast<uint32_t>(length);
  return ZBErrorNone;
}

} // namespace zb::sockets
