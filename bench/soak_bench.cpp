// Soak: create/use/destroy cycles of every family's objects, each cycle
// inside a start-up and its clean-up, with the process's handle and memory
// figures printed at the start, middle and end. Flat figures mean nothing
// leaks.
//
//   soak_bench [cycles]     (100000 by default)
//
// "start" is taken after a few warm-up cycles (the platform's one-time
// allocations). The program fails (exit 1) when a call fails, or when the
// handles or the C runtime heap's blocks at the end are above "start".
// Figures: the handle count (GetProcessHandleCount; Wine reports 0) and the
// highest slot of 64 fresh handles (Wine hands out the lowest free slots, so
// a leaked handle raises it); the heap's blocks and bytes in use (the
// library allocates from the C runtime heap) and the bytes in use on all the
// process's heaps (the platform's DLLs allocate there); committed memory
// (Windows: PrivateUsage; Wine reads 0 there, PagefileUsage moves with
// touched pages).
//
// Under Wine every start of the symbol handler after the debug-help library
// was unloaded (the last clean-up unloads it) leaves about 16 KB on the
// process's heaps, whoever calls it: the process-heap and PagefileUsage
// figures rise by that once per hundred cycles here, while the C runtime heap
// and the handles stay flat.
#include "footprint.h"
#include "tov.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <psapi.h>

#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

int g_failures = 0;

void ok(TOV_Status status, const char *what) {
  if (status != TOV_OK && ++g_failures <= 10) std::printf("FAILED %s: %d\n", what, status);
}

struct Figures {
  DWORD handles = 0;
  uintptr_t topSlot = 0;
  size_t heapBlocks = 0, heapBytes = 0, processHeaps = 0, committed = 0, pagefile = 0;
};

Figures measure() {
  Figures f;
  const tovtest::HandleFootprint handles = tovtest::handleFootprint();
  f.handles = handles.count;
  for (HANDLE h : handles.slots) f.topSlot = std::max(f.topSlot, reinterpret_cast<uintptr_t>(h));
  _HEAPINFO entry{};
  while (_heapwalk(&entry) == _HEAPOK)
    if (entry._useflag == _USEDENTRY) ++f.heapBlocks, f.heapBytes += entry._size;
  HANDLE heaps[64];
  const DWORD n = GetProcessHeaps(64, heaps);
  for (DWORD i = 0; i < n && i < 64; ++i)
    for (PROCESS_HEAP_ENTRY e{}; HeapWalk(heaps[i], &e);)
      if (e.wFlags & PROCESS_HEAP_ENTRY_BUSY) f.processHeaps += e.cbData;
  PROCESS_MEMORY_COUNTERS_EX memory{};
  memory.cb = sizeof memory;
  if (GetProcessMemoryInfo(GetCurrentProcess(),
                           reinterpret_cast<PROCESS_MEMORY_COUNTERS *>(&memory), sizeof memory)) {
    f.committed = memory.PrivateUsage;
    f.pagefile = memory.PagefileUsage;
  }
  return f;
}

void print(const char *when, long cycle, const Figures &f) {
  std::printf("%-6s cycle %7ld  handles %5lu  top handle slot 0x%05llx  heap blocks %6zu  "
              "heap bytes %9zu  process heaps %9zu  committed %9zu  pagefile %10zu\n",
              when, cycle, f.handles, static_cast<unsigned long long>(f.topSlot), f.heapBlocks,
              f.heapBytes, f.processHeaps, f.committed, f.pagefile);
  std::fflush(stdout);
}

// A thread that pushes a description and waits until told to end.
uint32_t worker(void *go) {
  TOV_ThreadPushDescriptionPtr(go);
  WaitForSingleObject(go, INFINITE);
  TOV_ThreadPopDescriptionPtr();
  return 7;
}

void files(const std::string &dir) {
  const std::string path = dir + "\\soak.bin";
  TOV_FileHandle file = nullptr;
  ok(TOV_FileOpen(path.c_str(), TOV_FILE_READ | TOV_FILE_WRITE | TOV_FILE_CREATE, 0, 0, &file),
     "FileOpen");
  uint64_t position = 0, count = 8, size = 0;
  ok(TOV_FileWrite(file, &position, "12345678", &count), "FileWrite");
  char buffer[8];
  position = 0;
  ok(TOV_FileRead(file, &position, buffer, &count), "FileRead");
  ok(TOV_FileSize(file, &size), "FileSize");
  TOV_FileInfo info;
  ok(TOV_FileInfoByHandle(file, &info), "FileInfoByHandle");
  ok(TOV_FileClose(&file), "FileClose");
  TOV_DirHandle listing = nullptr;
  ok(TOV_DirOpen(dir.c_str(), "*.bin", &listing), "DirOpen");
  const char *name = nullptr;
  ok(TOV_DirRead(listing, &name, nullptr, nullptr), "DirRead");
  ok(TOV_DirClose(&listing), "DirClose");
  ok(TOV_FileDelete(path.c_str()), "FileDelete");
  TOV_ModHandle module = nullptr;
  void *symbol = nullptr;
  ok(TOV_ModLoad("version", &module), "ModLoad");
  ok(TOV_ModResolveSym(module, "GetFileVersionInfoA", &symbol), "ModResolveSym");
  char version[32];
  ok(TOV_ModGetTimeVersion(module, nullptr, version, sizeof version), "ModGetTimeVersion");
  ok(TOV_ModUnload(module), "ModUnload");
}

void locks() {
  TOV_EventHandle event = nullptr;
  ok(TOV_EventCreate(nullptr, 1, 0, &event), "EventCreate");
  ok(TOV_EventSet(event), "EventSet");
  ok(TOV_EventWait(event, 0), "EventWait");
  ok(TOV_EventDestroy(&event), "EventDestroy");
  TOV_MutexHandle mutex = nullptr;
  ok(TOV_MutexCreate(nullptr, &mutex), "MutexCreate");
  ok(TOV_MutexAcquire(mutex), "MutexAcquire");
  ok(TOV_MutexRelease(mutex), "MutexRelease");
  ok(TOV_MutexDestroy(&mutex), "MutexDestroy");
  TOV_SemHandle sem = nullptr;
  ok(TOV_SemCreate(nullptr, 0, 2, &sem), "SemCreate");
  ok(TOV_SemSignal(sem, 1), "SemSignal");
  ok(TOV_SemAcquire(sem, 0), "SemAcquire");
  ok(TOV_SemDestroy(&sem), "SemDestroy");
  TOV_LMutexHandle lmutex = nullptr;
  TOV_CondHandle cond = nullptr;
  ok(TOV_LMutexCreate(&lmutex, 100), "LMutexCreate");
  ok(TOV_CondCreate(&cond), "CondCreate");
  ok(TOV_LMutexAcquire(lmutex), "LMutexAcquire");
  ok(TOV_CondSignal(cond), "CondSignal");
  if (TOV_CondWait(cond, lmutex, 0) != TOV_ERR_TIMEOUT) ok(-1, "CondWait");
  ok(TOV_LMutexRelease(lmutex), "LMutexRelease");
  ok(TOV_CondDestroy(&cond), "CondDestroy");
  ok(TOV_LMutexDestroy(&lmutex), "LMutexDestroy");
  TOV_RWLockHandle rw = nullptr;
  ok(TOV_RWLockCreate(&rw), "RWLockCreate");
  ok(TOV_RWLockAcquire(rw, 0), "RWLockAcquire");
  ok(TOV_RWLockRelease(rw), "RWLockRelease");
  ok(TOV_RWLockDestroy(&rw), "RWLockDestroy");
}

// A thread with a description, its context captured and walked, its symbols
// looked up (every hundredth cycle: the symbol handler starts anew after each
// clean-up, which is slow), the CPU usage, TLS and the process lists.
void threadsAndSystem(bool symbols) {
  HANDLE go = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  TOV_ThreadHandle thread = nullptr;
  ok(TOV_ThreadCreate(worker, go, 0, &thread), "ThreadCreate");
  uint64_t id = 0, address = 0;
  ok(TOV_ThreadGetID(thread, &id), "ThreadGetID");
  void *descriptions[4];
  uint32_t depth = 0;
  while (depth == 0) { // until the thread has pushed
    depth = 4;
    ok(TOV_ThreadGetDescriptionPtrs(id, descriptions, &depth), "ThreadGetDescriptionPtrs");
  }
  TOV_ThreadCtxHandle ctx = nullptr;
  ok(TOV_SysAllocThreadCtx(&ctx, GetCurrentProcessId(), id, &ctx), "SysAllocThreadCtx");
  if (symbols) {
    char name[64];
    ok(TOV_SysGetSymbolInfo(GetCurrentProcessId(), reinterpret_cast<uint64_t>(&worker), name,
                            sizeof name, nullptr, nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr,
                            nullptr),
       "SysGetSymbolInfo");
    for (int frame = 0; frame < 3; ++frame) ok(TOV_SysStackWalk(ctx, &address), "SysStackWalk");
  }
  ok(TOV_SysFreeThreadCtx(ctx), "SysFreeThreadCtx");
  SetEvent(go);
  ok(TOV_ThreadWait(thread, TOV_WAIT_INFINITE), "ThreadWait");
  uint32_t exitCode = 0;
  ok(TOV_ThreadGetExitCode(thread, &exitCode), "ThreadGetExitCode");
  ok(TOV_ThreadDestroy(&thread), "ThreadDestroy");
  CloseHandle(go);

  uint64_t key = 0;
  void *value = nullptr;
  ok(TOV_TLSCreate(&key), "TLSCreate");
  ok(TOV_TLSSetValue(key, &key), "TLSSetValue");
  ok(TOV_TLSGetValue(key, &value), "TLSGetValue");
  ok(TOV_TLSDestroy(&key), "TLSDestroy");
  TOV_CPUUsage *usage = nullptr;
  int32_t percent;
  ok(TOV_GetCPUUsageHandle(&usage), "GetCPUUsageHandle");
  ok(TOV_GetCPUUsagePercent(usage, &percent), "GetCPUUsagePercent");
  ok(TOV_FreeCPUUsageHandle(&usage), "FreeCPUUsageHandle");
  uint64_t ids[1024];
  uint32_t count = 1024;
  ok(TOV_SysEnumThreads(GetCurrentProcessId(), ids, &count), "SysEnumThreads");
  count = 1024;
  ok(TOV_SysEnumProcesses(ids, &count), "SysEnumProcesses");
}

void network() {
  TOV_Skt *listener = nullptr, *client = nullptr, *server = nullptr;
  sockaddr_in a{AF_INET, 0, {{{127, 0, 0, 1}}}, {}};
  auto *address = reinterpret_cast<sockaddr *>(&a);
  int32_t length = sizeof a;
  ok(TOV_SktCreate(AF_INET, SOCK_STREAM, 0, &listener), "SktCreate");
  ok(TOV_SktBind(listener, address, sizeof a), "SktBind");
  ok(TOV_SktListen(listener, 1), "SktListen");
  ok(TOV_SktGetLocalAddress(listener, address, &length), "SktGetLocalAddress");
  ok(TOV_SktCreate(AF_INET, SOCK_STREAM, 0, &client), "SktCreate");
  const linger abort{1, 0}; // reset on close: no port waits in TIME_WAIT
  ok(TOV_SktSetOption(client, SOL_SOCKET, SO_LINGER, &abort, sizeof abort), "SktSetOption");
  ok(TOV_SktConnect(client, address, sizeof a), "SktConnect");
  ok(TOV_SktAccept(listener, &server, nullptr, nullptr), "SktAccept");
  uint64_t sent = 0, received = 0;
  char buffer[4];
  ok(TOV_SktSendBuf(client, "ping", 4, &sent, 0, nullptr, 0, nullptr), "SktSendBuf");

  TOV_FDS *set = nullptr;
  TOV_FDSResult results[2];
  uint32_t count = 2;
  ok(TOV_FDSCreate(0, &set), "FDSCreate");
  ok(TOV_FDSAssociate(set, server, TOV_FDS_READ, 1), "FDSAssociate");
  ok(TOV_FDSAssociate(set, client, TOV_FDS_WRITE, 2), "FDSAssociate");
  ok(TOV_FDSSelect(set, TOV_FDS_READ | TOV_FDS_WRITE, results, &count, 5000), "FDSSelect");
  ok(TOV_SktRecvBuf(server, buffer, sizeof buffer, &received, nullptr, nullptr, nullptr, nullptr),
     "SktRecvBuf");
  ok(TOV_FDSRemove(set, client, nullptr), "FDSRemove");
  ok(TOV_FDSDestroy(&set, nullptr), "FDSDestroy");

  TOV_IOCPort *port = nullptr;
  ok(TOV_IOCPortCreate(0, &port), "IOCPortCreate");
  ok(TOV_IOCPortAssociate(port, server, 3), "IOCPortAssociate");
  ok(TOV_IOCPortDestroy(&port), "IOCPortDestroy");
  ok(TOV_SktDestroy(&server), "SktDestroy");
  ok(TOV_SktDestroy(&client), "SktDestroy");
  ok(TOV_SktDestroy(&listener), "SktDestroy");

  TOV_AddrBuf *list = nullptr;
  uint16_t portNumber = 0;
  ok(TOV_GetAddrBufList("127.0.0.1:80", &portNumber, &list), "GetAddrBufList");
  ok(TOV_FreeAddrBufList(list), "FreeAddrBufList");
  TOV_SktInterface interfaces[16];
  count = 16;
  ok(TOV_SktEnumInterfaces(0, TOV_IF_LOOPBACK, &count, interfaces), "SktEnumInterfaces");
  char text[TOV_PRES_MAX_TEXT];
  ok(TOV_SktNetToPresentation(address, TOV_PRES_PORT, text), "SktNetToPresentation");
}

} // namespace

int main(int argc, char **argv) {
  const long cycles = argc > 1 ? std::atol(argv[1]) : 100000;
  constexpr long kWarmUp = 20, kSymbolsEvery = 100;
  char temp[MAX_PATH];
  GetTempPathA(MAX_PATH, temp);
  const std::string dir = std::string(temp) + "tov-soak-" + std::to_string(GetCurrentProcessId());
  CreateDirectoryA(dir.c_str(), nullptr);

  print("before", 0, measure());
  Figures start;
  for (long cycle = 1; cycle <= kWarmUp + cycles; ++cycle) {
    ok(TOV_Startup(nullptr, 0, nullptr, nullptr), "Startup");
    files(dir);
    locks();
    threadsAndSystem(cycle % kSymbolsEvery == 1);
    network();
    TOV_Cleanup(nullptr);
    if (cycle == kWarmUp) print("start", 0, start = measure());
    if (cycle == kWarmUp + cycles / 2) print("middle", cycle - kWarmUp, measure());
  }
  const Figures end = measure();
  print("end", cycles, end);
  RemoveDirectoryA(dir.c_str());

  const bool grown = end.handles > start.handles || end.topSlot > start.topSlot ||
                     end.heapBlocks > start.heapBlocks;
  std::printf("%s\n", g_failures ? "calls failed" : grown ? "GROWN" : "flat");
  return g_failures || grown ? 1 : 0;
}
