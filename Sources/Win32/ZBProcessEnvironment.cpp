// The environment block a child starts with. Programs the library starts
// tell their parent's private temporary directory apart through
// QUOVEX_CHILDPROCESS, and Windows programs fail in odd ways without
// SYSTEMROOT and its kin, so both are added to whatever the caller gives.
#include "ZBEnvironment.h"
#include "ZBProcessPrivate.h"

#include <windows.h>

#include <algorithm>
#include <memory>

namespace zb::process {

namespace {

// Taken from this process where the child's entries lack them.
const wchar_t *const kSystemVariables[] = {L"SYSTEMROOT", L"SYSTEMDRIVE", L"WINDIR",
                                           L"TEMP",       L"TMP",         L"USERPROFILE",
                                           L"PATH",       L"PATHEXT",     L"COMSPEC"};

const wchar_t kChildMarker[] = L"QUOVEX_CHILDPROCESS";

std::wstring nameOf(const std::wstring &entry) {
  // A leading "=" belongs to the name ("=C:=C:\x", the drives' directories).
  return entry.substr(0, entry.find(L'=', 1));
}

bool sameName(const std::wstring &a, const std::wstring &b) {
  return CompareStringOrdinal(a.data(), static_cast<int>(a.size()), b.data(),
                              static_cast<int>(b.size()), TRUE) == CSTR_EQUAL;
}

bool lessByName(const std::wstring &a, const std::wstring &b) {
  const std::wstring nameA = nameOf(a), nameB = nameOf(b);
  return CompareStringOrdinal(nameA.data(), static_cast<int>(nameA.size()), nameB.data(),
                              static_cast<int>(nameB.size()), TRUE) == CSTR_LESS_THAN;
}

struct EnvironmentCopy {
  void operator()(char **environment) const noexcept { ZBEnvironmentReleaseEnviron(environment); }
};

} // namespace

bool wideOf(const char *text, std::wstring &out) {
  out.clear();
  const int bytes = static_cast<int>(std::char_traits<char>::length(text));
  if (bytes == 0)
    return true;
  const int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, bytes, nullptr, 0);
  if (units <= 0)
    return false;
  out.resize(static_cast<size_t>(units));
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text, bytes, out.data(), units);
  return true;
}

ZBError environmentBlock(const char *const *environment, std::wstring &out) {
  std::unique_ptr<char *, EnvironmentCopy> own;
  if (environment == nullptr) {
    own.reset(ZBEnvironmentCopyEnviron());
    if (!own)
      return ZBErrorNoMemory;
    environment = own.get();
  }
  std::vector<std::wstring> entries;
  for (const char *const *entry = environment; *entry != nullptr; ++entry) {
    std::wstring wide;
    if (!wideOf(*entry, wide) || wide.find(L'=', 1) == std::wstring::npos)
      return ZBErrorInvalidArgument;
    if (!sameName(nameOf(wide), kChildMarker))
      entries.push_back(std::move(wide));
  }
  entries.push_back(std::wstring(kChildMarker) + L"=1");
  std::wstring value(32767, L'\0');
  for (const wchar_t *name : kSystemVariables) {
    const bool present = std::any_of(entries.begin(), entries.end(), [name](const std::wstring &e) {
      return sameName(nameOf(e), name);
    });
    const DWORD length = present ? 0 : GetEnvironmentVariableW(name, value.data(), 32767);
    if (length > 0 && length < 32767)
      entries.push_back(std::wstring(name) + L"=" + value.substr(0, length));
  }
  std::stable_sort(entries.begin(), entries.end(), lessByName);
  out.clear();
  for (const std::wstring &entry : entries) {
    out += entry;
    out.push_back(L'\0');
  }
  out.push_back(L'\0');
  return ZBErrorNone;
}

const wchar_t *findInBlock(const std::wstring &block, const wchar_t *name) {
  for (size_t start = 0; start < block.size() && block[start] != L'\0';) {
    const size_t end = block.find(L'\0', start);
    const std::wstring entry = block.substr(start, end - start);
    if (sameName(nameOf(entry), name))
      return block.c_str() + start + nameOf(entry).size() + 1;
    start = end + 1;
  }
  return nullptr;
}

} // namespace zb::process
