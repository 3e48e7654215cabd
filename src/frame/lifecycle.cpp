// Start-up, clean-up, the loader entry point, memory tags and the version.
#include "errors.h"
#include "lifecycle.h"
#include "log.h"
#include "net/interfaces.h"
#include "seams.h"
#include "sync/thread.h"
#include "system/stackwalk.h"

#include <winsock2.h>
#include <windows.h>

#include <ctime>

namespace tov {

int32_t g_startCount;
void *g_module;
TOV_MemTag g_memTag;

namespace {

constexpr WORD kWinsockVersion = 0x0002;

// Marker for tools that scan the image; nothing reads it.
__attribute__((used)) const char kIdentification[] = "VeRsIoN=4000.. tov  (Release)";

// Written as an atomic, as startCount() reads it.
inline void setCount(int32_t value) noexcept {
  __atomic_store_n(&g_startCount, value, __ATOMIC_RELAXED);
}

TOV_Status allocLibraryTag() {
#ifdef TOV_TEST_SEAMS
  if (seams::allocMemTag) return seams::allocMemTag(g_module, &g_memTag);
#endif
  return TOV_AllocMemTag(g_module, &g_memTag);
}

int startWinsock(WSADATA *data) {
#ifdef TOV_TEST_SEAMS
  if (seams::wsaStartup) return seams::wsaStartup(kWinsockVersion, data);
#endif
  return WSAStartup(kWinsockVersion, data);
}

} // namespace
} // namespace tov

extern "C" TOV_Status TOV_Startup(void *module, int32_t, void *, void *) noexcept {
  const int32_t old = tov::startCount();
  tov::setCount(old + 1);
  if (old != 0) return TOV_OK;
  if (!tov::g_module) tov::g_module = module;

  const TOV_Status tagStatus = tov::allocLibraryTag();
  if (tagStatus != TOV_OK) {
    tov::LogPrintf(tov::LogCrit, "TOV Init: AllocMemTag failed, %d.", tagStatus);
    tov::setCount(tov::startCount() - 1);
    return tagStatus;
  }

  WSADATA wsa;
  const int wsaError = tov::startWinsock(&wsa);
  if (wsaError != 0) {
    tov::LogPrintf(tov::LogCrit, "TOV Init: WSAStartup failed, WSE: %d.", wsaError);
    tov::debugHelpCleanup();
    tov::descriptionCleanup();
    TOV_FreeMemTag(&tov::g_memTag);
    tov::setCount(tov::startCount() - 1);
    return wsaError;
  }
  tov::LogPrintf(tov::LogInfo, "TOV Init: Winsock initialized for requested version %d.%d",
                 LOBYTE(wsa.wVersion), HIBYTE(wsa.wVersion));
  _tzset();
  return TOV_OK;
}

extern "C" void TOV_Cleanup(void *) noexcept {
  if (const int32_t old = tov::startCount(); old != 0) {
    tov::setCount(old - 1);
    if (old != 1) return;
  }
  if (WSACleanup() == SOCKET_ERROR)
    tov::LogPrintf(tov::LogErr, "TOV: WSACleanup failed, WSE: %d.", WSAGetLastError());
  tov::debugHelpCleanup();
  tov::descriptionCleanup();
  tov::interfacesRelease();
  TOV_FreeMemTag(&tov::g_memTag);
}

extern "C" TOV_Status TOV_AllocMemTag(void *owner, TOV_MemTag *tagOut) noexcept {
  *tagOut = owner;
  return TOV_OK;
}

extern "C" void TOV_FreeMemTag(TOV_MemTag *tag) noexcept {
  *tag = nullptr;
}

extern "C" uint32_t TOV_GetVersion(void) noexcept {
  return TOV_INTERFACE_VERSION;
}

extern "C" uint32_t findid(uint32_t value, const uint32_t *list, uint32_t count) noexcept {
  constexpr uint32_t kNone = 0xFFFFFFFFu;
  if (!tov::started() || (!list && count != 0)) return kNone;
  for (uint32_t i = 0; i < count; ++i)
    if (list[i] == value) return i;
  return kNone;
}

#ifndef TOV_STATIC
extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) noexcept {
  if (reason == DLL_PROCESS_ATTACH) tov::g_module = module;
  if (reason == DLL_THREAD_DETACH) tov::threadEnded(GetCurrentThreadId());
  return TRUE;
}
#endif
