// Descriptor reads and writes against ReadFile and WriteFile on the same
// handle, in 4 KiB and 1 MiB blocks, and a scan of a 10,000-entry tree
// against a raw FindFirstFileExW walk of the same tree.
#include "ZBBench.h"

#include "Zenbor.h"

#include <windows.h>

#include <string>
#include <vector>

namespace {

constexpr DWORD kFileSize = 1 << 20;

std::wstring wide(const std::string &text) {
  std::wstring result(text.size(), L'\0');
  result.resize(static_cast<size_t>(
      MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), result.data(),
                          static_cast<int>(result.size()))));
  return result;
}

void rewind(HANDLE handle) {
  LARGE_INTEGER zero = {};
  SetFilePointerEx(handle, zero, nullptr, FILE_BEGIN);
}

// Sequential blocks through the file, back to its start when it is done;
// both sides rewind the same way, so only the transfer call differs.
template <typename Transfer>
void blocks(HANDLE handle, DWORD block, int64_t n, Transfer transfer) {
  const DWORD perPass = kFileSize / block;
  for (int64_t i = 0; i < n; ++i) {
    if (i % perPass == 0)
      rewind(handle);
    transfer();
  }
}

void benchmarkTransfers(const std::string &directory) {
  const std::string path = directory + "/data";
  ZBFileDescriptor fd = 0;
  if (ZBFileDescriptorOpen(path.c_str(), ZBFileDescriptorOpenReadWrite | ZBFileDescriptorOpenCreate,
                           0644, &fd) != 0) {
    std::printf("cannot open %s\n", path.c_str());
    return;
  }
  HANDLE handle = reinterpret_cast<HANDLE>(fd);
  std::vector<char> buffer(kFileSize, 'z');
  ZBFileDescriptorWrite(fd, buffer.data(), kFileSize, nullptr);

  for (DWORD block : {DWORD{4096}, kFileSize}) {
    const zbbench::Options options{15, block == 4096 ? 20000 : 300};
    const std::string size = block == 4096 ? "4 KiB" : "1 MiB";
    zbbench::compare(("ZBFileDescriptorRead " + size + " vs ReadFile").c_str(),
                     [&](int64_t n) {
                       blocks(handle, block, n, [&] {
                         uint32_t count = 0;
                         ZBFileDescriptorRead(fd, buffer.data(), block, &count);
                         zbbench::keep(count);
                       });
                     },
                     [&](int64_t n) {
                       blocks(handle, block, n, [&] {
                         DWORD count = 0;
                         ReadFile(handle, buffer.data(), block, &count, nullptr);
                         zbbench::keep(count);
                       });
                     },
                     options);
    zbbench::compare(("ZBFileDescriptorWrite " + size + " vs WriteFile").c_str(),
                     [&](int64_t n) {
                       blocks(handle, block, n, [&] {
                         uint32_t count = 0;
                         ZBFileDescriptorWrite(fd, buffer.data(), block, &count);
                         zbbench::keep(count);
                       });
                     },
                     [&](int64_t n) {
                       blocks(handle, block, n, [&] {
                         DWORD count = 0;
                         WriteFile(handle, buffer.data(), block, &count, nullptr);
                         zbbench::keep(count);
                       });
                     },
                     options);
  }
  ZBFileDescriptorClose(fd);
}

bool countEntry(void *context, const char *, const char *, int32_t, uint32_t) {
  ++*static_cast<int64_t *>(context);
  return true;
}

// The same walk with nothing but the system: one listing per directory,
// each entry's name copied out, subdirectories entered.
int64_t rawWalk(const std::wstring &directory) {
  WIN32_FIND_DATAW entry;
  HANDLE find = FindFirstFileExW((directory + L"\\*").c_str(), FindExInfoBasic, &entry,
                                 FindExSearchNameMatch, nullptr, FIND_FIRST_EX_LARGE_FETCH);
  if (find == INVALID_HANDLE_VALUE)
    return 0;
  int64_t count = 0;
  do {
    const std::wstring name = entry.cFileName;
    if (name == L"." || name == L"..")
      continue;
    ++count;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)
      count += rawWalk(directory + L"\\" + name);
  } while (FindNextFileW(find, &entry));
  FindClose(find);
  return count;
}

void benchmarkScan(const std::string &directory) {
  // 100 directories of 99 files each: 10,000 entries.
  const std::string tree = directory + "/tree";
  ZBDirectoryCreate(tree.c_str(), 0755);
  for (int d = 0; d < 100; ++d) {
    const std::string sub = tree + "/dir" + std::to_string(d);
    ZBDirectoryCreate(sub.c_str(), 0755);
    for (int f = 0; f < 99; ++f)
      ZBFileCreateFromBytes("", 0, (sub + "/file" + std::to_string(f) + ".txt").c_str(), 0644);
  }
  const std::wstring rawRoot = L"\\\\?\\" + wide(tree);
  std::wstring backslashed = rawRoot;
  for (wchar_t &c : backslashed)
    if (c == L'/')
      c = L'\\';
  int64_t zenborCount = 0;
  int64_t rawCount = 0;
  zbbench::compare(
      "ZBDirectoryScan 10000 entries vs FindFirstFileExW walk",
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          zenborCount = 0;
          ZBDirectoryScan(tree.c_str(), countEntry, -1, &zenborCount);
        }
      },
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          rawCount = rawWalk(backslashed);
      },
      zbbench::Options{9, 1});
  if (zenborCount != 10000 || rawCount != 10000)
    std::printf("entry counts differ: %lld and %lld\n", static_cast<long long>(zenborCount),
                static_cast<long long>(rawCount));
}

} // namespace

int main() {
  wchar_t temp[MAX_PATH + 1];
  GetTempPathW(MAX_PATH + 1, temp);
  char narrow[4 * MAX_PATH];
  WideCharToMultiByte(CP_UTF8, 0, temp, -1, narrow, sizeof narrow, nullptr, nullptr);
  std::string directory = narrow;
  for (char &c : directory)
    if (c == '\\')
      c = '/';
  directory += "zbfilebench-" + std::to_string(GetCurrentProcessId());
  ZBDirectoryCreate(directory.c_str(), 0755);

  zbbench::printHeader();
  benchmarkTransfers(directory);
  benchmarkScan(directory);
  ZBDirectoryRemoveRecursive(directory.c_str());
  return 0;
}
