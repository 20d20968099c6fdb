/**
 * @file
 * ZBPrint.h: conversions of one's own for the library's format engine.
 *
 * A client registers a conversion character with a fetch callback, which
 * reads the arguments from the context's cursor into context->info->value,
 * and a render callback, which writes the conversion with the emit functions
 * below. Each emit call is padded separately to the conversion's width.
 *
 * The library's own conversions, registered at load:
 *   %b  bit names: an unsigned value and a description, a run of entries of
 *       one byte holding the bit number plus one (1-32) and the bit's name:
 *       "<ONE,THREE>"; "#" names unnamed set bits "b<n>".
 *   %M  a pointer to a 6-byte hardware address: "00:11:22:33:44:55"; "#"
 *       gives "0011.2233.4455", "+" upper-case digits.
 *   %m  an int error number: its strerror text.
 *   %T  a duration: an int count of seconds printed as "90d"; "#" spells it
 *       in units, "1h1m1s". "%lT" takes a pointer to 32-bit seconds and
 *       microseconds, "%LT" one to a struct timespec (64-bit seconds, then
 *       32-bit nanoseconds); both add a fraction of the precision's digits
 *       (default 6 and 9).
 *   %Q  a quoted string: backslash escapes ("'" writes other bytes as
 *       \\u00xx, " " as \\xhh instead of octal, "#" adds double quotes around);
 *       "+" percent-encodes, "+#" writes XML entities. A precision gives the
 *       exact number of bytes to quote, embedded zeros included.
 *   %H  a hex dump of a pointer and an int byte count; the width (1-15)
 *       sets the bytes per line, "+" adds offsets, "#" adds the characters.
 *   %Z  a pointer to an IPv4 socket address: "10.0.0.1"; "#" adds "inet:",
 *       "+" the port. Other families print "unknown(?)".
 * Each prints "(null)" for a null pointer.
 *
 * The compiler's printf checking does not know these conversions: a file
 * that uses them defines ZB_FORMAT_EXTENSIONS before including Zenbor
 * headers (see ZBBase.h).
 */
#ifndef ZENBOR_ZBPRINT_H
#define ZENBOR_ZBPRINT_H

#include <stdarg.h>

#include "ZBBase.h"
#include "qprintf.h"

ZB_EXTERN_C_BEGIN

/** What a registered conversion's callbacks receive. */
typedef struct ZBPrintModifierContext {
  va_list *arguments; /**< the argument cursor while fetching; null while rendering */
  qprintf_info *info; /**< the conversion; value is filled by the fetch callback */
} ZBPrintModifierContext;

/** A fetch or render callback of a registered conversion; `userData` is the
   value given at registration. Its result is passed on by the engine. */
typedef int (*ZBPrintModifierFn)(ZBPrintModifierContext *context, void *userData);

/** Registers `conversion`, taking `count` arguments, for every later call of
   the engine. The fetch callback must read exactly the arguments it takes
   (it advances the cursor itself). Returns false when the engine refuses the
   character (see qprintf_modifier_register). */
ZB_EXPORT bool ZBPrintRegisterModifier(char conversion, int count, ZBPrintModifierFn fetch,
                                       ZBPrintModifierFn render, void *userData) ZB_NOEXCEPT;

/** Writes `length` bytes of `buffer` (zeros included) and returns the byte
   after them; returns `buffer` unchanged, writing nothing, when it is null,
   `length` is 0 or `context` is null. */
ZB_EXPORT const char *ZBPrintModifierContextEmitCharBuf(ZBPrintModifierContext *context,
                                                        const char *buffer,
                                                        size_t length) ZB_NOEXCEPT;
/** Writes `text`. The emit functions return what qprintf_print_from_formatter
   returns, or 0 when they write nothing (null context, null or empty text,
   null format, or no memory for the formatted text). */
ZB_EXPORT int ZBPrintModifierContextEmitString(ZBPrintModifierContext *context,
                                               const char *text) ZB_NOEXCEPT;
/** Formats with ZBCStringCreateWithFormatAndArguments and writes the result. */
ZB_EXPORT int ZBPrintModifierContextEmitFormattedString(ZBPrintModifierContext *context,
                                                        const char *format, ...) ZB_NOEXCEPT
    ZB_PRINTF_LIKE(2, 3);
/** As ZBPrintModifierContextEmitFormattedString, with the arguments in a
   `va_list`.
   @return As ZBPrintModifierContextEmitString. */
ZB_EXPORT int ZBPrintModifierContextEmitFormattedStringAndArguments(
    ZBPrintModifierContext *context, const char *format, va_list arguments) ZB_NOEXCEPT;

/** "(null)": what every conversion prints for a null pointer. */
ZB_EXPORT const char *ZBPrintGetNullString(void) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBPRINT_H */
