// The mappings of system failure reports into the error space: one table of
// data per mapping, one aligned row per system error, walked by one lookup.
// The numbers are Windows' and Winsock's; they are spelt out rather than
// taken from Windows headers so this file stays platform-neutral (the
// Windows side checks them against the headers at compile time).
#include "ZBErrorMapping.h"

#include "ZBLog.h"

namespace {

using zb::ErrorMapRow;
using zb::lookupError;

// Windows system errors of file, descriptor and path calls. Unlisted errors
// are ZBErrorIO (logged by the caller below).
constexpr ErrorMapRow kWinErrorTable[] = {
    {0,     ZBErrorNone},                // ERROR_SUCCESS
    {2,     ZBErrorFileNotFound},        // ERROR_FILE_NOT_FOUND
    {3,     ZBErrorFileNotFound},        // ERROR_PATH_NOT_FOUND
    {4,     ZBErrorTooManyFiles},        // ERROR_TOO_MANY_OPEN_FILES
    {5,     ZBErrorAccessDenied},        // ERROR_ACCESS_DENIED
    {32,    ZBErrorAccessDenied},        // ERROR_SHARING_VIOLATION
    {8,     ZBErrorNoMemory},            // ERROR_NOT_ENOUGH_MEMORY
    {14,    ZBErrorNoMemory},            // ERROR_OUTOFMEMORY
    {19,    ZBErrorReadOnlyFileSystem},  // ERROR_WRITE_PROTECT
    {80,    ZBErrorFileExists},          // ERROR_FILE_EXISTS
    {87,    ZBErrorInvalidArgument},     // ERROR_INVALID_PARAMETER
    {131,   ZBErrorInvalidArgument},     // ERROR_NEGATIVE_SEEK
    {161,   ZBErrorInvalidArgument},     // ERROR_BAD_PATHNAME
    {112,   ZBErrorNoSpace},             // ERROR_DISK_FULL
    {123,   ZBErrorNotLocked},           // ERROR_INVALID_NAME: -60, kept so on purpose
    {148,   ZBErrorFileBusy},            // ERROR_PATH_BUSY
    {170,   ZBErrorFileBusy},            // ERROR_BUSY
    {231,   ZBErrorFileBusy},            // ERROR_PIPE_BUSY
    {206,   ZBErrorNameTooLong},         // ERROR_FILENAME_EXCED_RANGE
    {267,   ZBErrorIsDirectory},         // ERROR_DIRECTORY
    {998,   ZBErrorBusy},                // ERROR_NOACCESS: an address fault
    {4319,  ZBErrorDeviceNotFound},      // ERROR_DEVICE_NOT_AVAILABLE
    {10038, ZBErrorNotSocket},           // WSAENOTSOCK
};
constexpr uint32_t kWinErrorHandleEOF = 38;

// Winsock errors (10004 to 10093) of every socket call; unlisted values in
// that range are ZBErrorGeneric.
constexpr ErrorMapRow kWSAErrorTable[] = {
    {10004, ZBErrorInterrupted},            // WSAEINTR
    {10009, ZBErrorInvalidHandle},          // WSAEBADF
    {10013, ZBErrorAccessDenied},           // WSAEACCES
    {10014, ZBErrorBusy},                   // WSAEFAULT: deliberately not an address error
    {10022, ZBErrorInvalidArgument},        // WSAEINVAL
    {10024, ZBErrorTooManyFiles},           // WSAEMFILE
    {10035, ZBErrorWouldBlock},             // WSAEWOULDBLOCK
    {10036, ZBErrorInProgress},             // WSAEINPROGRESS
    {10037, ZBErrorAlready},                // WSAEALREADY
    {10038, ZBErrorNotSocket},              // WSAENOTSOCK
    {10039, ZBErrorAddressRequired},        // WSAEDESTADDRREQ
    {10040, ZBErrorValueTooLarge},          // WSAEMSGSIZE
    {10041, ZBErrorIO},                     // WSAEPROTOTYPE: I/O here, unlike connect
    {10042, ZBErrorUnsupported},            // WSAENOPROTOOPT
    {10045, ZBErrorUnsupported},            // WSAEOPNOTSUPP
    {10043, ZBErrorSocketTypeUnsupported},  // WSAEPROTONOSUPPORT
    {10044, ZBErrorSocketTypeUnsupported},  // WSAESOCKTNOSUPPORT
    {10046, ZBErrorFamilyUnsupported},      // WSAEPFNOSUPPORT
    {10047, ZBErrorFamilyUnsupported},      // WSAEAFNOSUPPORT
    {10048, ZBErrorAddressInUse},           // WSAEADDRINUSE
    {10049, ZBErrorAddressNotAvailable},    // WSAEADDRNOTAVAIL
    {10051, ZBErrorNetworkUnreachable},     // WSAENETUNREACH
    {10053, ZBErrorConnectionAborted},      // WSAECONNABORTED
    {10054, ZBErrorConnectionReset},        // WSAECONNRESET
    {10055, ZBErrorNoMemory},               // WSAENOBUFS
    {10056, ZBErrorIsConnected},            // WSAEISCONN
    {10057, ZBErrorNotConnected},           // WSAENOTCONN
    {10058, ZBErrorSendAfterShutdown},      // WSAESHUTDOWN
    {10060, ZBErrorTimedOut},               // WSAETIMEDOUT
    {10061, ZBErrorConnectionRefused},      // WSAECONNREFUSED
    {10062, ZBErrorLoop},                   // WSAELOOP
    {10063, ZBErrorNameTooLong},            // WSAENAMETOOLONG
    {10065, ZBErrorHostUnreachable},        // WSAEHOSTUNREACH
    {10093, ZBErrorNetworkDown},            // WSANOTINITIALISED
};

// errno values of the system's runtime library, which some socket paths
// report through the same channel (values up to 994).
constexpr ErrorMapRow kRuntimeErrnoTable[] = {
    {1,   ZBErrorNotPermitted},       // EPERM
    {16,  ZBErrorRacePrevented},      // EBUSY
    {36,  ZBErrorDeadlock},           // EDEADLK
    {39,  ZBErrorTooManyLocks},       // ENOLCK
    {116, ZBErrorNetworkDown},        // ENETDOWN
    {117, ZBErrorNetworkDown},        // ENETRESET
    {136, ZBErrorWrongProtocolType},  // EPROTOTYPE
};

// Windows errors that overlapped socket operations complete with.
constexpr ErrorMapRow kOverlappedErrorTable[] = {
    {995, ZBErrorConnectionReset},  // ERROR_OPERATION_ABORTED
    {997, ZBErrorAlready},          // ERROR_IO_PENDING
};

// The completion of a connect that carries data (10014 to 10093).
constexpr ErrorMapRow kConnectErrorTable[] = {
    {10014, ZBErrorInvalidArgument},        // WSAEFAULT
    {10049, ZBErrorInvalidArgument},        // WSAEADDRNOTAVAIL
    {10022, ZBErrorInvalidHandle},          // WSAEINVAL
    {10024, ZBErrorTooManyFiles},           // WSAEMFILE
    {10036, ZBErrorInProgress},             // WSAEINPROGRESS
    {10037, ZBErrorInProgress},             // WSAEALREADY
    {10038, ZBErrorNotSocket},              // WSAENOTSOCK
    {10041, ZBErrorWrongProtocolType},      // WSAEPROTOTYPE
    {10043, ZBErrorSocketTypeUnsupported},  // WSAEPROTONOSUPPORT
    {10044, ZBErrorSocketTypeUnsupported},  // WSAESOCKTNOSUPPORT
    {10047, ZBErrorFamilyUnsupported},      // WSAEAFNOSUPPORT
    {10048, ZBErrorAddressInUse},           // WSAEADDRINUSE
    {10050, ZBErrorNetworkDown},            // WSAENETDOWN
    {10093, ZBErrorNetworkDown},            // WSANOTINITIALISED
    {10051, ZBErrorNetworkUnreachable},     // WSAENETUNREACH
    {10055, ZBErrorNoMemory},               // WSAENOBUFS
    {10058, ZBErrorSendAfterShutdown},      // WSAESHUTDOWN
    {10060, ZBErrorTimedOut},               // WSAETIMEDOUT
    {10061, ZBErrorConnectionRefused},      // WSAECONNREFUSED
    {10065, ZBErrorHostUnreachable},        // WSAEHOSTUNREACH
};

// WSADuplicateSocketW.
constexpr ErrorMapRow kDuplicateErrorTable[] = {
    {10014, ZBErrorInvalidArgument},  // WSAEFAULT
    {10022, ZBErrorInvalidArgument},  // WSAEINVAL
    {10024, ZBErrorTooManyFiles},     // WSAEMFILE
    {10036, ZBErrorInProgress},       // WSAEINPROGRESS
    {10038, ZBErrorNotSocket},        // WSAENOTSOCK
    {10050, ZBErrorNetworkDown},      // WSAENETDOWN
    {10055, ZBErrorNoMemory},         // WSAENOBUFS
    {10093, ZBErrorNotPermitted},     // WSANOTINITIALISED
};

// The WSASocketW that re-creates a duplicated socket: the table above plus
// these rows.
constexpr ErrorMapRow kDuplicateCreateExtraTable[] = {
    {10041, ZBErrorWrongProtocolType},      // WSAEPROTOTYPE
    {10043, ZBErrorSocketTypeUnsupported},  // WSAEPROTONOSUPPORT
    {10044, ZBErrorSocketTypeUnsupported},  // WSAESOCKTNOSUPPORT
    {10047, ZBErrorFamilyUnsupported},      // WSAEAFNOSUPPORT
};

// getaddrinfo results.
constexpr ErrorMapRow kAddressInfoErrorTable[] = {
    {10047, ZBErrorNotFound},     // WSAEAFNOSUPPORT
    {11001, ZBErrorNotFound},     // WSAHOST_NOT_FOUND
    {11003, ZBErrorNotFound},     // WSANO_RECOVERY
    {11002, ZBErrorInterrupted},  // WSATRY_AGAIN
};

constexpr int32_t kWinsockFirst = 10004;
constexpr int32_t kWinsockLast = 10093;
constexpr int32_t kConnectFirst = 10014;
constexpr int32_t kRuntimeErrnoLast = 994;

} // namespace

extern "C" ZBError __ZBIOErrorFromWinError(uint32_t winError) noexcept {
  constexpr ZBError kUnmapped = 1; // not a result: marks "no row"
  const ZBError mapped = lookupError(kWinErrorTable, static_cast<int32_t>(winError), kUnmapped);
  if (mapped != kUnmapped)
    return mapped;
  // Both lines share this function's one site so a rule naming
  // __ZBIOErrorFromWinError enables or silences them together.
  static ZBLogSite site;
  if (ZB_LOG_SITE_ENABLED(&site, ZBLogLevelWarning, __FILE__, __func__, __LINE__)) {
    if (winError == kWinErrorHandleEOF)
      ZBLogS(ZBLogLevelWarning, &site, __func__, __FILE__, __LINE__,
             "Unhandled ERROR_HANDLE_EOF. We never expect this error 0x%lx\n",
             static_cast<unsigned long>(winError));
    else
      ZBLogS(ZBLogLevelWarning, &site, __func__, __FILE__, __LINE__,
             "Unknown I/O error 0x%lx\n", static_cast<unsigned long>(winError));
  }
  return ZBErrorIO;
}

extern "C" ZBError _ZBSocketErrorFromWSAError(int32_t value) noexcept {
  if (value >= kWinsockFirst && value <= kWinsockLast)
    return lookupError(kWSAErrorTable, value, ZBErrorGeneric);
  if (value > kRuntimeErrnoLast)
    return lookupError(kOverlappedErrorTable, value, ZBErrorGeneric);
  return lookupError(kRuntimeErrnoTable, value, ZBErrorGeneric);
}

extern "C" ZBError _ZBSocketConnectErrorFromWSAError(int32_t value) noexcept {
  if (value >= kConnectFirst && value <= kWinsockLast)
    return lookupError(kConnectErrorTable, value, ZBErrorGeneric);
  return lookupError(kOverlappedErrorTable, value, ZBErrorGeneric);
}

extern "C" ZBError _ZBSocketDuplicateErrorFromWSAError(int32_t value) noexcept {
  if (value == 0)
    return ZBErrorNone;
  return lookupError(kDuplicateErrorTable, value, ZBErrorGeneric);
}

extern "C" ZBError _ZBSocketDuplicateCreateErrorFromWSAError(int32_t value) noexcept {
  const ZBError extra = lookupError(kDuplicateCreateExtraTable, value, ZBErrorNone);
  return extra != ZBErrorNone ? extra : _ZBSocketDuplicateErrorFromWSAError(value);
}

extern "C" ZBError _ZBSocketAddressErrorFromAIError(int32_t result, const char *host,
                                                    bool numericHost) noexcept {
  if (!numericHost)
    ZB_LOG_WARNING("DNS error: %d %s", static_cast<int>(result), host ? host : "");
  return lookupError(kAddressInfoErrorTable, result, ZBErrorGeneric);
}
