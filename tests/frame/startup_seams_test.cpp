// Start-up failure paths that the platform will not take on request, run
// through the static build's seams, and the module handle rules.
#include "frame/frame.h"
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

struct SeamGuard {
  ~SeamGuard() {
    tov::seams::wsaStartup = nullptr;
    tov::seams::allocMemTag = nullptr;
  }
};

// Winsock is initialised exactly while the library holds its start.
bool winsockStarted() {
  const SOCKET s = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (s == INVALID_SOCKET) return false;
  closesocket(s);
  return true;
}

TEST(StartupFailure, NetworkStartUnwindsAndReturnsTheWinsockNumber) {
  SeamGuard guard;
  tov::seams::wsaStartup = failingWsaStartup;
  EXPECT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), WSASYSNOTREADY); // raw, not mapped
  EXPECT_FALSE(tov::started());
  EXPECT_EQ(tov::g_memTag, nullptr);
  EXPECT_EQ(tov::callFrame(), TOV_ERR_NOT_INITIALIZED);

  // The count is back at zero, so the next start runs the whole start again.
  tov::seams::wsaStartup = nullptr;
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  EXPECT_TRUE(winsockStarted());
  TOV_Cleanup(nullptr);
  EXPECT_FALSE(winsockStarted());
}

TEST(StartupFailure, MemoryTagFailureRestoresTheCount) {
  SeamGuard guard;
  tov::seams::allocMemTag = failingAllocMemTag;
  EXPECT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_ERR_NO_MEMORY);
  EXPECT_FALSE(tov::started());
  EXPECT_FALSE(winsockStarted()); // the network step never ran
}

// In the static build no loader records the module, so the first start does,
// and that value stays for the life of the process; the tag follows it.
TEST(Startup, FirstStartRecordsTheModuleWhenTheLoaderDidNot) {
  void *const first = reinterpret_cast<void *>(0x1230000);
  ASSERT_EQ(TOV_Startup(first, 0, nullptr, nullptr), TOV_OK);
  EXPECT_EQ(tov::g_module, first);
  EXPECT_EQ(tov::libTag(), first);
  TOV_Cleanup(nullptr);
  EXPECT_EQ(tov::libTag(), nullptr);
  EXPECT_EQ(tov::g_module, first);

  ASSERT_EQ(TOV_Startup(reinterpret_cast<void *>(0x4560000), 0, nullptr, nullptr), TOV_OK);
  EXPECT_EQ(tov::g_module, first);
  EXPECT_EQ(tov::libTag(), first);
  TOV_Cleanup(nullptr);
}

// The start-up failures are written at LogCrit, the default level.
TOV_TEST_CHILD(failed_network_start) {
  tov::seams::wsaStartup = failingWsaStartup;
  return TOV_Startup(nullptr, 0, nullptr, nullptr) == WSASYSNOTREADY ? 0 : 1;
}
TOV_TEST_CHILD(failed_tag_start) {
  tov::seams::allocMemTag = failingAllocMemTag;
  return TOV_Startup(nullptr, 0, nullptr, nullptr) == TOV_ERR_NO_MEMORY ? 0 : 1;
}

TEST(StartupFailure, FailuresAreLoggedAtCrit) {
  tovtest::TempDir dir;
  const std::map<std::string, std::string> env{{"TOV_LogLevels", ""}, {"TOV_LogFile", "x.log"}};
  ASSERT_EQ(tovtest::runChild("failed_network_start", env, dir.path()).exitCode, 0u);
  ASSERT_EQ(tovtest::runChild("failed_tag_start", env, dir.path()).exitCode, 0u);
  const std::string log = tovtest::readFile(dir.file("x.log"));
  EXPECT_NE(log.find("](CRIT):  TOV Init: WSAStartup failed, WSE: 10091.\r\n"), std::string::npos)
      << log;
  EXPECT_NE(log.find("](CRIT):  TOV Init: AllocMemTag failed, -5999."), std::string::npos) << log;
}

} // namespace
