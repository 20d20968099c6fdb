/*
 * ZBProcess.h: the identity of the calling process.
 */
#ifndef ZENBOR_ZBPROCESS_H
#define ZENBOR_ZBPROCESS_H

#include "ZBBase.h"

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

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBPROCESS_H */
