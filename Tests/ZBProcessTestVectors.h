// Random argument vectors for the command-line round trips: the pieces the
// C runtime's rules treat specially (quotes, runs of backslashes before
// quotes and at the end, blanks, empty arguments) and text beyond ASCII.
#pragma once

#include <random>
#include <string>
#include <vector>

namespace zbtest {

// Up to 5 UTF-8 arguments of up to 6 pieces each.
inline std::vector<std::string> randomArguments(std::mt19937 &random) {
  static const char *const pieces[] = {
      "a", "\\", "\\\\", "\"", " ", "\t", "\\\"", "\xc3\xa9", "\xf0\x9f\x98\x80"};
  std::vector<std::string> arguments(random() % 6);
  for (std::string &argument : arguments)
    for (unsigned j = random() % 7; j > 0; --j)
      argument += pieces[random() % (sizeof pieces / sizeof *pieces)];
  return arguments;
}

} // namespace zbtest
