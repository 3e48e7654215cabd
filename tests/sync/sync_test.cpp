#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>

#include <malloc.h>
#include <windows.h>

#include <atomic>
#include <future>
#include <thread>
#include <vector>

// detach_probe.dll: watches one thread and records what its thread-detach
// handler, which runs after tov's, finds on it.
extern "C" __declspec(dllimport) const int32_t *detachProbe(uint32_t threadId);

using Stack = std::vector<void *>; // a description stack, newest first
// The status codes of calls listed in braces, which run in the order written.
using Codes = std::vector<TOV_Status>;

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

// ---- System objects -----------------------------------------------------------

// A second create of a name gives ALREADY_EXISTS and a working handle to the
// same object: it keeps the name taken after the first is destroyed. A destroy
// through a variable already cleared is refused and leaves it cleared.
TEST_F(Started, NamedObjectsOpenedTwiceAndDestroyedThroughClearedVariable) {
  const auto openTwice = [](const char *what, auto destroy, auto create) {
    SCOPED_TRACE(what);
    // Named objects are shared by the whole Wine prefix: the pid keeps test programs apart.
    const std::string name = std::to_string(GetCurrentProcessId()) + "-tov-sync-" + what;
    const char *n = name.c_str();
    void *first = nullptr, *second = nullptr;
    EXPECT_EQ(Codes({create(n, &first), create(n, &second), destroy(&first), create(n, &first),
                     destroy(&first), destroy(&second), destroy(&second)}),
              Codes({TOV_OK, TOV_ERR_ALREADY_EXISTS, TOV_OK, TOV_ERR_ALREADY_EXISTS, TOV_OK, TOV_OK,
                     TOV_ERR_INVALID_HANDLE}));
    EXPECT_EQ(second, nullptr);
  };
  openTwice("event", TOV_EventDestroy, [](auto n, auto o) { return TOV_EventCreate(n, 1, 0, o); });
  openTwice("mutex", TOV_MutexDestroy, TOV_MutexCreate);
  openTwice("semaphore", TOV_SemDestroy, [](auto n, auto o) { return TOV_SemCreate(n, 0, 1, o); });
}

// Auto-reset lets one wait through, manual-reset stays set for every thread
// until reset. A pulse (which releases the threads waiting at that moment:
// the platform's own semantics) leaves the event reset.
TEST_F(Started, EventResetKindsAndPulse) {
  for (const int32_t manual : {0, 1}) {
    SCOPED_TRACE(manual ? "manual" : "auto");
    TOV_EventHandle e = nullptr;
    EXPECT_EQ(Codes({TOV_EventCreate(nullptr, manual, 1, &e), TOV_EventWait(e, 0),
                     elsewhere([&] { return TOV_EventWait(e, 0); }), TOV_EventReset(e),
                     TOV_EventWait(e, 0), TOV_EventSet(e), TOV_EventPulse(e), TOV_EventWait(e, 0),
                     TOV_EventDestroy(&e)}),
              Codes({TOV_OK, TOV_OK, manual ? TOV_OK : TOV_ERR_TIMEOUT, TOV_OK, TOV_ERR_TIMEOUT,
                     TOV_OK, TOV_OK, TOV_ERR_TIMEOUT, TOV_OK}));
  }
}

// Threads created detached (no handle) run: eight each post once. A semaphore
// counts up to its maximum; a post past it is refused and adds nothing (else
// the post of 8 would be refused too). A start above the maximum is refused.
TEST_F(Started, DetachedThreadsPostUpToTheSemaphoreMaximum) {
  TOV_SemHandle s = nullptr, refused = nullptr;
  ASSERT_EQ(TOV_SemCreate(nullptr, 0, 8, &s), TOV_OK);
  const TOV_ThreadRoutine post = [](void *s) -> uint32_t { return TOV_SemSignal(s, 1); };
  for (int i = 0; i < 8; ++i) ASSERT_EQ(TOV_ThreadCreate(post, s, 0, nullptr), TOV_OK);
  for (int i = 0; i < 8; ++i) EXPECT_EQ(TOV_SemAcquire(s, 10000), TOV_OK) << i;
  EXPECT_EQ(Codes({TOV_SemSignal(s, 9), TOV_SemSignal(s, 8), TOV_SemSignal(s, 1),
                   TOV_SemDestroy(&s), TOV_SemCreate(nullptr, 9, 8, &refused)}),
            Codes({TOV_ERR_TOO_MANY_POSTS, TOV_OK, TOV_ERR_TOO_MANY_POSTS, TOV_OK,
                   TOV_ERR_INVALID_PARAMETER}));
  EXPECT_EQ(refused, nullptr);
}

// Both mutexes are recursive (released as often as acquired); while one is
// held, a try-acquire from another thread fails. Releasing a mutex the caller
// does not own is the raw system error 288.
TEST_F(Started, MutexRecursionTryAcquireAndNonOwnerRelease) {
  // Taken twice by the owner and released once, it is still held for another thread.
  const auto recursive = [](void *h, auto lock, auto tryLock, auto unlock) {
    return Codes({lock(h), tryLock(h), unlock(h), elsewhere([&] { return tryLock(h); }), unlock(h),
                  elsewhere([&] { return tryLock(h) ? -1 : unlock(h); })});
  };
  const Codes held({TOV_OK, TOV_OK, TOV_OK, TOV_ERR_TIMEOUT, TOV_OK, TOV_OK});
  void *m = nullptr, *l = nullptr;
  ASSERT_TRUE(TOV_MutexCreate(nullptr, &m) == TOV_OK && TOV_LMutexCreate(&l, 4000) == TOV_OK);
  EXPECT_EQ(recursive(m, TOV_MutexAcquire, TOV_MutexTryAcquire, TOV_MutexRelease), held);
  EXPECT_EQ(recursive(l, TOV_LMutexAcquire, TOV_LMutexTryAcquire, TOV_LMutexRelease), held);
  // The second destroy of l finds the variable cleared: nothing to do.
  EXPECT_EQ(Codes({TOV_MutexAcquire(m), elsewhere([&] { return TOV_MutexRelease(m); }),
                   TOV_MutexRelease(m), TOV_MutexDestroy(&m), TOV_LMutexDestroy(&l),
                   TOV_LMutexDestroy(&l)}),
            Codes({TOV_OK, 288 /* not the owner */, TOV_OK, TOV_OK, TOV_OK, TOV_OK}));
}

// ---- Threads and their description stacks -------------------------------------

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
  for (const uint32_t room : {100, 102, 40, 0}) { // the last two too small
    SCOPED_TRACE(room);
    Stack buffer(103), written(103); // written: the first min(room, 100) entries
    std::copy_n(expected.begin(), std::min(room, 100u), written.begin());
    count = room;
    EXPECT_EQ(TOV_ThreadGetDescriptionPtrs(0, room ? buffer.data() : nullptr, &count),
              room < 100 ? TOV_ERR_BUFFER_TOO_SMALL : TOV_OK);
    EXPECT_EQ(std::tie(count, buffer), std::make_tuple(100u, written));
  }
  for (int i = 0; i < 99; ++i) ASSERT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
  EXPECT_EQ(stackOf(0), Stack{ptr(1)}); // the newest went first
  // Clean-up takes the slot and every record; the next start gets a fresh slot
  // holding nothing from before, and a pop past its end is refused.
  TOV_Cleanup(nullptr);
  EXPECT_EQ(Codes({TOV_ThreadPopDescriptionPtr(), TOV_Startup(nullptr, 0, nullptr, nullptr),
                   TOV_ThreadPushDescriptionPtr(ptr(7))}),
            Codes({TOV_ERR_NOT_FOUND, TOV_OK, TOV_OK}));
  EXPECT_EQ(stackOf(0), Stack{ptr(7)});
  EXPECT_EQ(Codes({TOV_ThreadPopDescriptionPtr(), TOV_ThreadPopDescriptionPtr()}),
            Codes({TOV_OK, TOV_ERR_NOT_FOUND}));
}

// For three seconds this thread copies the stacks of short-lived threads that
// push, pop and end all the while: no call fails and no copy is torn (a stack
// always holds 1, 2, …, n bottom to top). Ended threads leave no record
// behind: their stacks read as empty by id, and the heap has their memory back.
TEST_F(Started, ConcurrentReadersAndEndingPushers) {
  std::atomic<uint64_t> ids[4] = {};
  std::atomic<long> ended{0}, nonEmpty{0}, torn{0};
  std::vector<std::jthread> threads;
  const size_t heapBefore = heapInUse();
  for (auto &id : ids)
    threads.emplace_back([&](std::stop_token stop) {
      for (; !stop.stop_requested(); ++ended)
        std::thread([&] {
          id = TOV_ThreadGetCurrentID();
          for (int v = 1; v <= 120; ++v) EXPECT_EQ(TOV_ThreadPushDescriptionPtr(ptr(v)), TOV_OK);
          for (int v = 1; v <= 100; ++v) EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
        }).join(); // ends holding 20 entries in a 128-entry array
    });
  for (const DWORD t0 = GetTickCount(); GetTickCount() - t0 < 3000 && !HasFailure();)
    for (auto &id : ids) {
      const Stack copy = stackOf(id);
      nonEmpty += !copy.empty();
      for (size_t i = 0; i < copy.size(); ++i) torn += copy[i] != ptr(copy.size() - i);
    }
  threads.clear(); // stops and joins them
  // Over 100 threads ended with over 1 KiB each: a leak passes the bound.
  EXPECT_TRUE(torn == 0 && nonEmpty > 0 && ended > 100 && heapInUse() < heapBefore + 64 * 1024)
      << torn << " torn, " << nonEmpty << " copies, " << ended << " threads ended";
  for (auto &id : ids) EXPECT_EQ(stackOf(id), Stack{});
}

// Once the thread-end hook has run, the ending thread has no record: a
// detach handler that runs on it later finds nothing to pop or read, and a
// push there starts a fresh stack (kept until clean-up).
TEST_F(Started, DetachHandlersAfterTheEndHookFindNoRecord) {
  const int32_t *seen = nullptr;
  std::thread([&] {
    for (uintptr_t v : {1, 2}) ASSERT_EQ(TOV_ThreadPushDescriptionPtr(ptr(v)), TOV_OK);
    seen = detachProbe(GetCurrentThreadId());
  }).join(); // the detach handlers have run when the thread is signalled
  EXPECT_EQ(Codes(seen, seen + 5), Codes({TOV_ERR_NOT_FOUND, TOV_OK, 0, TOV_OK, TOV_OK}));
}

// A host that survives an access violation by ending the faulting thread. A
// read that faults on the caller's buffer holds no lock that the thread-end
// hook takes, so that thread and the next one end. (With the loader lock
// wedged a normal exit would hang too: the child is ended outright then.)
TOV_TEST_CHILD(reader_faults) {
  TOV_Startup(nullptr, 0, nullptr, nullptr);
  AddVectoredExceptionHandler(1, [](EXCEPTION_POINTERS *ep) -> LONG {
    if (ep->ExceptionRecord->ExceptionCode == EXCEPTION_ACCESS_VIOLATION) ExitThread(7);
    return EXCEPTION_CONTINUE_SEARCH;
  });
  const LPTHREAD_START_ROUTINE read = [](void *buffer) -> DWORD {
    uint32_t room = 1;
    TOV_ThreadPushDescriptionPtr(nullptr);
    return TOV_ThreadGetDescriptionPtrs(TOV_ThreadGetCurrentID(), (void **)buffer, &room);
  };
  void *noAccess = VirtualAlloc(nullptr, 4096, MEM_COMMIT | MEM_RESERVE, PAGE_NOACCESS), *room[1];
  DWORD code[2] = {};
  for (int i = 0; i < 2; ++i) { // the faulting reader, then one more thread
    HANDLE t = CreateThread(nullptr, 0, read, i ? room : noAccess, 0, nullptr);
    if (WaitForSingleObject(t, 20000) != WAIT_OBJECT_0) TerminateProcess(GetCurrentProcess(), 99);
    GetExitCodeThread(t, &code[i]);
  }
  return code[0] == 7 && code[1] == TOV_OK ? 0 : 1;
}

TEST(SyncFault, AReaderFaultingOnItsBufferWedgesNoThreadEnd) {
  EXPECT_EQ(tovtest::runChild("reader_faults", {}, ".").exitCode, 0u);
}

// A thread with a handle: still running (nothing written), then its id and
// exit code; TOV_ThreadExit ends it with its own code. A TLS slot never set
// reads as null with TOV_OK, even after a stale error.
TEST_F(Started, ThreadRecordsAndTls) {
  static std::atomic<uint64_t> ranAs;
  const TOV_ThreadRoutine body = [](void *go) -> uint32_t {
    ranAs = TOV_ThreadGetCurrentID();
    TOV_EventWait(go, TOV_WAIT_INFINITE);
    TOV_ThreadExit(41);
    return 0;
  };
  void *go = nullptr, *t = nullptr, *unset = ptr(1), *set = nullptr;
  uint32_t running = 7, code = 0;
  uint64_t id = 0, key = 0;
  EXPECT_EQ(Codes({TOV_EventCreate(nullptr, 1, 0, &go), TOV_ThreadCreate(body, go, 0, &t),
                   TOV_ThreadWait(t, 0), TOV_ThreadGetExitCode(t, &running), TOV_TLSCreate(&key)}),
            Codes({TOV_OK, TOV_OK, TOV_ERR_TIMEOUT, TOV_ERR_STILL_RUNNING, TOV_OK}));
  SetLastError(ERROR_ACCESS_DENIED); // stale for the first TLS read
  EXPECT_EQ(Codes({TOV_TLSGetValue(key, &unset), TOV_TLSSetValue(key, ptr(5)),
                   TOV_TLSGetValue(key, &set), TOV_TLSDestroy(&key), TOV_EventSet(go),
                   TOV_ThreadWait(t, TOV_WAIT_INFINITE), TOV_ThreadGetExitCode(t, &code),
                   TOV_ThreadGetID(t, &id), TOV_ThreadDestroy(&t), TOV_EventDestroy(&go)}),
            Codes(10, TOV_OK));
  EXPECT_EQ(std::tie(running, code, id, t), std::make_tuple(7u, 41u, ranAs.load(), nullptr));
  EXPECT_EQ(std::tie(unset, set, key), std::make_tuple(nullptr, ptr(5), 0u));
}
