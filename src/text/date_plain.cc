// Dates as strftime writes them, in buffers of the library's own.
#include "core/ks_frame.h"
#include "date.h"
#include "date_format.h"
#include "ks_zone.h"
#include "stg.h"

using namespace ks;

namespace {

constexpr size_t kTextSize = 128;
constexpr size_t kShortDateSize = 32;

// One for each formatter, made by its first call.
constinit struct {
  char *long_date_time;
  char *short_date_time;
  char *short_date;
  char *short_time;
  char *ls_date_time;
} texts = {};

const char *local_text(char *&text, size_t size, const char *format, int32_t time) {
  struct tm local;
  if (!local_time(time, &local)) return nullptr;
  if (text == nullptr) {
    signals_held([&] { text = static_cast<char *>(stg_malloc(size)); });
  }
  if (text != nullptr) write_time(text, size, format, local);
  return text;
}

// Whether the year that ends here holds a leap day. One that ends in March of a leap year is taken
// for one without: listings go by that.
bool leap_day_passed(const struct tm &local) {
  constexpr int kMarch = 2;
  const int year_of_four = local.tm_year % 4;
  return year_of_four == 0 ? local.tm_mon > kMarch : year_of_four == 1 && local.tm_mon <= kMarch;
}

}  // namespace

void ks::write_time(char *target, size_t size, const char *format, const struct tm &time) {
  size_t length = 0;
  signals_held([&] {  // libc loads the words of a locale under a lock
    length = strftime(target, size, format, &time);
  });
  target[length] = '\0';
}

bool ks::is_recent(int32_t time) {
  const int32_t now = present_seconds();
  return time <= now && time > date_one_year_ago(now);
}

int32_t date_one_year_ago(int32_t time) {
  constexpr uint32_t kDay = 24 * 60 * 60;
  struct tm local;
  const bool leap = local_time(time, &local) && leap_day_passed(local);
  return static_cast<int32_t>(static_cast<uint32_t>(time) - (leap ? 366 : 365) * kDay);
}

const char *date_fmt_long_date_time(int32_t time) {
  return local_text(texts.long_date_time, kTextSize, "%c", time);
}

const char *date_fmt_short_date_time(int32_t time) {
  return local_text(texts.short_date_time, kTextSize, "%x %X", time);
}

const char *date_fmt_short_date(int32_t time) {
  return local_text(texts.short_date, kShortDateSize, "%x", time);
}

const char *date_fmt_short_time(int32_t time) {
  return local_text(texts.short_time, kTextSize, "%H:%M:%S", time);
}

const char *date_fmt_ls_date_time(int32_t time) {
  const char *format = is_recent(time) ? "%b %d %H:%M" : "%b %d  %Y";
  return local_text(texts.ls_date_time, kTextSize, format, time);
}
