// Thread-key lookups against the system's own thread-specific data, in one
// run: ZBThreadGetSpecific against pthread_getspecific everywhere, and
// against TlsGetValue on Windows. Each body reads one key repeatedly and
// keeps the result, so the optimiser cannot drop the reads.
#include "ZBBench.h"

#include "Zenbor.h"

#include <pthread.h>

namespace {

int gValue;

template <typename Read>
auto readLoop(Read read) {
  return [read](int64_t n) {
    for (int64_t i = 0; i < n; ++i)
      zbbench::keep(read());
  };
}

} // namespace

int main() {
  zbbench::printHeader();
  const zbbench::Options options{15, 5000000};

  const ZBThreadKey key = ZBThreadKeyCreate(nullptr);
  ZBThreadSetSpecific(key, &gValue);
  pthread_key_t posixKey;
  pthread_key_create(&posixKey, nullptr);
  pthread_setspecific(posixKey, &gValue);

  const auto zenbor = readLoop([key] { return ZBThreadGetSpecific(key); });
  zbbench::compare("ZBThreadGetSpecific vs pthread_getspecific", zenbor,
                   readLoop([posixKey] { return pthread_getspecific(posixKey); }), options);
#ifdef _WIN32
  const DWORD slot = TlsAlloc();
  TlsSetValue(slot, &gValue);
  zbbench::compare("ZBThreadGetSpecific vs TlsGetValue", zenbor,
                   readLoop([slot] { return TlsGetValue(slot); }), options);
#endif
  return 0;
}
