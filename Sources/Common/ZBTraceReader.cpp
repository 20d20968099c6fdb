// The trace-file reader: chunk by chunk, record by record, every length
// checked against what is there. A torn or damaged chunk ends the reading
// with ZBErrorIO once everything before it has been delivered.
#include "ZBPlatform.h"
#include "ZBTraceFormat.h"
#include "ZBTraceReaderPrivate.h"

#include <new>

namespace {

using namespace zb::trace;

size_t readBytes(ZBTraceReader *reader, void *out, size_t count) {
  if (reader->file != nullptr)
    return std::fread(out, 1, count, reader->file);
  const size_t available = reader->memorySize - reader->memoryOffset;
  const size_t taken = count < available ? count : available;
  if (taken != 0) // an empty buffer may be null
    std::memcpy(out, reader->memory + reader->memoryOffset, taken);
  reader->memoryOffset += taken;
  return taken;
}

// Loads the next chunk: ZBErrorNotFound at a clean end, ZBErrorIO when the
// chunk is torn or not a chunk.
ZBError loadChunk(ZBTraceReader *reader) {
  uint8_t header[kChunkHeaderBytes];
  const size_t got = readBytes(reader, header, sizeof header);
  if (got == 0)
    return ZBErrorNotFound;
  if (got != sizeof header || loadU32(header) != kChunkMagic)
    return ZBErrorIO;
  const uint32_t payload = loadU32(header + 8);
  if (payload > kMaxChunkPayload)
    return ZBErrorIO;
  try {
    reader->chunk.resize(payload);
  } catch (...) {
    return ZBErrorNoMemory;
  }
  if (payload != 0 && readBytes(reader, reader->chunk.data(), payload) != payload)
    return ZBErrorIO;
  reader->threadID = loadU32(header + 4);
  reader->offset = 0;
  return ZBErrorNone;
}

bool isEventType(uint16_t type) {
  return type >= ZBTraceEventBegin && type <= ZBTraceEventThreadName;
}

// The next record of the loaded chunk into `outEvent`; name definitions are
// taken in on the way. ZBErrorNotFound when the chunk is used up.
ZBError nextRecord(ZBTraceReader *reader, ZBTraceEvent *outEvent) {
  while (reader->offset < reader->chunk.size()) {
    const size_t left = reader->chunk.size() - reader->offset;
    RecordHeader header;
    if (left < sizeof header)
      return ZBErrorIO;
    const uint8_t *at = reader->chunk.data() + reader->offset;
    std::memcpy(&header, at, sizeof header);
    if (left - sizeof header < header.textBytes)
      return ZBErrorIO;
    const char *text = reinterpret_cast<const char *>(at + sizeof header);
    reader->offset += sizeof header + header.textBytes;
    if (header.type == kRecordNameDefinition) {
      if (header.nameID < 1)
        return ZBErrorIO;
      reader->names[header.nameID].assign(text, header.textBytes);
      continue;
    }
    if (!isEventType(header.type))
      return ZBErrorIO;
    reader->text.assign(text, header.textBytes);
    *outEvent = {header.type, reader->threadID, header.nameID,
                 header.time, header.value,     reader->text.c_str()};
    return ZBErrorNone;
  }
  return ZBErrorNotFound;
}

} // namespace

namespace zb::trace {

ZBError readFileHeader(ZBTraceReader *reader) noexcept {
  uint8_t header[kFileHeaderBytes];
  if (readBytes(reader, header, sizeof header) != sizeof header ||
      std::memcmp(header, kFileMagic, sizeof kFileMagic) != 0 ||
      loadU32(header + 8) != kFileVersion)
    return ZBErrorIO;
  reader->processID = loadU32(header + 12);
  return ZBErrorNone;
}

} // namespace zb::trace

extern "C" ZBError ZBTraceReaderOpen(const char *path, ZBTraceReader **outReader) noexcept {
  if (path == nullptr || outReader == nullptr)
    return ZBErrorInvalidArgument;
  *outReader = nullptr;
  auto *reader = new (std::nothrow) ZBTraceReader;
  if (reader == nullptr)
    return ZBErrorNoMemory;
  reader->file = zb::platform::openStream(path, "rb");
  if (reader->file == nullptr) {
    delete reader;
    return ZBErrorFileNotFound;
  }
  const ZBError error = readFileHeader(reader);
  if (error != ZBErrorNone) {
    delete reader;
    return error;
  }
  *outReader = reader;
  return ZBErrorNone;
}

extern "C" ZBError ZBTraceReaderNext(ZBTraceReader *reader, ZBTraceEvent *outEvent) noexcept {
  if (reader == nullptr || outEvent == nullptr)
    return ZBErrorInvalidArgument;
  try {
    while (reader->stop == ZBErrorNone) {
      const ZBError error = nextRecord(reader, outEvent);
      if (error != ZBErrorNotFound) {
        reader->stop = error;
        return error;
      }
      reader->stop = loadChunk(reader);
    }
  } catch (...) {
    reader->stop = ZBErrorNoMemory;
  }
  return reader->stop;
}

extern "C" const char *ZBTraceReaderGetName(ZBTraceReader *reader, int32_t nameID) noexcept {
  if (reader == nullptr)
    return nullptr;
  const auto found = reader->names.find(nameID);
  return found == reader->names.end() ? nullptr : found->second.c_str();
}

extern "C" void ZBTraceReaderFree(ZBTraceReader *reader) noexcept { delete reader; }
