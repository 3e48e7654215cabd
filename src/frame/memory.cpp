// Tagged allocation over the C runtime heap, and two small string and cursor
// helpers. The tag names the owner; the heap does not see it.
#include "tov.h"

#include "align.h"
#include "seams.h"

#include <cstdlib>
#include <cstring>
#include <cwchar>

namespace {

// The test build can refuse an allocation and counts the blocks; the DLL
// does neither.
#ifdef TOV_TEST_SEAMS
inline bool refused() noexcept {
  return __atomic_load_n(&tov::seams::failAllocation, __ATOMIC_RELAXED) > 0 &&
         __atomic_sub_fetch(&tov::seams::failAllocation, 1, __ATOMIC_RELAXED) == 0;
}
template <typename T> inline T *handedOut(T *block) noexcept {
  if (block) __atomic_add_fetch(&tov::seams::allocations, 1, __ATOMIC_RELAXED);
  return block;
}
inline void givenBack(void *block) noexcept {
  if (block) __atomic_add_fetch(&tov::seams::frees, 1, __ATOMIC_RELAXED);
}
#else
constexpr bool refused() noexcept {
  return false;
}
template <typename T> constexpr T *handedOut(T *block) noexcept {
  return block;
}
constexpr void givenBack(void *) noexcept {}
#endif

} // namespace

extern "C" int32_t TOV_ValidateHeapPtr(void *) noexcept {
  return 1;
}

extern "C" void *TOV_malloc(TOV_MemTag, size_t size) noexcept {
  if (refused()) return nullptr;
  return handedOut(std::malloc(size));
}

extern "C" void *TOV_calloc(TOV_MemTag, size_t count, size_t size) noexcept {
  size_t total;
  if (__builtin_mul_overflow(count, size, &total) || refused()) return nullptr;
  void *block = std::malloc(total);
  if (block) std::memset(block, 0, total);
  return handedOut(block);
}

extern "C" void *TOV_realloc(TOV_MemTag, void *block, size_t size) noexcept {
  if (refused()) return nullptr;
  void *grown = std::realloc(block, size);
  return block ? grown : handedOut(grown);
}

extern "C" void TOV_free(void *block) noexcept {
  givenBack(block);
  std::free(block);
}

extern "C" char *TOV_strdup(TOV_MemTag, const char *s) noexcept {
  const size_t n = std::strlen(s) + 1;
  auto *copy = refused() ? nullptr : static_cast<char *>(std::malloc(n));
  if (copy) std::memcpy(copy, s, n);
  return handedOut(copy);
}

extern "C" wchar_t *TOV_wcsdup(TOV_MemTag, const wchar_t *w) noexcept {
  static_assert(sizeof(wchar_t) == 2);
  const size_t n = 2 * std::wcslen(w) + 2;
  auto *copy = refused() ? nullptr : static_cast<wchar_t *>(std::malloc(n));
  if (copy) std::memcpy(copy, w, n);
  return handedOut(copy);
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
