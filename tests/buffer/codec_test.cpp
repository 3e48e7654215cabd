// Cursor, room tests, integer codecs, alignment and reserved fields. No test
// here starts the library: the codec works whatever the start-up count is.
#include "guarded.h"

#include <gtest/gtest.h>

#include <tov.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

using codectest::Guarded;
using codectest::kFill;
using Bytes = std::vector<uint8_t>;

namespace {

// Everything a call can hand back, preset to a pattern no call produces, so
// that a failing call can be shown to have written none of it.
struct Outputs {
  uint8_t u8;
  uint16_t u16;
  uint32_t u32;
  uint64_t u64;
  uint8_t *field;
  uint8_t data[8];
};

Outputs untouched() {
  Outputs o;
  std::memset(&o, 0x5A, sizeof o);
  return o;
}

bool same(const Outputs &a, const Outputs &b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

const uint8_t kSource[8] = {1, 2, 3, 4, 5, 6, 7, 8};
const wchar_t kOneUnit[] = L"A";

using Call = TOV_Status (*)(uint8_t **cursor, uint8_t *limit, Outputs &out);

// One call of fixed size: `need` bytes of room, failing with `failure`.
struct FixedOp {
  const char *name;
  uint64_t need;
  TOV_Status failure;
  Call call;
};

constexpr TOV_Status kEnd = TOV_ERR_BUFFER_END;
constexpr TOV_Status kSmall = TOV_ERR_BUFFER_TOO_SMALL;

#define OP(name, need, failure, expr)                                                              \
  FixedOp {                                                                                        \
    name, need, failure, [](uint8_t **c, uint8_t *l, Outputs &o) -> TOV_Status {                   \
      (void)o;                                                                                     \
      return expr;                                                                                 \
    }                                                                                              \
  }

const FixedOp kFixedOps[] = {
    OP("GetByte", 1, kEnd, TOV_BufGetByte(c, l, &o.u8)),
    OP("GetData 0", 0, kEnd, TOV_BufGetData(c, l, 0, o.data)),
    OP("GetData 5", 5, kEnd, TOV_BufGetData(c, l, 5, o.data)),
    OP("GetHiLo16", 2, kEnd, TOV_BufGetHiLo16(c, l, &o.u16)),
    OP("GetHiLo32", 4, kEnd, TOV_BufGetHiLo32(c, l, &o.u32)),
    OP("GetHiLo64", 8, kEnd, TOV_BufGetHiLo64(c, l, &o.u64)),
    OP("GetLoHi16", 2, kEnd, TOV_BufGetLoHi16(c, l, &o.u16)),
    OP("GetLoHi32", 4, kEnd, TOV_BufGetLoHi32(c, l, &o.u32)),
    OP("GetLoHi64", 8, kEnd, TOV_BufGetLoHi64(c, l, &o.u64)),
    OP("GetNatv16", 2, kEnd, TOV_BufGetNatv16(c, l, &o.u16)),
    OP("GetNatv32", 4, kEnd, TOV_BufGetNatv32(c, l, &o.u32)),
    OP("GetNatv64", 8, kEnd, TOV_BufGetNatv64(c, l, &o.u64)),
    OP("PutByte", 1, kSmall, TOV_BufPutByte(c, l, 0x11)),
    OP("PutData 0", 0, kSmall, TOV_BufPutData(c, l, 0, kSource)),
    OP("PutData 5", 5, kSmall, TOV_BufPutData(c, l, 5, kSource)),
    OP("PutHiLo16", 2, kSmall, TOV_BufPutHiLo16(c, l, 0x1122)),
    OP("PutHiLo32", 4, kSmall, TOV_BufPutHiLo32(c, l, 0x11223344)),
    OP("PutHiLo64", 8, kSmall, TOV_BufPutHiLo64(c, l, 0x1122334455667788)),
    OP("PutLoHi16", 2, kSmall, TOV_BufPutLoHi16(c, l, 0x1122)),
    OP("PutLoHi32", 4, kSmall, TOV_BufPutLoHi32(c, l, 0x11223344)),
    OP("PutLoHi64", 8, kSmall, TOV_BufPutLoHi64(c, l, 0x1122334455667788)),
    OP("PutNatv16", 2, kSmall, TOV_BufPutNatv16(c, l, 0x1122)),
    OP("PutNatv32", 4, kSmall, TOV_BufPutNatv32(c, l, 0x11223344)),
    OP("PutNatv64", 8, kSmall, TOV_BufPutNatv64(c, l, 0x1122334455667788)),
    OP("Skip8", 1, kSmall, TOV_BufSkip8(c, l, &o.field)),
    OP("Skip16", 2, kSmall, TOV_BufSkip16(c, l, &o.field)),
    OP("Skip32", 4, kSmall, TOV_BufSkip32(c, l, &o.field)),
    OP("Skip64", 8, kSmall, TOV_BufSkip64(c, l, &o.field)),
    OP("PutSizedData 3", 7, kSmall, TOV_BufPutSizedData(c, l, 3, kSource)),
    OP("PutUniStr A", 8, kSmall, TOV_BufPutUniStr(c, l, kOneUnit)),
};

const FixedOp &fixedOp(const char *name) {
  for (const FixedOp &op : kFixedOps)
    if (std::strcmp(op.name, name) == 0) return op;
  std::abort();
}

// Runs op with the cursor at start and the given limit, and checks that it
// failed with its code having changed nothing: cursor, buffer, outputs.
void expectRefused(const FixedOp &op, Guarded &g, uint8_t *start, uint8_t *limit) {
  const Bytes before = g.all();
  const Outputs clean = untouched();
  Outputs out = clean;
  uint8_t *cursor = start;
  EXPECT_EQ(op.failure, op.call(&cursor, limit, out));
  EXPECT_EQ(start, cursor);
  EXPECT_EQ(before, g.all());
  EXPECT_TRUE(same(clean, out));
}

} // namespace

// The invariant every caller relies on: one byte short, nothing happens;
// exactly enough room, the cursor lands on the limit.
TEST(BufRoom, EveryFixedSizeCallFailsOneByteShortAndFitsExactly) {
  for (const FixedOp &op : kFixedOps) {
    SCOPED_TRACE(op.name);
    if (op.need > 0) {
      Guarded shortOne(op.need - 1);
      expectRefused(op, shortOne, shortOne.begin(), shortOne.limit());
    }
    Guarded exact(op.need);
    Outputs out = untouched();
    uint8_t *cursor = exact.begin();
    EXPECT_EQ(TOV_OK, op.call(&cursor, exact.limit(), out));
    EXPECT_EQ(exact.limit(), cursor);
    // The next byte in either direction is refused at the limit.
    if (op.need > 0) {
      expectRefused(fixedOp("GetByte"), exact, cursor, exact.limit());
      expectRefused(fixedOp("PutByte"), exact, cursor, exact.limit());
    }
  }
}

TEST(BufRoom, CursorPastTheLimitFailsEveryCallEvenForZeroBytes) {
  for (const FixedOp &op : kFixedOps) {
    SCOPED_TRACE(op.name);
    Guarded g(16);
    expectRefused(op, g, g.begin() + 1, g.begin());
    expectRefused(op, g, g.begin() + 16, g.begin() + 8);
  }
}

TEST(BufRoom, NullLimitTestsNothing) {
  for (const FixedOp &op : kFixedOps) {
    SCOPED_TRACE(op.name);
    Guarded g(16);
    Outputs out = untouched();
    uint8_t *cursor = g.begin();
    EXPECT_EQ(TOV_OK, op.call(&cursor, nullptr, out));
    EXPECT_EQ(g.begin() + op.need, cursor);
  }
}

// Lengths chosen so that cursor + length wraps round to an address inside
// the buffer, or to 0, or just past 2^63: a test written as a sum passes them.
TEST(BufRoom, HugeLengthsNeverWrapRoundTheRoomTest) {
  Guarded g(64);
  uint8_t *start = g.begin() + 8;
  const uint64_t here = reinterpret_cast<uintptr_t>(start);
  const uint64_t lengths[] = {
      std::numeric_limits<uint64_t>::max(),     // cursor + length == cursor - 1
      std::numeric_limits<uint64_t>::max() - 3, // cursor - 4, inside the buffer
      uint64_t{1} << 63,
      0 - here,      // cursor + length == 0
      0 - here + 16, // cursor + length == 16, below any buffer
      uint64_t{57},  // one byte more than the room
  };
  const Bytes before = g.all();
  uint8_t sink[8];
  for (uint64_t length : lengths) {
    SCOPED_TRACE(length);
    uint8_t *cursor = start;
    EXPECT_EQ(TOV_ERR_BUFFER_END, TOV_BufGetData(&cursor, g.limit(), length, sink));
    EXPECT_EQ(TOV_ERR_BUFFER_TOO_SMALL, TOV_BufPutData(&cursor, g.limit(), length, kSource));
    EXPECT_EQ(TOV_ERR_BUFFER_TOO_SMALL, TOV_BufPutSizedData(&cursor, g.limit(), length, kSource));
    // Prefix and item together sum to the lengths above.
    EXPECT_EQ(TOV_ERR_BUFFER_TOO_SMALL,
              TOV_BufPutSizedData(&cursor, g.limit(), length - 4, kSource));
    EXPECT_EQ(start, cursor);
  }
  EXPECT_EQ(before, g.all());
}

// ---- Integer codecs ---------------------------------------------------------

namespace {

enum class Order { HiLo, LoHi };

struct IntCodec {
  const char *name;
  int width;
  Order order;
  TOV_Status (*put)(uint8_t **, uint8_t *, uint64_t);
  TOV_Status (*get)(uint8_t **, uint8_t *, uint64_t *);
};

#define INT_CODEC(ord, bits, layout)                                                               \
  IntCodec {                                                                                       \
#ord #bits, bits / 8, Order::layout,                                                           \
        [](uint8_t **c, uint8_t *l, uint64_t v) {                                                  \
          return TOV_BufPut##ord##bits(c, l, static_cast<uint##bits##_t>(v));                      \
        },                                                                                         \
        [](uint8_t **c, uint8_t *l, uint64_t *v) {                                                 \
          uint##bits##_t x = 0;                                                                    \
          const TOV_Status s = TOV_BufGet##ord##bits(c, l, &x);                                    \
          *v = x;                                                                                  \
          return s;                                                                                \
        }   \
  }

// Natv is the processor's order, least significant byte first here.
const IntCodec kIntCodecs[] = {
    INT_CODEC(HiLo, 16, HiLo), INT_CODEC(HiLo, 32, HiLo), INT_CODEC(HiLo, 64, HiLo),
    INT_CODEC(LoHi, 16, LoHi), INT_CODEC(LoHi, 32, LoHi), INT_CODEC(LoHi, 64, LoHi),
    INT_CODEC(Natv, 16, LoHi), INT_CODEC(Natv, 32, LoHi), INT_CODEC(Natv, 64, LoHi),
};

Bytes layout(uint64_t v, int width, Order order) {
  Bytes b(width);
  for (int i = 0; i < width; ++i) {
    const int shift = 8 * (order == Order::HiLo ? width - 1 - i : i);
    b[i] = static_cast<uint8_t>(v >> shift);
  }
  return b;
}

} // namespace

TEST(BufIntegers, PutWritesTheOrderAndGetReadsItBackAtAnyAlignment) {
  const uint64_t values[] = {
      0, 1, 0x0123456789ABCDEF, 0x8000000000000080, ~uint64_t{0}, 0xFEDCBA9876543210};
  for (const IntCodec &codec : kIntCodecs) {
    for (uint64_t value : values) {
      for (size_t offset : {size_t{0}, size_t{1}, size_t{3}}) {
        SCOPED_TRACE(testing::Message()
                     << codec.name << " " << std::hex << value << " @" << offset);
        Guarded g(offset + codec.width);
        uint8_t *cursor = g.begin() + offset;
        ASSERT_EQ(TOV_OK, codec.put(&cursor, g.limit(), value));
        EXPECT_EQ(g.limit(), cursor);
        EXPECT_EQ(layout(value, codec.width, codec.order), g.bytes(offset, codec.width));
        EXPECT_EQ(Bytes(offset, kFill), g.bytes(0, offset));

        uint64_t back = 0;
        cursor = g.begin() + offset;
        ASSERT_EQ(TOV_OK, codec.get(&cursor, g.limit(), &back));
        EXPECT_EQ(g.limit(), cursor);
        const uint64_t mask =
            codec.width == 8 ? ~uint64_t{0} : (uint64_t{1} << 8 * codec.width) - 1;
        EXPECT_EQ(value & mask, back);
      }
    }
  }
}

// ---- Alignment --------------------------------------------------------------

namespace {

struct AlignFns {
  int n;
  TOV_Status (*get)(uint8_t **, uint8_t *, const uint8_t *);
  TOV_Status (*put)(uint8_t **, uint8_t *, const uint8_t *);
};

const AlignFns kAligns[] = {
    {2, [](uint8_t **c, uint8_t *l, const uint8_t *b) { return TOV_BufGetAlign16(c, l, b); },
     [](uint8_t **c, uint8_t *l, const uint8_t *b) { return TOV_BufPutAlign16(c, l, b); }},
    {4, [](uint8_t **c, uint8_t *l, const uint8_t *b) { return TOV_BufGetAlign32(c, l, b); },
     [](uint8_t **c, uint8_t *l, const uint8_t *b) { return TOV_BufPutAlign32(c, l, b); }},
    {8, [](uint8_t **c, uint8_t *l, const uint8_t *b) { return TOV_BufGetAlign64(c, l, b); },
     [](uint8_t **c, uint8_t *l, const uint8_t *b) { return TOV_BufPutAlign64(c, l, b); }},
};

const AlignFns &alignTo(int n) {
  return kAligns[n == 2 ? 0 : n == 4 ? 1 : 2];
}

} // namespace

// Offsets are cursor - base; negative ones put the cursor before the base.
TEST(BufAlign, PadsToTheBoundaryMeasuredFromTheBase) {
  struct Case {
    int n;
    int offset;
    size_t pad;
  } const cases[] = {
      {2, 5, 1}, {4, 5, 3}, {8, 5, 3}, {2, 8, 0},  {4, 8, 0},  {8, 8, 0},  {8, 1, 7},
      {8, 7, 1}, {4, 6, 2}, {2, 0, 0}, {4, -3, 3}, {8, -3, 3}, {2, -3, 1}, {8, -12, 4},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(testing::Message() << "align " << c.n << " offset " << c.offset);
    // The buffer starts at the cursor; the base may lie outside it.
    Guarded g(c.pad);
    uint8_t *start = g.begin();
    const uint8_t *base = start - c.offset;

    uint8_t *cursor = start;
    ASSERT_EQ(TOV_OK, alignTo(c.n).get(&cursor, g.limit(), base));
    EXPECT_EQ(start + c.pad, cursor);
    EXPECT_EQ(Bytes(c.pad, kFill), g.bytes(0, c.pad)); // skipped, not read or written

    cursor = start;
    ASSERT_EQ(TOV_OK, alignTo(c.n).put(&cursor, g.limit(), base));
    EXPECT_EQ(start + c.pad, cursor);
    EXPECT_EQ(Bytes(c.pad, 0), g.bytes(0, c.pad));
    EXPECT_TRUE(g.guardsIntact());
  }
}

TEST(BufAlign, PaddingNeedsRoomButAnAlignedCursorNeedsNone) {
  for (const AlignFns &a : kAligns) {
    SCOPED_TRACE(a.n);
    Guarded g(16);
    uint8_t *base = g.begin();
    const Bytes before = g.all();

    // Cursor at base + 1 (pad n - 1) with one byte too few for the padding.
    uint8_t *cursor = base + 1;
    uint8_t *limit = base + a.n - 1;
    EXPECT_EQ(TOV_ERR_BUFFER_END, a.get(&cursor, limit, base));
    EXPECT_EQ(TOV_ERR_BUFFER_TOO_SMALL, a.put(&cursor, limit, base));
    EXPECT_EQ(base + 1, cursor);
    // Cursor past the limit, padding needed.
    EXPECT_EQ(TOV_ERR_BUFFER_END, a.get(&cursor, base, base));
    EXPECT_EQ(TOV_ERR_BUFFER_TOO_SMALL, a.put(&cursor, base, base));
    EXPECT_EQ(base + 1, cursor);
    EXPECT_EQ(before, g.all());

    // Aligned at the limit, and aligned beyond it: success, nothing moves.
    cursor = base + 8;
    for (uint8_t *lim : {base + 8, base + 4}) {
      EXPECT_EQ(TOV_OK, a.get(&cursor, lim, base));
      EXPECT_EQ(TOV_OK, a.put(&cursor, lim, base));
      EXPECT_EQ(base + 8, cursor);
    }
    EXPECT_EQ(before, g.all());

    // A null limit pads without a test.
    cursor = base + 1;
    EXPECT_EQ(TOV_OK, a.put(&cursor, nullptr, base));
    EXPECT_EQ(base + a.n, cursor);
  }
}

// ---- Reserved fields --------------------------------------------------------

TEST(BufSkip, ReservesUnwrittenFieldsForALaterPut) {
  struct Case {
    const char *name;
    size_t width;
    TOV_Status (*skip)(uint8_t **, uint8_t *, uint8_t **);
  } const cases[] = {
      {"Skip8", 1, [](uint8_t **c, uint8_t *l, uint8_t **f) { return TOV_BufSkip8(c, l, f); }},
      {"Skip16", 2, [](uint8_t **c, uint8_t *l, uint8_t **f) { return TOV_BufSkip16(c, l, f); }},
      {"Skip32", 4, [](uint8_t **c, uint8_t *l, uint8_t **f) { return TOV_BufSkip32(c, l, f); }},
      {"Skip64", 8, [](uint8_t **c, uint8_t *l, uint8_t **f) { return TOV_BufSkip64(c, l, f); }},
  };
  for (const Case &c : cases) {
    SCOPED_TRACE(c.name);
    Guarded g(3 + c.width);
    uint8_t *cursor = g.begin() + 3;
    uint8_t *field = nullptr;
    ASSERT_EQ(TOV_OK, c.skip(&cursor, g.limit(), &field));
    EXPECT_EQ(g.begin() + 3, field);
    EXPECT_EQ(g.limit(), cursor);
    EXPECT_EQ(Bytes(3 + c.width, kFill), g.bytes(0, 3 + c.width));
  }
}

// A record of every kind of field, as a caller would lay it out, with a
// length reserved up front and filled in at the end through a second cursor,
// read back field by field to exactly its end.
TEST(BufRecord, MixedRecordReadsBackFieldByField) {
  uint8_t buf[96];
  std::memset(buf, kFill, sizeof buf);
  uint8_t *const limit = buf + sizeof buf;
  uint8_t *c = buf;
  uint8_t *lengthField = nullptr;
  ASSERT_EQ(TOV_OK, TOV_BufPutByte(&c, limit, 7));
  ASSERT_EQ(TOV_OK, TOV_BufPutAlign32(&c, limit, buf));
  ASSERT_EQ(TOV_OK, TOV_BufSkip32(&c, limit, &lengthField));
  ASSERT_EQ(TOV_OK, TOV_BufPutHiLo16(&c, limit, 0xBEEF));
  ASSERT_EQ(TOV_OK, TOV_BufPutData(&c, limit, 3, kSource + 4));
  ASSERT_EQ(TOV_OK, TOV_BufPutLoHi64(&c, limit, 0x0102030405060708));
  ASSERT_EQ(TOV_OK, TOV_BufPutNatv32(&c, limit, 0xCAFEF00D));
  ASSERT_EQ(TOV_OK, TOV_BufPutAlign64(&c, limit, buf));
  ASSERT_EQ(TOV_OK, TOV_BufPutSizedData(&c, limit, 3, kSource));
  ASSERT_EQ(TOV_OK, TOV_BufPutUniStr(&c, limit, L"hi"));
  uint8_t *const end = c;
  const uint32_t total = static_cast<uint32_t>(end - buf);
  ASSERT_EQ(49u, total); // 1, 3 pad, 4, 2, 3, 8, 4, 7 pad, 4 + 3, 4 + 6
  uint8_t *fill = lengthField;
  ASSERT_EQ(TOV_OK, TOV_BufPutHiLo32(&fill, limit, total));
  EXPECT_EQ(lengthField + 4, fill);
  EXPECT_EQ(end, c);

  uint8_t byte = 0;
  uint16_t u16 = 0;
  uint32_t length = 0, u32 = 0;
  uint64_t u64 = 0, dataLength = 0;
  uint8_t *data = nullptr, raw[3] = {};
  wchar_t text[8] = {};
  c = buf;
  ASSERT_EQ(TOV_OK, TOV_BufGetByte(&c, end, &byte));
  ASSERT_EQ(TOV_OK, TOV_BufGetAlign32(&c, end, buf));
  ASSERT_EQ(TOV_OK, TOV_BufGetHiLo32(&c, end, &length));
  ASSERT_EQ(TOV_OK, TOV_BufGetHiLo16(&c, end, &u16));
  ASSERT_EQ(TOV_OK, TOV_BufGetData(&c, end, 3, raw));
  ASSERT_EQ(TOV_OK, TOV_BufGetLoHi64(&c, end, &u64));
  ASSERT_EQ(TOV_OK, TOV_BufGetNatv32(&c, end, &u32));
  ASSERT_EQ(TOV_OK, TOV_BufGetAlign64(&c, end, buf));
  ASSERT_EQ(TOV_OK, TOV_BufGetSizedData(&c, end, &dataLength, &data));
  ASSERT_EQ(TOV_OK, TOV_BufGetUniStr(&c, end, text, sizeof text));
  EXPECT_EQ(end, c);
  EXPECT_EQ(7, byte);
  EXPECT_EQ(total, length);
  EXPECT_EQ(0xBEEF, u16);
  EXPECT_EQ(Bytes({5, 6, 7}), Bytes(raw, raw + 3));
  EXPECT_EQ(0x0102030405060708u, u64);
  EXPECT_EQ(0xCAFEF00Du, u32);
  EXPECT_EQ(3u, dataLength);
  EXPECT_EQ(Bytes(kSource, kSource + 3), Bytes(data, data + 3));
  EXPECT_STREQ(L"hi", text);
  EXPECT_EQ(TOV_ERR_BUFFER_END, TOV_BufGetByte(&c, end, &byte));
}
