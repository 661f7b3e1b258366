// The prefix of each type, and the words in it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "imsg.h"
#include "support/catalogs.h"
#include "support/child.h"
#include "support/faults.h"

using ks_test::Catalogs;
using ks_test::in_child;
using ks_test::Outcome;
using ks_test::speak;
using testing::MatchesRegex;

namespace {

struct Prefix {
  const char *alone;
  const char *with_subsys;
};

void expect_prefixes(const Prefix (&prefixes)[IMSG_TYPE_LOG_ONLY + 1]) {
  for (int type = IMSG_TYPE_OK; type <= IMSG_TYPE_LOG_ONLY; ++type) {
    EXPECT_STREQ(imsg_prefix_format(type, 0), prefixes[type].alone) << type;
    EXPECT_STREQ(imsg_prefix_format(type, 1), prefixes[type].with_subsys) << type;
    EXPECT_STREQ(imsg_prefix_format(type, -1), prefixes[type].with_subsys) << type;
  }
}

TEST(ImsgPrefixFormat, IsTheFormatOfTheTypeAndItsWord) {
  expect_prefixes({{"", ""},
                   {"", ""},
                   {"", ""},
                   {"", ""},
                   {"%s: Warning: ", "%s/%s: Warning: "},
                   {"", ""},
                   {"%s: Error: ", "%s/%s: Error: "},
                   {"", ""},
                   {">>> %s (%s): ", ">>> %s (%s/%s): "},
                   {"", ""},
                   {"", ""}});
}

TEST(ImsgPrefixFormat, HasNameAndOkWhereTheUserWantsThem) {
  setenv("PRINT_SUBSYS_OK", "1", 1);
  imsg_initialize();
  expect_prefixes({{"%s: Ok: ", "%s/%s: Ok: "},
                   {"", ""},
                   {"%s: ", "%s/%s: "},
                   {"", ""},
                   {"%s: Warning: ", "%s/%s: Warning: "},
                   {"", ""},
                   {"%s: Error: ", "%s/%s: Error: "},
                   {"", ""},
                   {">>> %s (%s): ", ">>> %s (%s/%s): "},
                   {"", ""},
                   {"", ""}});
}

// The very first prefix of a process heeds the environment as all others do.
TEST(ImsgPrefixFormat, StartsTheModule) {
  setenv("PRINT_SUBSYS_OK", "1", 1);
  EXPECT_STREQ(imsg_prefix_format(IMSG_TYPE_OK, 0), "%s: Ok: ");
}

TEST(ImsgPrefixFormat, KeepsItsFormWhateverTheWishForSubsystems) {
  imsg_output_subsys(1);
  EXPECT_STREQ(imsg_prefix_format(IMSG_TYPE_ERROR, 0), "%s: Error: ");
  imsg_output_subsys(0);
  EXPECT_STREQ(imsg_prefix_format(IMSG_TYPE_ERROR, 1), "%s/%s: Error: ");
}

TEST(ImsgPrefixFormat, FlagsAreGivenBackAsTheyWereSet) {
  EXPECT_EQ(imsg_suppress_prefix(5), 0);
  EXPECT_EQ(imsg_suppress_prefix(0), 5);
  EXPECT_EQ(imsg_output_subsys(-2), 0);
  EXPECT_EQ(imsg_output_subsys(1), -2);
}

TEST(ImsgPrefixFormat, AnswersFromOneBuffer) {
  const char *first = imsg_prefix_format(IMSG_TYPE_ERROR, 0);
  const char *second = imsg_prefix_format(IMSG_TYPE_WARNING, 0);
  EXPECT_EQ(first, second);
  EXPECT_STREQ(first, "%s: Warning: ");
}

TEST(ImsgPrefixFormat, IsEmptyWhilePrefixesAreSuppressed) {
  imsg_suppress_prefix(1);
  for (int type = IMSG_TYPE_OK; type <= IMSG_TYPE_LOG_ONLY + 1; ++type) {
    EXPECT_STREQ(imsg_prefix_format(type, 1), "") << type;
  }
  imsg_suppress_prefix(0);
  EXPECT_STREQ(imsg_prefix_format(IMSG_TYPE_ERROR, 0), "%s: Error: ");
}

TEST(ImsgPrefixFormat, AnUnknownTypeIsReportedAndGivesTheSystemsWord) {
  for (int type : {11, INT_MAX, -1}) {
    const Outcome outcome = in_child([&] {
      if (std::string(imsg_prefix_format(type, 0)) != "System message: ") _exit(1);
    });
    EXPECT_EQ(outcome.end(), "exit 0") << type;
    EXPECT_EQ(outcome.out, "") << type;
    EXPECT_THAT(outcome.err,
                MatchesRegex("noname: Error: Unknown message type " + std::to_string(type) +
                             " in file src/msg/imsg_prefix\\.cc at line [0-9]+\n"));
  }
}

TEST(ImsgFlags, AnswerWhatTheyWere) {
  EXPECT_EQ(imsg_suppress_prefix(1), 0);
  EXPECT_EQ(imsg_suppress_prefix(1), 1);
  EXPECT_EQ(imsg_suppress_prefix(0), 1);
  EXPECT_EQ(imsg_suppress_prefix(0), 0);
  EXPECT_EQ(imsg_output_subsys(1), 0);
  EXPECT_EQ(imsg_output_subsys(0), 1);
  EXPECT_EQ(imsg_output_subsys(0), 0);
}

// Words in the user's language.

constexpr const char *kGerman =
    "$set 10\n"
    "17 \"Gut: \"\n"
    "18 \"Warnung: \"\n"
    "19 \"Fehler: \"\n"
    "20 \"Systemmeldung: \"\n";

TEST(PrefixWords, AreInTheUsersLanguage) {
  Catalogs catalogs;
  catalogs.add("ks_lib", kGerman);
  const Outcome outcome = in_child([] {
    speak("de");
    setenv("PRINT_SUBSYS_OK", "1", 1);
    for (int type : {IMSG_TYPE_OK, IMSG_TYPE_BOX, IMSG_TYPE_WARNING, IMSG_TYPE_ERROR}) {
      imsg_print(type, "%d\n", -1, type);
    }
    imsg_print(11, "11\n", -1);
  });
  EXPECT_EQ(outcome.out, "noname: Gut: 0\nnoname: 2\n");
  EXPECT_THAT(outcome.err,
              MatchesRegex("noname: Warnung: 4\nnoname: Fehler: 6\n"
                           "noname: Fehler: Unknown message type 11 .*\nSystemmeldung: 11\n"));
}

TEST(PrefixWords, AreReadOnce) {
  Catalogs catalogs;
  catalogs.add("ks_lib", kGerman);
  catalogs.add("one", "$set 1\n1 \"eins\"\n");
  catalogs.add("two", "$set 1\n1 \"zwei\"\n");
  const char *const texts[] = {"text"};
  const uint16_t numbers[] = {1};
  const imsg_table_t one = {"one", "any", 1, 1, texts, numbers};
  const imsg_table_t two = {"two", "any", 1, 1, texts, numbers};
  const Outcome outcome = in_child([&] {
    speak("de");
    imsg_print(IMSG_TYPE_ERROR, "first\n", -1);
    // The library's catalog loses its slot, and for another language there is none.
    cat_extractmsg(&one, 0);
    cat_extractmsg(&two, 0);
    speak("xx");
    if (cat_extractmsg(_imsg_ks_msg_table, 16) != _imsg_ks_msg_table->texts[16]) _exit(1);
    imsg_print(IMSG_TYPE_ERROR, "second\n", -1);
    imsg_print(IMSG_TYPE_WARNING, "third\n", -1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.err, "noname: Fehler: first\nnoname: Fehler: second\nnoname: Warnung: third\n");
}

TEST(PrefixWords, ATranslationWithAPercentSignIsNotTaken) {
  Catalogs catalogs;
  catalogs.add("ks_lib",
               "$set 10\n18 \"Warnung%: \"\n19 \"%n%s Fehler: \"\n20 \"100%% System: \"\n");
  const Outcome outcome = in_child([] {
    speak("de");
    imsg_print(IMSG_TYPE_ERROR, "6\n", -1);
    imsg_print(IMSG_TYPE_WARNING, "4\n", -1);
    imsg_print(11, "11\n", -1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_THAT(outcome.err, MatchesRegex("noname: Error: 6\nnoname: Warning: 4\n"
                                        "noname: Error: Unknown [^\n]*\nSystem message: 11\n"));
}

TEST(PrefixWords, AnOverlongOneIsCutWhereThePrefixEnds) {
  Catalogs catalogs;
  const std::string word(300, 'f');
  catalogs.add("ks_lib", "$set 10\n19 \"" + word + "\"\n");
  speak("de");
  EXPECT_EQ(imsg_prefix_format(IMSG_TYPE_ERROR, 0), "%s: " + word.substr(0, 123));
  EXPECT_EQ(imsg_prefix_format(IMSG_TYPE_ERROR, 1), "%s/%s: " + word.substr(0, 120));
  EXPECT_STREQ(imsg_prefix_format(IMSG_TYPE_WARNING, 0), "%s: Warning: ");
}

TEST(PrefixWords, AreEnglishWithoutStorageForThem) {
  Catalogs catalogs;
  catalogs.add("ks_lib", kGerman);
  speak("de");
  ks_test::fail_call("strdup", 1, ENOMEM, 4);  // the first is that of the catalog's name
  EXPECT_STREQ(imsg_prefix_format(IMSG_TYPE_ERROR, 0), "%s: Error: ");
  EXPECT_STREQ(imsg_prefix_format(IMSG_TYPE_WARNING, 0), "%s: Warning: ");
}

}  // namespace
