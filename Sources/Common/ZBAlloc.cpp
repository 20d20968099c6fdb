// The allocation front end: every allocation of the library and of code
// built on it passes here, on its way to the base allocator. It adds the
// failure policy (small and huge failures end the process, mid-sized ones
// are logged and reported as null) and the recording of blocks in zones.
#include "ZBAlloc.h"

#include "ZBBaseAllocator.h"
#include "ZBLog.h"
#include "ZBZoneTracking.h"

#include <cstring>

namespace {

// Requests up to this size that fail end the process: nothing sensible can
// go on when a few hundred bytes cannot be had.
constexpr size_t kSmallRequestLimit = 1023;
// Requests above this size are programming errors, not memory pressure.
constexpr size_t kLargeRequestLimit = 0x80000000u;
constexpr size_t kDefaultAlignment = 16;

// The messages and source lines of one operation's failure policy.
struct FailurePolicy {
  const char *function;
  const char *smallFormat;
  uint32_t smallLine;
  const char *midFormat;
  uint32_t midLine;
  const char *largeFormat;
  uint32_t largeLine;
};

constexpr FailurePolicy kMallocPolicy = {
    "_ZBAllocAlignWithZoneAndDesc",
    "Failed on small malloc %zu", 380,
    "Failed on malloc of %zu bytes", 385,
    "Failed on large malloc %zu", 383};
constexpr FailurePolicy kReallocPolicy = {
    "_ZBReallocWithZoneAndDesc",
    "Failed on small realloc %zu", 437,
    "Failed on realloc of %zu bytes", 442,
    "Failed on large realloc %zu", 440};
constexpr FailurePolicy kCallocPolicy = {
    "_ZBAllocWithZoneCountAndDesc",
    "Failed on small calloc %zu", 409,
    "Failed on calloc of %zu bytes", 414,
    "Failed on large calloc %zu", 412};

// One site for all three operations' failure messages.
ZBLogSite sFailureSite;

// Ends the process for small and huge sizes; logs and returns null between.
void *applyFailurePolicy(const FailurePolicy &policy, size_t size) noexcept {
  const bool fatal = size <= kSmallRequestLimit || size > kLargeRequestLimit;
  const char *format = size <= kSmallRequestLimit ? policy.smallFormat
                       : fatal                    ? policy.largeFormat
                                                  : policy.midFormat;
  const uint32_t line = size <= kSmallRequestLimit ? policy.smallLine
                        : fatal                    ? policy.largeLine
                                                   : policy.midLine;
  const int32_t level = fatal ? ZBLogLevelFatal : ZBLogLevelError;
  ZB_LOG_FROM(&sFailureSite, level, policy.function, __FILE__, line, format, size);
  if (fatal)
    ZBAbortWithBacktrace();
  return nullptr;
}

void *baseAllocate(size_t alignment, size_t size) noexcept {
  if (alignment <= kDefaultAlignment)
    return gZBBaseAllocator.malloc(size);
  void *block = nullptr;
  if (gZBBaseAllocator.posixMemalign(&block, alignment, size) != 0)
    return nullptr;
  return block;
}

// Records a fresh block in a non-default zone. On failure the block is
// released and null returned, so the caller applies the failure policy.
void *recordInZone(ZBZone *zone, void *block) noexcept {
  if (zone == nullptr || block == nullptr || __ZBZoneTrackAllocation(zone, block))
    return block;
  gZBBaseAllocator.free(block);
  return nullptr;
}

bool isPowerOfTwo(size_t value) { return value != 0 && (value & (value - 1)) == 0; }

} // namespace

extern "C" void *_ZBAllocAlignWithZoneAndDesc(ZBZone *zone, size_t alignment, size_t size,
                                              const char *) noexcept {
  void *block = recordInZone(zone, baseAllocate(alignment, size));
  return block ? block : applyFailurePolicy(kMallocPolicy, size);
}

extern "C" void *_ZBAllocWithZoneAndDesc(ZBZone *zone, size_t size,
                                         const char *description) noexcept {
  return _ZBAllocAlignWithZoneAndDesc(zone, kDefaultAlignment, size, description);
}

extern "C" void *_ZBAllocWithZoneCountAndDesc(ZBZone *zone, size_t count, size_t size,
                                              const char *) noexcept {
  void *block = recordInZone(zone, gZBBaseAllocator.calloc(count, size));
  if (block)
    return block;
  // The policy judges the 32-bit product, as the interface always has.
  const uint32_t product = static_cast<uint32_t>(count * size);
  return applyFailurePolicy(kCallocPolicy, product);
}

extern "C" void *_ZBReallocWithZoneAndDesc(ZBZone *zone, void *pointer, size_t size,
                                           const char *description) noexcept {
  if (pointer == nullptr)
    return _ZBAllocAlignWithZoneAndDesc(zone, kDefaultAlignment, size, description);
  if (size == 0) {
    _ZBFreeWithZone(zone, pointer);
    void *block = recordInZone(zone, gZBBaseAllocator.malloc(0));
    return block ? block : applyFailurePolicy(kReallocPolicy, 0);
  }
  void *moved = gZBBaseAllocator.realloc(pointer, size);
  if (moved == nullptr)
    return applyFailurePolicy(kReallocPolicy, size);
  if (zone != nullptr && moved != pointer) {
    __ZBZoneTrackDeallocation(zone, pointer);
    if (!__ZBZoneTrackAllocation(zone, moved)) {
      gZBBaseAllocator.free(moved);
      return applyFailurePolicy(kReallocPolicy, size);
    }
  }
  return moved;
}

extern "C" void _ZBFreeWithZone(ZBZone *zone, void *pointer) noexcept {
  if (pointer == nullptr)
    return;
  if (zone != nullptr)
    __ZBZoneTrackDeallocation(zone, pointer);
  gZBBaseAllocator.free(pointer);
}

extern "C" void *_ZBAlloc(size_t size) noexcept {
  void *block = gZBBaseAllocator.malloc(size);
  return block ? block : applyFailurePolicy(kMallocPolicy, size);
}

extern "C" void *_ZBAllocAlign(size_t alignment, size_t size) noexcept {
  return _ZBAllocAlignWithZoneAndDesc(nullptr, alignment, size, "_ZBAllocAlign");
}

extern "C" void *_ZBAllocWithCount(size_t count, size_t size) noexcept {
  return _ZBAllocWithZoneCountAndDesc(nullptr, count, size, "_ZBAllocWithCount");
}

extern "C" void *_ZBRealloc(void *pointer, size_t size) noexcept {
  return _ZBReallocWithZoneAndDesc(nullptr, pointer, size, "_ZBRealloc");
}

extern "C" void _ZBFree(void *pointer) noexcept { gZBBaseAllocator.free(pointer); }

extern "C" int32_t _ZBPosixMemAlign(void **outPointer, size_t alignment, size_t size) noexcept {
  constexpr int32_t kInvalid = -22; // -EINVAL
  constexpr int32_t kNoMemory = -12; // -ENOMEM
  if (outPointer == nullptr || alignment < 4 || !isPowerOfTwo(alignment))
    return kInvalid;
  void *block = _ZBAllocAlignWithZoneAndDesc(nullptr, alignment, size, "_ZBPosixMemAlign");
  if (block == nullptr)
    return kNoMemory;
  *outPointer = block;
  return 0;
}

extern "C" size_t ZBSizeOfAllocation(const void *pointer) noexcept {
  return pointer ? gZBBaseAllocator.mallocSize(pointer) : 0;
}

extern "C" size_t ZBMemoryGetMallocTotal(void) noexcept { return 0; }

extern "C" void ZBMemoryGetStats(char *buffer, int32_t length) noexcept {
  if (buffer != nullptr && length > 0)
    buffer[0] = '\0';
}

extern "C" void ZBMemoryTrimHeap(void) noexcept {}

extern "C" int32_t ZBMemorySetStatsHook(ZBMemoryStatsHook) noexcept { return 0; }

extern "C" void *ZBMemoryIgnoreHeapAllocation(void *pointer) noexcept { return pointer; }
extern "C" void ZBMemoryDisableHeapLeakChecking(void) noexcept {}
extern "C" void ZBMemoryReenableHeapLeakChecking(void) noexcept {}
extern "C" void ZBHeapProfileStart(void) noexcept {}
extern "C" void ZBHeapProfileStop(void) noexcept {}
extern "C" const char *ZBHeapProfileGet(void) noexcept { return "No heap profile available.\n"; }
extern "C" bool ZBMemoryHasLeakSanitizer(void) noexcept { return false; }

extern "C" void ZBMemoryDumpHeapContents(void) noexcept {
  ZB_LOG_FATAL_AT(__func__, __FILE__, 649, "Heap dumping only supported on HeapDebug builds");
}
