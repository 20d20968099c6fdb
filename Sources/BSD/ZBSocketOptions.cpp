// Socket options: each pair puts or reads one 4-byte value, converting
// booleans, sizes, millisecond timeouts and the linger record to the
// library's units. Which handles a call refuses before reaching Winsock
// differs from pair to pair, and is kept so: the handle test is part of
// each row below.
#include "ZBSocket.h"

#include "ZBLog.h"
#include "ZBSocketPrivate.h"

using namespace zb::sockets;

namespace {

constexpr uint32_t kNanosecondsPerMillisecond = 1000000;

// Which handles a call refuses with ZBErrorInvalidHandle.
enum class HandleTest { None, AllOnes, ZeroOrAllOnes };

bool refused(ZBSocket socket, HandleTest test) {
  switch (test) {
  case HandleTest::None: return false;
  case HandleTest::AllOnes: return socket == UINT32_MAX;
  case HandleTest::ZeroOrAllOnes: return !isValid(socket);
  }
  return false;
}

ZBError setOption(ZBSocket socket, HandleTest test, int level, int name, int value) {
  if (refused(socket, test))
    return ZBErrorInvalidHandle;
  return setIntOption(socket, level, name, value) == 0 ? ZBErrorNone : lastError();
}

template <typename Value, typename Convert>
ZBError getOption(ZBSocket socket, HandleTest test, int level, int name, Value *out,
                  Convert convert) {
  if (refused(socket, test))
    return ZBErrorInvalidHandle;
  if (out == nullptr)
    return ZBErrorInvalidArgument;
  int value = 0;
  if (getIntOption(socket, level, name, value) != 0)
    return lastError();
  *out = convert(value);
  return ZBErrorNone;
}

ZBError getBool(ZBSocket socket, HandleTest test, int level, int name, bool *out) {
  return getOption(socket, test, level, name, out, [](int value) { return value != 0; });
}

ZBError setSize(ZBSocket socket, HandleTest test, int name, int32_t size) {
  if (refused(socket, test))
    return ZBErrorInvalidHandle;
  if (size < 0)
    return ZBErrorInvalidArgument;
  return setOption(socket, test, SOL_SOCKET, name, size);
}

ZBError getSize(ZBSocket socket, HandleTest test, int name, int32_t *out) {
  return getOption(socket, test, SOL_SOCKET, name, out, [](int value) { return value; });
}

// Nanoseconds to Winsock's milliseconds: truncated, then kept to 32 bits.
ZBError setTimeout(ZBSocket socket, int name, int64_t nanoseconds) {
  const auto milliseconds = static_cast<uint32_t>(
      static_cast<int64_t>(static_cast<double>(nanoseconds) / kNanosecondsPerMillisecond));
  return setOption(socket, HandleTest::ZeroOrAllOnes, SOL_SOCKET, name,
                   static_cast<int>(milliseconds));
}

ZBError getTimeout(ZBSocket socket, int name, int64_t *out) {
  return getOption(socket, HandleTest::ZeroOrAllOnes, SOL_SOCKET, name, out, [](int value) {
    return static_cast<int64_t>(static_cast<double>(static_cast<uint32_t>(value)) *
                                kNanosecondsPerMillisecond);
  });
}

} // namespace

extern "C" ZBError ZBSocketSetReuseAddress(ZBSocket socket, bool value) noexcept {
  return setOption(socket, HandleTest::ZeroOrAllOnes, SOL_SOCKET, SO_REUSEADDR, value);
}
extern "C" ZBError ZBSocketGetReuseAddress(ZBSocket socket, bool *outValue) noexcept {
  return getBool(socket, HandleTest::ZeroOrAllOnes, SOL_SOCKET, SO_REUSEADDR, outValue);
}

extern "C" ZBError ZBSocketSetReusePort(ZBSocket, bool) noexcept { return ZBErrorNone; }
extern "C" ZBError ZBSocketGetReusePort(ZBSocket, bool *) noexcept { return ZBErrorUnsupported; }

extern "C" ZBError ZBSocketSetKeepAlive(ZBSocket socket, bool value) noexcept {
  return setOption(socket, HandleTest::None, SOL_SOCKET, SO_KEEPALIVE, value);
}
extern "C" bool ZBSocketHasKeepAlive(ZBSocket socket) noexcept {
  int value = 0;
  if (getIntOption(socket, SOL_SOCKET, SO_KEEPALIVE, value) == 0)
    return value != 0;
  ZB_LOG_ERROR("sock_errno = %d", WSAGetLastError());
  return false;
}

extern "C" ZBError ZBSocketSetLinger(ZBSocket socket, int64_t nanoseconds) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  linger value = {0, 0};
  if (nanoseconds >= 0) {
    // Rounded up to milliseconds (-1 when that overflows 32 bits), then up
    // to whole seconds kept to 16 bits.
    const uint64_t rounded = (static_cast<uint64_t>(nanoseconds) + kNanosecondsPerMillisecond - 1) /
                             kNanosecondsPerMillisecond;
    const int32_t milliseconds = rounded > INT32_MAX ? -1 : static_cast<int32_t>(rounded);
    int32_t seconds = (milliseconds + 999) / 1000;
    if (nanoseconds != 0 && milliseconds == 0)
      seconds = 1;
    value = {1, static_cast<u_short>(seconds)};
  }
  if (zb::gSystemCalls.setsockopt(toSocket(socket), SOL_SOCKET, SO_LINGER,
                                  reinterpret_cast<const char *>(&value), sizeof value) != 0)
    return lastError();
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketGetLinger(ZBSocket socket, int64_t *outNanoseconds) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  if (outNanoseconds == nullptr)
    return ZBErrorInvalidArgument;
  linger value = {0, 0};
  int length = sizeof value;
  if (zb::gSystemCalls.getsockopt(toSocket(socket), SOL_SOCKET, SO_LINGER,
                                  reinterpret_cast<char *>(&value), &length) != 0)
    return lastError();
  // Computed in 32 bits, so lingers of 5 s and more wrap; kept so.
  *outNanoseconds = value.l_onoff == 0
                        ? -1
                        : static_cast<int64_t>(static_cast<uint32_t>(value.l_linger * 1000000000u));
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketSetSendBufferSize(ZBSocket socket, int32_t size) noexcept {
  return setSize(socket, HandleTest::ZeroOrAllOnes, SO_SNDBUF, size);
}
extern "C" ZBError ZBSocketGetSendBufferSize(ZBSocket socket, int32_t *outSize) noexcept {
  return getSize(socket, HandleTest::AllOnes, SO_SNDBUF, outSize);
}
extern "C" ZBError ZBSocketSetReceiveBufferSize(ZBSocket socket, int32_t size) noexcept {
  return setSize(socket, HandleTest::ZeroOrAllOnes, SO_RCVBUF, size);
}
extern "C" ZBError ZBSocketGetReceiveBufferSize(ZBSocket socket, int32_t *outSize) noexcept {
  return getSize(socket, HandleTest::ZeroOrAllOnes, SO_RCVBUF, outSize);
}
extern "C" ZBError ZBSocketSetSendLowWatermark(ZBSocket socket, int32_t size) noexcept {
  return setSize(socket, HandleTest::ZeroOrAllOnes, SO_SNDLOWAT, size);
}
extern "C" ZBError ZBSocketGetSendLowWatermark(ZBSocket socket, int32_t *outSize) noexcept {
  return getSize(socket, HandleTest::ZeroOrAllOnes, SO_SNDLOWAT, outSize);
}
extern "C" ZBError ZBSocketSetReceiveLowWatermark(ZBSocket socket, int32_t size) noexcept {
  return setSize(socket, HandleTest::ZeroOrAllOnes, SO_RCVLOWAT, size);
}
extern "C" ZBError ZBSocketGetReceiveLowWatermark(ZBSocket socket, int32_t *outSize) noexcept {
  return getSize(socket, HandleTest::ZeroOrAllOnes, SO_RCVLOWAT, outSize);
}

extern "C" ZBError ZBSocketSetSendTimeout(ZBSocket socket, int64_t nanoseconds) noexcept {
  return setTimeout(socket, SO_SNDTIMEO, nanoseconds);
}
extern "C" ZBError ZBSocketGetSendTimeout(ZBSocket socket, int64_t *outNanoseconds) noexcept {
  return getTimeout(socket, SO_SNDTIMEO, outNanoseconds);
}
extern "C" ZBError ZBSocketSetReceiveTimeout(ZBSocket socket, int64_t nanoseconds) noexcept {
  return setTimeout(socket, SO_RCVTIMEO, nanoseconds);
}
extern "C" ZBError ZBSocketGetReceiveTimeout(ZBSocket socket, int64_t *outNanoseconds) noexcept {
  return getTimeout(socket, SO_RCVTIMEO, outNanoseconds);
}

extern "C" ZBError ZBSocketSetNoDelay(ZBSocket socket, bool value) noexcept {
  return setOption(socket, HandleTest::None, IPPROTO_TCP, TCP_NODELAY, value);
}
extern "C" ZBError ZBSocketGetNoDelay(ZBSocket socket, bool *outValue) noexcept {
  return getBool(socket, HandleTest::None, IPPROTO_TCP, TCP_NODELAY, outValue);
}

extern "C" ZBError ZBSocketSetIPv6Only(ZBSocket socket, bool value) noexcept {
  return setOption(socket, HandleTest::None, IPPROTO_IPV6, IPV6_V6ONLY, value);
}

extern "C" ZBError ZBSocketSetUseSIGPIPE(ZBSocket, bool value) noexcept {
  return value ? ZBErrorUnsupported : ZBErrorNone;
}
extern "C" bool ZBSocketGetUseSIGPIPE(ZBSocket) noexcept { return false; }

extern "C" ZBError ZBSocketGetNonWrittenBufferSize(ZBSocket, uint32_t *) noexcept {
  return ZBErrorUnsupported;
}
