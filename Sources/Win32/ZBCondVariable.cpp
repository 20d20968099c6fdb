// Condition variables over the Windows condition variable, waiting with
// either kind of ZBMutex: on its critical section or, exclusively, on its
// slim reader/writer lock. The five wait forms differ only in how their
// timeout becomes the millisecond count the system takes (by the rules of
// ZBTimePrivate.h); the double forms take the nanosecond forms' paths.
#include "ZBLock.h"

#include "ZBAlloc.h"
#include "ZBLockRecord.h"
#include "ZBMutexStorage.h"
#include "ZBTime.h"
#include "ZBTimePrivate.h"

#include <windows.h>

namespace {

using namespace zb::time;

static_assert(sizeof(CONDITION_VARIABLE) <= sizeof(ZBCondVariable::conditionStorage) &&
                  alignof(CONDITION_VARIABLE) <= alignof(ZBCondVariable),
              "a condition variable must fit the record");

CONDITION_VARIABLE *systemCondition(ZBCondVariable *condition) {
  return reinterpret_cast<CONDITION_VARIABLE *>(&condition->conditionStorage);
}

void setUp(ZBCondVariable *condition) {
  InitializeConditionVariable(systemCondition(condition));
  condition->debugName = 0;
}

// Seconds to nanoseconds; a value with no nanosecond count becomes -1, which
// every wait form reads as "no timeout".
int64_t nanosecondsOrForever(double seconds) {
  int64_t nanoseconds;
  return nanosecondsFromSeconds(seconds, &nanoseconds) ? nanoseconds : -1;
}

// A negative deadline waits without timeout. A deadline already past still
// waits 0 ms: the mutex is released and taken again, as callers of a timed
// wait expect.
DWORD millisecondsUntil(int64_t deadline) {
  if (deadline < 0)
    return INFINITE;
  const int64_t now = ZBHRTimeUnix();
  return truncatingTimeoutMilliseconds(now < deadline ? deadline - now : 0);
}

// The one wait all forms share, once the records are known to be there; the
// timeout is worked out only then. Wake-ups without a signal count as
// success.
template <typename Milliseconds>
ZBError waitMilliseconds(ZBCondVariable *condition, ZBMutex *mutex, Milliseconds milliseconds) {
  if (condition == nullptr || mutex == nullptr)
    return ZBErrorInvalidArgument;
  const DWORD timeout = milliseconds();
  const BOOL woken = mutex->recursive
                         ? SleepConditionVariableCS(systemCondition(condition),
                                                    zb::mutex::criticalSection(mutex), timeout)
                         : SleepConditionVariableSRW(systemCondition(condition),
                                                     zb::mutex::slimLock(mutex), timeout, 0);
  if (woken)
    return ZBErrorNone;
  return GetLastError() == ERROR_TIMEOUT ? ZBErrorTimedOut : ZBErrorGeneric;
}

} // namespace

extern "C" ZBCondVariable *ZBCondVariableCreate(void) noexcept {
  return zb::lock::setUpAllocated<ZBCondVariable>(_ZBAlloc(sizeof(ZBCondVariable)), setUp);
}

extern "C" bool ZBCondVariableInit(ZBCondVariable *condition) noexcept {
  return zb::lock::setUpInPlace(condition, setUp);
}

extern "C" int32_t ZBCondVariableSetDebugName(ZBCondVariable *condition,
                                              const char *name) noexcept {
  return zb::lock::defineTraceName(condition, &ZBCondVariable::debugName, name);
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
  return waitMilliseconds(condition, mutex, [] { return INFINITE; });
}

extern "C" ZBError ZBCondVariableTimedWaitHR(ZBCondVariable *condition, ZBMutex *mutex,
                                             int64_t nanoseconds) noexcept {
  return waitMilliseconds(condition, mutex,
                          [=] { return truncatingTimeoutMilliseconds(nanoseconds); });
}

extern "C" ZBError ZBCondVariableTimedWait(ZBCondVariable *condition, ZBMutex *mutex,
                                           double seconds) noexcept {
  return ZBCondVariableTimedWaitHR(condition, mutex, nanosecondsOrForever(seconds));
}

extern "C" ZBError ZBCondVariableTimedWaitAbsoluteHR(ZBCondVariable *condition, ZBMutex *mutex,
                                                     int64_t deadline) noexcept {
  return waitMilliseconds(condition, mutex, [=] { return millisecondsUntil(deadline); });
}

extern "C" ZBError ZBCondVariableTimedWaitAbsolute(ZBCondVariable *condition, ZBMutex *mutex,
                                                   double deadline) noexcept {
  return ZBCondVariableTimedWaitAbsoluteHR(condition, mutex, nanosecondsOrForever(deadline));
}
