// Critical sections inside the synchronisation family: what an LMutex handle
// stands for, and a scoped hold.
#pragma once

#include "tov.h"

#include <windows.h>

namespace tov {

// An LMutex handle is the address of a library block holding a critical
// section.
inline CRITICAL_SECTION *lmutexSection(TOV_LMutexHandle handle) noexcept {
  return static_cast<CRITICAL_SECTION *>(handle);
}

// Holds a critical section for its own lifetime.
class Entered {
public:
  explicit Entered(CRITICAL_SECTION *cs) noexcept : cs_(cs) { EnterCriticalSection(cs_); }
  ~Entered() { LeaveCriticalSection(cs_); }
  Entered(const Entered &) = delete;
  Entered &operator=(const Entered &) = delete;

private:
  CRITICAL_SECTION *cs_;
};

} // namespace tov
