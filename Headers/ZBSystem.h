/*
 * ZBSystem.h: the machine the process runs on: processors, memory, the
 * operating system's version, and whether a compatibility layer runs it.
 */
#ifndef ZENBOR_ZBSYSTEM_H
#define ZENBOR_ZBSYSTEM_H

#include "ZBBase.h"
#include "ZBError.h"

ZB_EXTERN_C_BEGIN

/** The machine's figures; see ZBSystemGetInfo. */
typedef struct ZBSystemInfo {
  uint32_t logicalProcessorCount;   /**< across all processor groups */
  uint32_t availableProcessorCount; /**< those this process may run on */
  uint32_t coreCount;               /**< physical cores */
  uint32_t packageCount;            /**< processor packages (sockets) */
  uint32_t pageSize;                /**< bytes of a virtual-memory page */
  uint32_t allocationGranularity;   /**< alignment of virtual reservations */
  uint64_t physicalMemoryBytes;     /**< installed memory the system uses */
  uint64_t availableMemoryBytes;    /**< memory free now */
  uint32_t osMajorVersion;          /**< 10 for Windows 10 and 11 */
  uint32_t osMinorVersion;          /**< the minor version */
  uint32_t osBuildNumber;           /**< 22000 and up for Windows 11 */
  char architecture[16];            /**< "x86_64", "arm64", "x86" or "arm" */
} ZBSystemInfo;

/**
 * Fills `out` with the machine's figures. All but the available memory are
 * read once, when the library loads; the operating system's version is the
 * true one, whatever compatibility mode the executable asks for.
 *
 * @return ZBErrorNone; ZBErrorInvalidArgument when `out` is null.
 */
ZB_EXPORT ZBError ZBSystemGetInfo(ZBSystemInfo *out) ZB_NOEXCEPT;

/**
 * The processor's brand string, without the blanks around it, such as
 * "AMD Ryzen 9 7950X 16-Core Processor".
 *
 * @return a new UTF-8 string from the default zone, released with _ZBFree;
 *         null when the processor names no brand or memory runs out.
 */
ZB_EXPORT char *ZBSystemCopyCPUBrand(void) ZB_NOEXCEPT;

/** The time one logical processor spent in each state since start-up. */
typedef struct ZBSystemCPUTimes {
  int64_t userNanoseconds;   /**< running programs */
  int64_t kernelNanoseconds; /**< running the system, idle time excluded */
  int64_t idleNanoseconds;   /**< idle */
} ZBSystemCPUTimes;

/**
 * The times of each logical processor of the calling thread's processor
 * group. Kernel time excludes idle time, as on POSIX systems.
 *
 * @param out receives one record per processor; may be null when
 *        `capacity` is 0.
 * @param capacity the number of records `out` holds.
 * @param outCount receives the number of processors, also on
 *        ZBErrorBufferTooSmall.
 * @return ZBErrorNone; ZBErrorBufferTooSmall when `capacity` is short;
 *         ZBErrorInvalidArgument when `outCount` is null, or `out` is null
 *         with a capacity; ZBErrorGeneric when the system cannot report.
 */
ZB_EXPORT ZBError ZBSystemGetCPUTimes(ZBSystemCPUTimes *out, uint32_t capacity,
                                      uint32_t *outCount) ZB_NOEXCEPT;

/**
 * Whether a compatibility layer such as Wine runs the process rather than
 * Windows itself, so that a caller can explain a difference in behaviour.
 *
 * @return true under a compatibility layer.
 */
ZB_EXPORT bool ZBSystemIsEmulated(void) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBSYSTEM_H */
