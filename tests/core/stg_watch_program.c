/* Writes `bytes` bytes into an allocation of 5 bytes of an area, for a memory checker to watch:
 * stg_watch_program BYTES */
#include <stdlib.h>

#include <norvaks/stg.h>

int main(int argc, char **argv) {
  int bytes = argc == 2 ? atoi(argv[1]) : 0;
  stg_area_t area = stg_create_area(1000);
  volatile char *block = stg_alloc(area, 5);
  for (int i = 0; i < bytes; ++i) block[i] = 'x';
  stg_free_area(area, 1);
  block = stg_alloc(area, 5);
  block[0] = 'x';
  stg_delete_area(&area);
  return 0;
}
