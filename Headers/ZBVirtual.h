/*
 * ZBVirtual.h: virtual memory. Address space is reserved, committed,
 * protected, decommitted and released in whole pages; a mirrored mapping
 * shows the same memory twice, back to back, for ring buffers that read and
 * write across their end without splitting.
 *
 * Protections are the memory-map protection bits of ZBFileDescriptor.h:
 * ZBMmapProtectionRead (1), ZBMmapProtectionWrite (2) and
 * ZBMmapProtectionExecute (4), combined; 0 means no access. Write implies
 * read, since the system has no write-only pages.
 */
#ifndef ZENBOR_ZBVIRTUAL_H
#define ZENBOR_ZBVIRTUAL_H

#include "ZBBase.h"
#include "ZBError.h"

ZB_EXTERN_C_BEGIN

/** The system's virtual-memory page size in bytes, read once. */
ZB_EXPORT uint32_t ZBVirtualGetPageSize(void) ZB_NOEXCEPT;

/** The granularity of reservations in bytes (64 KiB on Windows), read once:
    every reserved address and every mirror size is a multiple of it. */
ZB_EXPORT uint32_t ZBVirtualGetAllocationGranularity(void) ZB_NOEXCEPT;

/** Reserves `size` bytes of address space (rounded up to whole pages), with
    no memory behind it, and stores its start in `outAddress`.
    @return 0; ZBErrorInvalidArgument for a null `outAddress` or a zero size;
    ZBErrorNoMemory when no such range is free. */
ZB_EXPORT ZBError ZBVirtualReserve(size_t size, void **outAddress) ZB_NOEXCEPT;

/** Backs the pages of `size` bytes from `address` (inside a reservation)
    with zeroed memory and gives them `protection`.
    @return 0; ZBErrorInvalidArgument for a null address, a zero size or
    unknown protection bits; ZBErrorInvalidAddress for a range outside a
    reservation; ZBErrorNoMemory when the system's commit limit is reached. */
ZB_EXPORT ZBError ZBVirtualCommit(void *address, size_t size, uint32_t protection) ZB_NOEXCEPT;

/** Returns the memory behind the pages of the range to the system; the
    range stays reserved and reads as zeros after a new commit.
    @return 0; ZBErrorInvalidArgument for a null address or a zero size;
    ZBErrorInvalidAddress for a range outside a reservation. */
ZB_EXPORT ZBError ZBVirtualDecommit(void *address, size_t size) ZB_NOEXCEPT;

/** Gives the committed pages of the range `protection`, and stores the
    protection of its first page before the change in `outOldProtection`
    when that is not null.
    @return 0; ZBErrorInvalidArgument for a null address, a zero size or
    unknown protection bits; ZBErrorInvalidAddress for a range that is not
    wholly committed. */
ZB_EXPORT ZBError ZBVirtualProtect(void *address, size_t size, uint32_t protection,
                                   uint32_t *outOldProtection) ZB_NOEXCEPT;

/** Releases a whole reservation made by ZBVirtualReserve; `size` is the
    size it was reserved with, or 0.
    @return 0; ZBErrorInvalidArgument for a null address, or a size other
    than 0 or the reserved one; ZBErrorInvalidAddress for an address that
    does not start a reservation. */
ZB_EXPORT ZBError ZBVirtualRelease(void *address, size_t size) ZB_NOEXCEPT;

/** Maps `size` bytes of zeroed read-write memory twice, back to back: byte
    i and byte i + size of the 2 x size bytes at `outAddress` are the same
    memory. Free with ZBVirtualFreeMirrored.
    @return 0; ZBErrorInvalidArgument for a null `outAddress`, or a size
    that is not a non-zero multiple of the allocation granularity;
    ZBErrorNoMemory when the memory cannot be had; ZBErrorResourcesExhausted
    when other threads kept taking the address range between its reservation
    and its mapping, 16 times in a row. */
ZB_EXPORT ZBError ZBVirtualAllocateMirrored(size_t size, void **outAddress) ZB_NOEXCEPT;

/** Unmaps a mirrored mapping: `address` and `size` as allocated.
    @return 0; ZBErrorInvalidArgument for a null address or a size that is
    not a non-zero multiple of the allocation granularity;
    ZBErrorInvalidAddress when the address is not a mirror's start. */
ZB_EXPORT ZBError ZBVirtualFreeMirrored(void *address, size_t size) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBVIRTUAL_H */
