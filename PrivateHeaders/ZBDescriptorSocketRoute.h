// Where a descriptor that is a socket leaves the descriptor family: each
// route is one function that the socket layer answers. Until that layer is
// built, Sources/Win32/ZBDescriptorSocketRoute.cpp answers with Winsock
// directly, as the socket functions will; the socket layer then takes each
// route over (its function calls the socket entry point) and the file
// family does not change.
#pragma once

#include "ZBError.h"
#include "ZBFileDescriptor.h"

// The bytes a socket can deliver without blocking, as
// ZBSocketGetPendingBytesCount answers them.
ZBError _ZBDescriptorSocketGetPendingBytesCount(ZBFileDescriptor fd, uint32_t *outCount) noexcept;
