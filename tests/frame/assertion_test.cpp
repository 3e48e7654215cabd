// The assertion dialog, driven from a second thread as a user would. No test
// starts the library: the dialog needs no start.
#include "support.h"
#include "tov.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace {

struct Report {
  const char *expression, *file;
  int32_t line;
};

constexpr DWORD kReturned = 7, kPatience = 20000;

DWORD WINAPI assertOn(void *report) {
  const auto *r = static_cast<const Report *>(report);
  TOV_AssertionFailed(r->expression, r->file, r->line);
  return kReturned;
}

// Shows the report on a thread of its own and returns its dialog, or null.
// The dialog is looked for among that thread's windows: other processes of
// the Wine prefix show theirs too.
HWND show(Report *report, HANDLE *thread) {
  DWORD id = 0;
  HWND dialog = nullptr;
  *thread = CreateThread(nullptr, 0, assertOn, report, 0, &id);
  auto visibleDialog = [](HWND w, LPARAM found) -> BOOL {
    char name[16];
    if (!GetClassNameA(w, name, sizeof name) || std::strcmp(name, "#32770") || !IsWindowVisible(w))
      return TRUE;
    *reinterpret_cast<HWND *>(found) = w;
    return FALSE;
  };
  for (const DWORD t0 = GetTickCount(); !dialog && GetTickCount() - t0 < kPatience; Sleep(20))
    EnumThreadWindows(id, visibleDialog, reinterpret_cast<LPARAM>(&dialog));
  return dialog;
}

// Whether TOV_AssertionFailed came back to its caller.
bool returned(HANDLE thread) {
  DWORD code = 0;
  const bool back = WaitForSingleObject(thread, kPatience) == WAIT_OBJECT_0 &&
                    GetExitCodeThread(thread, &code) && code == kReturned;
  CloseHandle(thread);
  return back;
}

std::string textOf(HWND w) {
  char text[8192];
  return std::string(text, GetWindowTextA(w, text, sizeof text));
}

// A message that ends the dialog, posted to the dialog (target 0) or to a
// control.
struct Ending {
  int target;
  UINT message;
  WPARAM wParam;
};
constexpr Ending kEscape{0, WM_KEYDOWN, VK_ESCAPE}, kContinue{2, BM_CLICK, 0},
    kCloseBox{0, WM_SYSCOMMAND, SC_CLOSE};

TEST(AssertionDialog, ShowsTheReportAndReturnsUnlessTerminated) {
  const std::string fitting(4058, 'e'), longExpression(5000, 'e'), longFile(3000, 'f');
  struct {
    Report report;
    Ending end;
    std::string text;
  } cases[] = {
      {{"x == 42", "src\\foo.c", 42},
       kEscape,
       "Assertion: \"x == 42\"\r\nFile: src\\foo.c\r\nLine: 42\r\n\r\n"},
      {{"p != NULL", "C:\\work\\main.c", -7},
       kContinue,
       "Assertion: \"p != NULL\"\r\nFile: C:\\work\\main.c\r\nLine: -7\r\n\r\n"},
      {{nullptr, nullptr, INT_MIN},
       kCloseBox,
       "Assertion: \"\"\r\nFile: \r\nLine: -2147483648\r\n\r\n"},
      // 4095 characters at most: when the expression and the file name do
      // not both fit, each is cut to its share and marked.
      {{fitting.c_str(), "f.c", 7},
       kEscape,
       "Assertion: \"" + fitting + "\"\r\nFile: f.c\r\nLine: 7\r\n\r\n"},
      {{longExpression.c_str(), longFile.c_str(), 7},
       kEscape,
       "Assertion: \"" + std::string(2028, 'e') + "...\"\r\nFile: " + std::string(2027, 'f') +
           "...\r\nLine: 7\r\n\r\n"},
  };
  for (auto &c : cases) {
    SCOPED_TRACE(c.text.substr(0, 40));
    HANDLE thread;
    const HWND d = show(&c.report, &thread), edit = GetDlgItem(d, 4);
    ASSERT_NE(d, nullptr);
    EXPECT_EQ(textOf(d), "TOV: Assertion Failed!");
    EXPECT_EQ(textOf(edit), c.text);
    DWORD from = 0, to = 0; // the caret stands after the last character
    SendMessageA(edit, EM_GETSEL, reinterpret_cast<WPARAM>(&from), reinterpret_cast<LPARAM>(&to));
    EXPECT_EQ(from, c.text.size());
    EXPECT_EQ(to, from);
    for (int id : {1, 2, 3}) // Debug waits for a debugger
      EXPECT_EQ(!!IsWindowEnabled(GetDlgItem(d, id)), id != 3) << "button " << id;
    PostMessageA(c.end.target ? GetDlgItem(d, c.end.target) : d, c.end.message, c.end.wParam, 0);
    EXPECT_TRUE(returned(thread));
  }
}

// Enter chooses the default button, Terminate. With TOV_HOLD_DIALOG set (by
// scripts/screenshot-assert), the dialog's place on the screen is printed
// first and Enter waits for a line on standard input.
TOV_TEST_CHILD(report_then_enter) {
  Report report{"index < count", "src\\table.c", 118};
  HANDLE thread;
  RECT r;
  const HWND d = show(&report, &thread);
  if (!d || !GetWindowRect(d, &r)) return 2;
  if (std::getenv("TOV_HOLD_DIALOG")) {
    std::printf("dialog %ld %ld %ld %ld\n", r.left, r.top, r.right - r.left, r.bottom - r.top);
    std::getchar();
  }
  PostMessageA(d, WM_KEYDOWN, VK_RETURN, 0);
  return returned(thread) ? 0 : 3;
}

TEST(AssertionDialog, EnterEndsTheProcess) {
  EXPECT_EQ(tovtest::runChild("report_then_enter", {{"TOV_HOLD_DIALOG", ""}}, ".").exitCode,
            0xFFFFFFFFu);
}

// Run by the frame_no_display test, which starts this program without a
// display (a child of it would still reach the display); skipped elsewhere.
TEST(AssertionNoDisplay, ReturnsAtOnce) {
  if (std::getenv("DISPLAY")) GTEST_SKIP() << "runs only without a display";
  Report report{"x", "y.c", 1};
  EXPECT_TRUE(returned(CreateThread(nullptr, 0, assertOn, &report, 0, nullptr)));
}

} // namespace
