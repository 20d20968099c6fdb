// Address-information nodes shared by the literal parser and name
// resolution: one allocation from the default zone holds the header, then
// the address, then the canonical name.
#pragma once

#include "ZBSocketAddress.h"

namespace zb::socketaddress {

// A zero-filled node with copies of `address` and `name` (either may be
// absent); null when out of memory.
ZBSocketAddressInfo *makeInfoNode(int32_t family, int32_t socketType, int32_t protocol,
                                  const void *address, uint32_t addressLength,
                                  const char *name) noexcept;

} // namespace zb::socketaddress
