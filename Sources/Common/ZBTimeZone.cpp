// The exported ZBTimeZone family over the zone core: creation by offset, by
// description, by name (offset names, alias links, known zones, POSIX rules),
// from files and bytes; queries; and the walks over the known names. What
// depends on the system (known zones and the current zone) comes from the
// platform's tz_platform_... functions.
#include "ZBTimeZone.h"

#include "ZBAlloc.h"
#include "ZBLog.h"
#include "ZBString.h"
#include "ZBTZFile.h"
#include "qprintf.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// Two or more digits as a number, or -1 when any character is not a digit.
int32_t digits(const char *text, size_t length) {
  int32_t value = 0;
  for (size_t index = 0; index < length; ++index) {
    if (!isDigit(text[index]))
      return -1;
    value = value * 10 + (text[index] - '0');
  }
  return length == 0 ? -1 : value;
}

// "GMT", "GMT+hh", "GMT+hhmm", "GMT+hh:mm" and the same with "UTC": the
// offset east of UT in `offset`; false for any other shape.
bool parseOffsetName(const char *name, int32_t *offset) {
  const size_t length = std::strlen(name);
  if (length < 3 || (std::strncmp(name, "GMT", 3) != 0 && std::strncmp(name, "UTC", 3) != 0))
    return false;
  if (name[3] == '\0') {
    *offset = 0;
    return true;
  }
  if ((name[3] != '+' && name[3] != '-') || length < 6)
    return false;
  int32_t minutes = 0;
  if (length == 8 && name[6] != ':')
    minutes = digits(name + 6, 2);
  else if (length == 9 && name[6] == ':')
    minutes = digits(name + 7, 2);
  else if (length != 6)
    return false;
  const int32_t hours = digits(name + 4, 2);
  if (hours < 0 || minutes < 0 || minutes > 59)
    return false;
  *offset = (name[3] == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
  return true;
}

ZBTZFile *createKnownZone(const char *name) {
  int32_t nameIndex = 0;
  const int32_t row = tz_known_zone_find(name, &nameIndex);
  return row < 0 ? nullptr : tz_platform_create_known_zone(row, nameIndex);
}

// A rule string as a zone, or null with the failure logged.
ZBTZFile *_tryCreateWithZoneNamePOSIX(const char *name) {
  ZBTZFile *zone = tz_file_create_posix(name, name);
  if (zone == nullptr)
    ZB_LOG_ERROR("Failed to create ZBTimeZone for name '%s'", name);
  return zone;
}

} // namespace

ZBTZFile *ZBTimeZoneCreateWithGMTOffset(const char *name, int32_t offset) noexcept {
  char built[32];
  if (name == nullptr) {
    const uint32_t magnitude =
        offset < 0 ? 0u - static_cast<uint32_t>(offset) : static_cast<uint32_t>(offset);
    const char sign = offset >= 0 ? '+' : '-';
    const uint32_t hours = magnitude / 3600, minutes = magnitude % 3600 / 60;
    if (offset == 0)
      std::strcpy(built, "GMT");
    else if (minutes == 0)
      qsnprintf(built, sizeof built, "GMT%c%u", sign, hours);
    else
      qsnprintf(built, sizeof built, "GMT%c%u:%02u", sign, hours, minutes);
    name = built;
  }
  const ZBTZTransition only{ZBTZFlagUniversal, kTZForever, offset, name};
  return tz_file_create_memory(&only, 1, nullptr, 0, name);
}

ZBTZFile *ZBTimeZoneCreateWithZone(const ZBTZZoneDescription *description) noexcept {
  if (description == nullptr)
    return nullptr;
  return tz_file_create_memory(description->transitions, description->transitionCount,
                               description->leaps, description->leapCount, description->name);
}

ZBTZFile *ZBTimeZoneCreateWithZoneName(const char *name, uint32_t options) noexcept {
  if (name == nullptr)
    return nullptr;
  int32_t offset = 0;
  if ((options & ZBTZNameOffsets) != 0 && parseOffsetName(name, &offset))
    return ZBTimeZoneCreateWithGMTOffset(nullptr, offset);
  ZBTZFile *zone = nullptr;
  if ((options & ZBTZNameLinks) != 0) {
    if (const char *canonical = tz_database_resolve_link(name))
      zone = createKnownZone(canonical);
  }
  // A name that is no link is tried as itself when known zones are enabled.
  if (zone == nullptr && (options & ZBTZNameKnownZones) != 0)
    zone = createKnownZone(name);
  if (zone == nullptr && (options & ZBTZNamePOSIXRules) != 0)
    zone = _tryCreateWithZoneNamePOSIX(name);
  return zone;
}

ZBTZFile *ZBTimeZoneCreateFromFile(const char *path) noexcept {
  return tz_file_open_path(path, nullptr);
}

ZBTZFile *ZBTimeZoneCreateWithData(const char *name, const void *data, uint32_t size) noexcept {
  return tz_file_open_memory(name, data, size);
}

void ZBTimeZoneClose(ZBTZFile *zone) noexcept { tz_file_close(zone); }

bool ZBTimeZoneFindTransitionTime(const ZBTZFile *zone, int64_t time,
                                  ZBTZTransitionInfo *info) noexcept {
  return tz_file_find_transition(zone, time, info);
}

bool ZBTimeZoneFindNextTransitionTime(const ZBTZFile *zone, int64_t time,
                                      ZBTZTransitionInfo *info) noexcept {
  return tz_file_find_next_transition(zone, time, info);
}

const char *ZBTimeZoneGetName(const ZBTZFile *zone) noexcept {
  return zone != nullptr ? zone->name : nullptr;
}

uint32_t ZBTimeZoneGetTrationsitionTimeCount(const ZBTZFile *zone) noexcept {
  return tz_file_transition_count(zone);
}

uint32_t ZBTimeZoneGetTypeCount(const ZBTZFile *zone) noexcept { return tz_file_type_count(zone); }

// The walk composes each transition's flags as a debugging aid would and
// prints nothing: callers rely on it for the abbreviation count alone.
uint32_t ZBTimeZoneDump(const ZBTZFile *zone) noexcept {
  if (zone == nullptr)
    return 0;
  char flags[64];
  ZBTZTransitionInfo info;
  for (uint32_t index = 0; tz_file_transition_info(zone, index, &info); ++index) {
    flags[0] = '\0';
    if (info.flags & ZBTZFlagDaylight)
      std::strcat(flags, "DST,");
    if (info.flags & ZBTZFlagStandardTime)
      std::strcat(flags, "STD,");
    if (info.flags & ZBTZFlagUniversal)
      std::strcat(flags, "GMT,");
  }
  int64_t time;
  int32_t correction;
  for (uint32_t index = 0; tz_file_leap_second(zone, index, &time, &correction); ++index) {
  }
  return tz_file_abbreviation_count(zone);
}

char *ZBTimeZoneCopyCurrentName(void) noexcept {
  char name[256];
  return _ZBCStringDuplicate(tz_get_current(name, sizeof name) ? name : "GMT");
}

ZBTZFile *ZBTimeZoneCreateLocal(void) noexcept {
  char name[80];
  return tz_get_current(name, sizeof name) ? createKnownZone(name) : nullptr;
}

const void *ZBTimeZoneGetData(const ZBTZFile *zone) noexcept {
  return zone != nullptr ? zone->data : nullptr;
}

uint32_t ZBTimeZoneGetDataLength(const ZBTZFile *zone) noexcept {
  return zone != nullptr ? zone->size : 0;
}

int32_t ZBTimeZoneIterateKnownNames(ZBTimeZoneNameCallback callback, void *context) noexcept {
  int32_t result = 0;
  for (int32_t row = 0; callback != nullptr && row < kTZKnownZoneCount; ++row)
    for (const char *name : kTZKnownZones[row].zoneNames)
      if (name != nullptr && (result = callback(context, name)) > 0)
        return result;
  return result;
}

int32_t ZBTimeZoneIterateKnownAbbreviations(ZBTimeZoneAbbreviationCallback callback,
                                            void *context) noexcept {
  int32_t result = 0;
  for (int32_t row = 0; callback != nullptr && row < kTZKnownZoneCount; ++row) {
    const TZKnownZone &zone = kTZKnownZones[row];
    for (const bool daylight : {false, true}) {
      const char *abbreviation = daylight ? zone.daylightAbbreviation : zone.standardAbbreviation;
      if (*abbreviation != '\0' &&
          (result = callback(context, abbreviation, zone.zoneNames[0], daylight)) > 0)
        return result;
    }
  }
  return result;
}
