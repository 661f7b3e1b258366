#define _POSIX_C_SOURCE 200809L

#include "files.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>

#include <norvaks/hash.h>
#include <norvaks/imsg.h>
#include <norvaks/rt.h>
#include <norvaks/stg.h>

#include "job.h"
#include "show.h"
#include "watchd_msg.h"

/* What tells one state of a file's contents from another. */
struct stamp {
  struct timespec modified;
  off_t size;
  ino_t inode;
};

struct file {
  llist_d in_folder;
  llist_d in_queue;       /* when its turn to run has not come */
  struct rt_event *quiet; /* while changes may follow */
  int running;
  int again; /* it was changed or removed while it ran */
  struct stamp stamp;
  char path[];
};

static hash_ht_t by_path; /* where the record of a path is */
static llist_d queue;
static unsigned waiting_count, queued_count;
static int stopping;

static const char *command;
static struct timeval quiet_time;
static unsigned most_jobs;

unsigned files_waiting(void) { return waiting_count; }
unsigned files_queued(void) { return queued_count; }

void files_start(const char *script, const struct timeval *quiet, unsigned jobs) {
  command = script;
  quiet_time = *quiet;
  most_jobs = jobs;
  by_path = hash_str_create(1000, sizeof(struct file *), 0);
  hash_set_dynamic(by_path, 2);
}

void files_end(void) { hash_delete_ht(&by_path); }

static struct file *file_of(const char *path) {
  const char *key;
  void *data;
  return hash_str_lookup(by_path, path, &key, &data) ? *(struct file **)data : NULL;
}

static void report_unfollowed(const char *path) {
  char shown[SHOW_SIZE];
  const char *reason = imsg_strerror(errno);
  imsg_print(IMSG_TYPE_ERROR, watchd_msg_table, WATCHD_MSG_FOLLOW_FAILED, show_string(shown, path),
             reason);
}

/* Makes the record of a path that has none. */
static struct file *new_file(llist_d *folder, const char *path) {
  const size_t size = strlen(path) + 1;
  struct file *file = stg_malloc(sizeof *file + size);
  const char *key;
  void *data = NULL;
  if (file != NULL) {
    memset(file, 0, sizeof *file);
    memcpy(file->path, path, size);
    hash_str_enter(by_path, file->path, &key, &data);
  }
  if (data == NULL) {
    errno = ENOMEM;
    report_unfollowed(path);
    stg_free(file);
    return NULL;
  }
  *(struct file **)data = file;
  llist_d_insert(folder, file, &file->in_folder, LLIST_D_LAST);
  return file;
}

static void leave_queue(struct file *file) {
  if (file->in_queue.next == NULL) return;
  llist_d_remove(&file->in_queue);
  --queued_count;
}

static void stop_waiting(struct file *file) {
  if (file->quiet == NULL) return;
  rt_unsched(file->quiet);
  file->quiet = NULL;
  --waiting_count;
}

static void forget(struct file *file) {
  const char *key;
  void *data;
  stop_waiting(file);
  leave_queue(file);
  llist_d_remove(&file->in_folder);
  hash_str_free(by_path, file->path, &key, &data);
  stg_free(file);
}

/* Result: whether there is a regular file, whose stamp is given. */
static int read_stamp(const char *path, struct stamp *stamp) {
  struct stat info;
  if (lstat(path, &info) != 0) {
    if (errno != ENOENT && errno != ENOTDIR) report_unfollowed(path);
    return 0;
  }
  if (!S_ISREG(info.st_mode)) return 0;
  stamp->modified = info.st_mtim;
  stamp->size = info.st_size;
  stamp->inode = info.st_ino;
  return 1;
}

static int same(const struct stamp *one, const struct stamp *other) {
  return one->modified.tv_sec == other->modified.tv_sec &&
         one->modified.tv_nsec == other->modified.tv_nsec && one->size == other->size &&
         one->inode == other->inode;
}

static void on_done(void *arg);

/* One that could not be started counts as not seen yet. */
static void run(struct file *file) {
  struct stamp stamp;
  if (!read_stamp(file->path, &stamp)) {
    forget(file);
  } else if (job_start(command, file->path, on_done, file)) {
    file->running = 1;
    file->stamp = stamp;
  } else {
    memset(&file->stamp, 0, sizeof file->stamp);
  }
}

static void run_queued(void) {
  while (!stopping && queue.next != NULL && queue.next != &queue && jobs_running() < most_jobs) {
    struct file *file = queue.next->data;
    leave_queue(file);
    run(file);
  }
}

static void enter_queue(struct file *file) {
  llist_d_insert(&queue, file, &file->in_queue, LLIST_D_LAST);
  ++queued_count;
  run_queued();
}

static void on_done(void *arg) {
  struct file *file = arg;
  file->running = 0;
  if (stopping) {
    if (jobs_running() == 0) rt_shutdown();
    return;
  }
  if (file->again) {
    file->again = 0;
    enter_queue(file);
  } else {
    run_queued();
  }
}

static void on_quiet(void *arg) {
  struct file *file = arg;
  file->quiet = NULL;
  --waiting_count;
  if (file->running) {
    file->again = 1;
  } else {
    enter_queue(file);
  }
}

/* Without storage for the event the file runs as if it were quiet, rather than never. */
static void wait_for_quiet(struct file *file) {
  stop_waiting(file);
  leave_queue(file);
  file->again = 0;
  ++waiting_count;
  file->quiet = rt_sched_rel(on_quiet, file, &quiet_time);
  if (file->quiet == NULL) on_quiet(file);
}

void file_known(llist_d *folder, const char *path) {
  struct stamp stamp;
  if (file_of(path) != NULL || !read_stamp(path, &stamp)) return;
  struct file *file = new_file(folder, path);
  if (file != NULL) file->stamp = stamp;
}

void file_changed(llist_d *folder, const char *path) {
  struct file *file = file_of(path);
  if (imsg_get_desired_verbosity() >= 1 && imsg_should_trace("watchd", 1)) {
    char shown[SHOW_SIZE];
    imsg_print(IMSG_TYPE_TRACE, watchd_msg_table, WATCHD_MSG_CHANGED, show_string(shown, path));
  }
  if (file == NULL) file = new_file(folder, path);
  if (file != NULL) wait_for_quiet(file);
}

void file_looked_at(llist_d *folder, const char *path) {
  const struct file *file = file_of(path);
  struct stamp stamp;
  if (!read_stamp(path, &stamp)) return;
  if (file == NULL || !same(&file->stamp, &stamp)) file_changed(folder, path);
}

/* One that runs is found missing, or not, when it has ended. */
void file_removed(const char *path) {
  struct file *file = file_of(path);
  if (file == NULL) return;
  if (!file->running) {
    forget(file);
    return;
  }
  stop_waiting(file);
  file->again = 1;
}

void files_forget_missing(llist_d *folder) {
  struct stamp stamp;
  for (llist_d *at = folder->next, *next; at != NULL && at != folder; at = next) {
    struct file *file = at->data;
    next = at->next;
    if (!file->running && !read_stamp(file->path, &stamp)) forget(file);
  }
}

void files_forget_all(llist_d *folder) {
  while (folder->next != NULL && folder->next != folder) forget(folder->next->data);
}

void files_stop(void) {
  stopping = 1;
  if (jobs_running() == 0) rt_shutdown();
}
