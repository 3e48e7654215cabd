/* The example's records, written and read with the tov codec. */
#include "proto.h"

#include <string.h>

/* Runs a codec call and leaves the function with its status on failure. */
#define TRY(call)                                                                                  \
  do {                                                                                             \
    TOV_Status tried_ = (call);                                                                    \
    if (tried_ != TOV_OK) return tried_;                                                           \
  } while (0)

/* The op's fields after the header, in the request or the reply direction. */
static TOV_Status putFields(uint8_t **cursor, uint8_t *limit, const ProtoMessage *m, int reply) {
  switch (m->op) {
  case PROTO_ECHO:
    return TOV_BufPutSizedData(cursor, limit, m->length, m->data);
  case PROTO_ADD:
    TRY(TOV_BufPutHiLo64(cursor, limit, m->a));
    return reply ? TOV_OK : TOV_BufPutHiLo64(cursor, limit, m->b);
  default:
    return TOV_OK;
  }
}

/* The length is not known until the body is written: reserve its field,
 * write the body, then fill the field in through a second cursor. */
static TOV_Status putRecord(uint8_t **cursor, uint8_t *limit, const ProtoMessage *m, int reply) {
  uint8_t *at = *cursor, *lengthField = NULL;
  TOV_Status status = TOV_BufSkip32(&at, limit, &lengthField);
  uint8_t *body = at;
  if (status == TOV_OK) status = TOV_BufPutHiLo16(&at, limit, m->op);
  if (status == TOV_OK) status = TOV_BufPutHiLo32(&at, limit, m->id);
  if (status == TOV_OK && reply) status = TOV_BufPutHiLo32(&at, limit, m->status);
  if (status == TOV_OK && (!reply || m->status == PROTO_DONE))
    status = putFields(&at, limit, m, reply);
  if (status == TOV_OK && (uint64_t)(at - body) > PROTO_MAX_BODY) status = TOV_ERR_BUFFER_TOO_SMALL;
  if (status != TOV_OK) return status;
  TOV_BufPutHiLo32(&lengthField, NULL, (uint32_t)(at - body));
  *cursor = at;
  return TOV_OK;
}

TOV_Status protoPutRequest(uint8_t **cursor, uint8_t *limit, const ProtoMessage *request) {
  return putRecord(cursor, limit, request, 0);
}

TOV_Status protoPutReply(uint8_t **cursor, uint8_t *limit, const ProtoMessage *reply) {
  return putRecord(cursor, limit, reply, 1);
}

static TOV_Status getRecord(uint8_t *body, uint32_t length, ProtoMessage *m, int reply) {
  uint8_t *at = body, *limit = body + length;
  memset(m, 0, sizeof *m);
  TRY(TOV_BufGetHiLo16(&at, limit, &m->op));
  TRY(TOV_BufGetHiLo32(&at, limit, &m->id));
  if (reply) TRY(TOV_BufGetHiLo32(&at, limit, &m->status));
  if (!reply || m->status == PROTO_DONE) {
    switch (m->op) {
    case PROTO_ECHO:
      TRY(TOV_BufGetSizedData(&at, limit, &m->length, &m->data));
      break;
    case PROTO_ADD:
      TRY(TOV_BufGetHiLo64(&at, limit, &m->a));
      if (!reply) TRY(TOV_BufGetHiLo64(&at, limit, &m->b));
      break;
    default:
      break;
    }
  }
  return at == limit ? TOV_OK : TOV_ERR_INVALID_PARAMETER;
}

TOV_Status protoGetRequest(uint8_t *body, uint32_t length, ProtoMessage *request) {
  return getRecord(body, length, request, 0);
}

TOV_Status protoGetReply(uint8_t *body, uint32_t length, ProtoMessage *reply) {
  return getRecord(body, length, reply, 1);
}

int protoAnswer(const ProtoMessage *request, ProtoMessage *reply) {
  memset(reply, 0, sizeof *reply);
  reply->op = request->op;
  reply->id = request->id;
  switch (request->op) {
  case PROTO_ECHO:
    if (request->length > PROTO_MAX_TEXT) {
      reply->status = PROTO_MALFORMED;
    } else {
      reply->length = request->length;
      reply->data = request->data;
    }
    return 0;
  case PROTO_ADD:
    reply->a = request->a + request->b;
    return 0;
  case PROTO_QUIT:
    return 1;
  default:
    reply->status = PROTO_UNKNOWN_OP;
    return 0;
  }
}

void protoReaderInit(ProtoReader *reader) {
  reader->start = reader->end = 0;
}

uint8_t *protoReaderSpace(ProtoReader *reader, uint32_t *room) {
  /* Move what is left of a partial record to the front, so that the rest of
   * any record up to the largest fits behind it. */
  if (reader->start > 0) {
    memmove(reader->buffer, reader->buffer + reader->start, reader->end - reader->start);
    reader->end -= reader->start;
    reader->start = 0;
  }
  *room = (uint32_t)sizeof reader->buffer - reader->end;
  return reader->buffer + reader->end;
}

void protoReaderAdd(ProtoReader *reader, uint32_t n) {
  reader->end += n;
}

TOV_Status protoReaderNext(ProtoReader *reader, uint8_t **body, uint32_t *length) {
  uint8_t *at = reader->buffer + reader->start, *limit = reader->buffer + reader->end;
  uint32_t n = 0;
  TRY(TOV_BufGetHiLo32(&at, limit, &n));
  if (n > PROTO_MAX_BODY) return TOV_ERR_INVALID_PARAMETER;
  if ((uint64_t)(limit - at) < n) return TOV_ERR_BUFFER_END;
  *body = at;
  *length = n;
  reader->start = (uint32_t)(at + n - reader->buffer);
  return TOV_OK;
}

const char *protoOpName(uint16_t op) {
  switch (op) {
  case PROTO_ECHO:
    return "echo";
  case PROTO_ADD:
    return "add";
  case PROTO_QUIT:
    return "quit";
  default:
    return "unknown";
  }
}

TOV_Status protoListen(const struct sockaddr_storage *address, int32_t length, TOV_Skt **listener) {
  TOV_Skt *s = NULL;
  TOV_Status status = TOV_SktCreate(address->ss_family, SOCK_STREAM, IPPROTO_TCP, &s);
  if (status == TOV_OK) status = TOV_SktBind(s, (const struct sockaddr *)address, (uint64_t)length);
  if (status == TOV_OK) status = TOV_SktListen(s, 16);
  if (status == TOV_OK)
    *listener = s;
  else if (s)
    TOV_SktDestroy(&s);
  return status;
}

TOV_Status protoAccept(TOV_Skt *listener, TOV_Skt **socket, char peer[TOV_PRES_MAX_TEXT]) {
  TOV_Status status = TOV_SktAccept(listener, socket, NULL, NULL);
  if (status != TOV_OK) return status;
  const DWORD one = 1;
  TOV_SktSetOption(*socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  protoAddressText(*socket, 1, peer);
  return TOV_OK;
}

TOV_Status protoAddress(const char *text, struct sockaddr_storage *address, int32_t *length) {
  uint32_t flags = 0;
  uint64_t size = sizeof *address;
  TOV_Status status = TOV_SktPresentationToNet(text, &flags, (struct sockaddr *)address, &size);
  if (status != TOV_OK) return status;
  if (!(flags & TOV_PRES_PORT) || ((flags & TOV_PRES_PREFIX) && !(flags & TOV_PRES_STREAM)) ||
      (address->ss_family != AF_INET && address->ss_family != AF_INET6))
    return TOV_ERR_INVALID_PARAMETER;
  *length = (int32_t)size;
  return TOV_OK;
}

void protoAddressText(TOV_Skt *socket, int remote, char text[TOV_PRES_MAX_TEXT]) {
  struct sockaddr_storage address;
  int32_t length = sizeof address;
  TOV_Status status = remote ? TOV_SktGetRemoteAddress(socket, (struct sockaddr *)&address, &length)
                             : TOV_SktGetLocalAddress(socket, (struct sockaddr *)&address, &length);
  if (status == TOV_OK)
    status = TOV_SktNetToPresentation((struct sockaddr *)&address,
                                      TOV_PRES_PREFIX | TOV_PRES_STREAM | TOV_PRES_PORT, text);
  if (status != TOV_OK) TOV_strnzcpy(text, "(unknown address)", TOV_PRES_MAX_TEXT);
}

TOV_Status protoSendAll(TOV_Skt *socket, const uint8_t *data, uint64_t length) {
  while (length > 0) {
    uint64_t sent = 0;
    TOV_Status status = TOV_SktSendBuf(socket, data, length, &sent, 0, NULL, 0, NULL);
    if (status != TOV_OK) return status;
    data += sent;
    length -= sent;
  }
  return TOV_OK;
}

double protoNow(void) {
  LARGE_INTEGER count, frequency;
  QueryPerformanceCounter(&count);
  QueryPerformanceFrequency(&frequency);
  return (double)count.QuadPart / (double)frequency.QuadPart;
}
