// Rows of hash tables.
#include "hash.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "list.h"
#include "pfm.h"
#include "stg.h"
#include "sweep/output.h"
#include "sweep/row.h"

namespace ks_test {
namespace {

constexpr int kKeys = 5;  // in a table before the call; the call enters the key of this number
constexpr uint32_t kDataBytes = 8;

struct {
  hash_ht_t ht;
  hash_scan_t *scan;
  hash_cell_t *cell;
  int scanned;        // entries that the call has gone through
  uint32_t number;    // what the call returned
  list_t *list;       // of keys
  std::string dump;   // of the table, untouched
  const char *wrong;  // found when the last call was undone
} own;

// Keys by their number; the last one is that of the call.
constexpr char kTexts[kKeys + 1][8] = {"zero", "one", "two", "three", "four", "five"};

struct IntKeys {
  using Out = intptr_t *;
  static hash_ht_t create(uint32_t hint) { return hash_int_create(hint, kDataBytes); }
  static intptr_t key(int number) { return 4 * number; }
  static bool is_key(Out out, int number) { return out != nullptr && *out == key(number); }
  static constexpr auto enter = hash_int_enter;
  static constexpr auto lookup = hash_int_lookup;
  static constexpr auto free = hash_int_free;
  static constexpr auto next = hash_int_next;
  static constexpr auto next_in_order = hash_int_next_in_order;
};

template <int kCopied>
struct StrKeys {
  using Out = const char *;
  static hash_ht_t create(uint32_t hint) { return hash_str_create(hint, kDataBytes, kCopied); }
  static const char *key(int number) { return kTexts[number]; }
  static bool is_key(Out out, int number) {
    return out != nullptr && strcmp(out, key(number)) == 0 &&
           (kCopied != 0) == (out != key(number));
  }
  static constexpr auto enter = hash_str_enter;
  static constexpr auto lookup = hash_str_lookup;
  static constexpr auto free = hash_str_free;
  static constexpr auto next = hash_str_next;
  static constexpr auto next_in_order = hash_str_next_in_order;
};

template <int kCopied>
struct FlenKeys {
  using Out = const void *;
  static hash_ht_t create(uint32_t hint) {
    return hash_flen_create(hint, kDataBytes, kCopied, sizeof kTexts[0]);
  }
  static const void *key(int number) { return kTexts[number]; }
  static bool is_key(Out out, int number) {
    return out != nullptr && memcmp(out, key(number), sizeof kTexts[0]) == 0 &&
           (kCopied != 0) == (out != key(number));
  }
  static constexpr auto enter = hash_flen_enter;
  static constexpr auto lookup = hash_flen_lookup;
  static constexpr auto free = hash_flen_free;
  static constexpr auto next = hash_flen_next;
  static constexpr auto next_in_order = hash_flen_next_in_order;
};

// Tables

enum Setting { kPlain, kGrowing, kOrdered };

template <class Keys>
bool enter(int number) {
  typename Keys::Out key;
  void *data;
  Keys::enter(own.ht, Keys::key(number), &key, &data);
  if (data == nullptr) return false;
  memset(data, number, kDataBytes);
  return true;
}

// A growing table grows with the next key that is entered.
template <class Keys, Setting kSetting>
void make_table() {
  own.ht = Keys::create(kSetting == kGrowing ? 1 : 7);
  if (kSetting == kOrdered) hash_set_order(own.ht);
  for (int number = 0; number < kKeys; ++number) enter<Keys>(number);
  if (kSetting == kGrowing) hash_set_dynamic(own.ht, kKeys);
}

template <class Keys>
int number_of(typename Keys::Out key, const void *data) {
  for (int number = 0; number <= kKeys; ++number) {
    char expected[kDataBytes];
    memset(expected, number, sizeof expected);
    if (Keys::is_key(key, number) && memcmp(data, expected, sizeof expected) == 0) return number;
  }
  return -1;
}

// The numbers of the entries as a bit each, by a scan and by looking each key up; 0 for a table in
// which they are not the same or not whole.
template <class Keys, Setting kSetting>
unsigned entries() {
  typename Keys::Out key;
  void *data;
  unsigned found = 0;
  for (int number = 0; number <= kKeys; ++number) {
    if (Keys::lookup(own.ht, Keys::key(number), &key, &data) == 0) continue;
    if (number_of<Keys>(key, data) != number) return 0;
    found |= 1u << number;
  }
  unsigned scanned = 0;
  const auto next = kSetting == kOrdered ? Keys::next_in_order : Keys::next;
  int last = -1;
  for (hash_scan_t *scan = nullptr; next(own.ht, &scan, &key, &data) != 0;) {
    const int number = number_of<Keys>(key, data);
    const bool in_order = kSetting != kOrdered || number > last;
    if (number < 0 || !in_order || (scanned >> number & 1) != 0) {
      hash_term_scan(&scan);
      return 0;
    }
    scanned |= 1u << number;
    last = number;
  }
  return scanned == found ? found : 0;
}

constexpr unsigned kAll = (1u << kKeys) - 1;  // the entries before the call
constexpr unsigned kOneMore = 1u << kKeys | kAll;
constexpr unsigned kOneLess = kAll & ~2u;

template <class Keys, Setting kSetting, unsigned kEntries>
const char *table_has(bool done) {
  if (own.wrong != nullptr) return own.wrong;
  const unsigned expected = done ? kEntries : kAll;
  return entries<Keys, kSetting>() == expected ? nullptr : "the table has other entries";
}

// What the call has left half-way must still be a table, to which a key can be entered. Its own key's
// data may not have been filled in.
template <class Keys, Setting kSetting>
void renew() {
  own.wrong = nullptr;
  if (own.ht != nullptr) {
    own.wrong = "a key could not be entered";
    if (enter<Keys>(kKeys)) {
      const unsigned had = entries<Keys, kSetting>();
      own.wrong = had == kOneMore || had == (kOneMore & ~2u) ? nullptr : "the table was broken";
    }
  }
  if (own.scan != nullptr) hash_term_scan(&own.scan);
  hash_delete_ht(&own.ht);
  make_table<Keys, kSetting>();
  own.scanned = 0;
  forget_messages();
}

template <class Keys, Setting kSetting>
void prepare() {
  catch_messages();
  make_table<Keys, kSetting>();
}

template <class Keys>
bool enter_one() {
  return enter<Keys>(kKeys);
}

template <class Keys>
bool enter_again() {
  typename Keys::Out key;
  void *data;
  return Keys::enter(own.ht, Keys::key(1), &key, &data) == 1;
}

template <class Keys>
bool free_one() {
  typename Keys::Out key;
  void *data;
  return Keys::free(own.ht, Keys::key(1), &key, &data) == 1;
}

// A scan that gets no memory ends at once.
template <class Keys, Setting kSetting>
bool scan_all() {
  typename Keys::Out key;
  void *data;
  const auto next = kSetting == kOrdered ? Keys::next_in_order : Keys::next;
  while (next(own.ht, &own.scan, &key, &data) != 0) ++own.scanned;
  return own.scanned == kKeys;
}

template <class Keys, Setting kSetting>
const char *all_scanned(bool done) {
  if (own.scan != nullptr) return "the scan has not ended";
  if (!done && own.scanned != 0) return "the scan ended on its way";
  return table_has<Keys, kSetting, kAll>(true);
}

template <class Keys, Setting kSetting, unsigned kEntries>
constexpr SweepRow table_row(std::string_view function, std::string_view about, bool (*call)()) {
  return {function,
          about,
          prepare<Keys, kSetting>,
          call,
          table_has<Keys, kSetting, kEntries>,
          renew<Keys, kSetting>};
}

template <class Keys, Setting kSetting>
constexpr SweepRow scan_row(std::string_view function) {
  return {function,
          "",
          prepare<Keys, kSetting>,
          scan_all<Keys, kSetting>,
          all_scanned<Keys, kSetting>,
          renew<Keys, kSetting>};
}

// Creation and deletion

void prepare_none() { catch_messages(); }

bool was_made() { return caught_messages().empty(); }

bool create_int() {
  pfm_inhibit();
  own.ht = hash_int_create(7, kDataBytes);
  pfm_enable();
  return was_made();
}

bool create_str() {
  pfm_inhibit();
  own.ht = hash_str_create(7, kDataBytes, 1);
  pfm_enable();
  return was_made();
}

bool create_flen() {
  pfm_inhibit();
  own.ht = hash_flen_create(7, kDataBytes, 1, sizeof kTexts[0]);
  pfm_enable();
  return was_made();
}

uint32_t first_byte(const void *key) { return *static_cast<const unsigned char *>(key); }

int same_text(const void *stored_key, const void *key) {
  return strcmp(static_cast<const char *>(stored_key), static_cast<const char *>(key)) == 0;
}

bool create_with_functions() {
  pfm_inhibit();
  own.ht = hash_flen_create_with_fns(7, kDataBytes, 0, sizeof kTexts[0], first_byte, same_text);
  pfm_enable();
  return was_made();
}

bool create_any() {
  pfm_inhibit();
  own.ht = hash_create_ht(7, kDataBytes, HASH_KEY_STR, 1, 0, nullptr, nullptr);
  pfm_enable();
  return was_made();
}

// Without memory the table stays empty.
template <class Keys>
const char *table_works(bool done) {
  if (own.ht == nullptr) return "there is no handle";
  if (!done && !caught_messages().ends_with("Out of memory")) return "want of memory was not told";
  if (enter<Keys>(0) != done) return "a key was entered wrongly";
  return entries<Keys, kPlain>() == (done ? 1u : 0u) ? nullptr : "the table has other entries";
}

void drop_table() {
  hash_delete_ht(&own.ht);
  forget_messages();
}

bool delete_table() {
  hash_delete_ht(&own.ht);
  return true;
}

const char *table_is_gone(bool) {
  if (own.ht != nullptr) return "the handle is there";
  stg_dump();
  return caught_messages().empty() ? nullptr : "an area is left";
}

template <class Keys>
void make_again() {
  drop_table();
  make_table<Keys, kPlain>();
}

// Settings and growth

bool set_dynamic() {
  own.number = hash_set_dynamic(own.ht, 3);
  return true;
}

const char *dynamic_is_set(bool) {
  if (own.number != 3 * 7) return "another number of entries";
  return table_has<IntKeys, kPlain, kAll>(true);
}

void prepare_empty() {
  catch_messages();
  own.ht = StrKeys<1>::create(7);
}

bool set_order() {
  hash_set_order(own.ht);
  return true;
}

const char *order_is_kept(bool) {
  for (int number = 0; number < kKeys; ++number) enter<StrKeys<1>>(number);
  return entries<StrKeys<1>, kOrdered>() == kAll ? nullptr : "the order of entry is not kept";
}

bool ignore_spaces() {
  hash_str_ignore_spaces(own.ht);
  return true;
}

const char *spaces_are_ignored(bool) {
  const char *key;
  void *data;
  hash_str_enter(own.ht, "a b", &key, &data);
  return hash_str_lookup(own.ht, " ab ", &key, &data) == 1 ? nullptr : "the keys are two";
}

void renew_empty() {
  drop_table();
  own.ht = StrKeys<1>::create(7);
}

uint32_t buckets() {
  const uint32_t count = hash_set_dynamic(own.ht, 1);
  hash_set_dynamic(own.ht, 0);
  return count;
}

bool resize() {
  hash_resize(own.ht);
  return buckets() == 17;
}

const char *table_is_resized(bool done) {
  if (buckets() != (done ? 17 : 7)) return "another number of buckets";
  return table_has<IntKeys, kPlain, kAll>(true);
}

// Scans over entries, and entries by themselves

bool scan_cells() {
  while (hash_next(own.ht, &own.scan, &own.cell) != 0) ++own.scanned;
  return own.scanned == kKeys;
}

bool scan_cells_in_order() {
  while (hash_next_in_order(own.ht, &own.scan, &own.cell) != 0) ++own.scanned;
  return own.scanned == kKeys;
}

bool give_scan_up() {
  const bool begun = hash_next(own.ht, &own.scan, &own.cell) == 1;
  hash_term_scan(&own.scan);
  return begun;
}

const char *scan_is_given_up(bool) {
  if (own.scan != nullptr) return "the scan is still there";
  return table_has<IntKeys, kPlain, kAll>(true);
}

// The caller sets the key, and the data.
bool create_cell() {
  pfm_inhibit();
  own.cell = hash_create_cell(own.ht, kKeys);
  if (own.cell != nullptr) {
    own.cell->key.word = IntKeys::key(kKeys);
    memset(own.cell + 1, kKeys, kDataBytes);
  }
  pfm_enable();
  return own.cell != nullptr;
}

// The keys are in buckets of their own.
bool free_cell() {
  intptr_t *key;
  void *data;
  if (hash_int_lookup(own.ht, IntKeys::key(1), &key, &data) == 0) return false;
  hash_free_cell(own.ht, static_cast<hash_cell_t *>(data) - 1, nullptr);
  return true;
}

void prepare_keys_in_list() {
  prepare<StrKeys<1>, kPlain>();
  own.list = list_create(STG_AREA_HEAP, 0);
  for (const char *text : {kTexts[1], kTexts[kKeys]})
    list_append(own.list, const_cast<char *>(text));
}

bool enter_list() {
  void *data;
  const char *key;
  if (hash_str_enter_list(own.ht, own.list) != 0) return false;
  if (hash_str_lookup(own.ht, kTexts[kKeys], &key, &data) == 0) return false;
  memset(data, kKeys, kDataBytes);
  return true;
}

// Dumps

// Line by line, so that it is the dump that writes.
void prepare_dump() {
  catch_streams();
  setvbuf(row_stdout(), nullptr, _IOLBF, BUFSIZ);
  make_table<StrKeys<1>, kOrdered>();
}

template <void (*kDump)(hash_ht_t)>
bool dump() {
  take_stdout();
  kDump(own.ht);
  give_stdout_back();
  return ferror(row_stdout()) == 0;
}

// The addresses in it are the same each time.
const char *dump_is_whole(bool done) {
  if (own.dump.empty()) own.dump = caught_out();
  return !done || caught_out() == own.dump ? nullptr : "the dump is another";
}

constexpr SweepRow rows[] = {
    {"hash_int_create", "", prepare_none, create_int, table_works<IntKeys>, drop_table},
    {"hash_str_create", "", prepare_none, create_str, table_works<StrKeys<1>>, drop_table},
    {"hash_flen_create", "", prepare_none, create_flen, table_works<FlenKeys<1>>, drop_table},
    {"hash_flen_create_with_fns", "", prepare_none, create_with_functions, table_works<FlenKeys<0>>,
     drop_table},
    {"hash_create_ht", "", prepare_none, create_any, table_works<StrKeys<1>>, drop_table},
    {"hash_delete_ht", "", prepare<IntKeys, kPlain>, delete_table, table_is_gone,
     make_again<IntKeys>},
    {"hash_delete_ht", "copied keys", prepare<StrKeys<1>, kPlain>, delete_table, table_is_gone,
     make_again<StrKeys<1>>},
    {"hash_set_dynamic", "", prepare<IntKeys, kPlain>, set_dynamic, dynamic_is_set,
     renew<IntKeys, kPlain>},
    {"hash_set_order", "", prepare_empty, set_order, order_is_kept, renew_empty},
    {"hash_str_ignore_spaces", "", prepare_empty, ignore_spaces, spaces_are_ignored, renew_empty},
    table_row<IntKeys, kPlain, kOneMore>("hash_int_enter", "", enter_one<IntKeys>),
    table_row<IntKeys, kPlain, kAll>("hash_int_enter", "there already", enter_again<IntKeys>),
    table_row<IntKeys, kGrowing, kOneMore>("hash_int_enter", "growth", enter_one<IntKeys>),
    table_row<IntKeys, kOrdered, kOneMore>("hash_int_enter", "ordered", enter_one<IntKeys>),
    table_row<StrKeys<0>, kPlain, kOneMore>("hash_str_enter", "", enter_one<StrKeys<0>>),
    table_row<StrKeys<1>, kPlain, kOneMore>("hash_str_enter", "copied", enter_one<StrKeys<1>>),
    table_row<StrKeys<1>, kGrowing, kOneMore>("hash_str_enter", "copied, growth",
                                              enter_one<StrKeys<1>>),
    table_row<StrKeys<1>, kOrdered, kOneMore>("hash_str_enter", "copied, ordered",
                                              enter_one<StrKeys<1>>),
    table_row<FlenKeys<0>, kPlain, kOneMore>("hash_flen_enter", "", enter_one<FlenKeys<0>>),
    table_row<FlenKeys<1>, kOrdered, kOneMore>("hash_flen_enter", "copied, ordered",
                                               enter_one<FlenKeys<1>>),
    {"hash_str_enter_list", "", prepare_keys_in_list, enter_list,
     table_has<StrKeys<1>, kPlain, kOneMore>, renew<StrKeys<1>, kPlain>},
    table_row<IntKeys, kPlain, kOneLess>("hash_int_free", "", free_one<IntKeys>),
    table_row<IntKeys, kOrdered, kOneLess>("hash_int_free", "ordered", free_one<IntKeys>),
    table_row<StrKeys<0>, kPlain, kOneLess>("hash_str_free", "", free_one<StrKeys<0>>),
    table_row<StrKeys<1>, kOrdered, kOneLess>("hash_str_free", "copied, ordered",
                                              free_one<StrKeys<1>>),
    table_row<FlenKeys<1>, kPlain, kOneLess>("hash_flen_free", "copied", free_one<FlenKeys<1>>),
    scan_row<IntKeys, kPlain>("hash_int_next"),
    scan_row<IntKeys, kOrdered>("hash_int_next_in_order"),
    scan_row<StrKeys<1>, kPlain>("hash_str_next"),
    scan_row<StrKeys<1>, kOrdered>("hash_str_next_in_order"),
    scan_row<FlenKeys<1>, kPlain>("hash_flen_next"),
    scan_row<FlenKeys<1>, kOrdered>("hash_flen_next_in_order"),
    {"hash_next", "", prepare<IntKeys, kPlain>, scan_cells, all_scanned<IntKeys, kPlain>,
     renew<IntKeys, kPlain>},
    {"hash_next_in_order", "", prepare<IntKeys, kOrdered>, scan_cells_in_order,
     all_scanned<IntKeys, kOrdered>, renew<IntKeys, kOrdered>},
    {"hash_term_scan", "", prepare<IntKeys, kPlain>, give_scan_up, scan_is_given_up,
     renew<IntKeys, kPlain>},
    table_row<IntKeys, kPlain, kOneMore>("hash_create_cell", "", create_cell),
    table_row<IntKeys, kGrowing, kOneMore>("hash_create_cell", "growth", create_cell),
    table_row<IntKeys, kPlain, kOneLess>("hash_free_cell", "", free_cell),
    {"hash_resize", "", prepare<IntKeys, kPlain>, resize, table_is_resized, renew<IntKeys, kPlain>},
    {"hash_dump", "", prepare_dump, dump<hash_dump>, dump_is_whole, forget_streams},
    {"hash_dump_stats", "", prepare_dump, dump<hash_dump_stats>, dump_is_whole, forget_streams},
};

constexpr SweepExemption exemptions[] = {
    {"hash_int_lookup", "reads"},
    {"hash_str_lookup", "reads; prints an error of a NULL key alone"},
    {"hash_flen_lookup", "reads; prints an error of a NULL key alone"},
    {"hash_get_key_bytes", "reads"},
};

}  // namespace

const SweepModule kSweepHash = {rows, exemptions};

}  // namespace ks_test
