// The resolvers that turn an address into a function name, a file and a
// line, tried in order by ZBSymbolLookup: DbgHelp (PDB, and DWARF up to
// version 4 under Wine), the library's own reader of the image file's COFF
// symbols and DWARF line table, and the module's export table. Each fills
// what it knows; the chain asks the next for what is still missing.
// Included by Sources/Win32 only.
#pragma once

#include <cstdint>
#include <string>

namespace zb::symbols {

// The module an address lies in, as the chain hands it to each resolver.
struct Module {
  uintptr_t base;
  const wchar_t *path;
};

struct Answer {
  std::string name; // as the module writes it: C++ names may be mangled
  uintptr_t functionAddress = 0;
  std::string file;
  uint32_t line = 0;
};

bool resolveWithDbgHelp(uintptr_t address, const Module &module, Answer &answer) noexcept;
bool resolveWithDebugInfo(uintptr_t address, const Module &module, Answer &answer) noexcept;
bool resolveWithExports(uintptr_t address, const Module &module, Answer &answer) noexcept;

// The resolvers the chain runs, as bits; all of them unless a test narrows
// the chain to compare one resolver with a reference. Changing the set
// forgets the cached answers (their strings stay valid).
enum ResolverBits : uint32_t {
  kResolveDbgHelp = 1,
  kResolveDebugInfo = 2,
  kResolveExports = 4,
  kResolveAll = 7,
};
void setResolvers(uint32_t bits) noexcept;

// Makes the answer cache and the demangling buffer, at the backtrace
// service's start-up, so that the first lookup need not.
void prepare() noexcept;

// UTF-16 text as UTF-8; empty when it cannot be converted.
std::string utf8(const wchar_t *text) noexcept;

} // namespace zb::symbols
