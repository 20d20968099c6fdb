// A reader of PE/COFF headers over bytes: the headers and section table of
// a mapped image or of an image file, section names including the "/N"
// long names that refer into the COFF string table, file offsets of
// relative addresses, and the names of the libraries a file imports.
// Platform-neutral: every read is bounded by the caller's byte count, so
// malformed input gives false, never a read outside the bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zb::pe {

struct Headers {
  uint16_t machine;
  uint16_t sectionCount;
  uint32_t symbolTableOffset; // file offset of the COFF symbols, 0 when none
  uint32_t symbolCount;
  uint64_t imageBase;
  uint32_t imageSize; // SizeOfImage: the mapped extent
  uint32_t importRVA; // the import directory, 0 when none
  uint32_t importSize;
  size_t sectionTable; // offset of the first section header in the bytes
};

struct Section {
  char shortName[9]; // the header's 8 name bytes, zero-terminated
  uint32_t virtualSize;
  uint32_t virtualAddress;
  uint32_t rawSize;
  uint32_t rawOffset;
  uint32_t characteristics;
};

constexpr size_t kSectionHeaderSize = 40;
constexpr size_t kSymbolSize = 18;

// The DOS, COFF and optional headers of `bytes`; false unless they are a
// PE image's and the whole section table lies inside the bytes.
bool readHeaders(const uint8_t *bytes, size_t size, Headers *out) noexcept;

// Section `index` (below headers.sectionCount) of bytes that readHeaders
// accepted.
Section sectionAt(const uint8_t *bytes, const Headers &headers, uint16_t index) noexcept;

// The file offset of the COFF string table (it follows the symbols), or 0
// when the image has no symbol table. The table begins with its own size.
uint64_t stringTableOffset(const Headers &headers) noexcept;

// Whether the section's name is a "/N" reference into the string table.
bool hasLongName(const Section &section) noexcept;

// The section's full name: its header name, or for "/N" the string at
// offset N of `stringTable` (the whole table, size field included). Empty
// when a long name cannot be resolved from the table given.
std::string_view sectionName(const Section &section, const uint8_t *stringTable,
                             size_t stringTableSize) noexcept;

// The file offset of a relative virtual address in an image file, through
// the section that holds it; false when none does.
bool fileOffsetOfRVA(const uint8_t *file, const Headers &headers, uint32_t rva,
                     uint64_t *outOffset) noexcept;

// Calls `visit(name, context)` for each library named in the import table
// of the image file `file`, in table order, until it returns false. False
// when the table is malformed (names read before that were visited).
using ImportVisitor = bool (*)(std::string_view name, void *context);
bool visitImportedLibraries(const uint8_t *file, size_t size, const Headers &headers,
                            ImportVisitor visit, void *context) noexcept;

} // namespace zb::pe
