// A start whose network step fails gives the description stacks back, like a
// full clean-up (the static build lets the test make WSAStartup fail).
#include "frame/seams.h" // and with it tov.h

#include <gtest/gtest.h>

TEST(SyncUnwind, FailedNetworkStartDropsTheDescriptionStacks) {
  ASSERT_EQ(TOV_ThreadPushDescriptionPtr(nullptr), TOV_OK); // works before a start too
  tov::seams::wsaStartup = [](WORD, WSADATA *) { return WSASYSNOTREADY; };
  EXPECT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), WSASYSNOTREADY);
  tov::seams::wsaStartup = nullptr;
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_ERR_NOT_FOUND); // slot and record gone
}
