// "%M": a 6-byte hardware address, "00:11:22:33:44:55"; with "#" in three
// groups, "0011.2233.4455"; "+" writes upper-case digits.
#include "ZBPrintText.h"
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include "ZBPrint.h"

namespace zb::print {

int renderHardwareAddress(qprintf_info *info) noexcept {
  const auto *bytes = static_cast<const unsigned char *>(info->value.pointer);
  if (bytes == nullptr)
    return qprintf_print_from_formatter(info, ZBPrintGetNullString(), -1);
  const bool upper = (info->flags & QPRINTF_FLAG_PLUS) != 0;
  const bool grouped = (info->flags & QPRINTF_FLAG_ALTERNATE) != 0;
  char buffer[18];
  BoundedText text(buffer, sizeof buffer);
  for (int i = 0; i < 6; ++i) {
    if (grouped ? (i == 2 || i == 4) : i > 0)
      text.append(grouped ? '.' : ':');
    text.appendHexByte(bytes[i], upper);
  }
  return qprintf_emit(info, text.text(), text.length());
}

} // namespace zb::print
