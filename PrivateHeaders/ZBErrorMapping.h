// Translations of the system's failure reports into the library's error
// space. Each mapping is one table of data; see ZBErrorMapping.cpp.
#pragma once

#include "ZBError.h"

#include <cstddef>
#include <cstdint>

namespace zb {

// One row of a mapping from a system's error number to a code; every
// mapping in the library is an array of these, walked by lookupError.
struct ErrorMapRow {
  int32_t system;
  ZBError result;
};

// The code of `value` in `table`, or `fallback` when no row lists it.
template <size_t N>
constexpr ZBError lookupError(const ErrorMapRow (&table)[N], int32_t value, ZBError fallback) {
  for (const ErrorMapRow &row : table)
    if (row.system == value)
      return row.result;
  return fallback;
}

} // namespace zb

extern "C" {

// File, descriptor and path functions: Windows system errors.
ZBError __ZBIOErrorFromWinError(uint32_t winError) noexcept;
// The same mapping applied to the calling thread's last Windows error.
ZBError __ZBIOErrorFromLastWinError(void) noexcept;

// Every socket function: the value of WSAGetLastError right after the
// failing call (Winsock errors, two Windows errors, runtime errno values).
ZBError _ZBSocketErrorFromWSAError(int32_t wsaError) noexcept;
// The completion of a connect that carries data.
ZBError _ZBSocketConnectErrorFromWSAError(int32_t wsaError) noexcept;
// WSADuplicateSocketW, and the WSASocketW that follows it.
ZBError _ZBSocketDuplicateErrorFromWSAError(int32_t wsaError) noexcept;
ZBError _ZBSocketDuplicateCreateErrorFromWSAError(int32_t wsaError) noexcept;
// Name resolution: the non-zero result of getaddrinfo. Logs the failure
// with the host name unless the caller asked for a numeric host.
ZBError _ZBSocketAddressErrorFromAIError(int32_t result, const char *host,
                                         bool numericHost) noexcept;
}
