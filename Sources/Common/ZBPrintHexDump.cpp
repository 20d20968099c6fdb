// "%H": a hex dump of a pointer and an int byte count, " 00 01 02".
//
// The width sets the bytes per line (1 to 15; anything else gives 16) and
// so does not pad. "+" starts each line with its offset, " 0010"; "#" ends
// it with the bytes as characters, "  |ab..|", padding a short last line
// so the columns stay aligned. Lines are separated by newlines.
#include "ZBPrintText.h"
#include "qprintfConversions.h"
#include "qprintfEngine.h"

#include "ZBPrint.h"

#include <algorithm>

namespace zb::print {
namespace {

constexpr int kDefaultBytesPerLine = 16;

void appendCharacters(BoundedText &text, const unsigned char *bytes, int count, int perLine) {
  for (int i = count; i < perLine; ++i)
    text.append("   ");
  text.append("  |");
  for (int i = 0; i < count; ++i)
    text.append(bytes[i] >= 32 && bytes[i] <= 126 ? static_cast<char>(bytes[i]) : '.');
  for (int i = count; i < perLine; ++i)
    text.append(' ');
  text.append('|');
}

} // namespace

int renderHexDump(qprintf_info *info) noexcept {
  const auto *bytes = static_cast<const unsigned char *>(info->value.pair.pointer);
  if (bytes == nullptr)
    return qprintf_print_from_formatter(info, ZBPrintGetNullString(), -1);
  const int64_t total = info->value.pair.argument;
  const int perLine = info->width >= 1 && info->width <= 15 ? info->width : kDefaultBytesPerLine;
  qprintf_info line = *info;
  line.width = 0;

  int result = 0;
  for (int64_t offset = 0; offset < total; offset += perLine) {
    const int count = static_cast<int>(std::min<int64_t>(perLine, total - offset));
    // An offset, 16 x " xx", "  |", 16 characters, "|" and a newline.
    char buffer[160];
    BoundedText text(buffer, sizeof buffer);
    if (info->flags & QPRINTF_FLAG_PLUS)
      text.appendFormat(" %04llx", static_cast<unsigned long long>(offset));
    for (int i = 0; i < count; ++i) {
      text.append(' ');
      text.appendHexByte(bytes[offset + i], false);
    }
    if (info->flags & QPRINTF_FLAG_ALTERNATE)
      appendCharacters(text, bytes + offset, count, perLine);
    if (offset + perLine < total)
      text.append('\n');
    result = qprintf_emit(&line, text.text(), text.length());
  }
  return result;
}

} // namespace zb::print
