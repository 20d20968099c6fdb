/*
 * zenbor-info: a small program that uses the library end to end, the way an
 * application would. It runs the start-up initializers, registers an option
 * of its own, writes log lines at several levels (ZBLOG_LEVEL and
 * ZBLOG_CONFIG decide which are kept), formats values with the library's own
 * conversions, runs two named threads that log, reads the clocks, and
 * finally shows the log lines kept in the library's ring.
 *
 * It is written in C to show that the interface is plain C.
 */
#define ZB_FORMAT_EXTENSIONS 1

#include <stdio.h>
#include <string.h>

#include "Zenbor.h"

static int32_t sGreetingCount = 2;

static void *worker(void *argument) {
  const char *job = (const char *)argument;
  ZB_LOG_INFO("%s: working on %s", ZBThreadGetName(0), job);
  ZB_LOG_DEBUG("%s: finished %s", ZBThreadGetName(0), job);
  return NULL;
}

static void showErrors(void) {
  static const ZBError codes[] = {ZBErrorNone, ZBErrorFileNotFound, ZBErrorTimedOut,
                                  ZBErrorConnectionRefused, ZBErrorGeneric};
  size_t i;
  printf("Error descriptions:\n");
  for (i = 0; i < sizeof codes / sizeof codes[0]; ++i)
    printf("  %4d  %s\n", (int)codes[i], ZBErrorGetDescription(codes[i]));
}

static void showFormatting(void) {
  static const unsigned char hardware[6] = {0x00, 0x1b, 0x21, 0x3c, 0x4d, 0x5e};
  static const char bits[] = "\001READ\002WRITE\003EXEC";
  char line[256];
  printf("Formatting with the library's conversions:\n");
  qsnprintf(line, sizeof line, "%'d items, %08.3f, %-6s|, %#x", 1234567, 3.14159, "left", 255);
  printf("  %s\n", line);
  qsnprintf(line, sizeof line, "%b", 5u, bits);
  printf("  permissions %s\n", line);
  qsnprintf(line, sizeof line, "%M / %#M", hardware, hardware);
  printf("  hardware address %s\n", line);
  qsnprintf(line, sizeof line, "%#T", 3725);
  printf("  uptime %s\n", line);
  qsnprintf(line, sizeof line, "%#Q", "tab\there \"quoted\"");
  printf("  quoted %s\n", line);
}

static void showClocks(void) {
  printf("Clocks:\n");
  printf("  unix        %lld ns\n", (long long)ZBHRTimeUnix());
  printf("  monotonic   %lld ns\n", (long long)ZBHRTimeMonotonic());
  printf("  process CPU %lld ns\n", (long long)ZBHRProcessCPUTime());
}

static void showLogRing(void) {
  static char ring[32768];
  int32_t length = ZBLogBufferCopyBytes(ring, sizeof ring);
  const char *line = ring;
  printf("Log lines kept in the ring:\n");
  while (length > 0 && line < ring + length) {
    const char *end = memchr(line, '\n', (size_t)(ring + length - line));
    size_t size = end ? (size_t)(end - line) : (size_t)(ring + length - line);
    if (size > 0 && line[size - 1] == '\r')
      --size;
    printf("  %.*s\n", (int)size, line);
    line += (end ? (size_t)(end - line) + 1 : size);
  }
}

int main(void) {
  ZBThread threads[2];
  int i;

  printf("Zenbor %s\n", ZENBOR_VERSION_STRING);
  ZBInitializerRun();
  ZBOptionRegister("QUOVEX_INFO_GREETINGS", "How many greetings to log", "zenbor-info",
                   ZBOptionTypeInt, &sGreetingCount, NULL, "Set QUOVEX_INFO_GREETINGS=n.");
  ZBOptionsPrint();

  showErrors();
  showFormatting();

  ZB_LOG_ERROR("an error line (kept unless the level is Fatal)");
  ZB_LOG_WARNING("a warning line");
  for (i = 0; i < sGreetingCount; ++i)
    ZB_LOG_INFO("hello number %d from %s", i + 1, ZBThreadGetName(0));
  ZB_LOG_DEBUG("a debug line (kept with ZBLOG_LEVEL=Debug)");
  ZB_LOG_VERBOSE("a verbose line (kept with ZBLOG_LEVEL=Verbose)");

  threads[0] = ZBThreadCreate("zb-worker-1", worker, "the first job", ZBThreadPriorityDefault, 0, 0);
  threads[1] = ZBThreadCreate("zb-worker-2", worker, "the second job", ZBThreadPriorityDefault, 0, 0);
  for (i = 0; i < 2; ++i)
    if (threads[i] == 0 || ZBThreadJoin(threads[i], NULL) != ZBErrorNone)
      return 1;

  showClocks();
  showLogRing();
  return 0;
}
