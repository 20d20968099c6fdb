// Names and lines for an address, read from an image file: the nearest
// function symbol of the COFF symbol table, and the row of the DWARF line
// table that covers the address. The line program is run from the start of
// each unit until a row pair brackets the address; the file table is walked
// again for the one entry that row names, so nothing is allocated.
#include "ZBDebugInfo.h"

#include "ZBPEImage.h"

#include <cstring>

namespace zb::debuginfo {
namespace {

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

// The parts of the image file the lookup reads.
struct Image {
  const uint8_t *file;
  size_t size;
  pe::Headers headers;
  Reader stringTable; // the COFF string table, size field included
  Reader debugLine, debugLineStrings, debugStrings;
};

Reader sectionBytes(const Image &image, const pe::Section &section) noexcept {
  uint64_t length = section.rawSize;
  if (section.virtualSize != 0 && section.virtualSize < length)
    length = section.virtualSize;
  if (section.rawOffset > image.size || length > image.size - section.rawOffset)
    return Reader();
  return Reader(image.file + section.rawOffset, length);
}

bool openImage(const uint8_t *file, size_t size, Image &image) noexcept {
  image = Image{file, size, {}, {}, {}, {}, {}};
  if (!pe::readHeaders(file, size, &image.headers))
    return false;
  const uint64_t stringTable = pe::stringTableOffset(image.headers);
  if (stringTable != 0 && stringTable + 4 <= size) {
    Reader sizeField(file + stringTable, 4);
    const uint64_t tableSize = sizeField.fixed(4);
    if (tableSize >= 4 && tableSize <= size - stringTable)
      image.stringTable = Reader(file + stringTable, tableSize);
  }
  const auto *table = file + stringTable;
  const size_t tableSize = image.stringTable.remaining();
  for (uint16_t index = 0; index < image.headers.sectionCount; ++index) {
    const pe::Section section = pe::sectionAt(file, image.headers, index);
    const std::string_view name =
        pe::sectionName(section, tableSize != 0 ? table : nullptr, tableSize);
    if (name == ".debug_line")
      image.debugLine = sectionBytes(image, section);
    else if (name == ".debug_line_str")
      image.debugLineStrings = sectionBytes(image, section);
    else if (name == ".debug_str")
      image.debugStrings = sectionBytes(image, section);
  }
  return true;
}

// The nearest function symbol at or below `rva`, in the section holding it.
void findFunctionSymbol(const Image &image, uint32_t rva, Location &out) noexcept {
  const pe::Headers &headers = image.headers;
  if (headers.symbolTableOffset == 0 ||
      headers.symbolTableOffset + uint64_t{headers.symbolCount} * pe::kSymbolSize > image.size)
    return;
  Reader symbols(image.file + headers.symbolTableOffset,
                 uint64_t{headers.symbolCount} * pe::kSymbolSize);
  constexpr uint16_t kFunctionType = 0x20;
  constexpr uint8_t kExternalClass = 2;
  constexpr uint32_t kCodeSection = 0x20;
  bool found = false;
  while (!symbols.atEnd()) {
    const uint8_t *record = symbols.here();
    Reader symbol = symbols.take(pe::kSymbolSize);
    const uint64_t inlineOrZero = symbol.fixed(4);
    const uint64_t nameOffset = symbol.fixed(4);
    const auto value = static_cast<uint32_t>(symbol.fixed(4));
    const auto sectionNumber = static_cast<int16_t>(symbol.fixed(2));
    const auto type = static_cast<uint16_t>(symbol.fixed(2));
    const uint8_t storageClass = symbol.u8();
    symbols.skip(uint64_t{symbol.u8()} * pe::kSymbolSize); // auxiliary records
    if (sectionNumber <= 0 || sectionNumber > headers.sectionCount)
      continue;
    const pe::Section section =
        pe::sectionAt(image.file, headers, static_cast<uint16_t>(sectionNumber - 1));
    // Functions, and the external labels of assembly routines (such as the
    // stack probe), which carry no type.
    const bool external =
        storageClass == kExternalClass && (section.characteristics & kCodeSection) != 0;
    if (type != kFunctionType && !external)
      continue;
    const uint64_t start = uint64_t{section.virtualAddress} + value;
    if (start > rva || rva - section.virtualAddress >= section.virtualSize ||
        (found && start <= out.functionRVA))
      continue;
    const std::string_view name =
        inlineOrZero == 0 ? image.stringTable.stringAt(nameOffset)
                          : std::string_view(reinterpret_cast<const char *>(record),
                                             strnlen(reinterpret_cast<const char *>(record), 8));
    if (name.empty())
      continue;
    out.name = name;
    out.functionRVA = static_cast<uint32_t>(start);
    found = true;
  }
}

// The fixed part of a line-table unit's header.
struct LineUnit {
  uint16_t version;
  unsigned offsetSize; // 4, or 8 for 64-bit DWARF
  unsigned addressSize;
  uint8_t minimumInstructionLength;
  bool defaultIsStatement;
  int8_t lineBase;
  uint8_t lineRange;
  uint8_t opcodeBase;
  const uint8_t *standardOpcodeLengths; // opcodeBase - 1 of them
  Reader tables;                        // the directory and file tables
  Reader program;
};

// Reads the header of the unit at `units`' position and moves past the unit.
bool readLineUnit(Reader &units, LineUnit &unit) noexcept {
  unit = LineUnit{};
  unit.offsetSize = 4;
  uint64_t length = units.fixed(4);
  if (length == 0xFFFFFFFF) {
    unit.offsetSize = 8;
    length = units.fixed(8);
  } else if (length >= 0xFFFFFFF0) {
    return false;
  }
  Reader body = units.take(length);
  unit.version = static_cast<uint16_t>(body.fixed(2));
  if (unit.version < 2 || unit.version > 5)
    return false;
  unit.addressSize = 8;
  if (unit.version >= 5) {
    unit.addressSize = body.u8();
    body.u8(); // segment selector size
  }
  Reader header = body.take(body.fixed(unit.offsetSize));
  unit.minimumInstructionLength = header.u8();
  if (unit.version >= 4)
    header.u8(); // maximum operations per instruction: 1 on x86
  unit.defaultIsStatement = header.u8() != 0;
  unit.lineBase = static_cast<int8_t>(header.u8());
  unit.lineRange = header.u8();
  unit.opcodeBase = header.u8();
  unit.standardOpcodeLengths = header.here();
  header.skip(unit.opcodeBase > 0 ? unit.opcodeBase - 1u : 0u);
  unit.tables = header.take(header.remaining());
  unit.program = body.take(body.remaining());
  return !units.failed() && !body.failed() && !header.failed() && unit.lineRange != 0 &&
         unit.opcodeBase != 0 && (unit.addressSize == 4 || unit.addressSize == 8);
}

struct Row {
  uint64_t address;
  uint64_t file;
  uint32_t line;
};

// Runs the unit's line program; true with `out` when a row covers `target`.
bool findRow(const LineUnit &unit, uint64_t target, Row &out) noexcept {
  Reader program = unit.program;
  Row row{0, 1, 1};
  Row previous{};
  bool havePrevious = false;
  // A row is emitted: the previous one covers [its address, this address).
  const auto emit = [&](bool endsSequence) {
    if (havePrevious && previous.address <= target && target < row.address) {
      out = previous;
      return true;
    }
    previous = row;
    havePrevious = !endsSequence;
    return false;
  };
  const auto advance = [&](uint64_t operations) {
    row.address += operations * unit.minimumInstructionLength;
  };
  while (!program.atEnd()) {
    const uint8_t opcode = program.u8();
    if (opcode >= unit.opcodeBase) {
      const uint8_t adjusted = static_cast<uint8_t>(opcode - unit.opcodeBase);
      advance(adjusted / unit.lineRange);
      row.line += static_cast<uint32_t>(unit.lineBase + adjusted % unit.lineRange);
      if (emit(false))
        return true;
      continue;
    }
    switch (opcode) {
    case 0: { // extended
      Reader extended = program.take(program.uleb());
      const uint8_t subOpcode = extended.u8();
      if (subOpcode == 1) { // end of sequence
        if (emit(true))
          return true;
        row = Row{0, 1, 1};
      } else if (subOpcode == 2) { // set address
        row.address = extended.fixed(
            static_cast<unsigned>(extended.remaining() <= 8 ? extended.remaining() : 8));
      }
      break;
    }
    case 1: // copy
      if (emit(false))
        return true;
      break;
    case 2: advance(program.uleb()); break;
    case 3: row.line += static_cast<uint32_t>(program.sleb()); break;
    case 4: row.file = program.uleb(); break;
    case 8: // constant add pc
      advance((255u - unit.opcodeBase) / unit.lineRange);
      break;
    case 9: row.address += program.fixed(2); break;
    default: // column, statement, block, prologue, epilogue, ISA, unknown: operands skipped
      for (uint8_t operand = 0; operand < unit.standardOpcodeLengths[opcode - 1]; ++operand)
        program.uleb();
      break;
    }
  }
  return false;
}

// DWARF 5 entry formats: pairs of content type and form.
constexpr uint64_t kContentPath = 1;
constexpr uint64_t kContentDirectoryIndex = 2;

struct FormValue {
  uint64_t number;
  std::string_view text;
};

// Reads one attribute value of a directory or file entry.
bool readForm(Reader &reader, uint64_t form, const LineUnit &unit, const Image &image,
              FormValue &value) noexcept {
  value = FormValue{};
  switch (form) {
  case 0x08: // string
    value.text = reader.cString();
    break;
  case 0x0E: // strp
    value.text = image.debugStrings.stringAt(reader.fixed(unit.offsetSize));
    break;
  case 0x1F: // line_strp
    value.text = image.debugLineStrings.stringAt(reader.fixed(unit.offsetSize));
    break;
  case 0x0B: // data1
    value.number = reader.fixed(1);
    break;
  case 0x05: // data2
    value.number = reader.fixed(2);
    break;
  case 0x06: // data4
    value.number = reader.fixed(4);
    break;
  case 0x07: // data8
    value.number = reader.fixed(8);
    break;
  case 0x0F: // udata
    value.number = reader.uleb();
    break;
  case 0x1E: // data16
    reader.skip(16);
    break;
  case 0x09: // block
    reader.skip(reader.uleb());
    break;
  default: return false;
  }
  return !reader.failed();
}

// Reads a DWARF 5 directory or file table at `tables`' position, moving
// past it, and keeps the path and directory index of entry `index` (left
// as they are when the table has no such entry). False when malformed.
bool readVersion5Table(Reader &tables, const LineUnit &unit, const Image &image, uint64_t index,
                       std::string_view &path, uint64_t &directory) noexcept {
  const uint8_t formatCount = tables.u8();
  const uint8_t *formatStart = tables.here();
  for (uint8_t pair = 0; pair < formatCount; ++pair) {
    tables.uleb();
    tables.uleb();
  }
  if (tables.failed())
    return false;
  const Reader formats(formatStart, static_cast<uint64_t>(tables.here() - formatStart));
  const uint64_t count = tables.uleb();
  // Each entry takes at least a byte per format; without formats the
  // entries are empty and the count means nothing.
  if (formatCount == 0)
    return !tables.failed();
  if (count > tables.remaining())
    return false;
  for (uint64_t entry = 0; entry < count && !tables.failed(); ++entry) {
    Reader format = formats;
    for (uint8_t pair = 0; pair < formatCount; ++pair) {
      const uint64_t content = format.uleb();
      FormValue value;
      if (!readForm(tables, format.uleb(), unit, image, value))
        return false;
      if (entry == index && content == kContentPath)
        path = value.text;
      else if (entry == index && content == kContentDirectoryIndex)
        directory = value.number;
    }
  }
  return !tables.failed();
}

// The directory and name of file `index` of the unit.
void findFile(const LineUnit &unit, const Image &image, uint64_t index, Location &out) noexcept {
  Reader tables = unit.tables;
  if (unit.version >= 5) {
    // Both counted from 0; the directory table comes first.
    const Reader directories = tables;
    std::string_view unusedPath;
    uint64_t directory = 0;
    uint64_t unusedDirectory = 0;
    if (!readVersion5Table(tables, unit, image, ~uint64_t{0}, unusedPath, unusedDirectory) ||
        !readVersion5Table(tables, unit, image, index, out.file, directory))
      return;
    Reader directoryTable = directories;
    readVersion5Table(directoryTable, unit, image, directory, out.directory, unusedDirectory);
    return;
  }
  // Versions 2 to 4: directories, then files, each list ended by an empty
  // string; both counted from 1, directory 0 being the compilation's own.
  const uint8_t *directoryStart = tables.here();
  while (!tables.atEnd() && !tables.cString().empty()) {
  }
  Reader directoryList(directoryStart, static_cast<uint64_t>(tables.here() - directoryStart));
  for (uint64_t file = 1; !tables.atEnd(); ++file) {
    const std::string_view name = tables.cString();
    if (name.empty())
      return;
    const uint64_t directory = tables.uleb();
    tables.uleb(); // modification time
    tables.uleb(); // length
    if (file != index)
      continue;
    out.file = name;
    for (uint64_t entry = 1; entry <= directory && !directoryList.atEnd(); ++entry) {
      const std::string_view path = directoryList.cString();
      if (entry == directory)
        out.directory = path;
    }
    return;
  }
}

void findLine(const Image &image, uint64_t address, Location &out) noexcept {
  Reader units = image.debugLine;
  while (!units.atEnd()) {
    LineUnit unit;
    if (!readLineUnit(units, unit))
      return;
    Row row;
    if (findRow(unit, address, row)) {
      out.line = row.line;
      findFile(unit, image, row.file, out);
      return;
    }
  }
}

} // namespace

bool lookup(const uint8_t *file, size_t size, uint32_t rva, Location *out) noexcept {
  if (file == nullptr || out == nullptr)
    return false;
  *out = Location{};
  Image image;
  if (!openImage(file, size, image))
    return false;
  findFunctionSymbol(image, rva, *out);
  findLine(image, image.headers.imageBase + rva, *out);
  return !out->name.empty() || out->line != 0;
}

} // namespace zb::debuginfo
