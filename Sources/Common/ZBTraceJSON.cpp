// The trace as trace-event JSON, which chrome://tracing, the Perfetto UI and
// speedscope open: B/E spans per thread in record order (spans left open are
// closed at the trace's last time stamp, unmatched ends dropped), instants
// as "i", counters as "C", thread names as "M"; time stamps in microseconds
// with three decimals. Strings are escaped, invalid UTF-8 becoming U+FFFD.
// Past 200 MB the rest goes to a further file; each file closes its open spans and the next one
// reopens them, so every file balances alone.
#include "qprintf.h"
#include "ZBPlatform.h"
#include "ZBTraceReaderPrivate.h"

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace {

// The viewers fail on larger files.
constexpr uint64_t kViewerLimitBytes = 200ull * 1000 * 1000;

// The length of the well-formed UTF-8 sequence at `text`, or 0.
size_t validSequence(const unsigned char *text, size_t left) {
  const unsigned char lead = text[0];
  size_t length;
  uint32_t minimum;
  if (lead < 0x80)
    return 1;
  if (lead >= 0xC2 && lead <= 0xDF)
    length = 2, minimum = 0x80;
  else if (lead >= 0xE0 && lead <= 0xEF)
    length = 3, minimum = 0x800;
  else if (lead >= 0xF0 && lead <= 0xF4)
    length = 4, minimum = 0x10000;
  else
    return 0;
  if (left < length)
    return 0;
  uint32_t codePoint = lead & (0x7F >> length);
  for (size_t i = 1; i < length; ++i) {
    if ((text[i] & 0xC0) != 0x80)
      return 0;
    codePoint = codePoint << 6 | (text[i] & 0x3F);
  }
  const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
  return codePoint < minimum || codePoint > 0x10FFFF || surrogate ? 0 : length;
}

void appendEscaped(std::string &out, const std::string &text) {
  out += '"';
  const auto *bytes = reinterpret_cast<const unsigned char *>(text.data());
  for (size_t at = 0; at < text.size();) {
    const unsigned char byte = bytes[at];
    const size_t length = validSequence(bytes + at, text.size() - at);
    if (length == 0) {
      out += "\xEF\xBF\xBD";
      ++at;
    } else if (byte == '"' || byte == '\\') {
      out += '\\';
      out += char(byte);
      ++at;
    } else if (byte < 0x20) {
      char escape[8];
      qsnprintf(escape, sizeof escape, "\\u%04x", unsigned(byte));
      out += escape;
      ++at;
    } else {
      out.append(text, at, length);
      at += length;
    }
  }
  out += '"';
}

void appendTime(std::string &out, int64_t nanoseconds) {
  char number[32];
  const uint64_t magnitude = nanoseconds < 0 ? 0 - uint64_t(nanoseconds) : uint64_t(nanoseconds);
  qsnprintf(number, sizeof number, "%s%llu.%03u", nanoseconds < 0 ? "-" : "",
            (unsigned long long)(magnitude / 1000), unsigned(magnitude % 1000));
  out += number;
}

struct ThreadState {
  std::vector<std::string> openSpans;
  std::string name; // empty until a thread-name event
};

class JSONWriter {
public:
  JSONWriter(const char *path, uint32_t processID, uint64_t fileLimitBytes)
      : mPath(path), mProcessID(processID), mFileLimitBytes(fileLimitBytes) {}
  ~JSONWriter() {
    if (mFile != nullptr)
      std::fclose(mFile);
  }

  ZBError convert(ZBTraceReader *reader) {
    ZBError error = openNext();
    ZBTraceEvent event;
    while (error == ZBErrorNone && ZBTraceReaderNext(reader, &event) == ZBErrorNone) {
      mLastTime = std::max(mLastTime, event.timeNanoseconds);
      add(reader, event);
      if (mWritten + mLine.size() > mFileLimitBytes)
        error = split();
      else
        error = flushLine();
    }
    if (error != ZBErrorNone)
      return error;
    closeOpenSpans();
    return finishFile();
  }

private:
  std::string nameOf(ZBTraceReader *reader, const ZBTraceEvent &event) {
    if (event.text[0] != '\0' && event.type == ZBTraceEventBegin)
      return event.text;
    if (const char *name = ZBTraceReaderGetName(reader, event.nameID))
      return name;
    return "#" + std::to_string(event.nameID);
  }

  void head(const char *phase, uint32_t threadID, const std::string *name) {
    mLine += mFirst ? "\n{" : ",\n{";
    mFirst = false;
    if (name != nullptr) {
      mLine += "\"name\":";
      appendEscaped(mLine, *name);
      mLine += ',';
    }
    mLine += "\"ph\":\"";
    mLine += phase;
    mLine += "\",\"pid\":" + std::to_string(mProcessID) + ",\"tid\":" + std::to_string(threadID);
  }

  void timed(const char *phase, uint32_t threadID, const std::string *name, int64_t time) {
    head(phase, threadID, name);
    mLine += ",\"ts\":";
    appendTime(mLine, time);
  }

  void threadName(uint32_t threadID, const std::string &name) {
    static const std::string kThreadName = "thread_name";
    head("M", threadID, &kThreadName);
    mLine += ",\"args\":{\"name\":";
    appendEscaped(mLine, name);
    mLine += "}}";
  }

  void add(ZBTraceReader *reader, const ZBTraceEvent &event) {
    ThreadState &thread = mThreads[event.threadID];
    switch (event.type) {
    case ZBTraceEventBegin: {
      thread.openSpans.push_back(nameOf(reader, event));
      timed("B", event.threadID, &thread.openSpans.back(), event.timeNanoseconds);
      mLine += '}';
      break;
    }
    case ZBTraceEventEnd:
      if (thread.openSpans.empty())
        break;
      thread.openSpans.pop_back();
      timed("E", event.threadID, nullptr, event.timeNanoseconds);
      mLine += '}';
      break;
    case ZBTraceEventInstant: {
      const std::string name = nameOf(reader, event);
      timed("i", event.threadID, &name, event.timeNanoseconds);
      mLine += ",\"s\":\"t\",\"args\":{\"text\":";
      appendEscaped(mLine, event.text);
      mLine += "}}";
      break;
    }
    case ZBTraceEventCounter: {
      const std::string name = nameOf(reader, event);
      timed("C", event.threadID, &name, event.timeNanoseconds);
      mLine += ",\"args\":{\"value\":" + std::to_string(event.value) + "}}";
      break;
    }
    case ZBTraceEventThreadName:
      thread.name = event.text;
      threadName(event.threadID, thread.name);
      break;
    default: // samples belong to the folded-stack export
      break;
    }
  }

  void closeOpenSpans() {
    for (auto &[threadID, thread] : mThreads)
      for (size_t i = 0; i < thread.openSpans.size(); ++i) {
        timed("E", threadID, nullptr, mLastTime);
        mLine += '}';
      }
  }

  // Ends this file with its spans closed and starts the next with them
  // open again, under their threads' names.
  ZBError split() {
    closeOpenSpans();
    ZBError error = finishFile();
    if (error == ZBErrorNone)
      error = openNext();
    for (auto &[threadID, thread] : mThreads) {
      if (!thread.name.empty())
        threadName(threadID, thread.name);
      for (const std::string &name : thread.openSpans) {
        timed("B", threadID, &name, mLastTime);
        mLine += '}';
      }
    }
    return error == ZBErrorNone ? flushLine() : error;
  }

  ZBError flushLine() {
    const bool written = std::fwrite(mLine.data(), 1, mLine.size(), mFile) == mLine.size();
    mWritten += mLine.size();
    mLine.clear();
    return written ? ZBErrorNone : ZBErrorIO;
  }

  std::string nextPath() {
    if (++mFileCount == 1)
      return mPath;
    const size_t slash = mPath.find_last_of("/\\");
    const size_t dot = mPath.rfind('.');
    const size_t at = dot == std::string::npos || (slash != std::string::npos && dot < slash)
                          ? mPath.size()
                          : dot;
    return mPath.substr(0, at) + "." + std::to_string(mFileCount) + mPath.substr(at);
  }

  ZBError openNext() {
    mFile = zb::platform::openStream(nextPath().c_str(), "wb");
    if (mFile == nullptr)
      return ZBErrorAccessDenied;
    mFirst = true;
    mWritten = 0;
    mLine = "{\"displayTimeUnit\":\"ns\",\"traceEvents\":[";
    return ZBErrorNone;
  }

  ZBError finishFile() {
    mLine += "\n]}\n";
    ZBError error = flushLine();
    if (std::fclose(mFile) != 0 && error == ZBErrorNone)
      error = ZBErrorIO;
    mFile = nullptr;
    return error;
  }

  std::string mPath;
  uint32_t mProcessID;
  uint64_t mFileLimitBytes;
  std::FILE *mFile = nullptr;
  int mFileCount = 0;
  bool mFirst = true;
  uint64_t mWritten = 0;
  std::string mLine;
  int64_t mLastTime = INT64_MIN;
  std::map<uint32_t, ThreadState> mThreads;
};

} // namespace

namespace zb::trace {

ZBError convertToJSON(const char *tracePath, const char *jsonPath,
                      uint64_t fileLimitBytes) noexcept {
  ReaderHolder reader(nullptr, ZBTraceReaderFree);
  const ZBError error = openForExport(tracePath, jsonPath, reader);
  if (error != ZBErrorNone)
    return error;
  try {
    JSONWriter writer(jsonPath, reader->processID, fileLimitBytes);
    return writer.convert(reader.get());
  } catch (...) {
    return ZBErrorNoMemory;
  }
}

} // namespace zb::trace

extern "C" ZBError ZBTraceConvertToJSON(const char *tracePath, const char *jsonPath) noexcept {
  return zb::trace::convertToJSON(tracePath, jsonPath, kViewerLimitBytes);
}
