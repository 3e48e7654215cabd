// Socket sets when memory runs out, through the static build's seam.
#include "frame/seams.h"
#include "net/socket.h"

#include <gtest/gtest.h>

#include <vector>

// The index is full and cannot grow: a handle already in the set is still
// reported as there; only a new one needs the memory that is missing.
TEST(FDSMemory, ADuplicateIsToldApartFromAFullIndex) {
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  TOV_Skt a{1, 0}, b{2, 0};
  TOV_FDS *set = nullptr;
  ASSERT_EQ(TOV_FDSCreate(1, &set), TOV_OK);
  ASSERT_EQ(TOV_FDSAssociate(set, &a, TOV_FDS_READ, 0), TOV_OK);
  tov::seams::failAllocations = true;
  const std::vector<TOV_Status> got = {TOV_FDSAssociate(set, &a, TOV_FDS_READ, 0),
                                       TOV_FDSAssociate(set, &b, TOV_FDS_READ, 0)};
  tov::seams::failAllocations = false;
  EXPECT_EQ(got, std::vector<TOV_Status>({TOV_ERR_ALREADY_EXISTS, TOV_ERR_NO_MEMORY}));
  EXPECT_EQ(TOV_FDSDestroy(&set, nullptr), TOV_OK);
  TOV_Cleanup(nullptr);
}
