#include <gtest/gtest.h>

#include <cerrno>
#include <string>

#include "strutl.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "support/locale.h"

using ks_test::ExactText;
using ks_test::in_child;
using ks_test::Outcome;

namespace {

using namespace std::string_literals;

// 8 strings, to be passed as they are.
#define EIGHT "0", "1", "2", "3", "4", "5", "6", "7"

// The text of a heap block, which is freed.
std::string taken(char *heap_text) {
  std::string text = heap_text != nullptr ? heap_text : "(null)";
  stg_free(heap_text);
  return text;
}

TEST(StrutlConcat, JoinsInOrder) {
  ExactText target("", 10);
  EXPECT_EQ(strutl_concat(target, 10, 3, "abc", "", "de"), 0);
  EXPECT_EQ(target.bytes(), "abcde\0zzzz"s);
}

TEST(StrutlConcat, ExactlyFullIsNotCut) {
  ExactText target("", 6);
  EXPECT_EQ(strutl_concat(target, 6, 3, "abc", "de", ""), 0);
  EXPECT_STREQ(target, "abcde");
}

TEST(StrutlConcat, KeepsWhatFits) {
  ExactText target("", 8);
  EXPECT_EQ(strutl_concat(target, 6, 2, "abc", "def"), 1);
  EXPECT_EQ(target.bytes(), "abcde\0zz"s);
  EXPECT_EQ(strutl_concat(target, 3, 3, "abc", "def", "ghi"), 1);
  EXPECT_EQ(target.bytes(), "ab\0de\0zz"s);
}

TEST(StrutlConcat, NoStringsMakeTheTargetEmpty) {
  for (int count : {0, -1}) {
    ExactText target("abc");
    EXPECT_EQ(strutl_concat(target, 4, count), 0);
    EXPECT_STREQ(target, "");
  }
}

TEST(StrutlConcat, SizeZeroWritesNothing) {
  ExactText target("abc");
  EXPECT_EQ(strutl_concat(target, 0, 1, "x"), 1);
  EXPECT_EQ(strutl_concat(target, 0, 0), 1);
  EXPECT_STREQ(target, "abc");
}

TEST(StrutlConcat, TargetAsFirstStringIsJoinedOnTo) {
  ExactText target("abc", 8);
  EXPECT_EQ(strutl_concat(target, 8, 3, target.get(), "-", "de"), 0);
  EXPECT_STREQ(target, "abc-de");
  EXPECT_EQ(strutl_concat(target, 8, 2, target.get(), "fgh"), 1);
  EXPECT_STREQ(target, "abc-def");
  EXPECT_EQ(strutl_concat(target, 8, 2, target.get(), ""), 0);
  EXPECT_EQ(strutl_concat(target, 8, 1, target.get()), 0);
  EXPECT_STREQ(target, "abc-def");
}

TEST(StrutlConcat, TargetAsLongAsTheSizeStaysUnchanged) {
  ExactText target("abcd");
  EXPECT_EQ(strutl_concat(target, 4, 2, target.get(), "e"), 1);
  EXPECT_EQ(strutl_concat(target, 4, 2, target.get(), ""), 1);
  EXPECT_EQ(strutl_concat(target, 3, 1, target.get()), 1);
  EXPECT_STREQ(target, "abcd");
}

TEST(StrutlConcat, MayCutAMultibyteCharacter) {
  ks_test::use_locale("C.UTF-8");
  ExactText target("", 4);
  EXPECT_EQ(strutl_concat(target, 4, 2, "ab", "ä"), 1);
  EXPECT_STREQ(target, "ab\xc3");
}

TEST(StrutlConcatHeap, JoinsInANewBlock) {
  EXPECT_EQ(taken(strutl_concat_heap(3, "abc", "", "de")), "abcde");
  EXPECT_EQ(taken(strutl_concat_heap(1, "a")), "a");
}

TEST(StrutlConcatHeap, NoStringsGiveAnEmptyText) {
  EXPECT_EQ(taken(strutl_concat_heap(0)), "");
  EXPECT_EQ(taken(strutl_concat_heap(-1)), "");
}

TEST(StrutlConcatHeap, ThirtyTwoStringsAreTheMost) {
  EXPECT_EQ(taken(strutl_concat_heap(32, EIGHT, EIGHT, EIGHT, EIGHT)),
            "01234567012345670123456701234567");
  EXPECT_EQ(strutl_concat_heap(33, EIGHT, EIGHT, EIGHT, EIGHT, "x"), nullptr);
}

TEST(StrutlConcatHeap, ExhaustedStorageIsReported) {
  const Outcome outcome = in_child([] {
    ks_test::fail_call("malloc", 0, ENOMEM);
    if (strutl_concat_heap(2, "a", "b") == nullptr && errno == ENOMEM) puts("NULL");
    fflush(stdout);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "NULL\n");
  EXPECT_EQ(outcome.err, "noname: Error: No more memory available.\n");
}

// Only there can so much text be had.
#if SIZE_MAX == UINT32_MAX
#define EIGHT_OF(text) text, text, text, text, text, text, text, text

TEST(StrutlConcatHeap, LengthThatPasses32BitsCountsAsExhausted) {
  const Outcome outcome = in_child([] {
    const std::string part(1u << 27, 'x');
    const char *x = part.c_str();
    const char *joined = strutl_concat_heap(32, EIGHT_OF(x), EIGHT_OF(x), EIGHT_OF(x), EIGHT_OF(x));
    if (joined == nullptr && errno == ENOMEM) puts("NULL");
    fflush(stdout);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "NULL\n");
  EXPECT_EQ(outcome.err, "noname: Error: No more memory available.\n");
}
#endif

TEST(StrutlConcatArea, JoinsInTheArea) {
  stg_area_t area = stg_create_area(100);
  char *joined = strutl_concat_area(area, 2, "abc", "de");
  EXPECT_STREQ(joined, "abcde");
  EXPECT_STREQ(strutl_concat_area(area, 0), "");
  EXPECT_STREQ(joined, "abcde");
  EXPECT_EQ(strutl_concat_area(area, 33, EIGHT, EIGHT, EIGHT, EIGHT, "x"), nullptr);
  stg_delete_area(&area);
}

TEST(StrutlConcatArea, TakesTheHeapForAnArea) {
  EXPECT_EQ(taken(strutl_concat_area(STG_AREA_HEAP, 2, "a", "b")), "ab");
}

TEST(StrutlConcatArea, ExhaustedStorageIsReported) {
  const Outcome outcome = in_child([] {
    stg_area_t area = stg_create_area(100);
    ks_test::fail_call("malloc", 0, ENOMEM);
    if (strutl_concat_area(area, 2, "a", "b") == nullptr) puts("NULL");
    fflush(stdout);
  });
  EXPECT_EQ(outcome.out, "NULL\n");
  EXPECT_EQ(outcome.err, "noname: Error: No more memory available.\n");
}

}  // namespace
