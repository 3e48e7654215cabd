#include "tov.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <windows.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

using Stack = std::vector<void *>; // a description stack, newest first

// Started for each test and torn down after it: every test begins with no
// description slot and no records.
struct Started : testing::Test {
  void SetUp() override { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK); }
  void TearDown() override { TOV_Cleanup(nullptr); }

  static void *ptr(uintptr_t v) { return reinterpret_cast<void *>(v); }
  // Runs fn on a new thread and returns what it returned.
  static TOV_Status elsewhere(auto fn) { return std::async(std::launch::async, fn).get(); }
  // The description stack of thread id (0 = the caller), up to 128 entries.
  static Stack stackOf(uint64_t id) {
    Stack entries(128);
    uint32_t depth = 128;
    EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(id, entries.data(), &depth), TOV_OK);
    return Stack(entries.begin(), entries.begin() + std::min(depth, 128u));
  }
  // Bytes in use on the C runtime heap that the library allocates from.
  static size_t heapInUse() {
    size_t used = 0;
    for (_HEAPINFO h{}; _heapwalk(&h) == _HEAPOK;) used += h._useflag == _USEDENTRY ? h._size : 0;
    return used;
  }
};

// Before start-up every counted function refuses and writes no output.
TEST(SyncNotStarted, CountedFunctionsRefuseBeforeStartup) {
  void *h = nullptr;
  uint64_t u64 = 0;
  uint32_t u32 = 0, call = 0;
  for (const TOV_Status s :
       {TOV_EventCreate(nullptr, 0, 0, nullptr), TOV_EventCreate(nullptr, 0, 0, &h),
        TOV_EventDestroy(nullptr), TOV_MutexCreate(nullptr, &h), TOV_MutexDestroy(nullptr),
        TOV_SemCreate(nullptr, 5, 3, nullptr), TOV_SemCreate(nullptr, 0, 1, &h),
        TOV_SemDestroy(nullptr), TOV_LMutexCreate(&h, 0), TOV_LMutexDestroy(nullptr),
        TOV_ThreadCreate(nullptr, nullptr, 0, nullptr), TOV_ThreadDestroy(nullptr),
        TOV_ThreadWait(nullptr, 0), TOV_ThreadGetExitCode(nullptr, nullptr),
        TOV_ThreadGetID(nullptr, &u64), TOV_ThreadGetDescriptionPtrs(0, nullptr, &u32),
        TOV_TLSCreate(&u64)})
    EXPECT_EQ(s, TOV_ERR_NOT_INITIALIZED) << "call #" << call++;
  EXPECT_TRUE(h == nullptr && u64 == 0);
}

// ---- System objects -----------------------------------------------------------

// A second create of a name gives ALREADY_EXISTS and a working handle to the
// same object: it keeps the name taken after the first is destroyed. A destroy
// through a variable already cleared is refused and leaves it cleared.
TEST_F(Started, NamedObjectsOpenedTwiceAndDestroyedThroughClearedVariable) {
  const auto openTwice = [](const char *what, auto destroy, auto create) {
    SCOPED_TRACE(what);
    // Named objects are shared by the whole Wine prefix: the pid keeps test programs apart.
    const std::string name = std::to_string(GetCurrentProcessId()) + "-tov-sync-" + what;
    void *first = nullptr, *second = nullptr;
    ASSERT_EQ(create(name.c_str(), &first), TOV_OK);
    ASSERT_EQ(create(name.c_str(), &second), TOV_ERR_ALREADY_EXISTS);
    EXPECT_EQ(destroy(&first), TOV_OK);
    EXPECT_EQ(create(name.c_str(), &first), TOV_ERR_ALREADY_EXISTS);
    EXPECT_EQ(destroy(&first), TOV_OK);
    EXPECT_EQ(destroy(&second), TOV_OK);
    EXPECT_EQ(destroy(&second), TOV_ERR_INVALID_HANDLE);
    EXPECT_EQ(second, nullptr);
  };
  openTwice("event", TOV_EventDestroy, [](auto n, auto o) { return TOV_EventCreate(n, 1, 0, o); });
  openTwice("mutex", TOV_MutexDestroy, TOV_MutexCreate);
  openTwice("semaphore", TOV_SemDestroy, [](auto n, auto o) { return TOV_SemCreate(n, 0, 1, o); });
}

// Auto-reset lets one wait through, manual-reset stays set for every thread
// until reset. A pulse releases exactly the threads waiting at that moment
// (all for manual-reset, one for auto-reset) and leaves the event reset.
TEST_F(Started, EventResetKindsAndPulse) {
  for (const int32_t manual : {0, 1}) {
    SCOPED_TRACE(manual ? "manual" : "auto");
    TOV_EventHandle e = nullptr;
    ASSERT_EQ(TOV_EventCreate(nullptr, manual, 1, &e), TOV_OK);
    EXPECT_EQ(TOV_EventWait(e, 0), TOV_OK);
    EXPECT_EQ(elsewhere([&] { return TOV_EventWait(e, 0); }), manual ? TOV_OK : TOV_ERR_TIMEOUT);
    EXPECT_EQ(TOV_EventReset(e), TOV_OK); // else the waiters below pass at once
    std::atomic<int> ready{0}, woken{0};
    const auto wait = [&] { ++ready, woken += TOV_EventWait(e, 1500) == TOV_OK; };
    std::thread waiters[] = {std::thread(wait), std::thread(wait), std::thread(wait)};
    while (ready < 3) Sleep(1);
    Sleep(200); // the waiters block first; a pulse before the wait is lost
    EXPECT_EQ(TOV_EventPulse(e), TOV_OK);
    Sleep(200);
    EXPECT_EQ(woken.load(), manual ? 3 : 1);
    EXPECT_EQ(TOV_EventWait(e, 0), TOV_ERR_TIMEOUT);
    for (auto &t : waiters) t.join();
    EXPECT_EQ(TOV_EventDestroy(&e), TOV_OK);
  }
}

// A semaphore counts up to its maximum; a post past it is refused and adds
// nothing (else the post of 2 would be refused too).
TEST_F(Started, SemaphoreCountsUpToItsMaximum) {
  TOV_SemHandle s = nullptr;
  EXPECT_EQ(TOV_SemCreate(nullptr, 5, 3, &s), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(s, nullptr);
  ASSERT_EQ(TOV_SemCreate(nullptr, 1, 3, &s), TOV_OK);
  EXPECT_EQ(TOV_SemSignal(s, 4), TOV_ERR_TOO_MANY_POSTS);
  EXPECT_EQ(TOV_SemSignal(s, 2), TOV_OK); // now at the maximum
  EXPECT_EQ(TOV_SemSignal(s, 1), TOV_ERR_TOO_MANY_POSTS);
  EXPECT_EQ(TOV_SemDestroy(&s), TOV_OK);
}

// Both mutexes are recursive (released as often as acquired); while one is
// held, a try-acquire from another thread fails. Releasing a mutex the caller
// does not own is the raw system error 288.
TEST_F(Started, MutexRecursionTryAcquireAndNonOwnerRelease) {
  const auto recursive = [](const char *what, void *h, auto lock, auto tryLock, auto unlock) {
    SCOPED_TRACE(what);
    EXPECT_EQ(lock(h), TOV_OK);
    EXPECT_EQ(tryLock(h), TOV_OK); // the owner again
    EXPECT_EQ(unlock(h), TOV_OK);
    EXPECT_EQ(elsewhere([&] { return tryLock(h); }), TOV_ERR_TIMEOUT); // still held once
    EXPECT_EQ(unlock(h), TOV_OK);
    EXPECT_EQ(elsewhere([&] { return tryLock(h) ? -1 : unlock(h); }), TOV_OK);
  };
  void *m = nullptr, *l = nullptr;
  ASSERT_EQ(TOV_MutexCreate(nullptr, &m), TOV_OK);
  ASSERT_EQ(TOV_LMutexCreate(&l, 4000), TOV_OK);
  recursive("mutex", m, TOV_MutexAcquire, TOV_MutexTryAcquire, TOV_MutexRelease);
  recursive("lmutex", l, TOV_LMutexAcquire, TOV_LMutexTryAcquire, TOV_LMutexRelease);
  EXPECT_EQ(TOV_MutexAcquire(m), TOV_OK);
  EXPECT_EQ(elsewhere([&] { return TOV_MutexRelease(m); }), 288); // not the owner
  EXPECT_EQ(TOV_MutexRelease(m), TOV_OK);
  EXPECT_EQ(TOV_MutexDestroy(&m), TOV_OK);
  EXPECT_EQ(TOV_LMutexDestroy(&l), TOV_OK);
  EXPECT_EQ(TOV_LMutexDestroy(&l), TOV_OK); // already cleared: nothing to do
}

// ---- Threads and their description stacks -------------------------------------

// Threads created detached (no handle) run.
TEST_F(Started, DetachedThreadsRun) {
  TOV_SemHandle done = nullptr;
  ASSERT_EQ(TOV_SemCreate(nullptr, 0, 8, &done), TOV_OK);
  const TOV_ThreadRoutine routine = [](void *s) -> uint32_t { return TOV_SemSignal(s, 1); };
  for (int i = 0; i < 8; ++i) ASSERT_EQ(TOV_ThreadCreate(routine, done, 0, nullptr), TOV_OK);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(TOV_SemAcquire(done, 10000), TOV_OK) << i;
  EXPECT_EQ(TOV_SemDestroy(&done), TOV_OK);
}

// Push, pop and read: newest first; the array grows across 16, 32 and 64
// entries keeping every entry; a read reports the true depth even when the
// buffer is too small, and writes nothing past its room.
TEST_F(Started, DescriptionStackProtocolAndCleanup) {
  uint32_t count = 7;
  EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(0, nullptr, &count), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_ERR_NOT_FOUND); // no slot yet
  Stack expected;
  for (uintptr_t v = 1; v <= 100; ++v) {
    ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(v)), TOV_OK);
    expected.insert(expected.begin(), ptr(v));
    ASSERT_EQ(stackOf(0), expected) << "after " << v << " pushes";
  }
  expected.resize(103);
  for (const uint32_t room : {100, 102, 40, 0}) { // the last two too small
    SCOPED_TRACE(room);
    Stack buffer(103);
    count = room;
    EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(0, room ? buffer.data() : nullptr, &count),
              room < 100 ? TOV_ERR_BUFFER_TOO_SMALL : TOV_OK);
    EXPECT_EQ(count, 100u);
    std::copy(expected.begin() + room, expected.end(), buffer.begin() + room); // past the room
    EXPECT_EQ(buffer, expected);
  }
  for (int i = 0; i < 99; ++i) ASSERT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
  EXPECT_EQ(stackOf(0), Stack{ptr(1)}); // the newest went first
  // Clean-up takes the slot and every record; the next start gets a fresh slot.
  TOV_Cleanup(nullptr);
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_ERR_NOT_FOUND);
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(7)), TOV_OK);
  EXPECT_EQ(stackOf(0), Stack{ptr(7)}); // nothing left from before
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_ERR_NOT_FOUND); // empty
}

// For three seconds readers copy the stacks of short-lived threads that push,
// pop and end all the while: no call fails and no copy is torn (a stack
// always holds 1, 2, …, n bottom to top). Ended threads leave no record
// behind: their stacks read as empty by id, and the heap has their memory back.
TEST_F(Started, ConcurrentReadersAndEndingPushers) {
  std::atomic<uint64_t> ids[4] = {};
  std::atomic<long> ended{0}, nonEmpty{0}, faults{0}, stop{0}; // faults: failed calls, torn copies
  std::vector<std::thread> threads;
  const size_t heapBefore = heapInUse();
  for (auto &id : ids)
    threads.emplace_back([&] {
      for (; !stop; ++ended)
        std::thread([&] {
          id = TOV_ThreadGetCurrentID();
          for (int v = 1; v <= 120; ++v) faults += TOV_ThreadPushDescriptionPtr(ptr(v)) != TOV_OK;
          for (int v = 1; v <= 100; ++v) faults += TOV_ThreadPopDescriptionPtr() != TOV_OK;
        }).join(); // ends holding 20 entries in a 128-entry array
    });
  void *buffer[128]; // this thread is the reader
  for (const DWORD t0 = GetTickCount(); GetTickCount() - t0 < 3000;)
    for (auto &id : ids) {
      uint32_t count = 128;
      faults += TOV_ThreadGetDescriptionPtrs(id, buffer, &count) != TOV_OK;
      nonEmpty += count > 0;
      for (uint32_t i = 0; i < count; ++i) faults += buffer[i] != ptr(count - i);
    }
  stop = 1;
  for (auto &t : threads) t.join();
  EXPECT_TRUE(faults == 0 && nonEmpty > 0) << faults << " faults, " << nonEmpty << " copies";
  // Over 100 threads ended with over 1 KiB each: a leak passes the bound.
  EXPECT_TRUE(ended > 100 && heapInUse() < heapBefore + 64 * 1024) << ended << " threads ended";
  for (auto &id : ids) EXPECT_EQ(stackOf(id), Stack{});
}

// A thread with a handle: still running (nothing written), then its id and
// exit code; TOV_ThreadExit ends it with its own code.
TEST_F(Started, ThreadRecordsAndTls) {
  static TOV_EventHandle go;
  ASSERT_EQ(TOV_EventCreate(nullptr, 1, 0, &go), TOV_OK);
  TOV_ThreadHandle t = nullptr;
  static std::atomic<uint64_t> ranAs;
  ASSERT_EQ(TOV_ThreadCreate(
                [](void *) -> uint32_t {
                  ranAs = TOV_ThreadGetCurrentID();
                  TOV_EventWait(go, TOV_WAIT_INFINITE);
                  TOV_ThreadExit(41);
                  return 0;
                },
                nullptr, 0, &t),
            TOV_OK);
  uint32_t code = 7;
  uint64_t id = 0;
  EXPECT_EQ(TOV_ThreadWait(t, 0), TOV_ERR_TIMEOUT);
  EXPECT_EQ(TOV_ThreadGetExitCode(t, &code), TOV_ERR_STILL_RUNNING);
  EXPECT_EQ(code, 7u);
  ASSERT_EQ(TOV_EventSet(go), TOV_OK);
  ASSERT_EQ(TOV_ThreadWait(t, TOV_WAIT_INFINITE), TOV_OK);
  EXPECT_EQ(TOV_ThreadGetExitCode(t, &code), TOV_OK);
  EXPECT_EQ(TOV_ThreadGetID(t, &id), TOV_OK);
  EXPECT_EQ(std::tie(code, id), std::make_tuple(41u, ranAs.load()));
  EXPECT_EQ(TOV_ThreadDestroy(&t), TOV_OK);
  EXPECT_EQ(t, nullptr);
  EXPECT_EQ(TOV_EventDestroy(&go), TOV_OK);

  // A slot never set reads as null with TOV_OK, even after a stale error.
  uint64_t key = 0;
  void *value = ptr(1);
  ASSERT_EQ(TOV_TLSCreate(&key), TOV_OK);
  SetLastError(ERROR_ACCESS_DENIED);
  EXPECT_EQ(TOV_TLSGetValue(key, &value), TOV_OK);
  EXPECT_EQ(value, nullptr);
  EXPECT_EQ(TOV_TLSSetValue(key, ptr(5)), TOV_OK);
  EXPECT_EQ(TOV_TLSGetValue(key, &value), TOV_OK);
  EXPECT_EQ(value, ptr(5));
  EXPECT_EQ(TOV_TLSDestroy(&key), TOV_OK);
  EXPECT_EQ(key, 0u);
}
