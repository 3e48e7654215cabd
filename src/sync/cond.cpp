// Condition variables: the condition record, which the reader-writer lock
// uses too, and the exported functions over it.
#include "cond.h"

#include "frame/handle.h"
#include "frame/lifecycle.h"
#include "frame/seams.h"
#include "section.h"
#include "wait.h"

#include <cstring>

namespace tov {
namespace {

constexpr LONG kMaxWakeUps = 0x7FFFFFFF;

inline bool createFails() noexcept {
#ifdef TOV_TEST_SEAMS
  return seams::failObjectCreate && seams::failObjectCreate();
#else
  return false;
#endif
}

HANDLE newWakeUpSemaphore() noexcept {
  return createFails() ? nullptr : CreateSemaphoreA(nullptr, 0, kMaxWakeUps, nullptr);
}

HANDLE newWaitersDoneEvent() noexcept {
  return createFails() ? nullptr : CreateEventA(nullptr, FALSE, FALSE, nullptr);
}

// The broadcast flag is set under the count lock but cleared outside it, by
// the broadcaster, so every access is atomic.
inline void setBroadcasting(CondRecord *c, uint8_t value) noexcept {
  __atomic_store_n(&c->broadcasting, value, __ATOMIC_RELAXED);
}
inline bool broadcasting(CondRecord *c) noexcept {
  return __atomic_load_n(&c->broadcasting, __ATOMIC_RELAXED) != 0;
}

inline CondRecord *record(TOV_CondHandle handle) noexcept {
  return static_cast<CondRecord *>(handle);
}

} // namespace

TOV_Status condInit(CondRecord *c) noexcept {
  std::memset(c, 0, sizeof *c);
  UniqueHandle wakeUp(newWakeUpSemaphore());
  if (!wakeUp) return MapLastSystemError();
  c->waitersDone = newWaitersDoneEvent();
  // The error is mapped before wakeUp's destructor closes the semaphore.
  if (!c->waitersDone) return MapLastSystemError();
  c->wakeUp = wakeUp.release();
  InitializeCriticalSection(&c->countLock);
  return TOV_OK;
}

TOV_Status condDestroy(CondRecord *c) noexcept {
  DeleteCriticalSection(&c->countLock);
  const TOV_Status event = CloseHandle(c->waitersDone) ? TOV_OK : MapLastSystemError();
  const TOV_Status semaphore = CloseHandle(c->wakeUp) ? TOV_OK : MapLastSystemError();
  return event != TOV_OK ? event : semaphore;
}

TOV_Status condSignal(CondRecord *c) noexcept {
  bool anyone;
  {
    Entered counting(&c->countLock);
    anyone = c->waiters > 0;
  }
  if (!anyone) return TOV_OK;
  return ReleaseSemaphore(c->wakeUp, 1, nullptr) ? TOV_OK : MapLastSystemError();
}

TOV_Status condBroadcast(CondRecord *c) noexcept {
  uint32_t waiters;
  {
    Entered counting(&c->countLock);
    waiters = c->waiters;
    if (waiters > 0) setBroadcasting(c, 1);
  }
  if (waiters == 0) return TOV_OK;
  TOV_Status status = TOV_OK;
  // Without its units nobody would set the event: no wait then.
  if (!ReleaseSemaphore(c->wakeUp, static_cast<LONG>(waiters), nullptr))
    status = MapLastSystemError();
  else if (WaitForSingleObject(c->waitersDone, INFINITE) != WAIT_OBJECT_0)
    status = MapLastSystemError();
  setBroadcasting(c, 0);
  return status;
}

TOV_Status condWait(CondRecord *c, CRITICAL_SECTION *lock, uint32_t timeoutMs) noexcept {
  {
    Entered counting(&c->countLock);
    ++c->waiters; // before lock is left: a wake-up made under lock counts this waiter
  }
  LeaveCriticalSection(lock);
  const TOV_Status woken = waitResult(WaitForSingleObject(c->wakeUp, timeoutMs));
  bool last;
  {
    Entered counting(&c->countLock);
    last = --c->waiters == 0 && broadcasting(c);
  }
  TOV_Status done = TOV_OK;
  // Set before lock is entered again: the broadcaster may hold lock.
  if (last && !SetEvent(c->waitersDone)) done = MapLastSystemError();
  EnterCriticalSection(lock);
  return woken != TOV_OK ? woken : done;
}

} // namespace tov

extern "C" TOV_Status TOV_CondCreate(TOV_CondHandle *handleOut) noexcept {
  TOV_FRAME(handleOut != nullptr);
  tov::UniqueBlock<tov::CondRecord> c(
      static_cast<tov::CondRecord *>(TOV_malloc(tov::libTag(), sizeof(tov::CondRecord))));
  if (!c) return TOV_ERR_NO_MEMORY;
  if (const TOV_Status status = condInit(c.get()); status != TOV_OK) return status;
  *handleOut = c.release();
  return TOV_OK;
}

extern "C" TOV_Status TOV_CondDestroy(TOV_CondHandle *handle) noexcept {
  TOV_FRAME(handle != nullptr);
  return tov::closeAndClear<tov::Holds::Record>(
      handle, [](void *c) noexcept { return tov::condDestroy(tov::record(c)); });
}

extern "C" TOV_Status TOV_CondWait(TOV_CondHandle cond, TOV_LMutexHandle lock,
                                   uint32_t timeoutMs) noexcept {
  TOV_FRAME(lock != nullptr);
  return condWait(tov::record(cond), tov::lmutexSection(lock), timeoutMs);
}

extern "C" TOV_Status TOV_CondSignal(TOV_CondHandle cond) noexcept {
  return condSignal(tov::record(cond));
}

extern "C" TOV_Status TOV_CondBroadcast(TOV_CondHandle cond) noexcept {
  return condBroadcast(tov::record(cond));
}
