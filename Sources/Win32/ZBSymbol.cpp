// Symbol lookups: the module of an address, then the resolver chain, with
// the answers kept in a cache whose strings live as long as the process, so
// that callers may hold them and a repeated address costs one shared lock
// and one hash lookup. C++ names are demangled into a buffer made at the
// backtrace service's start-up.
#include "ZBBacktrace.h"

#include "ZBString.h"
#include "ZBSymbolResolvers.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cxxabi.h>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace zb::symbols {
namespace {

constexpr size_t kDemangleBufferBytes = 4096;
constexpr DWORD kLongestPath = 32768;

struct Cache {
  SRWLOCK lock = SRWLOCK_INIT;
  std::unordered_map<uintptr_t, ZBSymbolInfo> answers;
  std::unordered_set<std::string> strings; // nodes do not move: their text is handed out
  char *demangled = static_cast<char *>(std::malloc(kDemangleBufferBytes));
  size_t demangledCapacity = kDemangleBufferBytes;
  uint32_t resolvers = kResolveAll;
};

// Made once and never destroyed: lookups may come during the process's exit.
Cache *cache() noexcept {
  static Cache *const sCache = new (std::nothrow) Cache();
  return sCache;
}

using Resolver = bool (*)(uintptr_t address, const Module &module, Answer &answer) noexcept;
struct ChainLink {
  uint32_t bit;
  Resolver resolve;
};
constexpr ChainLink kChain[] = {
    {kResolveDbgHelp, resolveWithDbgHelp},
    {kResolveDebugInfo, resolveWithDebugInfo},
    {kResolveExports, resolveWithExports},
};

// Each resolver fills what the ones before it left open.
Answer runChain(uintptr_t address, const Module &module, uint32_t resolvers) noexcept {
  Answer combined;
  for (const ChainLink &link : kChain) {
    if ((resolvers & link.bit) == 0)
      continue;
    Answer answer;
    if (!link.resolve(address, module, answer))
      continue;
    if (combined.name.empty() && !answer.name.empty()) {
      combined.name.swap(answer.name);
      combined.functionAddress = answer.functionAddress;
    }
    if (combined.line == 0 && answer.line != 0) {
      combined.file.swap(answer.file);
      combined.line = answer.line;
    }
    if (!combined.name.empty() && combined.line != 0)
      break;
  }
  return combined;
}

// Called with the cache's lock held exclusively.
const char *intern(Cache &cache, const std::string &text) {
  if (text.empty())
    return nullptr;
  return cache.strings.insert(text).first->c_str();
}

const char *internName(Cache &cache, const std::string &name) {
  if (name.size() > 2 && name[0] == '_' && name[1] == 'Z' && cache.demangled != nullptr) {
    int status = -1;
    char *result =
        abi::__cxa_demangle(name.c_str(), cache.demangled, &cache.demangledCapacity, &status);
    if (result != nullptr)
      cache.demangled = result; // grown by realloc
    if (status == 0 && result != nullptr)
      return intern(cache, result);
  }
  return intern(cache, name);
}

} // namespace

std::string utf8(const wchar_t *text) noexcept {
  std::string converted;
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (bytes <= 1)
    return converted;
  try {
    converted.resize(static_cast<size_t>(bytes));
  } catch (...) {
    return converted;
  }
  WideCharToMultiByte(CP_UTF8, 0, text, -1, converted.data(), bytes, nullptr, nullptr);
  converted.resize(static_cast<size_t>(bytes - 1));
  return converted;
}

void setResolvers(uint32_t bits) noexcept {
  Cache *symbols = cache();
  if (symbols == nullptr)
    return;
  AcquireSRWLockExclusive(&symbols->lock);
  symbols->resolvers = bits;
  symbols->answers.clear();
  ReleaseSRWLockExclusive(&symbols->lock);
}

void prepare() noexcept { cache(); }

} // namespace zb::symbols

using namespace zb::symbols;

extern "C" ZBError ZBSymbolLookup(const void *address, ZBSymbolInfo *out) noexcept {
  if (out == nullptr)
    return ZBErrorInvalidArgument;
  *out = ZBSymbolInfo{};
  Cache *cached = cache();
  if (cached == nullptr)
    return ZBErrorNoMemory;
  Cache &symbols = *cached;
  const auto key = reinterpret_cast<uintptr_t>(address);
  AcquireSRWLockShared(&symbols.lock);
  const auto known = symbols.answers.find(key);
  const bool found = known != symbols.answers.end();
  if (found)
    *out = known->second;
  const uint32_t resolvers = symbols.resolvers;
  ReleaseSRWLockShared(&symbols.lock);
  if (found)
    return ZBErrorNone;

  HMODULE handle = nullptr;
  if (!GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                              GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                          static_cast<LPCWSTR>(address), &handle))
    return ZBErrorNotFound;
  std::wstring path;
  try {
    path.resize(kLongestPath);
  } catch (...) {
    return ZBErrorNoMemory;
  }
  const DWORD length = GetModuleFileNameW(handle, path.data(), kLongestPath);
  if (length == 0 || length >= kLongestPath)
    return ZBErrorNotFound;
  path.resize(length);
  const Module module{reinterpret_cast<uintptr_t>(handle), path.c_str()};
  const Answer answer = runChain(key, module, resolvers);

  ZBError result = ZBErrorNone;
  AcquireSRWLockExclusive(&symbols.lock);
  try {
    ZBSymbolInfo info{};
    info.modulePath = intern(symbols, utf8(path.c_str()));
    info.moduleBase = handle;
    info.name = internName(symbols, answer.name);
    info.offset = info.name != nullptr ? key - answer.functionAddress : 0;
    info.file = intern(symbols, answer.file);
    info.line = answer.line;
    *out = symbols.answers.emplace(key, info).first->second;
  } catch (...) {
    result = ZBErrorNoMemory;
  }
  ReleaseSRWLockExclusive(&symbols.lock);
  return result;
}

namespace {

const char *baseName(const char *path) {
  const char *name = path;
  for (const char *at = path; *at != '\0'; ++at)
    if (*at == '/' || *at == '\\')
      name = at + 1;
  return name;
}

} // namespace

extern "C" char *ZBSymbolCopyDescription(const void *address) noexcept {
  ZBSymbolInfo info;
  char text[1024];
  int length = 0;
  const auto where = reinterpret_cast<uintptr_t>(address);
  if (ZBSymbolLookup(address, &info) != ZBErrorNone) {
    length = std::snprintf(text, sizeof text, "0x%llx", static_cast<unsigned long long>(where));
  } else {
    const auto moduleOffset =
        static_cast<unsigned long long>(where - reinterpret_cast<uintptr_t>(info.moduleBase));
    const char *module = info.modulePath != nullptr ? baseName(info.modulePath) : "?";
    char function[512] = "";
    if (info.name != nullptr)
      std::snprintf(function, sizeof function, "%s+0x%llx ", info.name,
                    static_cast<unsigned long long>(info.offset));
    else
      std::snprintf(function, sizeof function, "0x%llx ", static_cast<unsigned long long>(where));
    char line[512] = "";
    if (info.file != nullptr)
      std::snprintf(line, sizeof line, "(%s:%u) ", baseName(info.file), info.line);
    length =
        std::snprintf(text, sizeof text, "%s%s[%s+0x%llx]", function, line, module, moduleOffset);
  }
  if (length < 0)
    return nullptr;
  return ZBCStringDuplicateWithLength(
      nullptr, text, std::min<size_t>(static_cast<size_t>(length), sizeof text - 1));
}
