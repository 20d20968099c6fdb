// A trace session streamed to a host: the trace-file format over one TCP
// connection through the library's socket layer, so the receiver (zb-trace
// listen) stores exactly the file a file session would have written.
#include "qprintf.h"
#include "ZBSocket.h"
#include "ZBSocketAddress.h"
#include "ZBTracePrivate.h"

#include <new>

namespace {

constexpr int32_t kStreamSocket = 1;
constexpr uint32_t kShutdownSend = 1;

class HostSink final : public zb::trace::Sink {
public:
  explicit HostSink(ZBSocket socket) : mSocket(socket) {}
  ~HostSink() override {
    ZBSocketShutdown(mSocket, kShutdownSend);
    ZBSocketClose(mSocket);
  }
  bool write(const void *bytes, size_t length) noexcept override {
    return zb::trace::sendAll(bytes, length, [this](const char *cursor, size_t left) {
      uint32_t sent = 0;
      const ZBError error = ZBSocketSend(mSocket, cursor, static_cast<uint32_t>(left), 0, &sent);
      return error == ZBErrorNone ? static_cast<long long>(sent) : -1;
    });
  }

private:
  ZBSocket mSocket;
};

} // namespace

namespace zb::trace {

Sink *openHostSink(const char *host, uint16_t port, ZBError *outError) noexcept {
  ZBSocketInit();
  char service[8];
  qsnprintf(service, sizeof service, "%u", unsigned(port));
  const ZBSocketAddressHints hints = {0, 0, kStreamSocket, 0};
  ZBSocketAddressInfo *addresses = nullptr;
  *outError = ZBSocketAddressResolveInfo(host, service, &hints, &addresses);
  Sink *sink = nullptr;
  for (ZBSocketAddressInfo *at = addresses; at != nullptr && sink == nullptr; at = at->next) {
    ZBSocket socket = 0;
    *outError = ZBSocketCreate(at->family, kStreamSocket, 0, 0, &socket);
    if (*outError != ZBErrorNone)
      continue;
    *outError = ZBSocketConnect(socket, at->address, at->addressLength);
    if (*outError == ZBErrorNone)
      sink = new (std::nothrow) HostSink(socket);
    if (sink == nullptr) {
      ZBSocketClose(socket);
      if (*outError == ZBErrorNone)
        *outError = ZBErrorNoMemory;
    }
  }
  ZBSocketAddressFreeInfoList(addresses);
  return sink;
}

} // namespace zb::trace
