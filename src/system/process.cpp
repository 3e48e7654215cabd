// Process and thread lists from tool-help snapshots, and the capture of
// another thread's context, held suspended until the record is freed.
#include "process.h"

#include "frame/dynlib.h"
#include "frame/errors.h"
#include "frame/handle.h"
#include "frame/lifecycle.h"

namespace {

// Tool help is reached through the resident kernel module at run time.
constinit tov::DynLibrary g_toolHelp{"kernel32.dll",
                                     tov::DynLibraryBase::Load::Resident,
                                     "CreateToolhelp32Snapshot",
                                     "OpenThread",
                                     "Process32First",
                                     "Process32Next",
                                     "Thread32First",
                                     "Thread32Next",
                                     "Module32First",
                                     "Module32Next"};
// Indexes into the table above.
constexpr size_t kSnapshot = 0, kOpenThread = 1, kProcessFirst = 2, kProcessNext = 3,
                 kThreadFirst = 4, kThreadNext = 5, kModuleFirst = 6, kModuleNext = 7;

using SnapshotFn = HANDLE WINAPI(DWORD, DWORD);
using OpenThreadFn = HANDLE WINAPI(DWORD, BOOL, DWORD);
template <typename Entry> using WalkFn = BOOL WINAPI(HANDLE, Entry *);

static_assert(sizeof(PROCESSENTRY32) == 304 && sizeof(THREADENTRY32) == 28 &&
              sizeof(MODULEENTRY32) == 568);

constexpr DWORD kSnapProcesses = 2, kSnapThreads = 4;
constexpr DWORD kThreadAccess = THREAD_SUSPEND_RESUME | THREAD_GET_CONTEXT; // 0x000A
// x86-64 with control, integer and floating-point registers.
constexpr DWORD kContextFlags = 0x10000B;

template <typename Entry> BOOL walk(size_t entry, HANDLE snapshot, Entry *e) noexcept {
  return g_toolHelp.call<WalkFn<Entry>>(entry, FALSE, snapshot, e);
}

// The count protocol over one snapshot: pick(entry, &id) says whether an entry
// counts and which id it gives.
template <typename Entry, typename Pick>
TOV_Status listIds(DWORD flags, uint64_t processId, size_t first, uint64_t *ids, uint32_t *count,
                   Pick pick) noexcept {
  tov::UniqueHandle snapshot(tov::toolHelpSnapshot(flags, static_cast<DWORD>(processId)));
  if (!snapshot) return tov::MapLastSystemError();
  Entry entry{};
  entry.dwSize = sizeof entry;
  const uint32_t room = *count;
  uint32_t found = 0;
  // Each walk's "next" entry point follows its "first" in the table.
  for (BOOL more = walk(first, snapshot.get(), &entry); more;
       more = walk(first + 1, snapshot.get(), &entry)) {
    uint64_t id;
    if (!pick(entry, &id)) continue;
    if (found < room) ids[found] = id;
    ++found;
  }
  // Running out of entries is the only good end of a walk.
  if (const TOV_Status end = tov::MapLastSystemError(); end != TOV_ERR_END_OF_DATA) return end;
  *count = found;
  return found > room ? TOV_ERR_BUFFER_TOO_SMALL : TOV_OK;
}

inline bool countArgsOk(const uint64_t *ids, const uint32_t *count) noexcept {
  return count && (ids || *count == 0);
}

} // namespace

namespace tov {

HANDLE toolHelpSnapshot(DWORD flags, DWORD processId) noexcept {
  return g_toolHelp.call<SnapshotFn>(kSnapshot, INVALID_HANDLE_VALUE, flags, processId);
}
BOOL toolHelpModuleFirst(HANDLE snapshot, MODULEENTRY32 *entry) noexcept {
  return walk(kModuleFirst, snapshot, entry);
}
BOOL toolHelpModuleNext(HANDLE snapshot, MODULEENTRY32 *entry) noexcept {
  return walk(kModuleNext, snapshot, entry);
}
void forgetToolHelp() noexcept {
  g_toolHelp.forget();
}

} // namespace tov

extern "C" TOV_Status TOV_SysEnumProcesses(uint64_t *ids, uint32_t *count) noexcept {
  TOV_FRAME(countArgsOk(ids, count));
  return listIds<PROCESSENTRY32>(kSnapProcesses, 0, kProcessFirst, ids, count,
                                 [](const PROCESSENTRY32 &e, uint64_t *id) {
                                   *id = e.th32ProcessID;
                                   return true;
                                 });
}

extern "C" TOV_Status TOV_SysEnumThreads(uint64_t processId, uint64_t *ids,
                                         uint32_t *count) noexcept {
  TOV_FRAME(countArgsOk(ids, count));
  // Some systems list every thread whatever process the snapshot names.
  return listIds<THREADENTRY32>(kSnapThreads, processId, kThreadFirst, ids, count,
                                [processId](const THREADENTRY32 &e, uint64_t *id) {
                                  *id = e.th32ThreadID;
                                  return e.th32OwnerProcessID == processId;
                                });
}

extern "C" TOV_Status TOV_SysGetCurrentProcessId(uint64_t *idOut) noexcept {
  TOV_FRAME(idOut != nullptr);
  *idOut = GetCurrentProcessId();
  return TOV_OK;
}

extern "C" TOV_Status TOV_SysAllocThreadCtx(TOV_MemTag tag, uint64_t processId, uint64_t threadId,
                                            TOV_ThreadCtxHandle *ctxOut) noexcept {
  // Suspending the calling thread would never return; an id above 32 bits
  // would be cut to one that may be the caller's.
  TOV_FRAME(tag && ctxOut && threadId <= 0xFFFFFFFFu && threadId != GetCurrentThreadId());
  tov::UniqueBlock<tov::ThreadCtx> ctx(
      static_cast<tov::ThreadCtx *>(TOV_malloc(tag, sizeof(tov::ThreadCtx))));
  if (!ctx) return TOV_ERR_NO_MEMORY;
  ctx->processId = processId;
  ctx->process = ctx->thread = INVALID_HANDLE_VALUE;
  ctx->context = CONTEXT{};
  ctx->frame = STACKFRAME64{};

  HANDLE thread = g_toolHelp.call<OpenThreadFn>(kOpenThread, HANDLE{}, kThreadAccess, FALSE,
                                                static_cast<DWORD>(threadId));
  if (!thread) return tov::MapLastSystemError();
  SuspendThread(thread);
  ctx->context.ContextFlags = kContextFlags;
  if (!GetThreadContext(thread, &ctx->context)) {
    const TOV_Status status = tov::MapLastSystemError();
    ResumeThread(thread);
    CloseHandle(thread);
    return status;
  }
  ctx->thread = thread;
  *ctxOut = ctx.release();
  return TOV_OK;
}

extern "C" TOV_Status TOV_SysFreeThreadCtx(TOV_ThreadCtxHandle handle) noexcept {
  TOV_FRAME(handle != nullptr);
  auto *ctx = static_cast<tov::ThreadCtx *>(handle);
  if (ctx->process != INVALID_HANDLE_VALUE) CloseHandle(ctx->process);
  if (ctx->thread != INVALID_HANDLE_VALUE) {
    ResumeThread(ctx->thread);
    CloseHandle(ctx->thread);
  }
  TOV_free(ctx);
  return TOV_OK;
}
