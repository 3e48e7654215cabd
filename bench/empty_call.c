/* An exported function that does nothing, with the arguments of a codec put
 * call: the unavoidable cost of calling into a DLL, which the codec benchmark
 * measures a single field against. Built for the benchmarks only. */
#include <stdint.h>

__declspec(dllexport) int32_t EmptyPut(uint8_t **cursor, uint8_t *limit, uint32_t value) {
  (void)cursor;
  (void)limit;
  (void)value;
  return 0;
}
