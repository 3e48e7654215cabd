#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>

TEST(Lifecycle, VersionWorksBeforeStartup) { EXPECT_EQ(TOV_GetVersion(), 0x02020000u); }
