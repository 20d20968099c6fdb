/*
 * ZBProcess.h: the calling process: its identity, executable, arguments and
 * memory use, and the pipes that connect it with the programs it starts.
 */
#ifndef ZENBOR_ZBPROCESS_H
#define ZENBOR_ZBPROCESS_H

#include "ZBBase.h"
#include "ZBError.h"
#include "ZBFileDescriptor.h"

ZB_EXTERN_C_BEGIN

/**
 * The calling process's executable name without its folder and without its
 * extension (the text after the last "."), so "C:\\apps\\viewer.exe" gives
 * "viewer" and "tool.v2.exe" gives "tool.v2".
 *
 * @return a new UTF-8 string from the default zone, released with _ZBFree;
 *         null when the system cannot name the executable or memory runs out.
 */
ZB_EXPORT char *ZBProcessCopyCurrentName(void) ZB_NOEXCEPT;

/**
 * The calling process's executable as a full path in the library's style
 * ("C:/apps/viewer.exe"), read once when the library loads.
 *
 * @return a new UTF-8 string from the default zone, released with _ZBFree;
 *         null when the system cannot name the executable or memory runs out.
 */
ZB_EXPORT char *ZBProcessCopyCurrentPath(void) ZB_NOEXCEPT;

/**
 * The calling process's command line as UTF-8 arguments, split as the
 * Microsoft C runtime splits it for main(): argv[0] ends at the first blank
 * outside quotes and keeps its backslashes; in the others 2n backslashes
 * before a quote give n and the quote opens or closes a quoted part, 2n+1
 * give n and a literal quote, and "" inside a quoted part is a literal quote.
 *
 * @param outCount receives the number of arguments.
 * @param outArguments receives one block from the default zone, released
 *        with _ZBFree: the null-terminated array followed by its strings.
 * @return ZBErrorNone; ZBErrorInvalidArgument when an out pointer is null;
 *         ZBErrorNoMemory when memory runs out.
 */
ZB_EXPORT ZBError ZBProcessCopyArguments(uint32_t *outCount, char ***outArguments) ZB_NOEXCEPT;

/**
 * The calling process's system identifier.
 *
 * @return the process ID, which is never 0 for a running process.
 */
ZB_EXPORT uint32_t ZBProcessGetCurrentID(void) ZB_NOEXCEPT;

/** The calling process's memory use, in bytes. */
typedef struct ZBProcessMemoryUsage {
  uint64_t residentBytes;     /**< the working set: pages now in physical memory */
  uint64_t peakResidentBytes; /**< the largest working set so far */
  uint64_t privateBytes;      /**< memory committed to this process alone */
} ZBProcessMemoryUsage;

/**
 * Measures the calling process's memory use.
 *
 * @param out receives the figures.
 * @return ZBErrorNone; ZBErrorInvalidArgument when `out` is null;
 *         ZBErrorGeneric when the system cannot report them.
 */
ZB_EXPORT ZBError ZBProcessGetMemoryUsage(ZBProcessMemoryUsage *out) ZB_NOEXCEPT;

/**
 * Creates an anonymous pipe. Neither end is inheritable: starting a program
 * passes on only the descriptors it is given. A read from the read end once
 * every write end is closed is the end of the file (0 bytes, ZBErrorNone).
 *
 * @param outPair receives the read end in [0] and the write end in [1], both
 *        for ZBFileDescriptorRead, ZBFileDescriptorWrite and
 *        ZBFileDescriptorClose; untouched on failure.
 * @return ZBErrorNone; ZBErrorInvalidArgument when `outPair` is null;
 *         ZBErrorTooManyFiles or ZBErrorNoMemory when the system has no
 *         room for another pipe; ZBErrorGeneric for other failures.
 */
ZB_EXPORT ZBError ZBProcessCreatePipe(ZBFileDescriptor outPair[2]) ZB_NOEXCEPT;

/** A program the library started; see ZBProcessSpawn. */
typedef struct ZBProcess ZBProcess;

/** Flags of ZBProcessAttributes. */
enum {
  /** Not killed with the parent, in a console process group of its own. */
  ZBProcessSpawnDetached = 1,
  /** The child's first window starts hidden. */
  ZBProcessSpawnHideWindow = 2,
  /** The child leads a new console process group (Ctrl+C does not reach it). */
  ZBProcessSpawnNewProcessGroup = 4,
  /** A path without "/" is looked up in the PATH of the child's environment. */
  ZBProcessSpawnSearchPath = 8,
  /** Batch files (".bat", ".cmd") may run, through cmd.exe. */
  ZBProcessSpawnAllowBatchFiles = 16
};

/** How a child starts; all zero gives the parent's directory and descriptors. */
typedef struct ZBProcessAttributes {
  const char *workingDirectory;      /**< null: the parent's */
  ZBFileDescriptor standardInput;    /**< 0: the parent's, else the null device */
  ZBFileDescriptor standardOutput;   /**< 0: the parent's, else the null device */
  ZBFileDescriptor standardError;    /**< 0: the parent's, else the null device */
  const ZBFileDescriptor *inherited; /**< more descriptors the child receives, same values */
  uint32_t inheritedCount;           /**< the number of `inherited` */
  uint32_t flags;                    /**< ZBProcessSpawn... flags */
} ZBProcessAttributes;

/**
 * Starts a program. The child receives its three standard descriptors and
 * the listed ones, and nothing else the parent holds. Unless it is detached
 * it dies with the parent, even when the parent crashes.
 *
 * @param path the program, in the library's path style.
 * @param arguments null-terminated; arguments[0] becomes the child's argv[0].
 *        They are quoted so that the child's C runtime gives back exactly
 *        this array.
 * @param environment null-terminated "NAME=value" entries, or null for the
 *        library's environment. QUOVEX_CHILDPROCESS=1 is added, and the
 *        system variables programs need where the entries lack them.
 * @param attributes may be null.
 * @param outProcess receives the child, released with ZBProcessFree.
 * @return ZBErrorNone; ZBErrorInvalidArgument for a null or empty path, null
 *         arguments or out pointer, an unknown flag, text that is not UTF-8
 *         or an argument that a batch file could not receive safely;
 *         ZBErrorInvalidHandle for an invalid descriptor; ZBErrorFileNotFound
 *         when the program does not exist; ZBErrorUnsupported for a batch
 *         file without ZBProcessSpawnAllowBatchFiles; ZBErrorNameTooLong when
 *         the command line exceeds 32,766 UTF-16 units; ZBErrorAccessDenied,
 *         ZBErrorNoMemory or another file code when the system refuses.
 */
ZB_EXPORT ZBError ZBProcessSpawn(const char *path, const char *const *arguments,
                                 const char *const *environment,
                                 const ZBProcessAttributes *attributes,
                                 ZBProcess **outProcess) ZB_NOEXCEPT;

/**
 * Waits for a child to exit. Once it has, every call answers at once.
 *
 * @param timeoutNanoseconds negative waits for ever, 0 only looks.
 * @param outExitCode may be null; receives the exit code, which for a
 *        crashed child is its exception code (0xC0000005 and so on).
 * @return ZBErrorNone; ZBErrorTimedOut when the child still runs;
 *         ZBErrorInvalidArgument when `process` is null.
 */
ZB_EXPORT ZBError ZBProcessWait(ZBProcess *process, int64_t timeoutNanoseconds,
                                uint32_t *outExitCode) ZB_NOEXCEPT;

/**
 * Ends a child at once with `exitCode`.
 *
 * @return ZBErrorNone; ZBErrorProcessNotFound when it has already exited;
 *         ZBErrorInvalidArgument when `process` is null; ZBErrorAccessDenied
 *         when the system refuses.
 */
ZB_EXPORT ZBError ZBProcessTerminate(ZBProcess *process, uint32_t exitCode) ZB_NOEXCEPT;

/**
 * The child's system process ID.
 *
 * @return the ID, or 0 when `process` is null.
 */
ZB_EXPORT uint32_t ZBProcessGetID(const ZBProcess *process) ZB_NOEXCEPT;

/** Releases the record of a child; the child itself runs on. Null is ignored. */
ZB_EXPORT void ZBProcessFree(ZBProcess *process) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBPROCESS_H */
