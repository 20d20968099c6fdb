// The shape both socket side tables share: exactly 64 singly linked chains
// keyed by handle & 63, never resized, under one spin lock of their own.
// A record type has a `socket` key and a `next` link. The lock is taken by
// the caller (ScopedLock on lock()) around every use.
#pragma once

#include "ZBLock.h"
#include "ZBSocket.h"

#include <utility>

namespace zb::sockets {

template <typename Record>
class SocketChains {
public:
  static constexpr uint32_t kBucketCount = 64;

  ZBSpinLock *lock() { return &mLock; }

  Record *find(ZBSocket socket) {
    for (Record *record = *bucketOf(socket); record != nullptr; record = record->next)
      if (record->socket == socket)
        return record;
    return nullptr;
  }
  // Links a record at the head of its chain.
  void push(Record *record) {
    Record **bucket = bucketOf(record->socket);
    record->next = *bucket;
    *bucket = record;
  }
  // Unlinks and answers the socket's first record, or null.
  Record *unlink(ZBSocket socket) {
    for (Record **link = bucketOf(socket); *link != nullptr; link = &(*link)->next)
      if ((*link)->socket == socket)
        return std::exchange(*link, (*link)->next);
    return nullptr;
  }

private:
  Record **bucketOf(ZBSocket socket) { return &mBuckets[socket & (kBucketCount - 1)]; }

  ZBSpinLock mLock = 0;
  Record *mBuckets[kBucketCount] = {};
};

} // namespace zb::sockets
