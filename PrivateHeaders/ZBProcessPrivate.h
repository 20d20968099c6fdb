// What the process sources share with start-up and with the tests: the
// caching of the executable's path at load, and the Microsoft C runtime's
// command-line rules in both directions.
#pragma once

#include <string>
#include <vector>

// Reads the executable's path once, at load, into the cache that
// ZBProcessCopyCurrentPath answers from.
void _ZBProcessStartup() noexcept;

namespace zb::process {

// A command line split as the C runtime splits it for main().
std::vector<std::wstring> parseCommandLine(const wchar_t *commandLine);

// Appends one argument to `commandLine` so that parseCommandLine gives it
// back unchanged, preceded by one space unless it is the first. argv[0]
// follows its own rule (no backslash escapes): false when it holds a quote,
// which it cannot carry.
bool appendArgument(std::wstring &commandLine, const std::wstring &argument, bool first);

} // namespace zb::process
