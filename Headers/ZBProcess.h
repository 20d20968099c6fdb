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

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBPROCESS_H */
