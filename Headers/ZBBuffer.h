/**
 * @file
 * ZBBuffer.h: two fixed-capacity byte containers: a plain buffer and a ring
 * that keeps the most recent bytes (the log keeps its recent lines in one).
 * Neither locks; their owners guard them. Writing past a buffer's capacity
 * is Fatal.
 */
#ifndef ZENBOR_ZBBUFFER_H
#define ZENBOR_ZBBUFFER_H

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

/** A byte buffer of fixed capacity. Opaque. */
typedef struct ZBBuffer ZBBuffer;
/** A ring of bytes of fixed capacity that keeps the newest bytes. Opaque. */
typedef struct ZBCircularBuffer ZBCircularBuffer;

/** An empty buffer of `capacity` bytes.
   @return The buffer, or null when memory runs out. */
ZB_EXPORT ZBBuffer *ZBBufferCreate(uint32_t capacity) ZB_NOEXCEPT;
/** Releases a buffer made by ZBBufferCreate; null is allowed. */
ZB_EXPORT void ZBBufferFree(ZBBuffer *buffer) ZB_NOEXCEPT;
/** Fatal when the bytes do not fit after the current contents. */
ZB_EXPORT void ZBBufferAppendBytes(ZBBuffer *buffer, const void *bytes,
                                   uint32_t count) ZB_NOEXCEPT;
/** Replaces the contents; Fatal when the bytes do not fit. */
ZB_EXPORT void ZBBufferSetBytes(ZBBuffer *buffer, const void *bytes, uint32_t count) ZB_NOEXCEPT;
/** @return The buffer's bytes, in place. */
ZB_EXPORT uint8_t *ZBBufferGetBytes(ZBBuffer *buffer) ZB_NOEXCEPT;
/** @return The number of bytes the buffer holds. */
ZB_EXPORT uint32_t ZBBufferGetLength(ZBBuffer *buffer) ZB_NOEXCEPT;

/** An empty ring of `capacity` bytes.
   @return The ring, or null when memory runs out. */
ZB_EXPORT ZBCircularBuffer *ZBCircularBufferCreate(uint32_t capacity) ZB_NOEXCEPT;
/** Releases a ring made by ZBCircularBufferCreate; null is allowed. */
ZB_EXPORT void ZBCircularBufferFree(ZBCircularBuffer *ring) ZB_NOEXCEPT;
/** Appends; bytes beyond the capacity overwrite the oldest. */
ZB_EXPORT void ZBCircularBufferEnqueue(ZBCircularBuffer *ring, const void *bytes,
                                       uint32_t count) ZB_NOEXCEPT;
/** Copies the contents oldest first and returns their length, or returns
   minus the capacity (copying nothing) when `size` is below the capacity. */
ZB_EXPORT int32_t ZBCircularBufferCopyBytes(ZBCircularBuffer *ring, void *destination,
                                            uint32_t size) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBBUFFER_H */
