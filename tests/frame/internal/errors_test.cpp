// The three translation tables, their debug lines, and the call frame.
#include "frame/errors.h"
#include "frame/lifecycle.h"
#include "support.h"

#include <winsock2.h>

#include <cerrno>
#include <gtest/gtest.h>

namespace {

struct Row {
  int32_t number;
  TOV_Status code;
};

template <typename Map, size_t N> void expectTable(Map map, const Row (&rows)[N]) {
  tovtest::DebugCapture capture;
  for (const Row &r : rows) EXPECT_EQ(map(r.number), r.code) << r.number;
  EXPECT_EQ(capture.text(), ""); // nothing is written for mapped numbers
}

// Representative numbers of each table, including every many-to-one code.
TEST(Mapping, Tables) {
  const Row win32[] = {{0, 0},        {3, -5993},   {487, -5993}, {5, -5991},   {14, -5999},
                       {1130, -5999}, {38, -5995},  {80, -5992},  {183, -5992}, {1460, -5994},
                       {122, -5998},  {190, -5988}, {298, -5985}, {995, -5977}};
  expectTable([](int32_t n) { return tov::MapSystemError(n); }, win32);
  // A pending overlapped operation (997) is success.
  const Row winsock[] = {{0, 0},         {997, 0},       {8, -5999},    {995, -5977},
                         {10004, -5899}, {10013, -5897}, {10024, -5894}};
  expectTable(tov::MapWinsockError, winsock);
  const Row errnos[] = {{0, 0}, {2, -5993}, {9, -5996}, {13, -5991}, {17, -5992}, {22, -5997}};
  expectTable(tov::MapErrnoValue, errnos);
  // From WSAEWOULDBLOCK to WSAEREMOTE the numbers and codes run in step.
  for (int n = 10035; n <= 10071; ++n) EXPECT_EQ(tov::MapWinsockError(n), n - 15928) << n;
}

TEST(Mapping, UnmappedNumbersComeBackRawAfterTheirDebugLine) {
  tovtest::DebugCapture capture;
  EXPECT_EQ(tov::MapSystemError(288), 288);
  EXPECT_EQ(tov::MapSystemError(0x80000001u), static_cast<int32_t>(0x80000001u));
  EXPECT_EQ(tov::MapWinsockError(10093), 10093);
  EXPECT_EQ(tov::MapWinsockError(6), 6); // WSA_INVALID_HANDLE is not in the table
  EXPECT_EQ(tov::MapErrnoValue(28), 28);
  EXPECT_EQ(capture.text(), "TOV MapSystemError: No mapping for Win32 error 288.\n"
                            "TOV MapSystemError: No mapping for Win32 error -2147483647.\n"
                            "TOV MapWSALastError: No mapping for Winsock error 10093.\n"
                            "TOV MapWSALastError: No mapping for Winsock error 6.\n"
                            "TOV Map_errno: No mapping for Std C Lib error 28.\n");
}

TEST(Mapping, LastErrorFormsReadTheThreadsError) {
  SetLastError(183);
  EXPECT_EQ(tov::MapLastSystemError(), TOV_ERR_ALREADY_EXISTS);
  SetLastError(0); // a failed call that left no error reports success
  EXPECT_EQ(tov::MapLastSystemError(), TOV_OK);
  WSASetLastError(10061);
  EXPECT_EQ(tov::MapWSALastError(), TOV_ERR_NET_CONNREFUSED);
  errno = 41;
  tovtest::DebugCapture capture;
  EXPECT_EQ(tov::Map_errno(), 41);
  EXPECT_EQ(capture.text(), "TOV Map_errno: No mapping for Std C Lib error 41.\n");
}

TEST(CallFrame, CountTestDecidesBeforeArgumentTests) {
  ASSERT_FALSE(tov::started());
  EXPECT_EQ(tov::callFrame(false), TOV_ERR_NOT_INITIALIZED);
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  EXPECT_EQ(tov::callFrame(false), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(tov::callFrame(true), TOV_OK);
  TOV_Cleanup(nullptr);
  EXPECT_EQ(tov::callFrame(true), TOV_ERR_NOT_INITIALIZED);
}

} // namespace
