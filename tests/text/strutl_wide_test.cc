#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cwchar>
#include <string>

#include "stg.h"
#include "strutl.h"
#include "support/assertion.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/faults.h"
#include "support/locale.h"

using ks_test::assertion_line;
using ks_test::ExactText;
using ks_test::in_child;
using ks_test::Outcome;
using ks_test::use_locale;
using testing::MatchesRegex;

namespace {

// The body runs in a child whose stdout tells what came out.
Outcome child_says(const char *locale, const std::function<void()> &body) {
  return in_child([&] {
    use_locale(locale);
    body();
    fflush(stdout);
  });
}

TEST(StrutlWideCharFromStr, GivesCharacterAfterCharacter) {
  use_locale("C.UTF-8");
  const ExactText text("a€");
  const char *at = text;
  EXPECT_EQ(strutl_wide_char_from_str(at, &at), L'a');
  EXPECT_EQ(strutl_wide_char_from_str(at, &at), L'€');
  EXPECT_EQ(at, text + 4);
  EXPECT_EQ(strutl_wide_char_from_str(at, &at), L'\0');
  EXPECT_EQ(at, text + 4);
}

TEST(StrutlWideCharFromStr, NoTextGivesZero) {
  const char *const untouched = "untouched";
  const char *tail = untouched;
  EXPECT_EQ(strutl_wide_char_from_str(nullptr, &tail), L'\0');
  EXPECT_EQ(strutl_wide_char_from_str("", &tail), L'\0');
  EXPECT_EQ(tail, untouched);
}

TEST(StrutlWideCharFromStr, TakesTheSecondByteWithTheFirst) {
  use_locale("ja_JP.SJIS");
  const char *tail;
  EXPECT_EQ(strutl_wide_char_from_str("\x95\x5c/", &tail), wchar_t{0x8868});
  EXPECT_STREQ(tail, "/");
}

TEST(StrutlWideCharFromStr, PrintsWhatIsNoCharacterAndPassesIt) {
  const Outcome outcome = child_says("C.UTF-8", [] {
    const char *tail = nullptr;
    const wchar_t wide = strutl_wide_char_from_str("\xc3z", &tail);
    printf("%d %s", static_cast<int>(wide), tail);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "0 z");
  EXPECT_EQ(outcome.err, "noname: Error: Invalid multibyte character: \xc3\n");
}

TEST(StrutlWideCharFromStr, AssertsATail) {
  const Outcome outcome = in_child([] { strutl_wide_char_from_str("a", nullptr); });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err,
              MatchesRegex("noname: Error: " +
                           assertion_line("s_tail != NULL", "src/text/strutl_char.cc")));
}

TEST(StrutlWideStrlen, CountsUpToTheZero) {
  EXPECT_EQ(strutl_wide_strlen(L""), 0u);
  EXPECT_EQ(strutl_wide_strlen(L"aä€"), 3u);
}

TEST(StrutlWideStrlen, AssertsAString) {
  const Outcome outcome = in_child([] { strutl_wide_strlen(nullptr); });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err, MatchesRegex("noname: Error: " +
                                        assertion_line("ws != NULL", "src/text/strutl_wide.cc")));
}

TEST(StrutlCvtStrToWideStr, ConvertsIntoTheArea) {
  use_locale("C.UTF-8");
  stg_area_t area = stg_create_area(1000);
  const wchar_t *wide = strutl_cvt_str_to_wide_str(ExactText("aä€"), area);
  EXPECT_STREQ(wide, L"aä€");
  EXPECT_STREQ(strutl_cvt_str_to_wide_str("", area), L"");
  stg_delete_area(&area);
}

TEST(StrutlCvtStrToWideStr, ConvertsOntoTheHeap) {
  use_locale("ja_JP.SJIS");
  wchar_t *wide = strutl_cvt_str_to_wide_str(ExactText("\x95\x5c\\"), STG_AREA_HEAP);
  EXPECT_EQ(wcslen(wide), 2u);
  EXPECT_EQ(wide[0], wchar_t{0x8868});
  stg_free(wide);
}

TEST(StrutlCvtStrToWideStr, PrintsWhatCannotBeConvertedAndGivesAnEmptyString) {
  const Outcome outcome = child_says("C.UTF-8", [] {
    wchar_t *wide = strutl_cvt_str_to_wide_str("ab\xff", STG_AREA_HEAP);
    printf("%d", wide != nullptr ? static_cast<int>(wcslen(wide)) : -1);
    stg_free(wide);
  });
  EXPECT_EQ(outcome.out, "0");
  EXPECT_EQ(outcome.err, "noname: Error: Error converting string to wide char string: ab\xff\n");
}

TEST(StrutlCvtStrToWideStr, PrintsThatThereIsNoString) {
  const Outcome outcome = child_says(
      "C", [] { printf("%d", strutl_cvt_str_to_wide_str(nullptr, STG_AREA_HEAP) == nullptr); });
  EXPECT_EQ(outcome.out, "1");
  EXPECT_EQ(outcome.err, "noname: Error: The string to be converted is null.\n");
}

TEST(StrutlCvtStrToWideStr, PrintsThatThereIsNoStorage) {
  const Outcome outcome = child_says("C", [] {
    ks_test::fail_call("malloc", 0, ENOMEM);
    printf("%d", strutl_cvt_str_to_wide_str("abc", STG_AREA_HEAP) == nullptr);
  });
  EXPECT_EQ(outcome.out, "1");
  EXPECT_EQ(outcome.err,
            "noname: Error: No more memory available.\n"
            "noname: Error: No memory available for storage allocation.\n");
}

TEST(StrutlCvtStrToWideStr, AssertsAnAreaBeforeAllElse) {
  const Outcome outcome = in_child([] { strutl_cvt_str_to_wide_str(nullptr, STG_AREA_NULL); });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err,
              MatchesRegex("noname: Error: " +
                           assertion_line("area != STG_AREA_NULL", "src/text/strutl_wide.cc")));
}

TEST(StrutlCvtWideStrToStr, ConvertsIntoTheArea) {
  use_locale("C.UTF-8");
  stg_area_t area = stg_create_area(1000);
  EXPECT_STREQ(strutl_cvt_wide_str_to_str(L"aä€", area), "aä€");
  EXPECT_STREQ(strutl_cvt_wide_str_to_str(L"", area), "");
  stg_delete_area(&area);
}

TEST(StrutlCvtWideStrToStr, ConvertsOntoTheHeap) {
  use_locale("ja_JP.SJIS");
  const wchar_t wide[] = {0x8868, L'/', 0};
  char *text = strutl_cvt_wide_str_to_str(wide, STG_AREA_HEAP);
  EXPECT_STREQ(text, "\x95\x5c/");
  stg_free(text);
}

TEST(StrutlCvtWideStrToStr, PrintsWhatCannotBeConvertedAndGivesAnEmptyString) {
  const Outcome outcome = child_says("C", [] {
    char *text = strutl_cvt_wide_str_to_str(L"ab€", STG_AREA_HEAP);
    printf("[%s]", text != nullptr ? text : "NULL");
    stg_free(text);
  });
  EXPECT_EQ(outcome.out, "[]");
  EXPECT_EQ(outcome.err, "noname: Error: Error converting wide char string to string.\n");
}

TEST(StrutlCvtWideStrToStr, PrintsThatThereIsNoString) {
  const Outcome outcome = child_says(
      "C", [] { printf("%d", strutl_cvt_wide_str_to_str(nullptr, STG_AREA_HEAP) == nullptr); });
  EXPECT_EQ(outcome.out, "1");
  EXPECT_EQ(outcome.err, "noname: Error: The string to be converted is null.\n");
}

TEST(StrutlCvtWideStrToStr, PrintsThatThereIsNoStorage) {
  const Outcome outcome = child_says("C", [] {
    ks_test::fail_call("malloc", 0, ENOMEM);
    printf("%d", strutl_cvt_wide_str_to_str(L"abc", STG_AREA_HEAP) == nullptr);
  });
  EXPECT_EQ(outcome.out, "1");
  EXPECT_EQ(outcome.err,
            "noname: Error: No more memory available.\n"
            "noname: Error: No memory available for storage allocation.\n");
}

TEST(StrutlCvtWideStrToStr, AssertsAnAreaBeforeAllElse) {
  const Outcome outcome = in_child([] { strutl_cvt_wide_str_to_str(nullptr, STG_AREA_NULL); });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err,
              MatchesRegex("noname: Error: " +
                           assertion_line("area != STG_AREA_NULL", "src/text/strutl_wide.cc")));
}

TEST(StrutlWide, RoundTripsHardButValidText) {
  use_locale("C.UTF-8");
  const std::string text =
      "plain, ä€\xf0\x9f\x98\x80 \xf8\x88\x80\x80\x80 \xfd\xbf\xbf\xbf\xbf\xbf";
  stg_area_t area = stg_create_area(1000);
  const wchar_t *wide = strutl_cvt_str_to_wide_str(text.c_str(), area);
  EXPECT_EQ(strutl_wide_strlen(wide), 14u);
  EXPECT_EQ(strutl_cvt_wide_str_to_str(wide, area), text);
  stg_delete_area(&area);
}

}  // namespace
