/**
 * @file
 * ZBError.h: the one error space of the library.
 *
 * Every fallible function returns a ZBError: 0 is success, a negative value
 * names the failure. The numbers are part of the interface.
 *
 * From -56 on, the situation a code is returned for and the text describing
 * it stand one place apart, and both are kept so on purpose: -56 is returned
 * for address faults, -57 when ZBMutexTryAcquire finds the mutex held
 * elsewhere, -58 for releasing a mutex that is not held, -59 for a move
 * across devices, -60 for an invalid file name or an unconvertible path, and
 * -62 for a send after shutdown.
 */
#ifndef ZENBOR_ZBERROR_H
#define ZENBOR_ZBERROR_H

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

/** A status: 0 (ZBErrorNone) is success, a negative value names the failure. */
typedef int32_t ZBError;

/** The described codes, 0 to -61: XX(name, code, description). One list feeds
   the enumeration, the description table and the tests. */
#define ZB_ERROR_DESCRIBED_MAP(XX) \
  XX(None, 0, "Success") \
  XX(InvalidArgument, -1, "Invalid argument") \
  XX(NoMemory, -2, "Not enough memory") \
  XX(TimedOut, -3, "Operation timed out") \
  XX(FileNotFound, -4, "File not found") \
  XX(FileExists, -5, "File exists") \
  XX(ValueTooLarge, -6, "Value is too large") \
  XX(DeviceNotFound, -7, "Device not found") \
  XX(AccessDenied, -8, "Access denied") \
  XX(IsDirectory, -9, "Path names a directory") \
  XX(NotDirectory, -10, "Path does not name a directory") \
  XX(Interrupted, -11, "Interrupted") \
  XX(Loop, -12, "Loop detected") \
  XX(NoSpace, -13, "Not enough disk space") \
  XX(ReadOnlyFileSystem, -14, "File system is read-only") \
  XX(TooManyFiles, -15, "Too many files opened") \
  XX(WouldBlock, -16, "Operation would block") \
  XX(FileBusy, -17, "File is busy") \
  XX(IO, -18, "Input/Output error") \
  XX(NameTooLong, -19, "Path name too long") \
  XX(InvalidHandle, -20, "Invalid handle specified") \
  XX(Unsupported, -21, "Operation unsupported") \
  XX(NotImplemented, -22, "Operation not implemented") \
  XX(FileTooLarge, -23, "File is too large") \
  XX(FileLocked, -24, "File is locked") \
  XX(RacePrevented, -25, "Race prevented") \
  XX(Deadlock, -26, "Dead lock") \
  XX(TooManyLocks, -27, "Too many locks") \
  XX(NotPermitted, -28, "Operation not permitted") \
  XX(OutOfRange, -29, "Value out of range") \
  XX(NetworkDown, -30, "Network is down") \
  XX(InProgress, -31, "Operation is in progress") \
  XX(NotSocket, -32, "Handle is not a socket") \
  XX(DirectoryNotEmpty, -33, "Directory is not empty") \
  XX(TooManyLinks, -34, "Too many links") \
  XX(InvalidHandleType, -35, "Invalid handle type") \
  XX(NotConnected, -36, "Socket is not connected") \
  XX(BrokenPipe, -37, "Broken pipe") \
  XX(FamilyUnsupported, -38, "Socket family is not supported") \
  XX(BufferTooSmall, -39, "Buffer is too small") \
  XX(NotFound, -40, "Item not found") \
  XX(NoAddress, -41, "No address record found") \
  XX(AddressInUse, -42, "Address is already in use") \
  XX(ResourcesExhausted, -43, "System exhausted resources") \
  XX(Already, -44, "Operation is currently being executed") \
  XX(IsConnected, -45, "Socket is already connected") \
  XX(NetworkUnreachable, -46, "Network is unreachable") \
  XX(HostUnreachable, -47, "Host is unreachable") \
  XX(ConnectionRefused, -48, "Connection refused") \
  XX(ConnectionAborted, -49, "Connection aborted") \
  XX(ConnectionReset, -50, "Connection reset by peer") \
  XX(AddressNotAvailable, -51, "Address is not available") \
  XX(AddressRequired, -52, "Address is required") \
  XX(ProtocolUnsupported, -53, "Socket protocol is not supported") \
  XX(ProcessNotFound, -54, "Process not found") \
  XX(InvalidAddress, -55, "Invalid address specified") \
  XX(Busy, -56, "Resource is busy") \
  XX(NotOwner, -57, "Resource is not owned by the current thread") \
  XX(CrossDevice, -58, "Operation crosses device boundaries") \
  XX(InvalidFileName, -59, "Invalid file name specified") \
  XX(NotLocked, -60, "Resource not locked") \
  XX(Shutdown, -61, "Connection shutdown")

/** Codes without a description of their own. */
#define ZB_ERROR_UNDESCRIBED_MAP(XX) \
  XX(SendAfterShutdown, -62) \
  XX(SocketTypeUnsupported, -63) \
  XX(WrongProtocolType, -64) \
  XX(Generic, -100)

enum {
/** Turns each row of the lists into an enumerator; undefined after use. */
#define ZB_ERROR_DESCRIBED_ENUM(name, code, text) ZBError##name = code,
/** As ZB_ERROR_DESCRIBED_ENUM, for the codes without a description. */
#define ZB_ERROR_UNDESCRIBED_ENUM(name, code) ZBError##name = code,
  ZB_ERROR_DESCRIBED_MAP(ZB_ERROR_DESCRIBED_ENUM)
  ZB_ERROR_UNDESCRIBED_MAP(ZB_ERROR_UNDESCRIBED_ENUM)
#undef ZB_ERROR_DESCRIBED_ENUM
#undef ZB_ERROR_UNDESCRIBED_ENUM
  ZBErrorLowestDescribed = ZBErrorShutdown
};

/** The constant description of a code; never fails, never to be freed.
   Codes without a text of their own answer "Unknown Error" (above 0, below
   -100, -62 and -63) or "Generic Error" (-64 to -100). */
ZB_EXPORT const char *ZBErrorGetDescription(ZBError code) ZB_NOEXCEPT;

/** A four-character status word as text, for log messages: the four bytes,
   most significant first, when all are printable; else "%#08x". */
typedef struct ZBOSStatusText {
  char text[12]; /**< the text, zero-terminated */
} ZBOSStatusText;

/** @return `status` as text, as described for ZBOSStatusText. */
ZB_EXPORT ZBOSStatusText _ZBFormatOSStatus(uint32_t status) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBERROR_H */
