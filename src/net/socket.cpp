// Sockets: a thin layer over one Winsock call per function. Every socket is
// overlapped, so the same handle serves blocking calls, socket sets and
// completion ports; a call the system leaves pending counts as success.
#include "net/socket.h"

#include "frame/errors.h"
#include "frame/handle.h"
#include "frame/lifecycle.h"

#include <winsock2.h>
#include <windows.h>

namespace {

constexpr int kSocketLevel = 0xFFFF;
constexpr int kReuseAddr = 4; // remembered only, never set on the system socket

// The platform takes 32-bit lengths: only the low half counts.
inline DWORD low32(uint64_t n) noexcept {
  return static_cast<DWORD>(n);
}

bool isRemembered(int32_t level, int32_t name) noexcept {
  return level == kSocketLevel && name == kReuseAddr;
}

int32_t platformOption(int32_t level, int32_t name) noexcept {
  return level == kSocketLevel && name == TOV_SO_REUSEPORT ? kReuseAddr : name;
}

} // namespace

extern "C" TOV_Status TOV_SktCreate(int32_t family, int32_t type, int32_t protocol,
                                    TOV_Skt **socketOut) noexcept {
  TOV_FRAME(socketOut != nullptr);
  tov::UniqueBlock<TOV_Skt> skt(static_cast<TOV_Skt *>(TOV_malloc(tov::libTag(), sizeof(TOV_Skt))));
  if (!skt) return TOV_ERR_NO_MEMORY;
  const SOCKET s = WSASocketA(family, type, protocol, nullptr, 0, WSA_FLAG_OVERLAPPED);
  if (s == INVALID_SOCKET) return tov::MapWSALastError();
  skt->sock = s;
  skt->reuseAddr = 0;
  *socketOut = skt.release();
  return TOV_OK;
}

extern "C" TOV_Status TOV_SktDestroy(TOV_Skt **socket) noexcept {
  TOV_FRAME(socket != nullptr);
  return tov::closeAndClear<tov::Holds::Record>(socket, [](TOV_Skt *skt) {
    return closesocket(skt->sock) == 0 ? TOV_OK : tov::MapWSALastError();
  });
}

extern "C" TOV_Status TOV_SktBind(TOV_Skt *skt, const sockaddr *address,
                                  uint64_t addressLength) noexcept {
  TOV_FRAME(skt && address && addressLength != 0);
  if (bind(skt->sock, address, static_cast<int>(low32(addressLength))) != 0)
    return tov::MapWSALastError();
  return TOV_OK;
}

extern "C" TOV_Status TOV_SktListen(TOV_Skt *skt, int32_t backlog) noexcept {
  TOV_FRAME(skt != nullptr);
  if (listen(skt->sock, backlog) != 0) return tov::MapWSALastError();
  return TOV_OK;
}

extern "C" TOV_Status TOV_SktAccept(TOV_Skt *listener, TOV_Skt **socketOut, sockaddr *peer,
                                    int32_t *peerLength) noexcept {
  TOV_FRAME(listener && socketOut);
  const SOCKET s = WSAAccept(listener->sock, peer, peerLength, nullptr, 0);
  if (s == INVALID_SOCKET) return tov::MapWSALastError();
  auto *skt = static_cast<TOV_Skt *>(TOV_malloc(tov::libTag(), sizeof(TOV_Skt)));
  if (!skt) {
    closesocket(s);
    return TOV_ERR_NO_MEMORY;
  }
  skt->sock = s;
  skt->reuseAddr = 0;
  *socketOut = skt;
  return TOV_OK;
}

extern "C" TOV_Status TOV_SktConnect(TOV_Skt *skt, const sockaddr *address,
                                     uint64_t addressLength) noexcept {
  TOV_FRAME(skt && address && addressLength != 0);
  if (WSAConnect(skt->sock, address, static_cast<int>(low32(addressLength)), nullptr, nullptr,
                 nullptr, nullptr) != 0)
    return tov::MapWSALastError();
  return TOV_OK;
}

extern "C" TOV_Status TOV_SktShutdown(TOV_Skt *skt, int32_t how) noexcept {
  TOV_FRAME(skt != nullptr);
  if (shutdown(skt->sock, how) != 0) return tov::MapWSALastError();
  return TOV_OK;
}

namespace {

// getsockname or getpeername; the length is written back only on success.
TOV_Status socketAddress(int(WSAAPI *query)(SOCKET, sockaddr *, int *), TOV_Skt *skt,
                         sockaddr *address, int32_t *addressLength) noexcept {
  TOV_FRAME(skt && address && addressLength);
  int length = *addressLength;
  if (query(skt->sock, address, &length) != 0) return tov::MapWSALastError();
  *addressLength = length;
  return TOV_OK;
}

} // namespace

extern "C" TOV_Status TOV_SktGetLocalAddress(TOV_Skt *skt, sockaddr *address,
                                             int32_t *addressLength) noexcept {
  return socketAddress(getsockname, skt, address, addressLength);
}

extern "C" TOV_Status TOV_SktGetRemoteAddress(TOV_Skt *skt, sockaddr *address,
                                              int32_t *addressLength) noexcept {
  return socketAddress(getpeername, skt, address, addressLength);
}

extern "C" TOV_Status TOV_SktGetOption(TOV_Skt *skt, int32_t level, int32_t name, void *value,
                                       uint64_t *valueLength) noexcept {
  TOV_FRAME(skt && (value || !valueLength));
  if (isRemembered(level, name)) {
    // Nothing to write the remembered value into.
    if (!value) return TOV_ERR_INVALID_PARAMETER;
    const uint32_t v = skt->reuseAddr ? 1 : 0;
    __builtin_memcpy(value, &v, sizeof v);
    if (valueLength) *valueLength = sizeof v;
    return TOV_OK;
  }
  int length = valueLength ? static_cast<int>(low32(*valueLength)) : 0;
  if (getsockopt(skt->sock, level, platformOption(level, name), static_cast<char *>(value),
                 &length) != 0)
    return tov::MapWSALastError();
  if (valueLength) *valueLength = static_cast<uint64_t>(static_cast<int64_t>(length));
  return TOV_OK;
}

extern "C" TOV_Status TOV_SktSetOption(TOV_Skt *skt, int32_t level, int32_t name, const void *value,
                                       uint64_t valueLength) noexcept {
  TOV_FRAME(skt && (value || valueLength == 0));
  if (isRemembered(level, name)) {
    if (!value) return TOV_ERR_INVALID_PARAMETER;
    uint32_t v;
    __builtin_memcpy(&v, value, sizeof v);
    skt->reuseAddr = v != 0;
    return TOV_OK;
  }
  if (setsockopt(skt->sock, level, platformOption(level, name), static_cast<const char *>(value),
                 static_cast<int>(low32(valueLength))) != 0)
    return tov::MapWSALastError();
  return TOV_OK;
}

extern "C" TOV_Status TOV_SktIOCtl(TOV_Skt *skt, uint32_t code, const void *input,
                                   uint64_t inputLength, void *output, uint64_t *outputLength,
                                   OVERLAPPED *overlapped) noexcept {
  TOV_FRAME(skt && (input || inputLength == 0) && (output || !outputLength || *outputLength == 0));
  DWORD returned = 0;
  if (WSAIoctl(skt->sock, code, const_cast<void *>(input), low32(inputLength), output,
               outputLength ? low32(*outputLength) : 0, &returned, overlapped, nullptr) != 0) {
    if (const TOV_Status status = tov::MapWSALastError(); status != TOV_OK) return status;
  }
  if (outputLength) *outputLength = returned;
  return TOV_OK;
}

namespace {

// Send and receive behind the call frame, shared by the list and
// single-buffer forms. A pending overlapped call maps to TOV_OK; its count is
// then 0 and the real one comes with the completion.
TOV_Status sendList(TOV_Skt *skt, WSABUF *buffers, uint32_t count, uint64_t *bytesSent,
                    uint32_t flags, const sockaddr *to, int32_t toLength,
                    OVERLAPPED *overlapped) noexcept {
  DWORD sent = 0;
  const int rc =
      to ? WSASendTo(skt->sock, buffers, count, &sent, flags, to, toLength, overlapped, nullptr)
         : WSASend(skt->sock, buffers, count, &sent, flags, overlapped, nullptr);
  if (rc != 0) {
    if (const TOV_Status status = tov::MapWSALastError(); status != TOV_OK) return status;
  }
  if (bytesSent) *bytesSent = sent;
  return TOV_OK;
}

TOV_Status receiveList(TOV_Skt *skt, WSABUF *buffers, uint32_t count, uint64_t *bytesReceived,
                       uint32_t *flags, sockaddr *from, int32_t *fromLength,
                       OVERLAPPED *overlapped) noexcept {
  DWORD received = 0;
  DWORD localFlags = flags ? *flags : 0;
  const int rc =
      from ? WSARecvFrom(skt->sock, buffers, count, &received, &localFlags, from, fromLength,
                         overlapped, nullptr)
           : WSARecv(skt->sock, buffers, count, &received, &localFlags, overlapped, nullptr);
  if (rc != 0) {
    if (const TOV_Status status = tov::MapWSALastError(); status != TOV_OK) return status;
  }
  if (flags) *flags = localFlags;
  if (bytesReceived) *bytesReceived = received;
  return TOV_OK;
}

} // namespace

extern "C" TOV_Status TOV_SktSend(TOV_Skt *skt, WSABUF *buffers, uint32_t count,
                                  uint64_t *bytesSent, uint32_t flags, const sockaddr *to,
                                  int32_t toLength, OVERLAPPED *overlapped) noexcept {
  TOV_FRAME(skt && (buffers || count == 0));
  return sendList(skt, buffers, count, bytesSent, flags, to, toLength, overlapped);
}

extern "C" TOV_Status TOV_SktSendBuf(TOV_Skt *skt, const void *data, uint64_t length,
                                     uint64_t *bytesSent, uint32_t flags, const sockaddr *to,
                                     int32_t toLength, OVERLAPPED *overlapped) noexcept {
  TOV_FRAME(skt && (data || length == 0));
  WSABUF one{low32(length), static_cast<char *>(const_cast<void *>(data))};
  return sendList(skt, &one, 1, bytesSent, flags, to, toLength, overlapped);
}

extern "C" TOV_Status TOV_SktReceive(TOV_Skt *skt, WSABUF *buffers, uint32_t count,
                                     uint64_t *bytesReceived, uint32_t *flags, sockaddr *from,
                                     int32_t *fromLength, OVERLAPPED *overlapped) noexcept {
  TOV_FRAME(skt && (buffers || count == 0));
  return receiveList(skt, buffers, count, bytesReceived, flags, from, fromLength, overlapped);
}

extern "C" TOV_Status TOV_SktRecvBuf(TOV_Skt *skt, void *buffer, uint64_t length,
                                     uint64_t *bytesReceived, uint32_t *flags, sockaddr *from,
                                     int32_t *fromLength, OVERLAPPED *overlapped) noexcept {
  TOV_FRAME(skt && (buffer || length == 0));
  WSABUF one{low32(length), static_cast<char *>(buffer)};
  return receiveList(skt, &one, 1, bytesReceived, flags, from, fromLength, overlapped);
}
