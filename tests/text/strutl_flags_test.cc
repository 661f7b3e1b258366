#include <gtest/gtest.h>

#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "strutl.h"
#include "support/exact_text.h"
#include "support/locale.h"

using ks_test::ExactText;
using ks_test::use_locale;

namespace {

constexpr strutl_flag_item_t kRights[] = {
    {"read", 0x1}, {"write", 0x2}, {"change", 0x6}, {"none", 0}, {"top", 0x80000000}};

std::string named(uint32_t flags, const char *separator = nullptr) {
  return strutl_flags_to_str(flags, separator, kRights, std::size(kRights));
}

TEST(StrutlFlagsToStr, NamesRowsInOrder) {
  EXPECT_EQ(named(0x1), "read");
  EXPECT_EQ(named(0x80000001), "read top");
  EXPECT_EQ(named(0), "");
}

TEST(StrutlFlagsToStr, AnyBitOfARowNamesIt) {
  EXPECT_EQ(named(0x4), "change");
  EXPECT_EQ(named(0x2), "write change");
}

TEST(StrutlFlagsToStr, SeparatorStandsBetweenNames) {
  EXPECT_EQ(named(0x3, ", "), "read, write, change");
  EXPECT_EQ(named(0x1, ", "), "read");
  EXPECT_EQ(named(0x3, ""), "read write change");
}

TEST(StrutlFlagsToStr, KeepsTheBlankBeforeUnknownBits) {
  EXPECT_EQ(named(0x10), " UNKNOWN(0x10)");
  EXPECT_EQ(named(0x7ffffff9, "|"), "read UNKNOWN(0x7ffffff8)");
  EXPECT_EQ(std::string(strutl_flags_to_str(UINT32_MAX, nullptr, nullptr, 0)),
            " UNKNOWN(0xffffffff)");
}

TEST(StrutlFlagsToStr, ALongTextIsCutAt1023Bytes) {
  const std::string name(600, 'x');
  const strutl_flag_item_t table[] = {{name.c_str(), 1}, {name.c_str(), 2}, {"z", 4}};
  EXPECT_EQ(strutl_flags_to_str(15, "-", table, 3), name + "-" + std::string(422, 'x'));
}

struct Flags {
  uint32_t bits;
  std::string bad_word;  // and all behind it; "-" for none
  bool operator==(const Flags &) const = default;
};

void PrintTo(const Flags &flags, std::ostream *out) {
  *out << flags.bits << ", bad: " << flags.bad_word;
}

Flags read(const std::string &text, const char *separator = nullptr, int case_sensitive = 1) {
  ExactText copy(text);
  const char *bad_word = "unset";
  const uint32_t bits = strutl_flags_from_str(copy, case_sensitive, separator, kRights,
                                              std::size(kRights), &bad_word);
  EXPECT_EQ(copy.get(), text);
  if (bad_word == nullptr) return {bits, "-"};
  EXPECT_GE(bad_word, copy.get());
  EXPECT_LT(bad_word, copy.get() + text.size());
  return {bits, bad_word};
}

TEST(StrutlFlagsFromStr, CombinesTheNamedRows) {
  for (const char *locale : {"C", "C.UTF-8", "ja_JP.SJIS"}) {
    use_locale(locale);
    EXPECT_EQ(read("read"), (Flags{1, "-"}));
    EXPECT_EQ(read("top read change"), (Flags{0x80000007, "-"}));
    EXPECT_EQ(read("read read"), (Flags{1, "-"}));
    EXPECT_EQ(read("none"), (Flags{0, "-"}));
    EXPECT_EQ(read("read none"), (Flags{1, "-"}));
  }
}

TEST(StrutlFlagsFromStr, RowsOfOneNameAreCombined) {
  const strutl_flag_item_t table[] = {{"all", 1}, {"x", 2}, {"all", 4}};
  const char *bad_word;
  EXPECT_EQ(strutl_flags_from_str("all", 1, nullptr, table, 3, &bad_word), 5u);
  EXPECT_EQ(bad_word, nullptr);
}

TEST(StrutlFlagsFromStr, EmptyWordsAreSkipped) {
  EXPECT_EQ(read(""), (Flags{0, "-"}));
  EXPECT_EQ(read("  "), (Flags{0, "-"}));
  EXPECT_EQ(read(" read  write "), (Flags{3, "-"}));
}

TEST(StrutlFlagsFromStr, SplitsAtTheWholeSeparator) {
  EXPECT_EQ(read("read, write", ", "), (Flags{3, "-"}));
  EXPECT_EQ(read("read,write", ", "), (Flags{0, "read,write"}));
  EXPECT_EQ(read("read write", ""), (Flags{3, "-"}));
  EXPECT_EQ(read("read::write", "::"), (Flags{3, "-"}));
}

TEST(StrutlFlagsFromStr, TheFirstBadWordIsPointedAt) {
  EXPECT_EQ(read("read wrote none x"), (Flags{0, "wrote none x"}));
  EXPECT_EQ(read("rea"), (Flags{0, "rea"}));
  EXPECT_EQ(read("read\t"), (Flags{0, "read\t"}));
  EXPECT_EQ(read(named(0x11)), (Flags{0, "UNKNOWN(0x10)"}));
}

TEST(StrutlFlagsFromStr, CaseCountsOnlyWhenAskedFor) {
  EXPECT_EQ(read("Read WRITE", nullptr, 0), (Flags{3, "-"}));
  EXPECT_EQ(read("read WRITE", nullptr, 1), (Flags{0, "WRITE"}));
}

TEST(StrutlFlagsFromStr, AnEmptyTableKnowsNoWord) {
  const char *bad_word = nullptr;
  const char *text = "read";
  EXPECT_EQ(strutl_flags_from_str(text, 1, nullptr, nullptr, 0, &bad_word), 0u);
  EXPECT_EQ(bad_word, text);
}

std::string behind_blanks(size_t count, std::string word) { return word.insert(0, count, ' '); }

TEST(StrutlFlagsFromStr, KeepsOnlyTheFirst1023Bytes) {
  EXPECT_EQ(read(behind_blanks(1019, "read write")), (Flags{1, "-"}));
  EXPECT_EQ(read(behind_blanks(1020, "read")), (Flags{0, "read"}));  // seen as "rea"
  EXPECT_EQ(read(behind_blanks(1023, "bad")), (Flags{0, "-"}));
}

TEST(StrutlFlagsFromStr, AByteInsideACharacterIsNoSeparator) {
  use_locale("ja_JP.SJIS");
  EXPECT_EQ(read("read\\write", "\\"), (Flags{3, "-"}));
  EXPECT_EQ(read("read\\\x95\x5c", "\\"), (Flags{0, "\x95\x5c"}));
}

TEST(StrutlFlagsFromStr, InvalidSequencesArePartOfAWord) {
  use_locale("C.UTF-8");
  EXPECT_EQ(read("read \xe2\x82 write"), (Flags{0, "\xe2\x82 write"}));
  EXPECT_EQ(read("read \xff"), (Flags{0, "\xff"}));
}

TEST(StrutlFlagsFromStr, ReadsWhatFlagsToStrWrites) {
  for (const char *separator : {" ", ", ", "|"}) {
    for (uint32_t bits : {0x0u, 0x1u, 0x7u, 0x80000007u}) {
      EXPECT_EQ(read(named(bits, separator), separator), (Flags{bits, "-"}));
    }
  }
}

Flags model(std::string text, const std::string &separator) {
  text = text.substr(0, 1023);
  Flags flags = {0, "-"};
  for (size_t start = 0; start <= text.size();) {
    const size_t end = std::min(text.find(separator, start), text.size());
    const std::string word = text.substr(start, end - start);
    bool found = word.empty();
    for (const strutl_flag_item_t &row : kRights) {
      if (word != row.name) continue;
      found = true;
      flags.bits |= row.bits;
    }
    if (!found) return {0, text.substr(start)};
    start = end + separator.size();
  }
  return flags;
}

TEST(StrutlFlagsFromStr, AnyTextFollowsTheModel) {
  constexpr unsigned kSeed = 2189;
  SCOPED_TRACE(kSeed);
  std::mt19937 random(kSeed);
  const std::vector<std::string> pieces = {"read", "write", "top", "none", " ", " ",
                                           ", ",   ",",     "",    "\xff", "x"};
  for (int round = 0; round < 100000; ++round) {
    std::string text;
    for (size_t count = random() % 6; count > 0; --count) {
      // mostly words and blanks
      text += pieces[random() % (random() % 4 == 0 ? pieces.size() : 6)];
    }
    const std::string separator = random() % 2 ? " " : ", ";
    ASSERT_EQ(read(text, separator.c_str()), model(text, separator)) << text;
  }
}

}  // namespace
