// Uptime, sleep, wall-clock time and the local time zone's offset.
#include "frame/seams.h"
#include "tov.h"

#include <windows.h>

#include <sys/timeb.h>
#include <time.h>

namespace {

// A private lock word: 1 is exchanged in until the old value was 0; a thread
// that finds it taken gives up its time slice and tries again.
class LockWordGuard {
public:
  explicit LockWordGuard(uint32_t *word) noexcept : word_(word) {
    while (__atomic_exchange_n(word_, 1u, __ATOMIC_ACQUIRE) != 0) Sleep(0);
  }
  ~LockWordGuard() { __atomic_exchange_n(word_, 0u, __ATOMIC_RELEASE); }
  LockWordGuard(const LockWordGuard &) = delete;
  LockWordGuard &operator=(const LockWordGuard &) = delete;

private:
  uint32_t *word_;
};

// Whole seconds per wrap of the 32-bit millisecond counter (2^32 / 1000); the
// 0.296 s left over at each wrap is not carried.
constexpr uint32_t kSecondsPerWrap = 4294967;

// Uptime state, for the life of the process, under its lock.
constinit uint32_t g_uptimeLock = 0;
constinit uint32_t g_lastSeconds = 0;
constinit uint32_t g_wraps = 0;

// Time-zone cache, for the life of the process, under its lock.
constexpr int64_t kZoneRefreshSeconds = 1800;
constinit uint32_t g_zoneLock = 0;
constinit int64_t g_zoneRefreshed = 0; // seconds since 1970 UTC of the last refresh
constinit int32_t g_zoneOffset = 0;

DWORD tickCount() {
#ifdef TOV_TEST_SEAMS
  if (tov::seams::tickCount) return tov::seams::tickCount();
#endif
  return GetTickCount();
}

} // namespace

// A counter reading below the last one is a wrap.
extern "C" uint32_t TOV_SecondsUp(void) noexcept {
  LockWordGuard guard(&g_uptimeLock);
  const uint32_t seconds = tickCount() / 1000;
  if (seconds < g_lastSeconds) ++g_wraps;
  g_lastSeconds = seconds;
  return seconds + g_wraps * kSecondsPerWrap;
}

extern "C" void TOV_Sleep(uint32_t ms) noexcept {
  Sleep(ms);
}

extern "C" void TOV_HiResTime(int64_t *seconds, uint32_t *millis) noexcept {
  __timeb64 now;
  _ftime64(&now);
  *seconds = now.time;
  if (millis) *millis = now.millitm;
}

// The platform's bias (minutes to add to local time to get UTC), plus the
// daylight bias while daylight saving time is in effect in a zone that has
// it, in seconds. A failed refresh keeps the cached value and is tried again
// on the next call.
extern "C" int32_t TOV_TZOffset(void) noexcept {
  LockWordGuard guard(&g_zoneLock);
  if (_time64(nullptr) > g_zoneRefreshed + kZoneRefreshSeconds) {
    TIME_ZONE_INFORMATION zone;
    const DWORD which = GetTimeZoneInformation(&zone);
    if (which != TIME_ZONE_ID_INVALID) {
      g_zoneRefreshed = _time64(nullptr);
      LONG minutes = zone.Bias;
      if (which == TIME_ZONE_ID_DAYLIGHT && zone.DaylightDate.wMonth != 0)
        minutes += zone.DaylightBias;
      g_zoneOffset = minutes * 60;
    }
  }
  return g_zoneOffset;
}
