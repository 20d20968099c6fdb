// The base allocator on Windows, over the C runtime's heap.
//
// The runtime's malloc cannot free an over-aligned block and _aligned_free
// cannot free a plain one, yet _ZBFree must free both. So every block
// carries a 16-byte header just below the caller's pointer: the block's
// alignment and the distance back to the runtime's own pointer. malloc
// already aligns to 16 on x64, so default blocks cost 16 bytes and no time.
#include "ZBBaseAllocator.h"

#include <malloc.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

namespace {

struct BlockHeader {
  size_t alignment;
  size_t offset; // from the runtime's pointer to the caller's
};
constexpr size_t kHeaderSize = 16;
static_assert(sizeof(BlockHeader) == kHeaderSize, "the header must keep 16-byte alignment");

BlockHeader *headerOf(const void *pointer) {
  return reinterpret_cast<BlockHeader *>(
      const_cast<char *>(static_cast<const char *>(pointer)) - kHeaderSize);
}

void *finish(void *raw, size_t alignment, size_t offset) {
  char *user = static_cast<char *>(raw) + offset;
  *headerOf(user) = BlockHeader{alignment, offset};
  return user;
}

void *baseMalloc(size_t size) {
  if (size > SIZE_MAX - kHeaderSize)
    return nullptr;
  void *raw = std::malloc(size + kHeaderSize);
  return raw ? finish(raw, kHeaderSize, kHeaderSize) : nullptr;
}

int basePosixMemalign(void **outPointer, size_t alignment, size_t size) {
  if (alignment <= kHeaderSize) {
    *outPointer = baseMalloc(size);
    return *outPointer ? 0 : ENOMEM;
  }
  if (size > SIZE_MAX - alignment - kHeaderSize)
    return ENOMEM;
  void *raw = std::malloc(size + alignment + kHeaderSize);
  if (raw == nullptr)
    return ENOMEM;
  const uintptr_t start = reinterpret_cast<uintptr_t>(raw) + kHeaderSize;
  const uintptr_t aligned = (start + alignment - 1) & ~(uintptr_t(alignment) - 1);
  *outPointer = finish(raw, alignment, aligned - reinterpret_cast<uintptr_t>(raw));
  return 0;
}

void *baseCalloc(size_t count, size_t size) {
  size_t total;
  if (__builtin_mul_overflow(count, size, &total) || total > SIZE_MAX - kHeaderSize)
    return nullptr;
  void *raw = std::calloc(1, total + kHeaderSize);
  return raw ? finish(raw, kHeaderSize, kHeaderSize) : nullptr;
}

size_t baseMallocSize(const void *pointer) {
  const BlockHeader *header = headerOf(pointer);
  const char *raw = static_cast<const char *>(pointer) - header->offset;
  return _msize(const_cast<char *>(raw)) - header->offset;
}

void baseFree(void *pointer) {
  if (pointer != nullptr)
    std::free(static_cast<char *>(pointer) - headerOf(pointer)->offset);
}

void *baseRealloc(void *pointer, size_t size) {
  if (pointer == nullptr)
    return baseMalloc(size);
  const BlockHeader header = *headerOf(pointer);
  if (header.alignment == kHeaderSize) {
    if (size > SIZE_MAX - kHeaderSize)
      return nullptr;
    void *raw = std::realloc(static_cast<char *>(pointer) - kHeaderSize, size + kHeaderSize);
    return raw ? static_cast<char *>(raw) + kHeaderSize : nullptr;
  }
  // Over-aligned blocks keep their alignment: the runtime's realloc would not.
  void *moved = nullptr;
  if (basePosixMemalign(&moved, header.alignment, size) != 0)
    return nullptr;
  const size_t old = baseMallocSize(pointer);
  std::memcpy(moved, pointer, old < size ? old : size);
  baseFree(pointer);
  return moved;
}

} // namespace

ZBBaseAllocator gZBBaseAllocator = {
    baseMalloc, basePosixMemalign, baseCalloc, baseRealloc, baseFree, baseMallocSize,
};
