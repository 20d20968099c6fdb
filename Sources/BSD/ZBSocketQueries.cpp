// Questions about a socket: readiness (poll over select, with its exact
// timeout rules), bytes waiting, the pending error, the type, the peer's
// address and whether it listens.
#include "ZBSocket.h"

#include "ZBSocketPrivate.h"

#include <cmath>

using namespace zb::sockets;

namespace {

constexpr int64_t kNanosecondsPerSecond = 1000000000;

// Seconds to nanoseconds, truncated toward zero; beyond the 64-bit range
// the value saturates.
int64_t timeoutNanoseconds(double seconds) {
  const double nanoseconds = seconds * 1e9;
  if (nanoseconds >= 9223372036854775807.0)
    return INT64_MAX;
  if (nanoseconds <= -9223372036854775808.0)
    return INT64_MIN;
  return static_cast<int64_t>(nanoseconds);
}

// The select timeout, or null to wait for ever (negative, or more seconds
// than 32 bits hold). A positive timeout under a microsecond waits one
// microsecond rather than none.
timeval *selectTimeout(int64_t nanoseconds, timeval &storage) {
  if (nanoseconds < 0)
    return nullptr;
  const int64_t seconds = nanoseconds / kNanosecondsPerSecond;
  if (seconds > INT32_MAX)
    return nullptr;
  int64_t microseconds = (nanoseconds - seconds * kNanosecondsPerSecond) / 1000;
  if (seconds == 0 && nanoseconds >= 1 && microseconds == 0)
    microseconds = 1;
  storage.tv_sec = static_cast<long>(seconds);
  storage.tv_usec = static_cast<long>(microseconds);
  return &storage;
}

} // namespace

extern "C" ZBError ZBSocketPoll(ZBSocket socket, uint32_t events, uint8_t *outEvents,
                                double timeout) noexcept {
  if (std::isnan(timeout))
    return ZBErrorInvalidArgument;
  const int64_t nanoseconds = timeoutNanoseconds(timeout);
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  if (outEvents == nullptr)
    return ZBErrorInvalidArgument;
  *outEvents = 0;
  if (events == 0)
    return ZBErrorNone;
  const SOCKET handle = toSocket(socket);
  const bool reading = (events & ZBSocketPollReadable) != 0;
  const bool writing = (events & ZBSocketPollWritable) != 0;
  fd_set readSet, writeSet;
  FD_ZERO(&readSet);
  FD_ZERO(&writeSet);
  if (reading)
    FD_SET(handle, &readSet);
  if (writing)
    FD_SET(handle, &writeSet);
  // The exceptional condition is not watched on its own: the read set
  // serves as the exception set, so a readable socket also reads as 16,
  // and with writing alone the exception set is empty.
  fd_set *exceptSet = reading || writing ? &readSet : nullptr;
  timeval storage;
  timeval *wait = selectTimeout(nanoseconds, storage);
  const int ready =
      zb::gSystemCalls.select(static_cast<int>(socket + 1), reading ? &readSet : nullptr,
                              writing ? &writeSet : nullptr, exceptSet, wait);
  if (ready == SOCKET_ERROR)
    return lastError();
  if (ready == 0)
    return wait != nullptr ? ZBErrorTimedOut : ZBErrorGeneric;
  uint8_t found = 0;
  if (reading && FD_ISSET(handle, &readSet))
    found |= ZBSocketPollReadable;
  if (writing && FD_ISSET(handle, &writeSet))
    found |= ZBSocketPollWritable;
  if (exceptSet != nullptr && FD_ISSET(handle, exceptSet))
    found |= ZBSocketPollError;
  // Readability alone, with bytes waiting, reads as plain 1. The byte
  // count is asked once select has found the socket readable rather than
  // before it: an idle socket then costs one system call instead of two,
  // and the answers are those of asking first (no bytes means the wait
  // decides; bytes mean readable at once).
  if (events == ZBSocketPollReadable && (found & ZBSocketPollReadable)) {
    u_long waiting = 0;
    if (zb::gSystemCalls.ioctlsocket(handle, FIONREAD, &waiting) == 0 && waiting > 0)
      found = ZBSocketPollReadable;
  }
  *outEvents = found;
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketGetPendingBytesCount(ZBSocket socket, uint32_t *outCount) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  if (outCount == nullptr)
    return ZBErrorInvalidArgument;
  *outCount = 0;
  u_long waiting = 0;
  if (zb::gSystemCalls.ioctlsocket(toSocket(socket), FIONREAD, &waiting) != 0)
    return lastError();
  *outCount = static_cast<uint32_t>(waiting);
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketGetAndClearError(ZBSocket socket, ZBError *outError) noexcept {
  if (outError == nullptr)
    return ZBErrorInvalidArgument;
  *outError = ZBErrorNone;
  int pending = 0;
  if (getIntOption(socket, SOL_SOCKET, SO_ERROR, pending) != 0)
    return lastError();
  *outError = pending != 0 ? _ZBSocketErrorFromWSAError(pending) : ZBErrorNone;
  return ZBErrorNone;
}

extern "C" int32_t ZBSocketGetType(ZBSocket socket) noexcept {
  if (!isValid(socket))
    return ZBErrorInvalidHandle;
  int type = 0;
  return getIntOption(socket, SOL_SOCKET, SO_TYPE, type) == 0 ? type : lastError();
}

extern "C" ZBError ZBSocketGetRemoteAddress(ZBSocket socket, sockaddr *outAddress,
                                            uint32_t *inOutLength) noexcept {
  return queryAddress(socket, outAddress, inOutLength, zb::gSystemCalls.getpeername);
}

extern "C" bool ZBSocketIsListening(ZBSocket socket) noexcept {
  int listening = 0;
  return isValid(socket) && getIntOption(socket, SOL_SOCKET, SO_ACCEPTCONN, listening) == 0 &&
         listening != 0;
}
