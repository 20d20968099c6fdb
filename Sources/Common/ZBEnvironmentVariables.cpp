// The library's private process environment: a null-terminated array of
// owned "name=value" strings behind a recursive mutex. All environment reads
// of the library come from here, so settings behave the same where the
// system environment is unavailable. On Windows desktop builds the array
// starts with the process's own environment.
#include "ZBEnvironment.h"

#include "ZBAlloc.h"
#include "ZBEnvironmentPrivate.h"
#include "ZBLock.h"
#include "ZBLog.h"
#include "ZBPlatform.h"
#include "ZBScopedLock.h"
#include "ZBString.h"
#include "ZBThread.h"
#include "ZBTracePrivate.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr uint32_t kInitialCapacity = 128;

uint32_t sOnce;
ZBMutex sLock; // recursive
// `sCapacity` entries plus one slot that always has room for the null.
char **sEntries;
uint32_t sCapacity;

uint32_t entryCount() {
  uint32_t count = 0;
  while (sEntries[count] != nullptr)
    ++count;
  return count;
}

char *makeAssignment(const char *name, size_t nameLength, const char *value) {
  const size_t valueLength = std::strlen(value);
  auto *entry = static_cast<char *>(_ZBAlloc(nameLength + valueLength + 2));
  if (entry == nullptr)
    return nullptr;
  std::memcpy(entry, name, nameLength);
  entry[nameLength] = '=';
  std::memcpy(entry + nameLength + 1, value, valueLength + 1);
  return entry;
}

// Appends one entry; -2 when the array cannot grow, 0 otherwise (also when
// the string itself cannot be made, which sets errno only). `stored` tells
// whether the variable now stands in the array.
int32_t appendEntry(const char *name, size_t nameLength, const char *value, bool *stored) {
  *stored = false;
  const uint32_t count = entryCount();
  if (count + 1 > sCapacity) {
    void *grown = _ZBRealloc(sEntries, (2 * size_t(sCapacity) + 1) * sizeof(char *));
    if (grown == nullptr) {
      errno = ENOMEM;
      return -2;
    }
    sEntries = static_cast<char **>(grown);
    sCapacity *= 2;
  }
  char *entry = makeAssignment(name, nameLength, value);
  if (entry == nullptr) {
    errno = ENOMEM;
    return 0;
  }
  sEntries[count] = entry;
  sEntries[count + 1] = nullptr;
  *stored = true;
  return 0;
}

void importEntry(const char *entry, void *) {
  const char *equals = std::strchr(entry, '=');
  bool stored = false;
  if (equals != nullptr && equals != entry)
    appendEntry(entry, static_cast<size_t>(equals - entry), equals + 1, &stored);
}

void startEnvironment(void *) {
  ZBMutexInitRecursive(&sLock);
  sEntries = static_cast<char **>(_ZBRealloc(nullptr, (kInitialCapacity + 1) * sizeof(char *)));
  sCapacity = kInitialCapacity;
  sEntries[0] = nullptr;
  zb::platform::enumerateEnvironment(importEntry, nullptr);
}

void ensureStarted() { ZBThreadCallOnce(&sOnce, startEnvironment, nullptr); }

// The slot holding `name`, or null. Callers hold the lock.
char **findEntry(const char *name, size_t nameLength) {
  for (char **slot = sEntries; *slot != nullptr; ++slot)
    if (std::strncmp(*slot, name, nameLength) == 0 && (*slot)[nameLength] == '=')
      return slot;
  return nullptr;
}

// Frees an entry's string unless another slot still lists it (removals
// leave the last entry listed twice). Callers hold the lock.
void releaseUnlessShared(char **slot, char *string) {
  for (char **other = sEntries; *other != nullptr; ++other)
    if (other != slot && *other == string)
      return;
  _ZBFree(string);
}

bool isValidName(const char *name) {
  return name != nullptr && name[0] != '\0' && std::strchr(name, '=') == nullptr;
}

bool startsWith(const char *text, const char *prefix) {
  return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

// Stores the variable under the lock; `stored` tells whether it changed.
int32_t storeVariable(const char *name, const char *value, int32_t overwrite, bool *stored) {
  zb::ScopedLock lock(&sLock);
  const size_t nameLength = std::strlen(name);
  char **slot = findEntry(name, nameLength);
  if (slot == nullptr)
    return appendEntry(name, nameLength, value, stored);
  if (!overwrite)
    return 0;
  char *entry = makeAssignment(name, nameLength, value);
  if (entry == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  releaseUnlessShared(slot, *slot);
  *slot = entry;
  *stored = true;
  return 0;
}

} // namespace

ZBMutex *_ZBEnvironmentLock() noexcept {
  ensureStarted();
  return &sLock;
}

extern "C" const char *ZBEnvironmentGetEnv(const char *name) noexcept {
  if (!isValidName(name))
    return nullptr;
  ensureStarted();
  zb::ScopedLock lock(&sLock);
  const size_t nameLength = std::strlen(name);
  char **slot = findEntry(name, nameLength);
  return slot ? *slot + nameLength + 1 : nullptr;
}

extern "C" int32_t ZBEnvironmentSetEnv(const char *name, const char *value,
                                       int32_t overwrite) noexcept {
  if (name == nullptr || value == nullptr || name[0] == '\0') {
    errno = EINVAL;
    return -1;
  }
  ensureStarted();
  if (std::strcmp(name, "HOME") == 0) {
    std::puts("Setting HOME does nothing.");
    return -1;
  }
  // The application temporary directory is computed from TMP first.
  if (std::strcmp(name, "TMP") == 0)
    _ZBEnvironmentSetAppTemporaryDirectory(nullptr);
  if (std::strchr(name, '=') != nullptr) {
    errno = EINVAL;
    return -1;
  }
  bool stored = false;
  const int32_t result = storeVariable(name, value, overwrite, &stored);
  // Reconfiguration runs after the environment lock is released.
  if (stored && startsWith(name, "ZBLOG_"))
    ZBLogEnvironmentReset();
  if (stored && startsWith(name, "ZB_TRACE_"))
    zb::trace::readConfiguration();
  return result;
}

extern "C" int32_t ZBEnvironmentPutEnv(const char *assignment) noexcept {
  const char *equals = assignment ? std::strchr(assignment, '=') : nullptr;
  if (equals == nullptr) {
    errno = EINVAL;
    return -1;
  }
  char *name = ZBCStringDuplicateWithLength(nullptr, assignment,
                                            static_cast<size_t>(equals - assignment));
  if (name == nullptr) {
    errno = ENOMEM;
    return -1;
  }
  const int32_t result = ZBEnvironmentSetEnv(name, equals + 1, 1);
  _ZBFree(name);
  return result;
}

extern "C" int32_t ZBEnvironmentUnsetEnv(const char *name) noexcept {
  if (!isValidName(name)) {
    errno = EINVAL;
    return -1;
  }
  ensureStarted();
  zb::ScopedLock lock(&sLock);
  char **slot = findEntry(name, std::strlen(name));
  if (slot == nullptr) {
    errno = EINVAL;
    return -1;
  }
  char *removed = *slot;
  char **last = sEntries + entryCount() - 1;
  // An earlier removal may have left this very string in the last slot too:
  // that copy goes with it.
  if (last > slot && *last == removed)
    *last-- = nullptr;
  releaseUnlessShared(slot, removed);
  // The last entry is copied into the hole but also left in its own slot, so
  // it is listed twice afterwards. Applications depend on this layout.
  *slot = last > slot ? *last : nullptr;
  return 0;
}

extern "C" char **ZBEnvironmentGetEnviron(void) noexcept {
  ensureStarted();
  return sEntries;
}

extern "C" char **ZBEnvironmentCopyEnviron(void) noexcept {
  ensureStarted();
  zb::ScopedLock lock(&sLock);
  auto **copy = static_cast<char **>(_ZBAllocWithCount(size_t(sCapacity) + 1, sizeof(char *)));
  if (copy == nullptr)
    return nullptr;
  for (uint32_t i = 0; sEntries[i] != nullptr; ++i) {
    copy[i] = _ZBCStringDuplicate(sEntries[i]);
    if (copy[i] == nullptr) {
      ZBEnvironmentReleaseEnviron(copy);
      return nullptr;
    }
  }
  return copy;
}

extern "C" void ZBEnvironmentReleaseEnviron(char **environment) noexcept {
  if (environment == nullptr)
    return;
  for (char **entry = environment; *entry != nullptr; ++entry)
    _ZBFree(*entry);
  _ZBFree(environment);
}

extern "C" bool ZBEnvironmentGetBooleanWithDefault(const char *name,
                                                   bool defaultValue) noexcept {
  const char *value = ZBEnvironmentGetEnv(name);
  if (value == nullptr)
    return defaultValue;
  switch (value[0]) {
  case '0': case 'N': case 'n': return false;
  case '1': case 'Y': case 'y': return true;
  default: return defaultValue;
  }
}

extern "C" int32_t ZBEnvironmentGetIntegerWithDefault(const char *name,
                                                      int32_t defaultValue) noexcept {
  const char *value = ZBEnvironmentGetEnv(name);
  return value ? std::atoi(value) : defaultValue;
}

extern "C" int32_t ZBEnvironmentGetInteger(const char *name) noexcept {
  return ZBEnvironmentGetIntegerWithDefault(name, 0);
}

extern "C" double ZBEnvironmentGetFloat(const char *name) noexcept {
  const char *value = ZBEnvironmentGetEnv(name);
  return value ? std::atof(value) : 0.0;
}
