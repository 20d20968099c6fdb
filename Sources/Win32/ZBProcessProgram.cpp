// What a spawn runs: the program file, found directly or through the
// child's PATH, and the command line that gives the child back its
// arguments. Batch files are the exception: cmd.exe re-reads their command
// line with rules of its own that no quoting survives, so they run only when
// asked for and only with arguments cmd leaves alone.
#include "ZBErrorMapping.h"
#include "ZBPath.h"
#include "ZBPathInfoRecord.h"
#include "ZBOwned.h"
#include "ZBProcess.h"
#include "ZBProcessPrivate.h"
#include "ZBSystemCalls.h"

#include <windows.h>

#include <cwctype>

namespace zb::process {

namespace {

// The longest command line CreateProcessW takes, its terminator aside.
constexpr size_t kLongestCommandLine = 32766;

// Characters cmd.exe interprets even inside quotes, or around them.
bool cmdInterprets(wchar_t c) {
  return c < 0x20 || c == 0x7f || std::wcschr(L"\"%!^&|<>()", c) != nullptr;
}

// A library path in the form Windows takes: "/C:/x" and "C:/x" give "C:\x".
bool windowsFormOf(const char *path, std::wstring &out) {
  zb::Owned<char> dos(ZBPathCopyConvertingWithStyle(
      ZBPathStylePOSIX, zb::path::withoutSlashBeforeDrive(path), ZBPathStyleDOS, 0, false));
  return dos && wideOf(dos.get(), out);
}

bool isFile(const std::wstring &path) {
  const DWORD attributes = zb::gSystemCalls.GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) == 0;
}

// The name as given, then with ".exe" and ".com", in each directory of the
// child's PATH; never the working directory unless PATH lists it.
bool searchPath(const std::wstring &name, const std::wstring &block, std::wstring &out) {
  const wchar_t *path = findInBlock(block, L"PATH");
  if (path == nullptr)
    return false;
  const std::wstring directories = path;
  for (size_t start = 0; start <= directories.size();) {
    size_t end = directories.find(L';', start);
    if (end == std::wstring::npos)
      end = directories.size();
    std::wstring directory = directories.substr(start, end - start);
    start = end + 1;
    if (directory.size() >= 2 && directory.front() == L'"' && directory.back() == L'"')
      directory = directory.substr(1, directory.size() - 2);
    if (directory.empty())
      continue;
    if (directory.back() != L'\\' && directory.back() != L'/')
      directory.push_back(L'\\');
    for (const wchar_t *suffix : {L"", L".exe", L".com"}) {
      out = directory + name + suffix;
      if (isFile(out))
        return true;
    }
  }
  return false;
}

// ".bat" or ".cmd", also with the dots and spaces Windows strips after it.
bool isBatchFile(const std::wstring &path) {
  size_t end = path.find_last_not_of(L". ");
  if (end == std::wstring::npos || end < 3)
    return false;
  std::wstring extension = path.substr(end - 3, 4);
  for (wchar_t &c : extension)
    c = static_cast<wchar_t>(std::towlower(c));
  return extension == L".bat" || extension == L".cmd";
}

ZBError locate(const std::wstring &given, const std::wstring &block, uint32_t flags,
               std::wstring &out) {
  const bool bareName = given.find_first_of(L"\\/:") == std::wstring::npos;
  if ((flags & ZBProcessSpawnSearchPath) != 0 && bareName)
    return searchPath(given, block, out) ? ZBErrorNone : ZBErrorFileNotFound;
  out = given;
  const DWORD attributes = zb::gSystemCalls.GetFileAttributesW(out.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) {
    const DWORD error = GetLastError();
    return error == ERROR_PATH_NOT_FOUND ? ZBErrorFileNotFound : __ZBIOErrorFromWinError(error);
  }
  return (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 ? ZBErrorIsDirectory : ZBErrorNone;
}

// cmd.exe /d /s /c ""batch" arg arg": /s strips the outer quotes and
// leaves the rest as written.
ZBError batchCommandLine(const std::wstring &batch, const std::vector<std::wstring> &arguments,
                         Program &out) {
  for (size_t i = 1; i < arguments.size(); ++i)
    for (const wchar_t c : arguments[i])
      if (cmdInterprets(c))
        return ZBErrorInvalidArgument;
  for (const wchar_t c : batch)
    if (c == L'"' || c == L'%' || c == L'!')
      return ZBErrorInvalidArgument;
  wchar_t system[MAX_PATH];
  const UINT length = GetSystemDirectoryW(system, MAX_PATH);
  if (length == 0 || length >= MAX_PATH)
    return ZBErrorGeneric;
  out.application = std::wstring(system, length) + L"\\cmd.exe";
  out.commandLine = L"cmd.exe /d /s /c \"\"" + batch + L"\"";
  for (size_t i = 1; i < arguments.size(); ++i)
    appendArgument(out.commandLine, arguments[i], false);
  out.commandLine.push_back(L'"');
  return ZBErrorNone;
}

} // namespace

ZBError resolveProgram(const char *path, const char *const *arguments, const std::wstring &block,
                       uint32_t flags, Program &out) {
  std::vector<std::wstring> wide;
  for (const char *const *argument = arguments; *argument != nullptr; ++argument) {
    wide.emplace_back();
    if (!wideOf(*argument, wide.back()))
      return ZBErrorInvalidArgument;
  }
  if (wide.empty())
    return ZBErrorInvalidArgument;
  std::wstring given;
  if (!windowsFormOf(path, given))
    return ZBErrorInvalidArgument;
  if (isBatchFile(given) && (flags & ZBProcessSpawnAllowBatchFiles) == 0)
    return ZBErrorUnsupported;
  if (const ZBError error = locate(given, block, flags, out.application))
    return error;
  if (isBatchFile(out.application)) {
    const std::wstring batch = out.application;
    if (const ZBError error = batchCommandLine(batch, wide, out))
      return error;
  } else {
    out.commandLine.clear();
    for (size_t i = 0; i < wide.size(); ++i)
      if (!appendArgument(out.commandLine, wide[i], i == 0))
        return ZBErrorInvalidArgument;
  }
  return out.commandLine.size() > kLongestCommandLine ? ZBErrorNameTooLong : ZBErrorNone;
}

} // namespace zb::process
