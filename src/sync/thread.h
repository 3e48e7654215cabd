// What the library frame calls in the thread family.
#pragma once

#include <cstdint>

namespace tov {

// Thread-end hook: the thread with this id is ending (called from the
// loader's thread-detach notice, on that thread). Drops its description
// record, if it has one, and clears the calling thread's slot, so that the
// thread has no record from then on. Takes only the description list's spin
// lock; a record that a reader still copies is freed by that reader.
void threadEnded(uint64_t threadId) noexcept;

// Description clean-up: frees every description record and the thread-local
// slot, so that the next push starts afresh. Safe when nothing was made.
void descriptionCleanup() noexcept;

} // namespace tov
