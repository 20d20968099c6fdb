// The event calls. Each tests the recording flag first, so that while no
// session records it costs one load and a branch and nothing else.
#include "ZBTrace.h"

#include "ZBTracePrivate.h"

#include <cstring>

using zb::trace::recording;

extern "C" void ZBTraceBegin(int32_t nameID) noexcept {
  if (ZB_LIKELY(!recording()))
    return;
  zb::trace::record(ZBTraceEventBegin, nameID, 0, nullptr, 0);
}

extern "C" void ZBTraceEnd(int32_t nameID) noexcept {
  if (ZB_LIKELY(!recording()))
    return;
  zb::trace::record(ZBTraceEventEnd, nameID, 0, nullptr, 0);
}

extern "C" void ZBTraceBeginFormat(const char *format, ...) noexcept {
  if (ZB_LIKELY(!recording()) || format == nullptr)
    return;
  va_list arguments;
  va_start(arguments, format);
  zb::trace::recordFormatted(ZBTraceEventBegin, format, arguments);
  va_end(arguments);
}

extern "C" void ZBTraceInstant(int32_t nameID, const char *text) noexcept {
  if (ZB_LIKELY(!recording()))
    return;
  zb::trace::record(ZBTraceEventInstant, nameID, 0, text, text ? std::strlen(text) : 0);
}

extern "C" void ZBTraceCounter(int32_t nameID, int64_t value) noexcept {
  if (ZB_LIKELY(!recording()))
    return;
  zb::trace::record(ZBTraceEventCounter, nameID, value, nullptr, 0);
}

extern "C" ZBError ZBTraceStart(const char *path) noexcept {
  if (path == nullptr)
    return ZBErrorInvalidArgument;
  if (recording())
    return ZBErrorAlready;
  ZBError error = ZBErrorNone;
  zb::trace::Sink *sink = zb::trace::openFileSink(path, &error);
  return sink ? zb::trace::startSession(sink) : error;
}

extern "C" ZBError ZBTraceStartHost(const char *host, uint16_t port) noexcept {
  if (host == nullptr || port == 0)
    return ZBErrorInvalidArgument;
  if (recording())
    return ZBErrorAlready;
  ZBError error = ZBErrorNone;
  zb::trace::Sink *sink = zb::trace::openHostSink(host, port, &error);
  return sink ? zb::trace::startSession(sink) : error;
}

namespace zb::trace {

void recordLogLine(const char *shortRecord) noexcept {
  static const int32_t sLogName = defineName("log");
  record(ZBTraceEventInstant, sLogName, 0, shortRecord, std::strlen(shortRecord));
}

} // namespace zb::trace
