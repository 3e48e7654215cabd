// The library frame as the families see it: the start-up state, the call
// frame every counted entry point runs first, the mapping of system error
// numbers onto TOV_Status, and the log.
#pragma once

#include "tov.h"

#include <cstdint>

namespace tov {

// ---- Start-up state (lifecycle.cpp) ----------------------------------------

// Start-up count: plain integer, no lock (starts and clean-ups are not run
// concurrently with anything else).
extern int32_t g_startCount;
// The library's module handle and memory tag.
extern void *g_module;
extern TOV_MemTag g_memTag;

inline bool started() noexcept {
  return g_startCount != 0;
}
inline TOV_MemTag libTag() noexcept {
  return g_memTag;
}

// ---- Call frame --------------------------------------------------------------

// The entry sequence of a counted function: the start-up count decides first,
// then the function's argument tests, before any side effect.
[[nodiscard]] inline TOV_Status callFrame(bool argsOk = true) noexcept {
  if (g_startCount == 0) return TOV_ERR_NOT_INITIALIZED;
  return argsOk ? TOV_OK : TOV_ERR_INVALID_PARAMETER;
}

// Returns from the calling function unless the frame lets the call through.
#define TOV_FRAME(argsOk)                                                                          \
  do {                                                                                             \
    if (const TOV_Status frame_status_ = ::tov::callFrame(argsOk); frame_status_ != TOV_OK)        \
      return frame_status_;                                                                        \
  } while (0)

// ---- Error mapping (errors.cpp) ---------------------------------------------
// Call these directly after the failing call: anything in between (a close,
// a TLS read, a debug line) may overwrite the thread's error first.

TOV_Status MapSystemError(uint32_t win32Error) noexcept;
TOV_Status MapLastSystemError() noexcept;
TOV_Status MapWSALastError() noexcept;
TOV_Status MapWinsockError(int wsaError) noexcept;
TOV_Status Map_errno() noexcept;
TOV_Status MapErrnoValue(int err) noexcept;

// ---- Log (debug.cpp) -------------------------------------------------------

enum LogLevel : uint32_t {
  LogInfo = 0x01,
  LogWarn = 0x02,
  LogErr = 0x04,
  LogCrit = 0x08,
  LogDbg = 0x10,
  LogCallTrace = 0x20,
  LogAll = 0x1F,
};

void LogPrintf(uint32_t level, const char *format, ...) noexcept
    __attribute__((__format__(ms_printf, 2, 3)));

} // namespace tov
