// The exported qprintf family: thin frames that check their arguments and
// hand the format to the sink it names. The "x" forms carry a reserved
// word that the engine ignores; it is kept for callers built against it.
#include "qprintf.h"

#include "ZBAlloc.h"
#include "qprintfEngine.h"

using zb::format::formatIntoBuffer;
using zb::format::formatIntoNewBuffer;
using zb::format::formatToStream;

namespace {

// The engine reads a list in place, through a pointer. The forms with "...",
// which start the list themselves, hand theirs over as it is; a list
// received by value is first copied into one of the frame's own.
class OwnList {
public:
  explicit OwnList(va_list arguments) { va_copy(mList, arguments); }
  ~OwnList() { va_end(mList); }
  OwnList(const OwnList &) = delete;
  OwnList &operator=(const OwnList &) = delete;

  va_list *get() { return &mList; }

private:
  va_list mList;
};

bool isBadBuffer(const char *buffer, int size) {
  return size < 0 || (buffer == nullptr && size > 0);
}

} // namespace

extern "C" int qprintf(const char *format, ...) noexcept {
  va_list arguments;
  va_start(arguments, format);
  const int result = formatToStream(stdout, format, &arguments);
  va_end(arguments);
  return result;
}

extern "C" int vqprintfx(uint32_t, const char *format, va_list arguments) noexcept {
  OwnList own(arguments);
  return formatToStream(stdout, format, own.get());
}

extern "C" int vqfprintf(FILE *stream, const char *format, va_list arguments) noexcept {
  if (stream == nullptr)
    return -1;
  OwnList own(arguments);
  return formatToStream(stream, format, own.get());
}

extern "C" int vqfprintfx(FILE *stream, uint32_t, const char *format,
                          va_list arguments) noexcept {
  return vqfprintf(stream, format, arguments);
}

extern "C" int qsnprintf(char *buffer, int size, const char *format, ...) noexcept {
  if (isBadBuffer(buffer, size))
    return -1;
  va_list arguments;
  va_start(arguments, format);
  const int result = formatIntoBuffer(buffer, size, format, &arguments);
  va_end(arguments);
  return result;
}

extern "C" int vqsnprintf(char *buffer, int size, const char *format,
                          va_list arguments) noexcept {
  if (isBadBuffer(buffer, size))
    return -1;
  OwnList own(arguments);
  return formatIntoBuffer(buffer, size, format, own.get());
}

extern "C" int vqsnprintfx(char *buffer, int size, uint32_t, const char *format,
                           va_list arguments) noexcept {
  return vqsnprintf(buffer, size, format, arguments);
}

extern "C" int vqsprintfx(char *buffer, uint32_t, const char *format,
                          va_list arguments) noexcept {
  if (buffer == nullptr)
    return -1;
  OwnList own(arguments);
  return formatIntoBuffer(buffer, -1, format, own.get());
}

extern "C" int qasprintf(char **out, const char *format, ...) noexcept {
  if (out == nullptr)
    return -1;
  va_list arguments;
  va_start(arguments, format);
  const int result = formatIntoNewBuffer(out, format, &arguments);
  va_end(arguments);
  return result;
}

extern "C" int vqasprintf(char **out, const char *format, va_list arguments) noexcept {
  if (out == nullptr)
    return -1;
  OwnList own(arguments);
  return formatIntoNewBuffer(out, format, own.get());
}

extern "C" int vqasprintfx(char **out, uint32_t, const char *format,
                           va_list arguments) noexcept {
  return vqasprintf(out, format, arguments);
}

extern "C" void qprffree(void *pointer) noexcept { _ZBFreeWithZone(nullptr, pointer); }
