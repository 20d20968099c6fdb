/*
 * A C program built against the installed SDK alone. It formats through the
 * library into strings the library allocates (qasprintf and
 * ZBCStringCreateWithFormat), the forms any C runtime can use, and gives
 * them back to the library to free.
 */
#include <stdio.h>

#include <Zenbor/Zenbor.h>

int main(void) {
  char *text = NULL;
  char *made;
  int length;

  printf("Zenbor %s %d.%d.%d from C\n", ZENBOR_VERSION_STRING, ZENBOR_VERSION_MAJOR,
         ZENBOR_VERSION_MINOR, ZENBOR_VERSION_PATCH);

  length = qasprintf(&text, "%'d items, %-5s|, %#x", 1234567, "ab", 255);
  if (length < 0 || text == NULL)
    return 1;
  printf("qasprintf: %s (%d)\n", text, length);
  qprffree(text);

  made = ZBCStringCreateWithFormat(NULL, "%05.1f%%, %s", 42.25, "done");
  if (made == NULL)
    return 2;
  printf("ZBCStringCreateWithFormat: %s\n", made);
  _ZBFree(made);

  printf("error %d: %s\n", (int)ZBErrorConnectionRefused,
         ZBErrorGetDescription(ZBErrorConnectionRefused));
  return 0;
}
