// Loopback TCP transfer through TOV_SktSendBuf/TOV_SktRecvBuf against
// WSASend/WSARecv on the same kind of sockets, with the same buffer sizes.
// Under Wine every socket call is a round trip to the server, so the
// transfers are far smaller than on Windows (about 11 MiB/s with 4 KiB
// buffers here): by default 16 MiB with 64 KiB buffers and 2 MiB with 4 KiB, each
// timed 9 times, alternating.
// Usage: socket_bench [MiB with 64 KiB buffers, default 16; 4 KiB uses 1/8]
#include <winsock2.h>
#include <ws2tcpip.h>

#include "bench.h"
#include "tov.h"

#include <cstdlib>
#include <thread>
#include <vector>

namespace {

struct Pair {
  TOV_Skt *client = nullptr, *server = nullptr;
};

// The system socket behind a handle: the socket object's first field. The
// raw calls run on the very sockets the library calls use, so that both see
// the same connection.
SOCKET systemSocket(TOV_Skt *skt) {
  return *reinterpret_cast<SOCKET *>(skt);
}

bool makePair(Pair &p) {
  sockaddr_in at{};
  at.sin_family = AF_INET;
  at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  int length = sizeof at;
  TOV_Skt *listener = nullptr;
  if (TOV_SktCreate(AF_INET, SOCK_STREAM, IPPROTO_TCP, &listener) != TOV_OK) return false;
  TOV_SktBind(listener, reinterpret_cast<sockaddr *>(&at), sizeof at);
  TOV_SktListen(listener, 1);
  TOV_SktGetLocalAddress(listener, reinterpret_cast<sockaddr *>(&at), &length);
  TOV_SktCreate(AF_INET, SOCK_STREAM, IPPROTO_TCP, &p.client);
  const bool ok =
      TOV_SktConnect(p.client, reinterpret_cast<sockaddr *>(&at), sizeof at) == TOV_OK &&
      TOV_SktAccept(listener, &p.server, nullptr, nullptr) == TOV_OK;
  TOV_SktDestroy(&listener);
  return ok;
}

// Seconds to move `total` bytes from sender to receiver in `chunk` pieces.
template <typename Send, typename Recv>
double transfer(uint64_t total, uint32_t chunk, Send send, Recv recv) {
  std::vector<char> out(chunk, 'x'), in(chunk);
  const double t0 = bench::nowSeconds();
  std::thread sender([&] {
    for (uint64_t sent = 0; sent < total;) {
      const uint64_t n =
          send(out.data(), static_cast<uint32_t>(std::min<uint64_t>(chunk, total - sent)));
      if (n == 0) std::abort();
      sent += n;
    }
  });
  for (uint64_t got = 0; got < total;) {
    const uint64_t n = recv(in.data(), chunk);
    if (n == 0) std::abort();
    got += n;
  }
  sender.join();
  return bench::nowSeconds() - t0;
}

} // namespace

int main(int argc, char **argv) {
  const uint64_t bigMiB = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 16;
  if (TOV_Startup(nullptr, 0, nullptr, nullptr) != TOV_OK) return 1;
  Pair p;
  if (!makePair(p)) {
    std::printf("could not connect over loopback\n");
    return 1;
  }

  auto libSend = [&](char *data, uint32_t n) -> uint64_t {
    uint64_t sent = 0;
    return TOV_SktSendBuf(p.client, data, n, &sent, 0, nullptr, 0, nullptr) == TOV_OK ? sent : 0;
  };
  auto libRecv = [&](char *data, uint32_t n) -> uint64_t {
    uint64_t got = 0;
    return TOV_SktRecvBuf(p.server, data, n, &got, nullptr, nullptr, nullptr, nullptr) == TOV_OK
               ? got
               : 0;
  };
  auto rawSend = [&](char *data, uint32_t n) -> uint64_t {
    WSABUF b{n, data};
    DWORD sent = 0;
    return WSASend(systemSocket(p.client), &b, 1, &sent, 0, nullptr, nullptr) == 0 ? sent : 0;
  };
  auto rawRecv = [&](char *data, uint32_t n) -> uint64_t {
    WSABUF b{n, data};
    DWORD got = 0, flags = 0;
    return WSARecv(systemSocket(p.server), &b, 1, &got, &flags, nullptr, nullptr) == 0 ? got : 0;
  };

  for (uint32_t chunk : {4u << 10, 64u << 10}) {
    const uint64_t mib = chunk == (64u << 10) ? bigMiB : std::max<uint64_t>(1, bigMiB / 8);
    const uint64_t total = mib << 20;
    double lib = 1e300, raw = 1e300;
    for (int round = 0; round < 9; ++round) {
      if (round % 2) {
        raw = std::min(raw, transfer(total, chunk, rawSend, rawRecv));
        lib = std::min(lib, transfer(total, chunk, libSend, libRecv));
      } else {
        lib = std::min(lib, transfer(total, chunk, libSend, libRecv));
        raw = std::min(raw, transfer(total, chunk, rawSend, rawRecv));
      }
    }
    char what[64];
    std::snprintf(what, sizeof what, "TCP SendBuf/RecvBuf %2u KiB bufs, %llu MiB, best of 9",
                  chunk >> 10, static_cast<unsigned long long>(mib));
    bench::report(what, static_cast<double>(mib) / lib, static_cast<double>(mib) / raw, -0.97,
                  "MiB/s");
  }

  TOV_SktDestroy(&p.client);
  TOV_SktDestroy(&p.server);
  TOV_Cleanup(nullptr);
  return 0;
}
