/* Exported functions that do nothing: the unavoidable cost of calling into a
 * DLL, which the benchmarks measure the thinnest library calls against. One
 * has the arguments of a codec put call, one the handle of a lock call. Built
 * for the benchmarks only. */
#include <stdint.h>

__declspec(dllexport) int32_t EmptyPut(uint8_t **cursor, uint8_t *limit, uint32_t value) {
  (void)cursor;
  (void)limit;
  (void)value;
  return 0;
}

__declspec(dllexport) int32_t EmptyLockCall(void *handle) {
  (void)handle;
  return 0;
}
