// The socket object behind a TOV_Skt handle, and the accessor through which
// socket sets and completion ports reach its system socket.
#pragma once

#include "tov.h"

#include <winsock2.h>

#include <cstdint>

struct TOV_Skt {
  SOCKET sock;       // set at creation, never changed
  uint8_t reuseAddr; // remembered address-reuse option (level 0xFFFF, name 4)
};

namespace tov {

// Stores the handle's system socket in *out. No checks; never fails.
inline TOV_Status sktSystemSocket(const TOV_Skt *skt, SOCKET *out) noexcept {
  *out = skt->sock;
  return TOV_OK;
}

} // namespace tov
