// Completion ports over real loopback sockets and real worker threads.
#include <winsock2.h>
#include <ws2tcpip.h>

#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr uint32_t kLongWait = 5000; // ms: only reached when something is broken

// Owns a port for the length of a test.
class Port {
public:
  Port() = default;
  Port(const Port &) = delete;
  Port &operator=(const Port &) = delete;
  ~Port() {
    if (p_) TOV_IOCPortDestroy(&p_);
  }
  TOV_IOCPort *get() const { return p_; }
  TOV_IOCPort **out() { return &p_; }

private:
  TOV_IOCPort *p_ = nullptr;
};

class Skt {
public:
  Skt() = default;
  Skt(const Skt &) = delete;
  Skt &operator=(const Skt &) = delete;
  ~Skt() {
    if (s_) TOV_SktDestroy(&s_);
  }
  TOV_Skt *get() const { return s_; }
  TOV_Skt **out() { return &s_; }
  // The system socket: the object's first field.
  SOCKET system() const { return *reinterpret_cast<SOCKET *>(s_); }

private:
  TOV_Skt *s_ = nullptr;
};

class IOCPort : public testing::Test {
protected:
  void SetUp() override {
    ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
    ASSERT_EQ(TOV_IOCPortCreate(0, port.out()), TOV_OK);
  }
  void TearDown() override {
    if (port.get()) TOV_IOCPortDestroy(port.out());
    TOV_Cleanup(nullptr);
  }

  // A connected loopback TCP pair: client, and the accepted server side.
  void connected(Skt &client, Skt &server) {
    Skt listener;
    ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_STREAM, IPPROTO_TCP, listener.out()), TOV_OK);
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(TOV_SktBind(listener.get(), reinterpret_cast<sockaddr *>(&at), sizeof at), TOV_OK);
    ASSERT_EQ(TOV_SktListen(listener.get(), 4), TOV_OK);
    int32_t length = sizeof at;
    ASSERT_EQ(TOV_SktGetLocalAddress(listener.get(), reinterpret_cast<sockaddr *>(&at), &length),
              TOV_OK);
    ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_STREAM, IPPROTO_TCP, client.out()), TOV_OK);
    ASSERT_EQ(TOV_SktConnect(client.get(), reinterpret_cast<sockaddr *>(&at), sizeof at), TOV_OK);
    ASSERT_EQ(TOV_SktAccept(listener.get(), server.out(), nullptr, nullptr), TOV_OK);
  }

  // Starts an overlapped receive on s that the system leaves pending.
  void pendingReceive(Skt &s, char *buffer, uint64_t size, WSAOVERLAPPED *ov) {
    uint32_t flags = 0;
    ASSERT_EQ(TOV_SktRecvBuf(s.get(), buffer, size, nullptr, &flags, nullptr, nullptr, ov), TOV_OK);
    uint64_t key = 0;
    // Nothing may be queued yet: the receive is still waiting for data.
    ASSERT_EQ(TOV_IOCPortWait(port.get(), nullptr, &key, nullptr, 0), TOV_IOCPORT_WAIT_TIMEOUT);
  }

  Port port;
};

TEST(IOCPortFrame, CreateAndDestroyNeedTheLibraryStarted) {
  TOV_IOCPort *p = reinterpret_cast<TOV_IOCPort *>(0x1234);
  EXPECT_EQ(TOV_IOCPortCreate(0, &p), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(TOV_IOCPortCreate(0, nullptr), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(TOV_IOCPortDestroy(&p), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(TOV_IOCPortDestroy(nullptr), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(p, reinterpret_cast<TOV_IOCPort *>(0x1234));
}

TEST(IOCPortFrame, LivePortsWorkWhileTheLibraryIsStopped) {
  // Keep Winsock itself up across the library's clean-up, so that the socket
  // stays usable while the start-up count is zero.
  WSADATA data;
  ASSERT_EQ(WSAStartup(0x0202, &data), 0);
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  TOV_IOCPort *p = nullptr;
  TOV_Skt *s = nullptr;
  ASSERT_EQ(TOV_IOCPortCreate(1, &p), TOV_OK);
  ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_DGRAM, IPPROTO_UDP, &s), TOV_OK);
  TOV_Cleanup(nullptr);

  EXPECT_EQ(TOV_IOCPortAssociate(p, s, 3), TOV_OK);
  EXPECT_EQ(TOV_IOCPortSignal(p, 1, 2, nullptr), TOV_OK);
  uint64_t count = 0, key = 0;
  EXPECT_EQ(TOV_IOCPortWait(p, &count, &key, nullptr, 0), TOV_OK);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(key, 2u);

  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  EXPECT_EQ(TOV_SktDestroy(&s), TOV_OK);
  EXPECT_EQ(TOV_IOCPortDestroy(&p), TOV_OK);
  EXPECT_EQ(p, nullptr);
  TOV_Cleanup(nullptr);
  WSACleanup();
}

TEST_F(IOCPort, CreateAndDestroyCheckTheirPointers) {
  EXPECT_EQ(TOV_IOCPortCreate(0, nullptr), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_IOCPortDestroy(nullptr), TOV_ERR_INVALID_PARAMETER);

  TOV_IOCPort *limited = nullptr;
  ASSERT_EQ(TOV_IOCPortCreate(3, &limited), TOV_OK);
  ASSERT_NE(limited, nullptr);
  EXPECT_NE(limited, port.get());
  EXPECT_EQ(TOV_IOCPortDestroy(&limited), TOV_OK);
  EXPECT_EQ(limited, nullptr);
}

TEST_F(IOCPort, SignalsArriveInOrderWithExactlyTheirValues) {
  WSAOVERLAPPED marker{};
  struct Signal {
    uint32_t count;
    uint64_t key;
    OVERLAPPED *ov;
  };
  const Signal signals[] = {
      {5, 7, nullptr}, {6, 8, reinterpret_cast<OVERLAPPED *>(0x1234)},
      {0, 0, &marker}, {0xFFFFFFFFu, 0xFEDCBA9876543210ull, nullptr}, // full widths survive
      {1, 7, nullptr}, // a repeated key is just another signal
  };
  for (const Signal &s : signals)
    ASSERT_EQ(TOV_IOCPortSignal(port.get(), s.count, s.key, s.ov), TOV_OK);

  for (const Signal &s : signals) {
    uint64_t count = 99, key = 99;
    OVERLAPPED *ov = reinterpret_cast<OVERLAPPED *>(0x99);
    ASSERT_EQ(TOV_IOCPortWait(port.get(), &count, &key, &ov, 0), TOV_OK);
    EXPECT_EQ(count, s.count);
    EXPECT_EQ(key, s.key);
    EXPECT_EQ(ov, s.ov);
  }
  uint64_t key = 0;
  EXPECT_EQ(TOV_IOCPortWait(port.get(), nullptr, &key, nullptr, 0), TOV_IOCPORT_WAIT_TIMEOUT);

  // The count and overlapped outputs are optional.
  ASSERT_EQ(TOV_IOCPortSignal(port.get(), 4, 11, nullptr), TOV_OK);
  EXPECT_EQ(TOV_IOCPortWait(port.get(), nullptr, &key, nullptr, 0), TOV_OK);
  EXPECT_EQ(key, 11u);
}

TEST_F(IOCPort, TimeOutIsTheRawWaitNumberWithItsDebugLine) {
  tovtest::DebugCapture capture;
  uint64_t count = 42, key = 43;
  OVERLAPPED *ov = reinterpret_cast<OVERLAPPED *>(0x44);
  EXPECT_EQ(TOV_IOCPortWait(port.get(), &count, &key, &ov, 0), 258);
  EXPECT_EQ(TOV_IOCPortWait(port.get(), &count, &key, &ov, 20), 258);
  EXPECT_EQ(count, 42u);
  EXPECT_EQ(key, 43u);
  EXPECT_EQ(ov, reinterpret_cast<OVERLAPPED *>(0x44));
  EXPECT_NE(capture.text().find("TOV MapSystemError: No mapping for Win32 error 258."),
            std::string::npos)
      << capture.text();
}

TEST_F(IOCPort, WorkerPoolDrainsThePort) {
  constexpr int kWorkers = 4;
  constexpr uint64_t kSignals = 2000;
  constexpr uint64_t kStop = 0; // work keys start at 1
  std::vector<std::atomic<int>> seen(kSignals + 1);
  std::atomic<uint64_t> bytes{0};
  std::atomic<int> failures{0};

  std::vector<std::thread> workers;
  for (int w = 0; w < kWorkers; ++w)
    workers.emplace_back([&] {
      for (;;) {
        uint64_t count = 0, key = 0;
        if (TOV_IOCPortWait(port.get(), &count, &key, nullptr, kLongWait) != TOV_OK) {
          ++failures;
          return;
        }
        if (key == kStop) return;
        seen[key]++;
        bytes += count;
      }
    });
  for (uint64_t k = 1; k <= kSignals; ++k)
    ASSERT_EQ(TOV_IOCPortSignal(port.get(), static_cast<uint32_t>(k % 10), k, nullptr), TOV_OK);
  for (int w = 0; w < kWorkers; ++w)
    ASSERT_EQ(TOV_IOCPortSignal(port.get(), 0, kStop, nullptr), TOV_OK);
  for (auto &t : workers) t.join();

  EXPECT_EQ(failures.load(), 0);
  for (uint64_t k = 1; k <= kSignals; ++k) ASSERT_EQ(seen[k].load(), 1) << "key " << k;
  EXPECT_EQ(bytes.load(), 9000u); // 200 rounds of 0+1+...+9
  uint64_t key = 0;
  EXPECT_EQ(TOV_IOCPortWait(port.get(), nullptr, &key, nullptr, 0), TOV_IOCPORT_WAIT_TIMEOUT);
}

TEST_F(IOCPort, OverlappedReceiveCompletesWithItsKeyAndByteCount) {
  Skt client, server;
  connected(client, server);
  if (HasFatalFailure()) return;
  ASSERT_EQ(TOV_IOCPortAssociate(port.get(), server.get(), 9), TOV_OK);

  char buffer[16] = {};
  WSAOVERLAPPED ov{};
  pendingReceive(server, buffer, sizeof buffer, &ov);
  if (HasFatalFailure()) return;
  ASSERT_EQ(TOV_SktSendBuf(client.get(), "hello", 5, nullptr, 0, nullptr, 0, nullptr), TOV_OK);

  uint64_t count = 0, key = 0;
  OVERLAPPED *done = nullptr;
  ASSERT_EQ(TOV_IOCPortWait(port.get(), &count, &key, &done, kLongWait), TOV_OK);
  EXPECT_EQ(key, 9u);
  EXPECT_EQ(done, &ov);
  EXPECT_EQ(count, 5u);
  EXPECT_EQ(std::string(buffer, count), "hello");
}

TEST_F(IOCPort, OverlappedSendCompletesIntoThePortToo) {
  Skt client, server;
  connected(client, server);
  if (HasFatalFailure()) return;
  ASSERT_EQ(TOV_IOCPortAssociate(port.get(), client.get(), 21), TOV_OK);

  WSAOVERLAPPED ov{};
  ASSERT_EQ(TOV_SktSendBuf(client.get(), "abc", 3, nullptr, 0, nullptr, 0, &ov), TOV_OK);
  uint64_t count = 0, key = 0;
  OVERLAPPED *done = nullptr;
  ASSERT_EQ(TOV_IOCPortWait(port.get(), &count, &key, &done, kLongWait), TOV_OK);
  EXPECT_EQ(key, 21u);
  EXPECT_EQ(done, &ov);
  EXPECT_EQ(count, 3u);
}

TEST_F(IOCPort, PeerShutdownCompletesTheReceiveWithZeroBytes) {
  Skt client, server;
  connected(client, server);
  if (HasFatalFailure()) return;
  ASSERT_EQ(TOV_IOCPortAssociate(port.get(), server.get(), 4), TOV_OK);
  char buffer[8];
  WSAOVERLAPPED ov{};
  pendingReceive(server, buffer, sizeof buffer, &ov);
  if (HasFatalFailure()) return;

  ASSERT_EQ(TOV_SktShutdown(client.get(), SD_SEND), TOV_OK);
  uint64_t count = 77, key = 0;
  ASSERT_EQ(TOV_IOCPortWait(port.get(), &count, &key, nullptr, kLongWait), TOV_OK);
  EXPECT_EQ(key, 4u);
  EXPECT_EQ(count, 0u);
}

// A receive that fails after it was queued: the wait fails with the
// operation's mapped error, names the operation by its key, and leaves the
// count and overlapped outputs alone.
TEST_F(IOCPort, CancelledReceiveIsAbortedWithItsKey) {
  Skt client, server;
  connected(client, server);
  if (HasFatalFailure()) return;
  ASSERT_EQ(TOV_IOCPortAssociate(port.get(), server.get(), 9), TOV_OK);
  char buffer[8];
  WSAOVERLAPPED ov{};
  pendingReceive(server, buffer, sizeof buffer, &ov);
  if (HasFatalFailure()) return;

  ASSERT_TRUE(CancelIoEx(reinterpret_cast<HANDLE>(server.system()), &ov));
  uint64_t count = 77, key = 0;
  OVERLAPPED *done = reinterpret_cast<OVERLAPPED *>(0x77);
  EXPECT_EQ(TOV_IOCPortWait(port.get(), &count, &key, &done, kLongWait), TOV_ERR_ABORTED);
  EXPECT_EQ(key, 9u);
  EXPECT_EQ(count, 77u);
  EXPECT_EQ(done, reinterpret_cast<OVERLAPPED *>(0x77));
}

TEST_F(IOCPort, DestroyingTheSocketFailsItsPendingReceive) {
  Skt client, server;
  connected(client, server);
  if (HasFatalFailure()) return;
  ASSERT_EQ(TOV_IOCPortAssociate(port.get(), server.get(), 9), TOV_OK);
  char buffer[8];
  WSAOVERLAPPED ov{};
  pendingReceive(server, buffer, sizeof buffer, &ov);
  if (HasFatalFailure()) return;

  TOV_Skt *s = *server.out();
  *server.out() = nullptr;
  ASSERT_EQ(TOV_SktDestroy(&s), TOV_OK);

  // Windows reports the abort as 995 (TOV_ERR_ABORTED); Wine dequeues it as
  // 676, which has no library code and comes back raw.
  uint64_t count = 77, key = 0;
  const TOV_Status status = TOV_IOCPortWait(port.get(), &count, &key, nullptr, kLongWait);
  EXPECT_NE(status, TOV_OK);
  EXPECT_NE(status, TOV_IOCPORT_WAIT_TIMEOUT);
  EXPECT_EQ(key, 9u);
  EXPECT_EQ(count, 77u);
}

TEST_F(IOCPort, UnmappedOperationErrorComesBackRawWithItsKey) {
  Skt client, server;
  connected(client, server);
  if (HasFatalFailure()) return;
  ASSERT_EQ(TOV_IOCPortAssociate(port.get(), server.get(), 12), TOV_OK);
  char buffer[8];
  WSAOVERLAPPED ov{};
  pendingReceive(server, buffer, sizeof buffer, &ov);
  if (HasFatalFailure()) return;

  // An abortive close by the peer: the receive fails with the system's
  // "network name no longer available" (64), which has no library code.
  const struct linger abortive = {1, 0};
  ASSERT_EQ(TOV_SktSetOption(client.get(), SOL_SOCKET, SO_LINGER, &abortive, sizeof abortive),
            TOV_OK);
  tovtest::DebugCapture capture;
  ASSERT_EQ(TOV_SktDestroy(client.out()), TOV_OK);
  uint64_t key = 0;
  EXPECT_EQ(TOV_IOCPortWait(port.get(), nullptr, &key, nullptr, kLongWait), 64);
  EXPECT_EQ(key, 12u);
  EXPECT_NE(capture.text().find("No mapping for Win32 error 64."), std::string::npos)
      << capture.text();
}

TEST_F(IOCPort, ASocketBelongsToOnePort) {
  Skt s;
  ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_DGRAM, IPPROTO_UDP, s.out()), TOV_OK);
  ASSERT_EQ(TOV_IOCPortAssociate(port.get(), s.get(), 1), TOV_OK);
  EXPECT_EQ(TOV_IOCPortAssociate(port.get(), s.get(), 2), TOV_ERR_INVALID_PARAMETER);
  Port other;
  ASSERT_EQ(TOV_IOCPortCreate(0, other.out()), TOV_OK);
  EXPECT_EQ(TOV_IOCPortAssociate(other.get(), s.get(), 1), TOV_ERR_INVALID_PARAMETER);
}

} // namespace
