// The host's identity: its network name, and the user's full name, which
// this platform cannot give.
#include "ZBEnvironment.h"

#include "ZBLog.h"
#include "ZBString.h"
#include "ZBSystemCalls.h"

namespace {

constexpr int kHostNameCapacity = 256;

// gethostname, with Winsock started for the call when the process has not
// started it: the name must not depend on whether sockets were used first.
bool readHostName(char *name, int capacity) {
  if (zb::gSystemCalls.gethostname(name, capacity) == 0)
    return true;
  if (WSAGetLastError() != WSANOTINITIALISED)
    return false;
  WSADATA data;
  if (WSAStartup(MAKEWORD(2, 2), &data) != 0)
    return false;
  const bool named = zb::gSystemCalls.gethostname(name, capacity) == 0;
  WSACleanup();
  return named;
}

} // namespace

extern "C" char *ZBEnvironmentCopyHostName(void) noexcept {
  char name[kHostNameCapacity];
  if (!readHostName(name, kHostNameCapacity))
    return _ZBCStringDuplicate("computer");
  name[kHostNameCapacity - 1] = '\0';
  return _ZBCStringDuplicate(name);
}

extern "C" char *ZBEnvironmentCopyFullUserName(void) noexcept {
  ZB_LOG_FATAL("NOT YET IMPLEMENTED");
}
