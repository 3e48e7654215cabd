// TOV_FileRead / TOV_FileWrite against ReadFile / WriteFile on the same file,
// in 4 KiB and 1 MiB blocks, within the first MiB of a temporary file.
#include "bench.h"
#include "tov.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr DWORD kSpan = 1u << 20;

// Runs lib and raw alternately in short batches and keeps the best batch of
// each, so that drift and load of the machine hit both sides alike.
template <typename Lib, typename Raw>
void compare(const char *what, uint64_t iterations, Lib lib, Raw raw, double goal) {
  double bestLib = 1e300, bestRaw = 1e300;
  for (int pass = 0; pass < 40; ++pass) {
    bestLib = std::min(bestLib, bench::nsPerOp(iterations, lib, 1));
    bestRaw = std::min(bestRaw, bench::nsPerOp(iterations, raw, 1));
  }
  bench::report(what, bestLib, bestRaw, goal);
}

void rewind(HANDLE h) {
  SetFilePointer(h, 0, nullptr, FILE_BEGIN);
}

void run(HANDLE h, DWORD block, uint64_t iterations, uint64_t positionedIterations) {
  std::vector<char> buffer(block, 'b');
  const uint64_t perSpan = kSpan / block; // transfers before the position wraps
  char label[96];

  std::snprintf(label, sizeof label, "TOV_FileWrite %u B vs WriteFile",
                static_cast<unsigned>(block));
  compare(
      label, iterations,
      [&](uint64_t i) {
        if (i % perSpan == 0) rewind(h);
        uint64_t n = block;
        TOV_FileWrite(h, nullptr, buffer.data(), &n);
        bench::keep(n);
      },
      [&](uint64_t i) {
        if (i % perSpan == 0) rewind(h);
        DWORD n = 0;
        WriteFile(h, buffer.data(), block, &n, nullptr);
        bench::keep(n);
      },
      1.05);

  std::snprintf(label, sizeof label, "TOV_FileRead %u B vs ReadFile", static_cast<unsigned>(block));
  compare(
      label, iterations,
      [&](uint64_t i) {
        if (i % perSpan == 0) rewind(h);
        uint64_t n = block;
        TOV_FileRead(h, nullptr, buffer.data(), &n);
        bench::keep(n);
      },
      [&](uint64_t i) {
        if (i % perSpan == 0) rewind(h);
        DWORD n = 0;
        ReadFile(h, buffer.data(), block, &n, nullptr);
        bench::keep(n);
      },
      1.05);

  // A positioned read also reports the position after it: one more call.
  std::snprintf(label, sizeof label, "TOV_FileRead %u B @pos vs ReadFile+OVERLAPPED",
                static_cast<unsigned>(block));
  compare(
      label, positionedIterations,
      [&](uint64_t i) {
        uint64_t at = (i % perSpan) * block, n = block;
        TOV_FileRead(h, &at, buffer.data(), &n);
        bench::keep(n);
      },
      [&](uint64_t i) {
        OVERLAPPED ov{};
        ov.Offset = static_cast<DWORD>((i % perSpan) * block);
        DWORD n = 0;
        ReadFile(h, buffer.data(), block, &n, &ov);
        bench::keep(n);
      },
      0);
}

} // namespace

int main() {
  if (TOV_Startup(nullptr, 0, nullptr, nullptr) != TOV_OK) return 1;
  char dir[MAX_PATH], name[MAX_PATH];
  GetTempPathA(MAX_PATH, dir);
  std::snprintf(name, sizeof name, "%stov-file-bench-%lu.dat", dir, GetCurrentProcessId());
  TOV_FileHandle h = nullptr;
  if (TOV_FileOpen(name, TOV_FILE_READ | TOV_FILE_WRITE | TOV_FILE_CREATE | TOV_FILE_TRUNCATE, 0, 0,
                   &h) != TOV_OK)
    return 1;
  TOV_FileSetSize(h, kSpan);

  run(h, 4096, 8192, 512);
  run(h, kSpan, 96, 48);

  TOV_FileClose(&h);
  TOV_FileDelete(name);
  TOV_Cleanup(nullptr);
  return 0;
}
