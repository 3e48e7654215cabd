#include "frame/seams.h" // and with it tov.h

#include <gtest/gtest.h>

#include <rpc.h>

#include <cstdlib>
#include <cstring>

// The 32-bit millisecond counter wraps after 49.7 days; the uptime goes on
// from 4294967 s per wrap and never goes back. The process saw no wrap yet.
TEST(UptimeSeam, CountsWrapsOfTheMillisecondCounter) {
  static DWORD tick;
  tov::seams::tickCount = [] { return tick; };
  const std::pair<DWORD, uint32_t> rows[] = {{4294965000u, 4294965}, {4294967295u, 4294967},
                                             {999, 4294967},         {1000, 4294968},
                                             {4294967295u, 8589934}, {0, 8589934}};
  for (const auto &[ms, seconds] : rows) {
    tick = ms;
    EXPECT_EQ(TOV_SecondsUp(), seconds) << ms;
  }
  tov::seams::tickCount = nullptr;
}

// Without an identifier from the system, four values of the C runtime's
// generator fill the words in order. The first fallback seeds the generator
// (its values are not the unseeded start); later ones go on with the
// sequence as they find it.
TEST(GuidSeam, FallbackFillsWordsFromTheRuntimeGenerator) {
  static long result;
  tov::seams::uuidCreate = [](GUID *) { return result; };
  const uint32_t unseeded[4] = {41, 18467, 6334, 26500};
  TOV_Guid guid;
  for (const long failure : {RPC_S_UUID_LOCAL_ONLY, RPC_S_UUID_NO_ADDRESS, RPC_S_OUT_OF_MEMORY}) {
    result = failure;
    TOV_TmGuidGenerate(&guid);
    EXPECT_NE(std::memcmp(&guid, unseeded, sizeof guid), 0);
    uint32_t expected[4];
    srand(failure);
    for (uint32_t &word : expected) word = static_cast<uint32_t>(rand());
    srand(failure);
    TOV_TmGuidGenerate(&guid);
    EXPECT_EQ(std::memcmp(&guid, expected, sizeof guid), 0) << failure;
  }
  tov::seams::uuidCreate = nullptr;
}
