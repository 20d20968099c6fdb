// Logging's part in the library's load-time start-up.
#pragma once

// Creates the ring of recent lines, installs the debugger-output sink and
// honours "ZBLOG_TO_FILE". Runs once, before any line is written.
void _ZBLogStartup() noexcept;

// Hands `text` to the current sink as a raw line, outside the ring and
// without the log's lock: for backtraces printed on the way out.
void _ZBLogWriteToSink(const char *text) noexcept;
