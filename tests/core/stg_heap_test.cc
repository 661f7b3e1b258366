#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "imsg.h"
#include "stg.h"
#include "support/child.h"
#include "support/faults.h"

using ks_test::fail_call;
using ks_test::in_child;
using ks_test::Outcome;
using testing::MatchesRegex;

namespace {

// Three times that there is no memory.
constexpr const char *kNoMemoryThrice =
    "noname: Error: No more memory available.\n"
    "noname: Error: No more memory available.\n"
    "noname: Error: No more memory available.\n";

unsigned char *bytes(void *block) { return static_cast<unsigned char *>(block); }

void check_storage(int verbosity) {
  imsg_set_trace_subsys("ks/stg");
  imsg_set_trace_verbosity(verbosity);
}

uint32_t header(void *block) {
  uint32_t size;
  memcpy(&size, bytes(block) - 8, sizeof size);
  return size;
}

// The bytes of the guard behind a checked block of `size` bytes.
std::string guard(void *block, size_t size) {
  const size_t rounded = (size + 7) / 8 * 8;
  return std::string(reinterpret_cast<char *>(block) + size, rounded - size + 8);
}

TEST(Heap, AllocatesAndTakesZeroForOne) {
  for (size_t size : {size_t{0}, size_t{1}, size_t{1000}}) {
    unsigned char *block = bytes(stg_malloc(size));
    ASSERT_NE(block, nullptr);
    block[0] = 1;
    stg_free(block);
  }
  stg_free(nullptr);
}

TEST(Heap, ReallocatesKeepingTheContents) {
  char *block = static_cast<char *>(stg_realloc(nullptr, 4));
  memcpy(block, "abc", 4);
  block = static_cast<char *>(stg_realloc(block, 100000));
  EXPECT_STREQ(block, "abc");
  block = static_cast<char *>(stg_realloc(block, 0));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(block[0], 'a');
  stg_free(block);
}

TEST(Heap, CopiesTexts) {
  char *copy = stg_strdup("abc");
  EXPECT_STREQ(copy, "abc");
  stg_free(copy);
}

TEST(Heap, ExhaustionPrintsSetsErrnoAndGivesNull) {
  const Outcome outcome = in_child([] {
    imsg_set_trace_verbosity(0);
    errno = 0;
    fail_call("malloc", 0, 0);
    if (stg_malloc(8) != nullptr || errno != ENOMEM) _exit(1);
    void *block = stg_malloc(8);
    errno = 0;
    fail_call("realloc", 0, 0);
    if (stg_realloc(block, 16) != nullptr || errno != ENOMEM) _exit(2);
    stg_free(block);  // still there
    fail_call("malloc", 0, 0);
    if (stg_strdup("abc") != nullptr) _exit(3);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err, kNoMemoryThrice);
}

TEST(CheckedHeap, LaysABlockOutWithHeaderFillAndGuard) {
  check_storage(1);
  for (size_t size : {1u, 5u, 7u, 8u, 9u, 16u, 100u}) {
    unsigned char *block = bytes(stg_malloc(size));
    EXPECT_EQ(header(block), size);
    EXPECT_EQ(std::string(block, block + size), std::string(size, '\xFF')) << size;
    EXPECT_EQ(guard(block, size), std::string((size + 7) / 8 * 8 - size + 8, '\xAA')) << size;
    stg_free(block);
  }
}

TEST(CheckedHeap, ReallocationMovesTheGuardAndFillsNothing) {
  check_storage(1);
  unsigned char *block = bytes(stg_realloc(nullptr, 5));
  EXPECT_EQ(header(block), 5u);
  memcpy(block, "abcd", 5);
  block = bytes(stg_realloc(block, 12));
  EXPECT_EQ(header(block), 12u);
  EXPECT_STREQ(reinterpret_cast<char *>(block), "abcd");
  EXPECT_EQ(guard(block, 12), std::string(12, '\xAA'));
  // The bytes that were guard before and belong to the caller now are as they were.
  EXPECT_EQ(std::string(block + 5, block + 12), std::string(7, '\xAA'));
  block = bytes(stg_realloc(block, 3));
  EXPECT_EQ(guard(block, 3), std::string(13, '\xAA'));
  stg_free(block);
}

TEST(CheckedHeap, FreeReportsTheFirstDamagedGuardByteAndReleasesTheBlock) {
  const Outcome outcome = in_child([] {
    check_storage(1);
    unsigned char *block = bytes(stg_malloc(5));
    block[5] = 0x41;
    block[7] = 0x42;
    printf("noname: Error: Heap block 0x%08lX: end overwritten at 0x%08lX.\n",
           reinterpret_cast<unsigned long>(block), reinterpret_cast<unsigned long>(block + 5));
    fflush(stdout);
    stg_free(block);
  });
  EXPECT_EQ(outcome.err, outcome.out);
  EXPECT_EQ(outcome.end(), "exit 0");
}

TEST(CheckedHeap, TheLastGuardByteIsTestedTheByteBehindIsNot) {
  const Outcome outcome = in_child([] {
    check_storage(1);
    unsigned char *block = bytes(stg_malloc(9));
    block[23] = 0;  // guard of 15 bytes: 9 to 23
    printf("noname: Error: Heap block 0x%08lX: end overwritten at 0x%08lX.\n",
           reinterpret_cast<unsigned long>(block), reinterpret_cast<unsigned long>(block + 23));
    fflush(stdout);
    stg_free(stg_realloc(block, 9));
  });
  EXPECT_EQ(outcome.err, outcome.out);  // once: the reallocation writes a new guard
}

// Keeps the blocks that the library frees, to look at what it left in them.
TEST(CheckedHeap, AFreedBlockIsOverwrittenWithAPattern) {
  check_storage(1);
  unsigned char *block = bytes(stg_malloc(9));
  ks_test::keep_freed_blocks();
  stg_free(block);
  const unsigned char pattern[] = {0x00, 0x00, 0xE0, 0xDD, 0xB7, 0xD5, 0xEB, 0x41};
  for (size_t at = 0; at < 32; ++at) EXPECT_EQ(block[at - 8], pattern[at % 8]) << at;
  ks_test::free_kept_blocks();
}

TEST(CheckedHeap, ASizeThatTheHeaderCannotHoldCountsAsExhausted) {
  const Outcome outcome = in_child([] {
    check_storage(1);
    for (size_t size : {size_t{UINT32_MAX}, SIZE_MAX, size_t{UINT32_MAX} - 20}) {
      errno = 0;
      if (stg_malloc(size) != nullptr || errno != ENOMEM) _exit(1);
    }
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err, kNoMemoryThrice);
}

TEST(HeapTrace, LevelFiveTellsOfEveryCallAlsoOfFailedOnesAndOfNull) {
  const Outcome outcome = in_child([] {
    check_storage(5);
    imsg_suppress_prefix(1);
    void *block = stg_malloc(0);
    block = stg_realloc(block, 20);
    stg_free(block);
    stg_free(nullptr);
    fail_call("realloc", 0, ENOMEM);  // of the checked layout
    stg_malloc(7);
  });
  const std::string at = "0x[0-9A-F]+";
  EXPECT_THAT(outcome.err,
              MatchesRegex("\\(stg\\) Heap block " + at + ": allocated \\(size 1\\)\\.\n" +
                           "\\(stg\\) Heap block " + at + ": reallocated as " + at +
                           ": \\(size 20\\)\\.\n" +  //
                           "\\(stg\\) Heap block " + at + ": freeing block\\.\n" +
                           "\\(stg\\) Heap block 0x00000000: freeing block\\.\n" +
                           "No more memory available\\.\n" +
                           "\\(stg\\) Heap block 0x00000000: allocated \\(size 7\\)\\.\n"));
}

TEST(HeapTrace, TheSettingsAreConsultedAtEachCall) {
  setenv("TRACE_VERBOSITY", "1", 1);
  setenv("TRACE_SUBSYS", "other:ks/stg", 1);
  void *block = stg_malloc(3);
  EXPECT_EQ(header(block), 3u);
  stg_free(block);
  imsg_set_trace_subsys("other");
  block = stg_malloc(3);
  EXPECT_EQ(ks_test::count_calls("realloc"), 1);  // only the checked one goes this way
  stg_free(block);
}

}  // namespace
