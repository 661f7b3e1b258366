// Flag words as text.
#include <cstring>
#include <span>

#include "strutl.h"

namespace {

constexpr size_t kTextSize = 1024;

using FlagTable = std::span<const strutl_flag_item_t>;

const char *separator_or_blank(const char *separator) {
  return separator != nullptr && separator[0] != '\0' ? separator : " ";
}

// Adds the bits of all rows of that name; false when there is none.
bool add_bits(FlagTable table, const char *name, int (*compare)(const char *, const char *),
              uint32_t *flags) {
  bool found = false;
  for (const strutl_flag_item_t &row : table) {
    if (compare(row.name, name) != 0) continue;
    *flags |= row.bits;
    found = true;
  }
  return found;
}

}  // namespace

const char *strutl_flags_to_str(uint32_t flags, const char *separator,
                                const strutl_flag_item_t *table, size_t count) {
  static constinit char text[kTextSize];
  text[0] = '\0';
  uint32_t unnamed = flags;
  const char *between = "";
  for (const strutl_flag_item_t &row : FlagTable(table, count)) {
    unnamed &= ~row.bits;
    if ((flags & row.bits) == 0) continue;
    strutl_concat(text, sizeof text, 3, text, between, row.name);
    between = separator_or_blank(separator);
  }
  if (unnamed != 0) {
    char unknown[sizeof " UNKNOWN(0x12345678)"];
    strutl_snprintf(unknown, sizeof unknown, " UNKNOWN(0x%x)", unnamed);
    strutl_concat(text, sizeof text, 2, text, unknown);
  }
  return text;
}

uint32_t strutl_flags_from_str(const char *text, int case_sensitive, const char *separator,
                               const strutl_flag_item_t *table, size_t count,
                               const char **bad_word) {
  char words[kTextSize];
  strutl_cpy_buf(words, text, sizeof words);
  const char *between = separator_or_blank(separator);
  const size_t step = strlen(between);
  uint32_t flags = 0;
  size_t start = 0;
  for (int more = 1; more;) {
    size_t end;
    more = strutl_find_str(words, start, between, &end);
    words[end] = '\0';
    if (end != start && !add_bits(FlagTable(table, count), words + start,
                                  case_sensitive ? strcmp : strutl_stricoll, &flags)) {
      *bad_word = text + start;
      return 0;
    }
    start = end + step;
  }
  *bad_word = nullptr;
  return flags;
}
