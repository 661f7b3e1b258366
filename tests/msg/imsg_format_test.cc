// Text in the form of a message, into the caller's buffer.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "imsg.h"
#include "support/child.h"
#include "support/faults.h"

using ks_test::in_child;
using ks_test::Outcome;
using testing::MatchesRegex;

namespace {

// What a call answered and wrote.
struct Formatted {
  int result;
  std::string text;
  bool operator==(const Formatted &) const = default;
};

void PrintTo(const Formatted &formatted, std::ostream *out) {
  *out << formatted.result << " \"" << formatted.text << '"';
}

// Calls format(dest) with a buffer of exactly `room` bytes, so that the address sanitizer sees one
// too far; an untouched buffer is a row of 'z's.
template <class Format>
Formatted into(size_t room, const Format &format) {
  const std::unique_ptr<char[]> dest(new char[room]);
  memset(dest.get(), 'z', room);
  const int result = format(dest.get());
  return {result, std::string(dest.get(), strnlen(dest.get(), room))};
}

int vsnprintf_form(char *dest, size_t size, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_vsnprintf(dest, size, table, number, args);
  va_end(args);
  return result;
}

int vsnprintf_taggable_form(int mode, char *dest, size_t size, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_vsnprintf_taggable(mode, dest, size, table, number, args);
  va_end(args);
  return result;
}

int vsprintf_form(char *dest, const void *table, int number, ...) {
  va_list args;
  va_start(args, number);
  const int result = imsg_vsprintf(dest, table, number, args);
  va_end(args);
  return result;
}

// Calls `check` with each function that takes (dest, size, table, number, ...), also with size 0.
template <class Check>
void for_each_limited(const Check &check) {
  const auto named = [&](const char *name, auto format) {
    SCOPED_TRACE(name);
    check(format);
  };
  named("imsg_snprintf", [](auto... args) { return imsg_snprintf(args...); });
  named("imsg_vsnprintf", [](auto... args) { return vsnprintf_form(args...); });
  named("taggable 1", [](auto... args) { return imsg_snprintf_taggable(1, args...); });
  named("taggable 2", [](auto... args) { return imsg_snprintf_taggable(2, args...); });
  named("taggable 3", [](auto... args) { return imsg_snprintf_taggable(3, args...); });
  named("vtaggable 1", [](auto... args) { return vsnprintf_taggable_form(1, args...); });
  named("vtaggable 2", [](auto... args) { return vsnprintf_taggable_form(2, args...); });
  named("vtaggable 3", [](auto... args) { return vsnprintf_taggable_form(3, args...); });
}

// Calls `check` with each function that has no limit, as (dest, table, number, ...).
template <class Check>
void for_each_unlimited(const Check &check) {
  check([](auto... args) { return imsg_sprintf(args...); });
  check([](auto... args) { return vsprintf_form(args...); });
  for_each_limited([&](auto format) {
    check([&](char *dest, auto... args) { return format(dest, size_t{0}, args...); });
  });
}

TEST(ImsgSnprintf, FormatsTheMessageOfATable) {
  for_each_limited([](auto format) {
    const Formatted formatted = into(100, [&](char *dest) {
      return format(dest, size_t{100}, _ks_ks_msg_table, 28, "read", 4);
    });
    EXPECT_EQ(formatted, (Formatted{18, "Operation read: 4\n"}));
  });
}

TEST(ImsgSnprintf, FormatsItsOwnFormat) {
  for_each_limited([](auto format) {
    EXPECT_EQ(into(100, [&](char *dest) { return format(dest, size_t{100}, "%d-%s", -1, 7, "x"); }),
              (Formatted{3, "7-x"}));
  });
}

TEST(ImsgSnprintf, HasNoPrefix) {
  setenv("PRINT_SUBSYS_OK", "1", 1);
  imsg_initialize();
  for_each_limited([](auto format) {
    EXPECT_EQ(into(100, [&](char *dest) { return format(dest, size_t{100}, "text", -1); }),
              (Formatted{4, "text"}));
  });
}

TEST(ImsgSnprintf, CutsAndTellsWhatTheWholeTextNeeds) {
  const struct {
    size_t size;
    const char *text;
  } cases[] = {{6, "abcde"}, {5, "abcd"}, {2, "a"}, {1, ""}};
  for_each_limited([&](auto format) {
    for (const auto &[size, text] : cases) {
      EXPECT_EQ(into(size, [&](char *dest) { return format(dest, size, "%s", -1, "abcde"); }),
                (Formatted{5, text}));
    }
  });
}

TEST(ImsgSprintf, HasNoLimitNorHasSizeZero) {
  const std::string text(70000, 'x');
  for_each_unlimited([&](auto format) {
    const Formatted formatted =
        into(70002, [&](char *dest) { return format(dest, _ks_ks_msg_table, 0, text.c_str()); });
    EXPECT_EQ(formatted, (Formatted{70001, text + "\n"}));
    EXPECT_EQ(into(3, [&](char *dest) { return format(dest, "%d", -1, 42); }),
              (Formatted{2, "42"}));
    EXPECT_EQ(into(1, [&](char *dest) { return format(dest, "", -1); }), (Formatted{0, ""}));
  });
}

TEST(ImsgSnprintf, PassesAFailureOn) {
  ks_test::fail_call("vsnprintf", 0, EOVERFLOW);
  EXPECT_EQ(into(10, [](char *dest) { return imsg_snprintf(dest, 10, "%d", -1, 1); }).result, -1);
}

// Runs every form, limited or not, on a wrong message: each answers -1, writes nothing, reports.
void expect_report(const void *table, int number, const std::string &report) {
  const Formatted refused = {-1, "zzzz"};
  int forms = 0;
  const Outcome outcome = in_child([&] {
    bool good = true;
    const auto expect_refused = [&](const Formatted &formatted) {
      good = good && formatted == refused;
    };
    for_each_limited([&](auto format) {
      expect_refused(into(4, [&](char *dest) { return format(dest, size_t{4}, table, number); }));
    });
    for_each_unlimited([&](auto format) {
      expect_refused(into(4, [&](char *dest) { return format(dest, table, number); }));
    });
    _exit(good ? 0 : 1);
  });
  for_each_limited([&](auto) { ++forms; });
  for_each_unlimited([&](auto) { ++forms; });
  std::string reports;
  while (forms-- > 0) reports += "noname: Error: IMSG Internal error " + report;
  EXPECT_EQ(outcome.end(), "exit 0") << number;
  EXPECT_EQ(outcome.out, "") << number;
  EXPECT_EQ(outcome.err, reports) << number;
}

TEST(ImsgSnprintf, RefusesANumberThatTheTableDoesNotHave) {
  const std::string table =
      std::to_string(static_cast<long>(reinterpret_cast<intptr_t>(_pfm_ks_msg_table)));
  for (int number : {2, 3, 1000000, INT_MAX, -2, INT_MIN}) {
    expect_report(_pfm_ks_msg_table, number,
                  "(vsprintf) - tbl " + table + ", num " + std::to_string(number) + ".\n");
  }
}

TEST(ImsgSnprintf, RefusesANullTable) {
  expect_report(nullptr, 0, "(vsprintf) - tbl 0, num 0.\n");
  expect_report(nullptr, 5, "(vsprintf) - tbl 0, num 5.\n");
}

TEST(ImsgSnprintf, RefusesANullFormat) {
  expect_report(nullptr, -1, "(vsprintf/NOMSG) - NULL Message.\n");
}

TEST(ImsgSnprintf, TakesTheLastNumberOfATable) {
  const Formatted formatted = into(
      100, [](char *dest) { return imsg_snprintf(dest, 100, _pfm_ks_msg_table, 1, "c", "f", 3); });
  EXPECT_EQ(formatted, (Formatted{29, "PFM_ASSERT:(c) failed: 'f':3\n"}));
}

// With the prefix of a type.

constexpr long kMoment = 1714957323;  // 2024-05-06 01:02:03 UTC

template <class... Args>
Formatted with_type(size_t size, int type, Args... args) {
  return into(size, [&](char *dest) { return imsg_snprintf_type(dest, size, type, args...); });
}

class ImsgSnprintfType : public testing::Test {
 protected:
  ImsgSnprintfType() {
    setenv("TZ", "UTC", 1);
    ks_test::set_clock(kMoment, 45678);
  }
};

TEST_F(ImsgSnprintfType, KeepsThePrefixOutOfTheCount) {
  const char *const prefixes[] = {
      "", "", "", "", "noname: Warning: ", "", "noname: Error: ", "", ">>> 01:02:03.045 (noname): ",
      "", ""};
  for (int type = IMSG_TYPE_OK; type <= IMSG_TYPE_LOG_ONLY; ++type) {
    EXPECT_EQ(with_type(100, type, "%s %d", -1, "text", 5),
              (Formatted{6, std::string(prefixes[type]) + "text 5"}))
        << type;
  }
}

TEST_F(ImsgSnprintfType, PutsNameAndOkInFrontWhereTheUserWantsThem) {
  setenv("PRINT_SUBSYS_OK", "1", 1);
  EXPECT_EQ(with_type(100, IMSG_TYPE_OK, _ks_ks_msg_table, 23),
            (Formatted{13, "noname: Ok: Out of memory"}));
  EXPECT_EQ(with_type(100, IMSG_TYPE_BOX, _ks_ks_msg_table, 23),
            (Formatted{13, "noname: Out of memory"}));
  EXPECT_EQ(with_type(100, IMSG_TYPE_OK_CONT, _ks_ks_msg_table, 23),
            (Formatted{13, "Out of memory"}));
}

TEST_F(ImsgSnprintfType, CutsTheTextBehindThePrefix) {
  EXPECT_EQ(with_type(20, IMSG_TYPE_ERROR, "abcdef", -1), (Formatted{6, "noname: Error: abcd"}));
  EXPECT_EQ(with_type(17, IMSG_TYPE_ERROR, "abcdef", -1), (Formatted{6, "noname: Error: a"}));
  EXPECT_EQ(with_type(16, IMSG_TYPE_ERROR, "abcdef", -1), (Formatted{6, "noname: Error: "}));
  EXPECT_EQ(with_type(1, IMSG_TYPE_OK, "abcdef", -1), (Formatted{6, ""}));
}

TEST_F(ImsgSnprintfType, ReportsABufferThatCannotHoldThePrefix) {
  const struct {
    size_t size;
    int type;
  } cases[] = {{15, IMSG_TYPE_ERROR}, {1, IMSG_TYPE_ERROR},  {0, IMSG_TYPE_ERROR},
               {0, IMSG_TYPE_OK},     {16, IMSG_TYPE_TRACE}, {16, IMSG_TYPE_WARNING}};
  for (const auto &[size, type] : cases) {
    const Outcome outcome =
        in_child([&] { _exit(with_type(size, type, "text", -1).result == -1 ? 0 : 1); });
    EXPECT_EQ(outcome.end(), "exit 0") << size;
    EXPECT_EQ(outcome.out, "") << size;
    EXPECT_EQ(outcome.err, "noname: Error: String buffer too small.\n") << size;
  }
}

TEST_F(ImsgSnprintfType, ReportsAWrongNumber) {
  const Outcome outcome =
      in_child([&] { _exit(with_type(100, IMSG_TYPE_ERROR, nullptr, 3).result == -1 ? 0 : 1); });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err, "noname: Error: IMSG Internal error (vsprintf) - tbl 0, num 3.\n");
}

TEST_F(ImsgSnprintfType, ReportsAnUnknownType) {
  const Outcome outcome = in_child([&] {
    const Formatted formatted = with_type(100, 11, "text", -1);
    _exit(formatted == Formatted{4, "System message: text"} ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_THAT(outcome.err, MatchesRegex("noname: Error: Unknown message type 11 in file "
                                        "src/msg/imsg_prefix\\.cc at line [0-9]+\n"));
}

TEST_F(ImsgSnprintfType, TakesAPrefixLargerThanTheOutputBuffer) {
  const std::string name(20000, 'n');
  imsg_set_app_name(name.c_str());
  EXPECT_EQ(with_type(30000, IMSG_TYPE_ERROR, "text", -1), (Formatted{4, name + ": Error: text"}));
}

TEST_F(ImsgSnprintfType, IsRefusedWhenThePrefixCannotBeFormatted) {
  ks_test::fail_call("vsnprintf", 0, EOVERFLOW);
  EXPECT_EQ(with_type(100, IMSG_TYPE_ERROR, "text", -1).result, -1);
}

}  // namespace
