// Tables with integer keys.
#include "core/hash_walk.h"

using namespace ks;

namespace {

const void *as_key(intptr_t word) { return reinterpret_cast<const void *>(word); }

// The two lowest bits of a pointer to data are usually 0, so they are dropped.
uint32_t hash_of(hash_ht_t ht, intptr_t key) {
  return ht->hash_fn == nullptr ? static_cast<uint32_t>(key >> 2) : ht->hash_fn(as_key(key));
}

int give_out(hash_cell_t *cell, intptr_t **key_out, void **data_out) {
  *key_out = cell != nullptr ? &cell->key.word : nullptr;
  *data_out = cell != nullptr ? hash_data(cell) : nullptr;
  return cell != nullptr;
}

template <HashAction kAction>
int act(hash_ht_t ht, intptr_t key, intptr_t **key_out, void **data_out) {
  const auto holds = [&](const hash_cell_t *cell) {
    return ht->compare_fn == nullptr ? cell->key.word == key
                                     : ht->compare_fn(as_key(cell->key.word), as_key(key)) != 0;
  };
  const auto store = [&](hash_cell_t *cell) {
    cell->key.word = key;
    return true;
  };
  const uint32_t hash = hash_of(ht, key);
  // A compare function of the user's is asked about every cell of the chain.
  const uint8_t mark = ht->compare_fn == nullptr ? hash_mark(hash) : kHashAnyMark;
  const HashFound found = hash_act<kAction>(ht, hash, mark, holds, store);
  give_out(found.cell, key_out, data_out);
  return found.was_there;
}

}  // namespace

hash_ht_t hash_int_create(uint32_t size_hint, uint32_t dbytes) {
  return hash_create_ht(size_hint, dbytes, HASH_KEY_INT, 1, 0, nullptr, nullptr);
}

int hash_int_enter(hash_ht_t ht, intptr_t key, intptr_t **key_out, void **data_out) {
  return act<HashAction::kEnter>(ht, key, key_out, data_out);
}

int hash_int_lookup(hash_ht_t ht, intptr_t key, intptr_t **key_out, void **data_out) {
  return act<HashAction::kLookUp>(ht, key, key_out, data_out);
}

int hash_int_free(hash_ht_t ht, intptr_t key, intptr_t **key_out, void **data_out) {
  return act<HashAction::kFree>(ht, key, key_out, data_out);
}

int hash_int_next(hash_ht_t ht, hash_scan_t **scan, intptr_t **key_out, void **data_out) {
  return give_out(hash_next_cell(ht, scan), key_out, data_out);
}

int hash_int_next_in_order(hash_ht_t ht, hash_scan_t **scan, intptr_t **key_out, void **data_out) {
  return give_out(hash_next_cell_in_order(ht, scan), key_out, data_out);
}
