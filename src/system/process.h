// What the stack walk shares with the process and thread family: the thread
// context record and the tool-help entry points.
#pragma once

#include <windows.h>

#include <dbghelp.h>
#include <tlhelp32.h>

#include <cstdint>

namespace tov {

// The record behind a TOV_ThreadCtxHandle. A handle field that holds no
// handle holds INVALID_HANDLE_VALUE.
struct ThreadCtx {
  uint64_t processId;
  HANDLE process; // opened for reading by the first walk step that needs it
  HANDLE thread;  // suspended while the record exists
  CONTEXT context;
  STACKFRAME64 frame; // the walker's state, owned by the stack walk
};

// Tool-help calls, found at run time in the kernel module; while an entry
// point is missing they give INVALID_HANDLE_VALUE and FALSE.
HANDLE toolHelpSnapshot(DWORD flags, DWORD processId) noexcept;
BOOL toolHelpModuleFirst(HANDLE snapshot, MODULEENTRY32 *entry) noexcept;
BOOL toolHelpModuleNext(HANDLE snapshot, MODULEENTRY32 *entry) noexcept;
// Forgets the tool-help entry points; the next call looks them up again.
void forgetToolHelp() noexcept;

} // namespace tov
