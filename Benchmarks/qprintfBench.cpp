// The format engine against the C runtime's snprintf, and its floating
// point against std::to_chars at the same precision:
//   (a) a mix of "%d %s %x" into a fixed buffer;
//   (b) "%e", "%f", "%g" of random doubles.
// On Windows the runtime is msvcrt's _snprintf, resolved from msvcrt.dll
// itself: mingw's own printf, which "snprintf" may name there, is not what
// applications compare with. Natively it is glibc's snprintf.
#include "ZBBench.h"

#include "qprintf.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace {

constexpr size_t kValues = 1024;

#ifdef _WIN32
using RuntimeSnprintf = int(__cdecl *)(char *, size_t, const char *, ...);
RuntimeSnprintf runtimeSnprintf() {
  static const auto function = reinterpret_cast<RuntimeSnprintf>(
      reinterpret_cast<void *>(GetProcAddress(LoadLibraryA("msvcrt.dll"), "_snprintf")));
  return function;
}
const char *const kRuntimeName = "msvcrt _snprintf";
#else
using RuntimeSnprintf = int (*)(char *, size_t, const char *, ...);
RuntimeSnprintf runtimeSnprintf() { return std::snprintf; }
const char *const kRuntimeName = "glibc snprintf";
#endif

struct Record {
  int id;
  const char *name;
  unsigned flags;
};

std::vector<Record> makeRecords(std::mt19937_64 &random) {
  static const char *const kNames[] = {"alpha", "beta", "gamma", "a considerably longer name",
                                       "", "x", "zenbor", "localhost:8080"};
  std::vector<Record> records;
  for (size_t i = 0; i < kValues; ++i)
    records.push_back(Record{static_cast<int>(random()) >> int(random() % 31),
                             kNames[random() % 8], static_cast<unsigned>(random())});
  return records;
}

// Doubles of every sign and of magnitudes from 1e-5 to 1e15.
std::vector<double> makeDoubles(std::mt19937_64 &random) {
  std::uniform_real_distribution<double> mantissa(1.0, 10.0);
  std::vector<double> values;
  for (size_t i = 0; i < kValues; ++i) {
    const double magnitude = mantissa(random) * std::pow(10.0, int(random() % 21) - 5);
    values.push_back(random() % 2 ? magnitude : -magnitude);
  }
  return values;
}

template <typename Format>
auto overValues(Format format) {
  return [format](int64_t n) {
    char buffer[128];
    for (int64_t i = 0; i < n; ++i) {
      format(buffer, sizeof buffer, size_t(i) % kValues);
      zbbench::keep(buffer[0]);
    }
  };
}

void compareFloat(const char *conversion, const std::vector<double> &values,
                  std::chars_format style) {
  char name[64];
  const RuntimeSnprintf runtime = runtimeSnprintf();
  std::snprintf(name, sizeof name, "(b) %s vs %s", conversion, kRuntimeName);
  zbbench::compare(
      name,
      overValues([&](char *buffer, size_t size, size_t i) {
        qsnprintf(buffer, int(size), conversion, values[i]);
      }),
      overValues([&](char *buffer, size_t size, size_t i) {
        runtime(buffer, size, conversion, values[i]);
      }));
  std::snprintf(name, sizeof name, "(b) %s vs std::to_chars", conversion);
  zbbench::compare(
      name,
      overValues([&](char *buffer, size_t size, size_t i) {
        qsnprintf(buffer, int(size), conversion, values[i]);
      }),
      overValues([&](char *buffer, size_t size, size_t i) {
        *std::to_chars(buffer, buffer + size - 1, values[i], style, 6).ptr = '\0';
      }));
}

} // namespace

int main() {
  std::mt19937_64 random(20240521);
  const std::vector<Record> records = makeRecords(random);
  const std::vector<double> doubles = makeDoubles(random);
  const RuntimeSnprintf runtime = runtimeSnprintf();
  if (runtime == nullptr) {
    std::printf("the C runtime's snprintf is not available\n");
    return 1;
  }
  zbbench::printHeader();

  const char *const kMix = "id=%d name=%s flags=%x";
  char name[64];
  std::snprintf(name, sizeof name, "(a) %%d %%s %%x vs %s", kRuntimeName);
  zbbench::compare(
      name,
      overValues([&](char *buffer, size_t size, size_t i) {
        qsnprintf(buffer, int(size), kMix, records[i].id, records[i].name, records[i].flags);
      }),
      overValues([&](char *buffer, size_t size, size_t i) {
        runtime(buffer, size, kMix, records[i].id, records[i].name, records[i].flags);
      }));

  compareFloat("%e", doubles, std::chars_format::scientific);
  compareFloat("%f", doubles, std::chars_format::fixed);
  compareFloat("%g", doubles, std::chars_format::general);
  return 0;
}
