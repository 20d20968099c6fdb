// What the lock records (mutex, reader/writer lock, condition variable) do
// alike: setting up a record that Create allocated or that Init was handed,
// naming it for traces, and the acquire that tries the non-blocking call
// first so that an uncontended lock makes no trace call.
#pragma once

#include "ZBSystemTrace.h"
#include "ZBTrace.h"

#include <cstdint>

namespace zb::lock {

// Create: sets up the freshly allocated `block`; no memory (null) stays null.
template <typename Record, typename SetUp>
Record *setUpAllocated(void *block, SetUp setUp) {
  auto *record = static_cast<Record *>(block);
  if (record != nullptr)
    setUp(record);
  return record;
}

// Init: sets up a record in the caller's storage; false when there is none.
template <typename Record, typename SetUp>
bool setUpInPlace(Record *record, SetUp setUp) {
  if (record == nullptr)
    return false;
  setUp(record);
  return true;
}

// SetTraceName: stores and returns the name's trace identifier; 0 when there
// is no record.
template <typename Record>
int32_t defineTraceName(Record *record, int32_t Record::*nameField, const char *name) {
  if (record == nullptr)
    return 0;
  record->*nameField = ZBTraceDefineName(name);
  return record->*nameField;
}

// Takes `lock`: `tryAcquire` first; only when that fails, `acquire` blocks
// inside a system-trace span named `waitSpanFormat` with the lock's address.
template <typename Record, typename TryAcquire, typename Acquire>
void acquireTryingFirst(Record *lock, const char *waitSpanFormat, TryAcquire tryAcquire,
                        Acquire acquire) {
  if (tryAcquire(lock))
    return;
  SystraceWaitSpan span(waitSpanFormat, lock);
  acquire(lock);
}

} // namespace zb::lock
