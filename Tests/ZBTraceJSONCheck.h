// A strict checker for trace-event JSON, shared by the tracer's test
// programs: the grammar of RFC 8259 with well-formed UTF-8 in strings, then
// the rules the viewers need (B/E balanced and ts non-decreasing per thread,
// three decimals, "displayTimeUnit":"ns").
#pragma once

#include "ZBTestSupport.h"

#include <cctype>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace zbtest {

// ---- A strict JSON checker: the grammar of RFC 8259 with well-formed
// UTF-8, then the trace-event rules (B/E balance and ts order per thread).
class StrictJSON {
public:
  explicit StrictJSON(const std::string &text) : mText(text) {}

  struct Value {
    char kind = 0; // 's' string, 'n' number, 'o' object, 'a' array, 'l' literal
    std::string text;
    std::map<std::string, Value> members;
  };

  // Parses the document; each element of "traceEvents" goes to `visit`
  // (and is not kept), so a file of millions of events parses in little
  // memory. Returns an empty string or the first fault.
  template <typename Visit>
  std::string parseDocument(Visit visit) {
    skipSpace();
    if (!take('{'))
      return fault("document is not an object");
    bool sawUnit = false, sawEvents = false;
    for (bool first = true; (skipSpace(), !take('}')); first = false) {
      if (!first && !take(','))
        return fault("expected ,");
      std::string key;
      skipSpace();
      if (!parseString(&key) || (skipSpace(), !take(':')))
        return fault("bad member");
      skipSpace();
      if (key == "traceEvents") {
        sawEvents = true;
        if (!take('['))
          return fault("traceEvents is not an array");
        for (bool firstEvent = true; (skipSpace(), !take(']')); firstEvent = false) {
          if (!firstEvent && !take(','))
            return fault("expected , between events");
          Value event;
          skipSpace();
          if (!parseValue(&event) || event.kind != 'o')
            return fault("an event is not an object");
          const std::string problem = visit(event);
          if (!problem.empty())
            return fault(problem);
        }
      } else {
        Value value;
        if (!parseValue(&value))
          return fault("bad value");
        if (key == "displayTimeUnit")
          sawUnit = value.kind == 's' && value.text == "ns";
      }
      skipSpace();
    }
    skipSpace();
    if (mAt != mText.size())
      return fault("text after the document");
    if (!sawUnit || !sawEvents)
      return "missing displayTimeUnit \"ns\" or traceEvents";
    return "";
  }

private:
  std::string fault(const std::string &what) { return what + " at byte " + std::to_string(mAt); }
  void skipSpace() {
    while (mAt < mText.size() && std::strchr(" \t\r\n", mText[mAt]) && mText[mAt] != '\0')
      ++mAt;
  }
  bool take(char c) {
    if (mAt < mText.size() && mText[mAt] == c)
      return ++mAt, true;
    return false;
  }

  bool parseValue(Value *out) {
    if (mAt >= mText.size())
      return false;
    const char c = mText[mAt];
    if (c == '"')
      return out->kind = 's', parseString(&out->text);
    if (c == '{') {
      out->kind = 'o';
      ++mAt;
      for (bool first = true; (skipSpace(), !take('}')); first = false) {
        if (!first && !take(','))
          return false;
        skipSpace();
        std::string key;
        if (!parseString(&key))
          return false;
        skipSpace();
        if (!take(':'))
          return false;
        skipSpace();
        if (out->members.count(key) || !parseValue(&out->members[key]))
          return false;
      }
      return true;
    }
    if (c == '[') {
      out->kind = 'a';
      ++mAt;
      for (bool first = true; (skipSpace(), !take(']')); first = false) {
        Value item;
        if ((!first && !take(',')) || (skipSpace(), !parseValue(&item)))
          return false;
      }
      return true;
    }
    for (const char *literal : {"true", "false", "null"})
      if (mText.compare(mAt, std::strlen(literal), literal) == 0)
        return out->kind = 'l', mAt += std::strlen(literal), true;
    return out->kind = 'n', parseNumber(&out->text);
  }

  bool parseNumber(std::string *out) {
    const size_t start = mAt;
    take('-');
    if (take('0')) {
    } else if (!digits()) {
      return false;
    }
    if (take('.') && !digits())
      return false;
    if ((take('e') || take('E')) && ((take('+') || take('-')), !digits()))
      return false;
    *out = mText.substr(start, mAt - start);
    return true;
  }
  bool digits() {
    const size_t start = mAt;
    while (mAt < mText.size() && mText[mAt] >= '0' && mText[mAt] <= '9')
      ++mAt;
    return mAt != start;
  }

  bool parseString(std::string *out) {
    if (!take('"'))
      return false;
    out->clear();
    while (mAt < mText.size()) {
      const unsigned char c = static_cast<unsigned char>(mText[mAt]);
      if (c == '"')
        return ++mAt, true;
      if (c < 0x20)
        return false; // raw control characters must be escaped
      if (c == '\\') {
        if (++mAt >= mText.size())
          return false;
        const char e = mText[mAt++];
        if (e == 'u') {
          if (mAt + 4 > mText.size())
            return false;
          for (int i = 0; i < 4; ++i)
            if (!std::isxdigit(static_cast<unsigned char>(mText[mAt + i])))
              return false;
          out->push_back('?');
          mAt += 4;
        } else if (std::strchr("\"\\/bfnrt", e) && e != '\0') {
          out->push_back(e);
        } else {
          return false;
        }
        continue;
      }
      const size_t length = c < 0x80 ? 1 : c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 ? 2 : 0;
      if (length == 0 || mAt + length > mText.size())
        return false;
      for (size_t i = 1; i < length; ++i)
        if ((static_cast<unsigned char>(mText[mAt + i]) & 0xC0) != 0x80)
          return false;
      out->append(mText, mAt, length);
      mAt += length;
    }
    return false;
  }

  const std::string &mText;
  size_t mAt = 0;
};

struct JSONVerdict {
  std::string fault; // empty: passes
  size_t events = 0;
  std::map<std::string, size_t> phases;
  std::vector<std::string> names;
};

// Parses the file strictly and checks the trace-event rules.
inline JSONVerdict checkTraceJSON(const std::string &path) {
  const std::string text = readFile(path);
  JSONVerdict verdict;
  std::map<std::string, int> depth;
  std::map<std::string, double> lastTime;
  StrictJSON parser(text);
  verdict.fault = parser.parseDocument([&](const StrictJSON::Value &event) -> std::string {
    ++verdict.events;
    const auto phase = event.members.find("ph");
    const auto tid = event.members.find("tid");
    if (phase == event.members.end() || tid == event.members.end() || phase->second.kind != 's')
      return "an event without ph or tid";
    const std::string &ph = phase->second.text;
    ++verdict.phases[ph];
    if (auto name = event.members.find("name"); name != event.members.end())
      verdict.names.push_back(name->second.text);
    if (ph == "M")
      return "";
    const auto ts = event.members.find("ts");
    if (ts == event.members.end() || ts->second.kind != 'n')
      return "a timed event without ts";
    const std::string &stamp = ts->second.text;
    const size_t dot = stamp.find('.');
    if (dot == std::string::npos || stamp.size() - dot != 4)
      return "ts without three decimals: " + stamp;
    const double time = std::stod(stamp);
    auto [last, fresh] = lastTime.emplace(tid->second.text, time);
    if (!fresh && time < last->second)
      return "ts goes back on thread " + tid->second.text;
    last->second = time;
    if (ph == "B")
      ++depth[tid->second.text];
    if (ph == "E" && --depth[tid->second.text] < 0)
      return "E without B on thread " + tid->second.text;
    return "";
  });
  for (const auto &[thread, open] : depth)
    if (verdict.fault.empty() && open != 0)
      verdict.fault = "unbalanced spans on thread " + thread;
  return verdict;
}

} // namespace zbtest
