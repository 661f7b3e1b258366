// Texts of catalogs that belong to another version of a program: none may make a print read
// arguments that it was not given.
#include "msg/imsg_arguments.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "imsg.h"
#include "support/catalogs.h"
#include "support/child.h"
#include "support/faults.h"

using ks::safe_format;
using ks_test::Catalogs;
using ks_test::in_child;
using ks_test::Outcome;
using ks_test::speak;

namespace {

struct Case {
  const char *own;
  const char *translation;
  bool used;
};

// On both ABIs the same.
constexpr Case kCases[] = {
    {"text", "Text", true},
    {"%s", "Text", true},
    {"%s", "100%%", true},
    {"text", "%s", false},
    {"text", "%d", false},
    {"text", "%m", true},
    {"%s %d", "%s, %d", true},
    {"%s %d", "%s", true},
    {"%s %d", "%d", false},
    {"%s %d", "%d %s", false},
    {"%s %d", "%s %d %s", false},
    {"%s %d", "%2$d %1$s", true},
    {"%s %d", "%1$s %1$s", true},
    {"%s %d", "%1$s", true},
    {"%s %d", "%2$d", true},
    {"%s %d", "%1$d", false},
    {"%s %d", "%3$d", false},
    {"%s %d", "%2$d %1$d", false},
    {"%s %d", "%1$s %d", false},
    {"%s %d", "%s %2$d", false},
    {"%s %d", "%0$d", false},
    {"%s %d", "%33$d", false},
    {"%2$s %1$d", "%d %s", true},
    {"%2$s %1$d", "%s %d", false},
    {"%2$s", "%d %s", false},
    // An argument of floating point that is left out would hide the ones behind it.
    {"%f %s", "%1$f %2$s", true},
    {"%f %s", "%2$s %1$.3f", true},
    {"%f %s", "%2$s", false},
    {"%s %f", "%1$s", true},
    // Types.
    {"%d", "%i", true},
    {"%d", "%5d", true},
    {"%d", "%-05.3d", true},
    {"%d", "%'Id", true},
    {"%d", "%hd", true},
    {"%d", "%hhd", true},
    {"%d", "%c", true},
    {"%d", "%u", false},
    {"%d", "%ld", false},
    {"%d", "%s", false},
    {"%d", "%p", false},
    {"%d", "%f", false},
    {"%d", "%lc", false},
    {"%u", "%x %%", true},
    {"%u", "%X", true},
    {"%u", "%o", true},
    {"%u", "%#hx", true},
    {"%ld", "%li", true},
    {"%ld", "%d", false},
    {"%ld", "%lld", false},
    {"%ld", "%zd", false},
    {"%lu", "%lx", true},
    {"%lu", "%ld", false},
    {"%lld", "%qd", true},
    {"%lld", "%Ld", true},
    {"%lld", "%jd", false},
    {"%jd", "%ji", true},
    {"%ju", "%jd", false},
    {"%zu", "%zx", true},
    {"%zu", "%u", false},
    {"%td", "%ti", true},
    {"%td", "%zd", false},
    {"%f", "%e", true},
    {"%f", "%G %%", true},
    {"%f", "%a", true},
    {"%f", "%lf", true},
    {"%f", "%Lf", false},
    {"%Lf", "%Lg", true},
    {"%Lf", "%f", false},
    {"%f", "%hf", false},
    {"%s", "%10.3s", true},
    {"%s", "%p", false},
    {"%s", "%ls", false},
    {"%ls", "%S", true},
    {"%ls", "%s", false},
    {"%lc", "%C", true},
    {"%p", "%p", true},
    {"%p", "%s", false},
    // Widths and precisions that are arguments.
    {"%*d", "%*d!", true},
    {"%*d", "%d", true},
    {"%d", "%*d", false},
    {"%*d %s", "%d %s", false},
    {"%*.*f", "%*.*f!", true},
    {"%*.*f", "%*d %f", true},
    {"%*.*f", "%*f", false},
    {"%.*s", "%.*s!", true},
    {"%.*s", "%2$.*1$s", true},
    {"%.*s", "%2$.*s", false},
    {"%.*s", "%.*1$s", false},
    {"%*s", "%2$*1$s", true},
    {"%s", "%1$*1$s", false},
    {"%s", "%*1$s", false},
    // What nobody can rely upon.
    {"%s", "%s%n", false},
    {"%n", "%n!", false},
    {"%s", "%s %", false},
    {"%s", "%s %l", false},
    {"%s", "%s %5", false},
    {"%s", "%y", false},
    {"%s", "%hs", false},
    {"%s", "%-%", false},
    {"%s", "%1$%", false},
    {"%s", "%99999s", false},
    {"%s", "%.10000s", false},
    {"%s", "%9999s", true},
    {"%s", "%4294967297$s", false},
    // What the table itself has is the program's own affair.
    {"%s %y", "%s", false},
    {"%1$s %d", "%1$s", false},
    {"%s %", "Text", false},
};

TEST(SafeFormat, ReadsNoOtherArgumentsThanTheTablesText) {
  for (const Case &each : kCases) {
    const char *chosen = safe_format(each.own, each.translation);
    EXPECT_EQ(chosen == each.translation, each.used) << each.own << " | " << each.translation;
    EXPECT_TRUE(chosen == each.translation || chosen == each.own);
    EXPECT_EQ(safe_format(each.own, each.translation), chosen) << "when asked again";
  }
}

TEST(SafeFormat, ThatEqualsTheTablesTextIsUsedWhateverItIs) {
  for (const char *own : {"%n", "%s %", "%1$s %d", "%y"}) {
    const std::string same = own;
    EXPECT_EQ(safe_format(own, same.c_str()), same.c_str());
    ks::forget_safe_formats();
  }
}

TEST(SafeFormat, OfUpToThirtyTwoArguments) {
  std::string most;
  for (int count = 0; count < 32; ++count) most += "%d";
  const std::string more = most + "%d";
  const std::string other = most + "!";
  const std::string more_others = more + "!";
  EXPECT_EQ(safe_format(most.c_str(), other.c_str()), other.c_str());
  EXPECT_EQ(safe_format(more.c_str(), more_others.c_str()), more.c_str());
}

// On i386 a long long takes the room of two.
TEST(SafeFormat, AnArgumentThatIsLeftOutTakesTheRoomOfAnInt) {
  const char *own = "%lld %s";
  const char *translation = "%2$s";
  EXPECT_EQ(safe_format(own, translation) == translation, sizeof(void *) == 8);
}

TEST(SafeFormat, AnswersAnewForATextAtTheSameAddressWhenACatalogWasClosed) {
  char translation[] = "%s";
  const char *own = "%s!";
  EXPECT_EQ(safe_format(own, translation), translation);
  translation[1] = 'd';
  ks::forget_safe_formats();
  EXPECT_EQ(safe_format(own, translation), own);
}

// With catalogs, as a program meets them.

constexpr const char *kTexts[] = {"%s: %d bytes\n", "%f of %s\n", "plain\n", "%s\n"};
constexpr uint16_t kNumbers[] = {1, 2, 3, 4};
constexpr imsg_table_t table_of(const char *library) {
  return {library, "any", 3, 4, kTexts, kNumbers};
}
constexpr imsg_table_t kOne = table_of("one");
constexpr imsg_table_t kTwo = table_of("two");
constexpr imsg_table_t kThree = table_of("three");

TEST(OtherVersionsCatalog, DoesNotEndTheProgram) {
  Catalogs catalogs;
  catalogs.add("one",
               "$set 3\n1 \"%d Bytes in %s\\n\"\n2 \"%2$s\\n\"\n3 \"%s %s %s %n\\n\"\n"
               "4 \"%s und %s\\n\"\n");
  const Outcome outcome = in_child([] {
    speak("de");
    imsg_print(IMSG_TYPE_OK, &kOne, 0, "name", 7);
    imsg_print(IMSG_TYPE_OK, &kOne, 1, 0.5, "name");
    imsg_print(IMSG_TYPE_OK, &kOne, 2);
    imsg_print(IMSG_TYPE_OK, &kOne, 3, "name");
    char text[64];
    const int length = imsg_snprintf(text, sizeof text, &kOne, 3, "name");
    imsg_print(IMSG_TYPE_OK, "%d %s", -1, length, text);
    imsg_sprintf(text, &kOne, 0, "name", 8);
    imsg_print(IMSG_TYPE_OK, "%s", -1, text);
    imsg_print(IMSG_TYPE_OK, "%s", -1, cat_extractmsg(&kOne, 3));
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out,
            "name: 7 bytes\n0.500000 of name\nplain\nname\n5 name\nname: 8 bytes\n%s und %s\n");
}

TEST(OtherVersionsCatalog, IsUsedWhereItFits) {
  Catalogs catalogs;
  catalogs.add("one",
               "$set 3\n1 \"%2$d Bytes in %1$s\\n\"\n2 \"%g\\n\"\n3 \"schlicht\\n\"\n"
               "4 \"ohne\\n\"\n");
  const Outcome outcome = in_child([] {
    speak("de");
    imsg_print(IMSG_TYPE_OK, &kOne, 0, "name", 7);
    imsg_print(IMSG_TYPE_OK, &kOne, 1, 0.5, "name");
    imsg_print(IMSG_TYPE_OK, &kOne, 2);
    imsg_print(IMSG_TYPE_OK, &kOne, 3, "name");
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "7 Bytes in name\n0.5\nschlicht\nohne\n");
}

// Catalogs come and go, so that texts come to stand where others stood.
TEST(OtherVersionsCatalog, IsJudgedAnewWhenItsPlaceIsTakenByAnother) {
  Catalogs catalogs;
  catalogs.add("one", "$set 3\n4 \"eins %s\\n\"\n");
  catalogs.add("two", "$set 3\n4 \"zwei %d\\n\"\n");
  catalogs.add("three", "$set 3\n4 \"drei %s\\n\"\n");
  const Outcome outcome = in_child([] {
    speak("de");
    for (int turn = 0; turn < 4; ++turn) {
      for (const imsg_table_t *table : {&kOne, &kTwo, &kThree}) {
        imsg_print(IMSG_TYPE_OK, table, 3, "name");
      }
    }
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  std::string lines;
  for (int turn = 0; turn < 4; ++turn) lines += "eins name\nname\ndrei name\n";
  EXPECT_EQ(outcome.out, lines);
}

}  // namespace
