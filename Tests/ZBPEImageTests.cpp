// The PE/COFF reader on images built here byte by byte: headers, section
// names short and long ("/N" into the string table), relative addresses,
// imported libraries, and every truncation and corruption of the headers,
// which must give false and never a read outside the bytes. Runs natively
// too, under the sanitizers.
#include "ZBPEImage.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

namespace pe = zb::pe;

constexpr uint32_t kPEOffset = 0x40;
constexpr uint32_t kOptional = kPEOffset + 24;
constexpr uint32_t kSectionTable = kOptional + 240;
constexpr uint32_t kSymbols = 0xA00;
constexpr uint32_t kStrings = kSymbols + 2 * 18;

void put16(std::vector<uint8_t> &bytes, size_t at, uint16_t value) {
  bytes[at] = static_cast<uint8_t>(value);
  bytes[at + 1] = static_cast<uint8_t>(value >> 8);
}
void put32(std::vector<uint8_t> &bytes, size_t at, uint32_t value) {
  put16(bytes, at, static_cast<uint16_t>(value));
  put16(bytes, at + 2, static_cast<uint16_t>(value >> 16));
}
void putText(std::vector<uint8_t> &bytes, size_t at, const std::string &text) {
  std::memcpy(bytes.data() + at, text.c_str(), text.size() + 1);
}

struct SectionLayout {
  const char *name; // at most 8 bytes
  uint32_t virtualAddress, virtualSize, rawOffset, rawSize;
};
const SectionLayout kSections[] = {
    {".text", 0x1000, 0x180, 0x400, 0x200},
    {".idata", 0x2000, 0x120, 0x600, 0x200},
    {"/4", 0x3000, 0x80, 0x800, 0x200},
    {"/16", 0x4000, 0x40, 0, 0},
};

// A 64-bit image file with the sections above, two COFF symbols, a string
// table naming ".debug_line" (offset 4) and ".debug_info" (offset 16), and
// an import table naming two libraries.
std::vector<uint8_t> makeImage() {
  std::vector<uint8_t> bytes(kStrings + 64, 0);
  put16(bytes, 0, 0x5A4D);
  put32(bytes, 60, kPEOffset);
  put32(bytes, kPEOffset, 0x00004550);
  put16(bytes, kPEOffset + 4, 0x8664);
  put16(bytes, kPEOffset + 6, 4);
  put32(bytes, kPEOffset + 12, kSymbols);
  put32(bytes, kPEOffset + 16, 2);
  put16(bytes, kPEOffset + 20, 240);
  put16(bytes, kOptional, 0x20B);
  put32(bytes, kOptional + 24, 0x40000000); // ImageBase, low half
  put32(bytes, kOptional + 28, 0x1);        // and high half
  put32(bytes, kOptional + 56, 0x5000);
  put32(bytes, kOptional + 108, 16);
  put32(bytes, kOptional + 120, 0x2000); // the import directory
  put32(bytes, kOptional + 124, 60);
  for (size_t i = 0; i < std::size(kSections); ++i) {
    const SectionLayout &section = kSections[i];
    const size_t header = kSectionTable + 40 * i;
    std::memcpy(bytes.data() + header, section.name, std::strlen(section.name));
    put32(bytes, header + 8, section.virtualSize);
    put32(bytes, header + 12, section.virtualAddress);
    put32(bytes, header + 16, section.rawSize);
    put32(bytes, header + 20, section.rawOffset);
  }
  // Import descriptors at RVA 0x2000 (file 0x600): names at 0x2100, 0x2110.
  put32(bytes, 0x600 + 12, 0x2100);
  put32(bytes, 0x600 + 20 + 12, 0x2110);
  putText(bytes, 0x700, "KERNEL32.dll");
  putText(bytes, 0x710, "zb_missing.dll");
  const std::string strings = std::string(".debug_line") + '\0' + ".debug_info";
  put32(bytes, kStrings, static_cast<uint32_t>(4 + strings.size() + 1));
  std::memcpy(bytes.data() + kStrings + 4, strings.c_str(), strings.size() + 1);
  return bytes;
}

TEST(ZBPEImage, HeadersSectionsAndLongNames) {
  const std::vector<uint8_t> image = makeImage();
  pe::Headers headers;
  ASSERT_TRUE(pe::readHeaders(image.data(), image.size(), &headers));
  EXPECT_EQ(headers.machine, 0x8664);
  EXPECT_EQ(headers.sectionCount, 4);
  EXPECT_EQ(headers.imageBase, 0x140000000ull);
  EXPECT_EQ(headers.imageSize, 0x5000u);
  EXPECT_EQ(headers.importRVA, 0x2000u);
  EXPECT_EQ(headers.sectionTable, kSectionTable);
  ASSERT_EQ(pe::stringTableOffset(headers), kStrings);

  const uint8_t *strings = image.data() + kStrings;
  const size_t stringsSize = image.size() - kStrings;
  const char *names[] = {".text", ".idata", ".debug_line", ".debug_info"};
  for (uint16_t i = 0; i < 4; ++i) {
    const pe::Section section = pe::sectionAt(image.data(), headers, i);
    EXPECT_EQ(pe::sectionName(section, strings, stringsSize), names[i]);
    EXPECT_EQ(section.virtualAddress, kSections[i].virtualAddress);
    EXPECT_EQ(section.virtualSize, kSections[i].virtualSize);
    EXPECT_EQ(section.rawOffset, kSections[i].rawOffset);
  }
  EXPECT_EQ(pe::sectionName(pe::sectionAt(image.data(), headers, 2), nullptr, 0), "")
      << "no table at hand";

  // Long-name references that the table cannot resolve.
  const struct {
    const char *name;
    const char *expected;
  } references[] = {
      {"/4", ".debug_line"}, {"/9", "g_line"}, {"/3", ""},         {"/0", ""},  {"/4x", ""},
      {"/99999999", ""},     {"/", "/"},       {"/text", "/text"}, {"/28", ""}, // past the table's
                                                                                // last terminator
  };
  for (const auto &reference : references) {
    pe::Section section{};
    std::strncpy(section.shortName, reference.name, 8);
    EXPECT_EQ(pe::sectionName(section, strings, 28), reference.expected) << reference.name;
  }
  // A name that runs to the end of the bytes without a terminator.
  pe::Section section{};
  std::strcpy(section.shortName, "/16");
  EXPECT_EQ(pe::sectionName(section, strings, 20), "");
}

TEST(ZBPEImage, RelativeAddressesAndImports) {
  const std::vector<uint8_t> image = makeImage();
  pe::Headers headers;
  ASSERT_TRUE(pe::readHeaders(image.data(), image.size(), &headers));
  const struct {
    uint32_t rva;
    bool found;
    uint64_t offset;
  } addresses[] = {
      {0x1000, true, 0x400}, {0x117F, true, 0x57F}, {0x1180, false, 0}, {0x2110, true, 0x710},
      {0x3000, true, 0x800}, {0x4000, false, 0},    {0x0, false, 0},    {0xFFFFFFFF, false, 0},
  };
  for (const auto &address : addresses) {
    uint64_t offset = 0;
    EXPECT_EQ(pe::fileOffsetOfRVA(image.data(), headers, address.rva, &offset), address.found)
        << std::hex << address.rva;
    if (address.found) {
      EXPECT_EQ(offset, address.offset) << std::hex << address.rva;
    }
  }

  std::vector<std::string> names;
  auto collect = [](std::string_view name, void *context) {
    static_cast<std::vector<std::string> *>(context)->emplace_back(name);
    return true;
  };
  EXPECT_TRUE(pe::visitImportedLibraries(image.data(), image.size(), headers, collect, &names));
  EXPECT_EQ(names, (std::vector<std::string>{"KERNEL32.dll", "zb_missing.dll"}));

  names.clear();
  auto first = [](std::string_view name, void *context) {
    static_cast<std::vector<std::string> *>(context)->emplace_back(name);
    return false;
  };
  EXPECT_TRUE(pe::visitImportedLibraries(image.data(), image.size(), headers, first, &names));
  EXPECT_EQ(names.size(), 1u) << "false stops the walk";

  // A name outside every section, and a table that runs off the bytes.
  std::vector<uint8_t> broken = image;
  put32(broken, 0x600 + 20 + 12, 0x9000);
  names.clear();
  EXPECT_FALSE(pe::visitImportedLibraries(broken.data(), broken.size(), headers, collect, &names));
  EXPECT_EQ(names.size(), 1u);
  EXPECT_FALSE(pe::visitImportedLibraries(image.data(), 0x610, headers, collect, &names));
}

TEST(ZBPEImage, TruncatedAndCorruptHeadersAreRefused) {
  const std::vector<uint8_t> image = makeImage();
  // Every prefix: refused, or accepted with the section table inside it.
  for (size_t size = 0; size <= kSectionTable + 4 * 40 + 1; ++size) {
    std::vector<uint8_t> prefix(image.begin(), image.begin() + static_cast<ptrdiff_t>(size));
    pe::Headers headers;
    const bool accepted = pe::readHeaders(prefix.data(), prefix.size(), &headers);
    EXPECT_EQ(accepted, size >= kSectionTable + 4 * 40) << size;
  }
  const struct {
    size_t at;
    uint32_t value;
    int width;
  } corruptions[] = {
      {0, 0x5A4E, 2},      // not "MZ"
      {60, 0xFFFFFFF0, 4}, // the PE header beyond the bytes
      {60, static_cast<uint32_t>(image.size() - 8), 4},
      {kPEOffset, 0x00004551, 4},  // not "PE\0\0"
      {kPEOffset + 20, 1, 2},      // an optional header too small for its magic
      {kPEOffset + 20, 100, 2},    // too small for the data directories
      {kPEOffset + 20, 0xFFFF, 2}, // beyond the bytes
      {kOptional, 0x107, 2},       // neither PE32 nor PE32+
      {kPEOffset + 6, 0xFFFF, 2},  // more sections than the bytes hold
  };
  for (const auto &corruption : corruptions) {
    std::vector<uint8_t> bytes = image;
    if (corruption.width == 2)
      put16(bytes, corruption.at, static_cast<uint16_t>(corruption.value));
    else
      put32(bytes, corruption.at, corruption.value);
    pe::Headers headers;
    EXPECT_FALSE(pe::readHeaders(bytes.data(), bytes.size(), &headers))
        << std::hex << corruption.at << " = " << corruption.value;
  }
  pe::Headers headers;
  EXPECT_FALSE(pe::readHeaders(nullptr, 4096, &headers));

  // A 32-bit image reads its fields from their PE32 places.
  std::vector<uint8_t> bytes = image;
  put16(bytes, kOptional, 0x10B);
  put32(bytes, kOptional + 28, 0x00400000);
  put32(bytes, kOptional + 92, 16);
  put32(bytes, kOptional + 104, 0x2000);
  ASSERT_TRUE(pe::readHeaders(bytes.data(), bytes.size(), &headers));
  EXPECT_EQ(headers.imageBase, 0x00400000u);
  EXPECT_EQ(headers.importRVA, 0x2000u);
  // No symbol table: no string table.
  put32(bytes, kPEOffset + 12, 0);
  ASSERT_TRUE(pe::readHeaders(bytes.data(), bytes.size(), &headers));
  EXPECT_EQ(pe::stringTableOffset(headers), 0u);
}

} // namespace
