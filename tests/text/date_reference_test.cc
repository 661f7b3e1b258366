// Readers and formatters of dates, held case by case against date_reference.py, a second
// implementation of what they must answer.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "date.h"
#include "support/child.h"
#include "support/exact_text.h"
#include "support/faults.h"

using ks_test::ExactText;
using ks_test::Outcome;
using ks_test::run_program;
using ks_test::set_clock;

namespace {

constexpr const char *kSeed = "1";
constexpr const char *kRounds = "4";

using Fields = std::vector<std::string>;

std::vector<std::string> split(const std::string &text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) parts.push_back(part);
  if (text.empty() || text.back() == separator) parts.push_back("");
  return parts;
}

int32_t number(const std::string &text) { return static_cast<int32_t>(std::stol(text)); }

std::string decoded(const std::string &text) {
  std::string bytes;
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '%') {
      bytes += static_cast<char>(std::stoi(text.substr(at + 1, 2), nullptr, 16));
      at += 2;
    } else {
      bytes += text[at];
    }
  }
  return bytes;
}

// Reads a text: "x" when that fails, else the seconds. The seconds must be left alone by a failure.
template <class Read>
std::string reading(int success, Read &&read) {
  constexpr int32_t kUntouched = -123456789;
  int32_t time = kUntouched;
  const int result = read(&time);
  if (result == success) return std::to_string(time);
  return result == 1 - success && time == kUntouched ? "x" : "a failure that changes the time";
}

// `answer` may be several, as the reference gives them.
void expect_one_of(const std::string &answer, const std::string &got, const char *reader) {
  for (const std::string &one : split(answer, '|')) {
    if (got == one) return;
  }
  ADD_FAILURE() << reader << ": " << got << ", not " << answer;
}

void judge_now(const Fields &fields) { set_clock(std::stol(fields[1]), 0); }

void judge_parse(const Fields &fields) {
  const int direction = number(fields[1]);
  const std::string &older = fields[2], &iso = fields[3];
  const std::string &either = older != "x" ? older : iso;
  const ExactText text(decoded(fields[4]));
  const auto reader = [&](int (*read)(const char *, int, int32_t *)) {
    return reading(0, [&](int32_t *time) { return read(text, direction, time); });
  };
  expect_one_of(older, reader(date_str_to_time_legacy), "older grammar");
  expect_one_of(iso, reader(date_parse_iso_date), "ISO");
  expect_one_of(either, reader(date_str_to_time2), "either");
  if (direction != 0) return;
  expect_one_of(either, reading(0, [&](int32_t *time) { return date_str_to_time(text, time); }),
                "either, to the past");
}

void judge_number(const Fields &fields) {
  const ExactText text(decoded(fields[3]));
  const std::string got = reading(
      1, [&](int32_t *time) { return date_numeric_str_to_time(number(fields[1]), text, time); });
  expect_one_of(fields[2], got, "numeric");
}

void judge_token(const Fields &fields) {
  char *token = date_fmt_token_general(number(fields[1]), number(fields[2]), number(fields[3]),
                                       number(fields[4]), 0);
  EXPECT_STREQ(token != nullptr ? token : "x", fields[5].c_str());
  free(token);
}

void judge_digits(const Fields &fields) {
  EXPECT_EQ(date_fmt_token_numeric(number(fields[2]), number(fields[1])), fields[3]);
}

void judge_plain(const Fields &fields) {
  const int32_t time = number(fields[1]);
  EXPECT_EQ(date_fmt_long_date_time(time), fields[2]);
  EXPECT_EQ(date_fmt_short_date_time(time), fields[3]);
  EXPECT_EQ(date_fmt_short_date(time), fields[4]);
  EXPECT_EQ(date_fmt_short_time(time), fields[5]);
  EXPECT_EQ(date_fmt_ls_date_time(time), fields[6]);
}

void judge_ago(const Fields &fields) {
  EXPECT_EQ(date_one_year_ago(number(fields[1])), number(fields[2]));
}

struct Judge {
  size_t fields;
  void (*judge)(const Fields &fields);
};

const std::map<std::string, Judge> kJudges = {
    {"now", {2, judge_now}},     {"parse", {5, judge_parse}},   {"number", {4, judge_number}},
    {"token", {6, judge_token}}, {"digits", {4, judge_digits}}, {"plain", {7, judge_plain}},
    {"ago", {3, judge_ago}},
};

class DateReference : public testing::TestWithParam<const char *> {};

INSTANTIATE_TEST_SUITE_P(Zones, DateReference,
                         testing::Values("UTC", "Asia/Kolkata", "America/New_York",
                                         "Pacific/Auckland", "Etc/GMT+12"));

TEST_P(DateReference, TheLibraryAnswersAsItDoes) {
  setenv("TZ", GetParam(), 1);
  unsetenv("TLBAY_ISO_DATE_FMT");
  const Outcome reference =
      run_program({"python3", "-B", NORVAKS_SOURCE_DIR "/tests/text/date_cases.py", GetParam(),
                   kSeed, kRounds});
  ASSERT_EQ(reference.end(), "exit 0") << reference.err;
  std::map<std::string, int> judged;
  std::string now;
  for (const std::string &line : split(reference.out, '\n')) {
    if (line.empty()) continue;
    const Fields fields = split(line, '\t');
    const auto found = kJudges.find(fields[0]);
    ASSERT_TRUE(found != kJudges.end() && fields.size() == found->second.fields) << line;
    if (fields[0] == "now") now = line;
    SCOPED_TRACE(std::string(GetParam()) + ", seed " + kSeed + ", " + now + ": " + line);
    found->second.judge(fields);
    ++judged[fields[0]];
  }
  EXPECT_GE(judged["parse"] + judged["number"], 4000);
  for (const char *written : {"token", "digits", "plain", "ago"}) EXPECT_GE(judged[written], 400);
}

}  // namespace
