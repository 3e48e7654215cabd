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

/* The format is the system C runtime's; clang checks it so for Windows
 * targets under the name printf, and knows no ms_printf. */
#if defined(__clang__)
#define TOV_PRINTF_LIKE(f, a) __attribute__((__format__(__printf__, f, a)))
#elif defined(__GNUC__)
#define TOV_PRINTF_LIKE(f, a) __attribute__((__format__(ms_printf, f, a)))
#else
#define TOV_PRINTF_LIKE(f, a)
#endif

/* The library's definitions never throw; C++ callers see that. */
#ifdef __cplusplus
#define TOV_NOEXCEPT noexcept
#else
#define TOV_NOEXCEPT
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
/* Ends one start; the last one tears the library down. A clean-up that
 * finds no start left (the count already 0) still runs the teardown, Winsock
 * clean-up included, so every clean-up must match a start. */
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
/* Assertion dialog                                                         */
/* ------------------------------------------------------------------------ */

/* Reports a failed assertion in a modal dialog on the calling thread: the
 * expression, the file name and the line (shown with its sign), with three
 * buttons. Terminate, the default (Enter), ends the process with exit code
 * 0xFFFFFFFF. Continue (Escape) and the caption's close box return. Debug is
 * enabled only while a debugger is attached to the process; it then breaks
 * into the debugger (DebugBreak) and returns.
 * The report text holds at most 4095 characters. When the expression and the
 * file name do not both fit, they are cut and end in "...": the file name
 * keeps at least half of the room they share, the labels and the line number
 * are always shown. A null string shows as empty.
 * Works at any time (before TOV_Startup too) and on any thread, each call
 * waiting for its own dialog. Where no dialog can be shown (no display), it
 * returns at once. */
TOV_API void TOV_AssertionFailed(const char *expression, const char *file,
                                 int32_t line) TOV_NOEXCEPT;

/* (end of assertion dialog) */

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
TOV_API int64_t TOV_AtomicIncrement(volatile int64_t *target);                   /* new value */
TOV_API int64_t TOV_AtomicDecrement(volatile int64_t *target);                   /* new value */
TOV_API int64_t TOV_AtomicExchange(volatile int64_t *target, int64_t value);     /* old */
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

/* The codec reads and writes a record field by field at a cursor (passed by
 * reference) that never passes limit, one past the last usable byte; a null
 * limit means no limit. HiLo is most significant byte first, LoHi least
 * significant first, Natv the processor's order (the same bytes as LoHi
 * here). A failing call moves, writes and outputs nothing. The get side fails
 * with TOV_ERR_BUFFER_END, the put and skip side with TOV_ERR_BUFFER_TOO_SMALL.
 * No function tests the start-up count or its pointer arguments. */

/* Reading. The align functions skip 0 to N-1 bytes so that the cursor lies a
 * multiple of N bytes from base. */
TOV_API TOV_Status TOV_BufGetByte(uint8_t **cursor, uint8_t *limit, uint8_t *value);
TOV_API TOV_Status TOV_BufGetData(uint8_t **cursor, uint8_t *limit, uint64_t length,
                                  void *destination);
TOV_API TOV_Status TOV_BufGetHiLo16(uint8_t **cursor, uint8_t *limit, uint16_t *value);
TOV_API TOV_Status TOV_BufGetHiLo32(uint8_t **cursor, uint8_t *limit, uint32_t *value);
TOV_API TOV_Status TOV_BufGetHiLo64(uint8_t **cursor, uint8_t *limit, uint64_t *value);
TOV_API TOV_Status TOV_BufGetLoHi16(uint8_t **cursor, uint8_t *limit, uint16_t *value);
TOV_API TOV_Status TOV_BufGetLoHi32(uint8_t **cursor, uint8_t *limit, uint32_t *value);
TOV_API TOV_Status TOV_BufGetLoHi64(uint8_t **cursor, uint8_t *limit, uint64_t *value);
TOV_API TOV_Status TOV_BufGetNatv16(uint8_t **cursor, uint8_t *limit, uint16_t *value);
TOV_API TOV_Status TOV_BufGetNatv32(uint8_t **cursor, uint8_t *limit, uint32_t *value);
TOV_API TOV_Status TOV_BufGetNatv64(uint8_t **cursor, uint8_t *limit, uint64_t *value);
TOV_API TOV_Status TOV_BufGetAlign16(uint8_t **cursor, uint8_t *limit, const uint8_t *base);
TOV_API TOV_Status TOV_BufGetAlign32(uint8_t **cursor, uint8_t *limit, const uint8_t *base);
TOV_API TOV_Status TOV_BufGetAlign64(uint8_t **cursor, uint8_t *limit, const uint8_t *base);

/* Writing. The align functions write 0 to N-1 zero bytes so that the cursor
 * lies a multiple of N bytes from base. */
TOV_API TOV_Status TOV_BufPutByte(uint8_t **cursor, uint8_t *limit, uint8_t value);
TOV_API TOV_Status TOV_BufPutData(uint8_t **cursor, uint8_t *limit, uint64_t length,
                                  const void *source);
TOV_API TOV_Status TOV_BufPutHiLo16(uint8_t **cursor, uint8_t *limit, uint16_t value);
TOV_API TOV_Status TOV_BufPutHiLo32(uint8_t **cursor, uint8_t *limit, uint32_t value);
TOV_API TOV_Status TOV_BufPutHiLo64(uint8_t **cursor, uint8_t *limit, uint64_t value);
TOV_API TOV_Status TOV_BufPutLoHi16(uint8_t **cursor, uint8_t *limit, uint16_t value);
TOV_API TOV_Status TOV_BufPutLoHi32(uint8_t **cursor, uint8_t *limit, uint32_t value);
TOV_API TOV_Status TOV_BufPutLoHi64(uint8_t **cursor, uint8_t *limit, uint64_t value);
TOV_API TOV_Status TOV_BufPutNatv16(uint8_t **cursor, uint8_t *limit, uint16_t value);
TOV_API TOV_Status TOV_BufPutNatv32(uint8_t **cursor, uint8_t *limit, uint32_t value);
TOV_API TOV_Status TOV_BufPutNatv64(uint8_t **cursor, uint8_t *limit, uint64_t value);
TOV_API TOV_Status TOV_BufPutAlign16(uint8_t **cursor, uint8_t *limit, const uint8_t *base);
TOV_API TOV_Status TOV_BufPutAlign32(uint8_t **cursor, uint8_t *limit, const uint8_t *base);
TOV_API TOV_Status TOV_BufPutAlign64(uint8_t **cursor, uint8_t *limit, const uint8_t *base);

/* Reserving: *field receives the cursor, which then moves past 1, 2, 4 or 8
 * bytes left unwritten, for a put through a second cursor later. */
TOV_API TOV_Status TOV_BufSkip8(uint8_t **cursor, uint8_t *limit, uint8_t **field);
TOV_API TOV_Status TOV_BufSkip16(uint8_t **cursor, uint8_t *limit, uint8_t **field);
TOV_API TOV_Status TOV_BufSkip32(uint8_t **cursor, uint8_t *limit, uint8_t **field);
TOV_API TOV_Status TOV_BufSkip64(uint8_t **cursor, uint8_t *limit, uint8_t **field);

/* Length-prefixed items: a LoHi 32-bit byte count, then the bytes. */
/* Writes the low 32 bits of length, then the length bytes of source. */
TOV_API TOV_Status TOV_BufPutSizedData(uint8_t **cursor, uint8_t *limit, uint64_t length,
                                       const void *source);
/* *length receives the announced count (also when the item does not fit the
 * limit), *data a pointer to the item inside the buffer; nothing is copied. */
TOV_API TOV_Status TOV_BufGetSizedData(uint8_t **cursor, uint8_t *limit, uint64_t *length,
                                       uint8_t **data);
/* Writes the string's 16-bit units and its terminator, each LoHi; the prefix
 * counts their bytes, 2 * (units + 1). */
TOV_API TOV_Status TOV_BufPutUniStr(uint8_t **cursor, uint8_t *limit, const wchar_t *string);
/* Copies the item's units (its terminator included, none added) into
 * destination of size bytes; TOV_ERR_BUFFER_TOO_SMALL when they do not fit. */
TOV_API TOV_Status TOV_BufGetUniStr(uint8_t **cursor, uint8_t *limit, wchar_t *destination,
                                    uint64_t size);

/* (end of byte buffer codec) */

/* ------------------------------------------------------------------------ */
/* Files                                                                    */
/* ------------------------------------------------------------------------ */

/* A file handle is the platform's own file handle. The caller owns it until
 * TOV_FileClose. Its position, access and sharing are the platform's. */
typedef void *TOV_FileHandle;

/* Times in whole seconds since 1970-01-01 00:00:00 UTC (fraction dropped). */
typedef struct TOV_FileInfo {
  int64_t created;
  int64_t modified;
  uint64_t size;
} TOV_FileInfo;

/* Open flags. Write access comes with WRITE, APPEND or TRUNCATE, read access
 * only with READ; other bits are ignored. CREATE, TRUNCATE and EXCLUSIVE
 * choose what happens to an existing file / a missing one:
 *   none, EXCLUSIVE                  open it / fail
 *   CREATE                           open it / create it
 *   TRUNCATE, TRUNCATE|EXCLUSIVE     open it and cut it to 0 / fail
 *   CREATE|TRUNCATE                  cut it to 0 / create it
 *   CREATE|EXCLUSIVE(|TRUNCATE)      fail / create it
 * APPEND moves the position to the end once, right after the open. */
#define TOV_FILE_READ 0x001u
#define TOV_FILE_WRITE 0x002u
#define TOV_FILE_APPEND 0x008u
#define TOV_FILE_CREATE 0x100u
#define TOV_FILE_TRUNCATE 0x200u
#define TOV_FILE_EXCLUSIVE 0x400u

/* Share flags: what other opens of the same file may do meanwhile. */
#define TOV_FILE_SHARE_READ 0x1u
#define TOV_FILE_SHARE_WRITE 0x2u

/* Attribute flags given to a file that the open creates (and, with
 * DIRECTORY, what a directory listing reports). */
#define TOV_FILE_ATTR_ARCHIVE 0x01u
#define TOV_FILE_ATTR_HIDDEN 0x02u
#define TOV_FILE_ATTR_READONLY 0x04u
#define TOV_FILE_ATTR_SYSTEM 0x08u
#define TOV_FILE_ATTR_DIRECTORY 0x10u

/* Seek origins. */
#define TOV_FILE_SEEK_BEGIN 0u
#define TOV_FILE_SEEK_CURRENT 1u
#define TOV_FILE_SEEK_END 2u

/* Opens or creates path; *file is written only on success. */
TOV_API TOV_Status TOV_FileOpen(const char *path, uint32_t openFlags, uint32_t shareFlags,
                                uint32_t attributes, TOV_FileHandle *file);
/* Closes *file and sets it to 0, also when the close fails. */
TOV_API TOV_Status TOV_FileClose(TOV_FileHandle *file);
/* Writes the file's buffered data to the device. */
TOV_API TOV_Status TOV_FileCommit(TOV_FileHandle file);
/* A second, inheritable handle to the same open file; it shares the position. */
TOV_API TOV_Status TOV_FileDup(TOV_FileHandle file, TOV_FileHandle *copy);
/* Reads at the current position, or at *position when position is not null
 * (then *position becomes the position after the read). Only the low 32 bits
 * of *count reach the platform: a count of 0x100000000 (4 GiB) reads 0 bytes,
 * one of 0x100000005 reads 5. *count always receives the bytes read. A read
 * that moves no bytes gives TOV_ERR_END_OF_DATA, at the end of the file and
 * after any failure alike (a failure the library has no code for is named on
 * the debug output). */
TOV_API TOV_Status TOV_FileRead(TOV_FileHandle file, uint64_t *position, void *buffer,
                                uint64_t *count);
/* Writes like TOV_FileRead reads, the same low 32 bits of *count included; a
 * write of 0 bytes succeeds, and a failure gives its own status. */
TOV_API TOV_Status TOV_FileWrite(TOV_FileHandle file, uint64_t *position, const void *data,
                                 uint64_t *count);
/* Moves the position by offset from origin; newPosition may be null. */
TOV_API TOV_Status TOV_FileSeek(TOV_FileHandle file, int64_t offset, uint32_t origin,
                                uint64_t *newPosition);
TOV_API TOV_Status TOV_FileTell(TOV_FileHandle file, uint64_t *position);
TOV_API TOV_Status TOV_FileSize(TOV_FileHandle file, uint64_t *size);
/* Extends or cuts the file to size (at most 0x7FFFFFFFFFFFFFFF) and leaves
 * the position there. */
TOV_API TOV_Status TOV_FileSetSize(TOV_FileHandle file, uint64_t size);
TOV_API TOV_Status TOV_FileInfoByHandle(TOV_FileHandle file, TOV_FileInfo *info);
/* Also works for directories. */
TOV_API TOV_Status TOV_FileInfoByName(const char *path, TOV_FileInfo *info);
/* The platform's own attribute word (FILE_ATTRIBUTE_...), not the flags above. */
TOV_API TOV_Status TOV_FileGetAttrib(const char *path, uint32_t *attributes);
TOV_API TOV_Status TOV_FileDelete(const char *path);

/* (end of files) */

/* ------------------------------------------------------------------------ */
/* Directories and paths                                                    */
/* ------------------------------------------------------------------------ */

/* A listing handle stands for a library record; TOV_DirClose frees it. */
typedef void *TOV_DirHandle;

/* Longest path the library builds or searches with, terminator included. */
#define TOV_PATH_MAX 260

/* Opens a listing of the entries of directory that match mask ("*" when
 * mask is null); nothing is read yet. One trailing separator (backslash or
 * forward slash) of directory is dropped; a directory that is a lone
 * separator stands for the root of the current drive (not the current
 * directory). The search pattern, directory + backslash + mask (mask alone
 * for an empty directory), must fit TOV_PATH_MAX: a longer one gives
 * TOV_ERR_PATH_TOO_LONG before the directory is looked at. A missing directory gives
 * TOV_ERR_NOT_FOUND. *listing is written only on success. */
TOV_API TOV_Status TOV_DirOpen(const char *directory, const char *mask,
                               TOV_DirHandle *listing) TOV_NOEXCEPT;
/* The next entry, "." and ".." included, in the platform's order (no sort).
 * *name points into the listing and stays valid until the next read or the
 * close; *attributes uses the TOV_FILE_ATTR_ flags (other platform bits are
 * dropped). Any out argument may be null. TOV_ERR_END_OF_DATA at the end,
 * at every read after it, and when nothing matches; nothing is written on
 * failure. */
TOV_API TOV_Status TOV_DirRead(TOV_DirHandle listing, const char **name, uint32_t *attributes,
                               TOV_FileInfo *info) TOV_NOEXCEPT;
/* Ends the search, frees the listing and sets *listing to 0, also when ending
 * the search fails (that failure is returned). */
TOV_API TOV_Status TOV_DirClose(TOV_DirHandle *listing) TOV_NOEXCEPT;
/* One directory; its parent must exist (else TOV_ERR_NOT_FOUND). */
TOV_API TOV_Status TOV_DirCreate(const char *path) TOV_NOEXCEPT;
/* One empty directory. A directory that is not empty gives the C runtime's
 * number for it (41), unmapped. */
TOV_API TOV_Status TOV_DirDelete(const char *path) TOV_NOEXCEPT;
/* Bytes the calling user may still use on the volume holding path. */
TOV_API TOV_Status TOV_DirFreeSpace(const char *path, uint64_t *freeBytes) TOV_NOEXCEPT;
/* Joins the components that are not null into path (TOV_PATH_MAX bytes),
 * putting a backslash between two unless the text so far ends in one (a
 * forward slash does not count). Components are copied as they stand; an
 * empty one still adds a separator when one is due. A result longer than
 * TOV_PATH_MAX - 1 characters gives TOV_ERR_PATH_TOO_LONG and leaves path
 * empty; nothing is ever written past TOV_PATH_MAX bytes. */
TOV_API TOV_Status TOV_PathBuild(const char *c1, const char *c2, const char *c3, const char *c4,
                                 char *path) TOV_NOEXCEPT;

/* (end of directories and paths) */

/* ------------------------------------------------------------------------ */
/* Modules                                                                  */
/* ------------------------------------------------------------------------ */

/* A module handle is the platform's own. One from TOV_ModLoad holds a load
 * reference, which TOV_ModUnload gives back; one from TOV_ModGetHandle none.
 * These functions, except TOV_ModGetHandle and TOV_ModGetFullPath, also work
 * before TOV_Startup. */
typedef void *TOV_ModHandle;

/* Loads name; when that fails, name + ".dll" (also after a ".dll" already
 * there), whose failure is returned. *module is null after a failure. A
 * module that is not one the platform can load gives the platform's own
 * number (ERROR_BAD_EXE_FORMAT, 193). */
TOV_API TOV_Status TOV_ModLoad(const char *name, TOV_ModHandle *module) TOV_NOEXCEPT;
TOV_API TOV_Status TOV_ModUnload(TOV_ModHandle module) TOV_NOEXCEPT;
/* *address is null and the status TOV_ERR_SYMBOL_NOT_FOUND when module does
 * not export symbol. */
TOV_API TOV_Status TOV_ModResolveSym(TOV_ModHandle module, const char *symbol,
                                     void **address) TOV_NOEXCEPT;
/* Does nothing; TOV_OK. */
TOV_API TOV_Status TOV_ModUnResolveSym(TOV_ModHandle module, void *address) TOV_NOEXCEPT;
/* A module already loaded, without taking a reference; TOV_ERR_MODULE_NOT_FOUND
 * when it is not loaded. *module is written only on success. */
TOV_API TOV_Status TOV_ModGetHandle(const char *name, TOV_ModHandle *module) TOV_NOEXCEPT;
/* The full path of module's file in path[0..size); a longer path is cut to
 * size - 1 characters, terminated, and still TOV_OK. A null path, a size of
 * 0, then a null module give TOV_ERR_INVALID_PARAMETER. The platform
 * receives the low 32 bits of size. */
TOV_API TOV_Status TOV_ModGetFullPath(TOV_ModHandle module, char *path, uint64_t size) TOV_NOEXCEPT;
/* From the file of module (null: the program): its last-write time into
 * *modified (seconds since 1970 UTC; best effort, never a failure, left as it
 * was when the file cannot be opened without sharing or read), and its file
 * version text into version[0..size), cut and terminated. The version is
 * "0.0.0" when the file has no version record; a record without a
 * translation table gives TOV_ERR_INVALID_MODULE and "0.0.0". Either out
 * argument may be null (a version of size 0 counts as null). A path of 256
 * characters or more is cut to 255 before the file is read. */
TOV_API TOV_Status TOV_ModGetTimeVersion(TOV_ModHandle module, int64_t *modified, char *version,
                                         uint32_t size) TOV_NOEXCEPT;
/* TOV_OK when module is not null and names a loaded module's file, else
 * TOV_ERR_INVALID_PARAMETER. */
TOV_API TOV_Status TOV_ModValidateHandle(TOV_ModHandle module) TOV_NOEXCEPT;
/* The file description of file's version record into description[0..size),
 * cut and terminated (size 0: not touched). A file without a version record,
 * or a missing file, gives TOV_OK and an empty text; a record without a
 * translation table TOV_ERR_INVALID_MODULE. Nothing is compared: the caller
 * judges the text. */
TOV_API TOV_Status TOV_ModValidateName(const char *file, uint32_t size,
                                       char *description) TOV_NOEXCEPT;

/* (end of modules) */

/* ------------------------------------------------------------------------ */
/* Mutexes, events, semaphores, LMutexes                                    */
/* ------------------------------------------------------------------------ */

/* Events, mutexes and semaphores are the system's own objects; an LMutex is a
 * process-private lock (a critical section with a spin count). Mutexes and
 * LMutexes are recursive. Named creates of an
 * object that exists already return TOV_ERR_ALREADY_EXISTS with a working
 * handle to it, which the caller must destroy as well. Waits return TOV_OK,
 * TOV_ERR_TIMEOUT, or the mapped system error. Destroy functions clear the
 * caller's variable whatever the close returned. */
typedef void *TOV_EventHandle;
typedef void *TOV_MutexHandle;
typedef void *TOV_SemHandle;
typedef void *TOV_LMutexHandle;

/* Time-out that waits without limit; 0 tests and returns at once. */
#define TOV_WAIT_INFINITE 0xFFFFFFFFu

/* name may be null; manualReset and initiallySet are flags (non-zero = true). */
TOV_API TOV_Status TOV_EventCreate(const char *name, int32_t manualReset, int32_t initiallySet,
                                   TOV_EventHandle *handleOut);
TOV_API TOV_Status TOV_EventDestroy(TOV_EventHandle *handle);
TOV_API TOV_Status TOV_EventSet(TOV_EventHandle handle);
TOV_API TOV_Status TOV_EventReset(TOV_EventHandle handle);
/* Releases the threads waiting right now (all, or one for auto-reset) and
 * leaves the event reset. */
TOV_API TOV_Status TOV_EventPulse(TOV_EventHandle handle);
TOV_API TOV_Status TOV_EventWait(TOV_EventHandle handle, uint32_t timeoutMs);

/* Created not owned. Releasing a mutex the caller does not own gives the
 * unmapped system error 288. Acquiring a mutex whose owner ended without
 * releasing it succeeds (TOV_OK): the caller owns it then. */
TOV_API TOV_Status TOV_MutexCreate(const char *name, TOV_MutexHandle *handleOut);
TOV_API TOV_Status TOV_MutexDestroy(TOV_MutexHandle *handle);
TOV_API TOV_Status TOV_MutexAcquire(TOV_MutexHandle handle);
/* TOV_ERR_TIMEOUT when another thread owns the mutex. */
TOV_API TOV_Status TOV_MutexTryAcquire(TOV_MutexHandle handle);
TOV_API TOV_Status TOV_MutexRelease(TOV_MutexHandle handle);

/* initialCount must not exceed maximumCount. */
TOV_API TOV_Status TOV_SemCreate(const char *name, uint32_t initialCount, uint32_t maximumCount,
                                 TOV_SemHandle *handleOut);
TOV_API TOV_Status TOV_SemDestroy(TOV_SemHandle *handle);
TOV_API TOV_Status TOV_SemAcquire(TOV_SemHandle handle, uint32_t timeoutMs);
/* Adds count; TOV_ERR_TOO_MANY_POSTS (count unchanged) past the maximum. */
TOV_API TOV_Status TOV_SemSignal(TOV_SemHandle handle, uint32_t count);

/* The spin count applies where the platform offers it. */
TOV_API TOV_Status TOV_LMutexCreate(TOV_LMutexHandle *handleOut, uint32_t spinCount);
TOV_API TOV_Status TOV_LMutexDestroy(TOV_LMutexHandle *handle);
/* TOV_ERR_INVALID_HANDLE for a null handle. */
TOV_API TOV_Status TOV_LMutexAcquire(TOV_LMutexHandle handle);
/* Never waits: TOV_ERR_TIMEOUT when another thread holds the lock. */
TOV_API TOV_Status TOV_LMutexTryAcquire(TOV_LMutexHandle handle);
TOV_API TOV_Status TOV_LMutexRelease(TOV_LMutexHandle handle);

/* (end of mutexes, events, semaphores, lmutexes) */

/* ------------------------------------------------------------------------ */
/* Condition variables, reader-writer locks                                 */
/* ------------------------------------------------------------------------ */

/* (end of condition variables, reader-writer locks) */

/* ------------------------------------------------------------------------ */
/* Threads, thread descriptions, thread-local storage                       */
/* ------------------------------------------------------------------------ */

/* Thread ids are the system's 32-bit ids, zero-extended; 0 is never an id. */
typedef void *TOV_ThreadHandle;
typedef uint32_t (*TOV_ThreadRoutine)(void *argument);

/* Starts routine(argument) at once. stackSize 0 = the platform's default.
 * With a null handleOut the thread runs detached. */
TOV_API TOV_Status TOV_ThreadCreate(TOV_ThreadRoutine routine, void *argument, uint32_t stackSize,
                                    TOV_ThreadHandle *handleOut);
/* Closes the handle; the thread itself runs on. */
TOV_API TOV_Status TOV_ThreadDestroy(TOV_ThreadHandle *handle);
/* TOV_OK once the thread has ended, else TOV_ERR_TIMEOUT after timeoutMs. */
TOV_API TOV_Status TOV_ThreadWait(TOV_ThreadHandle handle, uint32_t timeoutMs);
/* TOV_ERR_STILL_RUNNING (nothing written) while the thread runs. */
TOV_API TOV_Status TOV_ThreadGetExitCode(TOV_ThreadHandle handle, uint32_t *exitCodeOut);
TOV_API TOV_Status TOV_ThreadGetID(TOV_ThreadHandle handle, uint64_t *idOut);
TOV_API uint64_t TOV_ThreadGetCurrentID(void);
/* Ends the calling thread with exitCode; does not return. */
TOV_API void TOV_ThreadExit(uint32_t exitCode);

/* Every thread has a stack of description pointers that any thread may read.
 * Push and pop work on the calling thread's stack, whether or not the library
 * is started. A thread's stack goes when the thread ends; code that runs on
 * it after tov's thread-end notice (the detach handler of a library loaded
 * before tov) finds it empty, and a push there starts a new stack that stays
 * until TOV_Cleanup. A thread that ends without that notice (one terminated)
 * leaves its stack until TOV_Cleanup: a read by its id finds it, also once a
 * new thread has that id, until the new thread pushes a stack of its own. */
TOV_API TOV_Status TOV_ThreadPushDescriptionPtr(void *value);
/* Drops the newest entry; TOV_ERR_NOT_FOUND when the stack is empty. */
TOV_API TOV_Status TOV_ThreadPopDescriptionPtr(void);
/* Copies the stack of thread threadId (0 = the caller), newest first, into
 * buffer[0..*count). *count becomes the depth; TOV_ERR_BUFFER_TOO_SMALL when
 * the depth exceeds the room. buffer may be null only with *count == 0. */
TOV_API TOV_Status TOV_ThreadGetDescriptionPtrs(uint64_t threadId, void **buffer, uint32_t *count);

/* Thread-local storage keys: the platform's slot index, zero-extended. The
 * functions that take a key use only its low 32 bits. */
TOV_API TOV_Status TOV_TLSCreate(uint64_t *keyOut);
/* Frees the slot and clears *key whatever the result. */
TOV_API TOV_Status TOV_TLSDestroy(uint64_t *key);
/* A slot never set reads as null with TOV_OK. */
TOV_API TOV_Status TOV_TLSGetValue(uint64_t key, void **valueOut);
TOV_API TOV_Status TOV_TLSSetValue(uint64_t key, void *value);

/* (end of threads, thread descriptions, thread-local storage) */

/* ------------------------------------------------------------------------ */
/* Processes, threads, thread contexts                                      */
/* ------------------------------------------------------------------------ */

/* Process and thread ids are the system's 32-bit ids, zero-extended.
 *
 * The two listing calls fill ids with the ids found, in the system's order,
 * as far as the array goes: *count is the array's size on entry and the
 * number found on return (TOV_OK, or TOV_ERR_BUFFER_TOO_SMALL when that is
 * larger than the array). ids may be null only with *count == 0, which asks
 * for the number alone. Any other failure (no snapshot: the mapped system
 * error) leaves *count unwritten. Processes and threads that start or end
 * during a call may or may not be seen. */
TOV_API TOV_Status TOV_SysEnumProcesses(uint64_t *ids, uint32_t *count) TOV_NOEXCEPT;
/* The threads of process processId; an id no process has gives TOV_OK and 0. */
TOV_API TOV_Status TOV_SysEnumThreads(uint64_t processId, uint64_t *ids,
                                      uint32_t *count) TOV_NOEXCEPT;
TOV_API TOV_Status TOV_SysGetCurrentProcessId(uint64_t *idOut) TOV_NOEXCEPT;

/* A captured thread context: the thread of threadId (in process processId)
 * held suspended, its registers read, ready for TOV_SysStackWalk. The record
 * is allocated under the caller's tag; the thread does not run until
 * TOV_SysFreeThreadCtx resumes it, so capture threads that hold no lock the
 * capturing thread needs (the C runtime heap's, for instance). Capturing
 * twice suspends twice: the thread runs again after both are freed. */
typedef void *TOV_ThreadCtxHandle;
/* The calling thread's own id, an id above 32 bits, a null tag or a null
 * ctxOut give TOV_ERR_INVALID_PARAMETER; a thread that cannot be opened or
 * read gives the mapped system error. *ctxOut is written only on success. */
TOV_API TOV_Status TOV_SysAllocThreadCtx(TOV_MemTag tag, uint64_t processId, uint64_t threadId,
                                         TOV_ThreadCtxHandle *ctxOut) TOV_NOEXCEPT;
/* Resumes the thread once and frees the record. Always TOV_OK for a non-null
 * record. */
TOV_API TOV_Status TOV_SysFreeThreadCtx(TOV_ThreadCtxHandle ctx) TOV_NOEXCEPT;

/* (end of processes, threads, thread contexts) */

/* ------------------------------------------------------------------------ */
/* Stack walk and symbols                                                   */
/* ------------------------------------------------------------------------ */

/* Walks the stack of a captured thread one frame per call. Set *address to 0
 * before the first call; each TOV_OK call then leaves in it the next code
 * address outwards: first the thread's instruction pointer, then each
 * frame's return address, and 0 when the walk has ended. A step that fails
 * returns the mapped system error and leaves *address as it was (a process
 * that cannot be opened for reading is tried again on the next step).
 * Frames past the first are found only in modules the symbol handler knows:
 * make one TOV_SysGetSymbolInfo call for the process before walking. */
TOV_API TOV_Status TOV_SysStackWalk(TOV_ThreadCtxHandle ctx, uint64_t *address) TOV_NOEXCEPT;

/* Describes the code address of process processId (not 0). Each piece is
 * looked up only when asked for: the name (nameSize > 0; the displacement
 * with it), the source file and line (fileSize > 0 or lineOut), the module
 * (moduleSize > 0 or any module out). Text is cut to fit its buffer and
 * always terminated; a buffer may be null only with size 0. Names stay as the
 * compiler's debug information gives them. Every piece asked for is emptied
 * (text "", numbers 0) before its look-up, so a piece not found reads empty.
 * The result is TOV_OK unless every one of the three pieces was asked for and
 * none was found; it is then the name look-up's mapped error (its value
 * differs between systems). moduleName receives the path the module was
 * loaded from; its base, image size and link time stamp go to the outs.
 *
 * The first call starts the process's symbol handler, with line information
 * and a search path made of the current directory, the executable's
 * directory and the variables _NT_SYMBOL_PATH, _NT_ALTERNATE_SYMBOL_PATH and
 * SYSTEMROOT, read then (at most 259 characters; a part that does not fit is
 * left out). Every call offers the process's modules to the handler again,
 * so modules loaded since are known. Calls of this function and of
 * TOV_SysStackWalk are serialised inside the library. */
TOV_API TOV_Status TOV_SysGetSymbolInfo(uint64_t processId, uint64_t address, char *name,
                                        uint64_t nameSize, uint64_t *displacementOut, char *file,
                                        uint64_t fileSize, uint32_t *lineOut, char *moduleName,
                                        uint64_t moduleNameSize, uint64_t *moduleBaseOut,
                                        uint64_t *moduleSizeOut,
                                        uint64_t *moduleTimeStampOut) TOV_NOEXCEPT;

/* (end of stack walk and symbols) */

/* ------------------------------------------------------------------------ */
/* Processor, time and identity                                             */
/* ------------------------------------------------------------------------ */

/* System-wide processor usage between two samples. A usage record keeps the
 * last sample; it has no lock: its users serialise the calls on one record.
 * Usage calls test the start-up count; the other calls of this section work
 * at any time. */
typedef struct TOV_CPUUsage TOV_CPUUsage;

/* Writes 0 to *handleOut, takes a first sample and writes the new record.
 * A failed sample gives the mapped system error, TOV_ERR_NO_MEMORY a failed
 * allocation; *handleOut stays 0 then. */
TOV_API TOV_Status TOV_GetCPUUsageHandle(TOV_CPUUsage **handleOut) TOV_NOEXCEPT;
/* The share (0 to 100, truncated) of the time of all processors together that
 * was not idle since the record's previous sample; the record then keeps the
 * new sample. *percent is -1 on a failed sample (the mapped system error; the
 * record keeps its sample). Two samples with no processor time between them
 * (the system's counters move in steps of several milliseconds) give 0:
 * nothing was seen busy. */
TOV_API TOV_Status TOV_GetCPUUsagePercent(TOV_CPUUsage *handle, int32_t *percent) TOV_NOEXCEPT;
/* Frees the record and clears *handle; a variable holding 0 frees nothing. */
TOV_API TOV_Status TOV_FreeCPUUsageHandle(TOV_CPUUsage **handle) TOV_NOEXCEPT;

/* The number of active processors. */
TOV_API uint32_t TOV_GetNumberOfProcessors(void) TOV_NOEXCEPT;
/* Seconds since the system started. The system's millisecond counter wraps
 * after 49.7 days; a wrap is counted (4294967 s each) when the function is
 * called at least once in every such period. */
TOV_API uint32_t TOV_SecondsUp(void) TOV_NOEXCEPT;
/* Suspends the calling thread for ms milliseconds; 0 gives up the rest of
 * its time slice. */
TOV_API void TOV_Sleep(uint32_t ms) TOV_NOEXCEPT;
/* The wall-clock time: seconds since 1970-01-01 UTC and, when millis is not
 * null, the milliseconds (0 to 999). seconds must be valid. */
TOV_API void TOV_HiResTime(int64_t *seconds, uint32_t *millis) TOV_NOEXCEPT;
/* Seconds to add to local time to get UTC (positive west of Greenwich),
 * daylight saving time included while in effect. Read from the system at
 * most once per 30 minutes; 0 until the system has answered once. */
TOV_API int32_t TOV_TZOffset(void) TOV_NOEXCEPT;

/* A 16-byte unique identifier in the system's layout. */
typedef struct TOV_Guid {
  uint32_t data1;
  uint16_t data2;
  uint16_t data3;
  uint8_t data4[8];
} TOV_Guid;

/* Writes a new identifier from the system's generator; when the system
 * cannot make one, four values of the C runtime's rand() (0 to 32767) fill
 * the four 32-bit words, the generator seeded with the time once per
 * process. Never fails; guid must be valid. */
TOV_API void TOV_TmGuidGenerate(TOV_Guid *guid) TOV_NOEXCEPT;

/* Pointer tests: TOV_OK when the memory may be executed, read, written or
 * read as a string of at most maxLength characters (up to its terminator;
 * wide != 0: 16-bit characters), else TOV_ERR_INVALID_PARAMETER. A read or
 * write test of size 0 always passes. The tests never fault, but memory
 * with a guard page must not be given to them: touching it is not caught. */
TOV_API TOV_Status TOV_SysValidateCodePtr(const void *p) TOV_NOEXCEPT;
TOV_API TOV_Status TOV_SysValidateReadPtr(const void *p, uint64_t size) TOV_NOEXCEPT;
TOV_API TOV_Status TOV_SysValidateWritePtr(void *p, uint64_t size) TOV_NOEXCEPT;
TOV_API TOV_Status TOV_SysValidateStringPtr(const void *p, uint64_t maxLength,
                                            int32_t wide) TOV_NOEXCEPT;

/* (end of processor, time and identity) */

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
/* Sends length bytes of data. Only the low 32 bits of length (as of every
 * 64-bit length of the socket functions) reach the platform: a length of
 * 0x100000000 (4 GiB) sends 0 bytes. */
TOV_API TOV_Status TOV_SktSendBuf(TOV_Skt *socket, const void *data, uint64_t length,
                                  uint64_t *bytesSent, uint32_t flags, const struct sockaddr *to,
                                  int32_t toLength, struct _OVERLAPPED *overlapped);
/* Receives into a buffer list; from (may be null) receives the source
 * address. 0 bytes on a stream: the peer has shut down its side. */
TOV_API TOV_Status TOV_SktReceive(TOV_Skt *socket, struct _WSABUF *buffers, uint32_t count,
                                  uint64_t *bytesReceived, uint32_t *flags, struct sockaddr *from,
                                  int32_t *fromLength, struct _OVERLAPPED *overlapped);
/* Receives into length bytes of buffer, of which again only the low 32 bits
 * count: a length of 0x100000000 receives 0 bytes and returns TOV_OK, as a
 * stream does when the peer has shut down. */
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

/* A socket set: socket handles with interest flags and a context value of
 * the caller's, waited on together with TOV_FDSSelect. No limit on the
 * number of sockets. A set has no lock: calls on one set (its callbacks
 * included) must come from one thread at a time. The set never closes the
 * sockets it holds. */
typedef struct TOV_FDS TOV_FDS;

/* Interest flags. Other bits are kept and returned but select nothing. */
#define TOV_FDS_READ 0x01u
#define TOV_FDS_WRITE 0x02u
#define TOV_FDS_EXCEPT 0x04u

/* What TOV_FDSModify changes. */
#define TOV_FDS_SET_FLAGS 0x01u
#define TOV_FDS_SET_CONTEXT 0x02u

/* One ready socket: the entry's handle, interest flags (not the condition
 * met) and context. */
typedef struct TOV_FDSResult {
  TOV_Skt *handle;
  uint32_t flags;
  uint64_t context;
} TOV_FDSResult;

/* Called per entry by TOV_FDSEnumerate and TOV_FDSDestroy, in ascending
 * handle order; a non-zero return stops the walk. */
typedef TOV_Status (*TOV_FDSCallback)(TOV_Skt *socket, uint32_t flags, uint64_t context);

/* sizeHint: slots of the first index growth (0 counts as 1); doubles after. */
TOV_API TOV_Status TOV_FDSCreate(uint32_t sizeHint, TOV_FDS **setOut);
/* Calls callback (may be null) per entry until it returns non-zero, frees
 * the set and clears *set. Returns TOV_OK whatever the callback returned. */
TOV_API TOV_Status TOV_FDSDestroy(TOV_FDS **set, TOV_FDSCallback callback);
/* flags must not be 0. TOV_ERR_ALREADY_EXISTS when the handle is in the set. */
TOV_API TOV_Status TOV_FDSAssociate(TOV_FDS *set, TOV_Skt *socket, uint32_t flags,
                                    uint64_t context);
/* Sets the flags (TOV_FDS_SET_FLAGS, 0 allowed) and/or the context
 * (TOV_FDS_SET_CONTEXT) from *flags and *context, then stores the previous
 * values through each non-null pointer; what = 0 only reads. */
TOV_API TOV_Status TOV_FDSModify(TOV_FDS *set, TOV_Skt *socket, uint32_t what, uint32_t *flags,
                                 uint64_t *context);
/* Removes the handle's entry and stores its context (context may be null). */
TOV_API TOV_Status TOV_FDSRemove(TOV_FDS *set, TOV_Skt *socket, uint64_t *context);
/* Entries with each interest that which selects, summed per interest. */
TOV_API TOV_Status TOV_FDSCount(TOV_FDS *set, uint32_t *count, uint32_t which);
/* Returns the first non-zero callback result, TOV_OK otherwise. The callback
 * must not change the set. */
TOV_API TOV_Status TOV_FDSEnumerate(TOV_FDS *set, TOV_FDSCallback callback);
/* Waits (timeoutMs, 0xFFFFFFFF without limit) until entries with the
 * interests in which are ready; fills one record per ready socket and
 * interest, read records first, then write, then except. *count: the
 * array's size going in, the number of ready records coming out;
 * TOV_ERR_BUFFER_TOO_SMALL when that is larger (the array then holds the
 * first ones). TOV_ERR_TIMEOUT leaves *count alone. */
TOV_API TOV_Status TOV_FDSSelect(TOV_FDS *set, uint32_t which, TOV_FDSResult *results,
                                 uint32_t *count, uint32_t timeoutMs);

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

/* ------------------------------------------------------------------------ */
/* Address lists and interface enumeration                                  */
/* ------------------------------------------------------------------------ */

/* None of these functions tests the start-up count, but resolving and the
 * IPv4 and IPX interface lists need the network stack that TOV_Startup
 * starts. */

/* One node of an address list: a socket address as the resolver gave it
 * (family 2 or 23, family field first, port field 0), the first
 * min(length, 66) bytes set and the rest zero. */
typedef struct TOV_AddrBuf {
  uint8_t addr[66];
  struct TOV_AddrBuf *next; /* null at the end */
} TOV_AddrBuf;

/* Resolves host into a new list of IPv4 and IPv6 addresses (stream sockets,
 * each address once), in the reverse of the resolver's order. *list must be
 * null going in (list itself must not be null), and host must not be null:
 * otherwise TOV_ERR_INVALID_PARAMETER and nothing is touched.
 *
 * host may carry a port, which is returned through port (may be null), not
 * stored in the addresses:
 *   [::1]:80  [::1]@80   bracketed host; after the "]" a ":" or "@" and the
 *                        port, anything else means no port ("[::1]80" is
 *                        ::1 without a port); the first character is
 *                        taken for the "["
 *   name@80   name:80    otherwise the last "@", or if there is none the
 *                        last ":", ends the host ("a@80:9" is a, 80)
 * so an IPv6 literal must be bracketed: "::1:80" is ::1 with port 80. The
 * port is the decimal number after the separator (leading blanks and a sign
 * allowed, reading stops at the first other character) modulo 65536, 0 when
 * there is none.
 *
 * When the name cannot be resolved the result is the system's network error
 * number itself (11001 host not found, 11002, 11004...), not a TOV code; the
 * port is then 0 and *list stays null. TOV_ERR_NO_MEMORY when the copy of
 * the text (port untouched) or a node (port 0) cannot be allocated; no list
 * is kept. Free the list with TOV_FreeAddrBufList. */
TOV_API TOV_Status TOV_GetAddrBufList(const char *host, uint16_t *port,
                                      TOV_AddrBuf **list) TOV_NOEXCEPT;
/* Frees every node of list (may be null). Returns TOV_OK. */
TOV_API TOV_Status TOV_FreeAddrBufList(TOV_AddrBuf *list) TOV_NOEXCEPT;

/* Interface properties, and the selector bits that include interfaces with
 * them. */
#define TOV_IF_LOOPBACK 0x1u
#define TOV_IF_POINTTOPOINT 0x2u /* dial-up, serial, wide-area */
#define TOV_IF_DOWN 0x4u         /* not up */

/* One local interface address (72 bytes): its properties and a socket
 * address record, family field first, zero after it. IPv4 (family 2): the
 * address, port 0. IPX (6): network and node numbers, socket 0. IPv6 (23):
 * the system's record (port 0, flow information, address, scope). No
 * netmasks or broadcast addresses. */
typedef struct TOV_SktInterface {
  uint32_t flags;
  uint8_t addr[68];
} TOV_SktInterface;

/* Lists the interface addresses of family (2, 6 or 23; 0 for all three, IPX
 * first, then IPv4, then IPv6; any other family lists nothing) into
 * interfaces. An interface with none of the properties is always listed;
 * one with a property only when selector has its bit. *count (required): the
 * array's size going in (interfaces may be null when it is 0), the number of
 * matching addresses coming out;
 * TOV_ERR_BUFFER_TOO_SMALL when that is larger (the array then holds the
 * first ones). Otherwise the IPX list's failure, else the status of the last
 * of the IPv4 and IPv6 lists made (so with family 0 an IPv6 failure hides an
 * IPv4 one); a family whose list failed contributes nothing. Where IPX, a
 * UDP socket or the IP helper library is missing, that family lists nothing
 * and does not fail. The IP helper library is loaded on the first IPv6 list
 * and unloaded by the last TOV_Cleanup; the next IPv6 list loads it again. */
TOV_API TOV_Status TOV_SktEnumInterfaces(uint32_t family, uint32_t selector, uint32_t *count,
                                         TOV_SktInterface *interfaces) TOV_NOEXCEPT;

/* (end of address lists and interface enumeration) */

#ifdef __cplusplus
}
#endif

#endif /* TOV_H */
