// The initializer registry: eight stacks of start-up work, one per priority,
// drained in order by ZBInitializerRun on the main thread. No lock: records
// are registered at load time (one thread) and run on the main thread only.
#include "ZBInitializer.h"

#include "ZBAlloc.h"
#include "ZBLog.h"
#include "ZBPlatform.h"
#include "ZBThread.h"

namespace {

constexpr uint32_t kPriorityCount = 8;

ZBInitializerRecord *sStacks[kPriorityCount];
// One "has run" byte per priority, kept in two words so reset clears them
// with two stores.
union PriorityFlags {
  uint8_t priority[kPriorityCount];
  uint32_t words[2];
} sRunFlags;
int32_t sHasRun;

// Every Fatal message of the registry goes through this one site.
ZBLogSite sSite;

[[noreturn]] void fatal(const char *function, uint32_t line, const char *format,
                        uint32_t value = 0) {
  ZB_LOG_FROM(&sSite, ZBLogLevelFatal, function, "", line, format, value);
  ZBAbortWithBacktrace();
}

} // namespace

extern "C" ZBInitializerRecord *ZBInitializerRegister_internal(ZBInitializerFunction function,
                                                               uint32_t priority,
                                                               const char *name) noexcept {
  if (sRunFlags.priority[priority]) {
    zb::platform::printBacktrace();
    fatal(__func__, 27,
          "ZBInitializerPriority(%d) has been called too late, ZBInitializerRun has been already "
          "called.",
          priority);
  }
  auto *record = static_cast<ZBInitializerRecord *>(
      _ZBAllocWithZoneAndDesc(nullptr, sizeof(ZBInitializerRecord), __func__));
  record->function = function;
  record->name = name;
  record->next = sStacks[priority];
  sStacks[priority] = record;
  return record;
}

extern "C" void ZBInitializerRun(void) noexcept {
  if (!ZBThreadIsMain())
    fatal(__func__, 70, "ZBInitializerRun called off main thread!");
  if (sHasRun == 1) {
    zb::platform::printBacktrace();
    fatal(__func__, 75, "ZBInitializerRun has already been run!");
  }
  sHasRun = 1;
  for (uint32_t priority = 0; priority < kPriorityCount; ++priority) {
    // An initializer may push more work on the stack being drained: it runs
    // next, in this same pass.
    while (ZBInitializerRecord *record = sStacks[priority]) {
      sStacks[priority] = record->next;
      record->function();
      _ZBFree(record);
    }
    sRunFlags.priority[priority] = 1;
  }
}

extern "C" int32_t ZBInitializerReset(void) noexcept {
  if (sHasRun == 0) {
    zb::platform::printBacktrace();
    fatal(__func__, 58, "ZBInitializerRun has not been called!");
  }
  const int32_t previous = sHasRun;
  sHasRun = 0;
  sRunFlags.words[0] = 0;
  sRunFlags.words[1] = 0;
  return previous;
}

extern "C" int32_t ZBInitializerHasRun(void) noexcept { return sHasRun; }
