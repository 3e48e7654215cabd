// System-wide processor usage between two samples, and the processor count.
#include "frame/errors.h"
#include "frame/lifecycle.h"

#include <windows.h>

// One sample of the system's times, in 100 ns units summed over all
// processors.
struct TOV_CPUUsage {
  uint64_t total; // kernel + user time (the kernel time includes the idle time)
  uint64_t busy;  // total - idle
};

namespace {

inline uint64_t ticks(const FILETIME &t) {
  return static_cast<uint64_t>(t.dwHighDateTime) << 32 | t.dwLowDateTime;
}

// False, with the system's last error, when the times cannot be read.
bool takeSample(TOV_CPUUsage *sample) {
  FILETIME idle, kernel, user;
  if (!GetSystemTimes(&idle, &kernel, &user)) return false;
  sample->total = ticks(kernel) + ticks(user);
  sample->busy = sample->total - ticks(idle);
  return true;
}

// The busy share in percent, truncated. The system's counters move in steps
// of about 10 ms, so two samples close together often show no time at all:
// nothing was seen busy then, which is 0. A busy delta above the total
// (counters that went back) counts as fully busy, which keeps the quotient in
// 0..1 before the conversion to an integer.
int32_t busyPercent(uint64_t busyDelta, uint64_t totalDelta) {
  if (totalDelta == 0) return 0;
  if (busyDelta > totalDelta) busyDelta = totalDelta;
  const float share = static_cast<float>(busyDelta) / static_cast<float>(totalDelta);
  return static_cast<int32_t>(share * 100.0f);
}

} // namespace

extern "C" TOV_Status TOV_GetCPUUsageHandle(TOV_CPUUsage **handleOut) noexcept {
  TOV_FRAME(handleOut != nullptr);
  *handleOut = nullptr;
  TOV_CPUUsage sample;
  if (!takeSample(&sample)) return tov::MapLastSystemError();
  auto *record = static_cast<TOV_CPUUsage *>(TOV_malloc(tov::libTag(), sizeof(TOV_CPUUsage)));
  if (!record) return TOV_ERR_NO_MEMORY;
  *record = sample;
  *handleOut = record;
  return TOV_OK;
}

extern "C" TOV_Status TOV_GetCPUUsagePercent(TOV_CPUUsage *handle, int32_t *percent) noexcept {
  TOV_FRAME(handle != nullptr && percent != nullptr);
  *percent = -1;
  TOV_CPUUsage sample;
  if (!takeSample(&sample)) return tov::MapLastSystemError();
  *percent = busyPercent(sample.busy - handle->busy, sample.total - handle->total);
  *handle = sample;
  return TOV_OK;
}

extern "C" TOV_Status TOV_FreeCPUUsageHandle(TOV_CPUUsage **handle) noexcept {
  TOV_FRAME(handle != nullptr);
  TOV_free(*handle);
  *handle = nullptr;
  return TOV_OK;
}

// The active-processor mask, bit 0 upwards, as far as the reported number of
// processors reaches.
extern "C" uint32_t TOV_GetNumberOfProcessors(void) noexcept {
  SYSTEM_INFO info;
  GetSystemInfo(&info);
  uint32_t count = 0;
  DWORD_PTR mask = info.dwActiveProcessorMask;
  for (DWORD bit = 0; mask != 0 && bit < info.dwNumberOfProcessors; ++bit, mask >>= 1)
    count += mask & 1;
  return count;
}
