// The assertion report: a modal dialog built at run time from an in-memory
// template, fed with an exception record that carries the report.
#include "assertion.h"
#include "lifecycle.h"

#include <windows.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace tov {
namespace {

// Control ids; 1 and 2 double as IDOK (Enter) and IDCANCEL (Escape).
enum : uint16_t { kTerminate = 1, kContinue = 2, kDebug = 3, kText = 4 };

constexpr uint32_t kDialogStyle = WS_POPUP | WS_CAPTION | WS_SYSMENU | DS_MODALFRAME | DS_SETFONT;
constexpr uint32_t kButtonStyle = WS_CHILD | WS_VISIBLE | WS_TABSTOP | BS_PUSHBUTTON;
constexpr uint16_t kButtonClass = 0x0080, kEditClass = 0x0081;

struct TemplateItem {
  uint32_t style;
  uint16_t x, y, width, height, id, windowClass;
  std::u16string_view text;
};

// Positions and sizes in dialog units, the dialog being 340 x 162.
constexpr TemplateItem kItems[] = {
    {kButtonStyle | BS_DEFPUSHBUTTON, 83, 141, 50, 14, kTerminate, kButtonClass, u"Terminate"},
    {kButtonStyle, 144, 141, 50, 14, kContinue, kButtonClass, u"Continue"},
    {kButtonStyle, 205, 141, 50, 14, kDebug, kButtonClass, u"Debug"},
    {WS_CHILD | WS_VISIBLE | WS_BORDER | WS_VSCROLL | WS_HSCROLL | WS_TABSTOP | ES_READONLY |
         ES_MULTILINE,
     7, 7, 326, 126, kText, kEditClass, u""},
};

// Where a string of length n goes into room bytes: whole, or its first bytes
// and "...".
struct Fitted {
  size_t shown;
  const char *mark;
};
Fitted fit(size_t n, size_t room) {
  return n <= room ? Fitted{n, ""} : Fitted{room - 3, "..."};
}

void centreOn(HWND window, HWND reference) {
  RECT w, r;
  GetWindowRect(window, &w);
  GetWindowRect(reference, &r);
  const int x = r.left + (r.right - r.left) / 2 - (w.right - w.left) / 2;
  const int y = r.top + (r.bottom - r.top) / 2 - (w.bottom - w.top) / 2;
  SetWindowPos(window, nullptr, x, y, 0, 0, SWP_NOSIZE | SWP_NOZORDER);
}

void initReportDialog(HWND dialog, const EXCEPTION_POINTERS *report) {
  const HWND edit = GetDlgItem(dialog, kText);
  SendMessageA(edit, WM_SETFONT, reinterpret_cast<WPARAM>(GetStockObject(ANSI_FIXED_FONT)), FALSE);
  EnableWindow(GetDlgItem(dialog, kDebug), IsDebuggerPresent());
  const EXCEPTION_RECORD *record = report ? report->ExceptionRecord : nullptr;
  if (record && record->ExceptionCode == kAssertionCode && record->NumberParameters >= 3) {
    SetWindowTextA(dialog, "TOV: Assertion Failed!");
    char text[kReportTextSize];
    const size_t length =
        formatAssertionText(text, reinterpret_cast<const char *>(record->ExceptionInformation[0]),
                            reinterpret_cast<const char *>(record->ExceptionInformation[1]),
                            static_cast<int32_t>(record->ExceptionInformation[2]));
    SetWindowTextA(edit, text);
    SendMessageA(edit, EM_SETSEL, length, length);
  }
  centreOn(dialog, GetDesktopWindow());
  MessageBeep(MB_ICONEXCLAMATION);
}

INT_PTR CALLBACK reportDialogProc(HWND dialog, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
  case WM_INITDIALOG:
    initReportDialog(dialog, reinterpret_cast<const EXCEPTION_POINTERS *>(lParam));
    return TRUE; // the focus goes to the first tab stop, Terminate
  case WM_COMMAND:
    // A button (or Enter and Escape, as IDOK and IDCANCEL) closes the dialog
    // with its id.
    if (LOWORD(wParam) >= kTerminate && LOWORD(wParam) <= kDebug && HIWORD(wParam) == BN_CLICKED)
      return SendMessageA(dialog, WM_CLOSE, wParam, 0);
    return FALSE;
  case WM_CLOSE:
    // The caption's close box sends it with 0.
    EndDialog(dialog, LOWORD(wParam));
    return TRUE;
  default:
    return FALSE;
  }
}

INT_PTR runReportDialog(EXCEPTION_POINTERS *report) {
  alignas(4) uint8_t buffer[kTemplateBufferSize];
  buildReportTemplate(buffer);
  return DialogBoxIndirectParamA(static_cast<HINSTANCE>(g_module),
                                 reinterpret_cast<const DLGTEMPLATE *>(buffer), GetActiveWindow(),
                                 reportDialogProc, reinterpret_cast<LPARAM>(report));
}

} // namespace

size_t buildReportTemplate(uint8_t (&buffer)[kTemplateBufferSize]) noexcept {
  uint8_t *const base = buffer, *const limit = buffer + sizeof buffer;
  uint8_t *cursor = base;
  // The template always fits the buffer: no status needs a look.
  auto put16 = [&](uint16_t v) { TOV_BufPutLoHi16(&cursor, limit, v); };
  auto put32 = [&](uint32_t v) { TOV_BufPutLoHi32(&cursor, limit, v); };
  auto putText = [&](std::u16string_view s) {
    TOV_BufPutData(&cursor, limit, (s.size() + 1) * sizeof(char16_t), s.data());
  };
  put32(kDialogStyle);
  put32(0); // extended style
  put16(std::size(kItems));
  // x, y, width, height; no menu, the dialog class, an empty title; 8 points.
  for (uint16_t v : {0, 0, 340, 162, 0, 0, 0, 8}) put16(v);
  putText(u"MS Sans Serif");
  for (const TemplateItem &item : kItems) {
    TOV_BufPutAlign32(&cursor, limit, base);
    put32(item.style);
    put32(0); // extended style
    for (uint16_t v : {item.x, item.y, item.width, item.height, item.id}) put16(v);
    put16(0xFFFF); // a predefined class follows by its number
    put16(item.windowClass);
    putText(item.text);
    put16(0); // no creation data
  }
  return cursor - base;
}

size_t formatAssertionText(char (&text)[kReportTextSize], const char *expression, const char *file,
                           int32_t line) noexcept {
  static constexpr char kFormat[] = "Assertion: \"%.*s%s\"\r\nFile: %.*s%s\r\nLine: %d\r\n\r\n";
  if (!expression) expression = "";
  if (!file) file = "";
  // The labels and the line number always fit; the expression and the file
  // name share the rest, the file name keeping at least half when it needs it.
  const size_t fixed = std::snprintf(nullptr, 0, kFormat, 0, "", "", 0, "", "", line);
  const size_t room = sizeof text - 1 - fixed;
  const size_t expressionLength = strnlen(expression, room + 1);
  const Fitted f =
      fit(strnlen(file, room + 1), std::max(room / 2, room - std::min(expressionLength, room)));
  const Fitted e = fit(expressionLength, room - f.shown - std::strlen(f.mark));
  const int n = std::snprintf(text, sizeof text, kFormat, static_cast<int>(e.shown), expression,
                              e.mark, static_cast<int>(f.shown), file, f.mark, line);
  return std::min<size_t>(n, sizeof text - 1);
}

} // namespace tov

extern "C" void TOV_AssertionFailed(const char *expression, const char *file,
                                    int32_t line) noexcept {
  EXCEPTION_RECORD record{};
  record.ExceptionCode = tov::kAssertionCode;
  record.NumberParameters = 3;
  record.ExceptionInformation[0] = reinterpret_cast<ULONG_PTR>(expression);
  record.ExceptionInformation[1] = reinterpret_cast<ULONG_PTR>(file);
  record.ExceptionInformation[2] = static_cast<ULONG_PTR>(static_cast<LONG_PTR>(line));
  EXCEPTION_POINTERS report{&record, nullptr};
  switch (tov::runReportDialog(&report)) {
  case tov::kTerminate:
    TerminateProcess(GetCurrentProcess(), 0xFFFFFFFF);
    break;
  case tov::kDebug:
    DebugBreak();
    break;
  default: // Continue, the close box, or no dialog at all
    break;
  }
}
