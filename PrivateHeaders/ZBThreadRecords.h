// Per-thread records that other threads also visit (the tracer's chunks, the
// performance counters' shards): each is made on its thread's first use,
// kept under a thread key for the owner's fast lookup, and linked into a
// list, under the list's lock, for the readers that walk every thread's
// record. The key's destructor unlinks it when the thread ends.
#pragma once

#include "ZBScopedLock.h"
#include "ZBThread.h"

#include <new>
#include <pthread.h>

namespace zb {

// `Record` has `Record *next, *previous`.
template <typename Record>
struct ThreadRecords {
  pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
  Record *head = nullptr;
  ZBThreadKey key = -1;

  // The caller's record, made with `Record(arguments...)` and linked on
  // first use; null when no key exists yet or memory runs out.
  template <typename... Arguments>
  Record *current(Arguments... arguments) {
    if (key < 0)
      return nullptr;
    if (auto *record = static_cast<Record *>(ZBThreadGetSpecific(key)))
      return record;
    auto *record = new (std::nothrow) Record{arguments...};
    if (record == nullptr)
      return nullptr;
    if (ZBThreadSetSpecific(key, record) != ZBErrorNone) {
      delete record;
      return nullptr;
    }
    zb::ScopedLock hold(&lock);
    record->next = head;
    if (head)
      head->previous = record;
    head = record;
    return record;
  }

  // Takes the record out of the list; the lock is held.
  void unlinkLocked(Record *record) {
    (record->previous ? record->previous->next : head) = record->next;
    if (record->next)
      record->next->previous = record->previous;
  }
};

} // namespace zb
