// What the thread modules share with each other and with the library's
// start-up: the start-up steps, the mapping of POSIX-threads error numbers,
// the thread-start hook and the walk over the suspend registry.
#pragma once

#include "ZBThread.h"

// Threads' load-time step: creates the key that holds each registered
// thread's record and registers the "__ZBThreadInit" initializer.
void _ZBThreadStartup() noexcept;
// The "__ZBThreadInit" initializer (priority 4), run by ZBInitializerRun:
// registers the calling thread as the main thread (its record, the
// main-thread handle, its suspend-registry entry) and names it "qv-main".
void __ZBThreadInit() noexcept;

// Thread keys' load-time step ("__ZBThreadKeyInit"): the key table and the
// per-thread tables' slot. Runs once; Fatal when the slot cannot be made.
void _ZBThreadKeyStartup() noexcept;

// A POSIX-threads error number as a library code.
ZBError _ZBThreadErrorFromPosixThreads(int error) noexcept;

// Called by every thread that ZBThreadCreate starts, before its function,
// and by ZBThreadRegisterWithProfiler. Null unless a profiler installs one.
extern void (*_gZBThreadStartHook)(void);

// Adds the ID to the suspend registry unless an entry for it is there.
void _ZBThreadSuspendRegistryAddUnlessPresent(uint32_t threadID) noexcept;
// Whether the ID has an entry, suspendable or not.
bool _ZBThreadSuspendRegistryContains(uint32_t threadID) noexcept;
// Calls `visit` with the ID of every suspendable entry, newest first, while
// holding the suspend registry's mutex, so no thread can enter or leave the
// registry meanwhile.
void _ZBThreadSuspendRegistryVisitSuspendable(void (*visit)(uint32_t threadID)) noexcept;
