#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/child.h"

namespace {

// What the program was compiled with to watch it by itself, valgrind does not run.
#if defined(__SANITIZE_ADDRESS__)
const std::vector<std::string> kUnderChecker = {NORVAKS_BUILD_DIR "/bin/pfm_watch_program"};
#else
const std::vector<std::string> kUnderChecker = {"valgrind", "-q", "--error-exitcode=9",
                                                NORVAKS_BUILD_DIR "/bin/pfm_watch_program"};
#endif

TEST(PfmWatch, AMemoryCheckerFindsNothingInAFreshRecord) {
  const ks_test::Outcome outcome = ks_test::run_program(kUnderChecker);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.end(), "exit 0");
}

}  // namespace
