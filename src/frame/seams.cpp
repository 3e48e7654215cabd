#include "seams.h"

#ifdef TOV_TEST_SEAMS
namespace tov::seams {
TOV_Status (*allocMemTag)(void *, TOV_MemTag *);
int (*wsaStartup)(WORD, WSADATA *);
DWORD (*tickCount)();
long (*uuidCreate)(GUID *);
int32_t failAllocation;
int64_t allocations, frees;
bool (*failObjectCreate)();
} // namespace tov::seams
#endif
