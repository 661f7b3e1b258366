// The identity of the library.
#include "libnorvaks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "support/child.h"

namespace {

// The name in 33 bytes, the version, and the day of the build.
const std::string kIdentity = "libnorvaks" + std::string(23, ' ') + " " + NORVAKS_TEST_VERSION +
                              " \\([0-9]{4}-(0[1-9]|1[0-2])-(0[1-9]|[12][0-9]|3[01])\\)\n";

std::string identity() {
  char text[128];
  const int length = libnorvaks_sprintf_verid(text);
  EXPECT_EQ(static_cast<size_t>(length), strlen(text));
  return text;
}

TEST(LibnorvaksVerid, NamesLibraryVersionAndDate) {
  EXPECT_THAT(identity(), testing::MatchesRegex(kIdentity));
}

TEST(LibnorvaksVerid, IsPrintedAsPlainOutput) {
  const ks_test::Outcome outcome = ks_test::in_child([] { libnorvaks_print_verid(); });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, identity());
  EXPECT_EQ(outcome.err, "");
}

TEST(LibnorvaksVerid, HasThePrefixOfPlainOutputWherePrintedOnly) {
  setenv("PRINT_SUBSYS_OK", "1", 1);
  const ks_test::Outcome outcome = ks_test::in_child([] { libnorvaks_print_verid(); });
  EXPECT_EQ(outcome.out, "noname: Ok: " + identity());
}

}  // namespace
