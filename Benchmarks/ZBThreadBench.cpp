// Thread-key lookups and stores against the system's own thread-specific
// data, in one run: ZBThreadGetSpecific against pthread_getspecific
// everywhere, and against TlsGetValue on Windows, both as callers write it
// (the header's inline form) and through the exported function's address.
// Each body reads one key repeatedly and keeps the result, so the optimiser
// cannot drop the reads.
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
  const auto raw = readLoop([slot] { return TlsGetValue(slot); });
  zbbench::compare("ZBThreadGetSpecific vs TlsGetValue", zenbor, raw, options);
  // A volatile pointer: the call cannot be turned back into the inline form.
  void *(*volatile exported)(ZBThreadKey) = &ZBThreadGetSpecific;
  zbbench::compare("&ZBThreadGetSpecific (exported) vs TlsGetValue",
                   readLoop([key, exported] { return exported(key); }), raw, options);
  zbbench::compare(
      "ZBThreadSetSpecific vs TlsSetValue",
      [key](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          zbbench::keep(ZBThreadSetSpecific(key, &gValue));
      },
      [slot](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          zbbench::keep(TlsSetValue(slot, &gValue));
      },
      options);
#endif
  return 0;
}
