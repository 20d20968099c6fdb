// Windows functions that not every system offers (or that a compatibility
// layer exports but cannot run), looked up once with GetProcAddress. A
// missing one is replaced by its documented fallback, never called blindly.
// Included by Sources/Win32 only.
#pragma once

#include "ZBTime.h"

#include <windows.h>

namespace zb::winapi {

using QueryUnbiasedInterruptTimeFunction = BOOL(WINAPI *)(PULONGLONG);

// The reader of the unbiased interrupt time is _gZBUnbiasedInterruptTime
// (ZBTime.h, exported so that callers read the clock inline):
// QueryUnbiasedInterruptTimePrecise where it can be called, else
// QueryUnbiasedInterruptTime. Until the time module's start-up step has
// resolved it, a reader that calls the latter.
// Looks the reader up and stores it; returns what it stored.
QueryUnbiasedInterruptTimeFunction resolveQueryUnbiasedInterruptTime() noexcept;

// The unbiased interrupt time: 100-ns ticks since boot, without the time
// spent in system sleep. Always one indirect call: a branch between the two
// readers measured slower than the call itself.
inline ULONGLONG unbiasedInterruptTime() noexcept {
  uint64_t ticks = 0;
  __atomic_load_n(&_gZBUnbiasedInterruptTime.read, __ATOMIC_RELAXED)(&ticks);
  return ticks;
}

// Placeholders (Windows 10 1803 and later): VirtualAlloc2 and
// MapViewOfFile3, with their extended-parameter arrays left untyped since
// the library passes none. Null where the system lacks them.
using VirtualAlloc2Function = PVOID(WINAPI *)(HANDLE process, PVOID base, SIZE_T size,
                                              ULONG allocationType, ULONG protection,
                                              void *parameters, ULONG parameterCount);
using MapViewOfFile3Function = PVOID(WINAPI *)(HANDLE mapping, HANDLE process, PVOID base,
                                               ULONG64 offset, SIZE_T size, ULONG allocationType,
                                               ULONG protection, void *parameters,
                                               ULONG parameterCount);
struct PlaceholderFunctions {
  VirtualAlloc2Function virtualAlloc2;
  MapViewOfFile3Function mapViewOfFile3;
};
// Looked up once; both null unless the system has both.
const PlaceholderFunctions &placeholderFunctions() noexcept;

// The data of ntdll's load and unload notifications, which the system
// headers lack.
struct LoaderCountedString {
  USHORT length; // in bytes
  USHORT capacity;
  const wchar_t *buffer;
};
struct LoaderNotificationData {
  ULONG flags;
  const LoaderCountedString *fullName;
  const LoaderCountedString *baseName;
  PVOID base;
  ULONG size;
};
constexpr ULONG kLoaderNotificationLoaded = 1; // the other reason is an unload

// ntdll's LdrRegisterDllNotification, looked up once; null where missing.
using LdrDllNotificationFunction = VOID(CALLBACK *)(ULONG reason,
                                                    const LoaderNotificationData *data,
                                                    PVOID context);
using LdrRegisterDllNotificationFunction = LONG(NTAPI *)(ULONG flags,
                                                         LdrDllNotificationFunction function,
                                                         PVOID context, PVOID *cookie);
LdrRegisterDllNotificationFunction ldrRegisterDllNotification() noexcept;

// True under Wine, which identifies itself by an ntdll export. Wine exports
// some functions it does not implement (calling one ends the process), so
// under Wine only the long-standing entry points are used.
bool runningUnderWine() noexcept;

} // namespace zb::winapi
