// Tagged allocation over the C runtime heap, and two small string and cursor
// helpers. The tag names the owner; the heap does not see it.
#include "tov.h"

#include "align.h"
#include "seams.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace {

// The test build can make every allocation fail.
inline bool refused() noexcept {
#ifdef TOV_TEST_SEAMS
  return tov::seams::failAllocations;
#else
  return false;
#endif
}

} // namespace

extern "C" int32_t TOV_ValidateHeapPtr(void *) noexcept {
  return 1;
}

extern "C" void *TOV_malloc(TOV_MemTag, size_t size) noexcept {
  if (refused()) return nullptr;
  return std::malloc(size);
}

extern "C" void *TOV_calloc(TOV_MemTag, size_t count, size_t size) noexcept {
  size_t total;
  if (__builtin_mul_overflow(count, size, &total) || refused()) return nullptr;
  void *block = std::malloc(total);
  if (block) std::memset(block, 0, total);
  return block;
}

extern "C" void *TOV_realloc(TOV_MemTag, void *block, size_t size) noexcept {
  if (refused()) return nullptr;
  return std::realloc(block, size);
}

extern "C" void TOV_free(void *block) noexcept {
  std::free(block);
}

extern "C" char *TOV_strdup(TOV_MemTag, const char *s) noexcept {
  const size_t n = std::strlen(s) + 1;
  auto *copy = static_cast<char *>(std::malloc(n));
  if (copy) std::memcpy(copy, s, n);
  return copy;
}

extern "C" wchar_t *TOV_wcsdup(TOV_MemTag, const wchar_t *w) noexcept {
  static_assert(sizeof(wchar_t) == 2);
  const size_t n = 2 * std::wcslen(w) + 2;
  auto *copy = static_cast<wchar_t *>(std::malloc(n));
  if (copy) std::memcpy(copy, w, n);
  return copy;
}

extern "C" uint8_t *TOV_align32(uint8_t *base, uint8_t *cursor, uint8_t *limit) noexcept {
  const uintptr_t pad = tov::alignPad(base, cursor, 4);
  // Compared as addresses, so that a null limit (address 0) refuses every
  // cursor and nothing is formed past the caller's buffer.
  const uintptr_t target = reinterpret_cast<uintptr_t>(cursor) + pad;
  if (target > reinterpret_cast<uintptr_t>(limit)) return nullptr;
  return cursor + pad;
}

extern "C" char *TOV_strnzcpy(char *destination, const char *source, size_t size) noexcept {
  if (size == 0) return destination; // no room, not even for the terminator
  destination[size - 1] = '\0';
  std::strncpy(destination, source, size - 1);
  return destination;
}
