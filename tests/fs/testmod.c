/* A module for the module tests: one export, and a version record from
 * testmod.rc (built twice, with and without its translation table). */
__declspec(dllexport) int testmod_answer(void) {
  return 42;
}
