// The format engine's buffer sinks: a caller's fixed buffer (the snprintf
// family) and a heap block that grows (the asprintf family).
//
// Both hand the engine their free room as the sink's window, so runs are
// copied straight in; only the run that reaches the end of the room takes
// the overflow path. The terminating zero is written once, when the call
// ends: nothing can read the buffer in between.
#include "qprintfEngine.h"

#include "ZBAlloc.h"

#include <algorithm>
#include <climits>

namespace zb::format {
namespace {

constexpr size_t kInitialCapacity = 128;
// A result must fit in an int, so a growing block never needs more.
constexpr size_t kMaxCapacity = size_t(INT_MAX) + 1;

// The room is used up (the window holds the last free bytes, if any): what
// fits is stored, the rest is refused and so is everything after it. The
// context counts the bytes refused.
size_t fixedOverflow(qprintf_sink *sink, const char *bytes, size_t length) {
  const size_t room = size_t(sink->limit - sink->cursor);
  if (room > 0) {
    std::memcpy(sink->cursor, bytes, room);
    sink->cursor += room;
  }
  *static_cast<int64_t *>(sink->context) += int64_t(length - room);
  return room;
}

// A buffer the caller vouches for: everything is stored.
size_t unboundedWrite(qprintf_sink *sink, const char *bytes, size_t length) {
  std::memcpy(sink->cursor, bytes, length);
  sink->cursor += length;
  sink->limit = sink->cursor;
  return length;
}

struct GrowingBuffer {
  char *data;
  size_t capacity;
};

// Grows the block until the run and a terminating zero fit (each step adds
// the stored length, at least 128 bytes); when it cannot grow, stores what
// fits and refuses the rest.
size_t growingOverflow(qprintf_sink *sink, const char *bytes, size_t length) {
  auto *state = static_cast<GrowingBuffer *>(sink->context);
  const size_t stored = size_t(sink->cursor - state->data);
  size_t capacity = state->capacity;
  while (capacity <= stored + length && capacity < kMaxCapacity)
    capacity = std::min(capacity + std::max(stored + 1, kInitialCapacity), kMaxCapacity);
  if (capacity != state->capacity) {
    auto *grown = static_cast<char *>(
        _ZBReallocWithZoneAndDesc(nullptr, state->data, capacity, "_asprbuf_grow"));
    if (grown != nullptr) {
      state->data = grown;
      state->capacity = capacity;
    }
  }
  const size_t accepted = std::min(length, state->capacity - 1 - stored);
  char *cursor = state->data + stored;
  if (accepted > 0)
    std::memcpy(cursor, bytes, accepted);
  sink->cursor = cursor + accepted;
  sink->limit = state->data + state->capacity - 1;
  return accepted;
}

int resultOf(int64_t length) { return length > INT_MAX ? -1 : static_cast<int>(length); }

} // namespace

int formatIntoBuffer(char *buffer, int64_t size, const char *format,
                     va_list *arguments) noexcept {
  int64_t dropped = 0;
  qprintf_sink sink{buffer, buffer, fixedOverflow, &dropped, 0};
  if (size < 0) {
    sink.overflow = unboundedWrite;
  } else if (size > 0) {
    buffer[0] = '\0';
    sink.limit = buffer + (size - 1);
  }
  const int64_t accepted = qprintf_run(&sink, 0, format, arguments);
  if (size != 0)
    *sink.cursor = '\0';
  if (accepted < 0)
    return -1;
  // Nothing is dropped when everything fit; otherwise the dropped bytes
  // make the result the length of the whole output.
  return resultOf(accepted + dropped);
}

int formatIntoNewBuffer(char **out, const char *format, va_list *arguments) noexcept {
  *out = nullptr;
  GrowingBuffer state{nullptr, kInitialCapacity};
  state.data = static_cast<char *>(
      _ZBReallocWithZoneAndDesc(nullptr, nullptr, kInitialCapacity, "_asprbuf_grow"));
  if (state.data == nullptr)
    return -1;
  *out = state.data;
  qprintf_sink sink{state.data, state.data + kInitialCapacity - 1, growingOverflow, &state, 0};
  const int64_t result = qprintf_run(&sink, 0, format, arguments);
  *sink.cursor = '\0';
  if (result < 0) {
    // Not left dangling in *out: the caller may not look, but must not be
    // able to free it twice.
    _ZBFreeWithZone(nullptr, state.data);
    *out = nullptr;
    return -1;
  }
  *out = state.data;
  return static_cast<int>(sink.cursor - state.data);
}

} // namespace zb::format
