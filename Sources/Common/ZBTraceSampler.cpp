// The sampler: while a session records, a thread of the library's own
// ("zb-trace-sampler") writes every performance counter, the process's CPU
// time, resident memory and thread count, and the default zone's bytes as
// counter events, ten times a second. Between sessions it sleeps on a
// condition until the next one starts.
#include "ZBAlloc.h"
#include "ZBProcessStatistics.h"
#include "ZBThread.h"
#include "ZBTime.h"
#include "ZBTrace.h"
#include "ZBTracePrivate.h"

#include <pthread.h>

namespace {

constexpr int64_t kSampleIntervalNanoseconds = 100000000;

pthread_mutex_t sSamplerLock = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t sSessionStarted = PTHREAD_COND_INITIALIZER;
bool sSamplerRunning;

void sampleProcess() {
  static const int32_t kCPU = ZBTraceDefineName("process.cpu_ns");
  static const int32_t kResident = ZBTraceDefineName("process.resident_bytes");
  static const int32_t kThreads = ZBTraceDefineName("process.threads");
  static const int32_t kZone = ZBTraceDefineName("zone.default_bytes");
  zb::platform::ProcessStatistics statistics;
  if (zb::platform::processStatistics(&statistics)) {
    ZBTraceCounter(kCPU, statistics.cpuNanoseconds);
    ZBTraceCounter(kResident, statistics.residentBytes);
    ZBTraceCounter(kThreads, statistics.threadCount);
  }
  ZBTraceCounter(kZone, static_cast<int64_t>(ZBZoneGetFootprint(ZBZoneGetDefaultZone())));
}

void *samplerMain(void *) {
  for (;;) {
    pthread_mutex_lock(&sSamplerLock);
    while (!zb::trace::recording())
      pthread_cond_wait(&sSessionStarted, &sSamplerLock);
    pthread_mutex_unlock(&sSamplerLock);
    zb::trace::recordCounters();
    sampleProcess();
    ZBHRSleep(kSampleIntervalNanoseconds);
  }
  return nullptr;
}

} // namespace

namespace zb::trace {

void wakeSampler() noexcept {
  pthread_mutex_lock(&sSamplerLock);
  if (!sSamplerRunning)
    sSamplerRunning = ZBThreadCreate("zb-trace-sampler", samplerMain, nullptr,
                                     ZBThreadPriorityDefault, 0, ZBThreadFlagDetached) != 0;
  pthread_cond_broadcast(&sSessionStarted);
  pthread_mutex_unlock(&sSamplerLock);
}

} // namespace zb::trace
