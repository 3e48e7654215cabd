// Interface enumeration: the local addresses of the IPX, IPv4 and IPv6
// families, each from its own platform source, filtered by the caller's
// selector and merged under the count protocol.
#include "net/interfaces.h"

#include "frame/dynlib.h"
#include "frame/errors.h"
#include "frame/handle.h"
#include "frame/lifecycle.h"

#include <winsock2.h>
#include <ws2tcpip.h>
#include <wsipx.h>
#include <wsnwlink.h>
#include <iphlpapi.h>

#include <algorithm>
#include <cstring>

namespace {

static_assert(sizeof(TOV_SktInterface) == 72);
static_assert(sizeof(INTERFACE_INFO) == 76 && sizeof(IPX_ADDRESS_DATA) == 24);

// GetAdaptersAddresses, found on the first IPv6 list; the last clean-up
// unloads the library and forgets the entry point.
using GetAdaptersAddressesFn = ULONG WINAPI(ULONG, ULONG, PVOID, PIP_ADAPTER_ADDRESSES, PULONG);
constinit tov::DynLibrary g_iphlpapi{"iphlpapi.dll", tov::DynLibraryBase::Load::Owned,
                                     "GetAdaptersAddresses"};
constexpr size_t kGetAdaptersAddresses = 0;

constexpr uint16_t kIpx = 6;
constexpr int kIpxProtocol = 1000;
constexpr size_t kMaxInterfaces = 64;            // of the IPv4 list
constexpr ULONG kAdapterFlags = 0x2 | 0x4 | 0x8; // skip anycast, multicast, DNS servers
constexpr ULONG kSoftwareLoopback = 24, kPpp = 23, kSlip = 28, kTunnel = 131;

// A socket closed at the end of the scope.
struct Socket {
  SOCKET s;
  explicit Socket(int family, int type, int protocol) noexcept
      : s(socket(family, type, protocol)) {}
  ~Socket() {
    if (s != INVALID_SOCKET) closesocket(s);
  }
};

// One family's records, in the platform's order.
struct Records {
  TOV_SktInterface *block = nullptr;
  uint32_t count = 0;

  Records() = default;
  Records(const Records &) = delete;
  Records &operator=(const Records &) = delete;
  ~Records() { TOV_free(block); }

  bool allocate(size_t n) noexcept {
    block = static_cast<TOV_SktInterface *>(TOV_calloc(tov::libTag(), n, sizeof(TOV_SktInterface)));
    return block != nullptr;
  }
  // Appends a record of family with flags and the bytes that follow the
  // family field.
  void add(uint16_t family, uint32_t flags, const void *rest, size_t restLength) noexcept {
    TOV_SktInterface &r = block[count++];
    r.flags = flags;
    std::memcpy(r.addr, &family, 2);
    std::memcpy(r.addr + 2, rest, std::min(restLength, sizeof r.addr - 2));
  }
};

// Whether an interface with these properties is listed under selector.
inline bool selected(uint32_t properties, uint32_t selector) noexcept {
  return (properties & ~selector) == 0;
}

// The IPX networks; nothing (and no failure) where IPX is missing.
TOV_Status ipxPass(uint32_t selector, Records &out) noexcept {
  Socket sock(kIpx, SOCK_DGRAM, kIpxProtocol);
  if (sock.s == INVALID_SOCKET) return TOV_OK;
  SOCKADDR_IPX bound{};
  bound.sa_family = kIpx;
  int length = sizeof bound, adapters = 0, optionLength = sizeof adapters;
  if (bind(sock.s, reinterpret_cast<sockaddr *>(&bound), sizeof bound) != 0 ||
      getsockopt(sock.s, kIpxProtocol, IPX_MAX_ADAPTER_NUM, reinterpret_cast<char *>(&adapters),
                 &optionLength) != 0 ||
      getsockname(sock.s, reinterpret_cast<sockaddr *>(&bound), &length) != 0 || adapters <= 0)
    return TOV_OK;
  if (!out.allocate(adapters)) return TOV_ERR_NO_MEMORY;

  // The internal network's node stands for the whole machine.
  static constexpr char kInternalNode[6] = {0, 0, 0, 0, 0, 1};
  if (std::memcmp(bound.sa_nodenum, kInternalNode, 6) == 0) {
    out.add(kIpx, 0, reinterpret_cast<const char *>(&bound) + 2, 10); // network, node
    return TOV_OK;
  }
  for (int i = 0; i < adapters; ++i) {
    IPX_ADDRESS_DATA data{};
    data.adapternum = i;
    optionLength = sizeof data;
    if (getsockopt(sock.s, kIpxProtocol, IPX_ADDRESS, reinterpret_cast<char *>(&data),
                   &optionLength) != 0)
      continue;
    const uint32_t properties =
        (data.status ? 0 : TOV_IF_DOWN) | (data.wan ? TOV_IF_POINTTOPOINT : 0);
    if (!selected(properties, selector)) continue;
    uint8_t numbers[10];
    std::memcpy(numbers, data.netnum, 4);
    std::memcpy(numbers + 4, data.nodenum, 6);
    out.add(kIpx, properties, numbers, sizeof numbers);
  }
  return TOV_OK;
}

// The IPv4 addresses from the interface list of a UDP socket.
TOV_Status ipv4Pass(uint32_t selector, Records &out) noexcept {
  Socket sock(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (sock.s == INVALID_SOCKET) return TOV_OK;
  INTERFACE_INFO list[kMaxInterfaces];
  DWORD bytes = 0;
  if (WSAIoctl(sock.s, SIO_GET_INTERFACE_LIST, nullptr, 0, list, sizeof list, &bytes, nullptr,
               nullptr) != 0)
    return tov::MapWSALastError();
  const size_t entries = bytes / sizeof(INTERFACE_INFO);
  if (entries == 0) return TOV_OK;
  if (!out.allocate(entries)) return TOV_ERR_NO_MEMORY;
  for (size_t i = 0; i < entries; ++i) {
    const ULONG f = list[i].iiFlags;
    const uint32_t properties = (f & IFF_LOOPBACK ? TOV_IF_LOOPBACK : 0) |
                                (f & IFF_POINTTOPOINT ? TOV_IF_POINTTOPOINT : 0) |
                                (f & IFF_UP ? 0 : TOV_IF_DOWN);
    if (!selected(properties, selector)) continue;
    uint8_t rest[6] = {}; // port 0, then the address
    std::memcpy(rest + 2, &list[i].iiAddress.AddressIn.sin_addr, 4);
    out.add(AF_INET, properties, rest, sizeof rest);
  }
  return TOV_OK;
}

// The properties of an adapter of the IPv6 list.
uint32_t adapterProperties(const IP_ADAPTER_ADDRESSES &a) noexcept {
  return (a.IfType == kSoftwareLoopback ? TOV_IF_LOOPBACK : 0) |
         (a.IfType == kPpp || a.IfType == kSlip ? TOV_IF_POINTTOPOINT : 0) |
         (a.OperStatus == IfOperStatusUp ? 0 : TOV_IF_DOWN);
}

// The IPv6 unicast addresses from the IP helper library; nothing (and no
// failure) without it. Tunnel adapters give nothing.
TOV_Status ipv6Pass(uint32_t selector, Records &out) noexcept {
  auto *getAdapters = g_iphlpapi.get<GetAdaptersAddressesFn>(kGetAdaptersAddresses);
  if (!getAdapters) return TOV_OK;
  ULONG size = 0;
  ULONG rc = getAdapters(AF_INET6, kAdapterFlags, nullptr, nullptr, &size);
  if (rc != ERROR_BUFFER_OVERFLOW) return tov::MapSystemError(rc);
  tov::UniqueBlock<IP_ADAPTER_ADDRESSES> adapters(
      static_cast<IP_ADAPTER_ADDRESSES *>(TOV_malloc(tov::libTag(), size)));
  if (!adapters) return TOV_ERR_NO_MEMORY;
  if ((rc = getAdapters(AF_INET6, kAdapterFlags, nullptr, adapters.get(), &size)) != 0)
    return tov::MapSystemError(rc);

  // Walked twice: counting, then filling.
  for (int fill = 0; fill < 2; ++fill) {
    size_t n = 0;
    for (const IP_ADAPTER_ADDRESSES *a = adapters.get(); a; a = a->Next) {
      const uint32_t properties = adapterProperties(*a);
      if (a->IfType == kTunnel || !selected(properties, selector)) continue;
      for (const IP_ADAPTER_UNICAST_ADDRESS *u = a->FirstUnicastAddress; u; u = u->Next, ++n) {
        const SOCKET_ADDRESS &sa = u->Address;
        if (fill)
          out.add(AF_INET6, properties, reinterpret_cast<const char *>(sa.lpSockaddr) + 2,
                  sa.iSockaddrLength > 2 ? size_t(sa.iSockaddrLength) - 2 : 0);
      }
    }
    if (n == 0) return TOV_OK;
    if (!fill && !out.allocate(n)) return TOV_ERR_NO_MEMORY;
  }
  return TOV_OK;
}

} // namespace

void tov::interfacesRelease() noexcept {
  g_iphlpapi.forget();
}

extern "C" TOV_Status TOV_SktEnumInterfaces(uint32_t family, uint32_t selector, uint32_t *count,
                                            TOV_SktInterface *interfaces) noexcept {
  const uint32_t room = *count;
  uint32_t total = 0;
  TOV_Status ipxStatus = TOV_OK, ipStatus = TOV_OK;
  using Pass = TOV_Status (*)(uint32_t, Records &);
  const struct {
    uint32_t family;
    Pass pass;
  } passes[] = {{kIpx, ipxPass}, {AF_INET, ipv4Pass}, {AF_INET6, ipv6Pass}};
  for (const auto &p : passes) {
    if (family != 0 && family != p.family) continue;
    Records records;
    const TOV_Status status = p.pass(selector, records);
    (p.family == kIpx ? ipxStatus : ipStatus) = status;
    if (status != TOV_OK) continue;
    for (uint32_t i = 0; i < records.count; ++i, ++total)
      if (total < room) interfaces[total] = records.block[i];
  }
  *count = total;
  if (total > room) return TOV_ERR_BUFFER_TOO_SMALL;
  return ipxStatus != TOV_OK ? ipxStatus : ipStatus;
}
