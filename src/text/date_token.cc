// Dates as one word without blanks.
#include <cstdlib>
#include <cstring>

#include "core/ks_frame.h"
#include "date.h"
#include "date_format.h"
#include "ks_zone.h"
#include "strutl.h"

using namespace ks;

namespace {

constexpr size_t kTokenSize = 128;

constinit int default_date_fmt_style = DATE_STYLE_ISO;
constinit bool style_checked = false;  // the environment has been asked for the style

// The last text of each wrapper.
constinit struct {
  char *date_time;
  char *date;
  char *short_date_time;
  char *utc;
  char *date_time_pname;
} texts = {};

void check_style() {
  if (style_checked) return;
  const char *iso = getenv("TLBAY_ISO_DATE_FMT");
  if (iso != nullptr && strcmp(iso, "0") == 0) default_date_fmt_style = DATE_STYLE_CLASSIC;
  style_checked = true;
}

const char *classic_format(int kind, bool recent, bool utc) {
  if (kind == DATE_KIND_DATE) return "%d-%b-%y";
  if (kind != DATE_KIND_SHORT) return utc ? "%d-%b-%y.%H:%M:%SUTC" : "%d-%b-%y.%H:%M:%S";
  if (!recent) return "%d-%b-%Y";
  return utc ? "%d-%b.%H:%MUTC" : "%d-%b.%H:%M";
}

// The words of some locales have blanks inside.
void remove_blanks(char *text) {
  size_t position = 0;
  while (strutl_find_char(text, position, ' ', &position)) {
    strutl_slide_tail(text, position + 1, -1);
  }
}

char *put_digits(char *at, int value, int count) {
  for (int place = count - 1; place >= 0; --place) {
    at[place] = static_cast<char>('0' + value % 10);
    value /= 10;
  }
  return at + count;
}

// Two digits behind a mark.
char *put_field(char *at, char mark, int value) {
  *at = mark;
  return put_digits(at + 1, value, 2);
}

char *put_zone(char *at, int32_t offset_seconds) {
  if (offset_seconds == 0) {
    *at = 'Z';
    return at + 1;
  }
  const int32_t minutes = abs(offset_seconds) / 60;
  at = put_field(at, offset_seconds > 0 ? '+' : '-', minutes / 60);
  return put_field(at, ':', minutes % 60);
}

char *put_month_and_day(char *at, const struct tm &time) {
  return put_field(put_digits(at, time.tm_mon + 1, 2), '-', time.tm_mday);
}

char *put_date(char *at, const struct tm &time) {
  at = put_digits(at, time.tm_year + 1900, 4);
  *at++ = '-';
  return put_month_and_day(at, time);
}

char *put_hour_and_minute(char *at, const struct tm &time) {
  return put_field(put_field(at, 'T', time.tm_hour), ':', time.tm_min);
}

// Returns the end of the text.
char *put_iso(char *at, int kind, bool recent, const struct tm &time) {
  if (kind == DATE_KIND_SHORT && recent) {
    *at++ = '-';
    *at++ = '-';
    return put_hour_and_minute(put_month_and_day(at, time), time);
  }
  at = put_date(at, time);
  if (kind == DATE_KIND_DATE || kind == DATE_KIND_SHORT) return at;
  at = put_field(put_hour_and_minute(at, time), ':', time.tm_sec);
  return put_zone(at, offset_seconds_of(time));
}

// Under one hold, so that no fault loses a text between two owners.
const char *keep_token(char *&text, int32_t time, int kind, int utc, int pname) {
  char *token = nullptr;
  signals_held([&] {
    token = date_fmt_token_general(time, kind, DATE_STYLE_DEFAULT, utc, pname);
    if (token == nullptr) return;
    free(text);
    text = token;
  });
  return token;
}

}  // namespace

int date_fmt_get_default_date_style(void) {
  check_style();
  return default_date_fmt_style;
}

int date_fmt_set_default_style(int style) {
  const int previous = date_fmt_get_default_date_style();
  default_date_fmt_style = style;
  return previous;
}

char *date_fmt_token_general(int32_t time, int kind, int style, int utc, int) {
  if (style == DATE_STYLE_DEFAULT) style = date_fmt_get_default_date_style();
  struct tm parts;
  if (time < 0 || !(utc ? utc_time(time, &parts) : local_time(time, &parts))) return nullptr;
  const bool recent = kind == DATE_KIND_SHORT && is_recent(time);
  char text[kTokenSize];
  if (style == DATE_STYLE_CLASSIC) {
    write_time(text, sizeof text, classic_format(kind, recent, utc), parts);
    remove_blanks(text);
  } else {
    *put_iso(text, kind, recent, parts) = '\0';
  }
  char *token = nullptr;
  signals_held([&] { token = strdup(text); });
  return token;
}

const char *date_fmt_token_date_time(int32_t time) {
  return keep_token(texts.date_time, time, DATE_KIND_DATE_TIME, 0, 0);
}

const char *date_fmt_token_date(int32_t time) {
  return keep_token(texts.date, time, DATE_KIND_DATE, 0, 0);
}

const char *date_fmt_token_short_date_time(int32_t time) {
  return keep_token(texts.short_date_time, time, DATE_KIND_SHORT, 0, 0);
}

const char *date_fmt_token_utc(int32_t time) {
  return keep_token(texts.utc, time, DATE_KIND_DATE_TIME, 1, 0);
}

const char *date_fmt_token_date_time_pname(int32_t time) {
  return keep_token(texts.date_time_pname, time, DATE_KIND_DATE_TIME, 0, 1);
}
