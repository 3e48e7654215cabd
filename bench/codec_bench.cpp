// The codec against a hand-written byte loop doing the same work on a record
// of mixed fields, and one field put or get against an exported call that
// does nothing.
#include "bench.h"

#include <tov.h>

#include <cstdio>
#include <cstring>

extern "C" __declspec(dllimport) int32_t EmptyPut(uint8_t **cursor, uint8_t *limit, uint32_t value);

namespace {

const uint8_t kBlob[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
const wchar_t kName[] = L"record-name";
constexpr size_t kNameUnits = sizeof kName / sizeof kName[0]; // terminator included

// 2 + 4 + 8 in three orders, then 4 + 16 sized data, then 4 + 24 string.
constexpr size_t kRecordSize = 3 * 14 + 20 + 4 + 2 * kNameUnits;

uint8_t gBuffer[256];

void encodeCodec(uint64_t i) {
  uint8_t *c = gBuffer;
  uint8_t *const limit = gBuffer + sizeof gBuffer;
  TOV_BufPutHiLo16(&c, limit, static_cast<uint16_t>(i));
  TOV_BufPutHiLo32(&c, limit, static_cast<uint32_t>(i));
  TOV_BufPutHiLo64(&c, limit, i);
  TOV_BufPutLoHi16(&c, limit, static_cast<uint16_t>(i));
  TOV_BufPutLoHi32(&c, limit, static_cast<uint32_t>(i));
  TOV_BufPutLoHi64(&c, limit, i);
  TOV_BufPutNatv16(&c, limit, static_cast<uint16_t>(i));
  TOV_BufPutNatv32(&c, limit, static_cast<uint32_t>(i));
  TOV_BufPutNatv64(&c, limit, i);
  TOV_BufPutSizedData(&c, limit, sizeof kBlob, kBlob);
  TOV_BufPutUniStr(&c, limit, kName);
  bench::keep(c);
}

template <int W> inline uint8_t *putHiLo(uint8_t *p, uint64_t v) {
  for (int b = 0; b < W; ++b) p[b] = static_cast<uint8_t>(v >> 8 * (W - 1 - b));
  return p + W;
}
template <int W> inline uint8_t *putLoHi(uint8_t *p, uint64_t v) {
  for (int b = 0; b < W; ++b) p[b] = static_cast<uint8_t>(v >> 8 * b);
  return p + W;
}
template <int W> inline uint8_t *getHiLo(uint8_t *p, uint64_t &v) {
  v = 0;
  for (int b = 0; b < W; ++b) v = v << 8 | p[b];
  return p + W;
}
template <int W> inline uint8_t *getLoHi(uint8_t *p, uint64_t &v) {
  v = 0;
  for (int b = W - 1; b >= 0; --b) v = v << 8 | p[b];
  return p + W;
}

void encodeByHand(uint64_t i) {
  uint8_t *p = gBuffer;
  if (kRecordSize > sizeof gBuffer) return;
  p = putHiLo<2>(p, i), p = putHiLo<4>(p, i), p = putHiLo<8>(p, i);
  p = putLoHi<2>(p, i), p = putLoHi<4>(p, i), p = putLoHi<8>(p, i);
  p = putLoHi<2>(p, i), p = putLoHi<4>(p, i), p = putLoHi<8>(p, i);
  p = putLoHi<4>(p, sizeof kBlob);
  std::memcpy(p, kBlob, sizeof kBlob);
  p += sizeof kBlob;
  size_t units = 0;
  while (kName[units] != 0) ++units;
  ++units;
  p = putLoHi<4>(p, 2 * units);
  for (size_t u = 0; u < units; ++u) p = putLoHi<2>(p, static_cast<uint16_t>(kName[u]));
  bench::keep(p);
}

void decodeCodec(uint64_t) {
  uint8_t *c = gBuffer;
  uint8_t *const limit = gBuffer + kRecordSize;
  uint16_t a16, b16, c16;
  uint32_t a32, b32, c32;
  uint64_t a64, b64, c64, length;
  uint8_t *data;
  wchar_t name[kNameUnits];
  TOV_BufGetHiLo16(&c, limit, &a16);
  TOV_BufGetHiLo32(&c, limit, &a32);
  TOV_BufGetHiLo64(&c, limit, &a64);
  TOV_BufGetLoHi16(&c, limit, &b16);
  TOV_BufGetLoHi32(&c, limit, &b32);
  TOV_BufGetLoHi64(&c, limit, &b64);
  TOV_BufGetNatv16(&c, limit, &c16);
  TOV_BufGetNatv32(&c, limit, &c32);
  TOV_BufGetNatv64(&c, limit, &c64);
  TOV_BufGetSizedData(&c, limit, &length, &data);
  TOV_BufGetUniStr(&c, limit, name, sizeof name);
  const uint64_t sum =
      a16 + b16 + c16 + a32 + b32 + c32 + a64 + b64 + c64 + length + data[0] + name[0];
  bench::keep(sum);
}

void decodeByHand(uint64_t) {
  uint8_t *p = gBuffer;
  uint8_t *const limit = gBuffer + kRecordSize;
  uint64_t v[9], length, prefix;
  p = getHiLo<2>(p, v[0]), p = getHiLo<4>(p, v[1]), p = getHiLo<8>(p, v[2]);
  p = getLoHi<2>(p, v[3]), p = getLoHi<4>(p, v[4]), p = getLoHi<8>(p, v[5]);
  p = getLoHi<2>(p, v[6]), p = getLoHi<4>(p, v[7]), p = getLoHi<8>(p, v[8]);
  p = getLoHi<4>(p, length);
  if (length > static_cast<uint64_t>(limit - p)) return;
  const uint8_t *data = p;
  p += length;
  p = getLoHi<4>(p, prefix);
  if (prefix > sizeof(wchar_t) * kNameUnits || prefix > static_cast<uint64_t>(limit - p)) return;
  wchar_t name[kNameUnits];
  for (uint64_t u = 0; u < prefix / 2; ++u) {
    uint64_t unit;
    p = getLoHi<2>(p, unit);
    name[u] = static_cast<wchar_t>(unit);
  }
  uint64_t sum = length + data[0] + name[0];
  for (uint64_t x : v) sum += x;
  bench::keep(sum);
}

} // namespace

int main() {
  constexpr uint64_t kRecords = 2'000'000;
  constexpr uint64_t kFields = 40'000'000;
  uint8_t *const limit = gBuffer + sizeof gBuffer;

  // Both encoders must produce the same record, or the comparison is void.
  uint8_t byCodec[sizeof gBuffer];
  encodeCodec(0x0123456789ABCDEF);
  std::memcpy(byCodec, gBuffer, sizeof gBuffer);
  encodeByHand(0x0123456789ABCDEF);
  if (std::memcmp(byCodec, gBuffer, kRecordSize) != 0) {
    std::printf("codec and byte loop disagree on the record\n");
    return 1;
  }

  const double encLib = bench::nsPerOp(kRecords, encodeCodec);
  const double encRaw = bench::nsPerOp(kRecords, encodeByHand);
  bench::report("encode mixed record: codec vs byte loop", encLib, encRaw, 0);

  encodeCodec(0x0123456789ABCDEF);
  const double decLib = bench::nsPerOp(kRecords, decodeCodec);
  const double decRaw = bench::nsPerOp(kRecords, decodeByHand);
  bench::report("decode mixed record: codec vs byte loop", decLib, decRaw, 0);

  const double putLib = bench::nsPerOp(kFields, [&](uint64_t i) {
    uint8_t *c = gBuffer;
    TOV_BufPutHiLo32(&c, limit, static_cast<uint32_t>(i));
    bench::keep(c);
  });
  const double empty = bench::nsPerOp(kFields, [&](uint64_t i) {
    uint8_t *c = gBuffer;
    EmptyPut(&c, limit, static_cast<uint32_t>(i));
    bench::keep(c);
  });
  bench::report("one field put (HiLo32) vs empty exported call", putLib, empty, 1.5);

  const double getLib = bench::nsPerOp(kFields, [&](uint64_t) {
    uint8_t *c = gBuffer;
    uint32_t v;
    TOV_BufGetHiLo32(&c, limit, &v);
    bench::keep(v);
  });
  bench::report("one field get (HiLo32) vs empty exported call", getLib, empty, 1.5);
  return 0;
}
