// The format engine against the printf cases of six public test suites,
// with what glibc prints for each (ZB_ORACLES_DIR/printf/printf_cases.tsv).
// Every case must print what glibc prints, except the engine's known
// deviations: those the file tags "dev:*", and the ones this file names
// below, each for a reason the engine's grammar states.
#define ZB_FORMAT_EXTENSIONS 1

#include <gtest/gtest.h>

#include "ZBTestSupport.h"
#include "qprintf.h"

#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace {

struct Case {
  std::string id;
  std::string format;
  std::string arguments; // C source: "42, \"abc\", (void*)0x12"
  std::string argumentTypes;
  int bufferSize; // 0: unlimited
  std::string glibc;
  std::string deviationTags;
  std::string tags;
};

// The file's texts are C string bodies: \" \\ \n \t and friends.
std::string unescape(const std::string &text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '\\' || i + 1 == text.size()) {
      out += text[i];
      continue;
    }
    const char next = text[++i];
    switch (next) {
    case 'n':
      out += '\n';
      break;
    case 't':
      out += '\t';
      break;
    case 'r':
      out += '\r';
      break;
    case '0':
      out += '\0';
      break;
    default:
      out += next; // \" \\ \'
    }
  }
  return out;
}

std::vector<std::string> split(const std::string &line, char separator) {
  std::vector<std::string> fields;
  std::string field;
  std::istringstream stream(line);
  while (std::getline(stream, field, separator))
    fields.push_back(field);
  if (!line.empty() && line.back() == separator)
    fields.emplace_back();
  return fields;
}

std::vector<Case> readCases(const std::string &path) {
  std::istringstream file(zbtest::readFile(path));
  std::string line;
  std::getline(file, line);
  const std::vector<std::string> header = split(line, '\t');
  std::map<std::string, size_t> column;
  for (size_t i = 0; i < header.size(); ++i)
    column[header[i]] = i;
  std::vector<Case> cases;
  while (std::getline(file, line)) {
    std::vector<std::string> f = split(line, '\t');
    f.resize(header.size());
    const std::string &size = f[column["bufsize"]];
    cases.push_back(Case{f[column["id"]], unescape(f[column["format"]]), f[column["c_args"]],
                         f[column["arg_types"]], size.empty() ? 0 : std::atoi(size.c_str()),
                         unescape(f[column["glibc"]]), f[column["deviation_tags"]],
                         f[column["tags"]]});
  }
  return cases;
}

// One argument as the engine reads it: an integer-class word (integers and
// pointers) or a double.
struct Argument {
  bool isDouble;
  int64_t word;
  double number;
};

// The C argument list split at the commas outside quotes and parentheses.
std::vector<std::string> splitArguments(const std::string &source) {
  std::vector<std::string> items;
  std::string item;
  int depth = 0;
  bool quoted = false;
  for (size_t i = 0; i < source.size(); ++i) {
    const char c = source[i];
    if (quoted && c == '\\' && i + 1 < source.size()) {
      item += c;
      item += source[++i];
      continue;
    }
    if (c == '"')
      quoted = !quoted;
    else if (!quoted && c == '(')
      ++depth;
    else if (!quoted && c == ')')
      --depth;
    if (!quoted && depth == 0 && c == ',') {
      items.push_back(item);
      item.clear();
      continue;
    }
    if (!item.empty() || c != ' ')
      item += c;
  }
  if (!item.empty())
    items.push_back(item);
  return items;
}

int64_t parseInteger(std::string token) {
  // "(-2147483647-1)" and its 64-bit forms: the minimum values.
  if (token.size() > 2 && token.front() == '(' && token.back() == ')') {
    token = token.substr(1, token.size() - 2);
    const size_t minus = token.rfind('-');
    if (minus != std::string::npos && minus > 0)
      return parseInteger(token.substr(0, minus)) - parseInteger(token.substr(minus + 1));
  }
  while (!token.empty() && std::strchr("uUlL", token.back()) != nullptr)
    token.pop_back();
  if (!token.empty() && token[0] == '-')
    return std::strtoll(token.c_str(), nullptr, 0);
  return static_cast<int64_t>(std::strtoull(token.c_str(), nullptr, 0));
}

double parseDouble(std::string token) {
  if (token == "NAN")
    return NAN;
  if (token == "INFINITY")
    return INFINITY;
  if (token == "-INFINITY")
    return -INFINITY;
  if (!token.empty() && (token.back() == 'L' || token.back() == 'l'))
    token.pop_back();
  return std::strtod(token.c_str(), nullptr);
}

// False when an argument is of a kind this test cannot pass. Strings live
// in `strings` while the case runs.
bool parseArguments(const Case &c, std::deque<std::string> &strings, int64_t *outTarget,
                    std::vector<Argument> *out) {
  const std::vector<std::string> values = splitArguments(c.arguments);
  const std::vector<std::string> types = split(c.argumentTypes, ',');
  if (values.size() != types.size() && !(values.empty() && c.argumentTypes.empty()))
    return false;
  for (size_t i = 0; i < values.size(); ++i) {
    const std::string kind = types[i].substr(0, types[i].find(':'));
    const std::string &value = values[i];
    if (kind == "double" || kind == "ldouble") {
      // "L" is read as a double by the engine.
      out->push_back(Argument{true, 0, parseDouble(value)});
    } else if (kind == "str") {
      if (value == "(const char*)0") {
        out->push_back(Argument{false, 0, 0});
      } else {
        if (value.size() < 2 || value.front() != '"')
          return false;
        strings.push_back(unescape(value.substr(1, value.size() - 2)));
        out->push_back(Argument{false, reinterpret_cast<intptr_t>(strings.back().c_str()), 0});
      }
    } else if (kind == "ptr") {
      out->push_back(Argument{false, parseInteger(value.substr(value.find(')') + 1)), 0});
    } else if (kind == "int_ptr_out" || kind == "long_ptr_out") {
      out->push_back(Argument{false, reinterpret_cast<intptr_t>(outTarget), 0});
    } else {
      out->push_back(Argument{false, parseInteger(value), 0});
    }
  }
  return true;
}

constexpr size_t kMaxWords = 16;
constexpr size_t kMaxDoubles = 8;

// Calls qsnprintf with a list of arguments known only at run time, by the
// x86-64 calling conventions. On Windows every variadic argument takes one
// 8-byte slot in order and a double is read from its slot's bits, so all go
// as words. On System V integers and doubles travel in separate register
// files, and only integers overflow to the stack (at most eight doubles
// here), so the words go first in their order and the doubles after them in
// theirs. Unused trailing arguments are never read.
int formatWithArguments(char *buffer, int size, const char *format,
                        const std::vector<Argument> &arguments) {
  int64_t w[kMaxWords] = {};
  double d[kMaxDoubles] = {};
  size_t words = 0, doubles = 0;
  for (const Argument &argument : arguments) {
#ifdef _WIN32
    int64_t bits = argument.word;
    if (argument.isDouble)
      std::memcpy(&bits, &argument.number, sizeof bits);
    w[words++] = bits;
#else
    if (argument.isDouble)
      d[doubles++] = argument.number;
    else
      w[words++] = argument.word;
#endif
  }
  (void)doubles;
  return qsnprintf(buffer, size, format, w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7], w[8],
                   w[9], w[10], w[11], w[12], w[13], w[14], w[15], d[0], d[1], d[2], d[3], d[4],
                   d[5], d[6], d[7]);
}

bool contains(const std::string &text, const char *part) {
  return text.find(part) != std::string::npos;
}

// The engine's flag loop ends right after a space, "-" or "0": a "+", "#",
// "'" or "-" after one of those is the conversion itself, and a "0" after a
// space is skipped as width. True when C's reading of some directive
// differs from the engine's that way.
bool flagLoopDiffers(const std::string &format) {
  for (size_t i = 0; i < format.size(); ++i) {
    if (format[i] != '%')
      continue;
    size_t j = i + 1;
    if (j < format.size() && format[j] == '%') {
      i = j;
      continue;
    }
    size_t digits = j;
    while (digits < format.size() && std::isdigit(static_cast<unsigned char>(format[digits])))
      ++digits;
    if (digits < format.size() && format[digits] == '$')
      j = digits + 1;
    char ender = 0;
    for (; j < format.size() && std::strchr("-+ #0'", format[j]) != nullptr; ++j) {
      const char flag = format[j];
      if (ender != 0 && (std::strchr("-+#'", flag) != nullptr || (ender == ' ' && flag == '0')))
        return true;
      if (ender == 0 && (flag == ' ' || flag == '-' || flag == '0'))
        ender = flag;
    }
  }
  return false;
}

// Cases without a glibc text to compare with, or whose arguments do not
// fit what the engine's own conversions read (%b and %H take a pointer
// too, so these are not even run); null for the others.
const char *notComparable(const Case &c) {
  if (!c.deviationTags.empty())
    return "tagged deviations";
  if (contains(c.tags, "not_evaluated_by_glibc"))
    return "no glibc output";
  if (contains(c.tags, "nonstd:"))
    return "characters the engine reads its own way (%b, %H, %I, %w) or formats C leaves open";
  return nullptr;
}

// Why the engine prints something else than glibc for a case, on purpose;
// null when it must print the same.
const char *knownDeviation(const Case &c) {
  if (contains(c.tags, "platform:lp64_long_value"))
    return "\"l\" is 32 bits wide, as on Windows";
  if (contains(c.tags, "hexfloat"))
    return "%a prints nothing";
  if (flagLoopDiffers(c.format))
    return "the flag loop ends after a space, \"-\" or \"0\"";
  if (contains(c.tags, "ub:zero_flag_with_%") && !contains(c.format, "%-"))
    return "\"0\" pads strings and characters with zeros";
  if (contains(c.tags, "ub:null_string") && contains(c.format, "%."))
    return "a null string is \"(null)\" cut to the precision";
  return nullptr;
}

TEST(qprintfOracle, MatchesGlibcExceptForKnownDeviations) {
  const std::string path = zbtest::oraclePath("printf/printf_cases.tsv");
  if (path.empty())
    GTEST_SKIP() << "the printf oracle (ZB_ORACLES_DIR/printf/printf_cases.tsv) is absent";
  const std::vector<Case> cases = readCases(path);
  ASSERT_GT(cases.size(), 1000u);

  std::map<std::string, int> skipped;
  std::map<std::string, int> deviations;
  int compared = 0;
  for (const Case &c : cases) {
    if (const char *reason = notComparable(c)) {
      ++skipped[reason];
      continue;
    }
    std::deque<std::string> strings;
    int64_t target = 0;
    std::vector<Argument> arguments;
    ASSERT_TRUE(parseArguments(c, strings, &target, &arguments)) << "case " << c.id;
    ASSERT_LE(arguments.size(), kMaxWords) << "case " << c.id;
    std::vector<char> buffer(c.bufferSize > 0 ? size_t(c.bufferSize) : 16384);
    const int result =
        formatWithArguments(buffer.data(), int(buffer.size()), c.format.c_str(), arguments);
    EXPECT_GE(result, 0) << "case " << c.id;
    const std::string printed(buffer.data());
    // A deviation must still be one: the rule that names it would
    // otherwise hide cases from the comparison.
    if (const char *reason = knownDeviation(c)) {
      ++deviations[reason];
      EXPECT_NE(printed, c.glibc) << "case " << c.id << " no longer deviates (" << reason << ")";
      continue;
    }
    EXPECT_EQ(printed, c.glibc) << "case " << c.id << ": format \"" << c.format
                                << "\" arguments " << c.arguments;
    ++compared;
  }
  std::ostringstream summary;
  summary << compared << " cases compared with glibc";
  for (const auto &[reason, count] : deviations)
    summary << "; " << count << " differ on purpose: " << reason;
  for (const auto &[reason, count] : skipped)
    summary << "; " << count << " not compared: " << reason;
  std::printf("%s\n", summary.str().c_str());
  EXPECT_GT(compared, 1200);
}

} // namespace
