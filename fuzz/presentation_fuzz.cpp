// Socket address text, both ways. The input's first two bytes pick the
// address size a reader declares, a family and flags; the rest is read as a
// text, and also taken as the bytes of a record of that family to be written.
//  - Reading stays inside the text and the declared size, finds the prefix
//    and family the prefix table or the text's look give, keeps the size on
//    TOV_ERR_BUFFER_TOO_SMALL, and on success fills a record whose unused
//    bytes are zero.
//  - Every record read is written with the flags found and with the input's,
//    every record made of the input with the input's flags and their
//    complement, each in small and in upper case: the text stays within its
//    family's room and reads back to the same record (port 0 when none was
//    written) and flags.
//  - A record of another family is refused with nothing written.
#include "fuzz.h"

#include "net/addrbytes.h"
#include "tov.h"

#include <algorithm>
#include <cctype>
#include <string>
#include <strings.h>

using tov::net::AddrIPv4;
using tov::net::AddrIPv6;
using tov::net::AddrIPX;
using tov::net::kFamilyIPv4;
using tov::net::kFamilyIPv6;
using tov::net::kFamilyIPX;
using tovfuzz::CString;
using tovfuzz::kCanary;
using tovfuzz::Tail;

namespace {

constexpr uint32_t P = TOV_PRES_PORT, X = TOV_PRES_PREFIX, S = TOV_PRES_STREAM,
                   D = TOV_PRES_DATAGRAM, U = TOV_PRES_UPPER;

uint16_t familyOf(const uint8_t *record) {
  uint16_t family;
  std::memcpy(&family, record, sizeof family);
  return family;
}

size_t recordSize(uint16_t family) {
  return family == kFamilyIPv4  ? sizeof(AddrIPv4)
         : family == kFamilyIPX ? sizeof(AddrIPX)
                                : sizeof(AddrIPv6);
}

// The longest text of the family, terminator included.
size_t textRoom(uint16_t family) {
  return family == kFamilyIPv4 ? 26 : family == kFamilyIPX ? 31 : 54;
}

// Where the port (IPX: the socket number) lies in the family's record.
size_t portOffset(uint16_t family) {
  return family == kFamilyIPX ? offsetof(AddrIPX, socket) : offsetof(AddrIPv4, port);
}

// What a record reads back as: the fields no text carries are 0, and so is
// the port when it was not written.
void carried(uint8_t *record, uint32_t flags) {
  const uint16_t family = familyOf(record);
  if (family == kFamilyIPv4) std::memset(record + offsetof(AddrIPv4, zero), 0, 8);
  if (family == kFamilyIPv6) {
    std::memset(record + offsetof(AddrIPv6, flowInfo), 0, 4);
    std::memset(record + offsetof(AddrIPv6, scopeId), 0, 4);
  }
  if (!(flags & P)) std::memset(record + portOffset(family), 0, 2);
}

// The flags that reading a text written with `written` reports: "ipx:" is a
// datagram prefix, also when written for neither kind.
uint32_t readBack(uint32_t written, uint16_t family) {
  uint32_t flags = written & P;
  if (written & X) flags |= X | (written & S ? S : (written & D) || family == kFamilyIPX ? D : 0);
  return flags;
}

struct Text {
  Tail room{TOV_PRES_MAX_TEXT};
  TOV_Status status;
  size_t length = 0;
};

// Writes the record into a room of exactly TOV_PRES_MAX_TEXT bytes.
void write(const Tail &record, uint32_t flags, Text &out) {
  out.status = TOV_SktNetToPresentation(reinterpret_cast<const sockaddr *>(record.data()), flags,
                                        out.room.chars());
  if (out.status != TOV_OK) return;
  out.length = strnlen(out.room.chars(), out.room.size());
  FUZZ_CHECK(out.length < textRoom(familyOf(record.data())));
  FUZZ_CHECK(out.room.all(kCanary, out.length + 1)); // nothing after the terminator
}

// Writes the record with the flags, reads the text back, and checks it.
std::string writeAndReadBack(const Tail &record, uint32_t flags) {
  Text text;
  write(record, flags, text);
  FUZZ_CHECK(text.status == TOV_OK);
  const char *t = text.room.chars();
  // One run of zero groups at most is compressed.
  FUZZ_CHECK(!std::strstr(t, "::") || !std::strstr(std::strstr(t, "::") + 1, "::"));

  const CString back(t, text.length);
  Tail got(record.size());
  uint32_t found = ~0u;
  uint64_t size = record.size();
  FUZZ_CHECK(TOV_SktPresentationToNet(back.chars(), &found,
                                      reinterpret_cast<sockaddr *>(got.data()), &size) == TOV_OK);
  FUZZ_CHECK(size == record.size());
  FUZZ_CHECK(found == readBack(flags, familyOf(record.data())));
  Tail want(record.data(), record.size());
  carried(want.data(), flags);
  FUZZ_CHECK(std::memcmp(got.data(), want.data(), size) == 0);
  return t;
}

// The record written with the flags in small and in upper case: the texts
// differ in the case of letters only, the upper one keeping only the "v" of
// "v6" small, and both read back.
void roundTrip(const Tail &record, uint32_t flags) {
  const std::string lower = writeAndReadBack(record, flags & ~U);
  const std::string upper = writeAndReadBack(record, flags | U);
  FUZZ_CHECK(strcasecmp(lower.c_str(), upper.c_str()) == 0);
  for (char c : lower) FUZZ_CHECK(!std::isupper(uint8_t(c)));
  for (char c : upper) FUZZ_CHECK(!std::islower(uint8_t(c)) || c == 'v');
}

struct Start {
  uint32_t flags;  // the prefix's
  uint16_t family; // the prefix's, or the one the text looks like; 0 for none
};

// The prefix table tried in order (longer names first), else the guess: "["
// is IPv6, a "." anywhere IPv4, a ":" as the ninth character IPX.
Start startOf(const char *text) {
  const struct {
    const char *name;
    Start start;
  } prefixes[] = {{"tcpv6", {X | S, kFamilyIPv6}}, {"udpv6", {X | D, kFamilyIPv6}},
                  {"ipv6", {X, kFamilyIPv6}},      {"spx", {X | S, kFamilyIPX}},
                  {"ipx", {X | D, kFamilyIPX}},    {"tcp", {X | S, kFamilyIPv4}},
                  {"udp", {X | D, kFamilyIPv4}},   {"ip", {X, kFamilyIPv4}}};
  while (std::isspace(uint8_t(*text))) ++text;
  for (const auto &prefix : prefixes)
    if (strncasecmp(text, prefix.name, std::strlen(prefix.name)) == 0) return prefix.start;
  if (*text == '[') return {0, kFamilyIPv6};
  if (std::strchr(text, '.')) return {0, kFamilyIPv4};
  if (strnlen(text, 9) == 9 && text[8] == ':') return {0, kFamilyIPX};
  return {0, 0};
}

// Reads the text into `declared` bytes; a record read is written again with
// the flags found (text, record, text, record) and with `flags`.
void read(const char *text, uint64_t declared, uint32_t flags2) {
  Tail address(declared);
  uint32_t flags = 0xA5A5A5A5;
  uint64_t size = declared;
  const TOV_Status status =
      TOV_SktPresentationToNet(text, &flags, reinterpret_cast<sockaddr *>(address.data()), &size);
  FUZZ_CHECK(status == TOV_OK || status == TOV_ERR_INVALID_PARAMETER ||
             status == TOV_ERR_BUFFER_TOO_SMALL);
  // Whatever the outcome: the prefix's flags, the port flag at most besides,
  // and the family stored before the rest is read.
  const Start start = startOf(text);
  FUZZ_CHECK((flags & ~P) == start.flags);
  const uint16_t family = familyOf(address.data());
  FUZZ_CHECK(family == start.family);
  FUZZ_CHECK(family != 0 || status == TOV_ERR_INVALID_PARAMETER);
  if (status == TOV_ERR_BUFFER_TOO_SMALL) {
    FUZZ_CHECK(size == declared && declared < recordSize(family));
  }
  if (status != TOV_OK) return;
  FUZZ_CHECK(size == recordSize(family) && size <= declared);
  FUZZ_CHECK(address.all(0, size)); // the declared bytes past the record are zero
  const Tail record(address.data(), size);
  Tail canonical(address.data(), size);
  carried(canonical.data(), flags);
  FUZZ_CHECK(std::memcmp(record.data(), canonical.data(), size) == 0);
  roundTrip(record, flags);
  roundTrip(record, flags2);
}

// A record of the family made of the input's bytes, written with the flags
// and their complement; another family has nothing but its family field, and
// must be refused without a byte written.
void writeAny(const uint8_t *bytes, size_t n, int kind, uint32_t flags) {
  uint8_t raw[sizeof(AddrIPv6)] = {};
  std::memcpy(raw, bytes, std::min(n, sizeof raw));
  const uint16_t families[] = {kFamilyIPv4, kFamilyIPX, kFamilyIPv6};
  if (kind < 3) std::memcpy(raw, &families[kind], 2);
  const uint16_t family = familyOf(raw);
  if (family == kFamilyIPv4 || family == kFamilyIPX || family == kFamilyIPv6) {
    const Tail record(raw, recordSize(family));
    roundTrip(record, flags);
    roundTrip(record, ~flags);
    return;
  }
  Text text;
  write(Tail(raw, 2), flags, text);
  FUZZ_CHECK(text.status == TOV_ERR_INVALID_PARAMETER && text.room.all(kCanary));
}

} // namespace

// Two bytes lead: the declared size (below each family's record, at it and
// above) and the kind of record in the first, the flags for writing (bits the
// writer ignores included) in the second.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *input, size_t size) {
  if (size < 2) return 0;
  const uint64_t declared[] = {28, 64, 2, 13, 14, 15, 16, 27};
  const uint32_t flags = input[1] * 0x01010101u;
  const CString text(input + 2, size - 2);
  read(text.chars(), declared[input[0] & 7], flags);
  writeAny(input + 2, size - 2, input[0] >> 3 & 3, flags);
  return 0;
}
