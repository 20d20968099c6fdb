// Symbol look-up and non-local jumps: ZBLibraryGetSymbol against
// GetProcAddress on the same module and name (target: at most 1.2x), and a
// ZBSetJmp / ZBLongJmp round trip against msvcrt's _setjmp / longjmp, which
// unwinds the frames it crosses (reported for comparison).
#include "ZBBench.h"

#include "Zenbor.h"

#include <windows.h>

#include <csetjmp>

namespace {

constexpr zbbench::Options kOptions{15, 200000};

void compareSymbolLookup(const char *name, const char *library, const char *symbol) {
  ZBLibrary *opened = nullptr;
  if (ZBLibraryOpen(library, 0, &opened) != ZBErrorNone) {
    std::printf("%s: cannot open %s\n", name, library);
    return;
  }
  HMODULE module = GetModuleHandleA(library);
  zbbench::compare(
      name,
      [opened, symbol](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          void *address = nullptr;
          ZBLibraryGetSymbol(opened, symbol, &address);
          zbbench::keep(address);
        }
      },
      [module, symbol](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          zbbench::keep(GetProcAddress(module, symbol));
      },
      kOptions);
  ZBLibraryClose(opened);
}

// One jump per iteration, out of a function called from the loop.
__attribute__((noinline)) void jumpBack(ZBJmpBufSlot *buffer) { ZBLongJmp(buffer, 1); }
__attribute__((noinline)) void jumpBackThroughRuntime(jmp_buf *buffer) { longjmp(*buffer, 1); }

} // namespace

int main() {
  zbbench::printHeader();
  compareSymbolLookup("ZBLibraryGetSymbol vs GetProcAddress", "kernel32.dll", "GetTickCount");
  compareSymbolLookup("ZBLibraryGetSymbol(zenbor) vs GetProcAddress", "zenbor.dll",
                      "ZBLibraryGetSymbol");
  zbbench::compare(
      "ZBSetJmp+ZBLongJmp vs _setjmp+longjmp",
      [](int64_t n) {
        ZBJmpBuf buffer;
        for (volatile int64_t i = 0; i < n; i = i + 1)
          if (ZBSetJmp(buffer) == 0)
            jumpBack(buffer);
      },
      [](int64_t n) {
        jmp_buf buffer;
        for (volatile int64_t i = 0; i < n; i = i + 1)
          if (setjmp(buffer) == 0)
            jumpBackThroughRuntime(&buffer);
      },
      kOptions);
  return 0;
}
