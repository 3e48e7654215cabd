// A named create through a platform that leaves the thread's last error as
// it was when it makes a new object (a hooked create may): a stale "already
// exists" from before the call must not make the new object look old. The
// static build reaches CreateEventA through the import slot defined here.
#include "tov.h"

#include <windows.h>

#include <gtest/gtest.h>

#include <string>

// CreateEventA of a platform that leaves the error alone for a new object.
static HANDLE WINAPI keepingTheError(LPSECURITY_ATTRIBUTES a, BOOL manual, BOOL set, LPCSTR name) {
  const DWORD before = GetLastError();
  const std::wstring wide = name ? std::wstring(name, name + std::string_view(name).size()) : L"";
  const HANDLE h = CreateEventW(a, manual, set, name ? wide.c_str() : nullptr);
  if (GetLastError() == ERROR_SUCCESS) SetLastError(before);
  return h;
}

extern "C" {
decltype(&keepingTheError) __imp_CreateEventA = keepingTheError;
}

TEST(NamedCreates, AStaleAlreadyExistsDoesNotMakeANewObjectOld) {
  ASSERT_EQ(TOV_Startup(nullptr, 0, nullptr, nullptr), TOV_OK);
  const std::string name = std::to_string(GetCurrentProcessId()) + "-tov-stale";
  void *made = nullptr;
  SetLastError(ERROR_ALREADY_EXISTS);
  EXPECT_EQ(TOV_EventCreate(name.c_str(), 0, 0, &made), TOV_OK);
  EXPECT_TRUE(CloseHandle(made));
  TOV_Cleanup(nullptr);
}
