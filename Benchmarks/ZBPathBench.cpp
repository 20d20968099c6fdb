// The long-path form of a typical path: ZBPathCopyNT of a 60-character
// absolute path (normalised, widened, prefixed, allocated and freed) against
// GetFullPathNameW of the same path into a buffer on the stack, the system's
// own normalisation of a path for its file calls. Also a relative path,
// which ZBPathCopyNT only widens.
#include "ZBBench.h"

#include "Zenbor.h"

#include <windows.h>

#include <cstring>

namespace {

constexpr zbbench::Options kOptions{15, 200000};

void compareWithFullPathName(const char *name, const char *path, const wchar_t *widePath) {
  zbbench::compare(
      name,
      [path](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          ZBWChar *nt = ZBPathCopyNT(path);
          zbbench::keep(nt);
          _ZBFree(nt);
        }
      },
      [widePath](int64_t n) {
        wchar_t full[MAX_PATH];
        for (int64_t i = 0; i < n; ++i)
          zbbench::keep(GetFullPathNameW(widePath, MAX_PATH, full, nullptr));
      },
      kOptions);
}

} // namespace

int main() {
  static const char kPath[] = "C:/Users/someone/Projects/zenbor/build/output/report-026.txt";
  static const wchar_t kWidePath[] =
      L"C:\\Users\\someone\\Projects\\zenbor\\build\\output\\report-026.txt";
  static_assert(sizeof kPath - 1 == 60, "a typical 60-character path");
  static const char kRelative[] = "Projects/zenbor/build/output/report-026.txt";
  static const wchar_t kWideRelative[] = L"Projects\\zenbor\\build\\output\\report-026.txt";

  zbbench::printHeader();
  compareWithFullPathName("ZBPathCopyNT(60 chars) vs GetFullPathNameW", kPath, kWidePath);
  compareWithFullPathName("ZBPathCopyNT(relative) vs GetFullPathNameW", kRelative, kWideRelative);
  return 0;
}
