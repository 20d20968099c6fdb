// Where the format engine's standard output and standard error go: the
// debugger output, one UTF-16 line at a time. The platform writes a line
// (Sources/Win32, Sources/POSIX); tests can catch the lines instead.
#pragma once

namespace zb::format {

using DebuggerLineWriter = void (*)(const char16_t *line) noexcept;

// Hands one finished, zero-terminated line to the platform's debugger
// output.
void writeDebuggerLine(const char16_t *line) noexcept;

// Sends finished lines to `writer` instead (null restores the platform's);
// returns the previous writer.
DebuggerLineWriter setDebuggerLineWriter(DebuggerLineWriter writer) noexcept;

} // namespace zb::format
