// Fuzzes the PE/COFF reader with arbitrary bytes held in a buffer of their
// exact size, taken both as an image file and as a mapped image: headers,
// every section and its name (the bytes after the section table standing
// in for the string table), the file offset of every section's start and
// end, and the import table. What the reader accepts must lie inside the
// bytes: a section table it accepted ends within them, a name it resolved
// is terminated inside the table.
#include "ZBPEImage.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>

namespace {

void check(bool condition) {
  if (!condition)
    std::abort();
}

bool countImport(std::string_view name, void *context) {
  check(!name.empty() && name.find('\0') == std::string_view::npos);
  return ++*static_cast<int *>(context) < 4096;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::unique_ptr<uint8_t[]> bytes(new uint8_t[size]);
  std::memcpy(bytes.get(), data, size);
  namespace pe = zb::pe;
  pe::Headers headers;
  if (!pe::readHeaders(bytes.get(), size, &headers))
    return 0;
  const size_t tableEnd =
      headers.sectionTable + size_t{headers.sectionCount} * pe::kSectionHeaderSize;
  check(tableEnd <= size);
  const uint8_t *strings = bytes.get() + tableEnd;
  const size_t stringsSize = size - tableEnd;
  for (uint16_t index = 0; index < headers.sectionCount; ++index) {
    const pe::Section section = pe::sectionAt(bytes.get(), headers, index);
    const std::string_view name = pe::sectionName(section, strings, stringsSize);
    if (pe::hasLongName(section) && !name.empty()) {
      check(name.data() >= reinterpret_cast<const char *>(strings));
      check(name.data() + name.size() < reinterpret_cast<const char *>(strings + stringsSize));
      check(name.data()[name.size()] == '\0');
    }
    uint64_t offset = 0;
    pe::fileOffsetOfRVA(bytes.get(), headers, section.virtualAddress, &offset);
    pe::fileOffsetOfRVA(bytes.get(), headers, section.virtualAddress + section.virtualSize,
                        &offset);
  }
  int imports = 0;
  pe::visitImportedLibraries(bytes.get(), size, headers, countImport, &imports);
  pe::stringTableOffset(headers);
  return 0;
}
