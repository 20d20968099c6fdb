// The trace-file format, shared by the recorder and the reader.
//
// A file is a header, then self-describing chunks; a chunk is a header and
// a run of records, each one event. Every chunk names the thread that
// recorded it, and the names a chunk's events use are defined (as records
// of their own) in an earlier chunk, so any prefix of a file that ends on a
// chunk boundary reads alone. All integers are little-endian.
//
//   file header   "ZBTRACE1", u32 version, u32 process ID
//   chunk header  u32 magic "CHNK", u32 thread ID, u32 payload bytes, u32 0
//   record        u16 type, u16 text bytes, i32 name ID, i64 time, i64 value,
//                 then the text (not terminated)
#pragma once

#include <cstdint>
#include <cstring>

namespace zb::trace {

constexpr char kFileMagic[8] = {'Z', 'B', 'T', 'R', 'A', 'C', 'E', '1'};
constexpr uint32_t kFileVersion = 1;
constexpr uint32_t kChunkMagic = 0x4B4E4843; // "CHNK"
constexpr size_t kFileHeaderBytes = 16;
constexpr size_t kChunkHeaderBytes = 16;
constexpr size_t kRecordHeaderBytes = 24;
// A thread's chunk; names chunks may be larger, up to the reader's limit.
constexpr size_t kChunkBytes = 64 * 1024;
constexpr size_t kMaxChunkPayload = 16 * 1024 * 1024;
// Longer texts are cut: a record always fits an empty chunk.
constexpr size_t kMaxTextBytes = 4000;

// Record types beyond the public event kinds: a name's definition.
constexpr uint16_t kRecordNameDefinition = 100;

struct RecordHeader {
  uint16_t type;
  uint16_t textBytes;
  int32_t nameID;
  int64_t time;
  int64_t value;
};
static_assert(sizeof(RecordHeader) == kRecordHeaderBytes, "records are packed as read");

inline void storeU32(uint8_t *out, uint32_t value) {
  for (int i = 0; i < 4; ++i)
    out[i] = static_cast<uint8_t>(value >> (8 * i));
}

inline uint32_t loadU32(const uint8_t *in) {
  return uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16 | uint32_t(in[3]) << 24;
}

// Appends one record to `out` (room for it checked by the caller); the
// targets are little-endian, so the header is copied as it lies in memory.
inline size_t encodeRecord(uint8_t *out, uint16_t type, int32_t nameID, int64_t time, int64_t value,
                           const char *text, size_t textBytes) {
  const RecordHeader header{type, static_cast<uint16_t>(textBytes), nameID, time, value};
  std::memcpy(out, &header, sizeof header);
  if (textBytes != 0)
    std::memcpy(out + sizeof header, text, textBytes);
  return sizeof header + textBytes;
}

inline void encodeChunkHeader(uint8_t *out, uint32_t threadID, uint32_t payloadBytes) {
  storeU32(out, kChunkMagic);
  storeU32(out + 4, threadID);
  storeU32(out + 8, payloadBytes);
  storeU32(out + 12, 0);
}

inline void encodeFileHeader(uint8_t *out, uint32_t processID) {
  std::memcpy(out, kFileMagic, sizeof kFileMagic);
  storeU32(out + 8, kFileVersion);
  storeU32(out + 12, processID);
}

} // namespace zb::trace
