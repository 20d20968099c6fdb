/**
 * @file
 * ZBOption.h: a process-wide registry of named, typed settings.
 *
 * A module registers an option once, naming either a variable that holds the
 * value or a pair of callbacks that read and write it. The option's initial
 * value comes from the environment variable of the same name. Names begin
 * with "QUOVEX_". Registration misuse is Fatal; lookups of unknown names
 * answer false or 0 (ZBOptionGetBool alone is Fatal).
 */
#ifndef ZENBOR_ZBOPTION_H
#define ZENBOR_ZBOPTION_H

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

enum {
  ZBOptionTypeBool = 1,   /**< one byte, 0 or 1 */
  ZBOptionTypeInt = 2,    /**< int32_t */
  ZBOptionTypeDouble = 3, /**< double */
  ZBOptionTypeString = 4  /**< char *, owned by the option */
};

/** Called with the option's name after its value changes. */
typedef void (*ZBOptionNotifyFn)(const char *name);
/** Reads an option kept by its owner into `value`. */
typedef void (*ZBOptionReadFn)(const char *name, int32_t type, void *value);
/** Stores a new value of an option kept by its owner. */
typedef void (*ZBOptionWriteFn)(const char *name, int32_t type, const void *value);
/** Called once per option, newest first; the result is ignored. */
typedef bool (*ZBOptionsForeachFn)(void *context, const char *name, const char *description,
                                   const char *category, int32_t type, const void *values,
                                   const char *const *valueNames, int32_t valueCount,
                                   const char *help);

/** Registers an option. The texts and tables must live as long as the
   process. Give either `storage` (with both or neither callback, and then no
   notify callback) or both callbacks. A null category reads "Settings". */
ZB_EXPORT void ZBOptionRegisterWithValues(const char *name, const char *description,
                                          const char *category, int32_t type, void *storage,
                                          const void *values, const char *const *valueNames,
                                          int32_t valueCount, ZBOptionNotifyFn notify,
                                          ZBOptionReadFn read, ZBOptionWriteFn write,
                                          const char *help) ZB_NOEXCEPT;
/** As ZBOptionRegisterWithValues, without a table of named values or
   read and write callbacks. */
ZB_EXPORT void ZBOptionRegister(const char *name, const char *description, const char *category,
                                int32_t type, void *storage, ZBOptionNotifyFn notify,
                                const char *help) ZB_NOEXCEPT;
/** As ZBOptionRegisterWithValues, for an option its owner keeps: no storage,
   read and write callbacks instead. */
ZB_EXPORT void ZBOptionRegisterWithCallbacks(const char *name, const char *description,
                                             const char *category, int32_t type,
                                             ZBOptionReadFn read, ZBOptionWriteFn write,
                                             const char *help) ZB_NOEXCEPT;

/** Copies the value into `value` (for a string option, the text pointer).
   False when no option has the name. */
ZB_EXPORT bool ZBOptionRead(const char *name, void *value) ZB_NOEXCEPT;
/** Sets the value from `value` (for a string option, a pointer to the text
   pointer; the text is copied). False when no option has the name. */
ZB_EXPORT bool ZBOptionWrite(const char *name, const void *value) ZB_NOEXCEPT;
/** The option's type, or 0 when no option has the name. */
ZB_EXPORT int32_t ZBOptionGetType(const char *name) ZB_NOEXCEPT;
/** The Boolean value; Fatal when no option has the name. */
ZB_EXPORT bool ZBOptionGetBool(const char *name) ZB_NOEXCEPT;
/** Calls `callback` once per option, newest first, with the registry locked:
   the callback must not call back into the registry. */
ZB_EXPORT void ZBOptionsForeach(ZBOptionsForeachFn callback, void *context) ZB_NOEXCEPT;
/** Writes every option with its value as bare log lines. */
ZB_EXPORT void ZBOptionsPrint(void) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBOPTION_H */
