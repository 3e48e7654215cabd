/*
 * tov: one C interface to the services of 64-bit Windows.
 *
 * Start the library with TOV_Startup and end it with TOV_Cleanup. Almost every
 * function returns a TOV_Status: TOV_OK (0) on success, a negative TOV_ERR_...
 * code on failure, or, where the library has no code for a system error, that
 * positive system error number itself.
 *
 * This header is valid C99 and C++.
 */
#ifndef TOV_H
#define TOV_H

#include <stddef.h>
#include <stdint.h>

#if defined(TOV_BUILDING) || defined(TOV_STATIC)
#define TOV_API
#else
#define TOV_API __declspec(dllimport)
#endif

#if defined(__GNUC__)
#define TOV_PRINTF_LIKE(f, a) __attribute__((__format__(ms_printf, f, a)))
#else
#define TOV_PRINTF_LIKE(f, a)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Result codes                                                             */
/* ------------------------------------------------------------------------ */

typedef int32_t TOV_Status;

enum {
  TOV_OK = 0,

  TOV_ERR_NO_MEMORY = -5999,
  TOV_ERR_BUFFER_TOO_SMALL = -5998,
  TOV_ERR_INVALID_PARAMETER = -5997,
  TOV_ERR_INVALID_HANDLE = -5996,
  TOV_ERR_END_OF_DATA = -5995,
  TOV_ERR_TIMEOUT = -5994,
  TOV_ERR_NOT_FOUND = -5993,
  TOV_ERR_ALREADY_EXISTS = -5992,
  TOV_ERR_ACCESS_DENIED = -5991,
  TOV_ERR_NOT_INITIALIZED = -5989,
  TOV_ERR_INVALID_MODULE = -5988,
  TOV_ERR_PATH_TOO_LONG = -5987,
  TOV_ERR_STILL_RUNNING = -5986,
  TOV_ERR_TOO_MANY_POSTS = -5985,
  TOV_ERR_MODULE_NOT_FOUND = -5984,
  TOV_ERR_SYMBOL_NOT_FOUND = -5983,
  TOV_ERR_BUFFER_END = -5980,
  TOV_ERR_ABORTED = -5977,

  /* One code per Winsock error, WSAEINTR (10004) to WSAEREMOTE (10071). */
  TOV_ERR_NET_INTR = -5899,
  TOV_ERR_NET_BADF = -5898,
  TOV_ERR_NET_ACCES = -5897,
  TOV_ERR_NET_FAULT = -5896,
  TOV_ERR_NET_INVAL = -5895,
  TOV_ERR_NET_MFILE = -5894,
  TOV_ERR_NET_WOULDBLOCK = -5893,
  TOV_ERR_NET_INPROGRESS = -5892,
  TOV_ERR_NET_ALREADY = -5891,
  TOV_ERR_NET_NOTSOCK = -5890,
  TOV_ERR_NET_DESTADDRREQ = -5889,
  TOV_ERR_NET_MSGSIZE = -5888,
  TOV_ERR_NET_PROTOTYPE = -5887,
  TOV_ERR_NET_NOPROTOOPT = -5886,
  TOV_ERR_NET_PROTONOSUPPORT = -5885,
  TOV_ERR_NET_SOCKTNOSUPPORT = -5884,
  TOV_ERR_NET_OPNOTSUPP = -5883,
  TOV_ERR_NET_PFNOSUPPORT = -5882,
  TOV_ERR_NET_AFNOSUPPORT = -5881,
  TOV_ERR_NET_ADDRINUSE = -5880,
  TOV_ERR_NET_ADDRNOTAVAIL = -5879,
  TOV_ERR_NET_NETDOWN = -5878,
  TOV_ERR_NET_NETUNREACH = -5877,
  TOV_ERR_NET_NETRESET = -5876,
  TOV_ERR_NET_CONNABORTED = -5875,
  TOV_ERR_NET_CONNRESET = -5874,
  TOV_ERR_NET_NOBUFS = -5873,
  TOV_ERR_NET_ISCONN = -5872,
  TOV_ERR_NET_NOTCONN = -5871,
  TOV_ERR_NET_SHUTDOWN = -5870,
  TOV_ERR_NET_TOOMANYREFS = -5869,
  TOV_ERR_NET_TIMEDOUT = -5868,
  TOV_ERR_NET_CONNREFUSED = -5867,
  TOV_ERR_NET_LOOP = -5866,
  TOV_ERR_NET_NAMETOOLONG = -5865,
  TOV_ERR_NET_HOSTDOWN = -5864,
  TOV_ERR_NET_HOSTUNREACH = -5863,
  TOV_ERR_NET_NOTEMPTY = -5862,
  TOV_ERR_NET_PROCLIM = -5861,
  TOV_ERR_NET_USERS = -5860,
  TOV_ERR_NET_DQUOT = -5859,
  TOV_ERR_NET_STALE = -5858,
  TOV_ERR_NET_REMOTE = -5857
};

/* ------------------------------------------------------------------------ */
/* Lifecycle, memory tags, version                                          */
/* ------------------------------------------------------------------------ */

/* A pointer-sized value naming the owner of allocations. */
typedef void *TOV_MemTag;

#define TOV_INTERFACE_VERSION 0x02020000u

/* Starts the library (nested starts are counted). module is recorded as the
 * library's module when the loader has not recorded one; the other arguments
 * are ignored. Returns TOV_OK or the positive Winsock error of a failed
 * network start. */
TOV_API TOV_Status TOV_Startup(void *module, int32_t reserved1, void *reserved2, void *reserved3);
/* Ends one start; the last one tears the library down. */
TOV_API void TOV_Cleanup(void *reserved);
/* *tagOut = owner. Never fails. */
TOV_API TOV_Status TOV_AllocMemTag(void *owner, TOV_MemTag *tagOut);
/* *tag = 0. */
TOV_API void TOV_FreeMemTag(TOV_MemTag *tag);
/* The interface version, TOV_INTERFACE_VERSION. */
TOV_API uint32_t TOV_GetVersion(void);
/* Index of the first element of list equal to value; 0xFFFFFFFF when there
 * is none, when list is null with count > 0, or before TOV_Startup. */
TOV_API uint32_t findid(uint32_t value, const uint32_t *list, uint32_t count);

/* ------------------------------------------------------------------------ */
/* Debug output                                                             */
/* ------------------------------------------------------------------------ */

/* Formats one line (at most 1022 characters, then "\n") and hands it to the
 * system debugger. Works at any time. */
TOV_API void TOV_DebugOutput(const char *format, ...) TOV_PRINTF_LIKE(1, 2);

/* ------------------------------------------------------------------------ */
/* Memory, atomics, spin locks                                              */
/* ------------------------------------------------------------------------ */

/* The tag names the owner and is otherwise unused. Blocks come from the C
 * runtime heap and go back with TOV_free. */
TOV_API int32_t TOV_ValidateHeapPtr(void *p);
TOV_API void *TOV_malloc(TOV_MemTag tag, size_t size);
/* count * size bytes, zeroed; null when the product does not fit 64 bits. */
TOV_API void *TOV_calloc(TOV_MemTag tag, size_t count, size_t size);
TOV_API void *TOV_realloc(TOV_MemTag tag, void *block, size_t size);
TOV_API void TOV_free(void *block);
TOV_API char *TOV_strdup(TOV_MemTag tag, const char *s);
TOV_API wchar_t *TOV_wcsdup(TOV_MemTag tag, const wchar_t *w);

/* Full-barrier operations on an 8-byte aligned 64-bit variable. */
TOV_API int64_t TOV_AtomicIncrement(volatile int64_t *target);      /* new value */
TOV_API int64_t TOV_AtomicDecrement(volatile int64_t *target);      /* new value */
TOV_API int64_t TOV_AtomicExchange(volatile int64_t *target, int64_t value); /* old */
TOV_API int64_t TOV_AtomicExchangeAdd(volatile int64_t *target, int64_t addend); /* old */
/* If *target == comparand, *target = exchange. Returns the old value. */
TOV_API int64_t TOV_AtomicCmpExchange(volatile int64_t *target, int64_t comparand,
                                      int64_t exchange);

/* A spin lock is an 8-byte aligned 64-bit word: 0 free, 1 held. Not
 * recursive, no owner. */
typedef int64_t TOV_SpinLock;
TOV_API void TOV_EnterSpinLock(volatile TOV_SpinLock *lock);
/* 1 when the caller now holds the lock, 0 when it was held. */
TOV_API int32_t TOV_TryEnterSpinLock(volatile TOV_SpinLock *lock);
TOV_API void TOV_LeaveSpinLock(volatile TOV_SpinLock *lock);

/* cursor advanced to the next multiple of 4 bytes from base, or null when
 * that lies past limit (a null limit always gives null). */
TOV_API uint8_t *TOV_align32(uint8_t *base, uint8_t *cursor, uint8_t *limit);
/* Copies at most size - 1 bytes and always terminates; size >= 1. */
TOV_API char *TOV_strnzcpy(char *destination, const char *source, size_t size);

/* ------------------------------------------------------------------------ */
/* Byte buffer codec                                                        */
/* ------------------------------------------------------------------------ */

/* (end of byte buffer codec) */

/* ------------------------------------------------------------------------ */
/* Files                                                                    */
/* ------------------------------------------------------------------------ */

/* (end of files) */

/* ------------------------------------------------------------------------ */
/* Mutexes, events, semaphores, LMutexes                                    */
/* ------------------------------------------------------------------------ */

/* (end of mutexes, events, semaphores, lmutexes) */

/* ------------------------------------------------------------------------ */
/* Threads, thread descriptions, thread-local storage                       */
/* ------------------------------------------------------------------------ */

/* (end of threads, thread descriptions, thread-local storage) */

/* ------------------------------------------------------------------------ */
/* Sockets                                                                  */
/* ------------------------------------------------------------------------ */

/* Socket addresses, buffer lists (WSABUF) and overlapped records
 * (WSAOVERLAPPED) are the platform's own records from <winsock2.h>. Families,
 * types, protocols, option levels and names, control codes, flags and
 * shutdown modes are the platform's numbers, passed through unchanged. */
struct sockaddr;
struct _WSABUF;
struct _OVERLAPPED;

/* A socket handle. Every socket is created for overlapped operation; an
 * overlapped call that the system leaves pending returns TOV_OK. Out
 * arguments are written only on TOV_OK. */
typedef struct TOV_Skt TOV_Skt;

/* Option level 0xFFFF, name 4 (address reuse) is only remembered by the
 * socket object and never reaches the system socket; TOV_SO_REUSEPORT at the
 * same level is the system's address-reuse option (two live sockets share a
 * port). */
#define TOV_SO_REUSEPORT 0x200

TOV_API TOV_Status TOV_SktCreate(int32_t family, int32_t type, int32_t protocol,
                                 TOV_Skt **socketOut);
/* Closes the socket, frees the object and clears *socket, also when the
 * close fails; returns the close's status. */
TOV_API TOV_Status TOV_SktDestroy(TOV_Skt **socket);
TOV_API TOV_Status TOV_SktBind(TOV_Skt *socket, const struct sockaddr *address,
                               uint64_t addressLength);
TOV_API TOV_Status TOV_SktListen(TOV_Skt *socket, int32_t backlog);
/* peer and peerLength may be null. */
TOV_API TOV_Status TOV_SktAccept(TOV_Skt *listener, TOV_Skt **socketOut, struct sockaddr *peer,
                                 int32_t *peerLength);
/* A non-blocking socket that cannot connect at once gives TOV_ERR_NET_WOULDBLOCK. */
TOV_API TOV_Status TOV_SktConnect(TOV_Skt *socket, const struct sockaddr *address,
                                  uint64_t addressLength);
/* how: 0 receive, 1 send, 2 both. */
TOV_API TOV_Status TOV_SktShutdown(TOV_Skt *socket, int32_t how);
/* *addressLength: the buffer's size going in, the address's size coming out. */
TOV_API TOV_Status TOV_SktGetLocalAddress(TOV_Skt *socket, struct sockaddr *address,
                                          int32_t *addressLength);
TOV_API TOV_Status TOV_SktGetRemoteAddress(TOV_Skt *socket, struct sockaddr *address,
                                           int32_t *addressLength);
/* *valueLength: the buffer's size going in, the value's size coming out. */
TOV_API TOV_Status TOV_SktGetOption(TOV_Skt *socket, int32_t level, int32_t name, void *value,
                                    uint64_t *valueLength);
TOV_API TOV_Status TOV_SktSetOption(TOV_Skt *socket, int32_t level, int32_t name, const void *value,
                                    uint64_t valueLength);
/* *outputLength (may be null): the output buffer's size going in, the bytes
 * returned coming out. */
TOV_API TOV_Status TOV_SktIOCtl(TOV_Skt *socket, uint32_t code, const void *input,
                                uint64_t inputLength, void *output, uint64_t *outputLength,
                                struct _OVERLAPPED *overlapped);
/* Sends from a buffer list; to (may be null) makes it a send to that address. */
TOV_API TOV_Status TOV_SktSend(TOV_Skt *socket, struct _WSABUF *buffers, uint32_t count,
                               uint64_t *bytesSent, uint32_t flags, const struct sockaddr *to,
                               int32_t toLength, struct _OVERLAPPED *overlapped);
TOV_API TOV_Status TOV_SktSendBuf(TOV_Skt *socket, const void *data, uint64_t length,
                                  uint64_t *bytesSent, uint32_t flags, const struct sockaddr *to,
                                  int32_t toLength, struct _OVERLAPPED *overlapped);
/* Receives into a buffer list; from (may be null) receives the source
 * address. 0 bytes on a stream: the peer has shut down its side. */
TOV_API TOV_Status TOV_SktReceive(TOV_Skt *socket, struct _WSABUF *buffers, uint32_t count,
                                  uint64_t *bytesReceived, uint32_t *flags, struct sockaddr *from,
                                  int32_t *fromLength, struct _OVERLAPPED *overlapped);
TOV_API TOV_Status TOV_SktRecvBuf(TOV_Skt *socket, void *buffer, uint64_t length,
                                  uint64_t *bytesReceived, uint32_t *flags, struct sockaddr *from,
                                  int32_t *fromLength, struct _OVERLAPPED *overlapped);

/* (end of sockets) */

/* ------------------------------------------------------------------------ */
/* Socket address presentation                                              */
/* ------------------------------------------------------------------------ */

/* Text forms of IPv4 (family 2), IPX (6) and IPv6 (23) socket addresses,
 * optionally with a protocol prefix and a port:
 *   192.0.2.7   tcp:192.0.2.7:80   [2001:db8::1]:443   udpv6:[::1]:53
 *   0000000a:00a0c9123456   spx:0000000a:00a0c9123456:0453
 * Both functions work whatever the start-up state. */
#define TOV_PRES_PORT 0x01u     /* a port (IPX: socket number) */
#define TOV_PRES_PREFIX 0x02u   /* a protocol prefix */
#define TOV_PRES_STREAM 0x04u   /* prefix tcp, tcpv6 or spx */
#define TOV_PRES_DATAGRAM 0x08u /* prefix udp, udpv6 or ipx */
#define TOV_PRES_UPPER 0x10u    /* writing: prefix and hex digits in upper case */

/* Room for the longest text of any family, terminator included. */
#define TOV_PRES_MAX_TEXT 54

/* Writes the address's text into text (TOV_PRES_MAX_TEXT bytes serve every
 * family). TOV_ERR_INVALID_PARAMETER for another family, nothing written. */
TOV_API TOV_Status TOV_SktNetToPresentation(const struct sockaddr *address, uint32_t flags,
                                            char *text);
/* Reads text into address, whose size in bytes is *addressSize (at least 2);
 * on TOV_OK *addressSize is the record's size (16, 14 or 28) and *flags tells
 * the parts found. TOV_ERR_BUFFER_TOO_SMALL leaves *addressSize unchanged;
 * TOV_ERR_INVALID_PARAMETER for a text that cannot be read. */
TOV_API TOV_Status TOV_SktPresentationToNet(const char *text, uint32_t *flags,
                                            struct sockaddr *address, uint64_t *addressSize);

/* (end of socket address presentation) */

/* ------------------------------------------------------------------------ */
/* Socket sets                                                              */
/* ------------------------------------------------------------------------ */

/* (end of socket sets) */

/* ------------------------------------------------------------------------ */
/* I/O completion ports                                                     */
/* ------------------------------------------------------------------------ */

/* A completion port: a queue of finished overlapped operations that any
 * number of worker threads wait on. Sockets associated with a port complete
 * their overlapped sends, receives and control calls into it under the key
 * chosen at association. Only create and destroy test the start-up count;
 * the others work on a live port whatever the start-up state. */
typedef struct TOV_IOCPort TOV_IOCPort;

/* What TOV_IOCPortWait returns when its time-out expires with nothing queued
 * (the system's wait time-out number, which has no library code). */
#define TOV_IOCPORT_WAIT_TIMEOUT 258

/* concurrency: how many waiting threads the system lets run at once; 0 means
 * one per processor. */
TOV_API TOV_Status TOV_IOCPortCreate(uint32_t concurrency, TOV_IOCPort **portOut);
/* Closes the port, frees the object and clears *port, also when the close
 * fails; returns the close's status. */
TOV_API TOV_Status TOV_IOCPortDestroy(TOV_IOCPort **port);
/* Ties the socket to the port: its overlapped operations complete there with key. */
TOV_API TOV_Status TOV_IOCPortAssociate(TOV_IOCPort *port, TOV_Skt *socket, uint64_t key);
/* Posts a completion of one's own; a waiter receives exactly these values. */
TOV_API TOV_Status TOV_IOCPortSignal(TOV_IOCPort *port, uint32_t byteCount, uint64_t key,
                                     struct _OVERLAPPED *overlapped);
/* Waits up to timeoutMs (0xFFFFFFFF: no limit, 0: only looks) for the next
 * completion. key is required; byteCount and overlapped may be null and are
 * written only on TOV_OK. Returns TOV_IOCPORT_WAIT_TIMEOUT when nothing came,
 * or the failure of a dequeued operation, whose key is then in *key. */
TOV_API TOV_Status TOV_IOCPortWait(TOV_IOCPort *port, uint64_t *byteCount, uint64_t *key,
                                   struct _OVERLAPPED **overlapped, uint32_t timeoutMs);

/* (end of i/o completion ports) */

#ifdef __cplusplus
}
#endif

#endif /* TOV_H */
