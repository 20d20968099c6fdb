// One pointer per thread for the hot path of ZBThreadGetSpecific, which
// rides on it to find the caller's table of key values. Each platform gives
// its fastest thread-local storage (Sources/Win32, Sources/POSIX): the
// POSIX-threads library's own key lookup, which the table also sits under
// so that its destructor runs at thread exit, is several times slower.
#pragma once

namespace zb::platform {

// Makes the slot; false when the system has none left. Called once, at load.
bool createThreadTableSlot() noexcept;
// The caller's pointer; null until set.
void *threadTableSlot() noexcept;
void setThreadTableSlot(void *table) noexcept;

} // namespace zb::platform
