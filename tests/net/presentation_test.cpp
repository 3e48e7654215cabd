// The text form of socket addresses: the grammar's known answers, the
// buffer-size protocol, hostile texts against guard pages, and round trips.
// None of these tests starts the library: the conversions work without it.
#include <winsock2.h>
#include <ws2tcpip.h>
#include <wsipx.h>

#include "tov.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

// GCC 12 reports a false overlap in std::string concatenation at -O3.
#pragma GCC diagnostic ignored "-Wrestrict"

namespace {

constexpr TOV_Status kBad = TOV_ERR_INVALID_PARAMETER;
constexpr TOV_Status kSmall = TOV_ERR_BUFFER_TOO_SMALL;

// A socket address record as bytes, built field by field.
using Record = std::vector<uint8_t>;

Record v4(uint8_t a, uint8_t b, uint8_t c, uint8_t d, uint16_t port = 0) {
  return {2, 0, uint8_t(port >> 8), uint8_t(port), a, b, c, d, 0, 0, 0, 0, 0, 0, 0, 0};
}

Record v6(std::initializer_list<uint16_t> groups, uint16_t port = 0) {
  Record r(28, 0);
  r[0] = 23;
  r[2] = uint8_t(port >> 8);
  r[3] = uint8_t(port);
  int i = 0;
  for (uint16_t g : groups) {
    r[8 + 2 * i] = uint8_t(g >> 8);
    r[9 + 2 * i] = uint8_t(g);
    ++i;
  }
  return r;
}

Record ipx(std::initializer_list<uint8_t> bytes) {
  Record r(14, 0);
  r[0] = 6;
  int i = 2;
  for (uint8_t b : bytes) r[i++] = b;
  return r;
}

struct ReadResult {
  TOV_Status status;
  uint32_t flags;
  uint64_t size;
  Record record;
};

ReadResult read(const std::string &text, uint64_t size = 128) {
  uint8_t buffer[128];
  std::memset(buffer, 0xAA, sizeof buffer);
  ReadResult r{};
  r.flags = 0xDEAD;
  r.size = size;
  r.status = TOV_SktPresentationToNet(text.c_str(), &r.flags, reinterpret_cast<sockaddr *>(buffer),
                                      &r.size);
  r.record.assign(buffer, buffer + (r.status == TOV_OK ? r.size : 0));
  return r;
}

std::string write(const Record &record, uint32_t flags) {
  char text[TOV_PRES_MAX_TEXT + 8];
  std::memset(text, 'Z', sizeof text);
  const TOV_Status status =
      TOV_SktNetToPresentation(reinterpret_cast<const sockaddr *>(record.data()), flags, text);
  if (status != TOV_OK) return "status " + std::to_string(status);
  return text;
}

// ---- Known answers ---------------------------------------------------------------------

struct ReadCase {
  const char *text;
  TOV_Status status;
  uint32_t flags;
  Record record;
};

TEST(Presentation, ReadsTheGrammar) {
  const uint32_t P = TOV_PRES_PORT, X = TOV_PRES_PREFIX, S = TOV_PRES_STREAM, D = TOV_PRES_DATAGRAM;
  const ReadCase cases[] = {
      {"192.0.2.7", TOV_OK, 0, v4(192, 0, 2, 7)},
      {"192.0.2.7:80", TOV_OK, P, v4(192, 0, 2, 7, 80)},
      {"tcp:192.0.2.7:80", TOV_OK, X | S | P, v4(192, 0, 2, 7, 80)},
      {"TCP:192.0.2.7:80", TOV_OK, X | S | P, v4(192, 0, 2, 7, 80)},
      {"ip:192.0.2.7", TOV_OK, X, v4(192, 0, 2, 7)},
      {"  udp : 10.0.0.1 : 53", TOV_OK, X | D | P, v4(10, 0, 0, 1, 53)},
      {"tcp 192.0.2.7", TOV_OK, X | S, v4(192, 0, 2, 7)},
      {"tcp192.0.2.7", TOV_OK, X | S, v4(192, 0, 2, 7)},
      {"192.0.2.300", TOV_OK, 0, v4(192, 0, 2, 44)},
      {"1..2.3", TOV_OK, 0, v4(1, 0, 2, 3)},
      {"192.0.2.7:", TOV_OK, P, v4(192, 0, 2, 7, 0)},
      {"192.0.2.7 junk", TOV_OK, 0, v4(192, 0, 2, 7)},
      {"192.0.2.7:65616", TOV_OK, P, v4(192, 0, 2, 7, 80)},
      {"1.2.3", kBad, 0, {}},
      {"1. 2.3.4", kBad, 0, {}},
      {"1.+2.3.4", kBad, 0, {}},
      {"::ffff:192.0.2.7", kBad, 0, {}},
      {"[2001:db8::1]", TOV_OK, 0, v6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1})},
      {"[2001:db8::1]:443", TOV_OK, P, v6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}, 443)},
      {"udpv6:[::1]:53", TOV_OK, X | D | P, v6({0, 0, 0, 0, 0, 0, 0, 1}, 53)},
      {"tcpv6:[::1]", TOV_OK, X | S, v6({0, 0, 0, 0, 0, 0, 0, 1})},
      {"[::]", TOV_OK, 0, v6({})},
      {"[1::]", TOV_OK, 0, v6({1})},
      {"[1:2:3]", kBad, 0, {}},
      {"[1:2:3:4:5:6:7:8]", TOV_OK, 0, v6({1, 2, 3, 4, 5, 6, 7, 8})},
      {"[::2:3:4:5:6:7:8]", TOV_OK, 0, v6({0, 2, 3, 4, 5, 6, 7, 8})},
      {"[1::2::3]", TOV_OK, 0, v6({1, 0, 0, 0, 0, 0, 0, 3})},
      {"[FE80::aB:c]", TOV_OK, 0, v6({0xfe80, 0, 0, 0, 0, 0, 0xab, 0xc})},
      {"ipv6:[fe80::1]: 443", TOV_OK, X | P, v6({0xfe80, 0, 0, 0, 0, 0, 0, 1}, 443)},
      {"[fe80::1] :443", kBad, 0, {}},
      {"[12345::1]", kBad, 0, {}},
      {"[::ffff:192.0.2.7]", kBad, 0, {}},
      {"[1:2:3:4:5:6:7:8:9]", TOV_OK, 0, v6({1, 2, 3, 4, 5, 6, 7, 8})}, // read up to 8 groups
      {"[:1]", kBad, 0, {}},
      {"[::g]", kBad, 0, {}},
      {"[::1", kBad, 0, {}},
      {"2001:db8::1", kBad, 0, {}},
      {"0000000a:00a0c9123456", TOV_OK, 0, ipx({0, 0, 0, 0xa, 0, 0xa0, 0xc9, 0x12, 0x34, 0x56})},
      {"0000000a:00a0c9123456:0453", TOV_OK, P,
       ipx({0, 0, 0, 0xa, 0, 0xa0, 0xc9, 0x12, 0x34, 0x56, 0x04, 0x53})},
      {"spx:0000000A:00A0C9123456:0453", TOV_OK, X | S | P,
       ipx({0, 0, 0, 0xa, 0, 0xa0, 0xc9, 0x12, 0x34, 0x56, 0x04, 0x53})},
      {"ipx:0000000a:00a0c9123456", TOV_OK, X | D,
       ipx({0, 0, 0, 0xa, 0, 0xa0, 0xc9, 0x12, 0x34, 0x56})},
      {"0000000a:00a0c912345g", kBad, 0, {}},
      {"0000000a-00a0c9123456", kBad, 0, {}},
      {"0000000a:00a0c9123456:04", kBad, 0, {}},
      {"", kBad, 0, {}},
      {"   ", kBad, 0, {}},
      {"hello", kBad, 0, {}},
      {"0000000a:", kBad, 0, {}},
  };
  for (const ReadCase &c : cases) {
    SCOPED_TRACE(c.text);
    const ReadResult r = read(c.text);
    ASSERT_EQ(r.status, c.status);
    if (c.status != TOV_OK) continue;
    EXPECT_EQ(r.flags, c.flags);
    EXPECT_EQ(r.size, c.record.size());
    EXPECT_EQ(r.record, c.record);
  }
}

TEST(Presentation, WritesTheGrammar) {
  const Record ipxAddress = ipx({0, 0, 0, 0xa, 0, 0xa0, 0xc9, 0x12, 0x34, 0x56, 0x04, 0x53});
  const struct {
    Record record;
    uint32_t flags;
    const char *text;
  } cases[] = {
      {v4(192, 0, 2, 7, 80), 0x07, "tcp:192.0.2.7:80"},
      {v4(192, 0, 2, 7, 80), 0x17, "TCP:192.0.2.7:80"},
      {v4(192, 0, 2, 7, 80), 0x00, "192.0.2.7"},
      {v4(0, 0, 0, 0), 0x0B, "udp:0.0.0.0:0"},
      {v4(255, 255, 255, 255, 65535), 0x03, "ip:255.255.255.255:65535"},
      {v4(1, 2, 3, 4), 0xFFFFFFE0, "1.2.3.4"},
      {v6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}), 0, "[2001:db8::1]"},
      {v6({}), 0, "[::]"},
      {v6({0, 0, 0, 0, 0, 0, 0, 1}), 0, "[::1]"},
      {v6({1}), 0, "[1::]"},
      {v6({1, 0, 0, 2, 0, 0, 0, 3}), 0, "[1::2:0:0:0:3]"},
      {v6({0x2001, 0, 1, 2, 3, 4, 5, 6}), 0, "[2001::1:2:3:4:5:6]"},
      {v6({1, 2, 3, 4, 5, 6, 7, 0}), 0, "[1:2:3:4:5:6:7::]"},
      {v6({0x10, 0x100, 0xabcd, 0xf, 0xf00, 0x1000, 0xffff, 0x8}), 0,
       "[10:100:abcd:f:f00:1000:ffff:8]"},
      {v6({0x2001, 0xdb8, 0, 0, 0, 0, 0, 0xab}), TOV_PRES_UPPER, "[2001:DB8::AB]"},
      {v6({0, 0, 0, 0, 0, 0, 0, 1}, 53), 0x0B, "udpv6:[::1]:53"},
      {v6({0, 0, 0, 0, 0, 0, 0, 1}, 53), 0x17, "TCPv6:[::1]:53"},
      {v6({0, 0, 0, 0, 0, 0, 0, 1}), 0x12, "IPv6:[::1]"},
      {ipxAddress, 0x01, "0000000a:00a0c9123456:0453"},
      {ipxAddress, 0x17, "SPX:0000000A:00A0C9123456:0453"},
      {ipxAddress, 0x0A, "ipx:0000000a:00a0c9123456"},
      {ipxAddress, 0x02, "ipx:0000000a:00a0c9123456"},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.text);
    EXPECT_EQ(write(c.record, c.flags), c.text);
  }

  // Another family: refused, and nothing written.
  Record other = v4(1, 2, 3, 4);
  for (uint8_t family : {0, 1, 3, 24, 255}) {
    other[0] = family;
    char text[8] = "keep";
    EXPECT_EQ(TOV_SktNetToPresentation(reinterpret_cast<sockaddr *>(other.data()), 0x1F, text),
              kBad);
    EXPECT_STREQ(text, "keep");
  }
}

// ---- Buffer-size protocol ----------------------------------------------------------------

TEST(Presentation, SizeBelowTheRecordIsRefusedAndKept) {
  const struct {
    const char *text;
    uint64_t record;
  } cases[] = {{"192.0.2.7:80", 16}, {"[::1]:80", 28}, {"0000000a:00a0c9123456:0453", 14}};
  for (const auto &c : cases) {
    SCOPED_TRACE(c.text);
    for (uint64_t size : {uint64_t{2}, c.record - 1}) {
      const ReadResult r = read(c.text, size);
      EXPECT_EQ(r.status, kSmall);
      EXPECT_EQ(r.size, size);
    }
    // A larger buffer is zero-filled over its whole declared size.
    uint8_t buffer[64];
    std::memset(buffer, 0xAA, sizeof buffer);
    uint64_t size = 40;
    uint32_t flags = 0;
    ASSERT_EQ(TOV_SktPresentationToNet(c.text, &flags, reinterpret_cast<sockaddr *>(buffer), &size),
              TOV_OK);
    EXPECT_EQ(size, c.record);
    for (size_t i = c.record; i < 40; ++i) EXPECT_EQ(buffer[i], 0) << i;
    for (size_t i = 40; i < sizeof buffer; ++i) EXPECT_EQ(buffer[i], 0xAA) << i;
  }
  // IPv6 into an IPv4-sized record.
  const ReadResult r = read("[2001:db8::1]", 16);
  EXPECT_EQ(r.status, kSmall);
  EXPECT_EQ(r.size, 16u);

  // The size is set to the record's as soon as the record fits, before the
  // rest of the text is read: a text that fails later leaves it so.
  for (const auto &[text, record] : {std::pair{"192.0.2", 16u}, std::pair{"[1:2:3]", 28u},
                                     std::pair{"0000000a:00a0c912345g", 14u}}) {
    SCOPED_TRACE(text);
    const ReadResult bad = read(text, 40);
    EXPECT_EQ(bad.status, TOV_ERR_INVALID_PARAMETER);
    EXPECT_EQ(bad.size, record);
  }
}

// ---- Hostile texts -------------------------------------------------------------------------

// Memory whose last usable byte is followed by a page that faults on any
// access: a read or write one byte too far crashes the test.
class GuardedBlock {
public:
  GuardedBlock() {
    base_ = static_cast<uint8_t *>(
        VirtualAlloc(nullptr, 2 * kPage, MEM_RESERVE | MEM_COMMIT, PAGE_READWRITE));
    DWORD old;
    VirtualProtect(base_ + kPage, kPage, PAGE_NOACCESS, &old);
  }
  ~GuardedBlock() { VirtualFree(base_, 0, MEM_RELEASE); }
  GuardedBlock(const GuardedBlock &) = delete;
  GuardedBlock &operator=(const GuardedBlock &) = delete;

  // n bytes that end right at the guard page.
  uint8_t *tail(size_t n) const { return base_ + kPage - n; }
  // A copy of text (with its terminator) ending right at the guard page.
  const char *text(const std::string &s) const {
    char *p = reinterpret_cast<char *>(tail(s.size() + 1));
    std::memcpy(p, s.c_str(), s.size() + 1);
    return p;
  }

private:
  static constexpr size_t kPage = 4096;
  uint8_t *base_ = nullptr;
};

// Reads the text at the guard page into records of each size that also end
// at a guard page; checks only that a valid status comes back.
void readGuarded(const GuardedBlock &textBlock, const GuardedBlock &recordBlock,
                 const std::string &s) {
  const char *text = textBlock.text(s);
  for (uint64_t size : {2, 14, 16, 28}) {
    uint32_t flags = 0;
    uint64_t declared = size;
    const TOV_Status status = TOV_SktPresentationToNet(
        text, &flags, reinterpret_cast<sockaddr *>(recordBlock.tail(size)), &declared);
    ASSERT_TRUE(status == TOV_OK || status == kBad || status == kSmall) << s;
    ASSERT_LE(declared, size);
    ASSERT_EQ(flags & ~0x0Fu, 0u);
  }
}

TEST(Presentation, HostileTextsStayInsideTheirBuffers) {
  GuardedBlock textBlock, recordBlock;
  std::vector<std::string> texts = {
      std::string(3000, '1'),
      std::string(3000, ' '),
      std::string(3000, ':'),
      std::string(3000, '['),
      std::string(3000, ']'),
      std::string(3000, '.'),
      "[" + std::string(200, ':'),
      "[" + std::string(200, '1'),
      "[1:2:3:4",
      "[1:2:3:4:5:6:7:8",
      "[::1]:" + std::string(100, '9'),
      "[::1]:" + std::string(55, '4'),
      std::string(60, ' ') + "[::1]",
      std::string(64, ' ') + "[1:2:3:4:5:6:7:8]",
      "[:]",
      "[]",
      "]",
      "[",
      ":",
      "tcpv6",
      "tcpv6:",
      "ipx:",
      "ipx:0",
      "0000000a:00a0c9123456:",
      "0000000a:00a0c9123456:0",
      "1.2.3.4:" + std::string(2000, '9'),
      std::string(2000, '9') + ".1.1.1",
      "1.1.1.-99999999999999999999",
      "udp:" + std::string(100, ' '),
  };
  std::mt19937 rng(20261122);
  const std::string alphabet = "0123456789abcdefABCDEF:[]. \t-+xtcpudvi";
  for (int i = 0; i < 20000; ++i) {
    std::string s(rng() % 90, ' ');
    for (char &c : s) c = alphabet[rng() % alphabet.size()];
    if (rng() % 2) s.insert(0, 1, '[');
    texts.push_back(s);
  }
  for (const std::string &s : texts) readGuarded(textBlock, recordBlock, s);

  // A few of them have a known outcome.
  // The expansion has room for 66 characters: "[::0001]" and 58 blanks
  // fill it exactly, so does a port text of 57 digits after "[::0001]:".
  EXPECT_EQ(read(std::string(58, ' ') + "[::1]").status, TOV_OK);
  EXPECT_EQ(read(std::string(59, ' ') + "[::1]").status, kBad);
  EXPECT_EQ(read("[::1]:" + std::string(57, '4')).status, TOV_OK);
  EXPECT_EQ(read("[::1]:" + std::string(58, '4')).status, kBad);
  const ReadResult longPort = read("[::1]:" + std::string(40, '0') + "443");
  EXPECT_EQ(longPort.status, TOV_OK);
  EXPECT_EQ(longPort.record, v6({0, 0, 0, 0, 0, 0, 0, 1}, 443));
}

TEST(Presentation, LongestTextsFitTheirDeclaredRoom) {
  GuardedBlock block;
  const Record ones = ipx({0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff});
  const struct {
    Record record;
    uint32_t flags;
    size_t room;
  } cases[] = {
      {v4(255, 255, 255, 255, 65535), 0x1F, 26},
      {ones, 0x1F, 31},
      {v6({0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff, 0xffff}, 65535), 0x1F, 54},
  };
  for (const auto &c : cases) {
    char *text = reinterpret_cast<char *>(block.tail(c.room));
    ASSERT_EQ(TOV_SktNetToPresentation(reinterpret_cast<const sockaddr *>(c.record.data()), c.flags,
                                       text),
              TOV_OK);
    EXPECT_EQ(std::strlen(text), c.room - 1) << text;
  }
  EXPECT_EQ(TOV_PRES_MAX_TEXT, 54);
}

// ---- Round trips ---------------------------------------------------------------------------

// The flags reading gives back for a text written with these flags.
uint32_t flagsReadBack(uint16_t family, uint32_t written) {
  uint32_t f = written & TOV_PRES_PORT;
  if (written & TOV_PRES_PREFIX) {
    f |= TOV_PRES_PREFIX;
    if (written & TOV_PRES_STREAM)
      f |= TOV_PRES_STREAM;
    else if ((written & TOV_PRES_DATAGRAM) || family == 6) // "ipx:" reads as a datagram prefix
      f |= TOV_PRES_DATAGRAM;
  }
  return f;
}

Record randomRecord(std::mt19937 &rng, uint16_t family) {
  Record r;
  if (family == 2) {
    r = v4(uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), uint8_t(rng()), uint16_t(rng()));
  } else if (family == 6) {
    r = ipx({});
    for (int i = 2; i < 14; ++i) r[i] = uint8_t(rng());
  } else {
    r = v6({}, uint16_t(rng()));
    // Mostly zero, small and full groups, so that runs of zeros of every
    // length and place occur.
    for (int i = 0; i < 8; ++i) {
      const uint32_t kind = rng() % 4;
      const uint16_t g = kind < 2 ? 0 : kind == 2 ? uint16_t(rng() % 0x100) : uint16_t(rng());
      r[8 + 2 * i] = uint8_t(g >> 8);
      r[9 + 2 * i] = uint8_t(g);
    }
  }
  return r;
}

TEST(Presentation, RoundTripsEveryFlagCombination) {
  std::mt19937 rng(7);
  for (uint16_t family : {2, 6, 23}) {
    for (int n = 0; n < 300; ++n) {
      const Record record = randomRecord(rng, family);
      for (uint32_t flags = 0; flags < 32; ++flags) {
        const std::string text = write(record, flags);
        SCOPED_TRACE(text);
        const ReadResult r = read(text);
        ASSERT_EQ(r.status, TOV_OK);
        ASSERT_EQ(r.flags, flagsReadBack(family, flags));
        Record expected = record;
        if (!(flags & TOV_PRES_PORT)) { // no port written, none read
          const size_t at = family == 6 ? 12 : 2;
          expected[at] = expected[at + 1] = 0;
        }
        ASSERT_EQ(r.record, expected);
      }
    }
  }
}

// ---- Against the system's converters -----------------------------------------------------

TEST(Presentation, AgreesWithTheSystemConverters) {
  std::mt19937 rng(99);
  for (int n = 0; n < 2000; ++n) {
    // IPv4: the system's text reads to the same bytes, and ours reads back.
    in_addr a4;
    a4.s_addr = rng();
    char sys[64];
    ASSERT_NE(inet_ntop(AF_INET, &a4, sys, sizeof sys), nullptr);
    const ReadResult r4 = read(sys);
    ASSERT_EQ(r4.status, TOV_OK);
    EXPECT_EQ(std::memcmp(r4.record.data() + 4, &a4, 4), 0) << sys;
    EXPECT_EQ(write(r4.record, 0), sys);

    // IPv6: a bracketed system text reads to the same bytes.
    const Record record = randomRecord(rng, 23);
    ASSERT_NE(inet_ntop(AF_INET6, record.data() + 8, sys, sizeof sys), nullptr);
    if (std::strchr(sys, '.')) continue; // an IPv4 tail is not part of our grammar
    const ReadResult r6 = read(std::string("[") + sys + "]");
    ASSERT_EQ(r6.status, TOV_OK) << sys;
    EXPECT_EQ(std::memcmp(r6.record.data() + 8, record.data() + 8, 16), 0) << sys;
    // And our text, without its brackets, reads the same through the system.
    std::string ours = write(record, 0);
    ours = ours.substr(1, ours.size() - 2);
    uint8_t back[16];
    ASSERT_EQ(inet_pton(AF_INET6, ours.c_str(), back), 1) << ours;
    EXPECT_EQ(std::memcmp(back, record.data() + 8, 16), 0) << ours;
  }
}

} // namespace
