// The byte layouts of the socket address records the text form reads and
// writes: family first (host order), every other number in network order.
// Plain bytes, so that the text form builds without the system's socket
// headers; on Windows the layouts are checked against the system's records.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tov::net {

constexpr uint16_t kFamilyIPv4 = 2;
constexpr uint16_t kFamilyIPX = 6;
constexpr uint16_t kFamilyIPv6 = 23;

struct AddrIPv4 {
  uint16_t family;
  uint8_t port[2];
  uint8_t address[4];
  uint8_t zero[8];
};

struct AddrIPX {
  uint16_t family;
  uint8_t network[4];
  uint8_t node[6];
  uint8_t socket[2];
};

struct AddrIPv6 {
  uint16_t family;
  uint8_t port[2];
  uint8_t flowInfo[4];
  uint8_t address[16];
  uint8_t scopeId[4];
};

static_assert(sizeof(AddrIPv4) == 16 && sizeof(AddrIPX) == 14 && sizeof(AddrIPv6) == 28);

// A 16-bit number stored high byte first, and read back.
inline void putNetOrder16(uint8_t out[2], uint16_t v) noexcept {
  out[0] = static_cast<uint8_t>(v >> 8);
  out[1] = static_cast<uint8_t>(v);
}
inline uint16_t netOrder16(const uint8_t in[2]) noexcept {
  return static_cast<uint16_t>(in[0] << 8 | in[1]);
}

} // namespace tov::net

#ifdef _WIN32
#include <winsock2.h>
#include <ws2tcpip.h>
#include <wsipx.h>

namespace tov::net {
static_assert(sizeof(sockaddr_in) == sizeof(AddrIPv4) &&
              offsetof(sockaddr_in, sin_port) == offsetof(AddrIPv4, port) &&
              offsetof(sockaddr_in, sin_addr) == offsetof(AddrIPv4, address));
static_assert(sizeof(SOCKADDR_IPX) == sizeof(AddrIPX) &&
              offsetof(SOCKADDR_IPX, sa_netnum) == offsetof(AddrIPX, network) &&
              offsetof(SOCKADDR_IPX, sa_nodenum) == offsetof(AddrIPX, node) &&
              offsetof(SOCKADDR_IPX, sa_socket) == offsetof(AddrIPX, socket));
static_assert(sizeof(sockaddr_in6) == sizeof(AddrIPv6) &&
              offsetof(sockaddr_in6, sin6_port) == offsetof(AddrIPv6, port) &&
              offsetof(sockaddr_in6, sin6_flowinfo) == offsetof(AddrIPv6, flowInfo) &&
              offsetof(sockaddr_in6, sin6_addr) == offsetof(AddrIPv6, address) &&
              offsetof(sockaddr_in6, sin6_scope_id) == offsetof(AddrIPv6, scopeId));
} // namespace tov::net
#endif
