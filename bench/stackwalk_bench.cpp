// A 20-frame stack walk with a symbol look-up per frame (name, line and
// module) against the same walk on the raw debug-help calls.
#include "bench.h"
#include "tov.h"

#include <windows.h>

#include <dbghelp.h>
#include <tlhelp32.h>

namespace {

constexpr int kFrames = 20;

struct Worker {
  HANDLE release;
  DWORD id;
};

} // namespace

// Recurses a few frames past the walked ones, then waits.
extern "C" __attribute__((noinline, noipa)) int tovBenchDepth(Worker *w, int depth) {
  if (depth == 0) return static_cast<int>(WaitForSingleObject(w->release, INFINITE));
  int result = tovBenchDepth(w, depth - 1);
  asm volatile("" : "+r"(result)); // keeps the recursion from becoming a loop
  return result + 1;
}

namespace {

DWORD WINAPI workerMain(void *w) {
  return static_cast<DWORD>(tovBenchDepth(static_cast<Worker *>(w), kFrames + 4));
}

// The library: capture, walk, one look-up per frame, free.
int libraryWalk(DWORD threadId) {
  int tag;
  TOV_ThreadCtxHandle ctx = nullptr;
  if (TOV_SysAllocThreadCtx(&tag, GetCurrentProcessId(), threadId, &ctx) != TOV_OK) return 0;
  uint64_t address = 0;
  int i = 0;
  for (; i < kFrames && TOV_SysStackWalk(ctx, &address) == TOV_OK && address; ++i) {
    char name[256], file[MAX_PATH], module[MAX_PATH];
    uint64_t displacement, base, size, stamp;
    uint32_t line;
    TOV_SysGetSymbolInfo(GetCurrentProcessId(), address, name, sizeof name, &displacement, file,
                         sizeof file, &line, module, sizeof module, &base, &size, &stamp);
    bench::keep(name);
  }
  TOV_SysFreeThreadCtx(ctx);
  return i;
}

// The raw calls, written as the library makes them: a symbol handler of
// their own known by a value of its own, the walker's routines forwarded to
// it, the process opened per walk for the memory reads, and the process's
// modules offered to the handler before each look-up.
const HANDLE kRawHandler = reinterpret_cast<HANDLE>(0x5150ABC0);

PVOID WINAPI functionTable(HANDLE, DWORD64 address) {
  return SymFunctionTableAccess64(kRawHandler, address);
}
DWORD64 WINAPI moduleBase(HANDLE, DWORD64 address) {
  return SymGetModuleBase64(kRawHandler, address);
}

void offerModules() {
  HANDLE snapshot = CreateToolhelp32Snapshot(TH32CS_SNAPMODULE, GetCurrentProcessId());
  if (snapshot == INVALID_HANDLE_VALUE) return;
  MODULEENTRY32 m{};
  m.dwSize = sizeof m;
  for (BOOL more = Module32First(snapshot, &m); more; more = Module32Next(snapshot, &m))
    SymLoadModule64(kRawHandler, nullptr, m.szExePath, m.szModule,
                    reinterpret_cast<DWORD64>(m.modBaseAddr), m.modBaseSize);
  CloseHandle(snapshot);
}

int rawWalk(DWORD threadId, bool offerEachTime) {
  HANDLE thread = OpenThread(THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT, FALSE, threadId);
  HANDLE process = OpenProcess(PROCESS_VM_READ, FALSE, GetCurrentProcessId());
  SuspendThread(thread);
  CONTEXT context{};
  context.ContextFlags = CONTEXT_FULL;
  GetThreadContext(thread, &context);
  STACKFRAME64 frame{};
  frame.AddrPC = {context.Rip, 0, AddrModeFlat};
  frame.AddrFrame = {context.Rsp, 0, AddrModeFlat};
  DWORD64 address = context.Rip;
  int i = 0;
  for (; i < kFrames && address; ++i) {
    if (offerEachTime) offerModules();
    alignas(IMAGEHLP_SYMBOL64) char record[sizeof(IMAGEHLP_SYMBOL64) + 256];
    auto *symbol = reinterpret_cast<IMAGEHLP_SYMBOL64 *>(record);
    symbol->SizeOfStruct = sizeof(IMAGEHLP_SYMBOL64);
    symbol->MaxNameLength = 256;
    DWORD64 displacement;
    SymGetSymFromAddr64(kRawHandler, address, &displacement, symbol);
    IMAGEHLP_LINE64 line{};
    line.SizeOfStruct = sizeof line;
    DWORD lineDisplacement;
    SymGetLineFromAddr64(kRawHandler, address, &lineDisplacement, &line);
    IMAGEHLP_MODULE64 module{};
    module.SizeOfStruct = sizeof module;
    SymGetModuleInfo64(kRawHandler, address, &module);
    bench::keep(record);
    address = StackWalk64(IMAGE_FILE_MACHINE_AMD64, process, thread, &frame, &context, nullptr,
                          functionTable, moduleBase, nullptr)
                  ? frame.AddrReturn.Offset
                  : 0;
  }
  ResumeThread(thread);
  CloseHandle(thread);
  CloseHandle(process);
  return i;
}

} // namespace

int main() {
  TOV_Startup(nullptr, 0, nullptr, nullptr);
  Worker worker{CreateEventA(nullptr, TRUE, FALSE, nullptr), 0};
  HANDLE thread = CreateThread(nullptr, 0, workerMain, &worker, 0, &worker.id);
  Sleep(200); // let the worker reach its wait
  SymSetOptions(SymGetOptions() | SYMOPT_LOAD_LINES);
  SymInitialize(kRawHandler, nullptr, FALSE);
  // Both handlers load every module once before timing starts.
  const int libFrames = libraryWalk(worker.id), rawFrames = rawWalk(worker.id, true);
  std::printf("frames walked: library %d, raw %d\n", libFrames, rawFrames);

  constexpr uint64_t kWalks = 3;
  double lib = 1e300, raw = 1e300, rawOnce = 1e300;
  for (int r = 0; r < 5; ++r) { // alternating, so that load changes hit all alike
    const double l = bench::nsPerOp(
        kWalks, [&](uint64_t) { libraryWalk(worker.id); }, 1);
    const double w = bench::nsPerOp(
        kWalks, [&](uint64_t) { rawWalk(worker.id, true); }, 1);
    const double o = bench::nsPerOp(
        kWalks, [&](uint64_t) { rawWalk(worker.id, false); }, 1);
    lib = l < lib ? l : lib;
    raw = w < raw ? w : raw;
    rawOnce = o < rawOnce ? o : rawOnce;
  }
  bench::report("20-frame walk + look-ups vs raw calls, same work", lib / 1e6, raw / 1e6, 1.1,
                "ms/walk");
  bench::report("... vs raw calls offering the modules only once", lib / 1e6, rawOnce / 1e6, 0,
                "ms/walk");

  SetEvent(worker.release);
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
  SymCleanup(kRawHandler);
  TOV_Cleanup(nullptr);
  return 0;
}
