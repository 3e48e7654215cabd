// The library's text form of IPv4, IPX and IPv6 socket addresses: writing
// (optional protocol prefix, address, optional port) and reading back.
//
// Texts come from configuration files and the network, so the reader never
// looks past a text's terminator, never writes past the caller's declared
// address size, and expands IPv6 texts in a fixed work area that overlong
// texts are refused from rather than overrun.
#include "tov.h"

#include "net/addrbytes.h"

#include <cstring>

namespace {

using tov::net::AddrIPv4;
using tov::net::AddrIPv6;
using tov::net::AddrIPX;
using tov::net::kFamilyIPv4;
using tov::net::kFamilyIPv6;
using tov::net::kFamilyIPX;
using tov::net::netOrder16;
using tov::net::putNetOrder16;

constexpr uint64_t kSizeIPv4 = sizeof(AddrIPv4);
constexpr uint64_t kSizeIPX = sizeof(AddrIPX);
constexpr uint64_t kSizeIPv6 = sizeof(AddrIPv6);

// ---- Characters ------------------------------------------------------------------

// The C library's space class in the "C" locale.
constexpr bool isSpace(char c) noexcept {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
constexpr bool isDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

constexpr int hexValue(char c) noexcept {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

const char *skipSpace(const char *p) noexcept {
  while (isSpace(*p)) ++p;
  return p;
}

const char *skipDigits(const char *p) noexcept {
  while (isDigit(*p)) ++p;
  return p;
}

// Decimal conversion in the manner of atoi: leading whitespace, an optional
// sign, then digits; no digits gives 0. The value is kept modulo 2^32, so
// the low bits are those of the number written however long it is.
uint32_t decimal(const char *p) noexcept {
  p = skipSpace(p);
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  uint32_t value = 0;
  for (; isDigit(*p); ++p) value = value * 10u + static_cast<uint32_t>(*p - '0');
  return negative ? 0u - value : value;
}

// Two hex digits at p into *out; the second is looked at only when the first
// is a digit, so a terminator stops the read.
bool hexByte(const char *p, uint8_t *out) noexcept {
  const int hi = hexValue(p[0]);
  if (hi < 0) return false;
  const int lo = hexValue(p[1]);
  if (lo < 0) return false;
  *out = static_cast<uint8_t>(hi << 4 | lo);
  return true;
}

bool hexGroup(const char *p, uint8_t out[2]) noexcept {
  return hexByte(p, &out[0]) && hexByte(p + 2, &out[1]);
}

// ---- Prefixes ------------------------------------------------------------------------

struct Prefix {
  const char *name;
  size_t length;
  uint32_t flags;
  uint16_t family;
};

// Longer names first: "tcpv6" must not be taken for "tcp", nor "ipv6" or
// "ipx" for "ip".
constexpr Prefix kPrefixes[] = {
    {"tcpv6", 5, TOV_PRES_STREAM, kFamilyIPv6},
    {"udpv6", 5, TOV_PRES_DATAGRAM, kFamilyIPv6},
    {"ipv6", 4, 0, kFamilyIPv6},
    {"spx", 3, TOV_PRES_STREAM, kFamilyIPX},
    {"ipx", 3, TOV_PRES_DATAGRAM, kFamilyIPX},
    {"tcp", 3, TOV_PRES_STREAM, kFamilyIPv4},
    {"udp", 3, TOV_PRES_DATAGRAM, kFamilyIPv4},
    {"ip", 2, 0, kFamilyIPv4},
};

// Compares case-blind over the name's length; a terminator in the text is a
// mismatch, so nothing past it is read.
bool startsWithName(const char *text, const Prefix &prefix) noexcept {
  for (size_t i = 0; i < prefix.length; ++i) {
    char c = text[i];
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    if (c != prefix.name[i]) return false;
  }
  return true;
}

// The prefix written for a family and the flags: lower and upper case.
const char *prefixText(uint16_t family, uint32_t flags) noexcept {
  const bool upper = flags & TOV_PRES_UPPER;
  const bool stream = flags & TOV_PRES_STREAM;
  const bool datagram = flags & TOV_PRES_DATAGRAM;
  switch (family) {
  case kFamilyIPv4:
    if (stream) return upper ? "TCP:" : "tcp:";
    if (datagram) return upper ? "UDP:" : "udp:";
    return upper ? "IP:" : "ip:";
  case kFamilyIPv6:
    if (stream) return upper ? "TCPv6:" : "tcpv6:";
    if (datagram) return upper ? "UDPv6:" : "udpv6:";
    return upper ? "IPv6:" : "ipv6:";
  default:
    if (stream) return upper ? "SPX:" : "spx:";
    return upper ? "IPX:" : "ipx:";
  }
}

// ---- Writing -------------------------------------------------------------------------

class Writer {
public:
  Writer(char *out, bool upper) noexcept
      : p_(out), digits_(upper ? "0123456789ABCDEF" : "0123456789abcdef") {}

  void text(const char *s) noexcept {
    while (*s) *p_++ = *s++;
  }
  void ch(char c) noexcept { *p_++ = c; }
  void unsignedDecimal(uint32_t v) noexcept {
    char tmp[10];
    int n = 0;
    do {
      tmp[n++] = static_cast<char>('0' + v % 10);
      v /= 10;
    } while (v);
    while (n) *p_++ = tmp[--n];
  }
  // Hex without leading zeros ("%x").
  void hex(uint32_t v) noexcept {
    int shift = 28;
    while (shift > 0 && (v >> shift) == 0) shift -= 4;
    for (; shift >= 0; shift -= 4) *p_++ = digits_[(v >> shift) & 0xF];
  }
  // Exactly two hex digits ("%02x").
  void hexByte(uint8_t b) noexcept {
    *p_++ = digits_[b >> 4];
    *p_++ = digits_[b & 0xF];
  }
  void unwind() noexcept { --p_; }
  void finish() noexcept { *p_ = '\0'; }

private:
  char *p_;
  const char *digits_;
};

void writeIPv4(Writer &w, const AddrIPv4 &a, uint32_t flags) noexcept {
  for (int i = 0; i < 4; ++i) {
    if (i) w.ch('.');
    w.unsignedDecimal(a.address[i]);
  }
  if (flags & TOV_PRES_PORT) {
    w.ch(':');
    w.unsignedDecimal(netOrder16(a.port));
  }
}

void writeIPX(Writer &w, const AddrIPX &a, uint32_t flags) noexcept {
  for (int i = 0; i < 4; ++i) w.hexByte(a.network[i]);
  w.ch(':');
  for (int i = 0; i < 6; ++i) w.hexByte(a.node[i]);
  if (flags & TOV_PRES_PORT) {
    w.ch(':');
    w.hexByte(a.socket[0]);
    w.hexByte(a.socket[1]);
  }
}

// Eight groups in brackets; the first run of zero groups (not the longest)
// is written as "::", however short.
void writeIPv6(Writer &w, const AddrIPv6 &a, uint32_t flags) noexcept {
  const uint8_t *b = a.address;
  uint32_t group[8];
  for (int i = 0; i < 8; ++i) group[i] = static_cast<uint32_t>(b[2 * i]) << 8 | b[2 * i + 1];
  w.ch('[');
  int i = 0;
  for (; i < 8 && group[i] != 0; ++i) {
    w.hex(group[i]);
    w.ch(':');
  }
  if (i == 8) {
    w.unwind();
  } else {
    if (i == 0) w.ch(':');
    while (i < 8 && group[i] == 0) ++i;
    if (i == 8) w.ch(':');
    for (; i < 8; ++i) {
      w.ch(':');
      w.hex(group[i]);
    }
  }
  w.ch(']');
  if (flags & TOV_PRES_PORT) {
    w.ch(':');
    w.unsignedDecimal(netOrder16(a.port));
  }
}

// ---- Reading -------------------------------------------------------------------------

// The caller's address record, seen as bytes with its declared size.
struct Target {
  uint8_t *bytes;
  uint64_t *size;
};

// Checks the declared size against the family's record and, when it fits,
// sets it to the record's size before the text is read: a text that then
// fails leaves it so.
bool claim(const Target &t, uint64_t recordSize) noexcept {
  if (*t.size < recordSize) return false;
  *t.size = recordSize;
  return true;
}

TOV_Status readIPv4(const char *p, Target t, uint32_t &flags) noexcept {
  if (!claim(t, kSizeIPv4)) return TOV_ERR_BUFFER_TOO_SMALL;
  uint8_t *address = t.bytes + offsetof(AddrIPv4, address);
  p = skipSpace(p);
  for (int i = 0; i < 4; ++i) {
    address[i] = static_cast<uint8_t>(decimal(p));
    p = skipDigits(p);
    if (i < 3) {
      if (*p != '.') return TOV_ERR_INVALID_PARAMETER;
      ++p;
    }
  }
  p = skipSpace(p);
  if (*p == ':') {
    putNetOrder16(t.bytes + offsetof(AddrIPv4, port), static_cast<uint16_t>(decimal(p + 1)));
    flags |= TOV_PRES_PORT;
  }
  return TOV_OK;
}

TOV_Status readIPX(const char *p, Target t, uint32_t &flags) noexcept {
  if (!claim(t, kSizeIPX)) return TOV_ERR_BUFFER_TOO_SMALL;
  // Network number, node number and socket number follow the family field.
  uint8_t *out = t.bytes + offsetof(AddrIPX, network);
  static_assert(offsetof(AddrIPX, node) == offsetof(AddrIPX, network) + 4 &&
                offsetof(AddrIPX, socket) == offsetof(AddrIPX, network) + 10);
  p = skipSpace(p);
  for (int i = 0; i < 12; ++i) {
    if (!hexByte(p, &out[i])) return TOV_ERR_INVALID_PARAMETER;
    p += 2;
    if (i == 3) {
      if (*p != ':') return TOV_ERR_INVALID_PARAMETER;
      ++p;
    } else if (i == 9) {
      if (*p != ':') break;
      ++p;
      flags |= TOV_PRES_PORT;
    }
  }
  return TOV_OK;
}

// IPv6 texts are first expanded so that every group has four digits, in a
// work area of 66 characters and a terminator.
constexpr size_t kWorkChars = 66;

class Expansion {
public:
  bool put(char c) noexcept {
    if (n_ == kWorkChars) return false;
    text_[n_++] = c;
    return true;
  }
  const char *text() noexcept {
    text_[n_] = '\0';
    return text_;
  }

private:
  char text_[kWorkChars + 1];
  size_t n_ = 0;
};

bool isGroupBreak(char c) noexcept {
  return c == ':' || c == '[' || c == ']' || isSpace(c);
}

// Expands the first 66 characters of the text; false when a group has more
// than four characters or the result does not fit the work area.
bool expandIPv6(const char *text, Expansion &out) noexcept {
  char copy[kWorkChars + 1] = {};
  std::memcpy(copy, text, strnlen(text, kWorkChars));

  // A port after the last "]" is kept aside and appended again at the end.
  const char *port = nullptr;
  if (char *close = std::strrchr(copy, ']'); close && close[1] == ':') {
    close[1] = '\0';
    port = close + 2;
  }

  for (const char *c = copy; *c;) {
    if (isGroupBreak(*c)) {
      if (!out.put(*c++)) return false;
      continue;
    }
    // A group runs to the next ":", else to the next "]", else over four
    // characters.
    const char *end = std::strchr(c, ':');
    if (!end) end = std::strchr(c, ']');
    const size_t length = end ? static_cast<size_t>(end - c) : strnlen(c, 4);
    if (length > 4) return false;
    for (size_t i = length; i < 4; ++i)
      if (!out.put('0')) return false;
    for (size_t i = 0; i < length; ++i)
      if (!out.put(c[i])) return false;
    c += length;
  }

  if (port) {
    if (!out.put(':')) return false;
    for (; *port; ++port)
      if (!out.put(*port)) return false;
  }
  return true;
}

TOV_Status readIPv6(const char *text, Target t, uint32_t &flags) noexcept {
  Expansion expansion;
  if (!expandIPv6(text, expansion)) return TOV_ERR_INVALID_PARAMETER;
  if (!claim(t, kSizeIPv6)) return TOV_ERR_BUFFER_TOO_SMALL;

  uint8_t group[8][2] = {};
  const char *const begin = expansion.text();
  const char *p = skipSpace(begin);
  if (*p != '[') return TOV_ERR_INVALID_PARAMETER;
  ++p;

  // Forward, up to the first "::".
  int count = 0;
  for (int slot = 0; slot < 8; ++slot) {
    if (*p == ':') break;
    if (!hexGroup(p, group[slot])) return TOV_ERR_INVALID_PARAMETER;
    p += 4;
    ++count;
    if (slot < 7) {
      if (*p != ':') return TOV_ERR_INVALID_PARAMETER;
      ++p;
    }
  }
  const char *close = std::strchr(p, ']');
  if (!close) return TOV_ERR_INVALID_PARAMETER;

  // Backward from the "]" to the last "::"; the slots between stay 0. The
  // backward groups never reach in front of where the forward pass stopped.
  const char *lowest = p;
  const char *at = close;
  for (int slot = 7; count < 8; --slot) {
    if (at == begin) return TOV_ERR_INVALID_PARAMETER;
    if (at[-1] == ':') break;
    if (at - 4 < lowest || !hexGroup(at - 4, group[slot])) return TOV_ERR_INVALID_PARAMETER;
    at -= 4;
    if (++count < 8) {
      if (at[-1] != ':') return TOV_ERR_INVALID_PARAMETER;
      --at;
    }
  }

  p = skipSpace(close + 1);
  if (*p == ':') {
    putNetOrder16(t.bytes + offsetof(AddrIPv6, port), static_cast<uint16_t>(decimal(p + 1)));
    flags |= TOV_PRES_PORT;
  }
  std::memcpy(t.bytes + offsetof(AddrIPv6, address), group, sizeof group);
  return TOV_OK;
}

// The family of a text without a prefix: "[" is IPv6, a "." anywhere IPv4,
// a ":" as the ninth character IPX; 0 when none fits.
uint16_t guessFamily(const char *p) noexcept {
  p = skipSpace(p);
  if (*p == '[') return kFamilyIPv6;
  if (std::strchr(p, '.')) return kFamilyIPv4;
  if (strnlen(p, 9) == 9 && p[8] == ':') return kFamilyIPX;
  return 0;
}

} // namespace

extern "C" TOV_Status TOV_SktNetToPresentation(const sockaddr *address, uint32_t flags,
                                               char *text) noexcept {
  uint16_t family;
  std::memcpy(&family, address, sizeof family);
  if (family != kFamilyIPv4 && family != kFamilyIPX && family != kFamilyIPv6)
    return TOV_ERR_INVALID_PARAMETER;

  Writer w(text, flags & TOV_PRES_UPPER);
  if (flags & TOV_PRES_PREFIX) w.text(prefixText(family, flags));
  switch (family) {
  case kFamilyIPv4:
    writeIPv4(w, *reinterpret_cast<const AddrIPv4 *>(address), flags);
    break;
  case kFamilyIPX:
    writeIPX(w, *reinterpret_cast<const AddrIPX *>(address), flags);
    break;
  default:
    writeIPv6(w, *reinterpret_cast<const AddrIPv6 *>(address), flags);
    break;
  }
  w.finish();
  return TOV_OK;
}

extern "C" TOV_Status TOV_SktPresentationToNet(const char *text, uint32_t *flags, sockaddr *address,
                                               uint64_t *addressSize) noexcept {
  uint32_t &found = *flags;
  found = 0;
  const Target target{reinterpret_cast<uint8_t *>(address), addressSize};
  std::memset(target.bytes, 0, *addressSize);

  const char *p = skipSpace(text);
  uint16_t family = 0;
  for (const Prefix &prefix : kPrefixes) {
    if (startsWithName(p, prefix)) {
      p = skipSpace(p + prefix.length);
      if (*p == ':') ++p;
      found |= prefix.flags | TOV_PRES_PREFIX;
      family = prefix.family;
      break;
    }
  }
  if (family == 0) {
    p = text;
    family = guessFamily(p);
  }
  // The family field is stored even when the rest fails, within the size
  // the caller declared.
  if (*addressSize >= sizeof family) std::memcpy(target.bytes, &family, sizeof family);

  switch (family) {
  case kFamilyIPv4:
    return readIPv4(p, target, found);
  case kFamilyIPX:
    return readIPX(p, target, found);
  case kFamilyIPv6:
    return readIPv6(p, target, found);
  default:
    return TOV_ERR_INVALID_PARAMETER;
  }
}
