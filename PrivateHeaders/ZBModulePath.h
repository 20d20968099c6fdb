// The file names of loaded modules, in the system's wide form and as the
// library's UTF-8. Included by Sources/Win32 only.
#pragma once

#include <winsock2.h>
#include <windows.h>

#include <string>

namespace zb::module {

// The module's full path (null: the executable), or empty when the system
// cannot give it. GetModuleFileNameW truncates silently and says so only
// by filling the buffer, so the buffer grows until the path fits
// (long-path-aware processes may exceed MAX_PATH). May throw bad_alloc.
std::wstring path(HMODULE module);

// `length` units of `text` as a new UTF-8 string from the default zone, or
// null when memory runs out. WideCharToMultiByte rather than the library's
// converter: paths may hold characters beyond the Basic Multilingual Plane.
char *copyUTF8(const wchar_t *text, size_t length) noexcept;

} // namespace zb::module

#include <vector>

namespace zb::module {

// The modules loaded in the process: the executable first, then the others
// in the order they were loaded. False when the system cannot list them.
// May throw bad_alloc.
bool loaded(std::vector<HMODULE> *modules);

} // namespace zb::module
