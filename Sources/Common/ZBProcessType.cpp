// The process's role among cooperating processes, read once at start-up from
// the environment by an initializer of the first priorities.
#include "ZBEnvironment.h"
#include "ZBInitializer.h"

extern "C" {
int32_t gZBProcessWebKitProcessType;
}

namespace {

struct ProcessRole {
  const char *variable;
  int32_t type;
};

// The first variable set to a non-zero integer decides.
constexpr ProcessRole kRoles[] = {
    {"QUOVEX_WEB_PROCESS", 4},
    {"QUOVEX_PLUGIN_PROCESS", 3},
    {"QUOVEX_NETWORK_PROCESS", 2},
    {"QUOVEX_DATABASE_PROCESS", 1},
};

void readProcessType() {
  for (const ProcessRole &role : kRoles) {
    if (ZBEnvironmentGetIntegerWithDefault(role.variable, 0) != 0) {
      gZBProcessWebKitProcessType = role.type;
      return;
    }
  }
}

// Runs before the library's load-time constructor.
__attribute__((constructor(200))) void registerProcessType() {
  ZBInitializerRegister_internal(readProcessType, 1,
                                 "ZBProcessIsWebProcessInitializer_constructor");
}

} // namespace
