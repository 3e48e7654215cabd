// The three translation tables and their debug lines.
#include "frame/errors.h"
#include "support.h"

#include <winsock2.h>

#include <cerrno>
#include <gtest/gtest.h>
#include <map>

namespace {

// Every row of the three tables, typed from the library's code table.
const std::pair<TOV_Status (*)(int32_t), std::map<int32_t, TOV_Status>> kTables[] = {
    {[](int32_t n) { return tov::MapSystemError(n); },
     {{0, 0},       {2, -5993},   {3, -5993},    {487, -5993},  {5, -5991},   {6, -5996},
      {8, -5999},   {14, -5999},  {1130, -5999}, {18, -5995},   {38, -5995},  {80, -5992},
      {183, -5992}, {87, -5997},  {121, -5994},  {1460, -5994}, {122, -5998}, {126, -5984},
      {127, -5983}, {190, -5988}, {298, -5985},  {995, -5977}}},
    {tov::MapWinsockError,
     {{0, 0},         {997, 0},       {8, -5999},     {87, -5997},    {995, -5977},
      {10004, -5899}, {10009, -5898}, {10013, -5897}, {10014, -5896}, {10022, -5895},
      {10024, -5894}, {10035, -5893}, {10036, -5892}, {10037, -5891}, {10038, -5890},
      {10039, -5889}, {10040, -5888}, {10041, -5887}, {10042, -5886}, {10043, -5885},
      {10044, -5884}, {10045, -5883}, {10046, -5882}, {10047, -5881}, {10048, -5880},
      {10049, -5879}, {10050, -5878}, {10051, -5877}, {10052, -5876}, {10053, -5875},
      {10054, -5874}, {10055, -5873}, {10056, -5872}, {10057, -5871}, {10058, -5870},
      {10059, -5869}, {10060, -5868}, {10061, -5867}, {10062, -5866}, {10063, -5865},
      {10064, -5864}, {10065, -5863}, {10066, -5862}, {10067, -5861}, {10068, -5860},
      {10069, -5859}, {10070, -5858}, {10071, -5857}}},
    {tov::MapErrnoValue,
     {{0, 0}, {2, -5993}, {9, -5996}, {12, -5999}, {13, -5991}, {17, -5992}, {22, -5997}}}};

// Each row gives its code and writes nothing; every other number below 12000
// (past the Winsock numbers) comes back as it is.
TEST(Mapping, EveryRowOfTheTablesAndNothingElse) {
  for (const auto &[map, rows] : kTables) {
    SCOPED_TRACE(rows.size()); // 22 rows: Win32, 48: Winsock, 7: errno
    {
      tovtest::DebugCapture capture;
      for (const auto &[n, code] : rows) EXPECT_EQ(map(n), code) << n;
      EXPECT_EQ(capture.text(), "");
    }
    tovtest::DebugCapture quiet; // the lines of the unmapped numbers
    for (int32_t n = 0; n < 12000; ++n) {
      if (rows.count(n)) continue;
      ASSERT_EQ(map(n), n);
    }
  }
}

// The debug line of an unmapped number gives it in signed decimal.
TEST(Mapping, UnmappedNumbersComeBackAfterTheirDebugLine) {
  tovtest::DebugCapture capture;
  EXPECT_EQ(tov::MapSystemError(0x80000001u), static_cast<int32_t>(0x80000001u));
  tov::MapWinsockError(10093);
  tov::MapErrnoValue(28);
  EXPECT_EQ(capture.text(), "TOV MapSystemError: No mapping for Win32 error -2147483647.\n"
                            "TOV MapWSALastError: No mapping for Winsock error 10093.\n"
                            "TOV Map_errno: No mapping for Std C Lib error 28.\n");
}

TEST(Mapping, LastErrorFormsReadTheThreadsError) {
  SetLastError(183);
  EXPECT_EQ(tov::MapLastSystemError(), TOV_ERR_ALREADY_EXISTS);
  SetLastError(0); // a failed call that left no error reports success
  EXPECT_EQ(tov::MapLastSystemError(), TOV_OK);
  WSASetLastError(10061);
  EXPECT_EQ(tov::MapWSALastError(), TOV_ERR_NET_CONNREFUSED);
  errno = ENOENT;
  EXPECT_EQ(tov::Map_errno(), TOV_ERR_NOT_FOUND);
}

} // namespace
