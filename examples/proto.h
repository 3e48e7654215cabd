/*
 * The example's wire format, shared by the servers and the client.
 *
 * A record is a 4-byte big-endian body length, then the body. A request body
 * is a 16-bit op and a 32-bit request id, then the op's fields; a reply body
 * repeats the op and the id, adds a 32-bit status, then the answer's fields.
 * All numbers are big-endian (HiLo), texts are sized data (a 32-bit count,
 * then the bytes).
 *
 *   op    request fields             reply fields (status PROTO_DONE)
 *   echo  text                       the same text
 *   add   two 64-bit numbers         their 64-bit sum
 *   quit  -                          - (the server stops after answering)
 */
#ifndef EXAMPLE_PROTO_H
#define EXAMPLE_PROTO_H

#include <winsock2.h>

#include <stdint.h>

#include <tov.h>

#define PROTO_MAX_BODY 4096u
#define PROTO_MAX_RECORD (4u + PROTO_MAX_BODY)
/* The longest echo text whose reply still fits a body. */
#define PROTO_MAX_TEXT (PROTO_MAX_BODY - 14u)

enum { PROTO_ECHO = 1, PROTO_ADD = 2, PROTO_QUIT = 3 };

/* Reply status. */
enum { PROTO_DONE = 0, PROTO_UNKNOWN_OP = 1, PROTO_MALFORMED = 2 };

/* One request or reply, decoded. */
typedef struct ProtoMessage {
  uint16_t op;
  uint32_t id;
  uint32_t status; /* replies only */
  uint64_t a, b;   /* add: the numbers; its reply: a = the sum */
  uint64_t length; /* echo: the text's length in bytes */
  uint8_t *data;   /* echo: the text (decoded: inside the received record) */
} ProtoMessage;

/* Write one whole record at *cursor. TOV_ERR_BUFFER_TOO_SMALL when it does
 * not fit before limit; the cursor then stays where it was. */
TOV_Status protoPutRequest(uint8_t **cursor, uint8_t *limit, const ProtoMessage *request);
TOV_Status protoPutReply(uint8_t **cursor, uint8_t *limit, const ProtoMessage *reply);

/* Decode a body of length bytes. TOV_ERR_BUFFER_END for a body that is short
 * of its fields, TOV_ERR_INVALID_PARAMETER for bytes left over; *message then
 * holds what could be read (at least the op and id, when present). */
TOV_Status protoGetRequest(uint8_t *body, uint32_t length, ProtoMessage *request);
TOV_Status protoGetReply(uint8_t *body, uint32_t length, ProtoMessage *reply);

/* The server's side: the reply to one request. Returns 1 for quit. */
int protoAnswer(const ProtoMessage *request, ProtoMessage *reply);

/* Bytes from a stream come in pieces of any size; a reader gathers them and
 * hands out whole records, several per receive when several came. Ask for
 * space only after taking every whole record. */
typedef struct ProtoReader {
  uint32_t start, end; /* unread bytes: buffer[start, end) */
  uint8_t buffer[2 * PROTO_MAX_RECORD];
} ProtoReader;

void protoReaderInit(ProtoReader *reader);
/* Where the next received bytes go, and how many fit (never 0). */
uint8_t *protoReaderSpace(ProtoReader *reader, uint32_t *room);
/* Count n bytes received into the space. */
void protoReaderAdd(ProtoReader *reader, uint32_t n);
/* The next whole record's body. TOV_ERR_BUFFER_END while it is incomplete,
 * TOV_ERR_INVALID_PARAMETER for a length above PROTO_MAX_BODY. The body stays
 * valid until the next call to protoReaderSpace. */
TOV_Status protoReaderNext(ProtoReader *reader, uint8_t **body, uint32_t *length);

/* A short name for an op, for transcripts. */
const char *protoOpName(uint16_t op);

/* Helpers the programs share. */

/* A stream address from its text ("tcp:127.0.0.1:47001", "[::1]:47001"):
 * a port is required, a prefix, when there is one, must be a stream one.
 * *length: the address's size. TOV_ERR_INVALID_PARAMETER otherwise. */
TOV_Status protoAddress(const char *text, struct sockaddr_storage *address, int32_t *length);
/* The text of a socket's local or remote address, with prefix and port. */
void protoAddressText(TOV_Skt *socket, int remote, char text[TOV_PRES_MAX_TEXT]);
/* A listening stream socket bound to address, in *listener; nothing is
 * left behind on failure. */
TOV_Status protoListen(const struct sockaddr_storage *address, int32_t length, TOV_Skt **listener);
/* The next connection on listener, in *socket, with Nagle's delay off (every
 * reply goes out at once) and its peer's text in peer. */
TOV_Status protoAccept(TOV_Skt *listener, TOV_Skt **socket, char peer[TOV_PRES_MAX_TEXT]);
/* Sends all length bytes, however many calls that takes. */
TOV_Status protoSendAll(TOV_Skt *socket, const uint8_t *data, uint64_t length);
/* Seconds on a steady clock. */
double protoNow(void);

#endif
