// The bounded text that the library's own conversions build their output
// in before writing it as one field.
#include "ZBPrintText.h"

#include "qprintf.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

namespace zb::print {

BoundedText::BoundedText(char *buffer, size_t capacity) noexcept
    : mBuffer(buffer), mCapacity(capacity) {
  mBuffer[0] = '\0';
}

void BoundedText::append(const char *text, size_t length) noexcept {
  const size_t room = mCapacity - 1 - mLength;
  const size_t taken = std::min(length, room);
  std::memcpy(mBuffer + mLength, text, taken);
  mLength += taken;
  mBuffer[mLength] = '\0';
}

void BoundedText::append(const char *text) noexcept { append(text, std::strlen(text)); }

void BoundedText::append(char character) noexcept { append(&character, 1); }

void BoundedText::appendHexByte(unsigned char byte, bool upper) noexcept {
  const char *digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
  const char pair[2] = {digits[byte >> 4], digits[byte & 0xF]};
  append(pair, 2);
}

void BoundedText::appendFormat(const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  const int room = static_cast<int>(std::min<size_t>(mCapacity - mLength, INT32_MAX));
  const int written = vqsnprintf(mBuffer + mLength, room, format, arguments);
  va_end(arguments);
  if (written > 0)
    mLength += std::min(size_t(written), size_t(room) - 1);
}

} // namespace zb::print
