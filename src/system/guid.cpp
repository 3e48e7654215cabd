// Unique identifiers: the system's generator, and a pseudo-random fill when
// it cannot make one.
#include "frame/seams.h"
#include "tov.h"

#include <windows.h>

#include <rpc.h>

#include <cstdlib>
#include <cstring>
#include <time.h>

namespace {

static_assert(sizeof(TOV_Guid) == sizeof(UUID));

// The C runtime's generator is seeded once for the process, on the first
// fallback. The C runtime keeps the generator's state per thread, so this
// seeds the state of the thread that falls back first; other threads go on
// from their own states.
constinit INIT_ONCE g_seedOnce = INIT_ONCE_STATIC_INIT;

BOOL CALLBACK seedGenerator(INIT_ONCE *, void *, void **) {
  srand(static_cast<unsigned>(_time64(nullptr)));
  return TRUE;
}

RPC_STATUS createUuid(UUID *uuid) {
#ifdef TOV_TEST_SEAMS
  if (tov::seams::uuidCreate) return tov::seams::uuidCreate(uuid);
#endif
  return UuidCreate(uuid);
}

} // namespace

// Any result but success (the local-only one included) means the fill.
extern "C" void TOV_TmGuidGenerate(TOV_Guid *guid) noexcept {
  UUID made;
  if (createUuid(&made) != RPC_S_OK) {
    InitOnceExecuteOnce(&g_seedOnce, seedGenerator, nullptr, nullptr);
    uint32_t words[4];
    for (uint32_t &word : words) word = static_cast<uint32_t>(rand());
    std::memcpy(&made, words, sizeof made);
  }
  std::memcpy(guid, &made, sizeof made);
}
