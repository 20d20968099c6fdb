// The layout of a parsed path and the small text helpers that the path
// model's sources share (parsing, writing back, normalising, operations).
#pragma once

#include "ZBPath.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

// Fields in this order: components, component block, end of the block,
// owned text, owned appended text, flags, count. The records start two
// slots into the block, so a block of 10 slots holds 8 components.
struct ZBPathInfo {
  ZBPathComponent *components;
  ZBPathComponent *block;
  ZBPathComponent *blockEnd;
  char *ownedText;
  char *ownedAppendedText;
  uint32_t flags;
  int32_t count;
};

namespace zb::path {

constexpr size_t kLeadingSlots = 2;

constexpr bool isLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }
// "X:" at the start of `text`.
constexpr bool startsWithDrive(const char *text) { return isLetter(text[0]) && text[1] == ':'; }
constexpr bool isDOSSeparator(char c) { return c == '/' || c == '\\'; }
constexpr bool isKnownStyle(ZBPathStyle style) {
  return style == ZBPathStylePOSIX || style == ZBPathStyleDOS || style == ZBPathStyleFileURL;
}

inline bool startsWith(const char *text, const char *prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// Makes room for `extra` more component records (see ZBPathUtils.cpp);
// false when memory runs out or the count would overflow.
bool reserveComponents(ZBPathInfo *info, size_t extra) noexcept;
// Appends one record pointing at `length` bytes of `characters`.
bool appendComponent(ZBPathInfo *info, const char *characters, size_t length) noexcept;

// The buffer size that always holds the info written back in any style.
size_t reconstructionCapacity(const ZBPathInfo *info) noexcept;

// The library's paths may spell a drive as "/C:/..." (written back from a
// URL); the file-system functions use them without that "/".
inline const char *withoutSlashBeforeDrive(const char *path) {
  return path[0] == '/' && startsWithDrive(path + 1) ? path + 1 : path;
}

} // namespace zb::path
