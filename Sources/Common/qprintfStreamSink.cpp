// The format engine's stream sink (the printf and fprintf family).
//
// A stream gets the bytes as they are. Standard output and standard error
// have no console to show them in a GUI process, so their text goes to the
// debugger output instead: decoded from UTF-8 into UTF-16 and buffered per
// thread until a newline (or 1023 units), so lines from different threads
// never mix inside one debugger message. Text without a final newline waits
// in the thread's buffer for the thread's next output.
//
// The decoder is deliberately lenient and streams byte by byte across runs:
// a lead byte 0xC_, 0xE_ or 0xF_ takes 1, 2 or 3 following bytes of 0x80 or
// above without checking them further; 0xD0-0xDF are not sequence starts;
// those, stray continuation bytes and ASCII pass as one unit each. A byte
// below 0x80 inside an unfinished sequence writes the pending bytes one unit
// each and is itself dropped.
#include "qprintfDebuggerOutput.h"
#include "qprintfEngine.h"

#include <atomic>
#include <climits>

namespace zb::format {
namespace {

constexpr size_t kLineUnits = 1024;

struct LineBuffer {
  char16_t units[kLineUnits];
  size_t length;
};

thread_local LineBuffer tLine;
std::atomic<DebuggerLineWriter> sLineWriter{writeDebuggerLine};

void appendUnit(char16_t unit) {
  LineBuffer &line = tLine;
  line.units[line.length++] = unit;
  if (unit == u'\n' || line.length == kLineUnits - 1) {
    line.units[line.length] = 0;
    line.length = 0;
    sLineWriter.load(std::memory_order_acquire)(line.units);
  }
}

class LenientUTF8Decoder {
public:
  void put(uint8_t byte) {
    if (mPendingCount > 0) {
      continueSequence(byte);
      return;
    }
    const uint8_t nibble = byte >> 4;
    if (nibble == 0xC || nibble == 0xE || nibble == 0xF) {
      mPending[0] = byte;
      mPendingCount = 1;
      mExpected = nibble == 0xC ? 1 : nibble == 0xE ? 2 : 3;
      return;
    }
    appendUnit(byte);
  }

  // The call ends inside a sequence: its bytes pass as single units.
  void finish() { writePendingBytes(); }

private:
  void continueSequence(uint8_t byte) {
    if (byte < 0x80) {
      writePendingBytes();
      return;
    }
    mPending[mPendingCount++] = byte;
    if (--mExpected > 0)
      return;
    const uint8_t lead = mPending[0];
    const uint32_t leadBits = mPendingCount == 2 ? 0x1F : mPendingCount == 3 ? 0x0F : 0x07;
    uint32_t codePoint = lead & leadBits;
    for (uint8_t i = 1; i < mPendingCount; ++i)
      codePoint = (codePoint << 6) | (mPending[i] & 0x3Fu);
    mPendingCount = 0;
    if (codePoint <= 0xFFFF) {
      appendUnit(static_cast<char16_t>(codePoint));
      return;
    }
    const uint32_t offset = codePoint - 0x10000;
    appendUnit(static_cast<char16_t>(0xD800 + (offset >> 10)));
    appendUnit(static_cast<char16_t>(0xDC00 + (offset & 0x3FF)));
  }

  void writePendingBytes() {
    for (uint8_t i = 0; i < mPendingCount; ++i)
      appendUnit(mPending[i]);
    mPendingCount = 0;
  }

  uint8_t mPending[4] = {};
  uint8_t mPendingCount = 0;
  uint8_t mExpected = 0;
};

struct StreamState {
  FILE *stream;
  bool toDebugger;
  LenientUTF8Decoder decoder;
};

size_t streamOverflow(qprintf_sink *sink, const char *bytes, size_t length) {
  auto *state = static_cast<StreamState *>(sink->context);
  if (!state->toDebugger)
    return std::fwrite(bytes, 1, length, state->stream);
  for (size_t i = 0; i < length; ++i)
    state->decoder.put(static_cast<uint8_t>(bytes[i]));
  return length;
}

} // namespace

DebuggerLineWriter setDebuggerLineWriter(DebuggerLineWriter writer) noexcept {
  return sLineWriter.exchange(writer != nullptr ? writer : writeDebuggerLine);
}

int formatToStream(FILE *stream, const char *format, va_list *arguments) noexcept {
  StreamState state{stream, stream == stdout || stream == stderr, {}};
  qprintf_sink sink{nullptr, nullptr, streamOverflow, &state, 0};
  const int64_t result = qprintf_run(&sink, 0, format, arguments);
  if (state.toDebugger)
    state.decoder.finish();
  return result < 0 || result > INT_MAX ? -1 : static_cast<int>(result);
}

} // namespace zb::format
