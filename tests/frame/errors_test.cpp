// The three translation tables, their debug lines, and the call frame.
#include "frame/frame.h"
#include "support.h"

#include <winsock2.h>

#include <cerrno>
#include <gtest/gtest.h>

namespace {

struct Row {
  int32_t number;
  TOV_Status code;
};

TEST(Mapping, Win32Table) {
  const Row rows[] = {
      {0, TOV_OK},
      {2, TOV_ERR_NOT_FOUND},
      {3, TOV_ERR_NOT_FOUND},
      {487, TOV_ERR_NOT_FOUND},
      {5, TOV_ERR_ACCESS_DENIED},
      {6, TOV_ERR_INVALID_HANDLE},
      {8, TOV_ERR_NO_MEMORY},
      {14, TOV_ERR_NO_MEMORY},
      {1130, TOV_ERR_NO_MEMORY},
      {18, TOV_ERR_END_OF_DATA},
      {38, TOV_ERR_END_OF_DATA},
      {80, TOV_ERR_ALREADY_EXISTS},
      {183, TOV_ERR_ALREADY_EXISTS},
      {87, TOV_ERR_INVALID_PARAMETER},
      {121, TOV_ERR_TIMEOUT},
      {1460, TOV_ERR_TIMEOUT},
      {122, TOV_ERR_BUFFER_TOO_SMALL},
      {126, TOV_ERR_MODULE_NOT_FOUND},
      {127, TOV_ERR_SYMBOL_NOT_FOUND},
      {190, TOV_ERR_INVALID_MODULE},
      {298, TOV_ERR_TOO_MANY_POSTS},
      {995, TOV_ERR_ABORTED},
  };
  tovtest::DebugCapture capture;
  for (const Row &r : rows) EXPECT_EQ(tov::MapSystemError(r.number), r.code) << r.number;
  EXPECT_EQ(capture.text(), ""); // nothing is written for mapped numbers
}

TEST(Mapping, WinsockTable) {
  const Row irregular[] = {
      {0, TOV_OK},
      {997, TOV_OK}, // a pending overlapped operation is success
      {8, TOV_ERR_NO_MEMORY},
      {87, TOV_ERR_INVALID_PARAMETER},
      {995, TOV_ERR_ABORTED},
      {10004, TOV_ERR_NET_INTR},
      {10009, TOV_ERR_NET_BADF},
      {10013, TOV_ERR_NET_ACCES},
      {10014, TOV_ERR_NET_FAULT},
      {10022, TOV_ERR_NET_INVAL},
      {10024, TOV_ERR_NET_MFILE},
  };
  tovtest::DebugCapture capture;
  for (const Row &r : irregular) EXPECT_EQ(tov::MapWinsockError(r.number), r.code) << r.number;
  // From WSAEWOULDBLOCK to WSAEREMOTE the numbers and codes run in step.
  for (int n = 10035; n <= 10071; ++n) EXPECT_EQ(tov::MapWinsockError(n), n - 15928) << n;
  EXPECT_EQ(tov::MapWinsockError(10035), TOV_ERR_NET_WOULDBLOCK);
  EXPECT_EQ(tov::MapWinsockError(10054), TOV_ERR_NET_CONNRESET);
  EXPECT_EQ(tov::MapWinsockError(10060), TOV_ERR_NET_TIMEDOUT);
  EXPECT_EQ(tov::MapWinsockError(10071), TOV_ERR_NET_REMOTE);
  EXPECT_EQ(capture.text(), "");
}

TEST(Mapping, ErrnoTable) {
  const Row rows[] = {{0, TOV_OK},
                      {2, TOV_ERR_NOT_FOUND},
                      {9, TOV_ERR_INVALID_HANDLE},
                      {12, TOV_ERR_NO_MEMORY},
                      {13, TOV_ERR_ACCESS_DENIED},
                      {17, TOV_ERR_ALREADY_EXISTS},
                      {22, TOV_ERR_INVALID_PARAMETER}};
  tovtest::DebugCapture capture;
  for (const Row &r : rows) EXPECT_EQ(tov::MapErrnoValue(r.number), r.code) << r.number;
  EXPECT_EQ(capture.text(), "");
}

TEST(Mapping, UnmappedNumbersComeBackRawAfterTheirDebugLine) {
  tovtest::DebugCapture capture;
  EXPECT_EQ(tov::MapSystemError(288), 288);
  EXPECT_EQ(tov::MapSystemError(258), 258);
  EXPECT_EQ(tov::MapSystemError(0x80000001u), static_cast<int32_t>(0x80000001u));
  EXPECT_EQ(tov::MapWinsockError(10093), 10093);
  EXPECT_EQ(tov::MapWinsockError(6), 6);         // WSA_INVALID_HANDLE is not in the table
  EXPECT_EQ(tov::MapWinsockError(11001), 11001); // nor are name-resolution errors
  EXPECT_EQ(tov::MapErrnoValue(28), 28);
  EXPECT_EQ(capture.text(), "TOV MapSystemError: No mapping for Win32 error 288.\n"
                            "TOV MapSystemError: No mapping for Win32 error 258.\n"
                            "TOV MapSystemError: No mapping for Win32 error -2147483647.\n"
                            "TOV MapWSALastError: No mapping for Winsock error 10093.\n"
                            "TOV MapWSALastError: No mapping for Winsock error 6.\n"
                            "TOV MapWSALastError: No mapping for Winsock error 11001.\n"
                            "TOV Map_errno: No mapping for Std C Lib error 28.\n");
}

TEST(Mapping, LastErrorFormsReadTheThreadsError) {
  SetLastError(183);
  EXPECT_EQ(tov::MapLastSystemError(), TOV_ERR_ALREADY_EXISTS);
  SetLastError(0); // a failed call that left no error reports success
  EXPECT_EQ(tov::MapLastSystemError(), TOV_OK);
  WSASetLastError(10061);
  EXPECT_EQ(tov::MapWSALastError(), TOV_ERR_NET_CONNREFUSED);
  errno = EEXIST;
  EXPECT_EQ(tov::Map_errno(), TOV_ERR_ALREADY_EXISTS);

  tovtest::DebugCapture capture;
  SetLastError(1812);
  EXPECT_EQ(tov::MapLastSystemError(), 1812);
  errno = 41;
  EXPECT_EQ(tov::Map_errno(), 41);
  EXPECT_EQ(capture.text(), "TOV MapSystemError: No mapping for Win32 error 1812.\n"
                            "TOV Map_errno: No mapping for Std C Lib error 41.\n");
}

TEST(CallFrame, CountTestDecidesBeforeArgumentTests) {
  ASSERT_FALSE(tov::started());
  EXPECT_EQ(tov::callFrame(false), TOV_ERR_NOT_INITIALIZED);
  EXPECT_EQ(tov::callFrame(true), TOV_ERR_NOT_INITIALIZED);
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  EXPECT_EQ(tov::callFrame(false), TOV_ERR_INVALID_PARAMETER);
  EXPECT_EQ(tov::callFrame(true), TOV_OK);
  TOV_Cleanup(nullptr);
  EXPECT_EQ(tov::callFrame(false), TOV_ERR_NOT_INITIALIZED);
}

} // namespace
