// What the environment's directory functions share with the variable store.
#pragma once

// Replaces the cached application temporary directory (null clears it, so
// it is computed again). Setting "TMP" clears it.
void _ZBEnvironmentSetAppTemporaryDirectory(const char *path) noexcept;
// The cached application temporary directory, or null; read under the
// environment lock by the directory functions.
const char *_ZBEnvironmentGetCachedAppTemporaryDirectory() noexcept;
