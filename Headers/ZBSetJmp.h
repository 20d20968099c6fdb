/*
 * ZBSetJmp.h: non-local jumps without unwinding.
 *
 * ZBLongJmp returns to the ZBSetJmp that filled the buffer by restoring the
 * saved registers, and nothing else: it runs no destructors and no
 * exception handlers, and needs no unwind data for the frames it skips
 * (JIT code, coroutine stacks), where the C runtime's longjmp would unwind
 * them and fail. The frame that called ZBSetJmp must still be active.
 */
#ifndef ZENBOR_ZBSETJMP_H
#define ZENBOR_ZBSETJMP_H

#include "ZBBase.h"

#if defined(_MSC_VER) && !defined(__clang__)
#  define ZB_ALIGNED_16 __declspec(align(16))
#  define ZB_RETURNS_TWICE
#else
#  define ZB_ALIGNED_16 __attribute__((aligned(16)))
#  define ZB_RETURNS_TWICE __attribute__((returns_twice))
#endif

ZB_EXTERN_C_BEGIN

/** Sixteen bytes of a jump buffer, aligned for the vector registers. */
typedef struct ZB_ALIGNED_16 ZBJmpBufSlot {
  uint64_t part[2]; /**< opaque */
} ZBJmpBufSlot;

/** A jump buffer: rbx, rbp, rdi, rsi, r12 to r15, the stack pointer, the
    return address, MXCSR, the x87 control word and xmm6 to xmm15. */
typedef ZBJmpBufSlot ZBJmpBuf[16];

/** Saves the caller's registers in `buffer`.
    @return 0 when called; the value given to ZBLongJmp (never 0) when
    returning again through that jump. */
ZB_EXPORT ZB_RETURNS_TWICE int ZBSetJmp(ZBJmpBuf buffer) ZB_NOEXCEPT;

/** Restores the registers saved in `buffer`, so that its ZBSetJmp returns
    again, with `value`, or 1 when `value` is 0. Does not return. */
ZB_EXPORT ZB_NORETURN void ZBLongJmp(ZBJmpBuf buffer, int value) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBSETJMP_H */
