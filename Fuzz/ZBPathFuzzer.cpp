// Fuzzes the path model with arbitrary text in all three styles: parsing,
// writing back, normalising, conversion, concatenation and the long-path
// form. Beyond "no crash, no leak" it checks what callers rely on:
//  - a written-back text fits a buffer of exactly its size and not one byte
//    less;
//  - parse, write back and parse again gives the same components in the
//    POSIX style, in the DOS style unless a server name holds a "/" or is a
//    device prefix's "?" or ".", and in
//    the URL style when nothing is percent-encoded and a relative path does
//    not start "file:";
//  - normalising never fails for a buffer of twice the length, never grows
//    a non-empty text, and is idempotent.
#include "ZBPath.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

void check(bool condition) {
  if (!condition)
    std::abort();
}

std::string take(char *text) {
  check(text != nullptr);
  std::string copy(text);
  _ZBFree(text);
  return copy;
}

std::vector<std::string> componentsOf(const ZBPathInfo *info) {
  std::vector<std::string> components;
  ZBPathComponent component{};
  for (int32_t index = 0; ZBPathInfoGetComponent(info, index, &component); ++index)
    components.emplace_back(component.characters, component.length);
  check(static_cast<int32_t>(components.size()) == ZBPathInfoGetComponentCount(info));
  return components;
}

void checkExactCapacity(const ZBPathInfo *info, ZBPathStyle style, const std::string &text) {
  std::vector<char> buffer(text.size() + 1);
  check(ZBPathInfoReconstructWithStyle(info, style, 0, buffer.data(), buffer.size()));
  check(text == buffer.data());
  check(!ZBPathInfoReconstructWithStyle(info, style, 0, buffer.data(), text.size()));
}

void checkRoundTrip(ZBPathStyle style, const ZBPathInfo *info, const std::string &written) {
  ZBPathInfo *again = ZBPathInfoCreateWithStyle(style, written.c_str(), false);
  check(again != nullptr);
  check(componentsOf(info) == componentsOf(again));
  ZBPathInfoFree(again);
}

bool hasCharacter(const std::vector<std::string> &components, char character) {
  for (const std::string &component : components)
    if (component.find(character) != std::string::npos)
      return true;
  return false;
}

void fuzzStyle(ZBPathStyle style, const std::string &text, bool copy) {
  ZBPathInfo *info = ZBPathInfoCreateWithStyle(style, text.c_str(), copy);
  if (info != nullptr) {
    const std::vector<std::string> components = componentsOf(info);
    for (const std::string &component : components)
      check(!component.empty());
    const bool decodes = style == ZBPathStyleFileURL && hasCharacter(components, '%');
    for (ZBPathStyle to : {ZBPathStylePOSIX, ZBPathStyleDOS, ZBPathStyleFileURL}) {
      const std::string written = take(ZBPathInfoCopyReconstructingWithStyle(info, to));
      // A decoded "%00" ends the C string early; the rest holds otherwise.
      if (decodes)
        continue;
      checkExactCapacity(info, to, written);
      // A UNC server name runs to the next backslash, so it may hold a "/";
      // written back alone ("\\a/b") it reads as two components.
      // A relative URL path whose first component starts "file:" reads back
      // as a URL.
      // "\\?\" or "\\.\" before neither a drive nor "UNC\" stands as a
      // server named "?" or "."; followed by an empty run ("\\?\\b:") it
      // reads back as the long-path prefix of a drive.
      const bool ambiguous =
          (style == ZBPathStyleDOS &&
           (hasCharacter(components, '/') ||
            (!components.empty() && (components[0] == "?" || components[0] == ".")))) ||
          (style == ZBPathStyleFileURL && !components.empty() &&
           components[0].compare(0, 5, "file:") == 0);
      if (to == style && !ambiguous)
        checkRoundTrip(style, info, written);
    }
    ZBPathInfoFree(info);
  }

  const std::string normalized = take(ZBPathCopyNormalizedWithStyle(style, text.c_str(), 0));
  check(normalized.size() <= (text.empty() ? 0 : std::max<size_t>(text.size(), 1)));
  check(normalized == take(ZBPathCopyNormalizedWithStyle(style, normalized.c_str(), 0)));

  char *converted = ZBPathCopyConvertingWithStyle(style, text.c_str(), ZBPathStylePOSIX, 0, true);
  _ZBFree(converted);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size < 1)
    return 0;
  // The first byte picks the copy option and where the text is cut in two
  // for concatenation; the rest, up to a zero, is the text.
  const bool copy = (data[0] & 1) != 0;
  const std::string text(reinterpret_cast<const char *>(data + 1),
                         strnlen(reinterpret_cast<const char *>(data + 1), size - 1));
  for (ZBPathStyle style : {ZBPathStylePOSIX, ZBPathStyleDOS, ZBPathStyleFileURL})
    fuzzStyle(style, text, copy);

  const size_t cut = text.empty() ? 0 : (data[0] >> 1) % (text.size() + 1);
  const std::string first = text.substr(0, cut);
  const std::string second = text.substr(cut);
  for (ZBPathStyle style : {ZBPathStylePOSIX, ZBPathStyleDOS, ZBPathStyleFileURL})
    _ZBFree(ZBPathCopyConcatenatedWithStyle(style, first.c_str(), second.c_str()));

  ZBWChar *nt = ZBPathCopyNT(text.c_str());
  _ZBFree(nt);
  return 0;
}
