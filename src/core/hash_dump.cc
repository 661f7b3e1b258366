// Reports on a table, on standard output.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "core/hash_internal.h"
#include "msg/ks_stream.h"
#include "strutl.h"

using namespace ks;

namespace {

// Gathers a report in pieces large enough to be worth a write each. What is left of one that a fault
// leaves is dropped.
class Report {
 public:
  // At most a line, the texts of keys apart.
  [[gnu::format(printf, 2, 3)]] void add(const char *format, ...) {
    char text[kLongestLine];
    va_list args;
    va_start(args, format);
    const int length = strutl_vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (length > 0) add_bytes(text, static_cast<size_t>(length));
  }

  void add_bytes(const char *bytes, size_t size) {
    if (size > sizeof bytes_ - used_) write();
    if (size > sizeof bytes_) {
      write_to_stream(stdout, bytes, size);
    } else {
      memcpy(bytes_ + used_, bytes, size);
      used_ += size;
    }
  }

  void write() {
    write_to_stream(stdout, bytes_, used_);
    used_ = 0;
  }

 private:
  static constexpr size_t kLongestLine = 512;

  size_t used_ = 0;
  char bytes_[4096];
};

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

void dump_header(Report &report, hash_ht_t ht) {
  report.add("(hash) ht 0x%016lx: bkts=0x%016lx, #bkts=%lu, #cells=%lu, dbytes=%lu,\n", address(ht),
             address(ht->bkts), number(ht->bucket_count), number(ht->cells), number(ht->dbytes));
  report.add("       area=0x%016lx, keytype=%s, copyk=%c", address(ht->area),
             keytype_name(ht->keytype), letter(ht->copyk));
  if (ht->keytype == HASH_KEY_FLEN) report.add(", key_bytes=%lu", number(ht->key_bytes));
  report.add("\n");
  if (ht->limit == 0 && ht->order == 0) return;
  report.add("       limit=%lu, climit=%lu, order=%c, 1cell=0x%016lx, lcell=0x%016lx\n",
             number(ht->limit), number(ht->climit), letter(ht->order), address(ht->first),
             address(ht->last));
}

void dump_cell(Report &report, hash_ht_t ht, hash_cell_t *cell) {
  report.add("  cell 0x%016lx: ", address(cell));
  if (ht->keytype == HASH_KEY_INT) report.add("key=%ld, ", static_cast<long>(cell->key.word));
  report.add("hval=%u, datap=0x%016lx, next=0x%016lx", cell->hval, address(hash_data(cell)),
             address(cell->next));
  if (ht->order != 0) {
    const HashOrder &links = HashOrder::of(cell);
    report.add(", order=0x%016lx, back=0x%016lx", address(links.order), address(links.back));
  }
  report.add("\n");
  if (ht->keytype != HASH_KEY_STR) return;
  const char *key = static_cast<const char *>(cell->key.block);
  if (key == nullptr) key = "(null)";
  report.add("    key=\"");
  report.add_bytes(key, strlen(key));
  report.add("\"\n");
}

}  // namespace

void hash_dump_stats(hash_ht_t ht) {
  constexpr int kLengths = 50;  // longer chains are not counted
  int chains[kLengths] = {};
  Report report;
  report.add("-------------------------- Hash Table Statistics ------------------------------\n");
  for (uint32_t bucket = 0; bucket < ht->bucket_count; ++bucket) {
    const int length = chain_length(ht->bkts[bucket]);
    if (length > 0) report.add("bucket %lu: %d\n", number(bucket), length);
    if (length < kLengths) ++chains[length];
  }
  const int freed = chain_length(ht->free_list);
  if (freed > 0) report.add("Number of entries on free list: %d\n", freed);
  report.add("\nnumber of buckets: %lu\nnumber of cells: %lu\n", number(ht->bucket_count),
             number(ht->cells));
  for (int length = 0; length < kLengths; ++length) {
    if (chains[length] > 0) report.add("#buckets with %d entries: %d\n", length, chains[length]);
  }
  report.write();
}

void hash_dump(hash_ht_t ht) {
  Report report;
  report.add("-------------------------- Hash Table Dump ------------------------------------\n");
  dump_header(report, ht);
  for (uint32_t bucket = 0; bucket < ht->bucket_count; ++bucket) {
    hash_cell_t *cell = ht->bkts[bucket];
    if (cell != nullptr) report.add("bucket %lu:\n", number(bucket));
    for (; cell != nullptr; cell = cell->next) dump_cell(report, ht, cell);
  }
  report.write();
}
