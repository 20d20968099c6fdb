// The values of DWARF attributes and table entries, read by form (DWARF 2
// to 5): what the line table's file entries and the debug-information
// entries both need. Forms that index tables this reader does not load
// (.debug_addr, .debug_str_offsets) are skipped with no value.
#include "ZBDebugInfoReader.h"

namespace zb::debuginfo {

bool readFormValue(Reader &reader, uint64_t form, int64_t implicit, const FormContext &unit,
                   FormValue &value) noexcept {
  value = FormValue{};
  const Image &image = *unit.image;
  switch (form) {
  case 0x01:
    value.number = reader.fixed(unit.addressSize);
    value.isAddress = true;
    break;
  case 0x03: reader.skip(reader.fixed(2)); break;
  case 0x04: reader.skip(reader.fixed(4)); break;
  case 0x05:
    value.number = reader.fixed(2);
    value.isConstant = true;
    break;
  case 0x06:
    value.number = reader.fixed(4);
    value.isConstant = true;
    break;
  case 0x07:
    value.number = reader.fixed(8);
    value.isConstant = true;
    break;
  case 0x08: value.text = reader.cString(); break;
  case 0x09:
  case 0x18: reader.skip(reader.uleb()); break;
  case 0x0A: reader.skip(reader.fixed(1)); break;
  case 0x0B:
    value.number = reader.fixed(1);
    value.isConstant = true;
    break;
  case 0x0C: reader.skip(1); break;
  case 0x0D:
    value.number = static_cast<uint64_t>(reader.sleb());
    value.isConstant = true;
    break;
  case 0x0E: value.text = image.debugStrings.stringAt(reader.fixed(unit.offsetSize)); break;
  case 0x0F:
    value.number = reader.uleb();
    value.isConstant = true;
    break;
  case 0x10: reader.skip(unit.version <= 2 ? unit.addressSize : unit.offsetSize); break;
  case 0x11:
    value.number = reader.fixed(1);
    value.isReference = true;
    break;
  case 0x12:
    value.number = reader.fixed(2);
    value.isReference = true;
    break;
  case 0x13:
    value.number = reader.fixed(4);
    value.isReference = true;
    break;
  case 0x14:
    value.number = reader.fixed(8);
    value.isReference = true;
    break;
  case 0x15:
    value.number = reader.uleb();
    value.isReference = true;
    break;
  case 0x17:
    value.number = reader.fixed(unit.offsetSize);
    value.isOffset = true;
    break;
  case 0x19: break;
  case 0x1A:
  case 0x1B:
  case 0x22:
  case 0x23: reader.uleb(); break; // indexes into tables not read
  case 0x1C: reader.skip(4); break;
  case 0x1D: reader.skip(unit.offsetSize); break;
  case 0x1E: reader.skip(16); break;
  case 0x1F: value.text = image.debugLineStrings.stringAt(reader.fixed(unit.offsetSize)); break;
  case 0x20:
  case 0x24: reader.skip(8); break;
  case kFormImplicitConst:
    value.number = static_cast<uint64_t>(implicit);
    value.isConstant = true;
    break;
  case 0x25:
  case 0x29: reader.skip(1); break;
  case 0x26:
  case 0x2A: reader.skip(2); break;
  case 0x27:
  case 0x2B: reader.skip(3); break;
  case 0x28:
  case 0x2C: reader.skip(4); break;
  default: return false;
  }
  return !reader.failed();
}

} // namespace zb::debuginfo
