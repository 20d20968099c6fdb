// One pointer per thread for the hot path of ZBThreadGetSpecific, which
// rides on it to find the caller's table of key values. Each platform gives
// its fastest thread-local storage (Sources/Win32, Sources/POSIX): the
// POSIX-threads library's own key lookup, which the table also sits under
// so that its destructor runs at thread exit, is several times slower.
#pragma once

#include <cstdint>

namespace zb::platform {

// Makes the slot; false when the system has none left. Called once, at load.
bool createThreadTableSlot() noexcept;
// The caller's pointer; null until set.
void *threadTableSlot() noexcept;
void setThreadTableSlot(void *table) noexcept;
// The slot as the inline lookups of ZBThread.h address it, or UINT32_MAX
// when they cannot (another platform, or a slot beyond their reach).
uint32_t inlineThreadTableSlot() noexcept;

} // namespace zb::platform
