// The recorder: each thread fills a 64 KiB chunk of its own, guarded only by
// a flag that its owner takes alone on the hot path and that flushes take
// at session boundaries; a full chunk goes to the session's sink under the
// session lock, after the definitions of any names defined since the last
// one. A thread that ends hands its chunk over first.
#include "qprintf.h"
#include "ZBLog.h"
#include "ZBPlatform.h"
#include "ZBScopedLock.h"
#include "ZBThread.h"
#include "ZBTime.h"
#include "ZBTrace.h"
#include "ZBTraceFormat.h"
#include "ZBThreadRecords.h"
#include "ZBTracePrivate.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <pthread.h>
#include <vector>

namespace zb::trace {
std::atomic<uint32_t> gRecording{0};
} // namespace zb::trace

namespace {

using namespace zb::trace;

struct ThreadBuffer {
  explicit ThreadBuffer(uint32_t thread) : threadID(thread) {}
  std::atomic<uint32_t> busy{0};
  uint32_t threadID;
  uint32_t generation = 0; // the session the chunk's events belong to
  size_t used = 0;         // event bytes after the chunk header
  ThreadBuffer *next = nullptr;
  ThreadBuffer *previous = nullptr;
  char systraceText[128]; // system-trace span names are formatted here
  uint8_t bytes[kChunkHeaderBytes + kChunkBytes];
};

// Lock order: sControlLock, sBuffers' lock, a buffer's flag, sSessionLock.
pthread_mutex_t sControlLock = PTHREAD_MUTEX_INITIALIZER; // start, stop, flush
pthread_mutex_t sSessionLock = PTHREAD_MUTEX_INITIALIZER; // the sink
zb::ThreadRecords<ThreadBuffer> sBuffers;
Sink *sSink;
std::atomic<uint32_t> sGeneration{0};
int32_t sNamesWritten; // the highest name id the session has defined
std::atomic<bool> sFailureReported{false};
// The thread that writes to the sink: what it logs meanwhile (the socket
// layer logs its failures) is not recorded, as that would come back to the
// lock it holds.
std::atomic<uint32_t> sWritingThread{0};

// Holds the session lock and marks the caller as the sink's writer.
class SinkWriting {
public:
  SinkWriting() {
    pthread_mutex_lock(&sSessionLock);
    sWritingThread.store(zb::platform::currentThreadID(), std::memory_order_relaxed);
  }
  ~SinkWriting() {
    sWritingThread.store(0, std::memory_order_relaxed);
    pthread_mutex_unlock(&sSessionLock);
  }
  SinkWriting(const SinkWriting &) = delete;
  SinkWriting &operator=(const SinkWriting &) = delete;
};

bool isWritingSink(const ThreadBuffer *buffer) {
  return sWritingThread.load(std::memory_order_relaxed) == buffer->threadID;
}

class BufferHold {
public:
  explicit BufferHold(ThreadBuffer *buffer) : mBuffer(buffer) {
    while (mBuffer->busy.exchange(1, std::memory_order_acquire) != 0)
      ZBThreadYield();
  }
  ~BufferHold() { mBuffer->busy.store(0, std::memory_order_release); }
  BufferHold(const BufferHold &) = delete;
  BufferHold &operator=(const BufferHold &) = delete;

private:
  ThreadBuffer *mBuffer;
};

// Ends the session after a failed write; the session lock is held.
void failSessionLocked() {
  gRecording.store(0, std::memory_order_relaxed);
  delete sSink;
  sSink = nullptr;
}

void reportWriteFailure() {
  ZB_LOG_WARNING("Trace session stopped: the trace could not be written");
}

bool writeNamesLocked() {
  const int32_t last = lastNameID();
  if (last <= sNamesWritten)
    return true;
  std::vector<uint8_t> chunk(kChunkHeaderBytes);
  for (int32_t id = sNamesWritten + 1; id <= last; ++id) {
    const char *name = nameText(id);
    const size_t length = std::min(std::strlen(name), kMaxTextBytes);
    const size_t at = chunk.size();
    chunk.resize(at + kRecordHeaderBytes + length);
    encodeRecord(chunk.data() + at, kRecordNameDefinition, id, 0, 0, name, length);
  }
  encodeChunkHeader(chunk.data(), 0, static_cast<uint32_t>(chunk.size() - kChunkHeaderBytes));
  if (!sSink->write(chunk.data(), chunk.size()))
    return false;
  sNamesWritten = last;
  return true;
}

// Hands the buffer's events to the sink; the buffer's flag is held. False
// when this write failed and ended the session: its caller, once it holds
// nothing, logs the one Warning.
bool writeChunk(ThreadBuffer *buffer) {
  bool written = true;
  {
    SinkWriting writing;
    if (sSink != nullptr && buffer->used != 0 &&
        buffer->generation == sGeneration.load(std::memory_order_relaxed)) {
      encodeChunkHeader(buffer->bytes, buffer->threadID, static_cast<uint32_t>(buffer->used));
      written = writeNamesLocked() && sSink->write(buffer->bytes, kChunkHeaderBytes + buffer->used);
      if (!written)
        failSessionLocked();
    }
  }
  buffer->used = 0;
  return written || sFailureReported.exchange(true);
}

void append(ThreadBuffer *buffer, uint16_t type, int32_t nameID, int64_t time, int64_t value,
            const char *text, size_t textBytes) {
  buffer->used += encodeRecord(buffer->bytes + kChunkHeaderBytes + buffer->used, type, nameID, time,
                               value, text, textBytes);
}

void releaseBuffer(void *value) {
  auto *buffer = static_cast<ThreadBuffer *>(value);
  bool failed = false;
  {
    zb::ScopedLock lock(&sBuffers.lock);
    sBuffers.unlinkLocked(buffer);
    BufferHold hold(buffer);
    failed = !writeChunk(buffer);
  }
  delete buffer;
  if (failed)
    reportWriteFailure();
}

ThreadBuffer *currentBuffer() { return sBuffers.current(zb::platform::currentThreadID()); }

// Makes room for a record of `textBytes`; the buffer's flag is held. False
// when nothing records (any more) or the write of the full chunk failed.
bool prepare(ThreadBuffer *buffer, size_t textBytes, bool *outFailed) {
  if (!recording())
    return false;
  const uint32_t generation = sGeneration.load(std::memory_order_acquire);
  if (buffer->generation != generation) {
    buffer->generation = generation;
    buffer->used = 0;
    const char *threadName = zb::platform::currentThreadName();
    append(buffer, ZBTraceEventThreadName, 0, ZBHRTimeMonotonic(), 0, threadName,
           std::min(std::strlen(threadName), kMaxTextBytes));
  }
  if (buffer->used + kRecordHeaderBytes + textBytes > kChunkBytes && !writeChunk(buffer)) {
    *outFailed = true;
    return false;
  }
  return recording();
}

// Writes every thread's pending events.
void flushAll() {
  bool failed = false;
  {
    zb::ScopedLock lock(&sBuffers.lock);
    for (ThreadBuffer *buffer = sBuffers.head; buffer != nullptr; buffer = buffer->next) {
      BufferHold hold(buffer);
      failed = !writeChunk(buffer) || failed;
    }
  }
  if (failed)
    reportWriteFailure();
}

} // namespace

namespace zb::trace {

void record(uint16_t type, int32_t nameID, int64_t value, const char *text,
            size_t textBytes) noexcept {
  const int64_t time = ZBHRTimeMonotonic();
  ThreadBuffer *buffer = currentBuffer();
  if (buffer == nullptr || isWritingSink(buffer))
    return;
  textBytes = std::min(textBytes, kMaxTextBytes);
  bool failed = false;
  {
    BufferHold hold(buffer);
    if (prepare(buffer, textBytes, &failed))
      append(buffer, type, nameID, time, value, text, textBytes);
  }
  if (failed)
    reportWriteFailure();
}

void recordFormatted(uint16_t type, const char *format, va_list arguments) noexcept {
  const int64_t time = ZBHRTimeMonotonic();
  ThreadBuffer *buffer = currentBuffer();
  if (buffer == nullptr || isWritingSink(buffer))
    return;
  bool failed = false;
  {
    BufferHold hold(buffer);
    const int length =
        vqsnprintf(buffer->systraceText, sizeof buffer->systraceText, format, arguments);
    const size_t textBytes =
        length < 0 ? 0 : std::min(size_t(length), sizeof buffer->systraceText - 1);
    if (prepare(buffer, textBytes, &failed))
      append(buffer, type, 0, time, 0, buffer->systraceText, textBytes);
  }
  if (failed)
    reportWriteFailure();
}

ZBError startSession(Sink *sink) noexcept {
  {
    zb::ScopedLock control(&sControlLock);
    SinkWriting writing;
    if (sSink != nullptr) {
      delete sink;
      return ZBErrorAlready;
    }
    uint8_t header[kFileHeaderBytes];
    encodeFileHeader(header, zb::platform::processID());
    if (!sink->write(header, sizeof header)) {
      delete sink;
      return ZBErrorIO;
    }
    sSink = sink;
    sNamesWritten = 0;
    sFailureReported.store(false);
    sGeneration.fetch_add(1, std::memory_order_release);
    gRecording.store(1, std::memory_order_release);
  }
  wakeSampler();
  return ZBErrorNone;
}

} // namespace zb::trace

void _ZBTraceStartup() noexcept {
  sBuffers.key = ZBThreadKeyCreate(releaseBuffer);
  zb::trace::readConfiguration();
}

extern "C" bool ZBTraceIsInitialized(void) noexcept { return recording(); }

extern "C" ZBError ZBTraceStop(void) noexcept {
  zb::ScopedLock control(&sControlLock);
  {
    zb::ScopedLock lock(&sSessionLock);
    if (sSink == nullptr)
      return ZBErrorNotFound;
    gRecording.store(0, std::memory_order_relaxed);
  }
  flushAll();
  zb::ScopedLock lock(&sSessionLock);
  delete sSink;
  sSink = nullptr;
  return ZBErrorNone;
}

extern "C" ZBError ZBTraceFlush(void) noexcept {
  zb::ScopedLock control(&sControlLock);
  if (!recording())
    return ZBErrorNotFound;
  flushAll();
  return ZBErrorNone;
}
