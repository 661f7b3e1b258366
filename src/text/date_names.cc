// The words of dates, from the message catalog.
#include <algorithm>
#include <cstring>

#include "date.h"
#include "date_internal.h"
#include "date_msg.h"
#include "imsg.h"

using namespace ks;

namespace {

constinit bool loaded = false;
constinit DateWords words = {};
constinit char usage[1024] = "";

// Where the words of a row stand in the table.
struct NameSource {
  int name;
  int short_name;
  int32_t number;
};

constexpr NameSource kMonths[] = {
    {DATE_MSG_JANUARY, DATE_MSG_JANUARY_SHORT, 31},
    {DATE_MSG_FEBRUARY, DATE_MSG_FEBRUARY_SHORT, 29},
    {DATE_MSG_MARCH, DATE_MSG_MARCH_SHORT, 31},
    {DATE_MSG_APRIL, DATE_MSG_APRIL_SHORT, 30},
    {DATE_MSG_MAY, DATE_MSG_MAY_SHORT, 31},
    {DATE_MSG_JUNE, DATE_MSG_JUNE_SHORT, 30},
    {DATE_MSG_JULY, DATE_MSG_JULY_SHORT, 31},
    {DATE_MSG_AUGUST, DATE_MSG_AUGUST_SHORT, 31},
    {DATE_MSG_SEPTEMBER, DATE_MSG_SEPTEMBER_SHORT, 30},
    {DATE_MSG_OCTOBER, DATE_MSG_OCTOBER_SHORT, 31},
    {DATE_MSG_NOVEMBER, DATE_MSG_NOVEMBER_SHORT, 30},
    {DATE_MSG_DECEMBER, DATE_MSG_DECEMBER_SHORT, 31},
};

constexpr NameSource kWeekdays[] = {
    {DATE_MSG_SUNDAY, DATE_MSG_SUNDAY_SHORT, 0},
    {DATE_MSG_MONDAY, DATE_MSG_MONDAY_SHORT, 1},
    {DATE_MSG_TUESDAY, DATE_MSG_TUESDAY_SHORT, 2},
    {DATE_MSG_WEDNESDAY, DATE_MSG_WEDNESDAY_SHORT, 3},
    {DATE_MSG_THURSDAY, DATE_MSG_THURSDAY_SHORT, 4},
    {DATE_MSG_FRIDAY, DATE_MSG_FRIDAY_SHORT, 5},
    {DATE_MSG_SATURDAY, DATE_MSG_SATURDAY_SHORT, 6},
};

constexpr NameSource kSpecialDays[] = {
    {DATE_MSG_TODAY, DATE_MSG_TODAY_SHORT, 0},
    {DATE_MSG_YESTERDAY, DATE_MSG_YESTERDAY_SHORT, -1},
};

// Never tagged: these texts are compared, or put into others. What does not fit is cut.
template <size_t kSize>
void load_text(char (&text)[kSize], int message) {
  constexpr int kNeverTagged = 1;
  if (imsg_snprintf_taggable(kNeverTagged, text, kSize, _date_ks_msg_table, message) < 0) {
    text[0] = '\0';
  }
}

template <size_t kRows>
void load_names(DateName (&names)[kRows], const NameSource (&sources)[kRows]) {
  for (size_t row = 0; row < kRows; ++row) {
    names[row].number = sources[row].number;
    load_text(names[row].name, sources[row].name);
    load_text(names[row].short_name, sources[row].short_name);
  }
}

bool is_word(const char *text) { return *text != '-' && (*text < '0' || *text > '9'); }

bool are_words(const DateName &row) { return is_word(row.name) && is_word(row.short_name); }

bool are_plain() {
  return strcmp(words.date_separator, "-") == 0 && strcmp(words.time_separator, ":") == 0 &&
         strcmp(words.field_separator, ".") == 0 && is_word(words.now) && is_word(words.none) &&
         std::ranges::all_of(words.weekdays, are_words) &&
         std::ranges::all_of(words.special_days, are_words);
}

void load_words() {
  load_names(words.months, kMonths);
  load_names(words.weekdays, kWeekdays);
  load_names(words.special_days, kSpecialDays);
  load_text(words.date_separator, DATE_MSG_DATE_SEPARATOR);
  load_text(words.time_separator, DATE_MSG_TIME_SEPARATOR);
  load_text(words.field_separator, DATE_MSG_FIELD_SEPARATOR);
  load_text(words.zone_separator, DATE_MSG_ZONE_SEPARATOR);
  load_text(words.now, DATE_MSG_NOW);
  load_text(words.none, DATE_MSG_NONE);
  words.plain = are_plain();
  loaded = true;  // last, so that a fault in between lets the next call begin again
}

}  // namespace

const DateWords &ks::date_words() {
  if (!loaded) load_words();
  return words;
}

void date_init(void) { date_words(); }

const char *date_usage_date_time(void) {
  if (usage[0] == '\0') load_text(usage, DATE_MSG_USAGE);
  return usage;
}
