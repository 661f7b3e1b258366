// A program that is compiled without large files: it is only ever checked by the compiler.
#include <fileutl.h>

static_assert(sizeof(fileutl_stat_t::st_size) == 8);
static_assert(sizeof(fileutl_stat_t::st_ino) == 8);
static_assert(sizeof(fileutl_stat_t::st_blocks) == 8);
static_assert(sizeof(fileutl_statfs_record_t) == 48);
static_assert(sizeof(off_t) == sizeof(long), "large files are on");

int size_is_zero(const char *path) {
  fileutl_stat_t record;
  return fileutl_stat(path, 1, &record) == 0 && record.st_size == 0;
}
