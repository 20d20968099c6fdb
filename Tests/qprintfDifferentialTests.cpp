// The format engine against glibc's snprintf over random values and
// formats (a fixed seed, so every run checks the same cases), for the
// integer and floating-point conversions where the two must agree: no
// space flag, no "#" with octal, no negative precision, no "l", and the
// flags in an order that the engine's flag loop reads as C does ("-" or
// "0" last). Native build only: it needs glibc beside the engine.
#include <gtest/gtest.h>

#include "qprintf.h"

#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr uint64_t kSeed = 0x5EEDF0124A7ULL;
constexpr int kCasesPerKind = 500000;
constexpr size_t kReported = 20;

class FormatMaker {
public:
  explicit FormatMaker(std::mt19937_64 &random) : mRandom(random) {}

  bool chance(int percent) { return int(mRandom() % 100) < percent; }
  int below(int limit) { return int(mRandom() % uint64_t(limit)); }

  // Flags, width and precision; "*" widths come from `starWidth`.
  std::string fieldPart(bool allowAlternate, bool *usesStar) {
    std::string part = "%";
    if (chance(30))
      part += '+';
    if (allowAlternate && chance(30))
      part += '#';
    if (chance(15))
      part += '+';
    const int edge = below(10);
    if (edge == 0)
      part += '-';
    else if (edge == 1)
      part += '0';
    *usesStar = false;
    if (chance(5)) {
      part += '*';
      *usesStar = true;
    } else if (chance(50)) {
      part += std::to_string(1 + below(30));
    }
    if (chance(50))
      part += "." + std::to_string(below(chance(5) ? 400 : 30));
    return part;
  }

private:
  std::mt19937_64 &mRandom;
};

struct Mismatch {
  std::string format;
  std::string value;
  std::string engine;
  std::string glibc;
};

template <typename... Arguments>
bool agree(const std::string &format, Mismatch *out, const std::string &value,
           Arguments... arguments) {
  char engine[1024];
  char glibc[1024];
  const int engineLength = qsnprintf(engine, sizeof engine, format.c_str(), arguments...);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int glibcLength = std::snprintf(glibc, sizeof glibc, format.c_str(), arguments...);
#pragma GCC diagnostic pop
  if (engineLength == glibcLength && std::strcmp(engine, glibc) == 0)
    return true;
  *out = Mismatch{format, value, engine, glibc};
  return false;
}

// Values spread over every magnitude: a random bit length, then random bits.
uint64_t randomWord(std::mt19937_64 &random) {
  const unsigned bits = unsigned(random() % 65);
  return bits == 0 ? 0 : random() >> (64 - bits);
}

double randomDouble(std::mt19937_64 &random) {
  switch (random() % 4) {
  case 0: { // any bit pattern: subnormals, infinities and NaNs included
    const uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  }
  case 1: // decimal-looking values around common magnitudes
    return (double(random() % 2000001) - 1000000.0) *
           std::pow(10.0, double(int(random() % 41) - 20) / 2);
  case 2: // halves and small integers: rounding ties
    return double(int64_t(random() % 20001) - 10000) / 2;
  default:
    return std::ldexp(double(random() % (uint64_t(1) << 53)), int(random() % 200) - 150);
  }
}

void report(const std::vector<Mismatch> &mismatches, int total) {
  for (size_t i = 0; i < mismatches.size() && i < kReported; ++i)
    ADD_FAILURE() << "format \"" << mismatches[i].format << "\" of " << mismatches[i].value
                  << ": engine \"" << mismatches[i].engine << "\", glibc \""
                  << mismatches[i].glibc << "\"";
  EXPECT_EQ(mismatches.size(), 0u) << "of " << total << " cases";
}

class qprintfDifferential : public ::testing::Test {
protected:
  void SetUp() override { std::setlocale(LC_ALL, "C"); }
};

TEST_F(qprintfDifferential, IntegersMatchGlibc) {
  std::mt19937_64 random(kSeed);
  FormatMaker maker(random);
  static const char *const kLengths[] = {"", "hh", "h", "ll", "j", "z"};
  static const char kConversions[] = "diuxXo";
  std::vector<Mismatch> mismatches;
  Mismatch mismatch;
  for (int i = 0; i < kCasesPerKind; ++i) {
    const char conversion = kConversions[maker.below(6)];
    bool star = false;
    std::string format = maker.fieldPart(conversion != 'o', &star);
    const char *length = kLengths[maker.below(6)];
    format += length;
    format += conversion;
    const uint64_t word = randomWord(random);
    const int width = maker.below(61) - 30;
    const bool wide = length[0] == 'l' || length[0] == 'j' || length[0] == 'z';
    const std::string value = std::to_string(int64_t(word));
    bool same;
    if (wide)
      same = star ? agree(format, &mismatch, value, width, (long long)word)
                  : agree(format, &mismatch, value, (long long)word);
    else
      same = star ? agree(format, &mismatch, value, width, int(word))
                  : agree(format, &mismatch, value, int(word));
    if (!same)
      mismatches.push_back(mismatch);
  }
  report(mismatches, kCasesPerKind);
}

TEST_F(qprintfDifferential, FloatingPointMatchesGlibc) {
  std::mt19937_64 random(kSeed + 1);
  FormatMaker maker(random);
  static const char kConversions[] = "eEfFgG";
  std::vector<Mismatch> mismatches;
  Mismatch mismatch;
  for (int i = 0; i < kCasesPerKind; ++i) {
    const char conversion = kConversions[maker.below(6)];
    bool star = false;
    std::string format = maker.fieldPart(true, &star);
    format += conversion;
    const double number = randomDouble(random);
    const int width = maker.below(81) - 40;
    char value[40];
    std::snprintf(value, sizeof value, "%a", number);
    const bool same = star ? agree(format, &mismatch, value, width, number)
                           : agree(format, &mismatch, value, number);
    if (!same)
      mismatches.push_back(mismatch);
  }
  report(mismatches, kCasesPerKind);
}

} // namespace
