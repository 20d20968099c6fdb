// The systematic failure harness: every entry of the system-call table is
// replaced by a counting trampoline (generated from the table's own list), a
// scenario is run once to count the calls it makes, then once more for every
// k with the k-th call failing with a plausible error for that entry. After
// each failing run the harness checks that the scenario reported an error
// (or met a fallback it names), that no system handle and no byte of memory
// stayed behind, and that the next clean run still succeeds.
#pragma once

#include "ZBBaseAllocator.h"
#include "ZBError.h"
#include "ZBSystemCalls.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

namespace zbtest::failure {

enum Entry : size_t {
#define ZB_FAILURE_ENTRY(name) k##name,
  ZB_SYSTEM_CALLS(ZB_FAILURE_ENTRY)
#undef ZB_FAILURE_ENTRY
      kEntryCount
};

// What a failing entry answers: its failure result and the error the
// thread's last-error value then holds.
struct Failure {
  Entry entry;
  intptr_t result;
  DWORD error;
  // A release fails after it has let go of the object (closesocket), so
  // the real call runs before the failure is answered.
  bool releases = false;
};

const char *entryName(Entry entry);
// The row of `entry`; every entry has exactly one (checked by a test).
const Failure *failureOf(Entry entry);
const std::vector<Failure> &failureTable();

struct Scenario {
  const char *name;
  // Runs the scenario and answers the first non-zero code an entry point
  // returned, or 0. It cleans up after itself whatever happened.
  std::function<ZBError()> run;
  // Entries whose failure the library absorbs by a documented fallback.
  std::set<Entry> fallbacks;
};

// Requests from this size up fail with a code; smaller ones end the process.
constexpr size_t kRecoverableAllocation = 1024;

struct Outcome {
  size_t failurePoints = 0;
  size_t allocationPoints = 0;     // recoverable allocations failed one by one
  std::vector<std::string> faults; // one line per failed check
};

// Installs the trampolines and the counting base allocator while it lives.
class Harness {
public:
  Harness();
  ~Harness();
  Harness(const Harness &) = delete;
  Harness &operator=(const Harness &) = delete;

  Outcome drive(const Scenario &scenario);

  // Makes the next allocation of fewer than kRecoverableAllocation bytes
  // fail (for the death test of the small-request policy).
  static void failNextSmallAllocation();

  // Bytes and blocks the base allocator holds right now for the library.
  static int64_t liveBytes();
};

} // namespace zbtest::failure
