/*
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

/* The value inside the stored string (not a copy, valid until the variable
   changes), or null. A name that contains "=" or is empty gives null. */
ZB_EXPORT const char *ZBEnvironmentGetEnv(const char *name) ZB_NOEXCEPT;
/* 0 on success. -1 with errno 22 for a null or empty name, a null value or a
   name containing "="; -1 for "HOME", which is set with
   ZBEnvironmentSetHomeDirectory instead; -1 (replacing) or -2 (appending)
   with errno 12 when memory runs out. Without `overwrite` an existing
   variable is kept and the result is 0. */
ZB_EXPORT int32_t ZBEnvironmentSetEnv(const char *name, const char *value,
                                      int32_t overwrite) ZB_NOEXCEPT;
/* Splits "name=value" at the first "=" and sets it, overwriting; without
   "=" errno 22 and -1. */
ZB_EXPORT int32_t ZBEnvironmentPutEnv(const char *assignment) ZB_NOEXCEPT;
/* 0 when removed; -1 with errno 22 for a name containing "=", an empty name
   or an absent variable. The last entry moves into the freed slot and also
   stays where it was, so it is then listed twice. */
ZB_EXPORT int32_t ZBEnvironmentUnsetEnv(const char *name) ZB_NOEXCEPT;
/* The environment array itself, null-terminated; read without the lock. */
ZB_EXPORT char **ZBEnvironmentGetEnviron(void) ZB_NOEXCEPT;
/* A copy of the array and its strings; release with
   ZBEnvironmentReleaseEnviron. */
ZB_EXPORT char **ZBEnvironmentCopyEnviron(void) ZB_NOEXCEPT;
/* Frees each string up to the first null, then the array; null accepted. */
ZB_EXPORT void ZBEnvironmentReleaseEnviron(char **environment) ZB_NOEXCEPT;

/* Absent: the default. A value beginning "0", "N" or "n" is false, "1", "Y"
   or "y" true, anything else the default. */
ZB_EXPORT bool ZBEnvironmentGetBooleanWithDefault(const char *name,
                                                  bool defaultValue) ZB_NOEXCEPT;
/* atoi of the value; the default (or 0) when absent. */
ZB_EXPORT int32_t ZBEnvironmentGetIntegerWithDefault(const char *name,
                                                     int32_t defaultValue) ZB_NOEXCEPT;
ZB_EXPORT int32_t ZBEnvironmentGetInteger(const char *name) ZB_NOEXCEPT;
/* atof of the value; 0.0 when absent. */
ZB_EXPORT double ZBEnvironmentGetFloat(const char *name) ZB_NOEXCEPT;

/**
 * The host's name as the network knows it (gethostname).
 *
 * @return a new string from the default zone (release with _ZBFree):
 *         "computer" when the system cannot say; null only when memory runs out.
 */
ZB_EXPORT char *ZBEnvironmentCopyHostName(void) ZB_NOEXCEPT;
/**
 * Not available on this platform: writes the Fatal line "NOT YET
 * IMPLEMENTED" and ends the process with a backtrace. Never returns.
 */
ZB_EXPORT char *ZBEnvironmentCopyFullUserName(void) ZB_NOEXCEPT;
/**
 * The application's bundle identifier.
 *
 * @return a new string from the default zone (release with _ZBFree), or null
 *         when none is set or memory runs out.
 */
ZB_EXPORT char *ZBEnvironmentCopyBundleID(void) ZB_NOEXCEPT;
/**
 * Stores a copy of `bundleID` as the bundle identifier; null clears it. The
 * sandboxed directories computed afterwards use it instead of the process
 * name.
 */
ZB_EXPORT void ZBEnvironmentSetBundleID(const char *bundleID) ZB_NOEXCEPT;

/**
 * The home directory, ending with "/". At first use it is the application's
 * local application-data folder, else LOCALAPPDATA with "..\LocalState";
 * once cleared (ZBEnvironmentSetHomeDirectory(NULL)) it is computed from
 * HOME, under ".quovex_sandbox/<bundle identifier or process name>/" when
 * the QUOVEX_SANDBOX_FILESYSTEM option is on. "Documents" and
 * "Library/Preferences" are created inside it (mode 0700). Without any of
 * these sources the process ends (Fatal "BUG").
 *
 * @return a new string from the default zone (release with _ZBFree), or null
 *         when memory runs out.
 */
ZB_EXPORT char *ZBEnvironmentCopyHomeDirectory(void) ZB_NOEXCEPT;
/**
 * With the sandbox on, the home directory outside the sandbox; otherwise the
 * same as ZBEnvironmentCopyHomeDirectory.
 *
 * @return a new string from the default zone ending with "/", or null when
 *         memory runs out.
 */
ZB_EXPORT char *ZBEnvironmentCopyHomeDirectoryIgnoringSandbox(void) ZB_NOEXCEPT;
/**
 * Replaces the home directory (a "/" is added when missing); null clears it
 * so that the next use computes it from HOME. The application caches and the
 * private temporary directory, which live in the home, are computed again at
 * their next use.
 */
ZB_EXPORT void ZBEnvironmentSetHomeDirectory(const char *path) ZB_NOEXCEPT;
/**
 * The application caches directory: home + "AppData/Local/quovex/", created
 * with its parents (mode 0777) when first computed.
 *
 * @return a new string from the default zone ending with "/", or null when
 *         the directory cannot be created (an Error line names the path and
 *         code) or memory runs out.
 */
ZB_EXPORT char *ZBEnvironmentCopyAppCachesDirectory(void) ZB_NOEXCEPT;
/**
 * Replaces the application caches directory (a "/" is added when missing);
 * null clears it so that the next use computes it again.
 */
ZB_EXPORT void ZBEnvironmentSetAppCachesDirectory(const char *path) ZB_NOEXCEPT;
/**
 * The application temporary directory: the first of TMP, TMPDIR, TEMP and
 * TEMPDIR as a full path, else the application's temporary application-data
 * folder; with the sandbox on, inside "quovex_sandbox/<bundle identifier or
 * process name>". Created with its parents (mode 0777); a creation failure
 * is logged as a Warning and the path is still returned. Setting TMP through
 * ZBEnvironmentSetEnv makes the next call compute it again.
 *
 * @return a new string from the default zone ending with "/", or null when
 *         no source names a directory or memory runs out.
 */
ZB_EXPORT char *ZBEnvironmentCopyAppTemporaryDirectory(void) ZB_NOEXCEPT;
/**
 * The library's private caches directory, home + "quovex_cache/", created
 * (mode 0777) on every call.
 *
 * @return a new string from the default zone ending with "/", or null when
 *         it cannot be created or memory runs out.
 */
ZB_EXPORT char *ZBEnvironmentCopyQuovexPrivateCachesDirectory(void) ZB_NOEXCEPT;
/**
 * The library's private temporary directory, home + "quovex_tmp/". Its first
 * use in a process removes it with everything inside and creates it again
 * (mode 0777), unless QUOVEX_CHILDPROCESS is set: a child process shares its
 * parent's directory untouched.
 *
 * @return a new string from the default zone ending with "/", or null when
 *         it cannot be created (the next call tries again) or memory runs out.
 */
ZB_EXPORT char *ZBEnvironmentCopyQuovexPrivateTemporaryDirectory(void) ZB_NOEXCEPT;

/**
 * Fills `count` bytes at `buffer` from the system's cryptographically strong
 * random source. A failure of the source is Fatal: the buffer is never left
 * unfilled. A null buffer or a count of 0 does nothing.
 */
ZB_EXPORT void ZBRandomGetBytes(void *buffer, size_t count) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBENVIRONMENT_H */
