// Dynamic libraries and images, on the fixture libraries built beside this
// program: opening by drive path, by relative path and by name, the codes
// and texts of failures (missing file, missing dependency, not an image),
// symbols, the program's own look-up order, the image behind an address,
// load and unload notifications, and sections against `objdump -h`.
#include "ZBAlloc.h"
#include "ZBLibrary.h"
#include "ZBTestSupport.h"

#include <windows.h>

#include <fstream>
#include <mutex>
#include <sstream>

// The program's own export of a name the fixtures export too: the
// program's look-up must find this one first.
extern "C" __declspec(dllexport) const char fixture_build[] = "executable";

namespace {

using FixtureCallback = int (*)(void *);
using FixtureFunction = int (*)(FixtureCallback, void *);

const char *const kFixtures[] = {"zb_fixture_dwarf4", "zb_fixture_dwarf5", "zb_fixture_stripped"};

std::string takeText(char *text) {
  std::string copy = text != nullptr ? text : "";
  _ZBFree(text);
  return copy;
}

std::string lastError() { return takeText(ZBLibraryCopyLastError()); }

// The directory of this program, where the fixtures are, with "/".
std::string programDirectory() {
  char path[MAX_PATH];
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  std::string directory(path);
  directory.resize(directory.find_last_of("\\/"));
  for (char &c : directory)
    if (c == '\\')
      c = '/';
  return directory;
}

std::string fixturePath(const std::string &name) {
  return programDirectory() + "/" + name + ".dll";
}

bool endsWith(const std::string &text, const std::string &end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

// A copy of a fixture under a new name, so that a test owns its only load.
std::string copyOfFixture(const char *fixture, const std::string &name) {
  const std::string copy = zbtest::temporaryPath(name);
  EXPECT_TRUE(CopyFileA(fixturePath(fixture).c_str(), copy.c_str(), FALSE)) << copy;
  return copy;
}

class ScopedLibrary {
public:
  explicit ScopedLibrary(const std::string &path, uint32_t flags = 0)
      : result_(ZBLibraryOpen(path.c_str(), flags, &library_)) {}
  ~ScopedLibrary() {
    if (library_ != nullptr)
      ZBLibraryClose(library_);
  }
  ZBError result() const { return result_; }
  ZBLibrary *get() const { return library_; }
  template <typename T>
  T symbol(const char *name) const {
    void *address = nullptr;
    EXPECT_EQ(ZBLibraryGetSymbol(library_, name, &address), ZBErrorNone) << name;
    return reinterpret_cast<T>(address);
  }

private:
  ZBLibrary *library_ = nullptr;
  ZBError result_;
};

std::string pathOf(const void *address, void **base = nullptr) {
  char *path = nullptr;
  EXPECT_EQ(ZBLibraryCopyPathForAddress(address, &path, base), ZBErrorNone);
  return takeText(path);
}

TEST(ZBLibrary, OpensByDrivePathAndByRelativePath) {
  const std::string drive = copyOfFixture("zb_fixture_dwarf5", "drive.dll");
  ASSERT_EQ(drive.rfind("C:", 0), 0u) << "the temporary folder is on drive C: " << drive;
  std::string forward = drive;
  for (char &c : forward)
    if (c == '\\')
      c = '/';
  {
    ScopedLibrary library(forward);
    ASSERT_EQ(library.result(), ZBErrorNone) << lastError();
    EXPECT_STREQ(library.symbol<const char *>("fixture_build"), "zb_fixture_dwarf5");
    EXPECT_TRUE(endsWith(pathOf(library.symbol<void *>("fixture_level1")), "drive.dll"));
    ScopedLibrary again("/" + forward, ZBLibraryOpenNoLoad);
    EXPECT_EQ(again.result(), ZBErrorNone) << "the POSIX spelling of a drive path";
  }
  DeleteFileA(drive.c_str());

  const std::string relative = copyOfFixture("zb_fixture_dwarf4", "relative.dll");
  char saved[MAX_PATH];
  GetCurrentDirectoryA(MAX_PATH, saved);
  const std::string folder = relative.substr(0, relative.find_last_of("\\/"));
  ASSERT_TRUE(SetCurrentDirectoryA(folder.c_str()));
  {
    ScopedLibrary library("./" + relative.substr(folder.size() + 1));
    EXPECT_EQ(library.result(), ZBErrorNone) << lastError();
    if (library.get() != nullptr) {
      EXPECT_STREQ(library.symbol<const char *>("fixture_build"), "zb_fixture_dwarf4");
    }
  }
  SetCurrentDirectoryA(saved);
  DeleteFileA(relative.c_str());
}

TEST(ZBLibrary, FailuresGiveTheirCodesAndNameThePath) {
  const std::string notAnImage = zbtest::temporaryPath("text.dll");
  std::ofstream(notAnImage) << "This is text, not an image.\n";
  const struct {
    std::string path;
    uint32_t flags;
    ZBError expected;
    std::string named; // in the text beside the path
  } failures[] = {
      {fixturePath("zb_fixture_none"), 0, ZBErrorFileNotFound, ""},
      {programDirectory() + "/no/such/folder/x.dll", 0, ZBErrorFileNotFound, ""},
      {notAnImage, 0, ZBErrorUnsupported, ""},
      {fixturePath("zb_fixture_dependent"), 0, ZBErrorFileNotFound, "zb_fixture_absent.dll"},
      {"zb_fixture_never_loaded.dll", ZBLibraryOpenNoLoad, ZBErrorNotFound, ""},
  };
  for (const auto &failure : failures) {
    ZBLibrary *library = reinterpret_cast<ZBLibrary *>(&library);
    EXPECT_EQ(ZBLibraryOpen(failure.path.c_str(), failure.flags, &library), failure.expected)
        << failure.path;
    EXPECT_EQ(library, nullptr);
    const std::string text = lastError();
    EXPECT_EQ(text.rfind(failure.path + ": ", 0), 0u) << text;
    EXPECT_GT(text.size(), failure.path.size() + 4) << "the system's message follows: " << text;
    EXPECT_NE(text.find(failure.named), std::string::npos) << text;
    EXPECT_EQ(ZBLibraryCopyLastError(), nullptr) << "each failure is reported once";
  }
  DeleteFileA(notAnImage.c_str());

  // The text is the failing thread's own.
  ZBLibrary *library = nullptr;
  EXPECT_EQ(ZBLibraryOpen("zb_fixture_none.dll", 0, &library), ZBErrorFileNotFound);
  std::thread([] { EXPECT_EQ(ZBLibraryCopyLastError(), nullptr); }).join();
  EXPECT_NE(lastError(), "");

  EXPECT_EQ(ZBLibraryOpen("x.dll", 0, nullptr), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBLibraryOpen("", 0, &library), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBLibraryOpen("x.dll", 2, &library), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBLibraryClose(nullptr), ZBErrorInvalidArgument);
  ASSERT_EQ(ZBLibraryOpen(nullptr, 0, &library), ZBErrorNone);
  EXPECT_EQ(ZBLibraryClose(library), ZBErrorNone);
  EXPECT_EQ(ZBLibraryClose(library), ZBErrorInvalidHandle) << "closed twice";
}

int countFrames(void *context) { return ++*static_cast<int *>(context); }

TEST(ZBLibrary, SymbolsAndTheImageBehindAnAddress) {
  for (const char *fixture : kFixtures) {
    ScopedLibrary library(fixturePath(fixture));
    ASSERT_EQ(library.result(), ZBErrorNone) << lastError();
    EXPECT_STREQ(library.symbol<const char *>("fixture_build"), fixture);
    auto level1 = library.symbol<FixtureFunction>("fixture_level1");
    int calls = 0;
    ASSERT_NE(level1, nullptr);
    EXPECT_EQ(level1(countFrames, &calls), 124) << fixture;
    EXPECT_EQ(calls, 1);

    void *address = &address;
    EXPECT_EQ(ZBLibraryGetSymbol(library.get(), "fixture_level4", &address), ZBErrorNotFound);
    EXPECT_EQ(address, nullptr);
    EXPECT_NE(lastError().find("fixture_level4"), std::string::npos);
    EXPECT_EQ(ZBLibraryGetSymbol(library.get(), nullptr, &address), ZBErrorInvalidArgument);

    void *base = nullptr;
    const std::string path = pathOf(reinterpret_cast<void *>(level1), &base);
    EXPECT_TRUE(endsWith(path, std::string(fixture) + ".dll")) << path;
    EXPECT_EQ(base, GetModuleHandleA((std::string(fixture) + ".dll").c_str()));
    ScopedLibrary loaded(std::string(fixture) + ".dll", ZBLibraryOpenNoLoad);
    EXPECT_EQ(loaded.result(), ZBErrorNone) << "loaded now";
  }
  EXPECT_TRUE(endsWith(pathOf(fixture_build), ".exe"));
  EXPECT_TRUE(endsWith(pathOf(reinterpret_cast<void *>(&ZBLibraryOpen)), "zenbor.dll"));
  char *path = nullptr;
  int local = 0;
  EXPECT_EQ(ZBLibraryCopyPathForAddress(&local, &path, nullptr), ZBErrorNotFound);
  EXPECT_EQ(ZBLibraryCopyPathForAddress(nullptr, &path, nullptr), ZBErrorInvalidArgument);
}

// The program's look-up finds the executable's export before the
// libraries', and among libraries the one loaded last.
TEST(ZBLibrary, ProgramSearchesExecutableThenNewestFirst) {
  ScopedLibrary older(fixturePath("zb_fixture_dwarf4"));
  ScopedLibrary newer(fixturePath("zb_fixture_dwarf5"));
  ASSERT_EQ(newer.result(), ZBErrorNone);
  ZBLibrary *program = nullptr;
  ASSERT_EQ(ZBLibraryOpen(nullptr, 0, &program), ZBErrorNone);
  void *address = nullptr;
  ASSERT_EQ(ZBLibraryGetSymbol(program, "fixture_build", &address), ZBErrorNone);
  EXPECT_EQ(address, static_cast<const void *>(fixture_build));
  ASSERT_EQ(ZBLibraryGetSymbol(program, "fixture_level2", &address), ZBErrorNone);
  EXPECT_EQ(address, newer.symbol<void *>("fixture_level2"));
  ASSERT_EQ(ZBLibraryGetSymbol(program, "ZBLibraryOpen", &address), ZBErrorNone);
  EXPECT_EQ(address, reinterpret_cast<void *>(&ZBLibraryOpen));
  EXPECT_EQ(ZBLibraryGetSymbol(program, "fixture_nowhere", &address), ZBErrorNotFound);
  EXPECT_EQ(ZBLibraryClose(program), ZBErrorNone);
}

struct Notification {
  bool loaded;
  std::string path;
  void *base;
  size_t size;
};
std::mutex gNotificationsLock;
std::vector<Notification> gNotifications;

TEST(ZBImage, NotificationsOfALoadAndAnUnload) {
  const ZBError added = ZBImageAddNotification(
      [](bool loaded, const char *path, void *base, size_t size, void *context) {
        std::lock_guard<std::mutex> hold(gNotificationsLock);
        gNotifications.push_back({loaded, path, base, size});
        ++*static_cast<int *>(context);
      },
      new int(0));
  ASSERT_EQ(added, ZBErrorNone);
  EXPECT_EQ(ZBImageAddNotification(nullptr, nullptr), ZBErrorInvalidArgument);
  const std::string copy = copyOfFixture("zb_fixture_stripped", "notified.dll");
  void *base = nullptr;
  {
    ScopedLibrary library(copy);
    ASSERT_EQ(library.result(), ZBErrorNone);
    pathOf(library.symbol<void *>("fixture_level1"), &base);
  }
  std::lock_guard<std::mutex> hold(gNotificationsLock);
  std::vector<Notification> mine;
  for (const Notification &notification : gNotifications)
    if (endsWith(notification.path, "notified.dll"))
      mine.push_back(notification);
  ASSERT_EQ(mine.size(), 2u);
  EXPECT_TRUE(mine[0].loaded);
  EXPECT_FALSE(mine[1].loaded);
  for (const Notification &notification : mine) {
    EXPECT_EQ(notification.base, base);
    EXPECT_GT(notification.size, 0x1000u);
  }
  DeleteFileA(copy.c_str());
}

// `objdump -h` of a fixture, as written at build time: name and size.
std::vector<std::pair<std::string, size_t>> objdumpSections(const char *fixture) {
  std::ifstream table(programDirectory() + "/" + fixture + ".sections.txt");
  std::vector<std::pair<std::string, size_t>> sections;
  std::string line;
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    unsigned index = 0;
    std::string name, size;
    if (fields >> index >> name >> size)
      sections.emplace_back(name, std::stoul(size, nullptr, 16));
  }
  return sections;
}

TEST(ZBImage, SectionsAreObjdumps) {
  for (const char *fixture : kFixtures) {
    ScopedLibrary library(fixturePath(fixture));
    ASSERT_EQ(library.result(), ZBErrorNone);
    const void *base = GetModuleHandleA((std::string(fixture) + ".dll").c_str());
    const auto expected = objdumpSections(fixture);
    ASSERT_GT(expected.size(), 5u) << "the table of " << fixture << " was written at build time";

    std::vector<std::pair<std::string, size_t>> seen;
    ASSERT_EQ(ZBImageEnumerateSections(
                  base,
                  [](const char *name, void *, size_t size, void *context) {
                    static_cast<decltype(seen) *>(context)->emplace_back(name, size);
                    return true;
                  },
                  &seen),
              ZBErrorNone);
    EXPECT_EQ(seen, expected) << fixture;

    const bool stripped = std::string(fixture) == "zb_fixture_stripped";
    for (const char *name : {".text", ".debug_line", ".debug_info"}) {
      void *address = nullptr;
      size_t size = 0;
      const ZBError result = ZBImageGetSection(base, name, &address, &size);
      if (stripped && std::string(name) != ".text") {
        EXPECT_EQ(result, ZBErrorNotFound) << fixture << " " << name;
        continue;
      }
      ASSERT_EQ(result, ZBErrorNone) << fixture << " " << name;
      for (const auto &section : expected)
        if (section.first == name) {
          EXPECT_EQ(size, section.second) << fixture << " " << name;
        }
      MEMORY_BASIC_INFORMATION region{};
      VirtualQuery(address, &region, sizeof(region));
      EXPECT_EQ(region.AllocationBase, base) << "inside the image";
    }
    void *text = nullptr;
    size_t size = 0;
    EXPECT_EQ(ZBImageGetSection(base, ".text", &text, &size), ZBErrorNone);
    EXPECT_TRUE(text <= library.symbol<void *>("fixture_level1") &&
                library.symbol<char *>("fixture_level1") < static_cast<char *>(text) + size);

    int stops = 0;
    ZBImageEnumerateSections(
        base,
        [](const char *, void *, size_t, void *count) { return ++*static_cast<int *>(count) < 2; },
        &stops);
    EXPECT_EQ(stops, 2) << "false stops the walk";
    EXPECT_EQ(ZBImageGetSection(static_cast<const char *>(base) + 1, ".text", &text, &size),
              ZBErrorInvalidArgument);
  }
  void *address = nullptr;
  size_t size = 0;
  int local = 0;
  EXPECT_EQ(ZBImageGetSection(&local, ".text", &address, &size), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBImageGetSection(nullptr, ".text", &address, &size), ZBErrorInvalidArgument);
  EXPECT_EQ(ZBImageEnumerateSections(GetModuleHandleA(nullptr), nullptr, nullptr),
            ZBErrorInvalidArgument);
}

TEST(ZBImage, EnumerateStartsWithTheExecutable) {
  ScopedLibrary library(fixturePath("zb_fixture_dwarf5"));
  std::vector<Notification> images;
  ASSERT_EQ(
      ZBImageEnumerate(
          [](const char *path, void *base, size_t size, void *context) {
            static_cast<std::vector<Notification> *>(context)->push_back({true, path, base, size});
            return true;
          },
          &images),
      ZBErrorNone);
  ASSERT_GT(images.size(), 3u);
  EXPECT_EQ(images[0].base, GetModuleHandleA(nullptr));
  EXPECT_TRUE(endsWith(images[0].path, ".exe")) << images[0].path;
  bool sawFixture = false, sawLibrary = false;
  for (const Notification &image : images) {
    sawFixture |= endsWith(image.path, "zb_fixture_dwarf5.dll");
    sawLibrary |= endsWith(image.path, "zenbor.dll");
    const auto *dos = static_cast<const IMAGE_DOS_HEADER *>(image.base);
    const auto *nt = reinterpret_cast<const IMAGE_NT_HEADERS *>(
        static_cast<const char *>(image.base) + dos->e_lfanew);
    EXPECT_EQ(image.size, nt->OptionalHeader.SizeOfImage) << image.path;
  }
  EXPECT_TRUE(sawFixture && sawLibrary);
  int count = 0;
  ZBImageEnumerate(
      [](const char *, void *, size_t, void *c) { return ++*static_cast<int *>(c) < 2; }, &count);
  EXPECT_EQ(count, 2);
  EXPECT_EQ(ZBImageEnumerate(nullptr, nullptr), ZBErrorInvalidArgument);
}

} // namespace
