// A text built in a caller's buffer by the library's own conversions:
// appends never run past the buffer's end (what does not fit is dropped)
// and the text stays zero-terminated.
#pragma once

#include "ZBBase.h"

#include <cstddef>

namespace zb::print {

class BoundedText {
public:
  // `capacity` counts the terminating zero and is at least 1.
  BoundedText(char *buffer, size_t capacity) noexcept;

  void append(const char *text, size_t length) noexcept;
  void append(const char *text) noexcept;
  void append(char character) noexcept;
  // Two hex digits, upper- or lower-case.
  void appendHexByte(unsigned char byte, bool upper) noexcept;
  // Through the library's own engine.
  void appendFormat(const char *format, ...) noexcept ZB_PRINTF_LIKE(2, 3);

  const char *text() const noexcept { return mBuffer; }
  size_t length() const noexcept { return mLength; }

private:
  char *mBuffer;
  size_t mCapacity;
  size_t mLength = 0;
};

} // namespace zb::print
