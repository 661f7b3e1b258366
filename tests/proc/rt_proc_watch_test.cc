#include <gtest/gtest.h>

#include "support/child.h"

namespace {

#if !defined(__SANITIZE_ADDRESS__)

// Two deaths that are reported and one signal in each of a hundred rounds.
TEST(RtProcWatch, ValgrindFindsNoLeakOverHundredsOfChildrenAndSignals) {
  const ks_test::Outcome outcome = ks_test::run_program(
      {"valgrind", "--suppressions=" NORVAKS_SOURCE_DIR "/tests/support/valgrind.supp", "-q",
       "--child-silent-after-fork=yes", "--leak-check=full",
       "--errors-for-leak-kinds=definite,indirect,possible", "--error-exitcode=9",
       NORVAKS_BUILD_DIR "/bin/rt_proc_watch_program"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "300\n");
  EXPECT_EQ(outcome.end(), "exit 0");
}

#else

TEST(RtProcWatch, TheSanitizerFindsNoLeakOverHundredsOfChildrenAndSignals) {
  const ks_test::Outcome outcome =
      ks_test::run_program({NORVAKS_BUILD_DIR "/bin/rt_proc_watch_program"});
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "300\n");
  EXPECT_EQ(outcome.end(), "exit 0");
}

#endif

}  // namespace
