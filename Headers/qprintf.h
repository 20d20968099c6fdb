/**
 * @file
 * qprintf.h: the library's printf-compatible formatting engine.
 *
 * Every formatted text the library produces goes through this one engine.
 * Each conversion character is a slot in a table of 256 modifiers that says
 * how many arguments the conversion takes, how to fetch them and how to
 * render them; the standard conversions are registered at load, beside the
 * library's own (%b %M %m %T %Q %H %Z, see ZBPrint.h), and applications can
 * add or replace conversions with qprintf_modifier_register.
 *
 * Where the engine differs from C's printf, on purpose:
 *  - The flag loop ends right after a space, "-" or "0" flag: "%-+5d" is the
 *    conversion "+" followed by the text "5d".
 *  - The space flag never prints a leading space; "#" gives octal no "0".
 *  - "%.0s" (and a precision argument below 0, which counts as 0) prints
 *    the whole narrow string.
 *  - "l" is 32 bits wide, as on Windows; "z", "t" and "I" are pointer-wide;
 *    "L" fetches a double.
 *  - "%p" prints the pointer as "%#x" would ("0" for null); "%n" prints
 *    "n" and stores nothing; "%a" prints nothing.
 *  - "%S" and "%ls" read UTF-16 units and keep the low byte of each.
 *  - An unknown conversion prints its own character ("%y" prints "y").
 */
#ifndef ZENBOR_QPRINTF_H
#define ZENBOR_QPRINTF_H

#include <stdarg.h>
#include <stdio.h>

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

/** Bits of qprintf_info.flags. */
#define QPRINTF_FLAG_ZERO 0x1u      /**< "0" */
#define QPRINTF_FLAG_SPACE 0x2u     /**< " " */
#define QPRINTF_FLAG_ALTERNATE 0x4u /**< "#" */
#define QPRINTF_FLAG_PLUS 0x8u      /**< "+" */
#define QPRINTF_FLAG_GROUPING 0x10u /**< "'" */
/** "-": parsed, then folded into the sign of the width before rendering. */
#define QPRINTF_FLAG_LEFT 0x80000000u

/** Values of qprintf_info.length. */
enum {
  QPRINTF_LENGTH_NONE = 0,
  QPRINTF_LENGTH_CHAR = 1,        /**< hh */
  QPRINTF_LENGTH_SHORT = 2,       /**< h */
  QPRINTF_LENGTH_INT32 = 3,       /**< I32 */
  QPRINTF_LENGTH_LONG = 4,        /**< l: 32 bits; with s and c, UTF-16 units */
  QPRINTF_LENGTH_INT64 = 5,       /**< ll, q, I64 */
  QPRINTF_LENGTH_LONG_DOUBLE = 7, /**< L: fetched as a double */
  QPRINTF_LENGTH_INTMAX = 8,      /**< j */
  QPRINTF_LENGTH_PTRDIFF = 9,     /**< t, and I without 32 or 64 */
  QPRINTF_LENGTH_SIZE = 10,       /**< z */
  QPRINTF_LENGTH_WIDE = 11,       /**< w */
  QPRINTF_LENGTH_WIDE_SPACE = 12, /**< w with the space flag */
  QPRINTF_LENGTH_WIDE_ZERO = 13   /**< w with the "0" flag */
};

/** Where a call's output goes; it lives on the calling stack. */
typedef struct qprintf_sink qprintf_sink;

/** The fetched argument(s) of one conversion. */
typedef union qprintf_value {
  int64_t integer; /**< integer conversions, widened */
  double number;   /**< floating conversions */
  void *pointer;   /**< string and pointer conversions */
  struct {
    void *pointer;
    int64_t argument;
  } pair; /**< two-argument conversions: a pointer and a second argument */
} qprintf_value;

/** One conversion as its fetch and render functions see it. */
typedef struct qprintf_info {
  uint32_t flags;    /**< QPRINTF_FLAG_ bits */
  int32_t width;     /**< minimum field width; negative: left-justified */
  int32_t precision; /**< -1 when absent */
  uint32_t length;   /**< a QPRINTF_LENGTH_ code */
  unsigned char conversion; /**< the conversion character */
  uint32_t count; /**< arguments the conversion consumes */
  qprintf_value value; /**< the fetched argument(s) */
  void *userData; /**< as registered */
  qprintf_sink *sink; /**< where the output goes */
} qprintf_info;

/** Reads the conversion's arguments from `*arguments` into info->value. */
typedef int (*qprintf_fetch_fn)(va_list *arguments, qprintf_info *info);
/** Writes the conversion, through qprintf_print_from_formatter; its result
   is passed on and otherwise ignored. */
typedef int (*qprintf_render_fn)(qprintf_info *info);

/** Formatting to standard output (which goes to the debugger output, one
   line at a time per thread) and to streams. Results: the number of bytes
   the stream accepted, 0 for a null or empty format, -1 when `stream` is
   null or memory for the conversion records runs out. `reserved` is ignored. */
ZB_EXPORT int qprintf(const char *format, ...) ZB_NOEXCEPT ZB_PRINTF_LIKE(1, 2);
/** As qprintf, with the arguments in a `va_list`.
   @return As qprintf. */
ZB_EXPORT int vqprintfx(uint32_t reserved, const char *format,
                        va_list arguments) ZB_NOEXCEPT;
/** Formats to `stream`, which must be a FILE of the C runtime the DLL uses
   (msvcrt; see @ref cruntime).
   @return The bytes the stream accepted, 0 for a null or empty format, -1 when
   `stream` is null or memory runs out. */
ZB_EXPORT int vqfprintf(FILE *stream, const char *format, va_list arguments) ZB_NOEXCEPT;
/** As vqfprintf; `reserved` is ignored.
   @return As vqfprintf. */
ZB_EXPORT int vqfprintfx(FILE *stream, uint32_t reserved, const char *format,
                         va_list arguments) ZB_NOEXCEPT;

/** Formatting into `buffer` of `size` bytes, always terminated when `size`
   is above 0. Results: the length stored when the whole output fit, else
   the length the whole output has; -1 when `size` is negative (the buffer is
   not touched), when `buffer` is null with a positive size, or when memory
   for the conversion records runs out. */
ZB_EXPORT int qsnprintf(char *buffer, int size, const char *format, ...) ZB_NOEXCEPT
    ZB_PRINTF_LIKE(3, 4);
/** As qsnprintf, with the arguments in a `va_list`.
   @return As qsnprintf. */
ZB_EXPORT int vqsnprintf(char *buffer, int size, const char *format,
                         va_list arguments) ZB_NOEXCEPT;
/** As vqsnprintf; `reserved` is ignored.
   @return As qsnprintf. */
ZB_EXPORT int vqsnprintfx(char *buffer, int size, uint32_t reserved, const char *format,
                          va_list arguments) ZB_NOEXCEPT;
/** Formatting into a buffer the caller knows to be large enough. Result: the
   length stored, or -1 (null buffer, no memory for the records). */
ZB_EXPORT int vqsprintfx(char *buffer, uint32_t reserved, const char *format,
                         va_list arguments) ZB_NOEXCEPT;

/** Formatting into a new block stored in `*out`, released with qprffree.
   Result: the length of the text, or -1 (null `out`, no memory) with `*out`
   null. When the block cannot grow the text is cut short, not failed. */
ZB_EXPORT int qasprintf(char **out, const char *format, ...) ZB_NOEXCEPT ZB_PRINTF_LIKE(2, 3);
/** As qasprintf, with the arguments in a `va_list`.
   @return As qasprintf. */
ZB_EXPORT int vqasprintf(char **out, const char *format, va_list arguments) ZB_NOEXCEPT;
/** As vqasprintf; `reserved` is ignored.
   @return As qasprintf. */
ZB_EXPORT int vqasprintfx(char **out, uint32_t reserved, const char *format,
                          va_list arguments) ZB_NOEXCEPT;
/** Releases a result of the qasprintf family; null is allowed. */
ZB_EXPORT void qprffree(void *pointer) ZB_NOEXCEPT;

/** The one way a render function writes: `text` up to its end when `maxlen`
   is below 1 (so 0 means the whole text), else at most `maxlen` bytes of it,
   padded to info->width: on the left with "0" when the "0" flag is set, else
   with spaces; on the right (a negative width) with spaces. A null text is
   "(null)". Returns the code of the last byte written, -1 when the sink
   refused it (or `info` is null), 0 when nothing was written. */
ZB_EXPORT int qprintf_print_from_formatter(qprintf_info *info, const char *text,
                                           int maxlen) ZB_NOEXCEPT;

/** Makes `conversion` a conversion taking `count` arguments, fetched by
   `fetch` and rendered by `render`, which receive `userData` in their info.
   Replaces an earlier registration. Returns 1, or 0 when the character is
   refused: below 33, "#", "+", "*", ".", backslash or a digit. Register
   before other threads format: the table is read without a lock. */
ZB_EXPORT int qprintf_modifier_register(unsigned char conversion, int count,
                                        qprintf_fetch_fn fetch, qprintf_render_fn render,
                                        void *userData) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_QPRINTF_H */
