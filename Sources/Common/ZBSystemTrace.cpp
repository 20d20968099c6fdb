// System-trace spans: the library's own waits (lock contention) as spans in
// the running trace session. The name is formatted into the thread's
// 128-byte buffer, never the heap; while no session records a span costs
// one load.
#include "ZBSystemTrace.h"

#include "ZBTrace.h"
#include "ZBTracePrivate.h"

void _ZBSystraceBeginFormat(const char *format, ...) noexcept {
  if (ZB_LIKELY(!zb::trace::recording()))
    return;
  va_list arguments;
  va_start(arguments, format);
  zb::trace::recordFormatted(ZBTraceEventBegin, format, arguments);
  va_end(arguments);
}

void _ZBSystraceEnd() noexcept {
  if (ZB_LIKELY(!zb::trace::recording()))
    return;
  zb::trace::record(ZBTraceEventEnd, 0, 0, nullptr, 0);
}
