// The wait rule shared by the waiting functions of the synchronisation
// family: signalled or acquired → TOV_OK, time-out → TOV_ERR_TIMEOUT, anything
// else → the mapped last system error.
#pragma once

#include "frame/errors.h"
#include "tov.h"

#include <windows.h>

namespace tov {

// result is what a wait function returned; call it right after the wait.
inline TOV_Status waitResult(DWORD result) noexcept {
  if (result == WAIT_OBJECT_0) return TOV_OK;
  if (result == WAIT_TIMEOUT) return TOV_ERR_TIMEOUT;
  // An abandoned mutex is acquired all the same: the caller owns it now and
  // must release it. The platform leaves the last error untouched here, so
  // mapping it would hand back whatever stale error the thread carried. We
  // clear it, and the abandoned acquire reports TOV_OK like any acquire.
  if (result == WAIT_ABANDONED) SetLastError(ERROR_SUCCESS);
  return MapLastSystemError();
}

} // namespace tov
