// Sockets over Winsock: one-time start-up, the socket table and the
// lifecycle calls (create, non-blocking mode, the loopback pair, bind,
// listen, local address, accept, close, duplicate, shutdown).
//
// Winsock can switch a socket to non-blocking mode but never report it, so
// a side table keeps three flags per handle: 64 fixed chains keyed by
// handle & 63 under one spin lock. An entry appears when a flag is first
// set and goes at ZBSocketClose, which is why every socket must be closed
// through it.
#include "ZBSocket.h"

#include "ZBAlloc.h"
#include "ZBLog.h"
#include "ZBScopedLock.h"
#include "ZBSocketChains.h"
#include "ZBSocketAddress.h"
#include "ZBSocketPrivate.h"

#include <cstring>
#include <initializer_list>

using namespace zb::sockets;

namespace {

// ---- Start-up -------------------------------------------------------------

INIT_ONCE gStartupOnce = INIT_ONCE_STATIC_INIT;
WSADATA gStartupData;
LPFN_CONNECTEX gConnectEx = nullptr;

// Newest first; the first that Winsock accepts is kept.
constexpr WORD kWinsockVersions[] = {0x0202, 0x0102, 0x0002, 0x0101, 0x0001};

BOOL CALLBACK ZBSocketInitCallback(PINIT_ONCE, PVOID, PVOID *) {
  bool started = false;
  for (WORD version : kWinsockVersions) {
    if (zb::gSystemCalls.WSAStartup(version, &gStartupData) == 0) {
      started = true;
      break;
    }
  }
  if (!started)
    ZB_LOG_FATAL_AT("ZBSocketInitCallback", "Sources/BSD/ZBSocket", __LINE__, "BUG");
  // The ConnectEx extension is asked of a throw-away socket; without it
  // connect-with-data reports itself unsupported.
  const SOCKET probe = zb::gSystemCalls.socket(AF_INET, SOCK_STREAM, 0);
  if (probe != INVALID_SOCKET) {
    GUID guid = WSAID_CONNECTEX;
    LPFN_CONNECTEX pointer = nullptr;
    DWORD returned = 0;
    if (zb::gSystemCalls.WSAIoctl(probe, SIO_GET_EXTENSION_FUNCTION_POINTER, &guid, sizeof guid,
                                  &pointer, sizeof pointer, &returned, nullptr, nullptr) == 0)
      gConnectEx = pointer;
    zb::gSystemCalls.closesocket(probe);
  }
  return TRUE;
}

// ---- The socket table -----------------------------------------------------

constexpr uint32_t kFlagNonBlocking = 1;
constexpr uint32_t kFlagListening = 2;
constexpr uint32_t kFlagEmulatedDevUrandom = 4;

struct ZBSocketTableEntry {
  uint32_t socket;
  uint32_t flags;
  ZBSocketTableEntry *next;
};

SocketChains<ZBSocketTableEntry> gTable;

bool getFlag(ZBSocket socket, uint32_t flag) {
  zb::ScopedLock<ZBSpinLock> hold(gTable.lock());
  const ZBSocketTableEntry *entry = gTable.find(socket);
  return entry != nullptr && (entry->flags & flag) != 0;
}

void setFlag(ZBSocket socket, uint32_t flag, bool value) {
  zb::ScopedLock<ZBSpinLock> hold(gTable.lock());
  ZBSocketTableEntry *entry = gTable.find(socket);
  if (entry == nullptr) {
    // The entry is 16 bytes on this 64-bit target (the next pointer's width).
    entry = static_cast<ZBSocketTableEntry *>(
        _ZBAllocWithZoneAndDesc(nullptr, sizeof(ZBSocketTableEntry), "_ZBSocketTableAddEntry"));
    if (entry == nullptr)
      return; // without memory the flag stays unrecorded
    *entry = {socket, 0, nullptr};
    gTable.push(entry);
  }
  entry->flags = value ? entry->flags | flag : entry->flags & ~flag;
}

// The error space's description of a code, or "" for the codes without one.
const char *describedOrEmpty(ZBError code) {
  return code <= 0 && code >= ZBErrorLowestDescribed ? ZBErrorGetDescription(code) : "";
}

} // namespace

namespace zb::sockets {

const WSADATA &startupData() { return gStartupData; }
LPFN_CONNECTEX connectExtension() { return gConnectEx; }

int closeSocket(ZBSocket socket) noexcept {
  ZBSocketTableRemove(socket);
  clearPendingIOOps(socket);
  return zb::gSystemCalls.closesocket(toSocket(socket));
}

} // namespace zb::sockets

// ---- Table accessors ------------------------------------------------------

extern "C" bool ZBSocketTableGetNonBlocking(ZBSocket socket) noexcept {
  return getFlag(socket, kFlagNonBlocking);
}
extern "C" void ZBSocketTableSetNonBlocking(ZBSocket socket, bool value) noexcept {
  setFlag(socket, kFlagNonBlocking, value);
}
extern "C" bool ZBSocketTableGetIsListening(ZBSocket socket) noexcept {
  return getFlag(socket, kFlagListening);
}
extern "C" void ZBSocketTableSetIsListening(ZBSocket socket, bool value) noexcept {
  setFlag(socket, kFlagListening, value);
}
extern "C" bool ZBSocketTableGetIsEmulatedDevUrandom(ZBSocket socket) noexcept {
  return getFlag(socket, kFlagEmulatedDevUrandom);
}
extern "C" void ZBSocketTableSetIsEmulatedDevUrandom(ZBSocket socket, bool value) noexcept {
  setFlag(socket, kFlagEmulatedDevUrandom, value);
}

extern "C" void ZBSocketTableRemove(ZBSocket socket) noexcept {
  zb::ScopedLock<ZBSpinLock> hold(gTable.lock());
  _ZBFreeWithZone(nullptr, gTable.unlink(socket)); // null when unknown
}

// ---- Lifecycle ------------------------------------------------------------

extern "C" int32_t ZBSocketInit(void) noexcept {
  return InitOnceExecuteOnce(&gStartupOnce, ZBSocketInitCallback, nullptr, nullptr);
}

extern "C" ZBError ZBSocketCreate(int32_t domain, int32_t type, int32_t protocol, uint32_t flags,
                                  ZBSocket *outSocket) noexcept {
  struct DefaultProtocol {
    int32_t domain, type, protocol;
  };
  static constexpr DefaultProtocol kDefaults[] = {{AF_INET, SOCK_STREAM, IPPROTO_TCP},
                                                  {AF_INET, SOCK_DGRAM, IPPROTO_UDP},
                                                  {AF_INET6, SOCK_STREAM, IPPROTO_TCP},
                                                  {AF_INET6, SOCK_DGRAM, IPPROTO_UDP}};
  if (outSocket == nullptr)
    return ZBErrorInvalidArgument;
  ZBSocketInit();
  if (protocol == 0)
    for (const DefaultProtocol &row : kDefaults)
      if (row.domain == domain && row.type == type)
        protocol = row.protocol;
  *outSocket = fromSocket(zb::gSystemCalls.socket(domain, type, protocol));
  if (!isValid(*outSocket))
    return lastError();
  if ((flags & ZBSocketCreateNonBlocking) == 0)
    return ZBErrorNone;
  if (const ZBError error = ZBSocketSetNonBlocking(*outSocket, true))
    ZB_LOG_WARNING("Couldn't set non-blocking on %d, %d", static_cast<int>(*outSocket),
                   static_cast<int>(error));
  ZBSocketTableSetNonBlocking(*outSocket, true);
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketSetNonBlocking(ZBSocket socket, bool nonBlocking) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  // The table keeps the requested state even when the switch below fails.
  ZBSocketTableSetNonBlocking(socket, nonBlocking);
  u_long value = nonBlocking ? 1 : 0;
  if (zb::gSystemCalls.ioctlsocket(toSocket(socket), FIONBIO, &value) == 0)
    return ZBErrorNone;
  const int wsaError = WSAGetLastError();
  const ZBError error = _ZBSocketErrorFromWSAError(wsaError);
  ZB_LOG_ERROR("failed ioctl FIONBIO call on socket: %d with flag: %d sock_errno: %d zberr: %d",
               static_cast<int>(socket), nonBlocking ? 1 : 0, wsaError, static_cast<int>(error));
  return nonBlocking ? error : ZBErrorNone;
}

extern "C" bool ZBSocketIsNonBlocking(ZBSocket socket) noexcept {
  return isValid(socket) && ZBSocketTableGetNonBlocking(socket);
}

namespace {

// The steps of a pair after its listener exists. Sockets it makes are
// stored in `accepted` and `connecting` at once, so the caller can close
// whatever exists when a step fails.
ZBError connectPair(ZBSocket listener, int32_t type, uint32_t flags, ZBSocket &accepted,
                    ZBSocket &connecting) {
  static const unsigned char kLoopback[4] = {127, 0, 0, 1};
  sockaddr_storage address;
  uint32_t length = sizeof address;
  auto *record = reinterpret_cast<sockaddr *>(&address);
  if (const ZBError error = ZBSocketAddressInitialize(AF_INET, kLoopback, 4, 0, record, &length))
    return error;
  if (const ZBError error = ZBSocketBind(listener, record, length))
    return error;
  if (zb::gSystemCalls.listen(toSocket(listener), 1) != 0)
    return lastError();
  length = sizeof address;
  if (const ZBError error = ZBSocketGetLocalAddress(listener, record, &length))
    return error;
  if (const ZBError error = ZBSocketCreate(AF_INET, type, 0, flags, &connecting))
    return error;
  if (zb::gSystemCalls.connect(toSocket(connecting), record, static_cast<int>(length)) != 0) {
    const int wsaError = WSAGetLastError();
    // A non-blocking stream pair cannot be made, deliberately.
    return wsaError == WSAEWOULDBLOCK ? ZBErrorInProgress : _ZBSocketErrorFromWSAError(wsaError);
  }
  if ((type | 4) == 5) // stream or sequenced packets
    return ZBSocketAccept(listener, nullptr, nullptr, &accepted);
  return ZBErrorNone;
}

} // namespace

extern "C" ZBError ZBSocketCreatePair(int32_t domain, int32_t type, int32_t, uint32_t flags,
                                      ZBSocket outPair[2]) noexcept {
  if (outPair == nullptr)
    return ZBErrorInvalidArgument;
  ZBSocketInit();
  outPair[0] = outPair[1] = UINT32_MAX;
  if (domain != 1)
    return ZBErrorUnsupported;
  ZBSocket listener = UINT32_MAX;
  if (const ZBError error = ZBSocketCreate(AF_INET, type, 0, flags, &listener))
    return error; // no socket was made
  ZBSocket accepted = UINT32_MAX, connecting = UINT32_MAX;
  const ZBError error = connectPair(listener, type, flags, accepted, connecting);
  closeSocket(listener);
  if (error != ZBErrorNone) {
    for (ZBSocket socket : {accepted, connecting})
      if (isValid(socket))
        closeSocket(socket);
    return error;
  }
  outPair[0] = accepted;
  outPair[1] = connecting;
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketBind(ZBSocket socket, const sockaddr *address,
                                uint32_t addressLength) noexcept {
  if (!isValid(socket))
    return ZBErrorNone; // deliberately not an error here
  if (zb::gSystemCalls.bind(toSocket(socket), address, static_cast<int>(addressLength)) == 0)
    return ZBErrorNone;
  const int wsaError = WSAGetLastError();
  const ZBError error =
      wsaError == WSAEWOULDBLOCK ? ZBErrorResourcesExhausted : _ZBSocketErrorFromWSAError(wsaError);
  char text[64] = "";
  uint16_t family = 0, port = 0;
  if (ZBSocketAddressGetPrintable(address, addressLength, &family, text, sizeof text, &port) != 0)
    text[0] = '\0';
  ZB_LOG_WARNING("Bind error %d/%d (%s) %d/'%s'/%d", wsaError, static_cast<int>(error),
                 describedOrEmpty(error), family, text, port);
  return error;
}

extern "C" ZBError ZBSocketListen(ZBSocket socket, int32_t backlog) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  return zb::gSystemCalls.listen(toSocket(socket), backlog) == 0 ? ZBErrorNone : lastError();
}

extern "C" ZBError ZBSocketGetLocalAddress(ZBSocket socket, sockaddr *outAddress,
                                           uint32_t *inOutLength) noexcept {
  if (const ZBError error =
          queryAddress(socket, outAddress, inOutLength, zb::gSystemCalls.getsockname))
    return error;
  // A wildcard IPv4 address reads as loopback, so callers can connect to it.
  if (outAddress->sa_family == AF_INET) {
    auto *ipv4 = reinterpret_cast<sockaddr_in *>(outAddress);
    if (ipv4->sin_addr.s_addr == htonl(INADDR_ANY))
      ipv4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  }
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketAccept(ZBSocket socket, sockaddr *outAddress, uint32_t *inOutLength,
                                  ZBSocket *outSocket) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  if (outSocket == nullptr)
    return ZBErrorInvalidArgument;
  int length = outAddress != nullptr && inOutLength != nullptr ? static_cast<int>(*inOutLength) : 0;
  const SOCKET accepted = zb::gSystemCalls.accept(toSocket(socket), outAddress,
                                                  outAddress != nullptr ? &length : nullptr);
  if (accepted == INVALID_SOCKET)
    return lastError();
  if (inOutLength != nullptr)
    *inOutLength = static_cast<uint32_t>(length);
  *outSocket = fromSocket(accepted);
  // The new socket inherits any event selection of the listener; drop it.
  if (zb::gSystemCalls.WSAEventSelect(accepted, nullptr, 0) != 0)
    ZB_LOG_ERROR("Couldn't clear WSAEventSelect for new accept socket. Error: %d",
                 WSAGetLastError());
  if (const ZBError error = ZBSocketSetNonBlocking(*outSocket, ZBSocketTableGetNonBlocking(socket)))
    ZB_LOG_WARNING("Error setting non-blocking status on %d, %s", static_cast<int>(*outSocket),
                   ZBErrorGetDescription(error));
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketClose(ZBSocket socket) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  return closeSocket(socket) == 0 ? ZBErrorNone : lastError();
}

extern "C" ZBError ZBSocketDuplicate(ZBSocket socket, bool inheritable,
                                     ZBSocket *outSocket) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  if (outSocket == nullptr)
    return ZBErrorInvalidArgument;
  WSAPROTOCOL_INFOW information;
  // The result itself (0 or -1) is what gets mapped, so every failure to
  // duplicate reads as ZBErrorGeneric; kept so.
  const int result =
      zb::gSystemCalls.WSADuplicateSocketW(toSocket(socket), GetCurrentProcessId(), &information);
  if (result != 0)
    return _ZBSocketDuplicateErrorFromWSAError(result);
  const SOCKET duplicate = zb::gSystemCalls.WSASocketW(
      0, 0, 0, &information, 0, inheritable ? 0 : WSA_FLAG_NO_HANDLE_INHERIT);
  if (duplicate == INVALID_SOCKET)
    return _ZBSocketDuplicateCreateErrorFromWSAError(WSAGetLastError());
  *outSocket = fromSocket(duplicate);
  ZBSocketTableSetNonBlocking(*outSocket, ZBSocketTableGetNonBlocking(socket));
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketShutdown(ZBSocket socket, uint32_t how) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  // Only sending is ever shut down; Winsock's receive shutdown is not
  // relied on.
  if ((how & ZBSocketShutdownSend) == 0)
    return ZBErrorNone;
  return zb::gSystemCalls.shutdown(toSocket(socket), SD_SEND) == 0 ? ZBErrorNone : lastError();
}
