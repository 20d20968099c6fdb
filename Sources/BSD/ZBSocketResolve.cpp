// Name resolution both ways: getaddrinfo into library-owned lists (with the
// BSD hint flags translated and a retry of "localhost." as "localhost",
// which some resolvers refuse), gethostbyname, and getnameinfo.
#include "ZBSocketAddress.h"

#include "ZBErrorMapping.h"
#include "ZBLog.h"
#include "ZBSocket.h"
#include "ZBSocketAddressPrivate.h"
#include "ZBSocketPrivate.h"
#include "ZBString.h"

#include <cstring>

namespace {

struct FlagRow {
  int32_t library;
  int32_t winsock;
};

// BSD AI_ flags to Winsock's; bits without a row are dropped.
constexpr FlagRow kHintFlags[] = {
    {0x1, AI_PASSIVE},      {0x2, AI_CANONNAME},  {0x4, AI_NUMERICHOST},    {0x100, AI_ALL},
    {0x400, AI_ADDRCONFIG}, {0x800, AI_V4MAPPED}, {0x1000, AI_NUMERICSERV},
};
constexpr int32_t kHintMappedIfConfigured = 0x200; // not supported: counted

// The library's reverse-lookup flags to Winsock's NI_ flags.
constexpr FlagRow kNameInfoFlags[] = {
    {0x1, NI_NAMEREQD}, {0x2, NI_NUMERICHOST}, {0x4, NI_NUMERICSERV},
    {0x8, NI_NOFQDN},   {0x10, NI_DGRAM},
};

template <size_t Count>
int translateFlags(int32_t flags, const FlagRow (&rows)[Count]) {
  int translated = 0;
  for (const FlagRow &row : rows)
    if (flags & row.library)
      translated |= row.winsock;
  return translated;
}

constexpr int kHostBufferSize = 1025;
constexpr int kServiceBufferSize = 32;

// gethostbyname's failures; unlike getaddrinfo's on purpose.
constexpr zb::ErrorMapRow kHostByNameErrors[] = {
    {WSAHOST_NOT_FOUND, ZBErrorNotFound},
    {WSATRY_AGAIN, ZBErrorNetworkUnreachable},
    {WSANO_RECOVERY, ZBErrorGeneric},
    {WSANO_DATA, ZBErrorNoAddress},
};

// Copies Winsock's list node by node; null (after freeing the copy) when
// a node cannot be allocated.
ZBSocketAddressInfo *copyList(const ADDRINFOA *list) {
  ZBSocketAddressInfo *head = nullptr;
  ZBSocketAddressInfo **tail = &head;
  for (; list != nullptr; list = list->ai_next) {
    ZBSocketAddressInfo *node = zb::socketaddress::makeInfoNode(
        list->ai_family, list->ai_socktype, list->ai_protocol, list->ai_addr,
        static_cast<uint32_t>(list->ai_addrlen), list->ai_canonname);
    if (node == nullptr) {
      ZBSocketAddressFreeInfoList(head);
      return nullptr;
    }
    *tail = node;
    tail = &node->next;
  }
  return head;
}

} // namespace

extern "C" ZBError ZBSocketAddressResolveInfo(const char *host, const char *service,
                                              const ZBSocketAddressHints *hints,
                                              ZBSocketAddressInfo **outList) noexcept {
  if (outList == nullptr)
    return ZBErrorInvalidArgument;
  *outList = nullptr;
  ZBSocketInit();
  ADDRINFOA translated = {};
  if (hints != nullptr) {
    if (hints->flags & kHintMappedIfConfigured)
      ZBLogNYICounter("_ZBSocketAddressInfoToAddrinfoHints", __LINE__);
    translated.ai_flags = translateFlags(hints->flags, kHintFlags);
    translated.ai_family = hints->family;
    translated.ai_socktype = hints->socketType;
    translated.ai_protocol = hints->protocol;
  }
  ADDRINFOA *result = nullptr;
  int status = zb::gSystemCalls.getaddrinfo(host, service, &translated, &result);
  if (status != 0 && host != nullptr && _stricmp(host, "localhost.") == 0)
    status = zb::gSystemCalls.getaddrinfo("localhost", service, &translated, &result);
  const bool numericHost = (translated.ai_flags & AI_NUMERICHOST) != 0;
  if (status != 0)
    return _ZBSocketAddressErrorFromAIError(status, host, numericHost);
  if (result == nullptr)
    return numericHost || (translated.ai_flags & AI_NUMERICSERV) ? ZBErrorNotFound : ZBErrorGeneric;
  *outList = copyList(result);
  freeaddrinfo(result);
  return *outList != nullptr ? ZBErrorNone : ZBErrorNoMemory;
}

extern "C" ZBError ZBSocketAddressGetHostByName(const char *host, hostent **outEntry) noexcept {
  if (host == nullptr || outEntry == nullptr)
    return ZBErrorInvalidArgument;
  ZBSocketInit();
  *outEntry = zb::gSystemCalls.gethostbyname(host);
  if (*outEntry != nullptr)
    return ZBErrorNone;
  const int wsaError = WSAGetLastError();
  return zb::lookupError(kHostByNameErrors, wsaError, ZBErrorGeneric);
}

extern "C" ZBError ZBSocketAddressReverseLookup(const sockaddr *address, uint32_t length,
                                                char **outHost, char **outService,
                                                uint32_t flags) noexcept {
  if (address == nullptr || outHost == nullptr)
    return ZBErrorInvalidArgument;
  *outHost = nullptr;
  if (outService != nullptr)
    *outService = nullptr;
  ZBSocketInit();
  char host[kHostBufferSize];
  char service[kServiceBufferSize];
  const int status = zb::gSystemCalls.getnameinfo(
      address, static_cast<socklen_t>(length), host, sizeof host,
      outService != nullptr ? service : nullptr, outService != nullptr ? sizeof service : 0,
      translateFlags(static_cast<int32_t>(flags), kNameInfoFlags));
  if (status != 0)
    return _ZBSocketAddressErrorFromAIError(status, "", false);
  *outHost = _ZBCStringDuplicateWithZone(nullptr, host);
  if (outService != nullptr)
    *outService = _ZBCStringDuplicateWithZone(nullptr, service);
  return *outHost != nullptr ? ZBErrorNone : ZBErrorNotFound;
}
