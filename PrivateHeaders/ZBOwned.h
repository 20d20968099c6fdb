// Ownership of blocks the library allocates from the default zone: a holder
// that gives the block back with _ZBFree on every path out of its scope.
#pragma once

#include "ZBAlloc.h"

#include <memory>

namespace zb {

struct LibraryFree {
  void operator()(void *block) const noexcept { _ZBFree(block); }
};

template <typename T>
using Owned = std::unique_ptr<T, LibraryFree>;

} // namespace zb
