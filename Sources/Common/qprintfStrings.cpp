// The format engine's character and string conversions: c, C, s and S.
//
// A character prints its low byte (a zero byte prints nothing). A narrow
// string prints up to the precision, where precision 0, on purpose, means
// the whole string. Wide strings come in 16-bit ("S", "l", "h", "w") or
// 32-bit units (the longer length codes); each unit is narrowed to its low
// byte, and precision 0 prints nothing. A null string prints "(null)".
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include "ZBAlloc.h"
#include "ZBPrint.h"

#include <cstring>

namespace zb::format {
namespace {

// Bits per unit of the string a conversion reads.
int unitBits(const qprintf_info &info) {
  if (info.conversion == 'S' || info.length == QPRINTF_LENGTH_LONG)
    return 16;
  uint32_t length = info.length;
  if (length == QPRINTF_LENGTH_WIDE || length == QPRINTF_LENGTH_WIDE_ZERO)
    length = QPRINTF_LENGTH_SHORT;
  else if (length == QPRINTF_LENGTH_WIDE_SPACE)
    length = QPRINTF_LENGTH_INT32;
  if (length <= QPRINTF_LENGTH_CHAR)
    return 8;
  return length == QPRINTF_LENGTH_SHORT ? 16 : 32;
}

template <typename Unit>
int renderWide(qprintf_info *info, const Unit *units) {
  if (info->precision == 0)
    return qprintf_emit(info, "", 0);
  size_t count = 0;
  const size_t limit = info->precision > 0 ? size_t(info->precision) : SIZE_MAX;
  while (count < limit && units[count] != 0)
    ++count;
  auto *narrow =
      static_cast<char *>(_ZBAllocWithZoneAndDesc(nullptr, count + 1, "_format_string"));
  if (narrow == nullptr)
    return 0;
  for (size_t i = 0; i < count; ++i)
    narrow[i] = static_cast<char>(units[i] & 0xFF);
  narrow[count] = '\0';
  // Written as text: a unit whose low byte is zero ends it.
  const int result = qprintf_print_from_formatter(info, narrow, -1);
  _ZBFreeWithZone(nullptr, narrow);
  return result;
}

} // namespace

int fetchCharacter(va_list *arguments, qprintf_info *info) noexcept {
  const uint32_t length = info->length;
  if (info->conversion == 'C' || length <= QPRINTF_LENGTH_LONG || length == QPRINTF_LENGTH_WIDE)
    info->value.integer = va_arg(*arguments, int);
  // Other length codes make "%c" take no argument at all.
  return 0;
}

int renderCharacter(qprintf_info *info) noexcept {
  const char character = static_cast<char>(info->value.integer & 0xFF);
  return qprintf_emit(info, &character, character != '\0' ? 1 : 0);
}

int fetchString(va_list *arguments, qprintf_info *info) noexcept {
  info->value.pointer = va_arg(*arguments, void *);
  return 0;
}

int renderString(qprintf_info *info) noexcept {
  const void *pointer = info->value.pointer;
  if (pointer == nullptr)
    return qprintf_print_from_formatter(info, ZBPrintGetNullString(), info->precision);
  switch (unitBits(*info)) {
  case 16:
    return renderWide(info, static_cast<const uint16_t *>(pointer));
  case 32:
    return renderWide(info, static_cast<const uint32_t *>(pointer));
  default:
    return qprintf_print_from_formatter(info, static_cast<const char *>(pointer),
                                        info->precision);
  }
}

} // namespace zb::format
