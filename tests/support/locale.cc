#include "support/locale.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>

void ks_test::use_locale(const char *name) {
  setenv("LOCPATH", NORVAKS_TEST_LOCALES, 1);
  ASSERT_NE(setlocale(LC_ALL, name), nullptr) << "no locale " << name;
}
