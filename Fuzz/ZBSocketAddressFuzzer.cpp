// Fuzzes the literal IP parser and the printable form with arbitrary text.
// For each family it checks what callers rely on: validation alone and
// parsing into a list agree; a parsed address prints within the buffer,
// and the printed text parses back to the same address bytes; a buffer one
// byte too small is refused without being overrun. The same bytes are also
// read as an address record of every length by the accessors.
#include "ZBSocketAddress.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

void check(bool condition) {
  if (!condition)
    std::abort();
}

// The address bytes of a record (4 or 16 of them).
std::string addressBytes(const sockaddr *address, uint32_t length) {
  const void *bytes = nullptr;
  uint32_t count = 0;
  check(ZBSocketAddressGetAddress(address, length, &bytes, &count) == ZBErrorNone);
  return std::string(static_cast<const char *>(bytes), count);
}

void fuzzLiteral(int32_t family, const std::string &text) {
  ZBSocketAddressInfo *list = nullptr;
  const ZBError verdict = ZBSocketAddressParseLiteralIP(family, text.c_str(), 7, nullptr);
  const ZBError parsed = ZBSocketAddressParseLiteralIP(family, text.c_str(), 7, &list);
  check(verdict == parsed);
  if (parsed != ZBErrorNone) {
    check(parsed == ZBErrorInvalidArgument);
    return;
  }
  check(list != nullptr && list->next == nullptr);
  check(list->addressLength == ZBSocketAddressGetExpectedLength(list->address));
  char buffer[80];
  std::memset(buffer, 'Z', sizeof buffer);
  uint16_t port = 0;
  check(ZBSocketAddressGetPrintable(list->address, list->addressLength, nullptr, buffer, 64,
                                    &port) == ZBErrorNone);
  check(port == 7);
  const size_t length = std::strlen(buffer);
  check(length < 64 && buffer[64] == 'Z');
  // One byte short of the text and its zero: refused, nothing written past.
  char small[80];
  std::memset(small, 'Z', sizeof small);
  check(ZBSocketAddressGetPrintable(list->address, list->addressLength, nullptr, small,
                                    static_cast<uint32_t>(length), nullptr) != ZBErrorNone);
  check(small[length] == 'Z');
  ZBSocketAddressInfo *again = nullptr;
  check(ZBSocketAddressParseLiteralIP(list->family, buffer, 0, &again) == ZBErrorNone);
  check(addressBytes(again->address, again->addressLength) ==
        addressBytes(list->address, list->addressLength));
  ZBSocketAddressFreeInfoList(again);
  ZBSocketAddressFreeInfoList(list);
}

void fuzzRecord(const uint8_t *data, size_t size) {
  unsigned char record[32] = {};
  std::memcpy(record, data, size < sizeof record ? size : sizeof record);
  const auto *address = reinterpret_cast<const sockaddr *>(record);
  for (uint32_t length = 0; length <= sizeof record; ++length) {
    char text[64];
    uint16_t port = 0;
    bool isPrivate = false;
    ZBSocketAddressGetPrintable(address, length, nullptr, text, sizeof text, &port);
    ZBSocketAddressGetPort(address, length, &port);
    ZBSocketAddressIsPrivateIP(address, length, &isPrivate);
    ZBSocketAddressInfo *node = ZBSocketAddressMakeInfoListNode(address, length);
    ZBSocketAddressInfo *copy = ZBSocketAddressDupInfoList(node);
    check(node != nullptr && copy != nullptr && copy->addressLength == length);
    ZBSocketAddressFreeInfoList(copy);
    ZBSocketAddressFreeInfoList(node);
  }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  const std::string literal = text.substr(0, text.find('\0'));
  for (int32_t family : {0, 2, 23})
    fuzzLiteral(family, literal);
  fuzzRecord(data, size);
  return 0;
}
