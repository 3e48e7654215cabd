// Timing for the benchmark programs: run a body many times, take the best of
// a few rounds, and print the library-to-raw ratio against its goal.
#pragma once

#include <windows.h>

#include <cstdint>
#include <cstdio>

namespace bench {

inline double nowSeconds() {
  static LARGE_INTEGER freq = [] {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return f;
  }();
  LARGE_INTEGER t;
  QueryPerformanceCounter(&t);
  return static_cast<double>(t.QuadPart) / static_cast<double>(freq.QuadPart);
}

// Nanoseconds per iteration of body(i), the best of `rounds` rounds.
template <typename Body> double nsPerOp(uint64_t iterations, Body body, int rounds = 5) {
  double best = 1e300;
  for (int r = 0; r < rounds; ++r) {
    const double t0 = nowSeconds();
    for (uint64_t i = 0; i < iterations; ++i) body(i);
    const double ns = (nowSeconds() - t0) * 1e9 / static_cast<double>(iterations);
    if (ns < best) best = ns;
  }
  return best;
}

// Prints one comparison. goal > 0: the ratio lib/raw must stay at or below
// it (lower is better); goal < 0: lib/raw must stay at or above -goal
// (throughput, higher is better); goal == 0: report only.
inline void report(const char *what, double lib, double raw, double goal,
                   const char *unit = "ns/op") {
  const double ratio = lib / raw;
  const char *verdict = goal == 0  ? "report"
                        : goal > 0 ? (ratio <= goal ? "ok" : "ABOVE GOAL")
                                   : (ratio >= -goal ? "ok" : "BELOW GOAL");
  std::printf("%-52s lib %10.2f  raw %10.2f %-6s ratio %5.2f  ", what, lib, raw, unit, ratio);
  if (goal == 0)
    std::printf("(report only)\n");
  else
    std::printf("goal %s%.2f  %s\n", goal < 0 ? ">=" : "<=", goal < 0 ? -goal : goal, verdict);
  std::fflush(stdout);
}

// Keeps the compiler from dropping a computed value.
template <typename T> inline void keep(const T &value) {
  asm volatile("" : : "g"(&value) : "memory");
}

} // namespace bench
