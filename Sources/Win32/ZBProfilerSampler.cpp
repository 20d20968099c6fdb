// The sampling profiler's sampler on Windows. At each interval it stops
// every target thread in turn through the stack-snapshot service, which
// copies the registers and the top of the stack into a buffer made when the
// profiler started and resumes the thread at once; only then are the frames
// unwound and named, and the sample recorded as a trace event (value: the
// target's ID; text: its frames, outermost first, separated by ";"). While a
// target is stopped nothing here touches the heap or a lock. A watchdog
// resumes a target held over a second.
#include "ZBBacktrace.h"
#include "ZBLog.h"
#include "ZBModuleTable.h"
#include "ZBProfilerPrivate.h"
#include "ZBStackSnapshot.h"
#include "ZBThread.h"
#include "ZBThreadHandle.h"
#include "ZBTime.h"
#include "ZBTrace.h"
#include "ZBTraceFormat.h"
#include "ZBTracePrivate.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace {

constexpr size_t kStackCopyBytes = 64 * 1024;
constexpr uint32_t kMaxFrames = 128;
constexpr size_t kModuleCacheSize = 64;
constexpr int64_t kWatchdogPeriodNanoseconds = 100000000;
constexpr int64_t kLongestHoldNanoseconds = 1000000000;
constexpr DWORD kTargetAccess =
    THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT | THREAD_QUERY_INFORMATION;

struct ModuleName {
  uintptr_t base;
  char name[64];
};

// Everything a sample needs, made before the first thread is stopped.
struct Sampler {
  int64_t interval;
  std::atomic<bool> running{true};
  uint32_t samplerID = 0;
  uint32_t watchdogID = 0;
  uint8_t stack[kStackCopyBytes];
  void *frames[kMaxFrames];
  uint32_t targets[zb::profiler::kMaxTargets];
  char text[zb::trace::kMaxTextBytes];
  ModuleName modules[kModuleCacheSize];
  size_t moduleCount = 0;
  ZBThread samplerThread = 0;
  ZBThread watchdogThread = 0;
};

Sampler *sSampler;
// The target being held, for the watchdog; 0 while none is.
std::atomic<HANDLE> sHeldThread{nullptr};
std::atomic<int64_t> sHeldSince{0};

const char *moduleName(Sampler &sampler, uintptr_t base) {
  for (size_t i = 0; i < sampler.moduleCount; ++i)
    if (sampler.modules[i].base == base)
      return sampler.modules[i].name;
  char path[MAX_PATH] = "?";
  GetModuleFileNameA(reinterpret_cast<HMODULE>(base), path, sizeof path);
  const char *slash = std::strrchr(path, '\\');
  ModuleName &slot = sampler.modules[sampler.moduleCount % kModuleCacheSize];
  if (sampler.moduleCount < kModuleCacheSize)
    ++sampler.moduleCount;
  slot.base = base;
  std::snprintf(slot.name, sizeof slot.name, "%s", slash ? slash + 1 : path);
  return slot.name;
}

// A frame as a sample names it: "module+0xoffset". Symbols are looked up
// at export (resolveFrame), not while sampling.
int nameFrame(Sampler &sampler, uintptr_t address, char *out, size_t room) {
  zb::modules::CodeRange range{};
  if (!zb::modules::find(address, range))
    return std::snprintf(out, room, "0x%llx", static_cast<unsigned long long>(address));
  return std::snprintf(out, room, "%s+0x%llx", moduleName(sampler, range.base),
                       static_cast<unsigned long long>(address - range.base));
}

void sampleThread(Sampler &sampler, uint32_t threadID) {
  zb::ThreadHandle thread(kTargetAccess, threadID);
  if (!thread.isOpen())
    return;
  zb::stack::Snapshot snapshot{};
  snapshot.bytes = sampler.stack;
  snapshot.capacity = sizeof sampler.stack;
  sHeldThread.store(thread.get());
  sHeldSince.store(ZBHRTimeMonotonic());
  const bool captured = zb::stack::capture(thread.get(), snapshot);
  sHeldSince.store(0);
  sHeldThread.store(nullptr);
  if (!captured)
    return;
  const uint32_t count = zb::stack::unwind(snapshot, sampler.frames, kMaxFrames);
  size_t length = 0;
  for (uint32_t i = count; i-- > 0;) {
    char frame[96];
    const int written =
        nameFrame(sampler, reinterpret_cast<uintptr_t>(sampler.frames[i]), frame, sizeof frame);
    const size_t needed = size_t(written) + (length ? 1 : 0);
    if (written <= 0 || length + needed >= sizeof sampler.text)
      break;
    if (length)
      sampler.text[length++] = ';';
    std::memcpy(sampler.text + length, frame, size_t(written));
    length += size_t(written);
  }
  zb::trace::record(ZBTraceEventSample, 0, threadID, sampler.text, length);
}

void *samplerMain(void *context) {
  Sampler &sampler = *static_cast<Sampler *>(context);
  sampler.samplerID = ZBThreadGetCurrentThreadID();
  while (sampler.running.load()) {
    ZBHRSleep(sampler.interval);
    const size_t count = zb::profiler::copyTargets(sampler.targets, zb::profiler::kMaxTargets);
    for (size_t i = 0; i < count && sampler.running.load(); ++i)
      if (sampler.targets[i] != sampler.samplerID && sampler.targets[i] != sampler.watchdogID)
        sampleThread(sampler, sampler.targets[i]);
  }
  return nullptr;
}

void *watchdogMain(void *context) {
  Sampler &sampler = *static_cast<Sampler *>(context);
  sampler.watchdogID = ZBThreadGetCurrentThreadID();
  while (sampler.running.load()) {
    ZBHRSleep(kWatchdogPeriodNanoseconds);
    const int64_t since = sHeldSince.load();
    HANDLE held = sHeldThread.load();
    if (since != 0 && held != nullptr && ZBHRTimeMonotonic() - since > kLongestHoldNanoseconds) {
      // Resumed first: the held thread may own the heap's lock that logging needs.
      ResumeThread(held);
      ZB_LOG_WARNING("Profiler: a sampled thread was held over a second and resumed");
    }
  }
  return nullptr;
}

bool addLibraryThread(uint32_t threadID, void *visit) {
  if (ZBThreadGetThreadWithID(threadID) != 0)
    reinterpret_cast<void (*)(uint32_t)>(visit)(threadID);
  return true;
}

} // namespace

namespace zb::profiler {

void forEachLibraryThread(void (*visit)(uint32_t threadID)) noexcept {
  ZBThreadEnumerateIDs(addLibraryThread, reinterpret_cast<void *>(visit));
}

ZBError startSampler(int64_t intervalNanoseconds) noexcept {
  zb::modules::prepare(); // takes the loader lock: before anything stops
  auto *sampler = new (std::nothrow) Sampler;
  if (sampler == nullptr)
    return ZBErrorNoMemory;
  sampler->interval = intervalNanoseconds;
  sampler->watchdogThread =
      ZBThreadCreate("zb-profiler-watchdog", watchdogMain, sampler, ZBThreadPriorityDefault, 0, 0);
  sampler->samplerThread = ZBThreadCreate("zb-profiler", samplerMain, sampler, 1.0, 0, 0);
  if (sampler->watchdogThread == 0 || sampler->samplerThread == 0) {
    sSampler = sampler;
    stopSampler();
    return ZBErrorResourcesExhausted;
  }
  sSampler = sampler;
  return ZBErrorNone;
}

void stopSampler() noexcept {
  Sampler *sampler = sSampler;
  if (sampler == nullptr)
    return;
  sampler->running.store(false);
  if (sampler->samplerThread != 0)
    ZBThreadJoin(sampler->samplerThread, nullptr);
  if (sampler->watchdogThread != 0)
    ZBThreadJoin(sampler->watchdogThread, nullptr);
  sSampler = nullptr;
  delete sampler;
}

std::string resolveFrame(const std::string &frame) {
  const size_t plus = frame.rfind("+0x");
  if (plus == std::string::npos)
    return frame;
  const HMODULE module = GetModuleHandleA(frame.substr(0, plus).c_str());
  if (module == nullptr)
    return frame;
  const uintptr_t offset = std::strtoull(frame.c_str() + plus + 3, nullptr, 16);
  ZBSymbolInfo symbol{};
  const void *address = reinterpret_cast<const char *>(module) + offset;
  if (ZBSymbolLookup(address, &symbol) != ZBErrorNone || symbol.name == nullptr)
    return frame;
  return symbol.name;
}

} // namespace zb::profiler
