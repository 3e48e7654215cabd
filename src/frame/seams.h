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
// Allocation faults: while failAllocation is n > 0, every library
// allocation (TOV_malloc, TOV_calloc, TOV_realloc, TOV_strdup, TOV_wcsdup)
// counts it down, and the one that takes it to 0, the n-th from when it was
// set, fails (gives null); the ones after it succeed again. allocations and
// frees count the blocks handed out and given back (TOV_free of a block), so
// allocations - frees is the number of live blocks.
extern int32_t failAllocation;
extern int64_t allocations, frees;

// When set, used instead of GetTickCount by the uptime and UuidCreate by the
// identifier generator.
extern DWORD (*tickCount)();
extern long (*uuidCreate)(GUID *uuid);
// When set, asked before each semaphore or event a condition record creates:
// true makes that create fail (the seam sets the last error).
extern bool (*failObjectCreate)();

} // namespace tov::seams

#endif
