// The sampling profiler's pieces: the set of threads it samples (kept in
// Sources/Common) and the platform's sampler thread that stops each one in
// turn, copies its stack and records the unwound frames as a sample event.
#pragma once

#include "ZBError.h"

#include <cstddef>
#include <cstdint>
#include <string>

namespace zb::profiler {

constexpr size_t kMaxTargets = 256;

// Copies the IDs of the threads to sample; returns how many.
size_t copyTargets(uint32_t *out, size_t capacity) noexcept;

// Calls `visit` with each running thread that the library created.
void forEachLibraryThread(void (*visit)(uint32_t threadID)) noexcept;

// Starts the sampler thread (and its watchdog); ZBErrorUnsupported where the
// platform cannot stop and read threads.
ZBError startSampler(int64_t intervalNanoseconds) noexcept;
// Stops and joins them.
void stopSampler() noexcept;

// A sample's frame ("module+0xoffset") named by its function when the
// module is loaded in this process and its symbols say; else as given.
std::string resolveFrame(const std::string &frame);

} // namespace zb::profiler
