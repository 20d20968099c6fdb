// Symbols: names, files and lines of the fixture libraries through each
// resolver alone and through the chain, compared with objdump's decoding of
// the same line tables (written beside the fixtures at build time); a
// backtrace through three fixture frames named in order; concurrent lookups
// agreeing; the description's form; and ZBAbortWithBacktrace printing named
// frames.
#include "ZBAlloc.h"
#include "ZBBacktrace.h"
#include "ZBSymbolResolvers.h"
#include "ZBTestSupport.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <cstring>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

using zb::symbols::kResolveAll;
using zb::symbols::kResolveDbgHelp;
using zb::symbols::kResolveDebugInfo;
using zb::symbols::kResolveExports;

// The directory of this program, where the fixtures and their tables are.
std::string programDirectory() {
  char path[MAX_PATH];
  const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  std::string directory(path, length);
  return directory.substr(0, directory.find_last_of("\\/") + 1);
}

HMODULE loadFixture(const char *name) {
  return LoadLibraryA((programDirectory() + name + ".dll").c_str());
}

struct LineRow {
  std::string file;
  uint32_t line;
};

// objdump's rows by relative address; of rows at one address the last holds,
// and an end of sequence ("-") at an address leaves nothing there.
std::map<uint32_t, LineRow> decodedLines(const char *fixture) {
  std::istringstream table(zbtest::readFile(programDirectory() + fixture + ".lines.txt"));
  std::map<uint32_t, LineRow> rows;
  std::string text;
  std::getline(table, text);
  const uint64_t imageBase = std::stoull(text.substr(text.find_last_of(" \t") + 1), nullptr, 16);
  while (std::getline(table, text)) {
    std::istringstream row(text);
    std::string file, line, address;
    if (!(row >> file >> line >> address) || address.rfind("0x", 0) != 0)
      continue;
    const auto rva = static_cast<uint32_t>(std::stoull(address, nullptr, 16) - imageBase);
    if (line == "-")
      rows.erase(rva);
    else if (line.find_first_not_of("0123456789") == std::string::npos)
      rows[rva] = LineRow{file, static_cast<uint32_t>(std::stoul(line))};
  }
  return rows;
}

std::string baseName(const char *path) {
  const std::string text = path != nullptr ? path : "";
  return text.substr(text.find_last_of("\\/") + 1);
}

// Restores the whole chain when a test ends, however it ends.
class ResolverChoice {
public:
  explicit ResolverChoice(uint32_t bits) { zb::symbols::setResolvers(bits); }
  ~ResolverChoice() { zb::symbols::setResolvers(kResolveAll); }
};

struct ResolverCase {
  const char *name;
  uint32_t bits;
  const char *fixture;
  bool names;           // whether this resolver names the exported functions
  bool lines;           // whether it gives objdump's file and line for the rows
  const char *onlyFile; // the rows compared, when not all
};

TEST(ZBSymbolTests, EachResolverAndTheChainAgreeWithObjdump) {
  const ResolverCase cases[] = {
      // Wine's dbghelp reads DWARF up to version 4: the fixture's own unit,
      // not the C runtime's objects, which carry DWARF 5 in every fixture.
      {"DbgHelp, DWARF 4", kResolveDbgHelp, "zb_fixture_dwarf4", true, true, "ZBFixtureLibrary.c"},
      {"own reader, DWARF 4", kResolveDebugInfo, "zb_fixture_dwarf4", true, true, nullptr},
      {"own reader, DWARF 5", kResolveDebugInfo, "zb_fixture_dwarf5", true, true, nullptr},
      {"own reader, stripped", kResolveDebugInfo, "zb_fixture_stripped", false, false, nullptr},
      {"exports, DWARF 5", kResolveExports, "zb_fixture_dwarf5", true, false, nullptr},
      {"exports, stripped", kResolveExports, "zb_fixture_stripped", true, false, nullptr},
      {"chain, DWARF 4", kResolveAll, "zb_fixture_dwarf4", true, true, nullptr},
      {"chain, DWARF 5", kResolveAll, "zb_fixture_dwarf5", true, true, nullptr},
      {"chain, stripped", kResolveAll, "zb_fixture_stripped", true, false, nullptr},
  };
  for (const ResolverCase &resolverCase : cases) {
    SCOPED_TRACE(resolverCase.name);
    ResolverChoice choice(resolverCase.bits);
    HMODULE fixture = loadFixture(resolverCase.fixture);
    ASSERT_NE(nullptr, fixture);
    const auto base = reinterpret_cast<const char *>(fixture);
    for (const char *function : {"fixture_level1", "fixture_level2", "fixture_level3"}) {
      const auto *start = reinterpret_cast<const char *>(GetProcAddress(fixture, function));
      ASSERT_NE(nullptr, start);
      ZBSymbolInfo info;
      ASSERT_EQ(ZBErrorNone, ZBSymbolLookup(start + 4, &info)) << function;
      EXPECT_EQ(static_cast<const void *>(base), info.moduleBase);
      EXPECT_EQ(std::string(resolverCase.fixture) + ".dll", baseName(info.modulePath));
      if (resolverCase.names) {
        EXPECT_STREQ(function, info.name);
        EXPECT_EQ(4u, info.offset);
      }
    }
    const std::map<uint32_t, LineRow> rows = decodedLines(resolverCase.fixture);
    EXPECT_EQ(std::string(resolverCase.fixture) != "zb_fixture_stripped", !rows.empty());
    size_t mismatches = 0;
    size_t compared = 0;
    for (const auto &[rva, row] : rows) {
      if (resolverCase.onlyFile != nullptr && row.file != resolverCase.onlyFile)
        continue;
      ++compared;
      ZBSymbolInfo info;
      ASSERT_EQ(ZBErrorNone, ZBSymbolLookup(base + rva, &info));
      const bool agrees = resolverCase.lines
                              ? baseName(info.file) == row.file && info.line == row.line
                              : info.file == nullptr && info.line == 0;
      if (!agrees) {
        if (++mismatches <= 5)
          ADD_FAILURE() << std::hex << "+0x" << rva << std::dec << ": objdump " << row.file << ":"
                        << row.line << ", lookup " << baseName(info.file) << ":" << info.line;
      }
    }
    EXPECT_EQ(0u, mismatches) << "of " << compared << " rows";
    FreeLibrary(fixture);
  }
  ZBSymbolInfo info;
  EXPECT_EQ(ZBErrorInvalidArgument,
            ZBSymbolLookup(reinterpret_cast<void *>(&programDirectory), nullptr));
  EXPECT_EQ(ZBErrorNotFound, ZBSymbolLookup(reinterpret_cast<void *>(0x10), &info));
  EXPECT_EQ(nullptr, info.modulePath);
}

// Called back from the fixture's innermost function.
__attribute__((noinline)) int captureInCallback(void *context) {
  auto *frames = static_cast<std::vector<void *> *>(context);
  frames->resize(16);
  frames->resize(ZBBacktraceCapture(frames->data(), 16, 0));
  __asm__ volatile("" ::: "memory");
  return 1;
}

TEST(ZBSymbolTests, ABacktraceThroughTheFixtureNamesItsFunctionsInOrder) {
  using FixtureFunction = int (*)(int (*)(void *), void *);
  for (const char *name : {"zb_fixture_dwarf4", "zb_fixture_dwarf5", "zb_fixture_stripped"}) {
    SCOPED_TRACE(name);
    HMODULE fixture = loadFixture(name);
    ASSERT_NE(nullptr, fixture);
    const auto level1 = reinterpret_cast<FixtureFunction>(
        reinterpret_cast<void *>(GetProcAddress(fixture, "fixture_level1")));
    std::vector<void *> frames;
    EXPECT_EQ(124, level1(captureInCallback, &frames));
    ASSERT_GE(frames.size(), 5u);
    const char *const expected[] = {"captureInCallback", "fixture_level3", "fixture_level2",
                                    "fixture_level1", "ZBSymbolTests_ABacktrace"};
    for (size_t index = 0; index < std::size(expected); ++index) {
      ZBSymbolInfo info;
      ASSERT_EQ(ZBErrorNone, ZBSymbolLookup(static_cast<const char *>(frames[index]) - 1, &info));
      ASSERT_NE(nullptr, info.name) << index;
      EXPECT_NE(nullptr, std::strstr(info.name, expected[index])) << info.name;
    }
    FreeLibrary(fixture);
  }
}

TEST(ZBSymbolTests, ConcurrentLookupsAgree) {
  HMODULE fixture = loadFixture("zb_fixture_dwarf5");
  ASSERT_NE(nullptr, fixture);
  std::vector<const void *> addresses;
  for (const auto &[rva, row] : decodedLines("zb_fixture_dwarf5"))
    addresses.push_back(reinterpret_cast<const char *>(fixture) + rva);
  addresses.push_back(reinterpret_cast<const void *>(&ZBSymbolLookup));
  addresses.push_back(reinterpret_cast<const void *>(&captureInCallback));
  ASSERT_GT(addresses.size(), 20u);
  // Each thread starts with an empty cache and walks the addresses from its
  // own starting point, so that first lookups race with each other.
  zb::symbols::setResolvers(kResolveAll);
  constexpr int kThreads = 8;
  constexpr int kLookups = 1000;
  std::vector<std::vector<ZBSymbolInfo>> seen(kThreads, std::vector<ZBSymbolInfo>(kLookups));
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread)
    threads.emplace_back([&, thread] {
      for (int lookup = 0; lookup < kLookups; ++lookup)
        ZBSymbolLookup(addresses[(lookup + thread * 7) % addresses.size()], &seen[thread][lookup]);
    });
  for (std::thread &thread : threads)
    thread.join();
  for (int thread = 0; thread < kThreads; ++thread) {
    for (int lookup = 0; lookup < kLookups; ++lookup) {
      ZBSymbolInfo reference;
      ASSERT_EQ(ZBErrorNone,
                ZBSymbolLookup(addresses[(lookup + thread * 7) % addresses.size()], &reference));
      const ZBSymbolInfo &info = seen[thread][lookup];
      // The cache hands out one copy of each string.
      ASSERT_EQ(reference.name, info.name);
      ASSERT_EQ(reference.file, info.file);
      ASSERT_EQ(reference.line, info.line);
      ASSERT_EQ(reference.offset, info.offset);
      ASSERT_EQ(reference.modulePath, info.modulePath);
    }
  }
  FreeLibrary(fixture);
}

TEST(ZBSymbolTests, DescriptionNamesFunctionFileLineAndModule) {
  HMODULE fixture = loadFixture("zb_fixture_dwarf5");
  ASSERT_NE(nullptr, fixture);
  const auto *level2 = reinterpret_cast<const char *>(GetProcAddress(fixture, "fixture_level2"));
  const std::map<uint32_t, LineRow> rows = decodedLines("zb_fixture_dwarf5");
  const auto rva = static_cast<uint32_t>(level2 - reinterpret_cast<const char *>(fixture));
  ASSERT_EQ(1u, rows.count(rva));
  char expected[256];
  std::snprintf(expected, sizeof expected,
                "fixture_level2+0x0 (ZBFixtureLibrary.c:%u) "
                "[zb_fixture_dwarf5.dll+0x%x]",
                rows.at(rva).line, rva);
  char *description = ZBSymbolCopyDescription(level2);
  EXPECT_STREQ(expected, description);
  _ZBFree(description);
  description = ZBSymbolCopyDescription(reinterpret_cast<void *>(0x10));
  EXPECT_STREQ("0x10", description);
  _ZBFree(description);
  FreeLibrary(fixture);
}

__attribute__((noinline)) void abortingChildFunction() { ZBAbortWithBacktrace(); }

__attribute__((noinline)) void printingChildFunction() {
  ZBBacktracePrint(0);
  __asm__ volatile("" ::: "memory");
}

// The printed lines reach the log's sink (here its file) as well as stderr.
TEST(ZBSymbolTests, AbortWithBacktracePrintsNamedFrames) {
  const std::string log = zbtest::logOfDyingProcess([] { abortingChildFunction(); });
  const size_t aborting = log.find("#00 ");
  ASSERT_NE(std::string::npos, aborting) << log;
  EXPECT_NE(std::string::npos, log.find("ZBAbortWithBacktrace+0x", aborting)) << log;
  EXPECT_NE(std::string::npos, log.find("abortingChildFunction()+0x")) << log;
  EXPECT_NE(std::string::npos, log.find("(ZBSymbolTests.cpp:")) << log;
  EXPECT_NE(std::string::npos, log.find("[ZBSymbolTests.exe+0x")) << log;
}

// With skip 0 the first frame is the caller of ZBBacktracePrint.
TEST(ZBSymbolTests, BacktracePrintStartsAtItsCaller) {
  const std::string log = zbtest::logOfDyingProcess([] {
    printingChildFunction();
    ZBAbort();
  });
  const size_t first = log.find("#00 ");
  ASSERT_NE(std::string::npos, first) << log;
  const std::string firstLine = log.substr(first, log.find('\n', first) - first);
  EXPECT_NE(std::string::npos, firstLine.find("printingChildFunction()+0x")) << log;
}

} // namespace
