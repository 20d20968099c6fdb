// Wide (UTF-16) strings: duplication into zones, concatenation, and UTF-16
// copies of UTF-8 text read with the Latin-1 fallback.
#include "ZBString.h"

#include "ZBStringUnits.h"

extern "C" ZBWChar *ZBWCStringDuplicate(ZBZone *zone, const ZBWChar *text) noexcept {
  if (text == nullptr)
    return nullptr;
  return zb::strings::duplicate(zone, text, zb::strings::length(text), __func__);
}

extern "C" ZBWChar *ZBWCStringDuplicateWithLength(ZBZone *zone, const ZBWChar *units,
                                                  size_t count) noexcept {
  return zb::strings::duplicate(zone, units, count, __func__);
}

extern "C" ZBWChar *ZBWCStringCreateConcatenating(ZBZone *zone, const ZBWChar *first,
                                                  const ZBWChar *second) noexcept {
  return zb::strings::concatenate(zone, first, second, __func__);
}

extern "C" ZBWChar *ZBWCStringDuplicateCString(ZBZone *zone, const char *text) noexcept {
  if (text == nullptr)
    return nullptr;
  return ZBWCStringDuplicateCStringWithLength(zone, text, zb::strings::length(text));
}

extern "C" ZBWChar *ZBWCStringDuplicateCStringWithLength(ZBZone *zone, const char *bytes,
                                                         size_t length) noexcept {
  if (bytes == nullptr)
    return nullptr;
  // UTF-8 never needs more UTF-16 units than it has bytes.
  ZBWChar *result = zb::strings::allocate<ZBWChar>(zone, length, __func__);
  if (result == nullptr)
    return nullptr;
  size_t errors = 0;
  const size_t count =
      ZBUTF8ToUTF16(result, length, bytes, length, ZBUTFFlagLatin1Fallback, &errors);
  if (errors != 0) {
    _ZBFreeWithZone(zone, result);
    return nullptr;
  }
  result[count] = 0;
  return result;
}
