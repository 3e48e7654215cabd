/*
 * The request/response server on a completion port: the main thread accepts
 * clients, a few worker threads serve them. Each client has one overlapped
 * operation in flight at a time (a receive, or the send of its replies), so
 * the completion's key, the client's record, tells a worker everything, and
 * no two workers ever hold the same client.
 *
 *   server_iocp [address]      default tcp:127.0.0.1:47002
 *
 * Ends with status 0 after a client's quit (once every client has gone, or
 * 5 s later), and with status 2 after 30 s without any client.
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "proto.h"

#define WORKERS 3
#define IDLE_SECONDS 30.0
#define QUIT_GRACE_SECONDS 5.0
#define STOP_KEY 0 /* a completion with this key ends a worker */

typedef struct Server Server;

typedef struct Client {
  WSAOVERLAPPED overlapped; /* the one operation in flight */
  Server *server;
  TOV_Skt *socket;
  struct Client *prev, *next; /* the server's list of live clients */
  uint32_t requests;
  uint32_t receiveFlags;
  int sending;
  uint32_t outStart, outEnd; /* replies not yet sent: out[outStart, outEnd) */
  char peer[TOV_PRES_MAX_TEXT];
  uint8_t out[4 * PROTO_MAX_RECORD];
  ProtoReader reader;
} Client;

struct Server {
  TOV_IOCPort *port;
  TOV_LMutexHandle lock; /* guards the client list and count */
  Client *clients;
  volatile int64_t live;     /* clients connected */
  volatile int64_t requests; /* served, all clients */
  volatile int64_t quit;     /* 1 once a client asked to stop */
};

static void linkClient(Server *s, Client *c) {
  TOV_LMutexAcquire(s->lock);
  c->next = s->clients;
  if (s->clients) s->clients->prev = c;
  s->clients = c;
  TOV_LMutexRelease(s->lock);
  TOV_AtomicIncrement(&s->live);
}

static void dropClient(Client *c, const char *why) {
  Server *s = c->server;
  printf("server: %s left after %" PRIu32 " requests%s\n", c->peer, c->requests, why);
  TOV_LMutexAcquire(s->lock);
  if (c->prev)
    c->prev->next = c->next;
  else
    s->clients = c->next;
  if (c->next) c->next->prev = c->prev;
  TOV_LMutexRelease(s->lock);
  TOV_SktDestroy(&c->socket);
  free(c);
  TOV_AtomicDecrement(&s->live);
}

static TOV_Status postReceive(Client *c) {
  uint32_t room = 0;
  uint8_t *space = protoReaderSpace(&c->reader, &room);
  memset(&c->overlapped, 0, sizeof c->overlapped);
  c->sending = 0;
  c->receiveFlags = 0;
  return TOV_SktRecvBuf(c->socket, space, room, NULL, &c->receiveFlags, NULL, NULL, &c->overlapped);
}

static TOV_Status postSend(Client *c) {
  memset(&c->overlapped, 0, sizeof c->overlapped);
  c->sending = 1;
  return TOV_SktSendBuf(c->socket, c->out + c->outStart, c->outEnd - c->outStart, NULL, 0, NULL, 0,
                        &c->overlapped);
}

/* Answers the whole records received so far, as many as the reply buffer
 * takes, then starts the next operation: the send of the replies, or, with
 * nothing to send, the next receive. */
static void serve(Client *c) {
  Server *s = c->server;
  uint8_t *out = c->out, *limit = c->out + sizeof c->out;
  uint8_t *body;
  uint32_t length;
  TOV_Status status = TOV_OK;
  while (limit - out >= (ptrdiff_t)PROTO_MAX_RECORD &&
         (status = protoReaderNext(&c->reader, &body, &length)) == TOV_OK) {
    ProtoMessage request, reply;
    if (protoGetRequest(body, length, &request) != TOV_OK) {
      memset(&reply, 0, sizeof reply);
      reply.op = request.op;
      reply.id = request.id;
      reply.status = PROTO_MALFORMED;
    } else if (protoAnswer(&request, &reply)) {
      printf("server: quit from %s\n", c->peer);
      TOV_AtomicExchange(&s->quit, 1);
    }
    protoPutReply(&out, limit, &reply); /* fits: a reply is at most one record */
    ++c->requests;
    TOV_AtomicIncrement(&s->requests);
  }
  if (status != TOV_OK && status != TOV_ERR_BUFFER_END) {
    dropClient(c, ", after a record that is too long");
    return;
  }
  c->outStart = 0;
  c->outEnd = (uint32_t)(out - c->out);
  status = c->outEnd > 0 ? postSend(c) : postReceive(c);
  if (status != TOV_OK) dropClient(c, ", after a failed send or receive");
}

static uint32_t worker(void *argument) {
  Server *s = argument;
  for (;;) {
    uint64_t bytes = 0, key = STOP_KEY;
    struct _OVERLAPPED *overlapped = NULL;
    TOV_Status status = TOV_IOCPortWait(s->port, &bytes, &key, &overlapped, TOV_WAIT_INFINITE);
    if (key == STOP_KEY) return 0;
    Client *c = (Client *)(uintptr_t)key;
    if (status != TOV_OK) {
      dropClient(c, ", with a failed operation");
    } else if (c->sending) {
      c->outStart += (uint32_t)bytes;
      if (c->outStart < c->outEnd) {
        if (postSend(c) != TOV_OK) dropClient(c, ", after a failed send");
      } else {
        serve(c); /* records may be waiting behind the ones just answered */
      }
    } else if (bytes == 0) {
      dropClient(c, ""); /* the client closed its side */
    } else {
      protoReaderAdd(&c->reader, (uint32_t)bytes);
      serve(c);
    }
  }
}

static void acceptClient(Server *s, TOV_Skt *listener) {
  TOV_Skt *socket = NULL;
  char peer[TOV_PRES_MAX_TEXT];
  TOV_Status status = protoAccept(listener, &socket, peer);
  if (status != TOV_OK) {
    printf("server: accept failed with %" PRId32 "\n", status);
    return;
  }
  Client *c = calloc(1, sizeof *c);
  if (!c) {
    TOV_SktDestroy(&socket);
    return;
  }
  c->server = s;
  c->socket = socket;
  protoReaderInit(&c->reader);
  memcpy(c->peer, peer, sizeof peer);
  status = TOV_IOCPortAssociate(s->port, socket, (uint64_t)(uintptr_t)c);
  if (status != TOV_OK) {
    printf("server: cannot tie %s to the port (%" PRId32 ")\n", c->peer, status);
    TOV_SktDestroy(&c->socket);
    free(c);
    return;
  }
  printf("server: %s connected\n", c->peer);
  linkClient(s, c);
  if (postReceive(c) != TOV_OK) dropClient(c, ", after a failed receive");
}

/* Accepts until quit or the idle time-out; returns the exit status. */
static int acceptLoop(Server *s, TOV_Skt *listener) {
  TOV_FDS *set = NULL;
  TOV_Status status = TOV_FDSCreate(1, &set);
  if (status == TOV_OK) status = TOV_FDSAssociate(set, listener, TOV_FDS_READ, 0);
  if (status != TOV_OK) {
    printf("server: cannot watch the listener (%" PRId32 ")\n", status);
    if (set) TOV_FDSDestroy(&set, NULL);
    return 1;
  }
  int exitCode = 0;
  double idleSince = protoNow();
  while (!TOV_AtomicExchangeAdd(&s->quit, 0)) {
    const double now = protoNow();
    if (TOV_AtomicExchangeAdd(&s->live, 0) > 0) idleSince = now;
    if (now - idleSince > IDLE_SECONDS) {
      printf("server: no client for %.0f s, stopping\n", IDLE_SECONDS);
      exitCode = 2;
      break;
    }
    TOV_FDSResult ready;
    uint32_t count = 1;
    status = TOV_FDSSelect(set, TOV_FDS_READ, &ready, &count, 200);
    if (status == TOV_OK) {
      acceptClient(s, listener);
    } else if (status != TOV_ERR_TIMEOUT) {
      printf("server: select failed with %" PRId32 "\n", status);
      exitCode = 1;
      break;
    }
  }
  TOV_FDSDestroy(&set, NULL);
  return exitCode;
}

/* Closes the clients that are still there once the workers have ended, and
 * takes their aborted receives off the port before freeing their records. */
static void closeLeftovers(Server *s) {
  Client *c;
  int pending = 0;
  for (c = s->clients; c; c = c->next, ++pending) TOV_SktDestroy(&c->socket);
  uint64_t key = 0;
  while (pending-- > 0 &&
         TOV_IOCPortWait(s->port, NULL, &key, NULL, 200) != TOV_IOCPORT_WAIT_TIMEOUT)
    ;
  while ((c = s->clients) != NULL) {
    s->clients = c->next;
    printf("server: %s closed after %" PRIu32 " requests\n", c->peer, c->requests);
    free(c);
  }
}

int main(int argc, char **argv) {
  const char *text = argc > 1 ? argv[1] : "tcp:127.0.0.1:47002";
  setvbuf(stdout, NULL, _IONBF, 0);

  TOV_Status status = TOV_Startup(NULL, 0, NULL, NULL);
  if (status != TOV_OK) {
    printf("server: TOV_Startup failed with %" PRId32 "\n", status);
    return 1;
  }
  static Server server;
  Server *s = &server;
  TOV_Skt *listener = NULL;
  TOV_ThreadHandle workers[WORKERS] = {NULL};
  int exitCode = 1, started = 0;
  struct sockaddr_storage address;
  int32_t length = 0;
  if (protoAddress(text, &address, &length) != TOV_OK) {
    printf("server: \"%s\" is not a stream address with a port\n", text);
    goto done;
  }
  if ((status = TOV_LMutexCreate(&s->lock, 4000)) != TOV_OK ||
      (status = TOV_IOCPortCreate(0, &s->port)) != TOV_OK ||
      (status = protoListen(&address, length, &listener)) != TOV_OK) {
    printf("server: cannot listen on %s (%" PRId32 ")\n", text, status);
    goto done;
  }
  for (; started < WORKERS; ++started) {
    status = TOV_ThreadCreate(worker, s, 0, &workers[started]);
    if (status != TOV_OK) {
      printf("server: cannot start a worker (%" PRId32 ")\n", status);
      goto done;
    }
  }
  char bound[TOV_PRES_MAX_TEXT];
  protoAddressText(listener, 0, bound);
  printf("server: listening on %s (completion port, %d workers)\n", bound, WORKERS);

  exitCode = acceptLoop(s, listener);
  TOV_SktDestroy(&listener);
  /* After a quit, the clients still connected may finish. */
  const double quitAt = protoNow();
  while (TOV_AtomicExchangeAdd(&s->live, 0) > 0 && protoNow() - quitAt < QUIT_GRACE_SECONDS)
    Sleep(20);
  printf("server: stopped after %" PRId64 " requests\n", TOV_AtomicExchangeAdd(&s->requests, 0));

done:
  for (int i = 0; i < started; ++i) TOV_IOCPortSignal(s->port, 0, STOP_KEY, NULL);
  for (int i = 0; i < started; ++i) {
    TOV_ThreadWait(workers[i], TOV_WAIT_INFINITE);
    TOV_ThreadDestroy(&workers[i]);
  }
  if (s->port) {
    closeLeftovers(s);
    TOV_IOCPortDestroy(&s->port);
  }
  if (listener) TOV_SktDestroy(&listener);
  if (s->lock) TOV_LMutexDestroy(&s->lock);
  TOV_Cleanup(NULL);
  return exitCode;
}
