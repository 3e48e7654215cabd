// Padding to a boundary measured from a base address, shared by TOV_align32
// and the codec's align functions.
#pragma once

#include <cstdint>

namespace tov {

// Bytes from cursor up to the next multiple of n (a power of two) counted
// from base: 0 when cursor is already there. Only the low bits of
// cursor - base matter, so a cursor before base works the same way.
inline uintptr_t alignPad(const void *base, const void *cursor, uintptr_t n) {
  const uintptr_t offset = reinterpret_cast<uintptr_t>(cursor) - reinterpret_cast<uintptr_t>(base);
  return (0 - offset) & (n - 1);
}

} // namespace tov
