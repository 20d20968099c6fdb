// The base allocator on POSIX systems: the C library's allocator, which frees
// blocks of any alignment and reports their usable size itself.
#include "ZBBaseAllocator.h"

#include <malloc.h>

#include <cstdlib>

namespace {

size_t baseMallocSize(const void *pointer) {
  return malloc_usable_size(const_cast<void *>(pointer));
}

} // namespace

ZBBaseAllocator gZBBaseAllocator = {
    std::malloc, posix_memalign, std::calloc, std::realloc, std::free, baseMallocSize,
};
