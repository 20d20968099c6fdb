/**
 * @file
 * ZBInitializer.h: start-up work registered at load time and run later, in
 * priority order, on the main thread.
 *
 * Code registers initializers from static constructors, when most services
 * are not yet safe to use; the application calls ZBInitializerRun once on its
 * main thread when it is ready. Priorities run from 0 (first) to 7 (last).
 * Within one priority the last registered runs first. Misuse is Fatal.
 */
#ifndef ZENBOR_ZBINITIALIZER_H
#define ZENBOR_ZBINITIALIZER_H

#include "ZBBase.h"

ZB_EXTERN_C_BEGIN

/** A start-up function run by ZBInitializerRun. */
typedef void (*ZBInitializerFunction)(void);

/** One registered start-up function; the library keeps it. */
typedef struct ZBInitializerRecord {
  ZBInitializerFunction function;   /**< what to run */
  struct ZBInitializerRecord *next; /**< the next record of the same priority */
  const char *name;                 /**< for diagnostics */
} ZBInitializerRecord;

/** Registers `function` at `priority` (0 to 7, not checked). Fatal once that
   priority has run. */
ZB_EXPORT ZBInitializerRecord *ZBInitializerRegister_internal(ZBInitializerFunction function,
                                                              uint32_t priority,
                                                              const char *name) ZB_NOEXCEPT;
/** Runs every registered initializer by priority. Fatal off the main thread
   or when called twice without ZBInitializerReset. */
ZB_EXPORT void ZBInitializerRun(void) ZB_NOEXCEPT;
/** Allows registration and a second run; returns 1. Fatal before a run. */
ZB_EXPORT int32_t ZBInitializerReset(void) ZB_NOEXCEPT;
/** 1 from the start of ZBInitializerRun on, else 0. */
ZB_EXPORT int32_t ZBInitializerHasRun(void) ZB_NOEXCEPT;

/** The process's role, set at start-up from the "QUOVEX_*_PROCESS" variables:
   4 web, 3 plug-in, 2 network, 1 database, 0 none of these. */
ZB_EXPORT extern int32_t gZBProcessWebKitProcessType;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBINITIALIZER_H */
