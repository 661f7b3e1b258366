// Tables with keys of a fixed length.
#include <cstring>

#include "core/hash_walk.h"

using namespace ks;

namespace {

uint32_t hash_of(hash_ht_t ht, const void *key) {
  if (ht->hash_fn != nullptr) return ht->hash_fn(key);
  return key != nullptr ? hash_bytes<unsigned char>(key, ht->key_bytes) : 0;
}

bool equal(hash_ht_t ht, const void *stored_key, const void *key) {
  if (ht->compare_fn != nullptr) return ht->compare_fn(stored_key, key) != 0;
  if (ht->key_bytes == 0) return true;
  if (stored_key == nullptr || key == nullptr) return stored_key == key;
  return memcmp(stored_key, key, ht->key_bytes) == 0;
}

// Where the cell keeps the copy of a key: the block that an earlier use has left in it, or a new
// one; NULL when there is no memory.
void *copy_block(hash_ht_t ht, const hash_cell_t *cell) {
  const void *block = cell->key.block;
  return block != nullptr ? const_cast<void *>(block) : stg_alloc(ht->area, ht->key_bytes);
}

bool store_key(hash_ht_t ht, hash_cell_t *cell, const void *key) {
  if (ht->copyk == 0 || key == nullptr) {
    cell->key.block = key;
    return true;
  }
  void *block = copy_block(ht, cell);
  if (block != nullptr) memcpy(block, key, ht->key_bytes);
  cell->key.block = block;
  return block != nullptr;
}

int give_out(hash_cell_t *cell, const void **key_out, void **data_out) {
  *key_out = cell != nullptr ? cell->key.block : nullptr;
  *data_out = cell != nullptr ? hash_data(cell) : nullptr;
  return cell != nullptr;
}

template <HashAction kAction>
int act(hash_ht_t ht, const void *key, const void **key_out, void **data_out) {
  if (key == nullptr) hash_report_null_key();
  const uint32_t hash = hash_of(ht, key);
  const auto holds = [&](const hash_cell_t *cell) {
    return cell->hval == hash && equal(ht, cell->key.block, key);
  };
  const auto store = [&](hash_cell_t *cell) { return store_key(ht, cell, key); };
  const HashFound found = hash_act<kAction>(ht, hash, hash_mark(hash), holds, store);
  give_out(found.cell, key_out, data_out);
  return found.was_there;
}

}  // namespace

hash_ht_t hash_flen_create(uint32_t size_hint, uint32_t dbytes, int copyk, uint32_t key_bytes) {
  return hash_flen_create_with_fns(size_hint, dbytes, copyk, key_bytes, nullptr, nullptr);
}

hash_ht_t hash_flen_create_with_fns(uint32_t size_hint, uint32_t dbytes, int copyk,
                                    uint32_t key_bytes, hash_fn_t hash_fn,
                                    hash_compare_fn_t compare_fn) {
  return hash_create_ht(size_hint, dbytes, HASH_KEY_FLEN, copyk, key_bytes, hash_fn, compare_fn);
}

int hash_flen_enter(hash_ht_t ht, const void *key, const void **key_out, void **data_out) {
  return act<HashAction::kEnter>(ht, key, key_out, data_out);
}

int hash_flen_lookup(hash_ht_t ht, const void *key, const void **key_out, void **data_out) {
  return act<HashAction::kLookUp>(ht, key, key_out, data_out);
}

int hash_flen_free(hash_ht_t ht, const void *key, const void **key_out, void **data_out) {
  return act<HashAction::kFree>(ht, key, key_out, data_out);
}

int hash_flen_next(hash_ht_t ht, hash_scan_t **scan, const void **key_out, void **data_out) {
  return give_out(hash_next_cell(ht, scan), key_out, data_out);
}

int hash_flen_next_in_order(hash_ht_t ht, hash_scan_t **scan, const void **key_out,
                            void **data_out) {
  return give_out(hash_next_cell_in_order(ht, scan), key_out, data_out);
}
