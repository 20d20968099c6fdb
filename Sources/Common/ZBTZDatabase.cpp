// The process-wide database of zone names: the tz names of the known zones
// present on the system, the alias links that lead to them, and each known
// name's canonical name. Three small hash tables of owned strings, built once
// under one lock and rebuilt after a reset.
#include "ZBTZFile.h"

#include "ZBAlloc.h"
#include "ZBScopedLock.h"
#include "ZBString.h"

#include <cstring>
#include <pthread.h>

namespace {

constexpr uint32_t kChains = 32;

struct Entry {
  Entry *next;
  char *key;
  char *value;
};

struct Table {
  Entry *chains[kChains];

  Entry *find(const char *key) const {
    for (Entry *entry = chains[tz_database_hash(key) & (kChains - 1)]; entry; entry = entry->next)
      if (std::strcmp(entry->key, key) == 0)
        return entry;
    return nullptr;
  }
  // New entries go to the end of their chain, so a walk meets them in the
  // order they were added within a chain. Allocation failures drop the entry.
  void add(const char *key, const char *value) {
    auto *entry = static_cast<Entry *>(_ZBAllocWithCount(1, sizeof(Entry)));
    if (entry == nullptr)
      return;
    entry->key = _ZBCStringDuplicate(key);
    entry->value = value ? _ZBCStringDuplicate(value) : nullptr;
    if (entry->key == nullptr || (value != nullptr && entry->value == nullptr)) {
      _ZBFree(entry->key);
      _ZBFree(entry->value);
      _ZBFree(entry);
      return;
    }
    Entry **slot = &chains[tz_database_hash(key) & (kChains - 1)];
    while (*slot != nullptr)
      slot = &(*slot)->next;
    *slot = entry;
  }
  void clear() {
    for (Entry *&chain : chains)
      while (chain != nullptr) {
        Entry *next = chain->next;
        _ZBFree(chain->key);
        _ZBFree(chain->value);
        _ZBFree(chain);
        chain = next;
      }
  }
};

pthread_mutex_t sLock = PTHREAD_MUTEX_INITIALIZER;
bool sBuilt;
Table sNames, sLinks, sCanonical;

// Which rows the system has is asked before the database lock is taken: the
// platform answers under a lock of its own, and the two are never held
// together.
struct Presence {
  bool rows[kTZKnownZoneCount];
};

void buildLocked(const Presence &presence) {
  if (sBuilt)
    return;
  for (int32_t row = 0; row < kTZKnownZoneCount; ++row) {
    if (!presence.rows[row])
      continue;
    const TZKnownZone &zone = kTZKnownZones[row];
    for (int32_t index = 0; index < kTZMaxZoneNames && zone.zoneNames[index]; ++index) {
      if (sNames.find(zone.zoneNames[index]) != nullptr)
        continue;
      sNames.add(zone.zoneNames[index], nullptr);
      sCanonical.add(zone.zoneNames[index], zone.zoneNames[0]);
    }
  }
  for (const auto &link : kTZBuiltinLinks)
    if (sNames.find(link[1]) != nullptr && sLinks.find(link[0]) == nullptr)
      sLinks.add(link[0], link[1]);
  sBuilt = true;
}

// Builds the database unless it is built, and answers with its lock held.
class BuiltDatabase {
public:
  BuiltDatabase() {
    bool built;
    {
      zb::ScopedLock<pthread_mutex_t> hold(&sLock);
      built = sBuilt;
    }
    if (!built)
      for (int32_t row = 0; row < kTZKnownZoneCount; ++row)
        mPresence.rows[row] = tz_platform_row_present(row);
    pthread_mutex_lock(&sLock);
    if (!built)
      buildLocked(mPresence);
  }
  ~BuiltDatabase() { pthread_mutex_unlock(&sLock); }
  BuiltDatabase(const BuiltDatabase &) = delete;
  BuiltDatabase &operator=(const BuiltDatabase &) = delete;

private:
  Presence mPresence{};
};

} // namespace

uint32_t tz_database_hash(const char *text) noexcept {
  uint32_t hash = 903869;
  for (; text != nullptr && *text != '\0'; ++text)
    hash = (hash + static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(*text)))) *
           257u;
  return hash;
}

void tz_database_ensure_built() noexcept { BuiltDatabase hold; }

bool tz_database_has_name(const char *name) noexcept {
  if (name == nullptr)
    return false;
  BuiltDatabase hold;
  return sNames.find(name) != nullptr;
}

// Entries are freed only by a reset, which callers do not race with lookups
// whose answers they still hold.
const char *tz_database_resolve_link(const char *alias) noexcept {
  if (alias == nullptr)
    return nullptr;
  BuiltDatabase hold;
  const Entry *entry = sLinks.find(alias);
  return entry ? entry->value : nullptr;
}

const char *tz_database_canonical_name(const char *name) noexcept {
  if (name == nullptr)
    return nullptr;
  BuiltDatabase hold;
  const Entry *entry = sCanonical.find(name);
  return entry ? entry->value : nullptr;
}

int32_t tz_database_iterate(ZBTimeZoneNameCallback callback, void *context) noexcept {
  if (callback == nullptr)
    return 0;
  BuiltDatabase hold;
  int32_t result = 0;
  for (const Entry *chain : sNames.chains)
    for (const Entry *entry = chain; entry != nullptr; entry = entry->next)
      if ((result = callback(context, entry->key)) > 0)
        return result;
  return result;
}

void tz_database_reset() noexcept {
  zb::ScopedLock<pthread_mutex_t> hold(&sLock);
  sNames.clear();
  sLinks.clear();
  sCanonical.clear();
  sBuilt = false;
}
