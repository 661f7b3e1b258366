#include "folders.h"

#include <string.h>

#include <norvaks/hash.h>
#include <norvaks/imsg.h>
#include <norvaks/sort.h>
#include <norvaks/strutl.h>

#include "tally_msg.h"

struct folder {
  const char *path; /* the key of the hash table */
  struct counts counts;
};

static stg_area_t area;
static hash_ht_t by_path; /* where in `area` the folder of a path is */
static size_t count;

void add_counts(struct counts *sum, const struct counts *counts) {
  sum->lines += counts->lines;
  sum->bytes += counts->bytes;
}

void folders_start(stg_area_t in) {
  area = in;
  by_path = hash_str_create(1000, sizeof(struct folder *), 1);
}

void folders_end(void) { hash_delete_ht(&by_path); }

struct counts *folder_counts(const char *file) {
  const char *separator = strutl_strrpbrk(file, "/"), *key;
  char path[4096] = ".";
  void *data;
  if (separator != NULL) strutl_ncpy_buf(path, file, (size_t)(separator - file), sizeof path);
  int known = hash_str_enter(by_path, path, &key, &data);
  struct folder **folder = data;
  if (folder == NULL) return NULL;
  if (!known) *folder = NULL;
  if (*folder == NULL && (*folder = stg_alloc(area, sizeof **folder)) != NULL) {
    (*folder)->path = key;
    ++count;
  }
  return *folder != NULL ? &(*folder)->counts : NULL;
}

static int compare(const void *first, const void *second, void *context) {
  (void)context;
  return strcmp((*(struct folder *const *)first)->path, (*(struct folder *const *)second)->path);
}

int folders_print(int lines_width, int bytes_width) {
  struct folder **sorted = stg_alloc(area, count * sizeof *sorted);
  hash_scan_t *scan = NULL;
  const char *key;
  void *data;
  size_t found = 0;
  if (sorted == NULL) return count == 0;
  while (hash_str_next(by_path, &scan, &key, &data)) {
    if (*(struct folder **)data != NULL) sorted[found++] = *(struct folder **)data;
  }
  ks_qsort(sorted, found, sizeof *sorted, compare, NULL);
  for (size_t i = 0; i < found; ++i) {
    imsg_print(IMSG_TYPE_OK, tally_msg_table, TALLY_MSG_FOLDER, lines_width,
               sorted[i]->counts.lines, bytes_width, sorted[i]->counts.bytes, sorted[i]->path);
  }
  return 1;
}
