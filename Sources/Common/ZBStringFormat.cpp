// Formatted strings in both widths. The text is formatted once, in UTF-8, by
// the library's own engine (qprintf.h) into the engine's temporary block,
// then copied or converted into a block of the caller's zone, and the
// temporary is handed back to the engine.
#include "ZBString.h"

#include "qprintf.h"

namespace {

// Formats and hands the UTF-8 result to `copy`, which allocates the final
// string in `zone` (null when it fails).
template <typename Unit>
Unit *createFormatted(ZBZone *zone, const char *format, va_list arguments,
                      Unit *(*copy)(ZBZone *, const char *, size_t)) noexcept {
  if (format == nullptr)
    return nullptr;
  char *formatted = nullptr;
  const int length = vqasprintf(&formatted, format, arguments);
  Unit *result = length >= 0 ? copy(zone, formatted, static_cast<size_t>(length)) : nullptr;
  qprffree(formatted);
  return result;
}

} // namespace

extern "C" char *ZBCStringCreateWithFormatAndArguments(ZBZone *zone, const char *format,
                                                       va_list arguments) noexcept {
  return createFormatted(zone, format, arguments, ZBCStringDuplicateWithLength);
}

extern "C" char *ZBCStringCreateWithFormat(ZBZone *zone, const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  char *result = ZBCStringCreateWithFormatAndArguments(zone, format, arguments);
  va_end(arguments);
  return result;
}

// The Latin-1 fallback of the conversion lets a "%s" of Latin-1 text through.
extern "C" ZBWChar *ZBWCStringCreateWithFormatAndArguments(ZBZone *zone, const char *format,
                                                           va_list arguments) noexcept {
  return createFormatted(zone, format, arguments, ZBWCStringDuplicateCStringWithLength);
}

extern "C" ZBWChar *ZBWCStringCreateWithFormat(ZBZone *zone, const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  ZBWChar *result = ZBWCStringCreateWithFormatAndArguments(zone, format, arguments);
  va_end(arguments);
  return result;
}
