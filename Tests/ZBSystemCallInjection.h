// Error injection through the library's system-call table, for test programs
// linked with the static library (INTERNAL). A ScopedSystemCall replaces one
// entry for its lifetime and restores the real call afterwards, so a test
// can make Windows answer with an error the system under test never gives.
//
//   zb::test::ScopedSystemCall fail(zb::gSystemCalls.DeleteFileW,
//                                   [](LPCWSTR) -> BOOL { SetLastError(32); return FALSE; });
#pragma once

#include "ZBSystemCalls.h"

namespace zb::test {

template <typename Function>
class ScopedSystemCall {
public:
  template <typename Replacement>
  ScopedSystemCall(Function &entry, Replacement replacement)
      : entry_(entry), saved_(entry) {
    entry_ = replacement;
  }
  ~ScopedSystemCall() { entry_ = saved_; }
  ScopedSystemCall(const ScopedSystemCall &) = delete;
  ScopedSystemCall &operator=(const ScopedSystemCall &) = delete;

private:
  Function &entry_;
  Function saved_;
};

template <typename Function, typename Replacement>
ScopedSystemCall(Function &, Replacement) -> ScopedSystemCall<Function>;

} // namespace zb::test
