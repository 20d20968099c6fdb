/* zenbor-info: shows what the library is and that it works, end to end. */
#include <stdio.h>

#include "Zenbor.h"

int main(void) {
  printf("Zenbor %s\n", ZENBOR_VERSION_STRING);
  return 0;
}
