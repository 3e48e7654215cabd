// Replaceable platform steps for the failure paths that cannot be provoked for
// real. They exist only in the static test build (TOV_TEST_SEAMS); the DLL
// always calls the platform.
#pragma once

#ifdef TOV_TEST_SEAMS

#include "tov.h"

#include <winsock2.h>

namespace tov::seams {

// When set, used instead of TOV_AllocMemTag by the first start.
extern TOV_Status (*allocMemTag)(void *owner, TOV_MemTag *tagOut);
// When set, used instead of WSAStartup by the first start.
extern int (*wsaStartup)(WORD version, WSADATA *data);
// While set, TOV_malloc, TOV_calloc and TOV_realloc fail (give null).
extern bool failAllocations;

// When set, used instead of GetTickCount by the uptime and UuidCreate by the
// identifier generator.
extern DWORD (*tickCount)();
extern long (*uuidCreate)(GUID *uuid);
// When set, asked before each semaphore or event a condition record creates:
// true makes that create fail (the seam sets the last error).
extern bool (*failObjectCreate)();

} // namespace tov::seams

#endif
