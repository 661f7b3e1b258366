#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "fileutl.h"
#include "list.h"
#include "stg.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/exact_text.h"

#include <gmock/gmock.h>

using ks_test::ExactText;
using testing::MatchesRegex;

namespace {

class Patterns {
 public:
  explicit Patterns(const std::vector<const char *> &patterns)
      : list_(list_create(STG_AREA_HEAP, 0)) {
    for (const char *pattern : patterns) list_append(list_, const_cast<char *>(pattern));
  }
  ~Patterns() { list_destroy(list_); }
  Patterns(const Patterns &) = delete;
  Patterns &operator=(const Patterns &) = delete;

  list_t *get() const { return list_; }

 private:
  list_t *list_;
};

enum Match { kNo, kPattern, kExact };

Match match(const Patterns &patterns, const char *name) {
  const ExactText exact_name(name);
  int exact = 7;
  const int result = fileutl_patt_list_match(patterns.get(), exact_name, &exact);
  if (result == 0) {
    EXPECT_EQ(exact, 0);
    return kNo;
  }
  EXPECT_EQ(result, 1);
  return exact ? kExact : kPattern;
}

TEST(FileutlPattListMatch, HoldsAPatternAgainstTheEndOfTheName) {
  const struct {
    const char *pattern;
    const char *name;
    Match match;
  } kRows[] = {
      {"foo.%", "/a/foo.c", kPattern},
      {"dir/x", "/a/dir/x", kExact},
      {"foo.c", "foo.c", kExact},
      {"foo.c", "/a/b/foo.c", kExact},
      {"foo.c", "/a/b/foo.cc", kNo},
      {"foo.c", "/a/foo.c/b", kNo},
      {"FOO.c", "foo.c", kNo},
      // more separators than the name has
      {"a/foo.c", "foo.c", kNo},
      {"/foo.c", "foo.c", kNo},
      {"/foo.c", "/foo.c", kExact},
      {"/foo.c", "/a/foo.c", kNo},
      {"a/foo.c", "/b/a/foo.c", kExact},
      {"", "", kExact},
      {"", "a/", kExact},
      {"", "a", kNo},
      // slashes are not folded
      {"a//b", "a/b", kNo},
      {"a//b", "c/a//b", kExact},
      // '%' stands for anything, also for nothing
      {"%", "", kPattern},
      {"%", "a/b", kPattern},
      {"%.c", "foo.c", kPattern},
      {"%.c", ".c", kPattern},
      {"%.c", "foo.h", kNo},
      {"foo%", "foo", kPattern},
      {"foo%", "fo", kNo},
      {"f%o", "fo", kPattern},
      {"f%o", "f", kNo},
      {"dir/%.c", "/a/dir/x.c", kPattern},
      {"dir/%.c", "/a/rid/x.c", kNo},
      {"dir/%", "dir/", kPattern},
      // behind the '%' no separator is allowed
      {"%/x", "a/x", kNo},
      {"d%/x.c", "dir/x.c", kNo},
      // a second '%' is a character like others
      {"a%b%", "aXb%", kPattern},
      {"a%b%", "aXbY", kNo},
  };
  for (const auto &row : kRows) {
    EXPECT_EQ(match(Patterns({row.pattern}), row.name), row.match)
        << row.pattern << " with " << row.name;
  }
}

TEST(FileutlPattListMatch, KeepsTheTwoEndsOverlapping) {
  EXPECT_EQ(match(Patterns({"aba%aba"}), "aba"), kPattern);
  EXPECT_EQ(match(Patterns({"aba%aba"}), "ababa"), kPattern);
  EXPECT_EQ(match(Patterns({"ab%ba"}), "aba"), kPattern);
  EXPECT_EQ(match(Patterns({"aba%ba"}), "ba"), kNo);
  EXPECT_EQ(match(Patterns({"ab%aba"}), "ab"), kNo);
}

TEST(FileutlPattListMatch, NullOrEmptyListMatchesNothing) {
  int exact = 7;
  EXPECT_EQ(fileutl_patt_list_match(nullptr, "a", &exact), 0);
  EXPECT_EQ(exact, 0);
  EXPECT_EQ(match(Patterns({}), "a"), kNo);
}

TEST(FileutlPattListMatchedCell, StoresTheFirstElementThatMatches) {
  const Patterns patterns({"b", "a%", "ab", "a%"});
  int exact = 7;
  list_element_t *cursor = nullptr;
  EXPECT_EQ(fileutl_patt_list_matched_cell(patterns.get(), "x/ab", &cursor, &exact), 1);
  EXPECT_EQ(exact, 0);
  ASSERT_NE(cursor, nullptr);
  EXPECT_STREQ(static_cast<char *>(list_get_data(patterns.get(), cursor)), "a%");
  void *behind;
  list_next(patterns.get(), cursor, &behind);
  EXPECT_STREQ(static_cast<char *>(behind), "ab") << "the first of the two";

  EXPECT_EQ(fileutl_patt_list_matched_cell(patterns.get(), "b", &cursor, &exact), 1);
  EXPECT_EQ(exact, 1);
  EXPECT_STREQ(static_cast<char *>(list_get_data(patterns.get(), cursor)), "b");

  EXPECT_EQ(fileutl_patt_list_matched_cell(patterns.get(), "c", &cursor, &exact), 0);
  EXPECT_EQ(exact, 0);
  EXPECT_EQ(cursor, nullptr);
}

TEST(FileutlPattListMatchedCell, NullListLeavesTheCursorAlone) {
  int exact = 7;
  list_element_t *cursor = reinterpret_cast<list_element_t *>(&exact);
  EXPECT_EQ(fileutl_patt_list_matched_cell(nullptr, "a", &cursor, &exact), 0);
  EXPECT_EQ(cursor, reinterpret_cast<list_element_t *>(&exact));
  EXPECT_EQ(exact, 0);
}

TEST(FileutlPattListAssertions, ArgumentsAreRequired) {
  int exact;
  list_element_t *cursor;
  const auto line = [](const char *condition) {
    return MatchesRegex("noname: Error: " +
                        ks_test::assertion_line(condition, "src/file/fileutl_patt.cc"));
  };
  const auto run = [](auto &&body) {
    const ks_test::Outcome outcome = ks_test::in_child(body);
    EXPECT_EQ(outcome.end(), "signal 6");
    return outcome.err;
  };
  EXPECT_THAT(run([&] { fileutl_patt_list_matched_cell(nullptr, nullptr, &cursor, &exact); }),
              line("name != NULL"));
  EXPECT_THAT(run([&] { fileutl_patt_list_matched_cell(nullptr, "a", nullptr, &exact); }),
              line("match_cursor_p != NULL"));
  EXPECT_THAT(run([&] { fileutl_patt_list_matched_cell(nullptr, "a", &cursor, nullptr); }),
              line("exact != NULL"));
  EXPECT_THAT(run([&] { fileutl_patt_list_match(nullptr, nullptr, &exact); }),
              line("name != NULL"));
  EXPECT_THAT(run([&] { fileutl_patt_list_match(nullptr, "a", nullptr); }), line("exact != NULL"));
}

}  // namespace
