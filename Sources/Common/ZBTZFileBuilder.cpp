// Building a version-0 TZif image from a list of transitions, and writing an
// image to a file. Abbreviations and local time types are shared between
// transitions in order of first use, as the zone compiler shares them.
#include "ZBTZFile.h"

#include "ZBAlloc.h"
#include "ZBPlatform.h"

#include <cstdio>
#include <cstring>
#include <initializer_list>

namespace {

constexpr uint32_t kMaxAbbreviation = 31;
// A type index and an abbreviation index are one byte each in the image.
constexpr uint32_t kMaxTypes = 256;
constexpr uint32_t kMaxCharacters = 256;

struct LocalType {
  int32_t offset;
  uint8_t daylight, standard, universal, abbreviation;
};

// Abbreviations in order of first use, NUL-separated, as the image stores them.
struct Abbreviations {
  char characters[kMaxCharacters + kMaxAbbreviation + 1];
  uint32_t length = 0;

  // The index of `text` (cut at 31 characters), adding it when new; -1 when
  // the characters no longer fit an index byte.
  int32_t indexOf(const char *text) {
    char cut[kMaxAbbreviation + 1] = {};
    if (text != nullptr)
      std::strncpy(cut, text, kMaxAbbreviation);
    for (uint32_t at = 0; at < length;
         at += static_cast<uint32_t>(std::strlen(characters + at)) + 1)
      if (std::strcmp(characters + at, cut) == 0)
        return static_cast<int32_t>(at);
    if (length >= kMaxCharacters)
      return -1;
    const uint32_t at = length;
    std::memcpy(characters + at, cut, std::strlen(cut) + 1);
    length += static_cast<uint32_t>(std::strlen(cut)) + 1;
    return static_cast<int32_t>(at);
  }
};

bool representable(int64_t time) { return time >= INT32_MIN && time <= INT32_MAX; }

uint8_t *put32(uint8_t *at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value >> 24);
  at[1] = static_cast<uint8_t>(value >> 16);
  at[2] = static_cast<uint8_t>(value >> 8);
  at[3] = static_cast<uint8_t>(value);
  return at + 4;
}

} // namespace

ZBTZFile *tz_file_create_memory(const ZBTZTransition *transitions, uint32_t transitionCount,
                                const ZBTZLeapSecond *leaps, uint32_t leapCount,
                                const char *name) noexcept {
  if ((transitions == nullptr && transitionCount != 0) || (leaps == nullptr && leapCount != 0))
    return nullptr;
  // Instants outside the 32-bit block's range are not represented.
  uint32_t kept = 0, keptLeaps = 0;
  for (uint32_t index = 0; index < transitionCount; ++index)
    kept += representable(transitions[index].time) ? 1 : 0;
  for (uint32_t index = 0; index < leapCount; ++index)
    keptLeaps += representable(leaps[index].time) ? 1 : 0;

  auto *typeOf = static_cast<uint8_t *>(_ZBAlloc(kept + 1));
  auto *types = static_cast<LocalType *>(_ZBAllocWithCount(kMaxTypes, sizeof(LocalType)));
  auto *abbreviations = static_cast<Abbreviations *>(_ZBAlloc(sizeof(Abbreviations)));
  uint8_t *image = nullptr;
  ZBTZFile *file = nullptr;
  uint32_t typeCount = 0;
  bool fits = typeOf != nullptr && types != nullptr && abbreviations != nullptr;
  if (fits)
    abbreviations->length = 0;
  for (uint32_t index = 0, out = 0; fits && index < transitionCount; ++index) {
    const ZBTZTransition &transition = transitions[index];
    if (!representable(transition.time))
      continue;
    const int32_t abbreviation = abbreviations->indexOf(transition.abbreviation);
    const LocalType type{transition.offset,
                         static_cast<uint8_t>((transition.flags & ZBTZFlagDaylight) ? 1 : 0),
                         static_cast<uint8_t>((transition.flags & ZBTZFlagStandardTime) ? 1 : 0),
                         static_cast<uint8_t>((transition.flags & ZBTZFlagUniversal) ? 1 : 0),
                         static_cast<uint8_t>(abbreviation)};
    uint32_t found = 0;
    while (found < typeCount &&
           !(types[found].offset == type.offset && types[found].daylight == type.daylight &&
             types[found].standard == type.standard && types[found].universal == type.universal))
      ++found;
    if (abbreviation < 0 || (found == typeCount && typeCount == kMaxTypes)) {
      fits = false;
      break;
    }
    if (found == typeCount)
      types[typeCount++] = type;
    typeOf[out++] = static_cast<uint8_t>(found);
  }

  if (fits) {
    const uint64_t size = kTZHeaderSize + 5 * uint64_t{kept} + 6 * uint64_t{typeCount} +
                          abbreviations->length + 8 * uint64_t{keptLeaps} + 2 * typeCount;
    image = size < UINT32_MAX ? static_cast<uint8_t *>(_ZBAllocWithCount(1, size + 1)) : nullptr;
    if (image != nullptr) {
      std::memcpy(image, "TZif", 4);
      uint8_t *at = image + 20;
      for (uint32_t count :
           {typeCount, typeCount, keptLeaps, kept, typeCount, abbreviations->length})
        at = put32(at, count);
      for (uint32_t index = 0; index < transitionCount; ++index)
        if (representable(transitions[index].time))
          at = put32(at, static_cast<uint32_t>(transitions[index].time));
      std::memcpy(at, typeOf, kept);
      at += kept;
      for (uint32_t index = 0; index < typeCount; ++index) {
        at = put32(at, static_cast<uint32_t>(types[index].offset));
        *at++ = types[index].daylight;
        *at++ = types[index].abbreviation;
      }
      std::memcpy(at, abbreviations->characters, abbreviations->length);
      at += abbreviations->length;
      for (uint32_t index = 0; index < leapCount; ++index) {
        if (!representable(leaps[index].time))
          continue;
        at = put32(at, static_cast<uint32_t>(leaps[index].time));
        at = put32(at, static_cast<uint32_t>(leaps[index].correction));
      }
      for (uint32_t index = 0; index < typeCount; ++index)
        *at++ = types[index].standard;
      for (uint32_t index = 0; index < typeCount; ++index)
        *at++ = types[index].universal;
      file = tz_file_open_memory(name, image, static_cast<size_t>(size));
    }
  }
  _ZBFree(typeOf);
  _ZBFree(types);
  _ZBFree(abbreviations);
  if (file == nullptr) {
    _ZBFree(image);
    return nullptr;
  }
  file->ownership |= kTZOwnsCopiedData;
  return file;
}

bool tz_file_write_path(const ZBTZFile *file, const char *path) noexcept {
  if (file == nullptr || path == nullptr)
    return false;
  FILE *stream = zb::platform::openStream(path, "wb");
  if (stream == nullptr)
    return false;
  const bool written = std::fwrite(file->data, 1, file->size, stream) == file->size;
  return std::fclose(stream) == 0 && written;
}
