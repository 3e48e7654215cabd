#include "started.h"

#include <malloc.h>

#include <atomic>
#include <thread>
#include <vector>

namespace {

void *ptr(uintptr_t v) {
  return reinterpret_cast<void *>(v);
}

// The description stack of thread id (0 = the caller), newest first.
std::vector<void *> stackOf(uint64_t id) {
  uint32_t depth = 0;
  const TOV_Status s = TOV_ThreadGetDescriptionPtrs(id, nullptr, &depth);
  EXPECT_TRUE(s == TOV_OK || s == TOV_ERR_BUFFER_TOO_SMALL) << s;
  std::vector<void *> entries(depth);
  uint32_t count = depth;
  EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(id, entries.data(), &count), TOV_OK);
  EXPECT_EQ(count, depth);
  return entries;
}

// Bytes in use on the C runtime heap that the library allocates from.
size_t heapInUse() {
  _HEAPINFO info{};
  size_t used = 0;
  while (_heapwalk(&info) == _HEAPOK)
    if (info._useflag == _USEDENTRY) used += info._size;
  return used;
}

uint32_t returnArgument(void *arg) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(arg));
}

} // namespace

// ---- Threads --------------------------------------------------------------------

TEST_F(Started, ThreadRunsAndReportsItsExitCodeAndId) {
  static std::atomic<uint64_t> seenId;
  static TOV_EventHandle go;
  ASSERT_EQ(TOV_EventCreate(nullptr, 1, 0, &go), TOV_OK);
  TOV_ThreadHandle t = nullptr;
  ASSERT_EQ(TOV_ThreadCreate(
                [](void *arg) -> uint32_t {
                  seenId = TOV_ThreadGetCurrentID();
                  return TOV_EventWait(go, 10000) == TOV_OK ? returnArgument(arg) : 99;
                },
                ptr(42), 64 * 1024, &t),
            TOV_OK);
  uint32_t code = 0xABCD;
  EXPECT_EQ(TOV_ThreadGetExitCode(t, &code), TOV_ERR_STILL_RUNNING);
  EXPECT_EQ(code, 0xABCDu);
  EXPECT_EQ(TOV_ThreadWait(t, 0), TOV_ERR_TIMEOUT);
  EXPECT_EQ(TOV_EventSet(go), TOV_OK);
  EXPECT_EQ(TOV_ThreadWait(t, TOV_WAIT_INFINITE), TOV_OK);
  EXPECT_EQ(TOV_ThreadGetExitCode(t, &code), TOV_OK);
  EXPECT_EQ(code, 42u);
  uint64_t id = 0;
  EXPECT_EQ(TOV_ThreadGetID(t, &id), TOV_OK);
  EXPECT_EQ(id, seenId.load());
  EXPECT_NE(id, TOV_ThreadGetCurrentID());
  EXPECT_EQ(TOV_ThreadDestroy(&t), TOV_OK);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(TOV_EventDestroy(&go), TOV_OK);
}

TEST_F(Started, ThreadExitEndsTheThreadWithItsCode) {
  static std::atomic<bool> passedExit{false};
  TOV_ThreadHandle t = nullptr;
  ASSERT_EQ(TOV_ThreadCreate(
                [](void *) -> uint32_t {
                  TOV_ThreadExit(12);
                  passedExit = true;
                  return 0;
                },
                nullptr, 0, &t),
            TOV_OK);
  EXPECT_EQ(TOV_ThreadWait(t, 10000), TOV_OK);
  uint32_t code = 0;
  EXPECT_EQ(TOV_ThreadGetExitCode(t, &code), TOV_OK);
  EXPECT_EQ(code, 12u);
  EXPECT_FALSE(passedExit.load());
  EXPECT_EQ(TOV_ThreadDestroy(&t), TOV_OK);
}

TEST_F(Started, DetachedThreadsRunWithoutAHandle) {
  TOV_SemHandle done = nullptr;
  ASSERT_EQ(TOV_SemCreate(nullptr, 0, 8, &done), TOV_OK);
  for (int i = 0; i < 8; ++i)
    ASSERT_EQ(TOV_ThreadCreate(
                  [](void *s) -> uint32_t {
                    TOV_ThreadPushDescriptionPtr(s); // leaves a record for the end hook
                    return TOV_SemSignal(s, 1) == TOV_OK ? 0 : 1;
                  },
                  done, 0, nullptr),
              TOV_OK);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(TOV_SemAcquire(done, 10000), TOV_OK) << i;
  EXPECT_EQ(TOV_SemDestroy(&done), TOV_OK);
}

TEST_F(Started, ThreadArgumentsAreChecked) {
  uint32_t code = 0;
  uint64_t id = 0;
  TOV_ThreadHandle t = nullptr;
  EXPECT_EQ(TOV_ThreadCreate(nullptr, nullptr, 0, &t), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(t, nullptr);
  ASSERT_EQ(TOV_ThreadCreate([](void *) -> uint32_t { return 0; }, nullptr, 0, &t), TOV_OK);
  for (const TOV_Status s : {TOV_ThreadDestroy(nullptr), TOV_ThreadWait(nullptr, 0),
                             TOV_ThreadGetExitCode(nullptr, &code), TOV_ThreadGetID(nullptr, &id),
                             TOV_ThreadGetExitCode(t, nullptr), TOV_ThreadGetID(t, nullptr)})
    EXPECT_EQ(s, TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_ThreadWait(t, 10000), TOV_OK);
  EXPECT_EQ(TOV_ThreadDestroy(&t), TOV_OK);
  EXPECT_EQ(TOV_ThreadDestroy(&t), TOV_ERR_INVALID_HANDLE);
}

// ---- Description stacks ----------------------------------------------------------

TEST_F(Started, DescriptionReadFollowsTheCountProtocol) {
  uint32_t count = 7;
  EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(0, nullptr, &count), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(0, nullptr, nullptr), TOV_ERR_INVALID_PARAMETER);
  // Nobody has pushed yet: empty.
  count = 0;
  EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(0, nullptr, &count), TOV_OK);
  EXPECT_EQ(count, 0u);

  for (uintptr_t v : {0xA, 0xB, 0xC}) ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(v)), TOV_OK);

  struct Case {
    uint32_t room;
    bool nullBuffer;
    TOV_Status status;
    std::vector<void *> expected; // the filled part of the buffer
  };
  const Case cases[] = {
      {3, false, TOV_OK, {ptr(0xC), ptr(0xB), ptr(0xA)}},
      {5, false, TOV_OK, {ptr(0xC), ptr(0xB), ptr(0xA)}},
      {2, false, TOV_ERR_BUFFER_TOO_SMALL, {ptr(0xC), ptr(0xB)}},
      {0, true, TOV_ERR_BUFFER_TOO_SMALL, {}},
  };
  for (const uint64_t id : {uint64_t{0}, TOV_ThreadGetCurrentID()}) {
    for (const Case &c : cases) {
      void *buffer[5] = {};
      count = c.room;
      EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(id, c.nullBuffer ? nullptr : buffer, &count), c.status)
          << "room " << c.room;
      EXPECT_EQ(count, 3u);
      EXPECT_EQ(std::vector<void *>(buffer, buffer + c.expected.size()), c.expected);
      for (size_t i = c.room; i < 5; ++i) EXPECT_EQ(buffer[i], nullptr) << "wrote past the room";
    }
  }
  count = 0;
  EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(0xFFFFFFFFull + 5, nullptr, &count), TOV_OK);
  EXPECT_EQ(count, 0u); // no such thread
}

TEST_F(Started, PopDropsTheNewestUntilEmpty) {
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_ERR_NOT_FOUND); // no slot yet
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(nullptr), TOV_OK);    // null is a value too
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(2)), TOV_OK);
  EXPECT_EQ(onOtherThread([] { return TOV_ThreadPopDescriptionPtr(); }), TOV_ERR_NOT_FOUND);
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
  EXPECT_EQ(stackOf(0), std::vector<void *>{nullptr});
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
  EXPECT_EQ(stackOf(0), std::vector<void *>{});
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_ERR_NOT_FOUND);
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(3)), TOV_OK); // the record is kept
  EXPECT_EQ(stackOf(0), std::vector<void *>{ptr(3)});
}

// The array grows 16 → 32 → 64 entries; every entry survives each growth.
TEST_F(Started, StackGrowsByDoublingAndKeepsItsOrder) {
  std::vector<void *> expected; // newest first
  for (uintptr_t v = 1; v <= 100; ++v) {
    ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(v)), TOV_OK);
    expected.insert(expected.begin(), ptr(v));
    if (v == 16 || v == 17 || v == 32 || v == 33 || v == 64 || v == 65 || v == 100) {
      ASSERT_EQ(stackOf(0), expected) << "after " << v << " pushes";
    }
  }
  for (int i = 0; i < 50; ++i) ASSERT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
  expected.erase(expected.begin(), expected.begin() + 50);
  EXPECT_EQ(stackOf(0), expected);
}

TEST_F(Started, AnyThreadReadsAnotherThreadsStack) {
  TOV_EventHandle pushed = nullptr, finish = nullptr;
  ASSERT_EQ(TOV_EventCreate(nullptr, 1, 0, &pushed), TOV_OK);
  ASSERT_EQ(TOV_EventCreate(nullptr, 1, 0, &finish), TOV_OK);
  std::atomic<uint64_t> workerId{0};
  std::thread worker([&] {
    workerId = TOV_ThreadGetCurrentID();
    TOV_ThreadPushDescriptionPtr(ptr(0x10));
    TOV_ThreadPushDescriptionPtr(ptr(0x20));
    TOV_EventSet(pushed);
    TOV_EventWait(finish, 10000);
  });
  ASSERT_EQ(TOV_EventWait(pushed, 10000), TOV_OK);
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(0x99)), TOV_OK);
  EXPECT_EQ(stackOf(workerId), (std::vector<void *>{ptr(0x20), ptr(0x10)}));
  EXPECT_EQ(stackOf(0), std::vector<void *>{ptr(0x99)});
  TOV_EventSet(finish);
  worker.join();
  // Its record went with it; the caller's stays.
  EXPECT_EQ(stackOf(workerId), std::vector<void *>{});
  EXPECT_EQ(stackOf(0), std::vector<void *>{ptr(0x99)});
  TOV_EventDestroy(&pushed);
  TOV_EventDestroy(&finish);
}

// Threads that push and end leave nothing behind: no record findable by id,
// and their arrays and records are given back to the heap.
TEST_F(Started, EndingThreadsGiveTheirStacksBack) {
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(1)), TOV_OK); // slot and list exist
  auto runPushers = [](int threads, std::vector<uint64_t> *ids) {
    for (int t = 0; t < threads; ++t) {
      std::atomic<uint64_t> id{0};
      std::thread([&] {
        id = TOV_ThreadGetCurrentID();
        for (uintptr_t v = 1; v <= 1000; ++v) TOV_ThreadPushDescriptionPtr(ptr(v));
      }).join();
      if (ids) ids->push_back(id);
    }
  };
  runPushers(4, nullptr); // warm-up: the runtime's own per-thread blocks
  const size_t before = heapInUse();
  std::vector<uint64_t> ids;
  runPushers(40, &ids); // 40 × (1024 entries × 8 bytes) if they leaked
  const size_t after = heapInUse();
  EXPECT_LT(after, before + 64 * 1024) << "before " << before << " after " << after;
  for (const uint64_t id : ids) EXPECT_EQ(stackOf(id), std::vector<void *>{}) << id;
}

// Clean-up frees the slot and every record; the next start begins afresh.
TEST_F(Started, CleanupThenStartupStartsEmptyStacks) {
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(1)), TOV_OK);
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(2)), TOV_OK);
  TOV_Cleanup(nullptr);
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_ERR_NOT_FOUND); // no slot any more
  // Push and pop work without a start as well.
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(5)), TOV_OK);
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
  TOV_Cleanup(nullptr); // the teardown runs again at count 0
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  EXPECT_EQ(stackOf(0), std::vector<void *>{});
  // A TLS key taken now may reuse the old slot index: it must read as unset.
  uint64_t key = 0;
  ASSERT_EQ(TOV_TLSCreate(&key), TOV_OK);
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(3)), TOV_OK);
  EXPECT_EQ(stackOf(0), std::vector<void *>{ptr(3)});
  EXPECT_EQ(TOV_TLSDestroy(&key), TOV_OK);
}

// Threads making their first push at the same moment share one slot: each
// finds its own stack through it afterwards.
TEST_F(Started, SimultaneousFirstPushesShareOneSlot) {
  for (int round = 0; round < 20; ++round) {
    TOV_Cleanup(nullptr); // no slot again
    ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
    TOV_EventHandle go = nullptr;
    ASSERT_EQ(TOV_EventCreate(nullptr, 1, 0, &go), TOV_OK);
    std::atomic<int> good{0};
    std::vector<std::thread> threads;
    for (uintptr_t t = 1; t <= 4; ++t)
      threads.emplace_back([&, t] {
        TOV_EventWait(go, 10000);
        if (TOV_ThreadPushDescriptionPtr(ptr(t)) == TOV_OK &&
            stackOf(0) == std::vector<void *>{ptr(t)})
          ++good;
      });
    Sleep(20);
    TOV_EventSet(go);
    for (auto &t : threads) t.join();
    ASSERT_EQ(good.load(), 4) << "round " << round;
    TOV_EventDestroy(&go);
  }
}

// Readers copy the stacks of threads that push, pop and end all the while.
// A copy is never torn: thread stacks always hold 1, 2, …, n bottom to top.
TEST_F(Started, ConcurrentReadersPushersAndEndingThreads) {
  constexpr int kSlots = 4;
  std::atomic<uint64_t> ids[kSlots] = {};
  std::atomic<bool> stop{false};
  std::atomic<long> copies{0}, nonEmpty{0}, torn{0}, bad{0};

  std::vector<std::thread> pushers;
  for (int s = 0; s < kSlots; ++s)
    pushers.emplace_back([&, s] {
      // Short-lived threads, one after another, so readers meet ending ones.
      while (!stop) {
        std::thread([&] {
          ids[s] = TOV_ThreadGetCurrentID();
          for (int round = 0; round < 20; ++round) {
            const uintptr_t n = 1 + (round * 7 + s * 13) % 90;
            for (uintptr_t v = 1; v <= n; ++v)
              if (TOV_ThreadPushDescriptionPtr(ptr(v)) != TOV_OK) ++bad;
            for (uintptr_t v = 0; v < n; ++v)
              if (TOV_ThreadPopDescriptionPtr() != TOV_OK) ++bad;
          }
        }).join();
      }
    });

  std::vector<std::thread> readers;
  for (int r = 0; r < 2; ++r)
    readers.emplace_back([&] {
      void *buffer[128];
      while (!stop) {
        for (auto &id : ids) {
          uint32_t count = 128;
          const TOV_Status st = TOV_ThreadGetDescriptionPtrs(id, buffer, &count);
          if (st != TOV_OK) ++bad;
          ++copies;
          if (count) ++nonEmpty;
          for (uint32_t i = 0; i < count; ++i)
            if (buffer[i] != ptr(count - i)) {
              ++torn;
              break;
            }
        }
      }
    });

  Sleep(3000);
  stop = true;
  for (auto &t : readers) t.join();
  for (auto &t : pushers) t.join();
  EXPECT_EQ(torn.load(), 0);
  EXPECT_EQ(bad.load(), 0);
  EXPECT_GT(nonEmpty.load(), 0) << "copies " << copies.load();
}

// ---- Thread-local storage ------------------------------------------------------

TEST_F(Started, TLSKeysHoldOneValuePerThread) {
  EXPECT_EQ(TOV_TLSCreate(nullptr), TOV_ERR_INVALID_PARAMETER);
  uint64_t key = 0;
  ASSERT_EQ(TOV_TLSCreate(&key), TOV_OK);
  void *value = ptr(1);
  EXPECT_EQ(TOV_TLSGetValue(key, &value), TOV_OK); // never set: null
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(TOV_TLSSetValue(key, ptr(0x77)), TOV_OK);
  EXPECT_EQ(TOV_TLSGetValue(key, &value), TOV_OK);
  EXPECT_EQ(value, ptr(0x77));
  EXPECT_EQ(onOtherThread([&] {
              void *other = ptr(1);
              return TOV_TLSGetValue(key, &other) == TOV_OK && other == nullptr ? TOV_OK : -1;
            }),
            TOV_OK);
  // A null value set on purpose is a value, even with a stale error around.
  EXPECT_EQ(TOV_TLSSetValue(key, nullptr), TOV_OK);
  SetLastError(ERROR_ACCESS_DENIED);
  EXPECT_EQ(TOV_TLSGetValue(key, &value), TOV_OK);
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(TOV_TLSDestroy(&key), TOV_OK);
  EXPECT_EQ(key, 0u);

  // A slot never allocated: the error comes back, nothing is written.
  key = 5000;
  value = ptr(0x55);
  EXPECT_EQ(TOV_TLSGetValue(key, &value), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(value, ptr(0x55));
  EXPECT_EQ(TOV_TLSSetValue(key, ptr(1)), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_TLSDestroy(&key), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(key, 0u);
}
