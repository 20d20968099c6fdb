// Another thread's registers and the top of its stack, copied while the
// thread is stopped for as short a time as possible, and the unwinder that
// turns the copy into return addresses once the thread runs again. The
// backtraces of other threads, the sampling profiler and crash reports all
// walk stacks this way. Included by Sources/Win32 only.
//
// Between suspending and resuming the target nothing here allocates or takes
// a lock: the target may hold the heap's lock or the loader lock, and a
// caller that waits for either while the target is stopped never wakes.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>

namespace zb::stack {

// Storage for one capture, made by the caller before it suspends anything.
struct Snapshot {
  CONTEXT registers;      // as the thread was stopped
  uintptr_t stackPointer; // the thread's own address of bytes[0]
  size_t copied;          // bytes copied from stackPointer toward the stack base
  uint8_t *bytes;         // the caller's buffer of `capacity` bytes
  size_t capacity;
};

// Suspends `thread` (opened with THREAD_SUSPEND_RESUME, THREAD_GET_CONTEXT
// and THREAD_QUERY_INFORMATION), reads its registers, copies at most
// `snapshot.capacity` bytes of its stack from the stack pointer upward, and
// resumes it. False when the thread could not be stopped or read; the
// thread is running again either way.
bool capture(HANDLE thread, Snapshot &snapshot) noexcept;

// Fills `snapshot` from the calling thread's own registers and stack, as
// seen by the caller of captureCurrent.
void captureCurrent(Snapshot &snapshot) noexcept;

// Unwinds a snapshot with the modules' unwind tables, reading the stack only
// inside the copy: frames[0] is the instruction pointer where the thread
// stopped, the others are return addresses. The walk ends at the end of the
// copy, at an address outside every loaded module, or after `capacity`
// frames. Returns the number of frames written. Takes no lock and touches no
// heap, so a crash reporter may call it while other threads are stopped.
uint32_t unwind(const Snapshot &snapshot, void **frames, uint32_t capacity) noexcept;

} // namespace zb::stack
