// Fixed-capacity byte buffers and rings. Each is one allocation: a header
// followed by its bytes.
#include "ZBBuffer.h"

#include "ZBAlloc.h"
#include "ZBLog.h"

#include <cstring>

struct ZBBuffer {
  uint8_t *data;
  uint32_t length;
  uint32_t capacity;
};

struct ZBCircularBuffer {
  uint8_t *data;
  uint32_t writePosition; // next byte to write, 0 to capacity - 1
  uint32_t filledLength;  // grows to the capacity and stays there
  uint32_t capacity;
};

namespace {

// Header and bytes in one block, rounded up to 16 bytes (for a plain buffer:
// (capacity + 31) rounded down to a multiple of 16).
template <typename Header>
Header *allocateWithBytes(uint32_t capacity) {
  const size_t size = (sizeof(Header) + size_t(capacity) + 15) & ~size_t(15);
  auto *header = static_cast<Header *>(_ZBAlloc(size));
  if (header != nullptr) {
    std::memset(header, 0, sizeof(Header));
    header->data = reinterpret_cast<uint8_t *>(header) + sizeof(Header);
    header->capacity = capacity;
  }
  return header;
}

[[noreturn]] void overflow(const char *function, uint32_t line, size_t requested,
                          size_t capacity) {
  ZB_LOG_FATAL_AT(function, __FILE__, line,
                  "Attempt to write %zu bytes in buffer with capacity %zu", requested, capacity);
}

} // namespace

extern "C" ZBBuffer *ZBBufferCreate(uint32_t capacity) noexcept {
  return allocateWithBytes<ZBBuffer>(capacity);
}

extern "C" void ZBBufferFree(ZBBuffer *buffer) noexcept { _ZBFree(buffer); }

extern "C" void ZBBufferAppendBytes(ZBBuffer *buffer, const void *bytes, uint32_t count) noexcept {
  const size_t needed = size_t(buffer->length) + count;
  if (needed > buffer->capacity)
    overflow(__func__, 45, needed, buffer->capacity);
  std::memcpy(buffer->data + buffer->length, bytes, count);
  buffer->length += count;
}

extern "C" void ZBBufferSetBytes(ZBBuffer *buffer, const void *bytes, uint32_t count) noexcept {
  if (count > buffer->capacity)
    overflow(__func__, 56, count, buffer->capacity);
  std::memcpy(buffer->data, bytes, count);
  buffer->length = count;
}

extern "C" uint8_t *ZBBufferGetBytes(ZBBuffer *buffer) noexcept { return buffer->data; }

extern "C" uint32_t ZBBufferGetLength(ZBBuffer *buffer) noexcept { return buffer->length; }

extern "C" ZBCircularBuffer *ZBCircularBufferCreate(uint32_t capacity) noexcept {
  return allocateWithBytes<ZBCircularBuffer>(capacity);
}

extern "C" void ZBCircularBufferFree(ZBCircularBuffer *ring) noexcept { _ZBFree(ring); }

extern "C" void ZBCircularBufferEnqueue(ZBCircularBuffer *ring, const void *bytes,
                                        uint32_t count) noexcept {
  const auto *source = static_cast<const uint8_t *>(bytes);
  while (count > 0 && ring->capacity > 0) {
    const uint32_t room = ring->capacity - ring->writePosition;
    const uint32_t piece = count < room ? count : room;
    std::memcpy(ring->data + ring->writePosition, source, piece);
    source += piece;
    count -= piece;
    ring->writePosition += piece;
    if (ring->writePosition > ring->filledLength)
      ring->filledLength = ring->writePosition;
    if (ring->writePosition == ring->capacity)
      ring->writePosition = 0;
  }
}

extern "C" int32_t ZBCircularBufferCopyBytes(ZBCircularBuffer *ring, void *destination,
                                             uint32_t size) noexcept {
  if (size < ring->capacity)
    return -static_cast<int32_t>(ring->capacity);
  auto *out = static_cast<uint8_t *>(destination);
  if (ring->filledLength == ring->capacity) {
    const uint32_t tail = ring->capacity - ring->writePosition;
    std::memcpy(out, ring->data + ring->writePosition, tail);
    std::memcpy(out + tail, ring->data, ring->writePosition);
  } else {
    std::memcpy(out, ring->data, ring->writePosition);
  }
  return static_cast<int32_t>(ring->filledLength);
}
