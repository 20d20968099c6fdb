/**
 * @file
 * ZBEnvironment.h: the library's own process environment.
 *
 * All environment reads of the library are answered from a private array of
 * name=value strings behind a recursive mutex. It starts with the system
 * environment of the process; the host adds to it with ZBEnvironmentSetEnv
 * and ZBEnvironmentPutEnv. Setting a variable whose name begins "ZBLOG_"
 * reconfigures logging at once.
 */
#ifndef ZENBOR_ZBENVIRONMENT_H
#define ZENBOR_ZBENVIRONMENT_H

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

/** The value inside the stored string (not a copy, valid until the variable
   changes), or null. A name that contains "=" or is empty gives null. */
ZB_EXPORT const char *ZBEnvironmentGetEnv(const char *name) ZB_NOEXCEPT;
/** 0 on success. -1 with errno 22 for a null or empty name, a null value or a
   name containing "="; -1 for "HOME", which is set with
   ZBEnvironmentSetHomeDirectory instead; -1 (replacing) or -2 (appending)
   with errno 12 when memory runs out. Without `overwrite` an existing
   variable is kept and the result is 0. */
ZB_EXPORT int32_t ZBEnvironmentSetEnv(const char *name, const char *value,
                                      int32_t overwrite) ZB_NOEXCEPT;
/** Splits "name=value" at the first "=" and sets it, overwriting; without
   "=" errno 22 and -1. */
ZB_EXPORT int32_t ZBEnvironmentPutEnv(const char *assignment) ZB_NOEXCEPT;
/** 0 when removed; -1 with errno 22 for a name containing "=", an empty name
   or an absent variable. The last entry moves into the freed slot and also
   stays where it was, so it is then listed twice. */
ZB_EXPORT int32_t ZBEnvironmentUnsetEnv(const char *name) ZB_NOEXCEPT;
/** The environment array itself, null-terminated; read without the lock. */
ZB_EXPORT char **ZBEnvironmentGetEnviron(void) ZB_NOEXCEPT;
/** A copy of the array and its strings; release with
   ZBEnvironmentReleaseEnviron. */
ZB_EXPORT char **ZBEnvironmentCopyEnviron(void) ZB_NOEXCEPT;
/** Frees each string up to the first null, then the array; null accepted. */
ZB_EXPORT void ZBEnvironmentReleaseEnviron(char **environment) ZB_NOEXCEPT;

/** Absent: the default. A value beginning "0", "N" or "n" is false, "1", "Y"
   or "y" true, anything else the default. */
ZB_EXPORT bool ZBEnvironmentGetBooleanWithDefault(const char *name,
                                                  bool defaultValue) ZB_NOEXCEPT;
/** atoi of the value; the default (or 0) when absent. */
ZB_EXPORT int32_t ZBEnvironmentGetIntegerWithDefault(const char *name,
                                                     int32_t defaultValue) ZB_NOEXCEPT;
/** As ZBEnvironmentGetIntegerWithDefault with the default 0.
   @return The value as a number, or 0. */
ZB_EXPORT int32_t ZBEnvironmentGetInteger(const char *name) ZB_NOEXCEPT;
/** atof of the value; 0.0 when absent. */
ZB_EXPORT double ZBEnvironmentGetFloat(const char *name) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBENVIRONMENT_H */
