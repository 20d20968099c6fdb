// The trace name table: each distinct text gets the next id, from 1, for
// the life of the process, whether or not a session records. Sessions write
// the definitions into the trace before the first chunk that could use them.
#include "ZBScopedLock.h"
#include "ZBTrace.h"
#include "ZBTracePrivate.h"

#include <deque>
#include <pthread.h>
#include <string>
#include <string_view>
#include <unordered_map>

namespace {

pthread_mutex_t sNamesLock = PTHREAD_MUTEX_INITIALIZER;
// A deque never moves its elements, so the map's views and the texts handed
// out stay valid.
std::deque<std::string> *sNames;
std::unordered_map<std::string_view, int32_t> *sIDs;

} // namespace

namespace zb::trace {

int32_t defineName(const char *name) noexcept {
  if (name == nullptr)
    return 0;
  zb::ScopedLock lock(&sNamesLock);
  try {
    if (sNames == nullptr) {
      sNames = new std::deque<std::string>;
      sIDs = new std::unordered_map<std::string_view, int32_t>;
    }
    const auto found = sIDs->find(name);
    if (found != sIDs->end())
      return found->second;
    sNames->emplace_back(name);
    const int32_t id = static_cast<int32_t>(sNames->size());
    sIDs->emplace(sNames->back(), id);
    return id;
  } catch (...) {
    return 0; // out of memory: "no name"
  }
}

const char *nameText(int32_t nameID) noexcept {
  zb::ScopedLock lock(&sNamesLock);
  if (sNames == nullptr || nameID < 1 || size_t(nameID) > sNames->size())
    return nullptr;
  return (*sNames)[size_t(nameID) - 1].c_str();
}

int32_t lastNameID() noexcept {
  zb::ScopedLock lock(&sNamesLock);
  return sNames ? static_cast<int32_t>(sNames->size()) : 0;
}

} // namespace zb::trace

extern "C" int32_t ZBTraceDefineName(const char *name) noexcept {
  return zb::trace::defineName(name);
}
