// Scans over the cells of a table.
#include "core/hash_walk.h"

using namespace ks;

constinit hash_cell_t ks::hash_no_cell = {};

bool ks::hash_start_scan(hash_scan_t **scan) {
  signals_held([&] {
    *scan = static_cast<hash_scan_t *>(stg_malloc(sizeof(hash_scan_t)));
    if (*scan != nullptr) **scan = {UINT32_MAX, &hash_no_cell};
  });
  return *scan != nullptr;
}

int hash_next(hash_ht_t ht, hash_scan_t **scan, hash_cell_t **cell) {
  *cell = hash_next_cell(ht, scan);
  return *cell != nullptr;
}

int hash_next_in_order(hash_ht_t ht, hash_scan_t **scan, hash_cell_t **cell) {
  *cell = hash_next_cell_in_order(ht, scan);
  return *cell != nullptr;
}

void hash_term_scan(hash_scan_t **scan) {
  signals_held([&] {
    stg_free(*scan);
    *scan = nullptr;
  });
}
