// Condition variables over the Windows condition variable, waiting with
// either kind of ZBMutex: on its critical section or, exclusively, on its
// slim reader/writer lock. Each wait form turns its timeout into the
// millisecond count the system takes by its own rule (see ZBTimePrivate.h).
#include "ZBLock.h"

#include "ZBAlloc.h"
#include "ZBMutexStorage.h"
#include "ZBTime.h"
#include "ZBTimePrivate.h"
#include "ZBTrace.h"

#include <windows.h>

namespace {

using namespace zb::time;

static_assert(sizeof(CONDITION_VARIABLE) <= sizeof(ZBCondVariable::conditionStorage) &&
                  alignof(CONDITION_VARIABLE) <= alignof(ZBCondVariable),
              "a condition variable must fit the record");

CONDITION_VARIABLE *systemCondition(ZBCondVariable *condition) {
  return reinterpret_cast<CONDITION_VARIABLE *>(&condition->conditionStorage);
}

void initCondition(ZBCondVariable *condition) {
  InitializeConditionVariable(systemCondition(condition));
  condition->debugName = 0;
}

// The one wait all forms share. Wake-ups without a signal count as success.
ZBError waitMilliseconds(ZBCondVariable *condition, ZBMutex *mutex, DWORD milliseconds) {
  const BOOL woken =
      mutex->recursive
          ? SleepConditionVariableCS(systemCondition(condition),
                                     zb::mutex::criticalSection(mutex), milliseconds)
          : SleepConditionVariableSRW(systemCondition(condition), zb::mutex::slimLock(mutex),
                                      milliseconds, 0);
  if (woken)
    return ZBErrorNone;
  return GetLastError() == ERROR_TIMEOUT ? ZBErrorTimedOut : ZBErrorGeneric;
}

ZBError waitUntil(ZBCondVariable *condition, ZBMutex *mutex, int64_t deadline) {
  if (deadline < 0)
    return waitMilliseconds(condition, mutex, INFINITE);
  const int64_t now = ZBHRTimeUnix();
  // A deadline already past still waits 0 ms: the mutex is released and
  // taken again, as callers of a timed wait expect.
  const int64_t remaining = now < deadline ? deadline - now : 0;
  return waitMilliseconds(condition, mutex, truncatingTimeoutMilliseconds(remaining));
}

} // namespace

extern "C" ZBCondVariable *ZBCondVariableCreate(void) noexcept {
  auto *condition = static_cast<ZBCondVariable *>(_ZBAlloc(sizeof(ZBCondVariable)));
  if (condition != nullptr)
    initCondition(condition);
  return condition;
}

extern "C" bool ZBCondVariableInit(ZBCondVariable *condition) noexcept {
  if (condition == nullptr)
    return false;
  initCondition(condition);
  return true;
}

extern "C" int32_t ZBCondVariableSetDebugName(ZBCondVariable *condition,
                                              const char *name) noexcept {
  if (condition == nullptr)
    return 0;
  condition->debugName = ZBTraceDefineName(name);
  return condition->debugName;
}

extern "C" ZBError ZBCondVariableDestroy(ZBCondVariable *) noexcept { return ZBErrorNone; }

extern "C" ZBError ZBCondVariableFree(ZBCondVariable *condition) noexcept {
  _ZBFree(condition);
  return ZBErrorNone;
}

extern "C" ZBError ZBCondVariableSignal(ZBCondVariable *condition) noexcept {
  if (condition == nullptr)
    return ZBErrorInvalidArgument;
  WakeConditionVariable(systemCondition(condition));
  return ZBErrorNone;
}

extern "C" ZBError ZBCondVariableBroadcast(ZBCondVariable *condition) noexcept {
  if (condition == nullptr)
    return ZBErrorInvalidArgument;
  WakeAllConditionVariable(systemCondition(condition));
  return ZBErrorNone;
}

extern "C" ZBError ZBCondVariableWait(ZBCondVariable *condition, ZBMutex *mutex) noexcept {
  if (condition == nullptr || mutex == nullptr)
    return ZBErrorInvalidArgument;
  return waitMilliseconds(condition, mutex, INFINITE);
}

extern "C" ZBError ZBCondVariableTimedWaitHR(ZBCondVariable *condition, ZBMutex *mutex,
                                             int64_t nanoseconds) noexcept {
  if (condition == nullptr || mutex == nullptr)
    return ZBErrorInvalidArgument;
  return waitMilliseconds(condition, mutex, truncatingTimeoutMilliseconds(nanoseconds));
}

extern "C" ZBError ZBCondVariableTimedWait(ZBCondVariable *condition, ZBMutex *mutex,
                                           double seconds) noexcept {
  if (condition == nullptr || mutex == nullptr)
    return ZBErrorInvalidArgument;
  int64_t nanoseconds = 0;
  const DWORD milliseconds = nanosecondsFromSeconds(seconds, &nanoseconds)
                                 ? truncatingTimeoutMilliseconds(nanoseconds)
                                 : INFINITE;
  return waitMilliseconds(condition, mutex, milliseconds);
}

extern "C" ZBError ZBCondVariableTimedWaitAbsoluteHR(ZBCondVariable *condition, ZBMutex *mutex,
                                                     int64_t deadline) noexcept {
  if (condition == nullptr || mutex == nullptr)
    return ZBErrorInvalidArgument;
  return waitUntil(condition, mutex, deadline);
}

extern "C" ZBError ZBCondVariableTimedWaitAbsolute(ZBCondVariable *condition, ZBMutex *mutex,
                                                   double deadline) noexcept {
  if (condition == nullptr || mutex == nullptr)
    return ZBErrorInvalidArgument;
  // An unusable deadline becomes -1: no timeout.
  int64_t nanoseconds;
  if (!nanosecondsFromSeconds(deadline, &nanoseconds))
    nanoseconds = -1;
  return waitUntil(condition, mutex, nanoseconds);
}
