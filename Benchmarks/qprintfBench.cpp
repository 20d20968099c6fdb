// The format engine against the C runtime's snprintf, and its floating
// point against std::to_chars at the same precision:
//   (a) integer mixes ("%d %s %x", "%5d|%-8u|%08llx", "%zu") into a fixed
//       buffer, against the runtime and, on Windows, mingw's own
//       __mingw_snprintf as well;
//   (b) "%e", "%f", "%g" of random doubles;
//   (c) "%e", "%.3f", "%g" with widths against std::to_chars with the same
//       precision and the padding done by hand.
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

// One integer mix against a peer printf.
template <typename Peer>
void compareMix(const char *label, const char *peerName, const std::vector<Record> &records,
                Peer peer) {
  char name[64];
  std::snprintf(name, sizeof name, "(a) %s vs %s", label, peerName);
  zbbench::compare(name, overValues([&](char *buffer, size_t size, size_t i) {
                     peer.zenbor(buffer, size, records[i]);
                   }),
                   overValues([&](char *buffer, size_t size, size_t i) {
                     peer.other(buffer, size, records[i]);
                   }));
}

// The three mixes, each as Zenbor and as `Printf`.
template <typename Printf>
void compareMixes(const char *peerName, const std::vector<Record> &records, Printf call) {
  struct Mix {
    Printf call;
    void zenbor(char *buffer, size_t size, const Record &r) const {
      qsnprintf(buffer, int(size), "id=%d name=%s flags=%x", r.id, r.name, r.flags);
    }
    void other(char *buffer, size_t size, const Record &r) const {
      call(buffer, size, "id=%d name=%s flags=%x", r.id, r.name, r.flags);
    }
  };
  struct Columns {
    Printf call;
    void zenbor(char *buffer, size_t size, const Record &r) const {
      qsnprintf(buffer, int(size), "%5d|%-8u|%08llx", r.id, r.flags, r.wide);
    }
    void other(char *buffer, size_t size, const Record &r) const {
      call(buffer, size, "%5d|%-8u|%08llx", r.id, r.flags, r.wide);
    }
  };
  struct Size {
    Printf call;
    void zenbor(char *buffer, size_t size, const Record &r) const {
      qsnprintf(buffer, int(size), "%zu", r.size);
    }
    void other(char *buffer, size_t size, const Record &r) const {
      call(buffer, size, "%zu", r.size);
    }
  };
  compareMix("%d %s %x", peerName, records, Mix{call});
  compareMix("%5d|%-8u|%08llx", peerName, records, Columns{call});
  compareMix("%zu", peerName, records, Size{call});
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

  compareMixes(kRuntimeName, records, runtime);
#ifdef _WIN32
  compareMixes("__mingw_snprintf", records, &__mingw_snprintf);
#endif

  compareFloat("%e", doubles, std::chars_format::scientific);
  compareFloat("%f", doubles, std::chars_format::fixed);
  compareFloat("%g", doubles, std::chars_format::general);
  comparePaddedFloat("%14e", doubles, std::chars_format::scientific, 6, 14);
  comparePaddedFloat("%12.3f", doubles, std::chars_format::fixed, 3, 12);
  comparePaddedFloat("%12g", doubles, std::chars_format::general, 6, 12);
  return 0;
}
