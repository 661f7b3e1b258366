/* tally: counts the lines and bytes of files, and of all files below folders. A model of a program on
 * libnorvaks: all text comes from a message table, what fails is reported once and the rest goes on,
 * and what is open or temporary hangs on a cleanup record, so that no interrupt leaves it behind. */
#define _POSIX_C_SOURCE 200809L

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <norvaks/imsg.h>
#include <norvaks/pfm.h>
#include <norvaks/stg.h>
#include <norvaks/strutl.h>

#include "folders.h"
#include "tally_msg.h"

static stg_area_t area; /* of the folders' totals */
static struct counts total;
static unsigned long long files; /* counted so far */
static int failures;             /* reported so far */
static FILE *records;            /* temporary file: the counts and the path of each file */
static char records_path[PATH_MAX];

static void report_failure(int message, const char *path) {
  imsg_print(IMSG_TYPE_ERROR, tally_msg_table, message, path, imsg_strerror(errno));
  ++failures;
}

static int count_descriptor(int fd, struct counts *counts) {
  char block[65536];
  ssize_t got;
  while ((got = read(fd, block, sizeof block)) > 0 || (got < 0 && errno == EINTR)) {
    if (got < 0) continue; /* stopped and continued */
    const char *end = block + got;
    counts->bytes += (unsigned long long)got;
    for (const char *at = block; (at = memchr(at, '\n', (size_t)(end - at))) != NULL; ++at) {
      ++counts->lines;
    }
  }
  return (int)got;
}

static void record_file(const char *path, const struct counts *counts) {
  pfm_inhibit(); /* a file is recorded and in all totals, or in none */
  fwrite(counts, sizeof *counts, 1, records);
  fwrite(path, strlen(path) + 1, 1, records);
  if (!folders_add(path, counts)) ++failures;
  add_counts(&total, counts);
  ++files;
  pfm_enable();
}

static void count_path(const char *path);

/* Below a folder only regular files and folders count; a link is what it is, a link. */
static void count_entry(const char *folder, const char *name) {
  char path[PATH_MAX];
  struct stat info;
  if (strcmp(name, ".") == 0 || strcmp(name, "..") == 0) return;
  errno = ENAMETOOLONG;
  if (strutl_concat(path, sizeof path, 3, folder, "/", name) || lstat(path, &info) != 0) {
    report_failure(TALLY_MSG_OPEN_FAILED, path);
  } else if (S_ISDIR(info.st_mode) || S_ISREG(info.st_mode)) {
    count_path(path);
  }
}

static void count_content(const char *path, int fd, DIR *folder) {
  struct counts counts = {0, 0};
  if (imsg_get_desired_verbosity() >= 1 && imsg_should_trace("tally", 1)) {
    imsg_print(IMSG_TYPE_TRACE, tally_msg_table, TALLY_MSG_COUNTING, path);
  }
  if (folder != NULL) {
    for (const struct dirent *entry; (entry = readdir(folder)) != NULL;) {
      count_entry(path, entry->d_name);
    }
  } else if (count_descriptor(fd, &counts) == 0) {
    record_file(path, &counts);
  } else {
    report_failure(TALLY_MSG_READ_FAILED, path);
  }
}

static void close_path(int fd, DIR *folder) {
  if (folder != NULL) closedir(folder);
  if (folder == NULL && fd >= 0) close(fd);
}

static void count_path(const char *path) {
  pfm_cleanup_rec_t rec;
  volatile int fd = -1;
  DIR *volatile folder = NULL; /* has taken the descriptor over */
  int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    close_path(fd, folder);
    pfm_raise(status);
  }
  do {
    pfm_inhibit(); /* no signal comes between the opening and its result */
    fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd >= 0) folder = fdopendir(fd);
    pfm_enable();
  } while (fd < 0 && errno == EINTR);
  if (fd >= 0) count_content(path, fd, folder);
  if (fd < 0) report_failure(TALLY_MSG_OPEN_FAILED, path);
  pfm_inhibit(); /* closed and released are one step */
  close_path(fd, folder);
  pfm_cleanup_rls(&rec);
  pfm_enable();
}

static int start(void) {
  const char *tmp = getenv("TMPDIR");
  strutl_concat(records_path, sizeof records_path, 2, tmp != NULL ? tmp : "/tmp", "/tally.XXXXXX");
  pfm_inhibit();
  int fd = mkstemp(records_path);
  records = fd >= 0 ? fdopen(fd, "w+") : NULL;
  area = records != NULL ? stg_create_area(32000) : STG_AREA_NULL;
  if (area != STG_AREA_NULL) {
    stg_set_zero(area);
    folders_start(area);
  }
  pfm_enable();
  return area != STG_AREA_NULL;
}

static void release(void) {
  folders_end();
  if (area != STG_AREA_NULL) stg_delete_area(&area);
  if (records == NULL) return;
  fclose(records);
  unlink(records_path);
  records = NULL;
}

/* The columns are as wide as the totals, which is why the counts wait in a file until the end. */
static void print_report(void) {
  const int lines_width = snprintf(NULL, 0, "%llu", total.lines);
  const int bytes_width = snprintf(NULL, 0, "%llu", total.bytes);
  struct counts counts;
  char path[PATH_MAX];
  rewind(records);
  while (fread(&counts, sizeof counts, 1, records) == 1) {
    size_t length = 0;
    for (int c; (c = getc(records)) > 0;) path[length++] = (char)c;
    path[length] = '\0';
    imsg_print(IMSG_TYPE_OK, tally_msg_table, TALLY_MSG_COUNTS, lines_width, counts.lines,
               bytes_width, counts.bytes, path);
  }
  folders_print(lines_width, bytes_width);
  imsg_print(IMSG_TYPE_OK, tally_msg_table, TALLY_MSG_TOTAL, lines_width, total.lines, bytes_width,
             total.bytes, files);
}

static void tally(int count, char **paths) {
  pfm_cleanup_rec_t rec;
  int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    release();
    pfm_raise(status);
  }
  if (start()) {
    for (int i = 0; i < count; ++i) count_path(paths[i]);
    print_report();
  } else {
    report_failure(TALLY_MSG_TEMPORARY_FAILED, records_path);
  }
  pfm_inhibit();
  release();
  pfm_cleanup_rls(&rec);
  pfm_enable();
}

static void say_interrupted(int status, void *counted) {
  if (status == PFM_STATUS_QUIT) {
    imsg_print(IMSG_TYPE_WARNING, tally_msg_table, TALLY_MSG_INTERRUPTED,
               *(unsigned long long *)counted);
  }
}

int main(int argc, char **argv) {
  setlocale(LC_ALL, "");
  imsg_set_app_name(argv[0]);
  pfm_on_exit(say_interrupted, &files);
  if (argc < 2) {
    imsg_print(IMSG_TYPE_ERROR, tally_msg_table, TALLY_MSG_USAGE);
    return 2;
  }
  tally(argc - 1, argv + 1);
  return failures == 0 ? 0 : 1;
}
