// The suspend registry: the system IDs of the threads that ZBThreadSuspendAll
// stops and ZBThreadResumeAll restarts (Sources/Win32/ZBThreadSuspend.cpp),
// newest first. Threads started through the library enter it as they start
// and leave it as they end; a thread that must keep running while the
// others are stopped (a sampler, a crash handler) marks itself
// non-suspendable.
#include "ZBThread.h"

#include "ZBAlloc.h"
#include "ZBLock.h"
#include "ZBScopedLock.h"
#include "ZBThreadPrivate.h"

namespace {

struct SuspendEntry {
  SuspendEntry *next;
  uint32_t threadID;
  uint32_t suspendable; // 1 until ZBThreadSetNonSuspendable
};

SuspendEntry *sNewest;
ZBMutex sMutex;
uint32_t sMutexOnce;

void initMutex(void *) { ZBMutexInitRecursive(&sMutex); }

// The registry's lock, made on first use. Re-entrant, so that a walk may
// call back into the registry.
ZBMutex *registryMutex() {
  ZBThreadCallOnce(&sMutexOnce, initMutex, nullptr);
  return &sMutex;
}

SuspendEntry *find(uint32_t threadID) {
  for (SuspendEntry *entry = sNewest; entry != nullptr; entry = entry->next)
    if (entry->threadID == threadID)
      return entry;
  return nullptr;
}

// Callers hold the lock. Allocation failures leave the thread out.
void addUnsafe(uint32_t threadID) {
  auto *entry = static_cast<SuspendEntry *>(
      _ZBAllocWithZoneAndDesc(nullptr, sizeof(SuspendEntry), "_ZBThreadSuspendAddUnsafe"));
  if (entry == nullptr)
    return;
  *entry = SuspendEntry{sNewest, threadID, 1};
  sNewest = entry;
}

} // namespace

extern "C" void ZBThreadSuspendAdd(uint32_t threadID) noexcept {
  zb::ScopedLock lock(registryMutex());
  addUnsafe(threadID);
}

void _ZBThreadSuspendRegistryAddUnlessPresent(uint32_t threadID) noexcept {
  zb::ScopedLock lock(registryMutex());
  if (find(threadID) == nullptr)
    addUnsafe(threadID);
}

extern "C" bool ZBThreadSuspendRemove(uint32_t threadID) noexcept {
  SuspendEntry *removed = nullptr;
  {
    zb::ScopedLock lock(registryMutex());
    for (SuspendEntry **link = &sNewest; *link != nullptr; link = &(*link)->next) {
      if ((*link)->threadID == threadID) {
        removed = *link;
        *link = removed->next;
        break;
      }
    }
  }
  _ZBFree(removed);
  return removed != nullptr;
}

extern "C" void ZBThreadSetNonSuspendable(uint32_t threadID) noexcept {
  zb::ScopedLock lock(registryMutex());
  if (SuspendEntry *entry = find(threadID))
    entry->suspendable = 0;
}

void _ZBThreadSuspendRegistryVisitSuspendable(void (*visit)(uint32_t threadID)) noexcept {
  zb::ScopedLock lock(registryMutex());
  for (SuspendEntry *entry = sNewest; entry != nullptr; entry = entry->next)
    if (entry->suspendable != 0)
      visit(entry->threadID);
}

bool _ZBThreadSuspendRegistryContains(uint32_t threadID) noexcept {
  zb::ScopedLock lock(registryMutex());
  return find(threadID) != nullptr;
}
