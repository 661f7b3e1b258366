// Texts in the user's language, and the two catalogs that stay open for them.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <string_view>

#include "imsg.h"
#include "support/catalogs.h"
#include "support/child.h"
#include "support/faults.h"

using ks_test::Catalogs;
using ks_test::count_calls;
using ks_test::in_child;
using ks_test::Outcome;
using ks_test::set_clock;
using ks_test::speak;

namespace {

// The tables of some libraries: row 0 is in each one's catalog, row 1 in none.
constexpr const char *kTexts[] = {"English", "only English"};
constexpr uint16_t kNumbers[] = {7, 9};
constexpr imsg_table_t table_of(const char *library) {
  return {library, "any", 3, 2, kTexts, kNumbers};
}
constexpr imsg_table_t kOne = table_of("one"), kTwo = table_of("two"), kThree = table_of("three"),
                       kFour = table_of("four");

std::string text(const imsg_table_t &table, int index = 0) { return cat_extractmsg(&table, index); }

// gencat's source of a library's catalog with this text.
std::string source(std::string_view message) {
  return "$set 3\n7 \"" + std::string(message) + "\"\n";
}

// Catalogs of one, two and three, that say "eins", "zwei" and "drei"; of four there is none.
class CatExtractmsg : public testing::Test {
 protected:
  CatExtractmsg() {
    speak("de");
    catalogs_.add("one", source("eins"));
    catalogs_.add("two", source("zwei"));
    catalogs_.add("three", source("drei"));
  }

  Catalogs catalogs_;
};

// How often catalogs have been opened or tried, and closed.
struct Calls {
  int opened = count_calls("catopen");
  int closed = count_calls("catclose");
  bool operator==(const Calls &) const = default;
};

void PrintTo(const Calls &calls, std::ostream *out) {
  *out << calls.opened << " opened, " << calls.closed << " closed";
}

TEST_F(CatExtractmsg, AnswersInTheUsersLanguage) {
  EXPECT_EQ(text(kOne), "eins");
  EXPECT_EQ(text(kTwo), "zwei");
}

TEST_F(CatExtractmsg, AnswersTheTablesTextWhereTheCatalogHasNone) {
  EXPECT_EQ(text(kOne, 1), "only English");
  EXPECT_EQ(cat_extractmsg(&kOne, 1), kOne.texts[1]);
  EXPECT_EQ(text(kOne), "eins");
  EXPECT_EQ(count_calls("catopen"), 1);
}

TEST_F(CatExtractmsg, TriesAMissingCatalogOnce) {
  for (int turn = 0; turn < 100; ++turn) {
    EXPECT_EQ(cat_extractmsg(&kFour, turn % 2), kTexts[turn % 2]);
  }
  EXPECT_EQ((Calls{}), (Calls{1, 0}));
}

TEST_F(CatExtractmsg, OpensACatalogOnce) {
  for (int turn = 0; turn < 100; ++turn) EXPECT_EQ(text(kOne), "eins");
  EXPECT_EQ((Calls{}), (Calls{1, 0}));
}

TEST_F(CatExtractmsg, KnowsACatalogByItsNameAndNotByTheTable) {
  const std::string name = "one";
  const imsg_table_t same = table_of(name.c_str());
  EXPECT_EQ(text(kOne), "eins");
  EXPECT_EQ(text(same), "eins");
  EXPECT_EQ(count_calls("catopen"), 1);
}

TEST_F(CatExtractmsg, KeepsACopyOfTheLibrarysName) {
  char name[] = "one";
  const imsg_table_t table = table_of(name);
  EXPECT_EQ(text(table), "eins");
  name[0] = 'x';
  EXPECT_EQ(text(kOne), "eins");
  EXPECT_EQ(count_calls("catopen"), 1);
}

TEST_F(CatExtractmsg, TwoCatalogsStayOpen) {
  for (int turn = 0; turn < 10000; ++turn) {
    ASSERT_EQ(text(kOne), "eins");
    ASSERT_EQ(text(kTwo), "zwei");
  }
  EXPECT_EQ((Calls{}), (Calls{2, 0}));
}

TEST_F(CatExtractmsg, ThreeInTurnAreReopenedEachTime) {
  for (long turn = 0; turn < 1000; ++turn) {
    set_clock(turn, 0);
    ASSERT_EQ(text(kOne), "eins");
    set_clock(turn, 1);
    ASSERT_EQ(text(kTwo), "zwei");
    set_clock(turn, 2);
    ASSERT_EQ(text(kThree), "drei");
  }
  EXPECT_EQ((Calls{}), (Calls{3000, 2998}));
}

// Uses one at the first moment and two at the second, then three; what lost its slot is opened
// again.
struct Moment {
  long seconds;
  long microseconds;
};

void expect_closed(const Moment &one, const Moment &two, const imsg_table_t &closed) {
  const imsg_table_t &kept = &closed == &kOne ? kTwo : kOne;
  set_clock(one.seconds, one.microseconds);
  EXPECT_EQ(text(kOne), "eins");
  set_clock(two.seconds, two.microseconds);
  EXPECT_EQ(text(kTwo), "zwei");
  EXPECT_EQ(text(kThree), "drei");
  EXPECT_EQ((Calls{}), (Calls{3, 1}));
  text(kept);
  EXPECT_EQ((Calls{}), (Calls{3, 1}));
  text(closed);
  EXPECT_EQ((Calls{}), (Calls{4, 2}));
}

TEST_F(CatExtractmsg, ClosesTheOneUsedAtTheEarlierSecond) { expect_closed({10, 5}, {11, 4}, kOne); }

TEST_F(CatExtractmsg, ClosesTheSecondWhenItIsTheOlder) { expect_closed({11, 4}, {10, 5}, kTwo); }

TEST_F(CatExtractmsg, ClosesTheOneUsedAtTheEarlierMicrosecond) {
  expect_closed({10, 4}, {10, 5}, kOne);
}

TEST_F(CatExtractmsg, ClosesTheSecondWhenItIsOlderByMicroseconds) {
  expect_closed({10, 5}, {10, 4}, kTwo);
}

TEST_F(CatExtractmsg, ClosesTheFirstOfTwoUsedAtTheSameTime) {
  expect_closed({10, 5}, {10, 5}, kOne);
}

TEST_F(CatExtractmsg, EachUseCountsNotOnlyTheFirst) {
  set_clock(10, 0);
  text(kOne);
  set_clock(11, 0);
  text(kTwo);
  set_clock(12, 0);
  text(kOne);
  text(kThree);
  text(kOne);
  EXPECT_EQ((Calls{}), (Calls{3, 1}));
}

TEST_F(CatExtractmsg, AMissingCatalogGivesItsSlotUpBeforeAnOpenOne) {
  text(kOne);
  text(kFour);
  EXPECT_EQ(text(kTwo), "zwei");
  EXPECT_EQ((Calls{}), (Calls{3, 0}));
  EXPECT_EQ(text(kOne), "eins");
  EXPECT_EQ((Calls{}), (Calls{3, 0}));
  text(kFour);  // has lost its slot: tried again
  EXPECT_EQ((Calls{}), (Calls{4, 1}));
}

TEST_F(CatExtractmsg, AMissingCatalogIsRememberedWhileAnotherIsUsed) {
  for (int turn = 0; turn < 100; ++turn) {
    EXPECT_EQ(text(kFour), "English");
    EXPECT_EQ(text(kOne), "eins");
  }
  EXPECT_EQ((Calls{}), (Calls{2, 0}));
}

TEST_F(CatExtractmsg, ACatalogThatComesLaterIsFoundWhenItsSlotHasBeenReused) {
  EXPECT_EQ(text(kFour), "English");
  catalogs_.add("four", source("vier"));
  EXPECT_EQ(text(kFour), "English");
  text(kOne);
  text(kTwo);
  EXPECT_EQ(text(kFour), "vier");
}

TEST_F(CatExtractmsg, AReplacedCatalogIsSeenWhenItHasBeenClosed) {
  EXPECT_EQ(text(kOne), "eins");
  catalogs_.add("one", source("neu"));
  EXPECT_EQ(text(kOne), "eins");
  set_clock(10, 0);
  text(kOne);
  set_clock(11, 0);
  text(kTwo);
  text(kThree);
  EXPECT_EQ(text(kOne), "neu");
}

TEST_F(CatExtractmsg, WithoutStorageForTheNameTheTextIsEnglishAndTheNextCallTriesAgain) {
  ks_test::fail_call("strdup", 0, ENOMEM);
  EXPECT_EQ(text(kOne), "English");
  EXPECT_EQ(count_calls("catopen"), 0);
  EXPECT_EQ(text(kOne), "eins");
  EXPECT_EQ((Calls{}), (Calls{1, 0}));
}

TEST_F(CatExtractmsg, AFailureToOpenIsAMissingCatalog) {
  ks_test::fail_call("catopen", 0, EMFILE);
  EXPECT_EQ(text(kOne), "English");
  EXPECT_EQ(text(kOne), "English");
  EXPECT_EQ((Calls{}), (Calls{1, 0}));
}

// The choice of slots, held against the rules written out plainly.
class Slots {
 public:
  // A message of a library; `exists` tells whether its catalog opens.
  void use(const std::string &library, bool exists, Moment now) {
    int at = -1, candidate = -1;
    for (int i = 0; i < 2 && at == -1; ++i) {
      if (slots_[i].name == library) {
        at = i;
      } else if (slots_[i].name.empty()) {
        candidate = i;
      } else if (!slots_[i].open && candidate == -1) {
        candidate = i;
      }
    }
    if (at == -1) {
      at = choose(candidate);
      if (slots_[at].open) ++calls.closed;
      ++calls.opened;
      slots_[at] = {library, exists, {}};
    }
    if (slots_[at].open) slots_[at].used = now;
  }

  Calls calls = {0, 0};

 private:
  struct Slot {
    std::string name;
    bool open;
    Moment used;
  };

  int choose(int candidate) {
    if (candidate != -1) {
      const int next = next_reuse_;
      next_reuse_ = next == 0 ? 1 : 0;
      return slots_[next].open ? candidate : next;
    }
    const Moment a = slots_[0].used, b = slots_[1].used;
    if (b.seconds != a.seconds) return b.seconds < a.seconds ? 1 : 0;
    return b.microseconds < a.microseconds ? 1 : 0;
  }

  Slot slots_[2] = {};
  int next_reuse_ = 0;
};

// Uses libraries with and without catalogs in any order, at times that often coincide, and tells
// where the slots differ from the model's.
std::string difference_from_model(unsigned seed) {
  const imsg_table_t five = table_of("five"), six = table_of("six");
  const struct {
    const imsg_table_t *table;
    const char *text;
  } libraries[] = {{&kOne, "eins"},     {&kTwo, "zwei"},    {&kThree, "drei"},
                   {&kFour, "English"}, {&five, "English"}, {&six, "English"}};
  std::mt19937 random(seed);
  const auto below = [&](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  };
  const int start = below(6);
  Slots model;
  for (int turn = 0; turn < 600; ++turn) {
    // Spells in which few libraries are in use, so that slots stay, too.
    const int spell = start + turn / 50;
    const auto &[table, expected] = libraries[below(4) != 0 ? (spell + below(3)) % 6 : below(6)];
    const Moment now = {below(3), below(3)};
    set_clock(now.seconds, now.microseconds);
    model.use(table->library, std::string_view(expected) != "English", now);
    if (text(*table) != expected) return "another text at turn " + std::to_string(turn);
    if (Calls{} != model.calls) return "other calls at turn " + std::to_string(turn);
  }
  return "";
}

// Each in a process of its own: what comes first in a process counts.
TEST_F(CatExtractmsg, ChoosesSlotsAsTheModelDoes) {
  for (unsigned seed = 1; seed <= 100; ++seed) {
    const Outcome outcome = in_child([&] {
      const std::string difference = difference_from_model(seed);
      fwrite(difference.data(), 1, difference.size(), stdout);
      fflush(stdout);
    });
    EXPECT_EQ(outcome.end() + outcome.out, "exit 0") << "seed " << seed;
  }
}

// Damaged catalogs.

// The text of a library whose catalog has these contents, looked up in a child.
std::string text_of(const Catalogs &catalogs, std::string_view bytes) {
  catalogs.put("one", bytes);
  const Outcome outcome =
      in_child([] { imsg_print(IMSG_TYPE_OK_CONT, "%s", -1, cat_extractmsg(&kOne, 0)); });
  return outcome.end() == "exit 0" ? outcome.out : outcome.end();
}

TEST_F(CatExtractmsg, AnEmptyOrForeignFileIsNoCatalog) {
  EXPECT_EQ(text_of(catalogs_, ""), "English");
  EXPECT_EQ(text_of(catalogs_, "x"), "English");
  EXPECT_EQ(text_of(catalogs_, "This is a text and no catalog.\n"), "English");
  EXPECT_EQ(text_of(catalogs_, std::string(10000, '\0')), "English");
  EXPECT_EQ(text_of(catalogs_, std::string(10000, '\xff')), "English");
}

// The system's own checks decide whether a shortened file is still a catalog, and then a text may
// end where the file does. Nothing else may come of it.
TEST_F(CatExtractmsg, AShortenedCatalogGivesEnglishOrTheTextThatIsLeft) {
  const std::string whole = catalogs_.bytes("one");
  ASSERT_EQ(text_of(catalogs_, whole), "eins");
  for (size_t length = 0; length < whole.size(); ++length) {
    const std::string found = text_of(catalogs_, whole.substr(0, length));
    EXPECT_TRUE(found == "English" || std::string_view("eins").starts_with(found))
        << length << ": " << found;
  }
}

// Messages with a German catalog, from the first call to the last.

constexpr const char *kGerman =
    "$set 6\n3 \"Kein Speicher mehr.\\n\"\n$set 9\n4 \"Operation %s: %s (deutsch)\\n\"\n"
    "$set 10\n18 \"Warnung: \"\n19 \"Fehler: \"\n";

TEST(Languages, PrintedLinesAreInTheUsersLanguage) {
  Catalogs catalogs;
  catalogs.add("ks_lib", kGerman);
  const Outcome outcome = in_child([] {
    speak("de");
    imsg_print(IMSG_TYPE_ERROR, _stg_ks_msg_table, 1);
    imsg_print(IMSG_TYPE_WARNING, _ks_ks_msg_table, 2, "read", "no");
    imsg_print(IMSG_TYPE_ERROR, _ks_ks_msg_table, 6);
    char buffer[100];
    imsg_snprintf(buffer, sizeof buffer, _stg_ks_msg_table, 1);
    imsg_print(IMSG_TYPE_OK, "%s", -1, buffer);
  });
  EXPECT_EQ(outcome.err,
            "noname: Fehler: Kein Speicher mehr.\n"
            "noname: Warnung: Operation read: no (deutsch)\n"
            "noname: Fehler: Unexpected error.\n");
  EXPECT_EQ(outcome.out, "Kein Speicher mehr.\n");
}

TEST(Languages, AFormatOfItsOwnIsNotTranslated) {
  Catalogs catalogs;
  catalogs.add("ks_lib", kGerman);
  const Outcome outcome = in_child([] {
    speak("de");
    imsg_print(IMSG_TYPE_ERROR, "No more memory available.\n", -1);
  });
  EXPECT_EQ(outcome.err, "noname: Fehler: No more memory available.\n");
}

TEST(Languages, WithoutACatalogLinesAreEnglishAndNothingElseIsSaid) {
  const Outcome outcome = in_child([] {
    speak("de");
    for (int turn = 0; turn < 10; ++turn) imsg_print(IMSG_TYPE_ERROR, _stg_ks_msg_table, 1);
    _exit(count_calls("catopen"));
  });
  std::string lines;
  for (int turn = 0; turn < 10; ++turn) lines += "noname: Error: No more memory available.\n";
  EXPECT_EQ(outcome.err, lines);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.end(), "exit 1");
}

TEST(Languages, TheLibrarysOwnCatalogIsFoundByItsName) {
  const Outcome outcome = in_child([] {
    setenv("NLSPATH", NORVAKS_BUILD_DIR "/share/norvaks/nls/%l/%N.cat", 1);
    speak("de_DE.UTF-8");
    const bool german =
        std::string_view(_stg_ks_msg_table->texts[1]) != cat_extractmsg(_stg_ks_msg_table, 1);
    imsg_print(IMSG_TYPE_OK, "%d\n", -1, german);
  });
  EXPECT_EQ(outcome.out, "1\n");
}

}  // namespace
