// Backtraces: the calling thread's capture and its skip count, another
// thread's capture through the registry, and the stack-copy unwinder checked
// against the system's walker, against hand-built prologue and epilogue
// states, and against truncated and garbage stacks.
#include "ZBBacktrace.h"
#include "ZBStackSnapshot.h"
#include "ZBThread.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <atomic>
#include <cstring>
#include <random>
#include <vector>

namespace {

// The start of the function whose unwind entry covers `address`, as the
// system's lookup sees it; 0 for none.
uintptr_t functionStartOf(const void *address) {
  DWORD64 base = 0;
  const auto pc = reinterpret_cast<DWORD64>(address);
  const RUNTIME_FUNCTION *entry = RtlLookupFunctionEntry(pc, &base, nullptr);
  return entry == nullptr ? 0 : static_cast<uintptr_t>(base + entry->BeginAddress);
}

template <typename Function>
uintptr_t addressOf(Function *function) {
  return reinterpret_cast<uintptr_t>(function);
}

constexpr uint32_t kFrameCapacity = 64;

struct NestedCapture {
  void *frames[kFrameCapacity];
  uint32_t count;
  uint32_t skip;
  void *unwound[kFrameCapacity];
  uint32_t unwoundCount;
};

alignas(16) zb::stack::Snapshot gSnapshot;
uint8_t gStackCopy[256 * 1024];

__attribute__((noinline)) void fixtureInner(NestedCapture &capture) {
  capture.count = ZBBacktraceCapture(capture.frames, kFrameCapacity, capture.skip);
  gSnapshot.bytes = gStackCopy;
  gSnapshot.capacity = sizeof gStackCopy;
  zb::stack::captureCurrent(gSnapshot);
  capture.unwoundCount = zb::stack::unwind(gSnapshot, capture.unwound, kFrameCapacity);
  __asm__ volatile("" ::: "memory");
}

__attribute__((noinline)) void fixtureMiddle(NestedCapture &capture) {
  fixtureInner(capture);
  __asm__ volatile("" ::: "memory");
}

__attribute__((noinline)) void fixtureOuter(NestedCapture &capture) {
  fixtureMiddle(capture);
  __asm__ volatile("" ::: "memory");
}

TEST(ZBBacktraceTests, CaptureNamesTheCallersInOrderAfterTheSkip) {
  const uintptr_t nested[] = {addressOf(fixtureInner), addressOf(fixtureMiddle),
                              addressOf(fixtureOuter)};
  for (uint32_t skip = 0; skip < 3; ++skip) {
    SCOPED_TRACE(skip);
    NestedCapture capture{};
    capture.skip = skip;
    fixtureOuter(capture);
    ASSERT_GE(capture.count, 3 - skip + 2);
    for (uint32_t level = skip; level < 3; ++level)
      EXPECT_EQ(nested[level],
                functionStartOf(static_cast<char *>(capture.frames[level - skip]) - 1));
  }
  void *few[2];
  NestedCapture capture{};
  fixtureOuter(capture);
  EXPECT_EQ(2u, ZBBacktraceCapture(few, 2, 0));
  EXPECT_EQ(0u, ZBBacktraceCapture(nullptr, 8, 0));
  EXPECT_EQ(0u, ZBBacktraceCapture(few, 0, 0));
}

// The unwinder, from a copy of this thread's stack, finds the same return
// addresses as the system's walker on the live stack: through this test
// program, GoogleTest, the C runtime's start and the system's thread start.
TEST(ZBBacktraceTests, UnwinderAgreesWithTheSystemWalker) {
  NestedCapture capture{};
  fixtureOuter(capture);
  ASSERT_GE(capture.unwoundCount, 6u);
  // frames[0] of each is a different call in fixtureInner.
  EXPECT_EQ(addressOf(fixtureInner), functionStartOf(static_cast<char *>(capture.unwound[0]) - 1));
  uint32_t agreeing = 1;
  while (agreeing < capture.count && agreeing < capture.unwoundCount &&
         capture.frames[agreeing] == capture.unwound[agreeing])
    ++agreeing;
  EXPECT_EQ(capture.count, agreeing) << "the system walker found " << capture.count
                                     << " frames, the unwinder " << capture.unwoundCount;
}

// Truncated copies end the walk early; garbage stacks and garbage
// instruction pointers inside real code never fault.
TEST(ZBBacktraceTests, UnwinderStaysInsideTheCopy) {
  NestedCapture capture{};
  fixtureOuter(capture);
  const size_t fullCopy = gSnapshot.copied;
  for (const size_t copied : {size_t{0}, size_t{7}, size_t{64}, size_t{512}}) {
    gSnapshot.copied = copied;
    void *frames[kFrameCapacity];
    EXPECT_LT(zb::stack::unwind(gSnapshot, frames, kFrameCapacity), capture.unwoundCount) << copied;
  }
  gSnapshot.copied = fullCopy;

  std::mt19937_64 random(18);
  std::vector<uint8_t> garbage(8192);
  const uintptr_t code = addressOf(fixtureOuter);
  for (int round = 0; round < 3000; ++round) {
    for (uint8_t &byte : garbage)
      byte = static_cast<uint8_t>(random());
    // Some slots hold addresses in real code so that walks go on for a while.
    for (size_t slot = 0; slot < garbage.size() / 8; slot += 1 + random() % 5) {
      const uint64_t value = code + random() % 4096;
      std::memcpy(&garbage[slot * 8], &value, sizeof value);
    }
    alignas(16) zb::stack::Snapshot snapshot{};
    std::memcpy(&snapshot.registers.Rax, garbage.data(), 16 * 8);
    snapshot.registers.Rip = code + random() % 4096;
    snapshot.registers.Rsp = 0x100000 + random() % 64;
    snapshot.stackPointer = 0x100000;
    snapshot.bytes = garbage.data();
    snapshot.copied = garbage.size();
    void *frames[kFrameCapacity];
    EXPECT_LE(zb::stack::unwind(snapshot, frames, kFrameCapacity), kFrameCapacity);
  }
}

} // namespace

// Two functions whose every instruction is a label, so that a stopped thread
// can be staged at each point of their prologues and epilogues: one with a
// frame pointer and a `lea rsp` epilogue, one with a large allocation, a
// saved register and an `add rsp` epilogue.
extern "C" char zbProbeFramed[], zbProbeFramedPushedRbx[], zbProbeFramedPushedRbp[],
    zbProbeFramedAllocated[], zbProbeFramedBody[], zbProbeFramedEpilogue[], zbProbeFramedPopRbp[],
    zbProbeFramedPopRbx[], zbProbeFramedReturn[];
extern "C" char zbProbeLarge[], zbProbeLargeAllocated[], zbProbeLargeBody[], zbProbeLargeRestore[],
    zbProbeLargeEpilogue[], zbProbeLargeReturn[];
__asm__(R"(
  .text
  .globl zbProbeFramed
  .def zbProbeFramed; .scl 2; .type 32; .endef
  .seh_proc zbProbeFramed
zbProbeFramed:
  push %rbx
  .seh_pushreg %rbx
zbProbeFramedPushedRbx:
  push %rbp
  .seh_pushreg %rbp
zbProbeFramedPushedRbp:
  sub $0x28, %rsp
  .seh_stackalloc 0x28
zbProbeFramedAllocated:
  lea 0x20(%rsp), %rbp
  .seh_setframe %rbp, 0x20
  .seh_endprologue
zbProbeFramedBody:
  nop
zbProbeFramedEpilogue:
  lea 0x8(%rbp), %rsp
zbProbeFramedPopRbp:
  pop %rbp
zbProbeFramedPopRbx:
  pop %rbx
zbProbeFramedReturn:
  ret
  .seh_endproc
  .globl zbProbeFramedPushedRbx, zbProbeFramedPushedRbp, zbProbeFramedAllocated
  .globl zbProbeFramedBody, zbProbeFramedEpilogue, zbProbeFramedPopRbp
  .globl zbProbeFramedPopRbx, zbProbeFramedReturn

  .globl zbProbeLarge
  .def zbProbeLarge; .scl 2; .type 32; .endef
  .seh_proc zbProbeLarge
zbProbeLarge:
  sub $0x1008, %rsp
  .seh_stackalloc 0x1008
zbProbeLargeAllocated:
  mov %rsi, 0x1000(%rsp)
  .seh_savereg %rsi, 0x1000
  .seh_endprologue
zbProbeLargeBody:
  nop
zbProbeLargeRestore:
  mov 0x1000(%rsp), %rsi
zbProbeLargeEpilogue:
  add $0x1008, %rsp
zbProbeLargeReturn:
  ret
  .seh_endproc
  .globl zbProbeLargeAllocated, zbProbeLargeBody, zbProbeLargeRestore
  .globl zbProbeLargeEpilogue, zbProbeLargeReturn
)");

namespace {

// A thread stopped at `stoppedAt` with `pushed` bytes below its entry stack
// pointer; the return address sits at the entry stack pointer.
struct StagedStop {
  const char *name;
  const char *stoppedAt;
  uint64_t pushed;
  bool framePointerSet; // rbp = entry - 0x18, and the body lowered rsp further
};

TEST(ZBBacktraceTests, UnwinderHandlesEveryPrologueAndEpilogueStep) {
  const StagedStop stops[] = {
      {"framed entry", zbProbeFramed, 0, false},
      {"framed after push rbx", zbProbeFramedPushedRbx, 8, false},
      {"framed after push rbp", zbProbeFramedPushedRbp, 16, false},
      {"framed after sub rsp", zbProbeFramedAllocated, 0x38, false},
      {"framed body after alloca", zbProbeFramedBody, 0x38 + 0x100, true},
      {"framed at lea rsp", zbProbeFramedEpilogue, 0x38 + 0x100, true},
      {"framed at pop rbp", zbProbeFramedPopRbp, 16, true},
      {"framed at pop rbx", zbProbeFramedPopRbx, 8, false},
      {"framed at ret", zbProbeFramedReturn, 0, false},
      {"large entry", zbProbeLarge, 0, false},
      {"large after sub rsp", zbProbeLargeAllocated, 0x1008, false},
      {"large body", zbProbeLargeBody, 0x1008, false},
      {"large restoring", zbProbeLargeRestore, 0x1008, false},
      {"large at add rsp", zbProbeLargeEpilogue, 0x1008, false},
      {"large at ret", zbProbeLargeReturn, 0, false},
  };
  // A return address inside this program, so that the walk accepts it.
  const uint64_t returnAddress = addressOf(fixtureOuter) + 5;
  constexpr uint64_t kEntry = 0x7000000;
  for (const StagedStop &stop : stops) {
    SCOPED_TRACE(stop.name);
    std::vector<uint8_t> stack(0x1200 + 64, 0xCC);
    alignas(16) zb::stack::Snapshot snapshot{};
    const uint64_t rsp = kEntry - stop.pushed;
    snapshot.registers.Rsp = rsp;
    snapshot.registers.Rip = reinterpret_cast<uintptr_t>(stop.stoppedAt);
    snapshot.registers.Rbp = stop.framePointerSet ? kEntry - 0x18 : 0x1111;
    snapshot.stackPointer = rsp;
    snapshot.bytes = stack.data();
    snapshot.copied = stack.size();
    std::memcpy(&stack[kEntry - rsp], &returnAddress, sizeof returnAddress);
    void *frames[2] = {};
    ASSERT_EQ(2u, zb::stack::unwind(snapshot, frames, 2));
    EXPECT_EQ(stop.stoppedAt, frames[0]);
    EXPECT_EQ(reinterpret_cast<void *>(returnAddress), frames[1]);
  }
}

// Another thread, blocked in a known function, as captured by ID.
struct Blocked {
  HANDLE release;
  std::atomic<uint32_t> threadID{0};
};

__attribute__((noinline)) void blockedInKnownFunction(Blocked &blocked) {
  blocked.threadID.store(GetCurrentThreadId());
  WaitForSingleObject(blocked.release, INFINITE);
  __asm__ volatile("" ::: "memory");
}

void *blockedThreadMain(void *argument) {
  blockedInKnownFunction(*static_cast<Blocked *>(argument));
  return nullptr;
}

DWORD WINAPI unregisteredThreadMain(void *argument) {
  WaitForSingleObject(static_cast<HANDLE>(argument), INFINITE);
  return 0;
}

TEST(ZBBacktraceTests, CaptureThreadNamesTheFunctionAnotherThreadIsBlockedIn) {
  Blocked blocked;
  blocked.release = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  const ZBThread thread = ZBThreadCreate("zb-blocked", blockedThreadMain, &blocked, -1.0, 0, 0);
  ASSERT_NE(0u, thread);
  while (blocked.threadID.load() == 0)
    Sleep(1);
  void *frames[kFrameCapacity];
  bool named = false;
  // The thread may not have reached its wait on the first try.
  for (int attempt = 0; attempt < 50 && !named; ++attempt) {
    uint32_t count = 0;
    ASSERT_EQ(ZBErrorNone,
              ZBBacktraceCaptureThread(blocked.threadID.load(), frames, kFrameCapacity, &count));
    for (uint32_t index = 1; index < count; ++index) {
      if (functionStartOf(static_cast<char *>(frames[index]) - 1) ==
          addressOf(blockedInKnownFunction)) {
        named = true;
        ASSERT_LT(index + 1, count);
        EXPECT_EQ(addressOf(blockedThreadMain),
                  functionStartOf(static_cast<char *>(frames[index + 1]) - 1));
      }
    }
    if (!named)
      Sleep(10);
  }
  EXPECT_TRUE(named);

  uint32_t count = 7;
  EXPECT_EQ(ZBErrorDeadlock,
            ZBBacktraceCaptureThread(GetCurrentThreadId(), frames, kFrameCapacity, &count));
  EXPECT_EQ(0u, count);
  EXPECT_EQ(ZBErrorInvalidArgument,
            ZBBacktraceCaptureThread(blocked.threadID.load(), nullptr, 4, &count));
  EXPECT_EQ(ZBErrorInvalidArgument,
            ZBBacktraceCaptureThread(blocked.threadID.load(), frames, 4, nullptr));
  // A thread the library did not start and nobody registered.
  DWORD outsiderID = 0;
  HANDLE outsider =
      CreateThread(nullptr, 0, unregisteredThreadMain, blocked.release, 0, &outsiderID);
  ASSERT_NE(nullptr, outsider);
  EXPECT_EQ(ZBErrorNotFound, ZBBacktraceCaptureThread(outsiderID, frames, kFrameCapacity, &count));

  SetEvent(blocked.release);
  EXPECT_EQ(ZBErrorNone, ZBThreadJoin(thread, nullptr));
  WaitForSingleObject(outsider, INFINITE);
  CloseHandle(outsider);
  CloseHandle(blocked.release);
}

} // namespace
