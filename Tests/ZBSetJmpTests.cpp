// Non-local jumps: every register the calling convention preserves comes
// back from a jump (set and checked in assembly), a jump of 0 arrives as 1,
// and a jump crosses 100 frames that each took stack with alloca. This file
// is compiled at -O2, where registers matter most.
#include "ZBSetJmp.h"

#include <gtest/gtest.h>

#include <malloc.h>

#include <cstring>

namespace {

struct JumpRegisters {
  uint64_t general[8];    // rbx rbp rdi rsi r12 r13 r14 r15
  uint64_t vector[10][2]; // xmm6 to xmm15
  uint32_t mxcsr;
  uint16_t x87Control;
};
static_assert(offsetof(JumpRegisters, mxcsr) == 224, "the helper's layout");

} // namespace

extern "C" int zb_test_jump_keeps_registers(ZBJmpBuf buffer, JumpRegisters *out, int value);

namespace {

TEST(ZBSetJmp, CalleeSavedRegistersAndModesSurviveTheJump) {
  static_assert(sizeof(ZBJmpBuf) == 256 && alignof(ZBJmpBufSlot) == 16, "room for what is saved");
  const struct {
    int value;
    int returned;
  } jumps[] = {{5, 5}, {0, 1}, {-1, -1}, {1, 1}};
  for (const auto &jump : jumps) {
    ZBJmpBuf buffer;
    JumpRegisters registers;
    std::memset(&registers, 0, sizeof(registers));
    EXPECT_EQ(zb_test_jump_keeps_registers(buffer, &registers, jump.value), jump.returned);
    for (int i = 0; i < 8; ++i)
      EXPECT_EQ(registers.general[i], 0x1111111111111111ull * static_cast<uint64_t>(i + 1))
          << "general register " << i << " after a jump of " << jump.value;
    for (int k = 0; k < 10; ++k) {
      EXPECT_EQ(registers.vector[k][0], 0x0600000000000000ull + (k + 6) * 0x0101ull)
          << "xmm" << k + 6;
      EXPECT_EQ(registers.vector[k][1], 0xF000000000000000ull + (k + 6) * 0x10001ull)
          << "xmm" << k + 6;
    }
    EXPECT_EQ(registers.mxcsr & ~0x3Fu, 0x7F80u) << "MXCSR's control bits";
    EXPECT_EQ(registers.x87Control & 0x1F3F, 0x0F3F) << "the x87 control word";
  }
}

// Far beyond the jump: only a ZBLongJmp that returned would reach it.
volatile int gDeepestAllowed = 1000;

__attribute__((noinline)) int descend(ZBJmpBufSlot *buffer, int depth, volatile int *deepest) {
  const size_t size = 64 + static_cast<size_t>(depth) * 16;
  auto *scratch = static_cast<volatile char *>(alloca(size));
  for (size_t i = 0; i < size; ++i)
    scratch[i] = static_cast<char>(depth);
  *deepest = depth;
  if (depth == 100)
    ZBLongJmp(buffer, depth);
  if (depth >= gDeepestAllowed)
    return 0;
  // Used after the call, so no call here is a tail call.
  return descend(buffer, depth + 1, deepest) + scratch[size - 1];
}

TEST(ZBSetJmp, JumpsOverAHundredFramesWithAlloca) {
  volatile int deepest = 0;
  volatile double kept = 2.5;
  volatile int rounds = 0;
  void *frame = __builtin_frame_address(0);
  ZBJmpBuf buffer;
  const int result = ZBSetJmp(buffer);
  if (result == 0) {
    descend(buffer, 1, &deepest);
    ADD_FAILURE() << "descend returned";
  }
  EXPECT_EQ(result, 100);
  EXPECT_EQ(deepest, 100);
  EXPECT_EQ(kept, 2.5);
  EXPECT_EQ(__builtin_frame_address(0), frame);
  // Jumping again and again leaves the stack where it was.
  for (rounds = 0; rounds < 50; rounds = rounds + 1) {
    deepest = 0;
    if (ZBSetJmp(buffer) == 0)
      descend(buffer, 1, &deepest);
    EXPECT_EQ(deepest, 100);
    EXPECT_EQ(__builtin_frame_address(0), frame);
  }
  EXPECT_EQ(rounds, 50);
}

TEST(ZBSetJmp, ZeroArrivesAsOne) {
  volatile int jumps = 0;
  ZBJmpBuf buffer;
  const int result = ZBSetJmp(buffer);
  if (jumps++ == 0)
    ZBLongJmp(buffer, 0);
  EXPECT_EQ(result, 1);
  EXPECT_EQ(jumps, 2);
}

} // namespace
