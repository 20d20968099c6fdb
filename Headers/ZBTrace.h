/**
 * @file
 * ZBTrace.h: the event tracer, its trace-file reader and exporter, and the
 * performance counters.
 *
 * Events (spans, instants, counter values) go into per-thread chunks and
 * from there to a file or to a host over TCP. Names are interned once for
 * the life of the process. While nothing records, every event call costs
 * one load and a branch. The sampling profiler records into the same
 * sessions.
 */
#ifndef ZENBOR_ZBTRACE_H
#define ZENBOR_ZBTRACE_H

#include "ZBBase.h"
#include "ZBError.h"

ZB_EXTERN_C_BEGIN

/** True while a trace session records. */
ZB_EXPORT bool ZBTraceIsInitialized(void) ZB_NOEXCEPT;
/** The identifier (1 or more) under which `name` appears in traces: the same
   text gives the same identifier for the life of the process, whether or not
   a session records. A null name gives 0, "no name". */
ZB_EXPORT int32_t ZBTraceDefineName(const char *name) ZB_NOEXCEPT;

/** Opens a span named `nameID` on the calling thread; spans nest. */
ZB_EXPORT void ZBTraceBegin(int32_t nameID) ZB_NOEXCEPT;
/** Closes the calling thread's innermost span. */
ZB_EXPORT void ZBTraceEnd(int32_t nameID) ZB_NOEXCEPT;
/** Opens a span whose name is formatted (qprintf rules, at most 127 bytes
   kept), only while a session records. */
ZB_EXPORT void ZBTraceBeginFormat(const char *format, ...) ZB_NOEXCEPT ZB_PRINTF_LIKE(1, 2);
/** Records a point in time named `nameID`, with an optional text. */
ZB_EXPORT void ZBTraceInstant(int32_t nameID, const char *text) ZB_NOEXCEPT;
/** Records the value of the counter named `nameID`. */
ZB_EXPORT void ZBTraceCounter(int32_t nameID, int64_t value) ZB_NOEXCEPT;

/** Starts a session that writes to the file at `path` (created or
   truncated). Returns 0, ZBErrorInvalidArgument for a null path,
   ZBErrorAlready (-44) while a session records, or the error of the open. */
ZB_EXPORT ZBError ZBTraceStart(const char *path) ZB_NOEXCEPT;
/** Starts a session that streams the trace-file format to `host`:`port`
   over TCP. Returns 0, ZBErrorInvalidArgument, ZBErrorAlready, or the
   error of the connection. */
ZB_EXPORT ZBError ZBTraceStartHost(const char *host, uint16_t port) ZB_NOEXCEPT;
/** Writes every thread's pending events and ends the session. Returns 0,
   or ZBErrorNotFound when no session records. */
ZB_EXPORT ZBError ZBTraceStop(void) ZB_NOEXCEPT;
/** Writes every thread's pending events. Returns 0, or ZBErrorNotFound when
   no session records. */
ZB_EXPORT ZBError ZBTraceFlush(void) ZB_NOEXCEPT;

/** The kinds of event a trace holds. */
enum {
  ZBTraceEventBegin = 1,     /**< a span opens */
  ZBTraceEventEnd = 2,       /**< the thread's innermost span closes */
  ZBTraceEventInstant = 3,   /**< a point in time, with an optional text */
  ZBTraceEventCounter = 4,   /**< a counter's value */
  ZBTraceEventSample = 5,    /**< a profiler sample */
  ZBTraceEventThreadName = 6 /**< the thread's name, in `text` */
};

/** One event as the reader returns it. */
typedef struct ZBTraceEvent {
  uint32_t type;           /**< one of the ZBTraceEvent kinds */
  uint32_t threadID;       /**< the system's ID of the recording thread */
  int32_t nameID;          /**< 0 when the event carries its name in `text` */
  int64_t timeNanoseconds; /**< the monotonic clock (ZBHRTimeMonotonic) */
  int64_t value;           /**< a counter's value */
  const char *text;        /**< never null; valid until the next call */
} ZBTraceEvent;

/** An open trace file. */
typedef struct ZBTraceReader ZBTraceReader;

/** Opens the trace file at `path`. Returns 0, ZBErrorInvalidArgument,
   ZBErrorNoMemory, ZBErrorIO when the file is not a trace, or the error of
   the open. */
ZB_EXPORT ZBError ZBTraceReaderOpen(const char *path, ZBTraceReader **outReader) ZB_NOEXCEPT;
/** The next event. Returns 0, ZBErrorNotFound (-40) at the end,
   ZBErrorIO (-18) at a torn or damaged chunk (every event before it was
   delivered), or ZBErrorInvalidArgument. */
ZB_EXPORT ZBError ZBTraceReaderNext(ZBTraceReader *reader, ZBTraceEvent *outEvent) ZB_NOEXCEPT;
/** The text of a name read so far; null when unknown. */
ZB_EXPORT const char *ZBTraceReaderGetName(ZBTraceReader *reader, int32_t nameID) ZB_NOEXCEPT;
/** Closes the reader; null is ignored. */
ZB_EXPORT void ZBTraceReaderFree(ZBTraceReader *reader) ZB_NOEXCEPT;

/** Writes the trace at `tracePath` as trace-event JSON (chrome://tracing,
   Perfetto UI, speedscope) to `jsonPath`; above 200 MB the rest goes to
   further files named `jsonPath` with ".2", ".3"... inserted before the
   extension. A torn end is converted up to the tear. Returns 0,
   ZBErrorInvalidArgument, ZBErrorIO, or the error of an open or a write. */
ZB_EXPORT ZBError ZBTraceConvertToJSON(const char *tracePath, const char *jsonPath) ZB_NOEXCEPT;

/** The identifier of the performance counter `name` (the name table of
   ZBTraceDefineName); 0 for a null name or when no counter is left. */
ZB_EXPORT int32_t ZBPerfCounterDefine(const char *name) ZB_NOEXCEPT;
/** Adds `delta` to the counter; unknown identifiers are ignored. */
ZB_EXPORT void ZBPerfCounterAdd(int32_t counterID, int64_t delta) ZB_NOEXCEPT;
/** Sets the counter to `value`; unknown identifiers are ignored. */
ZB_EXPORT void ZBPerfCounterSet(int32_t counterID, int64_t value) ZB_NOEXCEPT;
/** The counter's value; 0 for unknown identifiers. */
ZB_EXPORT int64_t ZBPerfCounterGet(int32_t counterID) ZB_NOEXCEPT;
/** Called with each counter; returning false stops the enumeration. */
typedef bool (*ZBPerfCounterCallback)(int32_t counterID, const char *name, int64_t value,
                                      void *context);
/** Calls `callback` with every defined counter. Returns 0, or
   ZBErrorInvalidArgument for a null callback. */
ZB_EXPORT ZBError ZBPerfCounterEnumerate(ZBPerfCounterCallback callback, void *context) ZB_NOEXCEPT;

/** ZBProfilerStart's flag: also sample the main thread and every thread the
   library creates (ZBThreadCreate adds them as they start). */
#define ZBProfilerFlagAllThreads 1u

/** True while a profiler started with ZBProfilerFlagAllThreads runs: a
   thread starting then adds itself with ZBProfilerAddThread. */
ZB_EXPORT bool ZBProfilerIsMonitoringNewThreads(void) ZB_NOEXCEPT;
/** Adds a thread, by its system ID, to those the profiler samples. */
ZB_EXPORT void ZBProfilerAddThread(uint32_t threadID) ZB_NOEXCEPT;
/** Removes a thread from those the profiler samples. */
ZB_EXPORT void ZBProfilerRemoveThread(uint32_t threadID) ZB_NOEXCEPT;
/** Samples the added threads every `intervalNanoseconds` into the running
   trace session, as ZBTraceEventSample events (value: the thread's ID;
   text: its frames "module+0xoffset", outermost first, separated by ";").
   Returns 0, ZBErrorInvalidArgument (interval not positive, unknown flags),
   ZBErrorUnsupported (-21) when no session records or the platform cannot
   sample, ZBErrorAlready while the profiler runs, ZBErrorNoMemory or
   ZBErrorResourcesExhausted. */
ZB_EXPORT ZBError ZBProfilerStart(int64_t intervalNanoseconds, uint32_t flags) ZB_NOEXCEPT;
/** Stops sampling. Returns 0, or ZBErrorNotFound when the profiler does not
   run. */
ZB_EXPORT ZBError ZBProfilerStop(void) ZB_NOEXCEPT;
/** Writes the samples of the trace at `tracePath` as folded stacks
   ("frame;frame;frame count" a line) to `outPath`. Returns 0,
   ZBErrorInvalidArgument, ZBErrorIO, ZBErrorNoMemory, or the error of an
   open. */
ZB_EXPORT ZBError ZBProfilerWriteFoldedStacks(const char *tracePath,
                                              const char *outPath) ZB_NOEXCEPT;

ZB_EXTERN_C_END

#endif /* ZENBOR_ZBTRACE_H */
