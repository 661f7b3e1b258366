#include "stack.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>

#include "pfm.h"
#include "support/child.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/signals.h"

using ks_test::fail_call;
using ks_test::in_child;
using ks_test::land;
using ks_test::Landing;
using ks_test::Outcome;
using testing::MatchesRegex;

namespace {

void *word(intptr_t value) { return reinterpret_cast<void *>(value); }

struct Popped {
  int result;
  intptr_t data;
  size_t length;
  bool operator==(const Popped &) const = default;
};

void PrintTo(const Popped &popped, std::ostream *out) {
  *out << popped.result << ", word " << popped.data << ", length " << popped.length;
}

constexpr Popped kEmpty = {1, 0, 0};

Popped pop(struct stack *stack) {
  void *data = word(-1);
  size_t length = 777;
  const int result = stack_pop(stack, &data, &length);
  return {result, reinterpret_cast<intptr_t>(data), length};
}

TEST(Stack, PopsTheLastPushFirst) {
  struct stack *stack = stack_create(STG_AREA_HEAP, 12);
  EXPECT_EQ(stack_push(stack, word(1)), 0);
  EXPECT_EQ(stack_varlen_push(stack, word(2), 345), 0);
  EXPECT_EQ(stack_varlen_push(stack, word(0), 0), 0);
  EXPECT_EQ(pop(stack), (Popped{0, 0, 0}));
  EXPECT_EQ(pop(stack), (Popped{0, 2, 345}));
  EXPECT_EQ(stack_push(stack, word(3)), 0);
  EXPECT_EQ(pop(stack), (Popped{0, 3, 12}));
  EXPECT_EQ(pop(stack), (Popped{0, 1, 12}));
  EXPECT_EQ(pop(stack), kEmpty);
  EXPECT_EQ(pop(stack), kEmpty);
  stack_destroy(&stack);
  EXPECT_EQ(stack, nullptr);
}

TEST(Stack, StartsEmpty) {
  struct stack *stack = stack_create(STG_AREA_HEAP, 12);
  EXPECT_EQ(pop(stack), kEmpty);
  EXPECT_EQ(stack_depth(stack), 0u);
  stack_destroy(&stack);
}

TEST(Stack, KeepsCountingPopsInItsDepth) {
  struct stack *stack = stack_create(STG_AREA_HEAP, 1);
  stack_push(stack, word(1));
  stack_push(stack, word(2));
  pop(stack);
  EXPECT_EQ(stack_depth(stack), 2u);
  pop(stack);
  EXPECT_EQ(stack_depth(stack), 2u);
  EXPECT_EQ(pop(stack), kEmpty);
  EXPECT_EQ(stack_depth(stack), 2u);
  stack_push(stack, word(3));
  EXPECT_EQ(stack_depth(stack), 3u);
  EXPECT_EQ(pop(stack), (Popped{0, 3, 1}));
  stack_destroy(&stack);
}

TEST(Stack, LivesInAnArea) {
  stg_area_t area = stg_create_area(1000);
  struct stack *stack = stack_create(area, 4);
  stack_push(stack, word(1));
  stack_push(stack, word(2));
  EXPECT_EQ(pop(stack), (Popped{0, 2, 4}));
  stack_destroy(&stack);
  EXPECT_EQ(stack, nullptr);
  stg_delete_area(&area);
}

TEST(Stack, CreateTellsOfLackOfStorage) {
  fail_call("malloc", 0, ENOMEM);
  EXPECT_EQ(stack_create(STG_AREA_HEAP, 4), nullptr);
}

TEST(Stack, PushTellsOfLackOfStorage) {
  struct stack *stack = stack_create(STG_AREA_HEAP, 4);
  stack_push(stack, word(1));
  fail_call("malloc", 0, ENOMEM);
  EXPECT_EQ(stack_push(stack, word(2)), 1);
  fail_call("malloc", 0, ENOMEM);
  EXPECT_EQ(stack_varlen_push(stack, word(2), 9), 1);
  EXPECT_EQ(pfm_inhibit_count(), 0);
  EXPECT_EQ(stack_depth(stack), 1u);
  EXPECT_EQ(pop(stack), (Popped{0, 1, 4}));
  EXPECT_EQ(pop(stack), kEmpty);
  stack_destroy(&stack);
}

// The inner list's own rule.
TEST(Stack, LackOfStorageForTheListIsFatal) {
  const Outcome outcomes[] = {
      in_child([] {
        fail_call("malloc", 1, ENOMEM);
        stack_create(STG_AREA_HEAP, 4);
      }),
      in_child([] {
        struct stack *stack = stack_create(STG_AREA_HEAP, 4);
        fail_call("malloc", 1, ENOMEM);
        stack_push(stack, nullptr);
      }),
  };
  for (const Outcome &outcome : outcomes) {
    EXPECT_THAT(
        outcome.err,
        MatchesRegex("noname: Error: No more memory available\\.\n"
                     "noname: Error: Unable to allocate storage\n"
                     "noname: Error: \\*\\*\\*ABORT\\*\\*\\*  'src/core/list\\.cc':[0-9]+\n"));
    EXPECT_EQ(outcome.end(), "signal 6");
  }
}

TEST(Stack, AFaultLeavesWhenThePushIsDone) {
  struct stack *stack = stack_create(STG_AREA_HEAP, 4);
  pfm_signal(SIGUSR1, ks_test::raise_number);
  for (int call : {0, 1}) {
    ks_test::signal_in_call("malloc", call, SIGUSR1);
    EXPECT_EQ(land([&] { stack_push(stack, word(call + 1)); }), (Landing{SIGUSR1, 1, 0}));
  }
  EXPECT_EQ(pop(stack), (Popped{0, 2, 4}));
  EXPECT_EQ(pop(stack), (Popped{0, 1, 4}));
  stack_destroy(&stack);
}

}  // namespace
