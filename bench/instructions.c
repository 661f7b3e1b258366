/* Runs one short thing a given number of times, for bench/run to count its machine instructions:
 * instructions WHAT HUNDREDS. The thing stands a hundred times in a row, so that the loop around
 * it does not count. */
#include <stdlib.h>
#include <string.h>

#include <norvaks/imsg.h>
#include <norvaks/pfm.h>

#define TEN(statement) \
  statement statement statement statement statement statement statement statement statement statement
#define HUNDRED(statement) \
  TEN(statement) TEN(statement) TEN(statement) TEN(statement) TEN(statement) \
  TEN(statement) TEN(statement) TEN(statement) TEN(statement) TEN(statement)

static int traced;

static void inhibit(long hundreds) {
  for (; hundreds > 0; --hundreds) {
    HUNDRED(pfm_inhibit(); pfm_enable();)
  }
}

static void trace(long hundreds) {
  for (; hundreds > 0; --hundreds) {
    HUNDRED(if (imsg_get_desired_verbosity() >= 3 && imsg_should_trace("bench", 3)) ++traced;)
  }
}

int main(int argc, char **argv) {
  if (argc != 3) return 2;
  pfm_init();
  imsg_set_trace_verbosity(0);
  (strcmp(argv[1], "inhibit") == 0 ? inhibit : trace)(atol(argv[2]));
  return traced;
}
