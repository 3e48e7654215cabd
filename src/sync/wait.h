// The wait rule shared by the waiting functions of the synchronisation
// family: signalled or acquired → TOV_OK, time-out → TOV_ERR_TIMEOUT, anything
// else → the mapped last system error.
#pragma once

#include "tov.h"

#include <windows.h>

namespace tov {

// result is what WaitForSingleObject returned; call it right after the wait.
TOV_Status waitResult(DWORD result) noexcept;

} // namespace tov
