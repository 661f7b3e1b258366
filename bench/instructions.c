/* Runs one short thing a given number of times, for bench/run to count its machine instructions:
 * instructions WHAT HUNDREDS. The thing stands a hundred times in a row, so that the loop around
 * it does not count. */
#include <stdlib.h>
#include <string.h>

#include <norvaks/imsg.h>
#include <norvaks/pfm.h>
#include <norvaks/sysutl.h>

#define TEN(statement) \
  statement statement statement statement statement statement statement statement statement statement
#define HUNDRED(statement) \
  TEN(statement) TEN(statement) TEN(statement) TEN(statement) TEN(statement) \
  TEN(statement) TEN(statement) TEN(statement) TEN(statement) TEN(statement)

static int traced;

/* A case is a function that does one thing so many hundred times. */
#define CASE(name, statement)                     \
  static void name(long hundreds) {               \
    for (; hundreds > 0; --hundreds) {            \
      HUNDRED(statement)                          \
    }                                             \
  }

CASE(inhibit, pfm_inhibit(); pfm_enable();)
CASE(trace, if (imsg_get_desired_verbosity() >= 3 && imsg_should_trace("bench", 3)) ++traced;)
CASE(host_name, sysutl_myhostname();)
CASE(login_name, sysutl_myloginname();)
CASE(full_name, sysutl_user_to_fullname("root");)

static const struct {
  const char *name;
  void (*run)(long hundreds);
} cases[] = {
    {"inhibit", inhibit},       {"trace", trace},         {"host name", host_name},
    {"login name", login_name}, {"full name", full_name},
};

int main(int argc, char **argv) {
  if (argc != 3) return 2;
  pfm_init();
  imsg_set_trace_verbosity(0);
  sysutl_myhostname();
  sysutl_myloginname();
  sysutl_user_to_fullname("root");
  for (size_t i = 0; i < sizeof cases / sizeof cases[0]; ++i) {
    if (strcmp(cases[i].name, argv[1]) != 0) continue;
    cases[i].run(atol(argv[2]));
    return traced;
  }
  return 2;
}
