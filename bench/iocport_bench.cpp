// Request/response round trips through a completion-port echo server on
// loopback: the server side receives overlapped into a port and answers from
// a worker thread. The same server runs once on the library's port and
// socket calls and once on the bare Win32 calls; the client is the same
// plain blocking socket in both runs.
#include <winsock2.h>
#include <ws2tcpip.h>

#include "bench.h"
#include "tov.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <thread>

namespace {

constexpr int kRequest = 64;     // bytes per request and per reply
constexpr int kTrips = 200;      // round trips per batch
constexpr int kBatches = 20;     // alternating batches per side
constexpr uint64_t kDataKey = 1; // the served connection
constexpr uint64_t kStopKey = 2; // posted to end the worker

// The server's side of one connection on the library's calls.
struct LibServer {
  TOV_IOCPort *port = nullptr;
  TOV_Skt *listener = nullptr;
  TOV_Skt *conn = nullptr;

  bool listen(sockaddr_in *at) {
    if (TOV_IOCPortCreate(1, &port) != TOV_OK) return false;
    if (TOV_SktCreate(AF_INET, SOCK_STREAM, IPPROTO_TCP, &listener) != TOV_OK) return false;
    if (TOV_SktBind(listener, reinterpret_cast<sockaddr *>(at), sizeof *at) != TOV_OK) return false;
    if (TOV_SktListen(listener, 1) != TOV_OK) return false;
    int32_t len = sizeof *at;
    return TOV_SktGetLocalAddress(listener, reinterpret_cast<sockaddr *>(at), &len) == TOV_OK;
  }
  bool accept() {
    if (TOV_SktAccept(listener, &conn, nullptr, nullptr) != TOV_OK) return false;
    const DWORD one = 1;
    TOV_SktSetOption(conn, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    return TOV_IOCPortAssociate(port, conn, kDataKey) == TOV_OK;
  }
  bool receive(char *buf, WSAOVERLAPPED *ov) {
    uint32_t flags = 0;
    return TOV_SktRecvBuf(conn, buf, kRequest, nullptr, &flags, nullptr, nullptr, ov) == TOV_OK;
  }
  bool send(const char *buf, uint32_t n, WSAOVERLAPPED *ov) {
    return TOV_SktSendBuf(conn, buf, n, nullptr, 0, nullptr, 0, ov) == TOV_OK;
  }
  bool wait(uint32_t *count, uint64_t *key, OVERLAPPED **ov) {
    uint64_t n = 0;
    if (TOV_IOCPortWait(port, &n, key, ov, INFINITE) != TOV_OK) return false;
    *count = static_cast<uint32_t>(n);
    return true;
  }
  void stop() { TOV_IOCPortSignal(port, 0, kStopKey, nullptr); }
  void close() {
    if (conn) TOV_SktDestroy(&conn);
    if (listener) TOV_SktDestroy(&listener);
    if (port) TOV_IOCPortDestroy(&port);
  }
};

// The same on the bare Win32 and Winsock calls.
struct RawServer {
  HANDLE port = nullptr;
  SOCKET listener = INVALID_SOCKET;
  SOCKET conn = INVALID_SOCKET;

  bool listen(sockaddr_in *at) {
    port = CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, 1);
    if (!port) return false;
    listener = WSASocketA(AF_INET, SOCK_STREAM, IPPROTO_TCP, nullptr, 0, WSA_FLAG_OVERLAPPED);
    if (listener == INVALID_SOCKET) return false;
    if (bind(listener, reinterpret_cast<sockaddr *>(at), sizeof *at) != 0) return false;
    if (::listen(listener, 1) != 0) return false;
    int len = sizeof *at;
    return getsockname(listener, reinterpret_cast<sockaddr *>(at), &len) == 0;
  }
  bool accept() {
    conn = WSAAccept(listener, nullptr, nullptr, nullptr, 0);
    if (conn == INVALID_SOCKET) return false;
    const DWORD one = 1;
    setsockopt(conn, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char *>(&one), sizeof one);
    return CreateIoCompletionPort(reinterpret_cast<HANDLE>(conn), port, kDataKey, 1) != nullptr;
  }
  bool receive(char *buf, WSAOVERLAPPED *ov) {
    WSABUF b{kRequest, buf};
    DWORD flags = 0;
    return WSARecv(conn, &b, 1, nullptr, &flags, ov, nullptr) == 0 ||
           WSAGetLastError() == WSA_IO_PENDING;
  }
  bool send(const char *buf, uint32_t n, WSAOVERLAPPED *ov) {
    WSABUF b{n, const_cast<char *>(buf)};
    return WSASend(conn, &b, 1, nullptr, 0, ov, nullptr) == 0 ||
           WSAGetLastError() == WSA_IO_PENDING;
  }
  bool wait(uint32_t *count, uint64_t *key, OVERLAPPED **ov) {
    DWORD n = 0;
    ULONG_PTR k = 0;
    if (!GetQueuedCompletionStatus(port, &n, &k, ov, INFINITE)) return false;
    *count = n;
    *key = k;
    return true;
  }
  void stop() { PostQueuedCompletionStatus(port, 0, kStopKey, nullptr); }
  void close() {
    if (conn != INVALID_SOCKET) closesocket(conn);
    if (listener != INVALID_SOCKET) closesocket(listener);
    if (port) CloseHandle(port);
  }
};

// The worker: echo every received block, ignore send completions, end on
// the stop signal or when the peer goes away.
template <typename Server> void serve(Server &s) {
  char in[kRequest], out[kRequest];
  WSAOVERLAPPED recvOv{}, sendOv{};
  if (!s.receive(in, &recvOv)) return;
  for (;;) {
    uint32_t count = 0;
    uint64_t key = 0;
    OVERLAPPED *ov = nullptr;
    if (!s.wait(&count, &key, &ov) || key == kStopKey) return;
    if (ov != &recvOv) continue; // a send finished
    if (count == 0) return;
    std::memcpy(out, in, count);
    if (!s.send(out, count, &sendOv) || !s.receive(in, &recvOv)) return;
  }
}

// One echo connection: a server of the given kind with its worker, and the
// client that times round trips through it.
template <typename Server> class Echo {
public:
  bool open() {
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (!server_.listen(&at)) return false;
    client_ = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    const DWORD one = 1;
    setsockopt(client_, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char *>(&one), sizeof one);
    if (connect(client_, reinterpret_cast<sockaddr *>(&at), sizeof at) != 0 || !server_.accept())
      return false;
    worker_ = std::thread([this] { serve(server_); });
    std::memset(request_, 'q', sizeof request_);
    return batch(200) > 0; // warm up
  }
  // Seconds for n round trips, or 0 when one failed.
  double batch(int n) {
    const double t0 = bench::nowSeconds();
    for (int i = 0; i < n; ++i)
      if (!trip()) return 0;
    return bench::nowSeconds() - t0;
  }
  ~Echo() {
    if (worker_.joinable()) {
      server_.stop();
      worker_.join();
    }
    if (client_ != INVALID_SOCKET) closesocket(client_);
    server_.close();
  }

private:
  bool trip() {
    if (send(client_, request_, kRequest, 0) != kRequest) return false;
    for (int got = 0; got < kRequest;) {
      const int n = recv(client_, reply_ + got, kRequest - got, 0);
      if (n <= 0) return false;
      got += n;
    }
    return true;
  }

  Server server_;
  SOCKET client_ = INVALID_SOCKET;
  std::thread worker_;
  char request_[kRequest], reply_[kRequest];
};

} // namespace

int main() {
  if (TOV_Startup(nullptr, 0, nullptr, nullptr) != TOV_OK) return 1;
  double libBest = 1e300, rawBest = 1e300; // fastest batch of each side
  {
    Echo<LibServer> lib;
    Echo<RawServer> raw;
    if (!lib.open() || !raw.open()) {
      std::printf("echo server failed to start\n");
      return 1;
    }
    // Short alternating batches, the fastest of each side counting: a slow
    // phase of the shared machine then falls on both sides alike.
    for (int b = 0; b < kBatches; ++b) {
      // Each side goes first in every other pair.
      double l, w;
      if (b % 2 == 0) {
        l = lib.batch(kTrips);
        w = raw.batch(kTrips);
      } else {
        w = raw.batch(kTrips);
        l = lib.batch(kTrips);
      }
      if (l == 0 || w == 0) {
        std::printf("echo round trip failed\n");
        return 1;
      }
      libBest = std::min(libBest, l);
      rawBest = std::min(rawBest, w);
    }
  }
  TOV_Cleanup(nullptr);
  bench::report("echo round trips: TOV_IOCPort/TOV_Skt vs raw IOCP", kTrips / libBest,
                kTrips / rawBest, -0.95, "trips/s");
  return 0;
}
