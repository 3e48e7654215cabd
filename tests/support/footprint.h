// What a leak check can see of kernel handles from inside the process. Shared
// by the tests and the soak program (header only: the soak links no test
// support).
#pragma once

#include <windows.h>

#include <vector>

namespace tovtest {

// The process's handle count, and where fresh handles land: Wine reports a
// count of 0 but hands out the lowest free slots, so a handle left open
// moves the slots of the next ones (on Windows the count moves instead).
struct HandleFootprint {
  DWORD count = 0;
  std::vector<HANDLE> slots;
  bool operator==(const HandleFootprint &) const = default;
};

inline HandleFootprint handleFootprint(int probes = 64) {
  HandleFootprint f;
  GetProcessHandleCount(GetCurrentProcess(), &f.count);
  for (int i = 0; i < probes; ++i) f.slots.push_back(CreateEventA(nullptr, TRUE, FALSE, nullptr));
  for (HANDLE h : f.slots) CloseHandle(h);
  return f;
}

} // namespace tovtest
