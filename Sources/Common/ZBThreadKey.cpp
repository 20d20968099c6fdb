// Thread keys: the library's own thread-specific data, with destructors and
// protection against stale values.
//
// A process-wide table of 512 slots holds each key's destructor and a
// generation that is odd while the key is in use and advances on every
// create and delete. Each thread keeps one flat table of {value, generation
// when stored}; a value counts only while its generation matches the
// slot's, so deleting a key invalidates its values in every thread at once
// without visiting them, and a reused slot never shows its previous owner's
// values. The thread's table hangs under a POSIX-threads key, whose
// destructor runs the key destructors at thread exit, and is reached on the
// hot path through the platform's fastest per-thread slot. The generations
// and that slot are exported (ZBThread.h), so that callers on Windows read
// their values inline, without a call; the functions here serve the rest.
#include "ZBThread.h"

#include "ZBAlloc.h"
#include "ZBLock.h"
#include "ZBLog.h"
#include "ZBScopedLock.h"
#include "ZBThreadLocal.h"
#include "ZBThreadPrivate.h"

#include <cstdint>
#include <pthread.h>

namespace {

constexpr uint32_t kSlotCount = 512;
constexpr ZBThreadKey kFirstKey = 251;
// Destructors that store new values get this many passes at thread exit.
constexpr int kDestructorPasses = 4;

using Entry = _ZBThreadKeyEntry;
static_assert(sizeof(_gZBThreadKeyState.generations) / sizeof(uint32_t) == kSlotCount,
              "one generation per slot");

// One flat block per thread. With 64-bit values an entry takes 16 bytes,
// so the 512 entries make 8192 bytes (4096 with the 32-bit values the
// layout was first drawn for).
struct ThreadTable {
  Entry entries[kSlotCount];
};
static_assert(sizeof(ThreadTable) == kSlotCount * 2 * sizeof(void *),
              "a thread's table is one flat array of {value, generation}");

// Both start zeroed, as statics: every slot free, the lock open. Each
// slot's generation is in _gZBThreadKeyState.
ZBThreadKeyDestructor sDestructors[kSlotCount];
ZBSpinLock sSlotsLock;
// Holds each thread's table so that its destructor runs at thread exit.
pthread_key_t sTableKey;

// The slot of a key, or kSlotCount for a value that is no key.
uint32_t slotIndex(ZBThreadKey key) {
  const uint32_t index = static_cast<uint32_t>(key) - static_cast<uint32_t>(kFirstKey);
  return index < kSlotCount ? index : kSlotCount;
}

uint32_t *generation(uint32_t index) { return &_gZBThreadKeyState.generations[index]; }

uint32_t currentGeneration(uint32_t index) {
  return __atomic_load_n(generation(index), __ATOMIC_ACQUIRE);
}

// Moves a slot between free and in use. Callers hold the lock; readers of
// the generation do not take it.
void advanceGeneration(uint32_t index) {
  __atomic_fetch_add(generation(index), 1, __ATOMIC_RELEASE);
}

__attribute__((noinline)) ThreadTable *createTable() {
  auto *table = static_cast<ThreadTable *>(
      _ZBAllocWithZoneCountAndDesc(nullptr, 1, sizeof(ThreadTable), "ZBThreadSetSpecific"));
  if (table == nullptr)
    return nullptr;
  if (pthread_setspecific(sTableKey, table) != 0) {
    _ZBFree(table);
    return nullptr;
  }
  zb::platform::setThreadTableSlot(table);
  return table;
}

// The caller's table as it stands: through the header's lookup where there
// is one (no call), else through the platform's slot.
inline ThreadTable *existingCallerTable() {
#ifdef ZB_THREAD_KEY_INLINE_LOOKUP
  const uint32_t slot = _gZBThreadKeyState.tableSlot;
  if (ZB_LIKELY(slot < 64))
    return reinterpret_cast<ThreadTable *>(_ZBThreadKeyCallerTable(slot));
#endif
  return static_cast<ThreadTable *>(zb::platform::threadTableSlot());
}

// The caller's table, made on first use; null when it cannot be made.
inline ThreadTable *callerTable() {
  ThreadTable *table = existingCallerTable();
  return ZB_LIKELY(table != nullptr) ? table : createTable();
}

// Runs at thread exit with the thread's table.
void destroyTable(void *block) {
  auto *table = static_cast<ThreadTable *>(block);
  for (int pass = 0; pass < kDestructorPasses; ++pass) {
    for (uint32_t index = 0; index < kSlotCount; ++index) {
      Entry &entry = table->entries[index];
      if (entry.value == nullptr)
        continue;
      void *value = nullptr;
      ZBThreadKeyDestructor destructor = nullptr;
      {
        zb::ScopedLock lock(&sSlotsLock);
        // A stale value belongs to a deleted key: nobody to hand it to.
        if (entry.generation != currentGeneration(index))
          continue;
        value = entry.value;
        entry.value = nullptr;
        destructor = sDestructors[index];
      }
      if (destructor != nullptr)
        destructor(value);
    }
  }
  // Key functions called after this point, by other destructors, start a
  // fresh table, which the POSIX-threads library destroys in turn.
  zb::platform::setThreadTableSlot(nullptr);
  _ZBFree(table);
}

} // namespace

// No inline lookups until the start-up step has made the slot.
_ZBThreadKeyState _gZBThreadKeyState = {UINT32_MAX, {}};

void _ZBThreadKeyStartup() noexcept {
  static bool started = false;
  if (started)
    return;
  started = true;
  if (pthread_key_create(&sTableKey, destroyTable) != 0 ||
      !zb::platform::createThreadTableSlot())
    ZBLogFatalAssertion("__ZBThreadKeyInit", __FILE__, __LINE__, nullptr,
                        "no thread-specific slot left for the thread-key tables");
  _gZBThreadKeyState.tableSlot = zb::platform::inlineThreadTableSlot();
}

extern "C" ZBThreadKey ZBThreadKeyCreate(ZBThreadKeyDestructor destructor) noexcept {
  {
    zb::ScopedLock lock(&sSlotsLock);
    for (uint32_t index = 0; index < kSlotCount; ++index) {
      if (*generation(index) % 2 != 0)
        continue;
      advanceGeneration(index);
      sDestructors[index] = destructor;
      return static_cast<ZBThreadKey>(index) + kFirstKey;
    }
  }
  ZB_LOG_WARNING("Depleted ZBThreadKeys");
  return -1;
}

extern "C" ZBError ZBThreadKeyDelete(ZBThreadKey key) noexcept {
  const uint32_t index = slotIndex(key);
  if (index == kSlotCount)
    return ZBErrorInvalidHandle;
  zb::ScopedLock lock(&sSlotsLock);
  if (*generation(index) % 2 == 0)
    return ZBErrorInvalidHandle;
  advanceGeneration(index);
  sDestructors[index] = nullptr;
  return ZBErrorNone;
}

// The parentheses keep the header's inline forms from replacing the names.
extern "C" ZBError(ZBThreadSetSpecific)(ZBThreadKey key, const void *value) noexcept {
  const uint32_t index = slotIndex(key);
  if (index == kSlotCount)
    return ZBErrorInvalidHandle;
  ThreadTable *table = callerTable();
  if (table == nullptr)
    return ZBErrorNoMemory;
  table->entries[index] = Entry{const_cast<void *>(value), currentGeneration(index)};
  return ZBErrorNone;
}

extern "C" void *(ZBThreadGetSpecific)(ZBThreadKey key) noexcept {
  const uint32_t index = slotIndex(key);
  if (ZB_UNLIKELY(index == kSlotCount))
    return nullptr;
  ThreadTable *table = callerTable();
  if (ZB_UNLIKELY(table == nullptr))
    return nullptr;
  const Entry &entry = table->entries[index];
  return entry.generation == currentGeneration(index) ? entry.value : nullptr;
}
