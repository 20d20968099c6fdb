// Opening TZif images: from the caller's memory or read whole from a path.
// Opening checks only the size of the header, the magic and the version byte;
// the counts are trusted no further than the bounds-checked reads allow, so a
// file whose counts point past its end opens but answers nothing outside.
#include "ZBTZFile.h"

#include "ZBAlloc.h"
#include "ZBLog.h"
#include "ZBPlatform.h"
#include "ZBString.h"

#include <cstdio>
#include <cstring>

namespace {

// The byte examined is the first reserved one (offset 5), not the format's
// version byte at 4: standard files carry 0 there and always pass as
// version 0. Kept as it is, since zone files written by the builder and by
// existing tools depend on it. Answers -1 for a refused byte.
int32_t versionFromByte(uint8_t byte) {
  switch (byte) {
  case 0:
  case 2:
  case '0': return 0;
  case '2': return 2;
  case '3': return 3;
  default: return -1;
  }
}

} // namespace

ZBTZFile *tz_file_open_memory(const char *name, const void *data, size_t size) noexcept {
  if (data == nullptr || size < kTZHeaderSize) {
    ZB_LOG_AT(ZBLogLevelError, "tz_file_open_memory", __FILE__, __LINE__,
              "Encountered tz file '%s' with bad size (%zu < %zu)", name, size,
              static_cast<size_t>(kTZHeaderSize));
    return nullptr;
  }
  const auto *bytes = static_cast<const uint8_t *>(data);
  if (std::memcmp(bytes, "TZif", 4) != 0) {
    ZB_LOG_AT(ZBLogLevelError, "tz_file_open_memory", __FILE__, __LINE__,
              "Encountered tz file '%s' with bad magic", name);
    return nullptr;
  }
  const int32_t version = versionFromByte(bytes[5]);
  if (version < 0) {
    ZB_LOG_AT(ZBLogLevelError, "tz_file_open_memory", __FILE__, __LINE__,
              "Encountered tz file '%s' with bad version %d", name,
              static_cast<int>(static_cast<int8_t>(bytes[5])));
    return nullptr;
  }
  // The record keeps a 32-bit size; larger images are not zone files.
  if (size > UINT32_MAX)
    return nullptr;
  auto *file = static_cast<ZBTZFile *>(_ZBAllocWithCount(1, sizeof(ZBTZFile)));
  if (file == nullptr)
    return nullptr;
  if (name != nullptr && (file->name = _ZBCStringDuplicate(name)) == nullptr) {
    _ZBFree(file);
    return nullptr;
  }
  file->data = bytes;
  file->header = bytes;
  file->size = static_cast<uint32_t>(size);
  file->version = static_cast<uint32_t>(version);
  return file;
}

ZBTZFile *tz_file_open_path(const char *path, const char *name) noexcept {
  if (path == nullptr)
    return nullptr;
  FILE *stream = zb::platform::openStream(path, "rb");
  if (stream == nullptr)
    return nullptr;
  uint8_t *data = nullptr;
  long length = -1;
  if (std::fseek(stream, 0, SEEK_END) == 0)
    length = std::ftell(stream);
  // One byte more than the file, set to NUL; sizes the record cannot hold fail.
  if (length >= 0 && static_cast<unsigned long>(length) < UINT32_MAX &&
      std::fseek(stream, 0, SEEK_SET) == 0)
    data = static_cast<uint8_t *>(_ZBAlloc(static_cast<size_t>(length) + 1));
  const size_t size = static_cast<size_t>(length);
  const bool complete = data != nullptr && std::fread(data, 1, size, stream) == size;
  std::fclose(stream);
  if (!complete) {
    _ZBFree(data);
    return nullptr;
  }
  data[size] = 0;
  ZBTZFile *file = tz_file_open_memory(name, data, size);
  if (file == nullptr) {
    _ZBFree(data);
    return nullptr;
  }
  file->ownership |= kTZOwnsFileData;
  return file;
}

void tz_file_close(ZBTZFile *file) noexcept {
  if (file == nullptr)
    return;
  if ((file->ownership & (kTZOwnsFileData | kTZOwnsCopiedData)) != 0)
    _ZBFree(const_cast<uint8_t *>(file->data));
  _ZBFree(file->name);
  _ZBFree(file);
}

ZBTZFile *tz_file_copy(const ZBTZFile *file, const char *name) noexcept {
  if (file == nullptr)
    return nullptr;
  auto *data = static_cast<uint8_t *>(_ZBAlloc(size_t{file->size} + 1));
  if (data == nullptr)
    return nullptr;
  std::memcpy(data, file->data, file->size);
  data[file->size] = 0;
  ZBTZFile *copy = tz_file_open_memory(name, data, file->size);
  if (copy == nullptr) {
    _ZBFree(data);
    return nullptr;
  }
  copy->ownership |= kTZOwnsCopiedData;
  return copy;
}

uint32_t tz_file_read32(const ZBTZFile *file, uint64_t offset) noexcept {
  if (!tz_file_contains(file, offset, 4))
    return 0;
  uint32_t value;
  std::memcpy(&value, file->data + offset, 4);
  return __builtin_bswap32(value);
}

uint32_t tz_file_universal_count(const ZBTZFile *file) noexcept { return tz_file_read32(file, 20); }
uint32_t tz_file_standard_count(const ZBTZFile *file) noexcept { return tz_file_read32(file, 24); }
uint32_t tz_file_leap_count(const ZBTZFile *file) noexcept { return tz_file_read32(file, 28); }
uint32_t tz_file_transition_count(const ZBTZFile *file) noexcept {
  return tz_file_read32(file, 32);
}
uint32_t tz_file_type_count(const ZBTZFile *file) noexcept { return tz_file_read32(file, 36); }
uint32_t tz_file_abbreviation_char_count(const ZBTZFile *file) noexcept {
  return tz_file_read32(file, 40);
}

TZLayout tz_file_layout(const ZBTZFile *file) noexcept {
  TZLayout layout{};
  layout.universalCount = tz_file_universal_count(file);
  layout.standardCount = tz_file_standard_count(file);
  layout.leapCount = tz_file_leap_count(file);
  layout.transitionCount = tz_file_transition_count(file);
  layout.typeCount = tz_file_type_count(file);
  layout.characterCount = tz_file_abbreviation_char_count(file);
  layout.times = kTZHeaderSize;
  layout.typeIndexes = layout.times + 4 * uint64_t{layout.transitionCount};
  layout.types = layout.typeIndexes + layout.transitionCount;
  layout.characters = layout.types + 6 * uint64_t{layout.typeCount};
  layout.leaps = layout.characters + layout.characterCount;
  layout.standard = layout.leaps + 8 * uint64_t{layout.leapCount};
  layout.universal = layout.standard + layout.standardCount;
  layout.end = layout.universal + layout.universalCount;
  return layout;
}
