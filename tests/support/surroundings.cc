#include "support/surroundings.h"

#include <cstdlib>
#include <initializer_list>

void ks_test::clear_surroundings() {
  for (const char *name : {"LANG",
                           "LANGUAGE",
                           "LC_ALL",
                           "LC_MESSAGES",
                           "LOCPATH",
                           "NLSPATH",
                           "TZ",
                           "PRINT_SUBSYS",
                           "PRINT_SUBSYS_OK",
                           "IMSG_IO_INTERLEAVE",
                           "IMSG_DUP_OUTPUT",
                           "NORVA_FORCE_GUI",
                           "NORVA_NO_BOLD",
                           "NORVA_REMOTE_PROMPT",
                           "NORVA_WEB_GUI",
                           "NORVA_WEB_TALLOWQUERY",
                           "NORVAHOME",
                           "TALLOWBAYHOME",
                           "TERM",
                           "TERMCAP",
                           "TERMINFO",
                           "TERMINFO_DIRS",
                           "TRACE_SUBSYS",
                           "TRACE_VERBOSITY"}) {
    unsetenv(name);
  }
}
