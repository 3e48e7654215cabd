// The text form of socket addresses: the grammar's known answers and the
// buffer-size protocol, against guard pages. Arbitrary texts and round trips
// of every record and flag combination are the fuzz target's
// (fuzz/presentation_fuzz.cpp). None of these tests starts the library: the
// conversions work without it.
#include <winsock2.h>

#include "tov.h"

#include <gtest/gtest.h>

#include <cstring>

// GCC 12 reports a false overlap in std::string concatenation at -O3.
#pragma GCC diagnostic ignored "-Wrestrict"

namespace {

constexpr TOV_Status kBad = TOV_ERR_INVALID_PARAMETER, kSmall = TOV_ERR_BUFFER_TOO_SMALL;
constexpr uint32_t P = TOV_PRES_PORT, X = TOV_PRES_PREFIX, S = TOV_PRES_STREAM,
                   D = TOV_PRES_DATAGRAM, U = TOV_PRES_UPPER, kReadOnly = ~0u;

// Socket address records as bytes: family, port, address.
using Record = std::vector<uint8_t>;
Record v4(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint16_t port = 0) {
  return {2, 0, uint8_t(port >> 8), uint8_t(port), a, b, c, d, 0, 0, 0, 0, 0, 0, 0, 0};
}
Record v6(std::initializer_list<uint16_t> groups, uint16_t port = 0) {
  Record r{23, 0, uint8_t(port >> 8), uint8_t(port), 0, 0, 0, 0};
  for (uint16_t g : groups) r.insert(r.end(), {uint8_t(g >> 8), uint8_t(g)});
  r.resize(28);
  return r;
}
// IPX: network 0000000a, node 00a0c9123456, socket 0453.
const Record kIpx = {6, 0, 0, 0, 0, 0xa, 0, 0xa0, 0xc9, 0x12, 0x34, 0x56, 0x04, 0x53};

// A copy of n bytes that ends where a page faulting on any access begins, in
// one of two blocks: a read or write one byte too far crashes the test.
char *guarded(int block, const void *from, size_t n) {
  static auto *base = static_cast<char *>(VirtualAlloc(nullptr, 16384, MEM_COMMIT, PAGE_NOACCESS));
  DWORD old;
  VirtualProtect(base + (block << 13), 4096, PAGE_READWRITE, &old);
  return static_cast<char *>(std::memcpy(base + (block << 13) + 4096 - n, from, n));
}

using Read = std::tuple<TOV_Status, uint32_t, uint64_t, Record>; // status, flags, size, record

// Reads a text ending at a guard page into `declared` bytes that also end at
// one. A success must zero-fill the declared bytes past the record; flags and
// record count only on success.
Read read(const std::string &text, uint64_t declared = 40) {
  const char *in = guarded(0, text.c_str(), text.size() + 1);
  char *out = guarded(1, Record(declared, 0xAA).data(), declared);
  uint32_t flags = 0;
  uint64_t size = declared;
  const TOV_Status status = TOV_SktPresentationToNet(in, &flags, (sockaddr *)out, &size);
  for (uint64_t i = size; status == TOV_OK && i < declared; ++i) EXPECT_EQ(out[i], 0) << text;
  return {status, status ? 0 : flags, size, status ? Record() : Record(out, out + size)};
}

// Writes into exactly the declared room, which ends at a guard page; a
// failure gives its status, and "!" after it unless the room was left untouched.
std::string write(const Record &record, uint32_t flags) {
  const std::string untouched(TOV_PRES_MAX_TEXT, 'Z');
  char *text = guarded(0, untouched.data(), TOV_PRES_MAX_TEXT);
  const TOV_Status status = TOV_SktNetToPresentation((const sockaddr *)record.data(), flags, text);
  if (status == TOV_OK) return text;
  return std::to_string(status) + (std::string(text, TOV_PRES_MAX_TEXT) == untouched ? "" : "!");
}

// Known answers of the grammar and the buffer-size protocol. Each text reads
// to its flags and record (and into a record too small, down to 2 bytes, is
// refused with the size kept); a row with write flags is also exactly what
// writing the record gives. Texts expand into a room of 66 characters: 58
// blanks before "[::1]" fill it, as does a port of 57 digits.
TEST(Presentation, KnownAnswersAndSizes) {
  const std::string blanks(58, ' '), zeros(54, '0'), f = "FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF:FFFF";
  const uint16_t m = 0xffff;
  const std::tuple<std::string, uint32_t, Record, uint32_t> cases[] = {
      {"192.0.2.7", 0, v4(192, 0, 2, 7), ~0x1Fu}, // unknown flag bits are ignored
      {"TCP:192.0.2.7:80", X | S | P, v4(192, 0, 2, 7, 80), X | S | P | U},
      {"  udp10.0.0.1 : 53 junk", X | D | P, v4(10, 0, 0, 1, 53), kReadOnly},
      {"1..2.300:65616", P, v4(1, 0, 2, 44, 80), kReadOnly},
      {"udpv6:[2001:db8::1]:443", X | D | P, v6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, 443), 0xB},
      {"IPv6:[::]", X, v6({}), X | U},
      {"[1::2:0:0:0:3]", 0, v6({1, 0, 0, 2, 0, 0, 0, 3}), 0},
      {"[10:100:ABCD:F:F00:1000:FFFF:8]", 0, v6({16, 256, 0xabcd, 15, 0xf00, 4096, m, 8}), U},
      {"[1:2:3:4:5:6:7:8:9]", 0, v6({1, 2, 3, 4, 5, 6, 7, 8}), kReadOnly},
      {blanks + "[::1]", 0, v6({0, 0, 0, 0, 0, 0, 0, 1}), kReadOnly},
      {"[::1]:" + zeros + "443", P, v6({0, 0, 0, 0, 0, 0, 0, 1}, 443), kReadOnly},
      {"TCPv6:[" + f + "]:65535", X | S | P, v6({m, m, m, m, m, m, m, m}, m), 0x1F}, // longest
      {"SPX:0000000A:00A0C9123456:0453", X | S | P, kIpx, X | S | P | U},
      {"ipx:0000000a:00a0c9123456:0453", X | D | P, kIpx, X | P},
  };
  for (const auto &[text, flags, record, written] : cases) {
    EXPECT_EQ(read(text), Read(TOV_OK, flags, record.size(), record)) << text;
    for (uint64_t size : {uint64_t{2}, record.size() - 1})
      EXPECT_EQ(read(text, size), Read(kSmall, 0, size, {})) << text;
    EXPECT_EQ(written == kReadOnly ? text : write(record, written), text);
  }
  for (std::string text : {"1.2.3", "1. 2.3.4", "1.+2.3.4", "::ffff:192.0.2.7", "2001:db8::1",
                           "[1:2:3]", "[fe80::1] :443", "[12345::1]", "[::ffff:192.0.2.7]", "[:1]",
                           "[::g]", "[::1", "0000000a:00a0c912345g", "0000000a-00a0c9123456",
                           "0000000a:00a0c9123456:04", "0000000a:", "", "   ", "hello"})
    EXPECT_EQ(std::get<0>(read(text)), kBad) << text;
  EXPECT_EQ(std::get<0>(read(blanks + " [::1]")), kBad); // one past the room
  EXPECT_EQ(std::get<0>(read("[::1]:0" + zeros + "443")), kBad);
  EXPECT_EQ(write(Record(28, 24), 0), std::to_string(kBad)); // another family: nothing written
  // Once the record fits, the size is set to the record's before the rest of
  // the text is read: a text failing after that leaves it so.
  EXPECT_EQ(read("192.0.2"), Read(kBad, 0, 16, {}));
  EXPECT_EQ(read("[1:2:3]"), Read(kBad, 0, 28, {}));
  EXPECT_EQ(read("0000000a:00a0c912345g"), Read(kBad, 0, 14, {}));
}

} // namespace
