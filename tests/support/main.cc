// Every case starts from surroundings that tell the library nothing, whoever runs it.
#include <gmock/gmock.h>

#include <cstdlib>

#include "support/faults.h"

int main(int argc, char **argv) {
  for (const char *name :
       {"LANG", "LANGUAGE", "LC_ALL", "LC_MESSAGES", "LOCPATH", "NLSPATH", "TZ", "PRINT_SUBSYS",
        "PRINT_SUBSYS_OK", "IMSG_IO_INTERLEAVE", "IMSG_DUP_OUTPUT", "NORVA_FORCE_GUI",
        "NORVA_NO_BOLD", "NORVA_REMOTE_PROMPT", "NORVA_WEB_GUI", "NORVA_WEB_TALLOWQUERY",
        "NORVAHOME", "TALLOWBAYHOME", "TERM", "TERMCAP", "TERMINFO", "TERMINFO_DIRS",
        "TRACE_SUBSYS", "TRACE_VERBOSITY"}) {
    unsetenv(name);
  }
  testing::InitGoogleMock(&argc, argv);
  const int result = RUN_ALL_TESTS();
  ks_test::stop_failing_calls();  // what runs at the exit, such as coverage, is no test
  return result;
}
