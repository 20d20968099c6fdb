// The sampling profiler's sampler on POSIX systems: none yet. Stopping
// another thread and reading its registers needs signals and an unwinder of
// this platform's own, so the profiler does not start here.
#include "ZBProfilerPrivate.h"

namespace zb::profiler {

void forEachLibraryThread(void (*)(uint32_t)) noexcept {}

ZBError startSampler(int64_t) noexcept { return ZBErrorUnsupported; }

void stopSampler() noexcept {}

std::string resolveFrame(const std::string &frame) { return frame; }

} // namespace zb::profiler
