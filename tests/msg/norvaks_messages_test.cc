// tools/norvaks-messages: the tables it makes, and the sources it refuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nl_types.h>

#include <string>
#include <string_view>
#include <vector>

#include "support/catalogs.h"
#include "support/child.h"
#include "support/folder.h"

using ks_test::Folder;
using ks_test::Outcome;
using testing::HasSubstr;

namespace {

Outcome messages(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {"python3", NORVAKS_SOURCE_DIR "/tools/norvaks-messages"});
  return ks_test::run_program(arguments, {"LC_ALL=C.UTF-8", "PYTHONDONTWRITEBYTECODE=1"});
}

constexpr std::string_view kHead =
    "$ library demo_lib\n"
    "$ subsystem demo/one\n"
    "$ table _demo_table\n"
    "$quote \"\n"
    "$set 42\n";

// Makes the table of a source; "in.msg" and what comes of it, "in_msg.h" and "in_msg.c", are in the
// folder.
Outcome make_table(const Folder &folder, std::string_view head, std::string_view rest = "") {
  const std::string source = folder.write("in.msg", std::string(head).append(rest));
  return messages({"table", source, folder.path("in_msg.h"), folder.path("in_msg.c")});
}

// Lines of a file that hold `word`, each with its newline.
std::string lines_with(const std::string &file, std::string_view word) {
  std::string found;
  for (size_t at = 0, end; at < file.size(); at = end + 1) {
    end = file.find('\n', at);
    const std::string line = file.substr(at, end - at);
    if (line.find(word) != std::string::npos) found += line + "\n";
  }
  return found;
}

constexpr std::string_view kExample = R"($ What these messages are about.
$ codeset=UTF-8
$ library demo_lib
$ subsystem demo/one
$ table _demo_table
$quote "

$set 42
$ DEMO_MSG_PLAIN
7 "No more memory.\n"

$ A remark.
$ DEMO_MSG_QUOTES
3 "\"%s\" in C:\\x is 100%% %d?\n"
$ DEMO_MSG_BYTES
9 "\001\001\061BStyle\001\001\060B\ttab"
$ DEMO_MSG_UTF
12 "größer %5.2f"
$ DEMO_MSG_LONG
500 "first \
second"
$ DEMO_MSG_EMPTY
501 ""
)";

TEST(NorvaksMessagesTable, MakesNamesTextsAndRecord) {
  const Folder folder;
  const Outcome outcome = make_table(folder, kExample);
  ASSERT_EQ(outcome.end() + outcome.out + outcome.err, "exit 0");

  const std::string header = folder.read("in_msg.h");
  EXPECT_THAT(header, HasSubstr("/* Generated from in.msg; do not edit. */\n"));
  EXPECT_THAT(header, HasSubstr("enum in_msg {\n"
                                "  DEMO_MSG_PLAIN = 0,\n"
                                "  DEMO_MSG_QUOTES = 1,\n"
                                "  DEMO_MSG_BYTES = 2,\n"
                                "  DEMO_MSG_UTF = 3,\n"
                                "  DEMO_MSG_LONG = 4,\n"
                                "  DEMO_MSG_EMPTY = 5\n"
                                "};\n"));
  EXPECT_THAT(header, HasSubstr("extern const imsg_table_t _demo_table[1];\n"));
  EXPECT_THAT(header, HasSubstr("in_msg_arguments[] = {\"\", \"si\", \"\", \"f\", \"\", \"\"};\n"));

  const std::string code = folder.read("in_msg.c");
  EXPECT_THAT(code, HasSubstr("#include \"in_msg.h\"\n"));
  EXPECT_THAT(code, HasSubstr("texts[] = {\n"
                              "  \"No more memory.\\n\",\n"
                              "  \"\\\"%s\\\" in C:\\\\x is 100%% %d\\?\\n\",\n"
                              "  \"\\001\\0011BStyle\\001\\0010B\\011tab\",\n"
                              "  \"gr\\303\\266\\303\\237er %5.2f\",\n"
                              "  \"first second\",\n"
                              "  \"\"\n"
                              "};\n"));
  EXPECT_THAT(code, HasSubstr("const uint16_t catnums[] = {7, 3, 9, 12, 500, 501};\n"));
  EXPECT_THAT(code, HasSubstr("const imsg_table_t _demo_table[1] = {{\n"
                              "  \"demo_lib\", \"demo/one\", 42, 6, texts, catnums\n"
                              "}};\n"));
}

// The same source, read by gencat.
TEST(NorvaksMessagesTable, TakesTextsAsTheCatalogDoes) {
  ks_test::Catalogs catalogs;
  catalogs.add("demo_lib", kExample);
  ks_test::speak("de");
  const nl_catd catalog = catopen("demo_lib", 0);
  ASSERT_NE(catalog, reinterpret_cast<nl_catd>(-1));
  const struct {
    int number;
    const char *text;
  } cases[] = {{7, "No more memory.\n"},
               {3, "\"%s\" in C:\\x is 100%% %d?\n"},
               {9, "\001\0011BStyle\001\0010B\ttab"},
               {12, "größer %5.2f"},
               {500, "first second"},
               {501, ""}};
  for (const auto &[number, text] : cases) {
    EXPECT_STREQ(catgets(catalog, 42, number, "<missing>"), text) << number;
  }
  catclose(catalog);
}

TEST(NorvaksMessagesTable, NamesTheTypesThatDirectivesTake) {
  const struct {
    const char *text;
    const char *letters;
  } cases[] = {
      {"%d %i %c", "iii"}, {"%u %o %x %X", "uuuu"},
      {"%ld %li", "ll"},   {"%lu %lo %lx %08lX", "LLLL"},
      {"%lld %llx", "qQ"}, {"%zu", "z"},
      {"%f %e %g", "fff"}, {"%s %p", "sp"},
      {"%*d", "ii"},       {"%-*.*s", "iis"},
      {"%0.3o", "u"},      {"%% %5d%%", "i"},
  };
  for (const auto &[text, letters] : cases) {
    const Folder folder;
    const std::string message = "$ DEMO_MSG_ONE\n1 \"" + std::string(text) + "\"\n";
    const Outcome outcome = make_table(folder, kHead, message);
    EXPECT_EQ(outcome.end() + outcome.err, "exit 0") << text;
    EXPECT_EQ(
        lines_with(folder.read("in_msg.h"), "in_msg_arguments[] ="),
        "inline constexpr const char *in_msg_arguments[] = {\"" + std::string(letters) + "\"};\n");
  }
}

TEST(NorvaksMessagesTable, RefusesABadSourceWithItsPlace) {
  const struct {
    std::string_view head, rest;
    const char *place;  // behind the source's name
    const char *reason;
  } cases[] = {
      {"", "$quote \"\n$ A_MSG_B\n1 \"x\"\n", ":3:", "a message before $quote \" and $set"},
      {"", "$set 1\n$ A_MSG_B\n1 \"x\"\n", ":3:", "a message before $quote \" and $set"},
      {kHead, "$set 43\n", ":6:", "one set, from 1 to 65535"},
      {"$quote \"\n", "$set 65536\n", ":2:", "one set, from 1 to 65535"},
      {"$quote \"\n", "$set 0\n", ":2:", "one set, from 1 to 65535"},
      {kHead, "$ A_MSG_B\n0 \"x\"\n", ":7:", "number 0 is not from 1 to 65535"},
      {kHead, "$ A_MSG_B\n65536 \"x\"\n", ":7:", "number 65536 is not from 1 to 65535"},
      {kHead, "$ A_MSG_B\n$ A_MSG_C\n1 \"x\"\n", ":7:", "the name A_MSG_B has no message"},
      {kHead, "$ A_MSG_B\n", ":", "the name A_MSG_B has no message"},
      {kHead, "$ A_MSG_B\n1 \"\\200\"\n", ":7:", "\\200 is no ASCII character"},
      {kHead, "$ A_MSG_B\n1 \"\\000\"\n", ":7:", "\\000 is no ASCII character"},
      {kHead, "$ A_MSG_B\n1 \"ä\"\n", ":7:", "needs a line '$ codeset=UTF-8'"},
      {kHead, "", ":", "needs a $set and messages"},
      {kHead, "1 \"x\"\n", ":6:", "message 1 has no name"},
      {kHead, "$ A_MSG_B\n1 \"x\"\n2 \"y\"\n", ":8:", "message 2 has no name"},
      {kHead, "$ A_MSG_B\n1 \"x\"\n$ A_MSG_C\n1 \"y\"\n", ":9:", "number 1 stands twice"},
      {kHead, "$ A_MSG_B\n1 \"x\"\n$ A_MSG_B\n2 \"y\"\n", ":9:", "name A_MSG_B stands twice"},
      {kHead, "$ A_MSG_B\n1 \"%y\"\n", ":7:", "unknown directive '%y'"},
      {kHead, "$ A_MSG_B\n1 \"%hd\"\n", ":7:", "unknown directive '%hd'"},
      {kHead, "$ A_MSG_B\n1 \"%2$s %1$s\"\n", ":7:", "unknown directive '%2$'"},
      {kHead, "$ A_MSG_B\n1 \"%n\"\n", ":7:", "unknown directive '%n'"},
      {kHead, "$ A_MSG_B\n1 \"100%\"\n", ":7:", "unknown directive '%'"},
      {kHead, "$ A_MSG_B\n1 \"a\\qb\"\n", ":7:", "unknown escape"},
      {kHead, "$ A_MSG_B\n1 \"a\\1b\"\n", ":7:", "unknown escape"},
      {kHead, "$ A_MSG_B\n1 \"a\"b\"\n", ":7:", "bare quote"},
      {kHead, "$ A_MSG_B\n1 \"\\0011\"\n", ":7:", "a digit behind an octal escape"},
      {kHead, "$ A_MSG_PREFIX_B\n1 \"50% \"\n", ":7:", "directive"},
      {kHead, "$ A_MSG_PREFIX_B\n1 \"50%% \"\n", ":7:", "a prefix word with a percent sign"},
      {kHead, "$ A_MSG_B\n1 \"x\"\\", ":", "ends in the middle of a line"},
      {kHead, "$ A_MSG_B\n1 \"x\n", ":7:", "not understood: 1 \"x"},
      {kHead, "x \"x\"\n", ":6:", "not understood: x \"x\""},
      {kHead, "$delset 3\n", ":6:", "not understood: $delset 3"},
      {"$quote \"\n", "$ subsystem s\n$ table t\n$set 1\n$ A_MSG_B\n1 \"x\"\n", ":",
       "no line '$ library NAME'"},
      {"$quote \"\n", "$ library l\n$ table t\n$set 1\n$ A_MSG_B\n1 \"x\"\n", ":",
       "no line '$ subsystem NAME'"},
      {"$quote \"\n", "$ library l\n$ subsystem s\n$set 1\n$ A_MSG_B\n1 \"x\"\n", ":",
       "no line '$ table NAME'"},
  };
  for (const auto &[head, rest, place, reason] : cases) {
    const Folder folder;
    const Outcome outcome = make_table(folder, head, rest);
    EXPECT_EQ(outcome.end(), "exit 1") << rest;
    EXPECT_EQ(outcome.out, "") << rest;
    EXPECT_THAT(outcome.err,
                testing::StartsWith("norvaks-messages: " + folder.path("in.msg") + place + " "))
        << rest;
    EXPECT_THAT(outcome.err, HasSubstr(reason)) << rest;
    EXPECT_EQ(folder.read("in_msg.h") + folder.read("in_msg.c"), "") << rest;
  }
}

TEST(NorvaksMessagesTable, RefusesWhatIsNoText) {
  const Folder folder;
  EXPECT_EQ(make_table(folder, "$set 1\n\xff\n").end(), "exit 1");
  const Outcome missing = messages({"table", folder.path("missing"), "h", "c"});
  EXPECT_EQ(missing.end(), "exit 1");
  EXPECT_THAT(missing.err, HasSubstr("No such file or directory"));
}

TEST(NorvaksMessages, WrongUseGetsTheUsage) {
  for (const std::vector<std::string> &arguments : std::vector<std::vector<std::string>>{
           {}, {"table"}, {"table", "a", "b"}, {"check", "a"}, {"unknown", "a", "b", "c"}}) {
    const Outcome outcome = messages(arguments);
    EXPECT_EQ(outcome.end(), "exit 2");
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, HasSubstr("norvaks-messages table FILE.msg HEADER SOURCE"));
  }
}

// Translations.

constexpr std::string_view kModel =
    "$ library demo_lib\n$ subsystem demo\n$ table _demo_table\n$quote \"\n$set 5\n"
    "$ DEMO_MSG_ONE\n1 \"%s has %d of %5ld\\n\"\n"
    "$ DEMO_MSG_PREFIX_TWO\n2 \"Two: \"\n";

Outcome check(std::string_view translation) {
  const Folder folder;
  const std::string model = folder.write("model", kModel);
  const std::string file = folder.write("translation", translation);
  Outcome outcome = messages({"check", model, file});
  if (const size_t at = outcome.err.find(file); at != std::string::npos) {
    outcome.err.replace(at, file.size(), "FILE");
  }
  return outcome;
}

TEST(NorvaksMessagesCheck, AcceptsAFaithfulTranslation) {
  for (const char *translation : {
           "$quote \"\n$set 5\n$ DEMO_MSG_ONE\n1 \"%s hat %d von %5ld\\n\"\n"
           "$ DEMO_MSG_PREFIX_TWO\n2 \"Zwei: \"\n",
           // In another order, with other signs, without the model's line end.
           "$ codeset=UTF-8\n$quote \"\n$set 5\n$ DEMO_MSG_PREFIX_TWO\n2 \"二: \"\n"
           "$ DEMO_MSG_ONE\n1 \"100%% %s, %d/%5ld\"\n",
       }) {
    const Outcome outcome = check(translation);
    EXPECT_EQ(outcome.end() + outcome.out + outcome.err, "exit 0") << translation;
  }
}

TEST(NorvaksMessagesCheck, RefusesAnUnfaithfulTranslation) {
  constexpr const char *kSet = "$quote \"\n$set 5\n";
  constexpr const char *kOne = "$ DEMO_MSG_ONE\n1 \"%s %d %5ld\"\n";
  constexpr const char *kTwo = "$ DEMO_MSG_PREFIX_TWO\n2 \"Zwei: \"\n";
  const struct {
    const char *set, *one, *two;
    const char *report;
  } cases[] = {
      {kSet, kOne, "", "FILE: lacks DEMO_MSG_PREFIX_TWO, number 2"},
      {kSet, kOne, "$ DEMO_MSG_PREFIX_TWO\n2 \"Zwei: \"\n$ DEMO_MSG_THREE\n3 \"Drei\"\n",
       "FILE: has beyond its model DEMO_MSG_THREE, number 3"},
      {"$quote \"\n$set 6\n", kOne, kTwo, "FILE: set 6 in place of 5"},
      {"$quote \"\n", kOne, kTwo, "a message before $quote"},
      {kSet, "$ DEMO_MSG_ONE\n1 \"%s %5ld %d\"\n", kTwo, "DEMO_MSG_ONE has directives"},
      {kSet, "$ DEMO_MSG_ONE\n1 \"%s %d %ld\"\n", kTwo, "DEMO_MSG_ONE has directives"},
      {kSet, "$ DEMO_MSG_ONE\n1 \"%s %d %-5ld\"\n", kTwo, "DEMO_MSG_ONE has directives"},
      {kSet, "$ DEMO_MSG_ONE\n1 \"%s %d %5lu\"\n", kTwo, "DEMO_MSG_ONE has directives"},
      {kSet, "$ DEMO_MSG_ONE\n1 \"%s %d\"\n", kTwo, "DEMO_MSG_ONE has directives"},
      {kSet, "$ DEMO_MSG_ONE\n1 \"%s %d %5ld %s\"\n", kTwo, "DEMO_MSG_ONE has directives"},
      {kSet, "$ DEMO_MSG_ONE\n1 \"keine\"\n", kTwo, "DEMO_MSG_ONE has directives []"},
      {kSet, kOne, "$ DEMO_MSG_PREFIX_TWO\n2 \"100%%: \"\n", "a prefix word with a percent sign"},
      {kSet, kOne, "$ DEMO_MSG_PREFIX_TWO\n4 \"Zwei: \"\n", "DEMO_MSG_PREFIX_TWO, number"},
      {kSet, kOne, "$ DEMO_MSG_OTHER\n2 \"Zwei: \"\n", "number 2"},
      {kSet, kOne, "2 \"Zwei: \"\n", "message 2 has no name"},
  };
  for (const auto &[set, one, two, report] : cases) {
    const std::string translation = std::string(set) + one + two;
    const Outcome outcome = check(translation);
    EXPECT_EQ(outcome.end(), "exit 1") << translation;
    EXPECT_EQ(outcome.out, "") << translation;
    EXPECT_THAT(outcome.err, HasSubstr(report)) << translation;
  }
}

TEST(NorvaksMessagesCheck, LooksAtEveryTranslation) {
  const Folder folder;
  const std::string model = folder.write("model", kModel);
  const std::string bad = folder.write("bad", "$quote \"\n$set 6\n$ DEMO_MSG_ONE\n1 \"x\"\n");
  EXPECT_EQ(messages({"check", model, model, model}).end(), "exit 0");
  EXPECT_EQ(messages({"check", model, model, bad}).end(), "exit 1");
  EXPECT_EQ(messages({"check", model, bad, model}).end(), "exit 1");
}

}  // namespace
