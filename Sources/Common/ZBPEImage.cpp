// The PE/COFF reader: little-endian fields read through bounds-checked
// helpers, so that a truncated or hostile image gives false.
#include "ZBPEImage.h"

#include <cstring>

namespace zb::pe {
namespace {

constexpr uint16_t kDOSMagic = 0x5A4D;        // "MZ"
constexpr uint32_t kPESignature = 0x00004550; // "PE\0\0"
constexpr uint16_t kOptionalPE32 = 0x10B;
constexpr uint16_t kOptionalPE32Plus = 0x20B;
constexpr size_t kCOFFHeaderSize = 20;
constexpr size_t kImportDescriptorSize = 20;
constexpr uint32_t kImportDirectory = 1;

uint16_t read16(const uint8_t *at) noexcept { return static_cast<uint16_t>(at[0] | at[1] << 8); }
uint32_t read32(const uint8_t *at) noexcept {
  return static_cast<uint32_t>(read16(at)) | static_cast<uint32_t>(read16(at + 2)) << 16;
}
uint64_t read64(const uint8_t *at) noexcept {
  return static_cast<uint64_t>(read32(at)) | static_cast<uint64_t>(read32(at + 4)) << 32;
}

bool fits(size_t size, uint64_t offset, uint64_t length) noexcept {
  return offset <= size && length <= size - offset;
}

// The field offsets that differ between the 32- and 64-bit optional headers.
struct OptionalLayout {
  size_t imageBase;
  size_t imageBaseWidth;
  size_t directoryCount;
};
constexpr OptionalLayout kPE32Layout = {28, 4, 92};
constexpr OptionalLayout kPE32PlusLayout = {24, 8, 108};
constexpr size_t kSizeOfImage = 56;

// The zero-terminated string at `offset`, or empty when it runs off the end.
std::string_view stringAt(const uint8_t *bytes, size_t size, uint64_t offset) noexcept {
  if (offset >= size)
    return {};
  const auto *start = reinterpret_cast<const char *>(bytes + offset);
  const void *end = std::memchr(start, '\0', size - offset);
  return end == nullptr ? std::string_view()
                        : std::string_view(start, static_cast<const char *>(end) - start);
}

} // namespace

bool readHeaders(const uint8_t *bytes, size_t size, Headers *out) noexcept {
  if (bytes == nullptr || !fits(size, 0, 64) || read16(bytes) != kDOSMagic)
    return false;
  const uint32_t pe = read32(bytes + 60);
  if (!fits(size, pe, 4 + kCOFFHeaderSize) || read32(bytes + pe) != kPESignature)
    return false;
  const uint8_t *coff = bytes + pe + 4;
  const uint16_t optionalSize = read16(coff + 16);
  const uint64_t optional = uint64_t{pe} + 4 + kCOFFHeaderSize;
  if (!fits(size, optional, optionalSize) || optionalSize < 2)
    return false;
  const uint8_t *header = bytes + optional;
  const uint16_t magic = read16(header);
  if (magic != kOptionalPE32 && magic != kOptionalPE32Plus)
    return false;
  const OptionalLayout &layout = magic == kOptionalPE32 ? kPE32Layout : kPE32PlusLayout;
  if (optionalSize < layout.directoryCount + 4)
    return false;

  Headers headers{};
  headers.machine = read16(coff);
  headers.sectionCount = read16(coff + 2);
  headers.symbolTableOffset = read32(coff + 8);
  headers.symbolCount = read32(coff + 12);
  headers.imageBase = layout.imageBaseWidth == 8 ? read64(header + layout.imageBase)
                                                 : read32(header + layout.imageBase);
  headers.imageSize = read32(header + kSizeOfImage);
  const uint32_t directoryCount = read32(header + layout.directoryCount);
  const size_t directory = layout.directoryCount + 4 + 8 * kImportDirectory;
  if (directoryCount > kImportDirectory && directory + 8 <= optionalSize) {
    headers.importRVA = read32(header + directory);
    headers.importSize = read32(header + directory + 4);
  }
  headers.sectionTable = static_cast<size_t>(optional + optionalSize);
  if (!fits(size, headers.sectionTable, uint64_t{headers.sectionCount} * kSectionHeaderSize))
    return false;
  *out = headers;
  return true;
}

Section sectionAt(const uint8_t *bytes, const Headers &headers, uint16_t index) noexcept {
  const uint8_t *header = bytes + headers.sectionTable + size_t{index} * kSectionHeaderSize;
  Section section{};
  std::memcpy(section.shortName, header, 8);
  section.virtualSize = read32(header + 8);
  section.virtualAddress = read32(header + 12);
  section.rawSize = read32(header + 16);
  section.rawOffset = read32(header + 20);
  section.characteristics = read32(header + 36);
  return section;
}

uint64_t stringTableOffset(const Headers &headers) noexcept {
  if (headers.symbolTableOffset == 0)
    return 0;
  return headers.symbolTableOffset + uint64_t{headers.symbolCount} * kSymbolSize;
}

bool hasLongName(const Section &section) noexcept {
  return section.shortName[0] == '/' && section.shortName[1] >= '0' && section.shortName[1] <= '9';
}

std::string_view sectionName(const Section &section, const uint8_t *stringTable,
                             size_t stringTableSize) noexcept {
  if (!hasLongName(section))
    return std::string_view(section.shortName);
  uint64_t offset = 0;
  for (const char *digit = section.shortName + 1; *digit != '\0'; ++digit) {
    if (*digit < '0' || *digit > '9')
      return {};
    offset = offset * 10 + static_cast<uint64_t>(*digit - '0');
  }
  // Offsets below 4 would point into the table's size field.
  if (stringTable == nullptr || offset < 4)
    return {};
  return stringAt(stringTable, stringTableSize, offset);
}

bool fileOffsetOfRVA(const uint8_t *file, const Headers &headers, uint32_t rva,
                     uint64_t *outOffset) noexcept {
  for (uint16_t index = 0; index < headers.sectionCount; ++index) {
    const Section section = sectionAt(file, headers, index);
    const uint32_t extent = section.virtualSize != 0 ? section.virtualSize : section.rawSize;
    if (rva >= section.virtualAddress && rva - section.virtualAddress < extent &&
        rva - section.virtualAddress < section.rawSize) {
      *outOffset = uint64_t{section.rawOffset} + (rva - section.virtualAddress);
      return true;
    }
  }
  return false;
}

bool visitImportedLibraries(const uint8_t *file, size_t size, const Headers &headers,
                            ImportVisitor visit, void *context) noexcept {
  if (headers.importRVA == 0)
    return true;
  uint64_t descriptor = 0;
  if (!fileOffsetOfRVA(file, headers, headers.importRVA, &descriptor))
    return false;
  for (;; descriptor += kImportDescriptorSize) {
    if (!fits(size, descriptor, kImportDescriptorSize))
      return false;
    const uint32_t nameRVA = read32(file + descriptor + 12);
    if (nameRVA == 0)
      return true; // the all-zero descriptor ends the table
    uint64_t name = 0;
    if (!fileOffsetOfRVA(file, headers, nameRVA, &name))
      return false;
    const std::string_view library = stringAt(file, size, name);
    if (library.empty())
      return false;
    if (!visit(library, context))
      return true;
  }
}

} // namespace zb::pe
