// The Windows Runtime calls of the library: activation factories through
// combase.dll looked up once, and the query of the application-data folders
// that the home and temporary directories start from.
#include "ZBWinRT.h"

#include "ZBLog.h"
#include "ZBSystemCalls.h"
#include "ZBThread.h"

#include <cstdlib>
#include <cwchar>

namespace zb::winrt {

const IID kICryptographicBufferStatics = {
    0x320b7e22, 0x3cb0, 0x4cdf, {0x86, 0x63, 0x1d, 0x28, 0x91, 0x00, 0x65, 0xeb}};

namespace {

const IID kIApplicationDataStatics = {
    0x5612147b, 0xe843, 0x45e3, {0x94, 0xd8, 0x06, 0x16, 0x9e, 0x3c, 0x8e, 0x17}};
const IID kIStorageItem = {
    0x4207a996, 0xca2f, 0x42f7, {0xbd, 0xe8, 0x8b, 0x10, 0x45, 0x7a, 0x7f, 0x30}};

// Windows.Storage.IStorageFolder: only queried for IStorageItem.
struct IStorageFolder : IInspectable {};

struct IStorageItem : IInspectable {
  virtual HRESULT STDMETHODCALLTYPE RenameAsyncOverloadDefaultOptions(HSTRING, void **) = 0;
  virtual HRESULT STDMETHODCALLTYPE RenameAsync(HSTRING, int32_t, void **) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteAsyncOverloadDefaultOptions(void **) = 0;
  virtual HRESULT STDMETHODCALLTYPE DeleteAsync(int32_t, void **) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetBasicPropertiesAsync(void **) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Name(HSTRING *) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_Path(HSTRING *path) = 0;
};

struct IApplicationData : IInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_Version(UINT32 *) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetVersionAsync(UINT32, void *, void **) = 0;
  virtual HRESULT STDMETHODCALLTYPE ClearAllAsync(void **) = 0;
  virtual HRESULT STDMETHODCALLTYPE ClearAsync(int32_t, void **) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_LocalSettings(void **) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_RoamingSettings(void **) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_LocalFolder(IStorageFolder **folder) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_RoamingFolder(IStorageFolder **) = 0;
  virtual HRESULT STDMETHODCALLTYPE get_TemporaryFolder(IStorageFolder **folder) = 0;
};

struct IApplicationDataStatics : IInspectable {
  virtual HRESULT STDMETHODCALLTYPE get_Current(IApplicationData **current) = 0;
};

// The runtime's entry points, or nulls where combase.dll lacks them.
struct Runtime {
  decltype(&::RoGetActivationFactory) getActivationFactory;
  decltype(&::WindowsCreateString) createString;
  decltype(&::WindowsDeleteString) deleteString;
  decltype(&::WindowsGetStringRawBuffer) rawBuffer;
  decltype(&::CoTaskMemFree) freeArray;
};

uint32_t sRuntimeOnce;
Runtime sRuntime;

template <typename Function>
void lookUp(HMODULE module, const char *name, Function *slot) {
  *slot = reinterpret_cast<Function>(reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
}

void loadRuntime(void *) {
  // Loaded for good: the factories obtained from it live as long as the process.
  HMODULE combase = LoadLibraryExW(L"combase.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
  if (combase == nullptr)
    return;
  lookUp(combase, "RoGetActivationFactory", &sRuntime.getActivationFactory);
  lookUp(combase, "WindowsCreateString", &sRuntime.createString);
  lookUp(combase, "WindowsDeleteString", &sRuntime.deleteString);
  lookUp(combase, "WindowsGetStringRawBuffer", &sRuntime.rawBuffer);
  lookUp(combase, "CoTaskMemFree", &sRuntime.freeArray);
}

const Runtime &runtime() {
  ZBThreadCallOnce(&sRuntimeOnce, loadRuntime, nullptr);
  return sRuntime;
}

bool runtimeComplete(const Runtime &r) {
  return r.getActivationFactory && r.createString && r.deleteString && r.rawBuffer && r.freeArray;
}

// An HSTRING released at the end of its scope.
class ScopedString {
public:
  ScopedString() = default;
  ~ScopedString() {
    if (mString != nullptr)
      runtime().deleteString(mString);
  }
  ScopedString(const ScopedString &) = delete;
  ScopedString &operator=(const ScopedString &) = delete;
  HSTRING get() const { return mString; }
  HSTRING *put() { return &mString; }

private:
  HSTRING mString = nullptr;
};

#define ZB_APPDATA_ERROR(...)                                                                      \
  ZB_LOG_AT(ZBLogLevelError, "_GetAppDataFolderInternal", __FILE__, __LINE__, __VA_ARGS__)

unsigned hex(HRESULT result) { return static_cast<unsigned>(result); }

// The folder's path as UTF-8 in a buffer of four bytes per unit plus one.
char *utf8FromPath(HSTRING path) {
  UINT32 length = 0;
  const wchar_t *units = runtime().rawBuffer(path, &length);
  const size_t capacity = 4 * size_t(length) + 1;
  char *text = static_cast<char *>(std::malloc(capacity));
  if (text == nullptr) {
    ZB_APPDATA_ERROR("WideCharToMultiByte failed: %d", static_cast<int>(ERROR_NOT_ENOUGH_MEMORY));
    return nullptr;
  }
  if (length == 0) {
    text[0] = '\0';
    return text;
  }
  const int written = gSystemCalls.WideCharToMultiByte(
      CP_UTF8, WC_ERR_INVALID_CHARS, units, static_cast<int>(length), text,
      static_cast<int>(capacity - 1), nullptr, nullptr);
  if (written <= 0) {
    const DWORD error = GetLastError();
    ZB_APPDATA_ERROR("WideCharToMultiByte failed: %d", static_cast<int>(error));
    std::free(text);
    return nullptr;
  }
  text[written] = '\0';
  return text;
}

} // namespace

ActivationResult getActivationFactory(const wchar_t *className, REFIID iid,
                                      void **factory) noexcept {
  *factory = nullptr;
  const Runtime &r = runtime();
  if (!runtimeComplete(r))
    return {HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND), S_OK};
  ScopedString name;
  const HRESULT created =
      r.createString(className, static_cast<UINT32>(std::wcslen(className)), name.put());
  if (FAILED(created))
    return {created, S_OK};
  return {S_OK, r.getActivationFactory(name.get(), iid, factory)};
}

bool runningPackaged() noexcept {
  using Function = LONG(WINAPI *)(UINT32 *, PWSTR);
  Function packageName = nullptr;
  if (HMODULE kernel = GetModuleHandleW(L"kernel32.dll"))
    lookUp(kernel, "GetCurrentPackageFullName", &packageName);
  UINT32 length = 0;
  // Without a package the answer is APPMODEL_ERROR_NO_PACKAGE; with one, the
  // empty buffer is too small.
  return packageName != nullptr && packageName(&length, nullptr) == ERROR_INSUFFICIENT_BUFFER;
}

void freeRuntimeArray(void *array) noexcept {
  if (array != nullptr && runtime().freeArray != nullptr)
    runtime().freeArray(array);
}

char *copyAppDataFolderPath(AppDataFolder folder) noexcept {
  // Interfaces are declared in acquisition order, so they are released in
  // the reverse order.
  Ref<IApplicationDataStatics> statics;
  const ActivationResult activation = getActivationFactory(
      L"Windows.Storage.ApplicationData", kIApplicationDataStatics, statics.putVoid());
  if (FAILED(activation.createString)) {
    ZB_APPDATA_ERROR("ScopedWindowsString::CreateFromString (%#08x)\n",
                     hex(activation.createString));
    return nullptr;
  }
  if (FAILED(activation.activation)) {
    ZB_APPDATA_ERROR("RoGetActivationFactory (%#08x)\n", hex(activation.activation));
    return nullptr;
  }
  Ref<IApplicationData> current;
  HRESULT result = statics->get_Current(current.put());
  if (FAILED(result)) {
    ZB_APPDATA_ERROR("IApplicationDataStatics::Current (%#08x)\n", hex(result));
    return nullptr;
  }
  Ref<IStorageFolder> storageFolder;
  result = folder == AppDataFolder::local ? current->get_LocalFolder(storageFolder.put())
                                          : current->get_TemporaryFolder(storageFolder.put());
  if (FAILED(result)) {
    ZB_APPDATA_ERROR("IApplicationData::XXFolder, type: %d, err: (%#08x)\n",
                     static_cast<int>(folder), hex(result));
    return nullptr;
  }
  Ref<IStorageItem> item;
  result = storageFolder->QueryInterface(kIStorageItem, item.putVoid());
  if (FAILED(result)) {
    ZB_APPDATA_ERROR("QueryInterface (%#08x)\n", hex(result));
    return nullptr;
  }
  ScopedString path;
  result = item->get_Path(path.put());
  if (FAILED(result)) {
    ZB_APPDATA_ERROR("IStorageItem::Path (%#08x)\n", hex(result));
    return nullptr;
  }
  return utf8FromPath(path.get());
}

} // namespace zb::winrt
