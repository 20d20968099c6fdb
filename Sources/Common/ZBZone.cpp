// Memory zones: groups of allocations recorded together so that destroying
// the zone frees all of them at once. A zone keeps one table slot per live
// block and a hint at a free slot, so recording is amortised constant time;
// removal searches from the start (zones hold modest numbers of blocks).
#include "ZBAlloc.h"

#include "ZBBaseAllocator.h"
#include "ZBLock.h"
#include "ZBLog.h"
#include "ZBScopedLock.h"
#include "ZBZoneTracking.h"

#include <atomic>
#include <cstring>

struct ZBZone {
  ZBMutex *lock;
  void **hint; // a free slot: where the next allocation is recorded
  void **table;
  int32_t capacity;
};

namespace {

constexpr int32_t kInitialCapacity = 1024;

// Set once, when the first zone is created.
std::atomic<bool> sZonesInUse{false};

// Doubles the table; the hint moves to the first new slot. On failure the
// table and hint stay as they were.
bool growTable(ZBZone *zone) noexcept {
  const size_t oldCount = static_cast<size_t>(zone->capacity);
  void *grown = gZBBaseAllocator.realloc(zone->table, 2 * oldCount * sizeof(void *));
  if (grown == nullptr)
    return false;
  zone->table = static_cast<void **>(grown);
  std::memset(zone->table + oldCount, 0, oldCount * sizeof(void *));
  zone->capacity *= 2;
  zone->hint = zone->table + oldCount;
  return true;
}

void freeZoneRecord(ZBZone *zone) noexcept {
  ZBMutexFree(zone->lock);
  gZBBaseAllocator.free(zone->table);
  gZBBaseAllocator.free(zone);
}

} // namespace

bool __ZBZoneTrackAllocation(ZBZone *zone, void *pointer) noexcept {
  zb::ScopedLock lock(zone->lock);
  *zone->hint = pointer;
  void **end = zone->table + zone->capacity;
  for (void **slot = zone->hint + 1; slot < end; ++slot) {
    if (*slot == nullptr) {
      zone->hint = slot;
      return true;
    }
  }
  // When growing fails the pointer stays in the hinted slot although the
  // caller frees the block; the next recording overwrites that slot.
  return growTable(zone);
}

void __ZBZoneTrackDeallocation(ZBZone *zone, void *pointer) noexcept {
  {
    zb::ScopedLock lock(zone->lock);
    void **end = zone->table + zone->capacity;
    for (void **slot = zone->table; slot < end; ++slot) {
      if (*slot == pointer) {
        *slot = nullptr;
        if (slot < zone->hint)
          zone->hint = slot;
        return;
      }
    }
  }
  ZB_LOG_AT(ZBLogLevelError, "__ZBZoneTrackDeallocation", __FILE__, 265,
            "Tried to free pointer %p not in zone %p", pointer, static_cast<void *>(zone));
}

extern "C" ZBZone *ZBZoneGetDefaultZone(void) noexcept { return nullptr; }

extern "C" ZBZone *ZBZoneCreate(size_t, size_t, size_t, uint32_t, const char *) noexcept {
  auto *zone = static_cast<ZBZone *>(gZBBaseAllocator.calloc(1, sizeof(ZBZone)));
  if (zone == nullptr)
    return nullptr;
  zone->table = static_cast<void **>(gZBBaseAllocator.calloc(kInitialCapacity, sizeof(void *)));
  zone->lock = ZBMutexCreateNR();
  if (zone->table == nullptr || zone->lock == nullptr) {
    freeZoneRecord(zone);
    return nullptr;
  }
  zone->capacity = kInitialCapacity;
  zone->hint = zone->table;
  sZonesInUse.store(true, std::memory_order_seq_cst);
  return zone;
}

extern "C" void ZBZoneDestroy(ZBZone *zone) noexcept {
  if (zone == nullptr) {
    ZB_LOG_AT(ZBLogLevelWarning, __func__, __FILE__, 534, "Tried to destroy default zone %p",
              static_cast<void *>(zone));
    return;
  }
  {
    zb::ScopedLock lock(zone->lock);
    // Free slots hold null, which the base free ignores.
    for (int32_t i = 0; i < zone->capacity; ++i)
      gZBBaseAllocator.free(zone->table[i]);
  }
  freeZoneRecord(zone);
}

extern "C" void ZBZoneRecycle(ZBZone *) noexcept { ZBLogNYICounter(__func__, __LINE__); }

extern "C" void ZBZoneSetName(ZBZone *, const char *) noexcept {
  ZBLogNYICounter(__func__, __LINE__);
}

extern "C" ZBZone *ZBZoneFromPointer(const void *) noexcept {
  if (sZonesInUse.load(std::memory_order_seq_cst))
    ZBLogNYICounter(__func__, __LINE__);
  return nullptr;
}

extern "C" const char *ZBZoneGetName(ZBZone *) noexcept { return nullptr; }

extern "C" size_t ZBZoneGetFootprint(ZBZone *) noexcept { return 0; }
