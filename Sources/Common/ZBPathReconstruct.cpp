// Writing a ZBPathInfo back as text in any of the three styles, which is how
// paths move between styles. Components parsed from a URL are
// percent-decoded on the way out.
#include "ZBPathInfoRecord.h"

#include "ZBAlloc.h"

using zb::path::startsWithDrive;

namespace {

// Appends to a caller's buffer and remembers whether everything fitted,
// with room for the terminating zero.
class Writer {
public:
  Writer(char *buffer, size_t size) : buffer_(buffer), size_(size) {}

  void put(char c) {
    if (length_ + 1 < size_)
      buffer_[length_] = c;
    ++length_;
  }
  void put(const char *text, size_t length) {
    for (size_t index = 0; index < length; ++index)
      put(text[index]);
  }
  bool finish() {
    if (length_ + 1 > size_)
      return false;
    buffer_[length_] = '\0';
    return true;
  }

private:
  char *buffer_;
  size_t size_;
  size_t length_ = 0;
};

// "0"-"9" count 0-9 and letters of either case count from 10 up ("Z" is
// 35, deliberately not limited to "F"); anything else counts 0.
unsigned digitValue(char c) {
  if (c >= '0' && c <= '9')
    return static_cast<unsigned>(c - '0');
  if (c >= 'A' && c <= 'Z')
    return static_cast<unsigned>(c - 'A') + 10;
  if (c >= 'a' && c <= 'z')
    return static_cast<unsigned>(c - 'a') + 10;
  return 0;
}

// Calls `emit(byte)` for each byte of the component as written: "%" and two
// characters become one byte when the info is URL-encoded; a "%" within the
// last two characters stays as it is.
template <typename Emit>
void decode(const ZBPathComponent &component, bool encoded, Emit emit) {
  const char *text = component.characters;
  const size_t length = component.length;
  for (size_t index = 0; index < length;) {
    if (encoded && text[index] == '%' && index + 2 < length) {
      emit(static_cast<char>((digitValue(text[index + 1]) * 16 + digitValue(text[index + 2])) &
                             0xFF));
      index += 3;
    } else {
      emit(text[index++]);
    }
  }
}

// Whether the component, decoded, starts with a drive ("C:"), and whether
// that is all of it.
struct DriveTest {
  bool startsWithDrive;
  bool isDrive;
};

DriveTest testDrive(const ZBPathComponent &component, bool encoded) {
  char head[3] = {};
  size_t length = 0;
  decode(component, encoded, [&](char c) {
    if (length < sizeof head)
      head[length] = c;
    ++length;
  });
  const bool drive = length >= 2 && startsWithDrive(head);
  return {drive, drive && length == 2};
}

class Reconstruction {
public:
  Reconstruction(const ZBPathInfo *info, int32_t componentCount, char *buffer, size_t size)
      : info_(info), writer_(buffer, size),
        end_(componentCount < 1 || componentCount > info->count ? info->count : componentCount),
        encoded_((info->flags & ZBPathInfoFlagURLEncoded) != 0),
        absolute_((info->flags & ZBPathInfoFlagAbsolute) != 0),
        hasNode_((info->flags & ZBPathInfoFlagNodeName) != 0 && info->count > 0) {}

  bool posix() {
    const int32_t first = hasNode_ ? 1 : 0;
    // "/C:/x" (from "file:///C:/x") is written "C:/x".
    const bool dropRoot = first < end_ && testDrive(component(first), encoded_).startsWithDrive;
    if (absolute_ && !dropRoot)
      writer_.put('/');
    join(first, '/');
    return writer_.finish();
  }

  bool dos() {
    if (hasNode_) {
      writer_.put("\\\\", 2);
      putComponent(0);
      for (int32_t index = 1; index < end_; ++index) {
        writer_.put('\\');
        putComponent(index);
      }
      return writer_.finish();
    }
    int32_t first = 0;
    if (end_ > 0 && testDrive(component(0), encoded_).isDrive) {
      putComponent(0);
      first = 1;
    }
    if (absolute_)
      writer_.put('\\');
    join(first, '\\');
    return writer_.finish();
  }

  bool fileURL() {
    int32_t first = 0;
    if (absolute_) {
      writer_.put("file://", 7);
      if (hasNode_) {
        putComponent(0);
        first = 1;
      } else {
        writer_.put("localhost", 9);
      }
      writer_.put('/');
    }
    join(first, '/');
    return writer_.finish();
  }

private:
  const ZBPathComponent &component(int32_t index) const { return info_->components[index]; }

  void putComponent(int32_t index) {
    decode(component(index), encoded_, [this](char c) { writer_.put(c); });
  }

  // Components from `first` on, with `separator` between them.
  void join(int32_t first, char separator) {
    for (int32_t index = first; index < end_; ++index) {
      if (index > first)
        writer_.put(separator);
      putComponent(index);
    }
  }

  const ZBPathInfo *info_;
  Writer writer_;
  const int32_t end_;
  const bool encoded_;
  const bool absolute_;
  const bool hasNode_;
};

} // namespace

// Every component at full length plus a separator, and room for the longest
// prefix ("file://localhost/").
size_t zb::path::reconstructionCapacity(const ZBPathInfo *info) noexcept {
  size_t capacity = 32;
  for (int32_t index = 0; index < info->count; ++index)
    capacity += info->components[index].length + 1;
  return capacity;
}

extern "C" bool ZBPathInfoReconstructWithStyle(const ZBPathInfo *info, ZBPathStyle style,
                                               int32_t componentCount, char *buffer,
                                               size_t size) noexcept {
  if (info == nullptr || buffer == nullptr || size == 0)
    return false;
  Reconstruction reconstruction(info, componentCount, buffer, size);
  switch (style) {
  case ZBPathStylePOSIX: return reconstruction.posix();
  case ZBPathStyleDOS: return reconstruction.dos();
  case ZBPathStyleFileURL: return reconstruction.fileURL();
  default: return false;
  }
}

extern "C" char *ZBPathInfoCopyComponentsReconstructingWithStyle(const ZBPathInfo *info,
                                                                 ZBPathStyle style,
                                                                 int32_t componentCount) noexcept {
  if (info == nullptr || !zb::path::isKnownStyle(style))
    return nullptr;
  const size_t capacity = zb::path::reconstructionCapacity(info);
  auto *text = static_cast<char *>(
      _ZBAllocWithZoneAndDesc(nullptr, capacity, "ZBPathInfoCopyReconstructingWithStyle"));
  if (text == nullptr)
    return nullptr;
  if (!ZBPathInfoReconstructWithStyle(info, style, componentCount, text, capacity)) {
    _ZBFreeWithZone(nullptr, text);
    return nullptr;
  }
  return text;
}

extern "C" char *ZBPathInfoCopyReconstructingWithStyle(const ZBPathInfo *info,
                                                       ZBPathStyle style) noexcept {
  return ZBPathInfoCopyComponentsReconstructingWithStyle(info, style, 0);
}
