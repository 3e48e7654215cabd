// The condition record: the wait-and-wake component behind the exported
// condition variables and the two queues of the reader-writer lock.
#pragma once

#include "tov.h"

#include <windows.h>

#include <cstdint>

namespace tov {

// The waiter count is raised before the waiter lets go of its lock L, so a
// signal or broadcast made under L always counts it. Each unit of the wake-up
// semaphore lets one waiter through; a unit is not reserved for any waiter.
struct CondRecord {
  HANDLE waitersDone;         // auto-reset event: the last waiter out of a broadcast sets it
  HANDLE wakeUp;              // semaphore, count 0 to 0x7FFFFFFF
  CRITICAL_SECTION countLock; // guards the two fields below; never held while waiting
  uint32_t waiters;           // threads inside a wait
  uint8_t broadcasting;       // 1 while a broadcast waits for its waiters to leave
};

// Makes the two objects and the count lock. On failure returns the mapped
// system error with nothing left open.
TOV_Status condInit(CondRecord *c) noexcept;
// Closes both objects (both are tried) and deletes the count lock; the first
// failed close's mapped error, else TOV_OK.
TOV_Status condDestroy(CondRecord *c) noexcept;
// Wakes one waiter, if there is one.
TOV_Status condSignal(CondRecord *c) noexcept;
// Wakes every waiter and returns once all of them have left their wait.
TOV_Status condBroadcast(CondRecord *c) noexcept;
// Leaves lock (held once by the caller), waits for a wake-up or the time-out,
// and enters lock again on every way out: TOV_OK, TOV_ERR_TIMEOUT or the
// mapped error of the wait.
TOV_Status condWait(CondRecord *c, CRITICAL_SECTION *lock, uint32_t timeoutMs) noexcept;

} // namespace tov
