// The path model's storage and edits: component records in a growing block,
// the flags, appending one path to another, the root and absolute tests and
// the dump. Parsing, writing back and normalising have files of their own.
#include "ZBPathInfoRecord.h"

#include "ZBAlloc.h"
#include "ZBString.h"

#include <cstdio>

using zb::path::kLeadingSlots;

namespace {

constexpr size_t kFirstBlockSlots = 10;
constexpr size_t kSmallBlockSlots = 5;

bool isEmpty(const ZBPathInfo *info) { return info->count == 0; }

void setFlag(ZBPathInfo *info, uint32_t flag, bool on) {
  info->flags = on ? info->flags | flag : info->flags & ~flag;
}

} // namespace

namespace zb::path {

// A full block is replaced by one of 10 slots when it held fewer than 5,
// else by one twice its size (so 8, 18, 38 components); a large append
// doubles as often as it needs at once.
bool reserveComponents(ZBPathInfo *info, size_t extra) noexcept {
  const size_t count = static_cast<size_t>(info->count);
  if (extra > static_cast<size_t>(INT32_MAX) - count)
    return false;
  if (info->block != nullptr &&
      extra <= static_cast<size_t>(info->blockEnd - (info->components + count)))
    return true;
  const size_t oldSlots = static_cast<size_t>(info->blockEnd - info->block);
  const size_t needed = kLeadingSlots + count + extra;
  size_t slots = oldSlots < kSmallBlockSlots ? kFirstBlockSlots : oldSlots * 2;
  while (slots < needed)
    slots *= 2;
  auto *block = static_cast<ZBPathComponent *>(_ZBAllocWithZoneAndDesc(
      nullptr, slots * sizeof(ZBPathComponent), "SimplePathGrowComponents"));
  if (block == nullptr)
    return false;
  if (count != 0)
    std::memcpy(block + kLeadingSlots, info->components, count * sizeof(ZBPathComponent));
  _ZBFreeWithZone(nullptr, info->block);
  info->block = block;
  info->blockEnd = block + slots;
  info->components = block + kLeadingSlots;
  return true;
}

bool appendComponent(ZBPathInfo *info, const char *characters, size_t length) noexcept {
  if (length > UINT32_MAX || !reserveComponents(info, 1))
    return false;
  info->components[info->count++] = {characters, static_cast<uint32_t>(length)};
  return true;
}

} // namespace zb::path

extern "C" void ZBPathInfoFree(ZBPathInfo *info) noexcept {
  if (info == nullptr)
    return;
  _ZBFreeWithZone(nullptr, info->ownedText);
  _ZBFreeWithZone(nullptr, info->ownedAppendedText);
  _ZBFreeWithZone(nullptr, info->block);
  _ZBFreeWithZone(nullptr, info);
}

extern "C" int32_t ZBPathInfoGetComponentCount(const ZBPathInfo *info) noexcept {
  return info != nullptr ? info->count : 0;
}

extern "C" bool ZBPathInfoGetComponent(const ZBPathInfo *info, int32_t index,
                                       ZBPathComponent *outComponent) noexcept {
  if (info == nullptr || outComponent == nullptr || index < 0 || index >= info->count)
    return false;
  *outComponent = info->components[index];
  return true;
}

extern "C" void ZBPathInfoRemoveFirstComponent(ZBPathInfo *info) noexcept {
  if (info == nullptr || isEmpty(info))
    return;
  ++info->components;
  --info->count;
  // The node name is always the first component.
  setFlag(info, ZBPathInfoFlagNodeName, false);
}

extern "C" void ZBPathInfoRemoveLastComponent(ZBPathInfo *info) noexcept {
  if (info == nullptr || isEmpty(info))
    return;
  if (--info->count == 0)
    setFlag(info, ZBPathInfoFlagNodeName, false);
}

extern "C" bool ZBPathInfoIsAbsolute(const ZBPathInfo *info) noexcept {
  return info != nullptr && (info->flags & ZBPathInfoFlagAbsolute) != 0;
}

extern "C" void ZBPathInfoSetAbsolute(ZBPathInfo *info, bool absolute) noexcept {
  if (info != nullptr)
    setFlag(info, ZBPathInfoFlagAbsolute, absolute);
}

extern "C" bool ZBPathInfoHasTrailingSeparator(const ZBPathInfo *info) noexcept {
  return info != nullptr && (info->flags & ZBPathInfoFlagTrailingSeparator) != 0;
}

extern "C" void ZBPathInfoSetHasTrailingSeparator(ZBPathInfo *info, bool trailing) noexcept {
  if (info != nullptr)
    setFlag(info, ZBPathInfoFlagTrailingSeparator, trailing);
}

extern "C" bool ZBPathInfoAppendInfo(ZBPathInfo *destination, const ZBPathInfo *source) noexcept {
  if (destination == nullptr || source == nullptr)
    return false;
  if (isEmpty(destination) && ZBPathInfoIsAbsolute(source))
    setFlag(destination, ZBPathInfoFlagAbsolute, true);
  if (isEmpty(source)) {
    setFlag(destination, ZBPathInfoFlagTrailingSeparator,
            isEmpty(destination) && ZBPathInfoHasTrailingSeparator(source));
    return true;
  }
  setFlag(destination, ZBPathInfoFlagTrailingSeparator, false);
  // Read the count first: the source may be the destination itself, whose
  // records move when its block grows.
  const int32_t added = source->count;
  if (!zb::path::reserveComponents(destination, static_cast<size_t>(added)))
    return false;
  std::memmove(destination->components + destination->count, source->components,
               static_cast<size_t>(added) * sizeof(ZBPathComponent));
  destination->count += added;
  return true;
}

extern "C" bool ZBPathInfoAppendPath(ZBPathInfo *info, const char *path, bool copy) noexcept {
  if (info == nullptr || path == nullptr || (copy && info->ownedAppendedText != nullptr))
    return false;
  char *text = copy ? _ZBCStringDuplicate(path) : nullptr;
  if (copy && text == nullptr)
    return false;
  ZBPathInfo *appended = ZBPathInfoCreateWithStyle(ZBPathStylePOSIX, copy ? text : path, false);
  const bool appendedAll = appended != nullptr && ZBPathInfoAppendInfo(info, appended);
  ZBPathInfoFree(appended);
  if (!appendedAll) {
    // A failed append adds no records, so nothing points into the copy.
    _ZBFreeWithZone(nullptr, text);
    return false;
  }
  if (copy)
    info->ownedAppendedText = text;
  return true;
}

extern "C" bool ZBPathIsAbsoluteWithStyle(ZBPathStyle style, const char *path) noexcept {
  if (path == nullptr)
    return false;
  switch (style) {
  case ZBPathStylePOSIX:
    return path[0] == '/' || (zb::path::startsWithDrive(path) && path[2] == '/');
  case ZBPathStyleDOS:
    // Deliberately neither a UNC text nor a lone leading backslash.
    return zb::path::startsWithDrive(path) && zb::path::isDOSSeparator(path[2]);
  case ZBPathStyleFileURL: return zb::path::startsWith(path, "file://");
  default: return false;
  }
}

extern "C" bool ZBPathIsAbsolute(const char *path) noexcept {
  return ZBPathIsAbsoluteWithStyle(ZBPathStylePOSIX, path);
}

extern "C" bool ZBPathInfoIsRootWithStyle(ZBPathStyle style, const ZBPathInfo *info) noexcept {
  if (info == nullptr)
    return false;
  switch (style) {
  case ZBPathStylePOSIX: return isEmpty(info);
  case ZBPathStyleDOS: return info->count == 1 && ZBPathInfoIsAbsolute(info);
  default: return false;
  }
}

extern "C" bool ZBPathInfoIsRoot(const ZBPathInfo *info) noexcept {
  return ZBPathInfoIsRootWithStyle(ZBPathStylePOSIX, info);
}

extern "C" void ZBPathInfoDump(const ZBPathInfo *info) noexcept {
  if (info == nullptr)
    return;
  auto yesNo = [](bool value) { return value ? "YES" : "NO"; };
  auto orNull = [](const char *text) { return text != nullptr ? text : "(null)"; };
  std::fprintf(stderr, "ZBPathInfo for path: %s (%s)\n", orNull(info->ownedText),
               orNull(info->ownedAppendedText));
  std::fprintf(stderr, "  Absolute     = '%s'\n", yesNo(ZBPathInfoIsAbsolute(info)));
  int32_t first = 0;
  if ((info->flags & ZBPathInfoFlagNodeName) != 0 && info->count > 0) {
    std::fprintf(stderr, "  Node Name    = '%.*s'\n", static_cast<int>(info->components[0].length),
                 info->components[0].characters);
    first = 1;
  }
  std::fprintf(stderr, "  Components = ");
  for (int32_t index = first; index < info->count; ++index)
    std::fprintf(stderr, "%s<%.*s>", index > first ? ", " : "",
                 static_cast<int>(info->components[index].length),
                 info->components[index].characters);
  std::fprintf(stderr, "\n  Trailing separator = '%s'\n",
               yesNo(ZBPathInfoHasTrailingSeparator(info)));
  std::fflush(stderr);
}
