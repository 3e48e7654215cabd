// Condition variables and reader-writer locks with real threads, watched
// from inside their records. Every wait has a generous limit, so a lost
// wake-up fails a test instead of hanging it. The seams of this build make the
// platform's creates fail on request.
#include "footprint.h"
#include "frame/seams.h"
#include "sync/rwlock.h"
#include "sync/section.h"

#include <gtest/gtest.h>

#include <atomic>
#include <deque>
#include <future>
#include <thread>
#include <tuple>
#include <vector>

namespace {

using Codes = std::vector<TOV_Status>;
using State = std::tuple<int32_t, int32_t, uint32_t, uint32_t>; // holders, hand-off, waiting r/w
constexpr uint32_t kPatience = 20000; // ms; a wait this long means a lost wake-up

// Started, with an LMutex m, a condition c and a reader-writer lock rw.
struct CondRW : testing::Test {
  void SetUp() override {
    ASSERT_EQ(Codes({TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_LMutexCreate(&m, 0),
                     TOV_CondCreate(&c), TOV_RWLockCreate(&rw)}),
              Codes(4, TOV_OK));
  }
  void TearDown() override {
    TOV_LMutexDestroy(&m), TOV_CondDestroy(&c), TOV_RWLockDestroy(&rw), TOV_Cleanup(nullptr);
  }
  State state() const {
    auto *r = static_cast<tov::RWLockRecord *>(rw);
    tov::Entered entered(&r->lock);
    return {r->holders, r->handOff, r->waitingReaders, r->waitingWriters};
  }
  // Polls until the lock's state matches, for at most kPatience.
  bool reaches(State s) const {
    for (const DWORD t0 = GetTickCount(); state() != s; Sleep(1))
      if (GetTickCount() - t0 > kPatience) return false;
    return true;
  }
  void *m = nullptr, *c = nullptr, *rw = nullptr;
};

// Refused calls change nothing: a wait refused for its null lock counted no
// waiter (else the signal after it would leave a wake-up behind), a signal
// or broadcast with nobody waiting is not remembered, a release of a free
// lock leaves it free.
TEST_F(CondRW, RefusalsChangeNothing) {
  void *cleared = nullptr;
  EXPECT_EQ(
      Codes({TOV_CondWait(c, nullptr, 0), TOV_RWLockRelease(rw), TOV_CondDestroy(&cleared),
             TOV_RWLockDestroy(&cleared), TOV_CondSignal(c), TOV_CondBroadcast(c),
             TOV_LMutexAcquire(m), TOV_CondWait(c, m, 0), TOV_LMutexRelease(m),
             TOV_RWLockTryAcquire(rw, 1)}),
      Codes({TOV_ERR_INVALID_PARAMETER, TOV_ERR_INVALID_PARAMETER, TOV_ERR_INVALID_HANDLE,
             TOV_ERR_INVALID_HANDLE, TOV_OK, TOV_OK, TOV_OK, TOV_ERR_TIMEOUT, TOV_OK, TOV_OK}));
  EXPECT_EQ(cleared, nullptr);
}

// Three threads wait. A broadcast wakes all three and returns only once they
// have left their wait: not while one of them is held up, and afterwards a
// signal finds nobody waiting. A timed-out wait holds the LMutex again.
TEST_F(CondRW, BroadcastWakesEveryWaiterAndTimeOutHoldsTheLock) {
  int ready = 0; // under m
  std::atomic<int> woken{0};
  HANDLE first = nullptr;
  std::vector<std::thread> waiters(3);
  for (auto &t : waiters)
    t = std::thread([&] {
      TOV_LMutexAcquire(m);
      if (++ready == 1) first = OpenThread(THREAD_SUSPEND_RESUME, FALSE, GetCurrentThreadId());
      woken += TOV_CondWait(c, m, kPatience) == TOV_OK;
      TOV_LMutexRelease(m);
    });
  // A waiter holds m from its count until its wait has counted it.
  for (TOV_LMutexAcquire(m); ready < 3; TOV_LMutexAcquire(m)) TOV_LMutexRelease(m), Sleep(1);
  SuspendThread(first);
  auto broadcast = std::async(std::launch::async, [&] { return TOV_CondBroadcast(c); });
  EXPECT_EQ(broadcast.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
  ResumeThread(first);
  const DWORD t0 = GetTickCount();
  EXPECT_EQ(
      Codes({broadcast.get(), TOV_CondSignal(c), TOV_CondWait(c, m, 0), TOV_CondWait(c, m, 50)}),
      Codes({TOV_OK, TOV_OK, TOV_ERR_TIMEOUT, TOV_ERR_TIMEOUT}));
  EXPECT_GE(GetTickCount() - t0, 40u);
  EXPECT_EQ(std::async(std::launch::async, [&] { return TOV_LMutexTryAcquire(m); }).get(),
            TOV_ERR_TIMEOUT);
  TOV_LMutexRelease(m);
  for (auto &t : waiters) t.join();
  EXPECT_EQ(woken.load(), 3);
  CloseHandle(first);
}

// Three producers and three consumers over a queue of four places, one
// condition for "not full" and c for "not empty": every item arrives exactly
// once and no wait runs out its limit.
TEST_F(CondRW, BoundedQueueHandsOverEveryItemOnce) {
  constexpr int kTotal = 3 * 2000;
  void *notFull = nullptr;
  std::deque<int> queue; // the rest under m
  std::vector<int> seen(kTotal);
  int made = 0, taken = 0, stalls = 0;
  // Waits on cond until ready() holds; false when a wait runs out its limit.
  const auto until = [&](void *cond, auto ready) {
    while (!ready())
      if (TOV_CondWait(cond, m, kPatience) != TOV_OK) return ++stalls, false;
    return true;
  };
  const auto produce = [&] {
    while (until(notFull, [&] { return queue.size() < 4 || made == kTotal; }) && made < kTotal)
      queue.push_back(made++), TOV_CondSignal(c);
  };
  const auto consume = [&] { // the one taking the last item stops the others
    while (until(c, [&] { return !queue.empty() || taken == kTotal; }) && !queue.empty()) {
      ++seen[queue.front()], queue.pop_front(), TOV_CondSignal(notFull);
      if (++taken == kTotal) TOV_CondBroadcast(c);
    }
  };
  ASSERT_EQ(TOV_CondCreate(&notFull), TOV_OK);
  std::vector<std::thread> threads;
  for (int k = 0; k < 6; ++k)
    threads.emplace_back(
        [&, k] { TOV_LMutexAcquire(m), k % 2 ? produce() : consume(), TOV_LMutexRelease(m); });
  for (auto &t : threads) t.join();
  EXPECT_EQ(std::make_tuple(stalls, TOV_CondDestroy(&notFull)), std::make_tuple(0, TOV_OK));
  EXPECT_EQ(seen, std::vector<int>(kTotal, 1));
}

// Four threads mix waiting and trying acquires in both modes: inside, a
// writer never meets anyone, a reader never meets a writer.
TEST_F(CondRW, ReadersShareAndAWriterIsAlone) {
  std::atomic<int> inside[2] = {}, clashes{0}, failures{0}, started{0}; // readers, writers
  std::vector<std::thread> threads(4);
  for (int id = 0; id < 4; ++id)
    threads[id] = std::thread([&, id] {
      for (++started; started < 4;) SwitchToThread(); // all at once
      for (int i = 0; i < 4000; ++i) {
        const int32_t exclusive = (i + id) % 4 == 0;
        const TOV_Status s =
            i % 3 ? TOV_RWLockAcquire(rw, exclusive) : TOV_RWLockTryAcquire(rw, exclusive);
        failures += s != TOV_OK && (i % 3 || s != TOV_ERR_TIMEOUT);
        if (s != TOV_OK) continue;
        ++inside[exclusive];
        if (i % 16 == 0) SwitchToThread(); // let the others pile up behind
        clashes += inside[1] != exclusive || (exclusive && inside[0] != 0);
        --inside[exclusive];
        failures += TOV_RWLockRelease(rw) != TOV_OK;
      }
    });
  for (auto &t : threads) t.join();
  EXPECT_EQ(std::make_tuple(clashes.load(), failures.load()), std::make_tuple(0, 0));
}

// Behind two readers a writer waits and readers still get in; the last
// reader out hands the lock to the writer, and nobody gets in by trying
// meanwhile. When that writer leaves, of two readers and a writer waiting
// then, both readers get in first, together.
TEST_F(CondRW, HandOffs) {
  std::atomic<bool> writerLeaves{false}, readersLeave{false}, atOnce{true};
  std::vector<std::thread> threads;
  // A thread that acquires in a mode and stays until told to leave.
  const auto holder = [&](int32_t exclusive, std::atomic<bool> &leave) {
    threads.emplace_back([this, exclusive, &leave] {
      EXPECT_EQ(TOV_RWLockAcquire(rw, exclusive), TOV_OK);
      while (!leave) Sleep(1);
      EXPECT_EQ(TOV_RWLockRelease(rw), TOV_OK);
    });
  };
  ASSERT_EQ(Codes({TOV_RWLockAcquire(rw, 0), TOV_RWLockAcquire(rw, 0)}), Codes(2, TOV_OK));
  holder(1, writerLeaves);
  EXPECT_TRUE(reaches({2, 0, 0, 1}));
  EXPECT_EQ(
      Codes({TOV_RWLockTryAcquire(rw, 0), TOV_RWLockRelease(rw), TOV_RWLockRelease(rw),
             TOV_RWLockRelease(rw), TOV_RWLockTryAcquire(rw, 0), TOV_RWLockTryAcquire(rw, 1)}),
      Codes({TOV_OK, TOV_OK, TOV_OK, TOV_OK, TOV_ERR_TIMEOUT, TOV_ERR_TIMEOUT}));
  EXPECT_TRUE(reaches({-1, 0, 0, 0}));
  holder(0, readersLeave), holder(0, readersLeave);
  EXPECT_TRUE(reaches({-1, 0, 2, 0}));
  holder(1, atOnce);
  EXPECT_TRUE(reaches({-1, 0, 2, 1}));
  writerLeaves = true;
  EXPECT_TRUE(reaches({2, 0, 0, 1})); // both readers in, the writer still waiting
  readersLeave = true;
  for (auto &t : threads) t.join();
  EXPECT_EQ(state(), State(0, 0, 0, 0));
}

// The k-th semaphore or event a create makes fails: the create reports the
// mapped error, writes nothing, and gives back every block and object it made
// (each row fails a later object).
TEST_F(CondRW, FailedCreatesLeaveNothingBehind) {
  static size_t creates; // that succeed before one fails
  tov::seams::failObjectCreate = [] {
    return creates-- == 0 && (SetLastError(ERROR_ACCESS_DENIED), true);
  };
  const auto footprint = [] {
    return std::pair{tov::seams::allocations - tov::seams::frees, tovtest::handleFootprint()};
  };
  for (size_t row = 0; row < 6; ++row) { // a condition makes two objects, a lock four
    creates = row < 2 ? row : row - 2;
    void *out = &out;
    const auto before = footprint();
    EXPECT_EQ((row < 2 ? TOV_CondCreate : TOV_RWLockCreate)(&out), TOV_ERR_ACCESS_DENIED) << row;
    EXPECT_TRUE(out == &out && footprint() == before) << row;
  }
  tov::seams::failObjectCreate = nullptr;
  // A destroy tries both closes, reports the failed one and clears the variable.
  const HANDLE wakeUp = static_cast<tov::CondRecord *>(c)->wakeUp;
  CloseHandle(static_cast<tov::CondRecord *>(c)->waitersDone);
  const std::tuple destroyed{TOV_CondDestroy(&c), c, WaitForSingleObject(wakeUp, 0)};
  EXPECT_EQ(destroyed, decltype(destroyed)(TOV_ERR_INVALID_HANDLE, nullptr, WAIT_FAILED));
}

} // namespace
