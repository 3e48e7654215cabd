// Start-up counting, teardown, and what works at any count.
#include "support.h"
#include "tov.h"

#include <winsock2.h>

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

namespace {

// Winsock works exactly while somebody holds a start of it; this process
// makes none of its own, so a working socket() means the library holds one.
bool winsockStarted() {
  const SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (s == INVALID_SOCKET) return false;
  closesocket(s);
  return true;
}

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
    EXPECT_TRUE(winsockStarted());
    TOV_Cleanup(nullptr);
    EXPECT_TRUE(libraryStarted());
    EXPECT_TRUE(winsockStarted());
    TOV_Cleanup(nullptr);
    EXPECT_FALSE(libraryStarted());
    EXPECT_FALSE(winsockStarted());
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

TEST(Lifecycle, UncountedFunctionsWorkAtCountZero) {
  ASSERT_FALSE(libraryStarted());
  EXPECT_EQ(TOV_GetVersion(), 0x02020000u);
  TOV_MemTag tag = nullptr;
  int owner;
  EXPECT_EQ(TOV_AllocMemTag(&owner, &tag), TOV_OK);
  EXPECT_EQ(tag, &owner);
  TOV_FreeMemTag(&tag);
  EXPECT_EQ(tag, nullptr);
  tovtest::DebugCapture capture;
  TOV_DebugOutput("before start-up %d", 1);
  EXPECT_EQ(capture.text(), "before start-up 1\n");
}

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
  const DWORD size = GetFileVersionInfoSizeA(path, &ignored);
  ASSERT_GT(size, 0u);
  std::string data(size, '\0');
  ASSERT_TRUE(GetFileVersionInfoA(path, 0, size, data.data()));
  WORD *tr = nullptr; // language, code page
  UINT len = 0;
  ASSERT_TRUE(VerQueryValueA(data.data(), "\\VarFileInfo\\Translation",
                             reinterpret_cast<void **>(&tr), &len));
  char key[64];
  std::snprintf(key, sizeof key, "\\StringFileInfo\\%04x%04x\\FileVersion", tr[0], tr[1]);
  char *text = nullptr;
  ASSERT_TRUE(VerQueryValueA(data.data(), key, reinterpret_cast<void **>(&text), &len));
  EXPECT_STREQ(text, "2.2.0.0");
}

} // namespace
