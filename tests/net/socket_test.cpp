// Sockets over real loopback connections, IPv4 and IPv6, TCP and UDP.
#include <winsock2.h>
#include <ws2tcpip.h>

#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

namespace {

constexpr int32_t kSocketLevel = 0xFFFF;
constexpr int32_t kReuseAddr = 4;

struct Address {
  sockaddr_storage storage{};
  int32_t length = 0;
  sockaddr *get() { return reinterpret_cast<sockaddr *>(&storage); }
  uint16_t port() const {
    return ntohs(storage.ss_family == AF_INET
                     ? reinterpret_cast<const sockaddr_in &>(storage).sin_port
                     : reinterpret_cast<const sockaddr_in6 &>(storage).sin6_port);
  }
};

Address loopback(int family, uint16_t port = 0) {
  Address a;
  if (family == AF_INET) {
    auto &in = reinterpret_cast<sockaddr_in &>(a.storage);
    in.sin_family = AF_INET;
    in.sin_port = htons(port);
    in.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    a.length = sizeof in;
  } else {
    auto &in6 = reinterpret_cast<sockaddr_in6 &>(a.storage);
    in6.sin6_family = AF_INET6;
    in6.sin6_port = htons(port);
    in6.sin6_addr.s6_addr[15] = 1;
    a.length = sizeof in6;
  }
  return a;
}

bool sameAddress(Address a, Address b) {
  return a.length == b.length && std::memcmp(&a.storage, &b.storage, a.length) == 0;
}

// Owns a TOV_Skt for the length of a test.
class Skt {
public:
  Skt() = default;
  explicit Skt(TOV_Skt *s) : s_(s) {}
  Skt(const Skt &) = delete;
  Skt &operator=(const Skt &) = delete;
  ~Skt() {
    if (s_) TOV_SktDestroy(&s_);
  }
  TOV_Skt *get() const { return s_; }
  TOV_Skt **out() { return &s_; }

private:
  TOV_Skt *s_ = nullptr;
};

Address localAddress(TOV_Skt *s) {
  Address a;
  a.length = sizeof a.storage;
  EXPECT_EQ(TOV_SktGetLocalAddress(s, a.get(), &a.length), TOV_OK);
  return a;
}

class Started : public testing::Test {
protected:
  void SetUp() override { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK); }
  void TearDown() override { TOV_Cleanup(nullptr); }
};

// The same tests for IPv4 and IPv6.
class Net : public testing::TestWithParam<int> {
protected:
  void SetUp() override { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK); }
  void TearDown() override { TOV_Cleanup(nullptr); }

  int family() const { return GetParam(); }

  // A socket bound to the loopback address on a free port; skips the test
  // when the machine has no IPv6 loopback.
  void bound(Skt &s, int type, int protocol) {
    ASSERT_EQ(TOV_SktCreate(family(), type, protocol, s.out()), TOV_OK);
    Address a = loopback(family());
    const TOV_Status status = TOV_SktBind(s.get(), a.get(), a.length);
    if (status == TOV_ERR_NET_ADDRNOTAVAIL && family() == AF_INET6)
      GTEST_SKIP() << "no IPv6 loopback";
    ASSERT_EQ(status, TOV_OK);
  }

  // A connected pair: client, and the server side accepted from a listener.
  void connected(Skt &client, Skt &server) {
    Skt listener;
    bound(listener, SOCK_STREAM, IPPROTO_TCP);
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_EQ(TOV_SktListen(listener.get(), 4), TOV_OK);
    Address at = localAddress(listener.get());
    ASSERT_EQ(TOV_SktCreate(family(), SOCK_STREAM, IPPROTO_TCP, client.out()), TOV_OK);
    ASSERT_EQ(TOV_SktConnect(client.get(), at.get(), at.length), TOV_OK);
    ASSERT_EQ(TOV_SktAccept(listener.get(), server.out(), nullptr, nullptr), TOV_OK);
  }
};

INSTANTIATE_TEST_SUITE_P(Families, Net, testing::Values(AF_INET, AF_INET6),
                         [](const testing::TestParamInfo<int> &info) {
                           return std::string(info.param == AF_INET ? "IPv4" : "IPv6");
                         });

TEST(SktFrame, EveryFunctionNeedsTheLibraryStarted) {
  auto check = [] {
    char byte = 0;
    TOV_Skt *none = nullptr;
    EXPECT_EQ(TOV_SktCreate(AF_INET, SOCK_STREAM, 0, &none), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(TOV_SktCreate(0, 0, 0, nullptr), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktDestroy(nullptr), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktBind(nullptr, nullptr, 0), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktListen(nullptr, 0), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktAccept(nullptr, nullptr, nullptr, nullptr), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktConnect(nullptr, nullptr, 0), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktShutdown(nullptr, 0), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktGetLocalAddress(nullptr, nullptr, nullptr), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktGetRemoteAddress(nullptr, nullptr, nullptr), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktGetOption(nullptr, 0, 0, nullptr, nullptr), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktSetOption(nullptr, 0, 0, nullptr, 0), TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktIOCtl(nullptr, 0, nullptr, 0, nullptr, nullptr, nullptr),
              TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktSend(nullptr, nullptr, 0, nullptr, 0, nullptr, 0, nullptr),
              TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktSendBuf(nullptr, &byte, 1, nullptr, 0, nullptr, 0, nullptr),
              TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktReceive(nullptr, nullptr, 0, nullptr, nullptr, nullptr, nullptr, nullptr),
              TOV_ERR_NOT_INITIALIZED);
    EXPECT_EQ(TOV_SktRecvBuf(nullptr, &byte, 1, nullptr, nullptr, nullptr, nullptr, nullptr),
              TOV_ERR_NOT_INITIALIZED);
  };
  check();
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  TOV_Cleanup(nullptr);
  check();
}

TEST_F(Started, ArgumentRules) {
  Skt s;
  ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_DGRAM, IPPROTO_UDP, s.out()), TOV_OK);
  Address a = loopback(AF_INET);
  char byte = 0;
  uint32_t u32 = 0;
  uint64_t length = 4;
  int32_t i32 = sizeof(sockaddr_in);
  WSABUF buf{1, &byte};
  TOV_Skt *untouched = reinterpret_cast<TOV_Skt *>(0x1234);
  const TOV_Status bad = TOV_ERR_INVALID_PARAMETER;

  EXPECT_EQ(TOV_SktCreate(AF_INET, SOCK_STREAM, 0, nullptr), bad);
  EXPECT_EQ(TOV_SktDestroy(nullptr), bad);
  EXPECT_EQ(TOV_SktBind(nullptr, a.get(), a.length), bad);
  EXPECT_EQ(TOV_SktBind(s.get(), nullptr, a.length), bad);
  EXPECT_EQ(TOV_SktBind(s.get(), a.get(), 0), bad);
  EXPECT_EQ(TOV_SktListen(nullptr, 1), bad);
  EXPECT_EQ(TOV_SktAccept(nullptr, &untouched, nullptr, nullptr), bad);
  EXPECT_EQ(TOV_SktAccept(s.get(), nullptr, nullptr, nullptr), bad);
  EXPECT_EQ(untouched, reinterpret_cast<TOV_Skt *>(0x1234));
  EXPECT_EQ(TOV_SktConnect(nullptr, a.get(), a.length), bad);
  EXPECT_EQ(TOV_SktConnect(s.get(), nullptr, a.length), bad);
  EXPECT_EQ(TOV_SktConnect(s.get(), a.get(), 0), bad);
  EXPECT_EQ(TOV_SktShutdown(nullptr, 2), bad);
  EXPECT_EQ(TOV_SktGetLocalAddress(nullptr, a.get(), &i32), bad);
  EXPECT_EQ(TOV_SktGetLocalAddress(s.get(), nullptr, &i32), bad);
  EXPECT_EQ(TOV_SktGetLocalAddress(s.get(), a.get(), nullptr), bad);
  EXPECT_EQ(TOV_SktGetRemoteAddress(nullptr, a.get(), &i32), bad);
  EXPECT_EQ(TOV_SktGetRemoteAddress(s.get(), nullptr, &i32), bad);
  EXPECT_EQ(TOV_SktGetRemoteAddress(s.get(), a.get(), nullptr), bad);
  EXPECT_EQ(TOV_SktGetOption(nullptr, SOL_SOCKET, SO_TYPE, &u32, &length), bad);
  EXPECT_EQ(TOV_SktGetOption(s.get(), SOL_SOCKET, SO_TYPE, nullptr, &length), bad);
  EXPECT_EQ(TOV_SktSetOption(nullptr, SOL_SOCKET, SO_RCVBUF, &u32, 4), bad);
  EXPECT_EQ(TOV_SktSetOption(s.get(), SOL_SOCKET, SO_RCVBUF, nullptr, 4), bad);
  EXPECT_EQ(TOV_SktIOCtl(nullptr, FIONREAD, nullptr, 0, nullptr, nullptr, nullptr), bad);
  EXPECT_EQ(TOV_SktIOCtl(s.get(), FIONBIO, nullptr, 4, nullptr, nullptr, nullptr), bad);
  EXPECT_EQ(TOV_SktIOCtl(s.get(), FIONREAD, nullptr, 0, nullptr, &length, nullptr), bad);
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(TOV_SktSend(nullptr, &buf, 1, nullptr, 0, nullptr, 0, nullptr), bad);
  EXPECT_EQ(TOV_SktSend(s.get(), nullptr, 1, nullptr, 0, nullptr, 0, nullptr), bad);
  EXPECT_EQ(TOV_SktSendBuf(nullptr, &byte, 1, nullptr, 0, nullptr, 0, nullptr), bad);
  EXPECT_EQ(TOV_SktSendBuf(s.get(), nullptr, 1, nullptr, 0, nullptr, 0, nullptr), bad);
  EXPECT_EQ(TOV_SktReceive(nullptr, &buf, 1, nullptr, nullptr, nullptr, nullptr, nullptr), bad);
  EXPECT_EQ(TOV_SktReceive(s.get(), nullptr, 1, nullptr, nullptr, nullptr, nullptr, nullptr), bad);
  EXPECT_EQ(TOV_SktRecvBuf(nullptr, &byte, 1, nullptr, nullptr, nullptr, nullptr, nullptr), bad);
  EXPECT_EQ(TOV_SktRecvBuf(s.get(), nullptr, 1, nullptr, nullptr, nullptr, nullptr, nullptr), bad);

  // Null buffers that the rules let through reach the platform.
  u32 = 1;
  EXPECT_EQ(TOV_SktIOCtl(s.get(), FIONBIO, &u32, 4, nullptr, nullptr, nullptr), TOV_OK);
  uint64_t zero = 0;
  EXPECT_EQ(TOV_SktIOCtl(s.get(), FIONBIO, &u32, 4, nullptr, &zero, nullptr), TOV_OK);
  EXPECT_EQ(zero, 0u);
}

TEST_F(Started, CreateAndDestroy) {
  TOV_Skt *s = nullptr;
  EXPECT_EQ(TOV_SktCreate(99, SOCK_STREAM, 0, &s), TOV_ERR_NET_AFNOSUPPORT);
  EXPECT_EQ(s, nullptr);
  EXPECT_EQ(TOV_SktCreate(AF_INET, SOCK_STREAM, IPPROTO_UDP, &s), TOV_ERR_NET_PROTONOSUPPORT);
  EXPECT_EQ(s, nullptr);

  ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_STREAM, IPPROTO_TCP, &s), TOV_OK);
  ASSERT_NE(s, nullptr);
  uint32_t type = 0;
  uint64_t length = sizeof type;
  EXPECT_EQ(TOV_SktGetOption(s, SOL_SOCKET, SO_TYPE, &type, &length), TOV_OK);
  EXPECT_EQ(type, static_cast<uint32_t>(SOCK_STREAM));
  EXPECT_EQ(length, 4u);
  EXPECT_EQ(TOV_SktDestroy(&s), TOV_OK);
  EXPECT_EQ(s, nullptr);

  // A failed close still frees the object and clears the variable. The
  // object's first field is its system socket; closing that behind the
  // library's back makes the library's own close fail.
  ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_STREAM, IPPROTO_TCP, &s), TOV_OK);
  ASSERT_EQ(closesocket(*reinterpret_cast<SOCKET *>(s)), 0);
  EXPECT_EQ(TOV_SktDestroy(&s), TOV_ERR_NET_NOTSOCK);
  EXPECT_EQ(s, nullptr);
}

TEST_P(Net, ConnectionLife) {
  Skt listener, client, server;
  bound(listener, SOCK_STREAM, IPPROTO_TCP);
  if (IsSkipped() || HasFatalFailure()) return;
  ASSERT_EQ(TOV_SktListen(listener.get(), 4), TOV_OK);
  Address at = localAddress(listener.get());
  EXPECT_NE(at.port(), 0);

  ASSERT_EQ(TOV_SktCreate(family(), SOCK_STREAM, IPPROTO_TCP, client.out()), TOV_OK);
  ASSERT_EQ(TOV_SktConnect(client.get(), at.get(), at.length), TOV_OK);
  Address peer;
  peer.length = sizeof peer.storage;
  ASSERT_EQ(TOV_SktAccept(listener.get(), server.out(), peer.get(), &peer.length), TOV_OK);
  ASSERT_NE(server.get(), nullptr);

  // Both ends agree on who is who.
  EXPECT_TRUE(sameAddress(peer, localAddress(client.get())));
  Address remote;
  remote.length = sizeof remote.storage;
  ASSERT_EQ(TOV_SktGetRemoteAddress(client.get(), remote.get(), &remote.length), TOV_OK);
  EXPECT_TRUE(sameAddress(remote, at));

  // A buffer list goes out as one stream.
  char hello[] = "hello, ", world[] = "world";
  WSABUF parts[2] = {{7, hello}, {5, world}};
  uint64_t sent = 99;
  ASSERT_EQ(TOV_SktSend(client.get(), parts, 2, &sent, 0, nullptr, 0, nullptr), TOV_OK);
  EXPECT_EQ(sent, 12u);
  EXPECT_EQ(TOV_SktSendBuf(client.get(), nullptr, 0, &sent, 0, nullptr, 0, nullptr), TOV_OK);
  EXPECT_EQ(sent, 0u);
  ASSERT_EQ(TOV_SktShutdown(client.get(), SD_SEND), TOV_OK);
  EXPECT_EQ(TOV_SktSendBuf(client.get(), "x", 1, &sent, 0, nullptr, 0, nullptr),
            TOV_ERR_NET_SHUTDOWN);

  std::string got;
  for (;;) {
    char chunk[5];
    uint64_t received = 99;
    uint32_t flags = 0;
    ASSERT_EQ(TOV_SktRecvBuf(server.get(), chunk, sizeof chunk, &received, &flags, nullptr, nullptr,
                             nullptr),
              TOV_OK);
    if (received == 0) break;
    got.append(chunk, received);
    ASSERT_LE(got.size(), 12u);
  }
  EXPECT_EQ(got, "hello, world");
  // The end of the stream stays: a further receive gives 0 bytes again.
  uint64_t received = 99;
  char byte;
  EXPECT_EQ(TOV_SktRecvBuf(server.get(), &byte, 1, &received, nullptr, nullptr, nullptr, nullptr),
            TOV_OK);
  EXPECT_EQ(received, 0u);

  // The other direction still works after the half close.
  ASSERT_EQ(TOV_SktSendBuf(server.get(), "bye", 3, nullptr, 0, nullptr, 0, nullptr), TOV_OK);
  char bye[3] = {};
  ASSERT_EQ(TOV_SktRecvBuf(client.get(), bye, 3, &received, nullptr, nullptr, nullptr, nullptr),
            TOV_OK);
  EXPECT_EQ(std::string(bye, received), "bye");

  EXPECT_EQ(TOV_SktDestroy(server.out()), TOV_OK);
  EXPECT_EQ(server.get(), nullptr);
}

TEST_P(Net, DatagramsCarryTheirSource) {
  Skt a, b;
  bound(a, SOCK_DGRAM, IPPROTO_UDP);
  if (IsSkipped() || HasFatalFailure()) return;
  bound(b, SOCK_DGRAM, IPPROTO_UDP);
  Address aAt = localAddress(a.get()), bAt = localAddress(b.get());

  uint64_t sent = 0;
  ASSERT_EQ(TOV_SktSendBuf(a.get(), "ping", 4, &sent, 0, bAt.get(), bAt.length, nullptr), TOV_OK);
  EXPECT_EQ(sent, 4u);
  char head[2], tail[8];
  WSABUF parts[2] = {{2, head}, {8, tail}};
  Address from;
  from.length = sizeof from.storage;
  uint64_t received = 0;
  uint32_t flags = 0;
  ASSERT_EQ(TOV_SktReceive(b.get(), parts, 2, &received, &flags, from.get(), &from.length, nullptr),
            TOV_OK);
  EXPECT_EQ(received, 4u);
  EXPECT_EQ(std::string(head, 2) + std::string(tail, 2), "ping");
  EXPECT_EQ(flags, 0u);
  EXPECT_TRUE(sameAddress(from, aAt));

  // The answer goes back to the source that was reported.
  WSABUF pong{4, const_cast<char *>("pong")};
  ASSERT_EQ(TOV_SktSend(b.get(), &pong, 1, nullptr, 0, from.get(), from.length, nullptr), TOV_OK);
  char answer[16];
  from = Address{};
  from.length = sizeof from.storage;
  ASSERT_EQ(TOV_SktRecvBuf(a.get(), answer, sizeof answer, &received, nullptr, from.get(),
                           &from.length, nullptr),
            TOV_OK);
  EXPECT_EQ(std::string(answer, received), "pong");
  EXPECT_TRUE(sameAddress(from, bAt));
}

TEST_P(Net, RefusedConnectAndAddressInUse) {
  Skt holder, second, client;
  bound(holder, SOCK_STREAM, IPPROTO_TCP);
  if (IsSkipped() || HasFatalFailure()) return;
  Address held = localAddress(holder.get());

  // The port is bound but nobody listens.
  ASSERT_EQ(TOV_SktCreate(family(), SOCK_STREAM, IPPROTO_TCP, client.out()), TOV_OK);
  EXPECT_EQ(TOV_SktConnect(client.get(), held.get(), held.length), TOV_ERR_NET_CONNREFUSED);

  ASSERT_EQ(TOV_SktCreate(family(), SOCK_STREAM, IPPROTO_TCP, second.out()), TOV_OK);
  EXPECT_EQ(TOV_SktBind(second.get(), held.get(), held.length), TOV_ERR_NET_ADDRINUSE);
}

TEST_P(Net, NonBlockingConnectWouldBlock) {
  Skt listener, client;
  bound(listener, SOCK_STREAM, IPPROTO_TCP);
  if (IsSkipped() || HasFatalFailure()) return;
  ASSERT_EQ(TOV_SktListen(listener.get(), 4), TOV_OK);
  Address at = localAddress(listener.get());

  ASSERT_EQ(TOV_SktCreate(family(), SOCK_STREAM, IPPROTO_TCP, client.out()), TOV_OK);
  u_long on = 1;
  uint64_t returned = 0; // no output buffer: its length must be 0
  ASSERT_EQ(TOV_SktIOCtl(client.get(), FIONBIO, &on, sizeof on, nullptr, &returned, nullptr),
            TOV_OK);
  EXPECT_EQ(returned, 0u);
  EXPECT_EQ(TOV_SktConnect(client.get(), at.get(), at.length), TOV_ERR_NET_WOULDBLOCK);

  // The connection completes later; until data comes, a non-blocking
  // receive would block and reports no count.
  Skt server;
  ASSERT_EQ(TOV_SktAccept(listener.get(), server.out(), nullptr, nullptr), TOV_OK);
  ASSERT_EQ(TOV_SktIOCtl(server.get(), FIONBIO, &on, sizeof on, nullptr, nullptr, nullptr), TOV_OK);
  char byte;
  uint64_t received = 77;
  uint32_t flags = MSG_PEEK;
  EXPECT_EQ(TOV_SktRecvBuf(server.get(), &byte, 1, &received, &flags, nullptr, nullptr, nullptr),
            TOV_ERR_NET_WOULDBLOCK);
  EXPECT_EQ(received, 77u);
  EXPECT_EQ(flags, static_cast<uint32_t>(MSG_PEEK));
}

TEST_P(Net, OverlappedReceiveStaysPending) {
  Skt client, server;
  connected(client, server);
  if (IsSkipped() || HasFatalFailure()) return;

  WSAOVERLAPPED ov{};
  ov.hEvent = WSACreateEvent();
  ASSERT_NE(ov.hEvent, WSA_INVALID_EVENT);
  char buffer[16] = {};
  uint64_t received = 77;
  uint32_t flags = 0;
  ASSERT_EQ(
      TOV_SktRecvBuf(server.get(), buffer, sizeof buffer, &received, &flags, nullptr, nullptr, &ov),
      TOV_OK);
  EXPECT_EQ(received, 0u);
  EXPECT_EQ(WaitForSingleObject(ov.hEvent, 100), static_cast<DWORD>(WAIT_TIMEOUT));

  ASSERT_EQ(TOV_SktSendBuf(client.get(), "late", 4, nullptr, 0, nullptr, 0, nullptr), TOV_OK);
  ASSERT_EQ(WaitForSingleObject(ov.hEvent, 5000), static_cast<DWORD>(WAIT_OBJECT_0));
  SOCKET system = *reinterpret_cast<SOCKET *>(server.get());
  DWORD count = 0, resultFlags = 0;
  ASSERT_TRUE(WSAGetOverlappedResult(system, &ov, &count, FALSE, &resultFlags));
  EXPECT_EQ(std::string(buffer, count), "late");
  WSACloseEvent(ov.hEvent);
}

TEST_P(Net, ControlCodesReportTheirOutput) {
  Skt client, server;
  connected(client, server);
  if (IsSkipped() || HasFatalFailure()) return;
  ASSERT_EQ(TOV_SktSendBuf(client.get(), "abc", 3, nullptr, 0, nullptr, 0, nullptr), TOV_OK);

  // Wait until all three bytes are there, then ask how many.
  u_long pending = 0;
  uint64_t length = 0;
  for (int i = 0; i < 500 && pending < 3; ++i) {
    length = sizeof pending;
    ASSERT_EQ(TOV_SktIOCtl(server.get(), FIONREAD, nullptr, 0, &pending, &length, nullptr), TOV_OK);
    if (pending < 3) Sleep(2);
  }
  EXPECT_EQ(pending, 3u);
  EXPECT_EQ(length, sizeof(u_long));

  length = 123;
  EXPECT_EQ(TOV_SktIOCtl(server.get(), 0x7FFFFFF0, nullptr, 0, &pending, &length, nullptr),
            TOV_ERR_NET_OPNOTSUPP);
  EXPECT_EQ(length, 123u);
}

TEST_F(Started, RememberedAddressReuseNeverReachesTheSystem) {
  Skt s;
  ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_STREAM, IPPROTO_TCP, s.out()), TOV_OK);
  auto remembered = [&] {
    uint32_t v = 77;
    uint64_t length = 0; // not looked at
    EXPECT_EQ(TOV_SktGetOption(s.get(), kSocketLevel, kReuseAddr, &v, &length), TOV_OK);
    EXPECT_EQ(length, 4u);
    return v;
  };
  auto system = [&] {
    uint32_t v = 77;
    uint64_t length = sizeof v;
    EXPECT_EQ(TOV_SktGetOption(s.get(), kSocketLevel, TOV_SO_REUSEPORT, &v, &length), TOV_OK);
    EXPECT_EQ(length, 4u);
    return v;
  };

  EXPECT_EQ(remembered(), 0u);
  const uint32_t five = 5, zero = 0, one = 1;
  EXPECT_EQ(TOV_SktSetOption(s.get(), kSocketLevel, kReuseAddr, &five, 0), TOV_OK);
  EXPECT_EQ(remembered(), 1u);
  EXPECT_EQ(system(), 0u);
  EXPECT_EQ(TOV_SktSetOption(s.get(), kSocketLevel, kReuseAddr, &zero, 4), TOV_OK);
  EXPECT_EQ(remembered(), 0u);

  EXPECT_EQ(TOV_SktSetOption(s.get(), kSocketLevel, TOV_SO_REUSEPORT, &one, sizeof one), TOV_OK);
  EXPECT_EQ(system(), 1u);
  EXPECT_EQ(remembered(), 0u);

  // Null values: nothing to read or write for the remembered option.
  EXPECT_EQ(TOV_SktGetOption(s.get(), kSocketLevel, kReuseAddr, nullptr, nullptr),
            TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_SktSetOption(s.get(), kSocketLevel, kReuseAddr, nullptr, 0),
            TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(remembered(), 0u);
}

TEST_P(Net, OnlyReusePortSharesAPort) {
  // Remembered reuse on both TCP sockets: the second bind still fails.
  Skt first, second;
  bound(first, SOCK_STREAM, IPPROTO_TCP);
  if (IsSkipped() || HasFatalFailure()) return;
  const uint32_t one = 1;
  Address held = localAddress(first.get());
  ASSERT_EQ(TOV_SktSetOption(first.get(), kSocketLevel, kReuseAddr, &one, 4), TOV_OK);
  ASSERT_EQ(TOV_SktCreate(family(), SOCK_STREAM, IPPROTO_TCP, second.out()), TOV_OK);
  ASSERT_EQ(TOV_SktSetOption(second.get(), kSocketLevel, kReuseAddr, &one, 4), TOV_OK);
  EXPECT_EQ(TOV_SktBind(second.get(), held.get(), held.length), TOV_ERR_NET_ADDRINUSE);

  // The system's option on two UDP sockets lets them share it.
  Skt udp1, udp2;
  ASSERT_EQ(TOV_SktCreate(family(), SOCK_DGRAM, IPPROTO_UDP, udp1.out()), TOV_OK);
  ASSERT_EQ(TOV_SktCreate(family(), SOCK_DGRAM, IPPROTO_UDP, udp2.out()), TOV_OK);
  ASSERT_EQ(TOV_SktSetOption(udp1.get(), kSocketLevel, TOV_SO_REUSEPORT, &one, 4), TOV_OK);
  ASSERT_EQ(TOV_SktSetOption(udp2.get(), kSocketLevel, TOV_SO_REUSEPORT, &one, 4), TOV_OK);
  Address any = loopback(family());
  ASSERT_EQ(TOV_SktBind(udp1.get(), any.get(), any.length), TOV_OK);
  Address shared = localAddress(udp1.get());
  EXPECT_EQ(TOV_SktBind(udp2.get(), shared.get(), shared.length), TOV_OK);
}

} // namespace
