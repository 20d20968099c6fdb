// The option registry: one list of records, newest first, behind a lock that
// guards the list only. Values are read and written after the lock is
// released, so writers of one option synchronise among themselves.
#include "ZBOption.h"

#include "ZBAlloc.h"
#include "ZBEnvironment.h"
#include "ZBLog.h"
#include "ZBScopedLock.h"
#include "ZBString.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <pthread.h>
#include <strings.h>

namespace {

struct ZBOptionRecord {
  void *storage;
  const void *values;
  const char *const *valueNames;
  int32_t valueCount;
  int32_t type;
  // Always 0, so reads clear none of the caller's buffer first.
  uint32_t valueSize;
  const char *name;
  const char *description;
  const char *category;
  const char *help;
  ZBOptionNotifyFn notify;
  ZBOptionReadFn read;
  ZBOptionWriteFn write;
  ZBOptionRecord *next;
};

pthread_mutex_t sRegistryLock = PTHREAD_MUTEX_INITIALIZER;
ZBOptionRecord *sOptions; // newest first

// The registry's messages share one site.
ZBLogSite sSite;

template <typename... Arguments>
[[noreturn]] void fatal(const char *function, uint32_t line, const char *format,
                        Arguments... arguments) {
  if constexpr (sizeof...(arguments) == 0)
    ZB_LOG_FROM(&sSite, ZBLogLevelFatal, function, __FILE__, line, "%s", format);
  else
    ZB_LOG_FROM(&sSite, ZBLogLevelFatal, function, __FILE__, line, format, arguments...);
  ZBAbortWithBacktrace();
}

ZBOptionRecord *findLocked(const char *name) {
  for (ZBOptionRecord *record = sOptions; record != nullptr; record = record->next)
    if (std::strcmp(record->name, name) == 0)
      return record;
  return nullptr;
}

ZBOptionRecord *find(const char *name) {
  if (name == nullptr)
    return nullptr;
  zb::ScopedLock lock(&sRegistryLock);
  return findLocked(name);
}

// The bytes a value of `type` occupies in its variable. Strings are text
// pointers, so they take the target's pointer width.
size_t valueBytes(int32_t type) {
  switch (type) {
  case ZBOptionTypeBool: return 1;
  case ZBOptionTypeInt: return sizeof(int32_t);
  case ZBOptionTypeDouble: return sizeof(double);
  case ZBOptionTypeString: return sizeof(char *);
  default: fatal("_ZBOptionCpy", 196, "Attempt to read invalid option type %d", type);
  }
}

// Reads a record's value without the registry lock; false when the option
// has neither a variable nor a read callback.
bool readRecord(const ZBOptionRecord &record, void *value) {
  std::memset(value, 0, record.valueSize);
  if (record.storage != nullptr) {
    std::memcpy(value, record.storage, valueBytes(record.type));
    return true;
  }
  if (record.read == nullptr)
    return false;
  record.read(record.name, record.type, value);
  return true;
}

// The Boolean words of the environment; anything else that atoi reads as
// non-zero is true too.
bool parseBoolean(const char *text) {
  for (const char *word : {"yes", "y", "true"})
    if (strcasecmp(text, word) == 0)
      return true;
  for (const char *word : {"no", "n", "false", "0"})
    if (strcasecmp(text, word) == 0)
      return false;
  if (std::atoi(text) != 0)
    return true;
  fatal("ZBOptionRegisterWithValues", 145,
        "Unspported boolean value '%s', Please use 1/y/yes/true or 0/n/no/false", text);
}

void takeInitialValue(const ZBOptionRecord &record) {
  const char *text = ZBEnvironmentGetEnv(record.name);
  if (text == nullptr) {
    if (record.type == ZBOptionTypeString && record.storage != nullptr &&
        *static_cast<char **>(record.storage) != nullptr)
      ZBOptionWrite(record.name, nullptr);
    return;
  }
  switch (record.type) {
  case ZBOptionTypeBool: {
    const uint8_t value = parseBoolean(text) ? 1 : 0;
    ZBOptionWrite(record.name, &value);
    return;
  }
  case ZBOptionTypeInt: {
    const int32_t value = std::atoi(text);
    ZBOptionWrite(record.name, &value);
    return;
  }
  case ZBOptionTypeDouble: {
    const double value = std::atof(text);
    ZBOptionWrite(record.name, &value);
    return;
  }
  case ZBOptionTypeString:
    ZBOptionWrite(record.name, &text);
    return;
  default:
    ZBOptionWrite(record.name, text);
  }
}

void printOption(const ZBOptionRecord &record) {
  auto print = [](const char *format, auto... arguments) {
    ZB_LOG_FROM(&sSite, ZBLogLevelRaw, "ZBOptionsPrint", __FILE__, __LINE__, format, arguments...);
  };
  union {
    uint8_t boolean;
    int32_t integer;
    double real;
    const char *text;
  } value{};
  const bool known = record.type >= ZBOptionTypeBool && record.type <= ZBOptionTypeString;
  if (known && !readRecord(record, &value)) {
    print("%s=%s\n", record.name, "ERROR");
  } else {
    switch (record.type) {
    case 0: print("%s=UNKNOWN", record.name); break;
    case ZBOptionTypeBool: print("%s=%s\n", record.name, value.boolean ? "YES" : "NO"); break;
    case ZBOptionTypeInt: print("%s=%d\n", record.name, value.integer); break;
    case ZBOptionTypeDouble: print("%s=%g\n", record.name, value.real); break;
    case ZBOptionTypeString: print("%s=%s\n", record.name, value.text); break;
    default: break;
    }
  }
  if (record.help != nullptr)
    print("%s\n", record.help);
}

} // namespace

extern "C" void ZBOptionRegisterWithValues(const char *name, const char *description,
                                           const char *category, int32_t type, void *storage,
                                           const void *values, const char *const *valueNames,
                                           int32_t valueCount, ZBOptionNotifyFn notify,
                                           ZBOptionReadFn read, ZBOptionWriteFn write,
                                           const char *help) noexcept {
  const char *const function = "ZBOptionRegisterWithValues";
  const bool hasCallback = read != nullptr || write != nullptr;
  const bool hasBothCallbacks = read != nullptr && write != nullptr;
  if (storage != nullptr && hasCallback && !hasBothCallbacks)
    fatal(function, 72, "Options must specify read-and-write callbacks together.");
  if (storage == nullptr && !hasBothCallbacks)
    fatal(function, 67, "Options must either specify a value address or value callbacks.");
  if (notify != nullptr && hasCallback)
    fatal(function, 76, "Cannot specify both a notify callback and read-and-write callbacks");
  if (name == nullptr || std::strncmp(name, "QUOVEX_", 7) != 0)
    fatal(function, 80, "Options must be prefixed with QUOVEX_");

  auto *record = static_cast<ZBOptionRecord *>(
      _ZBAllocWithZoneCountAndDesc(nullptr, 1, sizeof(ZBOptionRecord), function));
  *record = ZBOptionRecord{storage, values, valueNames, valueCount, type, 0, name, description,
                           category ? category : "Settings", help, notify, read, write, nullptr};
  bool duplicate = false;
  {
    zb::ScopedLock lock(&sRegistryLock);
    duplicate = findLocked(name) != nullptr;
    if (!duplicate) {
      record->next = sOptions;
      sOptions = record;
    }
  }
  if (duplicate)
    fatal(function, 84, "Trying to register option '%s' which is already registered", name);
  takeInitialValue(*record);
}

extern "C" void ZBOptionRegister(const char *name, const char *description, const char *category,
                                 int32_t type, void *storage, ZBOptionNotifyFn notify,
                                 const char *help) noexcept {
  ZBOptionRegisterWithValues(name, description, category, type, storage, nullptr, nullptr, 0,
                             notify, nullptr, nullptr, help);
}

extern "C" void ZBOptionRegisterWithCallbacks(const char *name, const char *description,
                                              const char *category, int32_t type,
                                              ZBOptionReadFn read, ZBOptionWriteFn write,
                                              const char *help) noexcept {
  ZBOptionRegisterWithValues(name, description, category, type, nullptr, nullptr, nullptr, 0,
                             nullptr, read, write, help);
}

extern "C" bool ZBOptionRead(const char *name, void *value) noexcept {
  const ZBOptionRecord *record = find(name);
  if (record == nullptr || value == nullptr)
    return false;
  readRecord(*record, value);
  return true;
}

extern "C" bool ZBOptionWrite(const char *name, const void *value) noexcept {
  const ZBOptionRecord *record = find(name);
  if (record == nullptr)
    return false;
  char *copy = nullptr;
  if (record->type == ZBOptionTypeString && record->storage != nullptr) {
    // The option owns its text: the old one goes, the new one is a copy. A
    // null value leaves the option without text.
    char **text = static_cast<char **>(record->storage);
    _ZBFreeWithZone(nullptr, *text);
    *text = nullptr;
    if (value == nullptr)
      return true;
    const char *source = *static_cast<const char *const *>(value);
    copy = source ? _ZBCStringDuplicate(source) : nullptr;
    value = &copy;
  }
  if (record->storage == nullptr) {
    if (record->write != nullptr)
      record->write(record->name, record->type, value);
    return true;
  }
  if (value != nullptr)
    std::memcpy(record->storage, value, valueBytes(record->type));
  if (record->notify != nullptr)
    record->notify(record->name);
  return true;
}

extern "C" int32_t ZBOptionGetType(const char *name) noexcept {
  const ZBOptionRecord *record = find(name);
  return record ? record->type : 0;
}

extern "C" bool ZBOptionGetBool(const char *name) noexcept {
  union {
    uint8_t first;
    char bytes[sizeof(double)];
  } value{};
  if (!ZBOptionRead(name, &value))
    fatal(__func__, 242, "Option '%s' not registered'", name ? name : "");
  return value.first != 0;
}

extern "C" void ZBOptionsForeach(ZBOptionsForeachFn callback, void *context) noexcept {
  if (callback == nullptr)
    return;
  zb::ScopedLock lock(&sRegistryLock);
  for (const ZBOptionRecord *record = sOptions; record != nullptr; record = record->next)
    callback(context, record->name, record->description, record->category, record->type,
             record->values, record->valueNames, record->valueCount, record->help);
}

extern "C" void ZBOptionsPrint(void) noexcept {
  ZB_LOG_FROM(&sSite, ZBLogLevelRaw, "ZBOptionsPrint", __FILE__, __LINE__,
              "Registered ZBOptions:\n");
  zb::ScopedLock lock(&sRegistryLock);
  for (const ZBOptionRecord *record = sOptions; record != nullptr; record = record->next) {
    if (record != sOptions)
      ZB_LOG_FROM(&sSite, ZBLogLevelRaw, "ZBOptionsPrint", __FILE__, __LINE__, "\n");
    printOption(*record);
  }
}
