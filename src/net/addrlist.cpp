// Address lists: a host text, perhaps with a port, resolved into a list of
// socket addresses that the caller owns.
#include "net/hostport.h"

#include "frame/handle.h"
#include "frame/lifecycle.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>
#include <cstring>

namespace {

// Frees a list node by node.
void freeList(TOV_AddrBuf *list) noexcept {
  while (list) {
    TOV_AddrBuf *next = list->next;
    TOV_free(list);
    list = next;
  }
}

// The resolver's answer, freed at the end of the scope.
struct Answer {
  addrinfo *first = nullptr;
  ~Answer() {
    if (first) freeaddrinfo(first);
  }
};

} // namespace

extern "C" TOV_Status TOV_GetAddrBufList(const char *host, uint16_t *port,
                                         TOV_AddrBuf **list) noexcept {
  if (!list || *list || !host) return TOV_ERR_INVALID_PARAMETER;
  tov::UniqueBlock<char> copy(TOV_strdup(tov::libTag(), host));
  if (!copy) return TOV_ERR_NO_MEMORY;
  uint16_t found = 0;
  const char *name = tov::splitHostPort(copy.get(), &found);

  // Any family, stream sockets: each address comes once.
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  Answer answer;
  if (const int rc = getaddrinfo(name, nullptr, &hints, &answer.first); rc != 0) {
    const int error = WSAGetLastError();
    if (port) *port = 0;
    return error != 0 ? error : rc; // the system's own number, not mapped
  }

  // Each address pushed at the front: the list runs in the reverse order.
  TOV_AddrBuf *head = nullptr;
  for (const addrinfo *ai = answer.first; ai; ai = ai->ai_next) {
    auto *node = static_cast<TOV_AddrBuf *>(TOV_calloc(tov::libTag(), 1, sizeof(TOV_AddrBuf)));
    if (!node) {
      freeList(head);
      if (port) *port = 0;
      return TOV_ERR_NO_MEMORY;
    }
    std::memcpy(node->addr, ai->ai_addr, std::min<size_t>(ai->ai_addrlen, sizeof node->addr));
    node->next = head;
    head = node;
  }
  if (port) *port = found;
  *list = head;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FreeAddrBufList(TOV_AddrBuf *list) noexcept {
  freeList(list);
  return TOV_OK;
}
