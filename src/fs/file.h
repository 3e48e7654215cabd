// Pieces of the file family that the directory and module families share.
#pragma once

#include <windows.h>

#include <cstdint>

namespace tov {

// 100-ns intervals from 1601-01-01 to 1970-01-01.
inline constexpr uint64_t kFileTimeUnixEpoch = 116444736000000000ull;
inline constexpr uint64_t kFileTimeTicksPerSecond = 10000000ull;

// A platform file time as whole seconds since 1970-01-01 00:00:00 UTC, the
// fraction dropped (towards zero for times before 1970).
inline int64_t fileTimeToSeconds(const FILETIME &ft) noexcept {
  const uint64_t ticks = (static_cast<uint64_t>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
  return (static_cast<int64_t>(ticks) - static_cast<int64_t>(kFileTimeUnixEpoch)) /
         static_cast<int64_t>(kFileTimeTicksPerSecond);
}

} // namespace tov
