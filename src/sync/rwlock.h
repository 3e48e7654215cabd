// The reader-writer lock record, for the code that looks inside a lock.
#pragma once

#include "cond.h"

namespace tov {

enum RWHandOff : int32_t {
  kHandOffNone = 0,
  kHandOffReaders = 1, // a writer's release is waking every waiting reader
  kHandOffWriter = 2,  // one waiting writer is being woken; the lock is kept for it
};

struct RWLockRecord {
  CRITICAL_SECTION lock; // guards every field below; the lock both conditions leave while waiting
  CondRecord readers;    // waiting readers sleep here
  CondRecord writers;    // waiting writers sleep here
  uint32_t waitingReaders;
  uint32_t waitingWriters;
  int32_t holders; // 0 free, n > 0 held by n readers, -1 held by a writer
  int32_t handOff; // an RWHandOff
};

} // namespace tov
