// The sampling profiler's front: the threads it samples, its start and stop
// (a running trace session takes the samples), and its start-up, which
// learns the main thread, offers the settings as the option
// "QUOVEX_PROFILER" ("interval=1ms,all") and starts the profiler when they
// are set.
#include "ZBInitializer.h"
#include "ZBLog.h"
#include "ZBOption.h"
#include "ZBProfilerPrivate.h"
#include "ZBScopedLock.h"
#include "ZBThread.h"
#include "ZBTrace.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <pthread.h>

namespace {

uint32_t sMainThreadID;
char *sSettings; // owned by the option

// Lock order: sControlLock, then sTargetsLock; the sampler takes only the
// second, so a stop may wait for it while holding the first.
pthread_mutex_t sControlLock = PTHREAD_MUTEX_INITIALIZER; // start and stop
pthread_mutex_t sTargetsLock = PTHREAD_MUTEX_INITIALIZER;
uint32_t sTargets[zb::profiler::kMaxTargets];
size_t sTargetCount;
bool sRunning;
std::atomic<bool> sMonitoringNewThreads{false};

// Units of "interval=": the number's multiplier to nanoseconds.
constexpr struct {
  const char *suffix;
  int64_t nanoseconds;
} kIntervalUnits[] = {{"ns", 1}, {"us", 1000}, {"ms", 1000000}, {"s", 1000000000}};

// "interval=<number><unit>" and "all", separated by ","; false for
// anything else.
bool parseSettings(const char *text, int64_t *outInterval, uint32_t *outFlags) {
  *outInterval = 1000000;
  *outFlags = 0;
  for (const char *item = text; *item != '\0';) {
    const char *end = std::strchr(item, ',');
    const size_t length = end ? size_t(end - item) : std::strlen(item);
    if (length == 3 && std::strncmp(item, "all", 3) == 0) {
      *outFlags |= ZBProfilerFlagAllThreads;
    } else if (length > 9 && std::strncmp(item, "interval=", 9) == 0) {
      char *unit = nullptr;
      const long long number = std::strtoll(item + 9, &unit, 10);
      const size_t unitLength = length - size_t(unit - item);
      const auto *match =
          std::find_if(std::begin(kIntervalUnits), std::end(kIntervalUnits), [&](const auto &row) {
            return std::strlen(row.suffix) == unitLength &&
                   std::strncmp(unit, row.suffix, unitLength) == 0;
          });
      if (number <= 0 || match == std::end(kIntervalUnits))
        return false;
      *outInterval = number * match->nanoseconds;
    } else {
      return false;
    }
    item += length + (end ? 1 : 0);
  }
  return true;
}

void startProfiler() {
  sMainThreadID = ZBThreadGetCurrentThreadID();
  ZBOptionRegister("QUOVEX_PROFILER", "ZB profiler", "ZB profiler settings", ZBOptionTypeString,
                   &sSettings, nullptr, nullptr);
  if (sSettings == nullptr || sSettings[0] == '\0')
    return;
  int64_t interval = 0;
  uint32_t flags = 0;
  if (!parseSettings(sSettings, &interval, &flags)) {
    ZB_LOG_WARNING("Invalid QUOVEX_PROFILER settings ignored: `%s`", sSettings);
    return;
  }
  const ZBError error = ZBProfilerStart(interval, flags);
  if (error != ZBErrorNone)
    ZB_LOG_WARNING("QUOVEX_PROFILER: the profiler did not start: %d", int(error));
}

// Runs before the library's load-time constructor.
__attribute__((constructor(200))) void registerProfiler() {
  ZBInitializerRegister_internal(startProfiler, 1, "ZBProfilerInitializer_constructor");
}

void addLocked(uint32_t threadID) {
  const uint32_t *end = sTargets + sTargetCount;
  if (std::find(static_cast<const uint32_t *>(sTargets), end, threadID) == end &&
      sTargetCount < zb::profiler::kMaxTargets)
    sTargets[sTargetCount++] = threadID;
}

void addUnlocked(uint32_t threadID) { ZBProfilerAddThread(threadID); }

} // namespace

namespace zb::profiler {

size_t copyTargets(uint32_t *out, size_t capacity) noexcept {
  zb::ScopedLock lock(&sTargetsLock);
  const size_t count = std::min(capacity, sTargetCount);
  std::copy(sTargets, sTargets + count, out);
  return count;
}

} // namespace zb::profiler

extern "C" bool ZBProfilerIsMonitoringNewThreads(void) noexcept {
  return sMonitoringNewThreads.load(std::memory_order_relaxed);
}

extern "C" void ZBProfilerAddThread(uint32_t threadID) noexcept {
  zb::ScopedLock lock(&sTargetsLock);
  addLocked(threadID);
}

extern "C" void ZBProfilerRemoveThread(uint32_t threadID) noexcept {
  zb::ScopedLock lock(&sTargetsLock);
  uint32_t *end = sTargets + sTargetCount;
  uint32_t *found = std::find(sTargets, end, threadID);
  if (found != end) {
    *found = *(end - 1);
    --sTargetCount;
  }
}

extern "C" ZBError ZBProfilerStart(int64_t intervalNanoseconds, uint32_t flags) noexcept {
  if (intervalNanoseconds <= 0 || (flags & ~ZBProfilerFlagAllThreads) != 0)
    return ZBErrorInvalidArgument;
  if (!ZBTraceIsInitialized())
    return ZBErrorUnsupported;
  zb::ScopedLock lock(&sControlLock);
  if (sRunning)
    return ZBErrorAlready;
  if (flags & ZBProfilerFlagAllThreads) {
    ZBProfilerAddThread(sMainThreadID != 0 ? sMainThreadID : ZBThreadGetCurrentThreadID());
    zb::profiler::forEachLibraryThread(addUnlocked);
    sMonitoringNewThreads.store(true);
  }
  const ZBError error = zb::profiler::startSampler(intervalNanoseconds);
  sRunning = error == ZBErrorNone;
  if (!sRunning)
    sMonitoringNewThreads.store(false);
  return error;
}

extern "C" ZBError ZBProfilerStop(void) noexcept {
  zb::ScopedLock lock(&sControlLock);
  if (!sRunning)
    return ZBErrorNotFound;
  sRunning = false;
  sMonitoringNewThreads.store(false);
  zb::profiler::stopSampler();
  return ZBErrorNone;
}
