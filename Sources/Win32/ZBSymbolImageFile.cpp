// The second resolver: the library's own reader of the image file's COFF
// symbols and DWARF line table (ZBDebugInfo), over the file's bytes, read
// once per module file and kept for the life of the process so that later
// lookups in the same module cost no file access.
#include "ZBSymbolResolvers.h"

#include "ZBDebugInfo.h"
#include "ZBScopedHandle.h"

#include <windows.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zb::symbols {
namespace {

constexpr LONGLONG kLargestImageFile = LONGLONG{1} << 30;

SRWLOCK sLock = SRWLOCK_INIT;
// Entries are never removed, so the bytes stay where they are.
std::unordered_map<std::wstring, std::vector<uint8_t>> *sFiles;

std::vector<uint8_t> readFile(const wchar_t *path) noexcept {
  std::vector<uint8_t> bytes;
  const ScopedFileHandle file(CreateFileW(path, GENERIC_READ,
                                          FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                          nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  LARGE_INTEGER size;
  if (file.get() == INVALID_HANDLE_VALUE || !GetFileSizeEx(file.get(), &size) ||
      size.QuadPart <= 0 || size.QuadPart > kLargestImageFile)
    return bytes;
  try {
    bytes.resize(static_cast<size_t>(size.QuadPart));
  } catch (...) {
    return bytes;
  }
  size_t done = 0;
  while (done < bytes.size()) {
    DWORD read = 0;
    const DWORD chunk = static_cast<DWORD>(std::min<size_t>(bytes.size() - done, 1u << 24));
    if (!ReadFile(file.get(), bytes.data() + done, chunk, &read, nullptr) || read == 0) {
      bytes.clear();
      break;
    }
    done += read;
  }
  return bytes;
}

// The module file's bytes, read on first use; null when it cannot be read.
const std::vector<uint8_t> *imageFile(const wchar_t *path) noexcept {
  AcquireSRWLockExclusive(&sLock);
  const std::vector<uint8_t> *bytes = nullptr;
  try {
    if (sFiles == nullptr)
      sFiles = new std::unordered_map<std::wstring, std::vector<uint8_t>>();
    auto found = sFiles->find(path);
    if (found == sFiles->end())
      found = sFiles->emplace(path, readFile(path)).first;
    bytes = &found->second;
  } catch (...) {
  }
  ReleaseSRWLockExclusive(&sLock);
  return bytes;
}

} // namespace

bool resolveWithDebugInfo(uintptr_t address, const Module &module, Answer &answer) noexcept {
  const std::vector<uint8_t> *file = imageFile(module.path);
  debuginfo::Location location;
  if (file == nullptr || file->empty() || address - module.base > UINT32_MAX ||
      !debuginfo::lookup(file->data(), file->size(), static_cast<uint32_t>(address - module.base),
                         &location))
    return false;
  try {
    answer.name.assign(location.name);
    answer.functionAddress = location.name.empty() ? 0 : module.base + location.functionRVA;
    if (location.line != 0) {
      answer.line = location.line;
      const std::string_view name = location.file;
      const bool absolute = (!name.empty() && (name[0] == '/' || name[0] == '\\')) ||
                            (name.size() > 1 && name[1] == ':');
      if (!absolute)
        answer.file.assign(location.directory);
      if (!answer.file.empty() && answer.file.back() != '/' && answer.file.back() != '\\')
        answer.file += '/';
      answer.file.append(location.file);
    }
  } catch (...) {
    return false;
  }
  return true;
}

} // namespace zb::symbols
