// The foundation's hot paths against their raw counterparts: a disabled log
// site against an empty out-of-line call, an enabled line into the ring
// (no file sink) against formatting the same decorated text, and allocation through the default
// zone and through a zone with 1000 live blocks against malloc/free.
#include "ZBBench.h"

#include "Zenbor.h"

#include <cstdlib>
#include <vector>

#include "qprintf.h"

namespace {

__attribute__((noinline)) void emptyCall(int value) { zbbench::keep(value); }

} // namespace

int main() {
  zbbench::printHeader();
  ZBEnvironmentSetEnv("ZBLOG_LEVEL", "Error", 1);

  zbbench::compare(
      "disabled log site vs empty call",
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          ZB_LOG_DEBUG("never written %d", static_cast<int>(i));
      },
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          emptyCall(static_cast<int>(i));
      },
      {15, 2000000});

  zbbench::compare(
      "enabled log line vs qsnprintf of its text",
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          ZB_LOG_ERROR("request %d done in %u ms", static_cast<int>(i), 42u);
      },
      [](int64_t n) {
        char line[512];
        for (int64_t i = 0; i < n; ++i) {
          qsnprintf(line, sizeof line, "%s[%s][%s:%u] %s %s: %s: request %d done in %u ms%s\r\n",
                    "", "2026-01-02 03:04:05.678", "ZBFoundationBench.cpp", 30u,
                    "(1234/5678) main:", "main", "ERROR", static_cast<int>(i), 42u, "");
          zbbench::keep(line[0]);
        }
      },
      {15, 20000});

  zbbench::compare(
      "_ZBAlloc/_ZBFree 64 B vs malloc/free",
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          void *block = _ZBAlloc(64);
          zbbench::keep(block);
          _ZBFree(block);
        }
      },
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          void *block = std::malloc(64);
          zbbench::keep(block);
          std::free(block);
        }
      });

  ZBZone *zone = ZBZoneCreate(0, 0, 0, 0, "bench");
  std::vector<void *> live;
  for (int i = 0; i < 1000; ++i)
    live.push_back(_ZBAllocWithZoneAndDesc(zone, 32, "bench"));
  zbbench::compare(
      "zone (1000 live) alloc+free vs malloc/free",
      [zone](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          void *block = _ZBAllocWithZoneAndDesc(zone, 64, "bench");
          zbbench::keep(block);
          _ZBFreeWithZone(zone, block);
        }
      },
      [](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          void *block = std::malloc(64);
          zbbench::keep(block);
          std::free(block);
        }
      },
      {15, 20000});
  ZBZoneDestroy(zone);
  return 0;
}
