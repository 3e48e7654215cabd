// The byte codec: cursor and room tests, integers, alignment, reserved fields,
// sized data and strings, as known answers of the wire layouts. Arbitrary
// cursors, limits and lengths (wrapping ones too) and the prefixed items'
// failures are the fuzz target's (fuzz/codec_fuzz.cpp). No test starts the
// library: the codec needs none.
#include <gtest/gtest.h>

#include <tov.h>

#include <cstring>
#include <tuple>
#include <vector>

using Bytes = std::vector<uint8_t>;
using P = uint8_t *;

constexpr TOV_Status kEnd = TOV_ERR_BUFFER_END, kSmall = TOV_ERR_BUFFER_TOO_SMALL;
constexpr uint64_t kV = 0x0123456789ABCDEF, kUnset = 0x5A5A5A5A5A5A5A5A;
const uint8_t kSrc[8] = {1, 2, 3, 4, 5, 6, 7, 8};
// Units travel as they are: a surrogate pair and a lone surrogate alike.
const wchar_t kA[] = L"A", kEmpty[] = L"", kUnits[] = L"\u00e9\xD83D\xDE00\xDC00";

// n bytes (starting with `in`) between guards of 0xA5. The odd guard size puts
// every cursor at an odd address, so no call may rely on alignment.
struct G {
  Bytes all;
  G(size_t n, const Bytes &in = {}) : all(n + 34, 0xA5) { memcpy(begin(), in.data(), in.size()); }
  P begin() { return all.data() + 17; }
  P limit() { return all.data() + all.size() - 17; }
};

// kV's low bits / 8 bytes, most (hi) or least significant first.
Bytes lay(size_t bits, bool hi) {
  Bytes b(bits / 8);
  for (size_t i = 0, n = b.size(); i < n; ++i) b[i] = uint8_t(kV >> 8 * (hi ? n - 1 - i : i));
  return b;
}

// A call of fixed size: the bytes a put writes or a get reads, and what a get
// hands back at o (a skip, its field). Gets fail with kEnd, puts and skips
// with kSmall.
using Op = std::tuple<const char *, Bytes, Bytes, TOV_Status (*)(P *c, P l, P o)>;
#define OP(n, w, g, e) Op(n, w, g, [](P *c, P l, [[maybe_unused]] P o) { return e; })
#define INT(ord, b, hi)                                                                            \
  OP("Get" #ord #b, lay(b, hi), lay(b, 0), TOV_BufGet##ord##b(c, l, (uint##b##_t *)o)),            \
      OP("Put" #ord #b, lay(b, hi), {}, TOV_BufPut##ord##b(c, l, uint##b##_t(kV)))
#define INTS(ord, hi) INT(ord, 16, hi), INT(ord, 32, hi), INT(ord, 64, hi)
#define SKIP(b) OP("Skip" #b, Bytes(b / 8, 0xA5), {}, TOV_BufSkip##b(c, l, (P *)o))
// The base lies `off` bytes behind the cursor: `pad` zero bytes to the boundary.
#define ALIGN(b, off, pad)                                                                         \
  OP("GetAlign" #b " " #off, Bytes(pad, 0), {}, TOV_BufGetAlign##b(c, l, *c - off)),               \
      OP("PutAlign" #b " " #off, Bytes(pad, 0), {}, TOV_BufPutAlign##b(c, l, *c - off))
#define DATA(n)                                                                                    \
  OP("GetData " #n, Bytes(kSrc, kSrc + n), Bytes(kSrc, kSrc + n), TOV_BufGetData(c, l, n, o)),     \
      OP("PutData " #n, Bytes(kSrc, kSrc + n), {}, TOV_BufPutData(c, l, n, kSrc))
// A string's units after a prefix counting their bytes; the get reads them
// into a destination of exactly their size.
#define UNI(s, ...)                                                                                \
  OP("PutUniStr " #s, Bytes({sizeof(s), 0, 0, 0, __VA_ARGS__}), {}, TOV_BufPutUniStr(c, l, s)),    \
      OP("GetUniStr " #s, Bytes({sizeof(s), 0, 0, 0, __VA_ARGS__}), Bytes({__VA_ARGS__}),          \
         TOV_BufGetUniStr(c, l, (wchar_t *)o, sizeof(s)))

// Natv is the processor's order: LoHi here.
const std::vector<Op> kOps[] = {
    {INTS(HiLo, true), INTS(LoHi, false), INTS(Natv, false), SKIP(8), SKIP(16), SKIP(32), SKIP(64)},
    {OP("GetByte", lay(8, 0), lay(8, 0), TOV_BufGetByte(c, l, o)),
     OP("PutByte", lay(8, 0), {}, TOV_BufPutByte(c, l, uint8_t(kV))), DATA(0), DATA(5)},
    {ALIGN(16, 1, 1), ALIGN(32, 1, 3), ALIGN(64, 1, 7), ALIGN(32, 5, 3), ALIGN(64, 6, 2)},
    {ALIGN(16, -3, 1), ALIGN(32, -3, 3), ALIGN(64, -12, 4), UNI(kEmpty, 0, 0),
     OP("PutSizedData", Bytes({3, 0, 0, 0, 1, 2, 3}), {}, TOV_BufPutSizedData(c, l, 3, kSrc)),
     OP("PutSizedData 0", Bytes({0, 0, 0, 0}), {}, TOV_BufPutSizedData(c, l, 0, kSrc))},
    {UNI(kA, 0x41, 0, 0, 0), UNI(kUnits, 0xE9, 0, 0x3D, 0xD8, 0, 0xDE, 0, 0xDC, 0, 0)}};

// Every fixed-size call against the room test. One byte short, and with the
// cursor past the limit (even for no bytes), it fails with its side's status
// and moves, writes and hands back nothing. With exactly enough room, and with
// a null limit (no test at all), it writes or reads the wire bytes and nothing
// else, and the cursor moves past them.
TEST(Buf, EveryFixedSizeCallKeepsTheRoomContract) {
  for (const auto &group : kOps)
    for (const auto &[name, wire, got, call] : group) {
      const int n = int(wire.size());
      const TOV_Status fail = name[0] == 'G' ? kEnd : kSmall;
      const Bytes pre = fail == kEnd ? wire : Bytes(); // a get finds its wire there
      // Buffer size, cursor and limit (99: null) offsets, status.
      const std::tuple<int, int, int, TOV_Status> runs[] = {
          {n, 0, n - 1, fail}, {16, 1, 0, fail}, {n, 0, n, TOV_OK}, {16, 0, 99, TOV_OK}};
      for (const auto &[size, from, to, status] : runs) {
        SCOPED_TRACE(testing::Message() << name << " " << size << "," << from << "," << to);
        G g(size, pre);
        uint64_t o[2] = {kUnset, kUnset};
        P c = g.begin() + from, start = c;
        EXPECT_EQ(status, call(&c, to == 99 ? nullptr : g.begin() + to, (P)o));
        EXPECT_EQ(status ? start : g.begin() + n, c);
        EXPECT_EQ(G(size, status ? pre : wire).all, g.all);
        Bytes out = status ? Bytes() : name[0] == 'S' ? Bytes((P)&start, (P)(&start + 1)) : got;
        out.resize(16, 0x5A);
        EXPECT_EQ(out, Bytes((P)o, (P)o + 16));
        // Reserve-then-fill: the skipped field is filled later through a second cursor.
        if (status || name[0] != 'S') continue;
        EXPECT_EQ(TOV_OK, TOV_BufPutData(&start, c, n, kSrc));
        EXPECT_EQ(G(size, Bytes(kSrc, kSrc + n)).all, g.all);
      }
    }
}

// A limit at the top of the address space leaves room for all below it: the
// one-byte calls compare cursor and limit as addresses, as the data calls do.
TEST(Buf, LimitAtTheTopOfTheAddressSpace) {
  G g(2, {0x5A});
  P c = g.begin(), top = P(~uintptr_t{0});
  uint8_t got = 0;
  EXPECT_EQ(TOV_OK, TOV_BufGetByte(&c, top, &got));
  EXPECT_EQ(TOV_OK, TOV_BufPutByte(&c, top, 0x77));
  EXPECT_EQ(TOV_OK, TOV_BufGetData(&c, top, 0, &got));
  EXPECT_EQ(std::make_tuple(c, got), std::make_tuple(g.begin() + 2, uint8_t{0x5A}));
  EXPECT_EQ(G(2, {0x5A, 0x77}).all, g.all);
}
