// The calling process's own identity: the name of its executable.
#include "ZBProcess.h"

#include "ZBAlloc.h"
#include "ZBSystemCalls.h"

#include <string>

namespace {

// The executable's full path. GetModuleFileNameW truncates silently and
// says so only by filling the buffer, so the buffer grows until the path
// fits (long-path-aware processes may exceed MAX_PATH).
std::wstring executablePath() {
  std::wstring path(MAX_PATH, L'\0');
  for (;;) {
    const DWORD length =
        zb::gSystemCalls.GetModuleFileNameW(nullptr, path.data(), static_cast<DWORD>(path.size()));
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

} // namespace

extern "C" char *ZBProcessCopyCurrentName(void) noexcept {
  try {
    std::wstring name = executablePath();
    const size_t separator = name.find_last_of(L"\\/");
    if (separator != std::wstring::npos)
      name.erase(0, separator + 1);
    const size_t dot = name.rfind(L'.');
    if (dot != std::wstring::npos && dot != 0)
      name.resize(dot);
    if (name.empty())
      return nullptr;
    // WideCharToMultiByte rather than the library's converter: a name may
    // hold characters beyond the Basic Multilingual Plane.
    const int units = static_cast<int>(name.size());
    const int bytes =
        WideCharToMultiByte(CP_UTF8, 0, name.data(), units, nullptr, 0, nullptr, nullptr);
    if (bytes <= 0)
      return nullptr;
    auto *text = static_cast<char *>(_ZBAlloc(static_cast<size_t>(bytes) + 1));
    if (text == nullptr)
      return nullptr;
    WideCharToMultiByte(CP_UTF8, 0, name.data(), units, text, bytes, nullptr, nullptr);
    text[bytes] = '\0';
    return text;
  } catch (...) {
    return nullptr;
  }
}
