// The tracer's internal routines, on every platform (the native build runs
// them under the sanitizers): the reader over bytes in memory against torn
// and damaged chunks, and the JSON export's split into further files.
#include "ZBTestSupport.h"
#include "ZBTraceJSONCheck.h"

#include "ZBTrace.h"
#include "ZBTraceFormat.h"
#include "ZBTraceReaderPrivate.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

using namespace zb::trace;

// A trace built by hand: a header, then chunks of records.
class TraceBytes {
public:
  TraceBytes() {
    mBytes.resize(kFileHeaderBytes);
    encodeFileHeader(mBytes.data(), 42);
  }
  TraceBytes &chunk(uint32_t threadID, const std::vector<std::vector<uint8_t>> &records) {
    std::vector<uint8_t> payload;
    for (const auto &record : records)
      payload.insert(payload.end(), record.begin(), record.end());
    const size_t at = mBytes.size();
    mBytes.resize(at + kChunkHeaderBytes);
    encodeChunkHeader(mBytes.data() + at, threadID, uint32_t(payload.size()));
    mBytes.insert(mBytes.end(), payload.begin(), payload.end());
    return *this;
  }
  std::vector<uint8_t> &bytes() { return mBytes; }

private:
  std::vector<uint8_t> mBytes;
};

std::vector<uint8_t> record(uint16_t type, int32_t nameID, const std::string &text = "",
                            int64_t time = 1) {
  std::vector<uint8_t> out(kRecordHeaderBytes + text.size());
  encodeRecord(out.data(), type, nameID, time, 0, text.data(), text.size());
  return out;
}

struct Outcome {
  std::vector<std::string> names; // each event's name, as the reader knows it then
  ZBError end;
};

Outcome readBytes(const std::vector<uint8_t> &bytes) {
  ZBTraceReader reader;
  reader.memory = bytes.data();
  reader.memorySize = bytes.size();
  Outcome outcome{{}, readFileHeader(&reader)};
  if (outcome.end != ZBErrorNone)
    return outcome;
  ZBTraceEvent event;
  while ((outcome.end = ZBTraceReaderNext(&reader, &event)) == ZBErrorNone) {
    const char *name = ZBTraceReaderGetName(&reader, event.nameID);
    outcome.names.push_back(name ? name : "?");
  }
  return outcome;
}

} // namespace

TEST(ZBTraceReaderInternals, TornAndDamagedChunksEndTheReading) {
  const auto good = [] {
    TraceBytes trace;
    trace.chunk(0, {record(kRecordNameDefinition, 1, "one")})
        .chunk(7, {record(ZBTraceEventBegin, 1), record(ZBTraceEventEnd, 1)});
    return trace;
  };
  {
    TraceBytes trace = good();
    const Outcome outcome = readBytes(trace.bytes());
    EXPECT_EQ(ZBErrorNotFound, outcome.end);
    EXPECT_EQ((std::vector<std::string>{"one", "one"}), outcome.names);
  }
  struct Case {
    const char *what;
    std::function<void(TraceBytes &)> damage;
    size_t eventsBefore;
  };
  const Case cases[] = {
      {"a torn chunk header", [](TraceBytes &t) { t.bytes().resize(t.bytes().size() + 5, 0); }, 2},
      {"a torn payload",
       [](TraceBytes &t) {
         t.chunk(7, {record(ZBTraceEventInstant, 1, "text")});
         t.bytes().resize(t.bytes().size() - 2);
       },
       2},
      {"not a chunk", [](TraceBytes &t) { t.bytes().resize(t.bytes().size() + 16, 0xAB); }, 2},
      {"a record longer than its chunk",
       [](TraceBytes &t) {
         std::vector<uint8_t> cut = record(ZBTraceEventInstant, 1, "0123456789");
         cut.resize(cut.size() - 4);
         t.chunk(7, {record(ZBTraceEventBegin, 1), cut});
       },
       3},
      {"an unknown record type", [](TraceBytes &t) { t.chunk(7, {record(99, 1)}); }, 2},
      {"a name of id 0", [](TraceBytes &t) { t.chunk(0, {record(kRecordNameDefinition, 0)}); }, 2},
      {"a payload above the limit",
       [](TraceBytes &t) {
         const size_t at = t.bytes().size();
         t.bytes().resize(at + kChunkHeaderBytes);
         encodeChunkHeader(t.bytes().data() + at, 7, uint32_t(kMaxChunkPayload + 1));
       },
       2},
  };
  for (const Case &c : cases) {
    TraceBytes trace = good();
    c.damage(trace);
    const Outcome outcome = readBytes(trace.bytes());
    EXPECT_EQ(ZBErrorIO, outcome.end) << c.what;
    EXPECT_EQ(c.eventsBefore, outcome.names.size()) << c.what;
  }
  // Not a trace at all.
  for (size_t length : {0, 8, 15}) {
    std::vector<uint8_t> bytes = good().bytes();
    bytes.resize(length);
    EXPECT_EQ(ZBErrorIO, readBytes(bytes).end) << length;
  }
}

TEST(ZBTraceJSONInternals, LargeExportsGoOnInFurtherFilesThatBalanceAlone) {
  const std::string trace = zbtest::temporaryPath("split.zbtrace");
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(trace.c_str()));
  const int32_t outer = ZBTraceDefineName("zb-split-outer");
  const int32_t inner = ZBTraceDefineName("zb-split-inner");
  ZBTraceBegin(outer); // open across every file
  for (int i = 0; i < 2000; ++i) {
    ZBTraceBegin(inner);
    ZBTraceEnd(inner);
  }
  ZBTraceEnd(outer);
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());

  const std::string json = zbtest::temporaryPath("split.json");
  ASSERT_EQ(ZBErrorNone, convertToJSON(trace.c_str(), json.c_str(), 20000));
  const std::string stem = json.substr(0, json.size() - 5);
  size_t files = 0, innerSpans = 0;
  for (std::string path = json;; path = stem + "." + std::to_string(files + 1) + ".json") {
    if (zbtest::readFile(path).empty())
      break;
    ++files;
    zbtest::JSONVerdict verdict = zbtest::checkTraceJSON(path);
    EXPECT_EQ("", verdict.fault) << path;
    EXPECT_LE(zbtest::readFile(path).size(), 20000u + 1000)
        << path; // the event that passed the size, and the closing ends
    for (const std::string &name : verdict.names)
      innerSpans += name == "zb-split-inner";
    EXPECT_NE(verdict.names.end(),
              std::find(verdict.names.begin(), verdict.names.end(), "zb-split-outer"))
        << "the open span goes on in " << path;
    std::remove(path.c_str());
  }
  EXPECT_GT(files, 3u);
  // An inner span open at a split begins again in the next file.
  EXPECT_GE(innerSpans, 2000u);
  EXPECT_LE(innerSpans, 2000u + files);
  std::remove(trace.c_str());
}
