#include <gtest/gtest.h>

#include <array>
#include <string>

#include "support/catalogs.h"
#include "support/random.h"
#include "text/date_reading.h"

using ks_test::be_in;
using ks_test::Catalogs;
using ks_test::either;
using ks_test::ExactText;
using ks_test::iso;
using ks_test::kRefused;
using ks_test::moment_read;
using ks_test::older;
using ks_test::Random;
using ks_test::Reading;
using ks_test::speak;

namespace {

constexpr const char *kFriday = "2006-11-24 12:34:56";

TEST(DateStrToTime, ReadsBothLanguages) {
  be_in("UTC", kFriday);
  constexpr Reading kReadings[] = {
      {"24-NOV-2026.10:00", "2026-11-24 10:00:00"},
      {"yesterday", "2006-11-23 00:00:00"},
      {"20261124T101500Z", "2026-11-24 10:15:00"},
      {"--11-24T10:15", "2006-11-24 10:15:00"},
      {"12:30", "2006-11-24 12:30:00"},
      {"T12:30", "2006-11-24 12:30:00"},
      {"2004", "2004-01-01 00:00:00"},
      {"2004-11-03", "2004-11-03 00:00:00"},
      {"2004-11-03T10:15", "2004-11-03 10:15:00"},
      {"today", "2006-11-24 00:00:00"},
      {"tomorrow", kRefused},
      {"", kRefused},
  };
  for (const Reading &row : kReadings) EXPECT_EQ(either(row.text), row.moment) << row.text;
  int32_t time = 5;
  EXPECT_EQ(date_str_to_time2(nullptr, DATE_TO_PAST, &time), 1);
  EXPECT_EQ(date_str_to_time(nullptr, &time), 1);
  EXPECT_EQ(time, 5);
}

TEST(DateStrToTime, TakesTheOlderLanguageFirst) {
  be_in("UTC", kFriday);
  EXPECT_EQ(either("4:30"), "2006-11-24 04:30:00");
  EXPECT_EQ(iso("4:30"), kRefused);
  EXPECT_EQ(older("24:00"), kRefused);
  EXPECT_EQ(either("24:00"), "2006-11-25 00:00:00");
  EXPECT_EQ(either("-0:30"), "2006-11-24 00:30:00");
  EXPECT_EQ(iso("-00:30"), "2006-11-24 12:00:30");
  EXPECT_EQ(either("-00:30"), "2006-11-24 00:30:00");
}

TEST(DateStrToTime, GoesInTheDirectionAskedForOrToThePast) {
  be_in("UTC", kFriday);
  for (const char *text : {"25-nov", "--11-25"}) {
    const ExactText exact(text);
    EXPECT_EQ(either(text, DATE_TO_FUTURE), "2006-11-25 00:00:00") << text;
    EXPECT_EQ(either(text, DATE_TO_PAST), "2005-11-25 00:00:00") << text;
    EXPECT_EQ(moment_read(0, [&](int32_t *time) { return date_str_to_time(exact, time); }),
              "2005-11-25 00:00:00");
  }
}

TEST(DateStrToTime, NeverPrints) {
  be_in("UTC", kFriday);
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  EXPECT_EQ(either("tomorrow"), kRefused);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// Texts put together from pieces of both languages.
class Texts {
 public:
  explicit Texts(uint32_t seed) : random_(seed) {}

  std::string next() {
    std::string text;
    for (uint32_t pieces = random_() % 7; pieces > 0; --pieces) {
      text += kPieces[random_() % kPieces.size()];
    }
    return text;
  }

 private:
  static constexpr std::array kPieces = {
      "2",  "24", "11",    "006",    "2006", "20061124", "-",   "-",   "--",  ":",    ":",
      "10", "T",  "t",     "Z",      ".",    ".",        "nov", "NOV", "UTC", "+5",   "05:30",
      "1",  "0",  "today", "monday", "W",    "-W-3",     " ",   "x",   "now", "none", "1st"};
  Random random_;
};

void expect_the_first_that_reads(uint32_t seed) {
  SCOPED_TRACE("seed " + std::to_string(seed));
  Texts texts(seed);
  int read = 0;
  for (int turn = 0; turn < 20000; ++turn) {
    const std::string text = texts.next();
    const std::string by_older = older(text);
    const std::string expected = by_older != kRefused ? by_older : iso(text);
    read += expected != kRefused;
    ASSERT_EQ(either(text), expected) << '"' << text << '"';
  }
  EXPECT_GT(read, 200);
}

TEST(DateStrToTime, IsTheOlderLanguageAndThenIso) {
  be_in("Asia/Kolkata", kFriday);
  expect_the_first_that_reads(1);
}

TEST(DateStrToTime, IsSoForWordsThatBeginLikeIsoDates) {
  const Catalogs catalogs;
  catalogs.add("ks_lib", "$set 12\n1 \"1ST\"\n28 \"--\"\n47 \"2006\"\n48 \"24\"\n");
  speak("de");
  be_in("Asia/Kolkata", kFriday);
  EXPECT_EQ(either("1st"), "2006-11-23 18:30:00");
  EXPECT_EQ(either("2006"), kFriday);
  expect_the_first_that_reads(2);
}

TEST(DateStrToTime, IsSoForOtherSeparators) {
  const Catalogs catalogs;
  catalogs.add("ks_lib", "$set 12\n42 \"T\"\n43 \"X\"\n44 \"Z\"\n");
  speak("de");
  be_in("Asia/Kolkata", kFriday);
  EXPECT_EQ(either("24tnovt2006z10x15"), "2006-11-24 04:45:00");
  expect_the_first_that_reads(3);
}

}  // namespace
