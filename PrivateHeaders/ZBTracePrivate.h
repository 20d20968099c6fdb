// The tracer's pieces as the library's own sources see them: the recording
// flag the event calls test, the recorder, the name table, the sinks a
// session writes to, and the hooks of the log and the start-up sequence.
#pragma once

#include "ZBError.h"

#include <atomic>
#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace zb::trace {

// Non-zero while a session records: the one load of every idle event call.
extern std::atomic<uint32_t> gRecording;

inline bool recording() { return gRecording.load(std::memory_order_relaxed) != 0; }

// Appends one event to the calling thread's chunk.
void record(uint16_t type, int32_t nameID, int64_t value, const char *text,
            size_t textBytes) noexcept;
// As record, with the text formatted into the thread's 128-byte buffer.
void recordFormatted(uint16_t type, const char *format, va_list arguments) noexcept;

// Where a session's bytes go. A failed write ends the session.
class Sink {
public:
  virtual ~Sink() = default;
  virtual bool write(const void *bytes, size_t length) noexcept = 0;
};
Sink *openFileSink(const char *path, ZBError *outError) noexcept;
// Hands `bytes` to `send(cursor, length)`, which answers the count it took
// (0 or less: failed), until all are taken; false when one send failed.
template <typename Send>
bool sendAll(const void *bytes, size_t length, Send send) {
  for (const char *cursor = static_cast<const char *>(bytes); length != 0;) {
    const long long sent = send(cursor, length);
    if (sent <= 0)
      return false;
    cursor += sent;
    length -= size_t(sent);
  }
  return true;
}
// TCP to host:port (the platform's socket layer).
Sink *openHostSink(const char *host, uint16_t port, ZBError *outError) noexcept;
// Takes the sink; ZBErrorAlready (and the sink deleted) while one records.
ZBError startSession(Sink *sink) noexcept;

// Starts the sampler thread, or wakes it, when a session starts.
void wakeSampler() noexcept;
// Writes every performance counter's value as a counter event.
void recordCounters() noexcept;

// The name table: ids from 1, for the life of the process.
int32_t defineName(const char *name) noexcept;
// The name's text; null for an unknown id. Names are never freed.
const char *nameText(int32_t nameID) noexcept;
// The highest id given so far.
int32_t lastNameID() noexcept;

// The log's level at or below which (and above Fatal's 2) its lines become
// events; Warning until ZB_TRACE_LEVEL says otherwise.
extern std::atomic<int32_t> gLogLevel;
// A log line's short record as an instant event.
void recordLogLine(const char *shortRecord) noexcept;

// Reads ZB_TRACE_LEVEL, ZB_TRACE_CONFIG and ZB_TRACE_CONFIG_FILE and starts
// the session they name when none records.
void readConfiguration() noexcept;

} // namespace zb::trace

// The start-up step: the per-thread chunk key, then the configuration.
void _ZBTraceStartup() noexcept;
