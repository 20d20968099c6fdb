// Performance counters. An add touches only the calling thread's shard, a
// block of its own on separate cache lines, so a hot counter scales with
// threads where one shared atomic would bounce between cores; reads sum the
// shards. A thread that ends folds its shard into the counters' base values.
#include "ZBScopedLock.h"
#include "ZBThread.h"
#include "ZBThreadRecords.h"
#include "ZBTrace.h"
#include "ZBTracePrivate.h"

#include <new>
#include <pthread.h>

namespace {

constexpr int32_t kMaxCounters = 256;

struct alignas(64) Shard {
  std::atomic<int64_t> values[kMaxCounters];
  Shard *next;
  Shard *previous;
};

// Its lock guards the bases and the counters' names too.
zb::ThreadRecords<Shard> sShards;
int64_t sBase[kMaxCounters];
int32_t sNameIDs[kMaxCounters];
std::atomic<int32_t> sCount{0};
uint32_t sShardKeyOnce;

int64_t shardSumLocked(int32_t slot) {
  int64_t sum = 0;
  for (Shard *shard = sShards.head; shard != nullptr; shard = shard->next)
    sum += shard->values[slot].load(std::memory_order_relaxed);
  return sum;
}

void releaseShard(void *value) {
  auto *shard = static_cast<Shard *>(value);
  zb::ScopedLock lock(&sShards.lock);
  for (int32_t slot = 0; slot < kMaxCounters; ++slot)
    sBase[slot] += shard->values[slot].load(std::memory_order_relaxed);
  sShards.unlinkLocked(shard);
  delete shard;
}

void createShardKey(void *) { sShards.key = ZBThreadKeyCreate(releaseShard); }

bool isCounter(int32_t counterID) {
  return counterID >= 1 && counterID <= sCount.load(std::memory_order_acquire);
}

} // namespace

extern "C" int32_t ZBPerfCounterDefine(const char *name) noexcept {
  const int32_t nameID = zb::trace::defineName(name);
  if (nameID == 0)
    return 0;
  ZBThreadCallOnce(&sShardKeyOnce, createShardKey, nullptr);
  zb::ScopedLock lock(&sShards.lock);
  const int32_t count = sCount.load(std::memory_order_relaxed);
  for (int32_t slot = 0; slot < count; ++slot)
    if (sNameIDs[slot] == nameID)
      return slot + 1;
  if (count == kMaxCounters)
    return 0;
  sNameIDs[count] = nameID;
  sCount.store(count + 1, std::memory_order_release);
  return count + 1;
}

extern "C" void ZBPerfCounterAdd(int32_t counterID, int64_t delta) noexcept {
  if (!isCounter(counterID))
    return;
  Shard *shard = sShards.current();
  if (shard == nullptr)
    return;
  // Only the owner writes its shard: a plain load and store, no lock prefix.
  std::atomic<int64_t> &value = shard->values[counterID - 1];
  value.store(value.load(std::memory_order_relaxed) + delta, std::memory_order_relaxed);
}

extern "C" void ZBPerfCounterSet(int32_t counterID, int64_t value) noexcept {
  if (!isCounter(counterID))
    return;
  zb::ScopedLock lock(&sShards.lock);
  sBase[counterID - 1] = value - shardSumLocked(counterID - 1);
}

extern "C" int64_t ZBPerfCounterGet(int32_t counterID) noexcept {
  if (!isCounter(counterID))
    return 0;
  zb::ScopedLock lock(&sShards.lock);
  return sBase[counterID - 1] + shardSumLocked(counterID - 1);
}

extern "C" ZBError ZBPerfCounterEnumerate(ZBPerfCounterCallback callback, void *context) noexcept {
  if (callback == nullptr)
    return ZBErrorInvalidArgument;
  const int32_t count = sCount.load(std::memory_order_acquire);
  for (int32_t counterID = 1; counterID <= count; ++counterID)
    if (!callback(counterID, zb::trace::nameText(sNameIDs[counterID - 1]),
                  ZBPerfCounterGet(counterID), context))
      break;
  return ZBErrorNone;
}

namespace zb::trace {

void recordCounters() noexcept {
  const int32_t count = sCount.load(std::memory_order_acquire);
  for (int32_t counterID = 1; counterID <= count; ++counterID)
    ZBTraceCounter(sNameIDs[counterID - 1], ZBPerfCounterGet(counterID));
}

} // namespace zb::trace
