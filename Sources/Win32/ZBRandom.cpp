// Cryptographically strong random bytes. Packaged applications draw them
// from the Windows Runtime's cryptographic buffer; desktop processes (and
// Wine, whose buffer class activates but cannot generate) use the
// system-preferred generator of BCrypt, which is also the faster of the
// two. A source that fails once chosen is Fatal: callers use the bytes for
// keys and identifiers and must never receive a buffer that was not filled.
#include "ZBEnvironment.h"

#include "ZBLog.h"
#include "ZBSystemCalls.h"
#include "ZBWinRT.h"

#include <pthread.h>

#include <climits>
#include <cstring>

namespace {

pthread_once_t sRandomOnce = PTHREAD_ONCE_INIT;
// Null when the runtime's buffer class is unavailable; kept for the process.
zb::winrt::ICryptographicBufferStatics *sStatics;

void __ZBRandomInit() {
  if (!zb::winrt::runningPackaged())
    return;
  void *factory = nullptr;
  const zb::winrt::ActivationResult activation =
      zb::winrt::getActivationFactory(L"Windows.Security.Cryptography.CryptographicBuffer",
                                      zb::winrt::kICryptographicBufferStatics, &factory);
  if (FAILED(activation.createString) || FAILED(activation.activation)) {
    // BCrypt takes over, so this is no error.
    ZB_LOG_WARNING("Failed get cryptographic buffer factory for random gen");
    return;
  }
  sStatics = static_cast<zb::winrt::ICryptographicBufferStatics *>(factory);
}

[[noreturn]] void failGenerating() {
  ZB_LOG_FATAL_AT("ZBRandomGetBytes", __FILE__, __LINE__, "Failed generated random buffer");
}

void fillFromRuntime(uint8_t *bytes, uint32_t count) {
  zb::winrt::Ref<zb::winrt::IBuffer> buffer;
  if (FAILED(sStatics->GenerateRandom(count, buffer.put())) || buffer.get() == nullptr)
    failGenerating();
  UINT32 copied = 0;
  BYTE *array = nullptr;
  const HRESULT result = sStatics->CopyToByteArray(buffer.get(), &copied, &array);
  if (FAILED(result) || copied != count || array == nullptr) {
    zb::winrt::freeRuntimeArray(array);
    ZB_LOG_FATAL_AT("ZBRandomGetBytes", __FILE__, __LINE__, "Failed read data from random buffer");
  }
  std::memcpy(bytes, array, count);
  zb::winrt::freeRuntimeArray(array);
}

void fillFromSystem(uint8_t *bytes, uint32_t count) {
  const NTSTATUS status =
      zb::gSystemCalls.BCryptGenRandom(nullptr, bytes, count, BCRYPT_USE_SYSTEM_PREFERRED_RNG);
  if (status < 0)
    failGenerating();
}

} // namespace

extern "C" void ZBRandomGetBytes(void *buffer, size_t count) noexcept {
  if (buffer == nullptr || count == 0)
    return;
  if (pthread_once(&sRandomOnce, __ZBRandomInit) != 0) {
    ZB_LOG_FATAL_AT("ZBRandomGetBytes", __FILE__, __LINE__, "pthread_once failed.");
  }
  // Both sources take 32-bit counts: larger requests go in pieces.
  auto *bytes = static_cast<uint8_t *>(buffer);
  while (count > 0) {
    const uint32_t piece = count > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(count);
    if (sStatics != nullptr)
      fillFromRuntime(bytes, piece);
    else
      fillFromSystem(bytes, piece);
    bytes += piece;
    count -= piece;
  }
}
