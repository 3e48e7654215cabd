// Translation of Win32, Winsock and C runtime error numbers into TOV_Status.
// One table per numbering; a number a table lacks is reported on the debug
// output and handed back unchanged, as a positive status.
#include "errors.h"

#include <winsock2.h>
#include <windows.h>

#include <cerrno>

namespace tov {
namespace {

struct Mapping {
  int32_t number;
  TOV_Status code;
};

template <size_t N> bool lookUp(const Mapping (&table)[N], int32_t number, TOV_Status &code) {
  for (const Mapping &m : table) {
    if (m.number == number) {
      code = m.code;
      return true;
    }
  }
  return false;
}

constexpr Mapping kWin32[] = {
    {0, TOV_OK},
    {2, TOV_ERR_NOT_FOUND},
    {3, TOV_ERR_NOT_FOUND},
    {5, TOV_ERR_ACCESS_DENIED},
    {6, TOV_ERR_INVALID_HANDLE},
    {8, TOV_ERR_NO_MEMORY},
    {14, TOV_ERR_NO_MEMORY},
    {18, TOV_ERR_END_OF_DATA},
    {38, TOV_ERR_END_OF_DATA},
    {80, TOV_ERR_ALREADY_EXISTS},
    {87, TOV_ERR_INVALID_PARAMETER},
    {121, TOV_ERR_TIMEOUT},
    {122, TOV_ERR_BUFFER_TOO_SMALL},
    {126, TOV_ERR_MODULE_NOT_FOUND},
    {127, TOV_ERR_SYMBOL_NOT_FOUND},
    {183, TOV_ERR_ALREADY_EXISTS},
    {190, TOV_ERR_INVALID_MODULE},
    {298, TOV_ERR_TOO_MANY_POSTS},
    {487, TOV_ERR_NOT_FOUND},
    {995, TOV_ERR_ABORTED},
    {1130, TOV_ERR_NO_MEMORY},
    {1460, TOV_ERR_TIMEOUT},
};

// The 43 WSAE errors from WSAEINTR to WSAEREMOTE take the network codes in
// ascending order; from WSAEWOULDBLOCK on the numbers run without gaps.
constexpr Mapping kWinsock[] = {
    {0, TOV_OK},
    {997, TOV_OK}, // WSA_IO_PENDING: an overlapped operation under way
    {8, TOV_ERR_NO_MEMORY},
    {87, TOV_ERR_INVALID_PARAMETER},
    {995, TOV_ERR_ABORTED},
    {10004, TOV_ERR_NET_INTR},
    {10009, TOV_ERR_NET_BADF},
    {10013, TOV_ERR_NET_ACCES},
    {10014, TOV_ERR_NET_FAULT},
    {10022, TOV_ERR_NET_INVAL},
    {10024, TOV_ERR_NET_MFILE},
    {10035, TOV_ERR_NET_WOULDBLOCK},
    {10036, TOV_ERR_NET_INPROGRESS},
    {10037, TOV_ERR_NET_ALREADY},
    {10038, TOV_ERR_NET_NOTSOCK},
    {10039, TOV_ERR_NET_DESTADDRREQ},
    {10040, TOV_ERR_NET_MSGSIZE},
    {10041, TOV_ERR_NET_PROTOTYPE},
    {10042, TOV_ERR_NET_NOPROTOOPT},
    {10043, TOV_ERR_NET_PROTONOSUPPORT},
    {10044, TOV_ERR_NET_SOCKTNOSUPPORT},
    {10045, TOV_ERR_NET_OPNOTSUPP},
    {10046, TOV_ERR_NET_PFNOSUPPORT},
    {10047, TOV_ERR_NET_AFNOSUPPORT},
    {10048, TOV_ERR_NET_ADDRINUSE},
    {10049, TOV_ERR_NET_ADDRNOTAVAIL},
    {10050, TOV_ERR_NET_NETDOWN},
    {10051, TOV_ERR_NET_NETUNREACH},
    {10052, TOV_ERR_NET_NETRESET},
    {10053, TOV_ERR_NET_CONNABORTED},
    {10054, TOV_ERR_NET_CONNRESET},
    {10055, TOV_ERR_NET_NOBUFS},
    {10056, TOV_ERR_NET_ISCONN},
    {10057, TOV_ERR_NET_NOTCONN},
    {10058, TOV_ERR_NET_SHUTDOWN},
    {10059, TOV_ERR_NET_TOOMANYREFS},
    {10060, TOV_ERR_NET_TIMEDOUT},
    {10061, TOV_ERR_NET_CONNREFUSED},
    {10062, TOV_ERR_NET_LOOP},
    {10063, TOV_ERR_NET_NAMETOOLONG},
    {10064, TOV_ERR_NET_HOSTDOWN},
    {10065, TOV_ERR_NET_HOSTUNREACH},
    {10066, TOV_ERR_NET_NOTEMPTY},
    {10067, TOV_ERR_NET_PROCLIM},
    {10068, TOV_ERR_NET_USERS},
    {10069, TOV_ERR_NET_DQUOT},
    {10070, TOV_ERR_NET_STALE},
    {10071, TOV_ERR_NET_REMOTE},
};

constexpr Mapping kErrno[] = {
    {0, TOV_OK},
    {ENOENT, TOV_ERR_NOT_FOUND},
    {EBADF, TOV_ERR_INVALID_HANDLE},
    {ENOMEM, TOV_ERR_NO_MEMORY},
    {EACCES, TOV_ERR_ACCESS_DENIED},
    {EEXIST, TOV_ERR_ALREADY_EXISTS},
    {EINVAL, TOV_ERR_INVALID_PARAMETER},
};

static_assert(sizeof(kWinsock) / sizeof(kWinsock[0]) == 5 + 43);

} // namespace

TOV_Status MapSystemError(uint32_t win32Error) noexcept {
  TOV_Status code;
  const auto number = static_cast<int32_t>(win32Error);
  if (lookUp(kWin32, number, code)) return code;
  TOV_DebugOutput("TOV MapSystemError: No mapping for Win32 error %d.", number);
  return number;
}

TOV_Status MapLastSystemError() noexcept {
  return MapSystemError(GetLastError());
}

TOV_Status MapWinsockError(int wsaError) noexcept {
  TOV_Status code;
  if (lookUp(kWinsock, wsaError, code)) return code;
  TOV_DebugOutput("TOV MapWSALastError: No mapping for Winsock error %d.", wsaError);
  return wsaError;
}

TOV_Status MapWSALastError() noexcept {
  return MapWinsockError(WSAGetLastError());
}

TOV_Status MapErrnoValue(int err) noexcept {
  TOV_Status code;
  if (lookUp(kErrno, err, code)) return code;
  TOV_DebugOutput("TOV Map_errno: No mapping for Std C Lib error %d.", err);
  return err;
}

TOV_Status Map_errno() noexcept {
  return MapErrnoValue(errno);
}

} // namespace tov
