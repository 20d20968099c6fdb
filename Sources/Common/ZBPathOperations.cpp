// Operations on path texts built on the path model: conversion between
// styles, normalised, converted and concatenated copies, directory and base
// names, and the wide long-path form ("\\?\C:\...") that Windows file calls
// take. Nothing here touches the file system.
#include "ZBPathInfoRecord.h"
#include "ZBPathNT.h"
#include "ZBPathSplit.h"

#include "ZBAlloc.h"
#include "ZBLog.h"
#include "ZBString.h"

#include <algorithm>

using zb::path::isDOSSeparator;
using zb::path::isKnownStyle;

namespace {

// The smallest buffer a converted copy gets, whatever the source's length.
constexpr size_t kConversionBufferMinimum = 2049;
constexpr char kLongPathPrefix[] = "\\\\?\\";
constexpr size_t kLongPathPrefixLength = 4;

// A work buffer: on the stack when small (typical paths), else from the
// default zone. data() is null when that allocation fails.
class ScratchBuffer {
public:
  explicit ScratchBuffer(size_t size)
      : data_(size <= sizeof local_
                  ? local_
                  : static_cast<char *>(_ZBAllocWithZoneAndDesc(nullptr, size, "ZBPathScratch"))) {}
  ~ScratchBuffer() {
    if (data_ != local_)
      _ZBFreeWithZone(nullptr, data_);
  }
  ScratchBuffer(const ScratchBuffer &) = delete;
  ScratchBuffer &operator=(const ScratchBuffer &) = delete;
  char *data() const { return data_; }

private:
  char local_[512];
  char *data_;
};

char *allocateText(size_t size, const char *description) {
  return static_cast<char *>(_ZBAllocWithZoneAndDesc(nullptr, size, description));
}

// Runs `fill(buffer, size)` on a new buffer of `size` bytes and returns the
// buffer when it succeeds; frees it and returns null otherwise.
template <typename Fill>
char *copyFilledBy(size_t size, const char *description, Fill fill) {
  char *text = allocateText(size, description);
  if (text != nullptr && !fill(text, size)) {
    _ZBFreeWithZone(nullptr, text);
    return nullptr;
  }
  return text;
}

} // namespace

extern "C" bool ZBPathConvert(ZBPathStyle fromStyle, const char *source, ZBPathStyle toStyle,
                              char *destination, size_t size, uint32_t options,
                              bool normalize) noexcept {
  if (source == nullptr || destination == nullptr || size == 0 || !isKnownStyle(fromStyle) ||
      !isKnownStyle(toStyle))
    return false;
  if (fromStyle == toStyle) {
    if (normalize)
      return ZBPathNormalizeWithStyle(toStyle, source, destination, size, options);
    const size_t length = std::strlen(source);
    if (length + 1 > size)
      return false;
    std::memmove(destination, source, length + 1);
    return true;
  }
  ZBPathInfo *info = ZBPathInfoCreateWithStyle(fromStyle, source, false);
  if (info == nullptr)
    return false;
  // Written to a work buffer first: the components point into the source,
  // which may be the destination.
  ScratchBuffer written(size);
  bool converted = written.data() != nullptr &&
                   ZBPathInfoReconstructWithStyle(info, toStyle, 0, written.data(), size);
  ZBPathInfoFree(info);
  if (converted && normalize)
    converted = ZBPathNormalizeWithStyle(toStyle, written.data(), destination, size, options);
  else if (converted)
    std::memcpy(destination, written.data(), std::strlen(written.data()) + 1);
  return converted;
}

extern "C" char *ZBPathCopyNormalizedWithStyle(ZBPathStyle style, const char *path,
                                               uint32_t options) noexcept {
  if (path == nullptr || !isKnownStyle(style))
    return nullptr;
  const size_t length = std::strlen(path);
  if (length == 0)
    return _ZBCStringDuplicate("");
  if (length > (SIZE_MAX - 1) / 2)
    return nullptr;
  return copyFilledBy(length * 2 + 1, "ZBPathCopyNormalizedWithStyle",
                      [&](char *text, size_t size) {
                        return ZBPathNormalizeWithStyle(style, path, text, size, options);
                      });
}

extern "C" char *ZBPathCopyNormalized(const char *path, uint32_t options) noexcept {
  return ZBPathCopyNormalizedWithStyle(ZBPathStylePOSIX, path, options);
}

extern "C" char *ZBPathCopyConvertingWithStyle(ZBPathStyle fromStyle, const char *path,
                                               ZBPathStyle toStyle, uint32_t options,
                                               bool normalize) noexcept {
  if (path == nullptr)
    return nullptr;
  const size_t length = std::strlen(path);
  if (length == 0)
    return _ZBCStringDuplicate("");
  if (length == SIZE_MAX)
    return nullptr;
  // The conversion is given the source's length + 1 however large the
  // buffer is: a result longer than its source fails, deliberately.
  return copyFilledBy(std::max(length + 1, kConversionBufferMinimum),
                      "ZBPathCopyConvertingWithStyle", [&](char *text, size_t) {
                        return ZBPathConvert(fromStyle, path, toStyle, text, length + 1, options,
                                             normalize);
                      });
}

extern "C" char *ZBPathCopyConverting(ZBPathStyle fromStyle, const char *path, ZBPathStyle toStyle,
                                      uint32_t options, bool normalize) noexcept {
  return ZBPathCopyConvertingWithStyle(fromStyle, path, toStyle, options, normalize);
}

extern "C" char *ZBPathCopyConcatenatedWithStyle(ZBPathStyle style, const char *first,
                                                 const char *second) noexcept {
  if (first == nullptr || second == nullptr || !isKnownStyle(style))
    return nullptr;
  ZBPathInfo *head = ZBPathInfoCreateWithStyle(style, first, false);
  ZBPathInfo *tail = ZBPathInfoCreateWithStyle(style, second, false);
  char *result = nullptr;
  if (head != nullptr && tail != nullptr && ZBPathInfoAppendInfo(head, tail))
    result = ZBPathInfoCopyReconstructingWithStyle(head, style);
  ZBPathInfoFree(head);
  ZBPathInfoFree(tail);
  return result;
}

extern "C" char *ZBPathCopyConcatenated(const char *first, const char *second) noexcept {
  return ZBPathCopyConcatenatedWithStyle(ZBPathStylePOSIX, first, second);
}

extern "C" char *ZBPathCopyDirectoryName(const char *path) noexcept {
  zb::path::LastComponent split;
  if (path == nullptr || !zb::path::splitLastComponent(path, &split))
    return nullptr;
  if (split.directoryLength == 0)
    return _ZBCStringDuplicate(".");
  return ZBCStringDuplicateWithLength(nullptr, path, split.directoryLength);
}

extern "C" char *ZBPathCopyBaseName(const char *path) noexcept {
  zb::path::LastComponent split;
  if (path == nullptr || !zb::path::splitLastComponent(path, &split))
    return nullptr;
  return ZBCStringDuplicateWithLength(nullptr, path + split.baseStart, split.baseLength);
}

namespace zb::path {

ZBWChar *copyNTForm(const char *path, bool *normalizeFailed) noexcept {
  *normalizeFailed = false;
  if (startsWith(path, kLongPathPrefix) || !ZBPathIsAbsolute(path))
    return ZBWCStringDuplicateCString(nullptr, path);
  // The normalised text is written after room for the long-path prefix, so
  // the whole form converts in one step.
  const size_t length = std::strlen(path);
  ScratchBuffer buffer(kLongPathPrefixLength + length + 1);
  char *normalized = buffer.data() != nullptr ? buffer.data() + kLongPathPrefixLength : nullptr;
  if (normalized == nullptr ||
      !ZBPathNormalizeWithStyle(ZBPathStyleDOS, path, normalized, length + 1, 0)) {
    *normalizeFailed = true;
    return nullptr;
  }
  // The long-path form needs a drive: a path rooted without one ("/tmp/x",
  // "//server/share") goes as "\tmp\x" or "\\server\share", which the
  // system resolves against the current drive, within 260 characters.
  if (!startsWithDrive(normalized))
    return ZBWCStringDuplicateCString(nullptr, normalized);
  std::memcpy(buffer.data(), kLongPathPrefix, kLongPathPrefixLength);
  return ZBWCStringDuplicateCString(nullptr, buffer.data());
}

} // namespace zb::path

extern "C" ZBWChar *ZBPathCopyNT(const char *path) noexcept {
  if (path == nullptr)
    return nullptr;
  if (path[0] == '\\' && path[1] == '\\' && !zb::path::startsWith(path, kLongPathPrefix))
    ZBLogNYICounter("ZBPathCopyNT", 467); // UNC paths go to the system as they are
  bool normalizeFailed = false;
  ZBWChar *form = zb::path::copyNTForm(path, &normalizeFailed);
  if (normalizeFailed)
    ZB_LOG_AT(ZBLogLevelError, "ZBPathCopyNT", __FILE__, __LINE__, "Failed to normalize path %s",
              path);
  return form;
}
