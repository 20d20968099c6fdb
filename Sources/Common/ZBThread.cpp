// Threads over the POSIX-threads library: creation with normalised
// priorities, joins, identity, the main thread, and the registry of live
// threads that carries their names.
//
// Every thread started through ZBThreadCreate, and the main thread, has a
// record that is linked into the live-thread list and stored under a
// POSIX-threads key, so that a thread finds its own record without a search
// and other threads find it by handle or system ID under the list mutex.
// The key's destructor unlinks and frees the record however the thread
// ends: by returning, by pthread_exit or by cancellation. (A cleanup
// handler would miss pthread_exit: the POSIX-threads library for Windows
// runs those only when it cancels a thread.)
#include "ZBThread.h"

#include "ZBAlloc.h"
#include "ZBInitializer.h"
#include "ZBLog.h"
#include "ZBScopedLock.h"
#include "ZBString.h"
#include "ZBThreadPrivate.h"
#include "ZBTrace.h"

#include <cerrno>
#include <cmath>
#include <memory>
#include <pthread.h>
#include <sched.h>

void (*_gZBThreadStartHook)(void);

namespace {

struct ZBThreadInfo {
  ZBThreadInfo *next;
  // The previous record's `next`, or the list head.
  ZBThreadInfo **previousNext;
  ZBThreadFunction function;
  void *argument;
  char *name; // owned, or null
  pthread_t handle;
  uint32_t threadID;
  uint8_t flags;
};

constexpr uint8_t kInfoFlagDetached = 2;
// The policy assumed when the caller's own cannot be read.
constexpr int kFallbackPolicy = SCHED_RR;
static_assert(kFallbackPolicy == 2, "round-robin is policy 2");
constexpr pthread_key_t kNoKey = static_cast<pthread_key_t>(-1);

static_assert(sizeof(ZBThread) >= sizeof(pthread_t), "a ZBThread holds a thread value");

pthread_mutex_t sListMutex = PTHREAD_MUTEX_INITIALIZER;
ZBThreadInfo *sListHead;
// The calling thread's record; its destructor unregisters the thread.
pthread_key_t sInfoKey = kNoKey;
// Read by every thread, written by "__ZBThreadInit" and ZBThreadSetMain.
ZBThread sMainThread;

pthread_t toPosix(ZBThread thread) { return static_cast<pthread_t>(thread); }
ZBThread fromPosix(pthread_t thread) { return static_cast<ZBThread>(thread); }

// Callers hold the list mutex.
void linkAtHead(ZBThreadInfo *info) {
  info->next = sListHead;
  if (sListHead != nullptr)
    sListHead->previousNext = &info->next;
  sListHead = info;
  info->previousNext = &sListHead;
}

void unlink(ZBThreadInfo *info) {
  if (info->next != nullptr)
    info->next->previousNext = info->previousNext;
  *info->previousNext = info->next;
}

ZBThreadInfo *findByHandle(ZBThread thread) {
  for (ZBThreadInfo *info = sListHead; info != nullptr; info = info->next)
    if (ZBThreadEqual(fromPosix(info->handle), thread))
      return info;
  return nullptr;
}

ZBThreadInfo *callerInfo() {
  return sInfoKey == kNoKey ? nullptr : static_cast<ZBThreadInfo *>(pthread_getspecific(sInfoKey));
}

void freeInfo(ZBThreadInfo *info) {
  if (info == nullptr)
    return;
  _ZBFree(info->name);
  _ZBFree(info);
}

struct InfoDeleter {
  void operator()(ZBThreadInfo *info) const { freeInfo(info); }
};
using InfoHolder = std::unique_ptr<ZBThreadInfo, InfoDeleter>;

struct AttributesDestroyer {
  void operator()(pthread_attr_t *attributes) const { pthread_attr_destroy(attributes); }
};

// 0.0 to 1.0 of the policy's range: above 1.0 is 1.0, the default (-1.0) is
// the middle, and any other negative value or NaN the bottom.
double normalisedPriority(double priority) {
  if (priority >= 0.0)
    return std::fmin(priority, 1.0);
  return priority == ZBThreadPriorityDefault ? 0.5 : 0.0;
}

// Unregisters an ending thread: the destructor of its record's key, run on
// the thread itself.
void endThread(void *context) {
  auto *info = static_cast<ZBThreadInfo *>(context);
  {
    zb::ScopedLock lock(&sListMutex);
    unlink(info);
  }
  ZBThreadSuspendRemove(ZBThreadGetCurrentThreadID());
  freeInfo(info);
}

// Makes `info` the calling thread's record and lists it.
void registerCaller(ZBThreadInfo *info) {
  info->handle = pthread_self();
  // Known before the record is listed, so lookups by ID never see it unset.
  info->threadID = ZBThreadGetCurrentThreadID();
  pthread_setspecific(sInfoKey, info);
  zb::ScopedLock lock(&sListMutex);
  linkAtHead(info);
}

void *startThread(void *context) {
  auto *info = static_cast<ZBThreadInfo *>(context);
  registerCaller(info);
  ZBThreadSuspendAdd(info->threadID);
  if (auto hook = __atomic_load_n(&_gZBThreadStartHook, __ATOMIC_ACQUIRE))
    hook();
  if (ZBProfilerIsMonitoringNewThreads())
    ZBProfilerAddThread(info->threadID);
  return info->function(info->argument);
}

// Registers the calling thread as the main thread: a record in the live
// registry (unless the thread has one already, as a thread started through
// ZBThreadCreate does), the main-thread handle and an entry in the suspend
// registry.
void registerMainThread() {
  ZBThreadInfo *info = callerInfo();
  if (info == nullptr) {
    info = static_cast<ZBThreadInfo *>(_ZBAllocWithZoneCountAndDesc(
        nullptr, 1, sizeof(ZBThreadInfo), "__ZBThreadInitMainThread"));
    if (info == nullptr)
      return;
    registerCaller(info);
  }
  ZBThreadSetMain();
  _ZBThreadSuspendRegistryAddUnlessPresent(info->threadID);
}

} // namespace

ZBError _ZBThreadErrorFromPosixThreads(int error) noexcept {
  struct Mapping {
    int error;
    ZBError code;
  };
  // The POSIX-threads library's numbers on Windows are the C runtime's:
  // ESRCH 3, EAGAIN 11, ENOMEM 12, EINVAL 22, EDEADLK 36, ENOTSUP 129.
  static constexpr Mapping kMappings[] = {
      {ESRCH,   ZBErrorInvalidHandle},
      {EAGAIN,  ZBErrorNotOwner},
      {ENOMEM,  ZBErrorNoMemory},
      {EINVAL,  ZBErrorInvalidArgument},
      {EDEADLK, ZBErrorDeadlock},
      {ENOTSUP, ZBErrorUnsupported},
  };
  for (const Mapping &mapping : kMappings)
    if (mapping.error == error)
      return mapping.code;
  return ZBErrorGeneric;
}

#ifdef _WIN32
static_assert(ESRCH == 3 && EAGAIN == 11 && ENOMEM == 12 && EINVAL == 22 && EDEADLK == 36 &&
                  ENOTSUP == 129,
              "the POSIX-threads error numbers that ZBThreadJoin maps");
#endif

extern "C" ZBThread ZBThreadCreate(const char *name, ZBThreadFunction function, void *argument,
                                   double priority, uint32_t stackSize,
                                   uint32_t flags) noexcept {
  if (function == nullptr) {
    ZB_LOG_ERROR("ZBThreadCreate needs a function to run");
    return 0;
  }
  pthread_attr_t attributes;
  if (pthread_attr_init(&attributes) != 0) {
    ZB_LOG_ERROR("pthread_attr_init failure");
    return 0;
  }
  std::unique_ptr<pthread_attr_t, AttributesDestroyer> destroyAttributes(&attributes);

  int policy = kFallbackPolicy;
  sched_param scheduling{};
  if (pthread_getschedparam(pthread_self(), &policy, &scheduling) != 0)
    policy = kFallbackPolicy;
  const int lowest = sched_get_priority_min(policy);
  const int highest = sched_get_priority_max(policy);
  scheduling.sched_priority =
      static_cast<int>(lowest + normalisedPriority(priority) * (highest - lowest));

  int error = pthread_attr_setschedpolicy(&attributes, policy);
  if (error != 0) {
    ZB_LOG_ERROR("pthread_attr_setschedpolicy %d failure %d", policy,
                 _ZBThreadErrorFromPosixThreads(error));
    return 0;
  }
  error = pthread_attr_setschedparam(&attributes, &scheduling);
  if (error != 0) {
    ZB_LOG_ERROR("pthread_attr_setschedparam failure %d", _ZBThreadErrorFromPosixThreads(error));
    return 0;
  }
  if (stackSize != 0) {
    error = pthread_attr_setstacksize(&attributes, stackSize);
    if (error != 0) {
      ZB_LOG_ERROR("pthread_attr_setstacksize %u failure %d", stackSize,
                   _ZBThreadErrorFromPosixThreads(error));
      return 0;
    }
  }

  InfoHolder info(static_cast<ZBThreadInfo *>(
      _ZBAllocWithZoneCountAndDesc(nullptr, 1, sizeof(ZBThreadInfo), "ZBThreadCreate")));
  if (!info) {
    ZB_LOG_ERROR("pthread ZBThreadInfo alloc failure");
    return 0;
  }
  if (name != nullptr) {
    info->name = _ZBCStringDuplicateWithZone(nullptr, name);
    if (info->name == nullptr) {
      ZB_LOG_ERROR("pthread name alloc failure");
      return 0;
    }
  }
  info->function = function;
  info->argument = argument;
  if ((flags & ZBThreadFlagDetached) != 0) {
    if (pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED) != 0) {
      // The code is fixed here, not mapped.
      ZB_LOG_ERROR("pthread_attr_setdetachstate failed %d", ZBErrorGeneric);
      return 0;
    }
    info->flags = kInfoFlagDetached;
  }

  pthread_t thread;
  error = pthread_create(&thread, &attributes, startThread, info.get());
  if (error != 0) {
    ZB_LOG_ERROR("pthread_create_failure %d", _ZBThreadErrorFromPosixThreads(error));
    return 0;
  }
  // The new thread owns its record now and frees it when it ends.
  info.release();
  return fromPosix(thread);
}

extern "C" ZBError ZBThreadJoin(ZBThread thread, void **outResult) noexcept {
  if (ZBThreadIsSelf(thread))
    return ZBErrorDeadlock;
  // Not every POSIX-threads library survives a join of no thread.
  if (thread == 0)
    return ZBErrorInvalidHandle;
  void *result = nullptr;
  const int error = pthread_join(toPosix(thread), &result);
  if (error != 0)
    return _ZBThreadErrorFromPosixThreads(error);
  if (outResult != nullptr)
    *outResult = result;
  return ZBErrorNone;
}

extern "C" bool ZBThreadEqual(ZBThread first, ZBThread second) noexcept {
  if (first == 0 || second == 0)
    return first == second;
  return first == second || pthread_equal(toPosix(first), toPosix(second)) != 0;
}

extern "C" bool ZBThreadIsSelf(ZBThread thread) noexcept {
  return ZBThreadEqual(thread, ZBThreadGetSelf());
}

extern "C" ZBThread ZBThreadGetSelf(void) noexcept { return fromPosix(pthread_self()); }

extern "C" ZBThread ZBThreadGetThreadWithID(uint32_t threadID) noexcept {
  zb::ScopedLock lock(&sListMutex);
  for (ZBThreadInfo *info = sListHead; info != nullptr; info = info->next)
    if (info->threadID == threadID)
      return fromPosix(info->handle);
  return 0;
}

extern "C" ZBError ZBThreadSetName(ZBThread thread, const char *name) noexcept {
  if (thread == 0)
    return ZBErrorInvalidArgument;
  char *copy = nullptr;
  if (name != nullptr && name[0] != '\0') {
    copy = _ZBCStringDuplicateWithZone(nullptr, name);
    if (copy == nullptr)
      return ZBErrorNoMemory;
  }
  char *previous = copy;
  {
    zb::ScopedLock lock(&sListMutex);
    if (ZBThreadInfo *info = findByHandle(thread)) {
      previous = info->name;
      info->name = copy;
    }
  }
  // The replaced name, or the unused copy for a thread not registered.
  _ZBFree(previous);
  return ZBErrorNone;
}

extern "C" const char *ZBThreadGetName(ZBThread thread) noexcept {
  zb::ScopedLock lock(&sListMutex);
  const ZBThreadInfo *info = thread == 0 ? callerInfo() : findByHandle(thread);
  return info != nullptr ? info->name : nullptr;
}

extern "C" double ZBThreadGetPriority(ZBThread) noexcept { return 0.0; }

extern "C" ZBError ZBThreadSetPriority(ZBThread, double) noexcept {
  return ZBErrorNotImplemented;
}

// The base allocator asks the main thread to keep a private allocation
// cache; the C runtime's allocator under this build keeps none, so setting
// the main thread is all there is to do.
extern "C" void ZBThreadSetMain(void) noexcept {
  __atomic_store_n(&sMainThread, ZBThreadGetSelf(), __ATOMIC_RELEASE);
}

extern "C" ZBThread ZBThreadGetMain(void) noexcept {
  return __atomic_load_n(&sMainThread, __ATOMIC_ACQUIRE);
}

extern "C" bool ZBThreadIsMain(void) noexcept {
  const ZBThread main = ZBThreadGetMain();
  return main == 0 || pthread_equal(pthread_self(), toPosix(main)) != 0;
}

extern "C" bool ZBThreadIsMainThread(ZBThread thread) noexcept {
  return ZBThreadEqual(thread, ZBThreadGetMain());
}

extern "C" bool ZBThreadRegisterWithProfiler(void) noexcept {
  auto hook = __atomic_load_n(&_gZBThreadStartHook, __ATOMIC_ACQUIRE);
  if (hook == nullptr)
    return false;
  hook();
  return true;
}

// Run by ZBInitializerRun, so the main thread is the one the host runs the
// initializers on, not whichever thread happened to load the library (a
// plugin host may load it from a worker). Until then no thread is main and
// ZBThreadIsMain answers true everywhere, which lets that very run pass its
// main-thread check.
void __ZBThreadInit() noexcept {
  registerMainThread();
  ZBThreadSetName(ZBThreadGetSelf(), "qv-main");
}

void _ZBThreadStartup() noexcept {
  if (sInfoKey == kNoKey && pthread_key_create(&sInfoKey, endThread) != 0)
    sInfoKey = kNoKey;
  ZBInitializerRegister_internal(__ZBThreadInit, 4, "__ZBThreadInit");
}
