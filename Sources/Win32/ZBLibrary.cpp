// Dynamic libraries: opening with LoadLibraryExW (or naming the program
// itself), symbol look-up with GetProcAddress, and the records of open
// libraries, kept in one list under the recursive lock set up at start-up
// so that a close can tell an open record from a stale one.
#include "ZBLibrary.h"

#include "ZBAlloc.h"
#include "ZBLibraryFailure.h"
#include "ZBLibraryPrivate.h"
#include "ZBLock.h"
#include "ZBModulePath.h"
#include "ZBOwned.h"
#include "ZBPathInfoRecord.h"
#include "ZBString.h"
#include "ZBSystemCalls.h"

#include <vector>

struct ZBLibrary {
  uint32_t tag; // kOpenTag while open
  HMODULE module;
  bool program; // the program itself: every loaded image is searched
  ZBLibrary *next;
};

namespace {

using namespace zb::library;

constexpr uint32_t kOpenTag = 0x4C69624F; // "OLib"

ZBMutex gRecordsLock;
ZBLibrary *gOpenLibraries = nullptr;

class RecordsLock {
public:
  RecordsLock() noexcept { ZBMutexAcquire(&gRecordsLock); }
  ~RecordsLock() { ZBMutexRelease(&gRecordsLock); }
  RecordsLock(const RecordsLock &) = delete;
  RecordsLock &operator=(const RecordsLock &) = delete;
};

bool isAbsolute(const wchar_t *path) noexcept {
  const bool drive =
      ((path[0] | 0x20) >= L'a' && (path[0] | 0x20) <= L'z') && path[1] == L':' && path[2] == L'\\';
  return drive || (path[0] == L'\\' && path[1] == L'\\');
}

// The path as the loader takes it: wide, with backslashes (the loader
// treats "/" as an ordinary character in places).
zb::Owned<wchar_t> loaderPath(const char *path) noexcept {
  zb::Owned<wchar_t> wide(
      ZBWCStringDuplicateCString(nullptr, zb::path::withoutSlashBeforeDrive(path)));
  if (wide != nullptr)
    for (wchar_t *unit = wide.get(); *unit != L'\0'; ++unit)
      if (*unit == L'/')
        *unit = L'\\';
  return wide;
}

ZBError loadModule(const char *path, uint32_t flags, HMODULE *outModule) noexcept {
  const zb::Owned<wchar_t> wide = loaderPath(path);
  if (wide == nullptr)
    return ZBErrorNoMemory;
  if ((flags & ZBLibraryOpenNoLoad) != 0) {
    if (zb::gSystemCalls.GetModuleHandleExW(0, wide.get(), outModule))
      return ZBErrorNone;
    setLastFailure(path, GetLastError());
    return ZBErrorNotFound;
  }
  // A missing file or dependency must come back as an error, never as a
  // dialog box that waits for a user.
  DWORD previousMode = 0;
  SetThreadErrorMode(SEM_FAILCRITICALERRORS, &previousMode);
  *outModule = zb::gSystemCalls.LoadLibraryExW(
      wide.get(), nullptr, isAbsolute(wide.get()) ? LOAD_WITH_ALTERED_SEARCH_PATH : 0);
  const DWORD error = GetLastError();
  SetThreadErrorMode(previousMode, nullptr);
  if (*outModule != nullptr)
    return ZBErrorNone;
  return loadFailure(path, wide.get(), error);
}

// The program's look-up: the executable, then the other images, the most
// recently loaded first.
FARPROC programSymbol(const char *name) noexcept {
  try {
    std::vector<HMODULE> modules;
    if (!zb::module::loaded(&modules) || modules.empty())
      return nullptr;
    if (FARPROC symbol = GetProcAddress(modules[0], name))
      return symbol;
    for (size_t index = modules.size() - 1; index > 0; --index)
      if (FARPROC symbol = GetProcAddress(modules[index], name))
        return symbol;
  } catch (...) {
    SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  }
  return nullptr;
}

} // namespace

void _ZBLibraryStartup() noexcept {
  ZBMutexInitRecursive(&gRecordsLock);
  startFailureKeys();
}

extern "C" ZBError ZBLibraryOpen(const char *path, uint32_t flags,
                                 ZBLibrary **outLibrary) noexcept {
  if (outLibrary == nullptr)
    return ZBErrorInvalidArgument;
  *outLibrary = nullptr;
  if ((flags & ~uint32_t{ZBLibraryOpenNoLoad}) != 0 || (path != nullptr && path[0] == '\0'))
    return ZBErrorInvalidArgument;

  const bool program = path == nullptr;
  HMODULE module = GetModuleHandleW(nullptr);
  if (!program) {
    const ZBError result = loadModule(path, flags, &module);
    if (result != ZBErrorNone)
      return result;
  }
  auto *library = static_cast<ZBLibrary *>(
      _ZBAllocWithZoneAndDesc(nullptr, sizeof(ZBLibrary), "ZBLibraryOpen"));
  if (library == nullptr) {
    if (!program)
      FreeLibrary(module);
    return ZBErrorNoMemory;
  }
  RecordsLock lock;
  *library = ZBLibrary{kOpenTag, module, program, gOpenLibraries};
  gOpenLibraries = library;
  *outLibrary = library;
  return ZBErrorNone;
}

extern "C" ZBError ZBLibraryGetSymbol(ZBLibrary *library, const char *name,
                                      void **outAddress) noexcept {
  if (library == nullptr || name == nullptr || outAddress == nullptr)
    return ZBErrorInvalidArgument;
  *outAddress = nullptr;
  if (library->tag != kOpenTag)
    return ZBErrorInvalidHandle;
  const FARPROC symbol =
      library->program ? programSymbol(name) : GetProcAddress(library->module, name);
  if (symbol == nullptr) {
    setLastFailure(name, GetLastError() == ERROR_NOT_ENOUGH_MEMORY ? ERROR_NOT_ENOUGH_MEMORY
                                                                   : ERROR_PROC_NOT_FOUND);
    return ZBErrorNotFound;
  }
  *outAddress = reinterpret_cast<void *>(symbol);
  return ZBErrorNone;
}

extern "C" ZBError ZBLibraryClose(ZBLibrary *library) noexcept {
  if (library == nullptr)
    return ZBErrorInvalidArgument;
  {
    RecordsLock lock;
    ZBLibrary **link = &gOpenLibraries;
    while (*link != nullptr && *link != library)
      link = &(*link)->next;
    if (*link == nullptr)
      return ZBErrorInvalidHandle;
    *link = library->next;
    library->tag = 0;
  }
  if (!library->program)
    FreeLibrary(library->module);
  _ZBFree(library);
  return ZBErrorNone;
}

extern "C" ZBError ZBLibraryCopyPathForAddress(const void *address, char **outPath,
                                               void **outBase) noexcept {
  if (address == nullptr || outPath == nullptr)
    return ZBErrorInvalidArgument;
  *outPath = nullptr;
  HMODULE module = nullptr;
  if (!zb::gSystemCalls.GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS |
                                               GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                                           static_cast<LPCWSTR>(address), &module))
    return ZBErrorNotFound;
  try {
    const std::wstring path = zb::module::path(module);
    if (path.empty())
      return ZBErrorNotFound;
    *outPath = zb::module::copyUTF8(path.data(), path.size());
  } catch (...) {
  }
  if (*outPath == nullptr)
    return ZBErrorNoMemory;
  if (outBase != nullptr)
    *outBase = module;
  return ZBErrorNone;
}
