// The system index table: for every known-zone row, the position of its zone
// in the system's enumeration and which of its Windows names matched. It is
// computed by enumerating the system's zones once per process, and again
// whenever a stored position turns out stale.
#include "ZBTimeZoneSystem.h"

#include "ZBLog.h"
#include "ZBScopedLock.h"
#include "ZBString.h"
#include "ZBSystemCalls.h"

#include <cstring>
#include <pthread.h>
#include <string>

namespace {

pthread_mutex_t sLock = PTHREAD_MUTEX_INITIALIZER;
bool sFilled;
TZSystemIndex sIndexes[kTZKnownZoneCount];

// The system's zone key names in enumeration order.
struct SystemNames {
  char names[kTZMaxSystemZones][kTZSystemNameBytes];
  int32_t count = 0;
};

void enumerate(SystemNames &system) {
  DYNAMIC_TIME_ZONE_INFORMATION zone;
  for (DWORD index = 0; index < kTZMaxSystemZones; ++index) {
    if (zb::gSystemCalls.EnumDynamicTimeZoneInformation(index, &zone) != ERROR_SUCCESS)
      return;
    char *name = system.names[system.count++];
    if (!_tz_win32_key_name(zone, name, kTZSystemNameBytes)) {
      ZB_LOG_ERROR("System time zone name '%ls' is longer than expected, err: %d",
                   reinterpret_cast<const ZBWChar *>(zone.TimeZoneKeyName),
                   static_cast<int>(GetLastError()));
      name[0] = '\0';
    }
  }
  ZB_LOG_ERROR("System has more time zones than expected");
}

void computeLocked() {
  auto *system = new (std::nothrow) SystemNames;
  if (system != nullptr)
    enumerate(*system);
  const int32_t systemCount = system != nullptr ? system->count : 0;
  bool missing = false;
  for (int32_t row = 0; row < kTZKnownZoneCount; ++row) {
    sIndexes[row] = {-1, -1};
    for (int32_t candidate = 0;
         candidate < kTZMaxWindowsNames && kTZKnownZones[row].windowsNames[candidate] != nullptr &&
         sIndexes[row].index < 0;
         ++candidate) {
      const char *wanted = kTZKnownZones[row].windowsNames[candidate];
      for (int32_t index = 0; index < systemCount; ++index)
        if (std::strcmp(system->names[index], wanted) == 0) {
          sIndexes[row] = {index, candidate};
          break;
        }
      if (sIndexes[row].index < 0)
        ZB_LOG_WARNING("Time zone '%s' not present on system", wanted);
    }
    missing |= sIndexes[row].index < 0;
  }
  if (missing) {
    std::string found;
    for (int32_t index = 0; index < systemCount; ++index)
      found += (index ? ", '" : "'") + std::string(system->names[index]) + "'";
    ZB_LOG_WARNING("Some time zones not found on system. Zones found on system: [ %s ]",
                   found.empty() ? "(none)" : found.c_str());
    ZBCRTriggerBugReport(const_cast<char *>("System missing expected time zones"));
  }
  delete system;
}

} // namespace

void _tz_win32_fill_tzindexes(bool force) noexcept {
  zb::ScopedLock<pthread_mutex_t> hold(&sLock);
  if (force)
    sFilled = false;
  else if (sFilled)
    return;
  computeLocked();
  sFilled = true;
}

TZSystemIndex _tz_win32_system_index(int32_t row) noexcept {
  _tz_win32_fill_tzindexes(false);
  zb::ScopedLock<pthread_mutex_t> hold(&sLock);
  return row >= 0 && row < kTZKnownZoneCount ? sIndexes[row] : TZSystemIndex{-1, -1};
}

bool _tz_win32_key_name(const DYNAMIC_TIME_ZONE_INFORMATION &zone, char *buffer,
                        int size) noexcept {
  return WideCharToMultiByte(CP_UTF8, 0, zone.TimeZoneKeyName, -1, buffer, size, nullptr,
                             nullptr) > 0;
}

bool _tz_win32_row_lists_key(int32_t row, const char *key, int32_t *candidate) noexcept {
  for (int32_t index = 0; index < kTZMaxWindowsNames && kTZKnownZones[row].windowsNames[index];
       ++index)
    if (std::strcmp(kTZKnownZones[row].windowsNames[index], key) == 0) {
      if (candidate != nullptr)
        *candidate = index;
      return true;
    }
  return false;
}

bool tz_platform_row_present(int32_t row) noexcept {
  return _tz_win32_system_index(row).index >= 0;
}
