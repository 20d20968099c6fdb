/*
 * ZBVirtual.h: virtual memory.
 */
#ifndef ZENBOR_ZBVIRTUAL_H
#define ZENBOR_ZBVIRTUAL_H

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

/** The system's virtual-memory page size in bytes, read once. */
ZB_EXPORT uint32_t ZBVirtualGetPageSize(void) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBVIRTUAL_H */
