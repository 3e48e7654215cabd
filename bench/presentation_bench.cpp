// Reading and writing address texts against the system's inet_pton and
// inet_ntop on the same addresses: IPv4, and IPv6 (the system gets the
// bracket-free form, the library its bracketed one).
#include <winsock2.h>
#include <ws2tcpip.h>

#include "bench.h"
#include "tov.h"

#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int kAddresses = 64;
constexpr uint64_t kIterations = 200000;

} // namespace

int main() {
  std::mt19937 rng(1);
  std::vector<sockaddr_in> v4(kAddresses);
  std::vector<sockaddr_in6> v6(kAddresses);
  std::vector<std::string> v4Text(kAddresses), v6Text(kAddresses), v6Bracketed(kAddresses);
  for (int i = 0; i < kAddresses; ++i) {
    v4[i] = sockaddr_in{};
    v4[i].sin_family = AF_INET;
    v4[i].sin_addr.s_addr = rng();
    v6[i] = sockaddr_in6{};
    v6[i].sin6_family = AF_INET6;
    // Typical addresses: a prefix, a run of zeros, an interface part.
    const uint16_t groups[8] = {0x2001, 0xdb8,           uint16_t(rng()), 0,
                                0,      uint16_t(rng()), uint16_t(rng()), uint16_t(rng() % 256)};
    for (int g = 0; g < 8; ++g) {
      v6[i].sin6_addr.s6_addr[2 * g] = uint8_t(groups[g] >> 8);
      v6[i].sin6_addr.s6_addr[2 * g + 1] = uint8_t(groups[g]);
    }
    char text[TOV_PRES_MAX_TEXT];
    TOV_SktNetToPresentation(reinterpret_cast<sockaddr *>(&v4[i]), 0, text);
    v4Text[i] = text;
    TOV_SktNetToPresentation(reinterpret_cast<sockaddr *>(&v6[i]), 0, text);
    v6Bracketed[i] = text;
    v6Text[i] = v6Bracketed[i].substr(1, v6Bracketed[i].size() - 2);
  }

  const auto at = [](uint64_t i) { return static_cast<size_t>(i % kAddresses); };
  char out[64];
  sockaddr_in6 record;
  uint32_t flags;

  const double libRead4 = bench::nsPerOp(kIterations, [&](uint64_t i) {
    uint64_t size = sizeof record;
    TOV_SktPresentationToNet(v4Text[at(i)].c_str(), &flags, reinterpret_cast<sockaddr *>(&record),
                             &size);
    bench::keep(record);
  });
  const double rawRead4 = bench::nsPerOp(kIterations, [&](uint64_t i) {
    inet_pton(AF_INET, v4Text[at(i)].c_str(), &record.sin6_addr);
    bench::keep(record);
  });
  bench::report("read IPv4 text vs inet_pton", libRead4, rawRead4, 1.0);

  const double libRead6 = bench::nsPerOp(kIterations, [&](uint64_t i) {
    uint64_t size = sizeof record;
    TOV_SktPresentationToNet(v6Bracketed[at(i)].c_str(), &flags,
                             reinterpret_cast<sockaddr *>(&record), &size);
    bench::keep(record);
  });
  const double rawRead6 = bench::nsPerOp(kIterations, [&](uint64_t i) {
    inet_pton(AF_INET6, v6Text[at(i)].c_str(), &record.sin6_addr);
    bench::keep(record);
  });
  bench::report("read IPv6 text vs inet_pton", libRead6, rawRead6, 1.0);

  const double libWrite4 = bench::nsPerOp(kIterations, [&](uint64_t i) {
    TOV_SktNetToPresentation(reinterpret_cast<sockaddr *>(&v4[at(i)]), 0, out);
    bench::keep(out);
  });
  const double rawWrite4 = bench::nsPerOp(kIterations, [&](uint64_t i) {
    inet_ntop(AF_INET, &v4[at(i)].sin_addr, out, sizeof out);
    bench::keep(out);
  });
  bench::report("write IPv4 text vs inet_ntop", libWrite4, rawWrite4, 1.0);

  const double libWrite6 = bench::nsPerOp(kIterations, [&](uint64_t i) {
    TOV_SktNetToPresentation(reinterpret_cast<sockaddr *>(&v6[at(i)]), 0, out);
    bench::keep(out);
  });
  const double rawWrite6 = bench::nsPerOp(kIterations, [&](uint64_t i) {
    inet_ntop(AF_INET6, &v6[at(i)].sin6_addr, out, sizeof out);
    bench::keep(out);
  });
  bench::report("write IPv6 text vs inet_ntop", libWrite6, rawWrite6, 1.0);
  return 0;
}
