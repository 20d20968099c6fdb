/*
 * ZBTimeZone.h: time zones with the tz database's zone names.
 *
 * Every zone is held as the bytes of a compiled zone file (TZif) and queried
 * in place: zones read from files, zones built from a list of transitions,
 * fixed-offset zones, zones made from POSIX TZ rule strings, and the system's
 * own zones, which are mapped to tz names through a table of known zones.
 * Only the 32-bit data block of a zone file is read, so instants are those of
 * signed 32-bit seconds since 1970.
 */
#ifndef ZENBOR_ZBTIMEZONE_H
#define ZENBOR_ZBTIMEZONE_H

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

/** A time zone: compiled zone-file bytes, queried in place. */
typedef struct ZBTZFile ZBTZFile;

/* ZBTZTransitionInfo.flags and ZBTZTransition.flags. */
#define ZBTZFlagDaylight 1u     /* daylight-saving time */
#define ZBTZFlagStandardTime 2u /* the type's standard-time indicator is set */
#define ZBTZFlagUniversal 4u    /* the type's UT indicator is set */

/* ZBTimeZoneCreateWithZoneName's option bits: the methods it tries, in the
   order offset names, links, known zones, POSIX rules. */
#define ZBTZNameKnownZones 1u
#define ZBTZNameLinks 2u
#define ZBTZNameOffsets 4u
#define ZBTZNamePOSIXRules 8u

/** What a transition query answers: the local time in force from `time`. */
typedef struct ZBTZTransitionInfo {
  uint8_t flags;         /**< ZBTZFlag... bits */
  int64_t time;          /**< transition instant, seconds since 1970 UTC */
  int32_t offset;        /**< seconds east of UT */
  char abbreviation[32]; /**< at most 31 characters, NUL-terminated */
} ZBTZTransitionInfo;

/** One transition handed to the zone builder. */
typedef struct ZBTZTransition {
  uint8_t flags;            /**< ZBTZFlag... bits */
  int64_t time;             /**< seconds since 1970 UTC (stored as 32 bits) */
  int32_t offset;           /**< seconds east of UT */
  const char *abbreviation; /**< NUL-terminated; null counts as "" */
} ZBTZTransition;

/** One leap-second record. */
typedef struct ZBTZLeapSecond {
  int64_t time;       /**< seconds since 1970 UTC (stored as 32 bits) */
  int32_t correction; /**< total correction from then on, in seconds */
} ZBTZLeapSecond;

/** Everything ZBTimeZoneCreateWithZone builds a zone from. */
typedef struct ZBTZZoneDescription {
  const char *name;                  /**< zone name, copied; may be null */
  uint32_t leapCount;                /**< entries in `leaps` */
  const ZBTZLeapSecond *leaps;       /**< may be null when leapCount is 0 */
  uint32_t transitionCount;          /**< entries in `transitions` */
  const ZBTZTransition *transitions; /**< sorted by time */
} ZBTZZoneDescription;

/** Called for each known zone name; a positive result stops the walk. */
typedef int32_t (*ZBTimeZoneNameCallback)(void *context, const char *name);
/** Called for each known abbreviation with the zone's canonical name and
    whether the abbreviation is the daylight one; a positive result stops. */
typedef int32_t (*ZBTimeZoneAbbreviationCallback)(void *context, const char *abbreviation,
                                                  const char *zoneName, bool daylight);

/** The zone of the system's current time zone, named by its tz name.
    Returns null when the system zone has no tz name in the known-zone table
    or cannot be read (logged). Free it with ZBTimeZoneClose. */
ZB_EXPORT ZBTZFile *ZBTimeZoneCreateLocal(void) ZB_NOEXCEPT;

/** A zone with one fixed offset of `offset` seconds east of UT, named `name`
    or, when `name` is null, "GMT", "GMT+5" or "GMT+5:30" after the offset.
    The abbreviation is the name cut at 31 characters. Returns null only when
    memory runs out. */
ZB_EXPORT ZBTZFile *ZBTimeZoneCreateWithGMTOffset(const char *name, int32_t offset) ZB_NOEXCEPT;

/** A zone built from a list of transitions and leap seconds. Returns null
    for a null description, a null list with a non-zero count, or no memory. */
ZB_EXPORT ZBTZFile *ZBTimeZoneCreateWithZone(const ZBTZZoneDescription *description) ZB_NOEXCEPT;

/** A zone for a name, trying the methods that `options` enables (ZBTZName...
    bits) in the order offset names ("GMT+05:30", "UTC-0800", "GMT"), links
    (alias names), known zones, POSIX rule strings ("EST5EDT,M3.2.0,M11.1.0").
    Returns the first zone made, or null (a failed rule is logged). */
ZB_EXPORT ZBTZFile *ZBTimeZoneCreateWithZoneName(const char *name, uint32_t options) ZB_NOEXCEPT;

/** A zone read from a TZif file at `path` (a path of the running system).
    It has no name. Returns null when the file cannot be read or is not a
    valid zone file (logged). */
ZB_EXPORT ZBTZFile *ZBTimeZoneCreateFromFile(const char *path) ZB_NOEXCEPT;

/** A zone over the caller's TZif bytes, which are not copied and must
    outlive the zone. Returns null for bytes that are not a valid zone file
    (logged). */
ZB_EXPORT ZBTZFile *ZBTimeZoneCreateWithData(const char *name, const void *data,
                                             uint32_t size) ZB_NOEXCEPT;

/** Frees a zone and, when the library made or read them, its bytes. Null is
    ignored. */
ZB_EXPORT void ZBTimeZoneClose(ZBTZFile *zone) ZB_NOEXCEPT;

/** Fills `info` with the transition in force at `time` (seconds since 1970);
    before the first transition, the first one. Returns false for null
    arguments or a zone without the data. */
ZB_EXPORT bool ZBTimeZoneFindTransitionTime(const ZBTZFile *zone, int64_t time,
                                            ZBTZTransitionInfo *info) ZB_NOEXCEPT;

/** Fills `info` with the transition after the one in force at `time`.
    Returns false for null arguments or when there is none. */
ZB_EXPORT bool ZBTimeZoneFindNextTransitionTime(const ZBTZFile *zone, int64_t time,
                                                ZBTZTransitionInfo *info) ZB_NOEXCEPT;

/** The zone's name, or null (a zone read from a file has none). */
ZB_EXPORT const char *ZBTimeZoneGetName(const ZBTZFile *zone) ZB_NOEXCEPT;

/** The zone's transition count (0 for null). The name is spelled as it is
    exported. */
ZB_EXPORT uint32_t ZBTimeZoneGetTrationsitionTimeCount(const ZBTZFile *zone) ZB_NOEXCEPT;

/** The zone's count of local time types (0 for null). */
ZB_EXPORT uint32_t ZBTimeZoneGetTypeCount(const ZBTZFile *zone) ZB_NOEXCEPT;

/** Walks every transition and leap record of the zone without printing
    anything, and returns the count of distinct abbreviations (0 for null). */
ZB_EXPORT uint32_t ZBTimeZoneDump(const ZBTZFile *zone) ZB_NOEXCEPT;

/** A new string (free with _ZBFree) holding the current system zone's tz
    name, a built offset name such as "GMT+0530" for a system zone without
    one, or "GMT" when the system zone cannot be read. */
ZB_EXPORT char *ZBTimeZoneCopyCurrentName(void) ZB_NOEXCEPT;

/** The zone's TZif bytes (null for null). */
ZB_EXPORT const void *ZBTimeZoneGetData(const ZBTZFile *zone) ZB_NOEXCEPT;

/** The length of the zone's TZif bytes (0 for null). */
ZB_EXPORT uint32_t ZBTimeZoneGetDataLength(const ZBTZFile *zone) ZB_NOEXCEPT;

/** Calls `callback` for every tz name of the known-zone table, in table
    order, until it returns a positive value. Returns the last result, 0 when
    never called (also for a null callback). */
ZB_EXPORT int32_t ZBTimeZoneIterateKnownNames(ZBTimeZoneNameCallback callback,
                                              void *context) ZB_NOEXCEPT;

/** Calls `callback` for every non-empty abbreviation of the known-zone table
    (standard, then daylight, row by row) until it returns a positive value.
    Returns the last result, 0 when never called. */
ZB_EXPORT int32_t ZBTimeZoneIterateKnownAbbreviations(ZBTimeZoneAbbreviationCallback callback,
                                                      void *context) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBTIMEZONE_H */
