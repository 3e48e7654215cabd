// Events, mutexes, semaphores and LMutexes. The first three are the system's
// objects, handed out as their own handles; an LMutex is a critical section in
// a library block.
#include "frame/dynlib.h"
#include "frame/errors.h"
#include "frame/handle.h"
#include "frame/lifecycle.h"
#include "wait.h"

#include <windows.h>

namespace {

// The create rule of the named objects: no handle → the mapped error, nothing
// written; a handle → written, TOV_ERR_ALREADY_EXISTS when the name existed.
// Only the create itself may say so: the error is cleared just before it, so
// that a value left from earlier (by a hook, say) cannot.
template <typename Create> TOV_Status created(void **handleOut, Create create) {
  SetLastError(ERROR_SUCCESS);
  const HANDLE h = create();
  if (!h) return tov::MapLastSystemError();
  const DWORD error = GetLastError();
  *handleOut = h;
  return error == ERROR_ALREADY_EXISTS ? TOV_ERR_ALREADY_EXISTS : TOV_OK;
}

// A variable already cleared reaches CloseHandle as null, which refuses it:
// TOV_ERR_INVALID_HANDLE.
TOV_Status destroy(void **handle) noexcept {
  return tov::closeAndClear<tov::Holds::PlatformHandle>(handle, tov::closeKernelHandle);
}

inline TOV_Status signalled(BOOL ok) {
  return ok ? TOV_OK : tov::MapLastSystemError();
}

// The spin-count initialiser is looked up once per process in the resident
// kernel module and never forgotten.
using InitSpinFn = BOOL WINAPI(LPCRITICAL_SECTION, DWORD);
constinit tov::DynLibrary g_kernel32{"Kernel32.dll", tov::DynLibraryBase::Load::Resident,
                                     "InitializeCriticalSectionAndSpinCount"};
constexpr size_t kInitSpin = 0;

inline CRITICAL_SECTION *section(TOV_LMutexHandle h) {
  return static_cast<CRITICAL_SECTION *>(h);
}

} // namespace

// ---- Events -----------------------------------------------------------------

extern "C" TOV_Status TOV_EventCreate(const char *name, int32_t manualReset, int32_t initiallySet,
                                      TOV_EventHandle *handleOut) noexcept {
  TOV_FRAME(handleOut != nullptr);
  return created(handleOut,
                 [&] { return CreateEventA(nullptr, manualReset != 0, initiallySet != 0, name); });
}

extern "C" TOV_Status TOV_EventDestroy(TOV_EventHandle *handle) noexcept {
  TOV_FRAME(handle != nullptr);
  return destroy(handle);
}

extern "C" TOV_Status TOV_EventSet(TOV_EventHandle handle) noexcept {
  return signalled(SetEvent(handle));
}

extern "C" TOV_Status TOV_EventReset(TOV_EventHandle handle) noexcept {
  return signalled(ResetEvent(handle));
}

extern "C" TOV_Status TOV_EventPulse(TOV_EventHandle handle) noexcept {
  return signalled(PulseEvent(handle));
}

extern "C" TOV_Status TOV_EventWait(TOV_EventHandle handle, uint32_t timeoutMs) noexcept {
  return tov::waitResult(WaitForSingleObject(handle, timeoutMs));
}

// ---- Mutexes ----------------------------------------------------------------

extern "C" TOV_Status TOV_MutexCreate(const char *name, TOV_MutexHandle *handleOut) noexcept {
  TOV_FRAME(handleOut != nullptr);
  return created(handleOut, [&] { return CreateMutexA(nullptr, FALSE, name); });
}

extern "C" TOV_Status TOV_MutexDestroy(TOV_MutexHandle *handle) noexcept {
  TOV_FRAME(handle != nullptr);
  return destroy(handle);
}

extern "C" TOV_Status TOV_MutexAcquire(TOV_MutexHandle handle) noexcept {
  return tov::waitResult(WaitForSingleObject(handle, INFINITE));
}

extern "C" TOV_Status TOV_MutexTryAcquire(TOV_MutexHandle handle) noexcept {
  return tov::waitResult(WaitForSingleObject(handle, 0));
}

extern "C" TOV_Status TOV_MutexRelease(TOV_MutexHandle handle) noexcept {
  return signalled(ReleaseMutex(handle));
}

// ---- Semaphores -------------------------------------------------------------

extern "C" TOV_Status TOV_SemCreate(const char *name, uint32_t initialCount, uint32_t maximumCount,
                                    TOV_SemHandle *handleOut) noexcept {
  TOV_FRAME(handleOut != nullptr && initialCount <= maximumCount);
  return created(handleOut, [&] {
    return CreateSemaphoreA(nullptr, static_cast<LONG>(initialCount),
                            static_cast<LONG>(maximumCount), name);
  });
}

extern "C" TOV_Status TOV_SemDestroy(TOV_SemHandle *handle) noexcept {
  TOV_FRAME(handle != nullptr);
  return destroy(handle);
}

extern "C" TOV_Status TOV_SemAcquire(TOV_SemHandle handle, uint32_t timeoutMs) noexcept {
  return tov::waitResult(WaitForSingleObject(handle, timeoutMs));
}

extern "C" TOV_Status TOV_SemSignal(TOV_SemHandle handle, uint32_t count) noexcept {
  return signalled(ReleaseSemaphore(handle, static_cast<LONG>(count), nullptr));
}

// ---- LMutexes ---------------------------------------------------------------

extern "C" TOV_Status TOV_LMutexCreate(TOV_LMutexHandle *handleOut, uint32_t spinCount) noexcept {
  TOV_FRAME(handleOut != nullptr);
  auto *cs = static_cast<CRITICAL_SECTION *>(TOV_malloc(tov::libTag(), sizeof(CRITICAL_SECTION)));
  if (!cs) return TOV_ERR_NO_MEMORY;
  // Without the spin-count initialiser, or when it fails, the lock simply
  // has no spin count.
  if (!g_kernel32.call<InitSpinFn>(kInitSpin, FALSE, cs, static_cast<DWORD>(spinCount)))
    InitializeCriticalSection(cs);
  *handleOut = cs;
  return TOV_OK;
}

extern "C" TOV_Status TOV_LMutexDestroy(TOV_LMutexHandle *handle) noexcept {
  TOV_FRAME(handle != nullptr);
  CRITICAL_SECTION *cs = section(*handle);
  *handle = nullptr;
  if (cs) {
    DeleteCriticalSection(cs);
    TOV_free(cs);
  }
  return TOV_OK;
}

extern "C" TOV_Status TOV_LMutexAcquire(TOV_LMutexHandle handle) noexcept {
  if (!handle) return TOV_ERR_INVALID_HANDLE;
  EnterCriticalSection(section(handle));
  return TOV_OK;
}

extern "C" TOV_Status TOV_LMutexTryAcquire(TOV_LMutexHandle handle) noexcept {
  return TryEnterCriticalSection(section(handle)) ? TOV_OK : TOV_ERR_TIMEOUT;
}

extern "C" TOV_Status TOV_LMutexRelease(TOV_LMutexHandle handle) noexcept {
  LeaveCriticalSection(section(handle));
  return TOV_OK;
}
