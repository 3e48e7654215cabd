// Reader-writer locks: a critical section over the counts, and a condition
// record each for waiting readers and waiting writers. A releaser hands the
// lock on (all waiting readers, or one writer) and marks the hand-off, so a
// woken thread takes the lock without testing again.
#include "rwlock.h"

#include "frame/handle.h"
#include "frame/lifecycle.h"
#include "section.h"

namespace {

inline tov::RWLockRecord *record(TOV_RWLockHandle handle) noexcept {
  return static_cast<tov::RWLockRecord *>(handle);
}

} // namespace

extern "C" TOV_Status TOV_RWLockCreate(TOV_RWLockHandle *handleOut) noexcept {
  TOV_FRAME(handleOut != nullptr);
  tov::UniqueBlock<tov::RWLockRecord> rw(
      static_cast<tov::RWLockRecord *>(TOV_calloc(tov::libTag(), 1, sizeof(tov::RWLockRecord))));
  if (!rw) return TOV_ERR_NO_MEMORY;
  InitializeCriticalSection(&rw->lock);
  TOV_Status status = condInit(&rw->readers);
  if (status == TOV_OK) {
    status = condInit(&rw->writers);
    if (status != TOV_OK) condDestroy(&rw->readers);
  }
  if (status != TOV_OK) {
    DeleteCriticalSection(&rw->lock);
    return status;
  }
  *handleOut = rw.release();
  return TOV_OK;
}

extern "C" TOV_Status TOV_RWLockDestroy(TOV_RWLockHandle *handle) noexcept {
  TOV_FRAME(handle != nullptr);
  return tov::closeAndClear<tov::Holds::Record>(handle, [](void *h) noexcept {
    tov::RWLockRecord *rw = record(h);
    DeleteCriticalSection(&rw->lock);
    const TOV_Status readers = condDestroy(&rw->readers);
    const TOV_Status writers = condDestroy(&rw->writers);
    return readers != TOV_OK ? readers : writers;
  });
}

// A woken thread waits once: the releaser reserved the lock for it.
extern "C" TOV_Status TOV_RWLockAcquire(TOV_RWLockHandle lock, int32_t exclusive) noexcept {
  tov::RWLockRecord *rw = record(lock);
  tov::Entered entered(&rw->lock);
  TOV_Status status = TOV_OK;
  if (exclusive) {
    if (rw->holders != 0 || rw->handOff != tov::kHandOffNone) {
      ++rw->waitingWriters;
      status = condWait(&rw->writers, &rw->lock, INFINITE);
      rw->handOff = tov::kHandOffNone;
      --rw->waitingWriters;
    }
    if (status == TOV_OK) rw->holders = -1;
  } else {
    if (rw->holders < 0 || rw->handOff == tov::kHandOffWriter) {
      ++rw->waitingReaders;
      status = condWait(&rw->readers, &rw->lock, INFINITE);
      if (--rw->waitingReaders == 0) rw->handOff = tov::kHandOffNone; // the last woken reader
    }
    if (status == TOV_OK) ++rw->holders;
  }
  return status;
}

// Waiting writers do not keep a reader out; only a writer being handed the
// lock does.
extern "C" TOV_Status TOV_RWLockTryAcquire(TOV_RWLockHandle lock, int32_t exclusive) noexcept {
  tov::RWLockRecord *rw = record(lock);
  tov::Entered entered(&rw->lock);
  if (exclusive) {
    if (rw->holders != 0 || rw->handOff != tov::kHandOffNone) return TOV_ERR_TIMEOUT;
    rw->holders = -1;
  } else {
    if (rw->holders < 0 || rw->handOff == tov::kHandOffWriter) return TOV_ERR_TIMEOUT;
    ++rw->holders;
  }
  return TOV_OK;
}

// Wakes while holding the lock, which is the waiters' own: nobody can begin to
// wait in between.
extern "C" TOV_Status TOV_RWLockRelease(TOV_RWLockHandle lock) noexcept {
  tov::RWLockRecord *rw = record(lock);
  tov::Entered entered(&rw->lock);
  if (rw->holders == 0) return TOV_ERR_INVALID_PARAMETER;
  if (rw->holders < 0) {
    rw->holders = 0;
    if (rw->handOff == tov::kHandOffNone) { // readers first
      if (rw->waitingReaders > 0) {
        rw->handOff = tov::kHandOffReaders;
        return condBroadcast(&rw->readers);
      }
      if (rw->waitingWriters > 0) {
        rw->handOff = tov::kHandOffWriter;
        return condSignal(&rw->writers);
      }
    }
  } else if (--rw->holders == 0 && rw->waitingWriters > 0 && rw->handOff == tov::kHandOffNone) {
    rw->handOff = tov::kHandOffWriter;
    return condSignal(&rw->writers);
  }
  return TOV_OK;
}
