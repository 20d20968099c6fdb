// What the environment's variable store shares with the application
// directories: its lock, and the non-exported setter of the cached
// application temporary directory that setting "TMP" calls.
#pragma once

#include "ZBLock.h"

// The environment's recursive mutex, created on first use. The application
// directories are cached under it too.
ZBMutex *_ZBEnvironmentLock() noexcept;

// Replaces the cached application temporary directory; null clears it so
// that the next use computes it again. Builds without application
// directories (the host build) have nothing to clear.
void _ZBEnvironmentSetAppTemporaryDirectory(const char *path) noexcept;
