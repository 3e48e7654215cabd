// Address lists and interface enumeration, each compared with what the
// platform itself answers: the resolver for the same host, the interface
// list of a UDP socket for IPv4, the IP helper library's adapters for IPv6.
// Nothing assumes an interface beyond loopback.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <iphlpapi.h>

#include "tov.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

static bool operator==(const TOV_SktInterface &a, const TOV_SktInterface &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

namespace {

using Bytes = std::vector<uint8_t>;
using Records = std::vector<TOV_SktInterface>;
constexpr uint32_t L = TOV_IF_LOOPBACK, P = TOV_IF_POINTTOPOINT, D = TOV_IF_DOWN;

class Addresses : public testing::Test {
protected:
  void SetUp() override { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK); }
  void TearDown() override { TOV_Cleanup(nullptr); }
};

// Each text gives its port and the resolver's addresses for its host in
// reverse order, cut to 66 bytes (no host: it cannot be resolved, which
// still writes the port, as 0, and leaves the list null).
TEST_F(Addresses, HostAndPortSplitThenResolved) {
  const std::tuple<const char *, uint16_t, const char *> cases[] = {
      {"[::1]:80", 80, "::1"},
      {"[::1]@81", 81, "::1"},
      {"[::1]80", 0, "::1"},                   // no separator after "]": no port
      {"127.0.0.1@8080:9", 8080, "127.0.0.1"}, // the last "@" before any ":"
      {"127.0.0.1", 0, "127.0.0.1"},
      {"localhost: +70000x", 4464, "localhost"}, // decimal, reduced to 16 bits
      {"::1:80", 80, "::1"},                     // unbracketed: the last ":" ends the host,
      {"::1", 0, nullptr},                       // so here the host is ":"
      {"no-such-host.invalid:80", 0, nullptr},
  };
  for (auto [text, port, host] : cases) {
    uint16_t got = 1234;
    TOV_AddrBuf *list = nullptr;
    const TOV_Status status = TOV_GetAddrBufList(text, &got, &list);
    EXPECT_EQ(got, port) << text;
    EXPECT_TRUE(host ? status == TOV_OK : status == 11001 || status == 11002 || status == 11004)
        << text << " " << status;
    std::vector<Bytes> want, nodes;
    addrinfo hints{0, AF_UNSPEC, SOCK_STREAM, 0, 0, nullptr, nullptr, nullptr}, *first = nullptr;
    if (host) {
      EXPECT_EQ(getaddrinfo(host, nullptr, &hints, &first), 0) << host;
      for (const addrinfo *ai = first; ai; ai = ai->ai_next) {
        const auto *a = reinterpret_cast<const uint8_t *>(ai->ai_addr);
        want.insert(want.begin(), Bytes(a, a + std::min<size_t>(ai->ai_addrlen, 66)));
      }
      if (first) freeaddrinfo(first);
    }
    for (const TOV_AddrBuf *n = list; n; n = n->next)
      nodes.emplace_back(n->addr, n->addr + want.at(nodes.size()).size());
    EXPECT_EQ(nodes, want) << text;
    EXPECT_EQ(TOV_FreeAddrBufList(list), TOV_OK);
  }
}

// A list variable that is not null, a null host or no list variable: refused
// with nothing written. The port pointer and the list to free may be null.
TEST_F(Addresses, ListRefusalsAndNulls) {
  TOV_AddrBuf kept{}, *list = &kept;
  uint16_t port = 7;
  EXPECT_EQ(TOV_GetAddrBufList("127.0.0.1:80", &port, &list), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(list, &kept);
  list = nullptr;
  EXPECT_EQ(TOV_GetAddrBufList(nullptr, &port, &list), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_GetAddrBufList("127.0.0.1:80", &port, nullptr), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(port + (list != nullptr), 7);
  ASSERT_EQ(TOV_GetAddrBufList("127.0.0.1:80", nullptr, &list), TOV_OK);
  EXPECT_EQ(TOV_FreeAddrBufList(list), TOV_OK);
  EXPECT_EQ(TOV_FreeAddrBufList(nullptr), TOV_OK);
}

TOV_SktInterface record(uint32_t flags, const void *addr, size_t length) {
  TOV_SktInterface r{flags, {}};
  std::memcpy(r.addr, addr, length);
  return r;
}

// Every interface address of family 2, 23 or 0 (IPX is absent) as the
// platform reports it, with its properties, in the platform's order.
Records platform(uint32_t family) {
  Records out;
  if (family == AF_INET || family == 0) {
    const SOCKET s = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    INTERFACE_INFO list[64];
    DWORD bytes = 0;
    EXPECT_EQ(WSAIoctl(s, SIO_GET_INTERFACE_LIST, 0, 0, list, sizeof list, &bytes, 0, 0), 0);
    closesocket(s);
    for (const INTERFACE_INFO &i : std::vector(list, list + bytes / sizeof *list)) {
      const sockaddr_in a{AF_INET, 0, i.iiAddress.AddressIn.sin_addr, {}};
      out.push_back(record((i.iiFlags & IFF_LOOPBACK ? L : 0) |
                               (i.iiFlags & IFF_POINTTOPOINT ? P : 0) |
                               (i.iiFlags & IFF_UP ? 0 : D),
                           &a, 8));
    }
  }
  if (family == AF_INET6 || family == 0) {
    const HMODULE iphlpapi = LoadLibraryA("iphlpapi.dll"); // freed again: see the restart test
    auto *get = reinterpret_cast<decltype(&GetAdaptersAddresses)>(
        reinterpret_cast<void *>(GetProcAddress(iphlpapi, "GetAdaptersAddresses")));
    ULONG size = 0;
    EXPECT_EQ(get(AF_INET6, 14, nullptr, nullptr, &size), ULONG(ERROR_BUFFER_OVERFLOW));
    std::vector<uint64_t> buffer(size / 8 + 1);
    auto *first = reinterpret_cast<IP_ADAPTER_ADDRESSES *>(buffer.data());
    EXPECT_EQ(get(AF_INET6, 14, nullptr, first, &size), 0u);
    for (const IP_ADAPTER_ADDRESSES *a = first; a; a = a->Next)
      for (auto *u = a->FirstUnicastAddress; u && a->IfType != 131; u = u->Next)
        out.push_back(record((a->IfType == 24 ? L : 0) |
                                 (a->IfType == 23 || a->IfType == 28 ? P : 0) |
                                 (a->OperStatus == IfOperStatusUp ? 0 : D),
                             u->Address.lpSockaddr, u->Address.iSockaddrLength));
    FreeLibrary(iphlpapi);
  }
  return out;
}

// The library's list, read by the count protocol: a count of 0 gives the
// total and touches no record; one record short gives the total and the
// first records; enough room gives them all and leaves the rest alone.
Records enumerate(uint32_t family, uint32_t selector) {
  TOV_SktInterface filler;
  std::memset(&filler, 0xAB, sizeof filler);
  Records all(1, filler);
  uint32_t total = 0, count;
  const TOV_Status status = TOV_SktEnumInterfaces(family, selector, &total, all.data());
  EXPECT_EQ(status, total ? TOV_ERR_BUFFER_TOO_SMALL : TOV_OK);
  EXPECT_EQ(all[0], filler);
  all.assign(total + 1, filler);
  EXPECT_EQ(TOV_SktEnumInterfaces(family, selector, &(count = total + 1), all.data()), TOV_OK);
  EXPECT_TRUE(count == total && all[total] == filler);
  if (total > 0) {
    Records part(total, filler);
    EXPECT_EQ(TOV_SktEnumInterfaces(family, selector, &(count = total - 1), part.data()),
              TOV_ERR_BUFFER_TOO_SMALL);
    EXPECT_TRUE(count == total && part.back() == filler &&
                std::equal(part.begin(), part.end() - 1, all.begin()));
  }
  all.resize(total);
  return all;
}

// Every family and selector lists the platform's addresses whose properties
// the selector allows, in order. IPX (6) is absent here and 99 is no family:
// both list nothing and succeed.
TEST_F(Addresses, InterfacesFilteredBySelector) {
  for (uint32_t family : {0, 2, 6, 23, 99})
    for (uint32_t selector = 0; selector < 8; ++selector) {
      Records want;
      for (const TOV_SktInterface &r : platform(family))
        if ((r.flags & ~selector) == 0) want.push_back(r);
      EXPECT_EQ(enumerate(family, selector), want) << family << " " << selector;
    }
}

// 127.0.0.1 is listed only with the loopback bit, and marked as loopback.
TEST_F(Addresses, LoopbackOnlyWhenSelected) {
  const sockaddr_in loopback{AF_INET, 0, {{{127, 0, 0, 1}}}, {}};
  for (uint32_t selector : {0u, L}) {
    const Records list = enumerate(AF_INET, selector);
    EXPECT_EQ(std::count(list.begin(), list.end(), record(L, &loopback, 8)), selector == L);
  }
}

// The last clean-up unloads the IP helper library; after a new start the
// IPv6 list loads it again and answers as before.
TEST_F(Addresses, InterfacesAgainAfterCleanup) {
  const Records before = enumerate(AF_INET6, L | P | D);
  EXPECT_NE(GetModuleHandleA("iphlpapi.dll"), nullptr);
  TOV_Cleanup(nullptr);
  EXPECT_EQ(GetModuleHandleA("iphlpapi.dll"), nullptr);
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  EXPECT_EQ(enumerate(AF_INET6, L | P | D), before);
}

} // namespace
