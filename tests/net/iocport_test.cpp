// Completion ports over a real UDP socket and real worker threads.
#include <winsock2.h>

#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

// What a wait returns: its status, then the byte count, key and overlapped.
using Got = std::tuple<TOV_Status, uint64_t, uint64_t, OVERLAPPED *>;

TEST(IOCPort, SignalsWorkersAndReceives) {
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  TOV_IOCPort *port = nullptr;
  std::shared_ptr<void> atExit(nullptr, [&](void *) { // also after a failed assertion
    EXPECT_TRUE(!port || TOV_IOCPortDestroy(&port) == TOV_OK);
    TOV_Cleanup(nullptr);
  });
  ASSERT_EQ(TOV_IOCPortCreate(0, &port), TOV_OK);
  // Waits with the outputs preset to markers, which only TOV_OK may change
  // (and a failed operation sets its key).
  WSAOVERLAPPED ov{}, mark{};
  auto wait = [&](uint32_t ms) {
    Got g{0, 77, 78, &mark};
    std::get<0>(g) = TOV_IOCPortWait(port, &std::get<1>(g), &std::get<2>(g), &std::get<3>(g), ms);
    return g;
  };

  // Signals come out in order with exactly their values, full widths included,
  // overlapped pointers passed through and repeated keys kept apart.
  const Got sent[] = {{0, 5, 7, &ov}, {0, UINT32_MAX, UINT64_MAX - 1, nullptr}, {0, 0, 7, nullptr}};
  for (const auto &[_, n, k, o] : sent) ASSERT_EQ(TOV_IOCPortSignal(port, n, k, o), TOV_OK);
  for (const Got &s : sent) EXPECT_EQ(wait(0), s);

  // Four workers drain 2000 signals, with the optional outputs left out:
  // every key exactly once, nothing left over (key 0 stops a worker; one that
  // fails leaves its stop queued).
  std::vector<std::atomic<int>> seen(2001);
  std::vector<std::thread> pool;
  for (int w = 0; w < 4; ++w)
    pool.emplace_back([&] {
      for (uint64_t k; TOV_IOCPortWait(port, nullptr, &k, nullptr, 5000) == TOV_OK && k;) seen[k]++;
    });
  for (uint64_t k = 1; k <= 2004; ++k) // then a stop for each worker
    EXPECT_EQ(TOV_IOCPortSignal(port, 0, k <= 2000 ? k : 0, nullptr), TOV_OK);
  for (auto &t : pool) t.join();
  for (uint64_t k = 1; k <= 2000; ++k) ASSERT_EQ(seen[k].load(), 1) << "key " << k;
  EXPECT_EQ(wait(0), Got(258, 77, 78, &mark));

  // A UDP socket completing into the port under key 9. A pending receive
  // leaves the port empty: the time-out is the raw wait number 258 with its
  // debug line. A datagram completes it with its key, overlapped and byte
  // count. A second one fails under its key when its socket is destroyed: the
  // operation was aborted (Wine reports its handles-closed number instead). A
  // second destroy of the port, through the cleared variable, is refused.
  sockaddr a{AF_INET, {0, 0, 127, 0, 0, 1}}; // port 0, 127.0.0.1
  int32_t len = sizeof a;
  TOV_Skt *s = nullptr;
  char buf[8];
  ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_DGRAM, IPPROTO_UDP, &s), TOV_OK);
  ASSERT_EQ(TOV_SktBind(s, &a, len), TOV_OK);
  ASSERT_EQ(TOV_SktGetLocalAddress(s, &a, &len), TOV_OK);
  ASSERT_EQ(TOV_IOCPortAssociate(port, s, 9), TOV_OK);
  ASSERT_EQ(TOV_SktRecvBuf(s, buf, 8, nullptr, nullptr, nullptr, nullptr, &ov), TOV_OK);
  tovtest::DebugCapture capture;
  EXPECT_EQ(wait(20), Got(258, 77, 78, &mark));
  EXPECT_NE(capture.text().find("No mapping for Win32 error 258."), std::string::npos);
  ASSERT_EQ(TOV_SktSendBuf(s, "hello", 5, nullptr, 0, &a, len, nullptr), TOV_OK);
  EXPECT_EQ(wait(5000), Got(0, 5, 9, &ov));
  ASSERT_EQ(TOV_SktRecvBuf(s, buf, 8, nullptr, nullptr, nullptr, nullptr, &ov), TOV_OK);
  ASSERT_EQ(TOV_SktDestroy(&s), TOV_OK);
  const bool wine = GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version");
  const TOV_Status kWineHandlesClosed = 676; // ERROR_HANDLES_CLOSED, unmapped
  EXPECT_EQ(wait(5000), Got(wine ? kWineHandlesClosed : TOV_ERR_ABORTED, 77, 9, &mark));
  EXPECT_EQ(TOV_IOCPortDestroy(&port), TOV_OK);
  EXPECT_EQ(TOV_IOCPortDestroy(&port), TOV_ERR_INVALID_HANDLE);
  EXPECT_TRUE(!port && !s); // both destroys cleared their variables
}
