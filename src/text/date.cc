// Dates in either of the two languages.
#include "date.h"

#include "date_internal.h"

using namespace ks;

namespace {

// Whether the older language refuses a text for what it begins with: two hyphens, which leave no
// day and no hour before them, or digits that neither a date nor a time goes on behind. That is how
// most ISO dates begin, and it saves the attempt to read them.
bool begins_as_iso_only(const char *text) {
  if (!date_words().plain) return false;
  if (text[0] == '-') return text[1] == '-';
  const char *at = text;
  while (*at >= '0' && *at <= '9') ++at;
  return at != text && *at != '-' && *at != ':';
}

}  // namespace

int date_str_to_time(const char *text, int32_t *time) {
  return date_str_to_time2(text, DATE_TO_PAST, time);
}

int date_str_to_time2(const char *text, int direction, int32_t *time) {
  if (text == nullptr) return 1;
  if (!begins_as_iso_only(text) && date_str_to_time_legacy(text, direction, time) == 0) return 0;
  return date_parse_iso_date(text, direction, time);
}
