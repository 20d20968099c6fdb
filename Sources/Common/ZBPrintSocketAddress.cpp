// "%Z": a socket address. An IPv4 address (family 2) prints "10.0.0.1", with
// "#" after "inet:" and with "+" followed by ":<port>" when the port is not
// 0. Every other family, IPv6 (23) included, prints "unknown(?)", after
// "family(<hex>/0x<hex>):" with "#".
//
// The address is read as bytes in the layout every platform shares (see
// ZBSocketAddressText.h). No socket header is needed.
#include "ZBPrintText.h"
#include "ZBSocketAddressText.h"
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include "ZBPrint.h"

namespace zb::print {

int renderSocketAddress(qprintf_info *info) noexcept {
  const auto *address = static_cast<const unsigned char *>(info->value.pointer);
  if (address == nullptr)
    return qprintf_print_from_formatter(info, ZBPrintGetNullString(), -1);
  const bool alternate = (info->flags & QPRINTF_FLAG_ALTERNATE) != 0;
  const uint16_t family = socketaddress::familyOf(address);
  char buffer[256];
  BoundedText text(buffer, sizeof buffer);
  if (family == socketaddress::kFamilyIPv4) {
    const unsigned char *ip = address + socketaddress::kIPv4AddressOffset;
    if (alternate)
      text.append("inet:");
    text.appendFormat("%u.%u.%u.%u", ip[0], ip[1], ip[2], ip[3]);
    const unsigned port = socketaddress::portOf(address);
    if ((info->flags & QPRINTF_FLAG_PLUS) && port != 0)
      text.appendFormat(":%u", port);
  } else {
    if (alternate)
      text.appendFormat("family(%x/0x%x):", unsigned(family), unsigned(family));
    text.append("unknown(?)");
  }
  return qprintf_emit(info, text.text(), text.length());
}

} // namespace zb::print
