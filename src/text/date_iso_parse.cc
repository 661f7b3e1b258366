// ISO 8601 dates: the forms of the text.
#include "date_iso.h"

using namespace ks;

namespace {

using Field = int IsoDate::*;

// Where in a text one is. Numbers are runs of digits.
class Reader {
 public:
  explicit Reader(const char *text) : at_(text) {}

  bool at_end() const { return *at_ == '\0'; }

  // How many digits follow.
  size_t digits() const {
    size_t count = 0;
    while (is_digit(at_[count])) ++count;
    return count;
  }

  char behind_digits() const { return at_[digits()]; }

  bool take(char mark) {
    if (*at_ != mark) return false;
    ++at_;
    return true;
  }

  // In either case.
  bool take_letter(char upper) { return take(upper) || take(static_cast<char>(upper - 'A' + 'a')); }

  size_t take_hyphens() {
    size_t count = 0;
    while (take('-')) ++count;
    return count;
  }

  // The number of `count` digits, which are there.
  int take_number(size_t count) {
    int number = 0;
    for (; count > 0; --count) number = number * 10 + (*at_++ - '0');
    return number;
  }

  bool take_two(int *number) {
    if (!is_digit(at_[0]) || !is_digit(at_[1])) return false;
    *number = take_number(2);
    return true;
  }

 private:
  static bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

  const char *at_;
};

// A form is known by the digits of its first run and the hyphens before them. The run holds the
// fields, one behind the other: a day of the year in three digits, all else in two.
struct Form {
  size_t digits;
  size_t hyphens;
  Field fields[4];

  bool fits(size_t count, size_t leading) const { return digits == count && hyphens == leading; }
};

constexpr Field kCentury = &IsoDate::century, kYear = &IsoDate::year, kYday = &IsoDate::yday,
                kMonth = &IsoDate::month, kMday = &IsoDate::mday, kHour = &IsoDate::hour,
                kMinute = &IsoDate::minute, kSecond = &IsoDate::second;

// Dates that a month and a day, or what is left of them, may follow behind hyphens.
constexpr Form kOpenDates[] = {
    {2, 0, {kYear}},
    {2, 1, {kYear}},
    {2, 2, {kMonth}},
    {4, 0, {kCentury, kYear}},
};

// Dates that a time may follow.
constexpr Form kWholeDates[] = {
    {8, 0, {kCentury, kYear, kMonth, kMday}},
    {2, 3, {kMday}},
    {3, 1, {kYday}},
    {4, 2, {kMonth, kMday}},
    {5, 0, {kYear, kYday}},
    {6, 0, {kYear, kMonth, kMday}},
    {7, 0, {kCentury, kYear, kYday}},
};

// Dates that nothing may follow.
constexpr Form kYearAndMonth = {4, 1, {kYear, kMonth}};

constexpr Form kTimes[] = {
    {2, 0, {kHour}},          {2, 1, {kMinute}},          {2, 2, {kSecond}},
    {4, 0, {kHour, kMinute}}, {4, 1, {kMinute, kSecond}}, {6, 0, {kHour, kMinute, kSecond}},
};

template <size_t kForms>
const Form *find_form(const Form (&forms)[kForms], size_t digits, size_t hyphens) {
  for (const Form &form : forms) {
    if (form.fits(digits, hyphens)) return &form;
  }
  return nullptr;
}

void read_fields(Reader &reader, const Form &form, IsoDate *date) {
  for (const Field field : form.fields) {
    if (field == nullptr) return;
    date->*field = reader.take_number(field == kYday ? 3 : 2);
  }
}

bool parse_zone(Reader reader, IsoDate *date) {
  if (reader.at_end()) return true;
  date->zone_sign = reader.take('-') ? -1 : 1;
  if (date->zone_sign > 0 && reader.take_letter('Z')) return reader.at_end();
  if (date->zone_sign > 0 && !reader.take('+')) return false;
  if (!reader.take_two(&date->zone_hour)) return false;
  if (reader.at_end()) return true;
  reader.take(':');
  return reader.take_two(&date->zone_minute) && reader.at_end();
}

// Minutes behind an hour, and seconds behind minutes, where the first run was of two digits.
bool parse_behind_colons(Reader &reader, IsoDate *date) {
  if (date->minute == kAbsent) {
    if (!reader.take(':')) return true;
    if (!reader.take_two(&date->minute)) return false;
  }
  return !reader.take(':') || reader.take_two(&date->second);
}

bool parse_time(Reader reader, size_t hyphens, IsoDate *date) {
  const Form *const form = find_form(kTimes, reader.digits(), hyphens);
  if (form == nullptr) return false;
  read_fields(reader, *form, date);
  if (form->digits == 2 && date->second == kAbsent && !parse_behind_colons(reader, date)) {
    return false;
  }
  return parse_zone(reader, date);
}

// What may follow a whole date.
bool parse_time_part(Reader reader, IsoDate *date) {
  return reader.at_end() || (reader.take_letter('T') && parse_time(reader, 0, date));
}

// What may follow a year or a month. Week dates, which could stand here, are refused.
bool parse_rest_of_date(Reader reader, IsoDate *date) {
  if (reader.at_end()) return true;
  if (!reader.take('-')) return false;
  if (date->month == kAbsent) {
    const size_t digits = reader.digits();
    if (digits == 3) {
      date->yday = reader.take_number(3);
      return parse_time_part(reader, date);
    }
    if (digits != 2) return false;
    date->month = reader.take_number(2);
    if (reader.at_end()) return true;
    if (!reader.take('-')) return false;
  }
  return reader.take_two(&date->mday) && parse_time_part(reader, date);
}

// A day of the week, the only form with a week that is accepted: "W-3", behind a hyphen.
bool parse_weekday(Reader reader, IsoDate *date) {
  if (!reader.take_letter('W') || !reader.take('-') || reader.digits() != 1) return false;
  date->wday = reader.take_number(1);
  return parse_time_part(reader, date);
}

bool parse_date(Reader reader, size_t hyphens, IsoDate *date) {
  const size_t digits = reader.digits();
  if (digits == 0 && hyphens == 1) return parse_weekday(reader, date);
  if (const Form *const form = find_form(kWholeDates, digits, hyphens)) {
    read_fields(reader, *form, date);
    return parse_time_part(reader, date);
  }
  if (const Form *const form = find_form(kOpenDates, digits, hyphens)) {
    // Two digits alone are a century.
    if (digits == 2 && hyphens == 0 && reader.behind_digits() == '\0') {
      date->century = reader.take_number(2);
      return true;
    }
    read_fields(reader, *form, date);
    return parse_rest_of_date(reader, date);
  }
  if (!kYearAndMonth.fits(digits, hyphens)) return false;
  read_fields(reader, kYearAndMonth, date);
  return reader.at_end();
}

}  // namespace

bool ks::parse_iso(const char *text, IsoDate *date) {
  Reader reader(text);
  if (reader.take_letter('T')) {
    const size_t hyphens = reader.take_hyphens();
    return parse_time(reader, hyphens, date);
  }
  const size_t hyphens = reader.take_hyphens();
  // Digits before these begin a time, so there is no date.
  const char mark = reader.behind_digits();
  if (mark == ':' || mark == 'Z' || mark == 'z') return parse_time(reader, hyphens, date);
  return parse_date(reader, hyphens, date);
}
