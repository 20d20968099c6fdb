// Fuzzes the trace reader and the JSON export with arbitrary trace files:
// the reader runs over the bytes in a buffer of their exact size (so the
// sanitizers catch any read outside it) and must deliver well-formed events
// until it answers the end, a tear or a damaged chunk; the same bytes, as a
// file, are then exported to JSON, which must succeed whenever the header
// reads.
#include "ZBTraceReaderPrivate.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

void check(bool condition) {
  if (!condition)
    std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  std::vector<uint8_t> exact(data, data + size);
  ZBTraceReader reader;
  reader.memory = exact.data();
  reader.memorySize = exact.size();
  const bool isTrace = zb::trace::readFileHeader(&reader) == ZBErrorNone;
  if (isTrace) {
    ZBTraceEvent event;
    ZBError error;
    while ((error = ZBTraceReaderNext(&reader, &event)) == ZBErrorNone) {
      check(event.type >= ZBTraceEventBegin && event.type <= ZBTraceEventThreadName);
      check(event.text != nullptr);
      check(std::strlen(event.text) <= 65535);
      const char *name = ZBTraceReaderGetName(&reader, event.nameID);
      check(name == nullptr || std::strlen(name) <= 65535);
    }
    check(error == ZBErrorNotFound || error == ZBErrorIO);
    check(ZBTraceReaderNext(&reader, &event) == error); // the end stays the end
  }

  static const std::string base = "/tmp/zb-trace-fuzz-" + std::to_string(getpid());
  const std::string tracePath = base + ".zbtrace";
  if (std::FILE *file = std::fopen(tracePath.c_str(), "wb")) {
    std::fwrite(data, 1, size, file);
    std::fclose(file);
    const ZBError converted = ZBTraceConvertToJSON(tracePath.c_str(), (base + ".json").c_str());
    check(isTrace ? converted == ZBErrorNone : converted == ZBErrorIO);
  }
  return 0;
}
