// Connect, and connect-with-data over the ConnectEx extension with TCP fast
// open, with the table of overlapped operations still pending on sockets.
//
// A ConnectEx that goes on in the background leaves a record (64 chains
// keyed by handle & 63 under their own spin lock). While it exists every
// transfer answers ZBErrorWouldBlock; the caller polls for writability and
// then settles the record with ZBSocketProcessPendingConnectOp, or a close
// cancels it. Where the system has no ConnectEx or refuses fast open (Wine
// does both) connect-with-data answers ZBErrorUnsupported and the caller
// falls back to connect and send.
#include "ZBSocket.h"

#include "ZBAlloc.h"
#include "ZBLog.h"
#include "ZBScopedLock.h"
#include "ZBSocketChains.h"
#include "ZBSocketAddress.h"
#include "ZBSocketPrivate.h"

#include <atomic>

using namespace zb::sockets;

namespace {

constexpr uint32_t kOperationConnect = 1;
constexpr uint32_t kMaximumFastOpenData = 1024;
constexpr WORD kFastOpenVersion = 0x0202;
constexpr int kTCPFastOpen = 15;
constexpr DWORD kCancelWaitMilliseconds = 100;

struct ZBSocketPendingOp {
  uint32_t socket;
  OVERLAPPED *overlapped;
  uint32_t type;
  uint32_t expected;
  ZBSocketPendingOp *next;
};

SocketChains<ZBSocketPendingOp> gPending;
// How many records the table holds, changed under its lock. Every transfer
// and every close asks about its socket, and records are rare (only a
// connect with data makes one), so an empty table is seen without the lock.
std::atomic<uint32_t> gPendingCount{0};
// Set once when a connect with data was refused for want of fast open.
std::atomic<int32_t> gFastOpenRefused{0};

void addPendingOp(ZBSocket socket, OVERLAPPED *overlapped, uint32_t expected) {
  zb::ScopedLock<ZBSpinLock> hold(gPending.lock());
  auto *record = static_cast<ZBSocketPendingOp *>(
      _ZBAllocWithZoneAndDesc(nullptr, sizeof(ZBSocketPendingOp), "ZBSocketAddPendingIOOps"));
  if (record == nullptr)
    return; // without memory the operation goes untracked
  *record = {socket, overlapped, kOperationConnect, expected, nullptr};
  gPending.push(record);
  gPendingCount.fetch_add(1, std::memory_order_release);
}

ZBSocketPendingOp *takePendingOp(ZBSocket socket) {
  if (gPendingCount.load(std::memory_order_acquire) == 0)
    return nullptr;
  zb::ScopedLock<ZBSpinLock> hold(gPending.lock());
  ZBSocketPendingOp *record = gPending.unlink(socket);
  if (record != nullptr)
    gPendingCount.fetch_sub(1, std::memory_order_relaxed);
  return record;
}

OVERLAPPED *newOverlapped() {
  return static_cast<OVERLAPPED *>(
      _ZBAllocWithZoneCountAndDesc(nullptr, 1, sizeof(OVERLAPPED), "_ZBSocketConnectEx"));
}

int updateConnectContext(ZBSocket socket) {
  return zb::gSystemCalls.setsockopt(toSocket(socket), SOL_SOCKET, SO_UPDATE_CONNECT_CONTEXT,
                                     nullptr, 0);
}

ZBError plainConnect(ZBSocket socket, const sockaddr *address, uint32_t addressLength) {
  if (zb::gSystemCalls.connect(toSocket(socket), address, static_cast<int>(addressLength)) == 0)
    return ZBErrorNone;
  const int wsaError = WSAGetLastError();
  return wsaError == WSAEWOULDBLOCK ? ZBErrorInProgress : _ZBSocketErrorFromWSAError(wsaError);
}

// Fast open on, read back as on.
bool enableFastOpen(ZBSocket socket) {
  int value = 0;
  return setIntOption(socket, IPPROTO_TCP, kTCPFastOpen, 1) == 0 &&
         getIntOption(socket, IPPROTO_TCP, kTCPFastOpen, value) == 0 && value == 1;
}

// ConnectEx wants a bound socket: keep its address, or bind the wildcard.
bool ensureBound(ZBSocket socket, const sockaddr *destination) {
  sockaddr_storage local;
  uint32_t length = 256;
  if (ZBSocketGetLocalAddress(socket, reinterpret_cast<sockaddr *>(&local), &length) == 0)
    return true;
  length = sizeof local;
  return ZBSocketAddressInitialize(destination->sa_family, nullptr, 0, 0,
                                   reinterpret_cast<sockaddr *>(&local), &length) == 0 &&
         ZBSocketBind(socket, reinterpret_cast<sockaddr *>(&local), length) == 0;
}

} // namespace

namespace zb::sockets {

bool hasPendingOp(ZBSocket socket) noexcept {
  if (gPendingCount.load(std::memory_order_acquire) == 0)
    return false;
  zb::ScopedLock<ZBSpinLock> hold(gPending.lock());
  const ZBSocketPendingOp *record = gPending.find(socket);
  return record != nullptr && record->type == kOperationConnect;
}

void clearPendingIOOps(ZBSocket socket) noexcept {
  ZBSocketPendingOp *record = takePendingOp(socket);
  if (record == nullptr)
    return;
  const HANDLE handle = reinterpret_cast<HANDLE>(toSocket(socket));
  DWORD transferred = 0;
  bool settled = true;
  if (!zb::gSystemCalls.GetOverlappedResultEx(handle, record->overlapped, &transferred, 0, FALSE) &&
      GetLastError() == ERROR_IO_INCOMPLETE) {
    if (zb::gSystemCalls.CancelIoEx(handle, record->overlapped))
      settled = zb::gSystemCalls.GetOverlappedResultEx(handle, record->overlapped, &transferred,
                                                       kCancelWaitMilliseconds, FALSE) ||
                GetLastError() == ERROR_OPERATION_ABORTED;
    else
      settled = GetLastError() == ERROR_NOT_FOUND;
  }
  if (settled)
    _ZBFreeWithZone(nullptr, record->overlapped);
  else // the kernel may still write to it
    ZB_LOG_WARNING("Failed cancelling pending io operation, OVERLAPPED is leaked.");
  _ZBFreeWithZone(nullptr, record);
}

} // namespace zb::sockets

extern "C" ZBError ZBSocketConnect(ZBSocket socket, const sockaddr *address,
                                   uint32_t addressLength) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  return plainConnect(socket, address, addressLength);
}

extern "C" ZBError ZBSocketConnectWithData(ZBSocket socket, const sockaddr *address,
                                           uint32_t addressLength, const void *data,
                                           uint32_t dataLength, uint32_t,
                                           uint32_t *outSent) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  if (outSent != nullptr)
    *outSent = 0;
  if (dataLength == 0)
    return plainConnect(socket, address, addressLength);
  const LPFN_CONNECTEX connectEx = connectExtension();
  const bool usable = connectEx != nullptr && dataLength <= kMaximumFastOpenData &&
                      startupData().wVersion >= kFastOpenVersion && data != nullptr &&
                      address != nullptr && enableFastOpen(socket) && ensureBound(socket, address);
  if (!usable) {
    int32_t expected = 0;
    gFastOpenRefused.compare_exchange_strong(expected, 1);
    return ZBErrorUnsupported;
  }
  OVERLAPPED *overlapped = newOverlapped();
  if (overlapped == nullptr)
    return ZBErrorNoMemory;
  DWORD sent = 0;
  if (connectEx(toSocket(socket), address, static_cast<int>(addressLength),
                const_cast<void *>(data), dataLength, &sent, overlapped)) {
    _ZBFreeWithZone(nullptr, overlapped);
    if (outSent != nullptr)
      *outSent = sent;
    updateConnectContext(socket);
    return ZBErrorNone;
  }
  const int wsaError = WSAGetLastError();
  if (wsaError == ERROR_IO_PENDING) {
    addPendingOp(socket, overlapped, dataLength);
    if (outSent != nullptr)
      *outSent = dataLength;
    return ZBErrorNone;
  }
  _ZBFreeWithZone(nullptr, overlapped);
  return _ZBSocketConnectErrorFromWSAError(wsaError);
}

extern "C" bool ZBSocketIsTCPFastOpenSupported(void) noexcept { return false; }

extern "C" bool ZBSocketHasPendingConnectOp(ZBSocket socket) noexcept {
  return hasPendingOp(socket);
}

extern "C" bool ZBSocketProcessPendingConnectOp(ZBSocket socket) noexcept {
  ZBSocketPendingOp *record = takePendingOp(socket);
  if (record == nullptr)
    return true;
  DWORD transferred = 0;
  zb::gSystemCalls.GetOverlappedResultEx(reinterpret_cast<HANDLE>(toSocket(socket)),
                                         record->overlapped, &transferred, 0, FALSE);
  const bool complete = transferred == record->expected;
  if (complete)
    updateConnectContext(socket);
  else
    ZB_LOG_ERROR("ConnectEx is completed, but not all data was written!");
  _ZBFreeWithZone(nullptr, record->overlapped);
  _ZBFreeWithZone(nullptr, record);
  return complete;
}
