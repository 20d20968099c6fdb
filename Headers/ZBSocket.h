/*
 * ZBSocket.h: BSD-style sockets over Winsock.
 *
 * A socket is the Winsock handle itself, passed as an unsigned 32-bit value;
 * 0 and all-ones are invalid. A side table remembers what Winsock cannot
 * report (above all the non-blocking mode). Every socket is closed with
 * ZBSocketClose so its table entry and pending operations go with it.
 *
 * Addresses are Winsock socket-address records (IPv4: 16 bytes, family 2;
 * IPv6: 28 bytes, family 23), see ZBSocketAddress.h.
 */
#ifndef ZENBOR_ZBSOCKET_H
#define ZENBOR_ZBSOCKET_H

#include "ZBError.h"

ZB_EXTERN_C_BEGIN

struct sockaddr;

/** A socket handle: the Winsock handle value. */
typedef uint32_t ZBSocket;

/** ZBSocketCreate flag: create the socket in non-blocking mode. */
#define ZBSocketCreateNonBlocking 1u

/** Receive flag: peek (MSG_PEEK). */
#define ZBSocketReceivePeek 1
/** Receive flag: out-of-band data (MSG_OOB). */
#define ZBSocketReceiveOutOfBand 2
/** Send flag: out-of-band data (MSG_OOB). */
#define ZBSocketSendOutOfBand 1
/** Send flag: do not route (MSG_DONTROUTE). */
#define ZBSocketSendDontRoute 2

/** Poll event: readable. */
#define ZBSocketPollReadable 1u
/** Poll event: writable. */
#define ZBSocketPollWritable 2u
/** Poll event (output only): exceptional condition. */
#define ZBSocketPollError 16u

/** ZBSocketShutdown: shut down the sending direction. */
#define ZBSocketShutdownSend 1u

/** One scatter/gather element, in POSIX order. */
typedef struct ZBSocketIOVector {
  void *base;      /**< The bytes. */
  uint32_t length; /**< Their count. */
} ZBSocketIOVector;

/** A message header, in POSIX order. Only the vector is used. */
typedef struct ZBSocketMessage {
  void *address;            /**< Ignored. */
  uint32_t addressLength;   /**< Ignored. */
  ZBSocketIOVector *vector; /**< The buffers. */
  uint32_t vectorCount;     /**< Their count. */
  void *control;            /**< Ignored. */
  uint32_t controlLength;   /**< Set to 0 on receive. */
  int32_t flags;            /**< Ignored. */
} ZBSocketMessage;

/* ---- Start-up and lifecycle -------------------------------------------- */

/** Starts Winsock once per process (aborts when no version can be started).
    @return non-zero on success. */
ZB_EXPORT int32_t ZBSocketInit(void) ZB_NOEXCEPT;

/** Creates a socket; protocol 0 picks TCP or UDP for IPv4/IPv6 stream and
    datagram types. Flag ZBSocketCreateNonBlocking makes it non-blocking (a
    failure to do so is logged, not reported). The handle is stored in
    `outSocket` whatever the outcome.
    @return 0, or the mapped Winsock error. */
ZB_EXPORT ZBError ZBSocketCreate(int32_t domain, int32_t type, int32_t protocol, uint32_t flags,
                                 ZBSocket *outSocket) ZB_NOEXCEPT;

/** Switches non-blocking mode and records the requested state in the table.
    @return 0; ZBErrorInvalidHandle; the mapped error when enabling fails
    (a failure to disable is logged and answers 0). */
ZB_EXPORT ZBError ZBSocketSetNonBlocking(ZBSocket socket, bool nonBlocking) ZB_NOEXCEPT;

/** Whether the table records the socket as non-blocking; false for an
    invalid handle or an unknown socket. */
ZB_EXPORT bool ZBSocketIsNonBlocking(ZBSocket socket) ZB_NOEXCEPT;

/** A connected pair over IPv4 loopback; domain must be 1 (local). Slot 0
    gets the accepted socket (all-ones for non-stream types), slot 1 the
    connecting one. A non-blocking stream pair cannot be made.
    @return 0; ZBErrorUnsupported (other domain, datagram types);
    ZBErrorInProgress (non-blocking stream); errors of the steps. */
ZB_EXPORT ZBError ZBSocketCreatePair(int32_t domain, int32_t type, int32_t protocol, uint32_t flags,
                                     ZBSocket outPair[2]) ZB_NOEXCEPT;

/** Binds the socket. An invalid handle answers 0 without binding.
    @return 0; ZBErrorResourcesExhausted (WSAEWOULDBLOCK); mapped error. */
ZB_EXPORT ZBError ZBSocketBind(ZBSocket socket, const struct sockaddr *address,
                               uint32_t addressLength) ZB_NOEXCEPT;

/** Listens; the table's listening flag is not touched.
    @return 0; ZBErrorInvalidHandle; mapped error. */
ZB_EXPORT ZBError ZBSocketListen(ZBSocket socket, int32_t backlog) ZB_NOEXCEPT;

/** The bound address; an IPv4 wildcard reads as 127.0.0.1.
    @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument (null
    pointers); mapped error. */
ZB_EXPORT ZBError ZBSocketGetLocalAddress(ZBSocket socket, struct sockaddr *outAddress,
                                          uint32_t *inOutLength) ZB_NOEXCEPT;

/** Accepts a connection; the new socket inherits the listener's
    non-blocking state from the table. Address and length may be null.
    @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument (no out
    socket); mapped error. */
ZB_EXPORT ZBError ZBSocketAccept(ZBSocket socket, struct sockaddr *outAddress,
                                 uint32_t *inOutLength, ZBSocket *outSocket) ZB_NOEXCEPT;

/** Removes the table entry, settles pending operations and closes.
    @return 0; ZBErrorInvalidHandle; mapped error. */
ZB_EXPORT ZBError ZBSocketClose(ZBSocket socket) ZB_NOEXCEPT;

/** Duplicates the socket in this process; the table's non-blocking flag
    is copied. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument;
    ZBErrorGeneric (every failure to duplicate); the errors of re-creating
    the socket (ZBErrorNotSocket, ZBErrorFamilyUnsupported, ...). */
ZB_EXPORT ZBError ZBSocketDuplicate(ZBSocket socket, bool inheritable,
                                    ZBSocket *outSocket) ZB_NOEXCEPT;

/** Shuts down sending when bit 0 of `how` is set; otherwise does nothing.
    The receive direction is never shut down.
    @return 0; ZBErrorInvalidHandle; mapped error. */
ZB_EXPORT ZBError ZBSocketShutdown(ZBSocket socket, uint32_t how) ZB_NOEXCEPT;

/* ---- The socket table -------------------------------------------------- */

/** The table's non-blocking flag; false when the socket has no entry. */
ZB_EXPORT bool ZBSocketTableGetNonBlocking(ZBSocket socket) ZB_NOEXCEPT;
/** Sets or clears the non-blocking flag, creating the entry if absent. */
ZB_EXPORT void ZBSocketTableSetNonBlocking(ZBSocket socket, bool value) ZB_NOEXCEPT;
/** The table's listening flag; false when the socket has no entry. */
ZB_EXPORT bool ZBSocketTableGetIsListening(ZBSocket socket) ZB_NOEXCEPT;
/** Sets or clears the listening flag, creating the entry if absent. */
ZB_EXPORT void ZBSocketTableSetIsListening(ZBSocket socket, bool value) ZB_NOEXCEPT;
/** The table's random-device flag; false when the socket has no entry. */
ZB_EXPORT bool ZBSocketTableGetIsEmulatedDevUrandom(ZBSocket socket) ZB_NOEXCEPT;
/** Sets or clears the random-device flag, creating the entry if absent. */
ZB_EXPORT void ZBSocketTableSetIsEmulatedDevUrandom(ZBSocket socket, bool value) ZB_NOEXCEPT;
/** Removes and frees the socket's entry; an unknown socket is ignored. */
ZB_EXPORT void ZBSocketTableRemove(ZBSocket socket) ZB_NOEXCEPT;

/* ---- Transfer ---------------------------------------------------------- */
/* Every transfer answers ZBErrorInvalidHandle for an invalid handle and
   ZBErrorWouldBlock while a connect with data is still pending. */

/** Receives up to `length` bytes (flags: peek, out-of-band); the count is
    stored in `outCount` (0 first; may be null). Length 0 returns 0.
    @return 0; ZBErrorInvalidHandle; ZBErrorWouldBlock; mapped error. */
ZB_EXPORT ZBError ZBSocketReceive(ZBSocket socket, void *buffer, uint32_t length, int32_t flags,
                                  uint32_t *outCount) ZB_NOEXCEPT;
/** Sends up to `length` bytes (flags: out-of-band, don't route).
    @return 0; ZBErrorInvalidHandle; ZBErrorWouldBlock; mapped error. */
ZB_EXPORT ZBError ZBSocketSend(ZBSocket socket, const void *buffer, uint32_t length, int32_t flags,
                               uint32_t *outCount) ZB_NOEXCEPT;
/** Receives with the sender's address; the address length is written back.
    @return 0; ZBErrorInvalidHandle; ZBErrorWouldBlock; mapped error. */
ZB_EXPORT ZBError ZBSocketReceiveFrom(ZBSocket socket, void *buffer, uint32_t length, int32_t flags,
                                      struct sockaddr *outAddress, uint32_t *inOutAddressLength,
                                      uint32_t *outCount) ZB_NOEXCEPT;
/** Sends to an address. Length 0 returns 0 before `outCount` is touched.
    @return 0; ZBErrorInvalidHandle; ZBErrorWouldBlock; mapped error. */
ZB_EXPORT ZBError ZBSocketSendTo(ZBSocket socket, const void *buffer, uint32_t length,
                                 int32_t flags, const struct sockaddr *address,
                                 uint32_t addressLength, uint32_t *outCount) ZB_NOEXCEPT;
/** Receives into the header's vector; its control length is set to 0
    first (no ancillary data is returned) and the address is not filled.
    @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument (no header);
    ZBErrorNoMemory; ZBErrorWouldBlock; mapped error. */
ZB_EXPORT ZBError ZBSocketReceiveMessage(ZBSocket socket, ZBSocketMessage *message, int32_t flags,
                                         uint32_t *outCount) ZB_NOEXCEPT;
/** ZBSocketSendMany over the header's vector; address and control ignored.
    @return as ZBSocketSendMany; ZBErrorInvalidArgument (no header). */
ZB_EXPORT ZBError ZBSocketSendMessage(ZBSocket socket, const ZBSocketMessage *message,
                                      int32_t flags, uint32_t *outCount) ZB_NOEXCEPT;
/** Sends a vector of buffers; a count of 0 still reaches Winsock.
    @return 0; ZBErrorInvalidHandle; ZBErrorNoMemory; ZBErrorWouldBlock;
    mapped error. */
ZB_EXPORT ZBError ZBSocketSendMany(ZBSocket socket, uint32_t count, const ZBSocketIOVector *vector,
                                   int32_t flags, uint32_t *outCount) ZB_NOEXCEPT;

/* ---- Connect ----------------------------------------------------------- */

/** Connects. @return 0; ZBErrorInvalidHandle; ZBErrorInProgress
    (non-blocking connect under way); mapped error. */
ZB_EXPORT ZBError ZBSocketConnect(ZBSocket socket, const struct sockaddr *address,
                                  uint32_t addressLength) ZB_NOEXCEPT;
/** Connects and sends up to 1024 bytes in one step over TCP fast open when
    the system offers it; `flags` is ignored. Without data it is a plain
    connect. @return 0; ZBErrorInvalidHandle; ZBErrorInProgress;
    ZBErrorUnsupported (no fast open: connect and send instead); the
    connect-specific mapped errors. */
ZB_EXPORT ZBError ZBSocketConnectWithData(ZBSocket socket, const struct sockaddr *address,
                                          uint32_t addressLength, const void *data,
                                          uint32_t dataLength, uint32_t flags,
                                          uint32_t *outSent) ZB_NOEXCEPT;
/** Always false. */
ZB_EXPORT bool ZBSocketIsTCPFastOpenSupported(void) ZB_NOEXCEPT;
/** Whether a connect with data is still pending on the socket. */
ZB_EXPORT bool ZBSocketHasPendingConnectOp(ZBSocket socket) ZB_NOEXCEPT;
/** Settles a pending connect once the socket is writable: true when there
    was none or all its data went out, false (logged) otherwise. */
ZB_EXPORT bool ZBSocketProcessPendingConnectOp(ZBSocket socket) ZB_NOEXCEPT;

/* ---- Queries ----------------------------------------------------------- */

/** Waits up to `timeout` seconds (negative: for ever) for the requested
    events (readable 1, writable 2); `outEvents` receives 1, 2 and 16.
    @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument (no out, or a
    timeout that is not a number);
    ZBErrorTimedOut; ZBErrorGeneric (an endless wait that ended empty);
    mapped error. */
ZB_EXPORT ZBError ZBSocketPoll(ZBSocket socket, uint32_t events, uint8_t *outEvents,
                               double timeout) ZB_NOEXCEPT;
/** Bytes ready to read. @return 0; ZBErrorInvalidHandle;
    ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketGetPendingBytesCount(ZBSocket socket, uint32_t *outCount) ZB_NOEXCEPT;
/** Reads the socket's pending error as a code (0 if none) into `outError`.
    @return 0; ZBErrorInvalidArgument; the mapped failure of the query. */
ZB_EXPORT ZBError ZBSocketGetAndClearError(ZBSocket socket, ZBError *outError) ZB_NOEXCEPT;
/** The socket type (positive), or ZBErrorInvalidHandle or a mapped error. */
ZB_EXPORT int32_t ZBSocketGetType(ZBSocket socket) ZB_NOEXCEPT;
/** The peer's address. @return 0; ZBErrorInvalidHandle;
    ZBErrorInvalidArgument; mapped error (ZBErrorNotConnected ...). */
ZB_EXPORT ZBError ZBSocketGetRemoteAddress(ZBSocket socket, struct sockaddr *outAddress,
                                           uint32_t *inOutLength) ZB_NOEXCEPT;
/** Whether the socket listens (asks the system); false on any failure. */
ZB_EXPORT bool ZBSocketIsListening(ZBSocket socket) ZB_NOEXCEPT;

/* ---- Options ----------------------------------------------------------- */
/* Setters and getters answer 0, ZBErrorInvalidHandle where the handle is
   checked, ZBErrorInvalidArgument for a null out pointer, or the mapped
   Winsock error. Times are nanoseconds. */

/** SO_REUSEADDR. @return 0; ZBErrorInvalidHandle; mapped error. */
ZB_EXPORT ZBError ZBSocketSetReuseAddress(ZBSocket socket, bool value) ZB_NOEXCEPT;
/** SO_REUSEADDR. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketGetReuseAddress(ZBSocket socket, bool *outValue) ZB_NOEXCEPT;
/** Has no effect on this platform. @return 0. */
ZB_EXPORT ZBError ZBSocketSetReusePort(ZBSocket socket, bool value) ZB_NOEXCEPT;
/** @return ZBErrorUnsupported. */
ZB_EXPORT ZBError ZBSocketGetReusePort(ZBSocket socket, bool *outValue) ZB_NOEXCEPT;
/** SO_KEEPALIVE. @return 0; mapped error. */
ZB_EXPORT ZBError ZBSocketSetKeepAlive(ZBSocket socket, bool value) ZB_NOEXCEPT;
/** SO_KEEPALIVE; false (and an Error log line) when the query fails. */
ZB_EXPORT bool ZBSocketHasKeepAlive(ZBSocket socket) ZB_NOEXCEPT;
/** SO_LINGER: negative turns lingering off; otherwise whole seconds,
    rounded up. @return 0; ZBErrorInvalidHandle; mapped error. */
ZB_EXPORT ZBError ZBSocketSetLinger(ZBSocket socket, int64_t nanoseconds) ZB_NOEXCEPT;
/** SO_LINGER: -1 when off; else the seconds times 10^9 in 32-bit arithmetic
    (wraps from 5 s on). @return 0; ZBErrorInvalidHandle;
    ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketGetLinger(ZBSocket socket, int64_t *outNanoseconds) ZB_NOEXCEPT;
/** SO_SNDBUF. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument
    (negative size); mapped error. */
ZB_EXPORT ZBError ZBSocketSetSendBufferSize(ZBSocket socket, int32_t size) ZB_NOEXCEPT;
/** SO_SNDBUF (handle 0 reaches Winsock). @return 0; ZBErrorInvalidHandle;
    ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketGetSendBufferSize(ZBSocket socket, int32_t *outSize) ZB_NOEXCEPT;
/** SO_RCVBUF. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketSetReceiveBufferSize(ZBSocket socket, int32_t size) ZB_NOEXCEPT;
/** SO_RCVBUF. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketGetReceiveBufferSize(ZBSocket socket, int32_t *outSize) ZB_NOEXCEPT;
/** SO_SNDLOWAT. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketSetSendLowWatermark(ZBSocket socket, int32_t size) ZB_NOEXCEPT;
/** SO_SNDLOWAT. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketGetSendLowWatermark(ZBSocket socket, int32_t *outSize) ZB_NOEXCEPT;
/** SO_RCVLOWAT. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketSetReceiveLowWatermark(ZBSocket socket, int32_t size) ZB_NOEXCEPT;
/** SO_RCVLOWAT. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketGetReceiveLowWatermark(ZBSocket socket, int32_t *outSize) ZB_NOEXCEPT;
/** SO_SNDTIMEO, truncated to whole milliseconds. @return 0;
    ZBErrorInvalidHandle; mapped error. */
ZB_EXPORT ZBError ZBSocketSetSendTimeout(ZBSocket socket, int64_t nanoseconds) ZB_NOEXCEPT;
/** SO_SNDTIMEO. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketGetSendTimeout(ZBSocket socket, int64_t *outNanoseconds) ZB_NOEXCEPT;
/** SO_RCVTIMEO, truncated to whole milliseconds. @return 0;
    ZBErrorInvalidHandle; mapped error. */
ZB_EXPORT ZBError ZBSocketSetReceiveTimeout(ZBSocket socket, int64_t nanoseconds) ZB_NOEXCEPT;
/** SO_RCVTIMEO. @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketGetReceiveTimeout(ZBSocket socket, int64_t *outNanoseconds) ZB_NOEXCEPT;
/** TCP_NODELAY. @return 0; mapped error. */
ZB_EXPORT ZBError ZBSocketSetNoDelay(ZBSocket socket, bool value) ZB_NOEXCEPT;
/** TCP_NODELAY. @return 0; ZBErrorInvalidArgument; mapped error. */
ZB_EXPORT ZBError ZBSocketGetNoDelay(ZBSocket socket, bool *outValue) ZB_NOEXCEPT;
/** IPV6_V6ONLY. @return 0; mapped error. */
ZB_EXPORT ZBError ZBSocketSetIPv6Only(ZBSocket socket, bool value) ZB_NOEXCEPT;
/** There is no SIGPIPE here. @return 0 for false, ZBErrorUnsupported for true. */
ZB_EXPORT ZBError ZBSocketSetUseSIGPIPE(ZBSocket socket, bool value) ZB_NOEXCEPT;
/** Always false. */
ZB_EXPORT bool ZBSocketGetUseSIGPIPE(ZBSocket socket) ZB_NOEXCEPT;
/** @return ZBErrorUnsupported. */
ZB_EXPORT ZBError ZBSocketGetNonWrittenBufferSize(ZBSocket socket, uint32_t *outSize) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBSOCKET_H */
