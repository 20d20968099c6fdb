// The few Windows Runtime services the library uses: the application-data
// folders and the cryptographic random buffer. The runtime's entry points
// are looked up in combase.dll at first use, so the DLL imports nothing the
// oldest supported desktop lacks; where the runtime cannot activate a class
// (desktop processes without a package, Wine) the callers take their
// documented fallbacks. The interfaces are declared here slot by slot,
// because the SDK's generated headers do not compile with GCC. Included by
// Sources/Win32 only.
#pragma once

// winsock2.h must precede windows.h wherever the system-call table is also
// included.
#include <winsock2.h>
#include <windows.h>
#include <inspectable.h>
#include <roapi.h>
#include <winstring.h>

namespace zb::winrt {

// Releases a COM interface when it goes out of scope.
template <typename Interface>
class Ref {
public:
  Ref() = default;
  ~Ref() {
    if (mPointer != nullptr)
      mPointer->Release();
  }
  Ref(const Ref &) = delete;
  Ref &operator=(const Ref &) = delete;
  Interface *operator->() const { return mPointer; }
  Interface *get() const { return mPointer; }
  // The slot an out-parameter fills.
  Interface **put() { return &mPointer; }
  void **putVoid() { return reinterpret_cast<void **>(&mPointer); }

private:
  Interface *mPointer = nullptr;
};

// Windows.Storage.Streams.IBuffer: only passed back to the runtime.
struct IBuffer : IInspectable {};

// Windows.Security.Cryptography.ICryptographicBufferStatics, up to the slots
// used.
struct ICryptographicBufferStatics : IInspectable {
  virtual HRESULT STDMETHODCALLTYPE Compare(IBuffer *first, IBuffer *second, boolean *equal) = 0;
  virtual HRESULT STDMETHODCALLTYPE GenerateRandom(UINT32 length, IBuffer **buffer) = 0;
  virtual HRESULT STDMETHODCALLTYPE GenerateRandomNumber(UINT32 *value) = 0;
  virtual HRESULT STDMETHODCALLTYPE CreateFromByteArray(UINT32 length, BYTE *bytes,
                                                        IBuffer **buffer) = 0;
  // The array comes from CoTaskMemAlloc.
  virtual HRESULT STDMETHODCALLTYPE CopyToByteArray(IBuffer *buffer, UINT32 *length,
                                                    BYTE **bytes) = 0;
};
extern const IID kICryptographicBufferStatics;

// The statics of `className` through RoGetActivationFactory. On failure the
// result says which step failed, and `factory` stays null.
struct ActivationResult {
  HRESULT createString; // WindowsCreateString of the class name
  HRESULT activation;   // RoGetActivationFactory
};
ActivationResult getActivationFactory(const wchar_t *className, REFIID iid,
                                      void **factory) noexcept;

// Whether the process runs from an application package, where the
// runtime's per-application services (application data, the cryptographic
// buffer) answer. Desktop processes and Wine have no package.
bool runningPackaged() noexcept;

// Frees an array the runtime allocated (CoTaskMemFree).
void freeRuntimeArray(void *array) noexcept;

enum class AppDataFolder { local = 0, temporary = 1 };

// The path of the application's local or temporary application-data folder
// in UTF-8, from the C heap (release with free()), or null when the runtime
// cannot say; every failure is logged as an Error.
char *copyAppDataFolderPath(AppDataFolder folder) noexcept;

} // namespace zb::winrt
