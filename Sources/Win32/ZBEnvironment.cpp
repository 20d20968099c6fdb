// The application's directories: home, application caches, application
// temporary, and the library's private caches and temporary directories,
// with the sandbox mode that moves the user and temporary directories into
// a per-application subdirectory, and the bundle identifier that names it.
// Each directory is computed at first use, created, cached under the
// environment's lock and handed out as a copy ending with "/". A cached
// value is only ever a finished one: a failure leaves the cache empty so
// the next call tries again.
#include "ZBEnvironment.h"

#include "ZBAlloc.h"
#include "ZBEnvironmentPrivate.h"
#include "ZBFile.h"
#include "ZBLog.h"
#include "ZBOption.h"
#include "ZBOwned.h"
#include "ZBPath.h"
#include "ZBProcess.h"
#include "ZBScopedLock.h"
#include "ZBString.h"
#include "ZBWinRT.h"

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <memory>

namespace {

using Text = zb::Owned<char>;

// Strings the runtime query returns from the C heap.
struct HeapFree {
  void operator()(char *text) const { std::free(text); }
};
using HeapText = std::unique_ptr<char, HeapFree>;

constexpr uint16_t kPrivateMode = 0700;
constexpr uint16_t kSharedMode = 0777;

// The cached directories; each owned, null until computed or set.
struct Directories {
  char *home;
  char *unsandboxedHome;
  char *appCaches;
  char *appTemporary;
  char *privateTemporary;
  char *bundleID;
  bool initialised;
};
Directories sDirectories;
// The QUOVEX_SANDBOX_FILESYSTEM option's storage: one byte, 0 or 1.
bool sSandbox;

void replace(char **slot, char *value) {
  _ZBFree(*slot);
  *slot = value;
}

Text concatenate(const char *first, const char *second, const char *third = "") {
  const size_t a = std::strlen(first), b = std::strlen(second), c = std::strlen(third);
  Text text(static_cast<char *>(_ZBAlloc(a + b + c + 1)));
  if (text) {
    std::memcpy(text.get(), first, a);
    std::memcpy(text.get() + a, second, b);
    std::memcpy(text.get() + a + b, third, c + 1);
  }
  return text;
}

bool endsWithSlash(const char *path) {
  const size_t length = std::strlen(path);
  return length > 0 && path[length - 1] == '/';
}

// The path with a "/" at its end; null when memory runs out.
Text withSlash(const char *path) { return concatenate(path, endsWithSlash(path) ? "" : "/"); }

// A Windows path in the library's style, normalised ("C:\a\..\b" gives
// "C:/b"), ending with "/".
Text libraryPathFromDOS(const char *path) {
  Text converted(ZBPathCopyConverting(ZBPathStyleDOS, path, ZBPathStylePOSIX, 0, true));
  if (!converted || converted.get()[0] == '\0')
    return nullptr;
  return withSlash(converted.get());
}

// `directory` (ending with "/") joined with a relative path through the
// path model, ending with "/".
Text subdirectory(const char *directory, const char *relative) {
  Text joined(ZBPathCopyConcatenated(directory, relative));
  return joined ? withSlash(joined.get()) : nullptr;
}

// The name of the application's sandbox: the bundle identifier, else the
// process name.
Text sandboxName() {
  if (sDirectories.bundleID != nullptr && sDirectories.bundleID[0] != '\0')
    return Text(_ZBCStringDuplicate(sDirectories.bundleID));
  return Text(ZBProcessCopyCurrentName());
}

// "Documents" and "Library/Preferences" inside a home; failures do not
// matter to the home itself.
void createHomeContents(const char *home) {
  for (const char *inside : {"Documents", "Library/Preferences"})
    if (Text path = subdirectory(home, inside))
      ZBDirectoryCreateNested(path.get(), kPrivateMode, kPrivateMode);
}

// The home from the application-data folder, or LOCALAPPDATA +
// "\..\LocalState"; null when neither is there.
Text homeFromApplicationData() {
  HeapText folder(zb::winrt::copyAppDataFolderPath(zb::winrt::AppDataFolder::local));
  if (folder)
    return libraryPathFromDOS(folder.get());
  const char *localAppData = ZBEnvironmentGetEnv("LOCALAPPDATA");
  if (localAppData == nullptr)
    return nullptr;
  Text localState = concatenate(localAppData, "\\..\\LocalState");
  return localState ? libraryPathFromDOS(localState.get()) : nullptr;
}

// Runs once, under the lock, before any directory is computed.
void initialiseLocked() {
  if (sDirectories.initialised)
    return;
  if (Text home = homeFromApplicationData()) {
    replace(&sDirectories.unsandboxedHome, _ZBCStringDuplicate(home.get()));
    createHomeContents(home.get());
    replace(&sDirectories.home, home.release());
  }
  if (ZBEnvironmentGetIntegerWithDefault("QUOVEX_RANDOMIZE_ASSET_BUNDLE_PATH", 0) != 0) {
    Text process(ZBProcessCopyCurrentName());
    if (process)
      replace(&sDirectories.bundleID,
              concatenate("com.quovex-unit-test.", process.get()).release());
  }
  ZBOptionRegister("QUOVEX_SANDBOX_FILESYSTEM", "Sandbox mode", nullptr, ZBOptionTypeBool,
                   &sSandbox, nullptr,
                   "Put the framework into sandbox mode, which involves sandboxing of user and "
                   "temp directories, and other things. Grep for QUOVEX_SANDBOX_FILESYSTEM to "
                   "see the full scope");
  sDirectories.initialised = true;
}

// Holds the environment's lock and has the directories initialised.
class DirectoriesLock {
public:
  DirectoriesLock() : mLock(_ZBEnvironmentLock()) { initialiseLocked(); }

private:
  zb::ScopedLock<ZBMutex> mLock;
};

// The home from HOME, with the sandbox applied. HOME is the last source, so
// its absence is a state the library cannot go on from.
const char *computeHomeLocked() {
  const char *variable = ZBEnvironmentGetEnv("HOME");
  if (variable == nullptr)
    ZB_LOG_FATAL_AT("_ZBEnvironmentCopyUnsandboxedHomeDirectory", __FILE__, 47, "BUG");
  Text home = libraryPathFromDOS(variable);
  if (!home)
    return nullptr;
  Text unsandboxed(_ZBCStringDuplicate(home.get()));
  if (!unsandboxed)
    return nullptr;
  if (sSandbox) {
    Text name = sandboxName();
    Text sandboxed = name ? concatenate(home.get(), ".quovex_sandbox/", name.get()) : nullptr;
    home = sandboxed ? withSlash(sandboxed.get()) : nullptr;
    if (!home)
      return nullptr;
    ZBDirectoryCreateNested(home.get(), kSharedMode, kSharedMode);
  }
  createHomeContents(home.get());
  replace(&sDirectories.unsandboxedHome, unsandboxed.release());
  replace(&sDirectories.home, home.release());
  return sDirectories.home;
}

const char *homeLocked() {
  return sDirectories.home != nullptr ? sDirectories.home : computeHomeLocked();
}

const char *appCachesLocked() {
  if (sDirectories.appCaches != nullptr)
    return sDirectories.appCaches;
  const char *home = homeLocked();
  Text path = home ? subdirectory(home, "AppData/Local/quovex") : nullptr;
  if (!path)
    return nullptr;
  const ZBError created = ZBDirectoryCreateNested(path.get(), kSharedMode, kSharedMode);
  if (created != ZBErrorNone) {
    ZB_LOG_ERROR("Create failed: '%s': %d", path.get(), created);
    return nullptr;
  }
  replace(&sDirectories.appCaches, path.release());
  return sDirectories.appCaches;
}

// The temporary directory before the sandbox: the first temporary variable
// set, else the application-data temporary folder.
Text unsandboxedTemporary() {
  for (const char *name : {"TMP", "TMPDIR", "TEMP", "TEMPDIR"}) {
    const char *variable = ZBEnvironmentGetEnv(name);
    if (variable == nullptr)
      continue;
    // Only the first variable set counts, even when it cannot be used.
    Text converted = libraryPathFromDOS(variable);
    Text expanded(converted ? ZBPathCopyExpandedPath(converted.get()) : nullptr);
    return expanded ? withSlash(expanded.get()) : nullptr;
  }
  HeapText folder(zb::winrt::copyAppDataFolderPath(zb::winrt::AppDataFolder::temporary));
  if (folder)
    return libraryPathFromDOS(folder.get());
  // The system's own temporary path is not consulted on this platform.
  ZBLogNYICounter("ZBEnvironmentCopySystemPath", 87);
  return nullptr;
}

const char *appTemporaryLocked() {
  if (sDirectories.appTemporary != nullptr)
    return sDirectories.appTemporary;
  Text path = unsandboxedTemporary();
  if (path && sSandbox) {
    Text name = sandboxName();
    Text sandboxed = name ? concatenate(path.get(), "quovex_sandbox/", name.get()) : nullptr;
    path = sandboxed ? withSlash(sandboxed.get()) : nullptr;
  }
  if (!path)
    return nullptr;
  const ZBError created = ZBDirectoryCreateNested(path.get(), kSharedMode, kSharedMode);
  // A directory that cannot be made now may still be made by its user.
  if (created != ZBErrorNone)
    ZB_LOG_WARNING("AppTempDir creation error: %d '%s'", created, path.get());
  replace(&sDirectories.appTemporary, path.release());
  return sDirectories.appTemporary;
}

const char *privateTemporaryLocked() {
  if (sDirectories.privateTemporary != nullptr)
    return sDirectories.privateTemporary;
  const char *home = homeLocked();
  Text path = home ? subdirectory(home, "quovex_tmp") : nullptr;
  if (!path)
    return nullptr;
  // A child process shares its parent's directory and leaves it as it is.
  if (ZBEnvironmentGetEnv("QUOVEX_CHILDPROCESS") == nullptr) {
    const ZBError removed = ZBDirectoryRemoveRecursive(path.get());
    if (removed != ZBErrorNone)
      ZB_LOG_ERROR("Couldn't remove temp directory '%s', rc=%d", path.get(), removed);
  }
  if (ZBDirectoryCreateNested(path.get(), kSharedMode, kSharedMode) != ZBErrorNone)
    return nullptr;
  replace(&sDirectories.privateTemporary, path.release());
  return sDirectories.privateTemporary;
}

// A caller's directory as the cache keeps it: with a "/" at its end. An
// empty path names no directory and clears the cache like null.
char *storedForm(const char *path) {
  return path != nullptr && path[0] != '\0' ? withSlash(path).release() : nullptr;
}

} // namespace

// Called when TMP is set: only the cache changes, so the directories are
// not initialised for it.
void _ZBEnvironmentSetAppTemporaryDirectory(const char *path) noexcept {
  zb::ScopedLock<ZBMutex> lock(_ZBEnvironmentLock());
  replace(&sDirectories.appTemporary, storedForm(path));
}

extern "C" char *ZBEnvironmentCopyBundleID(void) noexcept {
  DirectoriesLock lock;
  return _ZBCStringDuplicate(sDirectories.bundleID);
}

extern "C" void ZBEnvironmentSetBundleID(const char *bundleID) noexcept {
  DirectoriesLock lock;
  replace(&sDirectories.bundleID, _ZBCStringDuplicate(bundleID));
}

extern "C" char *ZBEnvironmentCopyHomeDirectory(void) noexcept {
  DirectoriesLock lock;
  return _ZBCStringDuplicate(homeLocked());
}

extern "C" char *ZBEnvironmentCopyHomeDirectoryIgnoringSandbox(void) noexcept {
  DirectoriesLock lock;
  const char *home = homeLocked();
  return _ZBCStringDuplicate(sSandbox && sDirectories.unsandboxedHome ? sDirectories.unsandboxedHome
                                                                      : home);
}

extern "C" void ZBEnvironmentSetHomeDirectory(const char *path) noexcept {
  DirectoriesLock lock;
  replace(&sDirectories.home, storedForm(path));
  replace(&sDirectories.unsandboxedHome, _ZBCStringDuplicate(sDirectories.home));
  // The caches and the private temporary directory stay where they were
  // handed out: the private one was emptied at its first use, and emptying
  // a folder under the new home could destroy another process's files.
}

extern "C" char *ZBEnvironmentCopyAppCachesDirectory(void) noexcept {
  DirectoriesLock lock;
  return _ZBCStringDuplicate(appCachesLocked());
}

extern "C" void ZBEnvironmentSetAppCachesDirectory(const char *path) noexcept {
  DirectoriesLock lock;
  replace(&sDirectories.appCaches, storedForm(path));
}

extern "C" char *ZBEnvironmentCopyAppTemporaryDirectory(void) noexcept {
  DirectoriesLock lock;
  return _ZBCStringDuplicate(appTemporaryLocked());
}

extern "C" char *ZBEnvironmentCopyQuovexPrivateCachesDirectory(void) noexcept {
  DirectoriesLock lock;
  const char *home = homeLocked();
  Text path = home ? subdirectory(home, "quovex_cache") : nullptr;
  if (!path || ZBDirectoryCreateNested(path.get(), kSharedMode, kSharedMode) != ZBErrorNone)
    return nullptr;
  return path.release();
}

extern "C" char *ZBEnvironmentCopyQuovexPrivateTemporaryDirectory(void) noexcept {
  DirectoriesLock lock;
  return _ZBCStringDuplicate(privateTemporaryLocked());
}

extern "C" ZBError ZBDirectoryCreateTemporaryInTempDir(const char *pattern,
                                                       char **outPath) noexcept {
  if (pattern == nullptr)
    return ZBErrorInvalidArgument;
  Text directory(ZBEnvironmentCopyAppTemporaryDirectory());
  if (!directory)
    return ZBErrorNoMemory;
  Text path(ZBPathCopyConcatenated(directory.get(), pattern));
  if (!path)
    return ZBErrorNoMemory;
  const ZBError created = ZBDirectoryCreateTemporary(path.get());
  if (created == ZBErrorNone && outPath != nullptr)
    *outPath = path.release();
  return created;
}
