// Normalising a path text: the root and the style's prefixes (drive, UNC
// server, "\\?\", "file://host") are kept, runs of separators become one,
// "." components go and ".." removes the component before it. The output is
// never longer than the input except for the "." of an emptied path.
#include "ZBPathInfoRecord.h"

#include <initializer_list>

using zb::path::isDOSSeparator;
using zb::path::startsWithDrive;

namespace {

// Character classes, one table lookup per character: what ends a component
// in the POSIX and URL styles ("/" and the end of the text) and in DOS ("/",
// backslash and the end), and the characters DOS file names cannot hold,
// which become "-".
enum : uint8_t { kEndsPOSIX = 1, kEndsDOS = 2, kReplacedInDOS = 4 };

struct CharacterClasses {
  uint8_t of[256] = {};
  constexpr CharacterClasses() {
    of[0] = kEndsPOSIX | kEndsDOS;
    of[static_cast<uint8_t>('/')] = kEndsPOSIX | kEndsDOS;
    of[static_cast<uint8_t>('\\')] = kEndsDOS;
    for (char c : {'?', '*', ':', '<', '>', '|'})
      of[static_cast<uint8_t>(c)] = kReplacedInDOS;
  }
};
constexpr CharacterClasses kClasses;

uint8_t classOf(char c) { return kClasses.of[static_cast<uint8_t>(c)]; }

class Normalizer {
public:
  Normalizer(ZBPathStyle style, const char *source, char *destination, size_t size)
      : dos_(style == ZBPathStyleDOS), url_(style == ZBPathStyleFileURL),
        separator_(dos_ ? '\\' : '/'), ends_(dos_ ? kEndsDOS : kEndsPOSIX), source_(source),
        cursor_(source), out_(destination), size_(size) {}

  bool run() {
    if (!prefix() || !root())
      return false;
    rootEnd_ = length_;
    bool endsWithSeparator = false;
    while (*cursor_ != '\0') {
      const char *start = cursor_;
      const char *end = start;
      while ((classOf(*end) & ends_) == 0)
        ++end;
      endsWithSeparator = *end != '\0';
      cursor_ = end;
      while (isSeparator(*cursor_))
        ++cursor_;
      if (!component(start, static_cast<size_t>(end - start)))
        return false;
    }
    if (endsWithSeparator && length_ > rootEnd_ && !put(separator_))
      return false;
    if (length_ == 0 && *source_ != '\0' && !put('.'))
      return false;
    return finish();
  }

private:
  bool isSeparator(char c) const { return c != '\0' && (classOf(c) & ends_) != 0; }

  bool put(char c) {
    if (length_ + 1 >= size_)
      return false;
    out_[length_++] = c;
    return true;
  }
  bool putSource(size_t count) {
    for (size_t index = 0; index < count; ++index)
      if (!put(isSeparator(cursor_[index]) ? separator_ : cursor_[index]))
        return false;
    cursor_ += count;
    return true;
  }
  // The run up to the next separator, as it is (a server or host name).
  bool putName() {
    size_t count = 0;
    while (cursor_[count] != '\0' && !isSeparator(cursor_[count]))
      ++count;
    rooted_ = true;
    return putSource(count);
  }
  bool finish() {
    if (length_ >= size_)
      return false;
    out_[length_] = '\0';
    return true;
  }

  // What ".." never removes: "file://host", "\\?\", "\\?\UNC\server",
  // "\\server", and drives ("C:" in DOS, "C:/" in POSIX).
  bool prefix() {
    if (url_) {
      if (!zb::path::startsWith(cursor_, "file://"))
        return true;
      if (!putSource(7))
        return false;
      rooted_ = true;
      return isSeparator(*cursor_) || *cursor_ == '\0' || putName();
    }
    if (!dos_)
      return !(startsWithDrive(cursor_) && cursor_[2] == '/') || putSource(2);
    const char *text = cursor_;
    if (isDOSSeparator(text[0]) && isDOSSeparator(text[1]) && (text[2] == '?' || text[2] == '.') &&
        isDOSSeparator(text[3])) {
      if (!putSource(4))
        return false;
      rooted_ = true;
      const char *marker = cursor_;
      if ((marker[0] | 0x20) == 'u' && (marker[1] | 0x20) == 'n' && (marker[2] | 0x20) == 'c' &&
          isDOSSeparator(marker[3]))
        return putSource(4) && putName();
    } else if (isDOSSeparator(text[0]) && isDOSSeparator(text[1]) && text[2] != '\0' &&
               !isDOSSeparator(text[2])) {
      return putSource(2) && putName();
    }
    return !startsWithDrive(cursor_) || putSource(2);
  }

  bool root() {
    if (!isSeparator(*cursor_))
      return true;
    rooted_ = true;
    while (isSeparator(*cursor_))
      ++cursor_;
    return put(separator_);
  }

  // Where the last written component starts, or rootEnd_ when none is.
  size_t lastComponentStart() const {
    size_t start = length_;
    while (start > rootEnd_ && out_[start - 1] != separator_)
      --start;
    return start;
  }

  bool component(const char *text, size_t length) {
    if (length == 0 || (length == 1 && text[0] == '.'))
      return true;
    if (length == 2 && text[0] == '.' && text[1] == '.') {
      const size_t last = lastComponentStart();
      const bool lastIsParent = length_ - last == 2 && out_[last] == '.' && out_[last + 1] == '.';
      if (length_ > rootEnd_ && !lastIsParent) {
        length_ = last > rootEnd_ ? last - 1 : rootEnd_;
        return true;
      }
      if (rooted_)
        return true; // nothing above a root
    }
    // One bounds check per component; the copy may overlap when the source
    // is the destination, always from a later place to an earlier one.
    const bool separated = length_ > rootEnd_;
    const size_t needed = (separated ? 1 : 0) + length;
    if (length_ + needed >= size_)
      return false;
    char *out = out_ + length_;
    if (separated)
      *out++ = separator_;
    if (dos_) {
      for (size_t index = 0; index < length; ++index)
        out[index] = (classOf(text[index]) & kReplacedInDOS) != 0 ? '-' : text[index];
    } else {
      std::memmove(out, text, length);
    }
    length_ += needed;
    return true;
  }

  const bool dos_;
  const bool url_;
  const char separator_;
  const uint8_t ends_;
  const char *const source_;
  const char *cursor_;
  char *const out_;
  const size_t size_;
  size_t length_ = 0;
  size_t rootEnd_ = 0;
  bool rooted_ = false;
};

} // namespace

extern "C" bool ZBPathNormalizeWithStyle(ZBPathStyle style, const char *source, char *destination,
                                         size_t size, uint32_t) noexcept {
  if (source == nullptr || destination == nullptr || size == 0 || !zb::path::isKnownStyle(style))
    return false;
  return Normalizer(style, source, destination, size).run();
}
