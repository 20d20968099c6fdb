// Backtraces and symbols against the system's own, in one run:
// ZBBacktraceCapture of 32 frames against RtlCaptureStackBackTrace, both
// called from the bottom of a recursion deep enough that each walk finds
// its 32 frames; and ZBSymbolLookup of an address already in its cache
// against DbgHelp's SymFromAddr of the same address.
#include "ZBBench.h"

#include "Zenbor.h"

#include <windows.h>
// clang-format off
#include <dbghelp.h>
// clang-format on

namespace {

constexpr uint32_t kFrames = 32;
constexpr int kDepth = 40;

// Recurses `depth` levels, then runs the body; the addition after the call
// keeps each level a real frame rather than a tail call.
template <typename Body>
__attribute__((noinline)) int64_t atDepth(int depth, Body &body, int64_t iterations) {
  if (depth == 0) {
    body(iterations);
    return 0;
  }
  const int64_t result = atDepth(depth - 1, body, iterations);
  zbbench::keep(result);
  return result + 1;
}

template <typename Capture>
auto deepCaptureLoop(Capture capture) {
  return [capture](int64_t iterations) {
    auto body = [&capture](int64_t n) {
      void *frames[kFrames];
      for (int64_t i = 0; i < n; ++i)
        zbbench::keep(capture(frames));
    };
    atDepth(kDepth, body, iterations);
  };
}

} // namespace

int main() {
  zbbench::printHeader();
  const zbbench::Options options{15, 20000};
  zbbench::compare(
      "ZBBacktraceCapture(32) vs RtlCaptureStackBackTrace",
      deepCaptureLoop([](void **frames) { return ZBBacktraceCapture(frames, kFrames, 0); }),
      deepCaptureLoop([](void **frames) {
        return static_cast<uint32_t>(RtlCaptureStackBackTrace(0, kFrames, frames, nullptr));
      }),
      options);

  const void *address = reinterpret_cast<const char *>(&ZBSymbolLookup) + 16;
  ZBSymbolInfo info;
  ZBSymbolLookup(address, &info); // fills the cache
  SymSetOptions(SymGetOptions() | SYMOPT_UNDNAME | SYMOPT_DEFERRED_LOADS);
  SymInitialize(GetCurrentProcess(), nullptr, TRUE);
  alignas(SYMBOL_INFO) char storage[sizeof(SYMBOL_INFO) + 1024];
  auto *symbol = reinterpret_cast<SYMBOL_INFO *>(storage);
  zbbench::compare(
      "ZBSymbolLookup (cached) vs SymFromAddr",
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          ZBSymbolLookup(address, &info);
          zbbench::keep(info.name);
        }
      },
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          symbol->SizeOfStruct = sizeof(SYMBOL_INFO);
          symbol->MaxNameLen = 1024;
          DWORD64 displacement = 0;
          zbbench::keep(SymFromAddr(GetCurrentProcess(), reinterpret_cast<DWORD64>(address),
                                    &displacement, symbol));
        }
      },
      zbbench::Options{15, 20000});
  return 0;
}
