// Argument fetchers shared by the library's own conversions.
#include "qprintfConversions.h"

namespace zb::print {

int fetchPointer(va_list *arguments, qprintf_info *info) noexcept {
  info->value.pointer = va_arg(*arguments, void *);
  return 0;
}

// A pointer and an int count ("%H").
int fetchPointerAndCount(va_list *arguments, qprintf_info *info) noexcept {
  info->value.pair.pointer = va_arg(*arguments, void *);
  info->value.pair.argument = va_arg(*arguments, int);
  info->count = 2;
  return 0;
}

int fetchInt(va_list *arguments, qprintf_info *info) noexcept {
  info->value.integer = va_arg(*arguments, int);
  return 0;
}

} // namespace zb::print
