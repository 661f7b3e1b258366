// Dates as digits in fixed places.
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "date.h"
#include "date_internal.h"

using namespace ks;

namespace {

// By style: a letter stands for a character of its field, '.' and ':' for the words' separators.
constexpr const char *kForms[] = {
    "yymmdd.HHMMSS", "yyyymmdd.HHMMSS", "yymmdd.HHMM", "yyyymmdd.HHMM", "yymmdd",
    "yyyymmdd",      nullptr,           nullptr,       "yymmdd.HH:MM",
};

constexpr char kFields[] = "ymdHMS";
enum { kYear, kMonth, kDay, kHour, kMinute, kSecond, kFieldCount };

struct Slot {
  char text[5];
  size_t size;
};

// The number that a text begins with; blanks and a sign may stand before its digits.
bool read_number(const char *text, int base, long long *number) {
  char *end;
  errno = 0;
  *number = strtoll(text, &end, base);
  return end != text && errno == 0;
}

// The moments of hexadecimal numbers beyond the half are those before the epoch.
bool read_seconds(const char *text, int base, int32_t *time) {
  long long number;
  if (!read_number(text, base, &number)) return false;
  if (base == 16 && number > INT32_MAX && number <= UINT32_MAX) number -= int64_t{1} << 32;
  if (!fits_time(number)) return false;
  *time = static_cast<int32_t>(number);
  return true;
}

bool take_separator(const char *&text, const char *separator) {
  const size_t size = strlen(separator);
  if (strncmp(text, separator, size) != 0) return false;
  text += size;
  return true;
}

// Puts each character into the slot of its field. What follows the form is not looked at.
bool fill_slots(const char *text, const char *form, Slot *slots) {
  const DateWords &words = date_words();
  for (; *form != '\0'; ++form) {
    if (*form == '.' || *form == ':') {
      if (!take_separator(text, *form == '.' ? words.field_separator : words.time_separator)) {
        return false;
      }
      continue;
    }
    if (*text == '\0') return false;
    Slot &slot = slots[strchr(kFields, *form) - kFields];
    slot.text[slot.size++] = *text++;
  }
  return true;
}

bool read_slots(const Slot *slots, int *fields) {
  for (size_t at = 0; at < kFieldCount; ++at) {
    long long number = 0;
    if (slots[at].size != 0 && !read_number(slots[at].text, 10, &number)) return false;
    fields[at] = static_cast<int>(number);
  }
  return true;
}

int whole_year(int year) {
  if (year <= 69) return year + 2000;
  return year <= 99 ? year + 1900 : year;
}

}  // namespace

int date_numeric_str_to_time(int style, const char *text, int32_t *time) {
  date_init();
  if (text == nullptr || time == nullptr) return 0;
  if (style == DATE_NUMERIC_DECIMAL) return read_seconds(text, 10, time);
  if (style == DATE_NUMERIC_HEXADECIMAL) return read_seconds(text, 16, time);
  if (style < 0 || style > DATE_NUMERIC_COLON) return 0;
  Slot slots[kFieldCount] = {};
  int fields[kFieldCount];
  if (!fill_slots(text, kForms[style], slots) || !read_slots(slots, fields)) return 0;
  struct tm local = {};
  local.tm_year = whole_year(fields[kYear]) - 1900;
  local.tm_mon = fields[kMonth] - 1;
  local.tm_mday = fields[kDay];
  local.tm_hour = fields[kHour];
  local.tm_min = fields[kMinute];
  local.tm_sec = fields[kSecond];
  local.tm_isdst = -1;
  int32_t moment;
  if (!moment_of_local(&local, &moment) || moment == -1) return 0;
  *time = moment;
  return 1;
}
