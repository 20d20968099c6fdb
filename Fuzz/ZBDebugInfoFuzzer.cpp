// Fuzzes the reader of COFF symbols and DWARF line tables that names frames
// in backtraces and crash reports. Each input is laid out as a small PE
// image whose .debug_line, .debug_line_str and .debug_str sections, COFF
// symbols and string table are the input's bytes, so that mutations reach
// the line programs and symbol records rather than dying in the headers;
// the input is also read as a whole image file on its own. Whatever the
// lookup answers must lie inside the bytes it was given.
#include "ZBDebugInfo.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

void check(bool condition) {
  if (!condition)
    std::abort();
}

void put16(std::vector<uint8_t> &bytes, size_t at, uint32_t value) {
  bytes[at] = static_cast<uint8_t>(value);
  bytes[at + 1] = static_cast<uint8_t>(value >> 8);
}
void put32(std::vector<uint8_t> &bytes, size_t at, uint32_t value) {
  put16(bytes, at, value & 0xFFFF);
  put16(bytes, at + 2, value >> 16);
}

uint32_t take(const uint8_t *&data, size_t &size, unsigned width) {
  uint32_t value = 0;
  for (unsigned index = 0; index < width && size > 0; ++index, ++data, --size)
    value |= uint32_t{*data} << (8 * index);
  return value;
}

void lookUpInside(const std::vector<uint8_t> &file, uint32_t rva) {
  zb::debuginfo::Location location;
  if (!zb::debuginfo::lookup(file.data(), file.size(), rva, &location))
    return;
  const auto inside = [&](std::string_view text) {
    const auto *start = reinterpret_cast<const uint8_t *>(text.data());
    return text.empty() ||
           (start >= file.data() && start + text.size() <= file.data() + file.size());
  };
  check(inside(location.name) && inside(location.file) && inside(location.directory));
  check(!location.name.empty() || location.line != 0);
  check(location.name.empty() || location.functionRVA <= rva);
}

// DOS header, "PE", COFF header, a PE32+ optional header without data
// directories, and four sections: .text, then the three debug sections
// under "/N" names that point into the string table.
constexpr size_t kHeaders = 0x40 + 4 + 20 + 112;
constexpr char kLongNames[] = ".debug_line\0.debug_line_str\0.debug_str";
constexpr const char *kSectionNames[] = {".text", "/4", "/16", "/31"};

std::vector<uint8_t> imageAround(uint64_t imageBase, const uint8_t *parts[3],
                                 const size_t partSizes[3], const uint8_t *symbols,
                                 size_t symbolBytes, const uint8_t *strings, size_t stringBytes) {
  constexpr size_t kSections = 4;
  const size_t sectionTable = kHeaders;
  size_t at = sectionTable + kSections * 40;
  std::vector<uint8_t> file(at);
  file[0] = 'M';
  file[1] = 'Z';
  put32(file, 60, 0x40);
  std::memcpy(&file[0x40], "PE\0\0", 4);
  const size_t coff = 0x44;
  put16(file, coff, 0x8664);
  put16(file, coff + 2, kSections);
  put16(file, coff + 16, 112);
  const size_t optional = coff + 20;
  put16(file, optional, 0x20B);
  put32(file, optional + 24, static_cast<uint32_t>(imageBase));
  put32(file, optional + 28, static_cast<uint32_t>(imageBase >> 32));
  put32(file, optional + 56, 0x100000);
  uint32_t rawOffsets[kSections] = {};
  uint32_t rawSizes[kSections] = {0, 0, 0, 0};
  for (size_t part = 0; part < 3; ++part) {
    rawOffsets[part + 1] = static_cast<uint32_t>(file.size());
    rawSizes[part + 1] = static_cast<uint32_t>(partSizes[part]);
    file.insert(file.end(), parts[part], parts[part] + partSizes[part]);
  }
  for (size_t index = 0; index < kSections; ++index) {
    const size_t header = sectionTable + index * 40;
    std::memcpy(&file[header], kSectionNames[index], std::strlen(kSectionNames[index]));
    put32(file, header + 8, index == 0 ? 0x10000 : rawSizes[index]);
    put32(file, header + 12, index == 0 ? 0x1000 : 0x20000 + 0x10000 * index);
    put32(file, header + 16, rawSizes[index]);
    put32(file, header + 20, rawOffsets[index]);
  }
  put32(file, coff + 8, static_cast<uint32_t>(file.size()));
  put32(file, coff + 12, static_cast<uint32_t>(symbolBytes / 18));
  file.insert(file.end(), symbols, symbols + symbolBytes / 18 * 18);
  const size_t table = file.size();
  file.resize(table + 4);
  file.insert(file.end(), kLongNames, kLongNames + sizeof kLongNames);
  file.insert(file.end(), strings, strings + stringBytes);
  put32(file, table, static_cast<uint32_t>(file.size() - table));
  return file;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  lookUpInside(std::vector<uint8_t>(data, data + size), size >= 4 ? data[0] | data[1] << 8 : 0);

  // rva (4), image base (8), three section lengths (2 each), symbol bytes (2), then the
  // sections, the symbols and the string table's own bytes.
  const uint32_t rva = take(data, size, 4);
  const uint64_t imageBase = take(data, size, 4) | uint64_t{take(data, size, 4)} << 32;
  size_t partSizes[3];
  for (size_t &partSize : partSizes)
    partSize = take(data, size, 2);
  size_t symbolBytes = take(data, size, 2);
  const uint8_t *parts[3];
  for (size_t part = 0; part < 3; ++part) {
    partSizes[part] = std::min(partSizes[part], size);
    parts[part] = data;
    data += partSizes[part];
    size -= partSizes[part];
  }
  symbolBytes = std::min(symbolBytes, size);
  const uint8_t *symbols = data;
  data += symbolBytes;
  size -= symbolBytes;
  const std::vector<uint8_t> image =
      imageAround(imageBase, parts, partSizes, symbols, symbolBytes, data, size);
  lookUpInside(image, rva);
  lookUpInside(image, 0x1000 + rva % 0x10000);
  return 0;
}
