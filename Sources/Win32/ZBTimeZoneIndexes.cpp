// The system index table: for every known-zone row, the position of its zone
// in the system's enumeration and which of its Windows names matched. It is
// kept in a small cache file ("quovex_tz_cache" in the private caches
// directory) so that a process need not enumerate the system's zones at
// start; it is computed when the file is missing or refused, and again
// whenever a stored position turns out stale, and the file is rewritten
// after every computation.
//
// The file: 16 bytes "TZINDEXES_CACHE" and a NUL, a 32-bit version (1), then
// the table's 135 pairs of signed 32-bit values, all little-endian.
#include "ZBTimeZoneSystem.h"

#include "ZBAlloc.h"
#include "ZBEnvironment.h"
#include "ZBFileDescriptor.h"
#include "ZBLog.h"
#include "ZBScopedLock.h"
#include "ZBString.h"
#include "ZBSystemCalls.h"

#include <cstring>
#include <pthread.h>
#include <string>

namespace {

constexpr char kCacheMagic[16] = "TZINDEXES_CACHE";
constexpr uint32_t kCacheVersion = 1;
constexpr uint32_t kCacheSize = 16 + 4 + 8 * kTZKnownZoneCount;
static_assert(kCacheSize == 1100, "the cache file's layout");

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

uint32_t loadLE32(const uint8_t *at) {
  return uint32_t{at[0]} | uint32_t{at[1]} << 8 | uint32_t{at[2]} << 16 | uint32_t{at[3]} << 24;
}
void storeLE32(uint8_t *at, uint32_t value) {
  for (int byte = 0; byte < 4; ++byte)
    at[byte] = static_cast<uint8_t>(value >> (8 * byte));
}

// _tz_win32_load_cached_tzindexes: the table from the file; false (logged)
// for a file that is not a current, whole cache.
bool loadLocked(ZBFileDescriptor fd) {
  ZBFileInfo info;
  if (ZBFileDescriptorGetInfo(fd, &info, ZBFileInfoMaskSize) != ZBErrorNone) {
    ZB_LOG_ERROR("tzindexes file not found");
    return false;
  }
  if (info.size != kCacheSize) {
    ZB_LOG_ERROR("tzindexes cache not correct size");
    return false;
  }
  uint8_t bytes[kCacheSize];
  uint32_t read = 0;
  if (ZBFileDescriptorRead(fd, bytes, kCacheSize, &read) != ZBErrorNone) {
    ZB_LOG_ERROR("Failed to read from tzindexes cache");
    return false;
  }
  if (read != kCacheSize) {
    ZB_LOG_ERROR("Incorrect number of bytes read from tzindexes cache");
    return false;
  }
  if (std::memcmp(bytes, kCacheMagic, sizeof kCacheMagic) != 0) {
    ZB_LOG_ERROR("tzindexes cache has wrong magic number");
    return false;
  }
  const uint32_t version = loadLE32(bytes + 16);
  if (version != kCacheVersion) {
    ZB_LOG_ERROR("tzindexes cache out of date (version %zu)", static_cast<size_t>(version));
    return false;
  }
  for (int32_t row = 0; row < kTZKnownZoneCount; ++row)
    sIndexes[row] = {static_cast<int32_t>(loadLE32(bytes + 20 + 8 * row)),
                     static_cast<int32_t>(loadLE32(bytes + 24 + 8 * row))};
  return true;
}

// _tz_win32_cache_tzindexes: the file rewritten from the table.
void storeLocked(ZBFileDescriptor fd) {
  uint8_t bytes[kCacheSize];
  std::memcpy(bytes, kCacheMagic, sizeof kCacheMagic);
  storeLE32(bytes + 16, kCacheVersion);
  for (int32_t row = 0; row < kTZKnownZoneCount; ++row) {
    storeLE32(bytes + 20 + 8 * row, static_cast<uint32_t>(sIndexes[row].index));
    storeLE32(bytes + 24 + 8 * row, static_cast<uint32_t>(sIndexes[row].candidate));
  }
  uint32_t written = 0;
  if (ZBFileDescriptorTruncate(fd, 0) != ZBErrorNone ||
      ZBFileDescriptorSeek(fd, 0, nullptr, ZBFileDescriptorSeekSet) != ZBErrorNone ||
      ZBFileDescriptorWrite(fd, bytes, kCacheSize, &written) != ZBErrorNone) {
    ZB_LOG_ERROR("Failed to write tzindexes to cache file");
    return;
  }
  if (written != kCacheSize)
    ZB_LOG_ERROR("Incorrect number of bytes written to tzindexes cache");
}

} // namespace

void _tz_win32_reset_tzindexes() noexcept {
  zb::ScopedLock<pthread_mutex_t> hold(&sLock);
  sFilled = false;
}

void _tz_win32_fill_tzindexes(bool force) noexcept {
  zb::ScopedLock<pthread_mutex_t> hold(&sLock);
  if (force)
    sFilled = false;
  else if (sFilled)
    return;
  char *directory = ZBEnvironmentCopyQuovexPrivateCachesDirectory();
  char *path = ZBCStringCreateConcatenating(nullptr, directory ? directory : "", "quovex_tz_cache");
  ZBFileDescriptor fd = 0;
  // Read and write, created when missing.
  if (directory == nullptr || path == nullptr ||
      ZBFileDescriptorOpen(path, ZBFileDescriptorOpenReadWrite | ZBFileDescriptorOpenCreate, 0644,
                           &fd) != ZBErrorNone) {
    ZB_LOG_ERROR("Failed to open tzindexes cache (path = %s)", path);
    fd = 0;
  }
  _ZBFree(directory);
  _ZBFree(path);
  if (fd != 0 && !force && loadLocked(fd)) {
    sFilled = true;
    ZBFileDescriptorClose(fd);
    return;
  }
  computeLocked();
  sFilled = true;
  if (fd != 0) {
    storeLocked(fd);
    ZBFileDescriptorClose(fd);
  }
}

TZSystemIndex _tz_win32_system_index(int32_t row) noexcept {
  _tz_win32_fill_tzindexes(false);
  zb::ScopedLock<pthread_mutex_t> hold(&sLock);
  return row >= 0 && row < kTZKnownZoneCount ? sIndexes[row] : TZSystemIndex{-1, -1};
}

bool _tz_win32_key_name(const DYNAMIC_TIME_ZONE_INFORMATION &zone, char *buffer,
                        int size) noexcept {
  return WideCharToMultiByte(CP_UTF8, 0, zone.TimeZoneKeyName, -1, buffer, size, nullptr, nullptr) >
         0;
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
