// Sockets against raw Winsock, in one run: 64 KiB blocks through a loopback
// pair (256 MiB per run, a thread receiving on the far side) with
// ZBSocketSend/ZBSocketReceive against send/recv on a pair made the same
// way; ZBSocketPoll of 64 idle sockets with timeout 0 against WSAPoll of
// each (and against the select it is made of); and the time of one interface enumeration against
// the address-list query it starts with.
#include <winsock2.h>
#include <ws2tcpip.h>

#include "ZBBench.h"

#include "Zenbor.h"

#include <thread>
#include <vector>

namespace {

constexpr int kBlock = 64 * 1024;
constexpr int64_t kBlocksPerRun = 256 * 1024 * 1024 / kBlock;

// A connected stream pair over 127.0.0.1 from raw Winsock calls, the way
// ZBSocketCreatePair makes its own.
void rawPair(SOCKET pair[2]) {
  SOCKET listener = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int length = sizeof address;
  bind(listener, reinterpret_cast<sockaddr *>(&address), sizeof address);
  listen(listener, 1);
  getsockname(listener, reinterpret_cast<sockaddr *>(&address), &length);
  pair[1] = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  connect(pair[1], reinterpret_cast<sockaddr *>(&address), sizeof address);
  pair[0] = accept(listener, nullptr, nullptr);
  closesocket(listener);
}

// Sends `blocks` blocks on one end while a thread receives them all on the
// other, so the time covers both directions of the copy.
template <typename Send, typename Receive>
void transfer(int64_t blocks, Send send, Receive receive) {
  static std::vector<char> out(kBlock, 'x'), in(kBlock);
  std::thread receiver([&] {
    for (int64_t left = blocks * kBlock; left > 0;) {
      const int got = receive(in.data(), kBlock);
      if (got <= 0)
        return;
      left -= got;
    }
  });
  for (int64_t block = 0; block < blocks; ++block)
    for (int sent = 0; sent < kBlock;) {
      const int now = send(out.data() + sent, kBlock - sent);
      if (now <= 0)
        break;
      sent += now;
    }
  receiver.join();
}

int32_t ignoreInterface(void *context, const ZBSocketInterface *) {
  ++*static_cast<int *>(context);
  return 0;
}

} // namespace

int main() {
  zbbench::printHeader();
  ZBSocketInit();

  ZBSocket pair[2];
  ZBSocketCreatePair(1, SOCK_STREAM, 0, 0, pair);
  SOCKET raw[2];
  rawPair(raw);
  const zbbench::Options transferOptions{5, kBlocksPerRun};
  zbbench::compare(
      "ZBSocketSend/Receive 64KiB vs send/recv",
      [&](int64_t blocks) {
        transfer(
            blocks,
            [&](const char *data, int size) {
              uint32_t count = 0;
              return ZBSocketSend(pair[1], data, size, 0, &count) == 0 ? int(count) : -1;
            },
            [&](char *data, int size) {
              uint32_t count = 0;
              return ZBSocketReceive(pair[0], data, size, 0, &count) == 0 ? int(count) : -1;
            });
      },
      [&](int64_t blocks) {
        transfer(
            blocks, [&](const char *data, int size) { return send(raw[1], data, size, 0); },
            [&](char *data, int size) { return recv(raw[0], data, size, 0); });
      },
      transferOptions);

  std::vector<ZBSocket> idle(64);
  std::vector<WSAPOLLFD> polls(64);
  for (size_t index = 0; index < idle.size(); ++index) {
    ZBSocketCreate(AF_INET, SOCK_DGRAM, 0, 0, &idle[index]);
    polls[index] = {static_cast<SOCKET>(idle[index]), POLLRDNORM, 0};
  }
  const zbbench::Options pollOptions{21, 10};
  const auto pollIdle = [&](int64_t n) {
    for (int64_t i = 0; i < n; ++i)
      for (ZBSocket socket : idle) {
        uint8_t events = 0;
        zbbench::keep(ZBSocketPoll(socket, ZBSocketPollReadable, &events, 0));
      }
  };
  zbbench::compare(
      "ZBSocketPoll x64 idle, timeout 0 vs WSAPoll", pollIdle,
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          for (WSAPOLLFD &poll : polls)
            zbbench::keep(WSAPoll(&poll, 1, 0));
      },
      pollOptions);
  // The same wait as the raw select it is made of, to separate the
  // library's cost from that of select itself.
  zbbench::compare(
      "ZBSocketPoll x64 idle, timeout 0 vs select", pollIdle,
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          for (WSAPOLLFD &poll : polls) {
            fd_set set;
            FD_ZERO(&set);
            FD_SET(poll.fd, &set);
            timeval none = {0, 0};
            zbbench::keep(select(0, &set, nullptr, &set, &none));
          }
      },
      pollOptions);

  const zbbench::Options enumerationOptions{5, 1};
  int seen = 0;
  zbbench::compare(
      "ZBSocketInterfacesApply vs address-list query",
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i)
          ZBSocketInterfacesApply(0, ignoreInterface, &seen);
      },
      [&](int64_t n) {
        for (int64_t i = 0; i < n; ++i) {
          SOCKET probe = socket(AF_INET, SOCK_DGRAM, 0);
          char buffer[1024];
          DWORD returned = 0;
          WSAIoctl(probe, SIO_ADDRESS_LIST_QUERY, nullptr, 0, buffer, sizeof buffer, &returned,
                   nullptr, nullptr);
          closesocket(probe);
        }
      },
      enumerationOptions);

  for (ZBSocket socket : idle)
    ZBSocketClose(socket);
  ZBSocketClose(pair[0]);
  ZBSocketClose(pair[1]);
  closesocket(raw[0]);
  closesocket(raw[1]);
  return seen > 0 ? 0 : 1;
}
