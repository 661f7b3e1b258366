// Reports on a table, on standard output.
#include <cstdio>

#include "core/hash_internal.h"

using namespace ks;

namespace {

unsigned long address(const void *object) { return reinterpret_cast<unsigned long>(object); }

unsigned long number(uint32_t value) { return value; }

char letter(int flag) { return flag != 0 ? 'T' : 'F'; }

const char *keytype_name(int keytype) {
  switch (keytype) {
    case HASH_KEY_INT:
      return "HASH_KEY_INT";
    case HASH_KEY_STR:
      return "HASH_KEY_STR";
    case HASH_KEY_FLEN:
      return "HASH_KEY_FLEN";
    default:
      return "*unknown*";
  }
}

int chain_length(const hash_cell_t *cell) {
  int length = 0;
  for (; cell != nullptr; cell = cell->next) ++length;
  return length;
}

void dump_header(hash_ht_t ht) {
  printf("(hash) ht 0x%016lx: bkts=0x%016lx, #bkts=%lu, #cells=%lu, dbytes=%lu,\n", address(ht),
         address(ht->bkts), number(ht->bucket_count), number(ht->cells), number(ht->dbytes));
  printf("       area=0x%016lx, keytype=%s, copyk=%c", address(ht->area), keytype_name(ht->keytype),
         letter(ht->copyk));
  if (ht->keytype == HASH_KEY_FLEN) printf(", key_bytes=%lu", number(ht->key_bytes));
  printf("\n");
  if (ht->limit == 0 && ht->order == 0) return;
  printf("       limit=%lu, climit=%lu, order=%c, 1cell=0x%016lx, lcell=0x%016lx\n",
         number(ht->limit), number(ht->climit), letter(ht->order), address(ht->first),
         address(ht->last));
}

void dump_cell(hash_ht_t ht, hash_cell_t *cell) {
  printf("  cell 0x%016lx: ", address(cell));
  if (ht->keytype == HASH_KEY_INT) printf("key=%ld, ", static_cast<long>(cell->key.word));
  printf("hval=%u, datap=0x%016lx, next=0x%016lx", cell->hval, address(hash_data(cell)),
         address(cell->next));
  if (ht->order != 0) {
    const HashOrder &links = HashOrder::of(cell);
    printf(", order=0x%016lx, back=0x%016lx", address(links.order), address(links.back));
  }
  printf("\n");
  if (ht->keytype != HASH_KEY_STR) return;
  const char *key = static_cast<const char *>(cell->key.block);
  printf("    key=\"%s\"\n", key != nullptr ? key : "(null)");
}

}  // namespace

void hash_dump_stats(hash_ht_t ht) {
  constexpr int kLengths = 50;  // longer chains are not counted
  int chains[kLengths] = {};
  puts("-------------------------- Hash Table Statistics ------------------------------");
  for (uint32_t bucket = 0; bucket < ht->bucket_count; ++bucket) {
    const int length = chain_length(ht->bkts[bucket]);
    if (length > 0) printf("bucket %lu: %d\n", number(bucket), length);
    if (length < kLengths) ++chains[length];
  }
  const int freed = chain_length(ht->free_list);
  if (freed > 0) printf("Number of entries on free list: %d\n", freed);
  printf("\nnumber of buckets: %lu\nnumber of cells: %lu\n", number(ht->bucket_count),
         number(ht->cells));
  for (int length = 0; length < kLengths; ++length) {
    if (chains[length] > 0) printf("#buckets with %d entries: %d\n", length, chains[length]);
  }
}

void hash_dump(hash_ht_t ht) {
  puts("-------------------------- Hash Table Dump ------------------------------------");
  dump_header(ht);
  for (uint32_t bucket = 0; bucket < ht->bucket_count; ++bucket) {
    hash_cell_t *cell = ht->bkts[bucket];
    if (cell != nullptr) printf("bucket %lu:\n", number(bucket));
    for (; cell != nullptr; cell = cell->next) dump_cell(ht, cell);
  }
}
