// 64-bit atomic operations and spin locks built on them.
#include "tov.h"

#include <windows.h>

namespace {

// Processor count for the spin policy: read once per process. Concurrent
// first callers wait for the one initialisation.
INIT_ONCE g_cpuOnce = INIT_ONCE_STATIC_INIT;
uint32_t g_cpuCount;

BOOL CALLBACK readCpuCount(PINIT_ONCE, PVOID, PVOID *) {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  __atomic_store_n(&g_cpuCount, info.dwNumberOfProcessors, __ATOMIC_RELEASE);
  return TRUE;
}

uint32_t cpuCount() {
  uint32_t n = __atomic_load_n(&g_cpuCount, __ATOMIC_ACQUIRE);
  if (n == 0) {
    InitOnceExecuteOnce(&g_cpuOnce, readCpuCount, nullptr, nullptr);
    n = __atomic_load_n(&g_cpuCount, __ATOMIC_ACQUIRE);
  }
  return n;
}

inline int64_t exchange(volatile int64_t *target, int64_t value) {
  return __atomic_exchange_n(target, value, __ATOMIC_SEQ_CST);
}

} // namespace

extern "C" int64_t TOV_AtomicIncrement(volatile int64_t *target) noexcept {
  return __atomic_add_fetch(target, 1, __ATOMIC_SEQ_CST);
}

extern "C" int64_t TOV_AtomicDecrement(volatile int64_t *target) noexcept {
  return __atomic_sub_fetch(target, 1, __ATOMIC_SEQ_CST);
}

extern "C" int64_t TOV_AtomicExchange(volatile int64_t *target, int64_t value) noexcept {
  return exchange(target, value);
}

extern "C" int64_t TOV_AtomicExchangeAdd(volatile int64_t *target, int64_t addend) noexcept {
  return __atomic_fetch_add(target, addend, __ATOMIC_SEQ_CST);
}

extern "C" int64_t TOV_AtomicCmpExchange(volatile int64_t *target, int64_t comparand,
                                         int64_t exchange) noexcept {
  __atomic_compare_exchange_n(target, &comparand, exchange, false, __ATOMIC_SEQ_CST,
                              __ATOMIC_SEQ_CST);
  return comparand; // on failure the builtin stored the value it found
}

namespace {

// The waiting part of TOV_EnterSpinLock, after its first attempt failed. On a
// multiprocessor: 101 failed exchanges in a row, then one yield of the time
// slice, and again. On one processor every failed attempt yields.
__attribute__((noinline)) void waitForSpinLock(volatile TOV_SpinLock *lock, uint32_t cpus) {
  if (cpus > 1) {
    int attempts = 1;
    while (exchange(lock, 1) != 0) {
      if (++attempts > 100) {
        Sleep(0);
        attempts = 0;
      }
    }
  } else {
    do Sleep(0);
    while (exchange(lock, 1) != 0);
  }
}

} // namespace

extern "C" void TOV_EnterSpinLock(volatile TOV_SpinLock *lock) noexcept {
  const uint32_t cpus = cpuCount();
  if (exchange(lock, 1) != 0) waitForSpinLock(lock, cpus);
}

extern "C" int32_t TOV_TryEnterSpinLock(volatile TOV_SpinLock *lock) noexcept {
  return exchange(lock, 1) == 0 ? 1 : 0;
}

extern "C" void TOV_LeaveSpinLock(volatile TOV_SpinLock *lock) noexcept {
  __atomic_store_n(lock, 0, __ATOMIC_RELEASE);
}
