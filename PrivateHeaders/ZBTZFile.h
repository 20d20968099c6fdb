// The zone core: TZif images read in place, the builder and writer, POSIX TZ
// rule strings, and the process-wide database of zone names. Platform-neutral;
// the exported ZBTimeZone family and the system mapping are built on it.
#pragma once

#include "ZBTimeZone.h"

#include <cstddef>
#include <cstdint>

// Ownership bits of a zone record: its data is freed with it when either is set.
constexpr uint32_t kTZOwnsFileData = 1u;
constexpr uint32_t kTZOwnsCopiedData = 2u;
// The fixed part of a TZif image.
constexpr uint32_t kTZHeaderSize = 44;
// The time of the single entry of a zone without transitions.
constexpr int64_t kTZForever = 2147483647;

struct ZBTZFile {
  char *name;
  const uint8_t *data;
  uint32_t size;
  uint32_t ownership;
  mutable uint32_t abbreviationCount; // 0 until computed; a benign idempotent write
  uint32_t version;                   // 0, 2 or 3
  const uint8_t *header;
};

// Reading (ZBTZFileReader.cpp).
ZBTZFile *tz_file_open_memory(const char *name, const void *data, size_t size) noexcept;
ZBTZFile *tz_file_open_path(const char *path, const char *name) noexcept;
void tz_file_close(ZBTZFile *file) noexcept;
// A new record over a copy of `file`'s bytes, named `name`; null without memory.
ZBTZFile *tz_file_copy(const ZBTZFile *file, const char *name) noexcept;

// Header counts; 0 for a null file.
uint32_t tz_file_transition_count(const ZBTZFile *file) noexcept;
uint32_t tz_file_type_count(const ZBTZFile *file) noexcept;
uint32_t tz_file_leap_count(const ZBTZFile *file) noexcept;
uint32_t tz_file_standard_count(const ZBTZFile *file) noexcept;
uint32_t tz_file_universal_count(const ZBTZFile *file) noexcept;
uint32_t tz_file_abbreviation_char_count(const ZBTZFile *file) noexcept;

// Queries (ZBTZFileQueries.cpp). False when the answer lies outside the data.
bool tz_file_transition_info(const ZBTZFile *file, uint32_t index,
                             ZBTZTransitionInfo *info) noexcept;
bool tz_file_leap_second(const ZBTZFile *file, uint32_t index, int64_t *time,
                         int32_t *correction) noexcept;
bool tz_file_find_transition(const ZBTZFile *file, int64_t time, ZBTZTransitionInfo *info) noexcept;
bool tz_file_find_next_transition(const ZBTZFile *file, int64_t time,
                                  ZBTZTransitionInfo *info) noexcept;
uint32_t tz_file_abbreviation_count(const ZBTZFile *file) noexcept;

// Building and writing (ZBTZFileBuilder.cpp).
ZBTZFile *tz_file_create_memory(const ZBTZTransition *transitions, uint32_t transitionCount,
                                const ZBTZLeapSecond *leaps, uint32_t leapCount,
                                const char *name) noexcept;
bool tz_file_write_path(const ZBTZFile *file, const char *path) noexcept;

// POSIX TZ rule strings (ZBTZRule.cpp).
struct TZRuleDate {
  enum Kind : uint8_t { Julian, ZeroBased, MonthWeekDay } kind;
  int32_t day;     // Jn: 1-365; n: 0-365; Mm.w.d: weekday 0-6
  int32_t week;    // Mm.w.d: 1-5, 5 the last
  int32_t month;   // Mm.w.d: 1-12
  int32_t seconds; // time of day of the switch, local wall clock
};
struct TZRule {
  char standardName[32];
  char daylightName[32];
  int32_t standardOffset; // seconds east of UT
  int32_t daylightOffset;
  bool hasDaylight;
  TZRuleDate start, end;
};
// Parses a rule string; false for anything that is not one (never reads
// past the terminating NUL).
bool tz_rule_parse(const char *text, TZRule *rule) noexcept;
// Seconds since 1970 UTC of the switch into daylight time (start) or out of
// it (end) in `year`.
int64_t tz_rule_transition_time(const TZRule &rule, int32_t year, bool start) noexcept;
// The rule's transitions for the years [firstYear, lastYear], in time order,
// into `out` (capacity entries at most). Answers how many were written; a
// rule without daylight time gives one entry at kTZForever.
uint32_t tz_rule_transitions(const TZRule &rule, int32_t firstYear, int32_t lastYear,
                             ZBTZTransition *out, uint32_t capacity) noexcept;
// A zone from a rule string, named `name`, for 1970-2037; null when the
// string is not a rule.
ZBTZFile *tz_file_create_posix(const char *rule, const char *name) noexcept;

// The known-zone table (ZBTZKnownZones.cpp).
constexpr int32_t kTZKnownZoneCount = 135;
constexpr int32_t kTZMaxWindowsNames = 3; // the longest row has 2; the list ends at null
constexpr int32_t kTZMaxZoneNames = 11;   // the longest row has 10
struct TZKnownZone {
  const char *windowsNames[kTZMaxWindowsNames];
  const char *zoneNames[kTZMaxZoneNames];
  const char *standardAbbreviation;
  const char *daylightAbbreviation;
};
extern const TZKnownZone kTZKnownZones[kTZKnownZoneCount];
// The row that lists `name` among its tz names (first row, first name), or -1;
// `nameIndex` gets the name's position.
int32_t tz_known_zone_find(const char *name, int32_t *nameIndex) noexcept;
constexpr int32_t kTZBuiltinLinkCount = 58;
extern const char *const kTZBuiltinLinks[kTZBuiltinLinkCount][2];

// The zone-name database (ZBTZDatabase.cpp).
uint32_t tz_database_hash(const char *text) noexcept;
void tz_database_ensure_built() noexcept;
bool tz_database_has_name(const char *name) noexcept;
// The canonical name for an alias (owned by the database), or null.
const char *tz_database_resolve_link(const char *alias) noexcept;
// The canonical name of the row listing a known name (owned), or null.
const char *tz_database_canonical_name(const char *name) noexcept;
// Calls back for every name in the names table; stops on a positive result.
int32_t tz_database_iterate(ZBTimeZoneNameCallback callback, void *context) noexcept;
void tz_database_reset() noexcept;

// The platform's part (Win32/ or POSIX/): whether a known row's zone exists
// on the system, a zone for a known row and one of its tz names, and the
// current zone's tz name into `buffer`.
bool tz_platform_row_present(int32_t row) noexcept;
ZBTZFile *tz_platform_create_known_zone(int32_t row, int32_t nameIndex) noexcept;
bool tz_get_current(char *buffer, size_t size) noexcept;

// A TZif image's header counts and where each part of its 32-bit block
// begins. Offsets are 64-bit so counts near 2^32 cannot wrap; any of them may
// lie past the end of the data, which every read checks.
struct TZLayout {
  uint32_t universalCount, standardCount, leapCount, transitionCount, typeCount, characterCount;
  uint64_t times, typeIndexes, types, characters, leaps, standard, universal, end;
};
TZLayout tz_file_layout(const ZBTZFile *file) noexcept;
// A big-endian value at `offset`, or 0 when it does not lie inside the data.
uint32_t tz_file_read32(const ZBTZFile *file, uint64_t offset) noexcept;
// Whether `length` bytes at `offset` lie inside the data. Inline, as every
// query asks it several times.
inline bool tz_file_contains(const ZBTZFile *file, uint64_t offset, uint64_t length) noexcept {
  return file != nullptr && offset <= file->size && length <= file->size - offset;
}
inline uint8_t tz_file_read8(const ZBTZFile *file, uint64_t offset) noexcept {
  return tz_file_contains(file, offset, 1) ? file->data[offset] : 0;
}
