/**
 * @file
 * ZBTrace.h: the event tracer's entry points that the rest of the library
 * calls.
 *
 * The tracer records named events to a file or a host. This build has no
 * tracer yet: it never reports itself initialised and defines no names, so
 * the callers (log sites, lock waits) take their untraced paths.
 */
#ifndef ZENBOR_ZBTRACE_H
#define ZENBOR_ZBTRACE_H

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

/** True once the tracer is configured and recording. */
ZB_EXPORT bool ZBTraceIsInitialized(void) ZB_NOEXCEPT;
/** The identifier under which `name` appears in traces; 0 when the name is
   null or no tracer records it. */
ZB_EXPORT int32_t ZBTraceDefineName(const char *name) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBTRACE_H */
