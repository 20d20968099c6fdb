// The Microsoft C runtime's command-line rules, which every C and C++
// program on Windows applies to its own command line: the splitting behind
// ZBProcessCopyArguments, and its exact inverse, the quoting of the
// arguments of a program the library starts. CommandLineToArgvW differs on
// argv[0] and on "" inside a quoted part, so it serves neither.
#include "ZBProcessPrivate.h"

namespace zb::process {

namespace {

bool isBlank(wchar_t c) { return c == L' ' || c == L'\t'; }

// argv[0] is a program path: quotes group, backslashes are plain.
const wchar_t *parseProgramName(const wchar_t *p, std::wstring &out) {
  bool quoted = false;
  for (; *p != L'\0' && (quoted || !isBlank(*p)); ++p) {
    if (*p == L'"')
      quoted = !quoted;
    else
      out.push_back(*p);
  }
  return p;
}

// One further argument: backslashes escape only a following quote.
const wchar_t *parseArgument(const wchar_t *p, std::wstring &out) {
  bool quoted = false;
  for (;;) {
    size_t backslashes = 0;
    while (*p == L'\\') {
      ++p;
      ++backslashes;
    }
    bool literal = true;
    if (*p == L'"') {
      if (backslashes % 2 == 0) {
        if (quoted && p[1] == L'"')
          ++p; // "" inside a quoted part is one literal quote
        else {
          literal = false;
          quoted = !quoted;
        }
      }
      backslashes /= 2;
    }
    out.append(backslashes, L'\\');
    if (*p == L'\0' || (!quoted && isBlank(*p)))
      return p;
    if (literal)
      out.push_back(*p);
    ++p;
  }
}

bool needsQuotes(const std::wstring &argument) {
  return argument.empty() || argument.find_first_of(L" \t\"") != std::wstring::npos;
}

} // namespace

std::vector<std::wstring> parseCommandLine(const wchar_t *commandLine) {
  std::vector<std::wstring> arguments;
  if (commandLine == nullptr)
    return arguments;
  arguments.emplace_back();
  const wchar_t *p = parseProgramName(commandLine, arguments.back());
  for (;;) {
    while (isBlank(*p))
      ++p;
    if (*p == L'\0')
      return arguments;
    arguments.emplace_back();
    p = parseArgument(p, arguments.back());
  }
}

bool appendArgument(std::wstring &commandLine, const std::wstring &argument, bool first) {
  if (!first)
    commandLine.push_back(L' ');
  if (!needsQuotes(argument)) {
    commandLine += argument;
    return true;
  }
  if (first) {
    if (argument.find(L'"') != std::wstring::npos)
      return false;
    commandLine += L'"' + argument + L'"';
    return true;
  }
  commandLine.push_back(L'"');
  size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'\\') {
      ++backslashes;
      continue;
    }
    // Backslashes before a quote are doubled, and the quote escaped.
    commandLine.append(c == L'"' ? backslashes * 2 + 1 : backslashes, L'\\');
    backslashes = 0;
    commandLine.push_back(c);
  }
  // Before the closing quote, a run is doubled so the quote still closes.
  commandLine.append(backslashes * 2, L'\\');
  commandLine.push_back(L'"');
  return true;
}

} // namespace zb::process
