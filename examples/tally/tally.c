/* tally: counts the lines and bytes of files, and of all files below folders, or of those that have
 * changed since a date. A model of a program on
 * libnorvaks: all text comes from a message table, what fails is reported once and the rest goes on,
 * and what is open or temporary hangs on a cleanup record, so that no interrupt leaves it behind. */
#define _GNU_SOURCE 1 /* what a stat record holds */

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <locale.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <norvaks/date.h>
#include <norvaks/fileutl.h>
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
static int32_t since;            /* files that have not changed since then don't count */
static int follow;               /* symbolic links below folders, too */
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

static void count_content(const char *path, int fd) {
  struct counts counts = {0, 0};
  if (imsg_get_desired_verbosity() >= 1 && imsg_should_trace("tally", 1)) {
    imsg_print(IMSG_TYPE_TRACE, tally_msg_table, TALLY_MSG_COUNTING, path);
  }
  if (count_descriptor(fd, &counts) == 0) {
    record_file(path, &counts);
  } else {
    report_failure(TALLY_MSG_READ_FAILED, path);
  }
}

static void count_file(const char *path) {
  pfm_cleanup_rec_t rec;
  volatile int fd = -1;
  int status = PFM_CLEANUP_START(&rec, 0);
  if (status != 0) {
    if (fd >= 0) close(fd);
    pfm_raise(status);
  }
  do {
    pfm_inhibit(); /* no signal comes between the opening and its result */
    fd = open(path, O_RDONLY | O_CLOEXEC);
    pfm_enable();
  } while (fd < 0 && errno == EINTR);
  if (fd >= 0) count_content(path, fd);
  if (fd < 0) report_failure(TALLY_MSG_OPEN_FAILED, path);
  pfm_inhibit(); /* closed and released are one step */
  if (fd >= 0) close(fd);
  pfm_cleanup_rls(&rec);
  pfm_enable();
}

/* Called for each object of a walk. Below a folder only regular files count; what was named on the
 * command line counts whatever it is. */
static int visit(void *argument, const char *path, const char *root, const char *folder,
                 const char *name, const fileutl_stat_t *info, int phase, int depth) {
  (void)argument, (void)root, (void)folder, (void)name, (void)phase;
  if (S_ISDIR(info->st_mode) || (depth > 0 && !S_ISREG(info->st_mode))) return 0;
  if (info->st_mtime >= since) count_file(path);
  return 0;
}

static void count_path(const char *path) {
  const fileutl_walk_callback_t chain = {NULL, FILEUTL_WALK_BEFORE, visit, NULL};
  const int flags =
      FILEUTL_WALK_RECURSE | FILEUTL_WALK_FOLLOW_ROOT | (follow ? FILEUTL_WALK_FOLLOW_ALL : 0);
  if (fileutl_walk_tree(path, &chain, flags) != 0) ++failures; /* it has said what it can't read */
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

/* A date without a year, or a day of the week, is the last such one. */
static int take_date(const char *text) {
  if (date_str_to_time2(text, DATE_TO_PAST, &since) != 0) {
    imsg_print(IMSG_TYPE_ERROR, tally_msg_table, TALLY_MSG_BAD_DATE, text);
    imsg_print(IMSG_TYPE_ERROR_CONT, "%s", -1, date_usage_date_time());
    return 0;
  }
  imsg_print(IMSG_TYPE_OK, tally_msg_table, TALLY_MSG_SINCE, date_fmt_token_date_time(since));
  return 1;
}

/* Result: where the paths begin, or 0 after saying what is wrong. */
static int take_options(int argc, char **argv) {
  int at = 1;
  for (; at < argc && argv[at][0] == '-'; ++at) {
    if (strcmp(argv[at], "-follow") == 0) {
      follow = 1;
    } else if (strcmp(argv[at], "-since") == 0 && at + 1 < argc) {
      if (!take_date(argv[++at])) return 0;
    } else {
      break;
    }
  }
  if (at < argc && argv[at][0] != '-') return at;
  imsg_print(IMSG_TYPE_ERROR, tally_msg_table, TALLY_MSG_USAGE);
  return 0;
}

int main(int argc, char **argv) {
  setlocale(LC_ALL, "");
  imsg_set_app_name(argv[0]);
  pfm_on_exit(say_interrupted, &files);
  const int first = take_options(argc, argv);
  if (first == 0) return 2;
  tally(argc - first, argv + first);
  return failures == 0 ? 0 : 1;
}
