/* The smallest use of tov: start it, say who we are, stop it. */
#include <stdio.h>

#include <tov.h>

int main(void) {
  TOV_Status status = TOV_Startup(NULL, 0, NULL, NULL);
  if (status != TOV_OK) {
    fprintf(stderr, "demo: TOV_Startup failed with %ld\n", (long)status);
    return 1;
  }
  unsigned version = TOV_GetVersion();
  printf("demo: tov interface version %u.%u (0x%08X)\n", version >> 24, (version >> 16) & 0xFF,
         version);
  TOV_DebugOutput("demo: started with interface version 0x%08X", version);
  printf("demo: a line went to the debugger\n");
  TOV_Cleanup(NULL);
  printf("demo: cleaned up\n");
  return 0;
}
