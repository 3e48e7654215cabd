// Locks, signals, conditions, reader-writer locks and description stacks
// against the raw platform calls.
#include "bench.h"
#include "tov.h"

#include <windows.h>

#include <algorithm>
#include <utility>

// A do-nothing export of another DLL: the cost of the call itself.
extern "C" __declspec(dllimport) int32_t EmptyLockCall(void *handle);

namespace {

// The best of `rounds` results of each of two measurements, taken in
// alternation so that a change in the machine's load hits both alike.
template <typename Lib, typename Raw>
std::pair<double, double> bestOf(int rounds, Lib lib, Raw raw) {
  double l = 1e300, w = 1e300;
  for (int r = 0; r < rounds; ++r) l = std::min(l, lib()), w = std::min(w, raw());
  return {l, w};
}

// Nanoseconds per run of body, over a batch of `iterations` runs.
template <typename Body> auto batch(uint64_t iterations, Body body) {
  return [=] { return bench::nsPerOp(iterations, body, 1); };
}

// Uncontended LMutex acquire + release against a critical section, and
// against the floor: the same pair behind two do-nothing exported calls. The
// library adds nothing beyond the call when the second ratio is 1.
void lmutex() {
  constexpr uint64_t kIterations = 3'000'000;
  TOV_LMutexHandle lock = nullptr;
  TOV_LMutexCreate(&lock, 4000);
  CRITICAL_SECTION cs;
  InitializeCriticalSectionAndSpinCount(&cs, 4000);
  const auto library = [&](uint64_t) {
    TOV_LMutexAcquire(lock);
    TOV_LMutexRelease(lock);
  };
  const auto raw = [&](uint64_t) {
    EnterCriticalSection(&cs);
    LeaveCriticalSection(&cs);
  };
  const auto callsAndRaw = [&](uint64_t) {
    EmptyLockCall(&cs);
    EnterCriticalSection(&cs);
    EmptyLockCall(&cs);
    LeaveCriticalSection(&cs);
  };
  const auto [lib, pair] = bestOf(7, batch(kIterations, library), batch(kIterations, raw));
  const auto [lib2, floor] =
      bestOf(7, batch(kIterations, library), batch(kIterations, callsAndRaw));
  bench::report("LMutexAcquire+Release vs Enter/LeaveCriticalSection", lib, pair, 0);
  bench::report("LMutexAcquire+Release vs 2 empty exported calls+pair", lib2, floor, 1.05);
  DeleteCriticalSection(&cs);
  TOV_LMutexDestroy(&lock);
}

// Ping-pong: this thread sets `ping` and waits for `pong`; the partner waits
// for `ping` and sets `pong`. One op is one round trip.
struct PingPong {
  HANDLE ping, pong;
  uint64_t rounds;
  bool useLibrary;
};

DWORD WINAPI partner(void *arg) {
  auto *p = static_cast<PingPong *>(arg);
  for (uint64_t i = 0; i < p->rounds; ++i) {
    if (p->useLibrary) {
      TOV_EventWait(p->ping, INFINITE);
      TOV_EventSet(p->pong);
    } else {
      WaitForSingleObject(p->ping, INFINITE);
      SetEvent(p->pong);
    }
  }
  return 0;
}

double pingPong(bool useLibrary, uint64_t rounds) {
  PingPong p{CreateEventA(nullptr, FALSE, FALSE, nullptr),
             CreateEventA(nullptr, FALSE, FALSE, nullptr), rounds, useLibrary};
  HANDLE t = CreateThread(nullptr, 0, partner, &p, 0, nullptr);
  const double t0 = bench::nowSeconds();
  for (uint64_t i = 0; i < rounds; ++i) {
    if (useLibrary) {
      TOV_EventSet(p.ping);
      TOV_EventWait(p.pong, INFINITE);
    } else {
      SetEvent(p.ping);
      WaitForSingleObject(p.pong, INFINITE);
    }
  }
  const double ns = (bench::nowSeconds() - t0) * 1e9 / static_cast<double>(rounds);
  WaitForSingleObject(t, INFINITE);
  CloseHandle(t);
  CloseHandle(p.ping);
  CloseHandle(p.pong);
  return ns;
}

void events() {
  constexpr uint64_t kRounds = 5'000;
  const auto [lib, raw] = bestOf(
      3, [] { return pingPong(true, kRounds); }, [] { return pingPong(false, kRounds); });
  bench::report("EventSet+EventWait ping-pong vs SetEvent+Wait", lib, raw, 1.05);
}

// Condition ping-pong: two threads hand a turn back and forth under a lock,
// each waiting on a condition of its own until the turn is its own (a
// library condition's wake-up may go to any thread that waits on it by then,
// so two threads that wait for different things wait on different
// conditions). One op is one round trip. The library's LMutex and conditions
// against the platform's critical section and native condition variables.
struct CondPingPong {
  bool useLibrary;
  uint64_t rounds;
  TOV_LMutexHandle lock;
  TOV_CondHandle cond[2];
  CRITICAL_SECTION cs;
  CONDITION_VARIABLE cv[2];
  int turn;
};

void takeTurns(CondPingPong *p, int me) {
  for (uint64_t i = 0; i < p->rounds; ++i) {
    if (p->useLibrary) {
      TOV_LMutexAcquire(p->lock);
      while (p->turn != me) TOV_CondWait(p->cond[me], p->lock, INFINITE);
      p->turn = 1 - me;
      TOV_CondSignal(p->cond[1 - me]);
      TOV_LMutexRelease(p->lock);
    } else {
      EnterCriticalSection(&p->cs);
      while (p->turn != me) SleepConditionVariableCS(&p->cv[me], &p->cs, INFINITE);
      p->turn = 1 - me;
      WakeConditionVariable(&p->cv[1 - me]);
      LeaveCriticalSection(&p->cs);
    }
  }
}

double condPingPong(bool useLibrary, uint64_t rounds) {
  CondPingPong p{useLibrary, rounds, nullptr, {}, {}, {}, 0};
  TOV_LMutexCreate(&p.lock, 4000);
  for (int i = 0; i < 2; ++i) TOV_CondCreate(&p.cond[i]), InitializeConditionVariable(&p.cv[i]);
  InitializeCriticalSectionAndSpinCount(&p.cs, 4000);
  const LPTHREAD_START_ROUTINE other = [](void *arg) -> DWORD {
    takeTurns(static_cast<CondPingPong *>(arg), 1);
    return 0;
  };
  const double t0 = bench::nowSeconds();
  HANDLE t = CreateThread(nullptr, 0, other, &p, 0, nullptr);
  takeTurns(&p, 0);
  WaitForSingleObject(t, INFINITE);
  const double ns = (bench::nowSeconds() - t0) * 1e9 / static_cast<double>(rounds);
  CloseHandle(t);
  DeleteCriticalSection(&p.cs);
  for (auto &cond : p.cond) TOV_CondDestroy(&cond);
  TOV_LMutexDestroy(&p.lock);
  return ns;
}

void conditions() {
  constexpr uint64_t kRounds = 5'000;
  const auto [lib, raw] = bestOf(
      3, [] { return condPingPong(true, kRounds); }, [] { return condPingPong(false, kRounds); });
  bench::report("Cond ping-pong vs native condition variable + CS", lib, raw, 0);
}

// Uncontended reader-writer acquire + release, shared and exclusive, against
// the platform's slim reader-writer lock.
void rwUncontended() {
  constexpr uint64_t kIterations = 2'000'000;
  TOV_RWLockHandle lock = nullptr;
  TOV_RWLockCreate(&lock);
  SRWLOCK srw = SRWLOCK_INIT;
  const auto libShared = [&](uint64_t) {
    TOV_RWLockAcquire(lock, 0);
    TOV_RWLockRelease(lock);
  };
  const auto rawShared = [&](uint64_t) {
    AcquireSRWLockShared(&srw);
    ReleaseSRWLockShared(&srw);
  };
  const auto libExclusive = [&](uint64_t) {
    TOV_RWLockAcquire(lock, 1);
    TOV_RWLockRelease(lock);
  };
  const auto rawExclusive = [&](uint64_t) {
    AcquireSRWLockExclusive(&srw);
    ReleaseSRWLockExclusive(&srw);
  };
  const auto [shared, sharedRaw] =
      bestOf(5, batch(kIterations, libShared), batch(kIterations, rawShared));
  bench::report("RWLock shared acquire+release vs SRW lock", shared, sharedRaw, 0);
  const auto [exclusive, exclusiveRaw] =
      bestOf(5, batch(kIterations, libExclusive), batch(kIterations, rawExclusive));
  bench::report("RWLock exclusive acquire+release vs SRW lock", exclusive, exclusiveRaw, 0);
  TOV_RWLockDestroy(&lock);
}

// Four threads over one lock, one write in eight, each reading or bumping a
// small table inside. One op is one acquire, its work and its release; the
// time is the wall time of all four divided by the ops of all four.
struct MixedLoad {
  bool useLibrary;
  TOV_RWLockHandle lock;
  SRWLOCK srw;
  volatile uint64_t table[16];
  uint64_t opsPerThread;
};

DWORD WINAPI mixedWorker(void *arg) {
  auto *m = static_cast<MixedLoad *>(arg);
  uint64_t sum = 0;
  for (uint64_t i = 0; i < m->opsPerThread; ++i) {
    const bool write = i % 8 == 0;
    if (m->useLibrary)
      TOV_RWLockAcquire(m->lock, write);
    else if (write)
      AcquireSRWLockExclusive(&m->srw);
    else
      AcquireSRWLockShared(&m->srw);
    for (auto &v : m->table)
      if (write)
        v = v + 1;
      else
        sum += v;
    if (m->useLibrary)
      TOV_RWLockRelease(m->lock);
    else if (write)
      ReleaseSRWLockExclusive(&m->srw);
    else
      ReleaseSRWLockShared(&m->srw);
  }
  bench::keep(sum);
  return 0;
}

double mixed(bool useLibrary, uint64_t opsPerThread) {
  MixedLoad m{useLibrary, nullptr, SRWLOCK_INIT, {}, opsPerThread};
  TOV_RWLockCreate(&m.lock);
  HANDLE threads[4];
  const double t0 = bench::nowSeconds();
  for (auto &t : threads) t = CreateThread(nullptr, 0, mixedWorker, &m, 0, nullptr);
  WaitForMultipleObjects(4, threads, TRUE, INFINITE);
  const double ns = (bench::nowSeconds() - t0) * 1e9 / static_cast<double>(4 * opsPerThread);
  for (auto t : threads) CloseHandle(t);
  TOV_RWLockDestroy(&m.lock);
  return ns;
}

void rwContended() {
  constexpr uint64_t kOps = 200'000;
  const auto [lib, raw] = bestOf(
      3, [] { return mixed(true, kOps); }, [] { return mixed(false, kOps); });
  bench::report("RWLock 4 threads, 1 write in 8 vs SRW lock", lib, raw, 0);
}

// Push + pop of the caller's description stack against a TLS read and a plain
// array push and pop.
DWORD g_rawSlot;
struct RawStack {
  void *entries[64];
  size_t top;
};

void descriptions() {
  constexpr uint64_t kIterations = 5'000'000;
  TOV_ThreadPushDescriptionPtr(nullptr); // the record exists from here on
  RawStack stack{};
  g_rawSlot = TlsAlloc();
  TlsSetValue(g_rawSlot, &stack);
  const double lib = bench::nsPerOp(kIterations, [&](uint64_t i) {
    TOV_ThreadPushDescriptionPtr(reinterpret_cast<void *>(i));
    TOV_ThreadPopDescriptionPtr();
  });
  const double raw = bench::nsPerOp(kIterations, [&](uint64_t i) {
    auto *s = static_cast<RawStack *>(TlsGetValue(g_rawSlot));
    s->entries[s->top++] = reinterpret_cast<void *>(i);
    bench::keep(s->entries);
    s = static_cast<RawStack *>(TlsGetValue(g_rawSlot));
    --s->top;
  });
  bench::report("PushDescriptionPtr+Pop vs TlsGetValue+array", lib, raw, 0);
  TlsFree(g_rawSlot);
}

} // namespace

int main() {
  TOV_Startup(nullptr, 0, nullptr, nullptr);
  lmutex();
  events();
  conditions();
  rwUncontended();
  rwContended();
  descriptions();
  TOV_Cleanup(nullptr);
  return 0;
}
