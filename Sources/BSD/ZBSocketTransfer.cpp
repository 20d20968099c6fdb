// Sending and receiving in every form: plain, with addresses, with message
// headers and with scatter/gather vectors. Each call checks the handle and
// answers ZBErrorWouldBlock without touching Winsock while a connect with
// data is still pending on the socket.
//
// The library's flag bits differ between the directions on purpose: bit 0
// is peek when receiving and out-of-band when sending.
#include "ZBSocket.h"

#include "ZBSocketPrivate.h"

#include <climits>
#include <cstdlib>

using namespace zb::sockets;

namespace {

int receiveFlags(int32_t flags) {
  return ((flags & ZBSocketReceivePeek) ? MSG_PEEK : 0) |
         ((flags & ZBSocketReceiveOutOfBand) ? MSG_OOB : 0);
}

int sendFlags(int32_t flags) {
  return ((flags & ZBSocketSendOutOfBand) ? MSG_OOB : 0) |
         ((flags & ZBSocketSendDontRoute) ? MSG_DONTROUTE : 0);
}

// Winsock counts in int: a larger request moves at most INT_MAX bytes.
int clampLength(uint32_t length) { return length > INT_MAX ? INT_MAX : static_cast<int>(length); }

ZBError checkTransfer(ZBSocket socket) {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  return hasPendingOp(socket) ? ZBErrorWouldBlock : ZBErrorNone;
}

// What every single-buffer transfer does first: the count goes to 0, a
// refused socket or an empty request answers at once, and a missing buffer
// is refused. kProceed means the transfer goes on to Winsock.
constexpr ZBError kProceed = 1;

ZBError prepareTransfer(ZBSocket socket, const void *buffer, uint32_t length, uint32_t *outCount) {
  if (outCount != nullptr)
    *outCount = 0;
  if (const ZBError error = checkTransfer(socket))
    return error;
  if (length == 0)
    return ZBErrorNone;
  return buffer != nullptr ? kProceed : ZBErrorInvalidArgument;
}

// The result of a Winsock transfer that answers a count or SOCKET_ERROR.
ZBError countResult(int result, uint32_t *outCount) {
  if (result == SOCKET_ERROR)
    return lastError();
  if (outCount != nullptr)
    *outCount = static_cast<uint32_t>(result);
  return ZBErrorNone;
}

// The caller's POSIX-order vector as Winsock's (length first), in one
// temporary allocation from the runtime's heap.
class WinsockVector {
public:
  WinsockVector(const ZBSocketIOVector *vector, uint32_t count)
      : mBuffers(static_cast<WSABUF *>(std::malloc(count > 0 ? count * sizeof(WSABUF) : 1))) {
    if (mBuffers == nullptr)
      return;
    for (uint32_t index = 0; index < count; ++index)
      mBuffers[index] = {vector[index].length, static_cast<char *>(vector[index].base)};
  }
  ~WinsockVector() { std::free(mBuffers); }
  WinsockVector(const WinsockVector &) = delete;
  WinsockVector &operator=(const WinsockVector &) = delete;

  WSABUF *buffers() const { return mBuffers; }

private:
  WSABUF *mBuffers;
};

} // namespace

extern "C" ZBError ZBSocketReceive(ZBSocket socket, void *buffer, uint32_t length, int32_t flags,
                                   uint32_t *outCount) noexcept {
  if (const ZBError early = prepareTransfer(socket, buffer, length, outCount); early != kProceed)
    return early;
  return countResult(zb::gSystemCalls.recv(toSocket(socket), static_cast<char *>(buffer),
                                           clampLength(length), receiveFlags(flags)),
                     outCount);
}

extern "C" ZBError ZBSocketSend(ZBSocket socket, const void *buffer, uint32_t length, int32_t flags,
                                uint32_t *outCount) noexcept {
  if (const ZBError early = prepareTransfer(socket, buffer, length, outCount); early != kProceed)
    return early;
  return countResult(zb::gSystemCalls.send(toSocket(socket), static_cast<const char *>(buffer),
                                           clampLength(length), sendFlags(flags)),
                     outCount);
}

extern "C" ZBError ZBSocketReceiveFrom(ZBSocket socket, void *buffer, uint32_t length,
                                       int32_t flags, sockaddr *outAddress,
                                       uint32_t *inOutAddressLength, uint32_t *outCount) noexcept {
  if (const ZBError early = prepareTransfer(socket, buffer, length, outCount); early != kProceed)
    return early;
  if (outAddress != nullptr && inOutAddressLength == nullptr)
    return ZBErrorInvalidArgument;
  int addressLength = outAddress != nullptr ? static_cast<int>(*inOutAddressLength) : 0;
  const int result = zb::gSystemCalls.recvfrom(toSocket(socket), static_cast<char *>(buffer),
                                               clampLength(length), receiveFlags(flags), outAddress,
                                               outAddress != nullptr ? &addressLength : nullptr);
  if (const ZBError error = countResult(result, outCount))
    return error;
  if (outAddress != nullptr)
    *inOutAddressLength = static_cast<uint32_t>(addressLength);
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketSendTo(ZBSocket socket, const void *buffer, uint32_t length,
                                  int32_t flags, const sockaddr *address, uint32_t addressLength,
                                  uint32_t *outCount) noexcept {
  if (const ZBError error = checkTransfer(socket))
    return error;
  if (length == 0)
    return ZBErrorNone; // before the count is touched, unlike the others
  if (outCount != nullptr)
    *outCount = 0;
  if (buffer == nullptr)
    return ZBErrorInvalidArgument;
  return countResult(zb::gSystemCalls.sendto(toSocket(socket), static_cast<const char *>(buffer),
                                             clampLength(length), sendFlags(flags), address,
                                             static_cast<int>(addressLength)),
                     outCount);
}

extern "C" ZBError ZBSocketReceiveMessage(ZBSocket socket, ZBSocketMessage *message, int32_t flags,
                                          uint32_t *outCount) noexcept {
  if (message == nullptr)
    return ZBErrorInvalidArgument;
  message->controlLength = 0; // no ancillary data is ever returned
  if (outCount != nullptr)
    *outCount = 0;
  if (const ZBError error = checkTransfer(socket))
    return error;
  if (message->vector == nullptr && message->vectorCount != 0)
    return ZBErrorInvalidArgument;
  WinsockVector vector(message->vector, message->vectorCount);
  if (vector.buffers() == nullptr)
    return ZBErrorNoMemory;
  DWORD received = 0;
  DWORD winsockFlags = static_cast<DWORD>(receiveFlags(flags));
  if (zb::gSystemCalls.WSARecv(toSocket(socket), vector.buffers(), message->vectorCount, &received,
                               &winsockFlags, nullptr, nullptr) != 0)
    return lastError();
  if (outCount != nullptr)
    *outCount = received;
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketSendMany(ZBSocket socket, uint32_t count, const ZBSocketIOVector *vector,
                                    int32_t flags, uint32_t *outCount) noexcept {
  if (outCount != nullptr)
    *outCount = 0;
  if (const ZBError error = checkTransfer(socket))
    return error;
  if (vector == nullptr && count != 0)
    return ZBErrorInvalidArgument;
  WinsockVector buffers(vector, count);
  if (buffers.buffers() == nullptr)
    return ZBErrorNoMemory;
  // A count of 0 still reaches WSASend, which answers for it.
  DWORD sent = 0;
  if (zb::gSystemCalls.WSASend(toSocket(socket), buffers.buffers(), count, &sent,
                               static_cast<DWORD>(sendFlags(flags)), nullptr, nullptr) != 0)
    return lastError();
  if (outCount != nullptr)
    *outCount = sent;
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketSendMessage(ZBSocket socket, const ZBSocketMessage *message,
                                       int32_t flags, uint32_t *outCount) noexcept {
  if (message == nullptr)
    return ZBErrorInvalidArgument;
  return ZBSocketSendMany(socket, message->vectorCount, message->vector, flags, outCount);
}
