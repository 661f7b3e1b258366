#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/hash_internal.h"
#include "core/hash_support.h"
#include "hash.h"
#include "pfm.h"
#include "support/landing.h"
#include "support/signals.h"

using hash_test::in_child;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

using Addresses = std::vector<std::pair<std::string_view, const void *>>;

// The text with the addresses in the places of their names.
std::string with(std::string text, const Addresses &addresses) {
  for (const auto &[name, address] : addresses) {
    char digits[32];
    snprintf(digits, sizeof digits, "0x%016llx",
             static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(address)));
    for (size_t at; (at = text.find(name)) != std::string::npos;) {
      text.replace(at, name.size(), digits);
    }
  }
  return text;
}

const char *data_of(const hash_cell_t *cell) { return reinterpret_cast<const char *>(cell + 1); }

// A child has the same addresses.
std::string dump(hash_ht_t ht) {
  return in_child([ht] { hash_dump(ht); }).out;
}

std::string statistics(hash_ht_t ht) {
  return in_child([ht] { hash_dump_stats(ht); }).out;
}

void enter(hash_ht_t ht, intptr_t key) {
  intptr_t *stored;
  void *data;
  hash_int_enter(ht, key, &stored, &data);
}

TEST(HashDump, EmptyTable) {
  hash_ht_t ht = hash_int_create(7, 12);
  EXPECT_EQ(dump(ht),
            with("-------------------------- Hash Table Dump ------------------------------------\n"
                 "(hash) ht @ht: bkts=@bkts, #bkts=7, #cells=0, dbytes=12,\n"
                 "       area=@area, keytype=HASH_KEY_INT, copyk=T\n",
                 {{"@ht", ht}, {"@bkts", ht->bkts}, {"@area", ht->area}}));
  hash_delete_ht(&ht);
}

TEST(HashDump, IntegerKeysInAnOrderedTableThatGrows) {
  hash_ht_t ht = hash_int_create(3, 4);
  hash_set_order(ht);
  hash_set_dynamic(ht, 2);
  enter(ht, -1);
  enter(ht, 8);
  enter(ht, 21);
  hash_cell_t *third = ht->bkts[2];  // 21 >> 2 = 5
  hash_cell_t *second = third->next;
  hash_cell_t *first = ht->bkts[0];  // 4294967295 = 3 * 1431655765
  EXPECT_EQ(dump(ht),
            with("-------------------------- Hash Table Dump ------------------------------------\n"
                 "(hash) ht @ht: bkts=@bkts, #bkts=3, #cells=3, dbytes=4,\n"
                 "       area=@area, keytype=HASH_KEY_INT, copyk=T\n"
                 "       limit=2, climit=6, order=T, 1cell=@1, lcell=@3\n"
                 "bucket 0:\n"
                 "  cell @1: key=-1, hval=4294967295, datap=@data1, next=@null, order=@2, "
                 "back=@null\n"
                 "bucket 2:\n"
                 "  cell @3: key=21, hval=5, datap=@data3, next=@2, order=@null, back=@2\n"
                 "  cell @2: key=8, hval=2, datap=@data2, next=@null, order=@3, back=@1\n",
                 {{"@ht", ht},
                  {"@bkts", ht->bkts},
                  {"@area", ht->area},
                  {"@1", first},
                  {"@2", second},
                  {"@3", third},
                  {"@data1", data_of(first)},
                  {"@data2", data_of(second)},
                  {"@data3", data_of(third)},
                  {"@null", nullptr}}));
  hash_delete_ht(&ht);
}

TEST(HashDump, TextKeys) {
  hash_ht_t ht = hash_str_create(1, 0, 0);
  hash_set_dynamic(ht, 3);
  const char *key;
  void *data;
  hash_str_enter(ht, "a%sb", &key, &data);
  hash_cell_t *cell = ht->bkts[0];
  cell->hval = 7;
  EXPECT_EQ(dump(ht),
            with("-------------------------- Hash Table Dump ------------------------------------\n"
                 "(hash) ht @ht: bkts=@bkts, #bkts=1, #cells=1, dbytes=0,\n"
                 "       area=@area, keytype=HASH_KEY_STR, copyk=F\n"
                 "       limit=3, climit=3, order=F, 1cell=@null, lcell=@null\n"
                 "bucket 0:\n"
                 "  cell @cell: hval=7, datap=@data, next=@null\n"
                 "    key=\"a%sb\"\n",
                 {{"@ht", ht},
                  {"@bkts", ht->bkts},
                  {"@area", ht->area},
                  {"@cell", cell},
                  {"@data", data_of(cell)},
                  {"@null", nullptr}}));
  cell->key.block = nullptr;
  EXPECT_THAT(dump(ht), HasSubstr("\n    key=\"(null)\"\n"));
  hash_delete_ht(&ht);
}

TEST(HashDump, KeysOfFixedLengthAreNotShown) {
  hash_ht_t ht = hash_flen_create(1, 8, 1, 34);
  hash_cell_t *cell = hash_create_cell(ht, 1);
  EXPECT_EQ(dump(ht),
            with("-------------------------- Hash Table Dump ------------------------------------\n"
                 "(hash) ht @ht: bkts=@bkts, #bkts=1, #cells=1, dbytes=8,\n"
                 "       area=@area, keytype=HASH_KEY_FLEN, copyk=T, key_bytes=34\n"
                 "bucket 0:\n"
                 "  cell @cell: hval=1, datap=@data, next=@null\n",
                 {{"@ht", ht},
                  {"@bkts", ht->bkts},
                  {"@area", ht->area},
                  {"@cell", cell},
                  {"@data", data_of(cell)},
                  {"@null", nullptr}}));
  hash_delete_ht(&ht);
}

TEST(HashDump, UnknownKindOfKeys) {
  hash_ht_t ht = hash_create_ht(1, 8, 3, 0, 34, nullptr, nullptr);
  EXPECT_THAT(dump(ht), HasSubstr(", keytype=*unknown*, copyk=F\n"));
  hash_delete_ht(&ht);
}

TEST(HashDump, OrderAloneShowsTheLineOfLimits) {
  hash_ht_t ht = hash_int_create(1, 8);
  hash_set_order(ht);
  EXPECT_THAT(dump(ht), HasSubstr("\n       limit=0, climit=0, order=T, 1cell="));
  hash_delete_ht(&ht);
}

TEST(HashDump, IsWrittenBehindWhatStdoutHoldsAndDoesNotWaitThere) {
  hash_ht_t ht = hash_int_create(1, 4);
  const ks_test::Outcome outcome = ks_test::in_child([ht] {
    fputs("before\n", stdout);
    hash_dump(ht);
    hash_dump_stats(ht);
    _exit(0);
  });
  EXPECT_THAT(outcome.out, StartsWith("before\n-------------------------- Hash Table Dump "));
  EXPECT_THAT(outcome.out, EndsWith("\n#buckets with 0 entries: 1\n"));
  hash_delete_ht(&ht);
}

TEST(HashDump, OfManyCellsAndLongKeysIsWhole) {
  hash_ht_t ht = hash_str_create(1, 0, 0);
  const std::string longest(10000, 'k');
  std::vector<std::string> keys = {longest};
  for (int count = 0; count < 200; ++count) keys.push_back("key " + std::to_string(count));
  const char *stored;
  void *data;
  for (const std::string &key : keys) hash_str_enter(ht, key.c_str(), &stored, &data);
  const std::string text = dump(ht);
  for (const std::string &key : keys) {
    EXPECT_THAT(text, HasSubstr("    key=\"" + key + "\"\n"));
  }
  EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 4 + 2 * 201);
  hash_delete_ht(&ht);
}

TEST(HashDump, ThatCannotBeWrittenIsToldByTheIndicator) {
  hash_ht_t ht = hash_int_create(1, 4);
  const ks_test::Outcome outcome = ks_test::in_child([ht] {
    if (freopen("/dev/full", "w", stdout) == nullptr) _exit(2);
    hash_dump(ht);
    _exit(ferror(stdout) != 0 ? 0 : 1);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  hash_delete_ht(&ht);
}

// A pipe whose reader takes its time, and a routine that raises.
TEST(HashDump, ARoutineThatRaisesLeavesStdoutFitForUse) {
  hash_ht_t ht = hash_str_create(1, 0, 0);
  const std::string key(200000, 'k');
  const char *stored;
  void *data;
  hash_str_enter(ht, key.c_str(), &stored, &data);
  const ks_test::Outcome outcome = ks_test::in_child([ht] {
    int ends[2];
    if (pipe(ends) != 0) _exit(1);
    const int out = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    pfm_signal(SIGALRM, ks_test::raise_number);
    const itimerval soon = {{}, {0, 20000}};
    setitimer(ITIMER_REAL, &soon, nullptr);
    if (ks_test::land([ht] { hash_dump(ht); }).status != SIGALRM) _exit(2);
    dup2(out, STDOUT_FILENO);
    puts("afterwards");
    fflush(stdout);
    _exit(0);
  });
  EXPECT_EQ(outcome.end(), "exit 0");
  EXPECT_EQ(outcome.out, "afterwards\n");
  hash_delete_ht(&ht);
}

TEST(HashDumpStats, EmptyTable) {
  hash_ht_t ht = hash_int_create(7, 4);
  EXPECT_EQ(statistics(ht),
            "-------------------------- Hash Table Statistics ------------------------------\n"
            "\n"
            "number of buckets: 7\n"
            "number of cells: 0\n"
            "#buckets with 0 entries: 7\n");
  hash_delete_ht(&ht);
}

TEST(HashDumpStats, CountsChainsAndFreeCells) {
  hash_ht_t ht = hash_int_create(7, 4);
  for (uint32_t hash : {0u, 7u, 14u, 2u, 6u, 9u, 3u}) hash_create_cell(ht, hash);
  hash_free_cell(ht, ht->bkts[3], nullptr);
  hash_free_cell(ht, ht->bkts[0]->next, ht->bkts[0]);
  EXPECT_EQ(statistics(ht),
            "-------------------------- Hash Table Statistics ------------------------------\n"
            "bucket 0: 2\n"
            "bucket 2: 2\n"
            "bucket 6: 1\n"
            "Number of entries on free list: 2\n"
            "\n"
            "number of buckets: 7\n"
            "number of cells: 5\n"
            "#buckets with 0 entries: 4\n"
            "#buckets with 1 entries: 1\n"
            "#buckets with 2 entries: 2\n");
  hash_delete_ht(&ht);
}

TEST(HashDumpStats, ChainsAreCountedUpToALengthOf49) {
  hash_ht_t ht = hash_int_create(3, 4);
  for (int i = 0; i < 49; ++i) hash_create_cell(ht, 0);
  for (int i = 0; i < 50; ++i) hash_create_cell(ht, 1);
  for (int i = 0; i < 200; ++i) hash_create_cell(ht, 2);
  EXPECT_EQ(statistics(ht),
            "-------------------------- Hash Table Statistics ------------------------------\n"
            "bucket 0: 49\n"
            "bucket 1: 50\n"
            "bucket 2: 200\n"
            "\n"
            "number of buckets: 3\n"
            "number of cells: 299\n"
            "#buckets with 49 entries: 1\n");
  hash_delete_ht(&ht);
}

}  // namespace
