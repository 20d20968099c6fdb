// The format engine's standard-output lines on Windows: the debugger
// output, as wide text.
#include "qprintfDebuggerOutput.h"

#include <windows.h>

namespace zb::format {

static_assert(sizeof(wchar_t) == sizeof(char16_t), "wide text is UTF-16 on Windows");

void writeDebuggerLine(const char16_t *line) noexcept {
  OutputDebugStringW(reinterpret_cast<const wchar_t *>(line));
}

} // namespace zb::format
