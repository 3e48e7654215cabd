// Completion ports: a port object around the system's completion port, with
// sockets tied to it under a caller's key. Waiting passes the system's answer
// through: a failed dequeued operation leaves its key in the caller's
// variable, and a time-out comes back as the raw wait time-out number.
#include "net/socket.h"

#include "frame/errors.h"
#include "frame/handle.h"
#include "frame/lifecycle.h"

#include <winsock2.h>
#include <windows.h>

static_assert(sizeof(ULONG_PTR) == sizeof(uint64_t), "keys travel as pointer-sized values");

struct TOV_IOCPort {
  HANDLE port;          // the system completion port
  uint32_t concurrency; // given at creation, reused for every association
};

extern "C" TOV_Status TOV_IOCPortCreate(uint32_t concurrency, TOV_IOCPort **portOut) noexcept {
  TOV_FRAME(portOut != nullptr);
  tov::UniqueBlock<TOV_IOCPort> obj(
      static_cast<TOV_IOCPort *>(TOV_malloc(tov::libTag(), sizeof(TOV_IOCPort))));
  if (!obj) return TOV_ERR_NO_MEMORY;
  const HANDLE port = CreateIoCompletionPort(INVALID_HANDLE_VALUE, nullptr, 0, concurrency);
  if (port == nullptr) return tov::MapLastSystemError();
  obj->port = port;
  obj->concurrency = concurrency;
  *portOut = obj.release();
  return TOV_OK;
}

extern "C" TOV_Status TOV_IOCPortDestroy(TOV_IOCPort **port) noexcept {
  TOV_FRAME(port != nullptr);
  return tov::closeAndClear<tov::Holds::Record>(
      port, [](TOV_IOCPort *obj) { return tov::closeKernelHandle(obj->port); });
}

extern "C" TOV_Status TOV_IOCPortAssociate(TOV_IOCPort *port, TOV_Skt *socket,
                                           uint64_t key) noexcept {
  SOCKET s;
  tov::sktSystemSocket(socket, &s);
  if (CreateIoCompletionPort(reinterpret_cast<HANDLE>(s), port->port, static_cast<ULONG_PTR>(key),
                             port->concurrency) == nullptr)
    return tov::MapLastSystemError();
  return TOV_OK;
}

extern "C" TOV_Status TOV_IOCPortSignal(TOV_IOCPort *port, uint32_t byteCount, uint64_t key,
                                        OVERLAPPED *overlapped) noexcept {
  if (!PostQueuedCompletionStatus(port->port, byteCount, static_cast<ULONG_PTR>(key), overlapped))
    return tov::MapLastSystemError();
  return TOV_OK;
}

extern "C" TOV_Status TOV_IOCPortWait(TOV_IOCPort *port, uint64_t *byteCount, uint64_t *key,
                                      OVERLAPPED **overlapped, uint32_t timeoutMs) noexcept {
  DWORD count = 0;
  OVERLAPPED *ov = nullptr;
  // The key goes straight to the caller: the system writes it for a failed
  // dequeued operation too, which is how the caller learns which one failed.
  if (!GetQueuedCompletionStatus(port->port, &count, reinterpret_cast<PULONG_PTR>(key), &ov,
                                 timeoutMs))
    return tov::MapLastSystemError();
  if (byteCount) *byteCount = count;
  if (overlapped) *overlapped = ov;
  return TOV_OK;
}
