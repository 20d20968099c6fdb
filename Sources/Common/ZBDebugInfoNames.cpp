// Function names from DWARF (versions 2 to 5): the subprogram entry of
// .debug_info whose address range (low and high pc, or a range list in
// .debug_ranges or .debug_rnglists) covers the address, named by its
// linkage name or name, or by those of the declaration or abstract origin
// it points to. Used when the COFF symbol table names nothing. Abbreviation
// codes below a bound are indexed on the stack, so a unit's entries cost no
// allocation and no rescans of its abbreviation table.
#include "ZBDebugInfoReader.h"

namespace zb::debuginfo {
namespace {

constexpr uint64_t kTagSubprogram = 0x2E;
constexpr uint64_t kAttributeName = 0x03;
constexpr uint64_t kAttributeLowPC = 0x11;
constexpr uint64_t kAttributeHighPC = 0x12;
constexpr uint64_t kAttributeAbstractOrigin = 0x31;
constexpr uint64_t kAttributeDeclarationOf =
    0x47; // a definition names the declaration it completes
constexpr uint64_t kAttributeRanges = 0x55;
constexpr uint64_t kAttributeLinkageName = 0x6E;
constexpr uint64_t kAttributeMIPSLinkageName = 0x2007;
constexpr uint64_t kFormIndirect = 0x16;
constexpr size_t kIndexedCodes = 512;
constexpr int kMostReferences = 4;

struct Unit {
  FormContext form;
  Reader entries;                // the whole unit, header included, for references
  uint64_t entriesStart;         // offset of the first entry in `entries`
  Reader abbreviations;          // from the unit's table to the section's end
  uint32_t index[kIndexedCodes]; // code -> offset in `abbreviations` + 1
  uint64_t baseAddress;          // the unit's low pc, the base of its ranges
};

// Moves past an abbreviation's (attribute, form) pairs and their end.
bool skipAttributeForms(Reader &table) noexcept {
  for (uint64_t attribute = table.uleb(), form = table.uleb(); attribute != 0 || form != 0;
       attribute = table.uleb(), form = table.uleb()) {
    if (form == kFormImplicitConst)
      table.sleb();
    if (table.failed())
      return false;
  }
  return true;
}

// The abbreviation of `code`: a reader at its "has children" byte, and its tag.
bool findAbbreviation(const Unit &unit, uint64_t code, Reader &out, uint64_t &tag) noexcept {
  Reader table = unit.abbreviations;
  if (code < kIndexedCodes && unit.index[code] != 0) {
    table.skip(unit.index[code] - 1);
    table.uleb(); // the code itself
    tag = table.uleb();
    out = table;
    return !table.failed();
  }
  while (!table.atEnd()) {
    const uint64_t candidate = table.uleb();
    if (candidate == 0)
      return false; // the end of the unit's table
    tag = table.uleb();
    if (candidate == code) {
      out = table;
      return !table.failed();
    }
    table.u8(); // children
    if (!skipAttributeForms(table))
      return false;
  }
  return false;
}

void indexAbbreviations(Unit &unit) noexcept {
  Reader table = unit.abbreviations;
  while (!table.atEnd()) {
    const uint64_t offset = table.position();
    const uint64_t code = table.uleb();
    if (code == 0 || table.failed())
      return;
    if (code < kIndexedCodes && offset + 1 <= UINT32_MAX)
      unit.index[code] = static_cast<uint32_t>(offset + 1);
    table.uleb(); // tag
    table.u8();   // children
    if (!skipAttributeForms(table))
      return;
  }
}

// What an entry says about where it is and what it is called.
struct Entry {
  uint64_t tag;
  bool hasChildren;
  uint64_t lowPC, highPC, ranges;
  bool hasLowPC, hasHighPC, highIsOffset, hasRanges;
  std::string_view name, linkageName;
  uint64_t reference; // the declaration completed or the abstract origin, unit-relative
  bool hasReference;
};

// Reads the entry at `reader`'s position (past its code). False when malformed.
bool readEntry(const Unit &unit, Reader &reader, uint64_t code, Entry &entry) noexcept {
  entry = Entry{};
  Reader abbreviation;
  if (!findAbbreviation(unit, code, abbreviation, entry.tag))
    return false;
  entry.hasChildren = abbreviation.u8() != 0;
  for (;;) {
    const uint64_t attribute = abbreviation.uleb();
    uint64_t form = abbreviation.uleb();
    if (abbreviation.failed())
      return false;
    if (attribute == 0 && form == 0)
      return true;
    const int64_t implicit = form == kFormImplicitConst ? abbreviation.sleb() : 0;
    if (form == kFormIndirect)
      form = reader.uleb();
    FormValue value;
    if (!readFormValue(reader, form, implicit, unit.form, value))
      return false;
    switch (attribute) {
    case kAttributeLowPC:
      entry.lowPC = value.number;
      entry.hasLowPC = value.isAddress;
      break;
    case kAttributeHighPC:
      entry.highPC = value.number;
      entry.hasHighPC = value.isAddress || value.isConstant;
      entry.highIsOffset = value.isConstant;
      break;
    case kAttributeRanges:
      entry.ranges = value.number;
      entry.hasRanges = value.isOffset;
      break;
    case kAttributeName: entry.name = value.text; break;
    case kAttributeLinkageName:
    case kAttributeMIPSLinkageName: entry.linkageName = value.text; break;
    case kAttributeDeclarationOf:
    case kAttributeAbstractOrigin:
      entry.reference = value.number;
      entry.hasReference = value.isReference;
      break;
    default: break;
    }
  }
}

// Whether a range list (DWARF 4 .debug_ranges, DWARF 5 .debug_rnglists)
// holds `address`; `start` receives the start of the range that does.
bool rangesHold(const Unit &unit, uint64_t offset, uint64_t address, uint64_t &start) noexcept {
  uint64_t base = unit.baseAddress;
  const bool wide = unit.form.addressSize == 8;
  const uint64_t selection = wide ? ~uint64_t{0} : 0xFFFFFFFF;
  if (unit.form.version < 5) {
    Reader list = unit.form.image->debugRanges;
    list.skip(offset);
    while (!list.atEnd()) {
      const uint64_t begin = list.fixed(unit.form.addressSize);
      const uint64_t end = list.fixed(unit.form.addressSize);
      if (list.failed() || (begin == 0 && end == 0))
        return false;
      if (begin == selection) {
        base = end;
      } else if (base + begin <= address && address < base + end) {
        start = base + begin;
        return true;
      }
    }
    return false;
  }
  Reader list = unit.form.image->debugRangeLists;
  list.skip(offset);
  while (!list.atEnd()) {
    uint64_t begin = 0;
    uint64_t end = 0;
    switch (list.u8()) {
    case 0: // end of list
      return false;
    case 4: // offset pair
      begin = base + list.uleb();
      end = base + list.uleb();
      break;
    case 5: // base address
      base = list.fixed(unit.form.addressSize);
      continue;
    case 6: // start, end
      begin = list.fixed(unit.form.addressSize);
      end = list.fixed(unit.form.addressSize);
      break;
    case 7: // start, length
      begin = list.fixed(unit.form.addressSize);
      end = begin + list.uleb();
      break;
    default: // entries through .debug_addr, which this reader does not read
      return false;
    }
    if (!list.failed() && begin <= address && address < end) {
      start = begin;
      return true;
    }
  }
  return false;
}

bool entryHolds(const Unit &unit, const Entry &entry, uint64_t address, uint64_t &start) noexcept {
  if (entry.hasRanges)
    return rangesHold(unit, entry.ranges, address, start);
  if (!entry.hasLowPC || !entry.hasHighPC)
    return false;
  const uint64_t end = entry.highIsOffset ? entry.lowPC + entry.highPC : entry.highPC;
  start = entry.lowPC;
  return entry.lowPC <= address && address < end;
}

// The entry's own name, or that of the entries it refers to.
std::string_view nameOf(const Unit &unit, Entry entry) noexcept {
  for (int step = 0; step < kMostReferences; ++step) {
    if (!entry.linkageName.empty())
      return entry.linkageName;
    if (!entry.name.empty())
      return entry.name;
    if (!entry.hasReference || entry.reference >= unit.entries.remaining())
      return {};
    Reader referred = unit.entries;
    referred.skip(entry.reference);
    const uint64_t code = referred.uleb();
    if (code == 0 || !readEntry(unit, referred, code, entry))
      return {};
  }
  return {};
}

// Reads a unit's header at `units`' position (moving past the unit); false
// for units that hold no code (type units) or are malformed.
bool openUnit(const Image &image, Reader &units, Unit &unit) noexcept {
  unit.form.image = &image;
  unit.form.offsetSize = 4;
  const uint8_t *start = units.here();
  uint64_t length = units.fixed(4);
  unsigned lengthSize = 4;
  if (length == 0xFFFFFFFF) {
    unit.form.offsetSize = 8;
    lengthSize = 12;
    length = units.fixed(8);
  }
  units.skip(length);
  if (units.failed())
    return false;
  unit.entries = Reader(start, lengthSize + length);
  Reader header = unit.entries;
  header.skip(lengthSize);
  unit.form.version = static_cast<uint16_t>(header.fixed(2));
  uint64_t abbreviationOffset = 0;
  if (unit.form.version >= 5) {
    const uint8_t type = header.u8();
    unit.form.addressSize = header.u8();
    abbreviationOffset = header.fixed(unit.form.offsetSize);
    if (type != 1 && type != 3) // compile and partial units
      return false;
  } else {
    abbreviationOffset = header.fixed(unit.form.offsetSize);
    unit.form.addressSize = header.u8();
  }
  if (header.failed() || unit.form.version < 2 || unit.form.version > 5 ||
      (unit.form.addressSize != 4 && unit.form.addressSize != 8) ||
      abbreviationOffset >= image.debugAbbreviations.remaining())
    return false;
  unit.entriesStart = header.position();
  unit.abbreviations = image.debugAbbreviations;
  unit.abbreviations.skip(abbreviationOffset);
  unit.abbreviations = unit.abbreviations.take(unit.abbreviations.remaining());
  std::memset(unit.index, 0, sizeof unit.index);
  indexAbbreviations(unit);
  return true;
}

} // namespace

void findFunctionInDebugInfo(const Image &image, uint64_t address, Location &out) noexcept {
  Reader units = image.debugInfo;
  Unit unit;
  while (!units.atEnd()) {
    if (!openUnit(image, units, unit))
      continue;
    Reader entries = unit.entries;
    entries.skip(unit.entriesStart);
    bool first = true;
    while (!entries.atEnd()) {
      const uint64_t code = entries.uleb();
      if (code == 0)
        continue; // the end of a list of children
      Entry entry;
      if (!readEntry(unit, entries, code, entry))
        break;
      uint64_t start = 0;
      if (first) { // the unit's own entry: the base of its ranges
        unit.baseAddress = entry.hasLowPC ? entry.lowPC : 0;
        first = false;
        const bool hasExtent = entry.hasRanges || (entry.hasLowPC && entry.hasHighPC);
        if (hasExtent && !entryHolds(unit, entry, address, start))
          break; // the unit does not cover the address
        continue;
      }
      if (entry.tag != kTagSubprogram || !entryHolds(unit, entry, address, start))
        continue;
      const std::string_view name = nameOf(unit, entry);
      if (name.empty() || start < image.headers.imageBase ||
          start - image.headers.imageBase > UINT32_MAX)
        continue;
      out.name = name;
      out.functionRVA = static_cast<uint32_t>(start - image.headers.imageBase);
      return;
    }
  }
}

} // namespace zb::debuginfo
