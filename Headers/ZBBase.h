/**
 * @file
 * ZBBase.h: what every Zenbor header shares: the export macro, the C linkage
 * brackets and the no-exception marker of the flat C interface.
 *
 * Zenbor's interface is plain C (C99 and C++ both compile these headers). In
 * C++ every function is declared noexcept: no exception ever crosses it.
 */
#ifndef ZENBOR_ZBBASE_H
#define ZENBOR_ZBBASE_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/**
 * @def ZB_EXPORT
 * Marks an exported declaration: dllexport while the DLL is built, dllimport
 * for its users, nothing for the static form (ZENBOR_STATIC).
 * @def ZB_EXTERN_C_BEGIN
 * Opens C linkage in C++; nothing in C.
 * @def ZB_EXTERN_C_END
 * Closes what ZB_EXTERN_C_BEGIN opened.
 * @def ZB_NOEXCEPT
 * `noexcept` in C++: no exception ever crosses the interface.
 * @def ZB_NORETURN
 * Marks a function that never returns.
 * @def ZB_PRINTF_LIKE
 * Lets the compiler check a printf-style format (see below).
 * @def ZB_LIKELY
 * A hint that the condition is usually true.
 * @def ZB_UNLIKELY
 * A hint that the condition is usually false.
 */

#if defined(ZENBOR_STATIC)
#  define ZB_EXPORT
#elif defined(_WIN32)
#  if defined(ZENBOR_BUILDING)
#    define ZB_EXPORT __declspec(dllexport)
#  else
#    define ZB_EXPORT __declspec(dllimport)
#  endif
#else
#  define ZB_EXPORT __attribute__((visibility("default")))
#endif

/* A few hot functions (thread keys, recursive mutexes, the non-decreasing
   clock) have inline forms in their headers that callers outside the
   library use on 64-bit Windows: a call such as ZBMutexAcquire(m) is served
   without entering the library when it can be, while the function's name
   without a call still gives the exported function. Define
   ZB_NO_INLINE_FAST_PATHS to call the exported functions always. */
#if defined(_WIN64) && !defined(ZENBOR_BUILDING) && !defined(ZB_NO_INLINE_FAST_PATHS)
#  define ZB_INLINE_FAST_PATHS 1
#endif

#ifdef __cplusplus
#  define ZB_EXTERN_C_BEGIN extern "C" {
#  define ZB_EXTERN_C_END }
#  define ZB_NOEXCEPT noexcept
#else
#  define ZB_EXTERN_C_BEGIN
#  define ZB_EXTERN_C_END
#  define ZB_NOEXCEPT
#endif

#if defined(__GNUC__) || defined(__clang__)
#  define ZB_NORETURN __attribute__((noreturn))
/* The library formats with its own engine, which knows %zu and %lld, so
   calls are checked as gnu_printf's. The compiler's checker cannot learn the
   engine's own conversions (%b %M %m %T %Q %H %Z, ZBPrint.h) and rejects
   them; a file that uses them defines ZB_FORMAT_EXTENSIONS before including
   any Zenbor header, which turns the checking off for that file. */
#  if defined(ZB_FORMAT_EXTENSIONS)
#    define ZB_PRINTF_LIKE(fmt, args)
#  elif defined(__MINGW32__)
#    define ZB_PRINTF_LIKE(fmt, args) __attribute__((format(gnu_printf, fmt, args)))
#  else
#    define ZB_PRINTF_LIKE(fmt, args) __attribute__((format(printf, fmt, args)))
#  endif
#  define ZB_LIKELY(x) __builtin_expect(!!(x), 1)
#  define ZB_UNLIKELY(x) __builtin_expect(!!(x), 0)
#else
#  define ZB_NORETURN
#  define ZB_PRINTF_LIKE(fmt, args)
#  define ZB_LIKELY(x) (x)
#  define ZB_UNLIKELY(x) (x)
#endif

#endif /* ZENBOR_ZBBASE_H */
