// Socket-address records: initialising them, reading and writing family,
// address and port with their length rules, literal parsing into
// address-information lists, the lists themselves, the printable form and
// the private-range test. None of this needs the socket system, so it is
// platform-neutral and runs in the host build too.
#include "ZBSocketAddress.h"

#include "ZBAlloc.h"
#include "ZBSocketAddressPrivate.h"
#include "ZBSocketAddressText.h"

#include <cstring>
#include <utility>

using namespace zb::socketaddress;

namespace {

// The address bytes of an IPv4 or IPv6 record and their count.
struct AddressBytes {
  size_t offset;
  uint32_t count;
  uint32_t recordLength;
};

bool addressBytesOf(uint16_t family, AddressBytes &out) {
  if (family == kFamilyIPv4)
    out = {kIPv4AddressOffset, 4, kIPv4Length};
  else if (family == kFamilyIPv6)
    out = {kIPv6AddressOffset, 16, kIPv6Length};
  else
    return false;
  return true;
}

// The address accessors want the record's exact length.
ZBError exactAddressBytes(const sockaddr *address, uint32_t length, AddressBytes &out) {
  if (address == nullptr)
    return ZBErrorInvalidArgument;
  if (!addressBytesOf(familyOf(address), out))
    return ZBErrorFamilyUnsupported;
  return length == out.recordLength ? ZBErrorNone : ZBErrorBufferTooSmall;
}

// The port accessors only want enough room (deliberately looser).
ZBError portRecord(const void *address, uint32_t length) {
  if (address == nullptr)
    return ZBErrorInvalidArgument;
  AddressBytes bytes;
  if (!addressBytesOf(familyOf(address), bytes))
    return ZBErrorFamilyUnsupported;
  return length >= bytes.recordLength ? ZBErrorNone : ZBErrorBufferTooSmall;
}

constexpr size_t kNodeHeader = sizeof(ZBSocketAddressInfo);

} // namespace

namespace zb::socketaddress {

ZBSocketAddressInfo *makeInfoNode(int32_t family, int32_t socketType, int32_t protocol,
                                  const void *address, uint32_t addressLength,
                                  const char *name) noexcept {
  const size_t nameBytes = name != nullptr ? std::strlen(name) + 1 : 0;
  auto *node = static_cast<ZBSocketAddressInfo *>(_ZBAllocWithZoneCountAndDesc(
      nullptr, 1, kNodeHeader + addressLength + nameBytes, "ZBSocketAddressInfo"));
  if (node == nullptr)
    return nullptr;
  auto *storage = reinterpret_cast<char *>(node + 1);
  node->family = family;
  node->socketType = socketType;
  node->protocol = protocol;
  node->addressLength = addressLength;
  if (address != nullptr && addressLength > 0) {
    std::memcpy(storage, address, addressLength);
    node->address = reinterpret_cast<sockaddr *>(storage);
  }
  if (name != nullptr) {
    node->canonicalName = storage + addressLength;
    std::memcpy(node->canonicalName, name, nameBytes);
  }
  return node;
}

} // namespace zb::socketaddress

extern "C" ZBError ZBSocketAddressInitialize(int32_t family, const void *bytes, uint32_t byteCount,
                                             uint16_t port, sockaddr *outAddress,
                                             uint32_t *inOutLength) noexcept {
  AddressBytes layout;
  if (family < 0 || family > 0xFFFF || !addressBytesOf(static_cast<uint16_t>(family), layout))
    return ZBErrorFamilyUnsupported;
  if (bytes != nullptr && byteCount != layout.count)
    return ZBErrorBufferTooSmall;
  if (outAddress == nullptr || inOutLength == nullptr)
    return ZBErrorInvalidArgument;
  if (*inOutLength < layout.recordLength)
    return ZBErrorBufferTooSmall;
  auto *record = reinterpret_cast<unsigned char *>(outAddress);
  std::memset(record, 0, layout.recordLength);
  setFamily(record, static_cast<uint16_t>(family));
  setPort(record, port);
  if (bytes != nullptr)
    std::memcpy(record + layout.offset, bytes, layout.count);
  *inOutLength = layout.recordLength;
  return ZBErrorNone;
}

extern "C" uint16_t ZBSocketAddressGetFamily(const sockaddr *address, uint32_t) noexcept {
  return address != nullptr ? familyOf(address) : 0;
}

extern "C" ZBError ZBSocketAddressGetAddress(const sockaddr *address, uint32_t length,
                                             const void **outBytes,
                                             uint32_t *outByteCount) noexcept {
  AddressBytes layout;
  if (const ZBError error = exactAddressBytes(address, length, layout))
    return error;
  if (outBytes != nullptr)
    *outBytes = reinterpret_cast<const unsigned char *>(address) + layout.offset;
  if (outByteCount != nullptr)
    *outByteCount = layout.count;
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketAddressCopyAddress(const sockaddr *address, uint32_t length,
                                              void *destination,
                                              uint32_t destinationSize) noexcept {
  AddressBytes layout;
  if (const ZBError error = exactAddressBytes(address, length, layout))
    return error;
  if (destination == nullptr)
    return ZBErrorInvalidArgument;
  if (destinationSize < layout.count)
    return ZBErrorBufferTooSmall;
  std::memcpy(destination, reinterpret_cast<const unsigned char *>(address) + layout.offset,
              layout.count);
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketAddressSetPort(sockaddr *address, uint32_t length,
                                          uint16_t port) noexcept {
  if (const ZBError error = portRecord(address, length))
    return error;
  setPort(address, port);
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketAddressGetPort(const sockaddr *address, uint32_t length,
                                          uint16_t *outPort) noexcept {
  if (outPort == nullptr)
    return ZBErrorInvalidArgument;
  if (const ZBError error = portRecord(address, length))
    return error;
  *outPort = portOf(address);
  return ZBErrorNone;
}

extern "C" uint32_t ZBSocketAddressGetExpectedLength(const sockaddr *address) noexcept {
  AddressBytes layout;
  if (address == nullptr || !addressBytesOf(familyOf(address), layout))
    return 0;
  return layout.recordLength;
}

extern "C" ZBError ZBSocketAddressParseLiteralIP(int32_t family, const char *text, uint16_t port,
                                                 ZBSocketAddressInfo **outList) noexcept {
  if (family == 0) {
    if (ZBSocketAddressParseLiteralIP(kFamilyIPv4, text, port, outList) == ZBErrorNone)
      return ZBErrorNone;
    return ZBSocketAddressParseLiteralIP(kFamilyIPv6, text, port, outList);
  }
  if (family != kFamilyIPv4 && family != kFamilyIPv6)
    return ZBErrorInvalidArgument;
  // Winsock's conversion answers WSAEINVAL for every text it refuses.
  unsigned char record[kIPv6Length];
  if (!parseLiteral(static_cast<uint16_t>(family), text, record))
    return ZBErrorInvalidArgument;
  setPort(record, port);
  if (outList == nullptr)
    return ZBErrorNone;
  const uint32_t length = family == kFamilyIPv4 ? kIPv4Length : kIPv6Length;
  *outList = makeInfoNode(family, 0, 0, record, length, nullptr);
  return *outList != nullptr ? ZBErrorNone : ZBErrorNoMemory;
}

extern "C" ZBSocketAddressInfo *ZBSocketAddressMakeInfoListNode(const sockaddr *address,
                                                                uint32_t length) noexcept {
  if (address == nullptr)
    return nullptr;
  const uint32_t readable = length >= sizeof(uint16_t) ? length : 0;
  return makeInfoNode(readable ? familyOf(address) : 0, 0, 0, address, length, nullptr);
}

extern "C" ZBSocketAddressInfo *
ZBSocketAddressDupInfoList(const ZBSocketAddressInfo *list) noexcept {
  // A loop rather than recursion, so a long list cannot exhaust the stack;
  // a failed node ends the copy there, as a shorter list.
  ZBSocketAddressInfo *head = nullptr;
  ZBSocketAddressInfo **tail = &head;
  for (; list != nullptr; list = list->next) {
    ZBSocketAddressInfo *node =
        makeInfoNode(list->family, list->socketType, list->protocol, list->address,
                     list->address != nullptr ? list->addressLength : 0, list->canonicalName);
    if (node == nullptr)
      break;
    node->flags = list->flags;
    node->addressLength = list->addressLength;
    *tail = node;
    tail = &node->next;
  }
  return head;
}

extern "C" void ZBSocketAddressFreeInfoList(ZBSocketAddressInfo *list) noexcept {
  while (list != nullptr)
    _ZBFree(std::exchange(list, list->next));
}

extern "C" ZBError ZBSocketAddressGetPrintable(const sockaddr *address, uint32_t length,
                                               uint16_t *outFamily, char *buffer,
                                               uint32_t bufferSize, uint16_t *outPort) noexcept {
  if (outFamily == nullptr && bufferSize == 0 && outPort == nullptr)
    return ZBErrorInvalidArgument;
  if ((buffer == nullptr && bufferSize != 0) || address == nullptr)
    return ZBErrorInvalidArgument;
  const uint16_t family = familyOf(address);
  if (outFamily != nullptr)
    *outFamily = family;
  AddressBytes layout;
  if (!addressBytesOf(family, layout))
    return ZBErrorFamilyUnsupported;
  if (length != layout.recordLength)
    return ZBErrorInvalidArgument;
  if (buffer != nullptr) {
    char text[kPrintableCapacity];
    const size_t textLength = formatAddress(
        family, reinterpret_cast<const unsigned char *>(address) + layout.offset, text);
    // Winsock refuses a buffer that cannot hold the text and its zero with
    // WSAEFAULT, which is not the invalid-parameter error that would read
    // as "buffer too small".
    if (textLength + 1 > bufferSize)
      return ZBErrorGeneric;
    std::memcpy(buffer, text, textLength + 1);
  }
  if (outPort != nullptr)
    *outPort = portOf(address);
  return ZBErrorNone;
}

extern "C" ZBError ZBSocketAddressIsPrivateIP(const sockaddr *address, uint32_t length,
                                              bool *outIsPrivate) noexcept {
  if (address == nullptr || outIsPrivate == nullptr)
    return ZBErrorInvalidArgument;
  *outIsPrivate = false;
  const auto *record = reinterpret_cast<const unsigned char *>(address);
  switch (familyOf(address)) {
  case kFamilyIPv4: {
    if (length < kIPv4Length)
      return ZBErrorBufferTooSmall;
    const unsigned char *ip = record + kIPv4AddressOffset;
    *outIsPrivate =
        ip[0] == 10 || (ip[0] == 172 && (ip[1] & 0xF0) == 16) || (ip[0] == 192 && ip[1] == 168);
    return ZBErrorNone;
  }
  case kFamilyIPv6:
    if (length < kIPv6Length)
      return ZBErrorInvalidArgument;
    *outIsPrivate = (record[kIPv6AddressOffset] | 1) == 0xFD;
    return ZBErrorNone;
  default: return ZBErrorNone;
  }
}
