// Spin locks and atomics against the bare interlocked instructions they
// stand for. Uncontended: what the library adds on top of the instruction.
#include "bench.h"
#include "tov.h"

#include <windows.h>

int main() {
  constexpr uint64_t n = 20'000'000;
  alignas(8) static volatile int64_t word = 0;

  const double libLock = bench::nsPerOp(n, [](uint64_t) {
    TOV_EnterSpinLock(&word);
    TOV_LeaveSpinLock(&word);
  });
  const double rawLock = bench::nsPerOp(n, [](uint64_t) {
    while (InterlockedExchange64(&word, 1) != 0) {
    }
    __atomic_store_n(&word, 0, __ATOMIC_RELEASE);
  });
  bench::report("TOV_EnterSpinLock+Leave vs InterlockedExchange64", libLock, rawLock, 1.3);

  const double libInc = bench::nsPerOp(n, [](uint64_t) { TOV_AtomicIncrement(&word); });
  const double rawInc = bench::nsPerOp(n, [](uint64_t) { InterlockedIncrement64(&word); });
  bench::report("TOV_AtomicIncrement vs InterlockedIncrement64", libInc, rawInc, 1.3);
  return 0;
}
