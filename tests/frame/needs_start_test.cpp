// The start-up contract, read from the header's marks: every function marked
// TOV_NEEDS_START refuses while the library is not started, before it looks
// at an argument; a choice of the others works at any time.
#include "tov.h"

#include <winsock2.h>

#include <gtest/gtest.h>

#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace {

// Every marked function is called with zero in each of 13 argument slots
// (the most any takes); on x64 each argument is one 64-bit slot.
using ZeroCall = TOV_Status (*)(uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t,
                                uint64_t, uint64_t, uint64_t, uint64_t, uint64_t, uint64_t,
                                uint64_t);
struct Marked {
  const char *name;
  ZeroCall call;
};
const Marked kMarked[] = {
#define TOV_MARKED(f) {#f, reinterpret_cast<ZeroCall>(reinterpret_cast<void (*)()>(&f))},
#include "needs_start.inc"
#undef TOV_MARKED
};

TOV_Status zeroCall(const Marked &m) {
  return m.call(0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0);
}

bool started() {
  const uint32_t one = 1;
  return findid(1, &one, 1) == 0;
}

// A function that comes to need a start is marked in the header and named
// here.
TEST(StartContract, TheHeaderMarksTheFunctionsThatNeedAStart) {
  std::istringstream listed(
      "TOV_CondCreate TOV_CondDestroy TOV_CondWait TOV_DirClose TOV_DirOpen TOV_EventCreate "
      "TOV_EventDestroy TOV_FDSAssociate TOV_FDSCount TOV_FDSCreate TOV_FDSDestroy "
      "TOV_FDSEnumerate TOV_FDSModify TOV_FDSRemove TOV_FDSSelect TOV_FileClose "
      "TOV_FileInfoByHandle TOV_FileOpen TOV_FileRead TOV_FileSeek TOV_FileSetSize TOV_FileSize "
      "TOV_FileTell TOV_FileWrite TOV_FreeCPUUsageHandle TOV_GetCPUUsageHandle "
      "TOV_GetCPUUsagePercent TOV_IOCPortCreate TOV_IOCPortDestroy TOV_LMutexCreate "
      "TOV_LMutexDestroy TOV_ModGetFullPath TOV_ModGetHandle TOV_MutexCreate TOV_MutexDestroy "
      "TOV_PathBuild TOV_RWLockCreate TOV_RWLockDestroy TOV_SemCreate TOV_SemDestroy "
      "TOV_SktAccept TOV_SktBind TOV_SktConnect TOV_SktCreate TOV_SktDestroy "
      "TOV_SktGetLocalAddress TOV_SktGetOption TOV_SktGetRemoteAddress TOV_SktIOCtl TOV_SktListen "
      "TOV_SktReceive TOV_SktRecvBuf TOV_SktSend TOV_SktSendBuf TOV_SktSetOption TOV_SktShutdown "
      "TOV_SysAllocThreadCtx TOV_SysEnumProcesses TOV_SysEnumThreads TOV_SysFreeThreadCtx "
      "TOV_SysGetCurrentProcessId TOV_SysGetSymbolInfo TOV_SysStackWalk TOV_TLSCreate "
      "TOV_ThreadCreate TOV_ThreadDestroy TOV_ThreadGetDescriptionPtrs TOV_ThreadGetExitCode "
      "TOV_ThreadGetID TOV_ThreadWait");
  const std::set<std::string> needStart{std::istream_iterator<std::string>(listed), {}};
  std::set<std::string> marked;
  for (const Marked &m : kMarked) marked.insert(m.name);
  EXPECT_EQ(marked, needStart);
}

// Started, zeros are refused as arguments too, except by the two calls whose
// only required argument is the file handle, which the platform refuses.
TEST(StartContract, MarkedFunctionsRefuseUntilStartedAndAfterTheLastCleanup) {
  const std::set<std::string> platformRefuses = {"TOV_FileSeek", "TOV_FileSetSize"};
  ASSERT_FALSE(started());
  for (int round = 0; round < 2; ++round) {
    for (const Marked &m : kMarked) EXPECT_EQ(zeroCall(m), TOV_ERR_NOT_INITIALIZED) << m.name;
    ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
    for (const Marked &m : kMarked)
      EXPECT_EQ(zeroCall(m),
                platformRefuses.count(m.name) ? TOV_ERR_INVALID_HANDLE : TOV_ERR_INVALID_PARAMETER)
          << m.name;
    TOV_Cleanup(nullptr);
  }
}

// A choice of the unmarked functions, one or two of each kind, before any
// start-up.
TEST(StartContract, UnmarkedFunctionsWorkUnstarted) {
  ASSERT_FALSE(started());
  uint8_t buffer[8], *cursor = buffer;
  uint32_t value = 0, flags = 0;
  EXPECT_EQ(TOV_BufPutHiLo32(&cursor, buffer + 8, 0x01020304), TOV_OK);
  cursor = buffer;
  EXPECT_EQ(TOV_BufGetLoHi32(&cursor, buffer + 8, &value), TOV_OK);
  EXPECT_EQ(value, 0x04030201u);
  void *block = TOV_malloc(nullptr, 16);
  EXPECT_NE(block, nullptr);
  TOV_free(block);
  volatile int64_t counter = 0;
  EXPECT_EQ(TOV_AtomicIncrement(&counter), 1);
  volatile TOV_SpinLock lock = 0;
  EXPECT_TRUE(TOV_TryEnterSpinLock(&lock));
  TOV_LeaveSpinLock(&lock);
  EXPECT_EQ(TOV_GetVersion(), TOV_INTERFACE_VERSION);
  sockaddr_in address{};
  uint64_t size = sizeof address;
  EXPECT_EQ(TOV_SktPresentationToNet("tcp:127.0.0.1:80", &flags,
                                     reinterpret_cast<sockaddr *>(&address), &size),
            TOV_OK);
  EXPECT_EQ(address.sin_port, htons(80));
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr); // a live handle
  EXPECT_EQ(TOV_EventSet(event), TOV_OK);
  EXPECT_EQ(TOV_EventWait(event, 0), TOV_OK);
  CloseHandle(event);
  EXPECT_EQ(TOV_ThreadPushDescriptionPtr(&value), TOV_OK);
  EXPECT_EQ(TOV_ThreadPopDescriptionPtr(), TOV_OK);
  EXPECT_EQ(TOV_SysValidateReadPtr(buffer, sizeof buffer), TOV_OK);
  EXPECT_GT(TOV_GetNumberOfProcessors(), 0u);
  TOV_FileInfo info;
  EXPECT_EQ(TOV_FileInfoByName(".", &info), TOV_OK);
}

} // namespace
