// The format engine's standard-output lines in the native build: there is
// no debugger channel, so the line goes back to UTF-8 on standard error.
#include "qprintfDebuggerOutput.h"

#include "ZBString.h"

#include <cstdio>

namespace zb::format {

void writeDebuggerLine(const char16_t *line) noexcept {
  size_t units = 0;
  while (line[units] != 0)
    ++units;
  // A line holds at most 1023 units of at most three bytes each.
  char text[3 * 1024 + 1];
  const size_t length = ZBUTF16ToUTF8(text, sizeof text - 1,
                                      reinterpret_cast<const ZBWChar *>(line), units, 0, nullptr);
  text[length < sizeof text ? length : sizeof text - 1] = '\0';
  std::fputs(text, stderr);
}

} // namespace zb::format
