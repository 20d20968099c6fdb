// What the readers of an image file's debug information share: a bounded
// cursor over bytes and the image's sections that they read. Platform-
// neutral; included by Sources/Common/ZBDebugInfo*.cpp only.
#pragma once

#include "ZBDebugInfo.h"
#include "ZBPEImage.h"

#include <cstring>

namespace zb::debuginfo {

// A bounded cursor: every read past the end sets `failed` and yields zeros.
class Reader {
public:
  Reader() noexcept = default;
  Reader(const uint8_t *bytes, uint64_t size) noexcept : bytes_(bytes), size_(size) {}

  bool failed() const noexcept { return failed_; }
  bool atEnd() const noexcept { return failed_ || position_ >= size_; }
  uint64_t position() const noexcept { return position_; }
  uint64_t remaining() const noexcept { return failed_ ? 0 : size_ - position_; }
  const uint8_t *here() const noexcept { return bytes_ + position_; }

  // A reader over the next `length` bytes, which this one skips.
  Reader take(uint64_t length) noexcept {
    if (length > remaining()) {
      failed_ = true;
      return Reader();
    }
    Reader part(bytes_ + position_, length);
    position_ += length;
    return part;
  }

  void skip(uint64_t length) noexcept { take(length); }

  uint64_t fixed(unsigned width) noexcept {
    if (width > remaining()) {
      failed_ = true;
      return 0;
    }
    uint64_t value = 0;
    for (unsigned index = 0; index < width; ++index)
      value |= uint64_t{bytes_[position_ + index]} << (8 * index);
    position_ += width;
    return value;
  }
  uint8_t u8() noexcept { return static_cast<uint8_t>(fixed(1)); }

  uint64_t uleb() noexcept {
    uint64_t value = 0;
    for (unsigned shift = 0;; shift += 7) {
      const uint8_t byte = u8();
      if (failed_)
        return 0;
      if (shift < 64)
        value |= uint64_t{byte & 0x7Fu} << shift;
      if ((byte & 0x80) == 0)
        return value;
    }
  }

  int64_t sleb() noexcept {
    uint64_t value = 0;
    unsigned shift = 0;
    uint8_t byte = 0;
    do {
      byte = u8();
      if (failed_)
        return 0;
      if (shift < 64)
        value |= uint64_t{byte & 0x7Fu} << shift;
      shift += 7;
    } while ((byte & 0x80) != 0);
    if (shift < 64 && (byte & 0x40) != 0)
      value |= ~uint64_t{0} << shift;
    return static_cast<int64_t>(value);
  }

  std::string_view cString() noexcept {
    const void *nul = failed_ ? nullptr : std::memchr(bytes_ + position_, 0, size_ - position_);
    if (nul == nullptr) {
      failed_ = true;
      return {};
    }
    const std::string_view text(reinterpret_cast<const char *>(bytes_ + position_),
                                static_cast<const uint8_t *>(nul) - (bytes_ + position_));
    position_ += text.size() + 1;
    return text;
  }

  // The string at `offset` of this reader's bytes, or empty.
  std::string_view stringAt(uint64_t offset) const noexcept {
    if (offset >= size_)
      return {};
    Reader at(bytes_ + offset, size_ - offset);
    const std::string_view text = at.cString();
    return at.failed() ? std::string_view() : text;
  }

private:
  const uint8_t *bytes_ = nullptr;
  uint64_t size_ = 0;
  uint64_t position_ = 0;
  bool failed_ = false;
};

// The parts of the image file the lookups read.
struct Image {
  const uint8_t *file;
  size_t size;
  pe::Headers headers;
  Reader stringTable; // the COFF string table, size field included
  Reader debugLine, debugLineStrings, debugStrings;
  Reader debugInfo, debugAbbreviations, debugRanges, debugRangeLists;
};

// What reading a value by its form needs to know of its unit.
struct FormContext {
  const Image *image;
  uint16_t version;
  unsigned offsetSize; // 4, or 8 for 64-bit DWARF
  unsigned addressSize;
};

struct FormValue {
  uint64_t number;
  std::string_view text;
  bool isAddress, isReference, isOffset, isConstant;
};

constexpr uint64_t kFormImplicitConst = 0x21;

// Reads one value of `form` (`implicit` is the abbreviation's constant for
// DW_FORM_implicit_const); false for a form this reader does not know or
// a value that runs off the bytes.
bool readFormValue(Reader &reader, uint64_t form, int64_t implicit, const FormContext &unit,
                   FormValue &value) noexcept;

// The headers and the sections above of the image file; false when the
// bytes are not a PE image. Sections that are missing or lie outside the
// bytes read as empty.
bool openImage(const uint8_t *file, size_t size, Image &image) noexcept;

// The function whose DWARF subprogram entry (.debug_info) covers `address`
// (an address as the image's debug information writes it: image base plus
// relative address): its linkage name, else its name, following a
// declaration or abstract origin in the same unit. Fills `out.name` and
// `out.functionRVA`; leaves them when no entry covers the address.
void findFunctionInDebugInfo(const Image &image, uint64_t address, Location &out) noexcept;

} // namespace zb::debuginfo
