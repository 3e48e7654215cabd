// Stack walks of captured threads and symbol look-ups, through the platform's
// debug-help library, which is loaded on first need and unloaded by the
// library's clean-up.
#include "stackwalk.h"

#include "process.h"

#include "frame/dynlib.h"
#include "frame/errors.h"
#include "frame/handle.h"
#include "frame/lifecycle.h"

#include <cstddef>
#include <cstring>

namespace {

constinit tov::DynLibrary g_dbgHelp{"dbghelp.dll",
                                    tov::DynLibraryBase::Load::Owned,
                                    "SymInitialize",
                                    "StackWalk64",
                                    "SymLoadModule64",
                                    "SymGetOptions",
                                    "SymSetOptions",
                                    "SymGetSymFromAddr64",
                                    "SymGetLineFromAddr64",
                                    "SymGetModuleInfo64",
                                    "SymFunctionTableAccess64",
                                    "SymGetModuleBase64",
                                    "SymCleanup"};
// Indexes into the table above.
constexpr size_t kInitialize = 0, kStackWalk = 1, kLoadModule = 2, kGetOptions = 3, kSetOptions = 4,
                 kSymFromAddr = 5, kLineFromAddr = 6, kModuleInfo = 7, kFunctionTable = 8,
                 kModuleBase = 9, kCleanup = 10;

using InitializeFn = BOOL WINAPI(HANDLE, PCSTR, BOOL);
using StackWalkFn = BOOL WINAPI(DWORD, HANDLE, HANDLE, STACKFRAME64 *, void *,
                                PREAD_PROCESS_MEMORY_ROUTINE64, PFUNCTION_TABLE_ACCESS_ROUTINE64,
                                PGET_MODULE_BASE_ROUTINE64, PTRANSLATE_ADDRESS_ROUTINE64);
using LoadModuleFn = DWORD64 WINAPI(HANDLE, HANDLE, PCSTR, PCSTR, DWORD64, DWORD);
using GetOptionsFn = DWORD WINAPI();
using SetOptionsFn = DWORD WINAPI(DWORD);
using SymFromAddrFn = BOOL WINAPI(HANDLE, DWORD64, DWORD64 *, IMAGEHLP_SYMBOL64 *);
using LineFromAddrFn = BOOL WINAPI(HANDLE, DWORD64, DWORD *, IMAGEHLP_LINE64 *);
using ModuleInfoFn = BOOL WINAPI(HANDLE, DWORD64, IMAGEHLP_MODULE64 *);
using FunctionTableFn = void *WINAPI(HANDLE, DWORD64);
using ModuleBaseFn = DWORD64 WINAPI(HANDLE, DWORD64);
using CleanupFn = BOOL WINAPI(HANDLE);

static_assert(sizeof(IMAGEHLP_SYMBOL64) == 32 && sizeof(IMAGEHLP_LINE64) == 40 &&
              sizeof(IMAGEHLP_MODULE64) == 1680);

// The one symbol handler of the process is known to the debug-help library
// by this value, in the place of a process handle.
const HANDLE kHandler = reinterpret_cast<HANDLE>(0x12344321);
constexpr DWORD kLoadLines = 0x10, kUndecorate = 0x2; // SYMOPT_LOAD_LINES, SYMOPT_UNDNAME
constexpr DWORD kSnapModules = 8;
constexpr DWORD kProcessRead = PROCESS_VM_READ; // 0x0010
constexpr size_t kPathSize = 260;

constinit bool g_handlerStarted = false;

// The debug-help library is not safe for concurrent use: look-ups and walk
// steps take this lock around their debug-help calls.
constinit SRWLOCK g_lock = SRWLOCK_INIT;
class Locked {
public:
  Locked() noexcept { AcquireSRWLockExclusive(&g_lock); }
  ~Locked() { ReleaseSRWLockExclusive(&g_lock); }
  Locked(const Locked &) = delete;
  Locked &operator=(const Locked &) = delete;
};

// The debug-help library calls the walker's routines with the process handle
// given to the walker, and the handler is registered under kHandler, not
// under that handle: as given, every function-table and module-base look-up
// would fail and the walk would end after its first frame. These forwarders
// name the handler instead. On every system that is the value the handler
// was started with, so it is right wherever the library runs; the real
// process handle still serves the walker's memory reads.
void *WINAPI functionTableOfHandler(HANDLE, DWORD64 address) {
  return g_dbgHelp.call<FunctionTableFn>(kFunctionTable, static_cast<void *>(nullptr), kHandler,
                                         address);
}
DWORD64 WINAPI moduleBaseOfHandler(HANDLE, DWORD64 address) {
  return g_dbgHelp.call<ModuleBaseFn>(kModuleBase, DWORD64{0}, kHandler, address);
}

// The symbol search path, built part by part. A part is kept, followed by
// ";", only when it fits whole with the byte after it; at the end the last
// ";" becomes the terminator.
class SearchPath {
public:
  char *end() noexcept { return text_ + used_; }
  DWORD room() const noexcept { return static_cast<DWORD>(kPathSize - used_); }
  // Keeps the part a platform call wrote at end() when given room(); a call
  // that wrote nothing (length 0) or wanted more room adds nothing.
  void take(size_t length) noexcept {
    if (length == 0 || length + 1 > room()) return;
    used_ += length;
    text_[used_++] = ';';
  }
  // Appends a part, also an empty one.
  void append(const char *part, size_t length) noexcept {
    if (length + 1 > room()) return;
    std::memcpy(end(), part, length);
    used_ += length;
    text_[used_++] = ';';
  }
  // The last ";" becomes the terminator.
  const char *finish() noexcept {
    text_[used_ == 0 ? 0 : used_ - 1] = '\0';
    return text_;
  }

private:
  char text_[kPathSize];
  size_t used_ = 0;
};

// The current directory; the executable's directory; three variables.
void buildSearchPath(SearchPath &path) noexcept {
  path.take(GetCurrentDirectoryA(path.room(), path.end()));
  char exe[kPathSize];
  const DWORD n = GetModuleFileNameA(nullptr, exe, kPathSize);
  if (n > 0 && n < kPathSize) {
    // Cut at the last "\", else the last "/", else just after the last ":".
    const char *cut = std::strrchr(exe, '\\');
    if (!cut) cut = std::strrchr(exe, '/');
    if (!cut && (cut = std::strrchr(exe, ':'))) ++cut;
    if (cut) path.append(exe, static_cast<size_t>(cut - exe));
  }
  for (const char *name : {"_NT_SYMBOL_PATH", "_NT_ALTERNATE_SYMBOL_PATH", "SYSTEMROOT"})
    path.take(GetEnvironmentVariableA(name, path.end(), path.room()));
}

// Starts the handler unless it runs: line information on, names as the
// compiler stored them, the search path. The status says why it did not.
TOV_Status startHandler() noexcept {
  if (g_handlerStarted) return TOV_OK;
  const DWORD options = g_dbgHelp.call<GetOptionsFn>(kGetOptions, DWORD{0});
  g_dbgHelp.call<SetOptionsFn>(kSetOptions, DWORD{0}, (options | kLoadLines) & ~kUndecorate);
  SearchPath path;
  buildSearchPath(path);
  // Without the library (or its entry point) the module counts as not found.
  auto *initialize = g_dbgHelp.get<InitializeFn>(kInitialize);
  if (!initialize) return tov::MapSystemError(ERROR_MOD_NOT_FOUND);
  if (!initialize(kHandler, path.finish(), FALSE)) return tov::MapLastSystemError();
  g_handlerStarted = true;
  return TOV_OK;
}

// Offers every module of the process to the handler; modules it knows
// already are refused, which is harmless.
void loadModules(uint64_t processId) noexcept {
  tov::UniqueHandle snapshot(tov::toolHelpSnapshot(kSnapModules, static_cast<DWORD>(processId)));
  if (!snapshot) return;
  MODULEENTRY32 module{};
  module.dwSize = sizeof module;
  for (BOOL more = tov::toolHelpModuleFirst(snapshot.get(), &module); more;
       more = tov::toolHelpModuleNext(snapshot.get(), &module))
    g_dbgHelp.call<LoadModuleFn>(kLoadModule, DWORD64{0}, kHandler, HANDLE{}, module.szExePath,
                                 module.szModule, reinterpret_cast<DWORD64>(module.modBaseAddr),
                                 module.modBaseSize);
}

// Copies text cut to size bytes (size > 0), terminated in the last byte.
void copyCut(char *buffer, uint64_t size, const char *text) noexcept {
  TOV_strnzcpy(buffer, text ? text : "", static_cast<size_t>(size));
}

} // namespace

namespace tov {

void debugHelpCleanup() noexcept {
  if (g_handlerStarted) {
    g_dbgHelp.call<CleanupFn>(kCleanup, FALSE, kHandler);
    g_handlerStarted = false;
  }
  g_dbgHelp.forget();
  forgetToolHelp();
}

} // namespace tov

extern "C" TOV_Status TOV_SysStackWalk(TOV_ThreadCtxHandle handle, uint64_t *address) noexcept {
  TOV_FRAME(handle && address);
  auto *ctx = static_cast<tov::ThreadCtx *>(handle);
  STACKFRAME64 &frame = ctx->frame;
  if (*address == 0) {
    frame = STACKFRAME64{};
    frame.AddrPC.Offset = ctx->context.Rip;
    frame.AddrPC.Mode = AddrModeFlat;
    frame.AddrFrame.Offset = ctx->context.Rsp;
    frame.AddrFrame.Mode = AddrModeFlat;
    *address = ctx->context.Rip;
    return TOV_OK;
  }
  if (ctx->process == INVALID_HANDLE_VALUE) {
    HANDLE process = OpenProcess(kProcessRead, FALSE, static_cast<DWORD>(ctx->processId));
    if (!process) return tov::MapLastSystemError();
    ctx->process = process;
  }
  Locked locked;
  if (!g_dbgHelp.call<StackWalkFn>(kStackWalk, FALSE, IMAGE_FILE_MACHINE_AMD64, ctx->process,
                                   ctx->thread, &frame, &ctx->context, nullptr,
                                   functionTableOfHandler, moduleBaseOfHandler, nullptr) &&
      frame.AddrReturn.Offset != 0)
    return tov::MapLastSystemError();
  *address = frame.AddrReturn.Offset;
  return TOV_OK;
}

extern "C" TOV_Status TOV_SysGetSymbolInfo(uint64_t processId, uint64_t address, char *name,
                                           uint64_t nameSize, uint64_t *displacementOut, char *file,
                                           uint64_t fileSize, uint32_t *lineOut, char *moduleName,
                                           uint64_t moduleNameSize, uint64_t *moduleBaseOut,
                                           uint64_t *moduleSizeOut,
                                           uint64_t *moduleTimeStampOut) noexcept {
  TOV_FRAME(processId != 0 && (name || nameSize == 0) && (file || fileSize == 0) &&
            (moduleName || moduleNameSize == 0));
  Locked locked;
  if (const TOV_Status status = startHandler(); status != TOV_OK) return status;
  loadModules(processId);

  // The symbol record with room for the name and its terminator.
  size_t recordSize;
  if (__builtin_add_overflow(nameSize, 32, &recordSize)) return TOV_ERR_NO_MEMORY;
  tov::UniqueBlock<IMAGEHLP_SYMBOL64> symbol(
      static_cast<IMAGEHLP_SYMBOL64 *>(TOV_malloc(tov::libTag(), recordSize)));
  if (!symbol) return TOV_ERR_NO_MEMORY;

  // A piece that was not asked for counts as found.
  TOV_Status nameStatus = TOV_OK, lineStatus = TOV_OK, moduleStatus = TOV_OK;
  if (nameSize > 0) {
    name[0] = '\0';
    symbol->SizeOfStruct = sizeof(IMAGEHLP_SYMBOL64);
    // Cut to 32 bits the room only shrinks; the record holds nameSize + 4
    // name bytes. A room cut to 0 leaves the name unwritten: start it empty.
    symbol->MaxNameLength = static_cast<DWORD>(nameSize + 1);
    symbol->Name[0] = '\0';
    DWORD64 displacement = 0;
    if (g_dbgHelp.call<SymFromAddrFn>(kSymFromAddr, FALSE, kHandler, address, &displacement,
                                      symbol.get())) {
      copyCut(name, nameSize, symbol->Name);
      if (displacementOut) *displacementOut = displacement;
    } else {
      nameStatus = tov::MapLastSystemError();
    }
  }
  if (lineOut || fileSize > 0) {
    if (lineOut) *lineOut = 0;
    if (fileSize > 0) file[0] = '\0';
    IMAGEHLP_LINE64 line{};
    line.SizeOfStruct = sizeof line;
    DWORD unused = 0;
    if (g_dbgHelp.call<LineFromAddrFn>(kLineFromAddr, FALSE, kHandler, address, &unused, &line)) {
      if (lineOut) *lineOut = line.LineNumber;
      if (fileSize > 0) copyCut(file, fileSize, line.FileName);
    } else {
      lineStatus = tov::MapLastSystemError();
    }
  }
  if (moduleNameSize > 0 || moduleBaseOut || moduleSizeOut || moduleTimeStampOut) {
    if (moduleNameSize > 0) moduleName[0] = '\0';
    for (uint64_t *out : {moduleBaseOut, moduleSizeOut, moduleTimeStampOut})
      if (out) *out = 0;
    IMAGEHLP_MODULE64 module{};
    module.SizeOfStruct = sizeof module;
    if (g_dbgHelp.call<ModuleInfoFn>(kModuleInfo, FALSE, kHandler, address, &module)) {
      if (moduleNameSize > 0) copyCut(moduleName, moduleNameSize, module.ImageName);
      if (moduleBaseOut) *moduleBaseOut = module.BaseOfImage;
      if (moduleSizeOut) *moduleSizeOut = module.ImageSize;
      if (moduleTimeStampOut) *moduleTimeStampOut = module.TimeDateStamp;
    } else {
      moduleStatus = tov::MapLastSystemError();
    }
  }
  const bool allFailed = nameStatus != TOV_OK && lineStatus != TOV_OK && moduleStatus != TOV_OK;
  return allFailed ? nameStatus : TOV_OK;
}
