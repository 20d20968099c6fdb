// A trace session streamed to a host over TCP, on POSIX systems: the
// trace-file format over one connection made with the system's sockets.
#include "ZBTracePrivate.h"

#include <cstdio>
#include <new>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

class HostSink final : public zb::trace::Sink {
public:
  explicit HostSink(int socket) : mSocket(socket) {}
  ~HostSink() override { close(mSocket); }
  bool write(const void *bytes, size_t length) noexcept override {
    return zb::trace::sendAll(bytes, length, [this](const char *cursor, size_t left) {
      return static_cast<long long>(send(mSocket, cursor, left, MSG_NOSIGNAL));
    });
  }

private:
  int mSocket;
};

} // namespace

namespace zb::trace {

Sink *openHostSink(const char *host, uint16_t port, ZBError *outError) noexcept {
  char service[8];
  std::snprintf(service, sizeof service, "%u", unsigned(port));
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  addrinfo *addresses = nullptr;
  if (getaddrinfo(host, service, &hints, &addresses) != 0) {
    *outError = ZBErrorNotFound;
    return nullptr;
  }
  *outError = ZBErrorConnectionRefused;
  Sink *sink = nullptr;
  for (addrinfo *at = addresses; at != nullptr && sink == nullptr; at = at->ai_next) {
    const int fd = socket(at->ai_family, at->ai_socktype, at->ai_protocol);
    if (fd < 0)
      continue;
    if (connect(fd, at->ai_addr, at->ai_addrlen) == 0)
      sink = new (std::nothrow) HostSink(fd);
    if (sink == nullptr)
      close(fd);
  }
  freeaddrinfo(addresses);
  if (sink != nullptr)
    *outError = ZBErrorNone;
  return sink;
}

} // namespace zb::trace
