// What the process sources share with start-up and with the tests: the
// caching of the executable's path at load, the Microsoft C runtime's
// command-line rules in both directions, a child's environment block, and
// the machine's figures read at load.
#pragma once

#include "ZBError.h"

#include <string>
#include <vector>

// Reads the executable's path once, at load, into the cache that
// ZBProcessCopyCurrentPath answers from.
void _ZBProcessStartup() noexcept;

// Reads the machine's figures once, at load, for ZBSystemGetInfo.
void _ZBSystemStartup() noexcept;

namespace zb::process {

// A command line split as the C runtime splits it for main().
std::vector<std::wstring> parseCommandLine(const wchar_t *commandLine);

// Appends one argument to `commandLine` so that parseCommandLine gives it
// back unchanged, preceded by one space unless it is the first. argv[0]
// follows its own rule (no backslash escapes): false when it holds a quote,
// which it cannot carry.
bool appendArgument(std::wstring &commandLine, const std::wstring &argument, bool first);

// UTF-16 of UTF-8 text; false when it is not valid UTF-8.
bool wideOf(const char *text, std::wstring &out);

// A child's environment block: the entries (null: the library's own
// environment), QUOVEX_CHILDPROCESS=1, and the system variables Windows
// programs need where the entries lack them, sorted without regard to case,
// each ended by a zero and the whole by one more. ZBErrorInvalidArgument
// when an entry is not UTF-8 or has no "=" after its first character.
ZBError environmentBlock(const char *const *environment, std::wstring &out);

// The value of `name` in an environment block, or null.
const wchar_t *findInBlock(const std::wstring &block, const wchar_t *name);

// What CreateProcessW runs: the program file and the whole command line.
struct Program {
  std::wstring application;
  std::wstring commandLine;
};

// Finds the program (through the block's PATH with ZBProcessSpawnSearchPath)
// and writes its command line; batch files go through cmd.exe when `flags`
// allow them. Gives ZBProcessSpawn's codes for the path and the arguments.
ZBError resolveProgram(const char *path, const char *const *arguments, const std::wstring &block,
                       uint32_t flags, Program &out);

} // namespace zb::process
