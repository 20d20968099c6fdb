// The file names of loaded modules, wide and as UTF-8.
#include "ZBModulePath.h"

#include "ZBAlloc.h"
#include "ZBSystemCalls.h"

#include <psapi.h>

#include <utility>

namespace zb::module {

std::wstring path(HMODULE module) {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length =
        zb::gSystemCalls.GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
    if (length == 0)
      return std::wstring();
    if (length < path.size()) {
      path.resize(length);
      return path;
    }
    if (path.size() >= 32768) // the longest path Windows has
      return std::wstring();
    path.resize(path.size() * 2);
  }
}

char *copyUTF8(const wchar_t *text, size_t length) noexcept {
  const int units = static_cast<int>(length);
  const int bytes =
      length == 0 ? 0 : WideCharToMultiByte(CP_UTF8, 0, text, units, nullptr, 0, nullptr, nullptr);
  if (bytes < 0)
    return nullptr;
  auto *utf8 = static_cast<char *>(_ZBAlloc(static_cast<size_t>(bytes) + 1));
  if (utf8 == nullptr)
    return nullptr;
  if (bytes > 0)
    WideCharToMultiByte(CP_UTF8, 0, text, units, utf8, bytes, nullptr, nullptr);
  utf8[bytes] = '\0';
  return utf8;
}

} // namespace zb::module

namespace zb::module {

bool loaded(std::vector<HMODULE> *modules) {
  const HANDLE process = GetCurrentProcess();
  DWORD needed = 0;
  modules->resize(256);
  for (;;) {
    const DWORD capacity = static_cast<DWORD>(modules->size() * sizeof(HMODULE));
    if (!K32EnumProcessModules(process, modules->data(), capacity, &needed))
      return false;
    if (needed <= capacity)
      break;
    modules->resize(needed / sizeof(HMODULE) + 16); // room for loads in between
  }
  modules->resize(needed / sizeof(HMODULE));
  // The list is in load order, which puts the executable first; make sure.
  const HMODULE executable = GetModuleHandleW(nullptr);
  for (size_t index = 1; index < modules->size(); ++index)
    if ((*modules)[index] == executable)
      std::swap((*modules)[0], (*modules)[index]);
  return true;
}

} // namespace zb::module
