// Start-up failure paths the platform will not take on request, run through
// the static build's seams, and the module handle rules.
#include "frame/lifecycle.h"
#include "frame/seams.h"
#include "support.h"

#include <gtest/gtest.h>

namespace {

int failingWsaStartup(WORD, WSADATA *) {
  return WSASYSNOTREADY;
}
TOV_Status failingAllocMemTag(void *, TOV_MemTag *) {
  return TOV_ERR_NO_MEMORY;
}

TEST(StartupFailure, EachStepUnwindsAndRestoresTheCount) {
  tov::seams::wsaStartup = failingWsaStartup; // the network start: its raw number comes back
  EXPECT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), WSASYSNOTREADY);
  EXPECT_FALSE(tov::started());
  EXPECT_EQ(tov::g_memTag, nullptr);
  tov::seams::wsaStartup = nullptr;
  tov::seams::allocMemTag = failingAllocMemTag; // the tag: the network step never runs
  EXPECT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_ERR_NO_MEMORY);
  EXPECT_FALSE(tov::started());
  EXPECT_FALSE(tovtest::winsockStarted());
  tov::seams::allocMemTag = nullptr;
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK); // then a whole start works
  EXPECT_TRUE(tovtest::winsockStarted());
  TOV_Cleanup(nullptr);
}

// In the static build no loader records the module, so the first start does,
// for the life of the process; the library's tag follows it.
TEST(Startup, FirstStartRecordsTheModuleWhenTheLoaderDidNot) {
  void *const first = reinterpret_cast<void *>(0x1230000);
  for (void *arg : {first, reinterpret_cast<void *>(0x4560000)}) {
    ASSERT_EQ(TOV_Startup(arg, 0, nullptr, nullptr), TOV_OK);
    EXPECT_EQ(tov::g_module, first);
    EXPECT_EQ(tov::libTag(), first);
    TOV_Cleanup(nullptr);
    EXPECT_EQ(tov::libTag(), nullptr);
  }
}

TOV_TEST_CHILD(failed_starts) {
  tov::seams::wsaStartup = failingWsaStartup;
  TOV_Startup(nullptr, 0, nullptr, nullptr);
  tov::seams::allocMemTag = failingAllocMemTag;
  return TOV_Startup(nullptr, 0, nullptr, nullptr) == TOV_ERR_NO_MEMORY ? 0 : 1;
}

TEST(StartupFailure, FailuresAreLoggedAtCrit) {
  tovtest::TempDir dir;
  ASSERT_EQ(tovtest::runChild("failed_starts", {{"TOV_LogLevels", ""}, {"TOV_LogFile", "x.log"}},
                              dir.path())
                .exitCode,
            0u);
  const std::string log = tovtest::readFile(dir.file("x.log"));
  EXPECT_NE(log.find("](CRIT):  TOV Init: WSAStartup failed, WSE: 10091.\r\n"), std::string::npos)
      << log;
  EXPECT_NE(log.find("](CRIT):  TOV Init: AllocMemTag failed, -5999."), std::string::npos) << log;
}

} // namespace
