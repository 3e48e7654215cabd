// Locks, signals and description stacks against the raw platform calls.
#include "bench.h"
#include "tov.h"

#include <windows.h>

namespace {

// Uncontended LMutex acquire + release against a critical section.
void lmutex() {
  constexpr uint64_t kIterations = 3'000'000;
  TOV_LMutexHandle lock = nullptr;
  TOV_LMutexCreate(&lock, 4000);
  CRITICAL_SECTION cs;
  InitializeCriticalSectionAndSpinCount(&cs, 4000);
  // Rounds alternate between the two so that a change in the machine's load
  // hits both alike; the best round of each counts.
  double lib = 1e300, raw = 1e300;
  for (int r = 0; r < 7; ++r) {
    const double l = bench::nsPerOp(
        kIterations,
        [&](uint64_t) {
          TOV_LMutexAcquire(lock);
          TOV_LMutexRelease(lock);
        },
        1);
    const double w = bench::nsPerOp(
        kIterations,
        [&](uint64_t) {
          EnterCriticalSection(&cs);
          LeaveCriticalSection(&cs);
        },
        1);
    lib = l < lib ? l : lib;
    raw = w < raw ? w : raw;
  }
  bench::report("LMutexAcquire+Release vs Enter/LeaveCriticalSection", lib, raw, 1.1);
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
  // Alternate the two so that drift in the machine's load hits both alike.
  double lib = 1e300, raw = 1e300;
  for (int r = 0; r < 3; ++r) {
    const double l = pingPong(true, kRounds), w = pingPong(false, kRounds);
    lib = l < lib ? l : lib;
    raw = w < raw ? w : raw;
  }
  bench::report("EventSet+EventWait ping-pong vs SetEvent+Wait", lib, raw, 1.05);
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
  descriptions();
  TOV_Cleanup(nullptr);
  return 0;
}
