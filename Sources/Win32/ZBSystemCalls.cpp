// The system-call table's defaults: every entry is the real function.
#include "ZBSystemCalls.h"

namespace zb {

SystemCalls gSystemCalls = {
#define ZB_SYSTEM_CALL_DEFAULT(name) &::name,
    ZB_SYSTEM_CALLS(ZB_SYSTEM_CALL_DEFAULT)
#undef ZB_SYSTEM_CALL_DEFAULT
};

} // namespace zb
