// Tables with text keys.
#include <cstring>

#include "core/hash_walk.h"
#include "ks_msg.h"
#include "list.h"
#include "msg/ks_print.h"

using namespace ks;

namespace {

// White space of the "C" locale, whatever the locale is.
bool is_space(unsigned char byte) { return byte == ' ' || (byte >= '\t' && byte <= '\r'); }

const char *skip_spaces(const char *text) {
  while (is_space(static_cast<unsigned char>(*text))) ++text;
  return text;
}

// Bytes are unsigned here and signed in the hash of all bytes.
uint32_t hash_but_spaces(const void *key) {
  uint32_t hash = 0;
  if (key == nullptr) return hash;
  for (const char *at = skip_spaces(static_cast<const char *>(key)); *at != '\0';
       at = skip_spaces(at + 1)) {
    hash = hash_step<unsigned char>(hash, static_cast<unsigned char>(*at));
  }
  return hash;
}

int equal_but_spaces(const void *stored_key, const void *key) {
  if (stored_key == nullptr || key == nullptr) return stored_key == key;
  const char *one = skip_spaces(static_cast<const char *>(stored_key));
  const char *other = skip_spaces(static_cast<const char *>(key));
  while (*one == *other && *one != '\0') {
    one = skip_spaces(one + 1);
    other = skip_spaces(other + 1);
  }
  return *one == *other;
}

uint32_t hash_of(hash_ht_t ht, const char *key) {
  if (ht->hash_fn != nullptr) return ht->hash_fn(key);
  return key != nullptr ? hash_bytes<signed char>(key, strlen(key)) : 0;
}

bool equal(hash_ht_t ht, const void *stored_key, const char *key) {
  if (ht->compare_fn != nullptr) return ht->compare_fn(stored_key, key) != 0;
  if (stored_key == nullptr || key == nullptr) return stored_key == key;
  return strcmp(static_cast<const char *>(stored_key), key) == 0;
}

int give_out(hash_cell_t *cell, const char **key_out, void **data_out) {
  *key_out = cell != nullptr ? static_cast<const char *>(cell->key.block) : nullptr;
  *data_out = cell != nullptr ? hash_data(cell) : nullptr;
  return cell != nullptr;
}

// A copied key lies behind its cell, mostly in the next cache line.
[[gnu::always_inline]] inline void fetch_copied_key(const hash_cell_t *cell) {
  constexpr size_t kCacheLine = 64;
  __builtin_prefetch(reinterpret_cast<const char *>(cell) + kCacheLine);
}

template <HashAction kAction>
int act(hash_ht_t ht, const char *key, const char **key_out, void **data_out) {
  if (key == nullptr) hash_report_null_key();
  const uint32_t hash = hash_of(ht, key);
  const auto holds = [&](const hash_cell_t *cell) {
    fetch_copied_key(cell);
    return cell->hval == hash && equal(ht, cell->key.block, key);
  };
  const auto store = [&](hash_cell_t *cell) {
    cell->key.block = ht->copyk != 0 ? stg_area_strdup(ht->area, key) : key;
    return cell->key.block != nullptr || key == nullptr;
  };
  const HashFound found = hash_act<kAction>(ht, hash, hash_mark(hash), holds, store);
  give_out(found.cell, key_out, data_out);
  return found.was_there;
}

}  // namespace

hash_ht_t hash_str_create(uint32_t size_hint, uint32_t dbytes, int copyk) {
  return hash_create_ht(size_hint, dbytes, HASH_KEY_STR, copyk, 0, nullptr, nullptr);
}

void hash_str_ignore_spaces(hash_ht_t ht) {
  ht->hash_fn = hash_but_spaces;
  ht->compare_fn = equal_but_spaces;
}

int hash_str_enter(hash_ht_t ht, const char *key, const char **key_out, void **data_out) {
  return act<HashAction::kEnter>(ht, key, key_out, data_out);
}

int hash_str_lookup(hash_ht_t ht, const char *key, const char **key_out, void **data_out) {
  return act<HashAction::kLookUp>(ht, key, key_out, data_out);
}

int hash_str_free(hash_ht_t ht, const char *key, const char **key_out, void **data_out) {
  if (ht->copyk != 0) print<KS_MSG_HASH_COPIED_KEYS>(IMSG_TYPE_WARNING);
  return act<HashAction::kFree>(ht, key, key_out, data_out);
}

// The result is that of the entering: 1 tells that nothing was new.
int hash_str_enter_list(hash_ht_t ht, list_t *list) {
  int all_there = 1;
  void *text;
  list_element_t *element = nullptr;
  while ((element = list_next(list, element, &text)) != nullptr) {
    const char *key;
    void *data;
    if (hash_str_enter(ht, static_cast<const char *>(text), &key, &data) == 0) all_there = 0;
  }
  return all_there;
}

int hash_str_next(hash_ht_t ht, hash_scan_t **scan, const char **key_out, void **data_out) {
  return give_out(hash_next_cell(ht, scan), key_out, data_out);
}

int hash_str_next_in_order(hash_ht_t ht, hash_scan_t **scan, const char **key_out,
                           void **data_out) {
  return give_out(hash_next_cell_in_order(ht, scan), key_out, data_out);
}
