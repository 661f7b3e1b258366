// Dates. All rows run twice: used before, and cold, where the zone, the words and the texts' storage
// are first asked for. The zone is five and a half hours ahead of UTC unless a row says otherwise.
#include <array>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "date.h"
#include "pfm.h"
#include "support/locale.h"
#include "sweep/answers.h"

using namespace ks_test;

namespace {

// 15 March 2006, 04:50:30 UTC.
constexpr int32_t kMoment = 1142398230;
constexpr int32_t kDay = 24 * 60 * 60;
constexpr int32_t kAhead = 5 * 3600 + 30 * 60;

struct State {
  int32_t time;
  char *token;       // the caller's, of the system's malloc
  const char *text;  // the library's
};
State state;

// Messages bear no time, so that nothing of dates is warm.
void use_zone() {
  warm_messages();
  setenv("TZ", "XYZ-5:30", 1);
}

void use_zone_file() {
  warm_messages();
  setenv("TZ", "Europe/Berlin", 1);
}

void use_system_zone() {
  warm_messages();
  unsetenv("TZ");
}

void use_shift_jis() {
  use_zone();
  use_locale("ja_JP.SJIS");
}

void use_classic_style() {
  use_zone();
  setenv("TLBAY_ISO_DATE_FMT", "0", 1);
}

// What a reader told, which stores the time in `state.time`.
Answer answer_of_reader(bool done, int32_t expected = kMoment) {
  if (!done) return Answer::kTold;
  return right_if(state.time == expected);
}

// What a formatter told.
Answer answer_of_formatter(const char *text, const char *expected) {
  if (text == nullptr) return Answer::kTold;
  return right_if(strcmp(text, expected) == 0);
}

template <auto kRead>
constexpr SweepRow reader_row(std::string_view function, std::string_view about = "",
                              void (*prepare)() = use_zone) {
  return answer_row<[] { return answer_of_reader(kRead(&state.time) == 0); }>(function, about,
                                                                              prepare);
}

template <const char *(*kWrite)(int32_t), const auto &kExpected>
constexpr SweepRow formatter_row(std::string_view function, std::string_view about = "",
                                 void (*prepare)() = use_zone) {
  return answer_row<[] { return answer_of_formatter(kWrite(kMoment), kExpected); }>(function, about,
                                                                                    prepare);
}

// Formatters in a zone or in words that the machine or its locale has: what libc says of them.
template <const char *(*kWrite)(int32_t)>
bool write_text() {
  state.text = kWrite(kMoment);
  return state.text != nullptr;
}

const char *check_with_libc(bool done) {
  if (!done) return nullptr;
  const time_t moment = kMoment;
  struct tm local;
  localtime_r(&moment, &local);
  char expected[128];
  strftime(expected, sizeof expected, "%c", &local);
  return strcmp(state.text, expected) == 0 ? nullptr : "another text than libc's";
}

// Dates that lean on today, at 10:20 of the user's clock.
constexpr int32_t kClock = 10 * 3600 + 20 * 60;

bool read_yesterday() { return date_str_to_time_legacy("yesterday.10:20", 0, &state.time) == 0; }

const char *check_yesterday(bool done) {
  if (!done) return nullptr;
  const int32_t today = (static_cast<int32_t>(time(nullptr)) + kAhead) / kDay;
  return state.time == (today - 1) * kDay + kClock - kAhead ? nullptr : "not yesterday";
}

bool read_cut_short() {
  return date_parse_iso_date("--03-15T10:20", DATE_TO_PAST, &state.time) == 0;
}

const char *check_cut_short(bool done) {
  if (!done) return nullptr;
  using namespace std::chrono;
  const sys_days today{days{(time(nullptr) + kAhead) / kDay}};
  year year = year_month_day{today}.year();
  if (sys_days{year / 3 / 15} > today) --year;
  const auto expected = sys_days{year / 3 / 15}.time_since_epoch().count() * kDay + kClock - kAhead;
  return state.time == expected ? nullptr : "not the last 15 March";
}

template <int kKind, int kStyle, int kUtc, const auto &kExpected>
constexpr SweepRow token_row(std::string_view about) {
  constexpr auto ask = [] {
    pfm_inhibit();
    state.token = date_fmt_token_general(kMoment, kKind, kStyle, kUtc, 0);
    pfm_enable();
    return answer_of_formatter(state.token, kExpected);
  };
  return answer_row<ask>("date_fmt_token_general", about, use_zone, [] {
    free(state.token);
    state.token = nullptr;
  });
}

constexpr char kLong[] = "Wed Mar 15 10:20:30 2006";
constexpr char kShort[] = "03/15/06 10:20:30";
constexpr char kShortDate[] = "03/15/06";
constexpr char kShortTime[] = "10:20:30";
constexpr char kListing[] = "Mar 15  2006";
constexpr char kToken[] = "2006-03-15T10:20:30+05:30";
constexpr char kTokenDate[] = "2006-03-15";
constexpr char kTokenUtc[] = "2006-03-15T04:50:30Z";
constexpr char kClassic[] = "15-Mar-06.10:20:30";
constexpr char kClassicUtc[] = "15-Mar-06.04:50:30UTC";

constexpr SweepRow kWarmRows[] = {
    reader_row<[](int32_t *time) { return date_str_to_time("15-mar-2006.10:20:30", time); }>(
        "date_str_to_time"),
    reader_row<[](int32_t *time) {
      return date_str_to_time2("2006-03-15T10:20:30", DATE_TO_FUTURE, time);
    }>("date_str_to_time2"),
    reader_row<[](int32_t *time) {
      return date_str_to_time_legacy(" 15-MAR-06.10:20:30 ", 0, time);
    }>("date_str_to_time_legacy"),
    reader_row<[](int32_t *time) {
      return date_str_to_time_legacy("15-mar-2006.04:50:30UTC", 0, time);
    }>("date_str_to_time_legacy", "with a zone"),
    reader_row<[](int32_t *time) {
      return date_str_to_time_legacy("15-mar-2006.10:20:30", 0, time);
    }>("date_str_to_time_legacy", "in Shift_JIS", use_shift_jis),
    {"date_str_to_time_legacy", "yesterday", use_zone, read_yesterday, check_yesterday, nullptr},
    reader_row<[](int32_t *time) { return date_parse_iso_date("20060315T102030", 0, time); }>(
        "date_parse_iso_date"),
    reader_row<[](int32_t *time) {
      return date_parse_iso_date("2006-03-15T06:50:30+02:00", 0, time);
    }>("date_parse_iso_date", "with an offset"),
    reader_row<[](int32_t *time) { return date_parse_iso_date("2006-03-15T04:50:30Z", 0, time); }>(
        "date_parse_iso_date", "no TZ", use_system_zone),
    {"date_parse_iso_date", "cut short", use_zone, read_cut_short, check_cut_short, nullptr},
    answer_row<[] {
      const int done =
          date_numeric_str_to_time(DATE_NUMERIC_LONG_SECONDS, "20060315.102030", &state.time);
      return answer_of_reader(done == 1);
    }>("date_numeric_str_to_time", "", use_zone),
    answer_row<[] {
      const char *usage = date_usage_date_time();
      return std::string_view(usage).find('\n') != std::string_view::npos;
    }>("date_usage_date_time"),
    answer_row<[] {
      date_init();
      return true;
    }>("date_init"),
    formatter_row<date_fmt_long_date_time, kLong>("date_fmt_long_date_time"),
    {"date_fmt_long_date_time", "a zone of a file", use_zone_file,
     write_text<date_fmt_long_date_time>, check_with_libc, nullptr},
    {"date_fmt_long_date_time", "no TZ", use_system_zone, write_text<date_fmt_long_date_time>,
     check_with_libc, nullptr},
    {"date_fmt_long_date_time", "in Shift_JIS", use_shift_jis, write_text<date_fmt_long_date_time>,
     check_with_libc, nullptr},
    formatter_row<date_fmt_short_date_time, kShort>("date_fmt_short_date_time"),
    formatter_row<date_fmt_short_date, kShortDate>("date_fmt_short_date"),
    formatter_row<date_fmt_short_time, kShortTime>("date_fmt_short_time"),
    formatter_row<date_fmt_ls_date_time, kListing>("date_fmt_ls_date_time"),
    answer_row<[] { return date_one_year_ago(kMoment) == kMoment - 365 * kDay; }>(
        "date_one_year_ago", "", use_zone),
    answer_row<[] { return date_fmt_get_default_date_style() == DATE_STYLE_CLASSIC; }>(
        "date_fmt_get_default_date_style", "", use_classic_style),
    answer_row<[] {
      date_fmt_set_default_style(DATE_STYLE_CLASSIC);
      return date_fmt_set_default_style(DATE_STYLE_ISO) == DATE_STYLE_CLASSIC;
    }>("date_fmt_set_default_style"),
    token_row<DATE_KIND_DATE_TIME, DATE_STYLE_ISO, 0, kToken>("ISO"),
    token_row<DATE_KIND_SHORT, DATE_STYLE_ISO, 0, kTokenDate>("ISO, short"),
    token_row<DATE_KIND_DATE_TIME, DATE_STYLE_CLASSIC, 1, kClassicUtc>("classic, UTC"),
    formatter_row<date_fmt_token_date_time, kToken>("date_fmt_token_date_time"),
    formatter_row<date_fmt_token_date_time, kClassic>("date_fmt_token_date_time", "classic",
                                                      use_classic_style),
    formatter_row<date_fmt_token_date, kTokenDate>("date_fmt_token_date"),
    formatter_row<date_fmt_token_short_date_time, kTokenDate>("date_fmt_token_short_date_time"),
    formatter_row<date_fmt_token_utc, kTokenUtc>("date_fmt_token_utc"),
    formatter_row<date_fmt_token_date_time_pname, kToken>("date_fmt_token_date_time_pname"),
    answer_row<[] {
      return answer_of_formatter(date_fmt_token_numeric(DATE_NUMERIC_LONG_SECONDS, kMoment),
                                 "20060315.102030");
    }>("date_fmt_token_numeric", "", use_zone),
};

template <size_t kCount>
constexpr std::array<SweepRow, 2 * kCount> with_cold_twins(const SweepRow (&rows)[kCount]) {
  std::array<SweepRow, 2 *kCount> both = {};
  for (size_t i = 0; i < kCount; ++i) {
    both[i] = both[kCount + i] = rows[i];
    both[kCount + i].cold = true;
  }
  return both;
}
constexpr auto kRows = with_cold_twins(kWarmRows);

constexpr SweepExemption kExemptions[] = {
    {"date_get_timeval", "asks the clock alone, which the system answers without a call"},
};

}  // namespace

const SweepModule ks_test::kSweepDate = {kRows, kExemptions};
