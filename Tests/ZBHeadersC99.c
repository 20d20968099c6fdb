/* Every public header compiles as C99. */
#include "Zenbor.h"

int main(void) {
  return ZBErrorGetDescription(ZBErrorNone)[0] == 'S' ? 0 : 1;
}
