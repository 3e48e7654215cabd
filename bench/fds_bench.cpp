// TOV_FDSSelect against a bare select over the same system sockets, with 1,
// 64, 512 and 2048 UDP sockets of which one is readable. The raw side copies
// a prepared descriptor array into an exactly-sized fd_set before each call
// (select rewrites it), which is the least any caller of select must do.
#include <winsock2.h>

#include "bench.h"
#include "tov.h"

// The socket object, to reach the same system sockets for the raw side.
#include "../src/net/socket.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

struct BigFdSet {
  u_int fd_count;
  SOCKET fd_array[];
};

void measure(size_t n) {
  std::vector<TOV_Skt *> socks(n, nullptr);
  std::vector<SOCKET> raw(n);
  TOV_FDS *set = nullptr;
  if (TOV_FDSCreate(static_cast<uint32_t>(n), &set) != TOV_OK) std::abort();
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  for (size_t i = 0; i < n; ++i) {
    if (TOV_SktCreate(AF_INET, SOCK_DGRAM, IPPROTO_UDP, &socks[i]) != TOV_OK ||
        TOV_SktBind(socks[i], reinterpret_cast<sockaddr *>(&a), sizeof a) != TOV_OK ||
        TOV_FDSAssociate(set, socks[i], TOV_FDS_READ, i) != TOV_OK)
      std::abort();
    tov::sktSystemSocket(socks[i], &raw[i]);
  }
  // One datagram, never read: that socket stays readable.
  TOV_Skt *ready = socks[n / 2];
  sockaddr_in to{};
  int32_t toLen = sizeof to;
  TOV_Skt *sender = nullptr;
  if (TOV_SktGetLocalAddress(ready, reinterpret_cast<sockaddr *>(&to), &toLen) != TOV_OK ||
      TOV_SktCreate(AF_INET, SOCK_DGRAM, IPPROTO_UDP, &sender) != TOV_OK ||
      TOV_SktSendBuf(sender, "x", 1, nullptr, 0, reinterpret_cast<sockaddr *>(&to), toLen,
                     nullptr) != TOV_OK)
    std::abort();
  TOV_FDSResult result[4];
  uint32_t count = 4;
  if (TOV_FDSSelect(set, TOV_FDS_READ, result, &count, 5000) != TOV_OK || count != 1) std::abort();

  const uint64_t iterations = n <= 64 ? 1000 : n <= 512 ? 150 : 40;
  const int rounds = n <= 64 ? 5 : 3;
  const double lib = bench::nsPerOp(
      iterations,
      [&](uint64_t) {
        uint32_t c = 4;
        if (TOV_FDSSelect(set, TOV_FDS_READ, result, &c, 0) != TOV_OK || c != 1) std::abort();
      },
      rounds);
  auto *fs =
      static_cast<BigFdSet *>(std::malloc(offsetof(BigFdSet, fd_array) + n * sizeof(SOCKET)));
  timeval zero{0, 0};
  const double rawNs = bench::nsPerOp(
      iterations,
      [&](uint64_t) {
        fs->fd_count = static_cast<u_int>(n);
        std::memcpy(fs->fd_array, raw.data(), n * sizeof(SOCKET));
        if (select(0, reinterpret_cast<fd_set *>(fs), nullptr, nullptr, &zero) != 1) std::abort();
      },
      rounds);
  std::free(fs);

  char what[80];
  std::snprintf(what, sizeof what, "TOV_FDSSelect vs select, %zu sockets, 1 ready", n);
  bench::report(what, lib / 1000.0, rawNs / 1000.0, 1.2, "us/call");
  std::printf("  per associated socket: lib %.2f us, raw %.2f us\n", lib / 1000.0 / n,
              rawNs / 1000.0 / n);

  TOV_SktDestroy(&sender);
  TOV_FDSDestroy(&set, [](TOV_Skt *s, uint32_t, uint64_t) { return TOV_SktDestroy(&s); });
}

} // namespace

int main() {
  if (TOV_Startup(nullptr, 0, nullptr, nullptr) != TOV_OK) return 1;
  for (size_t n : {1, 64, 512, 2048}) measure(n);
  TOV_Cleanup(nullptr);
  return 0;
}
