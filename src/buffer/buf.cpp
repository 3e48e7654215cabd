// The byte buffer codec: fields read and written at a caller's cursor that
// never passes the caller's limit. Every call makes its one room test before
// it touches anything, so a failing call leaves cursor, buffer and outputs
// as they were.
#include "tov.h"

#include "buffer/buf.h"
#include "frame/align.h"

#include <cstring>

namespace {

using tov::buf::load;
using tov::buf::Order;
using tov::buf::store;

static_assert(sizeof(wchar_t) == 2, "strings travel as 16-bit units");

// Whether head + body bytes fit between cursor and limit. A null limit has
// room for anything; a cursor past the limit has room for nothing, not even
// 0 bytes. The test subtracts from the room instead of adding to the cursor,
// so no length, however large, can wrap round and pass.
inline bool fits(const uint8_t *cursor, const uint8_t *limit, uint64_t head, uint64_t body = 0) {
  if (!limit) return true;
  const uintptr_t c = reinterpret_cast<uintptr_t>(cursor);
  const uintptr_t l = reinterpret_cast<uintptr_t>(limit);
  if (c > l) return false;
  const uint64_t room = l - c;
  return room >= head && room - head >= body;
}

// The same test for a field of fixed width W, as one signed comparison: a
// cursor past the limit leaves a negative room. (Addresses in the process lie
// far closer together than 2^63, so the difference cannot overflow.)
template <uint64_t W> inline bool fitsFixed(const uint8_t *cursor, const uint8_t *limit) {
  const intptr_t room = reinterpret_cast<intptr_t>(limit) - reinterpret_cast<intptr_t>(cursor);
  return !limit || room >= static_cast<intptr_t>(W);
}

// The test of the one-byte calls: room while the cursor lies below the
// limit, compared as addresses (so a limit at the top of the address space
// leaves room for all below it, as it does for the data calls).
inline bool fitsByte(const uint8_t *cursor, const uint8_t *limit) {
  return !limit || reinterpret_cast<uintptr_t>(cursor) < reinterpret_cast<uintptr_t>(limit);
}

template <typename T, Order O>
inline TOV_Status getInt(uint8_t **cursor, uint8_t *limit, T *value) {
  uint8_t *c = *cursor;
  if (!fitsFixed<sizeof(T)>(c, limit)) return TOV_ERR_BUFFER_END;
  *value = load<T, O>(c);
  *cursor = c + sizeof(T);
  return TOV_OK;
}

template <typename T, Order O> inline TOV_Status putInt(uint8_t **cursor, uint8_t *limit, T value) {
  uint8_t *c = *cursor;
  if (!fitsFixed<sizeof(T)>(c, limit)) return TOV_ERR_BUFFER_TOO_SMALL;
  store<T, O>(c, value);
  *cursor = c + sizeof(T);
  return TOV_OK;
}

// Moves the cursor to the next multiple of N from base: the get side skips
// the padding, the put side zeroes it. An aligned cursor needs no room, so it
// succeeds even at or past the limit.
template <uintptr_t N, bool Put>
inline TOV_Status align(uint8_t **cursor, uint8_t *limit, const uint8_t *base) {
  uint8_t *c = *cursor;
  const uintptr_t pad = tov::alignPad(base, c, N);
  if (pad == 0) return TOV_OK;
  if (!fits(c, limit, pad)) return Put ? TOV_ERR_BUFFER_TOO_SMALL : TOV_ERR_BUFFER_END;
  if constexpr (Put) std::memset(c, 0, pad);
  *cursor = c + pad;
  return TOV_OK;
}

// Reserves a field of W bytes for a later put through a second cursor.
template <uint64_t W> inline TOV_Status skip(uint8_t **cursor, uint8_t *limit, uint8_t **field) {
  uint8_t *c = *cursor;
  if (!fitsFixed<W>(c, limit)) return TOV_ERR_BUFFER_TOO_SMALL;
  *field = c;
  *cursor = c + W;
  return TOV_OK;
}

// Copies count 16-bit units between memory (processor order) and a buffer
// (LoHi).
inline void unitsToBuffer(uint8_t *to, const wchar_t *from, uint64_t count) {
  if constexpr (tov::buf::isNative<Order::LoHi>()) {
    std::memcpy(to, from, 2 * count);
  } else {
    for (uint64_t i = 0; i < count; ++i) store<uint16_t, Order::LoHi>(to + 2 * i, from[i]);
  }
}

inline void unitsFromBuffer(wchar_t *to, const uint8_t *from, uint64_t count) {
  if constexpr (tov::buf::isNative<Order::LoHi>()) {
    std::memcpy(to, from, 2 * count);
  } else {
    for (uint64_t i = 0; i < count; ++i) to[i] = load<uint16_t, Order::LoHi>(from + 2 * i);
  }
}

} // namespace

// ---- Reading ----------------------------------------------------------------

extern "C" TOV_Status TOV_BufGetByte(uint8_t **cursor, uint8_t *limit, uint8_t *value) noexcept {
  if (!fitsByte(*cursor, limit)) return TOV_ERR_BUFFER_END;
  *value = *(*cursor)++;
  return TOV_OK;
}

extern "C" TOV_Status TOV_BufGetData(uint8_t **cursor, uint8_t *limit, uint64_t length,
                                     void *destination) noexcept {
  uint8_t *c = *cursor;
  if (!fits(c, limit, length)) return TOV_ERR_BUFFER_END;
  std::memcpy(destination, c, length);
  *cursor = c + length;
  return TOV_OK;
}

extern "C" TOV_Status TOV_BufGetHiLo16(uint8_t **cursor, uint8_t *limit, uint16_t *value) noexcept {
  return getInt<uint16_t, Order::HiLo>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufGetHiLo32(uint8_t **cursor, uint8_t *limit, uint32_t *value) noexcept {
  return getInt<uint32_t, Order::HiLo>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufGetHiLo64(uint8_t **cursor, uint8_t *limit, uint64_t *value) noexcept {
  return getInt<uint64_t, Order::HiLo>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufGetLoHi16(uint8_t **cursor, uint8_t *limit, uint16_t *value) noexcept {
  return getInt<uint16_t, Order::LoHi>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufGetLoHi32(uint8_t **cursor, uint8_t *limit, uint32_t *value) noexcept {
  return getInt<uint32_t, Order::LoHi>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufGetLoHi64(uint8_t **cursor, uint8_t *limit, uint64_t *value) noexcept {
  return getInt<uint64_t, Order::LoHi>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufGetNatv16(uint8_t **cursor, uint8_t *limit, uint16_t *value) noexcept {
  return getInt<uint16_t, Order::Natv>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufGetNatv32(uint8_t **cursor, uint8_t *limit, uint32_t *value) noexcept {
  return getInt<uint32_t, Order::Natv>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufGetNatv64(uint8_t **cursor, uint8_t *limit, uint64_t *value) noexcept {
  return getInt<uint64_t, Order::Natv>(cursor, limit, value);
}

extern "C" TOV_Status TOV_BufGetAlign16(uint8_t **cursor, uint8_t *limit,
                                        const uint8_t *base) noexcept {
  return align<2, false>(cursor, limit, base);
}
extern "C" TOV_Status TOV_BufGetAlign32(uint8_t **cursor, uint8_t *limit,
                                        const uint8_t *base) noexcept {
  return align<4, false>(cursor, limit, base);
}
extern "C" TOV_Status TOV_BufGetAlign64(uint8_t **cursor, uint8_t *limit,
                                        const uint8_t *base) noexcept {
  return align<8, false>(cursor, limit, base);
}

// ---- Writing ----------------------------------------------------------------

extern "C" TOV_Status TOV_BufPutByte(uint8_t **cursor, uint8_t *limit, uint8_t value) noexcept {
  if (!fitsByte(*cursor, limit)) return TOV_ERR_BUFFER_TOO_SMALL;
  *(*cursor)++ = value;
  return TOV_OK;
}

extern "C" TOV_Status TOV_BufPutData(uint8_t **cursor, uint8_t *limit, uint64_t length,
                                     const void *source) noexcept {
  uint8_t *c = *cursor;
  if (!fits(c, limit, length)) return TOV_ERR_BUFFER_TOO_SMALL;
  std::memcpy(c, source, length);
  *cursor = c + length;
  return TOV_OK;
}

extern "C" TOV_Status TOV_BufPutHiLo16(uint8_t **cursor, uint8_t *limit, uint16_t value) noexcept {
  return putInt<uint16_t, Order::HiLo>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufPutHiLo32(uint8_t **cursor, uint8_t *limit, uint32_t value) noexcept {
  return putInt<uint32_t, Order::HiLo>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufPutHiLo64(uint8_t **cursor, uint8_t *limit, uint64_t value) noexcept {
  return putInt<uint64_t, Order::HiLo>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufPutLoHi16(uint8_t **cursor, uint8_t *limit, uint16_t value) noexcept {
  return putInt<uint16_t, Order::LoHi>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufPutLoHi32(uint8_t **cursor, uint8_t *limit, uint32_t value) noexcept {
  return putInt<uint32_t, Order::LoHi>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufPutLoHi64(uint8_t **cursor, uint8_t *limit, uint64_t value) noexcept {
  return putInt<uint64_t, Order::LoHi>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufPutNatv16(uint8_t **cursor, uint8_t *limit, uint16_t value) noexcept {
  return putInt<uint16_t, Order::Natv>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufPutNatv32(uint8_t **cursor, uint8_t *limit, uint32_t value) noexcept {
  return putInt<uint32_t, Order::Natv>(cursor, limit, value);
}
extern "C" TOV_Status TOV_BufPutNatv64(uint8_t **cursor, uint8_t *limit, uint64_t value) noexcept {
  return putInt<uint64_t, Order::Natv>(cursor, limit, value);
}

extern "C" TOV_Status TOV_BufPutAlign16(uint8_t **cursor, uint8_t *limit,
                                        const uint8_t *base) noexcept {
  return align<2, true>(cursor, limit, base);
}
extern "C" TOV_Status TOV_BufPutAlign32(uint8_t **cursor, uint8_t *limit,
                                        const uint8_t *base) noexcept {
  return align<4, true>(cursor, limit, base);
}
extern "C" TOV_Status TOV_BufPutAlign64(uint8_t **cursor, uint8_t *limit,
                                        const uint8_t *base) noexcept {
  return align<8, true>(cursor, limit, base);
}

// ---- Reserving --------------------------------------------------------------

extern "C" TOV_Status TOV_BufSkip8(uint8_t **cursor, uint8_t *limit, uint8_t **field) noexcept {
  return skip<1>(cursor, limit, field);
}
extern "C" TOV_Status TOV_BufSkip16(uint8_t **cursor, uint8_t *limit, uint8_t **field) noexcept {
  return skip<2>(cursor, limit, field);
}
extern "C" TOV_Status TOV_BufSkip32(uint8_t **cursor, uint8_t *limit, uint8_t **field) noexcept {
  return skip<4>(cursor, limit, field);
}
extern "C" TOV_Status TOV_BufSkip64(uint8_t **cursor, uint8_t *limit, uint8_t **field) noexcept {
  return skip<8>(cursor, limit, field);
}

// ---- Length-prefixed data and strings ---------------------------------------
// Both items are a LoHi 32-bit count of the bytes that follow, then the bytes.

extern "C" TOV_Status TOV_BufPutSizedData(uint8_t **cursor, uint8_t *limit, uint64_t length,
                                          const void *source) noexcept {
  uint8_t *c = *cursor;
  if (!fits(c, limit, 4, length)) return TOV_ERR_BUFFER_TOO_SMALL;
  store<uint32_t, Order::LoHi>(c, static_cast<uint32_t>(length));
  std::memcpy(c + 4, source, length);
  *cursor = c + 4 + length;
  return TOV_OK;
}

// The announced length goes out as soon as it is read, also when the item
// then turns out not to fit: the caller learns how much it would need.
extern "C" TOV_Status TOV_BufGetSizedData(uint8_t **cursor, uint8_t *limit, uint64_t *length,
                                          uint8_t **data) noexcept {
  uint8_t *c = *cursor;
  if (!fits(c, limit, 4)) return TOV_ERR_BUFFER_END;
  const uint64_t n = load<uint32_t, Order::LoHi>(c);
  *length = n;
  if (!fits(c, limit, 4, n)) return TOV_ERR_BUFFER_END;
  *data = c + 4;
  *cursor = c + 4 + n;
  return TOV_OK;
}

// The units and the terminator; the prefix counts their bytes.
extern "C" TOV_Status TOV_BufPutUniStr(uint8_t **cursor, uint8_t *limit,
                                       const wchar_t *string) noexcept {
  uint8_t *c = *cursor;
  uint64_t units = 1;
  while (string[units - 1] != 0) ++units;
  const uint64_t n = 2 * units;
  if (!fits(c, limit, 4, n)) return TOV_ERR_BUFFER_TOO_SMALL;
  store<uint32_t, Order::LoHi>(c, static_cast<uint32_t>(n));
  unitsToBuffer(c + 4, string, units);
  *cursor = c + 4 + n;
  return TOV_OK;
}

// Copies the item's whole units as they stand (the writer's terminator is
// among them; none is added). The destination's size is tested before the
// limit, so a caller with too small a destination learns that first.
extern "C" TOV_Status TOV_BufGetUniStr(uint8_t **cursor, uint8_t *limit, wchar_t *destination,
                                       uint64_t size) noexcept {
  uint8_t *c = *cursor;
  if (!fits(c, limit, 4)) return TOV_ERR_BUFFER_END;
  const uint64_t n = load<uint32_t, Order::LoHi>(c);
  if (n > size) return TOV_ERR_BUFFER_TOO_SMALL;
  if (!fits(c, limit, 4, n)) return TOV_ERR_BUFFER_END;
  const uint64_t units = n / 2;
  unitsFromBuffer(destination, c + 4, units);
  *cursor = c + 4 + 2 * units;
  return TOV_OK;
}
