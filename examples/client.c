/*
 * The client of the example servers: a few readable requests, then timed
 * echo round trips, then quit, which stops the server.
 *
 *   client [address] [round trips]      default tcp:127.0.0.1:47001 2000
 *
 * The address is a stream address in text form (tcp:127.0.0.1:47001,
 * [::1]:47001) or a host name with a port (localhost:47001), which the
 * client resolves. Connecting is retried for up to 5 s while the server
 * starts; every reply is awaited for at most 5 s.
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "proto.h"

#include <ws2tcpip.h>

#define CONNECT_SECONDS 5.0
#define REPLY_TIMEOUT_MS 5000

typedef struct Client {
  TOV_Skt *socket;
  uint32_t nextId;
  ProtoReader reader;
} Client;

#define MAX_TARGETS 8

/* Where the server may be: one address, or those a name resolves to. */
typedef struct Targets {
  struct sockaddr_storage address[MAX_TARGETS];
  int32_t length[MAX_TARGETS];
  int count;
} Targets;

/* Reads the address as text, or else resolves it as host:port. */
static TOV_Status findServer(const char *text, Targets *t) {
  t->count = 0;
  if (protoAddress(text, &t->address[0], &t->length[0]) == TOV_OK) {
    t->count = 1;
    return TOV_OK;
  }
  TOV_AddrBuf *list = NULL;
  uint16_t port = 0;
  const TOV_Status status = TOV_GetAddrBufList(text, &port, &list);
  if (status != TOV_OK) return status;
  for (const TOV_AddrBuf *n = list; n && port != 0 && t->count < MAX_TARGETS; n = n->next) {
    const int family = ((const struct sockaddr *)n->addr)->sa_family;
    if (family != AF_INET && family != AF_INET6) continue;
    const int32_t length =
        family == AF_INET ? sizeof(struct sockaddr_in) : sizeof(struct sockaddr_in6);
    memcpy(&t->address[t->count], n->addr, (size_t)length);
    /* The port comes apart; it goes in network order at the same place in
     * both families. */
    uint8_t *bytes = (uint8_t *)&t->address[t->count];
    bytes[2] = (uint8_t)(port >> 8);
    bytes[3] = (uint8_t)port;
    t->length[t->count++] = length;
  }
  TOV_FreeAddrBufList(list);
  return t->count > 0 ? TOV_OK : TOV_ERR_INVALID_PARAMETER;
}

static TOV_Status connectOne(Client *c, const struct sockaddr_storage *address, int32_t length) {
  TOV_Status status = TOV_SktCreate(address->ss_family, SOCK_STREAM, IPPROTO_TCP, &c->socket);
  if (status != TOV_OK) return status;
  status = TOV_SktConnect(c->socket, (const struct sockaddr *)address, (uint64_t)length);
  if (status != TOV_OK) {
    TOV_SktDestroy(&c->socket);
    return status;
  }
  const DWORD one = 1, timeout = REPLY_TIMEOUT_MS;
  TOV_SktSetOption(c->socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  TOV_SktSetOption(c->socket, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
  return TOV_OK;
}

/* Tries every address, the resolver's first choice first (an address list
 * runs in the reverse order), for as long as one refuses: the server is not
 * listening yet. */
static TOV_Status connectTo(Client *c, const Targets *t) {
  const double until = protoNow() + CONNECT_SECONDS;
  for (;;) {
    TOV_Status status = TOV_OK;
    int refused = 0;
    for (int i = t->count - 1; i >= 0; --i) {
      status = connectOne(c, &t->address[i], t->length[i]);
      if (status == TOV_OK) return TOV_OK;
      refused |= status == TOV_ERR_NET_CONNREFUSED;
    }
    if (!refused || protoNow() > until) return status;
    Sleep(100);
  }
}

/* Encodes the requests (ids assigned here) and sends them as one block, or
 * in pieces some milliseconds apart, to show that the server puts records
 * together from what arrives. */
static TOV_Status sendRequests(Client *c, ProtoMessage *requests, int count, int pieces) {
  static uint8_t block[4 * PROTO_MAX_RECORD];
  uint8_t *at = block;
  for (int i = 0; i < count; ++i) {
    requests[i].id = ++c->nextId;
    TOV_Status status = protoPutRequest(&at, block + sizeof block, &requests[i]);
    if (status != TOV_OK) return status;
  }
  const uint64_t total = (uint64_t)(at - block);
  uint64_t done = 0;
  for (int p = 1; p <= pieces; ++p) {
    const uint64_t upTo = total * (uint64_t)p / (uint64_t)pieces;
    TOV_Status status = protoSendAll(c->socket, block + done, upTo - done);
    if (status != TOV_OK) return status;
    done = upTo;
    if (p < pieces) Sleep(30);
  }
  return TOV_OK;
}

/* The next reply, which must answer the request with id. */
static TOV_Status readReply(Client *c, uint32_t id, ProtoMessage *reply) {
  uint8_t *body;
  uint32_t length;
  TOV_Status status;
  while ((status = protoReaderNext(&c->reader, &body, &length)) == TOV_ERR_BUFFER_END) {
    uint32_t room = 0, flags = 0;
    uint8_t *space = protoReaderSpace(&c->reader, &room);
    uint64_t got = 0;
    status = TOV_SktRecvBuf(c->socket, space, room, &got, &flags, NULL, NULL, NULL);
    if (status != TOV_OK) return status;
    if (got == 0) return TOV_ERR_END_OF_DATA;
    protoReaderAdd(&c->reader, (uint32_t)got);
  }
  if (status != TOV_OK) return status;
  status = protoGetReply(body, length, reply);
  if (status == TOV_OK && reply->id != id) status = TOV_ERR_NOT_FOUND;
  return status;
}

static void describe(const ProtoMessage *m, int reply, char *text, size_t size) {
  if (reply && m->status != PROTO_DONE) {
    snprintf(text, size, "status %" PRIu32 " (%s)", m->status,
             m->status == PROTO_UNKNOWN_OP ? "unknown op" : "malformed");
    return;
  }
  switch (m->op) {
  case PROTO_ECHO:
    snprintf(text, size, "%s\"%.*s\"", reply ? "" : "echo ", (int)m->length, (const char *)m->data);
    break;
  case PROTO_ADD:
    if (reply)
      snprintf(text, size, "%" PRIu64, m->a);
    else
      snprintf(text, size, "add %" PRIu64 " + %" PRIu64, m->a, m->b);
    break;
  case PROTO_QUIT:
    snprintf(text, size, reply ? "done, the server stops" : "quit");
    break;
  default:
    snprintf(text, size, "op %u", (unsigned)m->op);
    break;
  }
}

/* Sends the requests as the note says and prints each with its reply. */
static int exchange(Client *c, ProtoMessage *requests, int count, int pieces, const char *note) {
  TOV_Status status = sendRequests(c, requests, count, pieces);
  if (status != TOV_OK) {
    printf("client: sending failed with %" PRId32 "\n", status);
    return 0;
  }
  for (int i = 0; i < count; ++i) {
    ProtoMessage reply;
    char asked[160], answer[160];
    status = readReply(c, requests[i].id, &reply);
    if (status != TOV_OK) {
      printf("client: no reply to #%" PRIu32 " (%" PRId32 ")\n", requests[i].id, status);
      return 0;
    }
    describe(&requests[i], 0, asked, sizeof asked);
    describe(&reply, 1, answer, sizeof answer);
    printf("client: #%-3" PRIu32 " %-40s -> %s%s\n", requests[i].id, asked, answer,
           i == 0 && note ? note : "");
  }
  return 1;
}

static ProtoMessage echo(const char *text) {
  ProtoMessage m;
  memset(&m, 0, sizeof m);
  m.op = PROTO_ECHO;
  m.length = strlen(text);
  m.data = (uint8_t *)text;
  return m;
}

static ProtoMessage add(uint64_t a, uint64_t b) {
  ProtoMessage m;
  memset(&m, 0, sizeof m);
  m.op = PROTO_ADD;
  m.a = a;
  m.b = b;
  return m;
}

static ProtoMessage op(uint16_t code) {
  ProtoMessage m;
  memset(&m, 0, sizeof m);
  m.op = code;
  return m;
}

/* n echo round trips, one request in flight at a time. */
static int roundTrips(Client *c, uint32_t n) {
  static const char text[] = "0123456789abcdef0123456789abcdef0123456789abcdef0123456789abcdef";
  const double start = protoNow();
  for (uint32_t i = 0; i < n; ++i) {
    ProtoMessage request = echo(text), reply;
    if (sendRequests(c, &request, 1, 1) != TOV_OK || readReply(c, request.id, &reply) != TOV_OK ||
        reply.status != PROTO_DONE || reply.length != request.length ||
        memcmp(reply.data, text, request.length) != 0) {
      printf("client: round trip %" PRIu32 " failed\n", i + 1);
      return 0;
    }
  }
  const double seconds = protoNow() - start;
  printf("client: %" PRIu32 " echo round trips of %u bytes in %.3f s: %.0f requests/s\n", n,
         (unsigned)(sizeof text - 1), seconds, seconds > 0 ? n / seconds : 0.0);
  return 1;
}

static int run(Client *c, uint32_t trips) {
  ProtoMessage one[1], two[2];
  one[0] = echo("hello, tov");
  if (!exchange(c, one, 1, 1, NULL)) return 0;
  one[0] = add(40, 2);
  if (!exchange(c, one, 1, 1, NULL)) return 0;
  one[0] = add(4294967295u, 1);
  if (!exchange(c, one, 1, 1, NULL)) return 0;
  two[0] = echo("two records");
  two[1] = add(1000000000000u, 234567890123u);
  if (!exchange(c, two, 2, 1, "   (both in one send)")) return 0;
  one[0] = echo("one record sent in three pieces");
  if (!exchange(c, one, 1, 3, "   (3 sends, 30 ms apart)")) return 0;
  one[0] = op(99);
  if (!exchange(c, one, 1, 1, NULL)) return 0;
  if (trips > 0 && !roundTrips(c, trips)) return 0;
  one[0] = op(PROTO_QUIT);
  return exchange(c, one, 1, 1, NULL);
}

int main(int argc, char **argv) {
  const char *text = argc > 1 ? argv[1] : "tcp:127.0.0.1:47001";
  const uint32_t trips = argc > 2 ? (uint32_t)strtoul(argv[2], NULL, 10) : 2000;
  setvbuf(stdout, NULL, _IONBF, 0);

  TOV_Status status = TOV_Startup(NULL, 0, NULL, NULL);
  if (status != TOV_OK) {
    printf("client: TOV_Startup failed with %" PRId32 "\n", status);
    return 1;
  }
  static Client client; /* large: not on the stack */
  Client *c = &client;
  protoReaderInit(&c->reader);
  static Targets targets;
  int ok = 0;
  if ((status = findServer(text, &targets)) != TOV_OK) {
    printf("client: \"%s\" is neither a stream address nor a host with a port (%" PRId32 ")\n",
           text, status);
  } else if ((status = connectTo(c, &targets)) != TOV_OK) {
    printf("client: cannot connect to %s (%" PRId32 ")\n", text, status);
  } else {
    char local[TOV_PRES_MAX_TEXT];
    protoAddressText(c->socket, 0, local);
    printf("client: %s connected to %s\n", local, text);
    ok = run(c, trips);
    /* Closing first leaves the wait after the close on this side, not on
     * the server's port. */
    TOV_SktDestroy(&c->socket);
  }
  TOV_Cleanup(NULL);
  return ok ? 0 : 1;
}
