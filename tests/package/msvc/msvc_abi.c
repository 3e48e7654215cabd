/*
 * A program of the Visual C++ toolchain's ABI: built by clang for the msvc
 * target and linked by lld-link against tov.lib, with no C runtime at all.
 * One call of each family, each result checked; the report goes to standard
 * output and the exit code is the number of failed checks. No initialiser
 * fills an array or record here: the compiler would call memset for it.
 */
#include <tov.h>

/* The record layouts a program of either toolchain shares with the DLL. */
_Static_assert(sizeof(TOV_FileInfo) == 24, "TOV_FileInfo");
_Static_assert(sizeof(TOV_FDSResult) == 24, "TOV_FDSResult");
_Static_assert(sizeof(TOV_AddrBuf) == 80, "TOV_AddrBuf");
_Static_assert(sizeof(TOV_SktInterface) == 72, "TOV_SktInterface");
_Static_assert(sizeof(TOV_Guid) == 16, "TOV_Guid");
_Static_assert(sizeof(wchar_t) == 2, "wchar_t");

/* No system headers on this toolchain: the three system calls it needs. */
__declspec(dllimport) void *__stdcall GetStdHandle(uint32_t which);
__declspec(dllimport) int __stdcall WriteFile(void *file, const void *data, uint32_t size,
                                              uint32_t *written, void *overlapped);
__declspec(dllimport) void __stdcall ExitProcess(uint32_t code);

static uint32_t failures;

static uint32_t length(const char *s) {
  uint32_t n = 0;
  while (s[n]) n++;
  return n;
}

static int same(const char *a, const char *b, uint32_t n) {
  for (uint32_t i = 0; i < n; i++)
    if (a[i] != b[i]) return 0;
  return 1;
}

static void say(const char *text) {
  uint32_t written;
  WriteFile(GetStdHandle((uint32_t)-11), text, length(text), &written, 0);
}

static void check(int ok, const char *what) {
  say(ok ? "ok   " : "FAIL ");
  say(what);
  say("\n");
  if (!ok) failures++;
}

static uint32_t worker(void *argument) {
  *(uint32_t *)argument += 1;
  return 42;
}

static void file(void) {
  TOV_FileHandle f = 0;
  check(TOV_FileOpen("msvc_abi.tmp",
                     TOV_FILE_READ | TOV_FILE_WRITE | TOV_FILE_CREATE | TOV_FILE_TRUNCATE, 0, 0,
                     &f) == TOV_OK,
        "file: open");
  uint64_t count = 5, position = 1;
  char back[8];
  TOV_FileInfo info;
  check(TOV_FileWrite(f, 0, "hello", &count) == TOV_OK && count == 5, "file: write 5 bytes");
  count = sizeof back;
  check(TOV_FileRead(f, &position, back, &count) == TOV_OK && count == 4 && position == 5 &&
            same(back, "ello", 4),
        "file: read 4 bytes at position 1");
  check(TOV_FileInfoByHandle(f, &info) == TOV_OK && info.size == 5 && info.modified > 0,
        "file: information record");
  check(TOV_FileClose(&f) == TOV_OK && f == 0, "file: close");
  check(TOV_FileDelete("msvc_abi.tmp") == TOV_OK, "file: delete");
}

static void mutexAndThread(void) {
  TOV_MutexHandle m = 0;
  check(TOV_MutexCreate(0, &m) == TOV_OK && TOV_MutexAcquire(m) == TOV_OK &&
            TOV_MutexRelease(m) == TOV_OK && TOV_MutexDestroy(&m) == TOV_OK && m == 0,
        "mutex: create, acquire, release, destroy");

  uint32_t counter = 1, exitCode = 0;
  TOV_ThreadHandle t = 0;
  check(TOV_ThreadCreate(worker, &counter, 0, &t) == TOV_OK &&
            TOV_ThreadWait(t, TOV_WAIT_INFINITE) == TOV_OK &&
            TOV_ThreadGetExitCode(t, &exitCode) == TOV_OK && exitCode == 42 && counter == 2 &&
            TOV_ThreadDestroy(&t) == TOV_OK,
        "thread: runs with its argument, exit code 42");
}

/* A listener on a loopback port the system picks, a client connected to the
 * address read back as text, one message across. */
static void socketPair(void) {
  uint64_t address[4], size = sizeof address; /* room for an IPv4 record */
  uint32_t flags = 0;
  check(TOV_SktPresentationToNet("tcp:127.0.0.1:0", &flags, (struct sockaddr *)address, &size) ==
                TOV_OK &&
            size == 16 && flags == (TOV_PRES_PREFIX | TOV_PRES_STREAM | TOV_PRES_PORT),
        "text form: tcp:127.0.0.1:0 read");

  TOV_Skt *listener = 0, *client = 0, *server = 0;
  int32_t addressLength = (int32_t)sizeof address;
  check(TOV_SktCreate(2, 1, 6, &listener) == TOV_OK &&
            TOV_SktBind(listener, (struct sockaddr *)address, size) == TOV_OK &&
            TOV_SktListen(listener, 1) == TOV_OK &&
            TOV_SktGetLocalAddress(listener, (struct sockaddr *)address, &addressLength) == TOV_OK,
        "socket: listener on loopback");

  char text[TOV_PRES_MAX_TEXT];
  check(TOV_SktNetToPresentation((struct sockaddr *)address,
                                 TOV_PRES_PREFIX | TOV_PRES_STREAM | TOV_PRES_PORT,
                                 text) == TOV_OK &&
            same(text, "tcp:127.0.0.1:", 14) && text[14] >= '1' && text[14] <= '9',
        "text form: the listener's address written");

  char received[8];
  uint64_t sent = 0, got = 0;
  uint32_t receiveFlags = 0;
  check(TOV_SktCreate(2, 1, 6, &client) == TOV_OK &&
            TOV_SktConnect(client, (struct sockaddr *)address, (uint64_t)addressLength) == TOV_OK &&
            TOV_SktAccept(listener, &server, 0, 0) == TOV_OK &&
            TOV_SktSendBuf(client, "ping", 4, &sent, 0, 0, 0, 0) == TOV_OK && sent == 4 &&
            TOV_SktRecvBuf(server, received, sizeof received, &got, &receiveFlags, 0, 0, 0) ==
                TOV_OK &&
            got == 4 && same(received, "ping", 4),
        "socket: pair over loopback, 4 bytes across");
  check(TOV_SktDestroy(&server) == TOV_OK && TOV_SktDestroy(&client) == TOV_OK &&
            TOV_SktDestroy(&listener) == TOV_OK && listener == 0,
        "socket: destroy");
}

void abiMain(void) {
  check(TOV_Startup(0, 0, 0, 0) == TOV_OK && TOV_GetVersion() == TOV_INTERFACE_VERSION,
        "start-up, interface version");
  file();
  mutexAndThread();
  socketPair();
  TOV_Cleanup(0);
  TOV_MutexHandle m = 0;
  check(TOV_MutexCreate(0, &m) == TOV_ERR_NOT_INITIALIZED && m == 0,
        "clean-up: the library is down");
  say(failures ? "msvc abi FAILED\n" : "msvc abi ok\n");
  ExitProcess(failures);
}
