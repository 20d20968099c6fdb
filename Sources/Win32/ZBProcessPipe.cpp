// Anonymous pipes for talking with the programs the library starts. Both
// ends stay private to this process until a spawn lists them.
#include "ZBProcess.h"

#include "ZBErrorMapping.h"
#include "ZBFilePrivate.h"
#include "ZBSystemCalls.h"

namespace {

const zb::ErrorMapRow kPipeErrors[] = {
    {ERROR_TOO_MANY_OPEN_FILES, ZBErrorTooManyFiles},
    {ERROR_NOT_ENOUGH_MEMORY, ZBErrorNoMemory},
    {ERROR_OUTOFMEMORY, ZBErrorNoMemory},
    {ERROR_NO_SYSTEM_RESOURCES, ZBErrorNoMemory},
};

} // namespace

extern "C" ZBError ZBProcessCreatePipe(ZBFileDescriptor outPair[2]) noexcept {
  if (outPair == nullptr)
    return ZBErrorInvalidArgument;
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  // No security attributes: neither end is inheritable.
  if (!zb::gSystemCalls.CreatePipe(&readEnd, &writeEnd, nullptr, 0))
    return zb::file::mapError(kPipeErrors, GetLastError());
  outPair[0] = zb::file::descriptorOf(readEnd);
  outPair[1] = zb::file::descriptorOf(writeEnd);
  return ZBErrorNone;
}
