// The calling process's own identity: the name of its executable.
#include "ZBProcess.h"

#include "ZBModulePath.h"

extern "C" char *ZBProcessCopyCurrentName(void) noexcept {
  try {
    std::wstring name = zb::module::path(nullptr);
    const size_t separator = name.find_last_of(L"\\/");
    if (separator != std::wstring::npos)
      name.erase(0, separator + 1);
    const size_t dot = name.rfind(L'.');
    if (dot != std::wstring::npos && dot != 0)
      name.resize(dot);
    if (name.empty())
      return nullptr;
    return zb::module::copyUTF8(name.data(), name.size());
  } catch (...) {
    return nullptr;
  }
}
