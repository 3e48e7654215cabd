// Threads, per-thread description stacks and thread-local storage keys.
//
// Description stacks: one thread-local slot, shared by all threads, points at
// the calling thread's record; every record is also linked into one list so
// that any thread can find any other thread's stack by id. The list's spin
// lock guards the links and the holder counts; each record's spin lock guards
// its array. The two are never held together, and the thread-end hook, which
// runs under the loader lock, takes only the list lock. A reader never writes
// the caller's memory under the list lock: a fault there (in a host that
// survives it) would leave the lock held and hang every later thread end.
#include "thread.h"

#include "frame/errors.h"
#include "frame/handle.h"
#include "frame/lifecycle.h"
#include "wait.h"

#include <windows.h>

#include <process.h>

#include <cstring>

namespace {

struct ThreadRecord {
  HANDLE handle;
  uint64_t id;
};

struct DescRecord {
  uint64_t threadId;
  DescRecord *next;
  TOV_SpinLock lock; // guards the three fields below
  void **capacityEnd;
  void **top;
  void **base;
  // The list's link plus each reader copying the record, guarded by the list
  // lock: the last to let go frees the record.
  uint32_t holders;
};

constexpr size_t kFirstCapacity = 16;

// The slot is read without a lock; the list head is read without a lock only
// as a fast "nobody has pushed" test.
constinit DWORD g_slot = TLS_OUT_OF_INDEXES;
constinit DescRecord *g_list = nullptr;
constinit TOV_SpinLock g_listLock = 0;

class SpinGuard {
public:
  explicit SpinGuard(TOV_SpinLock *lock) noexcept : lock_(lock) { TOV_EnterSpinLock(lock_); }
  ~SpinGuard() { TOV_LeaveSpinLock(lock_); }
  SpinGuard(const SpinGuard &) = delete;
  SpinGuard &operator=(const SpinGuard &) = delete;

private:
  TOV_SpinLock *lock_;
};

inline DWORD currentSlot() {
  return __atomic_load_n(&g_slot, __ATOMIC_ACQUIRE);
}

// The description slot, allocated on first use. Two threads making their
// first push together may both allocate; the first to publish wins and the
// other gives its slot back. TLS_OUT_OF_INDEXES when the platform has none
// (the last error says why).
DWORD descriptionSlot() {
  DWORD slot = currentSlot();
  if (slot != TLS_OUT_OF_INDEXES) return slot;
  slot = TlsAlloc();
  if (slot == TLS_OUT_OF_INDEXES) return slot;
  DWORD published = TLS_OUT_OF_INDEXES;
  if (__atomic_compare_exchange_n(&g_slot, &published, slot, false, __ATOMIC_ACQ_REL,
                                  __ATOMIC_ACQUIRE))
    return slot;
  TlsFree(slot);
  return published;
}

inline DescRecord *ownRecord(DWORD slot) {
  return static_cast<DescRecord *>(TlsGetValue(slot));
}

void freeRecord(DescRecord *record) {
  TOV_free(record->base);
  TOV_free(record);
}

// Drops one holder of a record; the last one frees it, after the list lock.
void letGo(DescRecord *record) {
  bool last;
  {
    SpinGuard guard(&g_listLock);
    last = --record->holders == 0;
  }
  if (last) freeRecord(record);
}

// Entries that a read copies on its own stack first, so that it writes the
// caller's buffer with no lock held. A deeper copy goes to the buffer under
// the record's lock, which only the owner's push and pop take.
constexpr uint32_t kLocalEntries = 64;

// Copies record's stack newest first into buffer[0..*count) and sets *count
// to the depth.
TOV_Status copyStack(DescRecord *record, void **buffer, uint32_t *count) {
  const uint32_t room = *count;
  void *local[kLocalEntries];
  uint32_t depth, n;
  {
    SpinGuard guard(&record->lock);
    depth = static_cast<uint32_t>(record->top - record->base);
    n = room < depth ? room : depth;
    void **to = n <= kLocalEntries ? local : buffer;
    for (uint32_t i = 0; i < n; ++i) to[i] = record->top[-1 - static_cast<ptrdiff_t>(i)];
  }
  if (n != 0 && n <= kLocalEntries) std::memcpy(buffer, local, n * sizeof *local);
  *count = depth;
  return room < depth ? TOV_ERR_BUFFER_TOO_SMALL : TOV_OK;
}

inline ThreadRecord *threadRecord(TOV_ThreadHandle h) {
  return static_cast<ThreadRecord *>(h);
}

} // namespace

namespace tov {

void threadEnded(uint64_t threadId) noexcept {
  if (!__atomic_load_n(&g_list, __ATOMIC_ACQUIRE)) return;
  DescRecord *found = nullptr;
  {
    SpinGuard guard(&g_listLock);
    for (DescRecord **link = &g_list; *link; link = &(*link)->next) {
      if ((*link)->threadId != threadId) continue;
      found = *link;
      __atomic_store_n(link, found->next, __ATOMIC_RELEASE);
      // This is the ending thread: code that runs on it later (the detach
      // handler of a library initialised before tov, a TLS callback) finds
      // no record instead of freed memory.
      TlsSetValue(currentSlot(), nullptr);
      if (--found->holders != 0) found = nullptr; // a reader frees it
      break;
    }
  }
  if (found) freeRecord(found);
}

void descriptionCleanup() noexcept {
  SpinGuard guard(&g_listLock);
  DescRecord *record = __atomic_exchange_n(&g_list, nullptr, __ATOMIC_ACQ_REL);
  while (record) {
    DescRecord *next = record->next;
    freeRecord(record);
    record = next;
  }
  // Freeing the slot clears it in every thread, so no thread keeps a pointer
  // to a freed record into the next start.
  const DWORD slot = __atomic_exchange_n(&g_slot, TLS_OUT_OF_INDEXES, __ATOMIC_ACQ_REL);
  if (slot != TLS_OUT_OF_INDEXES) TlsFree(slot);
}

} // namespace tov

// ---- Threads ----------------------------------------------------------------

extern "C" TOV_Status TOV_ThreadCreate(TOV_ThreadRoutine routine, void *argument,
                                       uint32_t stackSize, TOV_ThreadHandle *handleOut) noexcept {
  TOV_FRAME(routine != nullptr);
  tov::UniqueBlock<ThreadRecord> record(
      handleOut ? static_cast<ThreadRecord *>(TOV_malloc(tov::libTag(), sizeof(ThreadRecord)))
                : nullptr);
  if (handleOut && !record) return TOV_ERR_NO_MEMORY;

  unsigned id = 0;
  const uintptr_t started = _beginthreadex(nullptr, stackSize, routine, argument, 0, &id);
  if (started == 0) return tov::Map_errno();
  const auto handle = reinterpret_cast<HANDLE>(started);
  if (!handleOut) {
    CloseHandle(handle); // detached: nobody waits for it
    return TOV_OK;
  }
  record->handle = handle;
  record->id = id;
  *handleOut = record.release();
  return TOV_OK;
}

extern "C" TOV_Status TOV_ThreadDestroy(TOV_ThreadHandle *handle) noexcept {
  TOV_FRAME(handle != nullptr);
  return tov::closeAndClear<tov::Holds::Record>(
      handle, [](void *record) { return tov::closeKernelHandle(threadRecord(record)->handle); });
}

extern "C" TOV_Status TOV_ThreadWait(TOV_ThreadHandle handle, uint32_t timeoutMs) noexcept {
  TOV_FRAME(handle != nullptr);
  return tov::waitResult(WaitForSingleObject(threadRecord(handle)->handle, timeoutMs));
}

extern "C" TOV_Status TOV_ThreadGetExitCode(TOV_ThreadHandle handle,
                                            uint32_t *exitCodeOut) noexcept {
  TOV_FRAME(handle != nullptr && exitCodeOut != nullptr);
  DWORD code;
  if (!GetExitCodeThread(threadRecord(handle)->handle, &code)) return tov::MapLastSystemError();
  if (code == STILL_ACTIVE) return TOV_ERR_STILL_RUNNING;
  *exitCodeOut = code;
  return TOV_OK;
}

extern "C" TOV_Status TOV_ThreadGetID(TOV_ThreadHandle handle, uint64_t *idOut) noexcept {
  TOV_FRAME(handle != nullptr && idOut != nullptr);
  *idOut = threadRecord(handle)->id;
  return TOV_OK;
}

extern "C" uint64_t TOV_ThreadGetCurrentID(void) noexcept {
  return GetCurrentThreadId();
}

extern "C" void TOV_ThreadExit(uint32_t exitCode) noexcept {
  _endthreadex(exitCode);
}

// ---- Description stacks -----------------------------------------------------

extern "C" TOV_Status TOV_ThreadPushDescriptionPtr(void *value) noexcept {
  const DWORD slot = descriptionSlot();
  if (slot == TLS_OUT_OF_INDEXES) return tov::MapLastSystemError();

  DescRecord *record = ownRecord(slot);
  if (!record) {
    record = static_cast<DescRecord *>(TOV_calloc(tov::libTag(), 1, sizeof(DescRecord)));
    if (!record) return TOV_ERR_NO_MEMORY;
    if (!TlsSetValue(slot, record)) {
      const TOV_Status status = tov::MapLastSystemError();
      TOV_free(record);
      return status;
    }
    record->threadId = GetCurrentThreadId();
    record->holders = 1;
    SpinGuard guard(&g_listLock);
    record->next = g_list;
    __atomic_store_n(&g_list, record, __ATOMIC_RELEASE);
  }

  SpinGuard guard(&record->lock);
  if (record->top == record->capacityEnd) {
    const size_t old = static_cast<size_t>(record->capacityEnd - record->base);
    const size_t capacity = old ? 2 * old : kFirstCapacity;
    auto *grown =
        static_cast<void **>(TOV_realloc(tov::libTag(), record->base, capacity * sizeof(void *)));
    if (!grown) return TOV_ERR_NO_MEMORY;
    record->base = grown;
    record->capacityEnd = grown + capacity;
    record->top = grown + old;
  }
  *record->top++ = value;
  return TOV_OK;
}

extern "C" TOV_Status TOV_ThreadPopDescriptionPtr(void) noexcept {
  const DWORD slot = currentSlot();
  if (slot == TLS_OUT_OF_INDEXES) return TOV_ERR_NOT_FOUND;
  DescRecord *record = ownRecord(slot);
  if (!record) return TOV_ERR_NOT_FOUND;
  SpinGuard guard(&record->lock);
  if (record->top == record->base) return TOV_ERR_NOT_FOUND;
  --record->top;
  return TOV_OK;
}

extern "C" TOV_Status TOV_ThreadGetDescriptionPtrs(uint64_t threadId, void **buffer,
                                                   uint32_t *count) noexcept {
  TOV_FRAME(count != nullptr && (buffer != nullptr || *count == 0));
  const DWORD slot = currentSlot();
  if (slot == TLS_OUT_OF_INDEXES) {
    *count = 0;
    return TOV_OK;
  }
  if (threadId == 0) {
    DescRecord *record = ownRecord(slot);
    if (record) return copyStack(record, buffer, count);
    *count = 0;
    return TOV_OK;
  }
  // Held while it is copied, so that the thread-end hook cannot free it then.
  DescRecord *record;
  {
    SpinGuard guard(&g_listLock);
    record = g_list;
    while (record && record->threadId != threadId) record = record->next;
    if (record) ++record->holders;
  }
  if (!record) {
    *count = 0;
    return TOV_OK;
  }
  const TOV_Status status = copyStack(record, buffer, count);
  letGo(record);
  return status;
}

// ---- Thread-local storage ---------------------------------------------------

extern "C" TOV_Status TOV_TLSCreate(uint64_t *keyOut) noexcept {
  TOV_FRAME(keyOut != nullptr);
  const DWORD key = TlsAlloc();
  if (key == TLS_OUT_OF_INDEXES) return tov::MapLastSystemError();
  *keyOut = key;
  return TOV_OK;
}

extern "C" TOV_Status TOV_TLSDestroy(uint64_t *key) noexcept {
  const TOV_Status status = TlsFree(static_cast<DWORD>(*key)) ? TOV_OK : tov::MapLastSystemError();
  *key = 0;
  return status;
}

extern "C" TOV_Status TOV_TLSGetValue(uint64_t key, void **valueOut) noexcept {
  void *value = TlsGetValue(static_cast<DWORD>(key));
  if (!value) {
    // Null is a value like any other when the platform says all went well.
    const DWORD error = GetLastError();
    if (error != ERROR_SUCCESS) return tov::MapSystemError(error);
  }
  *valueOut = value;
  return TOV_OK;
}

extern "C" TOV_Status TOV_TLSSetValue(uint64_t key, void *value) noexcept {
  return TlsSetValue(static_cast<DWORD>(key), value) ? TOV_OK : tov::MapLastSystemError();
}
