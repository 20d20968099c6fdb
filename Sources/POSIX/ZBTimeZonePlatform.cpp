// The zone core's system side for the native build: known zones are read
// from the system's tz database, and the current zone is the one that
// /etc/localtime names.
#include "ZBTZFile.h"

#include "qprintf.h"

#include <climits>
#include <cstring>
#include <initializer_list>
#include <ctime>
#include <string>
#include <unistd.h>

namespace {

const char kZoneInfo[] = "/usr/share/zoneinfo/";

} // namespace

bool tz_platform_row_present(int32_t row) noexcept {
  const std::string path = std::string(kZoneInfo) + kTZKnownZones[row].zoneNames[0];
  return access(path.c_str(), R_OK) == 0;
}

// The requested name's own file when the system has one, else the row's
// canonical zone, named by the requested name either way.
ZBTZFile *tz_platform_create_known_zone(int32_t row, int32_t nameIndex) noexcept {
  if (row < 0 || row >= kTZKnownZoneCount || nameIndex < 0 || nameIndex >= kTZMaxZoneNames ||
      kTZKnownZones[row].zoneNames[nameIndex] == nullptr)
    return nullptr;
  const char *name = kTZKnownZones[row].zoneNames[nameIndex];
  for (const char *source : {name, kTZKnownZones[row].zoneNames[0]})
    if (ZBTZFile *zone = tz_file_open_path((std::string(kZoneInfo) + source).c_str(), name))
      return zone;
  return nullptr;
}

bool tz_get_current(char *buffer, size_t size) noexcept {
  if (buffer == nullptr || size == 0)
    return false;
  char target[PATH_MAX];
  const ssize_t length = readlink("/etc/localtime", target, sizeof target - 1);
  if (length > 0) {
    target[length] = '\0';
    const char *zone = std::strstr(target, "zoneinfo/");
    int32_t nameIndex = 0;
    const int32_t row = zone ? tz_known_zone_find(zone + 9, &nameIndex) : -1;
    if (row >= 0 && std::strlen(kTZKnownZones[row].zoneNames[0]) < size) {
      std::strcpy(buffer, kTZKnownZones[row].zoneNames[0]);
      return true;
    }
  }
  // No known zone: the offset in force, as a "GMT+hhmm" name.
  const time_t now = time(nullptr);
  struct tm local;
  if (localtime_r(&now, &local) == nullptr)
    return false;
  const long offset = local.tm_gmtoff;
  const long magnitude = (offset < 0 ? -offset : offset) / 60;
  qsnprintf(buffer, static_cast<int>(size), "GMT%c%02ld%02ld", offset < 0 ? '-' : '+',
            magnitude / 60, magnitude % 60);
  return true;
}
