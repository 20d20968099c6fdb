// Narrow (UTF-8) strings: duplication into zones, concatenation, the
// bounded copy and append that never overrun their buffer, and UTF-8 copies
// of wide text.
#include "ZBString.h"

#include "ZBStringUnits.h"

#include <algorithm>
#include <cstring>

namespace {

// UTF-8 copies of wide text get four bytes per unit (a unit never needs
// more than three), so they convert in one pass without measuring first.
constexpr size_t kUTF8BytesPerUnit = 4;

} // namespace

extern "C" char *_ZBCStringDuplicate(const char *text) noexcept {
  return _ZBCStringDuplicateWithZone(nullptr, text);
}

extern "C" char *_ZBCStringDuplicateWithZone(ZBZone *zone, const char *text) noexcept {
  if (text == nullptr)
    return nullptr;
  return zb::strings::duplicate(zone, text, std::strlen(text), __func__);
}

extern "C" char *ZBCStringDuplicateWithLength(ZBZone *zone, const char *bytes,
                                              size_t length) noexcept {
  return zb::strings::duplicate(zone, bytes, length, __func__);
}

extern "C" char *ZBCStringCreateConcatenating(ZBZone *zone, const char *first,
                                              const char *second) noexcept {
  return zb::strings::concatenate(zone, first, second, __func__);
}

extern "C" size_t ZBCStringCopy(char *destination, const char *source, size_t size) noexcept {
  const size_t sourceLength = source != nullptr ? std::strlen(source) : 0;
  if (destination != nullptr && size != 0) {
    const size_t copied = std::min(sourceLength, size - 1);
    if (copied != 0)
      std::memcpy(destination, source, copied);
    destination[copied] = '\0';
  }
  return sourceLength;
}

extern "C" size_t ZBCStringConcatenate(char *destination, const char *source,
                                       size_t size) noexcept {
  const size_t sourceLength = source != nullptr ? std::strlen(source) : 0;
  const auto *end = destination != nullptr
                        ? static_cast<const char *>(std::memchr(destination, '\0', size))
                        : nullptr;
  // No terminated text within the buffer: nothing can be appended safely.
  if (end == nullptr)
    return size + sourceLength;
  const size_t destinationLength = static_cast<size_t>(end - destination);
  const size_t appended = std::min(sourceLength, size - destinationLength - 1);
  if (appended != 0)
    std::memcpy(destination + destinationLength, source, appended);
  destination[destinationLength + appended] = '\0';
  return destinationLength + sourceLength;
}

extern "C" char *ZBCStringDuplicateWCString(ZBZone *zone, const ZBWChar *text) noexcept {
  if (text == nullptr)
    return nullptr;
  return ZBCStringDuplicateWCStringWithLength(zone, text, zb::strings::length(text));
}

extern "C" char *ZBCStringDuplicateWCStringWithLength(ZBZone *zone, const ZBWChar *units,
                                                      size_t count) noexcept {
  if (units == nullptr || count >= SIZE_MAX / kUTF8BytesPerUnit)
    return nullptr;
  const size_t capacity = kUTF8BytesPerUnit * count;
  char *result = zb::strings::allocate<char>(zone, capacity, __func__);
  if (result == nullptr)
    return nullptr;
  size_t errors = 0;
  const size_t length = ZBUTF16ToUTF8(result, capacity, units, count, 0, &errors);
  if (errors != 0) {
    _ZBFreeWithZone(zone, result);
    return nullptr;
  }
  result[length] = '\0';
  return result;
}

extern "C" char *ZBCStringCopyWCString(char *destination, size_t size,
                                       const ZBWChar *text) noexcept {
  if (text == nullptr)
    return nullptr;
  return ZBCStringCopyWCStringWithLength(destination, size, text, zb::strings::length(text));
}

extern "C" char *ZBCStringCopyWCStringWithLength(char *destination, size_t size,
                                                 const ZBWChar *units, size_t count) noexcept {
  if (destination == nullptr || size == 0 || units == nullptr)
    return nullptr;
  size_t errors = 0;
  const size_t length = ZBUTF16ToUTF8(destination, size - 1, units, count, 0, &errors);
  // A cut text is refused like a bad one: a shortened path or name would
  // silently name something else.
  if (errors != 0 || length > size - 1) {
    destination[0] = '\0';
    return nullptr;
  }
  destination[length] = '\0';
  return destination;
}
