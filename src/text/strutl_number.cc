// Numbers read from text, and written.
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "strutl.h"

namespace {

// Reads a number with `read`, one of the system's functions: where the base makes no sense they do
// not say where the number ends.
template <class Number, class Read>
int read_number(const char *text, Number *value, char **end, Read &&read) {
  *value = 0;
  errno = 0;
  *value = read(text, end);
  if (errno == EINVAL) *end = const_cast<char *>(text);
  return errno != 0 || *end == text;
}

constexpr size_t kU32Digits = 32;  // in base 2

}  // namespace

int strutl_strtol_extended(const char *text, int base, long *value, char **end) {
  return read_number(text, value, end,
                     [base](const char *at, char **stop) { return strtol(at, stop, base); });
}

int strutl_strtoul_extended(const char *text, int base, unsigned long *value, char **end) {
  return read_number(text, value, end,
                     [base](const char *at, char **stop) { return strtoul(at, stop, base); });
}

int strutl_strtod_extended(const char *text, double *value, char **end) {
  return read_number(text, value, end, strtod);
}

int strutl_strtol(const char *text, int base, long *value) {
  char *end;
  return strutl_strtol_extended(text, base, value, &end) || *end != '\0';
}

int strutl_strtoul(const char *text, int base, unsigned long *value) {
  char *end;
  return strutl_strtoul_extended(text, base, value, &end) || *end != '\0';
}

int strutl_strtod(const char *text, double *value) {
  char *end;
  return strutl_strtod_extended(text, value, &end) || *end != '\0';
}

long strutl_process_long_param(const char *text, long otherwise, long minimum, long maximum) {
  long value;
  if (text == nullptr || strutl_strtol(text, 10, &value)) return otherwise;
  if (value < minimum) return minimum;
  return std::min(value, maximum);
}

const char *strutl_u32tostr(uint32_t value, int base, int width) {
  static constinit char field[kU32Digits + 1];
  if (base < 2 || base > 36) return nullptr;
  memset(field, '0', kU32Digits);
  size_t first = kU32Digits;
  do {
    field[--first] = "0123456789abcdefghijklmnopqrstuvwxyz"[value % static_cast<uint32_t>(base)];
    value /= static_cast<uint32_t>(base);
  } while (value != 0);
  if (width >= 0) first = kU32Digits - std::min(static_cast<size_t>(width), kU32Digits);
  return field + first;
}
