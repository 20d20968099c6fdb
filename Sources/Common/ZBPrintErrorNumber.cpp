// "%m": the C runtime's text for an error number.
#include "ZBPrintText.h"
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include <cstring>

namespace zb::print {

int renderErrorNumber(qprintf_info *info) noexcept {
  const int number = static_cast<int>(info->value.integer);
  // The runtimes keep strerror's text per thread for unknown numbers.
  const char *description = std::strerror(number);
  if (description != nullptr)
    return qprintf_print_from_formatter(info, description, -1);
  char buffer[40];
  BoundedText text(buffer, sizeof buffer);
  text.appendFormat("errno=%d/0x%x", number, static_cast<unsigned>(number));
  return qprintf_emit(info, text.text(), text.length());
}

} // namespace zb::print
