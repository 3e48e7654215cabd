// Pieces of the file family that the directory and module families share.
#pragma once

#include "tov.h"

#include <windows.h>

#include <cstdint>

namespace tov {

// The library's attribute flags and the platform's attribute bits, pairwise.
// Files are created with the first four; listings report all five.
struct AttributeBit {
  uint32_t library;
  DWORD platform;
};
inline constexpr AttributeBit kAttributeBits[] = {
    {TOV_FILE_ATTR_ARCHIVE, FILE_ATTRIBUTE_ARCHIVE},
    {TOV_FILE_ATTR_HIDDEN, FILE_ATTRIBUTE_HIDDEN},
    {TOV_FILE_ATTR_READONLY, FILE_ATTRIBUTE_READONLY},
    {TOV_FILE_ATTR_SYSTEM, FILE_ATTRIBUTE_SYSTEM},
    {TOV_FILE_ATTR_DIRECTORY, FILE_ATTRIBUTE_DIRECTORY},
};

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
