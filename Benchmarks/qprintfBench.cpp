// The format engine against the C runtime's snprintf, and its floating
// point against std::to_chars at the same precision:
//   (a) integer mixes ("%d %s %x", "%5d|%-8u|%08llx", "%zu") into a fixed
//       buffer, against the runtime and, on Windows, mingw's own
//       __mingw_snprintf as well;
//   (b) "%e", "%f", "%g" of random doubles;
//   (c) "%e", "%.3f", "%g" with widths against std::to_chars with the same
//       precision and the padding done by hand;
//   (d) natively, when {fmt} is installed, the integer mixes against
//       fmt::format_to_n into the same buffer with the equivalent format.
// On Windows the runtime is msvcrt's _snprintf, resolved from msvcrt.dll
// itself: mingw's own printf, which "snprintf" may name there, is not what
// applications compare with. Natively it is glibc's snprintf.
#include "ZBBench.h"

#include "qprintf.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <utility>
#include <vector>

#if defined(ZB_BENCH_WITH_FMT)
#include <fmt/format.h>
#endif

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
  unsigned long long wide;
  size_t size;
};

std::vector<Record> makeRecords(std::mt19937_64 &random) {
  static const char *const kNames[] = {"alpha", "beta", "gamma", "a considerably longer name",
                                       "", "x", "zenbor", "localhost:8080"};
  std::vector<Record> records;
  for (size_t i = 0; i < kValues; ++i)
    records.push_back(Record{static_cast<int>(random()) >> int(random() % 31), kNames[random() % 8],
                             static_cast<unsigned>(random()), random() >> (random() % 64),
                             size_t(random() >> (random() % 64))});
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

// std::to_chars at `precision`, right-aligned in `width` by hand: the
// least a formatter with a width can do.
void paddedToChars(char *buffer, size_t size, double value, std::chars_format style, int precision,
                   size_t width) {
  char digits[64];
  const size_t length =
      size_t(std::to_chars(digits, digits + sizeof digits, value, style, precision).ptr - digits);
  const size_t pad = width > length ? width - length : 0;
  if (pad + length >= size)
    return;
  std::memset(buffer, ' ', pad);
  std::memcpy(buffer + pad, digits, length);
  buffer[pad + length] = '\0';
}

void comparePaddedFloat(const char *conversion, const std::vector<double> &values,
                        std::chars_format style, int precision, size_t width) {
  char name[64];
  std::snprintf(name, sizeof name, "(c) %s vs padded std::to_chars", conversion);
  zbbench::compare(name, overValues([&](char *buffer, size_t size, size_t i) {
                     qsnprintf(buffer, int(size), conversion, values[i]);
                   }),
                   overValues([&](char *buffer, size_t size, size_t i) {
                     paddedToChars(buffer, size, values[i], style, precision, width);
                   }));
}

// One integer mix, `print(printer, buffer, size, record)`, through Zenbor
// and through the peer printf.
template <typename Printf, typename Print>
void compareMix(const char *label, const char *peerName, const std::vector<Record> &records,
                Printf peer, Print print) {
  const auto zenbor = [](char *buffer, size_t size, const char *format, auto... arguments) {
    return qsnprintf(buffer, int(size), format, arguments...);
  };
  char name[64];
  std::snprintf(name, sizeof name, "(a) %s vs %s", label, peerName);
  zbbench::compare(name, overValues([&](char *buffer, size_t size, size_t i) {
                     print(zenbor, buffer, size, records[i]);
                   }),
                   overValues([&](char *buffer, size_t size, size_t i) {
                     print(peer, buffer, size, records[i]);
                   }));
}

template <typename Printf>
void compareMixes(const char *peerName, const std::vector<Record> &records, Printf peer) {
  compareMix("%d %s %x", peerName, records, peer,
             [](auto printer, char *buffer, size_t size, const Record &r) {
               printer(buffer, size, "id=%d name=%s flags=%x", r.id, r.name, r.flags);
             });
  compareMix("%5d|%-8u|%08llx", peerName, records, peer,
             [](auto printer, char *buffer, size_t size, const Record &r) {
               printer(buffer, size, "%5d|%-8u|%08llx", r.id, r.flags, r.wide);
             });
  compareMix("%zu", peerName, records, peer,
             [](auto printer, char *buffer, size_t size, const Record &r) {
               printer(buffer, size, "%zu", r.size);
             });
}

#if defined(ZB_BENCH_WITH_FMT)
// fmt::format_to_n into the buffer, zero-terminated as snprintf leaves it.
template <typename... Arguments>
void fmtInto(char *buffer, size_t size, fmt::format_string<Arguments...> format,
             Arguments &&...arguments) {
  const auto result =
      fmt::format_to_n(buffer, size - 1, format, std::forward<Arguments>(arguments)...);
  *result.out = '\0';
}

template <typename Print>
void compareWithFmt(const char *label, const std::vector<Record> &records, Print print) {
  char name[64];
  std::snprintf(name, sizeof name, "(d) %s vs fmt::format_to_n", label);
  zbbench::compare(name, overValues([&](char *buffer, size_t size, size_t i) {
                     print(false, buffer, size, records[i]);
                   }),
                   overValues([&](char *buffer, size_t size, size_t i) {
                     print(true, buffer, size, records[i]);
                   }));
}

void compareMixesWithFmt(const std::vector<Record> &records) {
  compareWithFmt("%d %s %x", records, [](bool withFmt, char *buffer, size_t size, const Record &r) {
    if (withFmt)
      fmtInto(buffer, size, "id={} name={} flags={:x}", r.id, r.name, r.flags);
    else
      qsnprintf(buffer, int(size), "id=%d name=%s flags=%x", r.id, r.name, r.flags);
  });
  compareWithFmt("%5d|%-8u|%08llx", records,
                 [](bool withFmt, char *buffer, size_t size, const Record &r) {
                   if (withFmt)
                     fmtInto(buffer, size, "{:5}|{:<8}|{:08x}", r.id, r.flags, r.wide);
                   else
                     qsnprintf(buffer, int(size), "%5d|%-8u|%08llx", r.id, r.flags, r.wide);
                 });
  compareWithFmt("%zu", records, [](bool withFmt, char *buffer, size_t size, const Record &r) {
    if (withFmt)
      fmtInto(buffer, size, "{}", r.size);
    else
      qsnprintf(buffer, int(size), "%zu", r.size);
  });
}
#endif

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

  compareMixes(kRuntimeName, records, runtime);
#ifdef _WIN32
  compareMixes("__mingw_snprintf", records, &__mingw_snprintf);
#endif
#if defined(ZB_BENCH_WITH_FMT)
  compareMixesWithFmt(records);
#endif

  compareFloat("%e", doubles, std::chars_format::scientific);
  compareFloat("%f", doubles, std::chars_format::fixed);
  compareFloat("%g", doubles, std::chars_format::general);
  comparePaddedFloat("%14e", doubles, std::chars_format::scientific, 6, 14);
  comparePaddedFloat("%12.3f", doubles, std::chars_format::fixed, 3, 12);
  comparePaddedFloat("%12g", doubles, std::chars_format::general, 6, 12);
  return 0;
}
