// Process and thread lists, context capture, stack walks and symbol look-ups,
// on functions of this file and of the library.
#include "tov.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <string>
#include <vector>

namespace {

using Ids = std::vector<uint64_t>;
using Codes = std::vector<TOV_Status>;

struct Spin {
  std::atomic<bool> stop = false;
  std::atomic<long long> count = 0;
};

} // namespace

// A worker spins two calls deep: tovSpinThread -> tovSpinOuter -> tovSpinInner.
// Each call is followed by an addition so that it stays a call with its frame.
#define PROBE extern "C" __attribute__((noinline, noipa))
PROBE int tovSpinInner(Spin *s) {
  while (!s->stop.load(std::memory_order_relaxed)) s->count.fetch_add(1, std::memory_order_relaxed);
  return 1;
}
constexpr uint32_t kInnerFirst = __LINE__ - 4, kInnerLast = __LINE__ - 1;
PROBE int tovSpinOuter(Spin *s) {
  return tovSpinInner(s) + 1;
}
constexpr uint32_t kOuterCall = __LINE__ - 2;
PROBE DWORD WINAPI tovSpinThread(void *s) {
  return tovSpinOuter(static_cast<Spin *>(s)) + 1;
}
constexpr uint32_t kThreadCall = __LINE__ - 2;
PROBE int tovKnownFunction(int x) {
  return x * 3 + 1;
}
constexpr uint32_t kKnownFirst = __LINE__ - 3, kKnownLast = __LINE__ - 1;

// Read through a volatile variable: a constant function address kept in a
// local would show up in the debug information as a data symbol there.
volatile uintptr_t g_known = reinterpret_cast<uintptr_t>(&tovKnownFunction);

namespace {

const uint64_t kSelf = GetCurrentProcessId();

// A worker spinning in tovSpinInner until destroyed.
struct Spinner {
  Spin spin;
  DWORD id = 0;
  HANDLE thread = CreateThread(nullptr, 0, tovSpinThread, &spin, 0, &id);
  Spinner() {
    while (spin.count == 0) Sleep(1);
  }
  ~Spinner() {
    spin.stop = true;
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
  }
  bool movesWithin(int ms) {
    const long long before = spin.count;
    for (int waited = 0; waited < ms && spin.count == before; waited += 10) Sleep(10);
    return spin.count != before;
  }
};

struct Started : testing::Test {
  void SetUp() override { ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK); }
  void TearDown() override { TOV_Cleanup(nullptr); }
};

// The whole list of a listing call, its count asked first; empty on failure.
template <typename List> Ids all(List list) {
  for (int round = 0; round < 5; ++round) { // the list may grow between the two calls
    uint32_t n = 0;
    if (list(nullptr, &n) != TOV_ERR_BUFFER_TOO_SMALL) return {};
    Ids ids(n);
    if (list(ids.data(), &n) == TOV_OK) return ids;
  }
  return {};
}
bool contains(const Ids &ids, uint64_t id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

TOV_Status info(uint64_t process, uint64_t address, char *name, uint64_t nameSize, char *file = 0,
                uint64_t fileSize = 0, char *module = 0, uint64_t moduleSize = 0) {
  return TOV_SysGetSymbolInfo(process, address, name, nameSize, nullptr, file, fileSize, nullptr,
                              module, moduleSize, nullptr, nullptr, nullptr);
}

// Every piece of an address of this process, looked up into buffers full of
// junk.
struct Symbol {
  TOV_Status status;
  std::string name, file, module;
  uint64_t displacement = ~0ull, base = ~0ull, size = ~0ull, stamp = ~0ull;
  uint32_t line = ~0u;
  explicit Symbol(uint64_t address) {
    char text[3][256];
    for (char *b : text) std::memset(b, 'x', 255), b[255] = '\0';
    status = TOV_SysGetSymbolInfo(kSelf, address, text[0], 256, &displacement, text[1], 256, &line,
                                  text[2], 256, &base, &size, &stamp);
    name = text[0], file = text[1], module = text[2];
  }
};

// Our own id is listed; a short array gets the first ids, the full count and
// BUFFER_TOO_SMALL, and nothing past its room.
TEST_F(Started, ProcessListCountProtocol) {
  uint64_t self = 0;
  ASSERT_EQ(TOV_SysGetCurrentProcessId(&self), TOV_OK);
  EXPECT_EQ(self, kSelf);
  Ids full, part;
  uint32_t n = 0;
  // Wine's service processes come and go in the first seconds: retry while
  // the two lists disagree.
  for (int round = 0; round < 10 && (full.empty() || n != full.size() || part[0] != full[0]);) {
    full = all(TOV_SysEnumProcesses), part.assign(2, 7), n = 1, ++round;
    EXPECT_EQ(TOV_SysEnumProcesses(part.data(), &n), TOV_ERR_BUFFER_TOO_SMALL);
  }
  ASSERT_FALSE(full.empty());
  EXPECT_TRUE(contains(full, self));
  EXPECT_EQ(n, full.size());
  EXPECT_EQ(part, Ids({full[0], 7}));
  EXPECT_EQ(TOV_SysEnumProcesses(nullptr, &n), TOV_ERR_INVALID_PARAMETER);
}

// Our threads (the caller and a worker) and none of another process; an id
// no process has lists nothing, also when its low 32 bits are ours. Refused
// captures write nothing.
TEST_F(Started, ThreadListAndCaptureRefusals) {
  Spinner worker;
  const Ids ours =
      all([](uint64_t *ids, uint32_t *n) { return TOV_SysEnumThreads(kSelf, ids, n); });
  EXPECT_TRUE(contains(ours, GetCurrentThreadId()) && contains(ours, worker.id));
  for (const uint64_t id : ours) {
    HANDLE h = OpenThread(THREAD_QUERY_LIMITED_INFORMATION, FALSE, static_cast<DWORD>(id));
    EXPECT_EQ(GetProcessIdOfThread(h), kSelf) << "thread " << id;
    CloseHandle(h);
  }
  for (const uint64_t pid : {uint64_t{0xFFFFFFFC}, (uint64_t{1} << 32) | kSelf}) {
    uint32_t n = 0;
    EXPECT_EQ(TOV_SysEnumThreads(pid, nullptr, &n), TOV_OK);
    EXPECT_EQ(n, 0u) << "process " << pid;
  }

  int tag;
  const uint64_t me = GetCurrentThreadId();
  TOV_ThreadCtxHandle ctx = nullptr;
  EXPECT_EQ(Codes({TOV_SysAllocThreadCtx(&tag, kSelf, me, &ctx),
                   TOV_SysAllocThreadCtx(&tag, kSelf, (uint64_t{1} << 32) | me, &ctx),
                   TOV_SysAllocThreadCtx(nullptr, kSelf, worker.id, &ctx),
                   TOV_SysAllocThreadCtx(&tag, kSelf, worker.id, nullptr),
                   TOV_SysFreeThreadCtx(nullptr)}),
            Codes(5, TOV_ERR_INVALID_PARAMETER));
  EXPECT_NE(TOV_SysAllocThreadCtx(&tag, kSelf, 0xFFFFFFFC, &ctx), TOV_OK); // no such thread
  EXPECT_EQ(ctx, nullptr);
  EXPECT_TRUE(worker.movesWithin(5000));
}

// Two rounds with a full clean-up between them: the debug-help library is
// unloaded and found again. The worker stays stopped until both of its
// captures are freed.
TEST(StackWalk, CapturedWorkerShowsItsCallersInOrder) {
  Spinner worker;
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
    // The handler learns the process's modules at its first look-up.
    EXPECT_EQ(Symbol(g_known).status, TOV_OK);
    int tag;
    TOV_ThreadCtxHandle ctx = nullptr, again = nullptr;
    ASSERT_EQ(TOV_SysAllocThreadCtx(&tag, kSelf, worker.id, &ctx), TOV_OK);
    ASSERT_EQ(TOV_SysAllocThreadCtx(&tag, kSelf, worker.id, &again), TOV_OK);
    EXPECT_FALSE(worker.movesWithin(100));

    std::vector<uint64_t> frames;
    uint64_t address = 0;
    do {
      ASSERT_EQ(TOV_SysStackWalk(ctx, &address), TOV_OK);
      frames.push_back(address);
    } while (address != 0 && frames.size() < 64);
    EXPECT_EQ(frames.back(), 0u);
    ASSERT_GE(frames.size(), 4u);
    const char *names[] = {"tovSpinInner", "tovSpinOuter", "tovSpinThread"};
    const uint32_t lines[][2] = {
        {kInnerFirst, kInnerLast}, {kOuterCall, kOuterCall}, {kThreadCall, kThreadCall}};
    for (size_t i = 0; i < 3; ++i) {
      const Symbol s(frames[i]);
      EXPECT_EQ(s.name, names[i]);
      EXPECT_TRUE(s.file.ends_with("process_test.cpp")) << s.file;
      EXPECT_TRUE(s.line >= lines[i][0] && s.line <= lines[i][1]) << s.line;
    }

    EXPECT_EQ(TOV_SysFreeThreadCtx(ctx), TOV_OK);
    EXPECT_FALSE(worker.movesWithin(100));
    EXPECT_EQ(TOV_SysFreeThreadCtx(again), TOV_OK);
    EXPECT_TRUE(worker.movesWithin(5000));
    TOV_Cleanup(nullptr);
  }
}

// A function of this program and an exported one of the library: name,
// displacement, file, line and the module's path, base, size and time stamp.
TEST_F(Started, SymbolsOfKnownAndUnknownAddresses) {
  const HMODULE exe = GetModuleHandleA(nullptr), dll = GetModuleHandleA("tov.dll");
  const struct {
    uint64_t start, offset;
    const char *name, *file;
    uint32_t first, last; // line range
    HMODULE module;
  } rows[] = {
      {g_known, 2, "tovKnownFunction", "process_test.cpp", kKnownFirst, kKnownLast, exe},
      {reinterpret_cast<uint64_t>(GetProcAddress(dll, "TOV_GetVersion")), 1, "TOV_GetVersion",
       "lifecycle.cpp", 1, ~0u, dll},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const Symbol s(row.start + row.offset);
    char path[MAX_PATH];
    GetModuleFileNameA(row.module, path, MAX_PATH);
    const auto *image = reinterpret_cast<const char *>(row.module);
    const auto *nt = reinterpret_cast<const IMAGE_NT_HEADERS *>(
        image + reinterpret_cast<const IMAGE_DOS_HEADER *>(image)->e_lfanew);
    EXPECT_EQ(s.status, TOV_OK);
    EXPECT_EQ(s.name, row.name);
    EXPECT_EQ(s.displacement, row.offset);
    EXPECT_TRUE(s.file.ends_with(row.file)) << s.file;
    EXPECT_TRUE(s.line >= row.first && s.line <= row.last) << s.line;
    EXPECT_STRCASEEQ(s.module.c_str(), path);
    EXPECT_EQ(s.base, reinterpret_cast<uint64_t>(row.module));
    EXPECT_EQ(s.size, nt->OptionalHeader.SizeOfImage);
    EXPECT_EQ(s.stamp, nt->FileHeader.TimeDateStamp);
  }

  // An address in no module: every piece emptied, and a failure whose code
  // differs between systems; asked for the name only, the call succeeds.
  const Symbol none(0x10);
  EXPECT_NE(none.status, TOV_OK);
  EXPECT_TRUE(none.name.empty() && none.file.empty() && none.module.empty());
  EXPECT_TRUE(none.line == 0 && none.base == 0 && none.size == 0 && none.stamp == 0);
  char name[8] = "xxxxxxx";
  EXPECT_EQ(info(kSelf, 0x10, name, 8), TOV_OK);
  EXPECT_STREQ(name, "");
  EXPECT_EQ(info(kSelf, g_known, name, 5), TOV_OK); // cut to 4 characters and terminated
  EXPECT_EQ(std::string(name, 8), std::string("tovK\0xx\0", 8));

  uint64_t address = 0;
  EXPECT_EQ(Codes({info(0, g_known, name, 8), info(kSelf, g_known, nullptr, 8),
                   info(kSelf, g_known, name, 0, nullptr, 8),
                   info(kSelf, g_known, name, 0, name, 0, nullptr, 8),
                   TOV_SysStackWalk(nullptr, &address), TOV_SysStackWalk(name, nullptr)}),
            Codes(6, TOV_ERR_INVALID_PARAMETER));
}

} // namespace
