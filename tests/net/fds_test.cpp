// Socket sets over real UDP sockets.
#include <winsock2.h>

#include "tov.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

using Model = std::map<TOV_Skt *, std::pair<uint32_t, uint64_t>>; // handle: flags, context

struct FDS : testing::Test {
  void SetUp() override { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK); }
  void TearDown() override {
    EXPECT_TRUE(!set || TOV_FDSDestroy(&set, nullptr) == TOV_OK);
    for (TOV_Skt *s : u) EXPECT_TRUE(!s || TOV_SktDestroy(&s) == TOV_OK); // the set closes none
    TOV_Cleanup(nullptr);
  }
  // What the callback saw; its call number stop.first returns stop.second.
  static inline std::vector<Model::value_type> calls;
  static inline std::pair<size_t, TOV_Status> stop;
  static TOV_Status record(TOV_Skt *h, uint32_t flags, uint64_t context) {
    calls.emplace_back(h, std::pair(flags, context));
    return calls.size() == stop.first ? stop.second : TOV_OK;
  }
  void stopAt(size_t call, TOV_Status status) { calls.clear(), stop = {call, status}; }
  TOV_FDS *set = nullptr;
  TOV_Skt *u[300] = {};
};

// Random associations, changes and removals on 300 UDP sockets against a map
// of what the set should hold (ordered by handle, as the set is): statuses,
// previous values (untouched on failure), counters per interest.
TEST_F(FDS, RandomHistoryFollowsAModel) {
  for (TOV_Skt *&s : u) ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_DGRAM, IPPROTO_UDP, &s), TOV_OK);
  ASSERT_EQ(TOV_FDSCreate(3, &set), TOV_OK);
  Model model;
  std::mt19937 rng(1);
  for (int step = 0; step < 3000; ++step) {
    TOV_Skt *s = u[rng() % 300];
    const bool in = model.count(s);
    uint32_t f = rng() % 16, what = rng() % 4, op = rng() % 4, n = 0; // flag 8: no interest
    uint64_t c = (uint64_t{rng()} << 32) | step;
    const auto now = std::pair(f, c), old = in ? model[s] : now;
    if (op < 2) {
      const TOV_Status want = !f ? TOV_ERR_INVALID_PARAMETER : in ? TOV_ERR_ALREADY_EXISTS : 0;
      EXPECT_EQ(TOV_FDSAssociate(set, s, f, c), want);
      if (!want) model[s] = now;
    } else if (op == 2) {
      EXPECT_EQ(TOV_FDSModify(set, s, what, &f, &c), in ? TOV_OK : TOV_ERR_NOT_FOUND);
      EXPECT_EQ(std::pair(f, c), old);
      // what: 1 sets the flags, 2 the context
      if (in) model[s] = {what & 1 ? now.first : f, what & 2 ? now.second : c};
    } else {
      EXPECT_EQ(TOV_FDSRemove(set, s, &c), in ? TOV_OK : TOV_ERR_NOT_FOUND);
      EXPECT_EQ(c, old.second);
      model.erase(s);
    }
    for (uint32_t which = 1; which <= 7; ++which) {
      uint32_t want = 0;
      for (const auto &[h, e] : model) want += __builtin_popcount(e.first & which);
      ASSERT_EQ(TOV_FDSCount(set, &n, which), TOV_OK);
      ASSERT_EQ(n, want) << "step " << step << " which " << which;
    }
  }
  const std::vector all(model.begin(), model.end());

  // One select reports every write entry (over 64; UDP sockets are always
  // writable) with its own flags and context, and no removed socket. A short
  // array gets the true total and the first records, nothing beyond; an
  // except-only wait times out leaving the count alone.
  std::erase_if(model, [](const auto &e) { return !(e.second.first & TOV_FDS_WRITE); });
  std::vector<TOV_FDSResult> got(400, TOV_FDSResult{nullptr, 0xEE, 0xEE}), few = got;
  uint32_t n = 400, room = 10, total = 0;
  ASSERT_EQ(TOV_FDSSelect(set, TOV_FDS_WRITE, got.data(), &n, 0), TOV_OK);
  Model seen;
  for (uint32_t i = 0; i < n; ++i) seen[got[i].handle] = {got[i].flags, got[i].context};
  EXPECT_EQ(seen, model);
  EXPECT_TRUE(n == model.size() && n > 64) << n;
  EXPECT_EQ(TOV_FDSSelect(set, TOV_FDS_EXCEPT, few.data(), &room, 0), TOV_ERR_TIMEOUT);
  EXPECT_EQ(room, 10u);
  EXPECT_EQ(TOV_FDSSelect(set, TOV_FDS_WRITE, few.data(), &room, 0), TOV_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(TOV_FDSSelect(set, TOV_FDS_WRITE, nullptr, &total, 0), TOV_ERR_BUFFER_TOO_SMALL);
  EXPECT_EQ(std::pair(room, total), std::pair(n, n));
  for (int i = 0; i < 10; ++i) EXPECT_EQ(few[i].handle, got[i].handle);
  EXPECT_EQ(few[10].flags, 0xEEu);

  // Callbacks go in handle order and stop at their first non-zero result,
  // which Enumerate returns and Destroy does not. A second destroy through
  // the cleared variable is refused, not a crash.
  stopAt(3, 7);
  EXPECT_EQ(TOV_FDSEnumerate(set, record), 7);
  EXPECT_EQ(calls, std::vector(all.begin(), all.begin() + 3));
  stopAt(all.size(), -1);
  EXPECT_EQ(TOV_FDSDestroy(&set, record), TOV_OK);
  EXPECT_EQ(calls, all);
  EXPECT_EQ(set, nullptr);
  EXPECT_EQ(TOV_FDSDestroy(&set, nullptr), TOV_ERR_INVALID_HANDLE);
}

// Handles are ordered as unsigned 64-bit values: two stand-in records (the set
// reads nothing but the system socket, and only when selecting) whose low
// 32 bits sort the other way round.
TEST_F(FDS, HandlesAreOrderedByTheirFull64Bits) {
  void *at[] = {(void *)0x100000010000, (void *)0x180000000}; // high, then low
  for (void *&p : at) p = VirtualAlloc(p, 4096, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE);
  if (!at[0] || !at[1]) GTEST_SKIP() << "could not place pages at the chosen addresses";
  ASSERT_EQ(TOV_FDSCreate(0, &set), TOV_OK);
  for (void *h : at) ASSERT_EQ(TOV_FDSAssociate(set, (TOV_Skt *)h, 1, 0), TOV_OK);
  stopAt(0, TOV_OK);
  ASSERT_EQ(TOV_FDSEnumerate(set, record), TOV_OK);
  EXPECT_EQ(calls, (decltype(calls){{(TOV_Skt *)at[1], {1, 0}}, {(TOV_Skt *)at[0], {1, 0}}}));
  EXPECT_EQ(TOV_FDSDestroy(&set, nullptr), TOV_OK);
  for (void *p : at) VirtualFree(p, 0, MEM_RELEASE);
}

// Results come read-ready first, then write-ready, each with its entry's
// interest flags and context.
TEST_F(FDS, ReadResultsComeBeforeWriteResults) {
  for (TOV_Skt **s : {&u[0], &u[1]})
    ASSERT_EQ(TOV_SktCreate(AF_INET, SOCK_DGRAM, IPPROTO_UDP, s), TOV_OK);
  sockaddr a{AF_INET, {0, 0, 127, 0, 0, 1}}; // port 0, 127.0.0.1
  int len = sizeof a;
  SOCKET r = *reinterpret_cast<SOCKET *>(u[0]); // the object's first field is its socket
  ASSERT_EQ(bind(r, &a, len), 0);
  ASSERT_EQ(getsockname(r, &a, &len), 0);
  ASSERT_EQ(sendto(r, "x", 1, 0, &a, len), 1);
  ASSERT_EQ(TOV_FDSCreate(0, &set), TOV_OK);
  ASSERT_EQ(TOV_FDSAssociate(set, u[1], TOV_FDS_WRITE, 11), TOV_OK);
  ASSERT_EQ(TOV_FDSAssociate(set, u[0], TOV_FDS_READ, 10), TOV_OK);
  TOV_FDSResult got[2];
  uint32_t n = 0;
  for (int tries = 0; tries < 50 && n != 2; ++tries, Sleep(20)) // room for 2, until both are in
    ASSERT_EQ(TOV_FDSSelect(set, TOV_FDS_READ | TOV_FDS_WRITE, got, &(n = 2), 100), TOV_OK);
  ASSERT_EQ(n, 2u);
  auto row = [&](int i) { return std::tuple(got[i].handle, got[i].flags, got[i].context); };
  EXPECT_EQ(row(0), std::tuple(u[0], TOV_FDS_READ, uint64_t{10}));
  EXPECT_EQ(row(1), std::tuple(u[1], TOV_FDS_WRITE, uint64_t{11}));
}
