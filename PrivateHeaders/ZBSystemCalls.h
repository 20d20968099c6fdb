// The one table of the Windows and Winsock calls that can fail in ways worth
// testing. The library calls them through zb::gSystemCalls; every entry
// defaults to the real system function. Tests that link the static library
// swap an entry to inject an error that the system under test cannot
// produce (a sharing violation, a full disk, WSAEWOULDBLOCK), then restore
// it. Included by Sources/Win32 and Sources/BSD only.
//
// Each family keeps its rows in its own section of ZB_SYSTEM_CALLS; a row is
// the system function's name, and the entry has that function's exact type.
#pragma once

#include <winsock2.h>
#include <ws2tcpip.h>
#include <windows.h>
#include <bcrypt.h>

#include <cstdio>

// clang-format off
#define ZB_SYSTEM_CALLS(X)                                                      \
  /* Paths */                                                                   \
  X(GetFileAttributesW)                                                         \
  X(SetFileAttributesW)                                                         \
  X(GetCurrentDirectoryW)                                                       \
  X(GetFullPathNameW)                                                           \
                                                                                \
  /* Descriptors, files and directories */                                      \
  X(CreateFileW)                                                                \
  X(ReadFile)                                                                   \
  X(WriteFile)                                                                  \
  X(SetFilePointerEx)                                                           \
  X(GetFileSizeEx)                                                              \
  X(SetEndOfFile)                                                               \
  X(SetFileInformationByHandle)                                                 \
  X(GetFileInformationByHandleEx)                                               \
  X(GetFileInformationByHandle)                                                 \
  X(SetFileTime)                                                                \
  X(FlushFileBuffers)                                                           \
  X(GetHandleInformation)                                                       \
  X(SetHandleInformation)                                                       \
  X(DuplicateHandle)                                                            \
  X(CreateDirectoryW)                                                           \
  X(RemoveDirectoryW)                                                           \
  X(DeleteFileW)                                                                \
  X(MoveFileExW)                                                                \
  X(FindFirstFileExW)                                                           \
  X(CreateFileMappingFromApp)                                                   \
  X(MapViewOfFileFromApp)                                                       \
  X(FlushViewOfFile)                                                            \
                                                                                \
                                                                                \
  /* Environment and application directories */                                 \
  X(GetModuleFileNameW)                                                         \
  X(gethostname)                                                                \
  X(BCryptGenRandom)                                                            \
  X(WideCharToMultiByte)                                                        \
                                                                                \
                                                                                \
  /* Sockets */                                                                 \
  X(WSAStartup)                                                                 \
  X(WSAIoctl)                                                                   \
  X(socket)                                                                     \
  X(closesocket)                                                                \
  X(ioctlsocket)                                                                \
  X(bind)                                                                       \
  X(listen)                                                                     \
  X(getsockname)                                                                \
  X(getpeername)                                                                \
  X(accept)                                                                     \
  X(connect)                                                                    \
  X(send)                                                                       \
  X(recv)                                                                       \
  X(sendto)                                                                     \
  X(recvfrom)                                                                   \
  X(WSARecv)                                                                    \
  X(WSASend)                                                                    \
  X(select)                                                                     \
  X(getsockopt)                                                                 \
  X(setsockopt)                                                                 \
  X(shutdown)                                                                   \
  X(WSAEventSelect)                                                             \
  X(WSADuplicateSocketW)                                                        \
  X(WSASocketW)                                                                 \
  X(getaddrinfo)                                                                \
  X(gethostbyname)                                                              \
  X(getnameinfo)                                                                \
  X(GetOverlappedResultEx)                                                      \
  X(CancelIoEx)                                                                 \
                                                                                \
                                                                                \
  /* Streams (zone files, the log's configuration file) */                     \
  X(_wfopen)                                                                    \
                                                                                \
  /* Processes */                                                               \
  X(CreatePipe)                                                                 \
  X(CreateProcessW)                                                             \
  X(CreateJobObjectW)                                                           \
  X(WaitForSingleObject)                                                        \
  X(TerminateProcess)                                                           \
                                                                                \
  /* Time zones */                                                              \
  X(GetDynamicTimeZoneInformation)                                              \
  X(EnumDynamicTimeZoneInformation)                                             \
  X(GetDynamicTimeZoneInformationEffectiveYears)                                \
  X(GetTimeZoneInformationForYear)                                              \
                                                                                \
                                                                                \
  /* Virtual memory and mirrored mappings */                                    \
  X(VirtualAlloc)                                                               \
  X(VirtualFree)                                                                \
  X(VirtualProtect)                                                             \
  X(CreateFileMappingW)                                                         \
  X(MapViewOfFileEx)                                                            \
  X(UnmapViewOfFile)                                                            \
                                                                                \
                                                                                \
  /* Dynamic libraries and images */                                            \
  X(LoadLibraryExW)                                                             \
  X(GetModuleHandleExW)                                                         \
                                                                                \
// clang-format on

namespace zb {

struct SystemCalls {
#define ZB_SYSTEM_CALL_ENTRY(name) decltype(&::name) name;
  ZB_SYSTEM_CALLS(ZB_SYSTEM_CALL_ENTRY)
#undef ZB_SYSTEM_CALL_ENTRY
};

// The live table. Written only by tests, before the calls they aim at.
extern SystemCalls gSystemCalls;

} // namespace zb
