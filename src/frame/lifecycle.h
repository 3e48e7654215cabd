// The start-up state and the call frame that every counted entry point runs
// first.
#pragma once

#include "tov.h"

#include <cstdint>

namespace tov {

// Start-up count. Starts and clean-ups never run concurrently with anything
// else, but every counted call reads it, so it is read and written as an
// atomic (relaxed: it orders nothing, it only must not tear).
extern int32_t g_startCount;
// The library's module handle and memory tag.
extern void *g_module;
extern TOV_MemTag g_memTag;

inline int32_t startCount() noexcept {
  return __atomic_load_n(&g_startCount, __ATOMIC_RELAXED);
}
inline bool started() noexcept {
  return startCount() != 0;
}
inline TOV_MemTag libTag() noexcept {
  return g_memTag;
}

// The entry sequence of a counted function: the start-up count decides first,
// then the function's argument tests, before any side effect.
[[nodiscard]] inline TOV_Status callFrame(bool argsOk = true) noexcept {
  if (!started()) return TOV_ERR_NOT_INITIALIZED;
  return argsOk ? TOV_OK : TOV_ERR_INVALID_PARAMETER;
}

// Returns from the calling function unless the frame lets the call through.
#define TOV_FRAME(argsOk)                                                                          \
  do {                                                                                             \
    if (const TOV_Status frame_status_ = ::tov::callFrame(argsOk); frame_status_ != TOV_OK)        \
      return frame_status_;                                                                        \
  } while (0)

} // namespace tov
