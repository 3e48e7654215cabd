/**
 * @mainpage tov: one C interface to the services of 64-bit Windows
 *
 * tov.dll gives C and C++ programs one plain C interface to the operating
 * system: memory, atomics and spin locks, files, directories and modules,
 * locks and signals, threads, processes and stack walks, sockets and their
 * text address form, socket sets and completion ports, a byte-buffer codec
 * and a small log. Its whole interface is one header, tov.h, valid C99 and
 * C++; the families are listed under Modules. Start the library with
 * TOV_Startup() and end it with TOV_Cleanup().
 *
 * @par Result codes
 * Almost every function returns a ::TOV_Status: #TOV_OK (0) on success, a
 * negative `TOV_ERR_...` code on failure, or, where the library has no code for
 * a system error, that positive system error number itself. Throughout this
 * reference, "the mapped system error" means the code the failing system
 * call's error number maps to (the table is in @ref tov_status), or that
 * number when it has none.
 *
 * @par Start-up and arguments
 * The functions marked #TOV_NEEDS_START in their declaration test the start-up
 * count first: before TOV_Startup(), and after the TOV_Cleanup() that matches
 * the last start, they return #TOV_ERR_NOT_INITIALIZED. They then test their
 * arguments and return #TOV_ERR_INVALID_PARAMETER when a test fails. Both
 * happen before any effect: nothing is written then. A function's description
 * says when it skips the argument test. The unmarked ones (the codec, the text
 * address forms and others) need no start; findid() alone answers a library
 * not started in its own way.
 *
 * @par Outputs
 * Outputs (the pointer arguments a function writes through) are written only on
 * success, unless the function's description says otherwise.
 *
 * @par Text
 * Names and paths are `char` strings in the system's ANSI code page. Text the
 * library writes is always terminated.
 *
 * @par Linking
 * Visual C++ and the compilers of its ABI link through `tov.lib`, mingw-w64
 * through `libtov.dll.a`; the CMake package (`find_package(tov)`, target
 * `tov::tov`) picks the right one. `tov.dll` goes beside the program.
 */
/**
 * @file tov.h
 * @brief The one public header of tov.dll: every function, type and constant
 * of the library (conventions on the main page).
 */
#ifndef TOV_H
#define TOV_H

#include <stddef.h>
#include <stdint.h>

#if defined(TOV_BUILDING) || defined(TOV_STATIC)
#define TOV_API
#else
/** Marks each function of the library: imported from tov.dll. */
#define TOV_API __declspec(dllimport)
#endif

/**
 * Marks the functions that need the library started: before TOV_Startup(),
 * and after the TOV_Cleanup() that matches the last start, they return
 * #TOV_ERR_NOT_INITIALIZED before they look at any argument or write
 * anything. Every other function works whether or not the library is
 * started. The mark expands to nothing.
 */
#define TOV_NEEDS_START

/**
 * @def TOV_PRINTF_LIKE(f, a)
 * Lets the compiler check the arguments against format string @p f, the
 * variable arguments starting at position @p a. The format is the Windows C
 * runtime's: clang checks it so for Windows targets under the name printf, and
 * knows no ms_printf; elsewhere (the native fuzz build) nothing is checked.
 */
#if defined(__clang__) && defined(_WIN32)
#define TOV_PRINTF_LIKE(f, a) __attribute__((__format__(__printf__, f, a)))
#elif defined(__GNUC__) && defined(_WIN32)
#define TOV_PRINTF_LIKE(f, a) __attribute__((__format__(ms_printf, f, a)))
#else
#define TOV_PRINTF_LIKE(f, a)
#endif

/* The library's definitions never throw; C++ callers see that. */
#ifdef __cplusplus
#define TOV_NOEXCEPT noexcept
#else
/** `noexcept` for C++ callers: no function of the library throws. */
#define TOV_NOEXCEPT
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------------ */
/* Result codes                                                             */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_status Result codes
 * @brief What every call returns, and how system errors map onto it.
 *
 * A system error number that the library maps is returned as the code listed
 * beside it here; any other one is returned unchanged, as a positive number,
 * and reported on the debug output. The Win32, Winsock and C runtime numbers
 * are mapped separately.
 * @{
 */

/** A call's result: #TOV_OK, a negative `TOV_ERR_...` code, or a positive
 *  system error number that has no code. */
typedef int32_t TOV_Status;

/** The library's result codes. */
enum {
  TOV_OK = 0, /**< Success. */

  TOV_ERR_NO_MEMORY = -5999,         /**< Out of memory (Win32 8, 14, 1130; ENOMEM). */
  TOV_ERR_BUFFER_TOO_SMALL = -5998,  /**< The caller's buffer or array is too small (Win32
                                          122); the codec's writers past their limit. */
  TOV_ERR_INVALID_PARAMETER = -5997, /**< An argument failed its test (Win32 87; EINVAL). */
  TOV_ERR_INVALID_HANDLE = -5996,    /**< Not a usable handle (Win32 6; EBADF). */
  TOV_ERR_END_OF_DATA = -5995,       /**< Nothing more to read or list (Win32 18, 38). */
  TOV_ERR_TIMEOUT = -5994,           /**< A wait ended before its object was signalled
                                          (Win32 121, 1460). */
  TOV_ERR_NOT_FOUND = -5993,         /**< No such file, path or entry (Win32 2, 3, 487;
                                          ENOENT). */
  TOV_ERR_ALREADY_EXISTS = -5992,    /**< The object exists already (Win32 80, 183; EEXIST). */
  TOV_ERR_ACCESS_DENIED = -5991,     /**< Access denied (Win32 5; EACCES). */
  TOV_ERR_NOT_INITIALIZED = -5989,   /**< The library is not started: see TOV_Startup(). */
  TOV_ERR_INVALID_MODULE = -5988,    /**< Not a valid module (Win32 190). */
  TOV_ERR_PATH_TOO_LONG = -5987,     /**< A path longer than #TOV_PATH_MAX allows. */
  TOV_ERR_STILL_RUNNING = -5986,     /**< The thread has not ended yet. */
  TOV_ERR_TOO_MANY_POSTS = -5985,    /**< A semaphore would pass its maximum (Win32 298). */
  TOV_ERR_MODULE_NOT_FOUND = -5984,  /**< The module cannot be found (Win32 126). */
  TOV_ERR_SYMBOL_NOT_FOUND = -5983,  /**< The module has no such symbol (Win32 127). */
  TOV_ERR_BUFFER_END = -5980,        /**< The codec's readers: the field passes the limit. */
  TOV_ERR_ABORTED = -5977,           /**< The operation was cancelled (Win32 and Winsock 995). */

  /* One code per Winsock error, WSAEINTR (10004) to WSAEREMOTE (10071);
   * Winsock's 8 and 87 give TOV_ERR_NO_MEMORY and TOV_ERR_INVALID_PARAMETER,
   * its 997 (operation pending) gives TOV_OK. */
  TOV_ERR_NET_INTR = -5899,           /**< WSAEINTR, 10004: the call was interrupted. */
  TOV_ERR_NET_BADF = -5898,           /**< WSAEBADF, 10009: bad file handle. */
  TOV_ERR_NET_ACCES = -5897,          /**< WSAEACCES, 10013: access denied. */
  TOV_ERR_NET_FAULT = -5896,          /**< WSAEFAULT, 10014: bad address. */
  TOV_ERR_NET_INVAL = -5895,          /**< WSAEINVAL, 10022: invalid argument. */
  TOV_ERR_NET_MFILE = -5894,          /**< WSAEMFILE, 10024: too many open sockets. */
  TOV_ERR_NET_WOULDBLOCK = -5893,     /**< WSAEWOULDBLOCK, 10035: would block. */
  TOV_ERR_NET_INPROGRESS = -5892,     /**< WSAEINPROGRESS, 10036: a blocking call runs. */
  TOV_ERR_NET_ALREADY = -5891,        /**< WSAEALREADY, 10037: already in progress. */
  TOV_ERR_NET_NOTSOCK = -5890,        /**< WSAENOTSOCK, 10038: not a socket. */
  TOV_ERR_NET_DESTADDRREQ = -5889,    /**< WSAEDESTADDRREQ, 10039: address required. */
  TOV_ERR_NET_MSGSIZE = -5888,        /**< WSAEMSGSIZE, 10040: message too long. */
  TOV_ERR_NET_PROTOTYPE = -5887,      /**< WSAEPROTOTYPE, 10041: wrong protocol type. */
  TOV_ERR_NET_NOPROTOOPT = -5886,     /**< WSAENOPROTOOPT, 10042: bad protocol option. */
  TOV_ERR_NET_PROTONOSUPPORT = -5885, /**< WSAEPROTONOSUPPORT, 10043: no such protocol. */
  TOV_ERR_NET_SOCKTNOSUPPORT = -5884, /**< WSAESOCKTNOSUPPORT, 10044: no such socket type. */
  TOV_ERR_NET_OPNOTSUPP = -5883,      /**< WSAEOPNOTSUPP, 10045: operation not supported. */
  TOV_ERR_NET_PFNOSUPPORT = -5882,    /**< WSAEPFNOSUPPORT, 10046: no such protocol family. */
  TOV_ERR_NET_AFNOSUPPORT = -5881,    /**< WSAEAFNOSUPPORT, 10047: no such address family. */
  TOV_ERR_NET_ADDRINUSE = -5880,      /**< WSAEADDRINUSE, 10048: address in use. */
  TOV_ERR_NET_ADDRNOTAVAIL = -5879,   /**< WSAEADDRNOTAVAIL, 10049: address not available. */
  TOV_ERR_NET_NETDOWN = -5878,        /**< WSAENETDOWN, 10050: network is down. */
  TOV_ERR_NET_NETUNREACH = -5877,     /**< WSAENETUNREACH, 10051: network unreachable. */
  TOV_ERR_NET_NETRESET = -5876,       /**< WSAENETRESET, 10052: network dropped the link. */
  TOV_ERR_NET_CONNABORTED = -5875,    /**< WSAECONNABORTED, 10053: connection aborted. */
  TOV_ERR_NET_CONNRESET = -5874,      /**< WSAECONNRESET, 10054: connection reset. */
  TOV_ERR_NET_NOBUFS = -5873,         /**< WSAENOBUFS, 10055: no buffer space. */
  TOV_ERR_NET_ISCONN = -5872,         /**< WSAEISCONN, 10056: already connected. */
  TOV_ERR_NET_NOTCONN = -5871,        /**< WSAENOTCONN, 10057: not connected. */
  TOV_ERR_NET_SHUTDOWN = -5870,       /**< WSAESHUTDOWN, 10058: that side is shut down. */
  TOV_ERR_NET_TOOMANYREFS = -5869,    /**< WSAETOOMANYREFS, 10059: too many references. */
  TOV_ERR_NET_TIMEDOUT = -5868,       /**< WSAETIMEDOUT, 10060: connection timed out. */
  TOV_ERR_NET_CONNREFUSED = -5867,    /**< WSAECONNREFUSED, 10061: connection refused. */
  TOV_ERR_NET_LOOP = -5866,           /**< WSAELOOP, 10062: too many name levels. */
  TOV_ERR_NET_NAMETOOLONG = -5865,    /**< WSAENAMETOOLONG, 10063: name too long. */
  TOV_ERR_NET_HOSTDOWN = -5864,       /**< WSAEHOSTDOWN, 10064: host is down. */
  TOV_ERR_NET_HOSTUNREACH = -5863,    /**< WSAEHOSTUNREACH, 10065: no route to host. */
  TOV_ERR_NET_NOTEMPTY = -5862,       /**< WSAENOTEMPTY, 10066: directory not empty. */
  TOV_ERR_NET_PROCLIM = -5861,        /**< WSAEPROCLIM, 10067: too many processes. */
  TOV_ERR_NET_USERS = -5860,          /**< WSAEUSERS, 10068: user quota exceeded. */
  TOV_ERR_NET_DQUOT = -5859,          /**< WSAEDQUOT, 10069: disk quota exceeded. */
  TOV_ERR_NET_STALE = -5858,          /**< WSAESTALE, 10070: stale handle. */
  TOV_ERR_NET_REMOTE = -5857          /**< WSAEREMOTE, 10071: item is remote. */
};

/** @} */

/* ------------------------------------------------------------------------ */
/* Lifecycle, memory tags, version                                          */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_lifecycle Start-up, clean-up, memory tags, version
 * @brief Starting and ending the library; the owner tags of allocations.
 *
 * Starts are counted: each TOV_Startup() needs its TOV_Cleanup(), and the
 * library is up from the first start to the clean-up of the last one.
 * @{
 */

/** A pointer-sized value naming the owner of allocations (see TOV_malloc()). */
typedef void *TOV_MemTag;

/** The interface version TOV_GetVersion() reports: 2.2.0 (major, minor and
 *  patch in the three high bytes). */
#define TOV_INTERFACE_VERSION 0x02020000u

/**
 * Starts the library, or counts one more start when it runs already.
 *
 * The first start prepares the library's memory tag and the network stack
 * (Winsock 2.0). Call it before any other function that needs the library.
 * @param module The library's module handle, recorded only when the loader has
 *        not recorded one (a program that links tov.dll may pass NULL).
 * @param reserved1 Ignored; pass 0.
 * @param reserved2 Ignored; pass NULL.
 * @param reserved3 Ignored; pass NULL.
 * @return #TOV_OK, or the positive Winsock error number of a failed network
 *         start; the start is then not counted.
 */
TOV_API TOV_Status TOV_Startup(void *module, int32_t reserved1, void *reserved2,
                               void *reserved3) TOV_NOEXCEPT;
/**
 * Ends one start; the last one tears the library down (network stack, symbol
 * handler, description stacks, loaded helper libraries).
 *
 * A clean-up that finds no start left (the count already 0) still runs the
 * teardown, the network stack's clean-up included, so every clean-up must
 * match a start.
 * @param reserved Ignored; pass NULL.
 */
TOV_API void TOV_Cleanup(void *reserved) TOV_NOEXCEPT;
/**
 * Makes the memory tag of an owner. Never fails; works at any time.
 * @param owner Any pointer naming the owner; the tag is this value.
 * @param tagOut Receives the tag.
 * @return #TOV_OK.
 */
TOV_API TOV_Status TOV_AllocMemTag(void *owner, TOV_MemTag *tagOut) TOV_NOEXCEPT;
/**
 * Drops a memory tag. Works at any time.
 * @param tag The tag's variable, set to 0.
 */
TOV_API void TOV_FreeMemTag(TOV_MemTag *tag) TOV_NOEXCEPT;
/**
 * The interface version. Works at any time.
 * @return #TOV_INTERFACE_VERSION.
 */
TOV_API uint32_t TOV_GetVersion(void) TOV_NOEXCEPT;
/**
 * Finds a value in an array.
 * @param value The value looked for.
 * @param list The array; may be NULL only when @p count is 0.
 * @param count The number of elements in @p list.
 * @return The index of the first element equal to @p value; 0xFFFFFFFF when
 *         there is none, when @p list is NULL with @p count > 0, or when the
 *         library is not started.
 */
TOV_API uint32_t findid(uint32_t value, const uint32_t *list, uint32_t count) TOV_NOEXCEPT;

/** @} */

/* ------------------------------------------------------------------------ */
/* Debug output                                                             */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_debug Debug output
 * @brief A formatted line for the system debugger.
 *
 * The library's own log is configured by the environment: `TOV_LogLevels`
 * (words such as `LogInfo`, `LogErr`, `LogAll`, `-LogDbg`) and `TOV_LogFile` (a
 * file name, or `console` for standard error; by default a file named `syslog`
 * in the current directory).
 * @{
 */

/**
 * Formats one line and hands it to the system debugger (the debug output).
 * Works at any time.
 * @param format A format string of the system C runtime's printf family (a
 *        NULL format gives an empty line); at most 1022 characters of the
 *        result are kept, then a newline is added.
 * @param ... The values @p format names.
 */
TOV_API void TOV_DebugOutput(const char *format, ...) TOV_NOEXCEPT TOV_PRINTF_LIKE(1, 2);

/** @} */

/* ------------------------------------------------------------------------ */
/* Assertion dialog                                                         */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_assert Assertion dialog
 * @brief Reporting a failed assertion of the caller's own code.
 *
 * Call it from an assertion macro of your own:
 * @code
 * #define MY_ASSERT(e) ((e) ? (void)0 : TOV_AssertionFailed(#e, __FILE__, __LINE__))
 * @endcode
 * @{
 */

/**
 * Reports a failed assertion in a modal dialog on the calling thread.
 *
 * The dialog shows the expression, the file name and the line (with its sign)
 * and has three buttons. Terminate, the default (Enter), ends the process with
 * exit code 0xFFFFFFFF. Continue (Escape) and the caption's close box return.
 * Debug is enabled only while a debugger is attached to the process; it then
 * breaks into the debugger (DebugBreak) and returns.
 *
 * The report text holds at most 4095 characters. When the expression and the
 * file name do not both fit, they are cut and end in "...": the file name keeps
 * at least half of the room they share; the labels and the line number are
 * always shown.
 *
 * Works at any time (before TOV_Startup() too) and on any thread, each call
 * waiting for its own dialog. Where no dialog can be shown (no display), it
 * returns at once.
 * @param expression The expression's text; NULL shows as empty.
 * @param file The source file's name; NULL shows as empty.
 * @param line The line number.
 */
TOV_API void TOV_AssertionFailed(const char *expression, const char *file,
                                 int32_t line) TOV_NOEXCEPT;

/** @} */
/* (end of assertion dialog) */

/* ------------------------------------------------------------------------ */
/* Memory, atomics, spin locks                                              */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_memory Memory, atomics, spin locks
 * @brief Heap blocks, 64-bit atomic operations, spin locks, two helpers.
 *
 * These functions work at any time and do not test their arguments.
 *
 * Blocks come from the heap of the system's C runtime (msvcrt.dll) and go back
 * with TOV_free(), never with the free() of another C runtime (a Visual C++
 * program has its own). The memory tag names the block's owner and is
 * otherwise unused.
 * @{
 */

/**
 * Tells whether a pointer is a heap block. No test is made.
 * @param p Any pointer.
 * @return 1, always.
 */
TOV_API int32_t TOV_ValidateHeapPtr(void *p) TOV_NOEXCEPT;
/**
 * Allocates a block.
 * @param tag The owner's tag.
 * @param size The block's size in bytes.
 * @return The block, or NULL when it cannot be allocated.
 */
TOV_API void *TOV_malloc(TOV_MemTag tag, size_t size) TOV_NOEXCEPT;
/**
 * Allocates a zeroed block of @p count elements of @p size bytes.
 * @param tag The owner's tag.
 * @param count The number of elements.
 * @param size The size of one element in bytes.
 * @return The block, or NULL when it cannot be allocated or when
 *         @p count * @p size does not fit 64 bits.
 */
TOV_API void *TOV_calloc(TOV_MemTag tag, size_t count, size_t size) TOV_NOEXCEPT;
/**
 * Resizes a block, as the C runtime's realloc().
 * @param tag The owner's tag.
 * @param block The block; NULL allocates a new one.
 * @param size The new size in bytes.
 * @return The block, perhaps moved, or NULL when it cannot be resized (the old
 *         block then stays as it was).
 */
TOV_API void *TOV_realloc(TOV_MemTag tag, void *block, size_t size) TOV_NOEXCEPT;
/**
 * Frees a block of this library's allocators.
 * @param block The block; NULL does nothing.
 */
TOV_API void TOV_free(void *block) TOV_NOEXCEPT;
/**
 * Copies a string into a new block.
 * @param tag The owner's tag.
 * @param s The string; must not be NULL.
 * @return The copy (free it with TOV_free()), or NULL when it cannot be
 *         allocated.
 */
TOV_API char *TOV_strdup(TOV_MemTag tag, const char *s) TOV_NOEXCEPT;
/**
 * Copies a wide (16-bit) string into a new block.
 * @param tag The owner's tag.
 * @param w The string; must not be NULL.
 * @return The copy (free it with TOV_free()), or NULL when it cannot be
 *         allocated.
 */
TOV_API wchar_t *TOV_wcsdup(TOV_MemTag tag, const wchar_t *w) TOV_NOEXCEPT;

/**
 * Adds 1, with a full barrier.
 * @param target An 8-byte aligned 64-bit variable.
 * @return The new value.
 */
TOV_API int64_t TOV_AtomicIncrement(volatile int64_t *target) TOV_NOEXCEPT;
/**
 * Subtracts 1, with a full barrier.
 * @param target An 8-byte aligned 64-bit variable.
 * @return The new value.
 */
TOV_API int64_t TOV_AtomicDecrement(volatile int64_t *target) TOV_NOEXCEPT;
/**
 * Stores a value, with a full barrier.
 * @param target An 8-byte aligned 64-bit variable.
 * @param value The value stored.
 * @return The old value.
 */
TOV_API int64_t TOV_AtomicExchange(volatile int64_t *target, int64_t value) TOV_NOEXCEPT;
/**
 * Adds a value, with a full barrier.
 * @param target An 8-byte aligned 64-bit variable.
 * @param addend The value added.
 * @return The old value.
 */
TOV_API int64_t TOV_AtomicExchangeAdd(volatile int64_t *target, int64_t addend) TOV_NOEXCEPT;
/**
 * Stores @p exchange if the variable holds @p comparand, with a full barrier.
 * @param target An 8-byte aligned 64-bit variable.
 * @param comparand The value the variable must hold.
 * @param exchange The value stored then.
 * @return The old value (equal to @p comparand when the store happened).
 */
TOV_API int64_t TOV_AtomicCmpExchange(volatile int64_t *target, int64_t comparand,
                                      int64_t exchange) TOV_NOEXCEPT;

/** A spin lock: an 8-byte aligned 64-bit word, 0 free, 1 held. Not recursive,
 *  no owner: any thread may leave it. Set it to 0 before first use. */
typedef int64_t TOV_SpinLock;
/**
 * Takes the lock, spinning (and yielding the time slice now and then) while
 * another thread holds it.
 * @param lock The lock.
 */
TOV_API void TOV_EnterSpinLock(volatile TOV_SpinLock *lock) TOV_NOEXCEPT;
/**
 * Takes the lock if it is free; never waits.
 * @param lock The lock.
 * @return 1 when the caller now holds the lock, 0 when it was held.
 */
TOV_API int32_t TOV_TryEnterSpinLock(volatile TOV_SpinLock *lock) TOV_NOEXCEPT;
/**
 * Frees the lock.
 * @param lock The lock.
 */
TOV_API void TOV_LeaveSpinLock(volatile TOV_SpinLock *lock) TOV_NOEXCEPT;

/**
 * Moves a cursor to the next multiple of 4 bytes from a base.
 * @param base Where the counting starts.
 * @param cursor The position moved (not before @p base).
 * @param limit The highest position allowed.
 * @return The moved cursor (the cursor itself when it is aligned already), or
 *         NULL when that lies past @p limit (a NULL limit always gives NULL).
 */
TOV_API uint8_t *TOV_align32(uint8_t *base, uint8_t *cursor, uint8_t *limit) TOV_NOEXCEPT;
/**
 * Copies a string into a buffer, always terminated.
 * @param destination The buffer, @p size bytes: receives at most @p size - 1
 *        characters of @p source and a terminator (the rest of its first
 *        @p size - 1 bytes zero-filled).
 * @param source The string copied.
 * @param size The buffer's size in bytes; 0 writes nothing.
 * @return @p destination.
 */
TOV_API char *TOV_strnzcpy(char *destination, const char *source, size_t size) TOV_NOEXCEPT;

/** @} */

/* ------------------------------------------------------------------------ */
/* Byte buffer codec                                                        */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_codec Byte buffer codec
 * @brief Binary records read and written field by field at a bounded cursor.
 *
 * Every function takes the cursor by reference (@p cursor: the address of the
 * caller's cursor variable, moved past what the call reads or writes) and a
 * @p limit, one past the last usable byte; a NULL limit means no limit. A
 * cursor at or past the limit has room for nothing.
 *
 * Byte orders: HiLo is most significant byte first, LoHi least significant
 * first, Natv the processor's order (on x64 the same bytes as LoHi). The align
 * functions move the cursor to the next multiple of 2 (Align16), 4 (Align32)
 * or 8 (Align64) bytes from a base; a cursor already there needs no room and
 * never fails.
 *
 * A failing call moves, writes and outputs nothing (TOV_BufGetSizedData()
 * excepted: see there). The readers fail with #TOV_ERR_BUFFER_END, the writers
 * and the skips with #TOV_ERR_BUFFER_TOO_SMALL. No function tests the start-up
 * count or its pointer arguments: they work at any time and the pointers must
 * be valid.
 * @{
 */

/**
 * Reads one byte.
 * @param cursor The cursor, moved past the byte.
 * @param limit One past the last readable byte, or NULL.
 * @param value Receives the byte.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the byte lies at or past the limit.
 */
TOV_API TOV_Status TOV_BufGetByte(uint8_t **cursor, uint8_t *limit, uint8_t *value) TOV_NOEXCEPT;
/**
 * Copies bytes out of the buffer.
 * @param cursor The cursor, moved past the bytes.
 * @param limit One past the last readable byte, or NULL.
 * @param length The number of bytes.
 * @param destination Receives the bytes.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when they pass the limit.
 */
TOV_API TOV_Status TOV_BufGetData(uint8_t **cursor, uint8_t *limit, uint64_t length,
                                  void *destination) TOV_NOEXCEPT;
/**
 * Reads a 16-bit number, most significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last readable byte, or NULL.
 * @param value Receives the number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the field passes the limit.
 */
TOV_API TOV_Status TOV_BufGetHiLo16(uint8_t **cursor, uint8_t *limit, uint16_t *value) TOV_NOEXCEPT;
/**
 * Reads a 32-bit number, most significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last readable byte, or NULL.
 * @param value Receives the number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the field passes the limit.
 */
TOV_API TOV_Status TOV_BufGetHiLo32(uint8_t **cursor, uint8_t *limit, uint32_t *value) TOV_NOEXCEPT;
/**
 * Reads a 64-bit number, most significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last readable byte, or NULL.
 * @param value Receives the number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the field passes the limit.
 */
TOV_API TOV_Status TOV_BufGetHiLo64(uint8_t **cursor, uint8_t *limit, uint64_t *value) TOV_NOEXCEPT;
/**
 * Reads a 16-bit number, least significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last readable byte, or NULL.
 * @param value Receives the number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the field passes the limit.
 */
TOV_API TOV_Status TOV_BufGetLoHi16(uint8_t **cursor, uint8_t *limit, uint16_t *value) TOV_NOEXCEPT;
/**
 * Reads a 32-bit number, least significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last readable byte, or NULL.
 * @param value Receives the number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the field passes the limit.
 */
TOV_API TOV_Status TOV_BufGetLoHi32(uint8_t **cursor, uint8_t *limit, uint32_t *value) TOV_NOEXCEPT;
/**
 * Reads a 64-bit number, least significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last readable byte, or NULL.
 * @param value Receives the number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the field passes the limit.
 */
TOV_API TOV_Status TOV_BufGetLoHi64(uint8_t **cursor, uint8_t *limit, uint64_t *value) TOV_NOEXCEPT;
/**
 * Reads a 16-bit number in the processor's byte order.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last readable byte, or NULL.
 * @param value Receives the number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the field passes the limit.
 */
TOV_API TOV_Status TOV_BufGetNatv16(uint8_t **cursor, uint8_t *limit, uint16_t *value) TOV_NOEXCEPT;
/**
 * Reads a 32-bit number in the processor's byte order.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last readable byte, or NULL.
 * @param value Receives the number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the field passes the limit.
 */
TOV_API TOV_Status TOV_BufGetNatv32(uint8_t **cursor, uint8_t *limit, uint32_t *value) TOV_NOEXCEPT;
/**
 * Reads a 64-bit number in the processor's byte order.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last readable byte, or NULL.
 * @param value Receives the number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the field passes the limit.
 */
TOV_API TOV_Status TOV_BufGetNatv64(uint8_t **cursor, uint8_t *limit, uint64_t *value) TOV_NOEXCEPT;
/**
 * Skips 0 or 1 byte so that the cursor lies a multiple of 2 bytes from @p base.
 * @param cursor The cursor, moved.
 * @param limit One past the last readable byte, or NULL.
 * @param base Where the record starts.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the skipped bytes pass the limit.
 */
TOV_API TOV_Status TOV_BufGetAlign16(uint8_t **cursor, uint8_t *limit,
                                     const uint8_t *base) TOV_NOEXCEPT;
/**
 * Skips 0 to 3 bytes so that the cursor lies a multiple of 4 bytes from @p base.
 * @param cursor The cursor, moved.
 * @param limit One past the last readable byte, or NULL.
 * @param base Where the record starts.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the skipped bytes pass the limit.
 */
TOV_API TOV_Status TOV_BufGetAlign32(uint8_t **cursor, uint8_t *limit,
                                     const uint8_t *base) TOV_NOEXCEPT;
/**
 * Skips 0 to 7 bytes so that the cursor lies a multiple of 8 bytes from @p base.
 * @param cursor The cursor, moved.
 * @param limit One past the last readable byte, or NULL.
 * @param base Where the record starts.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the skipped bytes pass the limit.
 */
TOV_API TOV_Status TOV_BufGetAlign64(uint8_t **cursor, uint8_t *limit,
                                     const uint8_t *base) TOV_NOEXCEPT;

/**
 * Writes one byte.
 * @param cursor The cursor, moved past the byte.
 * @param limit One past the last writable byte, or NULL.
 * @param value The byte.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the byte would lie at or
 *         past the limit.
 */
TOV_API TOV_Status TOV_BufPutByte(uint8_t **cursor, uint8_t *limit, uint8_t value) TOV_NOEXCEPT;
/**
 * Copies bytes into the buffer.
 * @param cursor The cursor, moved past the bytes.
 * @param limit One past the last writable byte, or NULL.
 * @param length The number of bytes.
 * @param source The bytes.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when they would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutData(uint8_t **cursor, uint8_t *limit, uint64_t length,
                                  const void *source) TOV_NOEXCEPT;
/**
 * Writes a 16-bit number, most significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param value The number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutHiLo16(uint8_t **cursor, uint8_t *limit, uint16_t value) TOV_NOEXCEPT;
/**
 * Writes a 32-bit number, most significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param value The number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutHiLo32(uint8_t **cursor, uint8_t *limit, uint32_t value) TOV_NOEXCEPT;
/**
 * Writes a 64-bit number, most significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param value The number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutHiLo64(uint8_t **cursor, uint8_t *limit, uint64_t value) TOV_NOEXCEPT;
/**
 * Writes a 16-bit number, least significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param value The number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutLoHi16(uint8_t **cursor, uint8_t *limit, uint16_t value) TOV_NOEXCEPT;
/**
 * Writes a 32-bit number, least significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param value The number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutLoHi32(uint8_t **cursor, uint8_t *limit, uint32_t value) TOV_NOEXCEPT;
/**
 * Writes a 64-bit number, least significant byte first.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param value The number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutLoHi64(uint8_t **cursor, uint8_t *limit, uint64_t value) TOV_NOEXCEPT;
/**
 * Writes a 16-bit number in the processor's byte order.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param value The number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutNatv16(uint8_t **cursor, uint8_t *limit, uint16_t value) TOV_NOEXCEPT;
/**
 * Writes a 32-bit number in the processor's byte order.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param value The number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutNatv32(uint8_t **cursor, uint8_t *limit, uint32_t value) TOV_NOEXCEPT;
/**
 * Writes a 64-bit number in the processor's byte order.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param value The number.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutNatv64(uint8_t **cursor, uint8_t *limit, uint64_t value) TOV_NOEXCEPT;
/**
 * Writes 0 or 1 zero byte so that the cursor lies a multiple of 2 bytes from
 * @p base.
 * @param cursor The cursor, moved.
 * @param limit One past the last writable byte, or NULL.
 * @param base Where the record starts.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the zeros would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutAlign16(uint8_t **cursor, uint8_t *limit,
                                     const uint8_t *base) TOV_NOEXCEPT;
/**
 * Writes 0 to 3 zero bytes so that the cursor lies a multiple of 4 bytes from
 * @p base.
 * @param cursor The cursor, moved.
 * @param limit One past the last writable byte, or NULL.
 * @param base Where the record starts.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the zeros would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutAlign32(uint8_t **cursor, uint8_t *limit,
                                     const uint8_t *base) TOV_NOEXCEPT;
/**
 * Writes 0 to 7 zero bytes so that the cursor lies a multiple of 8 bytes from
 * @p base.
 * @param cursor The cursor, moved.
 * @param limit One past the last writable byte, or NULL.
 * @param base Where the record starts.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the zeros would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutAlign64(uint8_t **cursor, uint8_t *limit,
                                     const uint8_t *base) TOV_NOEXCEPT;

/**
 * Reserves 1 byte, left unwritten, for a put through a second cursor later.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param field Receives the field's position (the cursor before the call).
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufSkip8(uint8_t **cursor, uint8_t *limit, uint8_t **field) TOV_NOEXCEPT;
/**
 * Reserves 2 bytes, left unwritten, for a put through a second cursor later.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param field Receives the field's position (the cursor before the call).
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufSkip16(uint8_t **cursor, uint8_t *limit, uint8_t **field) TOV_NOEXCEPT;
/**
 * Reserves 4 bytes, left unwritten, for a put through a second cursor later.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param field Receives the field's position (the cursor before the call).
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufSkip32(uint8_t **cursor, uint8_t *limit, uint8_t **field) TOV_NOEXCEPT;
/**
 * Reserves 8 bytes, left unwritten, for a put through a second cursor later.
 * @param cursor The cursor, moved past the field.
 * @param limit One past the last writable byte, or NULL.
 * @param field Receives the field's position (the cursor before the call).
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the field would pass the limit.
 */
TOV_API TOV_Status TOV_BufSkip64(uint8_t **cursor, uint8_t *limit, uint8_t **field) TOV_NOEXCEPT;

/* Length-prefixed items: a LoHi 32-bit byte count, then the bytes. */
/**
 * Writes a length-prefixed item: the low 32 bits of @p length (LoHi), then the
 * @p length bytes of @p source.
 * @param cursor The cursor, moved past the item.
 * @param limit One past the last writable byte, or NULL.
 * @param length The number of bytes.
 * @param source The bytes.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the item would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutSizedData(uint8_t **cursor, uint8_t *limit, uint64_t length,
                                       const void *source) TOV_NOEXCEPT;
/**
 * Reads a length-prefixed item in place: nothing is copied.
 * @param cursor The cursor, moved past the item.
 * @param limit One past the last readable byte, or NULL.
 * @param length Receives the item's announced byte count, also when the item
 *        then does not fit the limit (the cursor stays then).
 * @param data Receives a pointer to the item's bytes inside the buffer.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_END when the count or the item passes the
 *         limit.
 */
TOV_API TOV_Status TOV_BufGetSizedData(uint8_t **cursor, uint8_t *limit, uint64_t *length,
                                       uint8_t **data) TOV_NOEXCEPT;
/**
 * Writes a wide string as a length-prefixed item: its 16-bit units and its
 * terminator, each LoHi, after a count of their bytes, 2 * (units + 1).
 * @param cursor The cursor, moved past the item.
 * @param limit One past the last writable byte, or NULL.
 * @param string The string.
 * @return #TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when the item would pass the limit.
 */
TOV_API TOV_Status TOV_BufPutUniStr(uint8_t **cursor, uint8_t *limit,
                                    const wchar_t *string) TOV_NOEXCEPT;
/**
 * Reads a length-prefixed wide string: copies the item's 16-bit units as they
 * stand (the writer's terminator among them; none is added).
 * @param cursor The cursor, moved past the item's units.
 * @param limit One past the last readable byte, or NULL.
 * @param destination Receives the units.
 * @param size The size of @p destination in bytes.
 * @return #TOV_OK; #TOV_ERR_BUFFER_END when the count passes the limit;
 *         #TOV_ERR_BUFFER_TOO_SMALL when the units do not fit @p size (tested
 *         before the limit); #TOV_ERR_BUFFER_END when the item passes the limit.
 */
TOV_API TOV_Status TOV_BufGetUniStr(uint8_t **cursor, uint8_t *limit, wchar_t *destination,
                                    uint64_t size) TOV_NOEXCEPT;

/** @} */
/* (end of byte buffer codec) */

/* ------------------------------------------------------------------------ */
/* Files                                                                    */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_files Files
 * @brief Opening, reading, writing and describing files.
 *
 * TOV_FileCommit(), TOV_FileDup(), TOV_FileInfoByName(), TOV_FileGetAttrib()
 * and TOV_FileDelete() work at any time and do not test their arguments; the
 * others test the start-up count and their arguments. A bad handle gives the
 * mapped system error (usually #TOV_ERR_INVALID_HANDLE).
 * @{
 */

/** A file handle: the platform's own file handle. The caller owns it until
 *  TOV_FileClose(). Its position, access and sharing are the platform's. */
typedef void *TOV_FileHandle;

/** What TOV_FileInfoByHandle(), TOV_FileInfoByName() and TOV_DirRead() report.
 *  Times are whole seconds since 1970-01-01 00:00:00 UTC (fraction dropped). */
typedef struct TOV_FileInfo {
  int64_t created;  /**< Creation time. */
  int64_t modified; /**< Last write time. */
  uint64_t size;    /**< Size in bytes. */
} TOV_FileInfo;

/**
 * @name Open flags
 * Write access comes with WRITE, APPEND or TRUNCATE, read access only with
 * READ; other bits are ignored. CREATE, TRUNCATE and EXCLUSIVE choose what
 * happens to an existing file / a missing one:
 * | flags                          | existing file      | missing file |
 * |--------------------------------|--------------------|--------------|
 * | none, EXCLUSIVE                | opened             | failure      |
 * | CREATE                         | opened             | created      |
 * | TRUNCATE, TRUNCATE\|EXCLUSIVE  | opened, cut to 0   | failure      |
 * | CREATE\|TRUNCATE               | cut to 0           | created      |
 * | CREATE\|EXCLUSIVE(\|TRUNCATE)  | failure            | created      |
 * @{
 */
#define TOV_FILE_READ 0x001u  /**< Read access. */
#define TOV_FILE_WRITE 0x002u /**< Write access. */
#define TOV_FILE_APPEND                                                                            \
  0x008u                          /**< Write access; the position moves to the end once, right     \
                                       after the open. */
#define TOV_FILE_CREATE 0x100u    /**< Create a missing file. */
#define TOV_FILE_TRUNCATE 0x200u  /**< Write access; cut an existing file to 0 bytes. */
#define TOV_FILE_EXCLUSIVE 0x400u /**< With CREATE: fail when the file exists. */
/** @} */

/**
 * @name Share flags
 * What other opens of the same file may do while this one is open.
 * @{
 */
#define TOV_FILE_SHARE_READ 0x1u  /**< Others may read. */
#define TOV_FILE_SHARE_WRITE 0x2u /**< Others may write. */
/** @} */

/**
 * @name Attribute flags
 * Given to a file that TOV_FileOpen() creates (DIRECTORY excepted), and
 * reported by TOV_DirRead().
 * @{
 */
#define TOV_FILE_ATTR_ARCHIVE 0x01u   /**< Marked for backup. */
#define TOV_FILE_ATTR_HIDDEN 0x02u    /**< Hidden. */
#define TOV_FILE_ATTR_READONLY 0x04u  /**< Read-only. */
#define TOV_FILE_ATTR_SYSTEM 0x08u    /**< A system file. */
#define TOV_FILE_ATTR_DIRECTORY 0x10u /**< A directory (listings only). */
/** @} */

/**
 * @name Seek origins
 * @{
 */
#define TOV_FILE_SEEK_BEGIN 0u   /**< From the start of the file. */
#define TOV_FILE_SEEK_CURRENT 1u /**< From the current position. */
#define TOV_FILE_SEEK_END 2u     /**< From the end of the file. */
/** @} */

/**
 * Opens or creates a file.
 * @param path The file's path.
 * @param openFlags `TOV_FILE_...` open flags: access and what happens to an
 *        existing or missing file.
 * @param shareFlags `TOV_FILE_SHARE_...` flags (0: no sharing).
 * @param attributes `TOV_FILE_ATTR_...` flags for a file the call creates.
 * @param file Receives the handle; written only on success.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p path or @p file; otherwise the mapped system error
 *         (#TOV_ERR_NOT_FOUND, #TOV_ERR_ALREADY_EXISTS, #TOV_ERR_ACCESS_DENIED...).
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FileOpen(const char *path, uint32_t openFlags,
                                                uint32_t shareFlags, uint32_t attributes,
                                                TOV_FileHandle *file) TOV_NOEXCEPT;
/**
 * Closes a file.
 * @param file The handle's variable, set to 0 also when the close fails.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p file; otherwise the close's mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FileClose(TOV_FileHandle *file) TOV_NOEXCEPT;
/**
 * Writes the file's buffered data to the device.
 * @param file The handle.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_FileCommit(TOV_FileHandle file) TOV_NOEXCEPT;
/**
 * Makes a second, inheritable handle to the same open file; it shares the
 * position.
 * @param file The handle.
 * @param copy Receives the new handle; written only on success.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_FileDup(TOV_FileHandle file, TOV_FileHandle *copy) TOV_NOEXCEPT;
/**
 * Reads at the current position, or at a given one.
 * @param file The handle.
 * @param position NULL to read at the current position; otherwise the position
 *        to read at, which becomes the position after the read on success. The
 *        handle's own position ends after the bytes read either way.
 * @param buffer Receives the bytes.
 * @param count The number of bytes wanted (the platform receives its low 32
 *        bits); receives the number of bytes read, also on failure.
 * @return #TOV_OK; #TOV_ERR_END_OF_DATA when nothing was read (at the end of the
 *         file, or on a failure that read nothing); #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a NULL @p buffer or @p count;
 *         otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FileRead(TOV_FileHandle file, uint64_t *position,
                                                void *buffer, uint64_t *count) TOV_NOEXCEPT;
/**
 * Writes at the current position, or at a given one. A write of 0 bytes
 * succeeds.
 * @param file The handle.
 * @param position NULL to write at the current position; otherwise the
 *        position to write at, which becomes the position after the write on
 *        success. The handle's own position ends after the bytes written.
 * @param data The bytes.
 * @param count The number of bytes (the platform receives its low 32 bits);
 *        receives the number of bytes written, also on failure.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p data or @p count; otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FileWrite(TOV_FileHandle file, uint64_t *position,
                                                 const void *data, uint64_t *count) TOV_NOEXCEPT;
/**
 * Moves the position.
 * @param file The handle.
 * @param offset The move in bytes, from @p origin.
 * @param origin #TOV_FILE_SEEK_BEGIN, #TOV_FILE_SEEK_CURRENT or #TOV_FILE_SEEK_END.
 * @param newPosition Receives the new position; may be NULL.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for
 *         another origin; otherwise the mapped system error (a position before
 *         the start of the file, for one).
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FileSeek(TOV_FileHandle file, int64_t offset,
                                                uint32_t origin,
                                                uint64_t *newPosition) TOV_NOEXCEPT;
/**
 * Tells the position.
 * @param file The handle.
 * @param position Receives the position.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p position; otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FileTell(TOV_FileHandle file,
                                                uint64_t *position) TOV_NOEXCEPT;
/**
 * Tells the file's size.
 * @param file The handle.
 * @param size Receives the size in bytes.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p size; otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FileSize(TOV_FileHandle file, uint64_t *size) TOV_NOEXCEPT;
/**
 * Extends or cuts the file to a size and leaves the position there (also when
 * the size cannot be set).
 * @param file The handle, opened with write access.
 * @param size The new size in bytes, at most 0x7FFFFFFFFFFFFFFF.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         larger size; otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FileSetSize(TOV_FileHandle file, uint64_t size) TOV_NOEXCEPT;
/**
 * Describes an open file.
 * @param file The handle.
 * @param info Receives times and size.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p file or @p info; otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FileInfoByHandle(TOV_FileHandle file,
                                                        TOV_FileInfo *info) TOV_NOEXCEPT;
/**
 * Describes a file or a directory by its path.
 * @param path The path.
 * @param info Receives times and size.
 * @return #TOV_OK, or the C runtime's mapped error (#TOV_ERR_NOT_FOUND...).
 */
TOV_API TOV_Status TOV_FileInfoByName(const char *path, TOV_FileInfo *info) TOV_NOEXCEPT;
/**
 * Reads the attributes of a file or a directory.
 * @param path The path.
 * @param attributes Receives the platform's own attribute word
 *        (`FILE_ATTRIBUTE_...`), not the `TOV_FILE_ATTR_...` flags.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_FileGetAttrib(const char *path, uint32_t *attributes) TOV_NOEXCEPT;
/**
 * Deletes a file.
 * @param path The path.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_FileDelete(const char *path) TOV_NOEXCEPT;

/** @} */
/* (end of files) */

/* ------------------------------------------------------------------------ */
/* Directories and paths                                                    */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_dirs Directories and paths
 * @brief Directory listings, creating and removing directories, free space,
 * joining paths.
 *
 * TOV_DirOpen(), TOV_DirClose() and TOV_PathBuild() test the start-up count
 * and their arguments; the others work at any time and do not test them.
 * @{
 */

/** A listing handle: a library record that TOV_DirClose() frees. */
typedef void *TOV_DirHandle;

/** The longest path the library builds or searches with, terminator included. */
#define TOV_PATH_MAX 260

/**
 * Opens a listing of a directory's entries; nothing is read yet.
 *
 * One trailing separator (backslash or forward slash) of @p directory is
 * dropped; a directory that is a lone separator stands for the root of the
 * current drive (not the current directory). The search pattern, directory +
 * backslash + mask (the mask alone for an empty directory), must fit
 * #TOV_PATH_MAX.
 * @param directory The directory.
 * @param mask The entries' names to match, with the platform's wildcards; NULL
 *        matches all ("*").
 * @param listing Receives the listing; written only on success.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p directory or @p listing; #TOV_ERR_PATH_TOO_LONG for a
 *         longer pattern (before the directory is looked at);
 *         #TOV_ERR_NOT_FOUND for a missing directory; #TOV_ERR_NO_MEMORY;
 *         otherwise the C runtime's mapped error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_DirOpen(const char *directory, const char *mask,
                                               TOV_DirHandle *listing) TOV_NOEXCEPT;
/**
 * Reads the next entry, "." and ".." included, in the platform's order (no
 * sort). Works at any time; nothing is written on failure.
 * @param listing The listing.
 * @param name Receives a pointer to the entry's name, inside the listing and
 *        valid until the next read or the close; may be NULL.
 * @param attributes Receives the entry's `TOV_FILE_ATTR_...` flags (other
 *        platform bits are dropped); may be NULL.
 * @param info Receives the entry's times and size; may be NULL.
 * @return #TOV_OK; #TOV_ERR_END_OF_DATA at the end, at every read after it, and
 *         when nothing matches; otherwise the mapped system error.
 */
TOV_API TOV_Status TOV_DirRead(TOV_DirHandle listing, const char **name, uint32_t *attributes,
                               TOV_FileInfo *info) TOV_NOEXCEPT;
/**
 * Ends the search and frees the listing.
 * @param listing The listing's variable, set to 0 also when ending the search
 *        fails.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p listing; otherwise the mapped system error of ending the search.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_DirClose(TOV_DirHandle *listing) TOV_NOEXCEPT;
/**
 * Creates one directory; its parent must exist.
 * @param path The directory.
 * @return #TOV_OK; #TOV_ERR_NOT_FOUND when the parent is missing;
 *         #TOV_ERR_ALREADY_EXISTS; otherwise the C runtime's mapped error.
 */
TOV_API TOV_Status TOV_DirCreate(const char *path) TOV_NOEXCEPT;
/**
 * Removes one empty directory.
 * @param path The directory.
 * @return #TOV_OK; for a directory that is not empty the C runtime's number for
 *         it (41), unmapped; otherwise the C runtime's mapped error.
 */
TOV_API TOV_Status TOV_DirDelete(const char *path) TOV_NOEXCEPT;
/**
 * Tells the bytes the calling user may still use on a volume.
 * @param path A directory on the volume.
 * @param freeBytes Receives the number of bytes.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_DirFreeSpace(const char *path, uint64_t *freeBytes) TOV_NOEXCEPT;
/**
 * Joins up to four path components.
 *
 * A backslash goes between two components unless the text so far ends in one
 * (a forward slash does not count). Components are copied as they stand; an
 * empty one still adds a separator when one is due.
 * @param c1 The first component, or NULL to leave it out.
 * @param c2 The second component, or NULL.
 * @param c3 The third component, or NULL.
 * @param c4 The fourth component, or NULL.
 * @param path Receives the path: #TOV_PATH_MAX bytes, never written past them;
 *        emptied when the result does not fit.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p path; #TOV_ERR_PATH_TOO_LONG for a result longer than
 *         #TOV_PATH_MAX - 1 characters.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_PathBuild(const char *c1, const char *c2, const char *c3,
                                                 const char *c4, char *path) TOV_NOEXCEPT;

/** @} */
/* (end of directories and paths) */

/* ------------------------------------------------------------------------ */
/* Modules                                                                  */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_modules Modules
 * @brief Loading modules (DLLs), resolving their symbols, reading their
 * version records.
 *
 * TOV_ModGetHandle() and TOV_ModGetFullPath() test the start-up count and their
 * arguments; the other functions also work before TOV_Startup() and do not test
 * them.
 * @{
 */

/** A module handle: the platform's own. One from TOV_ModLoad() holds a load
 *  reference, which TOV_ModUnload() gives back; one from TOV_ModGetHandle()
 *  holds none. */
typedef void *TOV_ModHandle;

/**
 * Loads a module; when that fails, tries once more with ".dll" added (also
 * after a ".dll" already there).
 * @param name The module's name or path.
 * @param module Receives the handle; NULL after a failure.
 * @return #TOV_OK; #TOV_ERR_MODULE_NOT_FOUND; for a file that is not a module
 *         the platform can load, the platform's own number (193), unmapped;
 *         #TOV_ERR_NO_MEMORY; otherwise the second attempt's mapped system
 *         error.
 */
TOV_API TOV_Status TOV_ModLoad(const char *name, TOV_ModHandle *module) TOV_NOEXCEPT;
/**
 * Gives back one load reference.
 * @param module A handle from TOV_ModLoad().
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_ModUnload(TOV_ModHandle module) TOV_NOEXCEPT;
/**
 * Finds an exported symbol.
 * @param module The module.
 * @param symbol The symbol's name.
 * @param address Receives the symbol's address; NULL after a failure.
 * @return #TOV_OK; #TOV_ERR_SYMBOL_NOT_FOUND when the module does not export
 *         @p symbol; otherwise the mapped system error.
 */
TOV_API TOV_Status TOV_ModResolveSym(TOV_ModHandle module, const char *symbol,
                                     void **address) TOV_NOEXCEPT;
/**
 * Does nothing.
 * @param module Ignored.
 * @param address Ignored.
 * @return #TOV_OK.
 */
TOV_API TOV_Status TOV_ModUnResolveSym(TOV_ModHandle module, void *address) TOV_NOEXCEPT;
/**
 * Finds a module already loaded, without taking a reference.
 * @param name The module's name or path.
 * @param module Receives the handle; written only on success.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p name; #TOV_ERR_MODULE_NOT_FOUND when it is not loaded.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_ModGetHandle(const char *name,
                                                    TOV_ModHandle *module) TOV_NOEXCEPT;
/**
 * Tells the full path of a module's file.
 * @param module The module.
 * @param path Receives the path, cut to @p size - 1 characters when longer
 *        (still #TOV_OK) and terminated.
 * @param size The size of @p path in bytes (the platform receives its low 32
 *        bits).
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p path, a @p size of 0, then a NULL @p module; otherwise the
 *         mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_ModGetFullPath(TOV_ModHandle module, char *path,
                                                      uint64_t size) TOV_NOEXCEPT;
/**
 * Reads a module file's last-write time and file version.
 *
 * A module path of 256 characters or more is cut to 255 before the file is read.
 * @param module The module; NULL for the program.
 * @param modified Receives the file's last-write time in seconds since 1970 UTC;
 *        may be NULL. Best effort, never a failure: left as it was when the file
 *        cannot be opened without sharing, or read.
 * @param version Receives the file version text, cut and terminated: "0.0.0"
 *        when the file has no version record, and after a failure; may be NULL.
 * @param size The size of @p version in bytes; 0 counts as a NULL @p version.
 * @return #TOV_OK; #TOV_ERR_INVALID_MODULE for a version record without a
 *         translation table; #TOV_ERR_NO_MEMORY; otherwise the mapped system
 *         error (a module the platform does not know, for one).
 */
TOV_API TOV_Status TOV_ModGetTimeVersion(TOV_ModHandle module, int64_t *modified, char *version,
                                         uint32_t size) TOV_NOEXCEPT;
/**
 * Tells whether a handle names a loaded module.
 * @param module The handle.
 * @return #TOV_OK when @p module is not NULL and names a loaded module's file,
 *         else #TOV_ERR_INVALID_PARAMETER.
 */
TOV_API TOV_Status TOV_ModValidateHandle(TOV_ModHandle module) TOV_NOEXCEPT;
/**
 * Reads the file description of a file's version record. Nothing is compared:
 * the caller judges the text.
 * @param file The file's path.
 * @param size The size of @p description in bytes; 0: not touched.
 * @param description Receives the description, cut and terminated; empty when
 *        the file, or its version record, is missing, and after a failure.
 * @return #TOV_OK (also for a missing file or record);
 *         #TOV_ERR_INVALID_MODULE for a record without a translation table;
 *         #TOV_ERR_NO_MEMORY; otherwise the mapped system error.
 */
TOV_API TOV_Status TOV_ModValidateName(const char *file, uint32_t size,
                                       char *description) TOV_NOEXCEPT;

/** @} */
/* (end of modules) */

/* ------------------------------------------------------------------------ */
/* Mutexes, events, semaphores, LMutexes                                    */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_sync Mutexes, events, semaphores, LMutexes
 * @brief The system's synchronisation objects, and a process-private lock.
 *
 * Events, mutexes and semaphores are the system's own objects, named or not;
 * an LMutex is a process-private lock (a critical section with a spin count).
 * Mutexes and LMutexes are recursive: the owner may acquire again, and
 * releases as often.
 *
 * The create and destroy functions test the start-up count and their
 * arguments; the others work at any time and give a bad handle to the system,
 * which answers with its error (usually #TOV_ERR_INVALID_HANDLE).
 *
 * A named create of an object that exists already returns
 * #TOV_ERR_ALREADY_EXISTS with a working handle to it, written to the caller's
 * variable, which the caller must destroy as well. Waits return #TOV_OK,
 * #TOV_ERR_TIMEOUT, or the mapped system error. Destroy functions clear the
 * caller's variable whatever the close returned; a variable holding 0 gives
 * #TOV_ERR_INVALID_HANDLE.
 * @{
 */

typedef void *TOV_EventHandle;  /**< An event: the system's handle. */
typedef void *TOV_MutexHandle;  /**< A mutex: the system's handle. */
typedef void *TOV_SemHandle;    /**< A semaphore: the system's handle. */
typedef void *TOV_LMutexHandle; /**< An LMutex: a library record. */

/** The time-out that waits without limit. A time-out of 0 tests and returns at
 *  once. */
#define TOV_WAIT_INFINITE 0xFFFFFFFFu

/**
 * Creates an event, or opens the existing event of that name.
 * @param name The event's name, or NULL for an unnamed one.
 * @param manualReset Non-zero: the event stays set until reset, releasing every
 *        waiter; 0: a wait that it releases resets it (one waiter at a time).
 * @param initiallySet Non-zero: created set.
 * @param handleOut Receives the handle (also with #TOV_ERR_ALREADY_EXISTS).
 * @return #TOV_OK; #TOV_ERR_ALREADY_EXISTS for an existing name;
 *         #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         @p handleOut; otherwise the mapped system error (a name another kind
 *         of object holds, for one), nothing written.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_EventCreate(const char *name, int32_t manualReset,
                                                   int32_t initiallySet,
                                                   TOV_EventHandle *handleOut) TOV_NOEXCEPT;
/**
 * Closes an event's handle.
 * @param handle The handle's variable, set to 0 whatever the close returned.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handle; otherwise the close's mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_EventDestroy(TOV_EventHandle *handle) TOV_NOEXCEPT;
/**
 * Sets an event.
 * @param handle The event.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_EventSet(TOV_EventHandle handle) TOV_NOEXCEPT;
/**
 * Resets an event.
 * @param handle The event.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_EventReset(TOV_EventHandle handle) TOV_NOEXCEPT;
/**
 * Releases the threads waiting right now (all of them, or one for an
 * auto-reset event) and leaves the event reset.
 * @param handle The event.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_EventPulse(TOV_EventHandle handle) TOV_NOEXCEPT;
/**
 * Waits until an event is set.
 * @param handle The event.
 * @param timeoutMs The longest wait in milliseconds, or #TOV_WAIT_INFINITE.
 * @return #TOV_OK; #TOV_ERR_TIMEOUT; otherwise the mapped system error.
 */
TOV_API TOV_Status TOV_EventWait(TOV_EventHandle handle, uint32_t timeoutMs) TOV_NOEXCEPT;

/**
 * Creates a mutex, not owned, or opens the existing mutex of that name.
 * @param name The mutex's name, or NULL for an unnamed one.
 * @param handleOut Receives the handle (also with #TOV_ERR_ALREADY_EXISTS).
 * @return #TOV_OK; #TOV_ERR_ALREADY_EXISTS for an existing name;
 *         #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         @p handleOut; otherwise the mapped system error, nothing written.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_MutexCreate(const char *name,
                                                   TOV_MutexHandle *handleOut) TOV_NOEXCEPT;
/**
 * Closes a mutex's handle.
 * @param handle The handle's variable, set to 0 whatever the close returned.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handle; otherwise the close's mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_MutexDestroy(TOV_MutexHandle *handle) TOV_NOEXCEPT;
/**
 * Acquires a mutex, waiting without limit. Acquiring a mutex whose owner ended
 * without releasing it succeeds: the caller owns it then.
 * @param handle The mutex.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_MutexAcquire(TOV_MutexHandle handle) TOV_NOEXCEPT;
/**
 * Acquires a mutex if no other thread owns it; never waits.
 * @param handle The mutex.
 * @return #TOV_OK; #TOV_ERR_TIMEOUT when another thread owns it; otherwise the
 *         mapped system error.
 */
TOV_API TOV_Status TOV_MutexTryAcquire(TOV_MutexHandle handle) TOV_NOEXCEPT;
/**
 * Releases a mutex once.
 * @param handle The mutex.
 * @return #TOV_OK; the system's number 288, unmapped, when the caller does not
 *         own it; otherwise the mapped system error.
 */
TOV_API TOV_Status TOV_MutexRelease(TOV_MutexHandle handle) TOV_NOEXCEPT;

/**
 * Creates a semaphore, or opens the existing semaphore of that name.
 * @param name The semaphore's name, or NULL for an unnamed one.
 * @param initialCount The count to start with, at most @p maximumCount.
 * @param maximumCount The highest count, 1 to 0x7FFFFFFF.
 * @param handleOut Receives the handle (also with #TOV_ERR_ALREADY_EXISTS).
 * @return #TOV_OK; #TOV_ERR_ALREADY_EXISTS for an existing name;
 *         #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         @p handleOut, an initial count above the maximum, or (from the
 *         system) a maximum of 0 or above 0x7FFFFFFF; otherwise the mapped
 *         system error, nothing written.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SemCreate(const char *name, uint32_t initialCount,
                                                 uint32_t maximumCount,
                                                 TOV_SemHandle *handleOut) TOV_NOEXCEPT;
/**
 * Closes a semaphore's handle.
 * @param handle The handle's variable, set to 0 whatever the close returned.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handle; otherwise the close's mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SemDestroy(TOV_SemHandle *handle) TOV_NOEXCEPT;
/**
 * Waits until a semaphore's count is above 0, and takes 1 from it.
 * @param handle The semaphore.
 * @param timeoutMs The longest wait in milliseconds, or #TOV_WAIT_INFINITE.
 * @return #TOV_OK; #TOV_ERR_TIMEOUT; otherwise the mapped system error.
 */
TOV_API TOV_Status TOV_SemAcquire(TOV_SemHandle handle, uint32_t timeoutMs) TOV_NOEXCEPT;
/**
 * Adds to a semaphore's count.
 * @param handle The semaphore.
 * @param count The number added.
 * @return #TOV_OK; #TOV_ERR_TOO_MANY_POSTS, the count unchanged, when it would
 *         pass the maximum; otherwise the mapped system error.
 */
TOV_API TOV_Status TOV_SemSignal(TOV_SemHandle handle, uint32_t count) TOV_NOEXCEPT;

/**
 * Creates an LMutex.
 * @param handleOut Receives the LMutex.
 * @param spinCount How often a thread tries again before it waits, where the
 *        platform offers it.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handleOut; #TOV_ERR_NO_MEMORY.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_LMutexCreate(TOV_LMutexHandle *handleOut,
                                                    uint32_t spinCount) TOV_NOEXCEPT;
/**
 * Frees an LMutex, which no thread may hold.
 * @param handle The LMutex's variable, set to 0; a variable holding 0 frees
 *        nothing.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handle.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_LMutexDestroy(TOV_LMutexHandle *handle) TOV_NOEXCEPT;
/**
 * Acquires an LMutex, waiting without limit.
 * @param handle The LMutex.
 * @return #TOV_OK, or #TOV_ERR_INVALID_HANDLE for a NULL handle.
 */
TOV_API TOV_Status TOV_LMutexAcquire(TOV_LMutexHandle handle) TOV_NOEXCEPT;
/**
 * Acquires an LMutex if no other thread holds it; never waits.
 * @param handle The LMutex; must be valid.
 * @return #TOV_OK, or #TOV_ERR_TIMEOUT when another thread holds it.
 */
TOV_API TOV_Status TOV_LMutexTryAcquire(TOV_LMutexHandle handle) TOV_NOEXCEPT;
/**
 * Releases an LMutex once; the caller must hold it.
 * @param handle The LMutex; must be valid.
 * @return #TOV_OK.
 */
TOV_API TOV_Status TOV_LMutexRelease(TOV_LMutexHandle handle) TOV_NOEXCEPT;

/** @} */
/* (end of mutexes, events, semaphores, lmutexes) */

/* ------------------------------------------------------------------------ */
/* Condition variables, reader-writer locks                                 */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_cond Condition variables, reader-writer locks
 * @brief Waiting for a condition under an LMutex; a lock for many readers or
 * one writer.
 *
 * A condition variable is used with an LMutex. TOV_CondWait() releases the
 * LMutex (which the caller holds exactly once), sleeps until a signal, a
 * broadcast or the time-out, and holds the LMutex again when it returns,
 * whatever the result. A signal or broadcast with nobody waiting is not
 * remembered. A wake-up is not reserved for the threads waiting when it was
 * made: one that begins to wait later may take it. So #TOV_OK does not prove
 * that what the caller waits for holds (test it again in a loop), and threads
 * that wait for different things must wait on different conditions, else one
 * can take the wake-up meant for the other and both sleep on. Broadcast
 * holding the LMutex: a thread that begins to wait during a broadcast makes the
 * broadcaster wait for it too.
 *
 * A reader-writer lock is held by any number of readers or by one writer.
 * Readers get in while readers hold it, even with writers waiting, except while
 * a waiting writer is being handed the lock; the last reader out hands it to
 * one waiting writer; a writer leaving lets every waiting reader in before any
 * waiting writer. It is not recursive, and it does not know its holders: any
 * thread may release it, in the mode it is held in.
 *
 * Creates, destroys and TOV_CondWait() test the start-up count and their
 * arguments; the other calls work at any time and take valid handles. Creates
 * write the handle only on success and leave nothing allocated or open on
 * failure. Destroys clear the caller's variable in every case and report the
 * first close that failed; a destroy through a cleared variable gives
 * #TOV_ERR_INVALID_HANDLE. Destroying an object that a thread holds or waits on
 * is outside the contract.
 * @{
 */

typedef void *TOV_CondHandle;   /**< A condition variable: a library record. */
typedef void *TOV_RWLockHandle; /**< A reader-writer lock: a library record. */

/**
 * Creates a condition variable.
 * @param handleOut Receives the condition variable.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handleOut; #TOV_ERR_NO_MEMORY; otherwise the mapped system
 *         error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_CondCreate(TOV_CondHandle *handleOut) TOV_NOEXCEPT;
/**
 * Frees a condition variable.
 * @param handle The variable holding it, set to 0 in every case.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handle; #TOV_ERR_INVALID_HANDLE for a variable holding 0;
 *         otherwise the mapped system error of the first close that failed.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_CondDestroy(TOV_CondHandle *handle) TOV_NOEXCEPT;
/**
 * Waits on a condition variable, releasing the LMutex meanwhile.
 * @param cond The condition variable.
 * @param lock The LMutex, held exactly once by the caller; held again when the
 *        call returns, whatever the result.
 * @param timeoutMs The longest wait in milliseconds, or #TOV_WAIT_INFINITE.
 * @return #TOV_OK when woken; #TOV_ERR_TIMEOUT; #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a NULL @p lock, the condition
 *         untouched; otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_CondWait(TOV_CondHandle cond, TOV_LMutexHandle lock,
                                                uint32_t timeoutMs) TOV_NOEXCEPT;
/**
 * Wakes one waiter, if any.
 * @param cond The condition variable.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_CondSignal(TOV_CondHandle cond) TOV_NOEXCEPT;
/**
 * Wakes every waiter and returns once all of them (and any that began to wait
 * meanwhile) have left their wait.
 * @param cond The condition variable.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_CondBroadcast(TOV_CondHandle cond) TOV_NOEXCEPT;

/**
 * Creates a reader-writer lock, held by nobody.
 * @param handleOut Receives the lock.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handleOut; #TOV_ERR_NO_MEMORY; otherwise the mapped system
 *         error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_RWLockCreate(TOV_RWLockHandle *handleOut) TOV_NOEXCEPT;
/**
 * Frees a reader-writer lock.
 * @param handle The variable holding it, set to 0 in every case.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handle; #TOV_ERR_INVALID_HANDLE for a variable holding 0;
 *         otherwise the mapped system error of the first close that failed.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_RWLockDestroy(TOV_RWLockHandle *handle) TOV_NOEXCEPT;
/**
 * Acquires a reader-writer lock, waiting without limit.
 * @param lock The lock.
 * @param exclusive Non-zero: as the writer; 0: as a reader.
 * @return #TOV_OK; a failed wait returns its mapped system error with the lock
 *         not held.
 */
TOV_API TOV_Status TOV_RWLockAcquire(TOV_RWLockHandle lock, int32_t exclusive) TOV_NOEXCEPT;
/**
 * Acquires a reader-writer lock if it can be had at once; never waits.
 * @param lock The lock.
 * @param exclusive Non-zero: as the writer; 0: as a reader.
 * @return #TOV_OK, or #TOV_ERR_TIMEOUT when the lock cannot be had at once.
 */
TOV_API TOV_Status TOV_RWLockTryAcquire(TOV_RWLockHandle lock, int32_t exclusive) TOV_NOEXCEPT;
/**
 * Releases the writer's hold, or one reader's.
 * @param lock The lock.
 * @return #TOV_OK; #TOV_ERR_INVALID_PARAMETER, nothing changed, when nobody
 *         holds the lock; otherwise the mapped system error of waking the
 *         waiters.
 */
TOV_API TOV_Status TOV_RWLockRelease(TOV_RWLockHandle lock) TOV_NOEXCEPT;

/** @} */
/* (end of condition variables, reader-writer locks) */

/* ------------------------------------------------------------------------ */
/* Threads, thread descriptions, thread-local storage                       */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_threads Threads, thread descriptions, thread-local storage
 * @brief Starting and waiting for threads; per-thread description stacks;
 * thread-local storage keys.
 *
 * Thread ids are the system's 32-bit ids, zero-extended; 0 is never an id.
 * @{
 */

/** A thread handle: a library record that TOV_ThreadDestroy() frees. */
typedef void *TOV_ThreadHandle;
/** A thread's routine: receives the argument given to TOV_ThreadCreate(); its
 *  return value is the thread's exit code. */
typedef uint32_t (*TOV_ThreadRoutine)(void *argument);

/**
 * Starts a thread running routine(argument) at once.
 * @param routine The routine.
 * @param argument Handed to @p routine.
 * @param stackSize The stack's size in bytes; 0 for the platform's default.
 * @param handleOut Receives the handle; NULL lets the thread run detached, with
 *        no handle.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p routine; #TOV_ERR_NO_MEMORY; otherwise the C runtime's mapped
 *         error. Nothing is written on failure.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_ThreadCreate(TOV_ThreadRoutine routine, void *argument,
                                                    uint32_t stackSize,
                                                    TOV_ThreadHandle *handleOut) TOV_NOEXCEPT;
/**
 * Closes a thread's handle; the thread itself runs on.
 * @param handle The handle's variable, set to 0 also when the close fails.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handle; #TOV_ERR_INVALID_HANDLE for a variable holding 0;
 *         otherwise the close's mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_ThreadDestroy(TOV_ThreadHandle *handle) TOV_NOEXCEPT;
/**
 * Waits until a thread has ended.
 * @param handle The thread.
 * @param timeoutMs The longest wait in milliseconds, or #TOV_WAIT_INFINITE.
 * @return #TOV_OK once the thread has ended; #TOV_ERR_TIMEOUT;
 *         #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         handle; otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_ThreadWait(TOV_ThreadHandle handle,
                                                  uint32_t timeoutMs) TOV_NOEXCEPT;
/**
 * Reads an ended thread's exit code.
 * @param handle The thread.
 * @param exitCodeOut Receives the exit code.
 * @return #TOV_OK; #TOV_ERR_STILL_RUNNING, nothing written, while the thread
 *         runs; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         argument; otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_ThreadGetExitCode(TOV_ThreadHandle handle,
                                                         uint32_t *exitCodeOut) TOV_NOEXCEPT;
/**
 * Tells a thread's id.
 * @param handle The thread.
 * @param idOut Receives the id.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL argument.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_ThreadGetID(TOV_ThreadHandle handle,
                                                   uint64_t *idOut) TOV_NOEXCEPT;
/**
 * Tells the calling thread's id. Works at any time.
 * @return The id.
 */
TOV_API uint64_t TOV_ThreadGetCurrentID(void) TOV_NOEXCEPT;
/**
 * Ends the calling thread; does not return. Works at any time.
 * @param exitCode The thread's exit code.
 */
TOV_API void TOV_ThreadExit(uint32_t exitCode) TOV_NOEXCEPT;

/**
 * Pushes a pointer onto the calling thread's description stack.
 *
 * Every thread has a stack of description pointers (what it is doing, say)
 * that any thread may read with TOV_ThreadGetDescriptionPtrs(). Push and pop
 * work on the calling thread's stack, whether or not the library is started.
 * @param value The pointer; the library never follows it.
 * @return #TOV_OK; #TOV_ERR_NO_MEMORY, the stack unchanged; otherwise the
 *         mapped system error.
 */
TOV_API TOV_Status TOV_ThreadPushDescriptionPtr(void *value) TOV_NOEXCEPT;
/**
 * Drops the newest entry of the calling thread's description stack.
 * @return #TOV_OK, or #TOV_ERR_NOT_FOUND when the stack is empty.
 */
TOV_API TOV_Status TOV_ThreadPopDescriptionPtr(void) TOV_NOEXCEPT;
/**
 * Copies a thread's description stack, newest entry first.
 * @param threadId The thread's id; 0 for the calling thread. A thread without a
 *        stack, or an id no thread has, gives a depth of 0.
 * @param buffer Receives up to @p count entries (the newest ones); may be NULL
 *        only when *@p count is 0.
 * @param count The room in @p buffer, in entries; receives the depth, also
 *        with #TOV_ERR_BUFFER_TOO_SMALL.
 * @return #TOV_OK; #TOV_ERR_BUFFER_TOO_SMALL when the depth exceeds the room;
 *         #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         @p count, or a NULL @p buffer with room.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_ThreadGetDescriptionPtrs(uint64_t threadId, void **buffer,
                                                                uint32_t *count) TOV_NOEXCEPT;

/**
 * Allocates a thread-local storage key.
 * @param keyOut Receives the key: the platform's slot index, zero-extended.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p keyOut; otherwise the mapped system error (no slot left).
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_TLSCreate(uint64_t *keyOut) TOV_NOEXCEPT;
/**
 * Frees a thread-local storage key. Works at any time.
 * @param key The key's variable, set to 0 whatever the result.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_TLSDestroy(uint64_t *key) TOV_NOEXCEPT;
/**
 * Reads the calling thread's value of a key. Works at any time.
 * @param key The key.
 * @param valueOut Receives the value; a slot never set reads as NULL.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_TLSGetValue(uint64_t key, void **valueOut) TOV_NOEXCEPT;
/**
 * Sets the calling thread's value of a key. Works at any time.
 * @param key The key.
 * @param value The value.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_TLSSetValue(uint64_t key, void *value) TOV_NOEXCEPT;

/** @} */
/* (end of threads, thread descriptions, thread-local storage) */

/* ------------------------------------------------------------------------ */
/* Processes, threads, thread contexts                                      */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_process Processes, threads, thread contexts
 * @brief The system's processes and threads listed; a thread held for a stack
 * walk.
 *
 * Process and thread ids are the system's 32-bit ids, zero-extended.
 *
 * The two listing calls fill @p ids with the ids found, in the system's order,
 * as far as the array goes: *@p count is the array's size on entry and the
 * number found on return (#TOV_OK, or #TOV_ERR_BUFFER_TOO_SMALL when that is
 * larger than the array). @p ids may be NULL only with *@p count == 0, which
 * asks for the number alone. Any other failure (no snapshot: the mapped system
 * error) leaves *@p count unwritten. Processes and threads that start or end
 * during a call may or may not be seen.
 * @{
 */

/**
 * Lists the ids of the system's processes.
 * @param ids Receives the ids, as far as the array goes.
 * @param count The array's size in entries; receives the number of processes.
 * @return #TOV_OK; #TOV_ERR_BUFFER_TOO_SMALL; #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a NULL @p count, or NULL @p ids with
 *         room; otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SysEnumProcesses(uint64_t *ids,
                                                        uint32_t *count) TOV_NOEXCEPT;
/**
 * Lists the ids of one process's threads.
 * @param processId The process; an id no process has gives #TOV_OK and 0.
 * @param ids Receives the ids, as far as the array goes.
 * @param count The array's size in entries; receives the number of threads.
 * @return #TOV_OK; #TOV_ERR_BUFFER_TOO_SMALL; #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a NULL @p count, or NULL @p ids with
 *         room; otherwise the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SysEnumThreads(uint64_t processId, uint64_t *ids,
                                                      uint32_t *count) TOV_NOEXCEPT;
/**
 * Tells the calling process's id.
 * @param idOut Receives the id.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p idOut.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SysGetCurrentProcessId(uint64_t *idOut) TOV_NOEXCEPT;

/**
 * A captured thread context: a thread held suspended, its registers read, ready
 * for TOV_SysStackWalk().
 *
 * The record is allocated under the caller's tag; the thread does not run until
 * TOV_SysFreeThreadCtx() resumes it, so capture threads that hold no lock the
 * capturing thread needs (the C runtime heap's, for instance). Capturing twice
 * suspends twice: the thread runs again after both are freed.
 */
typedef void *TOV_ThreadCtxHandle;
/**
 * Suspends a thread and captures its context.
 * @param tag The memory tag the record is allocated under; not NULL.
 * @param processId The process the thread belongs to (used by the walk).
 * @param threadId The thread; not the calling thread.
 * @param ctxOut Receives the context; written only on success.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for the
 *         calling thread's own id, an id above 32 bits, a NULL @p tag or a NULL
 *         @p ctxOut; #TOV_ERR_NO_MEMORY; for a thread that cannot be opened or
 *         read, the mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SysAllocThreadCtx(TOV_MemTag tag, uint64_t processId,
                                                         uint64_t threadId,
                                                         TOV_ThreadCtxHandle *ctxOut) TOV_NOEXCEPT;
/**
 * Resumes the thread once and frees the context.
 * @param ctx The context.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p ctx.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SysFreeThreadCtx(TOV_ThreadCtxHandle ctx) TOV_NOEXCEPT;

/** @} */
/* (end of processes, threads, thread contexts) */

/* ------------------------------------------------------------------------ */
/* Stack walk and symbols                                                   */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_symbols Stack walk and symbols
 * @brief Walking a captured thread's stack; naming code addresses from the
 * modules' debug information.
 *
 * Calls of TOV_SysStackWalk() and TOV_SysGetSymbolInfo() are serialised inside
 * the library. The symbol handler is the system's debug-help library; it reads
 * the debug information a module carries or names (for tov.dll, the DWARF of
 * tov.dll.debug beside it, found through the DLL's debug link).
 * @{
 */

/**
 * Walks the stack of a captured thread, one frame per call.
 *
 * Frames past the first are found only in modules the symbol handler knows:
 * make one TOV_SysGetSymbolInfo() call for the process before walking.
 * @param ctx The captured context.
 * @param address Set it to 0 before the first call. Each #TOV_OK call then
 *        leaves in it the next code address outwards: first the thread's
 *        instruction pointer, then each frame's return address, and 0 when the
 *        walk has ended.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL argument; a step that fails returns the mapped system error and
 *         leaves *@p address as it was (a process that cannot be opened for
 *         reading is tried again on the next step).
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SysStackWalk(TOV_ThreadCtxHandle ctx,
                                                    uint64_t *address) TOV_NOEXCEPT;

/**
 * Describes a code address of a process: its symbol, source line and module.
 *
 * Each piece is looked up only when asked for: the name (@p nameSize > 0), the
 * source file and line (@p fileSize > 0 or @p lineOut), the module
 * (@p moduleNameSize > 0 or any module out). Text is cut to fit its buffer and
 * always terminated. Every text and number asked for (the displacement
 * excepted) is emptied ("" or 0) before its look-up, so a piece not found
 * reads empty. Names stay as the compiler's debug information gives them.
 *
 * The first call starts the process's symbol handler, with line information
 * and a search path made of the current directory, the executable's directory
 * and the variables _NT_SYMBOL_PATH, _NT_ALTERNATE_SYMBOL_PATH and SYSTEMROOT,
 * read then (at most 259 characters; a part that does not fit is left out).
 * Every call offers the process's modules to the handler again, so modules
 * loaded since are known.
 * @param processId The process; not 0.
 * @param address The code address.
 * @param name Receives the symbol's name; may be NULL only when @p nameSize is 0.
 * @param nameSize The size of @p name in bytes; 0: no name wanted.
 * @param displacementOut Receives the address's distance from the symbol's
 *        start when the name is found (else left as it was); may be NULL.
 * @param file Receives the source file's path; may be NULL only when
 *        @p fileSize is 0.
 * @param fileSize The size of @p file in bytes.
 * @param lineOut Receives the source line; may be NULL.
 * @param moduleName Receives the path the module was loaded from; may be NULL
 *        only when @p moduleNameSize is 0.
 * @param moduleNameSize The size of @p moduleName in bytes.
 * @param moduleBaseOut Receives the module's base address; may be NULL.
 * @param moduleSizeOut Receives the module's image size; may be NULL.
 * @param moduleTimeStampOut Receives the module's link time stamp; may be NULL.
 * @return #TOV_OK unless every one of the three pieces was asked for and none
 *         was found: then the name look-up's mapped error (its value differs
 *         between systems); #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a @p processId of 0 or a NULL buffer
 *         with a size; #TOV_ERR_NO_MEMORY; #TOV_ERR_MODULE_NOT_FOUND without
 *         the debug-help library, or the mapped system error of its start.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SysGetSymbolInfo(
    uint64_t processId, uint64_t address, char *name, uint64_t nameSize, uint64_t *displacementOut,
    char *file, uint64_t fileSize, uint32_t *lineOut, char *moduleName, uint64_t moduleNameSize,
    uint64_t *moduleBaseOut, uint64_t *moduleSizeOut, uint64_t *moduleTimeStampOut) TOV_NOEXCEPT;

/** @} */
/* (end of stack walk and symbols) */

/* ------------------------------------------------------------------------ */
/* Processor, time and identity                                             */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_time Processor, time and identity
 * @brief Processor usage and count, uptime, sleep, wall-clock time, the
 * time-zone offset, unique identifiers, pointer tests.
 *
 * The usage calls test the start-up count and their arguments; the other calls
 * of this group work at any time.
 * @{
 */

/** A processor usage record: keeps the last sample of the system-wide
 *  processor times. It has no lock: its users serialise the calls on one
 *  record. */
typedef struct TOV_CPUUsage TOV_CPUUsage;

/**
 * Makes a usage record with a first sample.
 * @param handleOut Set to 0 first; receives the new record.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handleOut; #TOV_ERR_NO_MEMORY or the mapped system error of a
 *         failed sample, *@p handleOut staying 0.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_GetCPUUsageHandle(TOV_CPUUsage **handleOut) TOV_NOEXCEPT;
/**
 * Measures the system-wide processor usage since the record's previous sample;
 * the record then keeps the new sample.
 *
 * Two samples with no processor time between them (the system's counters move
 * in steps of several milliseconds) give 0: nothing was seen busy.
 * @param handle The record.
 * @param percent Receives the share (0 to 100, truncated) of the time of all
 *        processors together that was not idle; -1 after a failed sample.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL argument; the mapped system error of a failed sample (the record
 *         keeps its sample).
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_GetCPUUsagePercent(TOV_CPUUsage *handle,
                                                          int32_t *percent) TOV_NOEXCEPT;
/**
 * Frees a usage record.
 * @param handle The record's variable, set to 0; a variable holding 0 frees
 *        nothing.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p handle.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FreeCPUUsageHandle(TOV_CPUUsage **handle) TOV_NOEXCEPT;

/**
 * Counts the active processors.
 * @return The number of active processors.
 */
TOV_API uint32_t TOV_GetNumberOfProcessors(void) TOV_NOEXCEPT;
/**
 * Tells the time since the system started.
 *
 * The system's millisecond counter wraps after 49.7 days; a wrap is counted
 * (4294967 s each) when the function is called at least once in every such
 * period.
 * @return Seconds since the system started.
 */
TOV_API uint32_t TOV_SecondsUp(void) TOV_NOEXCEPT;
/**
 * Suspends the calling thread.
 * @param ms Milliseconds; 0 gives up the rest of the thread's time slice.
 */
TOV_API void TOV_Sleep(uint32_t ms) TOV_NOEXCEPT;
/**
 * Reads the wall-clock time.
 * @param seconds Receives the seconds since 1970-01-01 00:00:00 UTC; must be
 *        valid.
 * @param millis Receives the milliseconds (0 to 999); may be NULL.
 */
TOV_API void TOV_HiResTime(int64_t *seconds, uint32_t *millis) TOV_NOEXCEPT;
/**
 * Tells the local time zone's offset, daylight saving time included while in
 * effect. Read from the system at most once per 30 minutes.
 * @return Seconds to add to local time to get UTC (positive west of
 *         Greenwich); 0 until the system has answered once.
 */
TOV_API int32_t TOV_TZOffset(void) TOV_NOEXCEPT;

/** A 16-byte unique identifier, in the system's layout. */
typedef struct TOV_Guid {
  uint32_t data1;   /**< The first 4 bytes, as a number. */
  uint16_t data2;   /**< The next 2 bytes, as a number. */
  uint16_t data3;   /**< The next 2 bytes, as a number. */
  uint8_t data4[8]; /**< The last 8 bytes. */
} TOV_Guid;

/**
 * Makes a new unique identifier with the system's generator. Never fails: when
 * the system cannot make one, four values of the C runtime's rand() (0 to
 * 32767) fill the four 32-bit words, the generator initialised from the time
 * once per process.
 * @param guid Receives the identifier; must be valid.
 */
TOV_API void TOV_TmGuidGenerate(TOV_Guid *guid) TOV_NOEXCEPT;

/**
 * Tests whether memory may be executed. The test never faults.
 * @param p The address.
 * @return #TOV_OK, or #TOV_ERR_INVALID_PARAMETER when it may not.
 */
TOV_API TOV_Status TOV_SysValidateCodePtr(const void *p) TOV_NOEXCEPT;
/**
 * Tests whether memory may be read. The test never faults, but memory with a
 * guard page must not be given to it: touching that is not caught.
 * @param p The start.
 * @param size The number of bytes; a test of 0 bytes always passes.
 * @return #TOV_OK, or #TOV_ERR_INVALID_PARAMETER when it may not.
 */
TOV_API TOV_Status TOV_SysValidateReadPtr(const void *p, uint64_t size) TOV_NOEXCEPT;
/**
 * Tests whether memory may be written. The test never faults, but memory with
 * a guard page must not be given to it: touching that is not caught.
 * @param p The start.
 * @param size The number of bytes; a test of 0 bytes always passes.
 * @return #TOV_OK, or #TOV_ERR_INVALID_PARAMETER when it may not.
 */
TOV_API TOV_Status TOV_SysValidateWritePtr(void *p, uint64_t size) TOV_NOEXCEPT;
/**
 * Tests whether a string may be read, up to its terminator. The test never
 * faults, but memory with a guard page must not be given to it.
 * @param p The string.
 * @param maxLength The most characters read.
 * @param wide Non-zero: 16-bit characters; 0: bytes.
 * @return #TOV_OK, or #TOV_ERR_INVALID_PARAMETER when it may not.
 */
TOV_API TOV_Status TOV_SysValidateStringPtr(const void *p, uint64_t maxLength,
                                            int32_t wide) TOV_NOEXCEPT;

/** @} */
/* (end of processor, time and identity) */

/* ------------------------------------------------------------------------ */
/* Sockets                                                                  */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_sockets Sockets
 * @brief One call per socket operation, blocking or overlapped.
 *
 * Socket addresses, buffer lists (WSABUF) and overlapped records
 * (WSAOVERLAPPED) are the platform's own records from <winsock2.h>. Families,
 * types, protocols, option levels and names, control codes, flags and shutdown
 * modes are the platform's numbers, passed through unchanged.
 *
 * Every socket is created for overlapped operation: given an overlapped record,
 * a send, receive or control call that the system leaves pending returns
 * #TOV_OK (its byte count then reads 0; the real one comes with the
 * completion, see TOV_IOCPortWait()). Without one, the call blocks as the
 * socket's mode says. Every function tests the start-up count and its
 * arguments; system failures give the mapped Winsock error
 * (`TOV_ERR_NET_...`). Out arguments are written only on #TOV_OK. 64-bit
 * lengths reach the system as their low 32 bits.
 * @{
 */

struct sockaddr;
struct _WSABUF;
struct _OVERLAPPED;

/** A socket: a library record holding the system's socket. */
typedef struct TOV_Skt TOV_Skt;

/** Option name, at level 0xFFFF (SOL_SOCKET), of the system's address-reuse
 *  option: two live sockets may share a port. The level's name 4
 *  (SO_REUSEADDR) is only remembered by the socket record, read back by
 *  TOV_SktGetOption(), and never reaches the system socket. */
#define TOV_SO_REUSEPORT 0x200

/**
 * Creates a socket.
 * @param family The address family (2 IPv4, 23 IPv6, ...).
 * @param type The socket type (1 stream, 2 datagram, ...).
 * @param protocol The protocol (6 TCP, 17 UDP; 0: the type's default).
 * @param socketOut Receives the socket.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p socketOut; #TOV_ERR_NO_MEMORY; otherwise the mapped Winsock
 *         error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktCreate(int32_t family, int32_t type, int32_t protocol,
                                                 TOV_Skt **socketOut) TOV_NOEXCEPT;
/**
 * Closes a socket and frees its record.
 * @param socket The socket's variable, set to 0 also when the close fails.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p socket; #TOV_ERR_INVALID_HANDLE for a variable holding 0;
 *         otherwise the close's mapped Winsock error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktDestroy(TOV_Skt **socket) TOV_NOEXCEPT;
/**
 * Binds a socket to a local address.
 * @param socket The socket.
 * @param address The address.
 * @param addressLength The address's size in bytes; not 0.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL argument or a length of 0; otherwise the mapped Winsock error
 *         (#TOV_ERR_NET_ADDRINUSE...).
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktBind(TOV_Skt *socket, const struct sockaddr *address,
                                               uint64_t addressLength) TOV_NOEXCEPT;
/**
 * Makes a bound stream socket listen for connections.
 * @param socket The socket.
 * @param backlog The longest queue of pending connections.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p socket; otherwise the mapped Winsock error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktListen(TOV_Skt *socket, int32_t backlog) TOV_NOEXCEPT;
/**
 * Accepts a connection, waiting for one on a blocking listener.
 * @param listener The listening socket.
 * @param socketOut Receives the connected socket.
 * @param peer Receives the peer's address; may be NULL.
 * @param peerLength The size of @p peer going in, the address's size coming
 *        out; may be NULL.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p listener or @p socketOut; #TOV_ERR_NO_MEMORY (the connection
 *         is closed); otherwise the mapped Winsock error
 *         (#TOV_ERR_NET_WOULDBLOCK on a non-blocking listener with nothing
 *         pending).
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktAccept(TOV_Skt *listener, TOV_Skt **socketOut,
                                                 struct sockaddr *peer,
                                                 int32_t *peerLength) TOV_NOEXCEPT;
/**
 * Connects a socket to a remote address (for a datagram socket: sets its
 * default peer).
 * @param socket The socket.
 * @param address The address.
 * @param addressLength The address's size in bytes; not 0.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL argument or a length of 0; #TOV_ERR_NET_WOULDBLOCK for a
 *         non-blocking socket that cannot connect at once; otherwise the mapped
 *         Winsock error (#TOV_ERR_NET_CONNREFUSED...).
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktConnect(TOV_Skt *socket, const struct sockaddr *address,
                                                  uint64_t addressLength) TOV_NOEXCEPT;
/**
 * Shuts down one or both directions of a connection.
 * @param socket The socket.
 * @param how 0 receiving, 1 sending, 2 both.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p socket; otherwise the mapped Winsock error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktShutdown(TOV_Skt *socket, int32_t how) TOV_NOEXCEPT;
/**
 * Tells the address a socket is bound to.
 * @param socket The socket.
 * @param address Receives the address.
 * @param addressLength The size of @p address going in, the address's size
 *        coming out.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL argument; otherwise the mapped Winsock error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktGetLocalAddress(TOV_Skt *socket, struct sockaddr *address,
                                                          int32_t *addressLength) TOV_NOEXCEPT;
/**
 * Tells the address of a connected socket's peer.
 * @param socket The socket.
 * @param address Receives the address.
 * @param addressLength The size of @p address going in, the address's size
 *        coming out.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL argument; otherwise the mapped Winsock error
 *         (#TOV_ERR_NET_NOTCONN...).
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktGetRemoteAddress(TOV_Skt *socket,
                                                           struct sockaddr *address,
                                                           int32_t *addressLength) TOV_NOEXCEPT;
/**
 * Reads a socket option.
 * @param socket The socket.
 * @param level The option's level.
 * @param name The option's name (see #TOV_SO_REUSEPORT).
 * @param value Receives the option's value; may be NULL only when
 *        @p valueLength is NULL (not for the remembered address reuse).
 * @param valueLength The size of @p value going in, the value's size coming
 *        out; may be NULL.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p socket or a missing @p value; otherwise the mapped Winsock
 *         error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktGetOption(TOV_Skt *socket, int32_t level, int32_t name,
                                                    void *value,
                                                    uint64_t *valueLength) TOV_NOEXCEPT;
/**
 * Sets a socket option.
 * @param socket The socket.
 * @param level The option's level.
 * @param name The option's name (see #TOV_SO_REUSEPORT).
 * @param value The option's value; may be NULL only when @p valueLength is 0
 *        (not for the remembered address reuse, which reads a 32-bit value).
 * @param valueLength The value's size in bytes.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p socket or a missing @p value; otherwise the mapped Winsock
 *         error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktSetOption(TOV_Skt *socket, int32_t level, int32_t name,
                                                    const void *value,
                                                    uint64_t valueLength) TOV_NOEXCEPT;
/**
 * Sends a control code to a socket.
 * @param socket The socket.
 * @param code The control code.
 * @param input The input; may be NULL only when @p inputLength is 0.
 * @param inputLength The input's size in bytes.
 * @param output Receives the output; may be NULL when @p outputLength is NULL
 *        or points to 0.
 * @param outputLength The size of @p output going in, the bytes returned coming
 *        out (0 while an overlapped call is pending); may be NULL.
 * @param overlapped An overlapped record for an overlapped call, or NULL.
 * @return #TOV_OK (also when pending); #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a NULL @p socket or a missing buffer;
 *         otherwise the mapped Winsock error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktIOCtl(TOV_Skt *socket, uint32_t code, const void *input,
                                                uint64_t inputLength, void *output,
                                                uint64_t *outputLength,
                                                struct _OVERLAPPED *overlapped) TOV_NOEXCEPT;
/**
 * Sends from a list of buffers.
 * @param socket The socket.
 * @param buffers The buffers (WSABUF); may be NULL only when @p count is 0.
 * @param count The number of buffers.
 * @param bytesSent Receives the bytes sent (0 while pending); may be NULL.
 * @param flags The system's send flags.
 * @param to The destination, making it a send to that address; may be NULL.
 * @param toLength The destination's size in bytes.
 * @param overlapped An overlapped record for an overlapped send, or NULL.
 * @return #TOV_OK (also when pending); #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a NULL @p socket, or NULL @p buffers
 *         with a count; otherwise the mapped Winsock error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktSend(TOV_Skt *socket, struct _WSABUF *buffers,
                                               uint32_t count, uint64_t *bytesSent, uint32_t flags,
                                               const struct sockaddr *to, int32_t toLength,
                                               struct _OVERLAPPED *overlapped) TOV_NOEXCEPT;
/**
 * Sends from one buffer.
 * @param socket The socket.
 * @param data The bytes; may be NULL only when @p length is 0.
 * @param length The number of bytes.
 * @param bytesSent Receives the bytes sent (0 while pending); may be NULL.
 * @param flags The system's send flags.
 * @param to The destination, making it a send to that address; may be NULL.
 * @param toLength The destination's size in bytes.
 * @param overlapped An overlapped record for an overlapped send, or NULL.
 * @return #TOV_OK (also when pending); #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a NULL @p socket, or NULL @p data
 *         with a length; otherwise the mapped Winsock error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktSendBuf(TOV_Skt *socket, const void *data,
                                                  uint64_t length, uint64_t *bytesSent,
                                                  uint32_t flags, const struct sockaddr *to,
                                                  int32_t toLength,
                                                  struct _OVERLAPPED *overlapped) TOV_NOEXCEPT;
/**
 * Receives into a list of buffers. 0 bytes on a stream: the peer has shut
 * down its side.
 * @param socket The socket.
 * @param buffers The buffers (WSABUF); may be NULL only when @p count is 0.
 * @param count The number of buffers.
 * @param bytesReceived Receives the bytes received (0 while pending); may be NULL.
 * @param flags The system's receive flags going in, its result flags coming
 *        out; may be NULL (no flags).
 * @param from Receives the source address; may be NULL.
 * @param fromLength The size of @p from going in, the address's size coming out.
 * @param overlapped An overlapped record for an overlapped receive, or NULL.
 * @return #TOV_OK (also when pending); #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a NULL @p socket, or NULL @p buffers
 *         with a count; otherwise the mapped Winsock error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktReceive(TOV_Skt *socket, struct _WSABUF *buffers,
                                                  uint32_t count, uint64_t *bytesReceived,
                                                  uint32_t *flags, struct sockaddr *from,
                                                  int32_t *fromLength,
                                                  struct _OVERLAPPED *overlapped) TOV_NOEXCEPT;
/**
 * Receives into one buffer. 0 bytes on a stream: the peer has shut down its
 * side.
 * @param socket The socket.
 * @param buffer Receives the bytes; may be NULL only when @p length is 0.
 * @param length The buffer's size in bytes.
 * @param bytesReceived Receives the bytes received (0 while pending); may be NULL.
 * @param flags The system's receive flags going in, its result flags coming
 *        out; may be NULL (no flags).
 * @param from Receives the source address; may be NULL.
 * @param fromLength The size of @p from going in, the address's size coming out.
 * @param overlapped An overlapped record for an overlapped receive, or NULL.
 * @return #TOV_OK (also when pending); #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a NULL @p socket, or NULL @p buffer
 *         with a length; otherwise the mapped Winsock error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_SktRecvBuf(TOV_Skt *socket, void *buffer, uint64_t length,
                                                  uint64_t *bytesReceived, uint32_t *flags,
                                                  struct sockaddr *from, int32_t *fromLength,
                                                  struct _OVERLAPPED *overlapped) TOV_NOEXCEPT;

/** @} */
/* (end of sockets) */

/* ------------------------------------------------------------------------ */
/* Socket address presentation                                              */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_presentation Socket address presentation
 * @brief Socket addresses as text, and back.
 *
 * Text forms of IPv4 (family 2), IPX (6) and IPv6 (23) socket addresses,
 * optionally with a protocol prefix and a port:
 * @verbatim
   192.0.2.7   tcp:192.0.2.7:80   [2001:db8::1]:443   udpv6:[::1]:53
   0000000a:00a0c9123456   spx:0000000a:00a0c9123456:0453
   @endverbatim
 * Both functions work whatever the start-up state, and do not test their
 * pointer arguments.
 * @{
 */

/**
 * @name Presentation flags
 * What a text holds (reading) or should hold (writing).
 * @{
 */
#define TOV_PRES_PORT 0x01u     /**< A port (IPX: socket number). */
#define TOV_PRES_PREFIX 0x02u   /**< A protocol prefix (ip, ipv6 or ipx without the next two). */
#define TOV_PRES_STREAM 0x04u   /**< The prefix tcp, tcpv6 or spx. */
#define TOV_PRES_DATAGRAM 0x08u /**< The prefix udp, udpv6 or ipx. */
#define TOV_PRES_UPPER 0x10u    /**< Writing: prefix and hex digits in upper case. */
/** @} */

/** Room for the longest text of any family, terminator included. */
#define TOV_PRES_MAX_TEXT 54

/**
 * Writes a socket address as text.
 * @param address The address: family 2, 6 or 23, family field first.
 * @param flags `TOV_PRES_...` flags: what the text holds besides the address.
 * @param text Receives the text; #TOV_PRES_MAX_TEXT bytes serve every family.
 * @return #TOV_OK, or #TOV_ERR_INVALID_PARAMETER for another family, nothing
 *         written.
 */
TOV_API TOV_Status TOV_SktNetToPresentation(const struct sockaddr *address, uint32_t flags,
                                            char *text) TOV_NOEXCEPT;
/**
 * Reads a text into a socket address.
 *
 * The address is zeroed over its whole size first, and its family field is
 * stored as soon as the family is known, also when the rest then fails.
 * @param text The text; leading blanks are skipped.
 * @param flags Set to 0 first; receives the `TOV_PRES_...` flags of the parts
 *        found.
 * @param address Receives the address record.
 * @param addressSize The size of @p address in bytes, at least 2; on #TOV_OK
 *        the record's size (16, 14 or 28).
 * @return #TOV_OK; #TOV_ERR_BUFFER_TOO_SMALL when the record does not fit
 *         (*@p addressSize unchanged); #TOV_ERR_INVALID_PARAMETER for a text
 *         that cannot be read.
 */
TOV_API TOV_Status TOV_SktPresentationToNet(const char *text, uint32_t *flags,
                                            struct sockaddr *address,
                                            uint64_t *addressSize) TOV_NOEXCEPT;

/** @} */
/* (end of socket address presentation) */

/* ------------------------------------------------------------------------ */
/* Socket sets                                                              */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_fds Socket sets
 * @brief Sockets with interest flags and context values, waited on together.
 *
 * A socket set holds socket handles with interest flags and a context value of
 * the caller's, waited on together with TOV_FDSSelect(). No limit on the number
 * of sockets. A set has no lock: calls on one set (its callbacks included) must
 * come from one thread at a time. The set never closes the sockets it holds.
 * Every function tests the start-up count and its arguments.
 * @{
 */

/** A socket set: a library record. */
typedef struct TOV_FDS TOV_FDS;

/**
 * @name Interest flags
 * Other bits are kept and returned but select nothing.
 * @{
 */
#define TOV_FDS_READ 0x01u   /**< Readable: data, a connection to accept, or the end. */
#define TOV_FDS_WRITE 0x02u  /**< Writable, or a connect that succeeded. */
#define TOV_FDS_EXCEPT 0x04u /**< Out-of-band data, or a connect that failed. */
/** @} */

/**
 * @name What TOV_FDSModify() changes
 * @{
 */
#define TOV_FDS_SET_FLAGS 0x01u   /**< The interest flags. */
#define TOV_FDS_SET_CONTEXT 0x02u /**< The context value. */
/** @} */

/** One ready socket, as TOV_FDSSelect() reports it. */
typedef struct TOV_FDSResult {
  TOV_Skt *handle;  /**< The entry's socket. */
  uint32_t flags;   /**< The entry's interest flags (not the condition met). */
  uint64_t context; /**< The entry's context value. */
} TOV_FDSResult;

/**
 * Called per entry by TOV_FDSEnumerate() and TOV_FDSDestroy(), in ascending
 * handle order; a non-zero return stops the walk. A C++ callback must not
 * throw: nothing in the library catches, and the set would be left
 * half-walked.
 * @param socket The entry's socket.
 * @param flags The entry's interest flags.
 * @param context The entry's context value.
 * @return #TOV_OK to go on, anything else to stop.
 */
typedef TOV_Status (*TOV_FDSCallback)(TOV_Skt *socket, uint32_t flags, uint64_t context);

/**
 * Creates an empty socket set.
 * @param sizeHint Slots of the first index growth (0 counts as 1); doubles
 *        after.
 * @param setOut Receives the set.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p setOut; #TOV_ERR_NO_MEMORY.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FDSCreate(uint32_t sizeHint, TOV_FDS **setOut) TOV_NOEXCEPT;
/**
 * Calls a callback per entry until it returns non-zero, then frees the set.
 * @param set The set's variable, set to 0.
 * @param callback The callback; may be NULL.
 * @return #TOV_OK whatever the callback returned; #TOV_ERR_NOT_INITIALIZED;
 *         #TOV_ERR_INVALID_PARAMETER for a NULL @p set;
 *         #TOV_ERR_INVALID_HANDLE for a variable holding 0.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FDSDestroy(TOV_FDS **set,
                                                  TOV_FDSCallback callback) TOV_NOEXCEPT;
/**
 * Adds a socket to a set.
 * @param set The set.
 * @param socket The socket.
 * @param flags Its interest flags; not 0.
 * @param context Its context value.
 * @return #TOV_OK; #TOV_ERR_ALREADY_EXISTS when the socket is in the set;
 *         #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         pointer or flags of 0; #TOV_ERR_NO_MEMORY.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FDSAssociate(TOV_FDS *set, TOV_Skt *socket, uint32_t flags,
                                                    uint64_t context) TOV_NOEXCEPT;
/**
 * Changes an entry's flags and/or context, and reads the previous values.
 * @param set The set.
 * @param socket The entry's socket.
 * @param what #TOV_FDS_SET_FLAGS and/or #TOV_FDS_SET_CONTEXT; 0 only reads.
 * @param flags The new flags (0 allowed) with #TOV_FDS_SET_FLAGS; receives the
 *        previous flags; may be NULL without #TOV_FDS_SET_FLAGS.
 * @param context The new context with #TOV_FDS_SET_CONTEXT; receives the
 *        previous context; may be NULL without #TOV_FDS_SET_CONTEXT.
 * @return #TOV_OK; #TOV_ERR_NOT_FOUND when the socket is not in the set;
 *         #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         @p set or @p socket, or a value missing for @p what.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FDSModify(TOV_FDS *set, TOV_Skt *socket, uint32_t what,
                                                 uint32_t *flags, uint64_t *context) TOV_NOEXCEPT;
/**
 * Removes a socket's entry.
 * @param set The set.
 * @param socket The entry's socket.
 * @param context Receives the entry's context; may be NULL.
 * @return #TOV_OK; #TOV_ERR_NOT_FOUND when the socket is not in the set;
 *         #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         @p set or @p socket.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FDSRemove(TOV_FDS *set, TOV_Skt *socket,
                                                 uint64_t *context) TOV_NOEXCEPT;
/**
 * Counts entries by interest.
 * @param set The set.
 * @param count Receives, summed per interest that @p which selects, the
 *        entries having it.
 * @param which Interest flags; not 0.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL pointer or @p which of 0.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FDSCount(TOV_FDS *set, uint32_t *count,
                                                uint32_t which) TOV_NOEXCEPT;
/**
 * Calls a callback per entry; the callback must not change the set.
 * @param set The set.
 * @param callback The callback.
 * @return #TOV_OK, or the first non-zero callback result;
 *         #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         argument.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FDSEnumerate(TOV_FDS *set,
                                                    TOV_FDSCallback callback) TOV_NOEXCEPT;
/**
 * Waits until sockets of the set are ready for the interests selected.
 * @param set The set.
 * @param which The interests waited for.
 * @param results Receives one record per ready socket and interest: read
 *        records first, then write, then except; as far as the array goes
 *        (also with #TOV_ERR_BUFFER_TOO_SMALL, then the first ones).
 * @param count The array's size going in, the number of ready records coming
 *        out (also with #TOV_ERR_BUFFER_TOO_SMALL).
 * @param timeoutMs The longest wait in milliseconds; 0xFFFFFFFF waits without
 *        limit.
 * @return #TOV_OK; #TOV_ERR_BUFFER_TOO_SMALL when more records are ready than
 *         the array holds; #TOV_ERR_TIMEOUT, *@p count untouched;
 *         #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a NULL
 *         @p set or @p count, @p which of 0, or NULL @p results with room;
 *         #TOV_ERR_NO_MEMORY; otherwise the mapped Winsock error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_FDSSelect(TOV_FDS *set, uint32_t which,
                                                 TOV_FDSResult *results, uint32_t *count,
                                                 uint32_t timeoutMs) TOV_NOEXCEPT;

/** @} */
/* (end of socket sets) */

/* ------------------------------------------------------------------------ */
/* I/O completion ports                                                     */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_iocp I/O completion ports
 * @brief A queue of finished overlapped operations that worker threads wait on.
 *
 * Sockets associated with a port complete their overlapped sends, receives and
 * control calls into it under the key chosen at association. Only create and
 * destroy test the start-up count and their arguments; the others work on a
 * live port whatever the start-up state, and take valid pointers.
 * @{
 */

/** A completion port: a library record holding the system's port. */
typedef struct TOV_IOCPort TOV_IOCPort;

/** What TOV_IOCPortWait() returns when its time-out expires with nothing
 *  queued (the system's wait time-out number, which has no library code). */
#define TOV_IOCPORT_WAIT_TIMEOUT 258

/**
 * Creates a completion port.
 * @param concurrency How many waiting threads the system lets run at once; 0
 *        means one per processor.
 * @param portOut Receives the port.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p portOut; #TOV_ERR_NO_MEMORY; otherwise the mapped system
 *         error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_IOCPortCreate(uint32_t concurrency,
                                                     TOV_IOCPort **portOut) TOV_NOEXCEPT;
/**
 * Closes a completion port and frees its record.
 * @param port The port's variable, set to 0 also when the close fails.
 * @return #TOV_OK; #TOV_ERR_NOT_INITIALIZED; #TOV_ERR_INVALID_PARAMETER for a
 *         NULL @p port; #TOV_ERR_INVALID_HANDLE for a variable holding 0;
 *         otherwise the close's mapped system error.
 */
TOV_API TOV_NEEDS_START TOV_Status TOV_IOCPortDestroy(TOV_IOCPort **port) TOV_NOEXCEPT;
/**
 * Ties a socket to the port: its overlapped operations complete there.
 * @param port The port.
 * @param socket The socket; it stays tied until it is closed.
 * @param key The completion key its completions carry.
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_IOCPortAssociate(TOV_IOCPort *port, TOV_Skt *socket,
                                        uint64_t key) TOV_NOEXCEPT;
/**
 * Posts a completion of one's own; a waiter receives exactly these values.
 * @param port The port.
 * @param byteCount The byte count delivered.
 * @param key The key delivered.
 * @param overlapped The overlapped pointer delivered (any value).
 * @return #TOV_OK or the mapped system error.
 */
TOV_API TOV_Status TOV_IOCPortSignal(TOV_IOCPort *port, uint32_t byteCount, uint64_t key,
                                     struct _OVERLAPPED *overlapped) TOV_NOEXCEPT;
/**
 * Waits for the next completion.
 * @param port The port.
 * @param byteCount Receives the completion's byte count; may be NULL; written
 *        only on #TOV_OK.
 * @param key Receives the completion's key, also for a failed dequeued
 *        operation; required.
 * @param overlapped Receives the completion's overlapped pointer; may be NULL;
 *        written only on #TOV_OK.
 * @param timeoutMs The longest wait in milliseconds; 0xFFFFFFFF waits without
 *        limit, 0 only looks.
 * @return #TOV_OK; #TOV_IOCPORT_WAIT_TIMEOUT when nothing came; the mapped
 *         system error of a dequeued operation that failed (its key then in
 *         *@p key), or of the wait.
 */
TOV_API TOV_Status TOV_IOCPortWait(TOV_IOCPort *port, uint64_t *byteCount, uint64_t *key,
                                   struct _OVERLAPPED **overlapped,
                                   uint32_t timeoutMs) TOV_NOEXCEPT;

/** @} */
/* (end of i/o completion ports) */

/* ------------------------------------------------------------------------ */
/* Address lists and interface enumeration                                  */
/* ------------------------------------------------------------------------ */

/**
 * @defgroup tov_addresses Address lists and interface enumeration
 * @brief Resolving host names; listing the local interface addresses.
 *
 * None of these functions tests the start-up count, but resolving and the IPv4
 * and IPX interface lists need the network stack that TOV_Startup() starts.
 * @{
 */

/** One node of an address list. */
typedef struct TOV_AddrBuf {
  uint8_t addr[66];         /**< A socket address as the resolver gave it (family 2 or 23,
                                 family field first, port field 0): the first min(length, 66)
                                 bytes set and the rest zero. */
  struct TOV_AddrBuf *next; /**< The next node; NULL at the end. */
} TOV_AddrBuf;

/**
 * Resolves a host name into a new list of IPv4 and IPv6 addresses (for stream
 * sockets, each address once), in the reverse of the resolver's order.
 *
 * The host text may carry a port, which is returned through @p port, not stored
 * in the addresses:
 * @verbatim
   [::1]:80  [::1]@80   bracketed host; after the "]" a ":" or "@" and the
                        port, anything else means no port ("[::1]80" is
                        ::1 without a port); the first character is
                        taken for the "["
   name@80   name:80    otherwise the last "@", or if there is none the
                        last ":", ends the host ("a@80:9" is a, 80)
   @endverbatim
 * so an IPv6 literal must be bracketed: "::1:80" is ::1 with port 80. The port
 * is the decimal number after the separator (leading blanks and a sign
 * allowed, reading stops at the first other character) modulo 65536, 0 when
 * there is none.
 * @param host The host text; not NULL.
 * @param port Receives the port; may be NULL.
 * @param list The list's variable, which must hold NULL going in; receives the
 *        list (free it with TOV_FreeAddrBufList()). It stays NULL on failure:
 *        no list is kept.
 * @return #TOV_OK; #TOV_ERR_INVALID_PARAMETER for a NULL @p list or @p host,
 *         or a *@p list not NULL, nothing touched; when the name cannot be
 *         resolved, the system's network error number itself (11001 host not
 *         found, 11002, 11004...), not a library code, the port then 0;
 *         #TOV_ERR_NO_MEMORY when the copy of the text (port untouched) or a
 *         node (port 0) cannot be allocated.
 */
TOV_API TOV_Status TOV_GetAddrBufList(const char *host, uint16_t *port,
                                      TOV_AddrBuf **list) TOV_NOEXCEPT;
/**
 * Frees every node of a list.
 * @param list The list; may be NULL.
 * @return #TOV_OK.
 */
TOV_API TOV_Status TOV_FreeAddrBufList(TOV_AddrBuf *list) TOV_NOEXCEPT;

/**
 * @name Interface properties
 * The properties of an interface, and the selector bits that include
 * interfaces with them.
 * @{
 */
#define TOV_IF_LOOPBACK 0x1u     /**< A loopback interface. */
#define TOV_IF_POINTTOPOINT 0x2u /**< Dial-up, serial, wide-area. */
#define TOV_IF_DOWN 0x4u         /**< Not up. */
/** @} */

/** One local interface address (72 bytes). No netmasks or broadcast
 *  addresses. */
typedef struct TOV_SktInterface {
  uint32_t flags;   /**< The interface's `TOV_IF_...` properties. */
  uint8_t addr[68]; /**< A socket address record, family field first, zero after it. IPv4
                         (family 2): the address, port 0. IPX (6): network and node numbers,
                         socket 0. IPv6 (23): the system's record (port 0, flow information,
                         address, scope). */
} TOV_SktInterface;

/**
 * Lists the local interface addresses of a family.
 *
 * An interface with none of the properties is always listed; one with a
 * property only when @p selector has its bit. Where IPX, a UDP socket or the IP
 * helper library is missing, that family lists nothing and does not fail. The
 * IP helper library is loaded on the first IPv6 list and unloaded by the last
 * TOV_Cleanup(); the next IPv6 list loads it again.
 * @param family 2, 6 or 23; 0 for all three (IPX first, then IPv4, then IPv6);
 *        any other family lists nothing.
 * @param selector `TOV_IF_...` bits: the properties whose interfaces are listed.
 * @param count Required: the array's size going in (@p interfaces may be NULL
 *        when it is 0), the number of matching addresses coming out.
 * @param interfaces Receives the addresses, as far as the array goes (also
 *        with #TOV_ERR_BUFFER_TOO_SMALL, then the first ones).
 * @return #TOV_OK; #TOV_ERR_BUFFER_TOO_SMALL when more addresses match than the
 *         array holds; otherwise the IPX list's failure, else the status of the
 *         last of the IPv4 and IPv6 lists made (so with family 0 an IPv6
 *         failure hides an IPv4 one); a family whose list failed contributes
 *         nothing.
 */
TOV_API TOV_Status TOV_SktEnumInterfaces(uint32_t family, uint32_t selector, uint32_t *count,
                                         TOV_SktInterface *interfaces) TOV_NOEXCEPT;

/** @} */
/* (end of address lists and interface enumeration) */

#ifdef __cplusplus
}
#endif

#endif /* TOV_H */
