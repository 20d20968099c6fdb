// The base allocator under the allocation front end: the one seam between
// the library's allocation policy and the memory it gets from the platform.
//
// Each platform fills gZBBaseAllocator with its own routines. Tests swap an
// entry to make the base fail and reach the front end's failure policy.
#pragma once

#include <cstddef>
#include <cstdint>

struct ZBBaseAllocator {
  void *(*malloc)(size_t size);
  // 0 on success with the block stored; an errno value otherwise.
  int (*posixMemalign)(void **outPointer, size_t alignment, size_t size);
  void *(*calloc)(size_t count, size_t size);
  void *(*realloc)(void *pointer, size_t size);
  // Frees a block of any alignment; ignores null.
  void (*free)(void *pointer);
  size_t (*mallocSize)(const void *pointer);
};

extern "C" ZBBaseAllocator gZBBaseAllocator;
