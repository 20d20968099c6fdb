// Interface enumeration: Winsock's IPv4 interface list and its IPv4 and
// IPv6 address lists, each address matched to its interface index by
// probing (a datagram socket pinned to index n connects to the address
// only if the address lives there), then handed to the caller one record
// at a time with BSD-style flags and a name ("lo" or "nif<index>").
//
// Systems that refuse the pinning option itself (Wine refuses it for IPv6)
// would make the probe try every index in vain, so a family is no longer
// probed once the option is refused; its addresses keep index 0.
#include "ZBSocketAddress.h"

#include "ZBAlloc.h"
#include "ZBSocket.h"
#include "ZBSocketPrivate.h"
#include "qprintf.h"
#include "ZBOwned.h"
#include "ZBScopedHandle.h"

#include <cstring>
#include <memory>
#include <vector>

using namespace zb::sockets;

namespace {

constexpr DWORD kListBufferSize = 1024;
constexpr uint32_t kLastProbedIndex = 16777216;
constexpr int kUnicastInterfaceOption = 31; // IP_UNICAST_IF and IPV6_UNICAST_IF

// The library's interface flags.
constexpr uint32_t kFlagUp = 0x5;
constexpr uint32_t kFlagBroadcast = 0x10;
constexpr uint32_t kFlagMulticast = 0x20;
constexpr uint32_t kFlagNotLoopbackOrPointToPoint = 0x8;
constexpr uint32_t kFlagLoopback = 0x1000000;
constexpr uint32_t kFlagPointToPoint = 0x2000000;

using ZoneBuffer = zb::Owned<char>;

// One ioctl answer read into 1024 bytes from the default zone. Winsock
// would say WSAEFAULT for a longer answer; the call's result is what gets
// tested, so a longer list is a failure (ZBErrorGeneric), kept so.
ZBError queryList(int family, DWORD control, ZoneBuffer &buffer, DWORD &returned) {
  const zb::ScopedSocketHandle probe(zb::gSystemCalls.socket(family, SOCK_DGRAM, 0));
  if (!probe.isValid())
    return ZBErrorGeneric;
  buffer.reset(static_cast<char *>(
      _ZBAllocWithZoneAndDesc(nullptr, kListBufferSize, "ZBSocketInterfacesApply")));
  if (!buffer)
    return ZBErrorNoMemory;
  returned = 0;
  if (zb::gSystemCalls.WSAIoctl(probe.get(), control, nullptr, 0, buffer.get(), kListBufferSize,
                                &returned, nullptr, nullptr) != 0)
    return ZBErrorGeneric;
  return ZBErrorNone;
}

struct ListedAddress {
  sockaddr_storage address;
  int length;
  uint32_t index;
};

ZBError readAddressList(int family, std::vector<ListedAddress> &out) {
  ZoneBuffer buffer;
  DWORD returned;
  if (const ZBError error = queryList(family, SIO_ADDRESS_LIST_QUERY, buffer, returned))
    return error;
  const auto *list = reinterpret_cast<const SOCKET_ADDRESS_LIST *>(buffer.get());
  for (INT entry = 0; entry < list->iAddressCount; ++entry) {
    ListedAddress listed = {};
    const SOCKET_ADDRESS &address = list->Address[entry];
    listed.length = address.iSockaddrLength;
    if (listed.length <= 0 || listed.length > static_cast<int>(sizeof listed.address))
      continue;
    std::memcpy(&listed.address, address.lpSockaddr, static_cast<size_t>(listed.length));
    out.push_back(listed);
  }
  return ZBErrorNone;
}

enum class Probe { Matched, NotHere, Refused };

Probe probeIndex(const ListedAddress &listed, uint32_t index) {
  const int family = listed.address.ss_family;
  const zb::ScopedSocketHandle probe(zb::gSystemCalls.socket(family, SOCK_DGRAM, 0));
  if (!probe.isValid())
    return Probe::NotHere;
  // IPv4 wants the index in network order, IPv6 in host order.
  const DWORD value = family == AF_INET ? htonl(index) : index;
  const int level = family == AF_INET ? IPPROTO_IP : IPPROTO_IPV6;
  if (zb::gSystemCalls.setsockopt(probe.get(), level, kUnicastInterfaceOption,
                                  reinterpret_cast<const char *>(&value), sizeof value) != 0) {
    const int wsaError = WSAGetLastError();
    return wsaError == WSAENOPROTOOPT || wsaError == WSAEOPNOTSUPP || index == 1 ? Probe::Refused
                                                                                 : Probe::NotHere;
  }
  if (zb::gSystemCalls.connect(probe.get(), reinterpret_cast<const sockaddr *>(&listed.address),
                               listed.length) != 0)
    return Probe::NotHere;
  return Probe::Matched;
}

void findInterfaceIndexes(std::vector<ListedAddress> &addresses) {
  bool refused[2] = {false, false}; // IPv4, IPv6
  auto familySlot = [](const ListedAddress &listed) {
    return listed.address.ss_family == AF_INET ? 0 : 1;
  };
  for (uint32_t index = 1; index <= kLastProbedIndex; ++index) {
    bool pending = false;
    for (ListedAddress &listed : addresses) {
      if (listed.index != 0 || refused[familySlot(listed)])
        continue;
      switch (probeIndex(listed, index)) {
      case Probe::Matched: listed.index = index; break;
      case Probe::Refused: refused[familySlot(listed)] = true; break;
      case Probe::NotHere: pending = true; break;
      }
    }
    if (!pending)
      return;
  }
}

struct Record {
  uint32_t index;
  uint32_t flags; // Winsock's IFF_ bits
  sockaddr_storage address;
  sockaddr_storage broadcast;
  sockaddr_storage netmask;
};

bool isIPv6Loopback(const sockaddr_storage &address) {
  const auto &ipv6 = reinterpret_cast<const sockaddr_in6 &>(address);
  return ipv6.sin6_family == AF_INET6 && IN6_IS_ADDR_LOOPBACK(&ipv6.sin6_addr);
}

Record loopbackRecord(int family) {
  Record record = {};
  record.flags = IFF_UP | IFF_LOOPBACK | IFF_MULTICAST;
  if (family == AF_INET) {
    auto &address = reinterpret_cast<sockaddr_in &>(record.address);
    auto &mask = reinterpret_cast<sockaddr_in &>(record.netmask);
    address.sin_family = mask.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    mask.sin_addr.s_addr = htonl(0xFF000000u);
  } else {
    auto &address = reinterpret_cast<sockaddr_in6 &>(record.address);
    auto &mask = reinterpret_cast<sockaddr_in6 &>(record.netmask);
    address.sin6_family = mask.sin6_family = AF_INET6;
    address.sin6_addr = in6addr_loopback;
    std::memset(&mask.sin6_addr, 0xFF, sizeof mask.sin6_addr);
  }
  return record;
}

uint32_t libraryFlags(uint32_t flags) {
  uint32_t out = 0;
  if (flags & IFF_UP)
    out |= kFlagUp;
  if (flags & IFF_BROADCAST)
    out |= kFlagBroadcast;
  if (flags & IFF_MULTICAST)
    out |= kFlagMulticast;
  if (flags & IFF_LOOPBACK)
    out |= kFlagLoopback;
  if (flags & IFF_POINTTOPOINT)
    out |= kFlagPointToPoint;
  if ((flags & (IFF_LOOPBACK | IFF_POINTTOPOINT)) == 0)
    out |= kFlagNotLoopbackOrPointToPoint;
  return out;
}

void deliver(Record &record, ZBSocketInterfaceFunction function, void *context) {
  char name[32];
  if (record.flags & IFF_LOOPBACK)
    std::strcpy(name, "lo");
  else
    qsnprintf(name, sizeof name, "nif%zu", static_cast<size_t>(record.index));
  const sockaddr *third = nullptr;
  if (record.address.ss_family == AF_INET) {
    if (record.flags & IFF_POINTTOPOINT) {
      third = reinterpret_cast<const sockaddr *>(&record.broadcast);
    } else if (record.flags & IFF_LOOPBACK) {
      third = reinterpret_cast<const sockaddr *>(&record.address);
    } else {
      auto &broadcast = reinterpret_cast<sockaddr_in &>(record.broadcast);
      broadcast.sin_family = AF_INET;
      broadcast.sin_addr.s_addr =
          reinterpret_cast<const sockaddr_in &>(record.address).sin_addr.s_addr |
          ~reinterpret_cast<const sockaddr_in &>(record.netmask).sin_addr.s_addr;
      third = reinterpret_cast<const sockaddr *>(&broadcast);
    }
  }
  const ZBSocketInterface entry = {name, libraryFlags(record.flags),
                                   reinterpret_cast<const sockaddr *>(&record.address),
                                   reinterpret_cast<const sockaddr *>(&record.netmask), third};
  function(context, &entry);
}

} // namespace

extern "C" ZBError ZBSocketInterfacesApply(uint32_t options, ZBSocketInterfaceFunction function,
                                           void *context) noexcept {
  if (function == nullptr)
    return ZBErrorInvalidArgument;
  const bool ipv4Only = (options & ZBSocketInterfacesIPv4Only) != 0;
  const bool ipv6Only = !ipv4Only && (options & ZBSocketInterfacesIPv6Only) != 0;
  const bool wantIPv4 = !ipv6Only, wantIPv6 = !ipv4Only;
  ZBSocketInit();

  ZoneBuffer interfaceBuffer;
  DWORD returned = 0;
  if (const ZBError error = queryList(AF_INET, SIO_GET_INTERFACE_LIST, interfaceBuffer, returned))
    return error;
  const auto *interfaces = reinterpret_cast<const INTERFACE_INFO *>(interfaceBuffer.get());
  const size_t interfaceCount = returned / sizeof(INTERFACE_INFO);

  std::vector<ListedAddress> addresses;
  if (const ZBError error = readAddressList(AF_INET, addresses))
    return error;
  const size_t ipv4Count = addresses.size();
  if (wantIPv6) {
    // A system without IPv6 still lists its IPv4 addresses; running out
    // of memory is no such answer.
    const ZBError error = readAddressList(AF_INET6, addresses);
    if (error != ZBErrorNone && (ipv6Only || error == ZBErrorNoMemory))
      return error;
  }
  findInterfaceIndexes(addresses);

  std::vector<Record> records;
  records.reserve(interfaceCount + addresses.size() + 2);
  bool ipv4Loopback = false, ipv6Loopback = false;
  for (size_t entry = 0; entry < interfaceCount; ++entry) {
    const INTERFACE_INFO &info = interfaces[entry];
    Record record = {};
    record.flags = info.iiFlags;
    std::memcpy(&record.address, &info.iiAddress, sizeof info.iiAddress.AddressIn);
    std::memcpy(&record.broadcast, &info.iiBroadcastAddress,
                sizeof info.iiBroadcastAddress.AddressIn);
    std::memcpy(&record.netmask, &info.iiNetmask, sizeof info.iiNetmask.AddressIn);
    for (size_t index = 0; index < ipv4Count; ++index)
      if (reinterpret_cast<const sockaddr_in &>(addresses[index].address).sin_addr.s_addr ==
          info.iiAddress.AddressIn.sin_addr.s_addr)
        record.index = addresses[index].index;
    ipv4Loopback |= (info.iiFlags & IFF_LOOPBACK) != 0;
    records.push_back(record);
  }
  for (size_t index = ipv4Count; index < addresses.size(); ++index) {
    Record record = {};
    record.index = addresses[index].index;
    record.flags = IFF_UP | IFF_MULTICAST;
    record.address = addresses[index].address;
    if (isIPv6Loopback(record.address) && !ipv6Loopback) {
      record = loopbackRecord(AF_INET6);
      record.index = addresses[index].index;
      ipv6Loopback = true;
    }
    records.push_back(record);
  }
  if (wantIPv4 && !ipv4Loopback)
    records.push_back(loopbackRecord(AF_INET));
  if (wantIPv6 && !ipv6Loopback)
    records.push_back(loopbackRecord(AF_INET6));

  // An IPv6 address takes the flags of its interface's IPv4 record. Index
  // 0 means "not found" and matches nothing.
  if (wantIPv6)
    for (Record &ipv6 : records)
      if (ipv6.address.ss_family == AF_INET6 && ipv6.index != 0)
        for (const Record &ipv4 : records)
          if (ipv4.address.ss_family == AF_INET && ipv4.index == ipv6.index)
            ipv6.flags = ipv4.flags;

  for (Record &record : records) {
    const bool isIPv4 = record.address.ss_family == AF_INET;
    if (isIPv4 ? wantIPv4 : wantIPv6)
      deliver(record, function, context);
  }
  return ZBErrorNone;
}
