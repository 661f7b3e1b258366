#define _POSIX_C_SOURCE 200809L

#include "folders.h"

#include <errno.h>
#include <limits.h>
#include <stddef.h>
#include <string.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <norvaks/fileutl.h>
#include <norvaks/imsg.h>
#include <norvaks/rt.h>
#include <norvaks/stg.h>
#include <norvaks/strutl.h>

#include "files.h"
#include "show.h"
#include "watchd_msg.h"

enum {
  CHANGES = IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_TO,
  REMOVALS = IN_DELETE | IN_MOVED_FROM,
  WATCHED = CHANGES | REMOVALS | IN_MOVE_SELF | IN_ONLYDIR
};

struct folder {
  const char *path;
  int watch; /* -1 while it is gone */
  llist_d files;
};

typedef void (*file_routine_t)(llist_d *folder, const char *path);

static struct folder *folders;
static unsigned folder_count;
static int inotify = -1;

static void report(int type, int message, const char *path) {
  char shown[SHOW_SIZE];
  const char *reason = imsg_strerror(errno);
  imsg_print(type, watchd_msg_table, message, show_string(shown, path), reason);
}

unsigned folders_named(void) { return folder_count; }

unsigned folders_watched(void) {
  unsigned count = 0;
  for (unsigned i = 0; i < folder_count; ++i) count += folders[i].watch >= 0;
  return count;
}

static struct folder *folder_of(int watch) {
  for (unsigned i = 0; i < folder_count; ++i) {
    if (folders[i].watch == watch) return &folders[i];
  }
  return NULL;
}

/* The path of an entry; result: 0, or 1 when it is too long. */
static int join(char path[PATH_MAX], const struct folder *folder, const char *name) {
  const char *separator = strutl_match_last_char(folder->path, '/') ? "" : "/";
  if (!strutl_concat(path, PATH_MAX, 3, folder->path, separator, name)) return 0;
  errno = ENAMETOOLONG;
  report(IMSG_TYPE_ERROR, WATCHD_MSG_FOLLOW_FAILED, path);
  return 1;
}

/* Calls `routine` for each entry of a folder. Result: 1, or 0 when the folder cannot be read. */
static int for_each_entry(struct folder *folder, file_routine_t routine) {
  char path[PATH_MAX];
  fileutl_dir_t *entries = fileutl_opendir(folder->path);
  int good = entries != NULL;
  while (good) {
    errno = 0; /* at the end it stays so */
    const fileutl_dirent_t *entry = fileutl_readdir(entries, 0);
    if (entry == NULL) break;
    if (!join(path, folder, entry->d_name)) routine(&folder->files, path);
  }
  good = good && errno == 0;
  if (!good) report(IMSG_TYPE_ERROR, WATCHD_MSG_READ_FAILED, folder->path);
  if (entries != NULL) fileutl_closedir(entries);
  return good;
}

/* Of a folder that is gone the system has taken the watch back already. */
static void stop_watch(struct folder *folder) {
  inotify_rm_watch(inotify, folder->watch);
  folder->watch = -1;
}

/* Has the folder watched that its path names now. Result: 1 when it is, 0 after a message. */
static int watch(struct folder *folder) {
  const int before = folder->watch;
  const int now = inotify_add_watch(inotify, folder->path, WATCHED);
  if (now == before && now >= 0) return 1;
  if (now < 0) report(IMSG_TYPE_ERROR, WATCHD_MSG_WATCH_FAILED, folder->path);
  if (before >= 0) stop_watch(folder);
  if (now < 0) return 0;
  if (folder_of(now) != NULL) {
    report(IMSG_TYPE_ERROR, WATCHD_MSG_WATCHED_ALREADY, folder->path);
    return 0;
  }
  folder->watch = now;
  report(IMSG_TYPE_OK, WATCHD_MSG_WATCHING, folder->path);
  return 1;
}

static void read_again(struct folder *folder) {
  if (!watch(folder)) return;
  files_forget_missing(&folder->files);
  for_each_entry(folder, file_looked_at);
}

void folders_read_again(void) {
  for (unsigned i = 0; inotify >= 0 && i < folder_count; ++i) read_again(&folders[i]);
}

static void lose(struct folder *folder) {
  report(IMSG_TYPE_WARNING, WATCHD_MSG_GONE, folder->path);
  stop_watch(folder); /* where it was only moved, it would go on under a wrong name */
}

static void take_event(const struct inotify_event *event) {
  struct folder *folder = folder_of(event->wd);
  char path[PATH_MAX];
  if ((event->mask & IN_Q_OVERFLOW) != 0) {
    imsg_print(IMSG_TYPE_WARNING, watchd_msg_table, WATCHD_MSG_OVERFLOW);
    folders_read_again();
  } else if (folder == NULL) {
    return; /* of a watch that has been given up */
  } else if ((event->mask & (IN_IGNORED | IN_MOVE_SELF)) != 0) {
    lose(folder);
  } else if ((event->mask & IN_ISDIR) != 0 || join(path, folder, event->name)) {
    return;
  } else if ((event->mask & CHANGES) != 0) {
    file_changed(&folder->files, path);
  } else {
    file_removed(path);
  }
}

static void on_events(int fd, void *arg) {
  _Alignas(struct inotify_event) char block[65536];
  const ssize_t got = read(fd, block, sizeof block);
  (void)arg;
  if (got < 0 && errno != EAGAIN && errno != EINTR) {
    report(IMSG_TYPE_ERROR, WATCHD_MSG_READ_FAILED, "inotify");
  }
  for (ssize_t at = 0; at < got;) {
    const struct inotify_event *event = (const struct inotify_event *)(const void *)(block + at);
    take_event(event);
    at += (ssize_t)(sizeof *event + event->len);
  }
}

int folders_start(char **paths, unsigned count) {
  folders = stg_malloc(count * sizeof *folders);
  inotify = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  int ready = folders != NULL && inotify >= 0;
  if (ready && !rt_handle_fd(RT_FD_READ, on_events, inotify, NULL)) {
    ready = 0;
    errno = EMFILE;
  }
  if (!ready) {
    report(IMSG_TYPE_ERROR, WATCHD_MSG_WATCH_FAILED, paths[0]);
    return 0;
  }
  int good = 1;
  memset(folders, 0, count * sizeof *folders);
  for (; folder_count < count; ++folder_count) {
    struct folder *folder = &folders[folder_count];
    folder->path = paths[folder_count];
    folder->watch = -1;
    good = watch(folder) && for_each_entry(folder, file_known) && good;
  }
  return good;
}

void folders_stop(void) {
  if (inotify < 0) return;
  rt_unhandle_fd(RT_FD_READ, inotify);
  close(inotify);
  inotify = -1;
}

void folders_end(void) {
  folders_stop();
  for (unsigned i = 0; i < folder_count; ++i) files_forget_all(&folders[i].files);
  stg_free(folders);
}
