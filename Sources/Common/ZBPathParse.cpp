// Parsing a path text into a ZBPathInfo in each of the three styles. The
// components point into the text (or into the info's own copy of it); runs
// of separators never make empty components.
#include "ZBPathInfoRecord.h"

#include "ZBAlloc.h"
#include "ZBLog.h"
#include "ZBString.h"

using zb::path::appendComponent;
using zb::path::isDOSSeparator;
using zb::path::startsWith;
using zb::path::startsWithDrive;

namespace {

constexpr size_t kFileSchemeLength = 5;      // "file:"
constexpr size_t kFileURLPrefixLength = 7;   // "file://"
constexpr size_t kLongPathPrefixLength = 4;  // "\\?\" or "\\.\"
constexpr size_t kUNCMarkerLength = 4;       // "UNC\"
constexpr size_t kShortestUNCPathLength = 5; // "\\a\b"

bool isSlash(char c) { return c == '/'; }

// Splits `rest` into components at the separators `isSeparator` accepts,
// skipping empty runs. A rest that ends with a separator after at least one
// other character sets the trailing flag.
template <typename IsSeparator>
bool splitComponents(ZBPathInfo *info, const char *rest, IsSeparator isSeparator) {
  const char *cursor = rest;
  while (*cursor != '\0') {
    while (isSeparator(*cursor))
      ++cursor;
    const char *start = cursor;
    while (*cursor != '\0' && !isSeparator(*cursor))
      ++cursor;
    if (cursor != start && !appendComponent(info, start, static_cast<size_t>(cursor - start)))
      return false;
  }
  if (cursor - rest >= 2 && isSeparator(cursor[-1]))
    info->flags |= ZBPathInfoFlagTrailingSeparator;
  return true;
}

bool parsePOSIX(ZBPathInfo *info, const char *text) {
  if (ZBPathIsAbsoluteWithStyle(ZBPathStylePOSIX, text))
    info->flags |= ZBPathInfoFlagAbsolute;
  // A drive ("C:") is an ordinary first component here.
  return splitComponents(info, text[0] == '/' ? text + 1 : text, isSlash);
}

bool parseFileURL(ZBPathInfo *info, const char *text) {
  const char *rest = text;
  bool hasHost = false;
  if (startsWith(text, "file://")) {
    info->flags = ZBPathInfoFlagAbsolute;
    rest = text + kFileURLPrefixLength;
    if (*rest == '\0')
      return false;
    hasHost = *rest != '/';
  } else if (startsWith(text, "file:/")) {
    // The text goes through "%s" as it stands, so the line shows the
    // placeholder and not the path.
    ZB_LOG_AT(ZBLogLevelWarning, "ZBPathInfoCreateWithStyle", __FILE__, __LINE__, "%s",
              "Invalid file URL '%s' passed to ZBPathInfoCreate()");
    info->flags = ZBPathInfoFlagAbsolute;
    rest = text + kFileSchemeLength;
    if (rest[1] == '\0')
      return false;
  }
  if (!splitComponents(info, rest, isSlash))
    return false;
  if (hasHost && info->count > 0) {
    info->flags |= ZBPathInfoFlagNodeName;
    const ZBPathComponent &host = info->components[0];
    if (host.length == 9 && std::memcmp(host.characters, "localhost", 9) == 0)
      ZBPathInfoRemoveFirstComponent(info);
  }
  info->flags |= ZBPathInfoFlagURLEncoded;
  return true;
}

// The server of a UNC path starting at `server`: a node-name component up to
// the next backslash. Returns where parsing goes on, or null when memory
// runs out. An empty server name makes no component.
const char *takeServer(ZBPathInfo *info, const char *server) {
  const char *end = server;
  while (*end != '\0' && *end != '\\')
    ++end;
  if (end == server)
    return server;
  if (!appendComponent(info, server, static_cast<size_t>(end - server)))
    return nullptr;
  info->flags |= ZBPathInfoFlagAbsolute | ZBPathInfoFlagNodeName;
  return end;
}

bool isUNCMarker(const char *text) {
  return (text[0] == 'U' || text[0] == 'u') && (text[1] == 'N' || text[1] == 'n') &&
         (text[2] == 'C' || text[2] == 'c') && text[3] == '\\';
}

bool parseDOS(ZBPathInfo *info, const char *text) {
  // A leading backslash roots the path just as "/" does.
  if (isDOSSeparator(text[0]))
    info->flags |= ZBPathInfoFlagAbsolute;
  const char *rest = text;
  if (std::strlen(text) >= kShortestUNCPathLength && text[0] == '\\' && text[1] == '\\' &&
      text[2] != '\\') {
    const bool longPathPrefix = (text[2] == '?' || text[2] == '.') && text[3] == '\\';
    const char *afterPrefix = text + kLongPathPrefixLength;
    if (longPathPrefix && isUNCMarker(afterPrefix)) {
      rest = takeServer(info, afterPrefix + kUNCMarkerLength);
    } else if (longPathPrefix && startsWithDrive(afterPrefix)) {
      rest = afterPrefix;
    } else if (std::strchr(text + 2, '\\') != nullptr) {
      // "\\server\..."; also "\\.\pipe\x" and other device paths, whose
      // "." or "?" stands as the server and so writes back unchanged.
      rest = takeServer(info, text + 2);
    }
    if (rest == nullptr)
      return false;
  }
  if (info->count == 0 && startsWithDrive(rest)) {
    if (!appendComponent(info, rest, 2))
      return false;
    if (isDOSSeparator(rest[2]))
      info->flags |= ZBPathInfoFlagAbsolute;
    rest += 2;
  }
  return splitComponents(info, rest, isDOSSeparator);
}

bool parse(ZBPathStyle style, ZBPathInfo *info, const char *text) {
  switch (style) {
  case ZBPathStylePOSIX: return parsePOSIX(info, text);
  case ZBPathStyleDOS: return parseDOS(info, text);
  default: return parseFileURL(info, text);
  }
}

} // namespace

extern "C" ZBPathInfo *ZBPathInfoCreateWithStyle(ZBPathStyle style, const char *path,
                                                 bool copy) noexcept {
  if (path == nullptr)
    return nullptr;
  if (!zb::path::isKnownStyle(style))
    ZB_LOG_FATAL_AT("ZBPathInfoCreateWithStyle", __FILE__, __LINE__, "Unknown path style %d",
                    static_cast<int>(style));
  auto *info = static_cast<ZBPathInfo *>(
      _ZBAllocWithZoneCountAndDesc(nullptr, 1, sizeof(ZBPathInfo), "ZBPathInfoCreate"));
  if (info == nullptr)
    return nullptr;
  if (copy && (info->ownedText = _ZBCStringDuplicate(path)) == nullptr) {
    ZBPathInfoFree(info);
    return nullptr;
  }
  if (!parse(style, info, copy ? info->ownedText : path)) {
    ZBPathInfoFree(info);
    return nullptr;
  }
  return info;
}

extern "C" ZBPathInfo *ZBPathInfoCreate(const char *path, bool copy) noexcept {
  return ZBPathInfoCreateWithStyle(ZBPathStylePOSIX, path, copy);
}
