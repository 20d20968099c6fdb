// Spans of the system trace, which show where the library's threads wait:
// they go into the running trace session (ZBTrace.h) and cost one load
// while none records.
#pragma once

#include "ZBBase.h"

// Opens a span named by the printf-style `format`; spans nest per thread.
void _ZBSystraceBeginFormat(const char *format, ...) noexcept ZB_PRINTF_LIKE(1, 2);
// Closes the calling thread's innermost open span.
void _ZBSystraceEnd() noexcept;

namespace zb {

// Brackets a blocking lock wait: the span is named `format` with the lock's
// address (for example "MutexWait[%p]").
class SystraceWaitSpan {
public:
  SystraceWaitSpan(const char *format, const void *lock) noexcept {
    _ZBSystraceBeginFormat(format, lock);
  }
  ~SystraceWaitSpan() { _ZBSystraceEnd(); }
  SystraceWaitSpan(const SystraceWaitSpan &) = delete;
  SystraceWaitSpan &operator=(const SystraceWaitSpan &) = delete;
};

} // namespace zb
