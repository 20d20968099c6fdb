// The profiler's samples as folded stacks, "frame;frame;frame count" a
// line, outermost frame first, which flamegraph.pl and speedscope read.
// Identical stacks are counted together; lines come in the stacks' order.
#include "ZBPlatform.h"
#include "ZBTrace.h"
#include "ZBTraceReaderPrivate.h"

#include <cstdio>
#include <map>
#include <string>

extern "C" ZBError ZBProfilerWriteFoldedStacks(const char *tracePath,
                                               const char *outPath) noexcept {
  zb::trace::ReaderHolder reader(nullptr, ZBTraceReaderFree);
  const ZBError error = zb::trace::openForExport(tracePath, outPath, reader);
  if (error != ZBErrorNone)
    return error;
  try {
    std::map<std::string, uint64_t> stacks;
    ZBTraceEvent event;
    while (ZBTraceReaderNext(reader.get(), &event) == ZBErrorNone)
      if (event.type == ZBTraceEventSample && event.text[0] != '\0')
        ++stacks[event.text];
    reader.reset();
    std::FILE *out = zb::platform::openStream(outPath, "wb");
    if (out == nullptr)
      return ZBErrorAccessDenied;
    bool written = true;
    for (const auto &[stack, count] : stacks)
      written =
          std::fprintf(out, "%s %llu\n", stack.c_str(), (unsigned long long)count) > 0 && written;
    return std::fclose(out) == 0 && written ? ZBErrorNone : ZBErrorIO;
  } catch (...) {
    return ZBErrorNoMemory;
  }
}
