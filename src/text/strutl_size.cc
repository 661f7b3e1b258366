// Sizes with a letter for the unit.
#include <climits>

#include "strutl.h"

namespace {

constexpr double kKilobyte = 1024;
constexpr double kLowest = LONG_MIN;  // exact, while LONG_MAX as a double may be one more

// The bytes of the unit that all of `suffix` names, or 0.
double unit_bytes(const char *suffix) {
  if (suffix[0] == '\0') return 1;
  if (suffix[1] != '\0') return 0;
  switch (suffix[0]) {
    case 'k':
    case 'K':
      return kKilobyte;
    case 'm':
    case 'M':
      return kKilobyte * kKilobyte;
    case 'g':
    case 'G':
      return kKilobyte * kKilobyte * kKilobyte;
    default:
      return 0;
  }
}

// Whether `size`, without its fraction, is a long; false for what is not a number.
bool fits_long(double size) { return size - kLowest > -1 && size < -kLowest; }

// Reads a size in bytes and gives it in units of `unit` bytes. All factors are powers of 2, so
// nothing is rounded but by the last step.
int read_size(const char *text, double unit, long *value) {
  double number;
  char *suffix;
  if (strutl_strtod_extended(text, &number, &suffix)) return 1;
  const double factor = unit_bytes(suffix) / unit;
  const double size = number * factor;
  if (factor == 0 || !fits_long(size)) return 1;
  *value = static_cast<long>(size);
  if (*value == 0 && number != 0) *value = 1;
  return 0;
}

}  // namespace

int strutl_kstr_to_long(const char *text, long *value) { return read_size(text, kKilobyte, value); }

int strutl_kstr_or_str_to_long(const char *text, long *value) { return read_size(text, 1, value); }
