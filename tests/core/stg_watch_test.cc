#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "stg.h"
#include "support/child.h"

using testing::HasSubstr;

namespace {

#if defined(__SANITIZE_ADDRESS__)

TEST(StgWatchDeathTest, AddressSanitizerCatchesAWritePastAnAllocationWhenItHappens) {
  stg_area_t area = stg_create_area(1000);
  volatile char *block = static_cast<char *>(stg_alloc(area, 5));
  block[4] = 'x';
  EXPECT_DEATH(block[5] = 'x', "use-after-poison");
  EXPECT_DEATH(block[8] = 'x', "use-after-poison");
  stg_free_area(area, 1);
  EXPECT_DEATH(block[0] = 'x', "use-after-poison");
  stg_delete_area(&area);
}

#else

ks_test::Outcome under_valgrind(const char *bytes) {
  return ks_test::run_program(
      {"valgrind", "-q", "--error-exitcode=9", NORVAKS_BUILD_DIR "/bin/stg_watch_program", bytes});
}

TEST(StgWatch, ValgrindCatchesAWritePastAnAllocationWhenItHappens) {
  const ks_test::Outcome inside = under_valgrind("5");
  EXPECT_EQ(inside.err, "");
  EXPECT_EQ(inside.end(), "exit 0");
  const ks_test::Outcome past = under_valgrind("6");
  EXPECT_THAT(past.err, HasSubstr("Invalid write of size 1"));
  EXPECT_EQ(past.end(), "exit 9");
}

#endif

}  // namespace
