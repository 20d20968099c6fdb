// Random bytes from the library against the raw system-preferred generator
// it draws on for desktop processes, for a key-sized and a bulk request.
#include "ZBBench.h"

#include "Zenbor.h"

#include <bcrypt.h>

#include <vector>

int main() {
  zbbench::printHeader();
  struct Size {
    const char *name;
    size_t bytes;
    int64_t iterations;
  };
  const Size sizes[] = {
      {"ZBRandomGetBytes 32 B vs BCryptGenRandom", 32, 200000},
      {"ZBRandomGetBytes 64 KiB vs BCryptGenRandom", 65536, 2000},
  };
  for (const Size &size : sizes) {
    std::vector<unsigned char> buffer(size.bytes);
    zbbench::compare(
        size.name,
        [&](int64_t n) {
          for (int64_t i = 0; i < n; ++i)
            ZBRandomGetBytes(buffer.data(), buffer.size());
          zbbench::keep(buffer[0]);
        },
        [&](int64_t n) {
          for (int64_t i = 0; i < n; ++i)
            BCryptGenRandom(nullptr, buffer.data(), static_cast<ULONG>(buffer.size()),
                            BCRYPT_USE_SYSTEM_PREFERRED_RNG);
          zbbench::keep(buffer[0]);
        },
        {15, size.iterations});
  }
}
