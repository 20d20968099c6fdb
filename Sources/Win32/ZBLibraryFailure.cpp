// The failures of the dynamic-library functions. Their text is English
// whatever the system's language, since callers parse it and compare it
// across machines; a system without English messages gives "error N". A
// missing dependency is found by reading the image file's import table and
// looking for each imported library the way the loader would.
#include "ZBLibraryFailure.h"

#include "ZBAlloc.h"
#include "ZBLibrary.h"
#include "ZBErrorMapping.h"
#include "ZBOwned.h"
#include "ZBPEImage.h"
#include "ZBScopedHandle.h"
#include "ZBString.h"
#include "ZBSystemCalls.h"
#include "ZBThread.h"

#include <cstring>
#include <string>
#include <string_view>

namespace zb::library {
namespace {

// The text of the last failure (freed with the thread) and whether it has
// been reported since: each failure is reported once, as dlerror does.
ZBThreadKey gTextKey = -1;
ZBThreadKey gUnreadKey = -1;

constexpr ErrorMapRow kLoadErrors[] = {
    {ERROR_FILE_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_PATH_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_MOD_NOT_FOUND, ZBErrorFileNotFound},
    {ERROR_INVALID_NAME, ZBErrorFileNotFound},
    {ERROR_BAD_EXE_FORMAT, ZBErrorUnsupported},
    {ERROR_INVALID_EXE_SIGNATURE, ZBErrorUnsupported},
    {ERROR_EXE_MACHINE_TYPE_MISMATCH, ZBErrorUnsupported},
    {ERROR_BAD_FORMAT, ZBErrorUnsupported},
    {ERROR_ACCESS_DENIED, ZBErrorAccessDenied},
    {ERROR_NOT_ENOUGH_MEMORY, ZBErrorNoMemory},
    {ERROR_OUTOFMEMORY, ZBErrorNoMemory},
};

// The system's English message for the error, its "%1" replaced by the
// subject, trailing line breaks and full stop dropped.
std::string englishMessage(DWORD winError, const char *subject) {
  wchar_t *buffer = nullptr;
  const DWORD length = FormatMessageW(
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
      nullptr, winError, MAKELANGID(LANG_ENGLISH, SUBLANG_ENGLISH_US),
      reinterpret_cast<wchar_t *>(&buffer), 0, nullptr);
  std::string message;
  if (length != 0) {
    const int bytes = WideCharToMultiByte(CP_UTF8, 0, buffer, static_cast<int>(length), nullptr, 0,
                                          nullptr, nullptr);
    message.resize(bytes > 0 ? static_cast<size_t>(bytes) : 0);
    WideCharToMultiByte(CP_UTF8, 0, buffer, static_cast<int>(length), message.data(), bytes,
                        nullptr, nullptr);
  }
  LocalFree(buffer);
  while (!message.empty() && std::strchr("\r\n .", message.back()) != nullptr)
    message.pop_back();
  if (message.empty())
    return "error " + std::to_string(winError);
  const size_t insert = message.find("%1");
  if (insert != std::string::npos)
    message.replace(insert, 2, subject);
  return message;
}

const char kUnread = 1;

void storeText(char *text) noexcept {
  _ZBFree(ZBThreadGetSpecific(gTextKey));
  ZBThreadSetSpecific(gTextKey, text);
  ZBThreadSetSpecific(gUnreadKey, text != nullptr ? &kUnread : nullptr);
}

// The library imported by the file whose search fails, found the way the
// loader looks (the file's own directory, then the standard search path),
// as data so that nothing runs. API-set names resolve inside the loader
// and count as present.
struct DependencySearch {
  std::wstring directory;
  std::string missing;
};

bool findsDependency(std::string_view name, void *context) {
  auto *search = static_cast<DependencySearch *>(context);
  if (name.rfind("api-ms-", 0) == 0 || name.rfind("ext-ms-", 0) == 0)
    return true;
  const std::wstring wide(name.begin(), name.end()); // import names are ASCII
  if (GetModuleHandleW(wide.c_str()) != nullptr)
    return true;
  constexpr DWORD kAsData = LOAD_LIBRARY_AS_DATAFILE | LOAD_LIBRARY_AS_IMAGE_RESOURCE;
  for (const std::wstring &candidate : {search->directory + wide, wide}) {
    HMODULE module = zb::gSystemCalls.LoadLibraryExW(candidate.c_str(), nullptr, kAsData);
    if (module != nullptr) {
      FreeLibrary(module);
      return true;
    }
  }
  search->missing.assign(name);
  return false;
}

std::string missingDependency(const wchar_t *path) {
  ScopedFileHandle file(zb::gSystemCalls.CreateFileW(path, GENERIC_READ, FILE_SHARE_READ, nullptr,
                                                     OPEN_EXISTING, 0, nullptr));
  if (!file.isValid())
    return std::string();
  LARGE_INTEGER size{};
  if (!zb::gSystemCalls.GetFileSizeEx(file.get(), &size) || size.QuadPart == 0)
    return std::string();
  HANDLE mapping =
      zb::gSystemCalls.CreateFileMappingW(file.get(), nullptr, PAGE_READONLY, 0, 0, nullptr);
  if (mapping == nullptr)
    return std::string();
  const auto *bytes = static_cast<const uint8_t *>(
      zb::gSystemCalls.MapViewOfFileEx(mapping, FILE_MAP_READ, 0, 0, 0, nullptr));
  CloseHandle(mapping);
  if (bytes == nullptr)
    return std::string();
  DependencySearch search;
  const std::wstring_view whole(path);
  search.directory.assign(whole.substr(0, whole.find_last_of(L"\\/") + 1));
  pe::Headers headers;
  if (pe::readHeaders(bytes, static_cast<size_t>(size.QuadPart), &headers))
    pe::visitImportedLibraries(bytes, static_cast<size_t>(size.QuadPart), headers, findsDependency,
                               &search);
  zb::gSystemCalls.UnmapViewOfFile(bytes);
  return search.missing;
}

} // namespace

void startFailureKeys() noexcept {
  gTextKey = ZBThreadKeyCreate(_ZBFree);
  gUnreadKey = ZBThreadKeyCreate(nullptr);
}

ZBError errorFromLoadError(DWORD winError) noexcept {
  return lookupError(kLoadErrors, static_cast<int32_t>(winError), ZBErrorGeneric);
}

void setLastFailure(const char *subject, DWORD winError, const char *missingDependency) noexcept {
  try {
    const std::string message = englishMessage(winError, subject);
    storeText(missingDependency == nullptr || missingDependency[0] == '\0'
                  ? ZBCStringCreateWithFormat(nullptr, "%s: %s", subject, message.c_str())
                  : ZBCStringCreateWithFormat(nullptr, "%s: %s (missing dependency: %s)", subject,
                                              message.c_str(), missingDependency));
  } catch (...) {
    storeText(nullptr);
  }
}

ZBError loadFailure(const char *path, const wchar_t *widePath, DWORD winError) noexcept {
  std::string dependency;
  if (winError == ERROR_MOD_NOT_FOUND &&
      zb::gSystemCalls.GetFileAttributesW(widePath) != INVALID_FILE_ATTRIBUTES) {
    try {
      dependency = missingDependency(widePath);
    } catch (...) {
      // Without memory the text goes without the name.
    }
  }
  setLastFailure(path, winError, dependency.c_str());
  return errorFromLoadError(winError);
}

} // namespace zb::library

extern "C" char *ZBLibraryCopyLastError(void) noexcept {
  using namespace zb::library;
  if (ZBThreadGetSpecific(gUnreadKey) == nullptr)
    return nullptr;
  ZBThreadSetSpecific(gUnreadKey, nullptr);
  return _ZBCStringDuplicate(static_cast<const char *>(ZBThreadGetSpecific(gTextKey)));
}
