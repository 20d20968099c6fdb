// The loaded modules' address ranges and unwind tables (.pdata), kept in a
// fixed table that the stack unwinder reads without a lock and without the
// loader: the table is filled once and kept current by the loader's
// load/unload notifications. Included by Sources/Win32 only.
#pragma once

#include <windows.h>

#include <cstdint>

namespace zb::modules {

// A module's image and its function table as found for one address.
struct CodeRange {
  uintptr_t base;                    // the module's load address
  uintptr_t size;                    // its SizeOfImage
  const RUNTIME_FUNCTION *functions; // sorted by BeginAddress; may be null
  uint32_t functionCount;
};

// The NT headers of the image mapped at `base`, or null when its DOS or NT
// signature or its optional header is not a 64-bit image's.
const IMAGE_NT_HEADERS64 *mappedHeaders(uintptr_t base) noexcept;

// Fills the table from the modules loaded now and registers for the loader's
// notifications. Once per process; later calls return at once. Takes the
// loader lock the first time, so it is called before anything is stopped
// (the library's start-up and the capturing functions call it).
void prepare() noexcept;

// The module holding `address`, read without a lock. False when no module of
// the table holds it.
bool find(uintptr_t address, CodeRange &out) noexcept;

// Held while a caller reads modules found in the table (their unwind tables
// and code): a module's unload waits until no reader holds one, so no image
// is unmapped under a walk. Takes no lock; an unload only spins meanwhile.
class ReadGuard {
public:
  ReadGuard() noexcept;
  ~ReadGuard();
  ReadGuard(const ReadGuard &) = delete;
  ReadGuard &operator=(const ReadGuard &) = delete;
};

// The function-table entry covering `address` in `range`, by binary search;
// null when the address has none (a leaf function).
const RUNTIME_FUNCTION *functionEntry(const CodeRange &range, uintptr_t address) noexcept;

} // namespace zb::modules
