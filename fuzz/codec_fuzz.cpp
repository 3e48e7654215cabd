// The codec over arbitrary buffers: the input fills a buffer and then
// chooses a run of calls, with their arguments, at a cursor that moves on
// through it. Every call is held against a model of the contract: which room
// test it makes, how far the cursor moves, what a get hands back and what a
// put writes; a failure leaves cursor, buffer and outputs untouched. The
// buffer and every output end where their heap block ends, and a call whose
// room tests all pass may run with no limit at all and must then do the same.
#include "fuzz.h"

#include "tov.h"

#include <algorithm>
#include <vector>

static_assert(sizeof(wchar_t) == 2, "built with 16-bit wchar_t, as on the library's platform");

using tovfuzz::kCanary;
using tovfuzz::Tail;

namespace {

constexpr size_t kMaxBuffer = 320;

struct State {
  FuzzedDataProvider &in;
  Tail buf;
  uint8_t *limit;
  uint8_t *cursor;
  std::vector<uint8_t> before; // the buffer before the last call

  // Room as the codec must count it: negative for a cursor past the limit.
  int64_t room() const { return limit - cursor; }
  // Whether head then body bytes fit; no length can wrap round and pass.
  bool fits(uint64_t head, uint64_t body = 0) const {
    return room() >= 0 && uint64_t(room()) >= head && uint64_t(room()) - head >= body;
  }
  bool unchanged() const { return std::equal(before.begin(), before.end(), buf.data()); }
  // Whether the buffer differs from before only in [at, at + n).
  bool changedOnlyIn(const uint8_t *at, size_t n) const {
    const size_t from = at - buf.data();
    return std::equal(before.begin(), before.begin() + from, buf.data()) &&
           std::equal(before.begin() + from + n, before.end(), at + n);
  }

  // Runs call(&cursor, limit) and checks its status; a failure must have
  // moved and written nothing, a success moved the cursor by `advance`.
  // When every room test passes, the limit may be left out. Returns the
  // cursor before the call on success, null on failure.
  template <typename Call>
  uint8_t *run(TOV_Status expected, uint64_t advance, bool roomTestsPass, Call call) {
    before.assign(buf.data(), buf.end());
    uint8_t *const start = cursor;
    const bool noLimit = in.ConsumeBool() && roomTestsPass;
    FUZZ_CHECK(call(&cursor, noLimit ? nullptr : limit) == expected);
    if (expected != TOV_OK) {
      FUZZ_CHECK(cursor == start);
      FUZZ_CHECK(unchanged());
      return nullptr;
    }
    FUZZ_CHECK(cursor == start + advance);
    return start;
  }
};

enum class Order { HiLo, LoHi };

// The W bytes of v in the order; the model of every integer layout.
template <typename T> std::vector<uint8_t> bytesOf(T v, Order order) {
  std::vector<uint8_t> b(sizeof(T));
  for (size_t i = 0; i < sizeof(T); ++i) {
    const size_t shift = 8 * (order == Order::HiLo ? sizeof(T) - 1 - i : i);
    b[i] = uint8_t(uint64_t(v) >> shift);
  }
  return b;
}

template <typename T> T valueOf(const uint8_t *p, Order order) {
  uint64_t v = 0;
  for (size_t i = 0; i < sizeof(T); ++i) {
    const size_t shift = 8 * (order == Order::HiLo ? sizeof(T) - 1 - i : i);
    v |= uint64_t(p[i]) << shift;
  }
  return T(v);
}

uint32_t prefixAt(const uint8_t *p) {
  return valueOf<uint32_t>(p, Order::LoHi);
}

template <typename T> using Get = TOV_Status (*)(uint8_t **, uint8_t *, T *);
template <typename T> using Put = TOV_Status (*)(uint8_t **, uint8_t *, T);

template <typename T> void getInt(State &s, Get<T> get, Order order) {
  const bool fits = s.fits(sizeof(T));
  Tail out(sizeof(T));
  uint8_t *at = s.run(fits ? TOV_OK : TOV_ERR_BUFFER_END, sizeof(T), fits,
                      [&](uint8_t **c, uint8_t *l) { return get(c, l, (T *)out.data()); });
  if (!at) {
    FUZZ_CHECK(out.all(kCanary));
    return;
  }
  FUZZ_CHECK(s.unchanged());
  T got;
  std::memcpy(&got, out.data(), sizeof got);
  FUZZ_CHECK(got == valueOf<T>(at, order));
}

template <typename T> void putInt(State &s, Put<T> put, Order order) {
  const T value = s.in.ConsumeIntegral<T>();
  const bool fits = s.fits(sizeof(T));
  uint8_t *at = s.run(fits ? TOV_OK : TOV_ERR_BUFFER_TOO_SMALL, sizeof(T), fits,
                      [&](uint8_t **c, uint8_t *l) { return put(c, l, value); });
  if (!at) return;
  FUZZ_CHECK(s.changedOnlyIn(at, sizeof(T)));
  const std::vector<uint8_t> want = bytesOf(value, order);
  FUZZ_CHECK(std::memcmp(at, want.data(), sizeof(T)) == 0);
}

template <typename T> void intPair(State &s, bool isGet, Get<T> get, Put<T> put, Order order) {
  if (isGet)
    getInt(s, get, order);
  else
    putInt(s, put, order);
}

// The base lies anywhere; only the cursor's offset from it counts.
void align(State &s, bool isGet, uint64_t n) {
  const auto *base =
      reinterpret_cast<const uint8_t *>(uintptr_t(s.buf.data()) + s.in.ConsumeIntegral<int16_t>());
  const uint64_t pad = (0 - (uintptr_t(s.cursor) - uintptr_t(base))) & (n - 1);
  const bool fits = pad == 0 || s.fits(pad);
  const TOV_Status failure = isGet ? TOV_ERR_BUFFER_END : TOV_ERR_BUFFER_TOO_SMALL;
  using Align = TOV_Status (*)(uint8_t **, uint8_t *, const uint8_t *);
  const Align gets[] = {TOV_BufGetAlign16, TOV_BufGetAlign32, TOV_BufGetAlign64};
  const Align puts[] = {TOV_BufPutAlign16, TOV_BufPutAlign32, TOV_BufPutAlign64};
  const Align call = (isGet ? gets : puts)[n == 2 ? 0 : n == 4 ? 1 : 2];
  uint8_t *at = s.run(fits ? TOV_OK : failure, pad, fits,
                      [&](uint8_t **c, uint8_t *l) { return call(c, l, base); });
  if (!at) return;
  FUZZ_CHECK(isGet ? s.unchanged() : s.changedOnlyIn(at, pad));
  FUZZ_CHECK(isGet || std::all_of(at, at + pad, [](uint8_t b) { return b == 0; }));
}

void skip(State &s, uint64_t w) {
  using Skip = TOV_Status (*)(uint8_t **, uint8_t *, uint8_t **);
  const Skip calls[] = {TOV_BufSkip8, TOV_BufSkip16, TOV_BufSkip32, TOV_BufSkip64};
  const Skip call = calls[w == 1 ? 0 : w == 2 ? 1 : w == 4 ? 2 : 3];
  const bool fits = s.fits(w);
  Tail field(sizeof(uint8_t *));
  uint8_t *at =
      s.run(fits ? TOV_OK : TOV_ERR_BUFFER_TOO_SMALL, w, fits,
            [&](uint8_t **c, uint8_t *l) { return call(c, l, (uint8_t **)field.data()); });
  if (!at) {
    FUZZ_CHECK(field.all(kCanary));
    return;
  }
  FUZZ_CHECK(s.unchanged()); // a reserved field is left as it was
  uint8_t *reserved;
  std::memcpy(&reserved, field.data(), sizeof reserved);
  FUZZ_CHECK(reserved == at);
}

// The input's next bytes into the first n bytes of t (all of it by default).
void fill(State &s, Tail &t, size_t n = SIZE_MAX) {
  const std::vector<uint8_t> bytes = s.in.ConsumeBytes<uint8_t>(std::min(n, t.size()));
  std::copy(bytes.begin(), bytes.end(), t.data());
}

// A data length: mostly about the room left, now and then any 64-bit number.
uint64_t length(State &s) {
  if (s.in.ConsumeIntegralInRange(0, 7) == 0) return s.in.ConsumeIntegral<uint64_t>();
  return s.in.ConsumeIntegralInRange<uint64_t>(0, kMaxBuffer + 8);
}

// The caller's side of a copy: exactly n bytes, or, for a length that must
// fail, a small block that a wrong success would overrun at once.
size_t sideSize(uint64_t n) {
  return n <= kMaxBuffer + 8 ? n : 16;
}

void data(State &s, bool isGet) {
  const uint64_t n = length(s);
  const bool fits = s.fits(n);
  Tail side(sideSize(n));
  if (!isGet) fill(s, side);
  const std::vector<uint8_t> source(side.data(), side.end());
  uint8_t *at = s.run(fits    ? TOV_OK
                      : isGet ? TOV_ERR_BUFFER_END
                              : TOV_ERR_BUFFER_TOO_SMALL,
                      n, fits, [&](uint8_t **c, uint8_t *l) {
                        return isGet ? TOV_BufGetData(c, l, n, side.data())
                                     : TOV_BufPutData(c, l, n, side.data());
                      });
  if (!at) {
    FUZZ_CHECK(std::equal(source.begin(), source.end(), side.data()));
    return;
  }
  FUZZ_CHECK(isGet ? s.unchanged() : s.changedOnlyIn(at, n));
  FUZZ_CHECK(std::equal(at, at + n, side.data()));
}

void putSized(State &s) {
  const uint64_t n = length(s);
  const bool fits = s.fits(4, n);
  Tail source(sideSize(n));
  fill(s, source);
  uint8_t *at =
      s.run(fits ? TOV_OK : TOV_ERR_BUFFER_TOO_SMALL, 4 + n, fits,
            [&](uint8_t **c, uint8_t *l) { return TOV_BufPutSizedData(c, l, n, source.data()); });
  if (!at) return;
  FUZZ_CHECK(s.changedOnlyIn(at, 4 + n));
  FUZZ_CHECK(prefixAt(at) == uint32_t(n));
  FUZZ_CHECK(std::equal(at + 4, at + 4 + n, source.data()));
}

// The announced length is the one output written on a failure, once the
// prefix could be read.
void getSized(State &s) {
  const bool hasPrefix = s.fits(4);
  const uint64_t n = hasPrefix ? prefixAt(s.cursor) : 0;
  const bool fits = hasPrefix && s.fits(4, n);
  Tail length(8), data(sizeof(uint8_t *));
  uint8_t *at =
      s.run(fits ? TOV_OK : TOV_ERR_BUFFER_END, 4 + n, fits, [&](uint8_t **c, uint8_t *l) {
        return TOV_BufGetSizedData(c, l, (uint64_t *)length.data(), (uint8_t **)data.data());
      });
  uint64_t gotLength;
  std::memcpy(&gotLength, length.data(), 8);
  FUZZ_CHECK(hasPrefix ? gotLength == n : length.all(kCanary));
  if (!at) {
    FUZZ_CHECK(data.all(kCanary));
    return;
  }
  FUZZ_CHECK(s.unchanged());
  uint8_t *gotData;
  std::memcpy(&gotData, data.data(), sizeof gotData);
  FUZZ_CHECK(gotData == at + 4);
}

// A string of the input's units whose terminator ends its block; a zero
// unit inside ends it earlier.
void putUni(State &s) {
  const size_t units = s.in.ConsumeIntegralInRange<size_t>(0, kMaxBuffer / 2);
  Tail string(2 * (units + 1), 0);
  fill(s, string, 2 * units);
  const auto *w = reinterpret_cast<const wchar_t *>(string.data());
  size_t k = 0;
  while (valueOf<uint16_t>(string.data() + 2 * k, Order::LoHi) != 0) ++k;
  const uint64_t n = 2 * (k + 1);
  const bool fits = s.fits(4, n);
  uint8_t *at = s.run(fits ? TOV_OK : TOV_ERR_BUFFER_TOO_SMALL, 4 + n, fits,
                      [&](uint8_t **c, uint8_t *l) { return TOV_BufPutUniStr(c, l, w); });
  if (!at) return;
  FUZZ_CHECK(s.changedOnlyIn(at, 4 + n));
  FUZZ_CHECK(prefixAt(at) == n);
  for (size_t i = 0; i <= k; ++i)
    FUZZ_CHECK(valueOf<uint16_t>(at + 4 + 2 * i, Order::LoHi) == uint16_t(w[i]));
}

// The destination's size: about the buffer's, now and then any number (the
// block then holds all a correct call can write).
void getUni(State &s) {
  const uint64_t size = s.in.ConsumeIntegralInRange(0, 7) == 0
                            ? s.in.ConsumeIntegral<uint64_t>()
                            : s.in.ConsumeIntegralInRange<uint64_t>(0, kMaxBuffer + 8);
  Tail destination(size <= kMaxBuffer + 8 ? size : kMaxBuffer + 8);
  const bool hasPrefix = s.fits(4);
  const uint64_t n = hasPrefix ? prefixAt(s.cursor) : 0;
  const TOV_Status expected = !hasPrefix      ? TOV_ERR_BUFFER_END
                              : n > size      ? TOV_ERR_BUFFER_TOO_SMALL
                              : !s.fits(4, n) ? TOV_ERR_BUFFER_END
                                              : TOV_OK;
  const uint64_t units = n / 2;
  uint8_t *at = s.run(expected, 4 + 2 * units, hasPrefix && (n > size || s.fits(4, n)),
                      [&](uint8_t **c, uint8_t *l) {
                        return TOV_BufGetUniStr(c, l, (wchar_t *)destination.data(), size);
                      });
  if (!at) {
    FUZZ_CHECK(destination.all(kCanary));
    return;
  }
  FUZZ_CHECK(s.unchanged());
  FUZZ_CHECK(std::equal(at + 4, at + 4 + 2 * units, destination.data())); // LoHi in, LoHi host
  FUZZ_CHECK(destination.all(kCanary, 2 * units));
}

// Moves the cursor anywhere in the buffer, past the limit too.
void place(State &s) {
  s.cursor = s.buf.data() + s.in.ConsumeIntegralInRange<size_t>(0, s.buf.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size) {
  FuzzedDataProvider in(input, size);
  const size_t n = in.ConsumeIntegralInRange<size_t>(0, kMaxBuffer);
  // The limit is mostly the buffer's end; otherwise a point inside it, so
  // that the cursor can stand past it.
  const size_t limit =
      in.ConsumeIntegralInRange(0, 3) ? n : in.ConsumeIntegralInRange<size_t>(0, n);
  State s{in, Tail(n, 0), nullptr, nullptr, {}};
  fill(s, s.buf);
  s.limit = s.buf.data() + limit;
  s.cursor = s.buf.data() + in.ConsumeIntegralInRange<size_t>(0, n);

  for (int calls = 0; calls < 64 && in.remaining_bytes() > 0; ++calls) {
    const bool get = in.ConsumeBool();
    switch (in.ConsumeIntegralInRange(0, 17)) {
    case 0:
      intPair<uint8_t>(s, get, TOV_BufGetByte, TOV_BufPutByte, Order::HiLo);
      break;
    case 1:
      intPair<uint16_t>(s, get, TOV_BufGetHiLo16, TOV_BufPutHiLo16, Order::HiLo);
      break;
    case 2:
      intPair<uint32_t>(s, get, TOV_BufGetHiLo32, TOV_BufPutHiLo32, Order::HiLo);
      break;
    case 3:
      intPair<uint64_t>(s, get, TOV_BufGetHiLo64, TOV_BufPutHiLo64, Order::HiLo);
      break;
    case 4:
      intPair<uint16_t>(s, get, TOV_BufGetLoHi16, TOV_BufPutLoHi16, Order::LoHi);
      break;
    case 5:
      intPair<uint32_t>(s, get, TOV_BufGetLoHi32, TOV_BufPutLoHi32, Order::LoHi);
      break;
    case 6:
      intPair<uint64_t>(s, get, TOV_BufGetLoHi64, TOV_BufPutLoHi64, Order::LoHi);
      break;
    // The processor's order is LoHi on every processor the library runs on.
    case 7:
      intPair<uint16_t>(s, get, TOV_BufGetNatv16, TOV_BufPutNatv16, Order::LoHi);
      break;
    case 8:
      intPair<uint32_t>(s, get, TOV_BufGetNatv32, TOV_BufPutNatv32, Order::LoHi);
      break;
    case 9:
      intPair<uint64_t>(s, get, TOV_BufGetNatv64, TOV_BufPutNatv64, Order::LoHi);
      break;
    case 10:
      align(s, get, uint64_t{2} << in.ConsumeIntegralInRange(0, 2));
      break;
    case 11:
      skip(s, uint64_t{1} << in.ConsumeIntegralInRange(0, 3));
      break;
    case 12:
      data(s, get);
      break;
    case 13:
      get ? getSized(s) : putSized(s);
      break;
    case 14:
      get ? getUni(s) : putUni(s);
      break;
    default:
      place(s);
      break;
    }
  }
  return 0;
}
