// Start-up counting, teardown, and what works at any count.
#include "support.h"
#include "tov.h"

#include <winsock2.h>

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

namespace {

bool libraryStarted() {
  const uint32_t one = 1;
  return findid(1, &one, 1) == 0;
}

TEST(Lifecycle, StartsNestAndOnlyTheLastCleanupTearsDown) {
  TOV_Cleanup(nullptr); // a clean-up without a start leaves the count at 0
  ASSERT_FALSE(libraryStarted());
  for (int round = 0; round < 2; ++round) { // a full clean-up allows a whole new start
    ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
    ASSERT_EQ(TOV_Startup(nullptr, 7, nullptr, nullptr), TOV_OK);
    EXPECT_TRUE(tovtest::winsockStarted());
    TOV_Cleanup(nullptr);
    EXPECT_TRUE(libraryStarted());
    EXPECT_TRUE(tovtest::winsockStarted());
    TOV_Cleanup(nullptr);
    EXPECT_FALSE(libraryStarted());
    EXPECT_FALSE(tovtest::winsockStarted());
  }
}

TEST(Lifecycle, FindIdRefusesUntilStartedAndAfterTheFinalCleanup) {
  const uint32_t list[] = {4, 9, 7, 9};
  EXPECT_EQ(findid(9, list, 4), 0xFFFFFFFFu);
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  EXPECT_EQ(findid(9, list, 4), 1u);          // the first of two equal elements
  EXPECT_EQ(findid(7, list, 2), 0xFFFFFFFFu); // only count elements are looked at
  EXPECT_EQ(findid(9, nullptr, 0), 0xFFFFFFFFu);
  EXPECT_EQ(findid(9, nullptr, 3), 0xFFFFFFFFu);
  TOV_Cleanup(nullptr);
  EXPECT_EQ(findid(9, list, 4), 0xFFFFFFFFu);
}

// Also before start-up: no test here starts the library.
TEST(DebugOutput, OneLineEachCutInsideTheLineBuffer) {
  tovtest::DebugCapture capture;
  TOV_DebugOutput("%s=%d, %u%%", "answer", -42, 7u);
  TOV_DebugOutput("%s", std::string(5000, 'x').c_str());
  TOV_DebugOutput("%s", std::string(1022, 'y').c_str()); // exactly fills the room
  EXPECT_EQ(capture.text(),
            "answer=-42, 7%\n" + std::string(1022, 'x') + "\n" + std::string(1022, 'y') + "\n");
}

TEST(Image, CarriesAVersionRecordWithATranslation) {
  char path[MAX_PATH];
  ASSERT_GT(GetModuleFileNameA(GetModuleHandleA("tov.dll"), path, MAX_PATH), 0u);
  DWORD ignored = 0;
  std::string data(GetFileVersionInfoSizeA(path, &ignored), '\0');
  ASSERT_TRUE(!data.empty() && GetFileVersionInfoA(path, 0, data.size(), data.data()));
  auto query = [&](const char *key) {
    void *value = nullptr;
    UINT len = 0;
    return VerQueryValueA(data.data(), key, &value, &len) ? value : nullptr;
  };
  const auto *tr = static_cast<WORD *>(query("\\VarFileInfo\\Translation")); // language, code page
  ASSERT_NE(tr, nullptr);
  char key[64];
  std::snprintf(key, sizeof key, "\\StringFileInfo\\%04x%04x\\FileVersion", tr[0], tr[1]);
  ASSERT_NE(query(key), nullptr);
  EXPECT_STREQ(static_cast<char *>(query(key)), "2.2.0.0");
}

} // namespace
