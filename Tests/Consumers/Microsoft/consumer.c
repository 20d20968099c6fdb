/*
 * A program for the Microsoft toolchain, linked with zenbor.lib. No
 * Microsoft C runtime is at hand where the package test runs, so it is
 * freestanding: it includes only headers that need no C runtime, takes its
 * text from the library as an allocated string (the form any runtime can
 * use), reads a variable the DLL exports (through the import library's
 * pointer to it) and answers through its exit code, 7 when everything gave
 * what it should.
 */
#include <Zenbor/ZBAlloc.h>
#include <Zenbor/ZBError.h>
#include <Zenbor/ZBInitializer.h>
#include <Zenbor/ZBString.h>
#include <Zenbor/ZBVersion.h>

int start(void) {
  char *text = ZBCStringCreateWithFormat(NULL, "%d.%d.%d", ZENBOR_VERSION_MAJOR,
                                         ZENBOR_VERSION_MINOR, ZENBOR_VERSION_PATCH);
  const char *expected = ZENBOR_VERSION_STRING;
  const char *description = ZBErrorGetDescription(ZBErrorFileNotFound);
  int same = text != NULL;
  size_t i;
  for (i = 0; same && expected[i] != '\0'; ++i)
    same = text[i] == expected[i];
  same = same && text[i] == '\0' && description[0] == 'F';
  /* No process-role variable is set: the role is "none of these". */
  same = same && gZBProcessWebKitProcessType == 0;
  _ZBFree(text);
  return same ? 7 : 1;
}
