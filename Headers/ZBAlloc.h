/**
 * @file
 * ZBAlloc.h: the library's allocator front end and memory zones.
 *
 * Every allocation goes through these functions. A failed request of up to
 * 1023 bytes, or of more than 2147483648 bytes, ends the process; in between
 * it logs an Error and yields null, and the caller reports ZBErrorNoMemory.
 *
 * A zone records its allocations so that ZBZoneDestroy frees them all at
 * once. The null zone is the default zone, whose allocations are not
 * recorded. Blocks allocated with a zone are freed or reallocated with the
 * same zone. The functions ending in Desc take a constant text naming the
 * allocating routine; it is not used.
 */
#ifndef ZENBOR_ZBALLOC_H
#define ZENBOR_ZBALLOC_H

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

/** A memory zone: a named pool that can be freed at once. Opaque. */
typedef struct ZBZone ZBZone;

/** `size` bytes aligned to `alignment` from `zone` (null: the default zone).
   `description` names the caller and is not used.
   @return The block, or null when memory runs out (a failure below 1024 bytes
   or above 2 GiB is Fatal instead). */
ZB_EXPORT void *_ZBAllocAlignWithZoneAndDesc(ZBZone *zone, size_t alignment, size_t size,
                                             const char *description) ZB_NOEXCEPT;
/** `size` bytes from `zone`, aligned to 16.
   @return The block, or null as _ZBAllocAlignWithZoneAndDesc. */
ZB_EXPORT void *_ZBAllocWithZoneAndDesc(ZBZone *zone, size_t size,
                                        const char *description) ZB_NOEXCEPT;
/** Zero-filled room for `count` items of `size` bytes.
   @return The block, or null as _ZBAllocAlignWithZoneAndDesc. */
ZB_EXPORT void *_ZBAllocWithZoneCountAndDesc(ZBZone *zone, size_t count, size_t size,
                                             const char *description) ZB_NOEXCEPT;
/** A null pointer allocates; size 0 frees and returns a new zero-size block.
   @return The block, or null as _ZBAllocAlignWithZoneAndDesc (the old
   block is then kept). */
ZB_EXPORT void *_ZBReallocWithZoneAndDesc(ZBZone *zone, void *pointer, size_t size,
                                          const char *description) ZB_NOEXCEPT;
/** Releases a block of `zone` (null: the default zone); null is allowed. */
ZB_EXPORT void _ZBFreeWithZone(ZBZone *zone, void *pointer) ZB_NOEXCEPT;

/** `size` bytes from the default zone, alignment 16.
   @return The block, or null as _ZBAllocAlignWithZoneAndDesc. */
ZB_EXPORT void *_ZBAlloc(size_t size) ZB_NOEXCEPT;
/** `size` bytes from the default zone, aligned to `alignment`.
   @return The block, or null as _ZBAllocAlignWithZoneAndDesc. */
ZB_EXPORT void *_ZBAllocAlign(size_t alignment, size_t size) ZB_NOEXCEPT;
/** Zero-filled room for `count` items of `size` bytes from the default zone.
   @return The block, or null as _ZBAllocAlignWithZoneAndDesc. */
ZB_EXPORT void *_ZBAllocWithCount(size_t count, size_t size) ZB_NOEXCEPT;
/** As _ZBReallocWithZoneAndDesc, in the default zone.
   @return The block, or null as _ZBAllocAlignWithZoneAndDesc. */
ZB_EXPORT void *_ZBRealloc(void *pointer, size_t size) ZB_NOEXCEPT;
/** Frees a block of any alignment without consulting any zone. */
ZB_EXPORT void _ZBFree(void *pointer) ZB_NOEXCEPT;

/** Returns negated errno values, not ZBError codes: 0, -22 (alignment 0,
   below 4 or not a power of two) or -12 (no memory). */
ZB_EXPORT int32_t _ZBPosixMemAlign(void **outPointer, size_t alignment,
                                   size_t size) ZB_NOEXCEPT;
/** The usable size of a block; 0 for null. */
ZB_EXPORT size_t ZBSizeOfAllocation(const void *pointer) ZB_NOEXCEPT;

/** @return The default zone, the one a null zone names. */
ZB_EXPORT ZBZone *ZBZoneGetDefaultZone(void) ZB_NOEXCEPT;
/** The arguments are accepted for compatibility and ignored. Null on failure. */
ZB_EXPORT ZBZone *ZBZoneCreate(size_t initialSize, size_t maximumSize, size_t granularity,
                               uint32_t flags, const char *name) ZB_NOEXCEPT;
/** Frees every allocation of the zone, then the zone. */
ZB_EXPORT void ZBZoneDestroy(ZBZone *zone) ZB_NOEXCEPT;
/** Not implemented on this platform: count the call and do nothing. */
ZB_EXPORT void ZBZoneRecycle(ZBZone *zone) ZB_NOEXCEPT;
/** Names the zone for diagnostics; the text is copied. */
ZB_EXPORT void ZBZoneSetName(ZBZone *zone, const char *name) ZB_NOEXCEPT;
/** Always null. */
ZB_EXPORT ZBZone *ZBZoneFromPointer(const void *pointer) ZB_NOEXCEPT;
/** Not implemented: null and 0. */
ZB_EXPORT const char *ZBZoneGetName(ZBZone *zone) ZB_NOEXCEPT;
/** Not implemented: counts the call.
   @return 0. */
ZB_EXPORT size_t ZBZoneGetFootprint(ZBZone *zone) ZB_NOEXCEPT;

/** Statistics of the base allocator; the C runtime keeps none, so these
   answer 0 and an empty text. */
typedef void (*ZBMemoryStatsHook)(void *context);
/** @return The bytes the base allocator holds; 0 here. */
ZB_EXPORT size_t ZBMemoryGetMallocTotal(void) ZB_NOEXCEPT;
/** Writes the base allocator's statistics as text into `buffer` of `length`
   bytes; here an empty text. */
ZB_EXPORT void ZBMemoryGetStats(char *buffer, int32_t length) ZB_NOEXCEPT;
/** Gives free memory back to the system where the base allocator can. */
ZB_EXPORT void ZBMemoryTrimHeap(void) ZB_NOEXCEPT;
/** Installs the base allocator's statistics hook.
   @return The base allocator's result; 0 here, where there is no hook. */
ZB_EXPORT int32_t ZBMemorySetStatsHook(ZBMemoryStatsHook hook) ZB_NOEXCEPT;

/** Heap-debugging hooks that this build does not have.
   @return `pointer`, unchanged. */
ZB_EXPORT void *ZBMemoryIgnoreHeapAllocation(void *pointer) ZB_NOEXCEPT;
/** Heap-debugging hook; does nothing in this build. */
ZB_EXPORT void ZBMemoryDisableHeapLeakChecking(void) ZB_NOEXCEPT;
/** Heap-debugging hook; does nothing in this build. */
ZB_EXPORT void ZBMemoryReenableHeapLeakChecking(void) ZB_NOEXCEPT;
/** Heap-profiling hook; does nothing in this build. */
ZB_EXPORT void ZBHeapProfileStart(void) ZB_NOEXCEPT;
/** Heap-profiling hook; does nothing in this build. */
ZB_EXPORT void ZBHeapProfileStop(void) ZB_NOEXCEPT;
/** Heap-profiling hook.
   @return Null: this build keeps no profile. */
ZB_EXPORT const char *ZBHeapProfileGet(void) ZB_NOEXCEPT;
/** @return False: this build has no leak sanitizer. */
ZB_EXPORT bool ZBMemoryHasLeakSanitizer(void) ZB_NOEXCEPT;
/** Fatal: heap dumps need a heap-debugging build. */
ZB_EXPORT ZB_NORETURN void ZBMemoryDumpHeapContents(void) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBALLOC_H */
