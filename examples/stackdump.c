/*
 * A hang report: where is each thread of this process right now?
 *
 * Three workers block in different places (an event nobody sets, a mutex the
 * main thread holds, a semaphore with no count). The main thread then lists
 * the process's threads and prints each one's stack, innermost frame first,
 * as module!function+0xoff (file:line), with the description each worker
 * pushed on its description stack.
 *
 * Each thread is held only while its stack is walked; the symbols are looked
 * up after it runs again, so a report never keeps a thread stopped for long.
 */
#include <stdio.h>
#include <string.h>
#include <windows.h>

#include <tov.h>

#define MAX_FRAMES 32

static TOV_EventHandle orders; /* never set while the report runs */
static TOV_MutexHandle ledger; /* held by the main thread */
static TOV_SemHandle stock;    /* count 0 */
static TOV_SemHandle ready;    /* each worker signals it before blocking */

static uint32_t waitForOrder(void *arg) {
  (void)arg;
  TOV_ThreadPushDescriptionPtr("order desk: waits for an order");
  TOV_SemSignal(ready, 1);
  return (uint32_t)TOV_EventWait(orders, TOV_WAIT_INFINITE);
}

static uint32_t postToLedger(void *arg) {
  (void)arg;
  TOV_ThreadPushDescriptionPtr("bookkeeper: needs the ledger");
  TOV_SemSignal(ready, 1);
  TOV_Status status = TOV_MutexAcquire(ledger);
  if (status == TOV_OK) TOV_MutexRelease(ledger);
  return (uint32_t)status;
}

static TOV_Status takeFromShelf(void) {
  return TOV_SemAcquire(stock, TOV_WAIT_INFINITE);
}

static uint32_t restock(void *arg) {
  (void)arg;
  TOV_ThreadPushDescriptionPtr("stock keeper: waits for stock");
  TOV_SemSignal(ready, 1);
  return (uint32_t)takeFromShelf();
}

/* The last path element, without its extension when drop is set. */
static const char *baseName(const char *path, char *out, size_t size, int drop) {
  const char *slash = strrchr(path, '\\');
  const char *other = strrchr(path, '/');
  const char *base = other > slash ? other + 1 : slash ? slash + 1 : path;
  TOV_strnzcpy(out, base, size);
  char *dot = drop ? strrchr(out, '.') : NULL;
  if (dot) *dot = '\0';
  return out;
}

static void printFrame(uint64_t processId, uint64_t address) {
  char name[256], file[MAX_PATH], module[MAX_PATH], shortModule[64], shortFile[64];
  uint64_t displacement = 0, base = 0;
  uint32_t line = 0;
  TOV_SysGetSymbolInfo(processId, address, name, sizeof name, &displacement, file, sizeof file,
                       &line, module, sizeof module, &base, NULL, NULL);
  baseName(module, shortModule, sizeof shortModule, 1);
  if (name[0])
    printf("    %s!%s+0x%llx", shortModule, name, (unsigned long long)displacement);
  else if (module[0])
    printf("    %s+0x%llx", shortModule, (unsigned long long)(address - base));
  else
    printf("    0x%llx", (unsigned long long)address);
  if (file[0]) printf(" (%s:%u)", baseName(file, shortFile, sizeof shortFile, 0), (unsigned)line);
  printf("\n");
}

static void reportThread(TOV_MemTag tag, uint64_t processId, uint64_t threadId) {
  void *descriptions[4];
  uint32_t depth = 4;
  TOV_ThreadGetDescriptionPtrs(threadId, descriptions, &depth);
  printf("thread %llu%s%s\n", (unsigned long long)threadId, depth ? ": " : "",
         depth ? (const char *)descriptions[0] : "");
  if (threadId == TOV_ThreadGetCurrentID()) {
    printf("    (the reporting thread)\n");
    return;
  }

  uint64_t frames[MAX_FRAMES];
  int count = 0;
  TOV_ThreadCtxHandle ctx = NULL;
  TOV_Status status = TOV_SysAllocThreadCtx(tag, processId, threadId, &ctx);
  if (status != TOV_OK) {
    printf("    (cannot capture: %d)\n", (int)status);
    return;
  }
  uint64_t address = 0;
  while (count < MAX_FRAMES && TOV_SysStackWalk(ctx, &address) == TOV_OK && address != 0)
    frames[count++] = address;
  TOV_SysFreeThreadCtx(ctx); /* the thread runs again */

  for (int i = 0; i < count; ++i) printFrame(processId, frames[i]);
}

int main(void) {
  if (TOV_Startup(NULL, 0, NULL, NULL) != TOV_OK) return 1;
  static int owner; /* names this program's allocations */
  TOV_MemTag tag = NULL;
  TOV_AllocMemTag(&owner, &tag);
  TOV_EventCreate(NULL, 1, 0, &orders);
  TOV_MutexCreate(NULL, &ledger);
  TOV_MutexAcquire(ledger);
  TOV_SemCreate(NULL, 0, 1, &stock);
  TOV_SemCreate(NULL, 0, 3, &ready);

  TOV_ThreadRoutine routines[] = {waitForOrder, postToLedger, restock};
  TOV_ThreadHandle workers[3];
  for (int i = 0; i < 3; ++i) TOV_ThreadCreate(routines[i], NULL, 0, &workers[i]);
  for (int i = 0; i < 3; ++i) TOV_SemAcquire(ready, TOV_WAIT_INFINITE);
  Sleep(200); /* from its signal to its wait, a worker needs a moment */

  /* The symbol handler learns the process's modules at its first look-up,
   * and a walk can only unwind through modules it knows. */
  uint64_t processId = 0;
  TOV_SysGetCurrentProcessId(&processId);
  char name[64];
  TOV_SysGetSymbolInfo(processId, (uint64_t)(uintptr_t)main, name, sizeof name, NULL, NULL, 0, NULL,
                       NULL, 0, NULL, NULL, NULL);

  uint64_t threads[64];
  uint32_t count = 64;
  TOV_Status status = TOV_SysEnumThreads(processId, threads, &count);
  if (status != TOV_OK && status != TOV_ERR_BUFFER_TOO_SMALL) return 1;
  printf("process %llu, %u threads\n", (unsigned long long)processId, (unsigned)count);
  for (uint32_t i = 0; i < count && i < 64; ++i) reportThread(tag, processId, threads[i]);

  TOV_EventSet(orders);
  TOV_MutexRelease(ledger);
  TOV_SemSignal(stock, 1);
  for (int i = 0; i < 3; ++i) {
    TOV_ThreadWait(workers[i], TOV_WAIT_INFINITE);
    TOV_ThreadDestroy(&workers[i]);
  }
  TOV_EventDestroy(&orders);
  TOV_MutexDestroy(&ledger);
  TOV_SemDestroy(&stock);
  TOV_SemDestroy(&ready);
  TOV_FreeMemTag(&tag);
  TOV_Cleanup(NULL);
  return 0;
}
