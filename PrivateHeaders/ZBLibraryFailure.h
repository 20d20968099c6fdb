// The failures of the dynamic-library functions: their codes, and the text
// each leaves for ZBLibraryCopyLastError on the failing thread. Included by
// Sources/Win32 only.
#pragma once

#include "ZBError.h"

#include <winsock2.h>
#include <windows.h>

namespace zb::library {

// Creates the two thread keys of the last-failure text; at start-up.
void startFailureKeys() noexcept;

// The code of a failed load's system error.
ZBError errorFromLoadError(DWORD winError) noexcept;

// Leaves "<subject>: <the system's English message>" for the calling
// thread, with " (missing dependency: <name>)" when one is named.
void setLastFailure(const char *subject, DWORD winError,
                    const char *missingDependency = nullptr) noexcept;

// A failed load of the image file `path` (wide, as loaded): its code, with
// the text left for the thread. A load that failed for want of a module
// although the file is there names the imported library that cannot be
// found, when the file's import table shows one.
ZBError loadFailure(const char *path, const wchar_t *widePath, DWORD winError) noexcept;

} // namespace zb::library
