// The tables against a list that was written apart from their sources, and the catalogs against the
// tables.
#include <gtest/gtest.h>
#include <nl_types.h>

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "imsg_table.h"
#include "support/locale.h"

namespace {

// Programs have the record compiled in.
static_assert(offsetof(imsg_table_t, library) == 0);
static_assert(offsetof(imsg_table_t, subsys) == sizeof(void *));
static_assert(offsetof(imsg_table_t, set) == 2 * sizeof(void *));
static_assert(offsetof(imsg_table_t, count) == 2 * sizeof(void *) + 2);
static_assert(offsetof(imsg_table_t, texts) == (sizeof(void *) == 4 ? 12 : 24));
static_assert(offsetof(imsg_table_t, catnums) == (sizeof(void *) == 4 ? 16 : 32));
static_assert(sizeof(imsg_table_t) == (sizeof(void *) == 4 ? 20 : 40));

const std::map<std::string, const imsg_table_t *> kTables = {
    {"_clp_ks_msg_table", _clp_ks_msg_table},
    {"_credutl_ks_msg_table", _credutl_ks_msg_table},
    {"_date_ks_msg_table", _date_ks_msg_table},
    {"_imsg_ks_msg_table", _imsg_ks_msg_table},
    {"_ks_ks_msg_table", _ks_ks_msg_table},
    {"_list_ks_msg_table", _list_ks_msg_table},
    {"_pfm_ks_msg_table", _pfm_ks_msg_table},
    {"_rt_ks_msg_table", _rt_ks_msg_table},
    {"_rt_proc_ks_msg_table", _rt_proc_ks_msg_table},
    {"_server_id_ks_msg_table", _server_id_ks_msg_table},
    {"_stg_ks_msg_table", _stg_ks_msg_table},
    {"_strutl_ks_msg_table", _strutl_ks_msg_table},
    {"_sysutl_ks_msg_table", _sysutl_ks_msg_table},
};

struct Row {
  std::string table, lib_name, subsys;
  int set, count, index, number;
  std::string text;
};

std::string decode(const std::string &spelled) {
  std::string text;
  for (size_t i = 0; i < spelled.size(); ++i) {
    if (spelled[i] != '\\') {
      text += spelled[i];
      continue;
    }
    switch (spelled.at(++i)) {
      case 'n':
        text += '\n';
        break;
      case 't':
        text += '\t';
        break;
      case 'x':
        text += static_cast<char>(std::stoi(spelled.substr(i + 1, 2), nullptr, 16));
        i += 2;
        break;
      default:
        text += spelled[i];
    }
  }
  return text;
}

std::vector<Row> listed_rows() {
  std::vector<Row> rows;
  std::ifstream file(NORVAKS_SOURCE_DIR "/tests/msg/message_tables.tsv");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("#")) continue;
    std::istringstream fields(line);
    Row row;
    std::string spelled;
    fields >> row.table >> row.lib_name >> row.subsys >> row.set >> row.count >> row.index >>
        row.number;
    fields.ignore(1);  // the tab: what follows may begin with blanks
    std::getline(fields, spelled);
    row.text = decode(spelled);
    rows.push_back(row);
  }
  return rows;
}

TEST(MessageTables, ListHoldsEveryRowOfEveryTableOnce) {
  std::map<std::string, int> listed;
  for (const Row &row : listed_rows()) {
    EXPECT_EQ(row.index, listed[row.table]++) << row.table;
  }
  EXPECT_EQ(listed.size(), 13u);
  int rows = 0;
  for (const auto &[name, table] : kTables) {
    EXPECT_EQ(listed[name], table->count) << name;
    rows += table->count;
  }
  EXPECT_EQ(rows, 320);
}

TEST(MessageTables, HoldWhatTheListHolds) {
  for (const Row &row : listed_rows()) {
    SCOPED_TRACE(row.table + " " + std::to_string(row.index));
    ASSERT_TRUE(kTables.contains(row.table));
    const imsg_table_t *table = kTables.at(row.table);
    EXPECT_EQ(table->library, row.lib_name);
    EXPECT_EQ(table->subsys, row.subsys);
    EXPECT_EQ(table->set, row.set);
    EXPECT_EQ(table->count, row.count);
    ASSERT_LT(row.index, table->count);
    EXPECT_EQ(table->catnums[row.index], row.number);
    EXPECT_EQ(table->texts[row.index], row.text);
  }
}

TEST(MessageTables, StyleMarksAreTwoControlBytesAndTwoLetters) {
  const std::string bold = {1, 1, '1', 'B'}, plain = {1, 1, '0', 'B'};
  EXPECT_EQ(_ks_ks_msg_table->texts[8],
            bold + "This product is not installed correctly." + plain + "\n");
}

std::vector<std::string> directives(const std::string &text) {
  static const std::regex directive(
      R"(%[-+ #0]*(\*|[0-9]+)?(\.(\*|[0-9]+)?)?(hh|h|ll|l|L|j|z|t)?[a-zA-Z%])");
  std::vector<std::string> found;
  for (std::sregex_iterator hit(text.begin(), text.end(), directive), end; hit != end; ++hit) {
    if (hit->str() != "%%") found.push_back(hit->str());
  }
  return found;
}

// The catalogs that come with the library, by language.
class ShippedCatalog : public testing::TestWithParam<const char *> {
 protected:
  void SetUp() override {
    const std::string file =
        std::string(NORVAKS_BUILD_DIR "/share/norvaks/nls/") + GetParam() + "/ks_lib.cat";
    catalog_ = catopen(file.c_str(), 0);
    ASSERT_NE(catalog_, reinterpret_cast<nl_catd>(-1)) << file;
  }

  void TearDown() override {
    if (catalog_ != reinterpret_cast<nl_catd>(-1)) catclose(catalog_);
  }

  // The catalog's own text, or a mark where it has none.
  std::string text(const imsg_table_t *table, int index) const {
    return catgets(catalog_, table->set, table->catnums[index], "<missing>");
  }

  // Calls `check` with each table and index.
  template <class Check>
  void for_each_message(const Check &check) const {
    for (const auto &[name, table] : kTables) {
      for (int index = 0; index < table->count; ++index) {
        SCOPED_TRACE(name + " " + std::to_string(index));
        check(table, index);
      }
    }
  }

 private:
  nl_catd catalog_ = reinterpret_cast<nl_catd>(-1);
};

INSTANTIATE_TEST_SUITE_P(Languages, ShippedCatalog, testing::Values("en", "de", "ja"),
                         [](const auto &language) { return language.param; });

TEST_P(ShippedCatalog, HasEveryMessage) {
  for_each_message([&](const imsg_table_t *table, int index) {
    EXPECT_NE(text(table, index), "<missing>");
    EXPECT_NE(text(table, index), "");
  });
}

TEST_P(ShippedCatalog, IsTheTableInEnglishAndOnlyThere) {
  if (GetParam() != std::string("en")) {
    EXPECT_NE(text(_stg_ks_msg_table, 1), _stg_ks_msg_table->texts[1]);
    return;
  }
  for_each_message([&](const imsg_table_t *table, int index) {
    EXPECT_EQ(text(table, index), table->texts[index]);
  });
}

TEST_P(ShippedCatalog, TakesTheSameArgumentsInTheSameOrder) {
  for_each_message([&](const imsg_table_t *table, int index) {
    EXPECT_EQ(directives(text(table, index)), directives(table->texts[index]));
  });
}

TEST_P(ShippedCatalog, EndsItsLinesWhereTheTableDoes) {
  for_each_message([&](const imsg_table_t *table, int index) {
    const bool line = std::string(table->texts[index]).ends_with("\n");
    EXPECT_EQ(text(table, index).ends_with("\n"), line);
  });
}

TEST_P(ShippedCatalog, IsInUtf8) {
  ks_test::use_locale("C.UTF-8");
  for_each_message([&](const imsg_table_t *table, int index) {
    EXPECT_NE(mbstowcs(nullptr, text(table, index).c_str(), 0), static_cast<size_t>(-1));
  });
}

TEST_P(ShippedCatalog, HasPrefixWordsThatAreSafeInAFormat) {
  for (int word = 14; word <= 17; ++word) {
    EXPECT_EQ(text(_imsg_ks_msg_table, word).find('%'), std::string::npos) << word;
    EXPECT_LT(text(_imsg_ks_msg_table, word).size(), 128 - strlen("%s/%s: ")) << word;
  }
}

// Dates in scripts parse in every language.
TEST_P(ShippedCatalog, KeepsShortNamesAndSeparatorsOfDatesInEnglish) {
  std::vector<int> fixed = {2, 41, 42, 43, 45, 46, 47, 48};
  for (int month = 4; month <= 26; month += 2) fixed.push_back(month);
  for (int weekday = 28; weekday <= 40; weekday += 2) fixed.push_back(weekday);
  for (int index : fixed) {
    EXPECT_EQ(text(_date_ks_msg_table, index), _date_ks_msg_table->texts[index]) << index;
  }
}

}  // namespace
