// System-trace spans. No system trace is attached on this platform, so the
// spans are dropped; the calls stay so that lock waits are bracketed where a
// trace backend will see them.
#include "ZBSystemTrace.h"

void _ZBSystraceBeginFormat(const char *, ...) noexcept {}

void _ZBSystraceEnd() noexcept {}
