// The host build keeps no application directories (they are bound to the
// Windows file functions), so setting "TMP" has no cached directory to clear.
#include "ZBEnvironmentPrivate.h"

void _ZBEnvironmentSetAppTemporaryDirectory(const char *) noexcept {}
