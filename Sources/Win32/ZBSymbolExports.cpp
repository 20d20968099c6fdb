// The last resolver: the module's export table, read from the mapped image.
// The name is that of the nearest exported function at or below the
// address, which is right for exported functions and a landmark for the
// code after them.
#include "ZBSymbolResolvers.h"

#include "ZBModuleTable.h"

#include <windows.h>

namespace zb::symbols {
namespace {

// The mapped image's bytes [rva, rva + length), or null outside the image.
const uint8_t *imageBytes(uintptr_t base, uint32_t imageSize, uint64_t rva, uint64_t length) {
  if (rva > imageSize || length > imageSize - rva)
    return nullptr;
  return reinterpret_cast<const uint8_t *>(base + rva);
}

} // namespace

bool resolveWithExports(uintptr_t address, const Module &module, Answer &answer) noexcept {
  const IMAGE_NT_HEADERS64 *nt = modules::mappedHeaders(module.base);
  if (nt == nullptr || nt->OptionalHeader.NumberOfRvaAndSizes <= IMAGE_DIRECTORY_ENTRY_EXPORT)
    return false;
  const uint32_t imageSize = nt->OptionalHeader.SizeOfImage;
  const IMAGE_DATA_DIRECTORY &table =
      nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_EXPORT];
  const auto *directory = reinterpret_cast<const IMAGE_EXPORT_DIRECTORY *>(
      imageBytes(module.base, imageSize, table.VirtualAddress, sizeof(IMAGE_EXPORT_DIRECTORY)));
  if (table.VirtualAddress == 0 || directory == nullptr)
    return false;
  const auto *functions = reinterpret_cast<const DWORD *>(
      imageBytes(module.base, imageSize, directory->AddressOfFunctions,
                 uint64_t{directory->NumberOfFunctions} * sizeof(DWORD)));
  const auto *names = reinterpret_cast<const DWORD *>(
      imageBytes(module.base, imageSize, directory->AddressOfNames,
                 uint64_t{directory->NumberOfNames} * sizeof(DWORD)));
  const auto *ordinals = reinterpret_cast<const WORD *>(
      imageBytes(module.base, imageSize, directory->AddressOfNameOrdinals,
                 uint64_t{directory->NumberOfNames} * sizeof(WORD)));
  if (functions == nullptr || names == nullptr || ordinals == nullptr)
    return false;
  const uint64_t rva = address - module.base;
  uint32_t bestRVA = 0;
  const char *bestName = nullptr;
  for (DWORD index = 0; index < directory->NumberOfNames; ++index) {
    if (ordinals[index] >= directory->NumberOfFunctions)
      continue;
    const DWORD functionRVA = functions[ordinals[index]];
    // Forwarders point into the export table itself; data is not code.
    const bool forwarded =
        functionRVA >= table.VirtualAddress && functionRVA - table.VirtualAddress < table.Size;
    if (forwarded || functionRVA > rva || functionRVA <= bestRVA)
      continue;
    const uint8_t *name = imageBytes(module.base, imageSize, names[index], 1);
    if (name == nullptr || strnlen(reinterpret_cast<const char *>(name),
                                   imageSize - names[index]) == imageSize - names[index])
      continue;
    bestRVA = functionRVA;
    bestName = reinterpret_cast<const char *>(name);
  }
  if (bestName == nullptr)
    return false;
  try {
    answer.name = bestName;
  } catch (...) {
    return false;
  }
  answer.functionAddress = module.base + bestRVA;
  return true;
}

} // namespace zb::symbols
