// The library's own reader of an image file's debug information: the COFF
// symbol table for function names and the DWARF line table (.debug_line,
// versions 2 to 5, with its strings in .debug_str and .debug_line_str) for
// files and lines. Neither the system's DbgHelp nor Wine's reads the DWARF 5
// that GCC writes by default, so without this reader the library's own
// frames would have no names on Windows. Platform-neutral: bytes in, answers
// out, every read bounded by the byte count, so that a malformed file gives
// no answer instead of a fault (a crash report depends on it).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zb::debuginfo {

// What the file tells about one address. The views point into the file's
// bytes; empty and 0 where the file does not say.
struct Location {
  std::string_view name;      // the function symbol at or below the address, as written (mangled)
  uint32_t functionRVA;       // where that function starts
  std::string_view directory; // the line table's directory of the file, may be empty
  std::string_view file;      // the file name as the line table writes it
  uint32_t line;
};

// Looks the relative virtual address `rva` up in the image file `file` of
// `size` bytes. False when the file answers neither a name nor a line.
bool lookup(const uint8_t *file, size_t size, uint32_t rva, Location *out) noexcept;

} // namespace zb::debuginfo
