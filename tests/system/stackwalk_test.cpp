// Context capture, stack walks and symbol look-ups, on functions of this file
// and of the library.
#include "tov.h"

#include <gtest/gtest.h>

#include <windows.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

namespace {

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

// Read through a volatile table: a constant function address kept in a local
// would show up in the debug information as a data symbol at that address.
volatile uintptr_t g_known = reinterpret_cast<uintptr_t>(&tovKnownFunction);

namespace {

const uint64_t kSelf = GetCurrentProcessId();

struct Symbol {
  TOV_Status status;
  std::string name, file, module;
  uint64_t displacement = ~0ull, base = ~0ull, size = ~0ull, stamp = ~0ull;
  uint32_t line = ~0u;
};

// Every piece of the address, into buffers that start full of junk.
Symbol lookUp(uint64_t address) {
  Symbol s;
  char name[256], file[MAX_PATH], module[MAX_PATH];
  for (char *b : {name, file, module}) std::memset(b, 'x', 255), b[255] = '\0';
  s.status =
      TOV_SysGetSymbolInfo(kSelf, address, name, sizeof name, &s.displacement, file, sizeof file,
                           &s.line, module, sizeof module, &s.base, &s.size, &s.stamp);
  s.name = name, s.file = file, s.module = module;
  return s;
}

bool endsWith(const std::string &s, const char *tail) {
  const size_t n = std::strlen(tail);
  return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

// Spins in tovSpinInner until destroyed.
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
  bool stopped() {
    const long long before = spin.count;
    Sleep(100);
    return spin.count == before;
  }
  bool moving() { // within 5 s, however loaded the machine
    const long long before = spin.count;
    for (int i = 0; i < 500 && spin.count == before; ++i) Sleep(10);
    return spin.count != before;
  }
};

// Two rounds, with a full clean-up between them: the debug-help library is
// unloaded and found again. The worker stays stopped until both of its
// captures are freed.
TEST(StackWalk, CapturedWorkerShowsItsCallersInOrder) {
  Spinner worker;
  for (int round = 0; round < 2; ++round) {
    SCOPED_TRACE(round);
    ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
    // The handler learns the process's modules at its first look-up.
    EXPECT_EQ(lookUp(g_known).status, TOV_OK);
    int owner;
    TOV_ThreadCtxHandle ctx = nullptr, again = nullptr;
    ASSERT_EQ(TOV_SysAllocThreadCtx(&owner, kSelf, worker.id, &ctx), TOV_OK);
    ASSERT_EQ(TOV_SysAllocThreadCtx(&owner, kSelf, worker.id, &again), TOV_OK);
    EXPECT_TRUE(worker.stopped());

    std::vector<uint64_t> frames;
    uint64_t address = 0;
    do {
      ASSERT_EQ(TOV_SysStackWalk(ctx, &address), TOV_OK);
      frames.push_back(address);
    } while (address != 0 && frames.size() < 64);
    EXPECT_EQ(frames.back(), 0u);
    ASSERT_GE(frames.size(), 4u);
    const struct {
      const char *name;
      uint32_t first, last;
    } expected[] = {{"tovSpinInner", kInnerFirst, kInnerLast},
                    {"tovSpinOuter", kOuterCall, kOuterCall},
                    {"tovSpinThread", kThreadCall, kThreadCall}};
    for (size_t i = 0; i < 3; ++i) {
      const Symbol s = lookUp(frames[i]);
      EXPECT_EQ(s.name, expected[i].name);
      EXPECT_TRUE(endsWith(s.file, "stackwalk_test.cpp")) << s.file;
      EXPECT_TRUE(s.line >= expected[i].first && s.line <= expected[i].last) << s.line;
    }

    EXPECT_EQ(TOV_SysFreeThreadCtx(ctx), TOV_OK);
    EXPECT_TRUE(worker.stopped());
    EXPECT_EQ(TOV_SysFreeThreadCtx(again), TOV_OK);
    EXPECT_TRUE(worker.moving());
    TOV_Cleanup(nullptr);
  }
}

// Names, displacements, files, lines and module records of a function of this
// program and of an exported function of the library.
TEST(Symbols, KnownAddressesUnknownAddressAndShortBuffer) {
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  const HMODULE exe = GetModuleHandleA(nullptr), dll = GetModuleHandleA("tov.dll");
  const struct {
    uint64_t start, offset;
    const char *name, *file;
    uint32_t first, last; // line range
    HMODULE module;
  } rows[] = {
      {g_known, 2, "tovKnownFunction", "stackwalk_test.cpp", kKnownFirst, kKnownLast, exe},
      {reinterpret_cast<uint64_t>(GetProcAddress(dll, "TOV_GetVersion")), 1, "TOV_GetVersion",
       "lifecycle.cpp", 1, ~0u, dll},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.name);
    const Symbol s = lookUp(row.start + row.offset);
    char path[MAX_PATH];
    GetModuleFileNameA(row.module, path, MAX_PATH);
    const auto *nt = reinterpret_cast<const IMAGE_NT_HEADERS *>(
        reinterpret_cast<const char *>(row.module) +
        reinterpret_cast<const IMAGE_DOS_HEADER *>(row.module)->e_lfanew);
    EXPECT_EQ(s.status, TOV_OK);
    EXPECT_EQ(s.name, row.name);
    EXPECT_EQ(s.displacement, row.offset);
    EXPECT_TRUE(endsWith(s.file, row.file)) << s.file;
    EXPECT_TRUE(s.line >= row.first && s.line <= row.last) << s.line;
    EXPECT_STRCASEEQ(s.module.c_str(), path);
    EXPECT_EQ(s.base, reinterpret_cast<uint64_t>(row.module));
    EXPECT_EQ(s.size, nt->OptionalHeader.SizeOfImage);
    EXPECT_EQ(s.stamp, nt->FileHeader.TimeDateStamp);
  }

  // An address in no module: every piece emptied; the code differs between
  // systems. Asked for the name only, the call itself succeeds.
  const Symbol none = lookUp(0x10);
  EXPECT_NE(none.status, TOV_OK);
  EXPECT_TRUE(none.name.empty() && none.file.empty() && none.module.empty());
  EXPECT_TRUE(none.line == 0 && none.base == 0 && none.size == 0 && none.stamp == 0);
  char name[8] = "xxxxxxx";
  uint64_t address = 0;
  const auto nameOnly = [&](uint64_t address, uint64_t size) {
    return TOV_SysGetSymbolInfo(kSelf, address, name, size, nullptr, nullptr, 0, nullptr, nullptr,
                                0, nullptr, nullptr, nullptr);
  };
  EXPECT_EQ(nameOnly(0x10, sizeof name), TOV_OK);
  EXPECT_STREQ(name, "");
  EXPECT_EQ(nameOnly(g_known, 5), TOV_OK); // cut to 4 characters and terminated
  EXPECT_EQ(std::string(name, 8), std::string("tovK\0xx\0", 8));

  EXPECT_EQ(Codes({TOV_SysGetSymbolInfo(0, g_known, name, 8, nullptr, nullptr, 0, nullptr, nullptr,
                                        0, nullptr, nullptr, nullptr),
                   TOV_SysStackWalk(nullptr, &address), TOV_SysStackWalk(name, nullptr),
                   TOV_SysGetSymbolInfo(kSelf, g_known, nullptr, 8, nullptr, nullptr, 0, nullptr,
                                        nullptr, 0, nullptr, nullptr, nullptr),
                   TOV_SysGetSymbolInfo(kSelf, g_known, nullptr, 0, nullptr, nullptr, 8, nullptr,
                                        nullptr, 0, nullptr, nullptr, nullptr),
                   TOV_SysGetSymbolInfo(kSelf, g_known, nullptr, 0, nullptr, nullptr, 0, nullptr,
                                        nullptr, 8, nullptr, nullptr, nullptr)}),
            Codes(6, TOV_ERR_INVALID_PARAMETER));
  TOV_Cleanup(nullptr);
}

} // namespace
