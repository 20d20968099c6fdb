/*
 * ZBFileDescriptor.h: POSIX-style file descriptors over the system's handles,
 * the stat-like file-information record and memory maps of descriptors.
 *
 * A descriptor is the system handle value itself: there is no table and no
 * wrapper, so a descriptor can be handed to the system and back. 0 and the
 * all-ones value are never valid. A socket is a descriptor too; the calls
 * that cannot apply to one answer ZBErrorUnsupported for it.
 *
 * Paths are the library's POSIX-style paths ("C:/dir/file", "/C:/dir/file"
 * is taken as "C:/dir/file"), UTF-8; they reach the system in the "\\?\"
 * long-path form, so they are not limited to 260 characters.
 */
#ifndef ZENBOR_ZBFILEDESCRIPTOR_H
#define ZENBOR_ZBFILEDESCRIPTOR_H

#include "ZBBase.h"
#include "ZBError.h"

ZB_EXTERN_C_BEGIN

/** A descriptor: the system handle (or socket) value, pointer-sized. */
typedef uintptr_t ZBFileDescriptor;

/** Open flags of ZBFileDescriptorOpen; the low two bits are the access. */
enum {
  ZBFileDescriptorOpenReadOnly = 0,
  ZBFileDescriptorOpenWriteOnly = 1,
  ZBFileDescriptorOpenReadWrite = 2, /* 3 also reads and writes */
  ZBFileDescriptorOpenCreate = 4,
  ZBFileDescriptorOpenTruncate = 8,
  ZBFileDescriptorOpenAppend = 16,
  ZBFileDescriptorOpenSynchronous = 32, /* write-through */
  ZBFileDescriptorOpenExclusive = 64,   /* with create: fail if it exists */
  ZBFileDescriptorOpenCloseOnExec = 0x200,
  ZBFileDescriptorOpenTemporary = 0x800,
  ZBFileDescriptorOpenNoFollow = 0x1000 /* open a final reparse point itself */
};

/** Seek origins of ZBFileDescriptorSeek. */
enum { ZBFileDescriptorSeekSet = 0, ZBFileDescriptorSeekCurrent = 1, ZBFileDescriptorSeekEnd = 2 };

/** The stat-like information record. Times are nanoseconds since the Unix
    epoch; the mode holds POSIX type and permission bits. */
typedef struct ZBFileInfo {
  uint64_t device;          /**< the volume serial number */
  uint64_t inode;           /**< the file ID */
  uint32_t mode;            /**< e.g. 0100644 for a file, 040755 for a directory */
  uint32_t linkCount;       /**< hard links to the file */
  uint32_t unused1[2];      /**< always 0 */
  int64_t size;             /**< bytes */
  int64_t allocatedSize;    /**< bytes */
  uint32_t blockSize;       /**< the virtual-memory page size */
  uint32_t unused2[5];      /**< always 0 */
  int64_t creationTime;     /**< ns since the Unix epoch */
  int64_t changeTime;       /**< ns since the Unix epoch */
  int64_t modificationTime; /**< ns since the Unix epoch */
  int64_t accessTime;       /**< ns since the Unix epoch */
} ZBFileInfo;

/** Field masks of ZBFileDescriptorGetInfo and ZBPathGetInfo. */
enum {
  ZBFileInfoMaskSize = 1,
  ZBFileInfoMaskMode = 2,
  ZBFileInfoMaskModificationTime = 4,
  ZBFileInfoMaskAccessTime = 8,
  ZBFileInfoMaskAll = 0xFFF, /* everything, with device and inode */
  ZBFileInfoMaskNoFollow = 0x1000
};

/** One block of ZBFileDescriptorWriteMany. */
typedef struct ZBFileDescriptorVector {
  const void *bytes; /**< the block's first byte */
  uint32_t count;    /**< the block's length in bytes */
} ZBFileDescriptorVector;

/** True unless `fd` is 0 or all ones. */
ZB_EXPORT bool ZBFileDescriptorIsValid(ZBFileDescriptor fd) ZB_NOEXCEPT;

/** Opens or creates the file at `path` with the ZBFileDescriptorOpen...
    `flags`; `mode` matters only in whether it has a write bit (0222): a
    created file without one is read-only. Stores the descriptor (0 on
    failure) in `outFD`.
    @return 0; ZBErrorInvalidArgument for an empty path or null argument;
    ZBErrorNotLocked when the path cannot be converted; else the mapped
    system error (ZBErrorFileNotFound, ZBErrorFileExists,
    ZBErrorAccessDenied, ...). */
ZB_EXPORT ZBError ZBFileDescriptorOpen(const char *path, uint32_t flags, uint16_t mode,
                                       ZBFileDescriptor *outFD) ZB_NOEXCEPT;

/** Replaces the run of "X" that ends just before the last `suffixLength`
    characters of `pattern` with random letters and digits (in place), then
    opens the file for reading and writing, created if absent, temporary and
    not inherited. An existing file of the resulting name is opened.
    @return as ZBFileDescriptorOpen; ZBErrorInvalidArgument for an empty
    pattern. */
ZB_EXPORT ZBError ZBFileDescriptorCreateTemporary(char *pattern, uint32_t suffixLength,
                                                  ZBFileDescriptor *outFD) ZB_NOEXCEPT;

/** Not available on this platform: counted as not implemented.
    @return ZBErrorInvalidArgument (-1), always. */
ZB_EXPORT ZBError ZBFileDescriptorOpenNull(ZBFileDescriptor *outFD) ZB_NOEXCEPT;

/** Not available on this platform: counted as not implemented.
    @return ZBErrorIO, always. */
ZB_EXPORT ZBError ZBFileDescriptorCreatePipe(ZBFileDescriptor outPair[2]) ZB_NOEXCEPT;

/** Duplicates `fd` into `outFD`, inheritable by child processes or not.
    @return 0; ZBErrorInvalidHandle for an invalid descriptor;
    ZBErrorInvalidArgument for a null `outFD`; ZBErrorGeneric when the
    system refuses. */
ZB_EXPORT ZBError ZBFileDescriptorDuplicate(ZBFileDescriptor fd, bool inheritable,
                                            ZBFileDescriptor *outFD) ZB_NOEXCEPT;

/** Closes `fd`; a failure of the system's close is not reported.
    @return 0; ZBErrorInvalidHandle for an invalid descriptor. */
ZB_EXPORT ZBError ZBFileDescriptorClose(ZBFileDescriptor fd) ZB_NOEXCEPT;

/** Reads up to `count` bytes at the current position. Reading at the end
    of the file succeeds with 0 bytes. `outBytesRead` may be null.
    @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument for a null
    buffer; else the mapped system error. */
ZB_EXPORT ZBError ZBFileDescriptorRead(ZBFileDescriptor fd, void *buffer, uint32_t count,
                                       uint32_t *outBytesRead) ZB_NOEXCEPT;

/** Reads up to `count` bytes at `offset` (the current position is not a
    parameter of the read). `outBytesRead` may be null.
    @return 0; ZBErrorInvalidHandle; ZBErrorOutOfRange for a negative
    offset; ZBErrorUnsupported for a socket; ZBErrorInvalidArgument for a
    null buffer; else the mapped system error. */
ZB_EXPORT ZBError ZBFileDescriptorReadAt(ZBFileDescriptor fd, void *buffer, uint32_t count,
                                         int64_t offset, uint32_t *outBytesRead) ZB_NOEXCEPT;

/** Writes `count` bytes at the current position (at the end when opened
    for appending). `outBytesWritten` may be null.
    @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument for a null
    buffer; else the mapped system error. */
ZB_EXPORT ZBError ZBFileDescriptorWrite(ZBFileDescriptor fd, const void *buffer, uint32_t count,
                                        uint32_t *outBytesWritten) ZB_NOEXCEPT;

/** Writes `count` bytes at `offset`. `outBytesWritten` may be null.
    @return 0; ZBErrorInvalidHandle; ZBErrorOutOfRange for a negative
    offset; ZBErrorInvalidArgument for a null buffer; else the mapped
    system error. */
ZB_EXPORT ZBError ZBFileDescriptorWriteAt(ZBFileDescriptor fd, const void *buffer, uint32_t count,
                                          int64_t offset, uint32_t *outBytesWritten) ZB_NOEXCEPT;

/** Writes the `vectorCount` blocks in order; a short write ends the run
    with success. `outTotal` (optional) receives the bytes written.
    @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument for null
    vectors; else the mapped system error of the failing write. */
ZB_EXPORT ZBError ZBFileDescriptorWriteMany(ZBFileDescriptor fd, uint32_t vectorCount,
                                            const ZBFileDescriptorVector *vectors,
                                            uint64_t *outTotal) ZB_NOEXCEPT;

/** Moves the position by `offset` from `whence` (ZBFileDescriptorSeek...);
    `outPosition` (optional) receives the new position.
    @return 0; ZBErrorInvalidHandle; ZBErrorUnsupported for a socket;
    ZBErrorInvalidArgument for a whence above 2; else the mapped system
    error. */
ZB_EXPORT ZBError ZBFileDescriptorSeek(ZBFileDescriptor fd, int64_t offset, int64_t *outPosition,
                                       uint32_t whence) ZB_NOEXCEPT;

/** The file's size in bytes.
    @return 0; ZBErrorInvalidHandle for an invalid descriptor or when the
    size cannot be read; ZBErrorUnsupported for a socket;
    ZBErrorInvalidArgument for a null `outSize`. */
ZB_EXPORT ZBError ZBFileDescriptorGetSize(ZBFileDescriptor fd, int64_t *outSize) ZB_NOEXCEPT;

/** Sets the file's length. A position below the new length stays; one
    beyond it ends at the new end.
    @return 0; ZBErrorInvalidArgument for a negative length or an invalid
    descriptor; ZBErrorUnsupported for a socket; ZBErrorIO when the end
    cannot be set; else the mapped system error. */
ZB_EXPORT ZBError ZBFileDescriptorTruncate(ZBFileDescriptor fd, int64_t length) ZB_NOEXCEPT;

/** Sets the file's times (nanoseconds since the Unix epoch). A null access
    or modification time means now; a null creation time is left alone.
    @return 0; ZBErrorInvalidHandle; else the mapped system error. */
ZB_EXPORT ZBError ZBFileDescriptorSetHRTimes(ZBFileDescriptor fd, const int64_t *creationTime,
                                             const int64_t *accessTime,
                                             const int64_t *modificationTime) ZB_NOEXCEPT;

/** True when the system reports `fd` as a pipe. */
ZB_EXPORT bool ZBFileDescriptorIsIPC(ZBFileDescriptor fd) ZB_NOEXCEPT;

/** True when `fd` is taken for a socket (the system reports a pipe; real
    pipes are taken for sockets too); false for an invalid descriptor. */
ZB_EXPORT bool ZBFileDescriptorIsSocket(ZBFileDescriptor fd) ZB_NOEXCEPT;

/** True for a character device or a pipe. */
ZB_EXPORT bool ZBFileDescriptorIsTTY(ZBFileDescriptor fd) ZB_NOEXCEPT;

/** The bytes that can be read without blocking: for a file, what lies
    between the position and the end, never more than 4096; for a socket,
    what the socket holds.
    @return 0; ZBErrorInvalidHandle; ZBErrorUnsupported when the position or
    size cannot be read; ZBErrorInvalidArgument for a null `outCount`; for
    a socket the socket layer's error. */
ZB_EXPORT ZBError ZBFileDescriptorGetPendingBytesCount(ZBFileDescriptor fd,
                                                       uint32_t *outCount) ZB_NOEXCEPT;

/** Fills `outInfo` (zeroed first). A `mask` of exactly ZBFileInfoMaskSize
    reads the size only; a mask with its low twelve bits set also reads
    device and inode; any other mask fills everything else.
    @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument for a null
    record; else the mapped system error. */
ZB_EXPORT ZBError ZBFileDescriptorGetInfo(ZBFileDescriptor fd, ZBFileInfo *outInfo,
                                          uint32_t mask) ZB_NOEXCEPT;

/** Writes the file's buffered data to the device.
    @return 0; ZBErrorInvalidHandle; else the mapped system error. */
ZB_EXPORT ZBError ZBFileDescriptorSynchronize(ZBFileDescriptor fd) ZB_NOEXCEPT;

/** Makes the descriptor not inherited (`closeOnExec` true) or inherited.
    @return 0; ZBErrorInvalidHandle; else the mapped system error. */
ZB_EXPORT ZBError ZBFileDescriptorSetCloseOnExec(ZBFileDescriptor fd, bool closeOnExec) ZB_NOEXCEPT;

/** Whether the descriptor is not inherited by child processes.
    @return 0; ZBErrorInvalidHandle; ZBErrorInvalidArgument for a null
    `outCloseOnExec`; else the mapped system error. */
ZB_EXPORT ZBError ZBFileDescriptorGetCloseOnExec(ZBFileDescriptor fd,
                                                 bool *outCloseOnExec) ZB_NOEXCEPT;

/** Not available on this platform: counted as not implemented; no lock is
    taken.
    @return 0, always. */
ZB_EXPORT ZBError ZBFileDescriptorLock(ZBFileDescriptor fd, int32_t operation, int64_t start,
                                       int64_t length) ZB_NOEXCEPT;

/** Not available on this platform: counted as not implemented.
    @return ZBErrorShutdown, always. */
ZB_EXPORT ZBError ZBFileDescriptorGetLock(ZBFileDescriptor fd, int32_t operation, int64_t start,
                                          int64_t length, int32_t *outProcessID) ZB_NOEXCEPT;

/** Not available on this platform: counted as not implemented.
    @return 0 (no descriptor), always. */
ZB_EXPORT ZBFileDescriptor ZBFileDescriptorFromStdIn(void) ZB_NOEXCEPT;
/** Not available on this platform: counted as not implemented.
    @return 0 (no descriptor), always. */
ZB_EXPORT ZBFileDescriptor ZBFileDescriptorFromStdOut(void) ZB_NOEXCEPT;
/** Not available on this platform: counted as not implemented.
    @return 0 (no descriptor), always. */
ZB_EXPORT ZBFileDescriptor ZBFileDescriptorFromStdErr(void) ZB_NOEXCEPT;

/** Not available on this platform: counted as not implemented.
    @return ZBErrorNotImplemented, always. */
ZB_EXPORT ZBError ZBFileDescriptorCopyPath(ZBFileDescriptor fd, char **outPath) ZB_NOEXCEPT;

/** Uncached I/O cannot be switched on an open handle here; a true `noCache`
    is counted as not implemented.
    @return ZBErrorUnsupported, always. */
ZB_EXPORT ZBError ZBFileDescriptorSetNoCache(ZBFileDescriptor fd, bool noCache) ZB_NOEXCEPT;

/** Fills `outInfo` for the file or directory at `path`. Size, mode,
    modification and access time (masks 1, 2, 4, 8) come from the
    attributes; any other bit opens the path and reads everything as
    ZBFileDescriptorGetInfo does. Bit 0x1000 is ignored.
    @return 0; ZBErrorInvalidArgument for an empty path or null record;
    ZBErrorNoMemory when the path cannot be converted; else the mapped
    system error (ZBErrorFileNotFound, ...). */
ZB_EXPORT ZBError ZBPathGetInfo(const char *path, ZBFileInfo *outInfo, uint32_t mask) ZB_NOEXCEPT;

/** The modification time (nanoseconds since the Unix epoch) of `path`.
    @return 0, or the ZBError of ZBPathGetInfo. */
ZB_EXPORT ZBError ZBPathGetMTime(const char *path, int64_t *outTime) ZB_NOEXCEPT;

/** The POSIX mode of `path` (0100644, 0100444, 040755, ...).
    @return 0, or the ZBError of ZBPathGetInfo. */
ZB_EXPORT ZBError ZBPathGetFileMode(const char *path, uint32_t *outMode) ZB_NOEXCEPT;

/** A mapping of a descriptor's bytes into memory: the bytes, their count
    and the system's mapping object, in this order. */
typedef struct ZBMmap {
  void *bytes;     /**< the first mapped byte of the asked range */
  uint32_t length; /**< the mapped length in bytes */
  void *mapping;   /**< the system's mapping object */
} ZBMmap;

/** Flags of ZBMmapCreateWithFD: the low three bits are the protection. */
enum {
  ZBMmapProtectionRead = 1,
  ZBMmapProtectionWrite = 2,
  ZBMmapProtectionExecute = 4,
  ZBMmapShared = 0x100 /* without it the mapping is private (copy on write) */
};

/** Maps `length` bytes of `fd` from `offset` (a multiple of the page size;
    a length of 0xFFFFFFFF maps the whole file) and stores a new record in
    `outMap`, freed with ZBMmapFree. A shared mapping allows read (1) or
    read and write (3) only.
    @return 0; ZBErrorInvalidArgument for a null `outMap`, a zero length, an
    invalid descriptor or a range outside the file; ZBErrorUnsupported for a
    protection the mapping kind cannot have; ZBErrorNoMemory;
    ZBErrorFileNotFound, ZBErrorAccessDenied, ZBErrorReadOnlyFileSystem,
    ZBErrorFileBusy, ZBErrorDirectoryNotEmpty, ZBErrorFileExists or
    ZBErrorGeneric from the system. */
ZB_EXPORT ZBError ZBMmapCreateWithFD(ZBFileDescriptor fd, int64_t offset, uint32_t length,
                                     uint32_t flags, ZBMmap **outMap) ZB_NOEXCEPT;

/** The mapped bytes. */
ZB_EXPORT void *ZBMmapGetBytes(ZBMmap *map) ZB_NOEXCEPT;

/** The number of mapped bytes. */
ZB_EXPORT uint32_t ZBMmapGetSize(ZBMmap *map) ZB_NOEXCEPT;

/** With a true `synchronous`, writes the mapped bytes back to the file.
    @return 0; ZBErrorGeneric when the system refuses. */
ZB_EXPORT ZBError ZBMmapSynchronize(ZBMmap *map, bool synchronous) ZB_NOEXCEPT;

/** Unmaps and frees the record.
    @return 0. */
ZB_EXPORT ZBError ZBMmapFree(ZBMmap *map) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBFILEDESCRIPTOR_H */
