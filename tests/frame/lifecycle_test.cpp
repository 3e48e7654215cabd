// Start-up counting, teardown and the functions that work at any count.
#include "support.h"
#include "tov.h"

#include <winsock2.h>

#include <cstdio>
#include <gtest/gtest.h>
#include <string>

namespace {

// Winsock is usable exactly while somebody holds a start of it; this process
// makes none of its own, so a working socket() means the library holds one.
bool winsockStarted() {
  const SOCKET s = socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
  if (s == INVALID_SOCKET) {
    EXPECT_EQ(WSAGetLastError(), WSANOTINITIALISED);
    return false;
  }
  closesocket(s);
  return true;
}

bool libraryStarted() {
  const uint32_t one = 1;
  return findid(1, &one, 1) == 0;
}

TEST(Lifecycle, NestedStartsAreCountedAndOnlyTheLastCleanupTearsDown) {
  ASSERT_FALSE(libraryStarted());
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

TEST(Lifecycle, RestartAfterFullCleanupRunsTheWholeStartAgain) {
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
    EXPECT_TRUE(libraryStarted());
    EXPECT_TRUE(winsockStarted());
    TOV_Cleanup(nullptr);
    EXPECT_FALSE(libraryStarted());
    EXPECT_FALSE(winsockStarted());
  }
}

TEST(Lifecycle, CleanupWithoutStartKeepsTheCountAtZero) {
  TOV_Cleanup(nullptr);
  TOV_Cleanup(nullptr);
  EXPECT_FALSE(libraryStarted());
  // One start is then enough, and one clean-up ends it.
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  EXPECT_TRUE(libraryStarted());
  TOV_Cleanup(nullptr);
  EXPECT_FALSE(libraryStarted());
}

TEST(Lifecycle, FindIdRefusesUntilStartedAndAfterTheFinalCleanup) {
  const uint32_t list[] = {4, 9, 7, 9};
  EXPECT_EQ(findid(9, list, 4), 0xFFFFFFFFu);

  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  EXPECT_EQ(findid(9, list, 4), 1u); // the first of two equal elements
  EXPECT_EQ(findid(4, list, 4), 0u);
  EXPECT_EQ(findid(7, list, 2), 0xFFFFFFFFu); // only the first count elements count
  EXPECT_EQ(findid(5, list, 4), 0xFFFFFFFFu);
  EXPECT_EQ(findid(0xFFFFFFFFu, list, 0), 0xFFFFFFFFu);
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

  void *block = TOV_malloc(nullptr, 16);
  EXPECT_NE(block, nullptr);
  TOV_free(block);

  int64_t x = 1;
  EXPECT_EQ(TOV_AtomicIncrement(&x), 2);

  tovtest::DebugCapture capture;
  TOV_DebugOutput("before start-up %d", 1);
  EXPECT_EQ(capture.text(), "before start-up 1\n");
}

TEST(DebugOutput, OneLineEndingInNewline) {
  tovtest::DebugCapture capture;
  TOV_DebugOutput("%s=%d, %u%%", "answer", -42, 7u);
  TOV_DebugOutput("plain");
  EXPECT_EQ(capture.text(), "answer=-42, 7%\nplain\n");
}

TEST(DebugOutput, OverlongTextIsCutInsideTheLineBuffer) {
  const std::string longText(5000, 'x');
  tovtest::DebugCapture capture;
  TOV_DebugOutput("%s", longText.c_str());
  TOV_DebugOutput("%s", std::string(1022, 'y').c_str()); // exactly fills the room
  TOV_DebugOutput("%s", std::string(1023, 'z').c_str());
  EXPECT_EQ(capture.text(), std::string(1022, 'x') + "\n" + std::string(1022, 'y') + "\n" +
                                std::string(1022, 'z') + "\n");
}

} // namespace

namespace {

TEST(Image, CarriesAVersionRecordWithATranslation) {
  char path[MAX_PATH];
  const DWORD n = GetModuleFileNameA(GetModuleHandleA("tov.dll"), path, MAX_PATH);
  ASSERT_GT(n, 0u);
  DWORD ignored = 0;
  const DWORD size = GetFileVersionInfoSizeA(path, &ignored);
  ASSERT_GT(size, 0u);
  std::string data(size, '\0');
  ASSERT_TRUE(GetFileVersionInfoA(path, 0, size, data.data()));

  struct Translation {
    WORD language, codePage;
  } *tr = nullptr;
  UINT len = 0;
  ASSERT_TRUE(VerQueryValueA(data.data(), "\\VarFileInfo\\Translation",
                             reinterpret_cast<void **>(&tr), &len));
  ASSERT_GE(len, sizeof(Translation));
  char key[64];
  std::snprintf(key, sizeof key, "\\StringFileInfo\\%04x%04x\\FileVersion", tr->language,
                tr->codePage);
  char *text = nullptr;
  ASSERT_TRUE(VerQueryValueA(data.data(), key, reinterpret_cast<void **>(&text), &len));
  EXPECT_STREQ(text, "2.2.0.0");

  VS_FIXEDFILEINFO *fixed = nullptr;
  ASSERT_TRUE(VerQueryValueA(data.data(), "\\", reinterpret_cast<void **>(&fixed), &len));
  EXPECT_EQ(fixed->dwFileType, static_cast<DWORD>(VFT_DLL));
}

} // namespace
