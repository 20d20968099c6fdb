// Where a descriptor that is a socket leaves the descriptor family: each
// route is one function that the socket layer answers. Descriptors sit below
// sockets, so they reach the socket entry points only through these routes
// (Sources/Win32/ZBDescriptorSocketRoute.cpp).
#pragma once

#include "ZBError.h"
#include "ZBFileDescriptor.h"

// The bytes a socket can deliver without blocking, as
// ZBSocketGetPendingBytesCount answers them.
ZBError _ZBDescriptorSocketGetPendingBytesCount(ZBFileDescriptor fd, uint32_t *outCount) noexcept;
