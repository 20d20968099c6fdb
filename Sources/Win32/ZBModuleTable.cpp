// The loaded modules' unwind tables in a fixed array, for unwinding stacks
// while other threads are stopped. The loader's own lookup
// (RtlLookupFunctionEntry) may take the loader lock, which a stopped thread
// may hold; this table is read with no lock at all. Writers (the first fill
// and the loader's notifications) are few and serialized by a spin flag;
// each slot carries a sequence number, odd while it changes, so a reader
// never trusts a slot it saw half-written.
#include "ZBModuleTable.h"
#include "ZBWinAPI.h"

#include <psapi.h>
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <iterator>

namespace zb::modules {
namespace {

constexpr size_t kSlotCount = 512;

struct Slot {
  std::atomic<uint32_t> sequence;
  std::atomic<uintptr_t> base; // 0: free
  std::atomic<uintptr_t> size;
  std::atomic<const RUNTIME_FUNCTION *> functions;
  std::atomic<uint32_t> functionCount;
};

Slot sSlots[kSlotCount];
std::atomic<uint32_t> sReaders{0};
std::atomic_flag sWriting = ATOMIC_FLAG_INIT;

class WriterGuard {
public:
  WriterGuard() noexcept {
    while (sWriting.test_and_set(std::memory_order_acquire))
      SwitchToThread();
  }
  ~WriterGuard() { sWriting.clear(std::memory_order_release); }
  WriterGuard(const WriterGuard &) = delete;
  WriterGuard &operator=(const WriterGuard &) = delete;
};

// The exception directory of a mapped image, from its own headers.
CodeRange describe(uintptr_t base) noexcept {
  CodeRange range{base, 0, nullptr, 0};
  const IMAGE_NT_HEADERS64 *nt = mappedHeaders(base);
  if (nt == nullptr)
    return range;
  range.size = nt->OptionalHeader.SizeOfImage;
  if (nt->OptionalHeader.NumberOfRvaAndSizes <= IMAGE_DIRECTORY_ENTRY_EXCEPTION)
    return range;
  const IMAGE_DATA_DIRECTORY &table =
      nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXCEPTION];
  if (table.VirtualAddress == 0 || table.VirtualAddress + uint64_t{table.Size} > range.size)
    return range;
  range.functions = reinterpret_cast<const RUNTIME_FUNCTION *>(base + table.VirtualAddress);
  range.functionCount = table.Size / sizeof(RUNTIME_FUNCTION);
  return range;
}

void publish(Slot &slot, const CodeRange &range) noexcept {
  slot.sequence.fetch_add(1, std::memory_order_relaxed);
  std::atomic_thread_fence(std::memory_order_release);
  slot.base.store(range.base, std::memory_order_relaxed);
  slot.size.store(range.size, std::memory_order_relaxed);
  slot.functions.store(range.functions, std::memory_order_relaxed);
  slot.functionCount.store(range.functionCount, std::memory_order_relaxed);
  slot.sequence.fetch_add(1, std::memory_order_release);
}

void add(uintptr_t base) noexcept {
  const CodeRange range = describe(base);
  if (range.size == 0)
    return;
  WriterGuard guard;
  Slot *free = nullptr;
  for (Slot &slot : sSlots) {
    const uintptr_t slotBase = slot.base.load(std::memory_order_relaxed);
    if (slotBase == base)
      return;
    if (slotBase == 0 && free == nullptr)
      free = &slot;
  }
  if (free != nullptr)
    publish(*free, range);
}

// Called by the loader before it unmaps the image: once the slot is empty no
// new reader finds it, and the readers that may already hold it are waited
// for.
void remove(uintptr_t base) noexcept {
  {
    WriterGuard guard;
    for (Slot &slot : sSlots)
      if (slot.base.load(std::memory_order_relaxed) == base)
        publish(slot, CodeRange{0, 0, nullptr, 0});
  }
  std::atomic_thread_fence(std::memory_order_seq_cst);
  while (sReaders.load(std::memory_order_seq_cst) != 0)
    SwitchToThread();
}

VOID CALLBACK onDllNotification(ULONG reason, const zb::winapi::LoaderNotificationData *data,
                                PVOID) {
  const auto base = reinterpret_cast<uintptr_t>(data->base);
  if (reason == zb::winapi::kLoaderNotificationLoaded)
    add(base);
  else
    remove(base);
}

bool fill() noexcept {
  // Registered before the walk, so that no module loaded meanwhile is missed;
  // the walk skips what the notification already added.
  if (const auto registerNotification = zb::winapi::ldrRegisterDllNotification()) {
    PVOID cookie = nullptr;
    registerNotification(0, onDllNotification, nullptr, &cookie);
  }
  HMODULE loaded[kSlotCount];
  DWORD bytes = 0;
  if (K32EnumProcessModules(GetCurrentProcess(), loaded, sizeof loaded, &bytes)) {
    const size_t count = std::min<size_t>(bytes / sizeof(HMODULE), std::size(loaded));
    for (size_t index = 0; index < count; ++index)
      add(reinterpret_cast<uintptr_t>(loaded[index]));
  }
  return true;
}

} // namespace

const IMAGE_NT_HEADERS64 *mappedHeaders(uintptr_t base) noexcept {
  const auto *dos = reinterpret_cast<const IMAGE_DOS_HEADER *>(base);
  if (dos->e_magic != IMAGE_DOS_SIGNATURE)
    return nullptr;
  const auto *nt = reinterpret_cast<const IMAGE_NT_HEADERS64 *>(base + dos->e_lfanew);
  return nt->Signature == IMAGE_NT_SIGNATURE &&
                 nt->OptionalHeader.Magic == IMAGE_NT_OPTIONAL_HDR64_MAGIC
             ? nt
             : nullptr;
}

void prepare() noexcept {
  static const bool sFilled = fill();
  (void)sFilled;
}

ReadGuard::ReadGuard() noexcept { sReaders.fetch_add(1, std::memory_order_seq_cst); }

ReadGuard::~ReadGuard() { sReaders.fetch_sub(1, std::memory_order_release); }

bool find(uintptr_t address, CodeRange &out) noexcept {
  for (const Slot &slot : sSlots) {
    const uint32_t before = slot.sequence.load(std::memory_order_acquire);
    if ((before & 1) != 0)
      continue;
    const CodeRange range{slot.base.load(std::memory_order_relaxed),
                          slot.size.load(std::memory_order_relaxed),
                          slot.functions.load(std::memory_order_relaxed),
                          slot.functionCount.load(std::memory_order_relaxed)};
    std::atomic_thread_fence(std::memory_order_acquire);
    if (slot.sequence.load(std::memory_order_relaxed) != before)
      continue;
    if (range.base != 0 && address - range.base < range.size) {
      out = range;
      return true;
    }
  }
  return false;
}

const RUNTIME_FUNCTION *functionEntry(const CodeRange &range, uintptr_t address) noexcept {
  const uintptr_t rva = address - range.base;
  uint32_t low = 0;
  uint32_t high = range.functionCount;
  while (low < high) {
    const uint32_t middle = low + (high - low) / 2;
    const RUNTIME_FUNCTION &entry = range.functions[middle];
    if (rva < entry.BeginAddress)
      high = middle;
    else if (rva >= entry.EndAddress)
      low = middle + 1;
    else
      return &entry;
  }
  return nullptr;
}

} // namespace zb::modules
