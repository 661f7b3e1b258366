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

constexpr int kNoStatus = FILEUTL_WALK_SKIP | FILEUTL_WALK_STOP;

// What callbacks, and the walk itself, have given so far. A failure is noted apart: statuses that
// are none, such as -8 and 4, may add up to the bits of one.
struct Result {
  int bits = 0;
  bool failed = false;

  void add(int single) { add(Result{single, (single & ~kNoStatus) == FILEUTL_WALK_FAILED}); }
  void add(const Result &other) {
    bits |= other.bits;
    failed |= other.failed;
  }
  bool skips() const { return (bits & FILEUTL_WALK_SKIP) != 0; }
};

constexpr Result kFailure = {FILEUTL_WALK_FAILED, true};

bool ends(const Walk &walk, const Result &result) {
  if ((result.bits & FILEUTL_WALK_STOP) != 0) return true;
  return result.failed && (walk.flags & FILEUTL_WALK_STOP_ON_ERROR) != 0;
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

// Whether the shortcut has done all that is to be done about an entry. Where it cannot, only a stat
// tells what the walk has to say.
bool is_done(const Walk &walk, const Object &object) {
  if (walk.shortcut == nullptr || !walk.by_descriptor || !fits(walk, object)) return false;
  const mode_t type = walk.innermost->own.entry_type;
  return type != 0 && !S_ISDIR(type) && walk.shortcut(walk_place(walk, object.name));
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
  if (walk.ops != nullptr) return fileutl_opendir(walk.path);
  const FilePlace place = walk_place(walk, object.name);
  return fileutl_open_at(&level->own, place, follows(walk, object)) == 0 ? &level->own : nullptr;
}

// For operations that are not the library's own: they may wait, so signals are not held. The level
// is on the chain before the directory is open, and the handle is stored by the instruction behind
// the call, so that a fault finds it.
bool enter_by_caller(Walk &walk) {
  WalkLevel *level = nullptr;
  signals_held([&] {
    level = take_level(walk);
    if (level == nullptr) return;
    level->dir = nullptr;
    push(walk.innermost, level);
  });
  if (level == nullptr) return false;
  level->dir = walk.ops->open_directory(walk.path);
  if (level->dir != nullptr) return true;
  const int error = errno;
  signals_held([&] { push(walk.idle, pop(walk.innermost)); });
  errno = error;
  return false;
}

// Opens a directory as the innermost one. False, with errno, when that fails. Signals are held, so
// that a fault finds it either on the chain or not open.
bool enter(Walk &walk, const Object &object) {
  if (walk.ops != nullptr && walk.ops->open_directory != fileutl_opendir) {
    return enter_by_caller(walk);
  }
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

// For operations that are not the library's own. The handle is theirs from right before the call: a
// fault that leaves it must not have the directory closed twice.
void close_by_caller(const Walk &walk) {
  WalkLevel *level = walk.innermost;
  fileutl_dir_t *dir = level->dir;
  level->dir = nullptr;
  if (dir != nullptr) walk.ops->close_directory(dir);
}

void close_own(WalkLevel *level) {
  if (level->dir == &level->own) {
    close(level->own.fd);
  } else if (level->dir != nullptr) {
    fileutl_close_own(level->dir);
  }
}

// Closes the innermost directory.
void leave(Walk &walk) {
  const bool by_caller = walk.ops != nullptr && walk.ops->close_directory != fileutl_closedir;
  if (by_caller) close_by_caller(walk);
  signals_held([&] {
    if (!by_caller) close_own(walk.innermost);
    push(walk.idle, pop(walk.innermost));
  });
}

// Also the cleanup of a walk that a fault leaves: only then a caller's closing runs held.
void release(Walk &walk) {
  while (walk.innermost != nullptr) leave(walk);
  signals_held([&] {
    while (walk.idle != nullptr) stg_free(pop(walk.idle));
  });
}

// Calls those callbacks that are to run at this moment. The result has SKIP when the rest is to be
// left out.
Result call_chain(const Walk &walk, const Object &object, int moment, int phase) {
  Result result;
  for (const fileutl_walk_callback_t *at = walk.chain; at != nullptr; at = at->next) {
    if (object.is_directory() && (at->when & moment) == 0) continue;
    result.add(at->function(at->argument, walk.path, walk.root, object.directory, object.name,
                            &object.record, phase, object.depth));
    if (result.skips() || ends(walk, result)) break;
  }
  return result;
}

// NULL with errno 0 at the end; the operations of a caller cannot tell, so there it is the end.
const fileutl_dirent_t *read_entry(const Walk &walk) {
  WalkLevel *level = walk.innermost;
  if (walk.ops == nullptr) return fileutl_readdir(&level->own, 1);
  const fileutl_dirent_t *entry = walk.ops->read_directory(level->dir, 1);
  if (entry == nullptr) errno = 0;
  return entry;
}

Result visit(Walk &walk, const Object &object);

// Visits what is in the directory just entered, whose path, with a slash behind it, is the first
// `prefix` bytes of the walk's.
Result visit_entries(Walk &walk, const Object &directory, size_t prefix) {
  Result result;
  Object child = {};
  child.directory = walk.directory;
  child.name = walk.path + prefix;
  child.depth = directory.depth + 1;
  while (const fileutl_dirent_t *entry = read_entry(walk)) {
    if (is_dot_or_dot_dot(entry->d_name)) continue;
    strutl_cpy_buf(walk.path + prefix, entry->d_name, sizeof entry->d_name);
    child.path_length = prefix + strlen(child.name);
    if (is_done(walk, child)) continue;
    if (stat_object(walk, child) != 0) {
      walk_report(walk, walk.path);
      result = kFailure;
      continue;
    }
    const Result of_child = visit(walk, child);
    result.add(of_child);
    if (ends(walk, of_child)) return result;
  }
  if (errno != 0) {
    walk.path[directory.path_length] = '\0';
    walk_report(walk, walk.path);
    result.add(kFailure);
  }
  return result;
}

// The walk's texts get longer by a part while the contents are visited, and then are cut back.
Result visit_contents(Walk &walk, const Object &object) {
  if (!enter(walk, object)) {
    walk_report(walk, walk.path);
    return kFailure;
  }
  const size_t directory_length = strlen(walk.directory);
  if (!object.is_root()) {
    strutl_concat(walk.directory, sizeof walk.directory, 3, walk.directory,
                  directory_length > 0 ? "/" : "", object.name);
  }
  size_t prefix = object.path_length;
  if (prefix == 0 || walk.path[prefix - 1] != '/') walk.path[prefix++] = '/';
  const Result result = visit_entries(walk, object, prefix);
  walk.path[object.path_length] = '\0';
  walk.directory[directory_length] = '\0';
  leave(walk);
  return result;
}

// The parts of a visit, of which each may be the last.
Result visit_parts(Walk &walk, const Object &object) {
  Result result = call_chain(walk, object, FILEUTL_WALK_BEFORE, 1);
  if (result.skips() || ends(walk, result) || !object.is_directory()) return result;
  if (!object.is_root() || (walk.flags & FILEUTL_WALK_RECURSE) != 0) {
    result.add(visit_contents(walk, object));
    if (ends(walk, result)) return result;
  }
  // Below the root the phase stays 1: only the root's callbacks are told that it is over.
  result.add(call_chain(walk, object, FILEUTL_WALK_AFTER, object.is_root() ? 2 : 1));
  return result;
}

// The result has STOP when the walk is to end; a SKIP was for this object alone.
Result visit(Walk &walk, const Object &object) {
  Result result = visit_parts(walk, object);
  result.bits &= ~FILEUTL_WALK_SKIP;
  return result;
}

Result visit_root(Walk &walk) {
  Object root = {};
  root.path_length = strlen(walk.path);
  if (stat_object(walk, root) != 0) {
    walk_report(walk, walk.root);
    return kFailure;
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
  Result result;
  protect(
      [&] {
        result = visit_root(walk);
        release(walk);
      },
      [&] { release(walk); });
  return result.bits & ~kNoStatus;
}

int fileutl_walk_tree(const char *path, const fileutl_walk_callback_t *chain, int flags) {
  Walk walk;
  walk.shortcut = nullptr;
  return run_walk(walk, path, chain, nullptr, flags);
}

int fileutl_walk_tree_any(const char *path, const fileutl_walk_callback_t *chain,
                          const fileutl_walk_ops_t *ops, int flags) {
  Walk walk;
  walk.shortcut = nullptr;
  return run_walk(walk, path, chain, ops, flags);
}
