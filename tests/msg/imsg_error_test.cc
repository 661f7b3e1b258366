// Texts of error numbers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <netdb.h>

#include <cerrno>
#include <climits>
#include <string>

#include "imsg.h"
#include "support/assertion.h"
#include "support/catalogs.h"
#include "support/child.h"
#include "support/faults.h"

namespace {

TEST(ImsgStrerror, IsTheSystemsText) {
  EXPECT_STREQ(imsg_strerror(ENOENT), "No such file or directory");
  EXPECT_STREQ(imsg_strerror(EPERM), "Operation not permitted");
  EXPECT_STREQ(imsg_strerror(ENOMEM), "Cannot allocate memory");
}

TEST(ImsgStrerror, IsTheSystemsTextForNumbersItDoesNotKnow) {
  EXPECT_STREQ(imsg_strerror(99999), "Unknown error 99999");
  EXPECT_STREQ(imsg_strerror(INT_MAX), "Unknown error 2147483647");
}

TEST(ImsgStrerror, IsTheNumberWhenThatIsNotAboveZero) {
  EXPECT_STREQ(imsg_strerror(0), "0");
  EXPECT_STREQ(imsg_strerror(-5), "-5");
  EXPECT_STREQ(imsg_strerror(INT_MIN), "-2147483648");
}

TEST(ImsgStrerror, AnswersNumbersFromOneBuffer) {
  const char *first = imsg_strerror(0);
  EXPECT_EQ(imsg_strerror(-1), first);
  EXPECT_STREQ(first, "-1");
}

TEST(ImsgStrerror, ANumberThatCannotBeFormattedFailsAnAssertion) {
  const ks_test::Outcome outcome = ks_test::in_child([] {
    ks_test::fail_call("vsnprintf", 0, EOVERFLOW);
    imsg_strerror(0);
  });
  EXPECT_EQ(outcome.end(), "signal 6");
  EXPECT_THAT(outcome.err,
              testing::MatchesRegex("noname: Error: " +
                                    ks_test::assertion_line("count < sizeof error_number_message",
                                                            "src/msg/imsg_error.cc")));
}

TEST(ImsgStrerrorGethost, NamesTheResolversErrors) {
  EXPECT_STREQ(imsg_strerror_gethost(1), "Host not found");
  EXPECT_STREQ(imsg_strerror_gethost(4), "Valid name, no data record of requested type");
  EXPECT_STREQ(imsg_strerror_gethost(3), "This is a non-recoverable error");
  EXPECT_STREQ(imsg_strerror_gethost(2), "Non-authoritative host not found");
}

TEST(ImsgStrerrorGethost, TheResolverCountsSo) {
  EXPECT_EQ(HOST_NOT_FOUND, 1);
  EXPECT_EQ(TRY_AGAIN, 2);
  EXPECT_EQ(NO_RECOVERY, 3);
  EXPECT_EQ(NO_DATA, 4);
}

TEST(ImsgStrerrorGethost, TakesAnyOtherValueForAnErrno) {
  EXPECT_STREQ(imsg_strerror_gethost(0), "0");
  EXPECT_STREQ(imsg_strerror_gethost(-1), "-1");
  EXPECT_STREQ(imsg_strerror_gethost(5), "Input/output error");
  EXPECT_STREQ(imsg_strerror_gethost(99), "Cannot assign requested address");
  EXPECT_STREQ(imsg_strerror_gethost(99999), "Unknown error 99999");
}

TEST(ImsgStrerrorGethost, AnswersInTheUsersLanguage) {
  ks_test::Catalogs catalogs;
  catalogs.add("ks_lib",
               "$set 10\n"
               "103 \"Host nicht gefunden\"\n"
               "104 \"Keine Daten\"\n"
               "105 \"Endgueltig\"\n"
               "106 \"Spaeter wieder\"\n");
  ks_test::speak("de");
  EXPECT_STREQ(imsg_strerror_gethost(1), "Host nicht gefunden");
  EXPECT_STREQ(imsg_strerror_gethost(4), "Keine Daten");
  EXPECT_STREQ(imsg_strerror_gethost(3), "Endgueltig");
  EXPECT_STREQ(imsg_strerror_gethost(2), "Spaeter wieder");
  EXPECT_STREQ(imsg_strerror_gethost(0), "0");
}

}  // namespace
