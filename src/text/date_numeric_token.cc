// Dates as digit strings, for programs to keep and to read back.
#include <iterator>

#include "date.h"
#include "date_format.h"
#include "date_internal.h"
#include "ks_zone.h"
#include "strutl.h"

using namespace ks;

namespace {

// Before it becomes a strftime format, a style takes the separator of the fields, then that of hour
// and minute.
constexpr const char *kStyles[] = {
    "%%y%%m%%d%s%%H%%M%%S",
    "%%Y%%m%%d%s%%H%%M%%S",
    "%%y%%m%%d%s%%H%%M",
    "%%Y%%m%%d%s%%H%%M",
    "%%y%%m%%d",
    "%%Y%%m%%d",
    nullptr,  // DATE_NUMERIC_DECIMAL
    nullptr,  // DATE_NUMERIC_HEXADECIMAL
    "%%y%%m%%d%s%%H%s%%M",
};

constinit char text[128] = {};

void write_number(int32_t time, int base) {
  strutl_cpy_buf(text, strutl_u32tostr(static_cast<uint32_t>(time), base, -1), sizeof text);
}

void write_digits(const char *style, int32_t time) {
  const DateWords &words = date_words();
  char format[64];
  strutl_snprintf(format, sizeof format, style, words.field_separator, words.time_separator);
  struct tm local;
  if (local_time(time, &local)) write_time(text, sizeof text, format, local);
}

}  // namespace

const char *date_fmt_token_numeric(int style, int32_t time) {
  text[0] = '\0';
  if (style == DATE_NUMERIC_DECIMAL) {
    write_number(time, 10);
  } else if (style == DATE_NUMERIC_HEXADECIMAL) {
    write_number(time, 16);
  } else if (style >= 0 && static_cast<size_t>(style) < std::size(kStyles)) {
    write_digits(kStyles[style], time);
  }
  return text;
}
