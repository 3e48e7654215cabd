// Sockets over real loopback connections, IPv4 and IPv6, TCP and UDP.
#include <winsock2.h>
#include <ws2tcpip.h>

#include "tov.h"

#include <gtest/gtest.h>

#include <cstring>
#include <deque>

namespace {

constexpr int32_t kSocketLevel = 0xFFFF, kReuseAddr = 4;

// A socket address: a family's loopback with port 0 (family 0: room for
// either family), or a socket's local address.
struct Address {
  sockaddr_storage s{};
  int32_t length = sizeof s;
  explicit Address(int family = 0) : length(family == AF_INET ? 16 : 28) {
    s.ss_family = family;
    inet_pton(family, family == AF_INET ? "127.0.0.1" : "::1",
              reinterpret_cast<char *>(&s) + (family == AF_INET ? 4 : 8));
  }
  sockaddr *get() { return reinterpret_cast<sockaddr *>(&s); }
  explicit Address(TOV_Skt *s) { EXPECT_EQ(TOV_SktGetLocalAddress(s, get(), &length), TOV_OK); }
  bool operator==(const Address &a) const { return !memcmp(&s, &a.s, sizeof s); }
};

// Each test runs for IPv4 and IPv6 (skipped where ::1 cannot be bound) with
// the library started; the fixture owns every socket it hands out.
class Net : public testing::TestWithParam<int> {
protected:
  void SetUp() override {
    ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
    const TOV_Status status = TOV_SktBind(sock(SOCK_DGRAM), here.get(), here.length);
    if (status == TOV_ERR_NET_ADDRNOTAVAIL && GetParam() == AF_INET6) GTEST_SKIP() << "no ::1";
    ASSERT_EQ(status, TOV_OK);
  }
  void TearDown() override {
    for (TOV_Skt *&s : owned) EXPECT_EQ(s ? TOV_SktDestroy(&s) : TOV_OK, TOV_OK);
    TOV_Cleanup(nullptr);
  }
  // A TCP or UDP socket (or an empty slot for type 0), bound to loopback on a free port when asked.
  TOV_Skt *&sock(int type, bool bind = false) {
    TOV_Skt *&s = owned.emplace_back(nullptr);
    EXPECT_EQ(type ? TOV_SktCreate(GetParam(), type, 0, &s) : TOV_OK, TOV_OK);
    EXPECT_EQ(bind ? TOV_SktBind(s, here.get(), here.length) : TOV_OK, TOV_OK);
    return s;
  }
  Address here{GetParam()};
  std::deque<TOV_Skt *> owned;
};

INSTANTIATE_TEST_SUITE_P(Families, Net, testing::Values(AF_INET, AF_INET6));

// Listen, connect, accept; an overlapped receive stays pending until a buffer
// list arrives as one stream; after a half close the peer receives 0 bytes
// (and again) while the other direction still works.
TEST_P(Net, ConnectionLife) {
  TOV_Skt *l = sock(SOCK_STREAM, true), *client = sock(SOCK_STREAM), *&server = sock(0);
  ASSERT_EQ(TOV_SktListen(l, 4), TOV_OK);
  Address at(l), peer;
  ASSERT_EQ(TOV_SktConnect(client, at.get(), at.length), TOV_OK);
  ASSERT_EQ(TOV_SktAccept(l, &server, peer.get(), &peer.length), TOV_OK);
  EXPECT_EQ(peer, Address(client));

  WSAOVERLAPPED ov{};
  ov.hEvent = WSACreateEvent();
  char buffer[16] = {}, hello[] = "hello, ", world[] = "world";
  WSABUF parts[2] = {{7, hello}, {5, world}};
  uint64_t sent = 99, received = 99;
  uint32_t flags = 0;
  ASSERT_EQ(TOV_SktRecvBuf(server, buffer, 16, &received, &flags, nullptr, nullptr, &ov), TOV_OK);
  EXPECT_EQ(WaitForSingleObject(ov.hEvent, 100), DWORD(WAIT_TIMEOUT));
  EXPECT_EQ(received, 0u);
  ASSERT_EQ(TOV_SktSend(client, parts, 2, &sent, 0, nullptr, 0, nullptr), TOV_OK);
  EXPECT_EQ(sent, 12u);
  ASSERT_EQ(WaitForSingleObject(ov.hEvent, 5000), DWORD(WAIT_OBJECT_0));
  EXPECT_STREQ(buffer, "hello, world");
  WSACloseEvent(ov.hEvent);

  ASSERT_EQ(TOV_SktShutdown(client, SD_SEND), TOV_OK);
  EXPECT_EQ(TOV_SktSendBuf(client, "x", 1, &sent, 0, nullptr, 0, nullptr), TOV_ERR_NET_SHUTDOWN);
  ASSERT_EQ(TOV_SktSendBuf(server, "bye", 3, &sent, 0, nullptr, 0, nullptr), TOV_OK);
  for (TOV_Skt *s : {server, server, client}) {
    ASSERT_EQ(TOV_SktRecvBuf(s, buffer, 16, &received, nullptr, nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(std::string(buffer, received), s == client ? "bye" : "");
  }
}

// Datagrams scatter over a buffer list and report their source.
TEST_P(Net, DatagramsCarryTheirSource) {
  TOV_Skt *a = sock(SOCK_DGRAM, true), *b = sock(SOCK_DGRAM, true);
  Address aAt(a), bAt(b), from;
  uint64_t received = 0;
  char head[2], tail[8];
  WSABUF parts[2] = {{2, head}, {8, tail}};
  ASSERT_EQ(TOV_SktSendBuf(a, "ping", 4, nullptr, 0, bAt.get(), bAt.length, nullptr), TOV_OK);
  ASSERT_EQ(TOV_SktReceive(b, parts, 2, &received, nullptr, from.get(), &from.length, nullptr), 0);
  EXPECT_EQ(std::string(head, 2) + std::string(tail, 2) + std::to_string(received), "ping4");
  EXPECT_EQ(from, aAt);
}

// System failures map to their network codes: refused connect, address in
// use, a non-blocking connect that would block, and a failed close (which
// still frees the object and clears the variable, so that a second destroy is
// refused, not a crash).
TEST_P(Net, FailuresHaveTheirNetworkCodes) {
  TOV_Skt *held = sock(SOCK_STREAM, true), *client = sock(SOCK_STREAM), *&s = sock(SOCK_STREAM);
  Address at(held);
  u_long on = 1;
  EXPECT_EQ(TOV_SktConnect(sock(SOCK_STREAM), at.get(), at.length), TOV_ERR_NET_CONNREFUSED);
  EXPECT_EQ(TOV_SktBind(sock(SOCK_STREAM), at.get(), at.length), TOV_ERR_NET_ADDRINUSE);
  ASSERT_EQ(TOV_SktListen(held, 4), TOV_OK);
  ASSERT_EQ(TOV_SktIOCtl(client, FIONBIO, &on, sizeof on, nullptr, nullptr, nullptr), TOV_OK);
  EXPECT_EQ(TOV_SktConnect(client, at.get(), at.length), TOV_ERR_NET_WOULDBLOCK);
  // The object's first field is its system socket: closing that behind the
  // library's back makes the library's own close fail.
  ASSERT_EQ(closesocket(*reinterpret_cast<SOCKET *>(s)), 0);
  EXPECT_EQ(TOV_SktDestroy(&s), TOV_ERR_NET_NOTSOCK);
  EXPECT_EQ(s, nullptr);
  EXPECT_EQ(TOV_SktDestroy(&s), TOV_ERR_INVALID_HANDLE);
}

// The remembered address-reuse option reads back as 0 or 1 and never reaches
// the system socket: the system's option on one socket does not show as the
// remembered one, the remembered one does not show as the system's, and a
// socket with it binding a taken port fails as a plain socket does (with the
// system's option the failure would be access denied).
TEST_P(Net, RememberedAddressReuseNeverReachesTheSystem) {
  TOV_Skt *s = sock(SOCK_STREAM, true), *second = sock(SOCK_STREAM);
  auto get = [](TOV_Skt *on, int32_t name) {
    uint32_t v = 77;
    uint64_t length = name == kReuseAddr ? 0 : 4; // the remembered one ignores it
    EXPECT_EQ(TOV_SktGetOption(on, kSocketLevel, name, &v, &length), TOV_OK);
    EXPECT_EQ(length, 4u);
    return v;
  };
  const uint32_t five = 5, one = 1;
  Address held(s);
  EXPECT_EQ(TOV_SktSetOption(s, kSocketLevel, TOV_SO_REUSEPORT, &one, 4), TOV_OK);
  EXPECT_EQ(get(s, kReuseAddr), 0u);
  EXPECT_EQ(TOV_SktSetOption(second, kSocketLevel, kReuseAddr, &five, 0), TOV_OK);
  EXPECT_EQ(get(second, kReuseAddr), 1u);
  EXPECT_EQ(get(second, TOV_SO_REUSEPORT), 0u);
  EXPECT_EQ(TOV_SktBind(second, held.get(), held.length), TOV_ERR_NET_ADDRINUSE);
}

} // namespace
