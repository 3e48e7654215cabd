// Process and thread lists, and the argument rules of context capture.
#include "tov.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

namespace {

using Ids = std::vector<uint64_t>;
using Codes = std::vector<TOV_Status>;

struct SysStarted : testing::Test {
  void SetUp() override { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK); }
  void TearDown() override { TOV_Cleanup(nullptr); }

  // The whole list of a listing call (count asked first), or empty on failure.
  template <typename List> static Ids all(List list) {
    for (int round = 0; round < 5; ++round) { // the list may grow between the two calls
      uint32_t n = 0;
      if (list(nullptr, &n) != TOV_ERR_BUFFER_TOO_SMALL) return {};
      Ids ids(n);
      if (list(ids.data(), &n) == TOV_OK) return ids;
    }
    return {};
  }
  static bool contains(const Ids &ids, uint64_t id) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
  }
};

TEST(SysNotStarted, CountedFunctionsRefuse) {
  uint64_t id = 0;
  uint32_t n = 0;
  TOV_ThreadCtxHandle ctx = nullptr;
  EXPECT_EQ(Codes({TOV_SysEnumProcesses(nullptr, &n), TOV_SysEnumThreads(1, nullptr, nullptr),
                   TOV_SysGetCurrentProcessId(&id), TOV_SysAllocThreadCtx(&id, 1, 2, &ctx),
                   TOV_SysFreeThreadCtx(nullptr), TOV_SysStackWalk(nullptr, &id),
                   TOV_SysGetSymbolInfo(1, 0, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr, 0,
                                        nullptr, nullptr, nullptr)}),
            Codes(7, TOV_ERR_NOT_INITIALIZED));
  EXPECT_TRUE(id == 0 && n == 0 && ctx == nullptr);
}

// The process list holds our own id; a short array gets the first ids of the
// list, the full count and BUFFER_TOO_SMALL, and nothing past its end.
TEST_F(SysStarted, ProcessListCountProtocol) {
  uint64_t self = 0;
  ASSERT_EQ(TOV_SysGetCurrentProcessId(&self), TOV_OK);
  EXPECT_EQ(self, GetCurrentProcessId());
  Ids full, part(3, 7);
  uint32_t n = 1;
  // Wine's service processes come and go in the first seconds: retry when
  // the two lists disagree.
  for (int round = 0; round < 10 && (full.size() != n || part[0] != full[0]); ++round) {
    full = all(TOV_SysEnumProcesses);
    n = 1;
    part.assign(3, 7);
    EXPECT_EQ(TOV_SysEnumProcesses(part.data(), &n), TOV_ERR_BUFFER_TOO_SMALL);
  }
  ASSERT_FALSE(full.empty());
  EXPECT_TRUE(contains(full, self));
  EXPECT_EQ(n, full.size());
  EXPECT_EQ(part, Ids({full[0], 7, 7}));
  n = 1;
  EXPECT_EQ(TOV_SysEnumProcesses(nullptr, &n), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(TOV_SysEnumProcesses(nullptr, nullptr), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(n, 1u);
}

// Our threads (the caller and a worker) and no thread of another process; an
// id no process has lists nothing, also when its low 32 bits are ours.
TEST_F(SysStarted, ThreadListKeepsOneProcess) {
  HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::atomic<DWORD> workerId = 0;
  std::thread worker([&] {
    workerId = GetCurrentThreadId();
    WaitForSingleObject(go, INFINITE);
  });
  while (!workerId) Sleep(1);
  const uint64_t self = GetCurrentProcessId();
  const Ids ours =
      all([&](uint64_t *ids, uint32_t *n) { return TOV_SysEnumThreads(self, ids, n); });
  EXPECT_TRUE(contains(ours, GetCurrentThreadId()) && contains(ours, workerId.load()));
  for (const uint64_t id : ours) {
    HANDLE h = OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(id));
    EXPECT_EQ(GetProcessIdOfThread(h), self) << "thread " << id;
    CloseHandle(h);
  }
  for (const uint64_t pid : {uint64_t{0xFFFFFFFC}, (uint64_t{1} << 32) | self}) {
    uint32_t n = 5;
    EXPECT_EQ(TOV_SysEnumThreads(pid, nullptr, &n), TOV_ERR_INVALID_PARAMETER);
    n = 0;
    EXPECT_EQ(TOV_SysEnumThreads(pid, nullptr, &n), TOV_OK);
    EXPECT_EQ(n, 0u) << "process " << pid;
  }
  SetEvent(go);
  worker.join();
  CloseHandle(go);
}

// Refused captures write nothing and leave no thread suspended.
TEST_F(SysStarted, CaptureRefusals) {
  int owner;
  const uint64_t self = GetCurrentProcessId(), me = GetCurrentThreadId();
  TOV_ThreadCtxHandle ctx = nullptr;
  EXPECT_EQ(
      Codes({TOV_SysAllocThreadCtx(&owner, self, me, &ctx),
             TOV_SysAllocThreadCtx(&owner, self, (uint64_t{1} << 32) | me, &ctx),
             TOV_SysAllocThreadCtx(nullptr, self, me + 4, &ctx),
             TOV_SysAllocThreadCtx(&owner, self, me + 4, nullptr), TOV_SysFreeThreadCtx(nullptr)}),
      Codes(5, TOV_ERR_INVALID_PARAMETER));
  EXPECT_NE(TOV_SysAllocThreadCtx(&owner, self, 0xFFFFFFFC, &ctx), TOV_OK); // no such thread
  EXPECT_EQ(ctx, nullptr);
}

} // namespace
