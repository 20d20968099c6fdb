// Look-ups of the optional Windows functions declared in ZBWinAPI.h.
#include "ZBWinAPI.h"

#include <initializer_list>

namespace zb::winapi {

bool runningUnderWine() noexcept {
  HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

namespace {

// Newer functions live in kernelbase.dll; kernel32.dll forwards some of them.
FARPROC kernelFunction(const char *name) noexcept {
  for (const wchar_t *module : {L"kernelbase.dll", L"kernel32.dll"}) {
    HMODULE handle = GetModuleHandleW(module);
    FARPROC function = handle == nullptr ? nullptr : GetProcAddress(handle, name);
    if (function != nullptr)
      return function;
  }
  return nullptr;
}

// The reader before resolution. A function of this library, so that the
// pointer below is initialised at link time, before any code runs.
int32_t queryUnbiasedInterruptTimeUnresolved(uint64_t *ticks) {
  return QueryUnbiasedInterruptTime(ticks);
}

} // namespace

QueryUnbiasedInterruptTimeFunction resolveQueryUnbiasedInterruptTime() noexcept {
  QueryUnbiasedInterruptTimeFunction reader = nullptr;
  if (!runningUnderWine())
    reader = reinterpret_cast<QueryUnbiasedInterruptTimeFunction>(
        reinterpret_cast<void (*)()>(kernelFunction("QueryUnbiasedInterruptTimePrecise")));
  if (reader == nullptr)
    reader = &QueryUnbiasedInterruptTime;
  // The types differ only in name: BOOL is int32_t and ULONGLONG uint64_t.
  __atomic_store_n(&_gZBUnbiasedInterruptTime.read,
                   reinterpret_cast<int32_t (*)(uint64_t *)>(reinterpret_cast<void (*)()>(reader)),
                   __ATOMIC_RELAXED);
  return reader;
}

namespace {

template <typename Function>
Function functionFrom(FARPROC address) noexcept {
  return reinterpret_cast<Function>(reinterpret_cast<void (*)()>(address));
}

PlaceholderFunctions lookUpPlaceholderFunctions() noexcept {
  PlaceholderFunctions functions{
      functionFrom<VirtualAlloc2Function>(kernelFunction("VirtualAlloc2")),
      functionFrom<MapViewOfFile3Function>(kernelFunction("MapViewOfFile3"))};
  if (functions.virtualAlloc2 == nullptr || functions.mapViewOfFile3 == nullptr)
    functions = {};
  return functions;
}

} // namespace

// Function-local statics: C++ makes their one-time look-up thread-safe.
const PlaceholderFunctions &placeholderFunctions() noexcept {
  static const PlaceholderFunctions functions = lookUpPlaceholderFunctions();
  return functions;
}

LdrRegisterDllNotificationFunction ldrRegisterDllNotification() noexcept {
  static const LdrRegisterDllNotificationFunction function =
      functionFrom<LdrRegisterDllNotificationFunction>(
          GetProcAddress(GetModuleHandleW(L"ntdll.dll"), "LdrRegisterDllNotification"));
  return function;
}

} // namespace zb::winapi

static_assert(sizeof(BOOL) == sizeof(int32_t) && sizeof(ULONGLONG) == sizeof(uint64_t),
              "the reader's types as ZBTime.h declares them");
_ZBUnbiasedInterruptTimeReader _gZBUnbiasedInterruptTime = {
    zb::winapi::queryUnbiasedInterruptTimeUnresolved};
