// The profiler's samples as folded stacks, "frame;frame;frame count" a
// line, outermost frame first, which flamegraph.pl and speedscope read.
// Frames are named by their functions here, at export, where this process
// has their modules loaded; stacks that then read the same are counted
// together, and lines come in the stacks' order.
#include "ZBPlatform.h"
#include "ZBProfilerPrivate.h"
#include "ZBTrace.h"
#include "ZBTraceReaderPrivate.h"

#include <cstdio>
#include <map>
#include <string>

namespace {

// The stack with each frame named through `names`, a cache of resolveFrame.
std::string resolveStack(const std::string &stack, std::map<std::string, std::string> &names) {
  std::string resolved;
  for (size_t start = 0; start <= stack.size();) {
    size_t end = stack.find(';', start);
    if (end == std::string::npos)
      end = stack.size();
    const std::string frame = stack.substr(start, end - start);
    auto found = names.find(frame);
    if (found == names.end())
      found = names.emplace(frame, zb::profiler::resolveFrame(frame)).first;
    resolved += (resolved.empty() ? "" : ";") + found->second;
    start = end + 1;
  }
  return resolved;
}

} // namespace

extern "C" ZBError ZBProfilerWriteFoldedStacks(const char *tracePath,
                                               const char *outPath) noexcept {
  zb::trace::ReaderHolder reader(nullptr, ZBTraceReaderFree);
  const ZBError error = zb::trace::openForExport(tracePath, outPath, reader);
  if (error != ZBErrorNone)
    return error;
  try {
    std::map<std::string, uint64_t> stacks;
    std::map<std::string, std::string> names;
    ZBTraceEvent event;
    while (ZBTraceReaderNext(reader.get(), &event) == ZBErrorNone)
      if (event.type == ZBTraceEventSample && event.text[0] != '\0')
        ++stacks[resolveStack(event.text, names)];
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
