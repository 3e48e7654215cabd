// Named creates through a platform that leaves the thread's last error as it
// was when it makes a new object (a hooked create may): a stale "already
// exists" from before the call must not make a new object look old. The
// static build calls the platform through the import slots defined here.
#include "tov.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

template <typename... A> HANDLE keepingTheError(const char *name, A... args) {
  const DWORD before = GetLastError();
  const auto create = reinterpret_cast<HANDLE(WINAPI *)(A...)>(
      reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("kernel32.dll"), name)));
  HANDLE h = create(args...);
  if (GetLastError() == ERROR_SUCCESS) SetLastError(before);
  return h;
}

} // namespace

extern "C" {
HANDLE(WINAPI *__imp_CreateEventA)
(LPSECURITY_ATTRIBUTES, BOOL, BOOL, LPCSTR) =
    [](LPSECURITY_ATTRIBUTES a, BOOL m, BOOL i, LPCSTR n) {
      return keepingTheError("CreateEventA", a, m, i, n);
    };
HANDLE(WINAPI *__imp_CreateMutexA)
(LPSECURITY_ATTRIBUTES, BOOL, LPCSTR) = [](LPSECURITY_ATTRIBUTES a, BOOL o, LPCSTR n) {
  return keepingTheError("CreateMutexA", a, o, n);
};
HANDLE(WINAPI *__imp_CreateSemaphoreA)
(LPSECURITY_ATTRIBUTES, LONG, LONG, LPCSTR) =
    [](LPSECURITY_ATTRIBUTES a, LONG i, LONG m, LPCSTR n) {
      return keepingTheError("CreateSemaphoreA", a, i, m, n);
    };
}

TEST(NamedCreates, AStaleAlreadyExistsDoesNotMakeANewObjectOld) {
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  const std::string name = std::to_string(GetCurrentProcessId()) + "-tov-stale-";
  const std::string ev = name + "event", mu = name + "mutex", se = name + "semaphore";
  void *h[4] = {};
  const auto stale = [](auto create) { return SetLastError(ERROR_ALREADY_EXISTS), create(); };
  // The last create opens the event again: that it existed is still told.
  EXPECT_EQ(
      std::vector<TOV_Status>({stale([&] { return TOV_EventCreate(ev.c_str(), 0, 0, &h[0]); }),
                               stale([&] { return TOV_MutexCreate(mu.c_str(), &h[1]); }),
                               stale([&] { return TOV_SemCreate(se.c_str(), 0, 1, &h[2]); }),
                               TOV_EventCreate(ev.c_str(), 0, 0, &h[3])}),
      std::vector<TOV_Status>({TOV_OK, TOV_OK, TOV_OK, TOV_ERR_ALREADY_EXISTS}));
  for (void *handle : h) CloseHandle(handle);
  TOV_Cleanup(nullptr);
}
