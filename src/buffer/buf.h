// The codec's readers and writers of unsigned integers in a byte order, at
// an address with no alignment required. Other parts of the library that lay
// out binary records use them too.
#pragma once

#include <bit>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tov::buf {

// HiLo: most significant byte first. LoHi: least significant byte first.
// Natv: the processor's own order.
enum class Order { HiLo, LoHi, Natv };

template <typename T> constexpr T byteSwap(T v) {
  static_assert(std::is_unsigned_v<T>);
  if constexpr (sizeof(T) == 1)
    return v;
  else if constexpr (sizeof(T) == 2)
    return __builtin_bswap16(v);
  else if constexpr (sizeof(T) == 4)
    return __builtin_bswap32(v);
  else
    return __builtin_bswap64(v);
}

// True when values of order O lie in memory in the processor's order.
template <Order O> constexpr bool isNative() {
  if constexpr (O == Order::Natv)
    return true;
  else if constexpr (O == Order::LoHi)
    return std::endian::native == std::endian::little;
  else
    return std::endian::native == std::endian::big;
}

// The sizeof(T) bytes at p, combined in order O.
template <typename T, Order O> inline T load(const uint8_t *p) {
  T v;
  std::memcpy(&v, p, sizeof v);
  if constexpr (isNative<O>())
    return v;
  else
    return byteSwap(v);
}

// v split into sizeof(T) bytes in order O, written at p.
template <typename T, Order O> inline void store(uint8_t *p, T v) {
  if constexpr (!isNative<O>()) v = byteSwap(v);
  std::memcpy(p, &v, sizeof v);
}

} // namespace tov::buf
