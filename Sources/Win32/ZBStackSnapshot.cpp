// Copies of a thread's registers and stack, and the x64 unwinder that walks
// them. The unwinder follows the modules' unwind data (UNWIND_INFO) as the
// system's own does, but reads the stack only inside the copy, with every
// read bounded, so a short copy or a garbage stack ends the walk instead of
// faulting; and it finds function entries in the lock-free module table, so
// it may run while the thread that holds the loader lock is stopped.
#include "ZBStackSnapshot.h"

#include "ZBModuleTable.h"

#include <algorithm>
#include <cstring>

namespace zb::stack {
namespace {

// Register numbers as unwind codes name them (and as CONTEXT lays them out).
enum Register : uint8_t { kRsp = 4 };
constexpr int kRegisterCount = 16;
constexpr int kMaxChainedInfos = 32;

// Unwind operations.
enum Operation : uint8_t {
  kPushNonvolatile = 0,
  kAllocLarge = 1,
  kAllocSmall = 2,
  kSetFramePointer = 3,
  kSaveNonvolatile = 4,
  kSaveNonvolatileFar = 5,
  kEpilogue = 6, // version 2; in version 1 the obsolete SAVE_XMM, also two slots
  kSpareCode = 7,
  kSaveXmm128 = 8,
  kSaveXmm128Far = 9,
  kPushMachineFrame = 10,
};
constexpr uint8_t kChainedInfoFlag = 4;

struct Registers {
  uint64_t general[kRegisterCount];
  uint64_t rip;
};

// The copied stack, addressed as the thread saw it.
class StackView {
public:
  StackView(uintptr_t start, const uint8_t *bytes, size_t length) noexcept
      : start_(start), bytes_(bytes), length_(length) {}

  bool read(uint64_t address, uint64_t &value) const noexcept {
    if (bytes_ == nullptr || address < start_ || length_ < sizeof value ||
        address - start_ > length_ - sizeof value)
      return false;
    std::memcpy(&value, bytes_ + (address - start_), sizeof value);
    return true;
  }

private:
  uintptr_t start_;
  const uint8_t *bytes_;
  size_t length_;
};

// Bytes of a mapped image, or null when [rva, rva + length) leaves it.
const uint8_t *imageBytes(const modules::CodeRange &range, uint64_t rva, uint64_t length) noexcept {
  if (rva > range.size || length > range.size - rva)
    return nullptr;
  return reinterpret_cast<const uint8_t *>(range.base + rva);
}

bool popReturnAddress(Registers &registers, const StackView &stack) noexcept {
  if (!stack.read(registers.general[kRsp], registers.rip))
    return false;
  registers.general[kRsp] += 8;
  return true;
}

// Slots an unwind code takes, its own included.
unsigned slotCount(uint8_t operation, uint8_t info) noexcept {
  switch (operation) {
  case kAllocLarge: return info == 0 ? 2 : 3;
  case kSaveNonvolatile:
  case kEpilogue:
  case kSaveXmm128: return 2;
  case kSaveNonvolatileFar:
  case kSaveXmm128Far: return 3;
  default: return 1;
  }
}

struct UnwindInfoHeader {
  uint8_t version;
  uint8_t flags;
  uint8_t codeCount;
  uint8_t frameRegister;
  uint8_t frameOffset; // in 16-byte units
  const uint8_t *codes;
};

bool readHeader(const modules::CodeRange &range, uint32_t rva, UnwindInfoHeader &header) noexcept {
  const uint8_t *bytes = imageBytes(range, rva, 4);
  if (bytes == nullptr)
    return false;
  header = UnwindInfoHeader{
      static_cast<uint8_t>(bytes[0] & 7),  static_cast<uint8_t>(bytes[0] >> 3), bytes[2],
      static_cast<uint8_t>(bytes[3] & 15), static_cast<uint8_t>(bytes[3] >> 4), nullptr};
  header.codes = imageBytes(range, uint64_t{rva} + 4, uint64_t{header.codeCount} * 2);
  return (header.version == 1 || header.version == 2) && header.codes != nullptr;
}

uint16_t slotValue(const uint8_t *codes, unsigned slot) noexcept {
  return static_cast<uint16_t>(codes[slot * 2] | (codes[slot * 2 + 1] << 8));
}

// Undoes the prologue operations of one UNWIND_INFO that had run at
// `codeOffset` bytes into the function (all of them for chained infos).
bool undoPrologue(Registers &registers, const StackView &stack, const UnwindInfoHeader &header,
                  uint64_t codeOffset, bool partial, bool &machineFrame) noexcept {
  const uint8_t *codes = header.codes;
  const auto applies = [&](unsigned slot) { return !partial || codes[slot * 2] <= codeOffset; };
  // Saves are addressed from the frame as the prologue left it: the frame
  // register minus its offset once that register is set, else the stack
  // pointer.
  uint64_t frameBase = registers.general[kRsp];
  for (unsigned slot = 0; slot < header.codeCount;) {
    const uint8_t operation = codes[slot * 2 + 1] & 15;
    const uint8_t info = codes[slot * 2 + 1] >> 4;
    if (operation == kSetFramePointer && header.frameRegister != 0 && applies(slot))
      frameBase = registers.general[header.frameRegister] - uint64_t{header.frameOffset} * 16;
    slot += slotCount(operation, info);
  }
  for (unsigned slot = 0; slot < header.codeCount;) {
    const uint8_t operation = codes[slot * 2 + 1] & 15;
    const uint8_t info = codes[slot * 2 + 1] >> 4;
    const unsigned slots = slotCount(operation, info);
    if (slot + slots > header.codeCount)
      return false;
    if (!applies(slot)) {
      slot += slots;
      continue;
    }
    uint64_t &rsp = registers.general[kRsp];
    switch (operation) {
    case kPushNonvolatile:
      if (!stack.read(rsp, registers.general[info]))
        return false;
      rsp += 8;
      break;
    case kAllocLarge:
      rsp += info == 0 ? uint64_t{slotValue(codes, slot + 1)} * 8
                       : slotValue(codes, slot + 1) | uint64_t{slotValue(codes, slot + 2)} << 16;
      break;
    case kAllocSmall: rsp += uint64_t{info} * 8 + 8; break;
    case kSetFramePointer: rsp = frameBase; break;
    case kSaveNonvolatile:
      if (!stack.read(frameBase + uint64_t{slotValue(codes, slot + 1)} * 8,
                      registers.general[info]))
        return false;
      break;
    case kSaveNonvolatileFar:
      if (!stack.read(frameBase +
                          (slotValue(codes, slot + 1) | uint64_t{slotValue(codes, slot + 2)} << 16),
                      registers.general[info]))
        return false;
      break;
    case kEpilogue:
    case kSaveXmm128:
    case kSaveXmm128Far: break; // the vector registers play no part in finding return addresses
    case kPushMachineFrame: {
      const uint64_t base = rsp + (info != 0 ? 8 : 0);
      uint64_t interruptedRsp = 0;
      if (!stack.read(base, registers.rip) || !stack.read(base + 24, interruptedRsp))
        return false;
      rsp = interruptedRsp;
      machineFrame = true;
      break;
    }
    default: return false;
    }
    slot += slots;
  }
  return true;
}

// Decodes the instructions at the stopped instruction pointer; when they are
// an epilogue (`add rsp, n` or `lea rsp, [reg + n]`, pops, `ret`), runs it
// on `registers` and answers true. Epilogues have this fixed form on x64, so
// bytes that do not match are a function body and the prologue's codes
// apply.
bool runEpilogue(Registers &registers, const StackView &stack,
                 const modules::CodeRange &range) noexcept {
  constexpr size_t kLongestEpilogue = 64;
  const uint64_t rva = registers.rip - range.base;
  const size_t available =
      static_cast<size_t>(std::min<uint64_t>(range.size - rva, kLongestEpilogue));
  const uint8_t *code = imageBytes(range, rva, available);
  if (code == nullptr)
    return false;
  Registers after = registers;
  uint64_t &rsp = after.general[kRsp];
  size_t at = 0;
  const auto has = [&](size_t count) { return at + count <= available; };
  if (has(4) && code[0] == 0x48 && code[1] == 0x83 && code[2] == 0xC4) {
    rsp += static_cast<int8_t>(code[3]);
    at = 4;
  } else if (has(7) && code[0] == 0x48 && code[1] == 0x81 && code[2] == 0xC4) {
    int32_t amount;
    std::memcpy(&amount, code + 3, sizeof amount);
    rsp += amount;
    at = 7;
  } else if (has(4) && (code[0] & 0xFE) == 0x48 && code[1] == 0x8D && (code[2] & 0x38) == 0x20 &&
             (code[2] & 7) != 4 && ((code[2] >> 6) == 1 || (code[2] >> 6) == 2)) {
    // lea rsp, [base + displacement]
    const unsigned base = (code[2] & 7) + ((code[0] & 1) != 0 ? 8 : 0);
    int32_t displacement = 0;
    if ((code[2] >> 6) == 1) {
      displacement = static_cast<int8_t>(code[3]);
      at = 4;
    } else {
      if (!has(7))
        return false;
      std::memcpy(&displacement, code + 3, sizeof displacement);
      at = 7;
    }
    rsp = registers.general[base] + displacement;
  }
  for (;;) {
    if (has(1) && code[at] >= 0x58 && code[at] <= 0x5F) {
      if (!stack.read(rsp, after.general[code[at] - 0x58]))
        return false;
      rsp += 8;
      at += 1;
    } else if (has(2) && code[at] == 0x41 && code[at + 1] >= 0x58 && code[at + 1] <= 0x5F) {
      if (!stack.read(rsp, after.general[code[at + 1] - 0x58 + 8]))
        return false;
      rsp += 8;
      at += 2;
    } else {
      break;
    }
  }
  const bool returns = (has(1) && (code[at] == 0xC3 || code[at] == 0xC2)) ||
                       (has(2) && code[at] == 0xF3 && code[at + 1] == 0xC3);
  if (!returns || !popReturnAddress(after, stack))
    return false;
  registers = after;
  return true;
}

// One frame up. `exact` says the instruction pointer is where the thread
// stopped rather than a return address, which points past its call.
bool unwindFrame(Registers &registers, const StackView &stack, bool &exact) noexcept {
  const uint64_t lookup = exact ? registers.rip : registers.rip - 1;
  modules::CodeRange range;
  const RUNTIME_FUNCTION *entry = nullptr;
  if (modules::find(lookup, range))
    entry = modules::functionEntry(range, lookup);
  if (entry == nullptr) { // a leaf: the return address is on top
    exact = false;
    return popReturnAddress(registers, stack);
  }
  if (exact && runEpilogue(registers, stack, range)) {
    exact = false;
    return true;
  }
  bool machineFrame = false;
  uint64_t codeOffset = lookup - range.base - entry->BeginAddress;
  uint32_t infoRva = entry->UnwindData;
  for (int depth = 0; depth < kMaxChainedInfos; ++depth) {
    UnwindInfoHeader header;
    if (!readHeader(range, infoRva, header) ||
        !undoPrologue(registers, stack, header, codeOffset, depth == 0, machineFrame))
      return false;
    if ((header.flags & kChainedInfoFlag) == 0) {
      exact = machineFrame;
      return machineFrame || popReturnAddress(registers, stack);
    }
    const uint64_t chainedRva = reinterpret_cast<uintptr_t>(header.codes) - range.base +
                                ((header.codeCount + 1u) & ~1u) * 2;
    const uint8_t *chained = imageBytes(range, chainedRva, sizeof(RUNTIME_FUNCTION));
    if (chained == nullptr)
      return false;
    RUNTIME_FUNCTION parent;
    std::memcpy(&parent, chained, sizeof parent);
    infoRva = parent.UnwindData;
  }
  return false;
}

Registers registersOf(const CONTEXT &context) noexcept {
  Registers registers;
  std::memcpy(registers.general, &context.Rax, sizeof registers.general);
  registers.rip = context.Rip;
  return registers;
}

// Copies [stackPointer, end of its committed region) up to the capacity.
void copyStack(Snapshot &snapshot) noexcept {
  snapshot.copied = 0;
  snapshot.stackPointer = snapshot.registers.Rsp;
  MEMORY_BASIC_INFORMATION region;
  if (snapshot.bytes == nullptr ||
      VirtualQuery(reinterpret_cast<void *>(snapshot.stackPointer), &region, sizeof region) == 0 ||
      region.State != MEM_COMMIT || (region.Protect & (PAGE_GUARD | PAGE_NOACCESS)) != 0)
    return;
  const uintptr_t end = reinterpret_cast<uintptr_t>(region.BaseAddress) + region.RegionSize;
  const size_t length = std::min<size_t>(snapshot.capacity, end - snapshot.stackPointer);
  // memmove: the caller's buffer may itself lie on the stack being copied.
  std::memmove(snapshot.bytes, reinterpret_cast<const void *>(snapshot.stackPointer), length);
  snapshot.copied = length;
}

} // namespace

bool capture(HANDLE thread, Snapshot &snapshot) noexcept {
  if (GetThreadId(thread) == GetCurrentThreadId())
    return false;
  modules::prepare(); // may take the loader lock: only before the target stops
  if (SuspendThread(thread) == static_cast<DWORD>(-1))
    return false;
  snapshot.registers.ContextFlags = CONTEXT_CONTROL | CONTEXT_INTEGER;
  const bool read = GetThreadContext(thread, &snapshot.registers) != FALSE;
  if (read)
    copyStack(snapshot);
  ResumeThread(thread);
  return read;
}

__attribute__((noinline)) void captureCurrent(Snapshot &snapshot) noexcept {
  modules::prepare();
  RtlCaptureContext(&snapshot.registers);
  copyStack(snapshot);
  // The registers as they are on return to the caller.
  Registers registers = registersOf(snapshot.registers);
  bool exact = true;
  if (unwindFrame(registers, StackView(snapshot.stackPointer, snapshot.bytes, snapshot.copied),
                  exact)) {
    std::memcpy(&snapshot.registers.Rax, registers.general, sizeof registers.general);
    snapshot.registers.Rip = registers.rip;
  }
}

uint32_t unwind(const Snapshot &snapshot, void **frames, uint32_t capacity) noexcept {
  if (frames == nullptr || capacity == 0)
    return 0;
  const StackView stack(snapshot.stackPointer, snapshot.bytes, snapshot.copied);
  const modules::ReadGuard modulesStayMapped;
  Registers registers = registersOf(snapshot.registers);
  uint32_t count = 0;
  frames[count++] = reinterpret_cast<void *>(registers.rip);
  bool exact = true;
  modules::CodeRange range;
  while (count < capacity) {
    const uint64_t previousRsp = registers.general[kRsp];
    if (!unwindFrame(registers, stack, exact) || registers.general[kRsp] <= previousRsp ||
        !modules::find(registers.rip, range))
      break;
    frames[count++] = reinterpret_cast<void *>(registers.rip);
  }
  return count;
}

} // namespace zb::stack
