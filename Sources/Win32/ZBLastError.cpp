// The Windows side of the error mappings: the calling thread's last error,
// and compile-time checks that the numbers the platform-neutral tables spell
// out are Windows' own.
#include "ZBErrorMapping.h"

#include <winsock2.h>
#include <windows.h>

static_assert(ERROR_FILE_NOT_FOUND == 2 && ERROR_PATH_NOT_FOUND == 3);
static_assert(ERROR_TOO_MANY_OPEN_FILES == 4 && ERROR_ACCESS_DENIED == 5);
static_assert(ERROR_NOT_ENOUGH_MEMORY == 8 && ERROR_OUTOFMEMORY == 14);
static_assert(ERROR_WRITE_PROTECT == 19 && ERROR_SHARING_VIOLATION == 32);
static_assert(ERROR_HANDLE_EOF == 38 && ERROR_FILE_EXISTS == 80);
static_assert(ERROR_INVALID_PARAMETER == 87 && ERROR_DISK_FULL == 112);
static_assert(ERROR_INVALID_NAME == 123 && ERROR_NEGATIVE_SEEK == 131);
static_assert(ERROR_PATH_BUSY == 148 && ERROR_BAD_PATHNAME == 161 && ERROR_BUSY == 170);
static_assert(ERROR_FILENAME_EXCED_RANGE == 206 && ERROR_PIPE_BUSY == 231);
static_assert(ERROR_DIRECTORY == 267 && ERROR_NOACCESS == 998);
static_assert(ERROR_OPERATION_ABORTED == 995 && ERROR_IO_PENDING == 997);
static_assert(ERROR_DEVICE_NOT_AVAILABLE == 4319);
static_assert(WSAEINTR == 10004 && WSAEBADF == 10009 && WSAEACCES == 10013);
static_assert(WSAEFAULT == 10014 && WSAEINVAL == 10022 && WSAEMFILE == 10024);
static_assert(WSAEWOULDBLOCK == 10035 && WSAEINPROGRESS == 10036 && WSAEALREADY == 10037);
static_assert(WSAENOTSOCK == 10038 && WSAEDESTADDRREQ == 10039 && WSAEMSGSIZE == 10040);
static_assert(WSAEPROTOTYPE == 10041 && WSAENOPROTOOPT == 10042);
static_assert(WSAEPROTONOSUPPORT == 10043 && WSAESOCKTNOSUPPORT == 10044);
static_assert(WSAEOPNOTSUPP == 10045 && WSAEPFNOSUPPORT == 10046 && WSAEAFNOSUPPORT == 10047);
static_assert(WSAEADDRINUSE == 10048 && WSAEADDRNOTAVAIL == 10049 && WSAENETDOWN == 10050);
static_assert(WSAENETUNREACH == 10051 && WSAENETRESET == 10052 && WSAECONNABORTED == 10053);
static_assert(WSAECONNRESET == 10054 && WSAENOBUFS == 10055 && WSAEISCONN == 10056);
static_assert(WSAENOTCONN == 10057 && WSAESHUTDOWN == 10058 && WSAETIMEDOUT == 10060);
static_assert(WSAECONNREFUSED == 10061 && WSAELOOP == 10062 && WSAENAMETOOLONG == 10063);
static_assert(WSAEHOSTUNREACH == 10065 && WSANOTINITIALISED == 10093);
static_assert(WSAHOST_NOT_FOUND == 11001 && WSATRY_AGAIN == 11002 && WSANO_RECOVERY == 11003);

extern "C" ZBError __ZBIOErrorFromLastWinError(void) noexcept {
  return __ZBIOErrorFromWinError(GetLastError());
}
