// The tracer end to end: names, sessions and their configuration, volume
// from many threads read back, the log and lock waits in the trace, the JSON
// export against a strict checker, torn and unwritable traces, the host
// sink, and the performance counters.
#include "ZBTestSupport.h"
#include "ZBTraceJSONCheck.h"

#include "ZBEnvironment.h"
#include "ZBInitializer.h"
#include "ZBLock.h"
#include "ZBSocket.h"
#include "ZBSocketAddress.h"
#include "ZBTime.h"
#include "ZBTrace.h"

#include <winsock2.h>
#include <windows.h>

#include <cstring>
#include <fstream>
#include <map>
#include <set>

namespace {

struct ReadEvent {
  uint32_t type;
  uint32_t threadID;
  std::string name; // the name's text, or the event's own for formatted spans
  int64_t time;
  int64_t value;
  std::string text;
};

struct ReadTrace {
  std::vector<ReadEvent> events;
  ZBError end = ZBErrorNone; // what the reader answered last
};

constexpr char kSamplerThread[] = "zb-trace-sampler";

// The events of a trace; those of the sampler thread, which come at its own
// pace, only when asked for.
ReadTrace readTrace(const std::string &path, bool withSampler = false) {
  ReadTrace trace;
  ZBTraceReader *reader = nullptr;
  trace.end = ZBTraceReaderOpen(path.c_str(), &reader);
  if (trace.end != ZBErrorNone)
    return trace;
  ZBTraceEvent event;
  std::set<uint32_t> samplers;
  while ((trace.end = ZBTraceReaderNext(reader, &event)) == ZBErrorNone) {
    if (event.type == ZBTraceEventThreadName && std::strcmp(event.text, kSamplerThread) == 0)
      samplers.insert(event.threadID);
    if (!withSampler && samplers.count(event.threadID))
      continue;
    const char *name = ZBTraceReaderGetName(reader, event.nameID);
    trace.events.push_back({event.type, event.threadID, name ? name : "", event.timeNanoseconds,
                            event.value, event.text});
  }
  ZBTraceReaderFree(reader);
  return trace;
}

std::string tracePath(const char *name) { return zbtest::temporaryPath(name); }

// Stops whatever records when a test ends, whichever way it ends.
struct SessionGuard {
  ~SessionGuard() { ZBTraceStop(); }
};

} // namespace

TEST(ZBTraceNames, EightThreadsInternTheSameNamesAlike) {
  constexpr int kNames = 1000;
  std::vector<std::vector<int32_t>> ids(8, std::vector<int32_t>(kNames));
  zbtest::onThreads(8, [&](int thread) {
    for (int i = 0; i < kNames; ++i) {
      const int index = (i * 7 + thread * 131) % kNames; // each thread in its own order
      ids[thread][index] = ZBTraceDefineName(("zb-name-" + std::to_string(index)).c_str());
    }
  });
  std::set<int32_t> distinct;
  for (int i = 0; i < kNames; ++i) {
    for (int thread = 1; thread < 8; ++thread)
      ASSERT_EQ(ids[0][i], ids[thread][i]) << "name " << i;
    ASSERT_GE(ids[0][i], 1);
    distinct.insert(ids[0][i]);
  }
  EXPECT_EQ(size_t(kNames), distinct.size());
  EXPECT_EQ(0, ZBTraceDefineName(nullptr));
  EXPECT_EQ(ids[0][5], ZBTraceDefineName("zb-name-5"));
}

TEST(ZBTraceSessions, StartStopAndTheirErrors) {
  // Nothing in this test program's environment configures a session.
  ASSERT_EQ(nullptr, ZBEnvironmentGetEnv("ZB_TRACE_CONFIG"));
  EXPECT_FALSE(ZBTraceIsInitialized());
  EXPECT_EQ(ZBErrorNotFound, ZBTraceStop());
  EXPECT_EQ(ZBErrorNotFound, ZBTraceFlush());
  EXPECT_EQ(ZBErrorInvalidArgument, ZBTraceStart(nullptr));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBTraceStartHost(nullptr, 1));
  ZBTraceBegin(1); // dropped: nothing records
  const std::string path = tracePath("sessions.zbtrace");
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(path.c_str()));
  SessionGuard guard;
  EXPECT_TRUE(ZBTraceIsInitialized());
  EXPECT_EQ(ZBErrorAlready, ZBTraceStart(path.c_str()));
  EXPECT_EQ(ZBErrorAlready, ZBTraceStartHost("127.0.0.1", 9));
  const int32_t span = ZBTraceDefineName("zb-session-span");
  ZBTraceBegin(span);
  ZBTraceInstant(span, nullptr);
  ZBTraceCounter(span, -42);
  ZBTraceBeginFormat("formatted %d", 7);
  ZBTraceEnd(0);
  ZBTraceEnd(span);
  EXPECT_EQ(ZBErrorNone, ZBTraceFlush());
  EXPECT_EQ(ZBErrorNone, ZBTraceStop());
  EXPECT_FALSE(ZBTraceIsInitialized());

  const ReadTrace trace = readTrace(path);
  EXPECT_EQ(ZBErrorNotFound, trace.end);
  ASSERT_EQ(7u, trace.events.size());
  EXPECT_EQ(uint32_t(ZBTraceEventThreadName), trace.events[0].type);
  const uint32_t types[] = {ZBTraceEventBegin, ZBTraceEventInstant, ZBTraceEventCounter,
                            ZBTraceEventBegin, ZBTraceEventEnd,     ZBTraceEventEnd};
  for (size_t i = 0; i < std::size(types); ++i) {
    EXPECT_EQ(types[i], trace.events[i + 1].type) << i;
    EXPECT_EQ(GetCurrentThreadId(), trace.events[i + 1].threadID);
  }
  EXPECT_EQ("zb-session-span", trace.events[1].name);
  EXPECT_EQ(-42, trace.events[3].value);
  EXPECT_EQ("formatted 7", trace.events[4].text);

  // Reader misuse and files that are not traces.
  ZBTraceReader *reader = nullptr;
  EXPECT_EQ(ZBErrorInvalidArgument, ZBTraceReaderOpen(nullptr, &reader));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBTraceReaderNext(nullptr, nullptr));
  EXPECT_EQ(nullptr, ZBTraceReaderGetName(nullptr, 1));
  ZBTraceReaderFree(nullptr);
  EXPECT_EQ(ZBErrorFileNotFound, ZBTraceReaderOpen(tracePath("absent.zbtrace").c_str(), &reader));
  const std::string notTrace = tracePath("not-a-trace.zbtrace");
  std::ofstream(notTrace, std::ios::binary) << "ZBTRACE2 but not one";
  EXPECT_EQ(ZBErrorIO, ZBTraceReaderOpen(notTrace.c_str(), &reader));
}

TEST(ZBTraceSessions, ConfigurationThroughTheEnvironment) {
  const std::string path = tracePath("configured.zbtrace");
  std::remove(path.c_str());
  const size_t warningsBefore = zbtest::occurrences(zbtest::logRing(), "Invalid trace rule");
  // A bad rule is skipped with a Warning; the value after "file=" runs to
  // the next ";", spaces included.
  const std::string rules = "bogus;host=nohostport; ;file=" + path;
  ASSERT_EQ(0, ZBEnvironmentSetEnv("ZB_TRACE_CONFIG", rules.c_str(), 1));
  SessionGuard guard;
  EXPECT_TRUE(ZBTraceIsInitialized());
  EXPECT_EQ(warningsBefore + 2, zbtest::occurrences(zbtest::logRing(), "Invalid trace rule"));
  ZBTraceInstant(ZBTraceDefineName("configured"), "yes");
  EXPECT_EQ(ZBErrorNone, ZBTraceStop());
  ZBEnvironmentUnsetEnv("ZB_TRACE_CONFIG");
  const ReadTrace trace = readTrace(path);
  ASSERT_EQ(2u, trace.events.size());
  EXPECT_EQ("configured", trace.events[1].name);

  // Rules from a file, one a line.
  const std::string fromFile = tracePath("from-file.zbtrace");
  const std::string rulesFile = tracePath("trace-rules.txt");
  std::ofstream(rulesFile, std::ios::binary) << "\r\nfile=" << fromFile << "\r\n";
  ASSERT_EQ(0, ZBEnvironmentSetEnv("ZB_TRACE_CONFIG_FILE", rulesFile.c_str(), 1));
  EXPECT_TRUE(ZBTraceIsInitialized());
  EXPECT_EQ(ZBErrorNone, ZBTraceStop());
  ZBEnvironmentUnsetEnv("ZB_TRACE_CONFIG_FILE");
  EXPECT_EQ(ZBErrorNotFound, readTrace(fromFile).end);
}

TEST(ZBTraceVolume, EightThreadsOfBeginEndPairsReadBackBalanced) {
  constexpr int kThreads = 8;
  constexpr int kPairs = 100000;
  const std::string path = tracePath("volume.zbtrace");
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(path.c_str()));
  SessionGuard guard;
  const int32_t outer = ZBTraceDefineName("zb-volume-outer");
  const int32_t inner = ZBTraceDefineName("zb-volume-inner");
  // The threads end before the session stops: their last chunks are
  // handed over as they end.
  zbtest::onThreads(kThreads, [&](int) {
    for (int i = 0; i < kPairs / 2; ++i) {
      ZBTraceBegin(outer);
      ZBTraceBegin(inner);
      ZBTraceEnd(inner);
      ZBTraceEnd(outer);
    }
  });
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());

  const ReadTrace trace = readTrace(path);
  EXPECT_EQ(ZBErrorNotFound, trace.end);
  struct PerThread {
    int64_t lastTime = INT64_MIN;
    int depth = 0;
    int pairs = 0;
    bool ordered = true;
  };
  std::map<uint32_t, PerThread> threads;
  for (const ReadEvent &event : trace.events) {
    if (event.type == ZBTraceEventThreadName)
      continue;
    PerThread &thread = threads[event.threadID];
    thread.ordered = thread.ordered && event.time >= thread.lastTime;
    thread.lastTime = event.time;
    if (event.type == ZBTraceEventBegin)
      ++thread.depth;
    if (event.type == ZBTraceEventEnd) {
      ASSERT_GT(thread.depth--, 0) << "an end before its begin";
      ++thread.pairs;
    }
  }
  ASSERT_EQ(size_t(kThreads), threads.size());
  for (const auto &[id, thread] : threads) {
    EXPECT_TRUE(thread.ordered) << "thread " << id;
    EXPECT_EQ(0, thread.depth) << "thread " << id;
    EXPECT_EQ(kPairs, thread.pairs) << "thread " << id;
  }

  const std::string json = tracePath("volume.json");
  ASSERT_EQ(ZBErrorNone, ZBTraceConvertToJSON(path.c_str(), json.c_str()));
  zbtest::JSONVerdict verdict = zbtest::checkTraceJSON(json);
  std::ifstream sized(json, std::ios::binary | std::ios::ate);
  std::printf("volume JSON: %lld bytes, %zu events, strict checker: %s\n",
              static_cast<long long>(sized.tellg()), verdict.events,
              verdict.fault.empty() ? "passes" : verdict.fault.c_str());
  EXPECT_EQ("", verdict.fault);
  EXPECT_EQ(size_t(kThreads * kPairs), verdict.phases["B"]);
  EXPECT_EQ(size_t(kThreads * kPairs), verdict.phases["E"]);
  std::remove(json.c_str());
  std::remove(path.c_str());
}

TEST(ZBTraceLog, WarningsAndTraceFlaggedLinesBecomeEvents) {
  const std::string path = tracePath("log.zbtrace");
  ASSERT_EQ(0, ZBEnvironmentSetEnv("ZBLOG_CONFIG", "tracedOnly=Info,Trace:*=Info", 1));
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(path.c_str()));
  SessionGuard guard;
  ZB_LOG_AT(ZBLogLevelWarning, "warnedHere", "Sources/Common/ZBTraceProbe.cpp", 12, "a warning %d",
            1);
  ZB_LOG_AT(ZBLogLevelInfo, "tracedOnly", "Sources/Common/ZBTraceProbe.cpp", 34,
            "only in the trace %s", "!");
  ZB_LOG_AT(ZBLogLevelInfo, "infoHere", "Sources/Common/ZBTraceProbe.cpp", 56, "not traced");
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());
  ZBEnvironmentUnsetEnv("ZBLOG_CONFIG");

  std::vector<std::string> texts;
  for (const ReadEvent &event : readTrace(path).events)
    if (event.type == ZBTraceEventInstant && event.name == "log")
      texts.push_back(event.text);
  const std::vector<std::string> expected = {
      "[ZBTraceProbe.cpp:12] warnedHere: WARNING a warning 1",
      "[ZBTraceProbe.cpp:34] tracedOnly: INFO only in the trace !"};
  EXPECT_EQ(expected, texts);
  const std::string ring = zbtest::logRing();
  EXPECT_NE(std::string::npos, ring.find("a warning 1"));
  EXPECT_EQ(std::string::npos, ring.find("only in the trace"));
}

TEST(ZBTraceSystemTrace, LockContentionShowsAsMutexWaitSpans) {
  const std::string path = tracePath("mutex.zbtrace");
  ZBMutex *mutex = ZBMutexCreateNR();
  ASSERT_NE(nullptr, mutex);
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(path.c_str()));
  SessionGuard guard;
  ZBMutexAcquire(mutex);
  std::atomic<bool> waiting{false};
  std::thread waiter([&] {
    waiting = true;
    ZBMutexAcquire(mutex); // blocks: the holder keeps it a while
    ZBMutexRelease(mutex);
  });
  while (!waiting)
    ZBThreadYield();
  Sleep(50);
  ZBMutexRelease(mutex);
  waiter.join();
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());
  ZBMutexFree(mutex);

  char expected[64];
  std::snprintf(expected, sizeof expected, "MutexWait[0x%llx]",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(mutex)));
  int begins = 0, ends = 0;
  for (const ReadEvent &event : readTrace(path).events) {
    begins += event.type == ZBTraceEventBegin && event.text == expected;
    ends += event.type == ZBTraceEventEnd;
  }
  EXPECT_EQ(1, begins) << expected;
  EXPECT_EQ(1, ends);
}

TEST(ZBTraceExport, JSONIsStrictWithBadUTF8AndOpenSpans) {
  const std::string path = tracePath("export.zbtrace");
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(path.c_str()));
  SessionGuard guard;
  const int32_t badName = ZBTraceDefineName("bad \xC3\x28 \xED\xA0\x80 \xF8 end");
  const int32_t quoted = ZBTraceDefineName("quote\" back\\ tab\t nl\n ctl\x01 \xE2\x82\xAC");
  ZBTraceBegin(badName);
  ZBTraceInstant(quoted, "text \xFF\"");
  ZBTraceCounter(quoted, 12345);
  ZBTraceEnd(badName);
  ZBTraceEnd(badName);  // unmatched: dropped
  ZBTraceBegin(quoted); // left open: closed at the last time stamp
  std::thread([] { ZBTraceBeginFormat("other thread %s", "open"); }).join();
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());

  const std::string json = tracePath("export.json");
  ASSERT_EQ(ZBErrorNone, ZBTraceConvertToJSON(path.c_str(), json.c_str()));
  zbtest::JSONVerdict verdict = zbtest::checkTraceJSON(json);
  EXPECT_EQ("", verdict.fault);
  EXPECT_EQ(3u, verdict.phases["B"]);
  EXPECT_EQ(3u, verdict.phases["E"]);
  EXPECT_EQ(1u, verdict.phases["i"]);
  EXPECT_GE(verdict.phases["C"], 1u); // and the sampler's
  EXPECT_GE(verdict.phases["M"], 2u);
  const std::string text = zbtest::readFile(json);
  EXPECT_NE(std::string::npos, text.find("\"displayTimeUnit\":\"ns\""));
  EXPECT_NE(std::string::npos, text.find("bad \xEF\xBF\xBD( \xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD "
                                         "\xEF\xBF\xBD end"));
  EXPECT_NE(std::string::npos,
            text.find("quote\\\" back\\\\ tab\\u0009 nl\\u000a ctl\\u0001 \xE2\x82\xAC"));
  EXPECT_NE(std::string::npos, text.find("\"args\":{\"value\":12345}"));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBTraceConvertToJSON(nullptr, json.c_str()));
  EXPECT_EQ(ZBErrorIO, ZBTraceConvertToJSON(json.c_str(), path.c_str()));
}

TEST(ZBTraceFaults, AChildKilledMidTraceLeavesWholeChunks) {
  // Not unique to the process: the child computes it again.
  const std::string path = testing::TempDir() + "zbtest-killed.zbtrace";
  EXPECT_EXIT(
      {
        ZBTraceStart(path.c_str());
        const int32_t name = ZBTraceDefineName("zb-killed");
        std::vector<std::thread> writers;
        for (int t = 0; t < 4; ++t)
          writers.emplace_back([name] {
            for (int i = 0;; ++i) {
              ZBTraceBegin(name);
              ZBTraceEnd(name);
              if (i % 100 == 0)
                Sleep(1); // a few megabytes, not hundreds
            }
          });
        Sleep(300);
        TerminateProcess(GetCurrentProcess(), 3);
      },
      testing::ExitedWithCode(3), "");
  // The kill may fall between two writes or inside one.
  const ReadTrace killed = readTrace(path);
  EXPECT_TRUE(killed.end == ZBErrorNotFound || killed.end == ZBErrorIO) << killed.end;
  EXPECT_GT(killed.events.size(), 1000u);

  // Cut inside the last whole chunk: everything before it still reads,
  // then -18.
  const std::string bytes = zbtest::readFile(path);
  size_t lastChunk = 0;
  for (size_t at = 16; at + 16 <= bytes.size();) {
    uint32_t payload;
    std::memcpy(&payload, bytes.data() + at + 8, sizeof payload);
    if (at + 16 + payload > bytes.size())
      break;
    lastChunk = at;
    at += 16 + payload;
  }
  ASSERT_NE(0u, lastChunk);
  const std::string prefix = tracePath("prefix.zbtrace");
  std::ofstream(prefix, std::ios::binary | std::ios::trunc) << bytes.substr(0, lastChunk);
  const ReadTrace before = readTrace(prefix);
  EXPECT_EQ(ZBErrorNotFound, before.end);
  const std::string torn = tracePath("torn.zbtrace");
  for (size_t cut : {lastChunk + 10, lastChunk + 16 + 30}) {
    std::ofstream(torn, std::ios::binary | std::ios::trunc) << bytes.substr(0, cut);
    const ReadTrace cutShort = readTrace(torn);
    EXPECT_EQ(ZBErrorIO, cutShort.end) << "cut at " << cut;
    EXPECT_EQ(before.events.size(), cutShort.events.size()) << "cut at " << cut;
  }
}

TEST(ZBTraceFaults, AnUnwritableLocationGivesOneWarning) {
  // /proc takes no new files, even from root; /dev/full refuses every
  // write with "no space left".
  for (const char *location : {"Z:/proc/zb-no-such-dir/t.zbtrace", "Z:/dev/full"}) {
    const size_t before = zbtest::occurrences(zbtest::logRing(), "Could not start tracing");
    const std::string rule = std::string("file=") + location;
    ASSERT_EQ(0, ZBEnvironmentSetEnv("ZB_TRACE_CONFIG", rule.c_str(), 1));
    EXPECT_FALSE(ZBTraceIsInitialized()) << location;
    EXPECT_EQ(before + 1, zbtest::occurrences(zbtest::logRing(), "Could not start tracing"));
    ZBEnvironmentUnsetEnv("ZB_TRACE_CONFIG");
  }
  EXPECT_EQ(ZBErrorIO, ZBTraceStart("Z:/dev/full"));
  EXPECT_FALSE(ZBTraceIsInitialized());
}

namespace {

// A TCP listener on the loopback that stores what one connection sends.
class Listener {
public:
  Listener() {
    ZBSocketInit();
    ZBSocketAddressInfo *address = nullptr;
    EXPECT_EQ(ZBErrorNone, ZBSocketAddressParseLiteralIP(2, "127.0.0.1", 0, &address));
    EXPECT_EQ(ZBErrorNone, ZBSocketCreate(2, 1, 0, 0, &mSocket));
    EXPECT_EQ(ZBErrorNone, ZBSocketBind(mSocket, address->address, address->addressLength));
    EXPECT_EQ(ZBErrorNone, ZBSocketListen(mSocket, 1));
    sockaddr_storage bound{};
    uint32_t length = sizeof bound;
    EXPECT_EQ(ZBErrorNone,
              ZBSocketGetLocalAddress(mSocket, reinterpret_cast<sockaddr *>(&bound), &length));
    ZBSocketAddressGetPort(reinterpret_cast<sockaddr *>(&bound), length, &mPort);
    ZBSocketAddressFreeInfoList(address);
  }
  ~Listener() { ZBSocketClose(mSocket); }
  uint16_t port() const { return mPort; }

  // Accepts one connection and reads it to its end (or closes it at once).
  std::thread receive(std::string *out, bool closeAtOnce = false) {
    return std::thread([this, out, closeAtOnce] {
      ZBSocket peer = 0;
      if (ZBSocketAccept(mSocket, nullptr, nullptr, &peer) != ZBErrorNone)
        return;
      char block[65536];
      uint32_t count = 0;
      while (!closeAtOnce && ZBSocketReceive(peer, block, sizeof block, 0, &count) == ZBErrorNone &&
             count != 0)
        out->append(block, count);
      ZBSocketClose(peer);
    });
  }

private:
  ZBSocket mSocket = 0;
  uint16_t mPort = 0;
};

void recordScript() {
  const int32_t name = ZBTraceDefineName("zb-host-span");
  for (int i = 0; i < 3000; ++i) {
    ZBTraceBegin(name);
    ZBTraceCounter(name, i);
    ZBTraceInstant(name, "host or file");
    ZBTraceEnd(name);
  }
}

} // namespace

TEST(ZBTraceHost, AHostSessionReadsBackEqualToAFileSession) {
  const std::string filePath = tracePath("file-session.zbtrace");
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(filePath.c_str()));
  recordScript();
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());

  Listener listener;
  std::string received;
  std::thread receiver = listener.receive(&received);
  ASSERT_EQ(ZBErrorNone, ZBTraceStartHost("127.0.0.1", listener.port()));
  recordScript();
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());
  receiver.join();
  const std::string hostPath = tracePath("host-session.zbtrace");
  std::ofstream(hostPath, std::ios::binary | std::ios::trunc) << received;

  const ReadTrace fromFile = readTrace(filePath);
  const ReadTrace fromHost = readTrace(hostPath);
  EXPECT_EQ(ZBErrorNotFound, fromHost.end);
  ASSERT_EQ(fromFile.events.size(), fromHost.events.size());
  ASSERT_EQ(12001u, fromHost.events.size());
  for (size_t i = 0; i < fromFile.events.size(); ++i) {
    const ReadEvent &a = fromFile.events[i], &b = fromHost.events[i];
    ASSERT_TRUE(a.type == b.type && a.threadID == b.threadID && a.name == b.name &&
                a.value == b.value && a.text == b.text)
        << "event " << i;
  }
  EXPECT_EQ(ZBErrorConnectionRefused, ZBTraceStartHost("127.0.0.1", 1));
}

TEST(ZBTraceHost, APeerThatGoesAwayStopsTheSessionWithOneWarning) {
  Listener listener;
  std::string ignored;
  std::thread receiver = listener.receive(&ignored, true);
  ASSERT_EQ(ZBErrorNone, ZBTraceStartHost("127.0.0.1", listener.port()));
  SessionGuard guard;
  receiver.join();
  const size_t before = zbtest::occurrences(zbtest::logRing(), "Trace session stopped");
  const int32_t name = ZBTraceDefineName("zb-to-nowhere");
  const DWORD start = GetTickCount();
  while (ZBTraceIsInitialized() && GetTickCount() - start < 20000) {
    ZBTraceInstant(name, "going nowhere");
    ZBTraceFlush();
  }
  EXPECT_FALSE(ZBTraceIsInitialized());
  EXPECT_EQ(before + 1, zbtest::occurrences(zbtest::logRing(), "Trace session stopped"));
  EXPECT_EQ(ZBErrorNotFound, ZBTraceStop());
}

TEST(ZBPerfCounters, ARecordingSessionSamplesThemTenTimesASecond) {
  const int32_t counter = ZBPerfCounterDefine("zb-counter-sampled");
  ZBPerfCounterSet(counter, 77);
  const std::string path = tracePath("sampled.zbtrace");
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(path.c_str()));
  const int64_t start = ZBHRTimeMonotonic();
  Sleep(450);
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());
  const int64_t elapsed = ZBHRTimeMonotonic() - start;
  std::map<std::string, std::vector<int64_t>> samples;
  for (const ReadEvent &event : readTrace(path, true).events)
    if (event.type == ZBTraceEventCounter)
      samples[event.name].push_back(event.value);
  const size_t most = size_t(elapsed / 100000000) + 1;
  for (const char *name : {"zb-counter-sampled", "process.cpu_ns", "process.resident_bytes",
                           "process.threads", "zone.default_bytes"}) {
    const std::vector<int64_t> &values = samples[name];
    EXPECT_GE(values.size(), 2u) << name;
    EXPECT_LE(values.size(), most) << name;
    // The allocation family answers 0 for the default zone's footprint.
    if (std::strcmp(name, "zone.default_bytes") != 0) {
      EXPECT_GT(values.empty() ? 0 : values.back(), 0) << name;
    }
  }
  EXPECT_EQ(77, samples["zb-counter-sampled"].front());
  EXPECT_GE(samples["process.threads"].front(), 2) << "the main thread and the sampler";
}

TEST(ZBPerfCounters, ShardedAddsSumExactly) {
  const int32_t counter = ZBPerfCounterDefine("zb-counter-adds");
  ASSERT_GE(counter, 1);
  EXPECT_EQ(counter, ZBPerfCounterDefine("zb-counter-adds"));
  EXPECT_EQ(0, ZBPerfCounterDefine(nullptr));
  ZBPerfCounterSet(counter, 5);
  zbtest::onThreads(8, [&](int) {
    for (int i = 0; i < 1000000; ++i)
      ZBPerfCounterAdd(counter, 1);
  });
  EXPECT_EQ(8000005, ZBPerfCounterGet(counter));
  ZBPerfCounterAdd(counter, 7);
  ZBPerfCounterSet(counter, -3);
  EXPECT_EQ(-3, ZBPerfCounterGet(counter));
  ZBPerfCounterAdd(counter, 4);
  EXPECT_EQ(1, ZBPerfCounterGet(counter));
  for (int32_t unknown : {0, -1, 100000}) {
    ZBPerfCounterAdd(unknown, 1);
    ZBPerfCounterSet(unknown, 1);
    EXPECT_EQ(0, ZBPerfCounterGet(unknown));
  }

  std::map<std::string, int64_t> seen;
  EXPECT_EQ(ZBErrorNone, ZBPerfCounterEnumerate(
                             [](int32_t, const char *name, int64_t value, void *context) {
                               (*static_cast<std::map<std::string, int64_t> *>(context))[name] =
                                   value;
                               return true;
                             },
                             &seen));
  EXPECT_EQ(1, seen["zb-counter-adds"]);
  EXPECT_EQ(ZBErrorInvalidArgument, ZBPerfCounterEnumerate(nullptr, nullptr));
  int calls = 0;
  ZBPerfCounterDefine("zb-counter-second");
  ZBPerfCounterEnumerate(
      [](int32_t, const char *, int64_t, void *context) {
        ++*static_cast<int *>(context);
        return false;
      },
      &calls);
  EXPECT_EQ(1, calls);
}

namespace {

std::atomic<bool> gSpinning{false};

__attribute__((noinline)) void spinInKnownFunction() {
  volatile uint64_t counter = 0;
  while (gSpinning.load(std::memory_order_relaxed))
    counter = counter + 1;
}

// The address range of a function of this program, from its unwind data.
struct CodeRange {
  uintptr_t begin, end;
};

CodeRange functionRange(void (*function)()) {
  DWORD64 base = 0;
  const auto address = reinterpret_cast<DWORD64>(function);
  const RUNTIME_FUNCTION *entry = RtlLookupFunctionEntry(address, &base, nullptr);
  if (entry == nullptr)
    return {0, 0};
  return {uintptr_t(base + entry->BeginAddress), uintptr_t(base + entry->EndAddress)};
}

// The address a "module+0xoffset" frame names, for frames of this program.
uintptr_t frameAddress(const std::string &frame) {
  const size_t plus = frame.rfind("+0x");
  if (plus == std::string::npos)
    return 0;
  const auto base = reinterpret_cast<uintptr_t>(GetModuleHandleA(nullptr));
  return base + std::stoull(frame.substr(plus + 3), nullptr, 16);
}

std::string leafFrame(const std::string &stack) {
  const size_t semicolon = stack.rfind(';');
  return semicolon == std::string::npos ? stack : stack.substr(semicolon + 1);
}

void *hammerHeapAndLoader(void *context) {
  auto *rounds = static_cast<std::atomic<int> *>(context);
  const DWORD start = GetTickCount();
  while (GetTickCount() - start < 10000) {
    for (int i = 0; i < 100; ++i)
      std::free(std::malloc(size_t(16 + i * 64)));
    if (HMODULE library = LoadLibraryA("version.dll"))
      FreeLibrary(library);
    ++*rounds;
  }
  return nullptr;
}

} // namespace

TEST(ZBProfiler, StartNeedsASessionAndAnInterval) {
  EXPECT_EQ(ZBErrorUnsupported, ZBProfilerStart(1000000, 0));
  EXPECT_EQ(ZBErrorNotFound, ZBProfilerStop());
  EXPECT_FALSE(ZBProfilerIsMonitoringNewThreads());
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(tracePath("profiler-errors.zbtrace").c_str()));
  SessionGuard guard;
  EXPECT_EQ(ZBErrorInvalidArgument, ZBProfilerStart(0, 0));
  EXPECT_EQ(ZBErrorInvalidArgument, ZBProfilerStart(1000000, 0x80));
  ASSERT_EQ(ZBErrorNone, ZBProfilerStart(1000000, 0));
  EXPECT_FALSE(ZBProfilerIsMonitoringNewThreads());
  EXPECT_EQ(ZBErrorAlready, ZBProfilerStart(1000000, 0));
  EXPECT_EQ(ZBErrorNone, ZBProfilerStop());
  EXPECT_EQ(ZBErrorInvalidArgument, ZBProfilerWriteFoldedStacks(nullptr, "x"));
}

TEST(ZBProfiler, ASpinningThreadsSamplesNameItsFunction) {
  const std::string path = tracePath("profile.zbtrace");
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(path.c_str()));
  SessionGuard guard;
  gSpinning = true;
  std::atomic<uint32_t> spinnerID{0};
  std::thread spinner([&] {
    spinnerID = GetCurrentThreadId();
    spinInKnownFunction();
  });
  while (spinnerID == 0)
    ZBThreadYield();
  ZBProfilerAddThread(spinnerID);
  ASSERT_EQ(ZBErrorNone, ZBProfilerStart(1000000, 0));
  Sleep(1000);
  EXPECT_EQ(ZBErrorNone, ZBProfilerStop());
  ZBProfilerRemoveThread(spinnerID);
  gSpinning = false;
  spinner.join();
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());

  const CodeRange spin = functionRange(spinInKnownFunction);
  ASSERT_NE(0u, spin.begin);
  size_t samples = 0, inSpin = 0;
  for (const ReadEvent &event : readTrace(path, true).events) {
    if (event.type != ZBTraceEventSample || event.value != spinnerID)
      continue;
    ++samples;
    const uintptr_t leaf = frameAddress(leafFrame(event.text));
    inSpin += leaf >= spin.begin && leaf < spin.end;
  }
  std::printf("profiler: %zu samples of the spinning thread, %zu in the function\n", samples,
              inSpin);
  ASSERT_GE(samples, 50u);
  EXPECT_GE(inSpin * 10, samples * 8);

  // Folded: the frames named by their functions at export, one line per
  // distinct stack.
  const std::string folded = tracePath("profile.folded");
  ASSERT_EQ(ZBErrorNone, ZBProfilerWriteFoldedStacks(path.c_str(), folded.c_str()));
  std::ifstream lines(folded);
  size_t counted = 0, namingSpin = 0;
  for (std::string line; std::getline(lines, line);) {
    const size_t space = line.rfind(' ');
    ASSERT_NE(std::string::npos, space) << line;
    const size_t count = std::stoul(line.substr(space + 1));
    counted += count;
    if (leafFrame(line.substr(0, space)).find("spinInKnownFunction") != std::string::npos)
      namingSpin += count;
  }
  EXPECT_LE(counted, samples); // only the spinning thread's, less any empty ones
  EXPECT_GE(namingSpin * 10, samples * 8) << zbtest::readFile(folded);
}

TEST(ZBProfiler, NoDeadlockWhileTargetsHammerTheHeapAndTheLoader) {
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(tracePath("profile-hammer.zbtrace").c_str()));
  SessionGuard guard;
  ASSERT_EQ(ZBErrorNone, ZBProfilerStart(1000000, ZBProfilerFlagAllThreads));
  EXPECT_TRUE(ZBProfilerIsMonitoringNewThreads());
  std::atomic<int> rounds{0};
  // Started through the library, so the profiler adds it as it starts.
  ZBThread hammer =
      ZBThreadCreate("zb-hammer", hammerHeapAndLoader, &rounds, ZBThreadPriorityDefault, 0, 0);
  ASSERT_NE(0u, hammer);
  for (int i = 0; i < 1000; ++i) // the test's own thread allocates too
    std::free(std::malloc(size_t(i + 1)));
  ASSERT_EQ(ZBErrorNone, ZBThreadJoin(hammer, nullptr));
  EXPECT_EQ(ZBErrorNone, ZBProfilerStop());
  EXPECT_GT(rounds.load(), 10);
}

TEST(ZBProfiler, QuovexProfilerSettingsStartItWithTheLibrary) {
  // The child reads both variables as the library loads and its initializers run.
  const std::string path = testing::TempDir() + "zbtest-profiler-at-load.zbtrace";
  SetEnvironmentVariableA("ZB_TRACE_CONFIG", ("file=" + path).c_str());
  SetEnvironmentVariableA("QUOVEX_PROFILER", "interval=2ms,all");
  EXPECT_EXIT(
      {
        ZBInitializerRun();
        const bool monitoring = ZBProfilerIsMonitoringNewThreads();
        Sleep(200);
        const bool stopped = ZBProfilerStop() == ZBErrorNone;
        ZBTraceStop();
        std::exit(monitoring && stopped ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
  SetEnvironmentVariableA("ZB_TRACE_CONFIG", nullptr);
  SetEnvironmentVariableA("QUOVEX_PROFILER", nullptr);
  size_t samples = 0;
  for (const ReadEvent &event : readTrace(path, true).events)
    samples += event.type == ZBTraceEventSample;
  EXPECT_GE(samples, 10u);
}

namespace {

// Runs zb-trace (beside this program) with `arguments`; its standard output
// goes to `outputPath` when given. Returns the exit code, or -1.
int runTool(const std::string &arguments, const std::string &outputPath = "",
            HANDLE *outProcess = nullptr) {
  char self[MAX_PATH];
  GetModuleFileNameA(nullptr, self, sizeof self);
  std::string command = self;
  command =
      "\"" + command.substr(0, command.find_last_of('\\') + 1) + "zb-trace.exe\" " + arguments;
  SECURITY_ATTRIBUTES inherit{sizeof inherit, nullptr, TRUE};
  HANDLE output = INVALID_HANDLE_VALUE;
  if (!outputPath.empty())
    output = CreateFileA(outputPath.c_str(), GENERIC_WRITE, FILE_SHARE_READ, &inherit,
                         CREATE_ALWAYS, 0, nullptr);
  STARTUPINFOA startup{};
  startup.cb = sizeof startup;
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdOutput = output != INVALID_HANDLE_VALUE ? output : GetStdHandle(STD_OUTPUT_HANDLE);
  startup.hStdError = GetStdHandle(STD_ERROR_HANDLE);
  PROCESS_INFORMATION process{};
  const BOOL started = CreateProcessA(nullptr, command.data(), nullptr, nullptr, TRUE, 0, nullptr,
                                      nullptr, &startup, &process);
  if (output != INVALID_HANDLE_VALUE)
    CloseHandle(output);
  if (!started)
    return -1;
  CloseHandle(process.hThread);
  if (outProcess != nullptr) {
    *outProcess = process.hProcess;
    return 0;
  }
  WaitForSingleObject(process.hProcess, 60000);
  DWORD code = DWORD(-1);
  GetExitCodeProcess(process.hProcess, &code);
  CloseHandle(process.hProcess);
  return int(code);
}

} // namespace

TEST(ZBTraceTool, ConvertDumpStatsFoldedAndListen) {
  const std::string path = tracePath("tool.zbtrace");
  ASSERT_EQ(ZBErrorNone, ZBTraceStart(path.c_str()));
  const int32_t outer = ZBTraceDefineName("zb-tool-outer");
  ZBTraceBegin(outer);
  for (int i = 0; i < 3; ++i) {
    ZBTraceBeginFormat("zb-tool-inner");
    ZBTraceEnd(0);
  }
  ZBTraceEnd(outer);
  ZBTraceCounter(outer, 9);
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());

  const std::string json = tracePath("tool.json");
  EXPECT_EQ(0, runTool("convert \"" + path + "\" \"" + json + "\""));
  EXPECT_EQ("", zbtest::checkTraceJSON(json).fault);
  const std::string dump = tracePath("tool.dump");
  EXPECT_EQ(0, runTool("dump \"" + path + "\"", dump));
  const std::string dumped = zbtest::readFile(dump);
  EXPECT_EQ(3u, zbtest::occurrences(dumped, " begin zb-tool-inner "));
  EXPECT_EQ(1u, zbtest::occurrences(dumped, " counter zb-tool-outer 9 "));
  const std::string stats = tracePath("tool.stats");
  EXPECT_EQ(0, runTool("stats \"" + path + "\"", stats));
  const std::string table = zbtest::readFile(stats);
  EXPECT_NE(std::string::npos, table.find("zb-tool-inner")) << table;
  int count = 0;
  const size_t row = table.find("zb-tool-inner");
  if (row != std::string::npos)
    std::sscanf(table.c_str() + row + std::strlen("zb-tool-inner"), "%d", &count);
  EXPECT_EQ(3, count) << table;
  EXPECT_EQ(0, runTool("folded \"" + path + "\" \"" + tracePath("tool.folded") + "\""));
  EXPECT_EQ(2, runTool("bogus"));
  EXPECT_EQ(1, runTool("dump \"" + tracePath("absent.zbtrace") + "\""));

  // listen: a port free a moment ago, and a session sent to it.
  uint16_t port = 0;
  {
    Listener probe;
    port = probe.port();
  }
  const std::string received = tracePath("tool-received.zbtrace");
  HANDLE listener = nullptr;
  ASSERT_EQ(0, runTool("listen " + std::to_string(port) + " \"" + received + "\"", "", &listener));
  ZBError connected = ZBErrorConnectionRefused;
  for (int attempt = 0; attempt < 100 && connected != ZBErrorNone; ++attempt, Sleep(50))
    connected = ZBTraceStartHost("127.0.0.1", port);
  ASSERT_EQ(ZBErrorNone, connected);
  recordScript();
  ASSERT_EQ(ZBErrorNone, ZBTraceStop());
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(listener, 30000));
  CloseHandle(listener);
  const ReadTrace trace = readTrace(received);
  EXPECT_EQ(ZBErrorNotFound, trace.end);
  EXPECT_EQ(12001u, trace.events.size());
}
