// Socket sets over real loopback UDP sockets: indexes and counters against a
// simple model, select with hundreds of ready sockets, the count protocol,
// callbacks.
#include <winsock2.h>

#include "tov.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <random>
#include <thread>
#include <vector>

namespace {

constexpr uint32_t R = TOV_FDS_READ, W = TOV_FDS_WRITE, X = TOV_FDS_EXCEPT;

// UDP sockets bound to 127.0.0.1, and a sender that makes them readable.
class Udp {
public:
  explicit Udp(size_t n) : socks_(n, nullptr) {
    for (auto &s : socks_) {
      EXPECT_EQ(TOV_SktCreate(AF_INET, SOCK_DGRAM, IPPROTO_UDP, &s), TOV_OK);
      sockaddr_in a{};
      a.sin_family = AF_INET;
      a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      EXPECT_EQ(TOV_SktBind(s, reinterpret_cast<sockaddr *>(&a), sizeof a), TOV_OK);
    }
    EXPECT_EQ(TOV_SktCreate(AF_INET, SOCK_DGRAM, IPPROTO_UDP, &sender_), TOV_OK);
  }
  ~Udp() {
    for (auto &s : socks_)
      if (s) TOV_SktDestroy(&s);
    TOV_SktDestroy(&sender_);
  }
  TOV_Skt *operator[](size_t i) const { return socks_[i]; }
  size_t size() const { return socks_.size(); }
  TOV_Skt *&slot(size_t i) { return socks_[i]; }

  // Sends one datagram to socket i.
  void makeReadable(size_t i) {
    sockaddr_in a{};
    int32_t len = sizeof a;
    ASSERT_EQ(TOV_SktGetLocalAddress(socks_[i], reinterpret_cast<sockaddr *>(&a), &len), TOV_OK);
    ASSERT_EQ(
        TOV_SktSendBuf(sender_, "x", 1, nullptr, 0, reinterpret_cast<sockaddr *>(&a), len, nullptr),
        TOV_OK);
  }

private:
  std::vector<TOV_Skt *> socks_;
  TOV_Skt *sender_ = nullptr;
};

// Waits up to 5 s for a datagram on s, through a set of its own.
bool waitReadable(TOV_Skt *s) {
  TOV_FDS *one = nullptr;
  TOV_FDSResult r;
  uint32_t n = 1;
  const bool ok = TOV_FDSCreate(1, &one) == TOV_OK && TOV_FDSAssociate(one, s, R, 0) == TOV_OK &&
                  TOV_FDSSelect(one, R, &r, &n, 5000) == TOV_OK;
  TOV_FDSDestroy(&one, nullptr);
  return ok;
}

class FDS : public testing::Test {
protected:
  void SetUp() override {
    ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
    ASSERT_EQ(TOV_FDSCreate(0, &set), TOV_OK);
  }
  void TearDown() override {
    if (set) {
      EXPECT_EQ(TOV_FDSDestroy(&set, nullptr), TOV_OK);
    }
    TOV_Cleanup(nullptr);
  }
  uint32_t count(uint32_t which) {
    uint32_t n = 0xDEAD;
    EXPECT_EQ(TOV_FDSCount(set, &n, which), TOV_OK);
    return n;
  }
  // Selects with room for `room` records; returns the records written.
  std::vector<TOV_FDSResult> select(uint32_t which, uint32_t room, TOV_Status want,
                                    uint32_t timeoutMs = 2000) {
    std::vector<TOV_FDSResult> out(room);
    uint32_t n = room;
    EXPECT_EQ(TOV_FDSSelect(set, which, out.data(), &n, timeoutMs), want);
    out.resize(std::min(n, room));
    return out;
  }
  TOV_FDS *set = nullptr;
};

// Every call seen by the callbacks below, and where they stop.
struct Call {
  TOV_Skt *handle;
  uint32_t flags;
  uint64_t context;
};
std::vector<Call> g_calls;
size_t g_stopAt = SIZE_MAX;
TOV_Status g_stopWith = 0;
TOV_Status recordCall(TOV_Skt *h, uint32_t flags, uint64_t context) {
  g_calls.push_back({h, flags, context});
  return g_calls.size() == g_stopAt ? g_stopWith : TOV_OK;
}
void recordUntil(size_t call, TOV_Status status) {
  g_calls.clear();
  g_stopAt = call;
  g_stopWith = status;
}

TEST(FDSFrame, EveryFunctionNeedsStartup) {
  TOV_FDS *set = nullptr;
  uint32_t n = 0;
  EXPECT_EQ(TOV_FDSCreate(0, &set), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(TOV_FDSDestroy(&set, nullptr), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(TOV_FDSAssociate(nullptr, nullptr, 0, 0), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(TOV_FDSModify(nullptr, nullptr, 3, nullptr, nullptr), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(TOV_FDSRemove(nullptr, nullptr, nullptr), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(TOV_FDSCount(nullptr, &n, 0), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(TOV_FDSEnumerate(nullptr, nullptr), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(TOV_FDSSelect(nullptr, 0, nullptr, nullptr, 0), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(set, nullptr);
}

TEST_F(FDS, BadArgumentsAreRefusedAndChangeNothing) {
  Udp u(1);
  TOV_Skt *s = u[0];
  ASSERT_EQ(TOV_FDSAssociate(set, s, R, 5), TOV_OK);
  uint32_t f = W, n = 1;
  uint64_t c = 9;
  TOV_FDSResult r[1];
  const TOV_Status bad = TOV_ERR_INVALID_PARAMETER;
  EXPECT_EQ(TOV_FDSCreate(0, nullptr), bad);
  EXPECT_EQ(TOV_FDSDestroy(nullptr, nullptr), bad);
  EXPECT_EQ(TOV_FDSAssociate(nullptr, s, R, 0), bad);
  EXPECT_EQ(TOV_FDSAssociate(set, nullptr, R, 0), bad);
  EXPECT_EQ(TOV_FDSAssociate(set, s, 0, 0), bad);
  EXPECT_EQ(TOV_FDSModify(nullptr, s, 0, &f, &c), bad);
  EXPECT_EQ(TOV_FDSModify(set, nullptr, 0, &f, &c), bad);
  EXPECT_EQ(TOV_FDSModify(set, s, TOV_FDS_SET_FLAGS | TOV_FDS_SET_CONTEXT, nullptr, &c), bad);
  EXPECT_EQ(TOV_FDSModify(set, s, TOV_FDS_SET_FLAGS | TOV_FDS_SET_CONTEXT, &f, nullptr), bad);
  EXPECT_EQ(TOV_FDSRemove(nullptr, s, &c), bad);
  EXPECT_EQ(TOV_FDSRemove(set, nullptr, &c), bad);
  EXPECT_EQ(TOV_FDSCount(nullptr, &n, R), bad);
  EXPECT_EQ(TOV_FDSCount(set, nullptr, R), bad);
  EXPECT_EQ(TOV_FDSCount(set, &n, 0), bad);
  EXPECT_EQ(TOV_FDSEnumerate(nullptr, recordCall), bad);
  EXPECT_EQ(TOV_FDSEnumerate(set, nullptr), bad);
  EXPECT_EQ(TOV_FDSSelect(nullptr, R, r, &n, 0), bad);
  EXPECT_EQ(TOV_FDSSelect(set, 0, r, &n, 0), bad);
  EXPECT_EQ(TOV_FDSSelect(set, R, r, nullptr, 0), bad);
  EXPECT_EQ(TOV_FDSSelect(set, R, nullptr, &n, 0), bad);
  EXPECT_EQ(f, W);
  EXPECT_EQ(c, 9u);
  EXPECT_EQ(n, 1u);
  // The entry is as it was; a second association of the handle is refused.
  EXPECT_EQ(TOV_FDSAssociate(set, s, W | X, 6), TOV_ERR_ALREADY_EXISTS);
  EXPECT_EQ(TOV_FDSModify(set, s, 0, &f, &c), TOV_OK);
  EXPECT_EQ(f, R);
  EXPECT_EQ(c, 5u);
  EXPECT_EQ(count(R | W | X), 1u);
  // Each pointer is needed only for its own bit of what.
  EXPECT_EQ(TOV_FDSModify(set, s, 0, nullptr, nullptr), TOV_OK);
  f = W;
  EXPECT_EQ(TOV_FDSModify(set, s, TOV_FDS_SET_FLAGS, &f, nullptr), TOV_OK);
  EXPECT_EQ(count(W), 1u);
}

// Random associations, changes and removals against a map of what the set
// should hold; then select must map every writable socket back to its entry.
TEST_F(FDS, IndexesAndCountersFollowAModel) {
  for (uint32_t hint : {0u, 3u}) {
    SCOPED_TRACE(hint);
    ASSERT_EQ(TOV_FDSDestroy(&set, nullptr), TOV_OK);
    ASSERT_EQ(TOV_FDSCreate(hint, &set), TOV_OK);
    Udp u(120);
    std::map<uintptr_t, Call> model; // by handle address, as the set orders them
    std::mt19937 rng(hint + 1);
    for (int step = 0; step < 1500; ++step) {
      TOV_Skt *s = u[rng() % u.size()];
      const auto it = model.find(reinterpret_cast<uintptr_t>(s));
      const uint32_t flags = rng() % 16; // 8 belongs to no interest
      const uint64_t ctx = (uint64_t{rng()} << 32) | step;
      uint64_t c = 0;
      switch (rng() % 3) {
      case 0:
        if (flags == 0) continue;
        EXPECT_EQ(TOV_FDSAssociate(set, s, flags, ctx),
                  it == model.end() ? TOV_OK : TOV_ERR_ALREADY_EXISTS);
        if (it == model.end()) model[reinterpret_cast<uintptr_t>(s)] = {s, flags, ctx};
        break;
      case 1: {
        const uint32_t what = rng() % 4;
        uint32_t f = flags;
        c = ctx;
        if (it == model.end()) {
          EXPECT_EQ(TOV_FDSModify(set, s, what, &f, &c), TOV_ERR_NOT_FOUND);
          break;
        }
        ASSERT_EQ(TOV_FDSModify(set, s, what, &f, &c), TOV_OK);
        EXPECT_EQ(f, it->second.flags);
        EXPECT_EQ(c, it->second.context);
        if (what & TOV_FDS_SET_FLAGS) it->second.flags = flags;
        if (what & TOV_FDS_SET_CONTEXT) it->second.context = ctx;
        break;
      }
      default:
        EXPECT_EQ(TOV_FDSRemove(set, s, &c), it == model.end() ? TOV_ERR_NOT_FOUND : TOV_OK);
        if (it != model.end()) {
          EXPECT_EQ(c, it->second.context);
          model.erase(it);
        }
      }
      for (uint32_t which = 1; which <= 7; ++which) {
        uint32_t want = 0;
        for (const auto &[key, e] : model) want += __builtin_popcount(e.flags & which);
        ASSERT_EQ(count(which), want) << "step " << step << " which " << which;
      }
    }
    recordUntil(SIZE_MAX, 0);
    ASSERT_EQ(TOV_FDSEnumerate(set, recordCall), TOV_OK);
    ASSERT_EQ(g_calls.size(), model.size());
    size_t i = 0;
    for (const auto &[key, e] : model) {
      EXPECT_EQ(g_calls[i].handle, e.handle);
      EXPECT_EQ(g_calls[i].flags, e.flags);
      EXPECT_EQ(g_calls[i].context, e.context);
      ++i;
    }
    // UDP sockets are always writable: every write entry comes back once.
    const uint32_t writers = count(W);
    ASSERT_GT(writers, 0u);
    const auto got = select(W, 200, TOV_OK, 0);
    ASSERT_EQ(got.size(), writers);
    std::map<uintptr_t, Call> seen;
    for (const auto &r : got)
      seen[reinterpret_cast<uintptr_t>(r.handle)] = {r.handle, r.flags, r.context};
    ASSERT_EQ(seen.size(), writers);
    for (const auto &[key, e] : seen) {
      ASSERT_EQ(model.count(key), 1u);
      EXPECT_EQ(e.flags, model[key].flags);
      EXPECT_TRUE(e.flags & W);
      EXPECT_EQ(e.context, model[key].context);
    }
  }
}

// The set reads only the system socket from a handle, so zeroed pages stand
// in for socket objects that are never selected.
TEST_F(FDS, HandlesFarApartAreOrderedAsUnsigned64BitValues) {
  // Low halves in the opposite order of the full addresses.
  const uintptr_t wanted[] = {0x180000000, 0x100000010000};
  std::vector<void *> pages;
  for (uintptr_t a : wanted) {
    void *p =
        VirtualAlloc(reinterpret_cast<void *>(a), 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
    if (p) pages.push_back(p);
  }
  if (pages.size() != 2) {
    for (void *p : pages) VirtualFree(p, 0, MEM_RELEASE);
    GTEST_SKIP() << "could not place pages at the chosen addresses";
  }
  auto *low = static_cast<TOV_Skt *>(pages[0]);
  auto *high = static_cast<TOV_Skt *>(pages[1]);
  Udp u(1);
  ASSERT_EQ(TOV_FDSAssociate(set, high, R, 2), TOV_OK);
  ASSERT_EQ(TOV_FDSAssociate(set, u[0], R, 0), TOV_OK);
  ASSERT_EQ(TOV_FDSAssociate(set, low, R, 1), TOV_OK);
  recordUntil(SIZE_MAX, 0);
  ASSERT_EQ(TOV_FDSEnumerate(set, recordCall), TOV_OK);
  ASSERT_EQ(g_calls.size(), 3u);
  std::vector<TOV_Skt *> order{low, high, u[0]};
  std::sort(order.begin(), order.end(),
            [](TOV_Skt *a, TOV_Skt *b) { return uintptr_t(a) < uintptr_t(b); });
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(g_calls[i].handle, order[i]);
  uint64_t c = 0;
  EXPECT_EQ(TOV_FDSRemove(set, high, &c), TOV_OK);
  EXPECT_EQ(c, 2u);
  EXPECT_EQ(TOV_FDSRemove(set, low, &c), TOV_OK);
  EXPECT_EQ(c, 1u);
  EXPECT_EQ(count(R), 1u);
  for (void *p : pages) VirtualFree(p, 0, MEM_RELEASE);
}

TEST_F(FDS, ThreeHundredReadySocketsInOneSelect) {
  constexpr size_t n = 300;
  Udp u(n);
  for (size_t i = 0; i < n; ++i) ASSERT_EQ(TOV_FDSAssociate(set, u[i], R, 1000 + i), TOV_OK);
  // Nothing arrived yet: a poll times out and leaves the count alone.
  uint32_t untouched = 7;
  TOV_FDSResult none[7];
  EXPECT_EQ(TOV_FDSSelect(set, R, none, &untouched, 0), TOV_ERR_TIMEOUT);
  EXPECT_EQ(untouched, 7u);
  for (size_t i = 0; i < n; ++i) u.makeReadable(i);
  for (size_t i = 0; i < n; ++i) ASSERT_TRUE(waitReadable(u[i]));
  const auto all = select(R, n + 10, TOV_OK);
  ASSERT_EQ(all.size(), n);
  std::vector<bool> seen(n);
  for (const auto &r : all) {
    ASSERT_GE(r.context, 1000u);
    ASSERT_LT(r.context, 1000u + n);
    const size_t i = r.context - 1000;
    EXPECT_FALSE(seen[i]);
    seen[i] = true;
    EXPECT_EQ(r.handle, u[i]);
    EXPECT_EQ(r.flags, R);
  }

  // The count protocol: the true total, the first records, nothing beyond.
  std::vector<TOV_FDSResult> small(11, TOV_FDSResult{nullptr, 0xEE, 0xEE});
  uint32_t room = 10;
  ASSERT_EQ(TOV_FDSSelect(set, R, small.data(), &room, 0), TOV_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(room, n);
  for (size_t i = 0; i < 10; ++i) {
    EXPECT_EQ(small[i].handle, all[i].handle);
    EXPECT_EQ(small[i].context, all[i].context);
  }
  EXPECT_EQ(small[10].handle, nullptr);
  EXPECT_EQ(small[10].flags, 0xEEu);
  room = 0;
  EXPECT_EQ(TOV_FDSSelect(set, R, nullptr, &room, 0), TOV_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(room, n);

  // Removed sockets are never reported again.
  for (size_t i = 0; i < n; i += 2) ASSERT_EQ(TOV_FDSRemove(set, u[i], nullptr), TOV_OK);
  const auto odd = select(R, n, TOV_OK, 0);
  ASSERT_EQ(odd.size(), n / 2);
  for (const auto &r : odd) EXPECT_EQ((r.context - 1000) % 2, 1u);
}

TEST_F(FDS, ResultsComeReadThenWriteThenExcept) {
  Udp u(3);
  for (size_t i = 0; i < 3; ++i) ASSERT_EQ(TOV_FDSAssociate(set, u[i], R | W | X, i), TOV_OK);
  u.makeReadable(2);
  u.makeReadable(0);
  ASSERT_TRUE(waitReadable(u[0]) && waitReadable(u[2]));
  const auto got = select(R | W | X, 8, TOV_OK);
  ASSERT_EQ(got.size(), 5u);
  std::vector<uint64_t> reads{got[0].context, got[1].context};
  std::sort(reads.begin(), reads.end());
  EXPECT_EQ(reads, (std::vector<uint64_t>{0, 2}));
  std::vector<uint64_t> writes{got[2].context, got[3].context, got[4].context};
  std::sort(writes.begin(), writes.end());
  EXPECT_EQ(writes, (std::vector<uint64_t>{0, 1, 2}));
  for (const auto &r : got) EXPECT_EQ(r.flags, R | W | X); // the interests, not the condition
  EXPECT_EQ(count(R | W | X), 9u);

  // Only the read interest: no write records even though all are writable.
  EXPECT_EQ(select(R, 8, TOV_OK).size(), 2u);
}

TEST_F(FDS, SelectFailuresAndWaiting) {
  Udp u(2);
  ASSERT_EQ(TOV_FDSAssociate(set, u[0], R, 0), TOV_OK);
  // An interest no entry has gives empty descriptor sets only: the platform
  // refuses them.
  uint32_t n = 4;
  TOV_FDSResult r[4];
  EXPECT_EQ(TOV_FDSSelect(set, W | X, r, &n, 0), TOV_ERR_NET_INVAL);
  EXPECT_EQ(n, 4u);

  // A datagram sent by another thread ends a wait without limit.
  std::thread later([&] {
    Sleep(50);
    u.makeReadable(0);
  });
  const auto got = select(R | W, 4, TOV_OK, 0xFFFFFFFF);
  later.join();
  ASSERT_EQ(got.size(), 1u);
  EXPECT_EQ(got[0].handle, u[0]);

  // A socket destroyed behind the set's back.
  ASSERT_EQ(TOV_FDSAssociate(set, u[1], R, 1), TOV_OK);
  ASSERT_EQ(TOV_SktDestroy(&u.slot(1)), TOV_OK);
  n = 4;
  EXPECT_EQ(TOV_FDSSelect(set, R, r, &n, 0), TOV_ERR_NET_NOTSOCK);
  EXPECT_EQ(n, 4u);
}

TEST_F(FDS, CallbacksStopAtTheFirstNonZeroResult) {
  Udp u(4);
  for (size_t i = 0; i < 4; ++i) ASSERT_EQ(TOV_FDSAssociate(set, u[i], R, i), TOV_OK);
  recordUntil(2, 7);
  EXPECT_EQ(TOV_FDSEnumerate(set, recordCall), 7);
  EXPECT_EQ(g_calls.size(), 2u);

  recordUntil(1, -1);
  ASSERT_EQ(TOV_FDSDestroy(&set, recordCall), TOV_OK);
  EXPECT_EQ(g_calls.size(), 1u);
  EXPECT_EQ(set, nullptr);
  // The sockets are not the set's: they still work.
  EXPECT_EQ(TOV_SktShutdown(u[0], 2), TOV_OK);

  // An empty set: no call, TOV_OK.
  ASSERT_EQ(TOV_FDSCreate(5, &set), TOV_OK);
  recordUntil(1, 7);
  EXPECT_EQ(TOV_FDSEnumerate(set, recordCall), TOV_OK);
  EXPECT_TRUE(g_calls.empty());

  // The usual end: the destroy callback closes every socket.
  for (size_t i = 0; i < 4; ++i) ASSERT_EQ(TOV_FDSAssociate(set, u[i], R, i), TOV_OK);
  ASSERT_EQ(TOV_FDSDestroy(&set, [](TOV_Skt *s, uint32_t, uint64_t) { return TOV_SktDestroy(&s); }),
            TOV_OK);
  for (size_t i = 0; i < 4; ++i) u.slot(i) = nullptr;
}

} // namespace
