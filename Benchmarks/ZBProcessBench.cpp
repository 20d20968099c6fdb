// Starting a program and waiting for it: ZBProcessSpawn plus ZBProcessWait
// of zb-child.exe, which exits at once, against CreateProcessW plus
// WaitForSingleObject of the same command line. The library's side also
// builds the environment block, the handle list and the job membership.
#include "ZBBench.h"

#include "Zenbor.h"

#include <windows.h>

#include <string>

namespace {

constexpr zbbench::Options kOptions{7, 20};

std::wstring folderOfThisProgram() {
  wchar_t path[MAX_PATH];
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  std::wstring folder(path, length);
  return folder.substr(0, folder.find_last_of(L'\\') + 1);
}

} // namespace

int main() {
  const std::wstring child = folderOfThisProgram() + L"zb-child.exe";
  char *self = ZBProcessCopyCurrentPath();
  std::string childUTF8 = self;
  _ZBFree(self);
  childUTF8 = childUTF8.substr(0, childUTF8.rfind('/') + 1) + "zb-child.exe";
  const char *arguments[] = {childUTF8.c_str(), "exit", "0", nullptr};

  zbbench::printHeader();
  zbbench::compare(
      "spawn and wait zb-child.exe",
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          ZBProcess *process = nullptr;
          if (ZBProcessSpawn(childUTF8.c_str(), arguments, nullptr, nullptr, &process) != 0)
            continue;
          ZBProcessWait(process, -1, nullptr);
          ZBProcessFree(process);
        }
      },
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          std::wstring line = L"\"" + child + L"\" exit 0";
          STARTUPINFOW startup = {};
          startup.cb = sizeof startup;
          PROCESS_INFORMATION started = {};
          if (!CreateProcessW(child.c_str(), line.data(), nullptr, nullptr, FALSE, 0, nullptr,
                              nullptr, &startup, &started))
            continue;
          WaitForSingleObject(started.hProcess, INFINITE);
          CloseHandle(started.hThread);
          CloseHandle(started.hProcess);
        }
      },
      kOptions);
  return 0;
}
