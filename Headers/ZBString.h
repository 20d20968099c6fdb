/**
 * @file
 * ZBString.h: narrow (UTF-8) and wide (UTF-16) zero-terminated strings, and
 * the converters between UTF-8 and UTF-16 or UTF-32.
 *
 * Every "Duplicate" and "Create" result is a new block from the zone given
 * (null names the default zone), released with _ZBFreeWithZone on that zone
 * (_ZBFree for the default zone). A null result means the memory or the
 * conversion failed, or a required text was absent.
 *
 * The converters are strict in their own way and keep these behaviours:
 *  - Reading UTF-8 with ZBUTFFlagLatin1Fallback, a byte of 0xA0 or above
 *    that no continuation byte follows is taken as Latin-1 (U+00A0-U+00FF),
 *    so mislabelled Latin-1 text still reads.
 *  - U+D800-U+D8FF and U+F800-U+F8FF encoded in three bytes are rejected,
 *    while U+D900-U+DFFF pass as single units.
 *  - Read into UTF-16, four-byte sequences use only the two low bits of
 *    their lead byte (a 0xF4 lead loses its top bit, so U+100000-U+10FFFF
 *    fall below U+10000 and are errors), and the low surrogate written
 *    for them is the code point OR 0xDC00 cut to 16 bits, without clearing
 *    its bits 10-15 first (U+1F600 gives D83D FE00).
 *  - Writing UTF-8, surrogates are never combined: every surrogate unit, and
 *    every unit from U+F800 up, is an error, so text outside the Basic
 *    Multilingual Plane does not convert to UTF-8.
 * Invalid input never makes them fail: each bad sequence is skipped, emits
 * nothing and counts one error.
 */
#ifndef ZENBOR_ZBSTRING_H
#define ZENBOR_ZBSTRING_H

#include <stdarg.h>

#include "ZBAlloc.h"
#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

/* One UTF-16 code unit. On Windows wchar_t is exactly that, so the wide
   strings pass to and from the system's W functions and L"" literals without
   casts; where wchar_t is 32 bits wide (Linux and the other POSIX systems)
   the unit is a plain 16-bit integer instead. Either way it is 16 bits. */
#if defined(_WIN32)
/** One UTF-16 code unit (see above). */
typedef wchar_t ZBWChar;
#else
typedef uint16_t ZBWChar;
#endif

/** Converter flags. Either bit of ZBUTFFlagLatin1Fallback enables the
   fallback; the library passes it when reading UTF-8 and 0 when writing. */
enum { ZBUTFFlagLatin1Fallback = 3 };

/* --- Narrow strings --------------------------------------------------- */

/** A copy of `text` in the default zone; null when `text` is null. */
ZB_EXPORT char *_ZBCStringDuplicate(const char *text) ZB_NOEXCEPT;
/** A copy of `text` in `zone`; null when `text` is null. */
ZB_EXPORT char *_ZBCStringDuplicateWithZone(ZBZone *zone, const char *text) ZB_NOEXCEPT;
/** Exactly `length` bytes (zeros included) and a terminating zero; null when
   `bytes` is null. */
ZB_EXPORT char *ZBCStringDuplicateWithLength(ZBZone *zone, const char *bytes,
                                             size_t length) ZB_NOEXCEPT;
/** `first` followed by `second`. A null text counts as absent: the result is
   a copy of the other one, or null when both are absent. */
ZB_EXPORT char *ZBCStringCreateConcatenating(ZBZone *zone, const char *first,
                                             const char *second) ZB_NOEXCEPT;
/** Formats with the library's printf engine (qprintf.h). Null when `format`
   is null or the engine fails. */
ZB_EXPORT char *ZBCStringCreateWithFormat(ZBZone *zone, const char *format, ...) ZB_NOEXCEPT
    ZB_PRINTF_LIKE(2, 3);
/** As ZBCStringCreateWithFormat, with the arguments in a `va_list`.
   @return The new string, or null when `format` is null or the engine fails. */
ZB_EXPORT char *ZBCStringCreateWithFormatAndArguments(ZBZone *zone, const char *format,
                                                      va_list arguments) ZB_NOEXCEPT;

/** Copies at most size - 1 bytes of `source` and terminates `destination`
   when `size` is not 0. Returns strlen(source); a result of `size` or more
   means the text was cut. A null source counts as "". */
ZB_EXPORT size_t ZBCStringCopy(char *destination, const char *source, size_t size) ZB_NOEXCEPT;
/** Appends `source` to the text in `destination`, keeping the whole within
   `size` bytes with its terminating zero. Returns the length the full result
   would have; when the first `size` bytes of `destination` hold no zero it
   writes nothing and returns size + strlen(source). */
ZB_EXPORT size_t ZBCStringConcatenate(char *destination, const char *source,
                                      size_t size) ZB_NOEXCEPT;

/** UTF-8 copies of wide text. Null on any conversion error (a surrogate or a
   unit from U+F800 up), or when the text is null. */
ZB_EXPORT char *ZBCStringDuplicateWCString(ZBZone *zone, const ZBWChar *text) ZB_NOEXCEPT;
/** As ZBCStringDuplicateWCString, for `count` units that need no terminating
   zero.
   @return The new string, or null on a conversion error or a null text. */
ZB_EXPORT char *ZBCStringDuplicateWCStringWithLength(ZBZone *zone, const ZBWChar *units,
                                                     size_t count) ZB_NOEXCEPT;
/** Converts into `destination` (`size` bytes, zero included) and returns it.
   Null on a conversion error, when the text does not fit (the destination
   then holds ""), or when an argument is null. */
ZB_EXPORT char *ZBCStringCopyWCString(char *destination, size_t size,
                                      const ZBWChar *text) ZB_NOEXCEPT;
/** As ZBCStringCopyWCString, for `count` units that need no terminating zero.
   @return `destination`, or null as ZBCStringCopyWCString. */
ZB_EXPORT char *ZBCStringCopyWCStringWithLength(char *destination, size_t size,
                                                const ZBWChar *units,
                                                size_t count) ZB_NOEXCEPT;

/* --- Wide strings ----------------------------------------------------- */

/** A copy of `text`; null when `text` is null. */
ZB_EXPORT ZBWChar *ZBWCStringDuplicate(ZBZone *zone, const ZBWChar *text) ZB_NOEXCEPT;
/** Exactly `count` units and a zero unit; null when `units` is null. */
ZB_EXPORT ZBWChar *ZBWCStringDuplicateWithLength(ZBZone *zone, const ZBWChar *units,
                                                 size_t count) ZB_NOEXCEPT;
/** UTF-16 copies of UTF-8 text, read with the Latin-1 fallback. Null on any
   conversion error, or when the text is null. */
ZB_EXPORT ZBWChar *ZBWCStringDuplicateCString(ZBZone *zone, const char *text) ZB_NOEXCEPT;
/** As ZBWCStringDuplicateCString, for `length` bytes that need no
   terminating zero.
   @return The new string, or null on a conversion error or a null text. */
ZB_EXPORT ZBWChar *ZBWCStringDuplicateCStringWithLength(ZBZone *zone, const char *bytes,
                                                        size_t length) ZB_NOEXCEPT;
/** As ZBCStringCreateConcatenating. */
ZB_EXPORT ZBWChar *ZBWCStringCreateConcatenating(ZBZone *zone, const ZBWChar *first,
                                                 const ZBWChar *second) ZB_NOEXCEPT;
/** Formats in UTF-8 with the library's engine, then converts to UTF-16 with
   the Latin-1 fallback. Null when `format` is null, the engine fails or the
   result does not convert. */
ZB_EXPORT ZBWChar *ZBWCStringCreateWithFormat(ZBZone *zone, const char *format,
                                              ...) ZB_NOEXCEPT ZB_PRINTF_LIKE(2, 3);
/** As ZBWCStringCreateWithFormat, with the arguments in a `va_list`.
   @return The new string, or null as ZBWCStringCreateWithFormat. */
ZB_EXPORT ZBWChar *ZBWCStringCreateWithFormatAndArguments(ZBZone *zone, const char *format,
                                                          va_list arguments) ZB_NOEXCEPT;

/** --- Converters --------------------------------------------------------
 * One shape for all four: (destination or null, its capacity in output
 * units, source, source length in input units, flags, out error count or
 * null). Each returns the number of output units the whole source needs,
 * whatever the capacity, and counts each bad sequence or unit as one error
 * (written to `outErrorCount` when given). No terminating zero is added. A
 * null source counts as empty.
 *
 * Reading UTF-8, units are stored while the output index is below the
 * capacity. Writing UTF-8, once a character does not fit in the remaining
 * capacity nothing more is written in that call. */
ZB_EXPORT size_t ZBUTF8ToUTF16(ZBWChar *destination, size_t capacity, const char *source,
                               size_t length, uint32_t flags,
                               size_t *outErrorCount) ZB_NOEXCEPT;
/** One unit per code point; three- and four-byte values are taken as they
   are (all three lead bits of a four-byte sequence count), without the
   overlong and surrogate checks of ZBUTF8ToUTF16. */
ZB_EXPORT size_t ZBUTF8ToUTF32(uint32_t *destination, size_t capacity, const char *source,
                               size_t length, uint32_t flags,
                               size_t *outErrorCount) ZB_NOEXCEPT;
/** `flags` is not used. */
ZB_EXPORT size_t ZBUTF16ToUTF8(char *destination, size_t capacity, const ZBWChar *source,
                               size_t length, uint32_t flags,
                               size_t *outErrorCount) ZB_NOEXCEPT;
/** Values from 0x200000 up are errors; `flags` is not used. */
ZB_EXPORT size_t ZBUTF32ToUTF8(char *destination, size_t capacity, const uint32_t *source,
                               size_t length, uint32_t flags,
                               size_t *outErrorCount) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBSTRING_H */
