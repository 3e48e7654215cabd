// The mapping of system error numbers onto TOV_Status: one table per
// numbering (Win32, Winsock, the C runtime's errno). A number without a
// mapping goes to the debug output and back to the caller unchanged.
//
// Call these directly after the failing call: anything in between (a close,
// a TLS read, a debug line) may overwrite the thread's error first.
#pragma once

#include "tov.h"

#include <cstdint>

namespace tov {

TOV_Status MapSystemError(uint32_t win32Error) noexcept;
TOV_Status MapLastSystemError() noexcept;
TOV_Status MapWSALastError() noexcept;
TOV_Status MapWinsockError(int wsaError) noexcept;
TOV_Status Map_errno() noexcept;
TOV_Status MapErrnoValue(int err) noexcept;

} // namespace tov
