/*
 * zb-trace: the command-line companion of the tracer, a small C program over
 * the library's public interface.
 *   zb-trace convert in.zbtrace out.json   trace-event JSON for a browser's viewer
 *   zb-trace dump in.zbtrace               one event a line
 *   zb-trace stats in.zbtrace              spans per name: count, total, mean, max
 *   zb-trace listen PORT out.zbtrace       receives one host session into a file
 *   zb-trace folded in.zbtrace out.folded  the profiler's samples as folded stacks
 */
#include "Zenbor.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kMaxDepth = 256 };

typedef struct SpanStats {
  char *name;
  int64_t count, total, maximum;
} SpanStats;

typedef struct ThreadSpans {
  uint32_t threadID;
  int depth;
  size_t stats[kMaxDepth]; /* index into the stats table */
  int64_t start[kMaxDepth];
} ThreadSpans;

static int fail(const char *what, ZBError error) {
  fprintf(stderr, "zb-trace: %s: %d %s\n", what, (int)error, ZBErrorGetDescription(error));
  return 1;
}

static const char *kTypeNames[] = {"?", "begin", "end", "instant", "counter", "sample", "thread"};

static const char *eventName(ZBTraceReader *reader, const ZBTraceEvent *event) {
  const char *name;
  if (event->type == ZBTraceEventBegin && event->text[0] != '\0')
    return event->text;
  name = ZBTraceReaderGetName(reader, event->nameID);
  return name ? name : "";
}

/* Reads every event, calling `visit`; the reader's last answer decides the
   exit status (a torn end is reported but not an error of the tool). */
static int readAll(const char *path, void (*visit)(ZBTraceReader *, const ZBTraceEvent *, void *),
                   void *context) {
  ZBTraceReader *reader = NULL;
  ZBTraceEvent event;
  ZBError error = ZBTraceReaderOpen(path, &reader);
  if (error != ZBErrorNone)
    return fail(path, error);
  while ((error = ZBTraceReaderNext(reader, &event)) == ZBErrorNone)
    visit(reader, &event, context);
  ZBTraceReaderFree(reader);
  if (error == ZBErrorIO)
    fprintf(stderr, "zb-trace: %s: the trace ends in a torn chunk\n", path);
  else if (error != ZBErrorNotFound)
    return fail(path, error);
  return 0;
}

static void dumpEvent(ZBTraceReader *reader, const ZBTraceEvent *event, void *context) {
  (void)context;
  printf("%lld %u %s %s %lld %s\n", (long long)event->timeNanoseconds, event->threadID,
         kTypeNames[event->type], eventName(reader, event), (long long)event->value, event->text);
}

typedef struct StatsTable {
  SpanStats *stats;
  size_t count;
  ThreadSpans *threads;
  size_t threadCount;
} StatsTable;

static size_t statsIndex(StatsTable *table, const char *name) {
  size_t index;
  for (index = 0; index < table->count; ++index)
    if (strcmp(table->stats[index].name, name) == 0)
      return index;
  table->stats = realloc(table->stats, (table->count + 1) * sizeof *table->stats);
  if (table->stats == NULL)
    exit(fail("stats", ZBErrorNoMemory));
  table->stats[index].name = strdup(name);
  table->stats[index].count = table->stats[index].total = table->stats[index].maximum = 0;
  ++table->count;
  return index;
}

static ThreadSpans *threadSpans(StatsTable *table, uint32_t threadID) {
  size_t index;
  for (index = 0; index < table->threadCount; ++index)
    if (table->threads[index].threadID == threadID)
      return &table->threads[index];
  table->threads = realloc(table->threads, (table->threadCount + 1) * sizeof *table->threads);
  if (table->threads == NULL)
    exit(fail("stats", ZBErrorNoMemory));
  table->threads[index].threadID = threadID;
  table->threads[index].depth = 0;
  return &table->threads[table->threadCount++];
}

static void countSpan(ZBTraceReader *reader, const ZBTraceEvent *event, void *context) {
  StatsTable *table = context;
  ThreadSpans *thread;
  if (event->type != ZBTraceEventBegin && event->type != ZBTraceEventEnd)
    return;
  thread = threadSpans(table, event->threadID);
  if (event->type == ZBTraceEventBegin) {
    if (thread->depth < kMaxDepth) {
      thread->stats[thread->depth] = statsIndex(table, eventName(reader, event));
      thread->start[thread->depth] = event->timeNanoseconds;
    }
    ++thread->depth;
  } else if (thread->depth > 0 && --thread->depth < kMaxDepth) {
    SpanStats *span = &table->stats[thread->stats[thread->depth]];
    const int64_t duration = event->timeNanoseconds - thread->start[thread->depth];
    ++span->count;
    span->total += duration;
    if (duration > span->maximum)
      span->maximum = duration;
  }
}

static int printStats(const char *path) {
  StatsTable table = {NULL, 0, NULL, 0};
  size_t index;
  const int status = readAll(path, countSpan, &table);
  printf("%-40s %10s %14s %12s %12s\n", "name", "count", "total_ns", "mean_ns", "max_ns");
  for (index = 0; index < table.count; ++index) {
    const SpanStats *span = &table.stats[index];
    printf("%-40s %10lld %14lld %12lld %12lld\n", span->name, (long long)span->count,
           (long long)span->total, (long long)(span->count ? span->total / span->count : 0),
           (long long)span->maximum);
    free(span->name);
  }
  free(table.stats);
  free(table.threads);
  return status;
}

static int receiveSession(const char *portText, const char *outPath) {
  const long port = strtol(portText, NULL, 10);
  ZBSocketAddressInfo *address = NULL;
  ZBSocket listener = 0, peer = 0;
  char block[65536];
  uint32_t count = 0;
  FILE *out;
  ZBError error;
  if (port < 1 || port > 65535)
    return fail("listen: port", ZBErrorInvalidArgument);
  ZBSocketInit();
  error = ZBSocketAddressParseLiteralIP(2, "0.0.0.0", (uint16_t)port, &address);
  if (error == ZBErrorNone)
    error = ZBSocketCreate(2, 1, 0, 0, &listener);
  if (error == ZBErrorNone)
    error = ZBSocketBind(listener, address->address, address->addressLength);
  ZBSocketAddressFreeInfoList(address);
  if (error == ZBErrorNone)
    error = ZBSocketListen(listener, 1);
  if (error == ZBErrorNone)
    error = ZBSocketAccept(listener, NULL, NULL, &peer);
  if (error != ZBErrorNone)
    return fail("listen", error);
  out = fopen(outPath, "wb");
  if (out == NULL)
    return fail(outPath, ZBErrorAccessDenied);
  while (ZBSocketReceive(peer, block, sizeof block, 0, &count) == ZBErrorNone && count != 0)
    if (fwrite(block, 1, count, out) != count)
      return fail(outPath, ZBErrorIO);
  ZBSocketClose(peer);
  ZBSocketClose(listener);
  return fclose(out) == 0 ? 0 : fail(outPath, ZBErrorIO);
}

int main(int argc, char **argv) {
  const char *command = argc > 1 ? argv[1] : "";
  if (strcmp(command, "convert") == 0 && argc == 4) {
    const ZBError error = ZBTraceConvertToJSON(argv[2], argv[3]);
    return error == ZBErrorNone ? 0 : fail(argv[2], error);
  }
  if (strcmp(command, "folded") == 0 && argc == 4) {
    const ZBError error = ZBProfilerWriteFoldedStacks(argv[2], argv[3]);
    return error == ZBErrorNone ? 0 : fail(argv[2], error);
  }
  if (strcmp(command, "dump") == 0 && argc == 3)
    return readAll(argv[2], dumpEvent, NULL);
  if (strcmp(command, "stats") == 0 && argc == 3)
    return printStats(argv[2]);
  if (strcmp(command, "listen") == 0 && argc == 4)
    return receiveSession(argv[2], argv[3]);
  fputs("usage: zb-trace convert IN.zbtrace OUT.json | dump IN.zbtrace | stats IN.zbtrace |"
        " listen PORT OUT.zbtrace | folded IN.zbtrace OUT.folded\n",
        stderr);
  return 2;
}
