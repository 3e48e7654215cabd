// The library's log: levels and sink chosen by the environment, written by
// start-up and clean-up.
#pragma once

#include <cstdint>

namespace tov {

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
