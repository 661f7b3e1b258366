/* hash.h: hash tables with integer, string and fixed-length keys.
 *
 * A table keeps, under each key, a block of `dbytes` bytes that the caller fills through the
 * pointer that entering the key gives out. It keeps its number of buckets unless hash_set_dynamic
 * lets it grow. Entries and copied keys live in an area of the table's own and go with it; a freed
 * entry is used again by a later one. The three families are alike, each for tables of its kind.
 *
 * Nothing here raises. Where there is no memory an error is printed: a creation then gives a table
 * that stays empty, and entering a key gives null pointers. Growth, and freeing the entry that a
 * scan stands on, break scans. Only hash_delete_ht takes a null handle. Not for signal routines.
 */
#ifndef KS_HASH_H
#define KS_HASH_H

#include <stdint.h>

#include "ks_api.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct hash_table *hash_ht_t;

/* The kinds of keys: an integer, a text up to its NUL, a block of `key_bytes` bytes. */
enum { HASH_KEY_INT = 0, HASH_KEY_STR = 1, HASH_KEY_FLEN = 2 };

/* A key as an entry holds it. */
typedef union hash_key {
  intptr_t word;     /* HASH_KEY_INT */
  const void *block; /* otherwise: the table's copy, or the caller's own key */
} hash_key_t;

/* An entry. The caller's `dbytes` bytes follow the record directly, aligned as a pointer is. */
typedef struct hash_cell {
  struct hash_cell *next; /* in the same bucket */
  hash_key_t key;
  uint32_t hval; /* hash of the key */
} hash_cell_t;

/* Where a scan stands: NULL before the first call and again behind the end. */
typedef struct hash_scan hash_scan_t;

/* The hash of a key, and whether two keys are equal (not 0 for yes): the one in the table and the
 * one that is looked for. A key of HASH_KEY_INT is given as the word itself, cast to a pointer; a
 * NULL key as NULL. The functions must not throw C++ exceptions. */
typedef uint32_t (*hash_fn_t)(const void *key);
typedef int (*hash_compare_fn_t)(const void *stored_key, const void *key);

/* hash_int_create, hash_str_create and hash_flen_create make a table with `size_hint` buckets,
 * taken up to the next prime of a fixed series, at most 1048573. With `copyk` not 0 keys are copied
 * into the table; otherwise they stay the caller's and must outlive their entries. `key_bytes` is
 * the length of each key.
 * Result: the handle, never NULL, to be given to hash_delete_ht. Without memory it prints "Out of
 *   memory" and the handle is that of one table, shared by all such creations, that stays empty. */
KS_API hash_ht_t hash_int_create(uint32_t size_hint, uint32_t dbytes);
KS_API hash_ht_t hash_str_create(uint32_t size_hint, uint32_t dbytes, int copyk);
KS_API hash_ht_t hash_flen_create(uint32_t size_hint, uint32_t dbytes, int copyk,
                                  uint32_t key_bytes);

/* The same with functions for keys whose bytes do not tell whether they are equal; NULL stands for
 * the built-in one. */
KS_API hash_ht_t hash_flen_create_with_fns(uint32_t size_hint, uint32_t dbytes, int copyk,
                                           uint32_t key_bytes, hash_fn_t hash_fn,
                                           hash_compare_fn_t compare_fn);

/* hash_create_ht makes a table of any kind; the functions above are easier. A function that is NULL
 * stands for the built-in one of the kind of keys. `key_bytes` is 0 but for HASH_KEY_FLEN. */
KS_API hash_ht_t hash_create_ht(uint32_t size_hint, uint32_t dbytes, int keytype, int copyk,
                                uint32_t key_bytes, hash_fn_t hash_fn,
                                hash_compare_fn_t compare_fn);

/* hash_delete_ht releases the table with its entries and copied keys and sets `*ht` to NULL; a null
 * handle is left alone. */
KS_API void hash_delete_ht(hash_ht_t *ht);

/* hash_set_dynamic lets the table grow whenever it has more than `limit` entries a bucket on
 * average; 0 keeps it as it is, which is also the state at the start. A table never shrinks.
 * Result: the number of entries above which it grows (in 32 bits, with wrap-around). */
KS_API uint32_t hash_set_dynamic(hash_ht_t ht, uint32_t limit);

/* hash_set_order has the entries linked in the order in which they are entered, for the scans in
 * order. It is for a table that never had an entry; later it changes nothing. */
KS_API void hash_set_order(hash_ht_t ht);

/* hash_str_ignore_spaces has an empty table of strings pass over white space (of the "C" locale)
 * wherever it stands in a key: "a b" and "ab" are one key. */
KS_API void hash_str_ignore_spaces(hash_ht_t ht);

/* hash_get_key_bytes gives the length of a fixed-length key; 0 for the other kinds. */
KS_API uint32_t hash_get_key_bytes(hash_ht_t ht);

/* Enter, look up and free: in `*key_out` and `*data_out` they give the key that the table holds and
 * the block of data of its entry; with integers `*key_out` points at the integer in the entry. Both
 * are NULL where no entry is found or made. Pointers live as long as their entry.
 *
 * hash_..._enter makes an entry unless there is one. Result: 1 when there was one already; 0 for a
 *   new one, whose data the caller fills in: zero bytes, or what a freed entry held.
 * A NULL key prints an error and is a key of its own. */
KS_API int hash_int_enter(hash_ht_t ht, intptr_t key, intptr_t **key_out, void **data_out);
KS_API int hash_str_enter(hash_ht_t ht, const char *key, const char **key_out, void **data_out);
KS_API int hash_flen_enter(hash_ht_t ht, const void *key, const void **key_out, void **data_out);

/* hash_..._lookup finds an entry. Result: 1 when there is one, 0 when not. */
KS_API int hash_int_lookup(hash_ht_t ht, intptr_t key, intptr_t **key_out, void **data_out);
KS_API int hash_str_lookup(hash_ht_t ht, const char *key, const char **key_out, void **data_out);
KS_API int hash_flen_lookup(hash_ht_t ht, const void *key, const void **key_out, void **data_out);

/* hash_..._free takes an entry out of the table. Result: 1 when there was one, 0 when not. What is
 * given out stays readable until the next key is entered. hash_str_free on a table that copies keys
 * prints a warning at each call: the copy's storage only comes back with the whole table. */
KS_API int hash_int_free(hash_ht_t ht, intptr_t key, intptr_t **key_out, void **data_out);
KS_API int hash_str_free(hash_ht_t ht, const char *key, const char **key_out, void **data_out);
KS_API int hash_flen_free(hash_ht_t ht, const void *key, const void **key_out, void **data_out);

/* hash_str_enter_list enters the strings of a list (list.h) and leaves their data alone.
 * Result: 1 when every one was there already, also for an empty list; 0 when one was new. */
struct list;
KS_API int hash_str_enter_list(hash_ht_t ht, struct list *list);

/* hash_..._next goes through the entries in the order of the buckets, from where `*scan`, at first
 * NULL, stands. Result: 1 with the next entry's key and data; at the end, or without memory for the
 * scan, 0 with NULL in all three. Several scans may go on at once. */
KS_API int hash_int_next(hash_ht_t ht, hash_scan_t **scan, intptr_t **key_out, void **data_out);
KS_API int hash_str_next(hash_ht_t ht, hash_scan_t **scan, const char **key_out, void **data_out);
KS_API int hash_flen_next(hash_ht_t ht, hash_scan_t **scan, const void **key_out, void **data_out);

/* The same in the order of entry, for tables that hash_set_order was called for; in others there is
 * nothing to be found. */
KS_API int hash_int_next_in_order(hash_ht_t ht, hash_scan_t **scan, intptr_t **key_out,
                                  void **data_out);
KS_API int hash_str_next_in_order(hash_ht_t ht, hash_scan_t **scan, const char **key_out,
                                  void **data_out);
KS_API int hash_flen_next_in_order(hash_ht_t ht, hash_scan_t **scan, const void **key_out,
                                   void **data_out);

/* hash_term_scan gives up a scan before its end and sets `*scan` to NULL. */
KS_API void hash_term_scan(hash_scan_t **scan);

/* hash_dump_stats prints the length of each chain, and how many chains have the same length, up to
 * 49. hash_dump prints the table and its entries; keys of fixed length are not shown. Both go to
 * standard output. */
KS_API void hash_dump_stats(hash_ht_t ht);
KS_API void hash_dump(hash_ht_t ht);

/* Below the families, for keys that are the caller's matter.
 *
 * hash_create_cell puts a new entry with the hash `hash` at the front of its bucket, and lets the
 * table grow. The caller sets its key; a freed entry that is used again has its old key and data.
 * Result: the entry, or NULL when there is no memory.
 * hash_free_cell takes an entry out; `previous_in_bucket` is the entry whose `next` it is, or NULL
 * when it is the first of its bucket.
 * hash_resize takes the table one step along the series of primes, unless there is no memory. */
KS_API hash_cell_t *hash_create_cell(hash_ht_t ht, uint32_t hash);
KS_API void hash_free_cell(hash_ht_t ht, hash_cell_t *cell, hash_cell_t *previous_in_bucket);
KS_API void hash_resize(hash_ht_t ht);

/* hash_next and hash_next_in_order are the scans over entries: 1 with the next one in `*cell`, 0 at
 * the end with NULL in `*cell` and `*scan`. */
KS_API int hash_next(hash_ht_t ht, hash_scan_t **scan, hash_cell_t **cell);
KS_API int hash_next_in_order(hash_ht_t ht, hash_scan_t **scan, hash_cell_t **cell);

#ifdef __cplusplus
}
#endif

#endif
