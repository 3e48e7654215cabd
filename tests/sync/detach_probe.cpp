// A library that sync_test imports before tov, so that it is initialised
// first and its thread-detach handler runs after tov's thread-end hook. On
// the one thread it watches, that handler uses the description stack and
// records what it finds. It reaches tov by name, not by import: an import
// would have tov initialised first.
#include "tov.h"

#include <windows.h>

#define TOV_ENTRY(name)                                                                            \
  reinterpret_cast<decltype(&name)>(                                                               \
      reinterpret_cast<void *>(GetProcAddress(GetModuleHandleA("tov.dll"), #name)))

static DWORD g_watched;
static int32_t g_seen[5]; // pop; read's status and count; push; pop

// Watches the thread with this id; the array fills when it ends.
extern "C" __declspec(dllexport) const int32_t *detachProbe(uint32_t threadId) {
  g_watched = threadId;
  return g_seen;
}

extern "C" BOOL WINAPI DllMain(HINSTANCE, DWORD reason, LPVOID) {
  if (reason != DLL_THREAD_DETACH || GetCurrentThreadId() != g_watched) return TRUE;
  uint32_t depth = 0;
  g_seen[0] = TOV_ENTRY(TOV_ThreadPopDescriptionPtr)();
  g_seen[1] = TOV_ENTRY(TOV_ThreadGetDescriptionPtrs)(0, nullptr, &depth);
  g_seen[2] = static_cast<int32_t>(depth);
  g_seen[3] = TOV_ENTRY(TOV_ThreadPushDescriptionPtr)(nullptr);
  g_seen[4] = TOV_ENTRY(TOV_ThreadPopDescriptionPtr)();
  return TRUE;
}
