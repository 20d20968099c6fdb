// "%b": the names of the set bits of a value, "<ONE,THREE>".
//
// The description is a run of entries: one byte holding a bit number plus
// one (1 to 32), then the bit's name (bytes above 32). Set bits are listed
// from bit 0 up; a set bit without a name is left out, or written "b<n>"
// with the "#" flag.
#include "ZBPrintText.h"
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include "ZBAlloc.h"
#include "ZBPrint.h"

#include <cstring>

namespace zb::print {
namespace {

// Room for "<", ">", and 32 items of at most "b31" with their commas.
constexpr size_t kNumberedRoom = 256;

// The name that follows the entry for `bit`; empty when there is none.
size_t findName(const char *description, unsigned bit, const char **outName) {
  const char *entry = std::strchr(description, static_cast<int>(bit + 1));
  if (entry == nullptr)
    return 0;
  size_t length = 0;
  while (static_cast<unsigned char>(entry[1 + length]) > 32)
    ++length;
  *outName = entry + 1;
  return length;
}

} // namespace

int fetchBitField(va_list *arguments, qprintf_info *info) noexcept {
  uint32_t value;
  switch (info->length) {
  case QPRINTF_LENGTH_CHAR:
    value = static_cast<uint8_t>(va_arg(*arguments, unsigned));
    break;
  case QPRINTF_LENGTH_SHORT:
    value = static_cast<uint16_t>(va_arg(*arguments, unsigned));
    break;
  case QPRINTF_LENGTH_INT64:
    value = static_cast<uint32_t>(va_arg(*arguments, unsigned long long));
    break;
  default:
    value = va_arg(*arguments, unsigned);
    break;
  }
  info->value.pair.argument = value;
  info->value.pair.pointer = va_arg(*arguments, void *);
  info->count = 2;
  return 0;
}

int renderBitField(qprintf_info *info) noexcept {
  const auto *description = static_cast<const char *>(info->value.pair.pointer);
  if (description == nullptr)
    return qprintf_print_from_formatter(info, ZBPrintGetNullString(), -1);
  const size_t capacity = std::strlen(description) + kNumberedRoom;
  auto *buffer = static_cast<char *>(_ZBAllocWithZoneAndDesc(nullptr, capacity, "bit_field"));
  if (buffer == nullptr)
    return 0;

  const auto value = static_cast<uint32_t>(info->value.pair.argument);
  const bool numberUnnamed = (info->flags & QPRINTF_FLAG_ALTERNATE) != 0;
  BoundedText text(buffer, capacity);
  text.append('<');
  bool first = true;
  for (unsigned bit = 0; bit < 32; ++bit) {
    if ((value & (uint32_t(1) << bit)) == 0)
      continue;
    const char *name = nullptr;
    const size_t nameLength = findName(description, bit, &name);
    if (nameLength == 0 && !numberUnnamed)
      continue;
    if (!first)
      text.append(',');
    first = false;
    if (nameLength > 0)
      text.append(name, nameLength);
    else
      text.appendFormat("b%u", bit);
  }
  text.append('>');
  const int result = qprintf_emit(info, text.text(), text.length());
  _ZBFreeWithZone(nullptr, buffer);
  return result;
}

} // namespace zb::print
