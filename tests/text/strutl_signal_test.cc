// Signals that arrive while libc converts characters or formats, which it may do under a lock or
// with storage in the making: their routines run behind the call.
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

#include "imsg.h"
#include "pfm.h"
#include "stg.h"
#include "strutl.h"
#include "support/faults.h"
#include "support/landing.h"
#include "support/locale.h"

using ks_test::land;
using ks_test::use_locale;

namespace {

constexpr char kAlpha[] = "\x83\xBF";  // in Shift_JIS

void step() {
  if (strutl_mb_strlen(kAlpha) != 1) abort();
}
void classify() {
  if (strutl_test_char(kAlpha, 2, STRUTL_CLASS_ALPHA, nullptr) != 1) abort();
}
void name() {
  if (strutl_is_ok_name(kAlpha, nullptr, nullptr) != 1) abort();
}
void upper_case() {
  char out[MB_LEN_MAX];
  if (strutl_cvt_case_char(kAlpha, 2, 1, out) != 2) abort();
}
stg_area_t area = STG_AREA_NULL;  // of what is converted, also where a fault leaves it

void widen() {
  const wchar_t *wide = strutl_cvt_str_to_wide_str(kAlpha, area);
  if (wide == nullptr || wide[0] != L'\u03B1') abort();
}
void narrow() {
  const char *text = strutl_cvt_wide_str_to_str(L"\u03B1", area);
  if (text == nullptr || strcmp(text, kAlpha) != 0) abort();
}
void format() {
  char text[8];
  if (strutl_snprintf(text, sizeof text, "%ls", L"\u03B1") != 2) abort();
}
void format_without_limit() {
  char text[8];
  if (imsg_sprintf(text, "%ls", -1, L"\u03B1") != 2) abort();
}

struct Conversion {
  const char *name;
  const char *call;
  int nth;
  void (*convert)();
};

void PrintTo(const Conversion &conversion, std::ostream *out) { *out << conversion.name; }

constexpr Conversion kConversions[] = {
    {"Step", "mbrtowc", 0, step},
    {"Class", "mbrtowc", 0, classify},
    {"Name", "mbrtowc", 0, name},
    {"CaseIn", "mbrtowc", 0, upper_case},
    {"CaseOut", "wcrtomb", 0, upper_case},
    {"Widening", "mbstowcs", 0, widen},
    {"NarrowingMeasured", "wcstombs", 0, narrow},
    {"Narrowing", "wcstombs", 1, narrow},
    {"Formatting", "vsnprintf", 0, format},
    {"FormattingWithoutLimit", "vsprintf", 0, format_without_limit},
};

class StrutlSignals : public testing::TestWithParam<Conversion> {};

INSTANTIATE_TEST_SUITE_P(Conversions, StrutlSignals, testing::ValuesIn(kConversions),
                         [](const auto &conversion) { return conversion.param.name; });

bool was_inside = false;

TEST_P(StrutlSignals, ARoutineThatRaisesLeavesTheConversionWhole) {
  const Conversion &conversion = GetParam();
  use_locale("ja_JP.SJIS");
  area = stg_create_area(100);
  pfm_signal(SIGUSR1, [](int sig) {
    was_inside = ks_test::inside_call();
    pfm_raise(sig);
  });
  ks_test::signal_in_call(conversion.call, conversion.nth, SIGUSR1);
  EXPECT_EQ(land(conversion.convert).status, SIGUSR1);
  EXPECT_FALSE(was_inside);
  EXPECT_EQ(pfm_inhibit_count(), 0);
  conversion.convert();
  pfm_signal(SIGUSR1, SIG_DFL);
  stg_delete_area(&area);
}

}  // namespace
