// The calling process's own identity: its executable's name and path (the
// path read once at load), its arguments, its ID and its memory use.
#include "ZBProcess.h"

#include "ZBAlloc.h"
#include "ZBModulePath.h"
#include "ZBPath.h"
#include "ZBProcessPrivate.h"

#include <psapi.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

// Read once by _ZBProcessStartup: the executable does not change while the
// process runs. Empty when the system could not name it at load.
std::wstring sCurrentPath;

// UTF-8 of wide text; a lone surrogate becomes U+FFFD.
std::string utf8Of(const std::wstring &text) {
  const int units = static_cast<int>(text.size());
  const int bytes =
      WideCharToMultiByte(CP_UTF8, 0, text.data(), units, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<size_t>(bytes > 0 ? bytes : 0), '\0');
  if (bytes > 0)
    WideCharToMultiByte(CP_UTF8, 0, text.data(), units, result.data(), bytes, nullptr, nullptr);
  return result;
}

// The strings as one block from the default zone: the null-terminated
// array of pointers, then the strings it points at.
char **copyAsOneBlock(const std::vector<std::string> &strings) {
  size_t size = (strings.size() + 1) * sizeof(char *);
  for (const std::string &text : strings)
    size += text.size() + 1;
  auto **array = static_cast<char **>(_ZBAlloc(size));
  if (array == nullptr)
    return nullptr;
  char *next = reinterpret_cast<char *>(array + strings.size() + 1);
  for (size_t i = 0; i < strings.size(); ++i) {
    array[i] = next;
    std::memcpy(next, strings[i].c_str(), strings[i].size() + 1);
    next += strings[i].size() + 1;
  }
  array[strings.size()] = nullptr;
  return array;
}

} // namespace

void _ZBProcessStartup() noexcept {
  try {
    sCurrentPath = zb::module::path(nullptr);
  } catch (...) {
    sCurrentPath.clear();
  }
}

extern "C" char *ZBProcessCopyCurrentPath(void) noexcept {
  if (sCurrentPath.empty())
    return nullptr;
  try {
    const std::string utf8 = utf8Of(sCurrentPath);
    return ZBPathCopyConvertingWithStyle(ZBPathStyleDOS, utf8.c_str(), ZBPathStylePOSIX, 0, false);
  } catch (...) {
    return nullptr;
  }
}

extern "C" ZBError ZBProcessCopyArguments(uint32_t *outCount, char ***outArguments) noexcept {
  if (outCount == nullptr || outArguments == nullptr)
    return ZBErrorInvalidArgument;
  try {
    std::vector<std::string> arguments;
    for (const std::wstring &argument : zb::process::parseCommandLine(GetCommandLineW()))
      arguments.push_back(utf8Of(argument));
    char **block = copyAsOneBlock(arguments);
    if (block == nullptr)
      return ZBErrorNoMemory;
    *outCount = static_cast<uint32_t>(arguments.size());
    *outArguments = block;
    return ZBErrorNone;
  } catch (...) {
    return ZBErrorNoMemory;
  }
}

extern "C" uint32_t ZBProcessGetCurrentID(void) noexcept { return GetCurrentProcessId(); }

extern "C" ZBError ZBProcessGetMemoryUsage(ZBProcessMemoryUsage *out) noexcept {
  if (out == nullptr)
    return ZBErrorInvalidArgument;
  PROCESS_MEMORY_COUNTERS counters = {};
  counters.cb = sizeof counters;
  // The kernel32 form: psapi.dll is not one of the library's imports.
  if (!K32GetProcessMemoryInfo(GetCurrentProcess(), &counters, sizeof counters))
    return ZBErrorGeneric;
  out->residentBytes = counters.WorkingSetSize;
  out->peakResidentBytes = counters.PeakWorkingSetSize;
  // The commit charge, which the system documents as the private bytes
  // (PrivateUsage of the extended record holds the same value; Wine leaves
  // that one 0).
  out->privateBytes = counters.PagefileUsage;
  return ZBErrorNone;
}

extern "C" char *ZBProcessCopyCurrentName(void) noexcept {
  try {
    std::wstring name = zb::module::path(nullptr);
    const size_t separator = name.find_last_of(L"\\/");
    if (separator != std::wstring::npos)
      name.erase(0, separator + 1);
    const size_t dot = name.rfind(L'.');
    if (dot != std::wstring::npos && dot != 0)
      name.resize(dot);
    if (name.empty())
      return nullptr;
    return zb::module::copyUTF8(name.data(), name.size());
  } catch (...) {
    return nullptr;
  }
}
