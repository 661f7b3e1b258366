// Walking a tree.
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "core/ks_frame.h"
#include "file/fileutl_internal.h"
#include "imsg.h"
#include "ks_msg.h"
#include "msg/ks_print.h"
#include "stg.h"
#include "strutl.h"
#include "sysutl.h"

using namespace ks;

namespace {

// An object, and what its callbacks are told of it besides.
struct Object {
  const char *directory;  // NULL at the root, as is the name
  const char *name;       // in the walk's path
  size_t path_length;
  int depth;
  fileutl_stat_t record;

  bool is_root() const { return name == nullptr; }
  bool is_directory() const { return S_ISDIR(record.st_mode); }
};

bool follows(const Walk &walk, const Object &object) {
  const int at_root = object.is_root() ? FILEUTL_WALK_FOLLOW_ROOT : 0;
  return (walk.flags & (FILEUTL_WALK_FOLLOW_ALL | at_root)) != 0;
}

// Whether a result of a callback, or of what callbacks gave together, ends the walk.
bool ends(const Walk &walk, int result) {
  if ((result & FILEUTL_WALK_STOP) != 0) return true;
  return result < 0 && (walk.flags & FILEUTL_WALK_STOP_ON_ERROR) != 0;
}

bool is_dot_or_dot_dot(const char *name) {
  return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

// The system takes a path of one byte less than the walk does. From the descriptor it would not
// notice a longer one.
bool fits(const Walk &walk, const Object &object) {
  return object.path_length < (walk.ops == nullptr ? PATH_MAX : kWalkPathSize);
}

int stat_object(const Walk &walk, Object &object) {
  if (!fits(walk, object)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  const bool follow = follows(walk, object);
  if (walk.ops != nullptr) return walk.ops->stat_object(walk.path, follow, &object.record);
  return fileutl_stat_at(walk_place(walk, object.name), follow, &object.record);
}

// Whether the directory has told all that is to be known of an object in it, which saves a stat. A
// directory is looked at: it is entered.
bool is_known(const Walk &walk, Object &object) {
  if (!walk.types_suffice || !walk.by_descriptor || !fits(walk, object)) return false;
  object.record = {};
  object.record.st_mode = walk.innermost->own.entry_type;
  return object.record.st_mode != 0 && !object.is_directory();
}

void push(WalkLevel *&top, WalkLevel *level) {
  level->outer = top;
  top = level;
}

WalkLevel *pop(WalkLevel *&top) {
  WalkLevel *level = top;
  top = level->outer;
  return level;
}

WalkLevel *take_level(Walk &walk) {
  if (walk.idle != nullptr) return pop(walk.idle);
  return static_cast<WalkLevel *>(stg_malloc(sizeof(WalkLevel)));
}

fileutl_dir_t *open_in(const Walk &walk, WalkLevel *level, const Object &object) {
  if (walk.ops != nullptr) return walk.ops->open_directory(walk.path);
  const FilePlace place = walk_place(walk, object.name);
  return fileutl_open_at(&level->own, place, follows(walk, object)) == 0 ? &level->own : nullptr;
}

// Opens a directory as the innermost one. False, with errno, when that fails. Signals are held, so
// that a fault finds it either on the chain or not open.
bool enter(Walk &walk, const Object &object) {
  bool opened = false;
  int error = 0;
  signals_held([&] {
    WalkLevel *level = take_level(walk);
    if (level != nullptr) {
      level->dir = open_in(walk, level, object);
      opened = level->dir != nullptr;
      push(opened ? walk.innermost : walk.idle, level);
    }
    error = errno;
  });
  errno = error;
  return opened;
}

// Closes the innermost directory.
void leave(Walk &walk) {
  signals_held([&] {
    WalkLevel *level = pop(walk.innermost);
    if (walk.ops != nullptr) {
      walk.ops->close_directory(level->dir);
    } else {
      close(level->own.fd);
    }
    push(walk.idle, level);
  });
}

void release(Walk &walk) {
  while (walk.innermost != nullptr) leave(walk);
  signals_held([&] {
    while (walk.idle != nullptr) stg_free(pop(walk.idle));
  });
}

// Calls those callbacks that are to run at this moment. The result has SKIP when the rest is to be
// left out.
int call_chain(const Walk &walk, const Object &object, int moment, int phase) {
  int status = 0;
  for (const fileutl_walk_callback_t *at = walk.chain; at != nullptr; at = at->next) {
    if (object.is_directory() && (at->when & moment) == 0) continue;
    const int result = at->function(at->argument, walk.path, walk.root, object.directory,
                                    object.name, &object.record, phase, object.depth);
    status |= result;
    if ((result & FILEUTL_WALK_SKIP) != 0 || ends(walk, result)) break;
  }
  return status;
}

const fileutl_dirent_t *read_entry(const Walk &walk) {
  WalkLevel *level = walk.innermost;
  if (walk.ops != nullptr) return walk.ops->read_directory(level->dir, 1);
  return fileutl_readdir(&level->own, 1);
}

int visit(Walk &walk, const Object &object);

// Visits what is in the directory just entered, whose path, with a slash behind it, is the first
// `prefix` bytes of the walk's.
int visit_entries(Walk &walk, size_t prefix, int depth) {
  int status = 0;
  Object child = {};
  child.directory = walk.directory;
  child.name = walk.path + prefix;
  child.depth = depth;
  while (const fileutl_dirent_t *entry = read_entry(walk)) {
    if (is_dot_or_dot_dot(entry->d_name)) continue;
    strutl_cpy_buf(walk.path + prefix, entry->d_name, sizeof entry->d_name);
    child.path_length = prefix + strlen(child.name);
    if (!is_known(walk, child) && stat_object(walk, child) != 0) {
      walk_report(walk, walk.path);
      status = FILEUTL_WALK_FAILED;
      continue;
    }
    const int result = visit(walk, child);
    status |= result;
    if (ends(walk, result)) break;
  }
  return status;
}

// The walk's texts get longer by a part while the contents are visited, and then are cut back.
int visit_contents(Walk &walk, const Object &object) {
  if (!enter(walk, object)) {
    walk_report(walk, walk.path);
    return FILEUTL_WALK_FAILED;
  }
  const size_t directory_length = strlen(walk.directory);
  if (!object.is_root()) {
    strutl_concat(walk.directory, sizeof walk.directory, 3, walk.directory,
                  directory_length > 0 ? "/" : "", object.name);
  }
  size_t prefix = object.path_length;
  if (prefix == 0 || walk.path[prefix - 1] != '/') walk.path[prefix++] = '/';
  const int status = visit_entries(walk, prefix, object.depth + 1);
  walk.path[object.path_length] = '\0';
  walk.directory[directory_length] = '\0';
  leave(walk);
  return status;
}

// The result has STOP when the walk is to end.
int visit(Walk &walk, const Object &object) {
  int status = call_chain(walk, object, FILEUTL_WALK_BEFORE, 1);
  if ((status & FILEUTL_WALK_SKIP) != 0 || ends(walk, status)) return status & ~FILEUTL_WALK_SKIP;
  if (!object.is_directory()) return status;
  if (!object.is_root() || (walk.flags & FILEUTL_WALK_RECURSE) != 0) {
    status |= visit_contents(walk, object);
    if (ends(walk, status)) return status;
  }
  // Below the root the phase stays 1: only the root's callbacks are told that it is over.
  status |= call_chain(walk, object, FILEUTL_WALK_AFTER, object.is_root() ? 2 : 1);
  return status & ~FILEUTL_WALK_SKIP;
}

int visit_root(Walk &walk) {
  Object root = {};
  root.path_length = strlen(walk.path);
  if (stat_object(walk, root) != 0) {
    walk_report(walk, walk.root);
    return FILEUTL_WALK_FAILED;
  }
  return visit(walk, root);
}

}  // namespace

FilePlace ks::walk_place(const Walk &walk, const char *name) {
  if (name == nullptr || !walk.by_descriptor) return {AT_FDCWD, walk.path};
  return {walk.innermost->own.fd, name};
}

void ks::walk_report(const Walk &walk, const char *path) {
  if ((walk.flags & FILEUTL_WALK_QUIET) != 0) return;
  print<KS_MSG_PAIR>(IMSG_TYPE_ERROR, path, imsg_strerror(errno));
}

int ks::run_walk(Walk &walk, const char *path, const fileutl_walk_callback_t *chain,
                 const fileutl_walk_ops_t *ops, int flags) {
  walk.chain = chain;
  walk.ops = ops;
  walk.flags = flags;
  // Where links are followed everywhere, only a path, with all the links in it, makes the system
  // notice that they lead round in a circle.
  walk.by_descriptor = ops == nullptr && (flags & FILEUTL_WALK_FOLLOW_ALL) == 0;
  walk.innermost = walk.idle = nullptr;
  walk.directory[0] = '\0';
  if (strutl_cpy_buf(walk.root, path, sizeof walk.root) != 0) {
    errno = ENAMETOOLONG;
    walk_report(walk, path);
    return FILEUTL_WALK_FAILED;
  }
  strutl_cpy_buf(walk.path, path, sizeof walk.path);
  sysutl_nfs_flush(walk.path);
  int status = 0;
  protect([&] { status = visit_root(walk); }, [&] { release(walk); });
  release(walk);
  return status & ~(FILEUTL_WALK_SKIP | FILEUTL_WALK_STOP);
}

int fileutl_walk_tree(const char *path, const fileutl_walk_callback_t *chain, int flags) {
  Walk walk;
  walk.types_suffice = false;
  return run_walk(walk, path, chain, nullptr, flags);
}

int fileutl_walk_tree_any(const char *path, const fileutl_walk_callback_t *chain,
                          const fileutl_walk_ops_t *ops, int flags) {
  Walk walk;
  walk.types_suffice = false;
  return run_walk(walk, path, chain, ops, flags);
}
