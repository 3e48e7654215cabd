#include "tov.h"

#include <gtest/gtest.h>

#include <rpc.h>
#include <windows.h>

#include <algorithm>
#include <chrono>
#include <thread>

namespace {

int64_t ticks(const FILETIME &t) {
  return static_cast<int64_t>(static_cast<uint64_t>(t.dwHighDateTime) << 32 | t.dwLowDateTime);
}

// The usage percent over 250 ms during which this thread sleeps or spins.
int32_t percentOver(TOV_CPUUsage *usage, bool spin) {
  int32_t percent = -2;
  EXPECT_EQ(TOV_GetCPUUsagePercent(usage, &percent), TOV_OK); // the interval starts here
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(250);
  if (!spin) Sleep(250);
  while (std::chrono::steady_clock::now() < end) continue;
  EXPECT_EQ(TOV_GetCPUUsagePercent(usage, &percent), TOV_OK);
  return percent;
}

} // namespace

// A spinning thread keeps one of the n processors busy whatever else runs;
// an interval without it shows less unless other programs fill the machine,
// so the order is looked for in up to ten rounds. Samples close together
// mostly see no processor time at all, which must still give a percent.
TEST(CPUUsage, BusyIntervalAboveIdleOne) {
  const uint32_t n = TOV_GetNumberOfProcessors();
  ASSERT_EQ(n, std::thread::hardware_concurrency());
  TOV_CPUUsage *usage = nullptr;
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  ASSERT_EQ(TOV_GetCPUUsageHandle(&usage), TOV_OK);
  bool ordered = false;
  for (int round = 0; round < 10 && !ordered; ++round) {
    const int32_t idle = percentOver(usage, false), busy = percentOver(usage, true);
    EXPECT_TRUE(idle >= 0 && busy >= static_cast<int32_t>(90 / n) && busy <= 100) << idle << busy;
    ordered = idle < busy || idle >= 97;
  }
  EXPECT_TRUE(ordered);
  for (int32_t i = 0, percent; i < 100; ++i) {
    EXPECT_EQ(TOV_GetCPUUsagePercent(usage, &percent), TOV_OK);
    ASSERT_TRUE(percent >= 0 && percent <= 100) << percent;
  }
  EXPECT_EQ(TOV_FreeCPUUsageHandle(&usage), TOV_OK);
  EXPECT_EQ(usage, nullptr);
  TOV_Cleanup(nullptr);
}

// Uptime is the system's millisecond counter in seconds. Wall-clock time
// agrees with the system's clock and never goes back across sleeps, which
// last at least what was asked.
TEST(Clock, UptimeWallClockAndSleeps) {
  const uint32_t up = TOV_SecondsUp();
  EXPECT_LE(std::abs(static_cast<int64_t>(up) - GetTickCount() / 1000), 1);
  int64_t seconds = 0, last = 0;
  uint32_t millis = 0;
  TOV_HiResTime(&seconds, nullptr);
  EXPECT_LE(std::llabs(seconds - _time64(nullptr)), 1);
  for (const int asked : {0, 15, 120, 1000}) {
    const auto start = std::chrono::steady_clock::now();
    TOV_Sleep(asked);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(asked));
    TOV_HiResTime(&seconds, &millis);
    EXPECT_TRUE(millis < 1000 && seconds * 1000 + millis >= last) << seconds << "." << millis;
    last = seconds * 1000 + millis;
  }
  EXPECT_GT(TOV_SecondsUp(), up);
}

// A Wine process takes its zone from its Linux environment only: ctest runs
// this test again in other zones (tests/system/CMakeLists.txt). Zones without
// daylight saving time give their fixed offsets; every zone agrees with the
// system's UTC and local clocks.
TEST(Clock, TimeZoneOffsetOfTheZoneRunIn) {
  FILETIME utc, local;
  GetSystemTimeAsFileTime(&utc);
  ASSERT_TRUE(FileTimeToLocalFileTime(&utc, &local));
  const int64_t clocks = (ticks(utc) - ticks(local)) / 10000000;
  const std::string zone = std::getenv("TZ") ? std::getenv("TZ") : "";
  EXPECT_EQ(TOV_TZOffset(), zone == "UTC" ? 0 : zone == "Asia/Kolkata" ? -19800 : clocks) << zone;
}

// Each identifier carries the version and variant bits of the system's own.
TEST(Identity, ManyIdentifiersAllDistinct) {
  UUID system;
  ASSERT_EQ(UuidCreate(&system), RPC_S_OK);
  std::vector<std::string> ids(10000);
  for (std::string &id : ids) {
    TOV_Guid guid;
    TOV_TmGuidGenerate(&guid);
    ASSERT_TRUE(guid.data3 >> 12 == system.Data3 >> 12 &&
                (guid.data4[0] & 0xC0) == (system.Data4[0] & 0xC0));
    id.assign(reinterpret_cast<const char *>(&guid), sizeof guid);
  }
  std::sort(ids.begin(), ids.end());
  EXPECT_EQ(std::unique(ids.begin(), ids.end()), ids.end());
}

// Pages: read-write, inaccessible, read-only, then unmapped memory. "abcdef"
// without terminator ends where the inaccessible page begins. No test may
// fault.
TEST(Pointers, GoodAndBadMemoryWithoutFaulting) {
  constexpr size_t page = 4096;
  auto *rw = static_cast<char *>(VirtualAlloc(nullptr, 3 * page, MEM_COMMIT, PAGE_READWRITE));
  char *const edge = rw + page - 6, *const readOnly = rw + 2 * page, *const gone = rw + 3 * page;
  std::copy_n("abcdef", 6, edge);
  DWORD old;
  ASSERT_TRUE(VirtualProtect(rw + page, page, PAGE_NOACCESS, &old));
  ASSERT_TRUE(VirtualProtect(readOnly, page, PAGE_READONLY, &old));
  void *code = reinterpret_cast<void *>(&percentOver);
  const TOV_Status ok = TOV_OK, bad = TOV_ERR_INVALID_PARAMETER;
  const std::pair<TOV_Status, TOV_Status> cases[] = {
      {TOV_SysValidateReadPtr(nullptr, 1), bad},   {TOV_SysValidateReadPtr(rw, page), ok},
      {TOV_SysValidateReadPtr(gone - 1, 2), bad},  {TOV_SysValidateWritePtr(rw, page), ok},
      {TOV_SysValidateWritePtr(readOnly, 1), bad}, {TOV_SysValidateWritePtr(code, 1), bad},
      {TOV_SysValidateCodePtr(code), ok},          {TOV_SysValidateCodePtr(gone), bad},
      {TOV_SysValidateStringPtr(edge, 6, 0), ok},  {TOV_SysValidateStringPtr(edge, 99, 0), bad},
      {TOV_SysValidateStringPtr(L"ab", 2, 1), ok}, {TOV_SysValidateStringPtr(edge, 4, 1), bad}};
  for (size_t i = 0; i < std::size(cases); ++i) EXPECT_EQ(cases[i].first, cases[i].second) << i;
  VirtualFree(rw, 0, MEM_RELEASE);
}
