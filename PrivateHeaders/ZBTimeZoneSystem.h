// The Windows side of the zone core: which system zone (its position in the
// system's enumeration, and which of the row's Windows names matched) serves
// each known-zone row, and the zones built from the system's yearly rules.
// Included by Sources/Win32 and the tests that link the static library.
#pragma once

#include "ZBTZFile.h"

#include <winsock2.h> // before windows.h, as the system-call table has it
#include <windows.h>

#include <cstdint>

struct TZSystemIndex {
  int32_t index;     // position in EnumDynamicTimeZoneInformation order, -1 if absent
  int32_t candidate; // which of the row's Windows names matched, -1 if absent
};

// The most system zones the enumeration looks at, and the bytes a zone's key
// name may take in UTF-8.
constexpr int32_t kTZMaxSystemZones = 200;
constexpr int32_t kTZSystemNameBytes = 50;

// Fills the system index table: from the cache file unless `force`, else by
// enumerating the system's zones (and then rewrites the cache file).
void _tz_win32_fill_tzindexes(bool force) noexcept;
// Marks the table unfilled, so that its next use loads the cache file.
void _tz_win32_reset_tzindexes() noexcept;
// The table's pair for a row (filling it first when it is not filled).
TZSystemIndex _tz_win32_system_index(int32_t row) noexcept;
// A zone for a known row and one of its tz names, from the system's rules.
ZBTZFile *_tz_win32_create_tz_zone(int32_t row, int32_t nameIndex) noexcept;
// The key name of a system zone as UTF-8 into `buffer`; false when it does
// not fit.
bool _tz_win32_key_name(const DYNAMIC_TIME_ZONE_INFORMATION &zone, char *buffer, int size) noexcept;
// Whether `key` is one of a row's Windows names; the name's position in
// `candidate` when given.
bool _tz_win32_row_lists_key(int32_t row, const char *key, int32_t *candidate) noexcept;
