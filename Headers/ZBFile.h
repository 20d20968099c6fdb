/*
 * ZBFile.h: whole files and directories by path: scanning, creation,
 * removal (also of whole trees), temporaries, copies, moves and times.
 *
 * Paths are the library's POSIX-style UTF-8 paths ("C:/dir/file"; a
 * leading "/" before a drive letter is dropped); the system receives them in
 * the "\\?\" long-path form, so they may be longer than 260 characters.
 * Every function answers ZBErrorInvalidArgument for an empty or null path.
 */
#ifndef ZENBOR_ZBFILE_H
#define ZENBOR_ZBFILE_H

#include "ZBBase.h"
#include "ZBError.h"
#include "ZBFileDescriptor.h"

ZB_EXTERN_C_BEGIN

/** Entry type bits handed to a scan callback. */
enum { ZBDirectoryEntryDirectory = 1, ZBDirectoryEntryLink = 2 };

/** Scan orders: the callback before or after the scan of a subdirectory;
    any other order walks the tree without calling it. */
enum { ZBDirectoryScanPreOrder = 0, ZBDirectoryScanPostOrder = 1 };

/** Called for each entry with the directory path as given to the scan, the
    entry's name (a string the scan frees after the call: copy it to keep
    it), its depth (0 for the scanned directory's own entries) and its
    ZBDirectoryEntry... bits. Returning false stops the scan of that
    directory. */
typedef bool (*ZBDirectoryScanCallback)(void *context, const char *directory, const char *name,
                                        int32_t depth, uint32_t type);

/** Scans `path` in pre-order, descending while depth + 1 < `maximumDepth`
    (a negative maximum is unlimited). A stop inside a subdirectory ends only
    that subdirectory.
    @return true when the directory could be opened (also when stopped). */
ZB_EXPORT bool ZBDirectoryScan(const char *path, ZBDirectoryScanCallback callback,
                               int32_t maximumDepth, void *context) ZB_NOEXCEPT;

/** ZBDirectoryScan with the order given (ZBDirectoryScanPreOrder or
    ZBDirectoryScanPostOrder; any other value never calls the callback).
    @return true when the directory could be opened (also when stopped). */
ZB_EXPORT bool ZBDirectoryScanOrdered(const char *path, ZBDirectoryScanCallback callback,
                                      int32_t maximumDepth, void *context,
                                      uint32_t order) ZB_NOEXCEPT;

/** Creates the directory; without the owner-write bit (0200) in `mode` it
    is made read-only.
    @return 0; ZBErrorInvalidArgument; ZBErrorNoMemory; ZBErrorFileNotFound
    when a parent is missing; ZBErrorNotDirectory when a parent is a file;
    ZBErrorAccessDenied; ZBErrorReadOnlyFileSystem; ZBErrorFileExists;
    ZBErrorGeneric. */
ZB_EXPORT ZBError ZBDirectoryCreate(const char *path, uint16_t mode) ZB_NOEXCEPT;

/** Creates the directory and every missing parent: the last one with
    `mode`, the others with `intermediateMode`. Existing directories are
    fine; access denied on an intermediate one is tolerated.
    @return 0; ZBErrorGeneric when the path cannot be split; ZBErrorNoMemory;
    else the code of the step that stopped (as ZBDirectoryCreate). */
ZB_EXPORT ZBError ZBDirectoryCreateNested(const char *path, uint16_t mode,
                                          uint16_t intermediateMode) ZB_NOEXCEPT;

/** Removes the empty directory, clearing a read-only attribute if that is
    what refuses it.
    @return 0; ZBErrorInvalidArgument; ZBErrorNoMemory; ZBErrorFileNotFound;
    ZBErrorAccessDenied; ZBErrorReadOnlyFileSystem; ZBErrorFileExists;
    ZBErrorDirectoryNotEmpty; ZBErrorFileBusy; ZBErrorGeneric. */
ZB_EXPORT ZBError ZBDirectoryRemove(const char *path) ZB_NOEXCEPT;

/** Removes the directory with everything in it, read-only files too. An
    absent path is not an error.
    @return 0; the first removal's error; ZBErrorGeneric when the
    directory cannot be listed. */
ZB_EXPORT ZBError ZBDirectoryRemoveRecursive(const char *path) ZB_NOEXCEPT;

/** Replaces the last six characters of `pattern` (at least six long and
    ending in "X") with random letters and digits, in place, and creates
    that directory with mode 0755.
    @return 0; ZBErrorInvalidArgument for a bad pattern; else as
    ZBDirectoryCreate. */
ZB_EXPORT ZBError ZBDirectoryCreateTemporary(char *pattern) ZB_NOEXCEPT;

/** Creates a directory named after `pattern` (as ZBDirectoryCreateTemporary
    fills it in) inside the application temporary directory
    (ZBEnvironmentCopyAppTemporaryDirectory). On success the new directory's
    path goes to `outPath` when given (a new string, released with _ZBFree).
    @return 0; ZBErrorInvalidArgument for a null or bad pattern;
    ZBErrorNoMemory when there is no application temporary directory or the
    path cannot be made; else as ZBDirectoryCreate. */
ZB_EXPORT ZBError ZBDirectoryCreateTemporaryInTempDir(const char *pattern,
                                                      char **outPath) ZB_NOEXCEPT;

/** Replaces the file at `path` with the `length` bytes (a new file, made
    read-only when `mode` has no write bit).
    @return 0; ZBErrorInvalidArgument; ZBErrorNoSpace for a short write;
    else the error of the removal, open or write. */
ZB_EXPORT ZBError ZBFileCreateFromBytes(const void *bytes, size_t length, const char *path,
                                        uint16_t mode) ZB_NOEXCEPT;

/** Copies the file `source` to `destination` (replaced; created with
    `mode`). A copy onto the same file does nothing.
    @return 0; ZBErrorInvalidArgument; ZBErrorNoMemory; ZBErrorNoSpace for
    a short write; else the error of the open, removal, read or write. */
ZB_EXPORT ZBError ZBFileCopy(const char *source, const char *destination,
                             uint16_t mode) ZB_NOEXCEPT;

/** True when both paths name the same file (equal ignoring case, or the
    same device and file ID). */
ZB_EXPORT bool ZBFileIsSame(const char *first, const char *second) ZB_NOEXCEPT;

/** ZBFileDescriptorCreateTemporary; without `outFD` the descriptor is
    closed at once and the file stays.
    @return 0, or the ZBError of ZBFileDescriptorCreateTemporary
    (ZBErrorInvalidArgument for an empty pattern, ...). */
ZB_EXPORT ZBError ZBFileCreateTemporary(char *pattern, uint32_t suffixLength,
                                        ZBFileDescriptor *outFD) ZB_NOEXCEPT;

/** Removes the file, clearing a read-only attribute if that is what
    refuses it.
    @return 0; ZBErrorInvalidArgument; ZBErrorNoMemory; ZBErrorFileNotFound;
    ZBErrorAccessDenied; ZBErrorIsDirectory; ZBErrorReadOnlyFileSystem;
    ZBErrorFileBusy; ZBErrorNotLocked for an invalid name; ZBErrorGeneric. */
ZB_EXPORT ZBError ZBFileRemove(const char *path) ZB_NOEXCEPT;

/** Moves (renames) `source` to `destination`, replacing it. `flags` is not
    used.
    @return 0; ZBErrorInvalidArgument; ZBErrorFileNotFound;
    ZBErrorAccessDenied; ZBErrorReadOnlyFileSystem; ZBErrorFileBusy;
    ZBErrorInvalidFileName across devices; ZBErrorGeneric. */
ZB_EXPORT ZBError ZBFileMove(const char *source, const char *destination,
                             uint32_t flags) ZB_NOEXCEPT;

/** Sets the access and modification times (nanoseconds since the Unix
    epoch; null means now) of the file at `path`.
    @return 0; ZBErrorInvalidArgument; else the error of the open or of
    setting the times. */
ZB_EXPORT ZBError ZBFileSetAccessAndMotificationHRTimes(
    const char *path, const int64_t *accessTime, const int64_t *modificationTime) ZB_NOEXCEPT;

/** Sets the creation time of the file at `path`; its access and
    modification times become now as well.
    @return 0; ZBErrorInvalidArgument; else the error of the open or of
    setting the times. */
ZB_EXPORT ZBError ZBFileSetCreationHRTime(const char *path,
                                          const int64_t *creationTime) ZB_NOEXCEPT;

/** ZBFileSetAccessAndMotificationHRTimes for a link itself rather than
    what it points to.
    @return 0, or the ZBError of ZBFileSetAccessAndMotificationHRTimes
    (ZBErrorInvalidArgument for an empty path, ...). */
ZB_EXPORT ZBError ZBLinkSetAccessAndMotificationHRTimes(
    const char *path, const int64_t *accessTime, const int64_t *modificationTime) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBFILE_H */
