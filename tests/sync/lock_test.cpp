#include "started.h"
#include "support.h"

#include <atomic>
#include <thread>
#include <vector>

TEST(SyncNotStarted, CountedFunctionsRefuseBeforeStartup) {
  void *h = nullptr;
  uint64_t u64 = 0;
  uint32_t u32 = 0;
  const TOV_Status results[] = {
      TOV_EventCreate(nullptr, 0, 0, nullptr),
      TOV_EventCreate(nullptr, 0, 0, &h),
      TOV_EventDestroy(nullptr),
      TOV_MutexCreate(nullptr, &h),
      TOV_MutexDestroy(nullptr),
      TOV_SemCreate(nullptr, 5, 3, nullptr),
      TOV_SemCreate(nullptr, 0, 1, &h),
      TOV_SemDestroy(nullptr),
      TOV_LMutexCreate(&h, 0),
      TOV_LMutexDestroy(nullptr),
      TOV_ThreadCreate(nullptr, nullptr, 0, nullptr),
      TOV_ThreadDestroy(nullptr),
      TOV_ThreadWait(nullptr, 0),
      TOV_ThreadGetExitCode(nullptr, nullptr),
      TOV_ThreadGetID(nullptr, &u64),
      TOV_ThreadGetDescriptionPtrs(0, nullptr, &u32),
      TOV_TLSCreate(&u64),
  };
  for (size_t i = 0; i < std::size(results); ++i)
    EXPECT_EQ(results[i], TOV_ERR_NOT_INITIALIZED) << "call #" << i;
  EXPECT_EQ(h, nullptr);
  EXPECT_EQ(u64, 0u);
}

// ---- Named create, destroy: one table over the three system objects ----------

struct NamedKind {
  const char *what;
  TOV_Status (*create)(const char *name, void **out);
  TOV_Status (*destroy)(void **h);
  // Makes the object observable through `a`, then checks it through `b`.
  bool (*sameObject)(void *a, void *b);
};

const NamedKind kNamedKinds[] = {
    {"event", [](const char *n, void **o) { return TOV_EventCreate(n, 1, 0, o); }, TOV_EventDestroy,
     [](void *a, void *b) { return TOV_EventSet(a) == TOV_OK && TOV_EventWait(b, 0) == TOV_OK; }},
    {"mutex", TOV_MutexCreate, TOV_MutexDestroy,
     [](void *a, void *b) {
       if (TOV_MutexAcquire(a) != TOV_OK) return false;
       const bool busy = onOtherThread([&] { return TOV_MutexTryAcquire(b); }) == TOV_ERR_TIMEOUT;
       return TOV_MutexRelease(a) == TOV_OK && busy;
     }},
    {"semaphore", [](const char *n, void **o) { return TOV_SemCreate(n, 0, 1, o); }, TOV_SemDestroy,
     [](void *a, void *b) {
       return TOV_SemSignal(a, 1) == TOV_OK && TOV_SemAcquire(b, 0) == TOV_OK;
     }},
};

class NamedObjects : public Started, public testing::WithParamInterface<NamedKind> {};

TEST_P(NamedObjects, SecondCreateOpensTheSameObject) {
  const NamedKind &k = GetParam();
  const std::string name = uniqueName(k.what);
  void *first = nullptr;
  void *second = nullptr;
  ASSERT_EQ(k.create(name.c_str(), &first), TOV_OK);
  ASSERT_EQ(k.create(name.c_str(), &second), TOV_ERR_ALREADY_EXISTS);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, first);
  EXPECT_TRUE(k.sameObject(second, first));
  EXPECT_EQ(k.destroy(&second), TOV_OK);
  EXPECT_EQ(second, nullptr);
  EXPECT_EQ(k.destroy(&first), TOV_OK);
}

TEST_P(NamedObjects, NullOutputAndClearedVariable) {
  const NamedKind &k = GetParam();
  EXPECT_EQ(k.create(nullptr, nullptr), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(k.destroy(nullptr), TOV_ERR_INVALID_PARAMETER);
  void *h = nullptr;
  ASSERT_EQ(k.create(nullptr, &h), TOV_OK);
  ASSERT_EQ(k.destroy(&h), TOV_OK);
  // Destroyed once already: the variable holds 0 and stays so.
  EXPECT_EQ(k.destroy(&h), TOV_ERR_INVALID_HANDLE);
  EXPECT_EQ(h, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Sync, NamedObjects, testing::ValuesIn(kNamedKinds),
                         [](const auto &info) { return std::string(info.param.what); });

// ---- Events -------------------------------------------------------------------

// An auto-reset event lets one wait through; a manual-reset one stays set
// (for every thread) until reset.
TEST_F(Started, EventResetKinds) {
  for (const int32_t manual : {0, 1}) {
    TOV_EventHandle e = nullptr;
    ASSERT_EQ(TOV_EventCreate(nullptr, manual, 1, &e), TOV_OK);
    EXPECT_EQ(TOV_EventWait(e, 0), TOV_OK); // initially set
    EXPECT_EQ(onOtherThread([&] { return TOV_EventWait(e, 0); }),
              manual ? TOV_OK : TOV_ERR_TIMEOUT);
    EXPECT_EQ(TOV_EventReset(e), TOV_OK);
    EXPECT_EQ(TOV_EventWait(e, 0), TOV_ERR_TIMEOUT);
    EXPECT_EQ(TOV_EventSet(e), TOV_OK);
    EXPECT_EQ(TOV_EventWait(e, 10), TOV_OK);
    EXPECT_EQ(TOV_EventWait(e, 0), manual ? TOV_OK : TOV_ERR_TIMEOUT);
    EXPECT_EQ(TOV_EventDestroy(&e), TOV_OK);
  }
}

// Pulse releases exactly the threads waiting at that moment: all of them for
// a manual-reset event, one for an auto-reset event.
TEST_F(Started, PulseReleasesWaitersByKind) {
  struct Case {
    int32_t manual;
    int expectedWoken;
  };
  for (const Case c : {Case{1, 3}, Case{0, 1}}) {
    TOV_EventHandle e = nullptr;
    ASSERT_EQ(TOV_EventCreate(nullptr, c.manual, 0, &e), TOV_OK);
    std::atomic<int> ready{0}, woken{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i)
      waiters.emplace_back([&] {
        ++ready;
        if (TOV_EventWait(e, 1500) == TOV_OK) ++woken;
      });
    while (ready < 3) Sleep(1);
    Sleep(200); // the waiters block first; a pulse before the wait is lost
    EXPECT_EQ(TOV_EventPulse(e), TOV_OK);
    Sleep(200);
    EXPECT_EQ(woken.load(), c.expectedWoken) << "manual=" << c.manual;
    EXPECT_EQ(TOV_EventWait(e, 0), TOV_ERR_TIMEOUT); // left reset
    for (auto &t : waiters) t.join();
    EXPECT_EQ(woken.load(), c.expectedWoken);
    EXPECT_EQ(TOV_EventDestroy(&e), TOV_OK);
  }
}

// ---- Semaphores ---------------------------------------------------------------

TEST_F(Started, SemaphoreCountsUpToItsMaximum) {
  TOV_SemHandle s = nullptr;
  EXPECT_EQ(TOV_SemCreate(nullptr, 5, 3, &s), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(s, nullptr);
  ASSERT_EQ(TOV_SemCreate(nullptr, 1, 3, &s), TOV_OK);
  EXPECT_EQ(TOV_SemSignal(s, 2), TOV_OK); // now at the maximum
  EXPECT_EQ(TOV_SemSignal(s, 1), TOV_ERR_TOO_MANY_POSTS);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(TOV_SemAcquire(s, 0), TOV_OK) << i;
  EXPECT_EQ(TOV_SemAcquire(s, 0), TOV_ERR_TIMEOUT);
  // A post that would pass the maximum changes nothing.
  EXPECT_EQ(TOV_SemSignal(s, 4), TOV_ERR_TOO_MANY_POSTS);
  EXPECT_EQ(TOV_SemAcquire(s, 0), TOV_ERR_TIMEOUT);
  EXPECT_EQ(TOV_SemDestroy(&s), TOV_OK);

  ASSERT_EQ(TOV_SemCreate(nullptr, 3, 3, &s), TOV_OK); // initial == maximum
  EXPECT_EQ(TOV_SemSignal(s, 1), TOV_ERR_TOO_MANY_POSTS);
  EXPECT_EQ(TOV_SemDestroy(&s), TOV_OK);
}

// ---- Mutexes ------------------------------------------------------------------

// The owner may acquire again and must release as often. Releasing a mutex
// the caller does not own is the raw, unmapped system error 288, reported on
// the debug output.
TEST_F(Started, MutexOwnershipAndRecursion) {
  TOV_MutexHandle m = nullptr;
  ASSERT_EQ(TOV_MutexCreate(nullptr, &m), TOV_OK);
  tovtest::DebugCapture capture;
  EXPECT_EQ(TOV_MutexRelease(m), 288); // nobody owns it
  EXPECT_NE(capture.text().find("TOV MapSystemError: No mapping for Win32 error 288."),
            std::string::npos)
      << capture.text();
  EXPECT_EQ(TOV_MutexAcquire(m), TOV_OK);
  EXPECT_EQ(TOV_MutexTryAcquire(m), TOV_OK); // owner again
  EXPECT_EQ(onOtherThread([&] { return TOV_MutexTryAcquire(m); }), TOV_ERR_TIMEOUT);
  EXPECT_EQ(onOtherThread([&] { return TOV_MutexRelease(m); }), 288);
  EXPECT_EQ(TOV_MutexRelease(m), TOV_OK);
  EXPECT_EQ(onOtherThread([&] { return TOV_MutexTryAcquire(m); }), TOV_ERR_TIMEOUT);
  EXPECT_EQ(TOV_MutexRelease(m), TOV_OK);
  EXPECT_EQ(TOV_MutexRelease(m), 288); // one release more than acquired
  EXPECT_EQ(TOV_MutexDestroy(&m), TOV_OK);
}

// A mutex whose owner ended without releasing it is acquired all the same;
// the stale last error of the waiting thread does not leak into the result.
TEST_F(Started, AbandonedMutexIsAcquired) {
  TOV_MutexHandle m = nullptr;
  ASSERT_EQ(TOV_MutexCreate(nullptr, &m), TOV_OK);
  std::thread([&] { ASSERT_EQ(TOV_MutexAcquire(m), TOV_OK); }).join();
  SetLastError(ERROR_ACCESS_DENIED);
  EXPECT_EQ(TOV_MutexAcquire(m), TOV_OK);
  EXPECT_EQ(onOtherThread([&] { return TOV_MutexTryAcquire(m); }), TOV_ERR_TIMEOUT);
  EXPECT_EQ(TOV_MutexRelease(m), TOV_OK);
  EXPECT_EQ(TOV_MutexDestroy(&m), TOV_OK);
}

// ---- LMutexes -----------------------------------------------------------------

TEST_F(Started, LMutexCreateDestroyAndNullHandle) {
  EXPECT_EQ(TOV_LMutexCreate(nullptr, 4000), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_LMutexDestroy(nullptr), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_LMutexAcquire(nullptr), TOV_ERR_INVALID_HANDLE);
  TOV_LMutexHandle l = nullptr;
  ASSERT_EQ(TOV_LMutexCreate(&l, 4000), TOV_OK);
  ASSERT_NE(l, nullptr);
  EXPECT_EQ(static_cast<CRITICAL_SECTION *>(l)->SpinCount & 0xFFFFFF, 4000u);
  EXPECT_EQ(TOV_LMutexDestroy(&l), TOV_OK);
  EXPECT_EQ(l, nullptr);
  EXPECT_EQ(TOV_LMutexDestroy(&l), TOV_OK);
}

TEST_F(Started, LMutexIsRecursiveAndTryAcquireNeverWaits) {
  TOV_LMutexHandle l = nullptr;
  ASSERT_EQ(TOV_LMutexCreate(&l, 0), TOV_OK);
  EXPECT_EQ(TOV_LMutexAcquire(l), TOV_OK);
  EXPECT_EQ(TOV_LMutexAcquire(l), TOV_OK);
  EXPECT_EQ(TOV_LMutexTryAcquire(l), TOV_OK);
  const DWORD t0 = GetTickCount();
  EXPECT_EQ(onOtherThread([&] { return TOV_LMutexTryAcquire(l); }), TOV_ERR_TIMEOUT);
  EXPECT_LT(GetTickCount() - t0, 1000u);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(TOV_LMutexRelease(l), TOV_OK);
  EXPECT_EQ(onOtherThread([&] { return TOV_LMutexTryAcquire(l); }), TOV_ERR_TIMEOUT);
  EXPECT_EQ(TOV_LMutexRelease(l), TOV_OK);
  EXPECT_EQ(onOtherThread([&] {
              const TOV_Status s = TOV_LMutexTryAcquire(l);
              if (s == TOV_OK) TOV_LMutexRelease(l);
              return s;
            }),
            TOV_OK);
  EXPECT_EQ(TOV_LMutexDestroy(&l), TOV_OK);
}
