// The trace reader's inside, shared by the reader's entry points, the JSON
// exporter, the fuzzer and the tests of internal routines: a reader over a
// file or over bytes in memory, and the export with its file size limit.
#pragma once

#include "ZBTrace.h"

#include <cstdio>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

struct ZBTraceReader {
  std::FILE *file = nullptr; // null: reading `memory`
  const uint8_t *memory = nullptr;
  size_t memorySize = 0;
  size_t memoryOffset = 0;
  uint32_t processID = 0;
  std::vector<uint8_t> chunk; // the payload of the chunk being read
  size_t offset = 0;          // the next record in `chunk`
  uint32_t threadID = 0;
  ZBError stop = ZBErrorNone; // once set, every later call answers it
  std::unordered_map<int32_t, std::string> names;
  std::string text;

  ~ZBTraceReader() {
    if (file != nullptr)
      std::fclose(file);
  }
};

namespace zb::trace {

// Reads the file header of a reader whose source is set; ZBErrorIO when it
// is not a trace.
ZBError readFileHeader(ZBTraceReader *reader) noexcept;

// A reader freed with its holder.
using ReaderHolder = std::unique_ptr<ZBTraceReader, void (*)(ZBTraceReader *)>;

// Opens the trace an export reads: ZBErrorInvalidArgument when either path
// is null, else ZBTraceReaderOpen's answer.
inline ZBError openForExport(const char *tracePath, const char *outPath, ReaderHolder &out) {
  if (tracePath == nullptr || outPath == nullptr)
    return ZBErrorInvalidArgument;
  ZBTraceReader *reader = nullptr;
  const ZBError error = ZBTraceReaderOpen(tracePath, &reader);
  out.reset(reader);
  return error;
}

// ZBTraceConvertToJSON with the size past which a further file starts.
ZBError convertToJSON(const char *tracePath, const char *jsonPath,
                      uint64_t fileLimitBytes) noexcept;

} // namespace zb::trace
