/*
 * ZBSocketAddress.h: socket addresses, literal parsing, name resolution,
 * printable forms and network interfaces.
 *
 * Addresses are the Winsock records: IPv4 (16 bytes: family 2, port in
 * network order, 4 address bytes, 8 zero bytes) and IPv6 (28 bytes: family
 * 23, port, flow information, 16 address bytes, scope identifier). The
 * family is always read from the first 16 bits.
 */
#ifndef ZENBOR_ZBSOCKETADDRESS_H
#define ZENBOR_ZBSOCKETADDRESS_H

#include "ZBError.h"

ZB_EXTERN_C_BEGIN

struct sockaddr;
struct hostent;

/** IPv4 address family. */
#define ZBSocketFamilyIPv4 2
/** IPv6 address family. */
#define ZBSocketFamilyIPv6 23

/** One node of an address-information list, laid out as Winsock's addrinfo.
    Each node is one allocation holding the header, its address and its
    canonical name; free lists with ZBSocketAddressFreeInfoList. */
typedef struct ZBSocketAddressInfo {
  int32_t flags;                    /**< Always 0 in library-made nodes. */
  int32_t family;                   /**< 2 or 23. */
  int32_t socketType;               /**< Socket type, or 0. */
  int32_t protocol;                 /**< Protocol, or 0. */
  uint32_t addressLength;           /**< Bytes at `address`. */
  char *canonicalName;              /**< Inside the node, or null. */
  struct sockaddr *address;         /**< Inside the node, behind the header. */
  struct ZBSocketAddressInfo *next; /**< The next node, or null. */
} ZBSocketAddressInfo;

/** Resolution hints; the flags are the BSD AI_ values. */
typedef struct ZBSocketAddressHints {
  int32_t flags; /**< AI_ flags: 0x1 passive, 0x2 canonical name, 0x4 numeric host, 0x100 all, 0x400
                    configured, 0x800 mapped, 0x1000 numeric service. */
  int32_t family;     /**< 0, 2 or 23. */
  int32_t socketType; /**< Socket type, or 0. */
  int32_t protocol;   /**< Protocol, or 0. */
} ZBSocketAddressHints;

/** An interface address handed to the ZBSocketInterfacesApply callback;
    the pointers are valid only during the call. */
typedef struct ZBSocketInterface {
  const char *name; /**< "lo" or "nif<index>". */
  uint32_t flags;   /**< 0x5 up, 0x8 neither loopback nor point-to-point, 0x10 broadcast, 0x20
                       multicast, 0x1000000 loopback, 0x2000000 point-to-point. */
  const struct sockaddr *address;                /**< The interface address. */
  const struct sockaddr *netmask;                /**< Its mask. */
  const struct sockaddr *broadcastOrDestination; /**< IPv4 only: broadcast, peer, or the loopback
                                                    address itself; null for IPv6. */
} ZBSocketInterface;

/** The ZBSocketInterfacesApply callback; its result is ignored. */
typedef int32_t (*ZBSocketInterfaceFunction)(void *context, const ZBSocketInterface *entry);

/** ZBSocketInterfacesApply option: IPv4 addresses only. */
#define ZBSocketInterfacesIPv4Only 1u
/** ZBSocketInterfacesApply option: IPv6 addresses only. */
#define ZBSocketInterfacesIPv6Only 2u

/** Fills a zeroed address of `family` with `port` (host order) and the
    address bytes (none: the wildcard). `inOutLength` gives the room and
    receives 16 or 28.
    @return 0; ZBErrorInvalidArgument (null pointers);
    ZBErrorFamilyUnsupported; ZBErrorBufferTooSmall (byte count other than
    4/16, or too little room). */
ZB_EXPORT ZBError ZBSocketAddressInitialize(int32_t family, const void *bytes, uint32_t byteCount,
                                            uint16_t port, struct sockaddr *outAddress,
                                            uint32_t *inOutLength) ZB_NOEXCEPT;
/** The family in the first 16 bits (0 for a null address). */
ZB_EXPORT uint16_t ZBSocketAddressGetFamily(const struct sockaddr *address,
                                            uint32_t length) ZB_NOEXCEPT;
/** Points at the address bytes inside the record; length must be exactly
    16 or 28. @return 0; ZBErrorInvalidArgument; ZBErrorBufferTooSmall;
    ZBErrorFamilyUnsupported. */
ZB_EXPORT ZBError ZBSocketAddressGetAddress(const struct sockaddr *address, uint32_t length,
                                            const void **outBytes,
                                            uint32_t *outByteCount) ZB_NOEXCEPT;
/** Copies the address bytes out. @return 0; ZBErrorInvalidArgument;
    ZBErrorBufferTooSmall (wrong length or small destination);
    ZBErrorFamilyUnsupported. */
ZB_EXPORT ZBError ZBSocketAddressCopyAddress(const struct sockaddr *address, uint32_t length,
                                             void *destination,
                                             uint32_t destinationSize) ZB_NOEXCEPT;
/** Sets the port (host order); length at least 16 or 28.
    @return 0; ZBErrorInvalidArgument; ZBErrorBufferTooSmall;
    ZBErrorFamilyUnsupported. */
ZB_EXPORT ZBError ZBSocketAddressSetPort(struct sockaddr *address, uint32_t length,
                                         uint16_t port) ZB_NOEXCEPT;
/** Reads the port (host order); length at least 16 or 28.
    @return 0; ZBErrorInvalidArgument; ZBErrorBufferTooSmall;
    ZBErrorFamilyUnsupported. */
ZB_EXPORT ZBError ZBSocketAddressGetPort(const struct sockaddr *address, uint32_t length,
                                         uint16_t *outPort) ZB_NOEXCEPT;
/** 16 for IPv4, 28 for IPv6, 0 otherwise (and for null). */
ZB_EXPORT uint32_t ZBSocketAddressGetExpectedLength(const struct sockaddr *address) ZB_NOEXCEPT;

/** Parses a literal IP ("10.0.0.1", "::1", "[fe80::1%2]:80"; the port in
    the text is overridden by `port`) of family 0 (either), 2 or 23. With a
    null `outList` it only validates; else a one-node list is returned.
    @return 0; ZBErrorInvalidArgument (other family, malformed text);
    ZBErrorNoMemory. */
ZB_EXPORT ZBError ZBSocketAddressParseLiteralIP(int32_t family, const char *text, uint16_t port,
                                                ZBSocketAddressInfo **outList) ZB_NOEXCEPT;
/** A one-node list holding a copy of the address; null when out of memory
    or for a null address. */
ZB_EXPORT ZBSocketAddressInfo *ZBSocketAddressMakeInfoListNode(const struct sockaddr *address,
                                                               uint32_t length) ZB_NOEXCEPT;
/** A deep copy of a list; null when the first node cannot be made (a
    failure further down leaves the copy shorter). */
ZB_EXPORT ZBSocketAddressInfo *
ZBSocketAddressDupInfoList(const ZBSocketAddressInfo *list) ZB_NOEXCEPT;
/** Frees every node of a list; null is ignored. */
ZB_EXPORT void ZBSocketAddressFreeInfoList(ZBSocketAddressInfo *list) ZB_NOEXCEPT;

/** Resolves a host and service (either may be null) into a list; a failing
    "localhost." is tried again as "localhost".
    @return 0; ZBErrorInvalidArgument (no out list); ZBErrorNotFound;
    ZBErrorInterrupted (try again); ZBErrorNoMemory; ZBErrorGeneric. */
ZB_EXPORT ZBError ZBSocketAddressResolveInfo(const char *host, const char *service,
                                             const ZBSocketAddressHints *hints,
                                             ZBSocketAddressInfo **outList) ZB_NOEXCEPT;
/** Winsock's host entry for a name (owned by Winsock, valid until the
    thread's next such call). @return 0; ZBErrorInvalidArgument;
    ZBErrorNotFound; ZBErrorNetworkUnreachable (try again); ZBErrorNoAddress;
    ZBErrorGeneric. */
ZB_EXPORT ZBError ZBSocketAddressGetHostByName(const char *host,
                                               struct hostent **outEntry) ZB_NOEXCEPT;
/** The host (and service, if `outService` is given) names of an address,
    as strings to free with _ZBFree. Flags: 1 name required, 2 numeric host,
    4 numeric service, 8 no domain, 16 datagram.
    @return 0; ZBErrorInvalidArgument; ZBErrorNotFound; ZBErrorInterrupted;
    ZBErrorGeneric. */
ZB_EXPORT ZBError ZBSocketAddressReverseLookup(const struct sockaddr *address, uint32_t length,
                                               char **outHost, char **outService,
                                               uint32_t flags) ZB_NOEXCEPT;
/** The family, the address as text (no port, no scope) and the port (host
    order); each output is optional but one must be asked for.
    @return 0; ZBErrorInvalidArgument (nothing asked, null buffer with a
    size, wrong length); ZBErrorFamilyUnsupported; ZBErrorGeneric (the
    buffer cannot hold the text). */
ZB_EXPORT ZBError ZBSocketAddressGetPrintable(const struct sockaddr *address, uint32_t length,
                                              uint16_t *outFamily, char *buffer,
                                              uint32_t bufferSize, uint16_t *outPort) ZB_NOEXCEPT;
/** Whether the address is in 10/8, 172.16/12, 192.168/16 or fc00::/7.
    @return 0 (also for other families, with false); ZBErrorInvalidArgument
    (null pointers, short IPv6); ZBErrorBufferTooSmall (short IPv4). */
ZB_EXPORT ZBError ZBSocketAddressIsPrivateIP(const struct sockaddr *address, uint32_t length,
                                             bool *outIsPrivate) ZB_NOEXCEPT;
/** Calls `function` once per interface address (options: IPv4 or IPv6
    only, else both); loopback interfaces are named "lo", others "nif<n>".
    @return 0; ZBErrorInvalidArgument (no function); ZBErrorNoMemory;
    ZBErrorGeneric (the system's lists cannot be read). */
ZB_EXPORT ZBError ZBSocketInterfacesApply(uint32_t options, ZBSocketInterfaceFunction function,
                                          void *context) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBSOCKETADDRESS_H */
