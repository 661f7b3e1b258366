#include <gtest/gtest.h>

#include <cstdio>
#include <initializer_list>

#include "list.h"
#include "strutl.h"
#include "support/child.h"

using ks_test::in_child;
using ks_test::Outcome;

namespace {

// What `print` makes of a list of these strings.
Outcome printed(void (*print)(list_t *), std::initializer_list<const char *> strings) {
  return in_child([&] {
    stg_area_t area = stg_create_area(1000);
    list_t *list = list_create(area, 0);
    for (const char *string : strings) list_append(list, const_cast<char *>(string));
    print(list);
    stg_delete_area(&area);
  });
}

TEST(StrutlListPrint, PrintsEachStringAndAnEmptyLine) {
  const Outcome outcome = printed(strutl_list_print, {"one", "100%", ""});
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "one\n100%\n\n\n");
  EXPECT_EQ(outcome.err, "");
}

TEST(StrutlListTracePrint, PrintsAsATraceEvenWhenNothingIsTraced) {
  const Outcome outcome = printed(strutl_list_trace_print, {"one", "two"});
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "one\ntwo\n\n");
}

TEST(StrutlListPrint, AnEmptyListIsAnEmptyLine) {
  EXPECT_EQ(printed(strutl_list_print, {}).out, "\n");
  EXPECT_EQ(printed(strutl_list_trace_print, {}).err, "\n");
}

TEST(StrutlListPrint, NullPrintsNothing) {
  const Outcome outcome = in_child([] {
    strutl_list_print(nullptr);
    strutl_list_trace_print(nullptr);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out + outcome.err, "");
}

}  // namespace
