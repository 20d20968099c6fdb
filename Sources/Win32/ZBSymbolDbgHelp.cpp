// The first resolver: DbgHelp, loaded from the system directory when first
// needed. DbgHelp is single-threaded, so every call goes through one lock.
// It runs in a session of its own (a duplicate of the process handle, a
// value no one else uses), so it neither disturbs nor is disturbed by a
// host that called SymInitialize with the process handle. Modules are
// loaded into the session when an address is not found, then the lookup
// is tried once more.
#include "ZBSymbolResolvers.h"

#include <windows.h>
// clang-format off
#include <dbghelp.h>
// clang-format on

#include <algorithm>

namespace zb::symbols {
namespace {

constexpr size_t kLongestName = 1024;

struct DbgHelp {
  decltype(&SymFromAddrW) fromAddress;
  decltype(&SymGetLineFromAddrW64) lineFromAddress;
  decltype(&SymLoadModuleExW) loadModule;
  HANDLE session;
};

SRWLOCK sLock = SRWLOCK_INIT;

template <typename Function>
Function resolve(HMODULE module, const char *name) {
  return reinterpret_cast<Function>(reinterpret_cast<void *>(GetProcAddress(module, name)));
}

// Loads DbgHelp and opens the session; called with the lock held. A null
// session when DbgHelp is missing or refuses.
DbgHelp load() noexcept {
  DbgHelp dbgHelp{};
  HMODULE module = LoadLibraryExW(L"dbghelp.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (module == nullptr)
    return dbgHelp;
  const auto initialize = resolve<decltype(&SymInitializeW)>(module, "SymInitializeW");
  const auto getOptions = resolve<decltype(&SymGetOptions)>(module, "SymGetOptions");
  const auto setOptions = resolve<decltype(&SymSetOptions)>(module, "SymSetOptions");
  dbgHelp.fromAddress = resolve<decltype(&SymFromAddrW)>(module, "SymFromAddrW");
  dbgHelp.lineFromAddress =
      resolve<decltype(&SymGetLineFromAddrW64)>(module, "SymGetLineFromAddrW64");
  dbgHelp.loadModule = resolve<decltype(&SymLoadModuleExW)>(module, "SymLoadModuleExW");
  HANDLE session = nullptr;
  if (initialize == nullptr || getOptions == nullptr || setOptions == nullptr ||
      dbgHelp.fromAddress == nullptr || dbgHelp.lineFromAddress == nullptr ||
      dbgHelp.loadModule == nullptr ||
      !DuplicateHandle(GetCurrentProcess(), GetCurrentProcess(), GetCurrentProcess(), &session, 0,
                       FALSE, DUPLICATE_SAME_ACCESS))
    return dbgHelp;
  // DbgHelp's options are per process: the library only adds what it needs.
  setOptions(getOptions() | SYMOPT_UNDNAME | SYMOPT_LOAD_LINES | SYMOPT_FAIL_CRITICAL_ERRORS |
             SYMOPT_NO_PROMPTS);
  if (!initialize(session, nullptr, FALSE)) {
    CloseHandle(session);
    return dbgHelp;
  }
  dbgHelp.session = session;
  return dbgHelp;
}

} // namespace

bool resolveWithDbgHelp(uintptr_t address, const Module &module, Answer &answer) noexcept {
  AcquireSRWLockExclusive(&sLock);
  static const DbgHelp dbgHelp = load();
  bool found = false;
  if (dbgHelp.session != nullptr) {
    alignas(SYMBOL_INFOW) uint8_t storage[sizeof(SYMBOL_INFOW) + kLongestName * sizeof(WCHAR)];
    auto *symbol = reinterpret_cast<SYMBOL_INFOW *>(storage);
    const auto ask = [&] {
      *symbol = SYMBOL_INFOW{};
      symbol->SizeOfStruct = sizeof(SYMBOL_INFOW);
      symbol->MaxNameLen = kLongestName;
      DWORD64 displacement = 0;
      return dbgHelp.fromAddress(dbgHelp.session, address, &displacement, symbol) != FALSE;
    };
    bool named = ask();
    if (!named) {
      dbgHelp.loadModule(dbgHelp.session, nullptr, module.path, nullptr, module.base, 0, nullptr,
                         0);
      named = ask();
    }
    if (named && symbol->NameLen > 0) {
      symbol->Name[std::min<ULONG>(symbol->NameLen, kLongestName - 1)] = L'\0';
      answer.name = utf8(symbol->Name);
      answer.functionAddress = static_cast<uintptr_t>(symbol->Address);
      found = !answer.name.empty();
    }
    IMAGEHLP_LINEW64 line{};
    line.SizeOfStruct = sizeof line;
    DWORD displacement = 0;
    if (dbgHelp.lineFromAddress(dbgHelp.session, address, &displacement, &line) &&
        line.FileName != nullptr && line.LineNumber != 0) {
      answer.file = utf8(line.FileName);
      answer.line = line.LineNumber;
      found = true;
    }
  }
  ReleaseSRWLockExclusive(&sLock);
  return found;
}

} // namespace zb::symbols
