/*
 * The request/response server on a socket set: one thread waits in
 * TOV_FDSSelect on the listening socket and every client, and serves the
 * records of whichever is readable.
 *
 *   server [address]      default tcp:127.0.0.1:47001
 *
 * Ends with status 0 after a client's quit (once that client has gone, or
 * 5 s later), and with status 2 after 30 s without any client.
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "proto.h"

#define IDLE_SECONDS 30.0
#define QUIT_GRACE_SECONDS 5.0

/* One client. Its address is the set entry's context. */
typedef struct Client {
  TOV_Skt *socket;
  uint32_t requests;
  char peer[TOV_PRES_MAX_TEXT];
  ProtoReader reader;
} Client;

typedef struct Server {
  TOV_FDS *set;
  TOV_Skt *listener;
  uint32_t clients;
  uint64_t requests;
  int quit;
  uint8_t out[4 * PROTO_MAX_RECORD]; /* replies to one receive's records */
} Server;

/* The set's destroy callback: closes every client still in the set (the
 * listener, context 0, is closed on its own). */
static TOV_Status closeClient(TOV_Skt *socket, uint32_t flags, uint64_t context) {
  (void)flags;
  if (context == 0) return TOV_OK;
  Client *c = (Client *)(uintptr_t)context;
  printf("server: %s closed after %" PRIu32 " requests\n", c->peer, c->requests);
  free(c);
  TOV_SktDestroy(&socket);
  return TOV_OK;
}

static void dropClient(Server *s, Client *c) {
  printf("server: %s left after %" PRIu32 " requests\n", c->peer, c->requests);
  TOV_FDSRemove(s->set, c->socket, NULL);
  TOV_SktDestroy(&c->socket);
  free(c);
  --s->clients;
}

static void acceptClient(Server *s) {
  TOV_Skt *socket = NULL;
  char peer[TOV_PRES_MAX_TEXT];
  TOV_Status status = protoAccept(s->listener, &socket, peer);
  if (status != TOV_OK) {
    printf("server: accept failed with %" PRId32 "\n", status);
    return;
  }
  Client *c = calloc(1, sizeof *c);
  if (!c) {
    TOV_SktDestroy(&socket);
    return;
  }
  c->socket = socket;
  protoReaderInit(&c->reader);
  memcpy(c->peer, peer, sizeof peer);
  status = TOV_FDSAssociate(s->set, socket, TOV_FDS_READ, (uint64_t)(uintptr_t)c);
  if (status != TOV_OK) {
    printf("server: cannot watch %s (%" PRId32 ")\n", c->peer, status);
    TOV_SktDestroy(&c->socket);
    free(c);
    return;
  }
  ++s->clients;
  printf("server: %s connected\n", c->peer);
}

/* Receives what the client sent and answers every whole record in it.
 * Returns 0 to keep the client, -1 to drop it. */
static int serveClient(Server *s, Client *c) {
  uint32_t room = 0, flags = 0;
  uint8_t *space = protoReaderSpace(&c->reader, &room);
  uint64_t got = 0;
  TOV_Status status = TOV_SktRecvBuf(c->socket, space, room, &got, &flags, NULL, NULL, NULL);
  if (status != TOV_OK) {
    printf("server: receiving from %s failed with %" PRId32 "\n", c->peer, status);
    return -1;
  }
  if (got == 0) return -1; /* the client closed its side */
  protoReaderAdd(&c->reader, (uint32_t)got);

  uint8_t *out = s->out, *limit = s->out + sizeof s->out;
  uint8_t *body;
  uint32_t length;
  while ((status = protoReaderNext(&c->reader, &body, &length)) == TOV_OK) {
    ProtoMessage request, reply;
    if (protoGetRequest(body, length, &request) != TOV_OK) {
      memset(&reply, 0, sizeof reply);
      reply.op = request.op;
      reply.id = request.id;
      reply.status = PROTO_MALFORMED;
    } else if (protoAnswer(&request, &reply)) {
      printf("server: quit from %s\n", c->peer);
      s->quit = 1;
    }
    /* The replies go out together; a full buffer is sent first. */
    if (protoPutReply(&out, limit, &reply) != TOV_OK) {
      if (protoSendAll(c->socket, s->out, (uint64_t)(out - s->out)) != TOV_OK) return -1;
      out = s->out;
      protoPutReply(&out, limit, &reply);
    }
    ++c->requests;
    ++s->requests;
  }
  if (status != TOV_ERR_BUFFER_END) {
    printf("server: %s sent a record longer than %u bytes\n", c->peer, PROTO_MAX_BODY);
    return -1;
  }
  if (out > s->out && protoSendAll(c->socket, s->out, (uint64_t)(out - s->out)) != TOV_OK)
    return -1;
  return 0;
}

/* Serves until quit or the idle time-out; returns the exit status. */
static int run(Server *s) {
  double idleSince = protoNow(), quitAt = 0;
  for (;;) {
    const double now = protoNow();
    if (s->quit && (s->clients == 0 || now - quitAt > QUIT_GRACE_SECONDS)) return 0;
    if (s->clients > 0) idleSince = now;
    if (now - idleSince > IDLE_SECONDS) {
      printf("server: no client for %.0f s, stopping\n", IDLE_SECONDS);
      return 2;
    }

    TOV_FDSResult ready[16];
    uint32_t count = sizeof ready / sizeof ready[0];
    TOV_Status status = TOV_FDSSelect(s->set, TOV_FDS_READ, ready, &count, 1000);
    if (status == TOV_ERR_TIMEOUT) continue;
    if (status == TOV_ERR_BUFFER_TOO_SMALL) {
      count = sizeof ready / sizeof ready[0]; /* the rest are still ready next time */
    } else if (status != TOV_OK) {
      printf("server: select failed with %" PRId32 "\n", status);
      return 1;
    }
    for (uint32_t i = 0; i < count; ++i) {
      if (ready[i].handle == s->listener) {
        if (!s->quit) acceptClient(s);
        continue;
      }
      Client *c = (Client *)(uintptr_t)ready[i].context;
      const int wasQuit = s->quit;
      if (serveClient(s, c) < 0) dropClient(s, c);
      if (s->quit && !wasQuit) {
        /* No new clients; the ones here may finish. */
        quitAt = protoNow();
        TOV_FDSRemove(s->set, s->listener, NULL);
        TOV_SktDestroy(&s->listener);
      }
    }
  }
}

int main(int argc, char **argv) {
  const char *text = argc > 1 ? argv[1] : "tcp:127.0.0.1:47001";
  setvbuf(stdout, NULL, _IONBF, 0);

  TOV_Status status = TOV_Startup(NULL, 0, NULL, NULL);
  if (status != TOV_OK) {
    printf("server: TOV_Startup failed with %" PRId32 "\n", status);
    return 1;
  }
  static Server server; /* large: not on the stack */
  Server *s = &server;
  struct sockaddr_storage address;
  int32_t length = 0;
  int exitCode = 1;
  status = protoAddress(text, &address, &length);
  if (status != TOV_OK) {
    printf("server: \"%s\" is not a stream address with a port\n", text);
    goto done;
  }
  if ((status = protoListen(&address, length, &s->listener)) != TOV_OK ||
      (status = TOV_FDSCreate(16, &s->set)) != TOV_OK ||
      (status = TOV_FDSAssociate(s->set, s->listener, TOV_FDS_READ, 0)) != TOV_OK) {
    printf("server: cannot listen on %s (%" PRId32 ")\n", text, status);
    goto done;
  }
  char bound[TOV_PRES_MAX_TEXT];
  protoAddressText(s->listener, 0, bound);
  printf("server: listening on %s (socket set)\n", bound);

  exitCode = run(s);
  printf("server: stopped after %" PRIu64 " requests\n", s->requests);

done:
  if (s->set) TOV_FDSDestroy(&s->set, closeClient);
  if (s->listener) TOV_SktDestroy(&s->listener);
  TOV_Cleanup(NULL);
  return exitCode;
}
