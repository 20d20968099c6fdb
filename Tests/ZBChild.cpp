// zb-child.exe: the program the process tests start. Its first argument
// says what to do:
//   args                 print the arguments as the C runtime split them,
//                        then as ZBProcessCopyArguments gives them
//   env NAME...          print NAME=value (or NAME unset) for each
//   write VALUE          write "ok" to the handle with that decimal value
//   path                 print the executable's path
//   exit CODE            exit with CODE
//   crash                write through a null pointer
//   sleep MILLISECONDS   sleep, then exit with 0
//   grandchild [detached]  start "sleep 60000", print its process ID, sleep
#include "ZBAlloc.h"
#include "ZBProcess.h"

#include <windows.h>

#include <cstdlib>
#include <cwchar>
#include <string>

namespace {

std::string utf8Of(const wchar_t *text) {
  const int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<size_t>(bytes), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), bytes, nullptr, nullptr);
  result.pop_back();
  return result;
}

void print(const std::string &text) {
  DWORD written = 0;
  WriteFile(GetStdHandle(STD_OUTPUT_HANDLE), text.data(), static_cast<DWORD>(text.size()), &written,
            nullptr);
}

void printArguments(int argc, wchar_t **argv) {
  std::string output = "crt\n";
  for (int i = 0; i < argc; ++i)
    output += utf8Of(argv[i]) + "\n";
  output += "zb\n";
  uint32_t count = 0;
  char **arguments = nullptr;
  if (ZBProcessCopyArguments(&count, &arguments) == ZBErrorNone) {
    for (uint32_t i = 0; i < count; ++i)
      output += std::string(arguments[i]) + "\n";
    _ZBFree(arguments);
  }
  print(output);
}

int startGrandchild(bool detached) {
  char *self = ZBProcessCopyCurrentPath();
  const char *arguments[] = {"zb-child", "sleep", "60000", nullptr};
  ZBProcessAttributes attributes = {};
  attributes.flags = detached ? ZBProcessSpawnDetached : 0;
  ZBProcess *grandchild = nullptr;
  const ZBError error = ZBProcessSpawn(self, arguments, nullptr, &attributes, &grandchild);
  _ZBFree(self);
  if (error != ZBErrorNone)
    return 3;
  print(std::to_string(ZBProcessGetID(grandchild)) + "\n");
  ZBProcessFree(grandchild);
  Sleep(INFINITE);
  return 0;
}

} // namespace

int wmain(int argc, wchar_t **argv) {
  const std::wstring command = argc > 1 ? argv[1] : L"";
  if (command == L"args") {
    printArguments(argc, argv);
  } else if (command == L"env") {
    for (int i = 2; i < argc; ++i) {
      const wchar_t *value = _wgetenv(argv[i]);
      print(utf8Of(argv[i]) + (value != nullptr ? "=" + utf8Of(value) : " unset") + "\n");
    }
  } else if (command == L"write" && argc > 2) {
    const auto value = static_cast<uintptr_t>(std::wcstoull(argv[2], nullptr, 10));
    DWORD written = 0;
    WriteFile(reinterpret_cast<HANDLE>(value), "ok", 2, &written, nullptr);
  } else if (command == L"path") {
    char *path = ZBProcessCopyCurrentPath();
    print(std::string(path != nullptr ? path : "") + "\n");
    _ZBFree(path);
  } else if (command == L"exit" && argc > 2) {
    return static_cast<int>(std::wcstoul(argv[2], nullptr, 10));
  } else if (command == L"crash") {
    *static_cast<volatile int *>(nullptr) = 1;
  } else if (command == L"sleep" && argc > 2) {
    Sleep(static_cast<DWORD>(std::wcstoul(argv[2], nullptr, 10)));
  } else if (command == L"grandchild") {
    return startGrandchild(argc > 2 && std::wstring(argv[2]) == L"detached");
  } else {
    return 2;
  }
  return 0;
}
